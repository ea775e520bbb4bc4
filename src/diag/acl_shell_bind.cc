// The shell's views of what is bound and tracked, read straight from the ACL group: bind-list
// entries of interfaces and GEM ports, interface records and their statistics, the blacklist,
// destination IP tracking and the global rule table. None takes the lock (see acl_shell.h).
#include <arpa/inet.h>

#include <cstddef>

#include "control/acl_dstip.h"
#include "diag/acl_shell.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_ip_str.h"
#include "platform/proc.h"
#include "services/acl_blacklist_record.h"
#include "stats/acl_stats.h"
#include "store/acl_rule.h"

using plat::shellPrintf;

namespace {

int i32(uint32_t v) {
  return static_cast<int>(v);
}

template <typename Rec>
Rec* treeFirst(avl_tree_t* t) {
  return static_cast<Rec*>(avl_first(t));
}
template <typename Rec>
Rec* treeNext(avl_tree_t* t, Rec* r) {
  return static_cast<Rec*>(avl_next(t, r));
}

// Each 64-bit counter as its high and low words.
int hi(uint64_t v) {
  return static_cast<int>(static_cast<uint32_t>(v >> 32));
}
int lo(uint64_t v) {
  return static_cast<int>(static_cast<uint32_t>(v));
}

void ruleLinkLine(const AclDstIpRuleEntry* rec) {
  const AclRuleEntry* r = aclRuleEntryGetByIndex(rec->lstIdx, rec->ruleIdx);
  if (r == nullptr) {
    shellPrintf("rule list NULL, rule %d/%d ip sequence %d\n\r", i32(rec->lstIdx),
                i32(rec->ruleIdx), i32(rec->ordinal));
    return;
  }
  shellPrintf("rule %d/%d: nexthopNum %d, arpNum %d, ip sequence %d\r\n", i32(rec->lstIdx),
              i32(rec->ruleIdx), r->nhNum, r->nhLearned, i32(rec->ordinal));
}

}  // namespace

void aclIfListShow(uint32_t lstIdx, uint32_t ifIndex) {
  if (!aclStarted()) return;
  avl_tree_t* t = &gaclGrp.ifListTree;
  shellPrintf("\n\r Total num %d \n\r", static_cast<int>(avl_numnodes(t)));
  for (auto* e = treeFirst<AclIfListEntry>(t); e != nullptr; e = treeNext(t, e)) {
    if ((lstIdx != 0 && e->lstIdx != lstIdx) || (ifIndex != 0 && e->ifIndex != ifIndex)) continue;
    shellPrintf("\n\r list %d rule %d ifIndex %d type %d dir %d hwState %d refcount %d\n\r",
                i32(e->lstIdx), i32(e->ruleIdx), i32(e->ifIndex), e->listType, e->dir, e->hwState,
                e->refcount);
  }
}

void aclGemportListShow(uint32_t ifIndex, uint32_t onuId, uint32_t gemPort, uint32_t lstIdx) {
  if (!aclStarted()) return;
  avl_tree_t* t = &gaclGrp.gemPortListTree;
  shellPrintf("\n\r Total num %d \n\r", static_cast<int>(avl_numnodes(t)));
  for (auto* e = treeFirst<AclGemPortListEntry>(t); e != nullptr; e = treeNext(t, e)) {
    if ((ifIndex != 0 && e->ifIndex != ifIndex) || (onuId != 0 && e->onuId != onuId) ||
        (gemPort != 0 && e->gemPort != gemPort) || (lstIdx != 0 && e->lstIdx != lstIdx)) {
      continue;
    }
    shellPrintf("\n\r list %d ifIndex %d onuid %d gemPort %d type %d dir %d hwState %d\n\r",
                i32(e->lstIdx), i32(e->ifIndex), e->onuId, e->gemPort, e->listType, e->dir,
                e->hwState);
  }
}

void aclIfShow() {
  if (!aclStarted()) return;
  avl_tree_t* t = &gaclGrp.ifTree;
  for (auto* e = treeFirst<AclIfEntry>(t); e != nullptr; e = treeNext(t, e)) {
    const AclBindSlots& s = e->slots;
    shellPrintf(
        "[ACL]acl if unit=%d \n\rinAcl=%d outAcl=%d inCtrl=%d outCtrl=%d\r\ninL2Acl %d, outL2Acl "
        "%d\n\rinIpv4Acl %d, outIpv4Acl %d\n\rinIpv6Acl %d, outIpv6Acl %d\n\rinHybridAcl %d, "
        "outHybridAcl %d\n\rinMplsAcl %d, outMplsAcl %d\n\rinUdfAcl %d, outUdfAcl %d\n\r",
        i32(e->unit), i32(s.inAcl), i32(s.outAcl), e->inCtrl, e->outCtrl, i32(s.inL2Acl),
        i32(s.outL2Acl), i32(s.inIpv4Acl), i32(s.outIpv4Acl), i32(s.inIpv6Acl), i32(s.outIpv6Acl),
        i32(s.inHybridAcl), i32(s.outHybridAcl), i32(s.inMplsAcl), i32(s.outMplsAcl),
        i32(s.inUdfAcl), i32(s.outUdfAcl));
    shellPrintf(
        "inL2VfpAcl %d\n\rinIpv4VfpAcl %d\n\rinIpv6VfpAcl %d\n\rinHybridVfpAcl %d\n\rinMplsVfpAcl "
        "%d\n\rinUdfVfpAcl %d\n\r",
        i32(s.inL2VfpAcl), i32(s.inIpv4VfpAcl), i32(s.inIpv6VfpAcl), i32(s.inHybridVfpAcl),
        i32(s.inMplsVfpAcl), i32(s.inUdfVfpAcl));
  }
}

void testAclIfEntry() {
  if (!aclStarted()) return;
  avl_tree_t* t = &gaclGrp.ifTree;
  for (auto* e = treeFirst<AclIfEntry>(t); e != nullptr; e = treeNext(t, e)) {
    const AclBindSlots& s = e->slots;
    shellPrintf(
        "[ACL]acl if unit=%d \n\rinAcl=%d outAcl=%d inCtrl=%d outCtrl=%d,\r\ninL2Acl %d, outL2Acl "
        "%d\n\rinIpv4Acl %d, outIpv4Acl %d\n\rinIpv6Acl %d, outIpv6Acl %d\n\rinHybridAcl %d, "
        "outHybridAcl %d\n\rinMplsAcl %d, outMplsAcl %d\n\rinUdfAcl %d, outUdfAcl %d\n\r",
        i32(e->unit), i32(s.inAcl), i32(s.outAcl), e->inCtrl, e->outCtrl, i32(s.inL2Acl),
        i32(s.outL2Acl), i32(s.inIpv4Acl), i32(s.outIpv4Acl), i32(s.inIpv6Acl), i32(s.outIpv6Acl),
        i32(s.inHybridAcl), i32(s.outHybridAcl), i32(s.inMplsAcl), i32(s.outMplsAcl),
        i32(s.inUdfAcl), i32(s.outUdfAcl));
  }
}

void testAclIfStatsEntry() {
  if (!aclStarted()) return;
  SilDlNode* head = &gaclGrp.ifStatsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    const auto* e = dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ifNode));
    shellPrintf(
        "[ACL]acl_if_stats ifIdx = %d,lstIdx = %d ruleIdx = %d dir = %d b1(high/low) = %d/%d  "
        "b2(high/low) = %d/%d  p1(high/low) = %d/%d p2(high/low) = %d/%d\r\n",
        i32(e->ifIndex), i32(e->lstIdx), i32(e->ruleIdx), e->dir, hi(e->b1), lo(e->b1), hi(e->b2),
        lo(e->b2), hi(e->p1), lo(e->p1), hi(e->p2), lo(e->p2));
  }
}

void aclBlackListShow() {
  if (!aclStarted()) return;
  avl_tree_t* t = &gaclGrp.blackListTree;
  for (auto* e = treeFirst<AclBlackListEntry>(t); e != nullptr; e = treeNext(t, e)) {
    shellPrintf("system %d slot %d list %d\r\n", i32(e->sys), i32(e->slot), i32(e->lstIdx));
  }
}

void testDstIpEntry() {
  if (!aclStarted()) return;
  SilDlNode* head = &gaclGrp.dstIpList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    const auto* e = dlist::owner<AclDstIpEntry>(n, offsetof(AclDstIpEntry, node));
    char text[ACL_IP_STR_MIN];
    const uint32_t family =
        e->family == ACL_DSTIP_FAMILY_V6 ? ACL_DSTIP_FAMILY_V6 : ACL_DSTIP_FAMILY_V4;
    aclIpTostr(e->destIp, family, text, sizeof text);
    shellPrintf("pEntry 0x%zx: macFindFlag = %d ,destIp = %s, vrfId = %d,family = %d\r\n",
                reinterpret_cast<size_t>(e), e->macFindFlag, text, i32(e->vrfId), e->family);
    const SilDlNode* rules = &e->ruleList;
    for (const SilDlNode* r = rules->next; r != rules; r = r->next) {
      ruleLinkLine(dlist::owner<AclDstIpRuleEntry>(const_cast<SilDlNode*>(r),
                                                   offsetof(AclDstIpRuleEntry, entryNode)));
    }
    shellPrintf("\n\r");
  }
}

void showDstIpRuleList() {
  if (!aclStarted()) return;
  SilDlNode* head = &gaclGrp.dstIpRuleList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    ruleLinkLine(dlist::owner<AclDstIpRuleEntry>(n, offsetof(AclDstIpRuleEntry, node)));
  }
}

void testDstIpEntryAdd() {
  if (!aclStarted()) return;
  const char* text = "2:3::6:9";
  uint8_t addr[16] = {};
  inet_pton(AF_INET6, text, addr);
  shellPrintf("testDstIpEntryAdd %s\n\r", text);
  const AclDstIpEntry* e = aclDstIpEntryAdd(0, addr, ACL_DSTIP_FAMILY_V6);
  shellPrintf("add dst ip entry 0x%zx \n\r", reinterpret_cast<size_t>(e));
}

void testgrule() {
  if (!aclStarted()) return;
  for (uint32_t n = 1; n <= gaclGrp.maxGruleNum; ++n) {
    const auto* g = static_cast<const AclGruleEntry*>(silMemPoolId2Entry(gaclGrp.grulePool, n - 1));
    if (g == nullptr) continue;
    shellPrintf("[ACL]pRule->status=%d pRule->refCnt=%d\r\n", g->status, i32(g->refCnt));
  }
}
