// Destination IP tracking: one entry per next-hop address that an installed redirect rule uses,
// whether the platform knows its neighbour, and which rules depend on it. The binding code is the
// only creator of entries and records; neighbour reports move the rules in and out of hardware.
// Callers hold aclMutex.
#pragma once

#include <cstdint>

#include "main/acl_pools.h"
#include "platform/dlist.h"

constexpr uint32_t ACL_DSTIP_FAMILY_V4 = 1;
constexpr uint32_t ACL_DSTIP_FAMILY_V6 = 2;

// One dstIpPool entry, linked into gaclGrp.dstIpList.
struct AclDstIpEntry {
  SilDlNode node;
  uint32_t vrfId;
  uint8_t destIp[16];  // IPv4 in the first 4 bytes
  uint8_t macFindFlag;
  uint8_t family;     // 1 IPv4, other IPv6
  SilDlNode ruleList;  // AclDstIpRuleEntry::entryNode, in link order
};
static_assert(sizeof(AclDstIpEntry) <= ACL_DSTIP_ENTRY_SIZE, "destination IP entry outgrew its entry");

// One dstIpRulePool record, linked into gaclGrp.dstIpRuleList and into one entry's rule list.
struct AclDstIpRuleEntry {
  SilDlNode node;
  SilDlNode entryNode;
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint32_t ordinal;  // 1 for a single next hop, 1..4 for a multi-hop rule
};
static_assert(sizeof(AclDstIpRuleEntry) <= ACL_DSTIPRULE_ENTRY_SIZE, "destination IP rule outgrew its entry");

AclDstIpEntry* aclDstIpEntryGet(uint32_t vrfId, const uint8_t* addr, uint32_t family);
AclDstIpEntry* aclDstIpEntryAdd(uint32_t vrfId, const uint8_t* addr, uint32_t family);
int32_t aclDstIpEntryDel(AclDstIpEntry* entry);
AclDstIpRuleEntry* aclDstIpRuleEntryGet(uint32_t lstIdx, uint32_t ruleIdx, uint32_t ordinal);
AclDstIpRuleEntry* aclDstIpRuleEntryAdd(uint32_t lstIdx, uint32_t ruleIdx, uint32_t ordinal);
int32_t aclDstIpRuleEntryDel(AclDstIpRuleEntry* record);
// A rule record is going away: its records are unlinked and freed, and entries no rule uses any
// more are unregistered and freed, so a later rule of the same number starts untracked.
void aclDstIpRuleForget(uint32_t lstIdx, uint32_t ruleIdx);
// 0 when record is in entry's rule list, else -1.
int32_t aclRuleInDstIpLst(const AclDstIpRuleEntry* record, const AclDstIpEntry* entry);
int32_t aclDstIpNbrChange(AclDstIpEntry* entry, uint32_t up);
// Neighbour report for an address (route messages 305-307; relearn 1 for 307).
int32_t aclNexthopStateHandle(uint32_t vrfId, const uint8_t* addr, uint32_t family,
                              uint32_t relearn);
