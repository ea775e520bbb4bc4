// Next-hop list programming. When every next hop of a redirect rule resolves, the rule's whole
// list is taken out of the hardware and put back on every binding (the binding code installs a
// redirect rule only while its next hops are all resolved); when one is lost, just that rule is
// taken out. Only the hardware changes: bindings, reference counts and registrations stay.
//
// Every phase visits the bindings in the same order: every interface record in interface order,
// each in the order of the bind slots, then every GEM port record in GEM port order (typed and
// pre-stage slots), then the global slots. Every slot that holds the list is visited on its own.
// GEM port bindings are in the re-installation and in the single-rule removal alike, so a rule
// that a resolved next hop put on a GEM port is taken off it again when the next hop is lost.
#include "control/acl_nexthop.h"

#include <array>

#include "hw/acl_bind_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_glb.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"

namespace {

// The trace texts of each bind slot, in the order of kAclBindSlots.
struct NextHopSlot {
  uint32_t AclBindSlots::*field;
  const char* ifDel;       // interface removal: list, unit, result
  const char* ifAddFail;   // interface installation failure: list
  const char* glbDel;      // global removal: list
  const char* glbAdd;      // global installation: list
  const char* ifRuleDel;   // interface rule removal: unit, list, rule, result (none for vfp)
  const char* glbRuleDel;  // global rule removal: list, rule (none for outIpv6Acl and vfp)
};

constexpr std::array<NextHopSlot, 20> kSlots = {{
    {&AclBindSlots::inAcl,
     "ACL if [acl nexthop list add] info =[del if inAcl = %d, unit %d, ret %d, in direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del inAcl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add inAcl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del inAcl = %d/%u ].\r\n"},
    {&AclBindSlots::outAcl,
     "ACL if [acl nexthop list add] info =[del if outAcl = %d, unit %d, ret %d, out direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add nexthop list %d out error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del outAcl = %d]. \r\n",
     "ACL global [acl nexthop list add] info =[add outAcl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del outAcl = %d/%u ].\r\n"},
    {&AclBindSlots::inL2Acl,
     "ACL if [acl nexthop list add] info =[del if in l2 Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in l2 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in L2 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in l2 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in l2 rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del in L2 Acl = %d/%u ].\r\n"},
    {&AclBindSlots::outL2Acl,
     "ACL if [acl nexthop list add] info =[del if out l2 Acl = %d, unit %d, ret %d, out direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out l2 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out L2 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out l2 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out l2 rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del out L2 Acl = %d/%u ].\r\n"},
    {&AclBindSlots::inIpv4Acl,
     "ACL if [acl nexthop list add] info =[del if in Ipv4 Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Ipv4 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Ipv4 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Ipv4 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Ipv4 rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Ipv4 Acl = %d/%u ].\r\n"},
    {&AclBindSlots::outIpv4Acl,
     "ACL if [acl nexthop list add] info =[del if out Ipv4 Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Ipv4 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Ipv4 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Ipv4 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Ipv4 rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out Ipv4 Acl = %d/%u ].\r\n"},
    {&AclBindSlots::inIpv6Acl,
     "ACL if [acl nexthop list add] info =[del if in Ipv6 Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Ipv6 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Ipv6 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Ipv6 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Ipv6 rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Ipv6 Acl = %d/%u ].\r\n"},
    {&AclBindSlots::outIpv6Acl,
     "ACL if [acl nexthop list add] info =[del if out Ipv6 Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Ipv6 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Ipv6 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Ipv6 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Ipv6 rule = %d/%u, ret %d "
     "].\r\n",
     nullptr},
    {&AclBindSlots::inHybridAcl,
     "ACL if [acl nexthop list add] info =[del if in Hybrid Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Hybrid nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Hybrid Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Hybrid Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Hybrid rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Hybrid Acl = %d/%u ].\r\n"},
    {&AclBindSlots::outHybridAcl,
     "ACL if [acl nexthop list add] info =[del if out Hybrid Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Hybrid nexthop list %d in error, "
     "will retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Hybrid Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Hybrid Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Hybrid rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out Hybrid Acl = %d/%u ].\r\n"},
    {&AclBindSlots::inMplsAcl,
     "ACL if [acl nexthop list add] info =[del if in Mpls Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Mpls nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Mpls Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Mpls Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Mpls rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Mpls Acl = %d/%u ].\r\n"},
    {&AclBindSlots::outMplsAcl,
     "ACL if [acl nexthop list add] info =[del if out Mpls Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Mpls nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Mpls Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Mpls Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Mpls rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out Mpls Acl = %d/%u ].\r\n"},
    {&AclBindSlots::inUdfAcl,
     "ACL if [acl nexthop list add] info =[del if in udf Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in udf nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in udf Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in udf Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in udf rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del in udf Acl = %d/%u ].\r\n"},
    {&AclBindSlots::outUdfAcl,
     "ACL if [acl nexthop list add] info =[del if out udf Acl = %d, unit %d, ret %d, out direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out udf nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out udf Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out udf Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out udf rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out udf Acl = %d/%u ].\r\n"},
    {&AclBindSlots::inL2VfpAcl,
     "ACL if [acl nexthop list add] info =[del if in l2 vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in l2 vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in L2 vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in l2 vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclBindSlots::inIpv4VfpAcl,
     "ACL if [acl nexthop list add] info =[del if in ipv4 vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in ipv4 vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in ipv4 vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in ipv4 vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclBindSlots::inIpv6VfpAcl,
     "ACL if [acl nexthop list add] info =[del if in ipv6 vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in ipv6 vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in ipv6 vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in ipv6 vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclBindSlots::inHybridVfpAcl,
     "ACL if [acl nexthop list add] info =[del if in hybrid vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in hybrid vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in hybrid vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in hybrid vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclBindSlots::inMplsVfpAcl,
     "ACL if [acl nexthop list add] info =[del if in mpls vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in mpls vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in mpls vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in mpls vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclBindSlots::inUdfVfpAcl,
     "ACL if [acl nexthop list add] info =[del if in udf vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in udf vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in udf vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in udf vfp Acl = %d].\r\n", nullptr, nullptr},
}};

constexpr bool textsFollowSlots() {
  for (size_t i = 0; i < kSlots.size(); ++i) {
    if (kSlots[i].field != kAclBindSlots[i].field) return false;
  }
  return kSlots.size() == kAclBindSlots.size();
}
static_assert(textsFollowSlots());

bool untyped(const AclBindSlotDef& s) {
  return s.cls == AclSlotClass::Untyped;
}

// The global slot holds the list; a generic slot with the list its switch installed, and only
// while it is switched on.
bool globalHolds(const AclBindSlotDef& s, uint32_t lstIdx) {
  if (!untyped(s)) return gaclGrp.slots.*s.field == lstIdx;
  const bool in = s.dir == ACL_DIR_INGRESS;
  return (in ? gaclGrp.inCtrl : gaclGrp.outCtrl) == 1 &&
         (in ? gaclGrp.inCtrlList : gaclGrp.outCtrlList) == lstIdx;
}

// The interface's slot holds the list; a generic slot only while it is switched on.
bool ifHolds(const AclIfEntry* e, const AclBindSlotDef& s, uint32_t lstIdx) {
  if (e->slots.*s.field != lstIdx) return false;
  return !untyped(s) || (s.dir == ACL_DIR_INGRESS ? e->inCtrl : e->outCtrl) == ACL_IF_CTRL_ON;
}

// The bind type code of a global slot: 0 for the generic ones, else the slot's kind.
uint32_t glbCode(const AclBindSlotDef& s) {
  return untyped(s) ? 0 : s.kind;
}

// The GEM port's slot holds the list; a GEM port has no generic slots.
bool gemHolds(const AclGemPortEntry* e, const AclBindSlotDef& s, uint32_t lstIdx) {
  return !untyped(s) && e->slots.*s.field == lstIdx;
}

AclGemPortEntry* firstGem() {
  return static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree));
}
AclGemPortEntry* nextGem(AclGemPortEntry* e) {
  return static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e));
}

AclIfEntry* firstIf() {
  return static_cast<AclIfEntry*>(avl_first(&gaclGrp.ifTree));
}
AclIfEntry* nextIf(AclIfEntry* e) {
  return static_cast<AclIfEntry*>(avl_next(&gaclGrp.ifTree, e));
}

void retryFired(uintptr_t lstIdx) {
  aclNextHopListAdd(static_cast<uint32_t>(lstIdx));
}

void retryStop(AclListEntry* list) {
  silTimerStop(&gaclGrp.timerList, &list->retryTimer);
}

// A list that is missing or has no rules has nothing to program.
AclListEntry* usableList(uint32_t lstIdx) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  return list != nullptr && list->ruleNum != 0 ? list : nullptr;
}

// Installs the list on every binding that holds it, interfaces first; the first failure stops it.
int32_t installAll(uint32_t lstIdx) {
  const int id = static_cast<int>(lstIdx);
  for (AclIfEntry* e = firstIf(); e != nullptr; e = nextIf(e)) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (!ifHolds(e, s, lstIdx)) continue;
      if (const int32_t ret = aclIfHwAdd(e->unit, 0, 0, lstIdx, s.dir, nullptr, s.kind); ret != 0) {
        aclDebug(s.cls == AclSlotClass::Vfp ? ACL_LOG_IF : ACL_LOG_GLOBAL, kSlots[i].ifAddFail, id);
        return ret;
      }
    }
  }
  for (AclGemPortEntry* e = firstGem(); e != nullptr; e = nextGem(e)) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (!gemHolds(e, s, lstIdx)) continue;
      if (const int32_t ret = aclIfHwAdd(e->unit, e->onuId, e->gemPort, lstIdx, s.dir, nullptr,
                                         s.kind);
          ret != 0) {
        aclDebug(s.cls == AclSlotClass::Vfp ? ACL_LOG_IF : ACL_LOG_GLOBAL, kSlots[i].ifAddFail, id);
        return ret;
      }
    }
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[acl add nexthop list %d for interface "
           "complete!].\r\n",
           id);
  for (size_t i = 0; i < kSlots.size(); ++i) {
    const AclBindSlotDef& s = kAclBindSlots[i];
    if (!globalHolds(s, lstIdx)) continue;
    const int32_t ret = aclGlbHwAdd(lstIdx, s.dir, glbCode(s));
    aclDebug(ACL_LOG_GLOBAL, kSlots[i].glbAdd, id);
    if (ret != 0) return ret;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[acl add nexthop list %d for global "
           "complete!!].\r\n",
           id);
  return 0;
}

}  // namespace

void aclNextHopTimerRestart(AclListEntry* list) {
  if (list == nullptr) return;
  retryStop(list);
  silTimerStart(&gaclGrp.timerList, &list->retryTimer, 0, ACL_NEXTHOP_RETRY_MS, retryFired,
                list->lstIdx, 0, 0);
}

int32_t aclNextHopListAdd(uint32_t lstIdx) {
  const int id = static_cast<int>(lstIdx);
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[acl add nexthop list %d!].\r\n", id);
  AclListEntry* list = usableList(lstIdx);
  if (list == nullptr) return -1;

  // Removal: only the last call's result decides whether the installation may go on.
  int32_t ret = 0;
  for (AclIfEntry* e = firstIf(); e != nullptr; e = nextIf(e)) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (!ifHolds(e, s, lstIdx)) continue;
      ret = aclIfHwDel(e->unit, 0, 0, lstIdx, s.dir, s.kind);
      aclDebug(ACL_LOG_IF, kSlots[i].ifDel, id, static_cast<int>(e->unit), static_cast<int>(ret));
    }
  }
  for (AclGemPortEntry* e = firstGem(); e != nullptr; e = nextGem(e)) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (!gemHolds(e, s, lstIdx)) continue;
      ret = aclIfHwDel(e->unit, e->onuId, e->gemPort, lstIdx, s.dir, s.kind);
      aclDebug(ACL_LOG_IF, kSlots[i].ifDel, id, static_cast<int>(e->unit), static_cast<int>(ret));
    }
  }
  for (size_t i = 0; i < kSlots.size(); ++i) {
    const AclBindSlotDef& s = kAclBindSlots[i];
    if (!globalHolds(s, lstIdx)) continue;
    ret = aclGlbHwDel(lstIdx, s.dir);
    aclDebug(ACL_LOG_GLOBAL, kSlots[i].glbDel, id);
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[acl add nexthop list %d, %d!].\r\n", id, 1003);
  if (ret != 0) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl nexthop list add] info =[del previous list error. listId=%d].\r\n",
             id);
    return ret;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[acl add nexthop list %d, %d!].\r\n", id, 1012);

  // Installation, stopping at the first failure; the retry starts again from the removal.
  ret = installAll(lstIdx);
  if (ret == 0) {
    retryStop(list);
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl nexthop list add] info =[acl add nexthop list %d OK!!].\r\n", id);
    return 0;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[Add list error. listId=%d].\r\n", id);
  aclNextHopTimerRestart(list);
  return ret;
}

int32_t aclNextHopListRuleDel(uint32_t lstIdx, uint32_t ruleIdx) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list del] info =[acl del nexthop list rule %d/%d!].\r\n",
           static_cast<int>(lstIdx), static_cast<int>(ruleIdx));
  AclListEntry* list = usableList(lstIdx);
  if (list == nullptr || aclRuleEntryGet(list, ruleIdx) == nullptr) return -1;

  int32_t ret = 0;
  for (AclIfEntry* e = firstIf(); e != nullptr; e = nextIf(e)) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (!ifHolds(e, s, lstIdx)) continue;
      ret = aclIfHwDelone(e->unit, lstIdx, ruleIdx, s.dir, s.kind);
      if (kSlots[i].ifRuleDel != nullptr) {
        aclDebug(ACL_LOG_GLOBAL, kSlots[i].ifRuleDel, static_cast<int>(e->unit),
                 static_cast<int>(lstIdx), ruleIdx, static_cast<int>(ret));
      }
    }
  }
  for (AclGemPortEntry* e = firstGem(); e != nullptr; e = nextGem(e)) {
    for (size_t i = 0; i < kSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (!gemHolds(e, s, lstIdx)) continue;
      ret = aclGemPortHwDelone(e->unit, e->onuId, e->gemPort, lstIdx, ruleIdx, s.dir, s.kind);
      if (kSlots[i].ifRuleDel != nullptr) {
        aclDebug(ACL_LOG_GLOBAL, kSlots[i].ifRuleDel, static_cast<int>(e->unit),
                 static_cast<int>(lstIdx), ruleIdx, static_cast<int>(ret));
      }
    }
  }
  bool inVfp = false;
  for (size_t i = 0; i < kSlots.size(); ++i) {
    const AclBindSlotDef& s = kAclBindSlots[i];
    if (!globalHolds(s, lstIdx)) continue;
    // The pre-stage slots share one hardware stage: the rule goes once, whichever slot holds it.
    if (s.cls == AclSlotClass::Vfp) {
      inVfp = true;
      continue;
    }
    ret = aclGlbHwDelone(lstIdx, ruleIdx, s.dir);
    if (kSlots[i].glbRuleDel != nullptr) {
      aclDebug(ACL_LOG_GLOBAL, kSlots[i].glbRuleDel, static_cast<int>(lstIdx), ruleIdx);
    }
  }
  if (inVfp) {
    ret = aclGlbHwDelone(lstIdx, ruleIdx, ACL_DIR_VFP);
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl nexthop list del] info =[del in vfp Acl = %d/%u ].\r\n",
             static_cast<int>(lstIdx), ruleIdx);
  }
  aclDebug(
      ACL_LOG_GLOBAL,
      "ACL global [acl nexthop list del] info =[acl del nexthop list rule %d/%u complete!].\r\n",
      static_cast<int>(lstIdx), ruleIdx);
  return ret;
}
