// Slot records: one ledger of hardware rule capacity per known (system, slot).
#pragma once

#include <cstdint>

#include "main/acl_group.h"
#include "platform/dlist.h"

struct AclSlotEntry {
  SilDlNode links;  // slotList, ascending by sys then slot
  uint32_t sys;
  uint32_t slot;
  uint32_t chipNum;
  uint32_t maxRuleNum;
  uint32_t curRuleNum;
  int32_t bindRefCnt;
  uint32_t maxSubRuleNum[ACL_BIND_TYPE_NUM];
  uint32_t curSubRuleNum[ACL_BIND_TYPE_NUM];
};

AclSlotEntry* aclSlotEntryAdd(uint32_t sys, uint32_t slot);
AclSlotEntry* aclSlotEntryGet(uint32_t sys, uint32_t slot);
int32_t aclSlotEntryDel(AclSlotEntry* entry);
void aclSlotEntrySelfAdd();

// The record that holds slotList node n.
AclSlotEntry* aclSlotFromLinks(SilDlNode* n);

// Slot accounting of a binding (the ledger's check and charge). The check comes before anything
// reaches the hardware; the charge (op 1 add, 2 delete) after the hardware took the change and
// before the bind tree is changed, so it sees the binding being added as not yet counted and the
// one being removed as still counted.
constexpr uint32_t ACL_SLOT_OP_ADD = 1;
constexpr uint32_t ACL_SLOT_OP_DEL = 2;
int32_t aclSlotSubRuleNumCheck(uint32_t ifIndex, uint32_t oldCount, uint32_t listIdx,
                               uint32_t newCount, uint8_t dir);
int32_t aclSlotSubRuleNumUpdate(uint32_t ifIndex, uint32_t listIdx, uint32_t count, uint8_t dir,
                                uint32_t op);
