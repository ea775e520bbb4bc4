// Moving one bind slot of an interface to another list (or to none), and unbinding every slot of
// an interface that goes away: the hardware work, the lists' refCnt, the slot ledger and the
// bind-list entries, kept in step.
#include "control/acl_slot.h"
#include "hw/acl_if.h"
#include "hw/acl_if_internal.h"
#include "hw/acl_if_record.h"
#include "main/acl_log.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"

namespace {

constexpr uint32_t kLogHwDelFailed = 13;

// The list type a slot of this kind accepts; 0 for the untyped kind, which takes any.
uint32_t acceptedType(uint32_t kind) {
  if (kind == ACL_BIND_KIND_UNTYPED) return 0;
  if (!aclBindKindIsVfp(kind)) return kind;
  const uint32_t column = kind - ACL_BIND_KIND_VFP_L2;  // L2, IPv4, IPv6, hybrid, MPLS, UDF
  return column == 5 ? ACL_LIST_TYPE_UDF : column + 1;
}

// Takes the slot's list off the interface; on success the slot is empty and its ledger charge,
// refCnt and bind-list entry are gone.
int32_t unbind(uint32_t ifIndex, uint8_t kind, uint8_t dir, AclListEntry* list, uint32_t* slot) {
  if (const int32_t ret = aclIfDel(ifIndex, 0, 0, list, dir, nullptr, kind); ret != 0) return ret;
  --list->refCnt;
  aclSlotSubRuleNumUpdate(ifIndex, list->lstIdx, list->ruleNum, dir, ACL_SLOT_OP_DEL);
  aclIfListDel(aclIfListGet(ifIndex, kind, dir, list->lstIdx, 0));
  *slot = 0;
  return 0;
}

}  // namespace

int32_t aclIfRuleUpdate(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t newLst,
                        uint32_t* slot) {
  if (slot == nullptr) return CMN_ERR_BAD_PARAM;
  const uint32_t oldLst = *slot;
  // An empty slot names no list, not list 0.
  AclListEntry* oldList = oldLst != 0 ? aclListEntryGet(oldLst) : nullptr;
  if (newLst == 0) {
    if (oldList == nullptr) return ACL_ERR_LIST_NOT_EXIST;
    return unbind(ifIndex, listType, dir, oldList, slot);
  }
  AclListEntry* newList = aclListEntryGet(newLst);
  if (newList == nullptr || (oldLst != 0 && oldList == nullptr)) return ACL_ERR_LIST_NOT_EXIST;
  // A slot takes lists of its own type only: anything else would be installed in a stage whose
  // key the rules do not fit.
  const uint32_t accepted = acceptedType(listType);
  if (accepted != 0 && aclListTypeGetByIndex(newLst) != accepted) return CMN_ERR_BAD_PARAM;
  const uint32_t oldCount = oldList != nullptr ? oldList->ruleNum : 0;
  if (const int32_t ret = aclSlotSubRuleNumCheck(ifIndex, oldCount, newLst, newList->ruleNum, dir);
      ret != 0) {
    return ret;
  }
  // The new binding needs its entry; the old one's, given back by the unbind, makes room too.
  if (!aclIfListRoom(ifIndex, listType, dir, newLst, 0) &&
      (oldList == nullptr || aclIfListGet(ifIndex, listType, dir, oldLst, 0) == nullptr)) {
    return CMN_ERR_NO_RESOURCE;
  }
  if (oldList != nullptr) {
    if (const int32_t ret = unbind(ifIndex, listType, dir, oldList, slot); ret != 0) return ret;
  }
  if (const int32_t ret = aclIfAdd(ifIndex, 0, 0, newList, dir, nullptr, listType); ret != 0) {
    return ret;
  }
  ++newList->refCnt;
  aclSlotSubRuleNumUpdate(ifIndex, newLst, newList->ruleNum, dir, ACL_SLOT_OP_ADD);
  *slot = newLst;
  // Added after the charge, which counts the bindings already standing on the slot.
  if (AclIfListEntry* e = aclIfListAdd(ifIndex, listType, dir, newLst, 0)) e->hwState = 0;
  return 0;
}

int32_t aclIfDelEx(uint32_t ifIndex) {
  aclDebug(ACL_LOG_IF, "ACL interface [del if acl] info= (unit = %d).\r\n",
           static_cast<int>(ifIndex));
  AclIfEntry* e = aclIfEntryGet(ifIndex);
  if (e == nullptr) {
    aclDebug(ACL_LOG_IF, "ACL interface [del if acl] error. (Reason=[if entry is NULL.])\r\n");
    return ACL_ERR_IF_NOT_EXIST;
  }
  for (const AclBindSlotDef& s : kAclBindSlots) {
    const uint32_t lstIdx = e->slots.*s.field;
    if (s.cls == AclSlotClass::Untyped) {
      uint8_t& ctrl = s.dir == ACL_DIR_INGRESS ? e->inCtrl : e->outCtrl;
      if (ctrl != ACL_IF_CTRL_ON) continue;
      ctrl = ACL_IF_CTRL_OFF;
    }
    if (lstIdx == 0) continue;
    AclListEntry* list = aclListEntryGet(lstIdx);
    const int32_t ret = aclIfDel(ifIndex, 0, 0, list, s.dir, nullptr, s.kind);
    if (ret != 0) {
      aclOperLogClass(kLogHwDelFailed,
                      "Delete interface hardware acl failed. (ifName=[%s], list=[%u], rule=[%u], "
                      "dir=[%s], ret=[%u])\r\n",
                      aclIfName(ifIndex, kAclIfNameLen).text, lstIdx, 0u,
                      s.dir == ACL_DIR_EGRESS ? "out" : "in", static_cast<uint32_t>(ret));
    }
    // The interface is going: its bindings are given up whatever the hardware said.
    if (list != nullptr) {
      --list->refCnt;
      // Untyped bindings are never charged; typed and pre-stage ones were, by the slot update.
      if (s.cls != AclSlotClass::Untyped) {
        aclSlotSubRuleNumUpdate(ifIndex, lstIdx, list->ruleNum, s.dir, ACL_SLOT_OP_DEL);
      }
    }
    aclIfListDel(aclIfListGet(ifIndex, s.kind, s.dir, lstIdx, 0));
  }
  return 0;
}
