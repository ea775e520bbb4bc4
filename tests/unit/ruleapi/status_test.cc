// The life of a rule through set 57 (create, make valid, make invalid, delete) with the
// announcements each step makes, the reset of an existing rule by status 2, and the move.
#include <tuple>

#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::RuleApiTest;

class RuleStatus : public RuleApiTest {
 protected:
  // Announcements about kList's rules made after the list's own creation.
  std::vector<Event> ruleEvents() {
    std::vector<Event> out;
    for (const Event& e : events()) {
      if (e.event >= 249) out.push_back(e);
    }
    return out;
  }
};

TEST_F(RuleStatus, CreateValidInvalidDelete) {
  ASSERT_EQ(create(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 3u);
  EXPECT_EQ(aclListEntryGet(kList)->ruleNum, 1u);
  EXPECT_EQ(lastRelay().cmd, 0x08CDC000u + 57);
  EXPECT_EQ(lastRelay().data, (Bytes{0, 0, 0, 2}));
  EXPECT_TRUE(ruleEvents().empty()) << "creation is not announced";

  ASSERT_EQ(makeValid(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 1u);
  EXPECT_EQ(ruleEvents(), (std::vector<Event>{{249, kList, 0}, {250, kList, 1}}));

  ASSERT_EQ(makeInvalid(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 3u);
  ASSERT_EQ(makeInvalid(1), 0) << "already invalid";
  EXPECT_EQ(ruleEvents().size(), 3u);
  EXPECT_EQ(ruleEvents().back(), (Event{251, kList, 1}));

  EXPECT_EQ(set(1, ACL_RULE_CMD_STATUS, 5), 0) << "other values change nothing";
  ASSERT_EQ(remove(1), 0);
  EXPECT_EQ(record(1), nullptr);
  EXPECT_EQ(aclListEntryGet(kList)->ruleNum, 0u);
  const auto ev = ruleEvents();
  ASSERT_EQ(ev.size(), 5u);
  EXPECT_EQ(ev[3], (Event{249, kList, 0}));
  EXPECT_EQ(ev[4], (Event{251, kList, 1}));
  EXPECT_EQ(remove(1), 0) << "a missing rule";
  EXPECT_EQ(ruleEvents().size(), 5u);
}

TEST_F(RuleStatus, CreatingAnExistingRuleEmptiesIt) {
  validMeter(1);
  validCounter(1);
  ASSERT_EQ(create(1), 0);
  const Bytes empty = getDesc(1, ACL_RULE_CMD_RULE_IMAGE);  // bits, status and ids
  ASSERT_EQ(set(1, 14, 80), 0);
  ASSERT_EQ(setDesc(1, 11, {10, 0, 0, 1}), 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_TRID, 1), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_DENY, RULE_ACTION_MIRROR_GROUP})), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(3, 2)), 0);
  ASSERT_EQ(makeValid(1), 0);

  ASSERT_EQ(create(1), 0);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_RULE_IMAGE), empty);
  EXPECT_EQ(aclValueFirst(record(1)), nullptr);
  EXPECT_EQ(aclActionFirst(record(1)), nullptr);
  EXPECT_EQ(std::make_tuple(meterRefs(1), counterRefs(1), timeRangeRefs(1), mirrorRefs(2)),
            std::make_tuple(0, 0, 0, 0));
  EXPECT_EQ(aclListEntryGet(kList)->ruleNum, 1u);
  EXPECT_EQ(ruleEvents().back(), (Event{251, kList, 1}));
}

TEST_F(RuleStatus, ACreationThatFailsAnswersTheReason) {
  restart({{"acl.maxipv4rulenum", "2"}});
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(create(2), 0);
  EXPECT_EQ(create(3), ACL_ERR_RULE_LIMIT);
  EXPECT_EQ(record(3), nullptr);
  EXPECT_EQ(create(2), 0) << "a reset needs no room";
  // Rule number 0 names no rule.
  EXPECT_EQ(create(0), CMN_ERR_NOT_FOUND);
}

TEST_F(RuleStatus, ReValidatingAValidRuleInstallsItAgain) {
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(makeValid(1), 0);
  ASSERT_EQ(makeValid(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 1u);
  EXPECT_EQ(ruleEvents().size(), 4u);
}

TEST_F(RuleStatus, FailedRemovalsKeepTheRule) {
  restart({{"acl.dynamicbindenable", "true"}});
  bindGlobally();
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(makeValid(1), 0);
  ASSERT_TRUE(inGlobalTable(1));
  failGlobal(HWIL_CMD_GLOBAL_DEL, 1, 0x3EA0048, 3);
  EXPECT_EQ(remove(1), 0x3EA0048);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 1u);
  EXPECT_EQ(create(1), 0x3EA0048) << "the reset stops too";
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 1u);
  // Making it invalid goes on whatever the removal answered.
  EXPECT_EQ(makeInvalid(1), 0x3EA0048);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 3u);
  EXPECT_TRUE(inGlobalTable(1)) << "the hardware kept what it refused to give up";
  ASSERT_EQ(remove(1), 0);

  // A rule whose time range will not let it go stays whole.
  bindGlobally(false);
  ASSERT_EQ(create(2), 0);
  ASSERT_EQ(set(2, ACL_RULE_CMD_TRID, 1), 0);
  plat::faultAdd({.call = "timerangeListSetApi", .result = 0x3E80004});
  EXPECT_EQ(remove(2), 0x3E80004);
  EXPECT_EQ(get(2, ACL_RULE_CMD_TRID), 1u);
  ASSERT_EQ(remove(2), 0);
  EXPECT_EQ(timeRangeRefs(1), 0);
}

TEST_F(RuleStatus, MoveIsRelayedAndChangesNothing) {
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(set(1, ACL_RULE_CMD_MOVE, 5), 0);
  EXPECT_EQ(lastRelay().cmd, 0x08CDC000u + 58);
  EXPECT_NE(record(1), nullptr);
  EXPECT_EQ(record(5), nullptr);
}

}  // namespace
