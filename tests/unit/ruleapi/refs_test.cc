// References a rule holds elsewhere: meters, counters, time ranges and mirror groups go up and
// down exactly once per change, through attaching, switching, detaching, the remove-all marker, a
// failed activation and the deletion of the rule.
#include <functional>

#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::RuleApiTest;

class RuleRefs : public RuleApiTest {
 protected:
  using V = std::vector<int64_t>;
  void SetUp() override {
    RuleApiTest::SetUp();
    ASSERT_EQ(create(1), 0);
  }
  void TearDown() override {
    EXPECT_EQ(anomalies(), 0u) << "a reference was released more often than taken";
    RuleApiTest::TearDown();
  }
  // One value set on rule 1, its answer and what state() reads after it.
  struct Step {
    uint32_t cmd, v;
    int32_t ret;
    V state;
  };
  static void run(std::span<const Step> steps, const std::function<V()>& state) {
    for (size_t n = 0; n < steps.size(); ++n) {
      EXPECT_EQ(set(1, steps[n].cmd, steps[n].v), steps[n].ret) << "step " << n;
      EXPECT_EQ(state(), steps[n].state) << "step " << n;
    }
  }
  static constexpr uint32_t kDetach = ACL_RULE_DETACH;
  template <class... T>
  static V vals(T... v) {
    return {int64_t(v)...};
  }
};

TEST_F(RuleRefs, MeterReferenceFollowsTheMeterId) {
  validMeter(1);
  validMeter(2);
  constexpr uint32_t M = ACL_RULE_CMD_METERID;
  const auto state = [] {  // meter 1 and 2 references, the meter bit, the meter id read back
    return vals(meterRefs(1), meterRefs(2), fieldBit(1, RULE_BIT_METERID), get(1, M));
  };
  // Setting the meter it already has takes nothing more.
  const Step steps1[] = {{M, 1, 0, {1, 0, 1, 1}}, {M, 1, 0, {1, 0, 1, 1}}, {M, 2, 0, {0, 1, 1, 2}}};
  run(steps1, state);
  // Detaching also takes the out-actions that qualified the meter.
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({1, 4}, 2)), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, {0, 0, 0, 0, 9}), 0);
  const Step steps2[] = {{M, kDetach, 0, {0, 0, 0, 0}}};
  run(steps2, state);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_FIELD_BITS), Bytes(12, 0)) << "no meter or out-action bit";
  EXPECT_EQ(actionEntries(1), 0u);
  // Nothing left to detach; a meter that is not valid refuses the reference, and the request.
  const Step steps3[] = {{M, kDetach, 0, {0, 0, 0, 0}},
                         {M, 3, CMN_ERR_NOT_FOUND, {0, 0, 0, 0}},
                         {M, 1, 0, {1, 0, 1, 1}}};
  run(steps3, state);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(meterRefs(1), 0) << "deleting the rule gives its meter back";
}

TEST_F(RuleRefs, CarIdTakesTheMetersPlace) {
  validMeter(1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({1}, 2)), 0);
  // Meter 1 references, CAR and meter bits, CAR and meter ids read back (one shared word), the
  // action entries and the first out-action byte.
  const auto state = [] {
    return vals(meterRefs(1), fieldBit(1, RULE_BIT_CARID), fieldBit(1, RULE_BIT_METERID),
                get(1, ACL_RULE_CMD_CARID), get(1, ACL_RULE_CMD_METERID), actionEntries(1),
                record(1)->outActionBits[0]);
  };
  const Step steps4[] = {{ACL_RULE_CMD_CARID, 7, 0, {0, 1, 0, 7, 7, 0, 0x40}},
                         {ACL_RULE_CMD_METERID, 1, 0, {1, 0, 1, 1, 1, 0, 0}}};
  run(steps4, state);
  // Out-action bit 0 removes every out-action and the CAR or meter with them, but the device
  // releases no meter reference there: the meter keeps the one this rule took, and deleting the
  // rule (which no longer names it) does not give it back either.
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({0}, 2)), 0);
  EXPECT_EQ(state(), (V{1, 0, 0, 0, 0, 0, 0}));
  EXPECT_FALSE(fieldBit(1, RULE_BIT_OUTACTION));
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(meterRefs(1), 1);
}

TEST_F(RuleRefs, CounterReferenceFollowsTheCounterId) {
  validCounter(1);
  validCounter(2);
  constexpr uint32_t C = ACL_RULE_CMD_COUNTERID;
  const auto state = [] {
    return vals(counterRefs(1), counterRefs(2), fieldBit(1, RULE_BIT_COUNTERID), get(1, C));
  };
  // The counter's own answer (9 is not valid) does not change the rule's.
  const Step steps5[] = {{C, 1, 0, {1, 0, 1, 1}}, {C, 1, 0, {1, 0, 1, 1}},
                         {C, 2, 0, {0, 1, 1, 2}}, {C, kDetach, 0, {0, 0, 0, 0}},
                         {C, 9, 0, {0, 0, 1, 9}}, {C, 1, 0, {1, 0, 1, 1}}};
  run(steps5, state);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(counterRefs(1), 0);
}

TEST_F(RuleRefs, TimeRangeUseFollowsTheTimeRange) {
  // Time range 1 is active, 2 is not.
  constexpr uint32_t T = ACL_RULE_CMD_TRID;
  const auto state = [] {
    return vals(timeRangeRefs(1), timeRangeRefs(2), record(1)->trActive, fieldBit(1, RULE_BIT_TRID),
                get(1, T));
  };
  // An unknown time range is refused with the service's answer, and nothing changes.
  const Step steps6[] = {{T, 1, 0, {1, 0, 1, 1, 1}},
                         {T, 2, 0, {0, 1, 0, 1, 2}},
                         {T, 2, 0, {0, 1, 0, 1, 2}},
                         {T, 99, CMN_ERR_NOT_FOUND, {0, 1, 0, 1, 2}}};
  run(steps6, state);
  plat::faultAdd({.call = "timerangeListGetApi", .result = 0x3E80004});
  const Step steps7[] = {{T, 1, 0x3E80004, {0, 1, 0, 1, 2}}};
  run(steps7, state);
  // A release the service refuses leaves the rule on its time range.
  plat::faultAdd({.call = "timerangeListSetApi", .result = 0x3E80004});
  const Step steps8[] = {{T, kDetach, 0x3E80004, {0, 1, 0, 1, 2}},
                         {T, kDetach, 0, {0, 0, 0, 0, 0}},
                         {T, kDetach, 0, {0, 0, 0, 0, 0}},  // nothing to release
                         {T, 1, 0, {1, 0, 1, 1, 1}}};
  run(steps8, state);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(timeRangeRefs(1), 0);
}

TEST_F(RuleRefs, MirrorGroupReferenceFollowsTheParameter) {
  // (rule, command, bytes, then the references of groups 2, 3 and 4). The plain MIRROR action
  // (rule 2) names a destination without holding a group; adding the group action to the same
  // parameter takes the group.
  constexpr uint32_t A = ACL_RULE_CMD_ACTION, P = ACL_RULE_CMD_ACTIONPARAM;
  const std::tuple<uint32_t, uint32_t, Bytes, V> steps[] = {
      {1, A, bits({RULE_ACTION_MIRROR_GROUP}), {0, 0, 0}},  // no group named yet
      {1, P, item(3, 2), {1, 0, 0}},
      {1, P, item(3, 2), {1, 0, 0}},
      {1, P, item(3, 3), {0, 1, 0}},
      {2, A, bits({RULE_ACTION_MIRROR}), {0, 1, 0}},
      {2, P, item(3, 2), {0, 1, 0}},
      {2, P, item(3, 4), {0, 1, 0}},
      {2, A, bits({RULE_ACTION_MIRROR_GROUP}), {0, 1, 0}},
      {2, P, item(3, 4), {0, 1, 1}}};
  ASSERT_EQ(create(2), 0);
  for (const auto& [rule, cmd, bytes, refs] : steps) {
    ASSERT_EQ(setDesc(rule, cmd, bytes), 0);
    EXPECT_EQ((V{mirrorRefs(2), mirrorRefs(3), mirrorRefs(4)}), refs) << rule << " " << cmd;
  }
  ASSERT_EQ(remove(1), 0);
  ASSERT_EQ(remove(2), 0);
  EXPECT_EQ((V{mirrorRefs(2), mirrorRefs(3), mirrorRefs(4)}), (V{0, 0, 0}));
}

TEST_F(RuleRefs, RemoveAllMarkerTakesEveryInActionAndItsReferences) {
  validCounter(1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION,
                    bits({RULE_ACTION_AWARE, RULE_ACTION_DENY, RULE_ACTION_MIRROR_GROUP})),
            0);
  Bytes params = item(3, 2);
  const Bytes aware = item(10, 1);
  params.insert(params.end(), aware.begin(), aware.end());
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, params), 0);
  // Mirror group 2 and counter 1 references, the counter id, action entries, action and
  // parameter lengths read back.
  const auto state = [] {
    return vals(mirrorRefs(2), counterRefs(1), get(1, ACL_RULE_CMD_COUNTERID), actionEntries(1),
                getDesc(1, ACL_RULE_CMD_ACTION).size(),
                getDesc(1, ACL_RULE_CMD_ACTIONPARAM).size());
  };
  EXPECT_EQ(state()[0], 1);
  EXPECT_EQ(state()[3], 3);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_INVALID})), 0);
  EXPECT_EQ(state(), (V{0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_FIELD_BITS), Bytes(12, 0)) << "no counter or action bit";
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(counterRefs(1), 0);
}

TEST_F(RuleRefs, FailedActivationStripsTheInActionsOnce) {
  restart({{"acl.dynamicbindenable", "true"}});
  ASSERT_EQ(create(1), 0);
  validCounter(1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION,
                    bits({RULE_ACTION_AWARE, RULE_ACTION_PERMIT, RULE_ACTION_MIRROR_GROUP})),
            0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(3, 1)), 0);
  ASSERT_EQ(set(1, 14, 80), 0);
  const size_t events0 = events().size();
  // Status, in the global table, mirror group 1 and counter 1 references, the counter id, the
  // action length and entries, the port match field (which stays).
  const auto state = [] {
    return vals(get(1, ACL_RULE_CMD_STATUS), inGlobalTable(1), mirrorRefs(1), counterRefs(1),
                get(1, ACL_RULE_CMD_COUNTERID), getDesc(1, ACL_RULE_CMD_ACTION).size(),
                actionEntries(1), get(1, 14));
  };
  EXPECT_EQ(state(), (V{3, 0, 1, 1, 1, 8, 3, 80}));

  // The installation fails; the removal that undoes it is let through.
  bindGlobally();
  failGlobal(HWIL_CMD_GLOBAL_ADD, 1, 0x3EA0048);
  EXPECT_EQ(makeValid(1), 0x3EA0048);
  EXPECT_EQ(state(), (V{3, 0, 0, 0, 0, 0, 0, 80}));
  EXPECT_EQ(events().size(), events0) << "nothing announced";
  // Without the fault it goes through, and deleting releases nothing twice.
  EXPECT_EQ(makeValid(1), 0);
  EXPECT_EQ(state(), (V{1, 1, 0, 0, 0, 0, 0, 80}));
  ASSERT_EQ(makeInvalid(1), 0);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ((V{mirrorRefs(1), counterRefs(1)}), (V{0, 0}));
}

}  // namespace
