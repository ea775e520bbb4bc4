// Statistics records: one per counted installation of a rule (action "aware"), kept in sorted
// lists so that the management walks see them in key order, and the counter reads and clears
// that go to the platform for them. No lock of its own: every caller holds aclMutex.
#pragma once

#include <cstdint>
#include <span>

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
  // The binding operation that created the record (hw/acl_bind_stats.h), so that a refused
  // binding gives back its own records and none that another binding shares; 0 for none.
  uint32_t bindOp;
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

// The 88-byte big-endian counter request handed to the platform. Its counter order (p1, p2, b1,
// b2, p3, p4, b3, b4) is not the record's; every copy maps field to field.
constexpr uint32_t ACL_STATS_REQ_LEN = 88;
constexpr uint32_t ACL_STATS_REQ_LST = 0;
constexpr uint32_t ACL_STATS_REQ_RULE = 4;
constexpr uint32_t ACL_STATS_REQ_IF = 8;
constexpr uint32_t ACL_STATS_REQ_DIR = 12;
constexpr uint32_t ACL_STATS_REQ_VP = 20;
constexpr uint32_t ACL_STATS_REQ_P1 = 24;
constexpr uint32_t ACL_STATS_REQ_P2 = 32;
constexpr uint32_t ACL_STATS_REQ_B1 = 40;
constexpr uint32_t ACL_STATS_REQ_B2 = 48;
constexpr uint32_t ACL_STATS_REQ_P3 = 56;
constexpr uint32_t ACL_STATS_REQ_P4 = 64;
constexpr uint32_t ACL_STATS_REQ_B3 = 72;
constexpr uint32_t ACL_STATS_REQ_B4 = 80;

// Linked into the interface statistics list in (dir, lstIdx, ruleIdx, ifIndex) order; 0 also when
// the key exists.
int32_t aclIfStatsAdd(AclStatsEntry* entry);
// Unlinks and zeroes the matching record without freeing it; CMN_ERR_NOT_FOUND when none matches.
int32_t aclIfStatsDel(const AclStatsIndex& index);
AclStatsEntry* aclIfStatsGetEntry(const AclStatsIndex& index);

// Sets the counter selectors (low halves of p1, b1, p2, b2) from the rule's counter type and
// color: 0, CMN_ERR_NOT_FOUND when the rule is gone, ACL_ERR_COUNTER_GET when its counter cannot
// be read.
int32_t aclStatsSetPktByte(AclStatsEntry* entry);
// Reads the record's counters from the platform into it (also when the read fails) and returns
// the platform's result.
int32_t aclStatsGet(AclStatsEntry* entry);
int32_t aclIfStatsGet(AclStatsEntry* entry);
// Clears the hardware counters behind the record; the record keeps its copy until the next read.
int32_t aclStatsReset(AclStatsEntry* entry);
int32_t aclIfStatsReset(AclStatsEntry* entry);

// The request the reads and clears send: index fields (vp at its place) and, for a read, the
// record's p1, b1, p2 and b2 words.
void aclStatsRequestFill(std::span<uint8_t, ACL_STATS_REQ_LEN> req, const AclStatsEntry& entry,
                         uint32_t ifIndex, int32_t vp, bool withSelectors);
