// Interface binding: what each unit's hardware table holds after installs, fan-outs, rollbacks
// and removals, and the statistics records a binding keeps.
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

constexpr uint32_t kIpv4 = ACL_BIND_KIND_IPV4;

// The interface manager's mode decides where an aggregation's rules go; a manager that cannot
// answer gets them on the aggregation. Both translation forms fan out alike.
TEST_F(IfTest, AggregationFansOutAsTheModeSays) {
  struct Case {
    const char* name;
    int mode;  // -1: the mode query fails
    std::initializer_list<uint32_t> units;
  };
  const Case cases[] = {
      // clang-format off
      {"members only", 1, {203, 204, 303}}, {"aggregation only", 2, {kAgg}},
      {"both", 3, {kAgg, 203, 204, 303}}, {"query fails", -1, {kAgg}},
      // clang-format on
  };
  for (const Case& c : cases) {
    for (uint8_t tlv : {0, 1}) {
      SCOPED_TRACE(std::string(c.name) + (tlv ? " tlv" : " record"));
      restart();
      gaclGrp.tlvEnable = tlv;
      AclListEntry* l = listOf(1001, {1, 2});
      ASSERT_NE(aclIfEntryAdd(kAgg), nullptr);
      if (c.mode >= 0) {
        aggMode(static_cast<uint8_t>(c.mode));
      } else {
        plat::faultAdd({.call = "zorIfGetApi", .cmd = ZOR_IF_FIELD_AGG_MODE, .count = -1});
      }
      ASSERT_EQ(aclIfAdd(kAgg, 0, 0, l, 0, nullptr, kIpv4), 0);
      EXPECT_EQ(units(), expect(c.units, 1001, {{1, 4097}, {2, 4098}}));
      ASSERT_EQ(aclIfDel(kAgg, 0, 0, l, 0, nullptr, kIpv4), 0);
      EXPECT_TRUE(units().empty());
      EXPECT_EQ(anomalyCount(), 0u);
    }
  }
}

// A member that refuses a rule stops the fan-out there; the rollback leaves no unit with any rule
// of the list, and the members after the refusing one never see that rule.
TEST_F(IfTest, RefusingMemberStopsTheFanOutAndRollsBack) {
  for (uint32_t refusing : {204u, 303u}) {
    SCOPED_TRACE(refusing);
    restart();
    aggMembers({203, 204, 303, 304});
    aggMode(1);
    AclListEntry* l = listOf(1001, {1, 2, 3});
    ASSERT_NE(aclIfEntryAdd(kAgg), nullptr);
    failOn(refusing, HWIL_CMD_IF_ADD, 1001, 2);
    std::vector<uint32_t> watches;
    for (uint32_t later : {303u, 304u}) {
      if (later > refusing) watches.push_back(failOn(later, HWIL_CMD_IF_ADD, 1001, 2, -1));
    }
    const uint32_t rule3 = failOn(203, HWIL_CMD_IF_ADD, 1001, 3, -1);

    EXPECT_EQ(aclIfAdd(kAgg, 0, 0, l, 0, nullptr, kIpv4), kHwFault);
    EXPECT_TRUE(units().empty());
    for (uint32_t w : watches) EXPECT_EQ(faultHits(w), 0u);
    EXPECT_EQ(faultHits(rule3), 0u);  // the walk stopped at rule 2
    EXPECT_EQ(l->refCnt, 0);
  }
}

TEST_F(IfTest, PriorityFollowsTheKindAndScope) {
  struct Case {
    uint32_t kind;
    bool gem;
    uint16_t want;  // for rule 7
  };
  const Case cases[] = {
      // clang-format off
      {ACL_BIND_KIND_IPV4, false, 4096 + 7}, {ACL_BIND_KIND_HYBRID, false, 4096 + 1024 + 7},
      {ACL_BIND_KIND_VFP_HYBRID, false, 4096 + 1024 + 7}, {ACL_BIND_KIND_UNTYPED, false, 4096 + 7},
      {ACL_BIND_KIND_HYBRID, true, 1024 + 7}, {ACL_BIND_KIND_L2, true, 7},
      // clang-format on
  };
  for (const Case& c : cases) {
    EXPECT_EQ(aclIfPriority(c.kind, c.gem, 7), c.want) << c.kind << " gem " << c.gem;
  }
  // As the hardware sees them: a hybrid list on a port, and on a GEM port of the PON interface.
  AclListEntry* l = listOf(2001, {7});
  ASSERT_EQ(aclIfHwAdd(kPort, 0, 0, 2001, 1, nullptr, ACL_BIND_KIND_HYBRID), 0);
  EXPECT_EQ(units(), expect({kPort}, 2001, {{7, 5127}}, 1));
  ASSERT_EQ(aclIfHwAdd(kPon, 3, 9, 2001, 1, nullptr, ACL_BIND_KIND_HYBRID), 0);
  EXPECT_EQ(units(2), expect({kPon}, 2001, {{7, 1031}}, 1));
  ASSERT_EQ(aclIfHwDel(kPon, 3, 9, 2001, 1, ACL_BIND_KIND_HYBRID), 0);
  EXPECT_TRUE(units(2).empty());
  EXPECT_EQ(l->refCnt, 0);
}

TEST_F(IfTest, OtherOwnersBlockTheBinding) {
  AclListEntry* l = listOf(1001, {1});
  AclIfListEntry* e = aclIfListAdd(kPort, kIpv4, 0, 1001, 0);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(aclIfListConflict(kPort, 1001, 0, ACL_BIND_OWNER_TRAFFIC), ACL_ERR_SHARED_IN_USE);
  EXPECT_EQ(aclIfListConflict(kPort, 1001, 0, ACL_BIND_OWNER_ACL), 0);
  EXPECT_EQ(aclIfListConflict(kPort, 1001, 1, ACL_BIND_OWNER_TRAFFIC), 0);  // other direction
  EXPECT_EQ(aclIfListConflict(202, 1001, 0, ACL_BIND_OWNER_TRAFFIC), 0);    // other interface
  EXPECT_EQ(aclIfListConflict(kPort, 7000, 0, ACL_BIND_OWNER_ACL), CMN_ERR_NOT_SUPPORTED);

  // An ACL binding over an entry that a traffic policy or a redirect owns is refused.
  for (uint8_t owner : {ACL_BIND_OWNER_PBR, ACL_BIND_OWNER_TRAFFIC}) {
    e->bindOwner = owner;
    EXPECT_EQ(aclIfAdd(kPort, 0, 0, l, 0, nullptr, kIpv4), ACL_ERR_SHARED_IN_USE);
    EXPECT_TRUE(units().empty());
  }
  e->bindOwner = ACL_BIND_OWNER_ACL;
  EXPECT_EQ(aclIfAdd(kPort, 0, 0, l, 0, nullptr, kIpv4), 0);
}

TEST_F(IfTest, PreStageRefusesCountingRules) {
  AclListEntry* l = listOf(1001, {1, 3}, {2});
  EXPECT_EQ(aclIfAdd(kPort, 0, 0, l, ACL_DIR_VFP, nullptr, ACL_BIND_KIND_VFP_L2 + 1),
            CMN_ERR_NOT_SUPPORTED);
  EXPECT_TRUE(units().empty());  // rule 1 was rolled back, rule 3 never sent
  EXPECT_EQ(anomalyCount(), 0u);
  EXPECT_EQ(used(gaclGrp.statsPool), 0u);
  EXPECT_EQ(
      aclIfRuleAddOne(kPort, 0, 0, l, aclRuleEntryGet(l, 2), ACL_DIR_VFP, ACL_BIND_KIND_VFP_L2 + 1),
      CMN_ERR_NOT_SUPPORTED);
  EXPECT_TRUE(units().empty());
}

// Lists that share counters keep one record per rule and direction with a use count; the others
// keep one record per interface.
TEST_F(IfTest, StatisticsPerListOrPerInterface) {
  for (uint8_t shared : {1, 2}) {
    SCOPED_TRACE(shared);
    restart();
    AclListEntry* l = listOf(1001, {}, {1});
    l->counterShared = shared;
    ASSERT_NE(aclIfEntryAdd(201), nullptr);
    ASSERT_NE(aclIfEntryAdd(202), nullptr);
    ASSERT_EQ(aclIfAdd(201, 0, 0, l, 0, nullptr, kIpv4), 0);
    l->refCnt = 1;
    ASSERT_EQ(aclIfAdd(202, 0, 0, l, 0, nullptr, kIpv4), 0);
    l->refCnt = 2;
    AclStatsEntry* s = aclStatsGetEntry({1001, 1, 0, 0});
    if (shared == 1) {
      ASSERT_NE(s, nullptr);
      EXPECT_EQ(s->refCnt, 2u);
      EXPECT_EQ(statsCount(&gaclGrp.ifStatsList), 0u);
    } else {
      EXPECT_EQ(s, nullptr);
      EXPECT_NE(aclIfStatsGetEntry({1001, 1, 201, 0}), nullptr);
      EXPECT_NE(aclIfStatsGetEntry({1001, 1, 202, 0}), nullptr);
    }
    ASSERT_EQ(aclIfDel(201, 0, 0, l, 0, nullptr, kIpv4), 0);
    l->refCnt = 1;
    if (shared == 1) {
      EXPECT_EQ(s->refCnt, 1u);
    } else {
      EXPECT_EQ(aclIfStatsGetEntry({1001, 1, 201, 0}), nullptr);
    }
    EXPECT_EQ(used(gaclGrp.statsPool), 1u);
    ASSERT_EQ(aclIfDel(202, 0, 0, l, 0, nullptr, kIpv4), 0);
    EXPECT_EQ(used(gaclGrp.statsPool), 0u);
    EXPECT_TRUE(units().empty());
  }
}

// A second binding of the list on the same interface and direction that rolls back leaves the
// first binding's records as they were: their counts, and the record the key already had.
TEST_F(IfTest, RollbackKeepsAnotherBindingsRecords) {
  for (uint8_t shared : {1, 2}) {
    SCOPED_TRACE(shared);
    restart();
    AclListEntry* l = listOf(1001, {}, {1, 2});
    l->counterShared = shared;
    ASSERT_NE(aclIfEntryAdd(kPort), nullptr);
    ASSERT_EQ(aclIfAdd(kPort, 0, 0, l, 0, nullptr, kIpv4), 0);
    l->refCnt = 1;
    const uint32_t records = used(gaclGrp.statsPool);
    failOn(kPort, HWIL_CMD_IF_ADD, 1001, 2);
    EXPECT_EQ(aclIfAdd(kPort, 0, 0, l, 0, nullptr, ACL_BIND_KIND_UNTYPED), kHwFault);
    EXPECT_EQ(used(gaclGrp.statsPool), records);
    for (uint32_t rule : {1u, 2u}) {
      if (shared == 1) {
        ASSERT_NE(aclStatsGetEntry({1001, rule, 0, 0}), nullptr);
        EXPECT_EQ(aclStatsGetEntry({1001, rule, 0, 0})->refCnt, 1u);
      } else {
        EXPECT_NE(aclIfStatsGetEntry({1001, rule, kPort, 0}), nullptr);
      }
    }
  }
}

// A GEM port binding goes to the GEM key in either form, keeps per-GEM-port statistics and,
// with its record in place, comes out again.
TEST_F(IfTest, GemPortBindingUsesTheGemKey) {
  for (uint8_t tlv : {0, 1}) {
    SCOPED_TRACE(tlv);
    restart();
    gaclGrp.tlvEnable = tlv;
    AclListEntry* l = listOf(1001, {1}, {2});
    ASSERT_EQ(aclIfAdd(kPon, 3, 9, l, 1, nullptr, kIpv4), 0);
    EXPECT_EQ(units(2), expect({kPon}, 1001, {{1, 1}, {2, 2}}, 1));
    EXPECT_TRUE(units().empty());
    EXPECT_NE(aclGemPortStatsEntryGet({1001, 2, kPon, 3, 9, 1}), nullptr);
    EXPECT_EQ(aclIfDel(kPon, 3, 9, l, 1, nullptr, kIpv4), ACL_ERR_IF_NOT_EXIST);
    auto* rec = static_cast<AclGemPortEntry*>(silMemPoolAlloc(gaclGrp.gemPortPool, nullptr));
    ASSERT_NE(rec, nullptr);
    *rec = AclGemPortEntry{};
    rec->unit = kPon;
    rec->onuId = 3;
    rec->gemPort = 9;
    ASSERT_EQ(avl_add(&gaclGrp.gemPortTree, rec), 0);
    ASSERT_EQ(aclIfDel(kPon, 3, 9, l, 1, nullptr, kIpv4), 0);
    EXPECT_TRUE(units(2).empty());
    EXPECT_EQ(used(gaclGrp.statsPool), 0u);
    EXPECT_EQ(anomalyCount(), 0u);
  }
}

TEST_F(IfTest, RemovalNeedsARecordUnlessTheManagerKeepsNone) {
  AclListEntry* l = listOf(1001, {1});
  ASSERT_EQ(aclIfHwAdd(kPort, 0, 0, 1001, 0, nullptr, kIpv4), 0);
  EXPECT_EQ(aclIfDel(kPort, 0, 0, l, 0, nullptr, kIpv4), ACL_ERR_IF_NOT_EXIST);
  EXPECT_EQ(aclIfRuleDelOne(kPort, 0, 0, l, aclRuleEntryGet(l, 1), 0, kIpv4), ACL_ERR_IF_NOT_EXIST);
  EXPECT_EQ(units().size(), 1u);
  ifFlags(kPort, 0, 1);
  EXPECT_EQ(aclIfDel(kPort, 0, 0, l, 0, nullptr, kIpv4), 0);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(aclIfDel(kPon, 1, 1, l, 0, nullptr, kIpv4), ACL_ERR_IF_NOT_EXIST);  // no GEM record
  EXPECT_EQ(aclIfDel(kPort, 0, 0, nullptr, 0, nullptr, kIpv4), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclIfAdd(999, 0, 0, l, 0, nullptr, kIpv4), ACL_IF_ERR_NO_LOCATION);
  EXPECT_EQ(aclIfAdd(kPort, 0, 0, nullptr, 0, nullptr, kIpv4), CMN_ERR_BAD_PARAM);
}

TEST_F(IfTest, SingleRuleCodes) {
  AclListEntry* l = listOf(1001, {1});
  AclRuleEntry* off = validRule(1001, 2);
  bit(off, RULE_BIT_TRID);
  off->trIdx = 5;
  AclRuleEntry* vrf = validRule(1001, 3);
  bit(vrf, RULE_BIT_VRFID);
  AclRuleEntry* hop = validRule(1001, 4);
  nextHop(hop, "198.51.100.1");
  ASSERT_NE(aclIfEntryAdd(kPort), nullptr);
  struct Case {
    AclRuleEntry* rule;
    int32_t add, del;
  };
  const Case cases[] = {{nullptr, ACL_ERR_LIST_EMPTY, ACL_ERR_LIST_EMPTY},
                        {off, ACL_ERR_SHARED_IN_USE, ACL_ERR_SHARED_IN_USE},
                        {vrf, -1, 0},
                        {hop, -1, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.rule ? c.rule->ruleIdx : 0);
    EXPECT_EQ(aclIfRuleAddOne(kPort, 0, 0, l, c.rule, 0, kIpv4), c.add);
    EXPECT_TRUE(units().empty());
    EXPECT_EQ(aclIfRuleDelOne(kPort, 0, 0, l, c.rule, 0, kIpv4), c.del);
  }
  EXPECT_EQ(aclIfRuleAddOne(kPort, 0, 0, nullptr, nullptr, 0, kIpv4), ACL_ERR_LIST_NOT_EXIST);
  AclRuleEntry* r1 = aclRuleEntryGet(l, 1);
  ASSERT_EQ(aclIfRuleAddOne(kPort, 0, 0, l, r1, 0, kIpv4), 0);
  EXPECT_EQ(units(), expect({kPort}, 1001, {{1, 4097}}));
  ASSERT_EQ(aclIfRuleDelOne(kPort, 0, 0, l, r1, 0, kIpv4), 0);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(anomalyCount(), 0u);  // nothing was removed that had not gone in
}

// A counted rule whose install fails gives its statistics record back; a redirect rule whose
// install fails arms the list's retry instead of failing the whole binding.
TEST_F(IfTest, SingleRuleFailuresKeepTheBookkeepingTrue) {
  AclListEntry* l = listOf(1001, {}, {1});
  l->counterShared = 1;
  AclRuleEntry* r = aclRuleEntryGet(l, 1);
  failOn(kPort, HWIL_CMD_IF_ADD, 1001, 1);
  EXPECT_EQ(aclIfRuleAddOne(kPort, 0, 0, l, r, 0, kIpv4), kHwFault);
  EXPECT_EQ(used(gaclGrp.statsPool), 0u);
  EXPECT_FALSE(retryArmed(l));

  AclListEntry* redirect = list(1002);
  AclRuleEntry* hop = validRule(1002, 1);
  nextHop(hop, "192.0.2.1");  // a known neighbour
  validRule(1002, 2);
  failOn(kPort, HWIL_CMD_IF_ADD, 1002, 1);
  ASSERT_NE(aclIfEntryAdd(kPort), nullptr);
  EXPECT_EQ(aclIfAdd(kPort, 0, 0, redirect, 0, nullptr, kIpv4), 0);
  EXPECT_TRUE(retryArmed(redirect));
  EXPECT_EQ(units(), expect({kPort}, 1002, {{2, 4098}}));
}

TEST_F(IfTest, TranslationFailureRollsBackTheRulesBefore) {
  gaclGrp.tlvEnable = 1;
  AclListEntry* l = listOf(1001, {1});
  AclRuleEntry* big = validRule(1001, 2);
  // 27 address items of 18 bytes do not fit a 512-byte message.
  for (uint32_t i = 0; i < 27; ++i) value(big, RULE_BIT_SRCADDR, transtest::seq(uint8_t(i), 16));
  ASSERT_NE(aclIfEntryAdd(kPort), nullptr);
  EXPECT_EQ(aclIfAdd(kPort, 0, 0, l, 0, nullptr, kIpv4), CMN_ERR_BUFFER_SHORT);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(anomalyCount(), 0u);
}

}  // namespace
}  // namespace iftest
