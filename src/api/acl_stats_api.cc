// The rule statistics table (function ids 21 to 25).
#include "api/acl_stats_api.h"

#include <cstddef>
#include <span>

#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

std::span<uint8_t, ACL_STATS_INDEX_LEN> indexBytes(uintptr_t addr) {
  return std::span<uint8_t, ACL_STATS_INDEX_LEN>(reinterpret_cast<uint8_t*>(addr),
                                                 ACL_STATS_INDEX_LEN);
}

AclStatsEntry* ruleStatsOwner(SilDlNode* n) {
  return dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ruleNode));
}

int32_t keyDir(const AclStatsKey& k) { return static_cast<int16_t>(k.index.dir); }

bool passes(const AclStatsEntry* e, const AclStatsKey& k) {
  if (k.filtered(ACL_STATS_FILTER_LST) && e->lstIdx != k.index.lstIdx) return false;
  if (k.filtered(ACL_STATS_FILTER_RULE) && e->ruleIdx != k.index.ruleIdx) return false;
  if (k.filtered(ACL_STATS_FILTER_DIR) && e->dir != keyDir(k)) return false;
  return true;
}

// The record sorts after the current index: greater dir, then lstIdx, then ruleIdx.
bool after(const AclStatsEntry* e, const AclStatsKey& k) {
  if (e->dir != keyDir(k)) return e->dir > keyDir(k);
  if (e->lstIdx != k.index.lstIdx) return e->lstIdx > k.index.lstIdx;
  return e->ruleIdx > k.index.ruleIdx;
}

void keyStore(std::span<uint8_t, ACL_STATS_INDEX_LEN> out, const AclStatsEntry* e) {
  be::store32(out, ACL_STATS_INDEX_LST, e->lstIdx);
  be::store32(out, ACL_STATS_INDEX_RULE, e->ruleIdx);
  be::store16(out, ACL_STATS_INDEX_DIR, static_cast<uint16_t>(e->dir));
}

// The first record of the rule statistics list that passes the filter and, with cur, sorts
// after it.
AclStatsEntry* firstQualifying(const AclStatsKey& filter, const AclStatsKey* cur) {
  SilDlNode* head = &gaclGrp.statsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* e = ruleStatsOwner(n);
    if (passes(e, filter) && (cur == nullptr || after(e, *cur))) return e;
  }
  return nullptr;
}

uint32_t low(uint64_t v) { return static_cast<uint32_t>(v); }

int32_t clearAll() {
  SilDlNode* head = &gaclGrp.statsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    if (int32_t ret = aclStatsReset(ruleStatsOwner(n))) return ret;
  }
  return 0;
}

}  // namespace

void aclStatsAnswerPut(wire::BufDesc* d, const AclStatsEntry* e) {
  std::span<uint8_t> out(static_cast<uint8_t*>(d->data), ACL_STATS_ANSWER_LEN);
  const uint64_t words[] = {e->p1, e->b1, e->p2, e->b2, e->p3, e->b3, e->p4, e->b4};
  for (size_t i = 0; i < std::size(words); ++i) be::store64(out, 8 * i, words[i]);
  d->len = ACL_STATS_ANSWER_LEN;
}

AclStatsKey aclStatsKeyLoad(uintptr_t indexAddr) {
  const auto b = indexBytes(indexAddr);
  AclStatsKey k{};
  k.index.lstIdx = be::load32(b, ACL_STATS_INDEX_LST);
  k.index.ruleIdx = be::load32(b, ACL_STATS_INDEX_RULE);
  k.index.ifIndex = be::load32(b, ACL_STATS_INDEX_IF);
  k.index.dir = be::load16(b, ACL_STATS_INDEX_DIR);
  for (uint32_t i = 0; i < 4; ++i) k.filter[i] = b[ACL_STATS_INDEX_FILTER + i];
  return k;
}

int32_t aclStatsGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  const AclStatsEntry* e = firstQualifying(k, nullptr);
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  keyStore(indexBytes(indexAddr), e);
  aclDebug(ACL_LOG_API, "ACL config [ACL stats get first] info=[lstIdx = %d,ruleIdx = %d,dir = %d]. ",
           static_cast<int>(e->lstIdx), static_cast<int>(e->ruleIdx), e->dir);
  return 0;
}

int32_t aclStatsGetNext(uintptr_t indexAddr, uintptr_t nextAddr, uintptr_t) {
  if (indexAddr == 0 || nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  const AclStatsEntry* e = firstQualifying(k, &k);
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  const auto out = indexBytes(nextAddr);
  keyStore(out, e);
  for (uint32_t i = 0; i < 4; ++i) out[ACL_STATS_INDEX_FILTER + i] = k.filter[i];
  aclDebug(ACL_LOG_API, "ACL config [ACL stats get next] info=[lstIdx = %d,ruleIdx = %d,dir = %d]. ",
           static_cast<int>(e->lstIdx), static_cast<int>(e->ruleIdx), e->dir);
  return 0;
}

int32_t aclStatsGetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_STATS_NOT_EXIST;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  AclStatsEntry* e = aclStatsGetEntry(k.index);
  if (e == nullptr) return ACL_ERR_STATS_NOT_EXIST;
  if (cmd != ACL_STATS_CMD_COUNTERS) return ACL_RET_UNKNOWN;
  // The answer is written through the descriptor: without one there is nowhere to put it.
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  wire::BufDesc* d = tblDesc(buf);
  if (d->len < ACL_STATS_ANSWER_LEN) {
    aclDebug(ACL_LOG_API, "ACL config [ACL stats get] error. (Reason=[len:=%d])",
             static_cast<int>(d->len));
    return ACL_RET_INVALID;
  }
  if (d->data == nullptr) return ACL_RET_INVALID;
  if (int32_t ret = aclStatsSetPktByte(e)) {
    aclDebug(ACL_LOG_API, "ACL config [ACL stats get] error. (Reason=[set pkt type failed])");
    return ret;
  }
  aclDebug(ACL_LOG_API,
           "ACL config [ACL stats get] info=[dir= %d,LstIdx= %d,ruleIdx=%d,p1/b1=%u/%u,p2/b2=%u/%u]. ",
           e->dir, static_cast<int>(e->lstIdx), static_cast<int>(e->ruleIdx), low(e->p1),
           low(e->b1), low(e->p2), low(e->b2));
  if (int32_t ret = aclStatsGet(e)) {
    aclDebug(ACL_LOG_API, "ACL config [ACL stats get] error. (Reason=[acl stats get failed])");
    return ret;
  }
  aclDebug(ACL_LOG_API, "ACL config [ACL stats get] info=[p1/b1 = %u/%u p2/b2 = %u/%u]. ",
           low(e->p1), low(e->b1), low(e->p2), low(e->b2));
  aclStatsAnswerPut(d, e);
  return 0;
}

int32_t aclStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclStatsSetApi(indexAddr, cmd, buf, ACL_MODE_SET);
}

int32_t aclStatsSyncApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclStatsSetApi(indexAddr, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_STATS_NOT_EXIST;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  aclDebug(ACL_LOG_API, "ACL config [ACL stats set] info=[index:=%d cmd:=%d].",
           static_cast<int>(k.index.lstIdx), static_cast<int>(cmd));
  switch (cmd) {
    case ACL_STATS_CMD_CLEAR: {
      AclStatsEntry* e = aclStatsGetEntry(k.index);
      // A clear of a record that does not exist is refused before anything is relayed.
      if (e == nullptr) return ACL_ERR_STATS_NOT_EXIST;
      if (int32_t ret = aclHwRelay(ACL_RELAY_STATS, mode, indexAddr, ACL_STATS_CMD_CLEAR, buf)) {
        return ret;
      }
      return aclStatsReset(e);
    }
    case ACL_STATS_CMD_CLEAR_ALL:
      if (int32_t ret = aclHwRelay(ACL_RELAY_STATS, mode, indexAddr, ACL_STATS_CMD_CLEAR_ALL, buf)) {
        return ret;
      }
      return clearAll();
    default:
      return ACL_RET_UNKNOWN;
  }
}
