#include "hw/acl_gemport_record.h"

#include "main/acl_group.h"
#include "main/acl_pools.h"
#include "platform/keycmp.h"

int aclGemPortCmp(const void* a, const void* b) {
  const auto* x = static_cast<const AclGemPortEntry*>(a);
  const auto* y = static_cast<const AclGemPortEntry*>(b);
  return keycmp::compare(x->unit, y->unit, x->onuId, y->onuId, x->gemPort, y->gemPort);
}

int aclGemPortListCmp(const void* a, const void* b) {
  const auto* x = static_cast<const AclGemPortListEntry*>(a);
  const auto* y = static_cast<const AclGemPortListEntry*>(b);
  return keycmp::compare(x->lstIdx, y->lstIdx, x->ifIndex, y->ifIndex, x->onuId, y->onuId,
                         x->gemPort, y->gemPort, x->listType, y->listType, x->dir, y->dir);
}

static_assert(sizeof(AclGemPortEntry) <= ACL_GEMPORT_ENTRY_SIZE,
              "GEM port record outgrew its pool entry");
static_assert(sizeof(AclGemPortListEntry) <= ACL_GEMPORTLIST_ENTRY_SIZE,
              "GEM port bind-list entry outgrew its pool entry");

AclGemPortEntry* aclGemPortEntryGet(uint32_t unit, uint16_t onuId, uint16_t gemPort) {
  if (gaclGrp.gemPortTree.compar == nullptr) return nullptr;
  AclGemPortEntry key{};
  key.unit = unit;
  key.onuId = onuId;
  key.gemPort = gemPort;
  return static_cast<AclGemPortEntry*>(avl_find(&gaclGrp.gemPortTree, &key, nullptr));
}
