// ONU GEM port records and their bind-list entries.
#pragma once

#include <cstdint>

#include "platform/avl.h"

struct AclGemPortEntry {
  avl_node_t node;  // gemPortTree
  uint32_t unit;    // the PON interface
  uint16_t onuId;
  uint16_t gemPort;
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
