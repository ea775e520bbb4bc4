#include "services/acl_rule_copy.h"

#include <algorithm>
#include <array>

#include "platform/dlist.h"
#include "wire/acl_codes.h"
#include "wire/be.h"

AclRuleCopy::AclRuleCopy(AclRuleEntry* from, uint16_t priority) {
  dlist::init(&r_.valueList);
  dlist::init(&r_.actionList);
  r_.lstIdx = from->lstIdx;
  r_.ruleIdx = from->ruleIdx;
  std::copy(std::begin(from->fieldBits), std::end(from->fieldBits), std::begin(r_.fieldBits));
  r_.layerType = from->layerType;
  r_.status = from->status;
  r_.priority = priority;
  for (AclValueEntry* e = aclValueFirst(from); e != nullptr; e = aclValueNext(from, e)) {
    const std::span<uint8_t> bytes = aclValueBytes(e);
    const int32_t ret = bytes.size() <= ACL_SHORT_VALUE_LEN
                            ? aclRuleShortEntryAdd(&r_, e->code, bytes.data(), bytes.size())
                            : aclRuleLongEntryAdd(&r_, e->code, bytes.data(), bytes.size());
    if (ret != 0) {
      ok_ = false;
      aclRuleListDel(&r_);
      return;
    }
  }
}

AclRuleCopy::~AclRuleCopy() {
  aclRuleListDel(&r_);
  aclActionListDel(&r_);
  aclOutActionListDel(&r_);
}

int32_t AclRuleCopy::action(uint8_t code, uint8_t slot, std::span<const uint8_t> param) {
  actionBit(code);
  if (param.empty()) {
    return aclShortActionEntryAdd(&r_, code, ACL_ACTION_NO_SLOT, nullptr, 0);
  }
  return param.size() <= ACL_SHORT_VALUE_LEN
             ? aclShortActionEntryAdd(&r_, code, slot, param.data(), param.size())
             : aclLongActionEntryAdd(&r_, code, slot, param.data(), param.size());
}

int32_t AclRuleCopy::action32(uint8_t code, uint8_t slot, uint32_t value) {
  std::array<uint8_t, 4> word{};
  be::store32(word.data(), value);
  return action(code, slot, word);
}
