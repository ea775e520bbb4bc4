// Time-range switches over bound lists: whole lists re-programmed without dynamic binding, single
// rules with it; every scope, the pre-stage included; failures logged without stopping the walk.
#include "support/device_lock.h"
#include "unit/control/rebind_fixture.h"

namespace rebindtest {
namespace {

struct Mode {
  const char* name;
  bool dynamic;
};
constexpr Mode kModes[] = {{"whole lists", false}, {"rule by rule", true}};

class TimeRangeTest : public RebindTest {
 protected:
  // List 1001: rule 1 follows no range, rule 2 follows `tr`. Bound on port 201 (inIpv4Acl), the
  // GEM port (outIpv4Acl), the global inIpv4Acl and the global pre-stage IPv4 slot.
  void bindEverywhere(uint32_t tr) {
    listOf(1001, {1});
    follow(validRule(1001, 2), tr);
    bindIf(kPort, &AclBindSlots::inIpv4Acl, 1001);
    bindGem(1001);
    bindGlobal(kGlbInIpv4, 1001);
    AclListEntry* l = aclListEntryGet(1001);
    ASSERT_EQ(aclGlbAdd(l, ACL_DIR_VFP, nullptr, ACL_BIND_KIND_VFP_L2 + 1), 0);
    gaclGrp.slots.inIpv4VfpAcl = 1001;
    ++l->refCnt;
  }
  // Where rule r of list 1001 is: port 201 in, GEM port out, global in, global pre-stage.
  static std::vector<bool> where(uint32_t r) {
    return {holds(1, kPort, 1001, r, 0), holds(2, kPon, 1001, r, 1), holds(0, 0, 1001, r, 0),
            holds(0, 0, 1001, r, 2)};
  }
  static const inline std::vector<bool> kEverywhere{true, true, true, true};
  static const inline std::vector<bool> kNowhere{false, false, false, false};
};

// A rule whose range is off at bind time is on no binding; it reaches every scope when the range
// comes on and leaves them all when it goes off again, the audit agreeing at every step.
TEST_F(TimeRangeTest, RuleFollowsItsRangeOnEveryScope) {
  for (const Mode& m : kModes) {
    SCOPED_TRACE(m.name);
    restart();
    gaclGrp.dynamicBindEnable = m.dynamic;
    bindEverywhere(kRangeOff);
    EXPECT_EQ(where(1), kEverywhere);
    EXPECT_EQ(where(2), kNowhere);
    EXPECT_EQ(audit(), "");
    switchRange(kRangeOff, true);
    EXPECT_EQ(where(2), kEverywhere);
    EXPECT_EQ(aclRuleEntryGetByIndex(1001, 2)->trActive, 1);
    EXPECT_EQ(audit(), "");
    switchRange(kRangeOff, false);
    EXPECT_EQ(where(1), kEverywhere);
    EXPECT_EQ(where(2), kNowhere);
    EXPECT_EQ(audit(), "");
    EXPECT_EQ(anomalyCount(), 0u);
    // A switch the daemon never heard of is named by the audit.
    test::onDevice([&](vdev::Device& d) { d.model.timeRanges[kRangeOff].active = true; });
    const std::string missed = audit();
    EXPECT_NE(missed.find("timeRange: list 1001 rule 2 holds time range 2 as inactive, the "
                          "service says active"),
              std::string::npos)
        << missed;
    EXPECT_NE(missed.find("unit 201 lacks list 1001 rule 2"), std::string::npos) << missed;
  }
}

// A message that repeats the current state: rule by rule nothing is sent; whole lists are still
// taken off and put back, the rules that follow no range among them.
TEST_F(TimeRangeTest, RepeatedStateMessage) {
  for (const Mode& m : kModes) {
    SCOPED_TRACE(m.name);
    restart();
    gaclGrp.dynamicBindEnable = m.dynamic;
    bindEverywhere(kRangeOn);
    const SeqView before = seqs();
    ASSERT_EQ(before.size(), 8u);
    switchRange(kRangeOn, true);
    const SeqView after = seqs();
    ASSERT_EQ(after.size(), before.size());
    for (const auto& [key, seq] : before) {
      EXPECT_EQ(after.at(key) != seq, !m.dynamic) << std::get<1>(key) << " " << std::get<3>(key);
    }
    EXPECT_EQ(audit(), "");
  }
}

// Lists without rules, missing lists and rules, and rules of another range change nothing.
TEST_F(TimeRangeTest, NothingToReprogram) {
  AclListEntry* empty = list(1002);
  AclListEntry* l = listOf(1001, {1});
  AclRuleEntry* r = follow(validRule(1001, 2), kRangeOff);
  bindIf(kPort, &AclBindSlots::inIpv4Acl, 1001);
  const SeqView before = seqs();
  struct Case {
    const char* name;
    int32_t got;
    int32_t want;
  };
  const Case cases[] = {
      {"no list", aclDoTrForList(nullptr, kRangeOff, 1), -1},
      {"list without rules", aclDoTrForList(empty, kRangeOff, 1), -1},
      {"rule: no list", aclDoTrForRule(nullptr, r, kRangeOff, 1), -1},
      {"rule: list without rules", aclDoTrForRule(empty, r, kRangeOff, 1), -1},
      {"no rule", aclDoTrForRule(l, nullptr, kRangeOff, 1), -1},
      {"another range", aclDoTrForRule(l, r, kRangeOn, 1), 0},
      {"rule without a range", aclDoTrForRule(l, aclRuleEntryGet(l, 1), 0, 1), 0},
  };
  for (const Case& c : cases) EXPECT_EQ(c.got, c.want) << c.name;
  EXPECT_EQ(r->trActive, 0);
  EXPECT_EQ(seqs(), before);
  // A message too short to name a range is ignored.
  aclTimerangeStateChangeProcess(num(kRangeOff, 3), 1);
  EXPECT_EQ(r->trActive, 0);
  EXPECT_EQ(audit(), "");
}

// A binding that refuses its re-install is logged with its class and the walk goes on: the
// global scope after the refusing interface is programmed and the state is stored.
TEST_F(TimeRangeTest, RefusedReinstallIsLoggedAndTheWalkGoesOn) {
  struct Case {
    const char* name;
    bool dynamic;
    const char* line;
  };
  const Case cases[] = {
      {"whole lists", false,
       "14 Add interface hardware acl failed. (ifName=[ge-1/2/1], list=[1001], rule=[0], "
       "dir=[in], ret=[65536153])"},
      {"rule by rule", true,
       "14 Add interface hardware acl failed. (ifName=[ge-1/2/1], list=[1001], rule=[2], "
       "dir=[in], ret=[65536153])"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    gaclGrp.dynamicBindEnable = c.dynamic;
    listOf(1001, {1});
    follow(validRule(1001, 2), kRangeOff);
    bindIf(kPort, &AclBindSlots::inIpv4Acl, 1001);
    bindGlobal(kGlbInIpv4, 1001);
    failOn(kPort, HWIL_CMD_IF_ADD, 1001, 2);
    const uint64_t seq = plat::logLastSeq();
    switchRange(kRangeOff, true);
    EXPECT_EQ(operSince(seq), std::string(c.line) + "\n");
    EXPECT_TRUE(holds(0, 0, 1001, 2, 0));
    EXPECT_FALSE(holds(1, kPort, 1001, 2, 0));
    EXPECT_EQ(aclRuleEntryGetByIndex(1001, 2)->trActive, 1);
    // The audit names what the refusal left out, and only that.
    EXPECT_EQ(audit(), c.dynamic ? "hardware: unit 201 lacks list 1001 rule 2 dir 0 (interface "
                                   "201 inIpv4Acl, priority 4098)\n"
                                 : "hardware: unit 201 lacks list 1001 rule 1 dir 0 (interface "
                                   "201 inIpv4Acl, priority 4097)\n"
                                   "hardware: unit 201 lacks list 1001 rule 2 dir 0 (interface "
                                   "201 inIpv4Acl, priority 4098)\n");
  }
}

}  // namespace
}  // namespace rebindtest
