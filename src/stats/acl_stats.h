// Statistics records: one per counted installation of a rule (action "aware"), kept in sorted
// lists so that the management walks see them in key order, and the counter reads and clears
// that go to the platform for them. No lock of its own: every caller holds aclMutex.
#pragma once

#include <cstdint>

#include "main/acl_pools.h"
#include "platform/dlist.h"

// Key of a statistics record, as the binding code and the management functions name it.
// dir is compared with the record's signed 8-bit dir after sign extension of both.
struct AclStatsIndex {
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint32_t ifIndex;  // 0 for rule statistics
  uint16_t dir;      // 0 in, 1 out
};

// One statsPool entry. Counter words are u64; the low half of p1, b1, p2 and b2 doubles as the
// counter selector handed to the platform on a read.
struct AclStatsEntry {
  SilDlNode ruleNode;  // statsList
  SilDlNode ifNode;    // ifStatsList
  SilDlNode gemNode;   // gemPortStatsList
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint32_t ifIndex;
  uint32_t gemUnit;
  uint32_t onuId;
  uint32_t gemPortId;
  uint8_t inList;
  int8_t dir;
  uint64_t p1, b1, p2, b2, p3, p4, b3, b4;
  uint32_t refCnt;
};
static_assert(sizeof(AclStatsEntry) <= ACL_STATS_ENTRY_SIZE, "statistics record outgrew its entry");

// A zeroed record with empty links, or nullptr (and the console line) when the pool is full.
AclStatsEntry* aclStatsMalloc();
int32_t aclStatsFree(AclStatsEntry* entry);
// Links the record into the rule statistics list in key order; 0 also when the key exists (the
// caller then still owns the record it offered).
int32_t aclStatsAdd(AclStatsEntry* entry);
// Unlinks and zeroes the matching record without freeing it; -1 when none matches.
int32_t aclStatsDel(const AclStatsIndex& index);
AclStatsEntry* aclStatsGetEntry(const AclStatsIndex& index);
