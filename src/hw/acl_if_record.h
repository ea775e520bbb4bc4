// Interface records and interface bind-list entries: the records that hold, per interface, the
// list bound in each bind slot, and one entry per binding made.
#pragma once

#include <cstdint>

#include "platform/avl.h"

struct AclIfEntry {
  avl_node_t node;  // ifTree, ordered by unit
  uint32_t unit;
  uint32_t inAcl;
  uint32_t outAcl;
  uint8_t inCtrl;  // 1 switched on, 2 off
  uint8_t outCtrl;
  uint16_t rowStatus;
  uint32_t inL2Acl;
  uint32_t outL2Acl;
  uint32_t inIpv4Acl;
  uint32_t outIpv4Acl;
  uint32_t inIpv6Acl;
  uint32_t outIpv6Acl;
  uint32_t inHybridAcl;
  uint32_t outHybridAcl;
  uint32_t inMplsAcl;
  uint32_t outMplsAcl;
  uint32_t inUdfAcl;
  uint32_t outUdfAcl;
  uint32_t inL2VfpAcl;
  uint32_t inIpv4VfpAcl;
  uint32_t inIpv6VfpAcl;
  uint32_t inHybridVfpAcl;
  uint32_t inMplsVfpAcl;
  uint32_t inUdfVfpAcl;
};

struct AclIfListEntry {
  avl_node_t node;  // ifListTree
  uint32_t ifIndex;
  uint8_t listType;
  uint8_t dir;
  uint8_t hwState;
  uint8_t bindOwner;  // 0 ACL binding, 1 policy-based redirect, 2 traffic policy
  uint8_t refcount;
  uint32_t lstIdx;
  uint32_t ruleIdx;  // 0 for a whole-list binding
};

// ifTree: by interface index.
int aclIfCompare(const void* a, const void* b);
// ifListTree: lstIdx, ruleIdx, ifIndex, listType, dir; all bindings of a list are adjacent, and
// whole-list entries come first.
int aclIfListCmp(const void* a, const void* b);
