// The virtual device decodes what it holds: one rule installed once as a record and once as a TLV
// message reads back as the same content, with names and values as configured.
#include "platform/vdev/decode.h"
#include "platform/hwil.h"
#include "platform/vdev/control.h"
#include "trans_fixture.h"

namespace transtest {
namespace {

using nlohmann::json;

class DecodeTest : public TransTest {
 protected:
  // A rule with fields of every kind, multi-chunk actions, out-actions and policing.
  AclRuleEntry* richRule() {
    list(3001);
    meter(2, {1, 2, 3, 4000, 0, 6000, 7000, 0, 9000});
    counter(4, 2, 4);
    AclRuleEntry* r = rule(3001, 9);
    r->layerType = 2;
    value(r, RULE_BIT_IPVER, num(2, 4));
    value(r, RULE_BIT_SRCADDR, seq(0x20, 16));
    value(r, RULE_BIT_DSTADDR, num(0x0A000001, 4));
    value(r, RULE_BIT_DSTPORT, num(0x10050, 4));  // cut to 16 bits in both forms
    value(r, RULE_BIT_SRCMAC, seq(0xA0, 6));
    value(r, RULE_BIT_FLOWLABEL, num(0xABCDE, 4));
    value(r, RULE_BIT_USERDEFINEDDATA1 + 3, seq(1, 12));
    value(r, RULE_BIT_LLID, num(5, 4));  // no place in the record: decoded from neither
    r->meterId = 2;
    bit(r, RULE_BIT_METERID);
    r->counterId = 4;
    bit(r, RULE_BIT_COUNTERID);
    action(r, RULE_ACTION_DENY, ACL_ACTION_NO_SLOT, {});
    action(r, RULE_ACTION_OUTPUT_PORT, 11, seq(0x10, 16));
    action(r, RULE_ACTION_OUTPUT_PORT, 15, seq(0x30, 16));
    action(r, RULE_ACTION_COS, 1, num(0, 4));  // a zero parameter is still an action
    action(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 23, seq(0x40, 16));
    action(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 27, seq(0x50, 16));
    action(r, 76, ACL_ACTION_NO_SLOT, {});  // out-action bit 1
    action(r, 79, 0, num(0x2E, 4));         // out-action bit 4, word 0
    aclBitSet(r->outActionBits, 1);
    aclBitSet(r->outActionBits, 4);
    return r;
  }
};

TEST_F(DecodeTest, BothFormsOfOneRuleDecodeToTheSameContent) {
  AclRuleEntry* r = richRule();
  Bytes dev(ACL_DEV_RECORD_LEN);
  ASSERT_EQ(aclDevTrans(r, dev.data(), 1, 0, 0, 0x1009, 0, 0, 0), 0u);
  Bytes msg(ACL_DEV_TLV_BUF_LEN);
  uint16_t len = 0;
  ASSERT_EQ(aclDevTransNew(r, 1, 0, 0, 0, 0x1009, 0, 0, 0, 0, 0, msg.data(), &len), 0u);
  msg.resize(len);

  const json fromRecord = vdev::decodeHwRule(dev, false);
  const json fromTlv = vdev::decodeHwRule(msg, true);
  EXPECT_EQ(fromRecord, fromTlv) << fromRecord.dump(1) << "\n" << fromTlv.dump(1);

  const json want = json::parse(R"({
    "list": 3001, "rule": 9, "direction": 1, "priority": 4105, "layerType": 2,
    "fields": [
      {"name": "RULE_BIT_IPVER", "value": 2},
      {"name": "RULE_BIT_SRCADDR", "value": "2021:2223:2425:2627:2829:2a2b:2c2d:2e2f"},
      {"name": "RULE_BIT_DSTADDR", "value": "10.0.0.1"},
      {"name": "RULE_BIT_DSTPORT", "value": 80},
      {"name": "RULE_BIT_FLOWLABEL", "value": 703710},
      {"name": "RULE_BIT_SRCMAC", "value": "a0:a1:a2:a3:a4:a5"},
      {"name": "RULE_BIT_USERDEFINEDDATA4",
       "value": {"data": 16909060, "mask": 84281096, "offset": 151653132}}],
    "actions": [
      {"name": "RULE_ACTION_DENY"},
      {"name": "RULE_ACTION_OUTPUT_PORT", "value": "101112131415161718191a1b1c1d1e1f"},
      {"name": "RULE_ACTION_OUTPUT_PORT2", "value": "303132333435363738393a3b3c3d3e3f"},
      {"name": "RULE_ACTION_COS", "value": "00000000"},
      {"name": "RULE_ACTION_IP6OUTPUT_NEXTHOP", "value": "404142434445464748494a4b4c4d4e4f"},
      {"name": "RULE_ACTION_IP6OUTPUT_NEXTHOP2", "value": "505152535455565758595a5b5c5d5e5f"}],
    "outActions": [
      {"name": "RULE_ACTION_OUTDROP"},
      {"name": "RULE_ACTION_OUTRPDSCP", "value": "0000002e"}],
    "policing": {"meterType": 1, "meterMode": 2, "carType": 3, "cir": 4000, "pir": 6000,
                 "cbs": 7000, "pbs": 9000, "counterType": 2, "counterColor": 4}
  })");
  EXPECT_EQ(fromTlv, want) << fromTlv.dump(1);
}

TEST_F(DecodeTest, MalformedFormsAreReportedNotRead) {
  EXPECT_TRUE(vdev::decodeHwRule(Bytes(100, 0), false).contains("error"));
  EXPECT_TRUE(vdev::decodeHwRule(Bytes(20, 0), true).contains("error"));
  Bytes msg(40, 0);
  msg[35] = 4, msg[37] = 2, msg[39] = 2;
  EXPECT_FALSE(vdev::decodeHwRule(msg, true).contains("error"));
  msg[34] = 1;  // tlvBufferLen past the message
  EXPECT_TRUE(vdev::decodeHwRule(msg, true).contains("error"));
  // An item that claims more bytes than its section holds.
  Bytes bad = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 0,
               0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 8, 0, 6, 7, 16, 0, 0, 0, 2};
  const json d = vdev::decodeHwRule(bad, true);
  EXPECT_EQ(d["error"], "a field item runs past the rule section");
  EXPECT_TRUE(d["fields"].empty());
}

}  // namespace
}  // namespace transtest
