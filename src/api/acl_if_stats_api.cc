// The interface statistics table (function ids 26 to 30), over the records interface bindings
// keep in the interface statistics list.
#include <cstddef>
#include <span>

#include "api/acl_if_api.h"
#include "api/acl_relay.h"
#include "api/acl_stats_api.h"
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

AclStatsEntry* owner(SilDlNode* n) {
  return dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ifNode));
}

int32_t keyDir(const AclStatsKey& k) {
  return static_cast<int16_t>(k.index.dir);
}
int num(uint32_t v) {
  return static_cast<int>(v);
}

bool passes(const AclStatsEntry* e, const AclStatsKey& k) {
  if (k.filtered(ACL_STATS_FILTER_LST) && e->lstIdx != k.index.lstIdx) return false;
  if (k.filtered(ACL_STATS_FILTER_RULE) && e->ruleIdx != k.index.ruleIdx) return false;
  if (k.filtered(ACL_STATS_FILTER_IF) && e->ifIndex != k.index.ifIndex) return false;
  if (k.filtered(ACL_STATS_FILTER_DIR) && e->dir != keyDir(k)) return false;
  return true;
}

// The list's own order: dir, lstIdx, ruleIdx, then ifIndex.
bool after(const AclStatsEntry* e, const AclStatsKey& k) {
  if (e->dir != keyDir(k)) return e->dir > keyDir(k);
  if (e->lstIdx != k.index.lstIdx) return e->lstIdx > k.index.lstIdx;
  if (e->ruleIdx != k.index.ruleIdx) return e->ruleIdx > k.index.ruleIdx;
  return e->ifIndex > k.index.ifIndex;
}

void keyStore(std::span<uint8_t, ACL_STATS_INDEX_LEN> out, const AclStatsEntry* e) {
  be::store32(out, ACL_STATS_INDEX_LST, e->lstIdx);
  be::store32(out, ACL_STATS_INDEX_RULE, e->ruleIdx);
  be::store32(out, ACL_STATS_INDEX_IF, e->ifIndex);
  be::store16(out, ACL_STATS_INDEX_DIR, static_cast<uint16_t>(e->dir));
}

AclStatsEntry* firstQualifying(const AclStatsKey& filter, const AclStatsKey* cur) {
  SilDlNode* head = &gaclGrp.ifStatsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* e = owner(n);
    if (passes(e, filter) && (cur == nullptr || after(e, *cur))) return e;
  }
  return nullptr;
}

void walkLog(const char* fn, const AclStatsEntry* e) {
  aclDebug(ACL_LOG_API,
           "ACL config [if stats %s] info=[if unit = %d,lstIdx = %d,ruleIdx = %d,dir = %d]. ", fn,
           num(e->ifIndex), num(e->lstIdx), num(e->ruleIdx), e->dir);
}

int32_t clearAll(uint32_t ifIndex) {
  SilDlNode* head = &gaclGrp.ifStatsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* e = owner(n);
    if (ifIndex != 0 && e->ifIndex != ifIndex) continue;
    if (int32_t ret = aclIfStatsReset(e)) return ret;
  }
  return 0;
}

}  // namespace

int32_t aclIfStatsGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  const AclStatsEntry* e = firstQualifying(k, nullptr);
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  keyStore(indexBytes(indexAddr), e);
  walkLog("get first", e);
  return 0;
}

int32_t aclIfStatsGetNext(uintptr_t indexAddr, uintptr_t nextAddr, uintptr_t) {
  if (indexAddr == 0 || nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  const AclStatsEntry* e = firstQualifying(k, &k);
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  const auto out = indexBytes(nextAddr);
  keyStore(out, e);
  for (uint32_t i = 0; i < 4; ++i) out[ACL_STATS_INDEX_FILTER + i] = k.filter[i];
  walkLog("get next", e);
  return 0;
}

int32_t aclIfStatsGetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_IFSTATS_NOT_EXIST;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  aclDebug(ACL_LOG_API,
           "ACL config [if stats get] info=[if unit = %d,lstIdx = %d,ruleIdx = %d,dir = %d cmd = "
           "%d]",
           num(k.index.ifIndex), num(k.index.lstIdx), num(k.index.ruleIdx), keyDir(k),
           static_cast<int>(cmd));
  AclStatsEntry* e = aclIfStatsGetEntry(k.index);
  if (e == nullptr) return ACL_ERR_IFSTATS_NOT_EXIST;
  if (cmd != ACL_STATS_CMD_COUNTERS) return ACL_RET_UNKNOWN;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  wire::BufDesc* d = tblDesc(buf);
  if (d->len < ACL_STATS_ANSWER_LEN || d->data == nullptr) {
    aclDebug(ACL_LOG_API,
             "ACL config [if stats get] error. (Reason = [get rule stats len:=%d ERROR])",
             num(d->len));
    return ACL_RET_UNKNOWN;
  }
  if (int32_t ret = aclStatsSetPktByte(e)) {
    aclDebug(ACL_LOG_API,
             "ACL config [if stats get] error. (Reason = [stats set packet byte ERROR])");
    return ret;
  }
  if (int32_t ret = aclIfStatsGet(e)) {
    aclDebug(ACL_LOG_API, "ACL config [if stats get] error. (Reason = [stats get ERROR])");
    return ret;
  }
  aclStatsAnswerPut(d, e);
  return 0;
}

int32_t aclIfStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclIfStatsSetApi(indexAddr, cmd, buf, ACL_MODE_SET);
}

int32_t aclIfStatsSyncApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclIfStatsSetApi(indexAddr, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclIfStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_IFSTATS_NOT_EXIST;
  AclLockGuard lock;
  const AclStatsKey k = aclStatsKeyLoad(indexAddr);
  aclDebug(ACL_LOG_API, "ACL config [ACL IF stats set] info=[unit:=%d cmd:=%d].",
           num(k.index.ifIndex), static_cast<int>(cmd));
  switch (cmd) {
    case ACL_STATS_CMD_CLEAR: {
      AclStatsEntry* e = aclIfStatsGetEntry(k.index);
      if (e == nullptr) return ACL_ERR_IFSTATS_NOT_EXIST;
      if (int32_t ret = aclHwRelay(ACL_RELAY_IF_STATS, mode, indexAddr, cmd, buf)) return ret;
      return aclIfStatsReset(e);
    }
    case ACL_STATS_CMD_CLEAR_ALL:
      if (int32_t ret = aclHwRelay(ACL_RELAY_IF_STATS, mode, indexAddr, cmd, buf)) return ret;
      return clearAll(k.index.ifIndex);
    default:
      return ACL_RET_UNKNOWN;
  }
}
