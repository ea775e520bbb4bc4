#include "stats/acl_gemport_stats.h"

#include <cstddef>
#include <cstring>

#include "main/acl_group.h"
#include "main/acl_log.h"
#include "stats/acl_stats.h"
#include "wire/acl_ret.h"

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
