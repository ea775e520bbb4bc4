// Slot accounting of single rules under dynamic binding: whether every slot a list is bound on can
// take one more rule, and charging or discharging that rule. The rule API calls them when it
// creates and deletes rules. Run with aclMutex held.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_SLOT_DYNAMIC_ADD = 1;
constexpr uint32_t ACL_SLOT_DYNAMIC_DEL = 2;  // any op other than 1 discharges

// 0, 0x03EA0047 (a slot record is missing) or 0x03EA0048 (a slot is full).
int32_t aclSlotSubRuleNumCheckDynamic(uint32_t lstIdx, uint32_t ruleIdx);
// Charges (op 1) or discharges one rule on every slot the list is bound on; 0.
int32_t aclSlotSubRuleNumUpdateDynamic(uint32_t lstIdx, uint32_t ruleIdx, uint32_t op);
