// Slot accounting of single rules under dynamic binding: whether every slot a list is bound on can
// take one more rule, and charging or discharging that rule. The rule API calls them when it
// creates and deletes rules of a bound list. Run with aclMutex held.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_SLOT_DYNAMIC_ADD = 1;
constexpr uint32_t ACL_SLOT_DYNAMIC_DEL = 2;  // any op other than 1 discharges

// 0, ACL_ERR_SLOT_NOT_EXIST (a slot record is missing) or ACL_ERR_SLOT_RULE_FULL (a slot is full),
// over the list's interface bindings in every direction. ruleIdx is not used.
int32_t aclSlotSubRuleNumCheckDynamic(uint32_t lstIdx, uint32_t ruleIdx);
// Charges (op 1) or discharges one rule on every slot the list is bound on, ingress and egress
// only, at most once per slot and direction; 0. ruleIdx is not used.
int32_t aclSlotSubRuleNumUpdateDynamic(uint32_t lstIdx, uint32_t ruleIdx, uint32_t op);
