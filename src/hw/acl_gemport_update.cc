// Moving one bind slot of a GEM port to another list (or to none), and unbinding every slot of a
// GEM port whose ONU went away: the hardware work through the interface binding with the GEM key,
// the lists' refCnt, the slot ledger and the GEM bind-list entries, kept in step.
#include "control/acl_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if.h"
#include "main/acl_log.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"

namespace {

// The list type a typed or pre-stage slot of this kind accepts.
uint32_t acceptedType(uint32_t kind) {
  if (!aclBindKindIsVfp(kind)) return kind;
  const uint32_t column = kind - ACL_BIND_KIND_VFP_L2;  // L2, IPv4, IPv6, hybrid, MPLS, UDF
  return column == 5 ? ACL_LIST_TYPE_UDF : column + 1;
}

struct GemKey {
  uint32_t ifIndex;
  uint16_t onuId;
  uint16_t gemPort;
};

int32_t unbind(const GemKey& k, uint8_t kind, uint8_t dir, AclListEntry* list, uint32_t* slot) {
  if (const int32_t ret = aclIfDel(k.ifIndex, k.onuId, k.gemPort, list, dir, nullptr, kind);
      ret != 0) {
    return ret;
  }
  --list->refCnt;
  // The ledger recounts from the bind tree, so the release comes before the entry goes.
  aclSlotSubRuleNumUpdate(k.ifIndex, list->lstIdx, list->ruleNum, dir, ACL_SLOT_OP_DEL);
  aclGemPortListDel(aclGemPortListGet(k.ifIndex, k.onuId, k.gemPort, kind, dir, list->lstIdx));
  *slot = 0;
  return 0;
}

}  // namespace

int32_t aclGemPortRuleUpdate(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint8_t listType,
                             uint8_t dir, uint32_t newLst, uint32_t* slot) {
  if (slot == nullptr) return CMN_ERR_BAD_PARAM;
  // A GEM port has no untyped slot, and a binding with neither ONU nor GEM port would land on the
  // PON interface itself.
  if (listType == ACL_BIND_KIND_UNTYPED || (onuId == 0 && gemPort == 0)) return CMN_ERR_BAD_PARAM;
  const GemKey k{ifIndex, onuId, gemPort};
  const uint32_t oldLst = *slot;
  AclListEntry* oldList = oldLst != 0 ? aclListEntryGet(oldLst) : nullptr;
  if (newLst == 0) {
    if (oldList == nullptr) return ACL_ERR_LIST_NOT_EXIST;
    return unbind(k, listType, dir, oldList, slot);
  }
  AclListEntry* newList = aclListEntryGet(newLst);
  if (newList == nullptr || (oldLst != 0 && oldList == nullptr)) return ACL_ERR_LIST_NOT_EXIST;
  if (aclListTypeGetByIndex(newLst) != acceptedType(listType)) return CMN_ERR_BAD_PARAM;
  const uint32_t oldCount = oldList != nullptr ? oldList->ruleNum : 0;
  if (const int32_t ret = aclSlotSubRuleNumCheck(ifIndex, oldCount, newLst, newList->ruleNum, dir);
      ret != 0) {
    return ret;
  }
  if (oldList != nullptr) {
    if (const int32_t ret = unbind(k, listType, dir, oldList, slot); ret != 0) return ret;
  }
  if (const int32_t ret = aclIfAdd(ifIndex, onuId, gemPort, newList, dir, nullptr, listType);
      ret != 0) {
    return ret;
  }
  ++newList->refCnt;
  aclSlotSubRuleNumUpdate(ifIndex, newLst, newList->ruleNum, dir, ACL_SLOT_OP_ADD);
  *slot = newLst;
  if (AclGemPortListEntry* e = aclGemPortListAdd(ifIndex, onuId, gemPort, listType, dir, newLst)) {
    e->hwState = 0;
  }
  return 0;
}

int32_t aclGemPortDelEx(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort) {
  aclDebug(ACL_LOG_IF,
           "ACL interface [del gem port acl] info= (unit = %d, onuid = %d, gemport = %d).\r\n",
           static_cast<int>(ifIndex), onuId, gemPort);
  AclGemPortEntry* e = aclGemPortEntryGet(ifIndex, onuId, gemPort);
  if (e == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [del gem port acl] error. (Reason=[if entry is NULL.])\r\n");
    return ACL_ERR_IF_NOT_EXIST;
  }
  for (const AclBindSlotDef& s : kAclBindSlots) {
    uint32_t* slot = &(e->slots.*s.field);
    if (s.cls == AclSlotClass::Untyped || *slot == 0) continue;
    const uint32_t lstIdx = *slot;
    if (aclGemPortRuleUpdate(ifIndex, onuId, gemPort, s.kind, s.dir, 0, slot) == 0) continue;
    // The ONU is gone and the caller deletes the record whatever happened here: a binding the
    // hardware would not give up is still given up in the books, or refCnt, the ledger and the
    // bind list would keep a binding that no record holds.
    if (AclListEntry* list = aclListEntryGet(lstIdx)) {
      --list->refCnt;
      aclSlotSubRuleNumUpdate(ifIndex, lstIdx, list->ruleNum, s.dir, ACL_SLOT_OP_DEL);
    }
    aclGemPortListDel(aclGemPortListGet(ifIndex, onuId, gemPort, s.kind, s.dir, lstIdx));
    *slot = 0;
  }
  return 0;
}
