// Destination IP tracking and next-hop list programming, checked against the neighbours, the
// detect list and the global hardware table of the virtual device.
#include "unit/hw/glb_fixture.h"

namespace glbtest {
namespace {

constexpr uint32_t kIn = ACL_GLB_DIR_IN;

class NextHopTest : public GlbTest {
 protected:
  // List 1001 bound globally in inIpv4Acl, as the scalar API leaves it.
  AclListEntry* bind() {
    AclListEntry* l = aclListEntryGet(1001);
    EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
    gaclGrp.slots.inIpv4Acl = 1001;
    l->refCnt = 1;
    return l;
  }
  static int32_t report(const Bytes& addr, uint32_t relearn = 0) {
    return aclNexthopStateHandle(0, addr.data(), addr.size() == 4 ? 1 : 2, relearn);
  }
};

TEST_F(NextHopTest, EntriesQueryTheNeighbourAndUseTheDetectList) {
  const Bytes known = ip4("192.0.2.1"), unknown = ip4("198.51.100.1");
  AclDstIpEntry* a = aclDstIpEntryAdd(0, known.data(), 1);
  AclDstIpEntry* b = aclDstIpEntryAdd(0, unknown.data(), 1);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(a->macFindFlag, 1);
  EXPECT_EQ(b->macFindFlag, 0);
  EXPECT_EQ(detectListSize(), 2u);
  EXPECT_EQ(aclDstIpEntryGet(0, unknown.data(), 1), b);
  EXPECT_EQ(aclDstIpEntryGet(7, unknown.data(), 1), nullptr);  // another VRF

  // A neighbour the query cannot reach counts as unknown.
  plat::faultAdd({.call = "zorIndexTrans", .cmd = 38});
  const Bytes other = ip4("192.0.2.2");
  AclDstIpEntry* c = aclDstIpEntryAdd(0, other.data(), 1);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->macFindFlag, 0);

  EXPECT_EQ(aclDstIpEntryDel(b), 0);
  EXPECT_EQ(aclDstIpEntryGet(0, unknown.data(), 1), nullptr);
  EXPECT_EQ(detectListSize(), 2u);
}

TEST_F(NextHopTest, FamilyTellsEqualLeadingBytesApart) {
  const Bytes v4 = ip4("192.0.2.1");
  const Bytes v6 = ip6("c000:201::1");  // starts with the same four bytes
  AclDstIpEntry* a = aclDstIpEntryAdd(0, v4.data(), 1);
  ASSERT_EQ(aclDstIpEntryGet(0, v6.data(), 2), nullptr);
  AclDstIpEntry* b = aclDstIpEntryAdd(0, v6.data(), 2);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(aclDstIpEntryGet(0, v4.data(), 1), a);
  EXPECT_EQ(aclDstIpEntryGet(0, v6.data(), 2), b);
  EXPECT_EQ(b->macFindFlag, 0);
}

TEST_F(NextHopTest, SingleNextHopResolvesAndIsLost) {
  listOf(1001, {1});
  AclRuleEntry* r = validRule(1001, 2);
  nextHop(r, "198.51.100.1");
  AclListEntry* l = bind();
  EXPECT_EQ(global(), (HwView{{{1001, 1, kIn}, 8193}}));
  EXPECT_EQ(hops(r), std::pair(1, 0));

  const Bytes hop = ip4("198.51.100.1");
  EXPECT_EQ(report(hop), 0);  // still unknown: nothing changes
  EXPECT_EQ(global().size(), 1u);
  neighbour(hop, true);
  EXPECT_EQ(report(hop), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 1, kIn}, 8193}, {{1001, 2, kIn}, 8194}}));
  EXPECT_EQ(r->nhLearned, 1);

  neighbour(hop, false);
  EXPECT_EQ(report(hop), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 1, kIn}, 8193}}));
  EXPECT_EQ(r->nhLearned, 0);

  // The last unbinding after the loss removes only what is in the hardware.
  const size_t stray = strayRemovals().size();
  ASSERT_EQ(aclGlbDel(l, kIn, nullptr), 0);
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(strayRemovals().size(), stray);
  EXPECT_EQ(detectListSize(), 0u);
  EXPECT_EQ(report(hop), -1);  // no longer tracked
}

TEST_F(NextHopTest, MultiHopRuleNeedsEveryNextHop) {
  list(1001);
  AclRuleEntry* r = validRule(1001, 3);
  multiHop(r, {"192.0.2.1", "192.0.2.2", "198.51.100.7"});
  bind();
  EXPECT_EQ(hops(r), std::pair(3, 2));
  EXPECT_TRUE(global().empty());

  const Bytes third = ip4("198.51.100.7");
  neighbour(third, true);
  ASSERT_EQ(report(third), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 3, kIn}, 8195}}));

  const Bytes second = ip4("192.0.2.2");
  neighbour(second, false);
  ASSERT_EQ(report(second), 0);
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(r->nhLearned, 2);
}

TEST_F(NextHopTest, RepeatedReportChangesNothingRelearnReinstalls) {
  list(1001);
  AclRuleEntry* r = validRule(1001, 1);
  nextHop6(r, "2001:db8::1");  // known from the start
  bind();
  const uint64_t first = installSeq(1001, 1, kIn);
  ASSERT_NE(first, 0u);

  const Bytes hop = ip6("2001:db8::1");
  ASSERT_EQ(report(hop), 0);
  EXPECT_EQ(installSeq(1001, 1, kIn), first);
  ASSERT_EQ(report(hop, 1), 0);
  const uint64_t again = installSeq(1001, 1, kIn);
  EXPECT_GT(again, first);
  EXPECT_EQ(r->nhLearned, 1);
}

TEST_F(NextHopTest, ListAddRetriesEveryTwoSecondsUntilItSucceeds) {
  listOf(1001, {1});
  AclListEntry* l = bind();
  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 1, 2);

  EXPECT_EQ(aclNextHopListAdd(1001), kHwFault);
  EXPECT_TRUE(global().empty());
  ASSERT_TRUE(retryArmed(l));
  EXPECT_EQ(runTimers(ACL_NEXTHOP_RETRY_MS), 1);  // fails again and re-arms
  EXPECT_TRUE(global().empty());
  ASSERT_TRUE(retryArmed(l));
  EXPECT_EQ(runTimers(ACL_NEXTHOP_RETRY_MS), 1);
  EXPECT_EQ(global(), (HwView{{{1001, 1, kIn}, 8193}}));
  EXPECT_FALSE(retryArmed(l));
}

// A re-installation refused for want of a statistics record (for the rule whose next hop just
// resolved) leaves that binding out of the hardware with no record for it until the retry.
TEST_F(NextHopTest, ReinstallWithoutARecordRollsBackAndRetries) {
  listOf(1001, {}, {1});
  AclRuleEntry* r = validRule(1001, 2);
  counted(r);
  nextHop(r, "198.51.100.1");
  AclListEntry* l = bind();
  const uint32_t before = used(gaclGrp.statsPool);
  // Rule 1 has its record again, rule 2 has none.
  plat::faultAdd({.call = "silMemPoolAlloc", .name = "acl_stats", .skip = 1});
  neighbour(ip4("198.51.100.1"), true);
  report(ip4("198.51.100.1"));
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(used(gaclGrp.statsPool), before - 1);
  ASSERT_TRUE(retryArmed(l));
  EXPECT_EQ(runTimers(ACL_NEXTHOP_RETRY_MS), 1);
  EXPECT_EQ(global(), (HwView{{{1001, 1, kIn}, 8193}, {{1001, 2, kIn}, 8194}}));
  EXPECT_EQ(used(gaclGrp.statsPool), before + 1);
}

TEST_F(NextHopTest, ListAddStopsWhenTheRemovalFails) {
  listOf(1001, {1});
  AclListEntry* l = bind();
  failRule(HWIL_CMD_GLOBAL_DEL, 1001, 1);
  EXPECT_EQ(aclNextHopListAdd(1001), kHwFault);
  EXPECT_FALSE(retryArmed(l));
  EXPECT_EQ(global().size(), 1u);
}

TEST_F(NextHopTest, GenericSlotsCountOnlyWhileSwitchedOn) {
  AclListEntry* bound = listOf(1001, {1});
  ASSERT_EQ(aclGlbAdd(bound, ACL_GLB_DIR_OUT, nullptr, 0), 0);
  gaclGrp.outCtrlList = 1001;
  gaclGrp.outCtrl = 2;
  // Switched off: the removal visits nothing, so the hardware keeps the rule.
  EXPECT_EQ(aclNextHopListRuleDel(1001, 1), 0);
  EXPECT_EQ(global().size(), 1u);
  gaclGrp.outCtrl = 1;
  EXPECT_EQ(aclNextHopListRuleDel(1001, 1), 0);
  EXPECT_TRUE(global().empty());
}

// The generic slot counts for the list its switch installed, not for whatever index was stored
// since: a new index while switched on changes no hardware.
TEST_F(NextHopTest, GenericSlotFollowsTheListTheSwitchInstalled) {
  AclListEntry* l = list(1001);
  AclRuleEntry* r = validRule(1001, 1);
  nextHop(r, "198.51.100.1");
  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 0), 0);
  l->refCnt = 1;
  gaclGrp.inCtrl = 1;
  gaclGrp.inCtrlList = 1001;
  gaclGrp.slots.inAcl = 1002;
  const Bytes hop = ip4("198.51.100.1");
  neighbour(hop, true);
  EXPECT_EQ(report(hop), 0);
  EXPECT_EQ(global().count({1001, 1, kIn}), 1u);
}

// A binding that fails while another one holds the list rolls back without taking the next hops
// the other binding still relies on.
TEST_F(NextHopTest, FailedSecondBindingKeepsTheFirstOnesNextHops) {
  list(1001);
  AclRuleEntry* r = validRule(1001, 1);
  nextHop(r, "198.51.100.1");
  validRule(1001, 2);
  AclListEntry* l = bind();
  const Bytes hop = ip4("198.51.100.1");
  neighbour(hop, true);
  ASSERT_EQ(report(hop), 0);
  ASSERT_EQ(global().count({1001, 1, kIn}), 1u);

  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 2);
  EXPECT_EQ(aclGlbAdd(l, ACL_GLB_DIR_OUT, nullptr, 2), kHwFault);
  EXPECT_EQ(hops(r), std::pair(1, 1));
  EXPECT_EQ(detectListSize(), 1u);
  neighbour(hop, false);
  EXPECT_EQ(report(hop), 0);
  EXPECT_EQ(global().count({1001, 1, kIn}), 0u) << "the loss still reaches the first binding";
}

// A first binding that rolls back gives its registrations back, and a rule that goes takes its
// own with it: a later rule of the same number starts untracked.
TEST_F(NextHopTest, RollbacksAndDeletedRulesLeaveNoTracking) {
  AclListEntry* l = list(1001);
  AclRuleEntry* r = validRule(1001, 1);
  nextHop(r, "198.51.100.1");
  validRule(1001, 2);
  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 2);
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), kHwFault);
  EXPECT_EQ(r->nhNum, 0);
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpList), 0u);
  EXPECT_EQ(detectListSize(), 0u);

  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  l->refCnt = 1;
  ASSERT_EQ(detectListSize(), 1u);
  ASSERT_EQ(aclRuleEntryDel(r), 0);
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpRuleList), 0u);
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpList), 0u);
  EXPECT_EQ(detectListSize(), 0u);

  AclRuleEntry* again = validRule(1001, 1);
  nextHop(again, "198.51.100.1");
  EXPECT_EQ(aclGlbRuleAddOne(l, again, kIn, 2), -1) << "its next hop is still unknown";
  EXPECT_EQ(hops(again), std::pair(1, 0));
  EXPECT_EQ(global().count({1001, 1, kIn}), 0u);
}

TEST_F(NextHopTest, PreStageRuleIsRemovedOnce) {
  ASSERT_EQ(aclGlbAdd(listOf(1001, {1, 2}), ACL_GLB_DIR_VFP, nullptr, 2), 0);
  gaclGrp.slots.inL2VfpAcl = 1001;
  gaclGrp.slots.inIpv4VfpAcl = 1001;
  EXPECT_EQ(aclNextHopListRuleDel(1001, 2), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 1, ACL_GLB_DIR_VFP}, 8193}}));
  EXPECT_EQ(anomalyCount(), 0u);  // a second removal would be a stray one
}

TEST_F(NextHopTest, MissingListsAndRules) {
  EXPECT_EQ(aclNextHopListAdd(1001), -1);
  EXPECT_EQ(aclNextHopListRuleDel(1001, 1), -1);
  list(1001);
  EXPECT_EQ(aclNextHopListAdd(1001), -1);  // no rules
  validRule(1001, 1);
  EXPECT_EQ(aclNextHopListRuleDel(1001, 9), -1);
  EXPECT_EQ(aclDstIpNbrChange(nullptr, 1), -1);
  const Bytes hop = ip4("198.51.100.1");
  EXPECT_EQ(report(hop), -1);
  EXPECT_EQ(aclNexthopStateHandle(0, nullptr, 1, 0), -1);
}

}  // namespace
}  // namespace glbtest
