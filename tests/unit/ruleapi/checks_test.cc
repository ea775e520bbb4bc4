// The checks a rule set makes before any work, in their order: the buffer, the list, a bound list,
// the rule, a valid rule (with the time-range exception); and the relay that precedes each change.
#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::Key;
using ruletest::RuleApiTest;

class RuleChecks : public RuleApiTest {};

TEST_F(RuleChecks, NullBufferComesFirst) {
  Key missing(1500, 1);
  EXPECT_EQ(aclRuleSetApi(missing.addr(), 14, 0), 22);
  EXPECT_EQ(aclRuleSyncApi(missing.addr(), ACL_RULE_CMD_STATUS, 0), 22);
  EXPECT_EQ(setValue(1500, 1, 14, 1), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(setValue(1500, 1, ACL_RULE_CMD_STATUS, 2), ACL_ERR_LIST_NOT_EXIST);
  int32_t ret = 0;
  getValue(1500, 1, 14, &ret);
  EXPECT_EQ(ret, ACL_ERR_LIST_NOT_EXIST);
  getValue(kList, 1, 14, &ret);
  EXPECT_EQ(ret, CMN_ERR_NOT_FOUND);
  EXPECT_EQ(relayCount(), 1u) << "only the list's creation was relayed";
}

TEST_F(RuleChecks, MissingRulesTakeOnlyTheStatusCommand) {
  EXPECT_EQ(set(1, 14, 80), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(set(1, 0, 80), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(set(1, 60, 80), -1);
  EXPECT_EQ(setDesc(1, 53, bits({3})), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(relayCount(), 1u);
  EXPECT_EQ(remove(1), 0) << "deleting a missing rule";
  EXPECT_EQ(makeValid(1), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(makeInvalid(1), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(set(1, ACL_RULE_CMD_STATUS, 9), 0);
  EXPECT_EQ(record(1), nullptr);
}

TEST_F(RuleChecks, BoundListRefusesEveryChangeWithoutDynamicBinding) {
  ASSERT_EQ(create(1), 0);
  aclListEntryGet(kList)->refCnt = 1;
  const size_t before = relayCount();
  EXPECT_EQ(set(1, 14, 80), CMN_ERR_IN_USE);
  EXPECT_EQ(create(2), CMN_ERR_IN_USE);
  EXPECT_EQ(remove(1), CMN_ERR_IN_USE);
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, 1), CMN_ERR_IN_USE);
  EXPECT_EQ(set(7, 14, 80), CMN_ERR_IN_USE) << "before the rule is looked up";
  EXPECT_EQ(relayCount(), before);
  // Reading is not a change.
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 3u);
}

TEST_F(RuleChecks, DynamicBindingAllowsChangesToABoundList) {
  restart({{"acl.dynamicbindenable", "true"}});
  ASSERT_EQ(create(1), 0);
  aclListEntryGet(kList)->refCnt = 1;
  EXPECT_EQ(set(1, 14, 80), 0);
  EXPECT_EQ(makeValid(1), 0);
  // The time range alone still waits for the list to be unbound, before its relay.
  const size_t before = relayCount();
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, 1), ACL_ERR_SHARED_IN_USE);
  EXPECT_EQ(relayCount(), before);
  aclListEntryGet(kList)->refCnt = 0;
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, 1), 0);
}

TEST_F(RuleChecks, ValidRuleTakesOnlyStatusAndTimeRange) {
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(set(1, 14, 80), 0);
  ASSERT_EQ(makeValid(1), 0);
  const size_t before = relayCount();
  EXPECT_EQ(set(1, 14, 81), ACL_ERR_RULE_ACTIVE);
  EXPECT_EQ(setDesc(1, 11, {1, 2, 3, 4}), ACL_ERR_RULE_ACTIVE);
  EXPECT_EQ(setDesc(1, 53, bits({3})), ACL_ERR_RULE_ACTIVE);
  EXPECT_EQ(set(1, ACL_RULE_CMD_METERID, 1), ACL_ERR_RULE_ACTIVE);
  EXPECT_EQ(set(1, ACL_RULE_CMD_MOVE, 2), ACL_ERR_RULE_ACTIVE);
  EXPECT_EQ(set(1, 0, 1), ACL_ERR_RULE_ACTIVE) << "before the command is even known";
  EXPECT_EQ(relayCount(), before);
  EXPECT_EQ(get(1, 14), 80u);
  // The time range may change on a valid rule.
  EXPECT_EQ(set(1, ACL_RULE_CMD_TRID, 2), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_TRID), 2u);
  // A valid rule is changed by making it invalid first.
  ASSERT_EQ(makeInvalid(1), 0);
  EXPECT_EQ(set(1, 14, 81), 0);
  EXPECT_EQ(get(1, 14), 81u);
}

TEST_F(RuleChecks, ARefusedRelayChangesNothing) {
  ASSERT_EQ(create(1), 0);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .result = 0x3E80004, .count = -1});
  EXPECT_EQ(set(1, 14, 80), 0x3E80004);
  EXPECT_EQ(setDesc(1, 11, {1, 2, 3, 4}), 0x3E80004);
  EXPECT_EQ(setDesc(1, 8, {1, 2, 3}), 0x3E80004) << "the relay answers before the length";
  EXPECT_EQ(setDesc(1, 53, bits({3})), 0x3E80004);
  EXPECT_EQ(set(1, ACL_RULE_CMD_COUNTERID, 1), 0x3E80004);
  EXPECT_EQ(makeValid(1), 0x3E80004);
  EXPECT_EQ(remove(1), 0x3E80004);
  plat::faultClear();
  EXPECT_EQ(getDesc(1, 0), Bytes(12, 0));
  EXPECT_EQ(get(1, ACL_RULE_CMD_STATUS), 3u);
}

TEST_F(RuleChecks, SyncRelaysWithModeOne) {
  ASSERT_EQ(create(1), 0);
  Key k(kList, 1);
  test::Word w(80);
  ASSERT_EQ(aclRuleSyncApi(k.addr(), 14, w.addr()), 0);
  EXPECT_EQ(be::load32(lastRelay().options, 0), 1u);
  EXPECT_EQ(get(1, 14), 80u);
  Bytes addr{10, 0, 0, 1};
  wire::BufDesc d{addr.data(), 4};
  ASSERT_EQ(aclRuleSyncApi(k.addr(), 11, reinterpret_cast<uintptr_t>(&d)), 0);
  EXPECT_EQ(be::load32(lastRelay().options, 0), 0x80000001u);
  EXPECT_EQ(be::load32(lastRelay().options, 16), 4u);
}

}  // namespace
