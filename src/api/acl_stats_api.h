// The rule statistics table (function ids 21 to 25): walk the statistics records, read one
// record's counters, clear one record or all of them. Every function takes the ACL lock for its
// whole body.
#pragma once

#include <cstdint>

#include "stats/acl_stats.h"
#include "wire/buf_desc.h"

// The 28-byte big-endian statistics index every statistics function takes by address.
constexpr uint32_t ACL_STATS_INDEX_LEN = 28;
constexpr uint32_t ACL_STATS_INDEX_LST = 0;
constexpr uint32_t ACL_STATS_INDEX_RULE = 4;
constexpr uint32_t ACL_STATS_INDEX_IF = 8;
constexpr uint32_t ACL_STATS_INDEX_DIR = 22;     // u16
constexpr uint32_t ACL_STATS_INDEX_FILTER = 24;  // four bytes of walk filter bits

// Walk filter bits, numbered from the most significant bit of the first filter byte.
constexpr uint32_t ACL_STATS_FILTER_LST = 0;
constexpr uint32_t ACL_STATS_FILTER_RULE = 1;
constexpr uint32_t ACL_STATS_FILTER_IF = 2;
constexpr uint32_t ACL_STATS_FILTER_DIR = 3;

// Commands.
constexpr uint32_t ACL_STATS_CMD_COUNTERS = 1;   // get: the 64-byte counter answer
constexpr uint32_t ACL_STATS_CMD_CLEAR = 2;      // set: clear one record
constexpr uint32_t ACL_STATS_CMD_CLEAR_ALL = 6;  // set: clear every record

// The counter answer: p1, b1, p2, b2, p3, b3, p4, b4, each a big-endian u64.
constexpr uint32_t ACL_STATS_ANSWER_LEN = 64;

// The index's key fields and filter bytes.
struct AclStatsKey {
  AclStatsIndex index;
  uint8_t filter[4];
  bool filtered(uint32_t bit) const { return (filter[bit / 8] & (0x80u >> (bit % 8))) != 0; }
};
AclStatsKey aclStatsKeyLoad(uintptr_t indexAddr);

// Writes e's eight counters as the 64-byte big-endian answer into d and sets its length; d holds
// at least ACL_STATS_ANSWER_LEN bytes.
void aclStatsAnswerPut(wire::BufDesc* d, const AclStatsEntry* e);

// indexAddr: the statistics index; its filter bits choose which records qualify. The first
// qualifying record's lstIdx, ruleIdx and dir are written into it; CMN_ERR_NOT_FOUND when none.
int32_t aclStatsGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t);
// The first qualifying record after the current index (which need not exist any more), written
// into nextAddr with the current index's filter bytes; CMN_ERR_NOT_FOUND at the end.
int32_t aclStatsGetNext(uintptr_t indexAddr, uintptr_t nextAddr, uintptr_t);
// cmd 1: the record's counters, fresh from the platform, into a descriptor of at least 64 bytes.
int32_t aclStatsGetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclStatsSyncApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
// The body of both: cmd 2 clears the index's record, cmd 6 every record, after relaying the
// command with mode 3 (Set) or 1 (Sync).
int32_t _aclStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode);
