// GEM port records and their bind-list entries.
#include "hw/acl_gemport_record.h"

#include <array>
#include <cstring>
#include <span>

#include "control/acl_slot_index.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "main/acl_pools.h"
#include "platform/ifmgr.h"
#include "platform/keycmp.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

AclGemPortListEntry listKey(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint8_t listType,
                            uint8_t dir, uint32_t lstIdx) {
  AclGemPortListEntry key{};
  key.ifIndex = ifIndex;
  key.onuId = onuId;
  key.gemPort = gemPort;
  key.listType = listType;
  key.dir = dir;
  key.lstIdx = lstIdx;
  return key;
}

// Flag word 13 of the PON unit is 1: the interface manager wants no GEM port records there.
bool noRecordWanted(uint32_t unit) {
  std::array<uint8_t, 4> word{};
  if (zorIfGetApi(unit, ZOR_IF_FIELD_FLAGS13, word.data()) != 0) return false;
  return be::load32(std::span<const uint8_t>(word), 0) == 1;
}

}  // namespace

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

AclGemPortEntry* aclGemPortEntryAdd(uint32_t unit, uint16_t onuId, uint16_t gemPort) {
  if (gaclGrp.gemPortTree.compar == nullptr) return nullptr;
  if (noRecordWanted(unit)) return nullptr;
  // A second creation keeps the record and its bindings: the tree takes one record per key.
  if (AclGemPortEntry* existing = aclGemPortEntryGet(unit, onuId, gemPort)) return existing;
  auto* e = static_cast<AclGemPortEntry*>(silMemPoolAlloc(gaclGrp.gemPortPool, nullptr));
  if (e == nullptr) {
    gaclGrp.lastErr = static_cast<uint32_t>(CMN_ERR_NO_RESOURCE);
    return nullptr;
  }
  std::memset(static_cast<void*>(e), 0, sizeof *e);
  e->unit = unit;
  e->onuId = onuId;
  e->gemPort = gemPort;
  e->rowStatus = 1;
  avl_add(&gaclGrp.gemPortTree, e);
  return e;
}

int32_t aclGemPortEntryDel(AclGemPortEntry* entry) {
  if (entry == nullptr) return 0;
  avl_remove(&gaclGrp.gemPortTree, entry);
  std::memset(static_cast<void*>(entry), 0, sizeof *entry);
  silMemPoolFree(gaclGrp.gemPortPool, entry);
  return 0;
}

AclGemPortListEntry* aclGemPortListGet(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort,
                                       uint8_t listType, uint8_t dir, uint32_t lstIdx) {
  if (gaclGrp.gemPortListTree.compar == nullptr) return nullptr;
  AclGemPortListEntry key = listKey(ifIndex, onuId, gemPort, listType, dir, lstIdx);
  return static_cast<AclGemPortListEntry*>(avl_find(&gaclGrp.gemPortListTree, &key, nullptr));
}

AclGemPortListEntry* aclGemPortListAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort,
                                       uint8_t listType, uint8_t dir, uint32_t lstIdx) {
  if (AclGemPortListEntry* e = aclGemPortListGet(ifIndex, onuId, gemPort, listType, dir, lstIdx)) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add if list entry] over. (Info=[if list entry(%d/%d/%d/%d) already "
             "exist])\r\n",
             static_cast<int>(ifIndex), listType, dir, static_cast<int>(lstIdx));
    return e;
  }
  if (gaclGrp.gemPortListTree.compar == nullptr) return nullptr;
  auto* e = static_cast<AclGemPortListEntry*>(silMemPoolAlloc(gaclGrp.gemPortListPool, nullptr));
  if (e == nullptr) return nullptr;
  *e = listKey(ifIndex, onuId, gemPort, listType, dir, lstIdx);
  avl_add(&gaclGrp.gemPortListTree, e);
  aclSlotIndexGemAdd(*e);
  return e;
}

int32_t aclGemPortListDel(AclGemPortListEntry* entry) {
  if (entry == nullptr) return 0;
  aclSlotIndexGemDel(*entry);
  avl_remove(&gaclGrp.gemPortListTree, entry);
  std::memset(static_cast<void*>(entry), 0, sizeof *entry);
  silMemPoolFree(gaclGrp.gemPortListPool, entry);
  return 0;
}
