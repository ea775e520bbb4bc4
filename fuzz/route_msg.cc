// Route-message reads from arbitrary bytes: the message walk hands over only whole messages that
// lie inside the read and start on 4-byte boundaries, the attribute walk only attributes inside
// their message; then the same read is dispatched, under the lock as the event task does, on a
// started ACL group whose interfaces, aggregation and global scope hold bindings, so every handler
// meets records to change. State carries over from one input to the next, as in the daemon.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <span>
#include <string>

#include "api/acl_scalar_api.h"
#include "api/acl_scalar_bind.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_rtmsg.h"
#include "main/acl_task.h"
#include "platform/logging.h"
#include "platform/proc.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"

namespace {

void bindings() {
  aclLock();
  for (uint32_t lst : {1001u, 1002u}) {
    aclListEntryAdd(lst);
    for (uint32_t r = 1; r <= 2; ++r) {
      if (AclRuleEntry* rule = aclRuleEntryAdd(lst, r)) rule->status = ACL_RULE_STATUS_VALID;
    }
  }
  for (uint32_t unit : {201u, 202u, 1001u}) {
    if (AclIfEntry* e = aclIfEntryAdd(unit)) {
      aclIfRuleUpdate(unit, ACL_BIND_KIND_IPV4, 0, 1001, &e->slots.inIpv4Acl);
    }
  }
  uint32_t previous = 0;
  aclScalarSlotMove(ACL_SCALAR_GLB_SLOT_FIRST + 2, 1002, &previous);
  aclUnlock();
}

[[noreturn]] void broken() {
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  char dir[] = "/tmp/acl-fuzz-XXXXXX";
  if (mkdtemp(dir) == nullptr) std::abort();
  plat::setRunDir(dir);
  plat::logSetSink(plat::LogSink::File, "/dev/null");
  if (aclOptInit() != 0) std::abort();
  bindings();
  static const std::string runDir = dir;
  std::atexit([] {
    aclResetForTest();
    std::error_code ec;
    std::filesystem::remove_all(runDir, ec);
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A read is at most what the task receives at once.
  const std::span<const uint8_t> in(data, std::min<size_t>(size, ACL_RTMSG_RECV_MAX));
  const uint8_t* const begin = in.data();
  const uint8_t* const end = begin + in.size();
  aclRtMsgWalk(in, [&](uint16_t, std::span<const uint8_t> msg, uint32_t remaining) {
    if (msg.data() < begin || msg.data() + msg.size() > end || msg.size() < ACL_RTMSG_HDR_LEN ||
        (msg.data() - begin) % 4 != 0 || remaining != static_cast<size_t>(end - msg.data())) {
      broken();
    }
    aclRtAttrWalk(msg, [&](uint16_t, std::span<const uint8_t> attr) {
      if (attr.data() < msg.data() + ACL_RTA_RUN_AT || attr.size() < ACL_RTA_HDR_LEN ||
          attr.data() + attr.size() > msg.data() + msg.size() ||
          (attr.data() - msg.data()) % 4 != 0) {
        broken();
      }
    });
  });
  aclLock();
  const int32_t ret = aclRtMsgRecv(in);
  aclUnlock();
  if (ret != 0) broken();
  return 0;
}
