#include "stats/acl_gemport_stats.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "stats/acl_stats.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

AclStatsEntry* gemOwner(SilDlNode* n) {
  return dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, gemNode));
}

// dir (signed), lstIdx, ruleIdx, GEM port, ONU, interface.
int compareGem(const AclStatsEntry* a, const AclStatsEntry* b) {
  if (a->dir != b->dir) return a->dir < b->dir ? -1 : 1;
  if (a->lstIdx != b->lstIdx) return a->lstIdx < b->lstIdx ? -1 : 1;
  if (a->ruleIdx != b->ruleIdx) return a->ruleIdx < b->ruleIdx ? -1 : 1;
  if (a->gemPortId != b->gemPortId) return a->gemPortId < b->gemPortId ? -1 : 1;
  if (a->onuId != b->onuId) return a->onuId < b->onuId ? -1 : 1;
  if (a->ifIndex != b->ifIndex) return a->ifIndex < b->ifIndex ? -1 : 1;
  return 0;
}

bool matches(const AclStatsEntry* e, const AclGemStatsIndex& index) {
  return e->lstIdx == index.lstIdx && e->ruleIdx == index.ruleIdx && e->ifIndex == index.ifIndex &&
         e->onuId == index.onuId && e->gemPortId == index.gemPort &&
         e->dir == static_cast<int16_t>(index.dir);
}

constexpr uint32_t kReqOnu = 13;  // u8: the ONU id's low 8 bits
constexpr uint32_t kReqGem = 16;  // u16
constexpr uint32_t kIfNameLen = 64;

std::array<char, kIfNameLen> ifName(uint32_t ifIndex) {
  std::array<char, kIfNameLen> name{};
  if (zorIfUnit2Name(ifIndex, name.data(), kIfNameLen) != 0) name[0] = '\0';
  name[kIfNameLen - 1] = '\0';
  return name;
}

void gemRequestFill(std::span<uint8_t, ACL_STATS_REQ_LEN> req, const AclStatsEntry& e,
                    bool withSelectors) {
  aclStatsRequestFill(req, e, e.ifIndex, 0, withSelectors);
  req[kReqOnu] = static_cast<uint8_t>(e.onuId);
  be::store16(req, kReqGem, static_cast<uint16_t>(e.gemPortId));
}

uint64_t word(std::span<const uint8_t> req, uint32_t at) { return be::load64(req, at); }

}  // namespace

int32_t aclGemPortStatsEntryAdd(AclStatsEntry* entry) {
  aclDebug(ACL_LOG_STATS,
           "ACL stats [onu port stats add] info=[ifUnit = %d, onuId = %d, gemPort = %d, lstIdx = "
           "%d,ruleIdx = %d].\r\n",
           static_cast<int>(entry->ifIndex), static_cast<int>(entry->onuId),
           static_cast<int>(entry->gemPortId), static_cast<int>(entry->lstIdx),
           static_cast<int>(entry->ruleIdx));
  SilDlNode* head = &gaclGrp.gemPortStatsList;
  SilDlNode* pos = head;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    const int c = compareGem(gemOwner(n), entry);
    if (c == 0) return 0;
    if (c > 0) {
      pos = n;
      break;
    }
  }
  entry->inList = 1;
  dlist::insertBefore(pos, &entry->gemNode);
  return 0;
}

AclStatsEntry* aclGemPortStatsEntryGet(const AclGemStatsIndex& index) {
  SilDlNode* head = &gaclGrp.gemPortStatsList;
  if (head->next == nullptr) return nullptr;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclStatsEntry* cur = gemOwner(n);
    if (matches(cur, index)) return cur;
  }
  return nullptr;
}

int32_t aclGemPortStatsEntryDel(const AclGemStatsIndex& index) {
  aclDebug(ACL_LOG_STATS,
           "ACL stats [onu port stats del] info=[ifIndex = %d, onuId = %d, gemPort = %d, lstIdx = "
           "%d,ruleIdx = %d,dir = %d].\r\n",
           static_cast<int>(index.ifIndex), static_cast<int>(index.onuId), index.gemPort,
           static_cast<int>(index.lstIdx), static_cast<int>(index.ruleIdx),
           static_cast<int16_t>(index.dir));
  AclStatsEntry* e = aclGemPortStatsEntryGet(index);
  if (e == nullptr) {
    aclDebug(ACL_LOG_STATS, "ACL stats [onu port stats del] info=[del error].\r\n");
    return CMN_ERR_NOT_FOUND;
  }
  dlist::unlink(&e->gemNode);
  std::memset(static_cast<void*>(e), 0, sizeof *e);
  return 0;
}

int32_t aclGemPortStatsGet(AclStatsEntry* entry) {
  std::array<uint8_t, ACL_STATS_REQ_LEN> req;
  gemRequestFill(req, *entry, true);
  aclDebug(ACL_LOG_STATS,
           "ACL stats [onu stats get] info=[interface %s, onu=%u, gemPort=%u, vp=%u, lst=%d, "
           "rule=%d, dir=%d, p1/p2=%d/%d, b1/b2=%d/%d].\r\n",
           ifName(entry->ifIndex).data(), entry->onuId, entry->gemPortId, 0u,
           static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx), entry->dir,
           static_cast<int>(entry->p1), static_cast<int>(entry->p2), static_cast<int>(entry->b1),
           static_cast<int>(entry->b2));
  ZorScalarReq desc{ZOR_IF_STATS_READ, req.data(), 1, ACL_STATS_REQ_LEN, 0, 0};
  const int32_t ret = zorIfGetApi(entry->ifIndex, ZOR_IF_FIELD_STATS, &desc);
  // The record takes whatever the request holds now, even after a failed read.
  const std::span<const uint8_t> r(req);
  entry->p1 = word(r, ACL_STATS_REQ_P1);
  entry->p2 = word(r, ACL_STATS_REQ_P2);
  entry->b1 = word(r, ACL_STATS_REQ_B1);
  entry->b2 = word(r, ACL_STATS_REQ_B2);
  entry->p3 = word(r, ACL_STATS_REQ_P3);
  entry->p4 = word(r, ACL_STATS_REQ_P4);
  entry->b3 = word(r, ACL_STATS_REQ_B3);
  entry->b4 = word(r, ACL_STATS_REQ_B4);
  aclDebug(ACL_LOG_STATS,
           "ACL stats [onu stats get] info=[p1/p2=%d | %d,b1/b2=%d | %d, p3/p4=%d | %d,b3/b4=%d | "
           "%d  ret =%d].\r\n",
           static_cast<int>(entry->p1), static_cast<int>(entry->p2), static_cast<int>(entry->b1),
           static_cast<int>(entry->b2), static_cast<int>(entry->p3), static_cast<int>(entry->p4),
           static_cast<int>(entry->b3), static_cast<int>(entry->b4), static_cast<int>(ret));
  return ret;
}

int32_t aclGemPortStatsReset(AclStatsEntry* entry) {
  aclDebug(ACL_LOG_STATS,
           "ACL stats [onu stats reset] info=[interface %s,onu=%u,gemPort=%u,vp=%u,lst=%d,rule=%d,"
           "dir=%d].\r\n",
           ifName(entry->ifIndex).data(), entry->onuId, entry->gemPortId, 0u,
           static_cast<int>(entry->lstIdx), static_cast<int>(entry->ruleIdx), entry->dir);
  std::array<uint8_t, ACL_STATS_REQ_LEN> req;
  gemRequestFill(req, *entry, false);
  ZorScalarReq desc{ZOR_IF_STATS_CLEAR, req.data(), 0, ACL_STATS_REQ_LEN, 0, 0};
  return zorIfSetApi(entry->ifIndex, ZOR_IF_FIELD_STATS, &desc);
}
