// Set 57 and 58: a rule's life (create, make valid, make invalid, delete) and its move. A rule is
// installed in or removed from every binding of its list through the dynamic rule set, and each
// change is announced to the platform.
#include "api/acl_rule_internal.h"
#include "control/acl_dynamic.h"
#include "control/acl_slot_dynamic.h"
#include "main/acl_group.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"

namespace {

int32_t makeValid(AclRuleSetCtx& c) {
  AclRuleEntry* rule = c.rule;
  if (rule == nullptr || rule->status == ACL_RULE_STATUS_FREE) return CMN_ERR_NOT_FOUND;
  const uint8_t oldStatus = rule->status;
  rule->status = ACL_RULE_STATUS_VALID;
  const auto ret = static_cast<int32_t>(aclDynamicRuleSet(c.k.lstIdx, c.k.ruleIdx, 1));
  if (ret == 0) {
    aclListNotify(ACL_NOTIFY_LIST_RULES, c.k.lstIdx);
    aclRuleNotify(ACL_NOTIFY_RULE_VALID, c.k.lstIdx, c.k.ruleIdx);
    return 0;
  }
  // A rule that could not be installed everywhere is taken out again and loses its in-actions.
  aclDynamicRuleSet(c.k.lstIdx, c.k.ruleIdx, 0);
  aclRuleInActionStrip(rule);
  rule->status = oldStatus;
  return ret;
}

int32_t create(AclRuleSetCtx& c) {
  const bool dynamic = gaclGrp.dynamicBindEnable != 0;
  if (c.rule == nullptr) {
    if (dynamic) {
      if (int32_t ret = aclSlotSubRuleNumCheckDynamic(c.k.lstIdx, c.k.ruleIdx)) return ret;
    }
    c.rule = aclRuleEntryAdd(c.k.lstIdx, c.k.ruleIdx);
    if (c.rule != nullptr && dynamic) {
      aclSlotSubRuleNumUpdateDynamic(c.k.lstIdx, c.k.ruleIdx, ACL_SLOT_DYNAMIC_ADD);
    }
  } else {
    // An existing rule starts again empty.
    if (auto ret = static_cast<int32_t>(aclDynamicRuleSet(c.k.lstIdx, c.k.ruleIdx, 0))) {
      return ret;
    }
    if (int32_t ret = aclRuleEntryDel(c.rule)) return ret;
    aclRuleNotify(ACL_NOTIFY_RULE_INVALID, c.k.lstIdx, c.k.ruleIdx);
    c.rule = aclRuleEntryAdd(c.k.lstIdx, c.k.ruleIdx);
  }
  if (c.rule != nullptr) return 0;
  // Rule number 0 names no rule and leaves no reason behind.
  return gaclGrp.lastErr != 0 ? static_cast<int32_t>(gaclGrp.lastErr) : CMN_ERR_NOT_FOUND;
}

int32_t makeInvalid(AclRuleSetCtx& c) {
  AclRuleEntry* rule = c.rule;
  if (rule == nullptr || rule->status == ACL_RULE_STATUS_FREE) return CMN_ERR_NOT_FOUND;
  if (rule->status == ACL_RULE_STATUS_CREATED) return 0;
  const auto ret = static_cast<int32_t>(aclDynamicRuleSet(c.k.lstIdx, c.k.ruleIdx, 0));
  rule->status = ACL_RULE_STATUS_CREATED;
  aclRuleNotify(ACL_NOTIFY_RULE_INVALID, c.k.lstIdx, c.k.ruleIdx);
  return ret;
}

int32_t remove(AclRuleSetCtx& c) {
  if (c.rule == nullptr) return 0;
  if (auto ret = static_cast<int32_t>(aclDynamicRuleSet(c.k.lstIdx, c.k.ruleIdx, 0))) return ret;
  if (int32_t ret = aclRuleEntryDel(c.rule)) return ret;
  c.rule = nullptr;
  if (gaclGrp.dynamicBindEnable != 0) {
    aclSlotSubRuleNumUpdateDynamic(c.k.lstIdx, c.k.ruleIdx, ACL_SLOT_DYNAMIC_DEL);
  }
  aclListNotify(ACL_NOTIFY_LIST_RULES, c.k.lstIdx);
  aclRuleNotify(ACL_NOTIFY_RULE_INVALID, c.k.lstIdx, c.k.ruleIdx);
  return 0;
}

}  // namespace

int32_t aclRuleSetStatus(AclRuleSetCtx& c) {
  if (int32_t ret = aclRuleRelay(c)) return ret;
  switch (aclRuleSetValue(c)) {
    case ACL_RULE_STATUS_SET_VALID:
      return makeValid(c);
    case ACL_RULE_STATUS_SET_CREATE:
      return create(c);
    case ACL_RULE_STATUS_SET_INVALID:
      return makeInvalid(c);
    case ACL_RULE_STATUS_SET_DELETE:
      return remove(c);
    default:
      return 0;
  }
}

int32_t aclRuleSetMove(AclRuleSetCtx& c) {
  if (int32_t ret = aclRuleRelay(c)) return ret;
  return aclRuleEntryMove(c.k.lstIdx, c.k.ruleIdx, aclRuleSetValue(c));
}
