// Statistics records: the sorted rule and interface statistics lists, the pool they come from,
// and the counter reads and clears that go to the platform for them.
#include "stats/acl_stats.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "counter/counter.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

constexpr uint32_t kCounterCmdType = 4;
constexpr uint32_t kCounterCmdColor = 5;
constexpr uint64_t kHighHalf = 0xFFFFFFFF00000000ull;
constexpr uint32_t kIfNameLen = 64;  // at most 63 characters and the terminator

AclStatsEntry* ruleOwner(SilDlNode* n) {
  return dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ruleNode));
}
AclStatsEntry* ifOwner(SilDlNode* n) {
  return dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ifNode));
}

// The index's u16 dir as the record's signed 8-bit dir compares with it: both sign-extended.
int32_t indexDir(uint16_t dir) { return static_cast<int16_t>(dir); }

bool ruleKeyMatches(const AclStatsEntry* e, const AclStatsIndex& index) {
  return e->lstIdx == index.lstIdx && e->ruleIdx == index.ruleIdx && e->dir == indexDir(index.dir);
}

// Ordering of the lists: dir, lstIdx, ruleIdx and, for interface statistics, ifIndex.
int compareKey(const AclStatsEntry* a, const AclStatsEntry* b, bool withIf) {
  if (a->dir != b->dir) return a->dir < b->dir ? -1 : 1;
  if (a->lstIdx != b->lstIdx) return a->lstIdx < b->lstIdx ? -1 : 1;
  if (a->ruleIdx != b->ruleIdx) return a->ruleIdx < b->ruleIdx ? -1 : 1;
  if (withIf && a->ifIndex != b->ifIndex) return a->ifIndex < b->ifIndex ? -1 : 1;
  return 0;
}

void clearEntry(AclStatsEntry* e) { std::memset(static_cast<void*>(e), 0, sizeof(*e)); }

uint32_t low(uint64_t v) { return static_cast<uint32_t>(v); }
void setLow(uint64_t* word, uint32_t v) { *word = (*word & kHighHalf) | v; }

// Copies all eight counters of an answered request into the record.
void countersLoad(AclStatsEntry* e, std::span<const uint8_t> req) {
  e->p1 = be::load64(req, ACL_STATS_REQ_P1);
  e->p2 = be::load64(req, ACL_STATS_REQ_P2);
  e->b1 = be::load64(req, ACL_STATS_REQ_B1);
  e->b2 = be::load64(req, ACL_STATS_REQ_B2);
  e->p3 = be::load64(req, ACL_STATS_REQ_P3);
  e->p4 = be::load64(req, ACL_STATS_REQ_P4);
  e->b3 = be::load64(req, ACL_STATS_REQ_B3);
  e->b4 = be::load64(req, ACL_STATS_REQ_B4);
}

// The request descriptor of the platform counter calls.
ZorScalarReq counterReq(uint32_t cmd, std::span<uint8_t> req, uint16_t flag, uint16_t len) {
  return ZorScalarReq{cmd, req.data(), flag, len, 0, 0};
}

// The rule has no virtual-port flag of its own, so interface statistics requests carry vp 0.
int32_t ruleVp(const AclStatsEntry&) { return 0; }

std::array<char, kIfNameLen> ifName(uint32_t ifIndex) {
  std::array<char, kIfNameLen> name{};
  if (zorIfUnit2Name(ifIndex, name.data(), kIfNameLen) != 0) name[0] = '\0';
  name[kIfNameLen - 1] = '\0';
  return name;
}

int32_t counterRead(uint32_t counterId, uint32_t cmd, uint32_t* value) {
  uint8_t word[4] = {};
  const int32_t ret = counterGetApi(counterId, cmd, reinterpret_cast<uintptr_t>(word));
  *value = be::load32(word);
  return ret;
}

void logCounters(const char* format, const AclStatsEntry* e, int32_t ret) {
  aclDebug(ACL_LOG_STATS, format, static_cast<int>(low(e->p1)), static_cast<int>(low(e->p2)),
           static_cast<int>(low(e->b1)), static_cast<int>(low(e->b2)),
           static_cast<int>(low(e->p3)), static_cast<int>(low(e->p4)),
           static_cast<int>(low(e->b3)), static_cast<int>(low(e->b4)), static_cast<int>(ret));
}

}  // namespace

AclStatsEntry* aclStatsMalloc() {
  auto* e = static_cast<AclStatsEntry*>(silMemPoolAlloc(gaclGrp.statsPool, nullptr));
  if (e == nullptr) {
    // Goes to the console rather than the log: an operator must see it whatever the debug flags.
    std::fputs("\r\n [ACL]: ACL stats list is FULL!!\r\n ", stderr);
    std::fflush(stderr);
    return nullptr;
  }
  clearEntry(e);
  dlist::init(&e->ruleNode);
  dlist::init(&e->ifNode);
  dlist::init(&e->gemNode);
  return e;
}

int32_t aclStatsFree(AclStatsEntry* entry) {
  if (entry == nullptr) return 0;
  clearEntry(entry);
  silMemPoolFree(gaclGrp.statsPool, entry);
  return 0;
}

int32_t aclStatsAdd(AclStatsEntry* entry) {
  aclDebug(ACL_LOG_STATS, "ACL stats [stats add] info=[lstIdx = %d,ruleIdx = %d,ifIdx = %d]. \r\n",
           static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx),
           static_cast<int>(entry->ifIndex));
  SilDlNode* head = &gaclGrp.statsList;
  SilDlNode* pos = head;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    const int c = compareKey(ruleOwner(n), entry, false);
    if (c == 0) {
      aclDebug(ACL_LOG_STATS, "ACL stats [stats add] info=[stats entry existed].\r\n");
      return 0;
    }
    if (c > 0) {
      pos = n;
      break;
    }
  }
  entry->inList = 1;
  dlist::insertBefore(pos, &entry->ruleNode);
  return 0;
}

int32_t aclStatsDel(const AclStatsIndex& index) {
  AclStatsEntry* e = aclStatsGetEntry(index);
  if (e == nullptr) return -1;
  aclDebug(ACL_LOG_STATS, "ACL stats [stats del] info=[entry del].\r\n");
  dlist::unlink(&e->ruleNode);
  clearEntry(e);
  return 0;
}

AclStatsEntry* aclStatsGetEntry(const AclStatsIndex& index) {
  SilDlNode* head = &gaclGrp.statsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* cur = ruleOwner(n);
    if (ruleKeyMatches(cur, index)) return cur;
  }
  return nullptr;
}

int32_t aclIfStatsAdd(AclStatsEntry* entry) {
  aclDebug(ACL_LOG_STATS, "ACL stats [if stats add] info=[ifunit = %u, lstIdx = %d,ruleIdx = %d].\r\n",
           entry->ifIndex, static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx));
  SilDlNode* head = &gaclGrp.ifStatsList;
  SilDlNode* pos = head;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    const int c = compareKey(ifOwner(n), entry, true);
    if (c == 0) return 0;
    if (c > 0) {
      pos = n;
      break;
    }
  }
  entry->inList = 1;
  dlist::insertBefore(pos, &entry->ifNode);
  return 0;
}

int32_t aclIfStatsDel(const AclStatsIndex& index) {
  aclDebug(ACL_LOG_STATS,
           "ACL stats [if stats del] info=[ifIndex = %d,lstIdx = %d,ruleIdx = %d,dir = %d].\r\n",
           static_cast<int>(index.ifIndex), static_cast<int>(index.lstIdx),
           static_cast<int>(index.ruleIdx), indexDir(index.dir));
  SilDlNode* head = &gaclGrp.ifStatsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* cur = ifOwner(n);
    aclDebug(ACL_LOG_STATS, "ACL stats [if stats del] info=[lstIdx = %d,ruleIdx = %d,dir = %d]. \r\n",
             static_cast<int>(cur->lstIdx), static_cast<int>(cur->ruleIdx), cur->dir);
    if (ruleKeyMatches(cur, index) && cur->ifIndex == index.ifIndex) {
      dlist::unlink(&cur->ifNode);
      clearEntry(cur);
      return 0;
    }
  }
  aclDebug(ACL_LOG_STATS, "ACL stats [if stats del] info=[del error].\r\n");
  return CMN_ERR_NOT_FOUND;
}

AclStatsEntry* aclIfStatsGetEntry(const AclStatsIndex& index) {
  SilDlNode* head = &gaclGrp.ifStatsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* cur = ifOwner(n);
    if (ruleKeyMatches(cur, index) && cur->ifIndex == index.ifIndex) return cur;
  }
  return nullptr;
}

int32_t aclStatsSetPktByte(AclStatsEntry* entry) {
  const AclRuleEntry* rule = aclRuleEntryGetByIndex(entry->lstIdx, entry->ruleIdx);
  if (rule == nullptr) {
    aclDebug(ACL_LOG_STATS, "ACL stats [set pkt type] error. (Reason=[rule %d/%d is NULL])\r\n",
             static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx));
    return CMN_ERR_NOT_FOUND;
  }
  uint32_t type = 0, color = 0;
  if (counterRead(rule->counterId, kCounterCmdType, &type) != 0 ||
      counterRead(rule->counterId, kCounterCmdColor, &color) != 0) {
    aclDebug(ACL_LOG_STATS, "ACL stats [set pkt type] error. (Reason=[counter get fail])\r\n");
    return ACL_ERR_COUNTER_GET;
  }
  if (type > 2) return 0;
  const bool packets = type == 0 || type == 2;
  const bool bytes = type == 1 || type == 2;
  switch (color) {
    case 1:
    case 3:
      // Counter set 1 only; words not chosen keep what the last read left in them.
      if (packets) setLow(&entry->p1, 1);
      if (bytes) setLow(&entry->b1, 1);
      break;
    case 4:
      if (packets) setLow(&entry->p2, 1);
      if (bytes) setLow(&entry->b2, 1);
      break;
    case 5:
    case 6:
    case 7:
      // Both sets: every selector is written, the unchosen kind explicitly off.
      setLow(&entry->p1, packets ? 1 : 0);
      setLow(&entry->b1, bytes ? 1 : 0);
      setLow(&entry->p2, packets ? 1 : 0);
      setLow(&entry->b2, bytes ? 1 : 0);
      break;
    default:
      break;
  }
  return 0;
}

void aclStatsRequestFill(std::span<uint8_t, ACL_STATS_REQ_LEN> req, const AclStatsEntry& entry,
                         uint32_t ifIndex, int32_t vp, bool withSelectors) {
  std::memset(req.data(), 0, req.size());
  be::store32(req, ACL_STATS_REQ_LST, entry.lstIdx);
  be::store32(req, ACL_STATS_REQ_RULE, entry.ruleIdx);
  be::store32(req, ACL_STATS_REQ_IF, ifIndex);
  be::store32(req, ACL_STATS_REQ_DIR, static_cast<uint32_t>(static_cast<int32_t>(entry.dir)));
  be::store32(req, ACL_STATS_REQ_VP, static_cast<uint32_t>(vp));
  if (!withSelectors) return;
  be::store64(req, ACL_STATS_REQ_P1, entry.p1);
  be::store64(req, ACL_STATS_REQ_B1, entry.b1);
  be::store64(req, ACL_STATS_REQ_P2, entry.p2);
  be::store64(req, ACL_STATS_REQ_B2, entry.b2);
}

int32_t aclStatsGet(AclStatsEntry* entry) {
  std::array<uint8_t, ACL_STATS_REQ_LEN> req;
  aclStatsRequestFill(req, *entry, 0, 0, true);
  aclDebug(ACL_LOG_STATS,
           "ACL stats [stats get] info=[lst=%d,rule=%d,dir=%d,p1/p2=%d/%d,b1/b2=%d/%d].\r\n",
           static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx), entry->dir,
           static_cast<int>(low(entry->p1)), static_cast<int>(low(entry->p2)),
           static_cast<int>(low(entry->b1)), static_cast<int>(low(entry->b2)));
  ZorScalarReq desc = counterReq(ZOR_SCALAR_STATS_READ, req, 1, 0);
  const int32_t ret = zorScalarGetApi(0, 0, &desc);
  // The record takes whatever the request holds now, even after a failed read.
  countersLoad(entry, req);
  logCounters("ACL stats [stats get] info=[p1/p2=%d | %d,b1/b2=%d | %d, p3/p4=%d | %d,b3/b4=%d | %d  ret =%d].\r\n",
              entry, ret);
  return ret;
}

int32_t aclIfStatsGet(AclStatsEntry* entry) {
  std::array<uint8_t, ACL_STATS_REQ_LEN> req;
  const int32_t vp = ruleVp(*entry);
  aclStatsRequestFill(req, *entry, entry->ifIndex, vp, true);
  aclDebug(ACL_LOG_STATS,
           "ACL stats [if stats get] info=[interface %s, vp=%d, lst=%d, rule=%d, dir=%d, p1/p2=%d/%d, b1/b2=%d/%d].\r\n",
           ifName(entry->ifIndex).data(), vp, static_cast<int>(entry->lstIdx),
           static_cast<int>(entry->ruleIdx), entry->dir, static_cast<int>(low(entry->p1)),
           static_cast<int>(low(entry->p2)), static_cast<int>(low(entry->b1)),
           static_cast<int>(low(entry->b2)));
  ZorScalarReq desc = counterReq(ZOR_IF_STATS_READ, req, 1, ACL_STATS_REQ_LEN);
  const int32_t ret = zorIfGetApi(entry->ifIndex, ZOR_IF_FIELD_STATS, &desc);
  countersLoad(entry, req);
  logCounters("ACL stats [if stats get] info=[p1/p2=%d | %d,b1/b2=%d | %d, p3/p4=%d | %d,b3/b4=%d | %d  ret =%d].\r\n",
              entry, ret);
  return ret;
}

int32_t aclStatsReset(AclStatsEntry* entry) {
  aclDebug(ACL_LOG_STATS, "ACL stats [stats reset] info=[lst=%d,rule=%d,dir=%d].\r\n",
           static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx), entry->dir);
  std::array<uint8_t, ACL_STATS_REQ_LEN> req;
  aclStatsRequestFill(req, *entry, 0, 0, false);
  ZorScalarReq desc = counterReq(ZOR_SCALAR_STATS_CLEAR, req, 1, 0);
  return zorScalarSetApi(0, 0, &desc);
}

int32_t aclIfStatsReset(AclStatsEntry* entry) {
  aclDebug(ACL_LOG_STATS, "ACL stats [if stats reset] info=[interface %s,lst=%d,rule=%d,dir=%d].\r\n",
           ifName(entry->ifIndex).data(), static_cast<int>(entry->lstIdx),
           static_cast<int>(entry->ruleIdx), entry->dir);
  std::array<uint8_t, ACL_STATS_REQ_LEN> req;
  aclStatsRequestFill(req, *entry, entry->ifIndex, ruleVp(*entry), false);
  ZorScalarReq desc = counterReq(ZOR_IF_STATS_CLEAR, req, 0, ACL_STATS_REQ_LEN);
  return zorIfSetApi(entry->ifIndex, ZOR_IF_FIELD_STATS, &desc);
}
