// The TLV message: header, the two self-counting sections at any offset, the type replacements and
// the appended CAR, counter and meter items.
#include "trans_fixture.h"

namespace transtest {
namespace {

class TlvTest : public TransTest {};

// The header tlv() writes for rule 1/ruleIdx with layer type 0: dir 1, counterShared 1, priority
// 0x1234, aggIfIndex 0x55, activeRuleNum 9, onu 7, GEM port 8.
Bytes header(uint32_t lstIdx, uint32_t ruleIdx, uint16_t tlvLen, uint8_t oper = 0,
             uint32_t gemPortVp = 0) {
  Bytes h = {0, oper, 0, 0, 1, 0, 1, 0, 0, 7, 0, 8};
  for (const Bytes& b : {num(gemPortVp, 4), num(lstIdx, 4), num(ruleIdx, 4), num(0x55, 4),
                         num(9, 4), num(0x1234, 2), num(tlvLen, 2)}) {
    h.insert(h.end(), b.begin(), b.end());
  }
  return h;
}

// One TLV item: type, length, value.
Bytes item(uint8_t type, const Bytes& value) {
  Bytes b = {type, uint8_t(value.size())};
  b.insert(b.end(), value.begin(), value.end());
  return b;
}

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

TEST_F(TlvTest, SectionsAtOddOffsetsWithTypeReplacementsAndCarItems) {
  list(3001);
  AclRuleEntry* r = rule(3001, 2);
  r->layerType = 3;
  value(r, RULE_BIT_IPVER, {2});  // a 1-byte value: the action section starts odd
  value(r, RULE_BIT_SRCMAC, seq(0xA0, 6));
  r->meterId = 2048;
  bit(r, RULE_BIT_CARID);
  action(r, RULE_ACTION_OUTPUT_PORT, 11, seq(0x10, 16));
  action(r, RULE_ACTION_OUTPUT_PORT, 15, seq(0x20, 16));
  action(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 23, seq(0x30, 16));
  action(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 27, seq(0x40, 16));
  action(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 31, seq(0x50, 16));
  action(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 35, seq(0x60, 16));
  action(r, RULE_ACTION_DENY, ACL_ACTION_NO_SLOT, {});

  const Bytes rules = cat({{3, 1, 2}, {35, 6}, seq(0xA0, 6)});  // 11 bytes of items
  const Bytes actions =
      cat({item(3, {}), item(4, seq(0x10, 16)), item(5, seq(0x20, 16)), item(46, seq(0x30, 16)),
           item(47, seq(0x40, 16)), item(48, seq(0x50, 16)), item(49, seq(0x60, 16)),
           item(65, num(3, 4)), item(66, num(1, 4)), item(68, num(2048, 4))});
  const uint16_t ruleLen = uint16_t(2 + rules.size());
  const uint16_t actionLen = uint16_t(2 + actions.size());
  Bytes want = cat({header(3001, 2, uint16_t(ruleLen + actionLen)), num(ruleLen, 2), rules,
                    num(actionLen, 2), actions});
  want[7] = 3;  // layer type
  const Bytes msg = tlv(r);
  EXPECT_EQ(ruleLen, 13);  // so the action length sits at odd offset 49
  EXPECT_EQ(diff(msg, want), "");
}

TEST_F(TlvTest, RulesOwnLayerTypeAndMulticastGemInTheHeader) {
  list(2001);
  AclRuleEntry* r = rule(2001, 1);
  r->layerType = 2;
  r->multicastGem = 1;
  value(r, RULE_BIT_LAYERTYPE, num(3, 4));
  const Bytes msg = tlv(r, 0, 0x42);
  EXPECT_EQ(msg[7], 2);
  EXPECT_EQ(Bytes(msg.begin() + 12, msg.begin() + 16), num(0xFFFFFFFF, 4));
  // The field item itself travels unchanged.
  EXPECT_EQ(Bytes(msg.begin() + 38, msg.begin() + 44), cat({{2, 4}, num(3, 4)}));
}

TEST_F(TlvTest, CounterAndMeterItemsInTheirOrderOnlyWhenReadable) {
  list(2001);
  meter(6, {11, 12, 13, 14, 15, 16, 17, 18, 19});
  counter(3, 2, 4);
  AclRuleEntry* r = rule(2001, 1);
  r->meterId = 6;
  r->counterId = 3;
  bit(r, RULE_BIT_METERID);
  bit(r, RULE_BIT_COUNTERID);
  Bytes msg = tlv(r);
  // Counter type and colour, then meter attributes 3, 1, 2, 4, 6, 7, 8, 9.
  Bytes actions;
  const uint8_t types[] = {73, 74, 65, 66, 67, 68, 70, 69, 72, 71};
  const uint32_t values[] = {2, 4, 13, 11, 12, 14, 16, 17, 18, 19};
  for (size_t k = 0; k < std::size(types); ++k) {
    const Bytes i = item(types[k], num(values[k], 4));
    actions.insert(actions.end(), i.begin(), i.end());
  }
  EXPECT_EQ(diff(msg, cat({header(2001, 1, uint16_t(4 + actions.size())),
                           {0, 2},
                           num(2 + actions.size(), 2),
                           actions})),
            "");

  // Neither exists: no items at all, and not an error; what is left is the header (its oper as
  // given) and two empty sections.
  AclRuleEntry* gone = rule(2001, 2);
  gone->meterId = 40;
  gone->counterId = 40;
  bit(gone, RULE_BIT_METERID);
  bit(gone, RULE_BIT_COUNTERID);
  msg = tlv(gone, 1);
  EXPECT_EQ(diff(msg, cat({header(2001, 2, 4, 1), {0, 2, 0, 2}})), "");
}

TEST_F(TlvTest, MissingArgumentsAndARuleTooLargeForTheBuffer) {
  list(3001);
  AclRuleEntry* r = rule(3001, 1);
  Bytes buf(ACL_DEV_TLV_BUF_LEN, 0);
  uint16_t len = 77;
  EXPECT_EQ(aclDevTransNew(nullptr, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, buf.data(), &len),
            uint32_t(CMN_ERR_BAD_PARAM));
  EXPECT_EQ(aclDevTransNew(r, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, nullptr, &len),
            uint32_t(CMN_ERR_BAD_PARAM));
  EXPECT_EQ(aclDevTransNew(r, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, buf.data(), nullptr),
            uint32_t(CMN_ERR_BAD_PARAM));
  EXPECT_EQ(len, 77);

  // 27 items of 18 bytes need 486 + 40 bytes: refused, nothing past the 512 bytes touched.
  for (uint32_t i = 0; i < 27; ++i) value(r, RULE_BIT_SRCADDR, seq(uint8_t(i), 16));
  Bytes big(ACL_DEV_TLV_BUF_LEN + 16, 0xEE);
  EXPECT_EQ(aclDevTransNew(r, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, big.data(), &len),
            uint32_t(CMN_ERR_BUFFER_SHORT));
  EXPECT_EQ(len, 77);
  EXPECT_EQ(Bytes(big.begin() + ACL_DEV_TLV_BUF_LEN, big.end()), Bytes(16, 0xEE));
}

}  // namespace
}  // namespace transtest
