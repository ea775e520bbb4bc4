// References a rule holds elsewhere: meters, counters, time ranges and mirror groups go up and
// down exactly once per change, through attaching, switching, detaching, the remove-all marker, a
// failed activation and the deletion of the rule.
#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::RuleApiTest;

class RuleRefs : public RuleApiTest {
 protected:
  void SetUp() override {
    RuleApiTest::SetUp();
    ASSERT_EQ(create(1), 0);
  }
  void TearDown() override {
    EXPECT_EQ(anomalies(), 0u) << "a reference was released more often than taken";
    RuleApiTest::TearDown();
  }
};

TEST_F(RuleRefs, MeterReferenceFollowsTheMeterId) {
  validMeter(1);
  validMeter(2);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  EXPECT_EQ(meterRefs(1), 1);
  EXPECT_TRUE(fieldBit(1, RULE_BIT_METERID));
  EXPECT_EQ(get(1, ACL_RULE_CMD_METERID), 1u);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  EXPECT_EQ(meterRefs(1), 1) << "the meter it already has";
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 2), 0);
  EXPECT_EQ(meterRefs(1), 0);
  EXPECT_EQ(meterRefs(2), 1);

  // Detaching also takes the out-actions that qualified the meter.
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({1, 4}, 2)), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, {0, 0, 0, 0, 9}), 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, ACL_RULE_DETACH), 0);
  EXPECT_EQ(meterRefs(2), 0);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_FIELD_BITS), Bytes(12, 0)) << "no meter or out-action bit";
  EXPECT_EQ(get(1, ACL_RULE_CMD_METERID), 0u);
  EXPECT_EQ(actionEntries(1), 0u);
  EXPECT_EQ(set(1, ACL_RULE_CMD_METERID, ACL_RULE_DETACH), 0) << "nothing to detach";

  // A meter that is not valid refuses the reference, and with it the request.
  EXPECT_EQ(set(1, ACL_RULE_CMD_METERID, 3), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(get(1, ACL_RULE_CMD_METERID), 0u);
  EXPECT_FALSE(fieldBit(1, RULE_BIT_METERID));

  // Deleting the rule gives its meter back.
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  EXPECT_EQ(meterRefs(1), 1);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(meterRefs(1), 0);
}

TEST_F(RuleRefs, CarIdTakesTheMetersPlace) {
  validMeter(1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({1}, 2)), 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_CARID, 7), 0);
  EXPECT_EQ(meterRefs(1), 0);
  EXPECT_TRUE(fieldBit(1, RULE_BIT_CARID));
  EXPECT_FALSE(fieldBit(1, RULE_BIT_METERID));
  EXPECT_EQ(get(1, ACL_RULE_CMD_CARID), 7u);
  EXPECT_EQ(get(1, ACL_RULE_CMD_METERID), 7u) << "one shared word";
  EXPECT_EQ(actionEntries(1), 0u) << "the out-action entries went with the meter";

  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  EXPECT_FALSE(fieldBit(1, RULE_BIT_CARID));
  EXPECT_EQ(record(1)->outActionBits[0], 0);
  EXPECT_EQ(meterRefs(1), 1);

  // Out-action bit 0 removes every out-action and the CAR or meter with them, but the device
  // releases no meter reference there: the meter keeps the one this rule took, and deleting the
  // rule (which no longer names it) does not give it back either.
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({0}, 2)), 0);
  EXPECT_EQ(meterRefs(1), 1);
  EXPECT_FALSE(fieldBit(1, RULE_BIT_METERID));
  EXPECT_FALSE(fieldBit(1, RULE_BIT_OUTACTION));
  EXPECT_EQ(get(1, ACL_RULE_CMD_METERID), 0u);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(meterRefs(1), 1);
}

TEST_F(RuleRefs, CounterReferenceFollowsTheCounterId) {
  validCounter(1);
  validCounter(2);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0);
  EXPECT_EQ(counterRefs(1), 1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0);
  EXPECT_EQ(counterRefs(1), 1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 2), 0);
  EXPECT_EQ(counterRefs(1), 0);
  EXPECT_EQ(counterRefs(2), 1);
  EXPECT_EQ(get(1, ACL_RULE_CMD_COUNTERID), 2u);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, ACL_RULE_DETACH), 0);
  EXPECT_EQ(counterRefs(2), 0);
  EXPECT_FALSE(fieldBit(1, RULE_BIT_COUNTERID));
  EXPECT_EQ(get(1, ACL_RULE_CMD_COUNTERID), 0u);
  // The counter's own answer does not change the rule's.
  EXPECT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 9), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_COUNTERID), 9u);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(counterRefs(1), 0);
}

TEST_F(RuleRefs, TimeRangeUseFollowsTheTimeRange) {
  // Time range 1 is active, 2 is not.
  ASSERT_EQ(set(1, ACL_RULE_CMD_TRID, 1), 0);
  EXPECT_EQ(timeRangeRefs(1), 1);
  EXPECT_EQ(record(1)->trActive, 1);
  EXPECT_TRUE(fieldBit(1, RULE_BIT_TRID));
  ASSERT_EQ(set(1, ACL_RULE_CMD_TRID, 2), 0);
  EXPECT_EQ(timeRangeRefs(1), 0);
  EXPECT_EQ(timeRangeRefs(2), 1);
  EXPECT_EQ(record(1)->trActive, 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_TRID, 2), 0);
  EXPECT_EQ(timeRangeRefs(2), 1);
  EXPECT_EQ(get(1, ACL_RULE_CMD_TRID), 2u);

  // An unknown time range is refused with the service's answer, and nothing changes.
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, 99), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(get(1, ACL_RULE_CMD_TRID), 2u);
  plat::faultAdd({.call = "timerangeListGetApi", .result = 0x3E80004});
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, 1), 0x3E80004);
  EXPECT_EQ(timeRangeRefs(1), 0);

  // A release the service refuses leaves the rule on its time range.
  plat::faultAdd({.call = "timerangeListSetApi", .result = 0x3E80004});
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, ACL_RULE_DETACH), 0x3E80004);
  EXPECT_EQ(get(1, ACL_RULE_CMD_TRID), 2u);
  EXPECT_EQ(timeRangeRefs(2), 1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_TRID, ACL_RULE_DETACH), 0);
  EXPECT_EQ(timeRangeRefs(2), 0);
  EXPECT_FALSE(fieldBit(1, RULE_BIT_TRID));
  EXPECT_EQ(get(1, ACL_RULE_CMD_TRID), 0u);
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, ACL_RULE_DETACH), 0) << "nothing to release";

  ASSERT_EQ(set(1, ACL_RULE_CMD_TRID, 1), 0);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(timeRangeRefs(1), 0);
}

TEST_F(RuleRefs, MirrorGroupReferenceFollowsTheParameter) {
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_MIRROR_GROUP})), 0);
  EXPECT_EQ(mirrorRefs(2), 0) << "no group named yet";
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(3, 2)), 0);
  EXPECT_EQ(mirrorRefs(2), 1);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(3, 2)), 0);
  EXPECT_EQ(mirrorRefs(2), 1);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(3, 3)), 0);
  EXPECT_EQ(mirrorRefs(2), 0);
  EXPECT_EQ(mirrorRefs(3), 1);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(mirrorRefs(3), 0);

  // The plain MIRROR action names a destination without holding a group.
  ASSERT_EQ(create(2), 0);
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_MIRROR})), 0);
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTIONPARAM, item(3, 2)), 0);
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTIONPARAM, item(3, 4)), 0);
  EXPECT_EQ(mirrorRefs(2), 0);
  EXPECT_EQ(mirrorRefs(4), 0);
  // Adding the group action to the same parameter takes the group.
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_MIRROR_GROUP})), 0);
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTIONPARAM, item(3, 4)), 0);
  EXPECT_EQ(mirrorRefs(4), 1);
  ASSERT_EQ(remove(2), 0);
  EXPECT_EQ(mirrorRefs(4), 0);
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
  EXPECT_EQ(mirrorRefs(2), 1);
  EXPECT_EQ(counterRefs(1), 1);
  EXPECT_EQ(actionEntries(1), 3u);

  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_INVALID})), 0);
  EXPECT_EQ(mirrorRefs(2), 0);
  EXPECT_EQ(counterRefs(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_COUNTERID), 0u);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_FIELD_BITS), Bytes(12, 0)) << "no counter or action bit";
  EXPECT_EQ(actionEntries(1), 0u);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTION).size(), 0u);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTIONPARAM).size(), 0u);
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
  EXPECT_EQ(mirrorRefs(1), 1);
  const size_t events0 = events().size();

  // The installation fails; the removal that undoes it is let through.
  bindGlobally();
  failGlobal(HWIL_CMD_GLOBAL_ADD, 1, 0x3EA0048);
  EXPECT_EQ(makeValid(1), 0x3EA0048);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 3u);
  EXPECT_FALSE(inGlobalTable(1));
  EXPECT_EQ(mirrorRefs(1), 0);
  EXPECT_EQ(counterRefs(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_COUNTERID), 0u);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTION).size(), 0u);
  EXPECT_EQ(actionEntries(1), 0u);
  EXPECT_EQ(get(1, 14), 80u) << "the match fields stay";
  EXPECT_EQ(events().size(), events0) << "nothing announced";

  // Without the fault it goes through, and deleting releases nothing twice.
  EXPECT_EQ(makeValid(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 1u);
  ASSERT_EQ(makeInvalid(1), 0);
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(mirrorRefs(1), 0);
  EXPECT_EQ(counterRefs(1), 0);
}

}  // namespace
