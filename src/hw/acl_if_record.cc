// Interface records and bind-list entries: creation and deletion of a record with the module's
// protocol registration on the interface, the bind-list entries of every binding, and the checks
// made before a binding (owner conflicts, sub-interfaces).
#include "hw/acl_if_record.h"

#include <array>
#include <cstring>

#include "control/acl_slot_index.h"
#include "hw/acl_if_name.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "main/acl_pools.h"
#include "platform/ifmgr.h"
#include "platform/keycmp.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

static_assert(sizeof(AclIfEntry) <= ACL_IF_ENTRY_SIZE, "interface record outgrew its pool entry");
static_assert(sizeof(AclIfListEntry) <= ACL_IFLIST_ENTRY_SIZE,
              "bind-list entry outgrew its pool entry");

namespace {

constexpr uint32_t kSubIfFlag = 0x400;  // flag word 10: an Ethernet sub-interface
constexpr uint32_t kLogProtoEnable = 9;
constexpr uint32_t kLogProtoDisable = 10;
constexpr size_t kProtoBlockLen = 16;

// One flag word of the interface manager; false when the manager does not answer.
bool ifFlagWord(uint32_t ifIndex, uint32_t field, uint32_t* value) {
  std::array<uint8_t, 4> word{};
  if (zorIfGetApi(ifIndex, field, word.data()) != 0) return false;
  *value = be::load32(std::span<const uint8_t>(word), 0);
  return true;
}

// Parameter block of the protocol registration: the module number in its first word.
int32_t protoCall(uint32_t ifIndex, uint32_t field) {
  std::array<uint8_t, kProtoBlockLen> block{};
  be::store32(std::span<uint8_t>(block), 0, ACL_MODULE_NUM);
  return zorIfSetApi(ifIndex, field, block.data());
}

AclIfListEntry listKey(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                       uint32_t ruleIdx) {
  AclIfListEntry key{};
  key.ifIndex = ifIndex;
  key.listType = listType;
  key.dir = dir;
  key.lstIdx = lstIdx;
  key.ruleIdx = ruleIdx;
  return key;
}

}  // namespace

int aclIfCompare(const void* a, const void* b) {
  const auto* x = static_cast<const AclIfEntry*>(a);
  const auto* y = static_cast<const AclIfEntry*>(b);
  return keycmp::compare(x->unit, y->unit);
}

int aclIfListCmp(const void* a, const void* b) {
  const auto* x = static_cast<const AclIfListEntry*>(a);
  const auto* y = static_cast<const AclIfListEntry*>(b);
  return keycmp::compare(x->lstIdx, y->lstIdx, x->ruleIdx, y->ruleIdx, x->ifIndex, y->ifIndex,
                         x->listType, y->listType, x->dir, y->dir);
}

AclIfEntry* aclIfEntryGet(uint32_t ifIndex) {
  if (gaclGrp.ifTree.compar == nullptr) return nullptr;
  AclIfEntry key{};
  key.unit = ifIndex;
  return static_cast<AclIfEntry*>(avl_find(&gaclGrp.ifTree, &key, nullptr));
}

int32_t aclIfTypeCheck(uint32_t ifIndex) {
  uint32_t flags = 0;
  if (ifFlagWord(ifIndex, ZOR_IF_FIELD_FLAGS10, &flags) && (flags & kSubIfFlag) != 0 &&
      gaclGrp.ethSubIfEnable == 0) {
    return ACL_ERR_SUBIF_NOT_ALLOWED;
  }
  return 0;
}

AclIfEntry* aclIfEntryAdd(uint32_t ifIndex) {
  // The interface manager may ask for no record at all; the reason is its own business.
  uint32_t flags13 = 0;
  if (ifFlagWord(ifIndex, ZOR_IF_FIELD_FLAGS13, &flags13) && flags13 == 1) return nullptr;
  if (const int32_t ret = aclIfTypeCheck(ifIndex); ret != 0) {
    gaclGrp.lastErr = static_cast<uint32_t>(ret);
    return nullptr;
  }
  // A second creation keeps the record it has: re-registering would change nothing, and linking a
  // second record under the same key is what the tree refuses.
  if (AclIfEntry* existing = aclIfEntryGet(ifIndex)) return existing;
  auto* e = static_cast<AclIfEntry*>(silMemPoolAlloc(gaclGrp.ifPool, nullptr));
  if (e == nullptr) {
    gaclGrp.lastErr = static_cast<uint32_t>(CMN_ERR_NO_RESOURCE);
    return nullptr;
  }
  std::memset(static_cast<void*>(e), 0, sizeof *e);
  e->unit = ifIndex;
  e->inCtrl = ACL_IF_CTRL_OFF;
  e->outCtrl = ACL_IF_CTRL_OFF;
  e->rowStatus = 1;
  avl_add(&gaclGrp.ifTree, e);
  aclIfSetProtoState(ifIndex, 1);
  return e;
}

int32_t aclIfEntryDel(AclIfEntry* entry) {
  if (entry == nullptr) return 0;
  avl_remove(&gaclGrp.ifTree, entry);
  aclIfSetProtoState(entry->unit, 0);
  aclIfSetProtoIgnorestate(entry->unit, 0);
  std::memset(static_cast<void*>(entry), 0, sizeof *entry);
  silMemPoolFree(gaclGrp.ifPool, entry);
  return 0;
}

int32_t aclDeleteIf(uint32_t ifIndex) {
  return aclIfEntryDel(aclIfEntryGet(ifIndex));
}

int32_t aclIfSetProtoState(uint32_t ifIndex, uint32_t on) {
  const int32_t ret = protoCall(ifIndex, on == 1 ? ZOR_IF_PROTO_ENABLE : ZOR_IF_PROTO_DISABLE);
  if (ret != 0) {
    const AclIfName name = aclIfName(ifIndex, kAclIfNameLen);
    if (on == 1) {
      aclOperLogClass(kLogProtoEnable,
                      "The interface enable protocol error.(ifName=[%s], proto=[%s], "
                      "type=[%s])\r\n",
                      name.text, aclProtoNameGet(ACL_MODULE_NUM), "state");
    } else {
      aclOperLogClass(kLogProtoDisable,
                      "The interface disable protocol error.(ifName=[%s], proto=[%s], "
                      "type=[%s])\r\n",
                      name.text, aclProtoNameGet(ACL_MODULE_NUM), "state");
    }
  }
  return ret;
}

int32_t aclIfSetProtoIgnorestate(uint32_t ifIndex, uint32_t on) {
  return protoCall(ifIndex, on == 1 ? ZOR_IF_IGNORE_ENABLE : ZOR_IF_IGNORE_DISABLE);
}

AclIfListEntry* aclIfListGet(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                             uint32_t ruleIdx) {
  if (gaclGrp.ifListTree.compar == nullptr) return nullptr;
  AclIfListEntry key = listKey(ifIndex, listType, dir, lstIdx, ruleIdx);
  return static_cast<AclIfListEntry*>(avl_find(&gaclGrp.ifListTree, &key, nullptr));
}

AclIfListEntry* aclIfListAdd(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                             uint32_t ruleIdx) {
  if (AclIfListEntry* e = aclIfListGet(ifIndex, listType, dir, lstIdx, ruleIdx)) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add if list entry] over. (Info=[if list entry(%d/%d/%d/%d/%d) already "
             "exist])\r\n",
             static_cast<int>(ifIndex), listType, dir, static_cast<int>(lstIdx),
             static_cast<int>(ruleIdx));
    return e;
  }
  if (gaclGrp.ifListTree.compar == nullptr) return nullptr;
  auto* e = static_cast<AclIfListEntry*>(silMemPoolAlloc(gaclGrp.ifListPool, nullptr));
  if (e == nullptr) return nullptr;
  *e = listKey(ifIndex, listType, dir, lstIdx, ruleIdx);
  avl_add(&gaclGrp.ifListTree, e);
  aclSlotIndexIfAdd(*e);
  return e;
}

bool aclIfListRoom(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                   uint32_t ruleIdx) {
  if (aclIfListGet(ifIndex, listType, dir, lstIdx, ruleIdx) != nullptr) return true;
  SilMemPoolInfo info{};
  return silMemPoolInfoGet(gaclGrp.ifListPool, &info) && info.used < info.entries;
}

int32_t aclIfListDel(AclIfListEntry* entry) {
  if (entry == nullptr) return 0;
  aclSlotIndexIfDel(*entry);
  avl_remove(&gaclGrp.ifListTree, entry);
  std::memset(static_cast<void*>(entry), 0, sizeof *entry);
  silMemPoolFree(gaclGrp.ifListPool, entry);
  return 0;
}

int32_t aclIfListConflict(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint8_t owner) {
  const uint32_t type = aclListTypeGetByIndex(lstIdx);
  if (type == ACL_LIST_TYPE_NONE) return CMN_ERR_NOT_SUPPORTED;
  if (gaclGrp.ifListTree.compar == nullptr) return 0;
  // The tree keeps every binding of a list together, so the walk starts at the list's first.
  AclIfListEntry key = listKey(0, 0, 0, lstIdx, 0);
  avl_index_t where = 0;
  auto* e = static_cast<AclIfListEntry*>(avl_find(&gaclGrp.ifListTree, &key, &where));
  if (e == nullptr) {
    e = static_cast<AclIfListEntry*>(avl_nearest(&gaclGrp.ifListTree, where, AVL_AFTER));
  }
  for (; e != nullptr && e->lstIdx == lstIdx;
       e = static_cast<AclIfListEntry*>(avl_next(&gaclGrp.ifListTree, e))) {
    if (e->ifIndex == ifIndex && e->dir == dir && e->listType == type && e->bindOwner != owner) {
      return ACL_ERR_SHARED_IN_USE;
    }
  }
  return 0;
}
