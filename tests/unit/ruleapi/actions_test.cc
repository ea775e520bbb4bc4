// In-actions and out-actions through the rule table: bit sets that accumulate, the support query
// and the conflict check, parameter items with the multi-redirect rule, and their read-back.
#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::RuleApiTest;

class RuleActions : public RuleApiTest {
 protected:
  void SetUp() override {
    RuleApiTest::SetUp();
    ASSERT_EQ(create(1), 0);
  }
  static int32_t actions(std::initializer_list<uint32_t> codes) {
    return setDesc(1, ACL_RULE_CMD_ACTION, bits(codes));
  }
};

TEST_F(RuleActions, BitsAccumulateAndMakeTheirEntries) {
  ASSERT_EQ(actions({RULE_ACTION_PERMIT}), 0);
  ASSERT_EQ(actions({RULE_ACTION_CPU, RULE_ACTION_DSCP}), 0);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTION),
            bits({RULE_ACTION_PERMIT, RULE_ACTION_CPU, RULE_ACTION_DSCP}));
  EXPECT_EQ(record(1)->oldActionBits[0], bits({RULE_ACTION_PERMIT})[0]);
  EXPECT_TRUE(fieldBit(1, RULE_BIT_ACTION));
  // Parameterless actions have their entry at once; DSCP waits for its parameter.
  EXPECT_NE(aclActionEntryGet(record(1), RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT), nullptr);
  EXPECT_NE(aclActionEntryGet(record(1), RULE_ACTION_CPU, ACL_ACTION_NO_SLOT), nullptr);
  EXPECT_EQ(aclActionEntryGet(record(1), RULE_ACTION_DSCP, 9), nullptr);
  EXPECT_EQ(actionEntries(1), 2u) << "a bit already there gets no second entry";
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTION, 3).size(), 3u);

  // The relay carries the descriptor's bytes.
  EXPECT_EQ(lastRelay().cmd, 0x08CDC000u + 53);
  EXPECT_EQ(be::load32(lastRelay().options, 0), 0x80000003u);
  EXPECT_EQ(be::load32(lastRelay().options, 16), 8u);
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, Bytes(7, 0)), 22) << "a set shorter than 8 bytes";
}

TEST_F(RuleActions, ConflictsAreRefusedAfterTheRelay) {
  ASSERT_EQ(actions({RULE_ACTION_PERMIT}), 0);
  size_t before = relayCount();
  EXPECT_EQ(actions({RULE_ACTION_DENY}), ACL_ERR_ACTION_PERMIT_DENY);
  EXPECT_EQ(relayCount(), before + 1);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTION), bits({RULE_ACTION_PERMIT}));
  ASSERT_EQ(actions({RULE_ACTION_TOS}), 0);
  EXPECT_EQ(actions({RULE_ACTION_DSCP}), ACL_ERR_ACTION_REMARK);
  EXPECT_EQ(actions({RULE_ACTION_PRECEDENCE}), 0);
  ASSERT_EQ(actions({RULE_ACTION_OUTPUT_PORT}), 0);
  EXPECT_EQ(actions({RULE_ACTION_OUTPUT_CPU}), ACL_ERR_ACTION_FORWARD);
  EXPECT_EQ(actions({RULE_ACTION_MIRROR_GROUP}), ACL_ERR_ACTION_MIRROR);
  EXPECT_EQ(actions({RULE_ACTION_PERMIT, RULE_ACTION_OUTPUT_PORT}), 0) << "nothing new";

  // The platform's support query answers before the relay.
  ASSERT_EQ(create(2), 0);
  {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    d.model.actionSupportResult = CMN_ERR_NOT_SUPPORTED;
  }
  before = relayCount();
  EXPECT_EQ(setDesc(2, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_DENY})), CMN_ERR_NOT_SUPPORTED);
  EXPECT_EQ(relayCount(), before);
  // The remove-all marker is not asked about.
  EXPECT_EQ(setDesc(2, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_INVALID})), 0);
}

TEST_F(RuleActions, ParameterItemsFillTheirSlots) {
  ASSERT_EQ(actions({RULE_ACTION_DSCP, RULE_ACTION_OUTPUT_PORT}), 0);
  // DSCP 46 in word 9, the first 16 bytes of the port set from word 11.
  Bytes items = item(9, 46);
  for (uint8_t code = 11; code <= 11; ++code) {
    const Bytes port = item(code, 0x00010000);
    items.insert(items.end(), port.begin(), port.end());
  }
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, items), 0);
  EXPECT_TRUE(fieldBit(1, RULE_BIT_ACTIONPARAM));
  const Bytes block = getDesc(1, ACL_RULE_CMD_ACTIONPARAM);
  ASSERT_EQ(block.size(), ACL_ACTION_PARAM_LEN);
  EXPECT_EQ(be::load32(block, 9 * 4), 46u);
  EXPECT_EQ(be::load32(block, 11 * 4), 0x00010000u);
  EXPECT_NE(aclActionEntryGet(record(1), RULE_ACTION_DSCP, 9), nullptr);
  EXPECT_NE(aclActionEntryGet(record(1), RULE_ACTION_OUTPUT_PORT, 11), nullptr);
  EXPECT_EQ(aclActionEntryGet(record(1), RULE_ACTION_OUTPUT_PORT, 15), nullptr);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_ACTIONPARAM, 40).size(), 40u);

  // A 16-byte item (an IPv6 next hop) for codes 23, 27, 31 and 35.
  ASSERT_EQ(create(2), 0);
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_IP6OUTPUT_NEXTHOP})), 0);
  Bytes hop{23, 0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9};
  ASSERT_EQ(setDesc(2, ACL_RULE_CMD_ACTIONPARAM, hop), 0);
  const AclActionEntry* e = aclActionEntryGet(record(2), RULE_ACTION_IP6OUTPUT_NEXTHOP, 23);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->len, 16);
}

TEST_F(RuleActions, BadItemsStoreNothing) {
  ASSERT_EQ(actions({RULE_ACTION_DSCP}), 0);
  const size_t before = relayCount();
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, {}), 0) << "empty: no relay";
  EXPECT_EQ(relayCount(), before);
  Bytes items = item(9, 46);
  const Bytes bad = item(44, 1);
  items.insert(items.end(), bad.begin(), bad.end());
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, items), 22);
  EXPECT_EQ(relayCount(), before + 1) << "checked after the relay";
  EXPECT_FALSE(fieldBit(1, RULE_BIT_ACTIONPARAM));
  EXPECT_EQ(aclActionEntryGet(record(1), RULE_ACTION_DSCP, 9), nullptr);
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, {9, 0, 0}), 22) << "a cut item";
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, {23, 0, 0, 0, 1}), 22) << "a cut 16-byte item";
}

TEST_F(RuleActions, MultiPortRedirectNeedsItsSupport) {
  ASSERT_EQ(actions({RULE_ACTION_OUTPUT_PORT}), 0);
  for (uint8_t code = 12; code <= 18; ++code) {
    EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(code, 1)), ACL_ERR_MULTI_REDIRECT)
        << int{code};
  }
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(11, 1)), 0);
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(19, 1)), 0);

  restart({{"acl.multiredirectenable", "true"}});
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(actions({RULE_ACTION_OUTPUT_PORT}), 0);
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(15, 0x80)), 0);
  // The second 16 bytes of the port set make the second entry.
  EXPECT_NE(aclActionEntryGet(record(1), RULE_ACTION_OUTPUT_PORT, 15), nullptr);
}

TEST_F(RuleActions, OutActionsAndTheirParameters) {
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({1, 4}, 2)), 0);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_OUTACTION), bits({1, 4}, 2));
  EXPECT_TRUE(fieldBit(1, RULE_BIT_OUTACTION));
  // Without TLV rules out-action bit b is kept as code 64 + b.
  EXPECT_NE(aclActionEntryGet(record(1), 65, ACL_ACTION_NO_SLOT), nullptr);

  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, Bytes(7, 0)), 22);
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, {6, 0, 0, 0, 1}), 22) << "code 6";
  EXPECT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, {}), 0);
  EXPECT_FALSE(fieldBit(1, RULE_BIT_OUTACTIONPARAM));
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, {0, 0, 0, 0, 46, 3, 0, 0, 0, 5}), 0);
  const Bytes block = getDesc(1, ACL_RULE_CMD_OUTACTIONPARAM);
  ASSERT_EQ(block.size(), ACL_OUT_ACTION_PARAM_LEN);
  EXPECT_EQ(be::load32(block, 0), 46u);
  EXPECT_EQ(be::load32(block, 12), 0u) << "a parameter without its out-action is not kept";
  EXPECT_NE(aclActionEntryGet(record(1), 68, 0), nullptr);

  // Out-action bit 0 takes them all.
  ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({0}, 2)), 0);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_OUTACTION).size(), 0u);
  EXPECT_EQ(getDesc(1, ACL_RULE_CMD_OUTACTIONPARAM).size(), 0u);
  EXPECT_EQ(aclActionFirst(record(1)), nullptr);
}

}  // namespace
