// Next-hop list programming. When every next hop of a redirect rule resolves, the rule's whole
// list is taken out of the hardware and put back on every binding (the binding code installs a
// redirect rule only while its next hops are all resolved); when one is lost, just that rule is
// taken out. Only the hardware changes: bindings, reference counts and registrations stay.
//
// The bind slots are one table, in the order they are visited, with their direction, their bind
// type code per scope and their trace texts. Only the global scope holds bindings today; the
// interface scope joins by walking the interface records over the same table (the interface
// texts are already here) before the global scope in both phases.
#include "control/acl_nexthop.h"

#include <array>

#include "hw/acl_glb.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"

namespace {

enum class SlotKind : uint8_t { Generic, Typed, Vfp };

struct NextHopSlot {
  uint32_t AclGroup::*globalField;  // generic slots: the list the switch installed
  uint8_t AclGroup::*globalCtrl;  // generic slots count only while this is 1
  SlotKind kind;
  uint32_t dir;
  uint32_t ifCode;         // bind type code on an interface
  uint32_t glbCode;        // bind type code in the global scope
  const char* ifDel;       // interface removal: list, unit, result
  const char* ifAddFail;   // interface installation failure: list
  const char* glbDel;      // global removal: list
  const char* glbAdd;      // global installation: list
  const char* ifRuleDel;   // interface rule removal: unit, list, rule, result (none for vfp)
  const char* glbRuleDel;  // global rule removal: list, rule (none for outIpv6Acl and vfp)
};

constexpr std::array<NextHopSlot, 20> kSlots = {{
    {&AclGroup::inCtrlList, &AclGroup::inCtrl, SlotKind::Generic, ACL_DIR_INGRESS, 7, 0,
     "ACL if [acl nexthop list add] info =[del if inAcl = %d, unit %d, ret %d, in direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del inAcl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add inAcl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del inAcl = %d/%u ].\r\n"},
    {&AclGroup::outCtrlList, &AclGroup::outCtrl, SlotKind::Generic, ACL_DIR_EGRESS, 7, 0,
     "ACL if [acl nexthop list add] info =[del if outAcl = %d, unit %d, ret %d, out direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add nexthop list %d out error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del outAcl = %d]. \r\n",
     "ACL global [acl nexthop list add] info =[add outAcl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del outAcl = %d/%u ].\r\n"},
    {&AclGroup::inL2Acl, nullptr, SlotKind::Typed, ACL_DIR_INGRESS, 1, 1,
     "ACL if [acl nexthop list add] info =[del if in l2 Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in l2 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in L2 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in l2 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in l2 rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del in L2 Acl = %d/%u ].\r\n"},
    {&AclGroup::outL2Acl, nullptr, SlotKind::Typed, ACL_DIR_EGRESS, 1, 1,
     "ACL if [acl nexthop list add] info =[del if out l2 Acl = %d, unit %d, ret %d, out direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out l2 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out L2 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out l2 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out l2 rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del out L2 Acl = %d/%u ].\r\n"},
    {&AclGroup::inIpv4Acl, nullptr, SlotKind::Typed, ACL_DIR_INGRESS, 2, 2,
     "ACL if [acl nexthop list add] info =[del if in Ipv4 Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Ipv4 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Ipv4 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Ipv4 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Ipv4 rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Ipv4 Acl = %d/%u ].\r\n"},
    {&AclGroup::outIpv4Acl, nullptr, SlotKind::Typed, ACL_DIR_EGRESS, 2, 2,
     "ACL if [acl nexthop list add] info =[del if out Ipv4 Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Ipv4 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Ipv4 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Ipv4 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Ipv4 rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out Ipv4 Acl = %d/%u ].\r\n"},
    {&AclGroup::inIpv6Acl, nullptr, SlotKind::Typed, ACL_DIR_INGRESS, 3, 3,
     "ACL if [acl nexthop list add] info =[del if in Ipv6 Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Ipv6 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Ipv6 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Ipv6 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Ipv6 rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Ipv6 Acl = %d/%u ].\r\n"},
    {&AclGroup::outIpv6Acl, nullptr, SlotKind::Typed, ACL_DIR_EGRESS, 3, 3,
     "ACL if [acl nexthop list add] info =[del if out Ipv6 Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Ipv6 nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Ipv6 Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Ipv6 Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Ipv6 rule = %d/%u, ret %d "
     "].\r\n",
     nullptr},
    {&AclGroup::inHybridAcl, nullptr, SlotKind::Typed, ACL_DIR_INGRESS, 4, 4,
     "ACL if [acl nexthop list add] info =[del if in Hybrid Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Hybrid nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Hybrid Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Hybrid Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Hybrid rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Hybrid Acl = %d/%u ].\r\n"},
    {&AclGroup::outHybridAcl, nullptr, SlotKind::Typed, ACL_DIR_EGRESS, 4, 4,
     "ACL if [acl nexthop list add] info =[del if out Hybrid Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Hybrid nexthop list %d in error, "
     "will retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Hybrid Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Hybrid Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Hybrid rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out Hybrid Acl = %d/%u ].\r\n"},
    {&AclGroup::inMplsAcl, nullptr, SlotKind::Typed, ACL_DIR_INGRESS, 5, 5,
     "ACL if [acl nexthop list add] info =[del if in Mpls Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in Mpls nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in Mpls Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in Mpls Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in Mpls rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del in Mpls Acl = %d/%u ].\r\n"},
    {&AclGroup::outMplsAcl, nullptr, SlotKind::Typed, ACL_DIR_EGRESS, 5, 5,
     "ACL if [acl nexthop list add] info =[del if out Mpls Acl = %d, unit %d, ret %d, out "
     "direction ].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out Mpls nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out Mpls Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out Mpls Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out Mpls rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out Mpls Acl = %d/%u ].\r\n"},
    {&AclGroup::inUdfAcl, nullptr, SlotKind::Typed, ACL_DIR_INGRESS, 8, 8,
     "ACL if [acl nexthop list add] info =[del if in udf Acl = %d, unit %d, ret %d, in direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add in udf nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in udf Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in udf Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d in udf rule = %d/%u, ret %d ].\r\n",
     "ACL global [acl nexthop list del] info =[del in udf Acl = %d/%u ].\r\n"},
    {&AclGroup::outUdfAcl, nullptr, SlotKind::Typed, ACL_DIR_EGRESS, 8, 8,
     "ACL if [acl nexthop list add] info =[del if out udf Acl = %d, unit %d, ret %d, out direction "
     "].\r\n",
     "ACL global [acl nexthop list add] info =[acl if add out udf nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del out udf Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add out udf Acl = %d].\r\n",
     "ACL global [acl nexthop list del] info =[del interface %d out udf rule = %d/%u, ret %d "
     "].\r\n",
     "ACL global [acl nexthop list del] info =[del out udf Acl = %d/%u ].\r\n"},
    {&AclGroup::inL2VfpAcl, nullptr, SlotKind::Vfp, ACL_DIR_VFP, 9, 9,
     "ACL if [acl nexthop list add] info =[del if in l2 vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in l2 vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in L2 vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in l2 vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclGroup::inIpv4VfpAcl, nullptr, SlotKind::Vfp, ACL_DIR_VFP, 10, 10,
     "ACL if [acl nexthop list add] info =[del if in ipv4 vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in ipv4 vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in ipv4 vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in ipv4 vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclGroup::inIpv6VfpAcl, nullptr, SlotKind::Vfp, ACL_DIR_VFP, 11, 11,
     "ACL if [acl nexthop list add] info =[del if in ipv6 vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in ipv6 vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in ipv6 vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in ipv6 vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclGroup::inHybridVfpAcl, nullptr, SlotKind::Vfp, ACL_DIR_VFP, 12, 12,
     "ACL if [acl nexthop list add] info =[del if in hybrid vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in hybrid vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in hybrid vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in hybrid vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclGroup::inMplsVfpAcl, nullptr, SlotKind::Vfp, ACL_DIR_VFP, 13, 13,
     "ACL if [acl nexthop list add] info =[del if in mpls vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in mpls vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in mpls vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in mpls vfp Acl = %d].\r\n", nullptr, nullptr},
    {&AclGroup::inUdfVfpAcl, nullptr, SlotKind::Vfp, ACL_DIR_VFP, 14, 14,
     "ACL if [acl nexthop list add] info =[del if in udf vfp Acl = %d, unit %d, ret %d, in "
     "direction ].\r\n",
     "ACL if [acl nexthop list add] info =[acl if add in udf vfp nexthop list %d in error, will "
     "retry!].\r\n",
     "ACL global [acl nexthop list add] info =[del in udf vfp Acl = %d ].\r\n",
     "ACL global [acl nexthop list add] info =[add in udf vfp Acl = %d].\r\n", nullptr, nullptr},
}};

// The global slot holds the list; a generic slot only while its binding is switched on.
bool globalHolds(const NextHopSlot& s, uint32_t lstIdx) {
  if (gaclGrp.*s.globalField != lstIdx) return false;
  return s.globalCtrl == nullptr || gaclGrp.*s.globalCtrl == 1;
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
  for (const NextHopSlot& s : kSlots) {
    if (!globalHolds(s, lstIdx)) continue;
    ret = aclGlbHwDel(lstIdx, s.dir);
    aclDebug(ACL_LOG_GLOBAL, s.glbDel, id);
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
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl nexthop list add] info =[acl add nexthop list %d for interface "
           "complete!].\r\n",
           id);
  for (const NextHopSlot& s : kSlots) {
    if (!globalHolds(s, lstIdx)) continue;
    ret = aclGlbHwAdd(lstIdx, s.dir, s.glbCode);
    aclDebug(ACL_LOG_GLOBAL, s.glbAdd, id);
    if (ret != 0) break;
  }
  if (ret == 0) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl nexthop list add] info =[acl add nexthop list %d for global "
             "complete!!].\r\n",
             id);
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
  bool inVfp = false;
  for (const NextHopSlot& s : kSlots) {
    if (!globalHolds(s, lstIdx)) continue;
    // The pre-stage slots share one hardware stage: the rule goes once, whichever slot holds it.
    if (s.kind == SlotKind::Vfp) {
      inVfp = true;
      continue;
    }
    ret = aclGlbHwDelone(lstIdx, ruleIdx, s.dir);
    if (s.glbRuleDel != nullptr) {
      aclDebug(ACL_LOG_GLOBAL, s.glbRuleDel, static_cast<int>(lstIdx), ruleIdx);
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
