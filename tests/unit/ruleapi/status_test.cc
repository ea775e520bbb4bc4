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
  using Events = std::vector<Event>;
  // Status read back, rules in the list, announcements.
  const auto state = [&] {
    return std::make_tuple(record(1) ? get(1, ACL_RULE_CMD_STATUS) : 0u,
                           aclListEntryGet(kList)->ruleNum, ruleEvents());
  };
  ASSERT_EQ(create(1), 0);
  EXPECT_EQ(std::make_tuple(lastRelay().cmd, lastRelay().data),
            std::make_tuple(0x08CDC000u + 57, Bytes{0, 0, 0, 2}));
  EXPECT_EQ(state(), std::make_tuple(3u, 1u, Events{})) << "creation is not announced";
  Events ev = {{249, kList, 0}, {250, kList, 1}};
  ASSERT_EQ(makeValid(1), 0);
  EXPECT_EQ(state(), std::make_tuple(1u, 1u, ev));
  ASSERT_EQ(makeInvalid(1), 0);
  ASSERT_EQ(makeInvalid(1), 0) << "already invalid";
  ev.push_back({251, kList, 1});
  EXPECT_EQ(state(), std::make_tuple(3u, 1u, ev));
  EXPECT_EQ(set(1, ACL_RULE_CMD_STATUS, 5), 0) << "other values change nothing";
  EXPECT_EQ(state(), std::make_tuple(3u, 1u, ev));
  ASSERT_EQ(remove(1), 0);
  ev.insert(ev.end(), {{249, kList, 0}, {251, kList, 1}});
  EXPECT_EQ(state(), std::make_tuple(0u, 0u, ev));
  EXPECT_EQ(remove(1), 0) << "a missing rule";
  EXPECT_EQ(state(), std::make_tuple(0u, 0u, ev));
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
  EXPECT_EQ(std::make_tuple(aclValueFirst(record(1)), aclActionFirst(record(1)), meterRefs(1),
                            counterRefs(1), timeRangeRefs(1), mirrorRefs(2),
                            aclListEntryGet(kList)->ruleNum),
            std::make_tuple(nullptr, nullptr, 0, 0, 0, 0, 1u));
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
  // Validating a valid rule installs (and announces) it again.
  const size_t before = ruleEvents().size();
  ASSERT_EQ(makeValid(1), 0);
  ASSERT_EQ(makeValid(1), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 1u);
  EXPECT_EQ(ruleEvents().size(), before + 4);
}

TEST_F(RuleStatus, FailedRemovalsKeepTheRule) {
  restart({{"acl.dynamicbindenable", "true"}});
  bindGlobally();
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(makeValid(1), 0);
  ASSERT_TRUE(inGlobalTable(1));
  failGlobal(HWIL_CMD_GLOBAL_DEL, 1, 0x3EA0048, 3);
  // The reset stops too; making it invalid goes on whatever the removal answered, and the
  // hardware keeps what it refused to give up.
  const std::pair<int32_t (*)(uint32_t), uint32_t> steps[] = {
      {remove, 1}, {create, 1}, {makeInvalid, 3}};
  for (const auto& [step, status] : steps) {
    EXPECT_EQ(step(1), 0x3EA0048);
    EXPECT_EQ(std::make_pair(get(1, ACL_RULE_CMD_STATUS), inGlobalTable(1)),
              std::make_pair(status, true));
  }
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
  EXPECT_TRUE(record(1) != nullptr && record(5) == nullptr);
}

}  // namespace
