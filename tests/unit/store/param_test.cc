// Parameter blocks both ways (in-actions, and out-actions of TLV rules) and the expansion of a
// rule into the rule parameter record. Action bits becoming entries, and out-actions without TLV
// rules, are the rule table's tests' business.
#include <gtest/gtest.h>

#include <array>

#include "store/acl_action_param.h"
#include "store/acl_rule_trans.h"
#include "store_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace storetest {
namespace {

class ParamTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    list(1);
    r = rule(1, 1);
  }
  void setActions(std::initializer_list<uint32_t> codes) {
    std::copy(std::begin(r->actionBits), std::end(r->actionBits), std::begin(r->oldActionBits));
    for (uint32_t c : codes) aclBitSet(r->actionBits, c);
  }
  uint32_t actionCount() {
    uint32_t n = 0;
    for (AclActionEntry* e = aclActionFirst(r); e != nullptr; e = aclActionNext(r, e)) ++n;
    return n;
  }
  AclRuleEntry* r = nullptr;
};

TEST_F(ParamTest, InActionBlockRoundTrip) {
  setActions({RULE_ACTION_COS, RULE_ACTION_OUTPUT_PORT, RULE_ACTION_DA_REWRITE,
              RULE_ACTION_IP6OUTPUT_MULTIHOP, RULE_ACTION_TPID});
  std::array<uint8_t, ACL_ACTION_PARAM_LEN> in{};
  std::span<uint8_t> b(in);
  be::store32(b, 1 * 4, 5);                                        // COS, slot 1
  for (int i = 0; i < 32; ++i) b[11 * 4 + i] = uint8_t(0x10 + i);  // OUTPUT_PORT, 32 bytes
  for (int i = 0; i < 6; ++i) b[42 * 4 + i] = uint8_t(0xA0 + i);   // DA_REWRITE, 6 bytes
  for (int i = 0; i < 16; ++i) b[27 * 4 + i] = uint8_t(0xC0 + i);  // 2nd next hop only
  be::store32(b, 41 * 4, 0x8100);                                  // TPID
  ASSERT_EQ(aclActionParam2Entry(r, in), 0);
  EXPECT_EQ(aclActionEntryGet(r, RULE_ACTION_OUTPUT_PORT, 11)->len, 16);
  EXPECT_NE(aclActionEntryGet(r, RULE_ACTION_OUTPUT_PORT, 15), nullptr);
  // Zero chunks of the next-hop list create nothing.
  EXPECT_EQ(aclActionEntryGet(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 23), nullptr);
  EXPECT_NE(aclActionEntryGet(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 27), nullptr);
  EXPECT_EQ(aclActionEntryGet(r, RULE_ACTION_IP6OUTPUT_MULTIHOP, 31), nullptr);
  EXPECT_EQ(used(gaclGrp.longActionPool), 4u);   // two port chunks, DA, one next hop
  EXPECT_EQ(used(gaclGrp.shortActionPool), 2u);  // COS, TPID

  std::array<uint8_t, ACL_ACTION_PARAM_LEN> out;
  out.fill(0xEE);
  ASSERT_EQ(aclActionEntry2Param(r, out), 0);
  EXPECT_EQ(out, in);

  // A changed chunk is overwritten in place; the block reads back the change.
  b[15 * 4] = 0xFF;
  be::store32(b, 1 * 4, 6);
  ASSERT_EQ(aclActionParam2Entry(r, in), 0);
  EXPECT_EQ(used(gaclGrp.longActionPool), 4u);
  ASSERT_EQ(aclActionEntry2Param(r, out), 0);
  EXPECT_EQ(out, in);

  EXPECT_EQ(aclActionEntry2Param(r, std::span(out).first(175)), CMN_ERR_BUFFER_SHORT);
  EXPECT_EQ(aclActionEntry2Param(nullptr, out), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclActionParam2Entry(r, {}), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclActionParam2Entry(r, std::span(in).first(175)), CMN_ERR_BUFFER_SHORT);
}

TEST_F(ParamTest, OutActionsWithTlvUseTheirOwnCodes) {
  gaclGrp.tlvEnable = 1;
  aclBitSet(r->outActionBits, 1);
  aclBitSet(r->outActionBits, 9);  // YP CFI, word 5
  ASSERT_EQ(aclOutActionBit2Entry(r), 0);
  EXPECT_NE(aclActionEntryGet(r, 76, ACL_ACTION_NO_SLOT), nullptr);
  EXPECT_EQ(aclActionEntryGet(r, 65, ACL_ACTION_NO_SLOT), nullptr);
  std::array<uint8_t, ACL_OUT_ACTION_PARAM_LEN> in{};
  be::store32(std::span<uint8_t>(in), 20, 1);
  ASSERT_EQ(aclOutActionParam2Entry(r, in), 0);
  ASSERT_NE(aclActionEntryGet(r, 84, 5), nullptr);
  // A bit already there whose word is unchanged is left alone; a new bit takes its word even
  // when it is zero.
  std::copy(std::begin(r->outActionBits), std::end(r->outActionBits), r->oldOutActionBits);
  aclBitSet(r->oldOutActionBits, 8);
  aclBitSet(r->outActionBits, 8);
  aclBitSet(r->outActionBits, 4);
  ASSERT_EQ(aclOutActionParam2Entry(r, in), 0);
  EXPECT_EQ(aclActionEntryGet(r, 83, 4), nullptr);
  ASSERT_NE(aclActionEntryGet(r, 79, 0), nullptr);
  // A changed word of a bit already there is rewritten in place.
  be::store32(std::span<uint8_t>(in), 20, 2);
  ASSERT_EQ(aclOutActionParam2Entry(r, in), 0);
  EXPECT_EQ(aclActionValueWord(aclActionEntryGet(r, 84, 5)), 2u);
  // With TLV rules only codes 75..84 make the block.
  ASSERT_EQ(aclShortActionEntryAdd(r, 66, 1, in.data() + 20, 4), 0);
  std::array<uint8_t, ACL_OUT_ACTION_PARAM_LEN> out;
  ASSERT_EQ(aclOutActionEntry2Param(r, out), 0);
  EXPECT_EQ(out, in);
  aclOutActionListDel(r);
  EXPECT_EQ(actionCount(), 0u);
}

TEST_F(ParamTest, RuleTransExpandsEveryKindOfField) {
  std::array<uint8_t, ACL_RULE_PARAM_LEN> rec;
  rec.fill(0x5A);
  // Actions only: the caller's record is left as it was.
  ASSERT_EQ(aclShortActionEntryAdd(r, RULE_ACTION_PERMIT, 0, nullptr, 0), 0);
  ASSERT_EQ(aclRuleTrans(r, rec), 0);
  EXPECT_EQ(rec[0], 0x5A);
  EXPECT_EQ(rec[303], 0x5A);
  EXPECT_EQ(aclRuleTrans(nullptr, rec), -1);

  auto word = [&](uint32_t code, uint32_t v) {
    uint8_t b[4];
    be::store32(b, v);
    ASSERT_EQ(aclRuleShortEntryAdd(r, static_cast<uint8_t>(code), b, 4), 0);
    aclBitSet(r->fieldBits, code);
  };
  word(RULE_BIT_PROTOTYPE, 0x12345);  // u16 takes the low bits
  word(RULE_BIT_ENCAPTYPE, 0xFF);     // 3 bits
  word(RULE_BIT_IPVER, 2);
  word(RULE_BIT_IPOPTIONS, 1);
  word(RULE_BIT_HOPLIMIT, 0x40);  // a later code: the whole byte, options bit included
  word(RULE_BIT_NEXTHEADER, 6);
  word(RULE_BIT_FLOWLABEL, 0xFFFFF);
  word(RULE_BIT_IPTOS, 0x10);
  word(RULE_BIT_IPDSCP, 0x20);  // shares aclTosDscp and comes later
  word(RULE_BIT_OUTPRI, 5);
  word(RULE_BIT_INPRI, 3);
  word(RULE_BIT_DTAG, 1);
  word(RULE_BIT_ICMPTYPE, 8);  // shares srcPort and lies later in code order
  word(RULE_BIT_SRCPORT, 80);
  word(RULE_BIT_TCPFSM, 0x1FF);
  word(RULE_BIT_VRFID, 0xDEADBEEF);
  word(62, 0x12345);  // MPLS label 2
  word(RULE_BIT_UNTAGGED, 3);
  word(RULE_BIT_IPTOTALLEN, 1500);
  word(RULE_BIT_METERID, 9);  // kept in the rule: no place in the record
  const uint8_t addr[4] = {10, 0, 0, 1};
  ASSERT_EQ(aclRuleShortEntryAdd(r, RULE_BIT_SRCADDR, addr, 4), 0);
  const uint8_t mac[6] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
  ASSERT_EQ(aclRuleLongEntryAdd(r, RULE_BIT_DSTMAC, mac, 6), 0);
  uint8_t udf[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  ASSERT_EQ(aclRuleLongEntryAdd(r, 74, udf, 12), 0);
  r->layerType = 5;
  r->multicastGem = 1;

  ASSERT_EQ(aclRuleTrans(r, rec), 0);
  std::span<const uint8_t> s(rec);
  EXPECT_TRUE(std::equal(std::begin(r->fieldBits), std::end(r->fieldBits), rec.begin()));
  EXPECT_EQ(be::load16(s, ACL_RP_PROTO_TYPE), 0x2345u);
  EXPECT_EQ(rec[ACL_RP_ENCAP_LAYER_IPVER], (7 << 5) | (5 << 2) | 2);
  EXPECT_EQ(rec[ACL_RP_HOP_LIMIT], 0x40);
  EXPECT_EQ(rec[ACL_RP_TCP_FSM], 0xFF);
  EXPECT_EQ(be::load32(s, ACL_RP_FLOW), (6u << 24) | (0xFFFFFu << 4));
  EXPECT_EQ(rec[ACL_RP_TOS_DSCP], 0x20);
  EXPECT_EQ(rec[ACL_RP_DOT1P_FLAGS], 0x80 | (3 << 4) | (5 << 1));
  EXPECT_EQ(be::load16(s, ACL_RP_SRC_PORT), 8u);
  EXPECT_EQ(be::load32(s, ACL_RP_VRF_ID), 0xDEADBEEFu);
  EXPECT_EQ(be::load32(s, ACL_RP_MPLS_LABEL1 + 4), 0x12345u);
  EXPECT_EQ(be::load32(s, ACL_RP_FLAGS), ACL_RP_FLAG_MULTICAST_GEM | ACL_RP_FLAG_UNTAGGED);
  EXPECT_EQ(be::load32(s, ACL_RP_IP_TOTAL_LEN), 1500u);
  EXPECT_EQ(be::load32(s, ACL_RP_SRC_ADDR), 0x0A000001u);
  EXPECT_EQ(be::load32(s, ACL_RP_SRC_ADDR + 4), 0u);
  EXPECT_TRUE(std::equal(mac, mac + 6, rec.begin() + ACL_RP_DEST_MAC));
  EXPECT_TRUE(std::equal(udf, udf + 12, rec.begin() + ACL_RP_UDF_DATA1 + 12));
  EXPECT_EQ(rec[303], 0) << "the whole record was cleared first";
}

}  // namespace
}  // namespace storetest
