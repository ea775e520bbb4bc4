// The translated forms of a rule through the get (75 and 87) and the two exported entry points:
// the hardware record only into an area that holds it, the TLV message only into 512 bytes.
#include "unit/ruleapi/rule_fixture.h"
#include "wire/acl_dev_layout.h"

namespace {

using ruletest::Bytes;
using ruletest::Key;
using ruletest::RuleApiTest;

class RuleDev : public RuleApiTest {
 protected:
  void SetUp() override {
    RuleApiTest::SetUp();
    ASSERT_EQ(create(3), 0);
    ASSERT_EQ(set(3, 14, 8080), 0);
    ASSERT_EQ(setDesc(3, 11, {192, 168, 1, 1}), 0);
    ASSERT_EQ(setDesc(3, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_DENY})), 0);
    record(3)->priority = 77;
  }
};

TEST_F(RuleDev, HardwareRecordOnlyIntoAWholeArea) {
  int32_t ret = -2;
  // A short area: 0, and nothing copied.
  Bytes got = getDesc(3, ACL_RULE_CMD_DEV_RECORD, 100, &ret);
  EXPECT_EQ(ret, 0);
  EXPECT_EQ(got, Bytes(100, 0xEE));
  got = getDesc(3, ACL_RULE_CMD_DEV_RECORD, 600, &ret);
  ASSERT_EQ(ret, 0);
  ASSERT_EQ(got.size(), 508u);
  // The rule's port, address and its own priority.
  EXPECT_EQ(std::make_tuple(be::load16(got, acldev::kSrcPort), be::load32(got, acldev::kDestAddr),
                            be::load16(got, acldev::kPriority)),
            std::make_tuple(8080u, 0xC0A80101u, 77u));

  // The exported entry point: the record into a 508-byte area.
  Bytes dev(508, 0);
  Key k(kList, 3);
  ASSERT_EQ(aclRuleDevTrans(k.addr(), reinterpret_cast<uintptr_t>(dev.data())), 0);
  EXPECT_EQ(dev, got);
  Key missing(kList, 4);
  EXPECT_EQ(aclRuleDevTrans(missing.addr(), reinterpret_cast<uintptr_t>(dev.data())),
            CMN_ERR_NOT_FOUND);
}

TEST_F(RuleDev, TlvMessageNeedsFiveHundredTwelveBytes) {
  Key k(kList, 3);
  EXPECT_EQ(aclRuleDevTransTlv(k.addr(), 0), CMN_ERR_BAD_PARAM);
  wire::BufDesc noData{nullptr, 512};
  EXPECT_EQ(aclRuleDevTransTlv(k.addr(), reinterpret_cast<uintptr_t>(&noData)), CMN_ERR_BAD_PARAM);
  int32_t ret = 0;
  getDesc(3, ACL_RULE_CMD_TLV, 511, &ret);
  EXPECT_EQ(ret, CMN_ERR_BUFFER_SHORT);

  aclListEntryGet(kList)->activeRuleNum = 5;
  Bytes tlv(512, 0);
  wire::BufDesc d{tlv.data(), 512};
  ASSERT_EQ(aclRuleDevTransTlv(k.addr(), reinterpret_cast<uintptr_t>(&d)), 0);
  ASSERT_GE(d.len, acldev::kTlvHeaderLen);
  EXPECT_LE(d.len, 512u);
  // The header's priority is the rule number, not the rule's priority.
  EXPECT_EQ(std::make_tuple(
                tlv[acldev::kTlvOper], tlv[acldev::kTlvDir], be::load32(tlv, acldev::kTlvLstIdx),
                be::load32(tlv, acldev::kTlvRuleIdx), be::load32(tlv, acldev::kTlvActiveRuleNum),
                be::load16(tlv, acldev::kTlvPriority)),
            std::make_tuple(0, 0, kList, 3u, 5u, 3u));
}

}  // namespace
