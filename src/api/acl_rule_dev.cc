// Get 75 and 87: a rule in the two forms the hardware layer takes, translated as the rule stands,
// outside any binding: direction 0, no sharing, no GEM port. Other modules reach them through
// aclRuleDevTrans and aclRuleDevTransTlv, which take the lock through aclRuleGetApi.
#include <algorithm>
#include <array>

#include "api/acl_rule_api.h"
#include "api/acl_rule_internal.h"
#include "hw/acl_dev_trans.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"

int32_t aclRuleGetDevRecord(AclRuleEntry* rule, wire::BufDesc* d) {
  // A short area is left alone: nothing is copied and the answer is still 0.
  if (d->data == nullptr || d->len < ACL_DEV_RECORD_LEN) return 0;
  std::array<uint8_t, ACL_DEV_RECORD_LEN> dev{};
  const auto ret =
      static_cast<int32_t>(aclDevTrans(rule, dev.data(), 0, 0, 0, rule->priority, 0, 0, 0));
  std::copy(dev.begin(), dev.end(), static_cast<uint8_t*>(d->data));
  d->len = ACL_DEV_RECORD_LEN;
  return ret;
}

int32_t aclRuleGetTlv(AclListEntry* list, AclRuleEntry* rule, wire::BufDesc* d) {
  if (d == nullptr || d->data == nullptr) return CMN_ERR_BAD_PARAM;
  if (d->len < ACL_DEV_TLV_BUF_LEN) return CMN_ERR_BUFFER_SHORT;
  uint16_t len = 0;
  const auto ret = static_cast<int32_t>(
      aclDevTransNew(rule, 0, 0, 0, 0, static_cast<uint16_t>(rule->ruleIdx), 0, list->activeRuleNum,
                     0, 0, 0, static_cast<uint8_t*>(d->data), &len));
  d->len = len;
  return ret;
}

int32_t aclRuleDevTrans(uintptr_t keyAddr, uintptr_t data) {
  wire::BufDesc d{reinterpret_cast<void*>(data), ACL_DEV_RECORD_LEN};
  return aclRuleGetApi(keyAddr, ACL_RULE_CMD_DEV_RECORD, reinterpret_cast<uintptr_t>(&d));
}

int32_t aclRuleDevTransTlv(uintptr_t keyAddr, uintptr_t descAddr) {
  return aclRuleGetApi(keyAddr, ACL_RULE_CMD_TLV, descAddr);
}
