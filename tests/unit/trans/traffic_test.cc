// Traffic-policy forms: the match from the expanded rule must program the same bytes as the
// rule's own entries do; list, direction and action kind come from the policy.
#include "hw/acl_dev_traffic.h"
#include "store/acl_rule_trans.h"
#include "trans_fixture.h"

namespace transtest {
namespace {

class TrafficTest : public TransTest {
 protected:
  static Bytes param(AclRuleEntry* r) {
    Bytes p(ACL_RULE_PARAM_LEN, 0);
    EXPECT_EQ(aclRuleTrans(r, std::span<uint8_t, ACL_RULE_PARAM_LEN>(p.data(), p.size())), 0);
    return p;
  }
};

TEST_F(TrafficTest, Ipv4MatchEqualsTheRulesOwnRecordAndPolicyFieldsAreThePolicys) {
  list(2001);
  AclRuleEntry* r = rule(2001, 6);
  r->layerType = 2;
  // (code, word) pairs.
  const uint32_t words[] = {
      RULE_BIT_DTAG,      1,          RULE_BIT_IPVER,     1,      RULE_BIT_PROTOTYPE,      6,
      RULE_BIT_SRCADDR,   0xC0A80001, RULE_BIT_SRCPREFIX, 24,     RULE_BIT_DSTPORT,        443,
      RULE_BIT_IPDSCP,    10,         RULE_BIT_IPTTL,     64,     RULE_BIT_IPFRAGMENT,     1,
      RULE_BIT_IPOPTIONS, 1,          RULE_BIT_INPRI,     6,      RULE_BIT_OUTPRI,         2,
      RULE_BIT_OUTVID,    10,         RULE_BIT_ETHTYPE,   0x0800, RULE_BIT_MPLSLABEL1 + 1, 77,
      RULE_BIT_VXLANVNI,  5000};
  for (size_t i = 0; i < std::size(words); i += 2) value(r, words[i], num(words[i + 1], 4));
  value(r, RULE_BIT_SRCMAC, seq(0x10, 6));
  value(r, RULE_BIT_USERDEFINEDDATA1 + 1, seq(1, 12));
  action(r, RULE_ACTION_DENY, ACL_ACTION_NO_SLOT, {});
  action(r, RULE_ACTION_COS, 1, num(3, 4));
  r->meterId = 500;
  bit(r, RULE_BIT_CARID);
  r->counterId = 2;
  bit(r, RULE_BIT_COUNTERID);

  Bytes own(ACL_DEV_RECORD_LEN);
  ASSERT_EQ(aclDevTrans(r, own.data(), 1, 0, 0, 9, 0, 0, 0), 0u);
  const AclTrafficPolicyRule policy{4000, 1, 7, 1};
  const AclTrafficCounter ctr{2, 4};
  Bytes dev(ACL_DEV_RECORD_LEN, 0xEE);
  ASSERT_EQ(aclTrafficDevTrans(&policy, r, param(r), dev.data(), 0, 0, 9, &ctr, nullptr), 0u);

  Bytes want = own;
  want[94] = 0;  // userDataNum stays 0 on this path
  want[410] = 7;
  want[411] = 1;
  want[437] = 2;  // counter from the policy's record (counter 2 does not exist)
  want[438] = 4;
  want[476] = 0, want[477] = 0, want[478] = 0x0F, want[479] = 0xA0;
  EXPECT_EQ(diff(dev, want), "");
  EXPECT_EQ(dev[440] * 0x1000000 + dev[441] * 0x10000 + dev[442] * 0x100 + dev[443], 500);
}

TEST_F(TrafficTest, Ipv6FieldsAndMeterRecordAndMissingArguments) {
  list(3001);
  AclRuleEntry* r = rule(3001, 2);
  r->layerType = 2;
  value(r, RULE_BIT_IPVER, num(2, 4));
  value(r, RULE_BIT_HOPLIMIT, num(200, 4));
  value(r, RULE_BIT_TRAFFICCLASS, num(0x2E, 4));
  value(r, RULE_BIT_NEXTHEADER, num(17, 4));
  value(r, RULE_BIT_FLOWLABEL, num(0xABCDE, 4));
  r->meterId = 3;
  bit(r, RULE_BIT_METERID);
  const AclTrafficPolicyRule policy{3001, 0, 0, 0};
  const AclTrafficMeter m{1, 2, 3, 4000, 6000, 7000, 8000, 9000};
  Bytes dev(ACL_DEV_RECORD_LEN);
  const Bytes p = param(r);
  ASSERT_EQ(aclTrafficDevTrans(&policy, r, p, dev.data(), 1, 1, 2, nullptr, &m), 0u);
  EXPECT_EQ(Bytes(dev.begin() + 82, dev.begin() + 86), Bytes({200, 0x2E, 0, 0}));
  EXPECT_EQ(Bytes(dev.begin() + 88, dev.begin() + 93), Bytes({0, 0x0A, 0xBC, 0xDE, 17}));
  EXPECT_EQ(Bytes(dev.begin() + 436, dev.begin() + 463),
            (Bytes{1,    0,    0, 1, 0,    0,    0x0F, 0xA0, 0,    0,    0x17, 0x70, 0, 0,
                   0x1B, 0x58, 0, 0, 0x1F, 0x40, 0,    0,    0x23, 0x28, 1,    2,    3}));

  // TLV: header from the policy and the classifier, meter items from the record, and the copy
  // is exactly the message.
  Bytes buf(ACL_TRAFFIC_TLV_MAX + 8, 0xEE);
  uint16_t len = 0;
  ASSERT_EQ(aclTrafficDevTransTlv(&policy, r, 3, 1, 0, 2, nullptr, &m, buf.data(), &len), 0u);
  const uint16_t ruleLen = 2 + 5 * 6, actionLen = 2 + 8 * 6;
  ASSERT_EQ(len, 36 + ruleLen + actionLen);
  EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 8), Bytes({0, 3, 0, 0, 1, 0, 0, 2}));
  EXPECT_EQ(Bytes(buf.begin() + 16, buf.begin() + 24), Bytes({0, 0, 0x0B, 0xB9, 0, 0, 0, 2}));
  EXPECT_EQ(buf[len], 0xEE);
  const size_t act = 36 + ruleLen + 2;
  const std::vector<std::pair<uint8_t, uint32_t>> items = {
      {65, 3}, {66, 1}, {67, 2}, {68, 4000}, {70, 6000}, {69, 7000}, {72, 8000}, {71, 9000}};
  for (size_t i = 0; i < items.size(); ++i) {
    EXPECT_EQ(
        Bytes(buf.begin() + act + 6 * i, buf.begin() + act + 6 * i + 6),
        (Bytes{items[i].first, 4, 0, 0, uint8_t(items[i].second >> 8), uint8_t(items[i].second)}))
        << i;
  }

  EXPECT_EQ(aclTrafficDevTrans(nullptr, r, p, dev.data(), 0, 0, 0, nullptr, nullptr),
            uint32_t(CMN_ERR_BAD_PARAM));
  EXPECT_EQ(aclTrafficDevTrans(&policy, r, std::span(p).first(100), dev.data(), 0, 0, 0, nullptr,
                               nullptr),
            uint32_t(CMN_ERR_BAD_PARAM));
  EXPECT_EQ(aclTrafficDevTransTlv(&policy, r, 2, 0, 0, 0, nullptr, nullptr, buf.data(), nullptr),
            uint32_t(CMN_ERR_BAD_PARAM));
}

}  // namespace
}  // namespace transtest
