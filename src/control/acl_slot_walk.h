// The slot accounting computed by walking the bind trees and locating every binding through the
// platform, as each check and update once did. The daemon answers from the index of bindings
// (acl_slot_index.h); these give the same answers and make the same changes to the ledger while
// the platform places every interface where it did when its bindings were made. The audit, the
// tests and the benchmark compare the two. Arguments and results as the functions of
// acl_slot.h and acl_slot_dynamic.h without "Walk" in their names. Callers hold aclMutex.
#pragma once

#include <cstdint>

struct AclSlotEntry;
struct AclIfListEntry;

int32_t aclSlotWalkSubRuleNumUpdate(uint32_t ifIndex, uint32_t listIdx, uint32_t count, uint8_t dir,
                                    uint32_t op);
int32_t aclSlotWalkSubRuleNumCheck(uint32_t ifIndex, uint32_t oldCount, uint32_t listIdx,
                                   uint32_t newCount, uint8_t dir);
int32_t aclSlotWalkSubRuleNumCheckWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                           uint32_t count, uint8_t dir);
int32_t aclSlotWalkSubRuleNumUpdateWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                            uint32_t count, uint8_t dir, uint32_t op);
uint32_t aclSlotWalkSingleRuleNumGet(uint32_t sys, uint32_t slot, uint32_t listIdx, uint32_t dir);
int32_t aclSlotWalkCurRuleNumSync(uint32_t sys, uint32_t slot);
int32_t aclSlotWalkCurRuleNumSyncOne(AclSlotEntry* entry, uint32_t listIdx, uint32_t ruleNum,
                                     uint8_t dir, const AclIfListEntry* binding);
int32_t aclSlotWalkListRuleBindedCheck(uint32_t sys, uint32_t slot, uint32_t listIdx,
                                       uint32_t ruleIdx, uint8_t dir);
int32_t aclSlotWalkSubRuleNumCheckDynamic(uint32_t lstIdx, uint32_t ruleIdx);
int32_t aclSlotWalkSubRuleNumUpdateDynamic(uint32_t lstIdx, uint32_t ruleIdx, uint32_t op);
