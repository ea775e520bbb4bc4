// Blacklist entries: a filter-list put on the blacklist of one slot or of the whole system.
#pragma once

#include <cstdint>

#include "platform/avl.h"

struct AclBlackListEntry {
  avl_node_t node;  // blackListTree
  uint32_t sys;     // 0 = no particular system
  uint32_t slot;    // 0 = no particular slot
  uint32_t lstIdx;
  uint32_t spare;
};

// blackListTree: sys, slot, lstIdx.
int aclBlackListCmp(const void* a, const void* b);
