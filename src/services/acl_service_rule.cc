#include "services/acl_service_rule.h"

#include <algorithm>

#include "main/acl_log.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"

bool aclServiceTlvAppend(std::span<uint8_t> buf, uint16_t* length, std::span<const uint8_t> items) {
  using namespace acldev;
  if (length == nullptr || *length < kTlvHeaderLen + 2 * kTlvSectionLenLen ||
      *length > buf.size()) {
    return false;
  }
  const uint32_t total = *length;
  const uint32_t n = static_cast<uint32_t>(items.size());
  if (total + n > buf.size() || total + n > 0xFFFF) return false;
  // Both section lengths count their own word: the action section starts right after the rule
  // section and must end where the message ends.
  const uint32_t actionAt = kTlvHeaderLen + be::load16(buf, kTlvHeaderLen);
  if (actionAt + kTlvSectionLenLen > total) return false;
  const uint32_t actionLen = be::load16(buf, actionAt);
  if (actionAt + actionLen != total) return false;
  std::copy(items.begin(), items.end(), buf.begin() + total);
  be::store16(buf, actionAt, static_cast<uint16_t>(actionLen + n));
  be::store16(buf, kTlvBufferLen, static_cast<uint16_t>(be::load16(buf, kTlvBufferLen) + n));
  *length = static_cast<uint16_t>(total + n);
  return true;
}

AclListEntry* aclServiceListGet(const char* tag, uint32_t lstIdx, int32_t* ret) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter-list %d entry is NULL])\r\n",
             tag, static_cast<int>(lstIdx));
    *ret = ACL_ERR_LIST_NOT_EXIST;
    return nullptr;
  }
  if (list->ruleNum == 0) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [%s] error. (Reason=[filter-list %d ruleNum is error])\r\n", tag,
             static_cast<int>(lstIdx));
    *ret = ACL_ERR_LIST_EMPTY;
    return nullptr;
  }
  return list;
}
