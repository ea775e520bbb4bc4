// The dynamic rule set: with dynamic binding enabled, a rule added to, changed in or removed from
// a bound list reaches every binding of that list at once. The rule API calls it after a rule
// becomes valid (op 1) and before a rule leaves the hardware (op 0). Runs with aclMutex held.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_DYNAMIC_RULE_DEL = 0;
constexpr uint32_t ACL_DYNAMIC_RULE_ADD = 1;

// -1 (as u32) when the list does not exist, has no rules or has no rule ruleIdx; 0 when dynamic
// binding is disabled or every binding took the change; otherwise the first binding call's code.
uint32_t aclDynamicRuleSet(uint32_t lstIdx, uint32_t ruleIdx, uint32_t op);
