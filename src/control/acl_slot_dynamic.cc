// The entry points of the slot accounting for single rules. The walk over the list's interface
// bindings and their slot records belongs to the slot accounting's own issue and will be filled in
// here; until then no binding is charged, so every slot has room and nothing changes.
#include "control/acl_slot_dynamic.h"

int32_t aclSlotSubRuleNumCheckDynamic(uint32_t /*lstIdx*/, uint32_t /*ruleIdx*/) {
  return 0;
}

int32_t aclSlotSubRuleNumUpdateDynamic(uint32_t /*lstIdx*/, uint32_t /*ruleIdx*/, uint32_t /*op*/) {
  return 0;
}
