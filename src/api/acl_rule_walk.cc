// The rule walk (function ids 9 and 10): every rule of every list in (lstIdx, ruleIdx) order, or
// only the rules of the key's list when the key's filter bit is set. A walk goes on from a rule
// or a list that has meanwhile gone.
#include "api/acl_rule_api.h"
#include "api/acl_rule_internal.h"
#include "main/acl_group.h"
#include "platform/avl.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

void keyStore(uintptr_t keyAddr, const AclRuleEntry* rule) {
  std::span<uint8_t> key(reinterpret_cast<uint8_t*>(keyAddr), ACL_RULE_KEY_LEN);
  be::store32(key, ACL_RULE_KEY_LST, rule->lstIdx);
  be::store32(key, ACL_RULE_KEY_RULE, rule->ruleIdx);
}

AclListEntry* listNext(AclListEntry* list) {
  return static_cast<AclListEntry*>(avl_next(&gaclGrp.listTree, list));
}

// The first rule of list whose number is above after (0: its first rule).
AclRuleEntry* ruleAfter(AclListEntry* list, uint32_t after) {
  if (after == 0) return static_cast<AclRuleEntry*>(avl_first(&list->ruleTree));
  AclRuleEntry key{};
  key.ruleIdx = after;
  avl_index_t where = 0;
  void* cur = avl_find(&list->ruleTree, &key, &where);
  return static_cast<AclRuleEntry*>(cur != nullptr
                                        ? avl_next(&list->ruleTree, cur)
                                        : avl_nearest(&list->ruleTree, where, AVL_AFTER));
}

bool candidate(uintptr_t keyAddr, const AclListEntry* list, const AclRuleEntry* rule) {
  return rule != nullptr && rule->status != ACL_RULE_STATUS_FREE &&
         aclRuleFilterMatch(keyAddr, list) != 0;
}

}  // namespace

int32_t aclRuleFilterMatch(uintptr_t keyAddr, const AclListEntry* list) {
  const AclRuleKey k = aclRuleKeyLoad(keyAddr);
  return (k.filter & ACL_RULE_FILTER_LIST) == 0 || list->lstIdx == k.lstIdx ? 1 : 0;
}

int32_t aclRuleGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t) {
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_RET_UNKNOWN;
  AclLockGuard lock;
  for (auto* list = static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree)); list != nullptr;
       list = listNext(list)) {
    if (aclRuleFilterMatch(keyAddr, list) == 0) continue;
    // Only a list's first rule is a candidate; a list whose first rule does not qualify is passed.
    AclRuleEntry* first = ruleAfter(list, 0);
    if (candidate(keyAddr, list, first)) {
      keyStore(keyAddr, first);
      return 0;
    }
  }
  return ACL_RET_UNKNOWN;
}

int32_t aclRuleGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t) {
  if (keyAddr == 0 || nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_RET_UNKNOWN;
  const AclRuleKey k = aclRuleKeyLoad(keyAddr);
  AclLockGuard lock;
  for (auto* list = static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree)); list != nullptr;
       list = listNext(list)) {
    if (list->lstIdx < k.lstIdx) continue;
    AclRuleEntry* next = ruleAfter(list, list->lstIdx == k.lstIdx ? k.ruleIdx : 0);
    if (candidate(keyAddr, list, next)) {
      keyStore(nextAddr, next);
      return 0;
    }
  }
  return ACL_RET_UNKNOWN;
}
