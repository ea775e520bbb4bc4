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
