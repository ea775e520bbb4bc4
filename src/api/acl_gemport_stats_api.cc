// The GEM port statistics table (function ids 82 to 86), over the records GEM port bindings keep
// in the GEM port statistics list.
#include <cstddef>
#include <span>

#include "api/acl_gemport_api.h"
#include "api/acl_relay.h"
#include "api/acl_stats_api.h"
#include "api/table_buf.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "stats/acl_gemport_stats.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

struct GemStatsKey {
  AclGemStatsIndex index;
  uint8_t filter[4];
  bool filtered(uint32_t bit) const { return (filter[bit / 8] & (0x80u >> (bit % 8))) != 0; }
};

std::span<uint8_t, ACL_GEM_STATS_INDEX_LEN> indexBytes(uintptr_t addr) {
  return std::span<uint8_t, ACL_GEM_STATS_INDEX_LEN>(reinterpret_cast<uint8_t*>(addr),
                                                     ACL_GEM_STATS_INDEX_LEN);
}

GemStatsKey keyLoad(uintptr_t addr) {
  const auto b = indexBytes(addr);
  GemStatsKey k{};
  k.index.lstIdx = be::load32(b, ACL_GEM_STATS_LST);
  k.index.ruleIdx = be::load32(b, ACL_GEM_STATS_RULE);
  k.index.ifIndex = be::load32(b, ACL_GEM_STATS_IF);
  k.index.onuId = be::load32(b, ACL_GEM_STATS_ONU);
  k.index.gemPort = be::load16(b, ACL_GEM_STATS_GEM);
  k.index.dir = be::load16(b, ACL_GEM_STATS_DIR);
  for (uint32_t i = 0; i < 4; ++i) k.filter[i] = b[ACL_GEM_STATS_FILTER + i];
  return k;
}

void keyStore(std::span<uint8_t, ACL_GEM_STATS_INDEX_LEN> out, const AclStatsEntry* e) {
  be::store32(out, ACL_GEM_STATS_LST, e->lstIdx);
  be::store32(out, ACL_GEM_STATS_RULE, e->ruleIdx);
  be::store32(out, ACL_GEM_STATS_IF, e->ifIndex);
  be::store32(out, ACL_GEM_STATS_ONU, e->onuId);
  be::store16(out, ACL_GEM_STATS_GEM, static_cast<uint16_t>(e->gemPortId));
  be::store16(out, ACL_GEM_STATS_DIR, static_cast<uint16_t>(e->dir));
}

AclStatsEntry* owner(SilDlNode* n) {
  return dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, gemNode));
}

int32_t keyDir(const GemStatsKey& k) {
  return static_cast<int16_t>(k.index.dir);
}
int num(uint32_t v) {
  return static_cast<int>(v);
}

bool passes(const AclStatsEntry* e, const GemStatsKey& k) {
  if (k.filtered(ACL_STATS_FILTER_LST) && e->lstIdx != k.index.lstIdx) return false;
  if (k.filtered(ACL_STATS_FILTER_RULE) && e->ruleIdx != k.index.ruleIdx) return false;
  if (k.filtered(ACL_STATS_FILTER_IF) && e->ifIndex != k.index.ifIndex) return false;
  if (k.filtered(ACL_STATS_FILTER_DIR) && e->dir != keyDir(k)) return false;
  if (k.filtered(ACL_GEM_STATS_FILTER_ONU) && e->onuId != k.index.onuId) return false;
  if (k.filtered(ACL_GEM_STATS_FILTER_GEM) && e->gemPortId != k.index.gemPort) return false;
  return true;
}

// The list's own order: dir, lstIdx, ruleIdx, GEM port, ONU id, ifIndex.
bool after(const AclStatsEntry* e, const GemStatsKey& k) {
  if (e->dir != keyDir(k)) return e->dir > keyDir(k);
  if (e->lstIdx != k.index.lstIdx) return e->lstIdx > k.index.lstIdx;
  if (e->ruleIdx != k.index.ruleIdx) return e->ruleIdx > k.index.ruleIdx;
  if (e->gemPortId != k.index.gemPort) return e->gemPortId > k.index.gemPort;
  if (e->onuId != k.index.onuId) return e->onuId > k.index.onuId;
  return e->ifIndex > k.index.ifIndex;
}

AclStatsEntry* firstQualifying(const GemStatsKey& filter, const GemStatsKey* cur) {
  SilDlNode* head = &gaclGrp.gemPortStatsList;
  if (head->next == nullptr) return nullptr;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* e = owner(n);
    if (passes(e, filter) && (cur == nullptr || after(e, *cur))) return e;
  }
  return nullptr;
}

void walkLog(const char* fn, const AclStatsEntry* e) {
  aclDebug(ACL_LOG_API,
           "ACL config [onu stats %s] info=[onu unit = %d,onu=%d,gemPort=%d,lstIdx = %d,ruleIdx = "
           "%d,dir = %d]. ",
           fn, num(e->ifIndex), num(e->onuId), num(e->gemPortId), num(e->lstIdx), num(e->ruleIdx),
           e->dir);
}

// Every record of the index's interface, ONU and GEM port, each of them 0 meaning any.
int32_t clearAll(const AclGemStatsIndex& index) {
  SilDlNode* head = &gaclGrp.gemPortStatsList;
  if (head->next == nullptr) return 0;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* e = owner(n);
    if (index.ifIndex != 0 && e->ifIndex != index.ifIndex) continue;
    if (index.onuId != 0 && e->onuId != index.onuId) continue;
    if (index.gemPort != 0 && e->gemPortId != index.gemPort) continue;
    if (int32_t ret = aclGemPortStatsReset(e)) return ret;
  }
  return 0;
}

}  // namespace

int32_t aclGemPortStatsGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const GemStatsKey k = keyLoad(indexAddr);
  const AclStatsEntry* e = firstQualifying(k, nullptr);
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  keyStore(indexBytes(indexAddr), e);
  walkLog("get first", e);
  return 0;
}

int32_t aclGemPortStatsGetNext(uintptr_t indexAddr, uintptr_t nextAddr, uintptr_t) {
  if (indexAddr == 0 || nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return CMN_ERR_NOT_FOUND;
  AclLockGuard lock;
  const GemStatsKey k = keyLoad(indexAddr);
  const AclStatsEntry* e = firstQualifying(k, &k);
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  const auto out = indexBytes(nextAddr);
  keyStore(out, e);
  for (uint32_t i = 0; i < 4; ++i) out[ACL_GEM_STATS_FILTER + i] = k.filter[i];
  walkLog("get next", e);
  return 0;
}

int32_t aclGemPortStatsGetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_IFSTATS_NOT_EXIST;
  AclLockGuard lock;
  const GemStatsKey k = keyLoad(indexAddr);
  aclDebug(ACL_LOG_API,
           "ACL config [onu stats get] info=[onu unit = %d,lstIdx = %d,ruleIdx = %d,dir = %d cmd = "
           "%d]",
           num(k.index.ifIndex), num(k.index.lstIdx), num(k.index.ruleIdx), keyDir(k),
           static_cast<int>(cmd));
  AclStatsEntry* e = aclGemPortStatsEntryGet(k.index);
  if (e == nullptr) return ACL_ERR_IFSTATS_NOT_EXIST;
  if (cmd != ACL_STATS_CMD_COUNTERS) return ACL_RET_UNKNOWN;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  wire::BufDesc* d = tblDesc(buf);
  if (d->len < ACL_STATS_ANSWER_LEN || d->data == nullptr) {
    aclDebug(ACL_LOG_API,
             "ACL config [onu stats get] error. (Reason = [get rule stats len:=%d ERROR])",
             num(d->len));
    return ACL_RET_UNKNOWN;
  }
  if (int32_t ret = aclStatsSetPktByte(e)) {
    aclDebug(ACL_LOG_API,
             "ACL config [onu stats get] error. (Reason = [stats set packet byte ERROR])");
    return ret;
  }
  if (int32_t ret = aclGemPortStatsGet(e)) {
    aclDebug(ACL_LOG_API, "ACL config [onu stats get] error. (Reason = [stats get ERROR])");
    return ret;
  }
  aclStatsAnswerPut(d, e);
  return 0;
}

int32_t aclGemPortStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclGemPortStatsSetApi(indexAddr, cmd, buf, ACL_MODE_SET);
}

int32_t aclGemPortStatsSyncApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclGemPortStatsSetApi(indexAddr, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclGemPortStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_IFSTATS_NOT_EXIST;
  AclLockGuard lock;
  const GemStatsKey k = keyLoad(indexAddr);
  aclDebug(ACL_LOG_API, "ACL config [ACL IF stats set] info=[unit:=%d cmd:=%d].",
           num(k.index.ifIndex), static_cast<int>(cmd));
  switch (cmd) {
    case ACL_STATS_CMD_CLEAR: {
      AclStatsEntry* e = aclGemPortStatsEntryGet(k.index);
      if (e == nullptr) return ACL_ERR_IFSTATS_NOT_EXIST;
      if (int32_t ret = aclHwRelay(ACL_RELAY_GEM_PORT_STATS, mode, indexAddr, cmd, buf)) {
        return ret;
      }
      return aclGemPortStatsReset(e);
    }
    case ACL_STATS_CMD_CLEAR_ALL:
      if (int32_t ret = aclHwRelay(ACL_RELAY_GEM_PORT_STATS, mode, indexAddr, cmd, buf)) {
        return ret;
      }
      return clearAll(k.index);
    default:
      return ACL_RET_UNKNOWN;
  }
}
