// The dynamic rule set over bound lists: interfaces, the GEM port and the global scope in order,
// in then out on one record, the pre-stage left alone, and the first refusal ending the walk with
// the slot's line.
#include "control/acl_slot_dynamic.h"
#include "unit/control/rebind_fixture.h"

namespace rebindtest {
namespace {

class DynamicTest : public RebindTest {
 protected:
  void SetUp() override {
    RebindTest::SetUp();
    gaclGrp.dynamicBindEnable = 1;
  }
  static int32_t set(uint32_t lst, uint32_t rule, uint32_t op) {
    return static_cast<int32_t>(aclDynamicRuleSet(lst, rule, op));
  }
  // List 1001 with rule 1 bound on ports 201 and 202, the GEM port and globally; rule 3 joins
  // valid once everything is bound, charged to the slots as the rule API charges it.
  static void boundEverywhere() {
    listOf(1001, {1});
    bindIf(kPort, &AclBindSlots::inIpv4Acl, 1001);
    bindIf(202, &AclBindSlots::inIpv4Acl, 1001);
    bindGem(1001);
    bindGlobal(kGlbInIpv4, 1001);
    validRule(1001, 3);
    aclSlotSubRuleNumUpdateDynamic(1001, 3, ACL_SLOT_DYNAMIC_ADD);
  }
  // Where rule 3 is: port 201, port 202, the GEM port, global.
  static std::vector<bool> rule3() {
    return {holds(1, kPort, 1001, 3, 0), holds(1, 202, 1001, 3, 0), holds(2, kPon, 1001, 3, 1),
            holds(0, 0, 1001, 3, 0)};
  }
};

TEST_F(DynamicTest, RuleReachesAndLeavesEveryBinding) {
  boundEverywhere();
  ASSERT_EQ(set(1001, 3, 1), 0);
  EXPECT_EQ(rule3(), (std::vector<bool>{true, true, true, true}));
  EXPECT_EQ(audit(), "");
  // Interfaces, then the GEM port, then the global scope.
  const SeqView s = seqs();
  EXPECT_LT(s.at({1, 202, 1001, 3, 0}), s.at({2, kPon, 1001, 3, 1}));
  EXPECT_LT(s.at({2, kPon, 1001, 3, 1}), s.at({0, 0, 1001, 3, 0}));
  ASSERT_EQ(set(1001, 3, 0), 0);
  EXPECT_EQ(rule3(), (std::vector<bool>{false, false, false, false}));
  aclRuleEntryGetByIndex(1001, 3)->status = ACL_RULE_STATUS_CREATED;
  EXPECT_EQ(audit(), "");
}

// One interface holding the list in and out is handled twice, in first; a list held only in a
// pre-stage slot is not touched.
TEST_F(DynamicTest, InThenOutAndPreStageLeftAlone) {
  listOf(1001, {1});
  listOf(1002, {1});
  bindIf(kPort, &AclBindSlots::inIpv4Acl, 1001);
  bindIf(kPort, &AclBindSlots::outIpv4Acl, 1001);
  bindIf(kPort, &AclBindSlots::inIpv4VfpAcl, 1002);
  validRule(1001, 3);
  validRule(1002, 3);
  ASSERT_EQ(set(1001, 3, 1), 0);
  ASSERT_EQ(set(1002, 3, 1), 0);
  const SeqView s = seqs();
  ASSERT_TRUE(s.contains({1, kPort, 1001, 3, 0}));
  ASSERT_TRUE(s.contains({1, kPort, 1001, 3, 1}));
  EXPECT_LT(s.at({1, kPort, 1001, 3, 0}), s.at({1, kPort, 1001, 3, 1}));
  EXPECT_FALSE(s.contains({1, kPort, 1002, 3, 2}));
}

// The first refusal ends the walk: a refused removal quietly, a refused install with the slot's
// line; the bindings after it are not touched.
TEST_F(DynamicTest, FirstRefusalStopsTheWalk) {
  struct Case {
    const char* name;
    uint32_t cmd;
    std::vector<bool> after;
    const char* line;
  };
  const Case cases[] = {
      {"install on the second interface",
       HWIL_CMD_IF_ADD,
       {true, false, false, false},
       "8 Filter 1001/3 add to interface ge-1/2/2 IPV4 IN direction ERROR. Need to delete related "
       "filter manual.\n"},
      {"removal on the second interface", HWIL_CMD_IF_DEL, {true, false, false, false}, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    gaclGrp.dynamicBindEnable = 1;
    boundEverywhere();
    failOn(202, c.cmd, 1001, 3);
    const uint64_t seq = plat::logLastSeq();
    EXPECT_EQ(set(1001, 3, 1), kHwFault);
    EXPECT_EQ(rule3(), c.after);
    EXPECT_EQ(operSince(seq), c.line);
  }
}

// Nothing is done for a missing list or rule, with dynamic binding off, or for a rule no binding
// can hold (not valid, or its range off): the single-rule calls would refuse those although
// nothing of them is in the hardware, which would make such a rule impossible to delete.
TEST_F(DynamicTest, NothingToDo) {
  listOf(1001, {1});
  AclRuleEntry* created = rule(1001, 2);
  AclRuleEntry* off = follow(validRule(1001, 3), kRangeOff);
  bindIf(kPort, &AclBindSlots::inIpv4Acl, 1001);
  bindGlobal(kGlbInIpv4, 1001);
  const SeqView before = seqs();
  struct Case {
    const char* name;
    uint8_t dynamic;
    uint32_t lst, rule, op;
    int32_t want;
  };
  const Case cases[] = {
      {"missing list", 1, 1500, 1, 1, -1},        {"missing rule", 1, 1001, 9, 1, -1},
      {"missing rule, off", 0, 1001, 9, 1, -1},   {"dynamic binding off", 0, 1001, 1, 1, 0},
      {"created rule removed", 1, 1001, 2, 0, 0}, {"range off, install", 1, 1001, 3, 1, 0},
      {"range off, removal", 1, 1001, 3, 0, 0},
  };
  for (const Case& c : cases) {
    gaclGrp.dynamicBindEnable = c.dynamic;
    EXPECT_EQ(set(c.lst, c.rule, c.op), c.want) << c.name;
  }
  EXPECT_EQ(seqs(), before);
  EXPECT_EQ(created->status, ACL_RULE_STATUS_CREATED);
  // The range coming on puts the rule in where the dynamic set left it out.
  gaclGrp.dynamicBindEnable = 1;
  switchRange(kRangeOff, true);
  EXPECT_EQ(off->trActive, 1);
  EXPECT_TRUE(holds(1, kPort, 1001, 3, 0));
  EXPECT_TRUE(holds(0, 0, 1001, 3, 0));
  EXPECT_EQ(audit(), "");
}

}  // namespace
}  // namespace rebindtest
