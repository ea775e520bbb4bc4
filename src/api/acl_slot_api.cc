#include "api/acl_slot_api.h"

#include <span>

#include "control/acl_slot.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "services/acl_cpudefend.h"
#include "services/acl_nat.h"
#include "wire/acl_ret.h"
#include "wire/acl_slot_names.h"
#include "wire/be.h"

int32_t aclSlotSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _aclSlotSetApi(key, cmd, buf, 3);
}

int32_t aclSlotSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _aclSlotSetApi(key, cmd, buf, 1);
}

int32_t _aclSlotSetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf, uint32_t /*mode*/) {
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (cmd > ACL_SLOT_CMD_NAT_DEL) return 0;
  // Before start-up no list exists to install.
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;
  AclLockGuard lock;
  switch (cmd) {
    case ACL_SLOT_CMD_CPUDEFEND_ADD:
      return _aclCpudefendSlotaddEx(key, buf);
    case ACL_SLOT_CMD_CPUDEFEND_DEL:
      return _aclCpudefendSlotdelEx(key, buf);
    case ACL_SLOT_CMD_NAT_ADD:
      return _aclNatSlotaddEx(key, buf);
    default:
      return _aclNatSlotdelEx(key, buf);
  }
}

namespace {

std::span<uint8_t, wire::kSlotKeyLen> slotKeyBytes(uintptr_t addr) {
  return std::span<uint8_t, wire::kSlotKeyLen>(reinterpret_cast<uint8_t*>(addr), wire::kSlotKeyLen);
}

void slotKeyStore(uintptr_t addr, const AclSlotEntry* s) {
  be::store32(slotKeyBytes(addr), 0, s->sys);
  be::store32(slotKeyBytes(addr), 4, s->slot);
}

int32_t ledgerRead(const AclSlotEntry* s, ZorBufDesc* desc) {
  if (desc->data == nullptr) return CMN_ERR_BAD_PARAM;
  if (desc->len < wire::kSlotLedgerLen) return CMN_ERR_BUFFER_SHORT;
  std::span<uint8_t> out(static_cast<uint8_t*>(desc->data), wire::kSlotLedgerLen);
  be::store32(out, wire::kSlotLedgerChipNum, s->chipNum);
  be::store32(out, wire::kSlotLedgerMaxRuleNum, s->maxRuleNum);
  be::store32(out, wire::kSlotLedgerCurRuleNum, s->curRuleNum);
  for (uint32_t t = 0; t < ACL_BIND_TYPE_NUM; ++t) {
    const size_t at = wire::kSlotLedgerTypes + t * wire::kSlotLedgerTypeLen;
    be::store32(out, at, s->curSubRuleNum[t]);
    be::store32(out, at + 4, s->maxSubRuleNum[t]);
  }
  desc->len = wire::kSlotLedgerLen;
  return 0;
}

}  // namespace

int32_t aclSlotResourceGetFirst(uintptr_t key, uintptr_t, uintptr_t) {
  if (key == 0 || !aclStarted()) return -1;
  AclLockGuard lock;
  const AclSlotEntry* s = aclSlotFirst();
  if (s == nullptr) return -1;
  slotKeyStore(key, s);
  return 0;
}

int32_t aclSlotResourceGetNext(uintptr_t key, uintptr_t nextKey, uintptr_t) {
  if (key == 0 || nextKey == 0 || !aclStarted()) return -1;
  AclLockGuard lock;
  // Unlike the other walks, this one goes on only from a key that is a record.
  const auto cur = slotKeyBytes(key);
  AclSlotEntry* s = aclSlotEntryGet(be::load32(cur, 0), be::load32(cur, 4));
  if (s == nullptr) return -1;
  const AclSlotEntry* next = aclSlotNext(s);
  if (next == nullptr) return -1;
  slotKeyStore(nextKey, next);
  aclDebug(ACL_LOG_API, "ACL config [ACL slot resource get next] info=[sys = %d,slot = %d]. ",
           static_cast<int>(next->sys), static_cast<int>(next->slot));
  return 0;
}

int32_t aclSlotResourceGetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf) {
  if (key == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const auto k = slotKeyBytes(key);
  const uint32_t sys = be::load32(k, 0), slot = be::load32(k, 4);
  aclDebug(ACL_LOG_API, "ACL config [ACL slot resource GET] info=[index %d/%d].",
           static_cast<int>(sys), static_cast<int>(slot));
  const AclSlotEntry* s = aclSlotEntryGet(sys, slot);
  if (s == nullptr) return CMN_ERR_NOT_FOUND;
  auto* desc = reinterpret_cast<ZorBufDesc*>(buf);
  switch (static_cast<uint32_t>(cmdArg)) {
    case wire::kSlotResourceCmdRecords: {
      if (desc == nullptr) return CMN_ERR_BAD_PARAM;
      uint8_t req[16] = {};
      be::store32(req, 0, sys);
      be::store32(req, 4, slot);
      return zorHwilSlotGet(req, HWIL_SLOT_RESOURCE_QUERY, desc);
    }
    case wire::kSlotResourceCmdLedger:
      return desc == nullptr ? CMN_ERR_BAD_PARAM : ledgerRead(s, desc);
    default:
      return 0;
  }
}

int32_t aclResourceGetFirst(uintptr_t, uintptr_t, uintptr_t) {
  return 0;
}
int32_t aclResourceGetNext(uintptr_t, uintptr_t, uintptr_t) {
  return 0;
}
int32_t aclResourceGetApi(uintptr_t, uintptr_t, uintptr_t) {
  return 0;
}
int32_t aclResourceSetApi(uintptr_t, uintptr_t, uintptr_t) {
  return 0;
}
