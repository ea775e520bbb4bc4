// Slot records: one ledger of hardware rule capacity per known (system, slot), the capacities each
// card reports, and the charging of bindings against them. The ledger is bookkeeping only: it
// never touches the hardware. Every function runs with aclMutex held by its caller.
#pragma once

#include <cstdint>

#include "main/acl_group.h"
#include "platform/dlist.h"

struct AclIfListEntry;

struct AclSlotEntry {
  SilDlNode links;  // slotList, ascending by sys then slot
  uint32_t sys;
  uint32_t slot;
  uint32_t chipNum;
  uint32_t maxRuleNum;
  uint32_t curRuleNum;
  int32_t bindRefCnt;  // scratch of one charging pass
  uint32_t maxSubRuleNum[ACL_BIND_TYPE_NUM];
  uint32_t curSubRuleNum[ACL_BIND_TYPE_NUM];
};

// Update operations.
constexpr uint32_t ACL_SLOT_OP_ADD = 1;
constexpr uint32_t ACL_SLOT_OP_DEL = 2;

// The card option query: one 132-byte entry per bind type of a stage, the key in bytes 0..63, the
// card's decimal answer in 64..127 and its length (i32) in 128..131.
constexpr uint32_t ACL_SLOT_OPT_ENTRY_LEN = 132;
constexpr uint32_t ACL_SLOT_OPT_KEY_LEN = 64;
constexpr uint32_t ACL_SLOT_OPT_VALUE_AT = 64;
constexpr uint32_t ACL_SLOT_OPT_VALUE_LEN_AT = 128;
constexpr uint32_t ACL_SLOT_OPT_BUF_LEN = ACL_LIST_TYPE_COLUMNS * ACL_SLOT_OPT_ENTRY_LEN;  // 792

AclSlotEntry* aclSlotEntryAdd(uint32_t sys, uint32_t slot);
AclSlotEntry* aclSlotEntryGet(uint32_t sys, uint32_t slot);
int32_t aclSlotEntryDel(AclSlotEntry* entry);
void aclSlotEntrySelfAdd();
// The record of (sys, slot), created when there is none; nullptr when the pool is exhausted.
AclSlotEntry* aclSlotEntryGetOrAdd(uint32_t sys, uint32_t slot);

// The record that holds slotList node n.
AclSlotEntry* aclSlotFromLinks(SilDlNode* n);
// The first record in (sys, slot) order and the one after e; nullptr at the end.
AclSlotEntry* aclSlotFirst();
AclSlotEntry* aclSlotNext(const AclSlotEntry* e);

// Asks the card in (sys, slot) for its capacities, stage by stage, and keeps every positive one;
// 0, or ACL_ERR_SLOT_NOT_EXIST when no record can be had. A failed query is only logged.
int32_t aclSlotMaxSubRuleNumUpdate(uint32_t sys, uint32_t slot, uint32_t cardType);

// Where an interface lies, as the charging needs it.
struct AclSlotIfLoc {
  uint32_t sys;
  uint32_t slot;
  uint32_t kind;
  // Aggregations (kind 2) and all-slot interfaces (kind 3) reach every slot.
  bool allSlot() const { return kind == 2 || kind == 3; }
};
// False when the platform cannot locate the interface.
bool aclSlotIfLocate(uint32_t ifIndex, AclSlotIfLoc* loc);

// Charges (op 1) or releases (op 2) listIdx's count rules in direction dir for a binding on
// ifIndex: once per slot, however many bindings of the list the slot carries. Called after the
// hardware took the binding and before the bind tree changes. 0, ACL_ERR_SLOT_NOT_EXIST or
// CMN_ERR_IF_LOCATE.
int32_t aclSlotSubRuleNumUpdate(uint32_t ifIndex, uint32_t listIdx, uint32_t count, uint8_t dir,
                                uint32_t op);
// Whether replacing a binding of oldCount rules by listIdx with newCount rules fits on every slot
// ifIndex reaches. 0, ACL_ERR_SLOT_NOT_EXIST, ACL_ERR_SLOT_RULE_FULL or CMN_ERR_IF_LOCATE.
int32_t aclSlotSubRuleNumCheck(uint32_t ifIndex, uint32_t oldCount, uint32_t listIdx,
                               uint32_t newCount, uint8_t dir);
// The same for bindings of single rules (ruleIdx != 0) beside whole lists (ruleIdx 0).
int32_t aclSlotSubRuleNumCheckWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                       uint32_t count, uint8_t dir);
// 0, -1 (the interface cannot be located), ACL_ERR_SLOT_NOT_EXIST.
int32_t aclSlotSubRuleNumUpdateWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                        uint32_t count, uint8_t dir, uint32_t op);
// Single-rule bindings of listIdx in direction dir that reach (sys, slot).
uint32_t aclSlotSingleRuleNumGet(uint32_t sys, uint32_t slot, uint32_t listIdx, uint32_t dir);

// Charges the bindings on all-slot interfaces on the record of (sys, slot), once per list and
// direction; called when a card comes up. Adds to what the record holds. 0,
// ACL_ERR_SLOT_NOT_EXIST or CMN_ERR_IF_LOCATE.
int32_t aclSlotCurRuleNumSync(uint32_t sys, uint32_t slot);
// One binding of that recount: charges ruleNum unless an earlier all-slot binding of the list in
// that direction already did. Always 0.
int32_t _aclSlotCurRuleNumSync(AclSlotEntry* entry, uint32_t listIdx, uint32_t ruleNum, uint8_t dir,
                               const AclIfListEntry* binding);

// 1 when the first locatable binding of (listIdx, ruleIdx, dir) reaches (sys, slot), else 0.
int32_t aclSlotListRuleBindedCheck(uint32_t sys, uint32_t slot, uint32_t listIdx, uint32_t ruleIdx,
                                   uint8_t dir);
