// ONU GEM port records and their bind-list entries.
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

// The GEM port record of (unit, onuId, gemPort), or nullptr.
AclGemPortEntry* aclGemPortEntryGet(uint32_t unit, uint16_t onuId, uint16_t gemPort);
