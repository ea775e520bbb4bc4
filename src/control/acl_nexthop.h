// Next-hop list programming: taking a list out of the hardware and putting it back once the next
// hops of its redirect rules resolve, removing one rule when a next hop is lost, and the per-list
// 2000 ms retry of a re-installation that failed. Callers hold aclMutex.
#pragma once

#include <cstdint>

struct AclListEntry;

constexpr uint32_t ACL_NEXTHOP_RETRY_MS = 2000;

int32_t aclNextHopListAdd(uint32_t lstIdx);
int32_t aclNextHopListRuleDel(uint32_t lstIdx, uint32_t ruleIdx);
// Stops the list's retry timer and arms it again for ACL_NEXTHOP_RETRY_MS.
void aclNextHopTimerRestart(AclListEntry* list);
