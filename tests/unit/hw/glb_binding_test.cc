// Global binding: what the hardware holds after installs, removals, rollbacks and failures.
#include "unit/hw/glb_fixture.h"

namespace glbtest {
namespace {

constexpr uint32_t kIn = ACL_GLB_DIR_IN, kOut = ACL_GLB_DIR_OUT;

// Both translation forms carry the same priorities and remove alike.
TEST_F(GlbTest, PriorityIsPerListTypeAndRemovalClearsTheHardware) {
  for (uint8_t tlv : {0, 1}) {
    SCOPED_TRACE(tlv);
    restart();  // a fresh group for each form
    gaclGrp.tlvEnable = tlv;
    AclListEntry* hybrid = listOf(2001, {3});
    AclListEntry* ipv4 = listOf(1001, {3, 7});
    ASSERT_EQ(aclGlbAdd(hybrid, kIn, nullptr, 4), 0);
    ASSERT_EQ(aclGlbAdd(ipv4, kOut, nullptr, 2), 0);
    EXPECT_EQ(global(), (HwView{{{1001, 3, kOut}, 8192 + 3},
                                {{1001, 7, kOut}, 8192 + 7},
                                {{2001, 3, kIn}, 9216 + 3}}));
    ASSERT_EQ(aclGlbDel(ipv4, kOut, nullptr), 0);
    ASSERT_EQ(aclGlbDel(hybrid, kIn, nullptr), 0);
    EXPECT_TRUE(global().empty());
    EXPECT_EQ(anomalyCount(), 0u);
  }
}

TEST_F(GlbTest, MissingAndEmptyLists) {
  EXPECT_EQ((std::vector{aclGlbAdd(nullptr, kIn, nullptr, 2), aclGlbDel(nullptr, kIn, nullptr),
                         aclGlbHwAdd(1999, kIn, 2), aclGlbHwDel(1999, kIn),
                         aclGlbHwDelone(1999, 1, kIn)}),
            std::vector<int32_t>(5, ACL_ERR_LIST_NOT_EXIST));

  AclListEntry* l = list(1001);
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), ACL_ERR_LIST_EMPTY);
  EXPECT_EQ(aclGlbRuleAddOne(l, nullptr, kIn, 2), ACL_ERR_LIST_EMPTY);
  gaclGrp.dynamicBindEnable = 1;
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  EXPECT_TRUE(global().empty());
}

TEST_F(GlbTest, IneligibleRulesStayOutOfTheHardware) {
  AclListEntry* l = list(1001);
  rule(1001, 1);  // created, not valid
  AclRuleEntry* off = validRule(1001, 2);
  bit(off, RULE_BIT_TRID);
  off->trIdx = 5;
  AclRuleEntry* on = validRule(1001, 3);
  bit(on, RULE_BIT_TRID);
  on->trIdx = 6;
  on->trActive = 1;
  bit(validRule(1001, 4), RULE_BIT_VRFID);
  nextHop(validRule(1001, 5), "198.51.100.1");  // neighbour unknown
  validRule(1001, 6);

  // A rule that is not valid refuses the whole list unless dynamic binding is on.
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), ACL_ERR_RULE_INVALID);
  EXPECT_TRUE(global().empty());
  gaclGrp.dynamicBindEnable = 1;
  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 3, kIn}, 8195}, {{1001, 6, kIn}, 8198}}));

  for (uint32_t r : {1u, 2u, 4u, 5u}) {
    EXPECT_EQ(aclGlbRuleAddOne(l, aclRuleEntryGet(l, r), kIn, 2), -1) << r;
  }
  EXPECT_EQ(aclGlbRuleDelOne(l, off, kIn), -1);

  // Removal skips the same rules: nothing is removed that was not installed.
  l->refCnt = 1;
  ASSERT_EQ(aclGlbDel(l, kIn, nullptr), 0);
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(anomalyCount(), 0u);
}

TEST_F(GlbTest, RefusedRuleRollsBackFromItselfDown) {
  AclListEntry* l = listOf(1001, {5, 10, 20});
  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 10);
  // Any command for rule 20 would be refused and counted.
  const uint32_t watch20 =
      plat::faultAdd({.call = "zorHwilCmdSetApi", .list = 1001, .rule = 20, .count = -1});

  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), kHwFault);
  EXPECT_TRUE(global().empty());
  // 10 was attempted although the hardware never took it; 20 was never sent.
  EXPECT_EQ(strayRemovals(), (std::vector<HwKey>{{1001, 10, kIn}}));
  EXPECT_EQ(faultHits(watch20), 0u);
}

TEST_F(GlbTest, RollbackStopsAtTheFirstRefusedRemoval) {
  AclListEntry* l = listOf(1001, {5, 10, 20});
  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 20);
  const uint32_t del10 = failRule(HWIL_CMD_GLOBAL_DEL, 1001, 10);
  // The install's failure is reported, not the removal's.
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), kHwFault);
  EXPECT_FALSE(faultArmed(del10));  // spent on the removal of 10
  EXPECT_EQ(global(), (HwView{{{1001, 5, kIn}, 8197}, {{1001, 10, kIn}, 8202}}));
}

TEST_F(GlbTest, TlvRollbackAndPartialRemoval) {
  gaclGrp.tlvEnable = 1;
  AclListEntry* l = listOf(1001, {5, 10, 20});
  failRule(HWIL_CMD_GLOBAL_TLV, 1001, 10);
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), kHwFault);
  EXPECT_TRUE(global().empty());

  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  ASSERT_EQ(aclGlbDelpart(l, 10, kIn, nullptr), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 20, kIn}, 8212}}));
  ASSERT_EQ(aclGlbHwDelone(1001, 20, kIn), 0);
  EXPECT_TRUE(global().empty());
}

TEST_F(GlbTest, SingleRuleAddAndRemove) {
  AclListEntry* l = list(1001);
  AclRuleEntry* r = validRule(1001, 4);
  counted(r);
  ASSERT_EQ(aclGlbRuleAddOne(l, r, kOut, 2), 0);
  EXPECT_EQ(global(), (HwView{{{1001, 4, kOut}, 8196}}));
  EXPECT_NE(aclStatsGetEntry({1001, 4, 0, kOut}), nullptr);
  ASSERT_EQ(aclGlbRuleDelOne(l, r, kOut), 0);
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(aclStatsGetEntry({1001, 4, 0, kOut}), nullptr);

  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 4);
  EXPECT_EQ(aclGlbRuleAddOne(l, r, kOut, 2), kHwFault);
  EXPECT_TRUE(global().empty());
  EXPECT_FALSE(retryArmed(l));  // only redirect rules are retried
}

TEST_F(GlbTest, StatisticsRecordsLiveWithTheirRules) {
  AclListEntry* l = listOf(1001, {2}, {1});
  const uint32_t before = used(gaclGrp.statsPool);
  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  ASSERT_EQ(aclGlbAdd(l, kOut, nullptr, 2), 0);
  EXPECT_EQ(used(gaclGrp.statsPool), before + 2);
  EXPECT_NE(aclStatsGetEntry({1001, 1, 0, kIn}), nullptr);
  EXPECT_EQ(aclStatsGetEntry({1001, 2, 0, kIn}), nullptr);
  // A second binding in the same direction keeps the one record.
  ASSERT_EQ(aclGlbHwAdd(1001, kIn, 2), 0);
  EXPECT_EQ(used(gaclGrp.statsPool), before + 2);

  ASSERT_EQ(aclGlbDel(l, kIn, nullptr), 0);
  EXPECT_EQ(aclStatsGetEntry({1001, 1, 0, kIn}), nullptr);
  ASSERT_EQ(aclGlbHwDel(1001, kOut), 0);
  EXPECT_EQ(used(gaclGrp.statsPool), before);
}

TEST_F(GlbTest, BufferAllocationFailure) {
  AclListEntry* l = list(1001);
  AclRuleEntry* r = validRule(1001, 1);
  const uint32_t id = plat::faultAdd({.call = "silCalloc", .count = -1});
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), -1);
  EXPECT_EQ(aclGlbDel(l, kIn, nullptr), -1);
  EXPECT_EQ(aclGlbRuleDelOne(l, r, kIn), 12);
  EXPECT_TRUE(global().empty());
  plat::faultRemove(id);
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  EXPECT_EQ(global().size(), 1u);
}

TEST_F(GlbTest, RefusedRedirectArmsTheRetryInsteadOfRollingBack) {
  AclListEntry* l = list(1001);
  nextHop(validRule(1001, 5), "192.0.2.1");  // neighbour known
  validRule(1001, 10);
  failRule(HWIL_CMD_GLOBAL_ADD, 1001, 5);
  const uint64_t before = silGetUpTime1ms();
  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  const uint64_t after = silGetUpTime1ms();
  EXPECT_EQ(global(), (HwView{{{1001, 10, kIn}, 8202}}));
  ASSERT_TRUE(retryArmed(l));
  // Armed 2000 ms from the refusal (the real clock keeps running, so only bounds are exact).
  EXPECT_GE(l->retryTimer.expiry, before + ACL_NEXTHOP_RETRY_MS);
  EXPECT_LE(l->retryTimer.expiry, after + ACL_NEXTHOP_RETRY_MS);

  // What the scalar API does after a successful add.
  gaclGrp.slots.inIpv4Acl = 1001;
  l->refCnt = 1;
  EXPECT_EQ(runTimers(ACL_NEXTHOP_RETRY_MS), 1);
  EXPECT_EQ(global(), (HwView{{{1001, 5, kIn}, 8197}, {{1001, 10, kIn}, 8202}}));
  EXPECT_FALSE(retryArmed(l));
}

TEST_F(GlbTest, LastBindingReleasesTheNextHops) {
  AclListEntry* l = list(1001);
  AclRuleEntry* r = validRule(1001, 1);
  nextHop(r, "192.0.2.1");
  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  l->refCnt = 1;
  ASSERT_EQ(aclGlbAdd(l, kOut, nullptr, 2), 0);
  l->refCnt = 2;
  EXPECT_EQ(hops(r), std::pair(1, 1));
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpList), 1u);
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpRuleList), 1u);

  ASSERT_EQ(aclGlbDel(l, kOut, nullptr), 0);
  l->refCnt = 1;
  EXPECT_EQ(r->nhNum, 1);
  EXPECT_NE(r->nhRef[0], nullptr);
  EXPECT_EQ(detectListSize(), 1u);

  ASSERT_EQ(aclGlbDel(l, kIn, nullptr), 0);
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(hops(r), std::pair(0, 0));
  EXPECT_EQ(r->nhRef[0], nullptr);
  EXPECT_TRUE(dlist::empty(&gaclGrp.dstIpList));
  EXPECT_TRUE(dlist::empty(&gaclGrp.dstIpRuleList));
  EXPECT_EQ(detectListSize(), 0u);
  EXPECT_EQ(anomalyCount(), 0u);
}

TEST_F(GlbTest, SeventeenthNextHopIsRefusedAndRolledBack) {
  AclListEntry* l = list(1001);
  validRule(1001, 1);  // installed, then rolled back
  for (uint32_t n = 1; n <= 17; ++n) {
    const std::string addr = "198.51.100." + std::to_string(n);
    nextHop(validRule(1001, 1 + n), addr.c_str());
  }
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), CMN_ERR_NO_RESOURCE);
  EXPECT_TRUE(global().empty());
  // The rollback of a first binding gives back the sixteen it could register.
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpList), 0u);
  EXPECT_EQ(detectListSize(), 0u);
  for (uint32_t r : {2u, 18u}) EXPECT_EQ(aclRuleEntryGet(l, r)->nhNum, 0) << r;
}

}  // namespace
}  // namespace glbtest
