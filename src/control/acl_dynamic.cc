// The entry point of the dynamic rule set. Its checks are in place; the walk over the list's
// bindings (interfaces, GEM ports, the global scope) is the dynamic rule set's own issue and will
// be filled in here, after the checks, where the fault table now stands in for it.
#include "control/acl_dynamic.h"

#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/fault.h"
#include "services/acl_blacklist.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"

uint32_t aclDynamicRuleSet(uint32_t lstIdx, uint32_t ruleIdx, uint32_t op) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl dynamic rule set] info =[acl dynamic rule set enter!].\r\n");
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr || list->ruleNum == 0) return static_cast<uint32_t>(-1);
  AclRuleEntry* rule = aclRuleEntryGet(list, ruleIdx);
  if (rule == nullptr) return static_cast<uint32_t>(-1);
  if (gaclGrp.dynamicBindEnable == 0) return 0;
  // The blacklist follows the list's rules before any binding does.
  if (const int32_t ret = aclBlackListDynamicRuleSet(list, rule, op)) {
    return static_cast<uint32_t>(ret);
  }
  // Until the binding walk lands, a test makes it fail through the fault table under this
  // function's name (cmd = op), which is how the rule API's undo paths are exercised.
  if (auto f = plat::faultHit(
          {.call = "aclDynamicRuleSet", .cmd = op, .list = lstIdx, .rule = ruleIdx})) {
    return static_cast<uint32_t>(*f);
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl dynamic rule set] info =[acl dynamic rule set end.].\r\n");
  return 0;
}
