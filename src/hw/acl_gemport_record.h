// ONU GEM port records and their bind-list entries: per GEM port of an ONU behind a PON
// interface, the list bound in each typed and pre-stage bind slot, and one entry per binding.
// Callers hold aclMutex.
#pragma once

#include <cstdint>

#include "hw/acl_bind_slot.h"
#include "platform/avl.h"

struct AclGemPortEntry {
  avl_node_t node;  // gemPortTree
  uint32_t unit;    // the PON interface
  uint16_t onuId;
  uint16_t gemPort;
  uint16_t rowStatus;
  AclBindSlots slots;  // the untyped inAcl and outAcl stay 0: a GEM port has none
};

struct AclGemPortListEntry {
  avl_node_t node;  // gemPortListTree
  uint32_t ifIndex;
  uint16_t onuId;
  uint16_t gemPort;
  uint32_t lstIdx;
  uint8_t listType;
  uint8_t dir;
  uint8_t hwState;
};

// gemPortTree: unit, onuId, gemPort.
int aclGemPortCmp(const void* a, const void* b);
// gemPortListTree: lstIdx, ifIndex, onuId, gemPort, listType, dir.
int aclGemPortListCmp(const void* a, const void* b);

// A new record (rowStatus 1, every slot empty), or nullptr: with lastErr CMN_ERR_NO_RESOURCE when
// the pool is exhausted, lastErr untouched when the interface manager keeps no record for the
// unit. An existing record of the key is returned as it is.
AclGemPortEntry* aclGemPortEntryAdd(uint32_t unit, uint16_t onuId, uint16_t gemPort);
// The GEM port record of (unit, onuId, gemPort), or nullptr.
AclGemPortEntry* aclGemPortEntryGet(uint32_t unit, uint16_t onuId, uint16_t gemPort);
// Unlinks, clears and frees the record; 0.
int32_t aclGemPortEntryDel(AclGemPortEntry* entry);

// The entry with that key, created when missing; nullptr when the pool is exhausted.
AclGemPortListEntry* aclGemPortListAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort,
                                       uint8_t listType, uint8_t dir, uint32_t lstIdx);
AclGemPortListEntry* aclGemPortListGet(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort,
                                       uint8_t listType, uint8_t dir, uint32_t lstIdx);
int32_t aclGemPortListDel(AclGemPortListEntry* entry);

// Moves one bind slot of the GEM port (slot: its address in the record) to newLst, 0 meaning
// unbind, with the hardware work, the lists' refCnt, the slot charge and the bind-list entry, as
// the interface slot update does. listType is the slot's bind kind.
int32_t aclGemPortRuleUpdate(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint8_t listType,
                             uint8_t dir, uint32_t newLst, uint32_t* slot);
// Unbinds every slot of the GEM port (its ONU went away); ACL_ERR_IF_NOT_EXIST without a record.
// The slots keep no list afterwards; the caller deletes the record.
int32_t aclGemPortDelEx(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort);
