// Field commands of the rule table: every plain value stored under its field code and read back,
// the shifted ones, the 65535 defaults, the values kept in the rule record, and the descriptor
// commands at each edge of their lengths, before or after the relay.
#include <utility>

#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::Key;
using ruletest::RuleApiTest;

class RuleFields : public RuleApiTest {
 protected:
  void SetUp() override {
    RuleApiTest::SetUp();
    ASSERT_EQ(create(1), 0);
  }
  static uint32_t storedWord(uint32_t rule, uint8_t code) {
    const AclValueEntry* e = aclRuleValueEntryGet(record(rule), code);
    return e != nullptr ? aclValueWord(e) : 0xDEADBEEF;
  }
  static size_t entries(uint32_t rule, uint8_t code) {
    size_t n = 0;
    AclRuleEntry* r = record(rule);
    for (AclValueEntry* e = aclValueFirst(r); e != nullptr; e = aclValueNext(r, e)) {
      n += e->code == code ? 1 : 0;
    }
    return n;
  }
};

// The set table of plain values: command id and field code.
struct CmdCode {
  uint32_t cmd, code;
};
constexpr CmdCode kPlainValues[] = {
    {2, 0},   {3, 1},   {5, 5},   {6, 6},   {7, 3},   {9, 8},   {12, 11}, {14, 13}, {15, 14},
    {16, 15}, {17, 16}, {18, 17}, {21, 20}, {22, 21}, {23, 22}, {24, 23}, {25, 24}, {26, 25},
    {27, 26}, {28, 27}, {29, 28}, {30, 29}, {31, 31}, {32, 32}, {33, 4},  {35, 36}, {38, 39},
    {45, 46}, {46, 47}, {47, 48}, {49, 50}, {50, 51}, {51, 30}, {52, 33}, {62, 56}, {63, 57},
    {64, 58}, {65, 59}, {66, 60}, {67, 61}, {68, 62}, {69, 63}, {70, 64}, {71, 70}, {72, 71},
    {76, 66}, {77, 67}, {78, 68}, {79, 69}, {80, 72}, {85, 78}, {86, 79}};

TEST_F(RuleFields, EveryPlainValueIsStoredUnderItsCodeAndReadBack) {
  for (const auto& [cmd, code] : kPlainValues) {
    const uint32_t v = 0x10000 + cmd;
    const size_t before = relayCount();
    ASSERT_EQ(set(1, cmd, v), 0) << cmd;
    EXPECT_EQ(std::make_tuple(relayCount(), storedWord(1, static_cast<uint8_t>(code)),
                              fieldBit(1, code), get(1, cmd)),
              std::make_tuple(before + 1, v, true, v))
        << cmd;
  }
  // The relay carries the rule key, the value word and the options of the rule family.
  const vdev::Relay r = lastRelay();
  const Key key(kList, 1);
  EXPECT_EQ(std::make_tuple(r.cmd, r.keyBytes, r.data, be::load32(r.options, 0),
                            be::load32(r.options, 4), be::load32(r.options, 16)),
            std::make_tuple(0x08CDC000u + 86, Bytes(key.bytes.begin(), key.bytes.end()),
                            Bytes{0, 1, 0, 86}, 3u, 12u, 4u));
  // Setting a field again changes its one value.
  ASSERT_EQ(set(1, 14, 8080), 0);
  EXPECT_EQ(std::make_pair(get(1, 14), entries(1, RULE_BIT_SRCPORT)), std::make_pair(8080u, 1ul));
}

TEST_F(RuleFields, ShiftedValuesAndDefaults) {
  // ToS, DSCP and precedence are kept in their position in the byte: (cmd, code, value, kept).
  const uint32_t shifted[][4] = {{19, RULE_BIT_IPTOS, 46, 92},
                                 {20, RULE_BIT_IPDSCP, 46, 184},
                                 {74, RULE_BIT_IPPRECEDENCE, 5, 160}};
  for (const auto& [cmd, code, v, kept] : shifted) {
    ASSERT_EQ(set(1, cmd, v), 0) << cmd;
    EXPECT_EQ(std::make_pair(storedWord(1, static_cast<uint8_t>(code)), get(1, cmd)),
              std::make_pair(kept, v))
        << cmd;
  }
  const Bytes bits = getDesc(1, ACL_RULE_CMD_FIELD_BITS);
  EXPECT_TRUE(aclBitTest(bits, 18) && aclBitTest(bits, 19) && aclBitTest(bits, 65));

  // Absent fields read 0, protocol type and subtype 65535.
  ASSERT_EQ(create(2), 0);
  std::vector<uint32_t> absent;
  for (uint32_t cmd : {5u, 6u, 2u, 3u, 7u, 14u, 19u, 20u, 74u, 86u}) absent.push_back(get(2, cmd));
  EXPECT_EQ(absent, (std::vector<uint32_t>{65535, 65535, 0, 0, 0, 0, 0, 0, 0, 0}));
  for (uint32_t v : {6u, 17u}) {  // overwritten in place
    ASSERT_EQ(set(2, 5, v), 0);
    EXPECT_EQ(std::make_pair(get(2, 5), entries(2, RULE_BIT_PROTOTYPE)), std::make_pair(v, 1ul));
  }
}

TEST_F(RuleFields, LayerTypeAndMulticastGemLiveInTheRecord) {
  ASSERT_EQ(set(1, ACL_RULE_CMD_LAYERTYPE, 0x1234), 0);
  EXPECT_EQ(std::make_tuple(record(1)->layerType, get(1, ACL_RULE_CMD_LAYERTYPE),
                            fieldBit(1, RULE_BIT_LAYERTYPE)),
            std::make_tuple(0x34, 0x34u, true));
  ASSERT_EQ(set(1, ACL_RULE_CMD_MULTICASTGEM, 7), 0);
  EXPECT_EQ(std::make_pair(get(1, ACL_RULE_CMD_MULTICASTGEM), fieldBit(1, RULE_BIT_MULTICASTGEM)),
            std::make_pair(1u, true));
  ASSERT_EQ(set(1, ACL_RULE_CMD_MULTICASTGEM, 0), 0);
  EXPECT_EQ(get(1, ACL_RULE_CMD_MULTICASTGEM), 0u);
  EXPECT_EQ(aclValueFirst(record(1)), nullptr) << "neither has a value entry";
}

TEST_F(RuleFields, AddressesTakeFourOrSixteenBytes) {
  const Bytes v4{10, 1, 2, 3};
  const Bytes v6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  for (uint32_t cmd : {8u, 10u, 11u, 13u}) {
    const uint8_t code = aclRuleSetCmd(cmd).code;
    ASSERT_EQ(setDesc(1, cmd, v4), 0) << cmd;
    EXPECT_EQ(std::make_pair(getDesc(1, cmd), fieldBit(1, code)), std::make_pair(v4, true)) << cmd;
    // A longer address replaces the shorter one, from the other pool; a short read is clamped.
    ASSERT_EQ(setDesc(1, cmd, v6), 0) << cmd;
    EXPECT_EQ(std::make_tuple(getDesc(1, cmd), entries(1, code), getDesc(1, cmd, 5)),
              std::make_tuple(v6, 1ul, Bytes(v6.begin(), v6.begin() + 5)))
        << cmd;
  }
  const vdev::Relay r = lastRelay();
  EXPECT_EQ(std::make_tuple(r.cmd, be::load32(r.options, 0), be::load32(r.options, 16), r.data),
            std::make_tuple(0x08CDC000u + 13, 0x80000003u, 16u, v6));
}

TEST_F(RuleFields, BadAddressLengthsAreRefusedBeforeOrAfterTheRelay) {
  for (uint32_t len : {0u, 3u, 5u, 6u, 15u, 17u}) {
    const Bytes bytes(len, 1);
    // The source address alone is relayed before its length is looked at.
    size_t before = relayCount();
    EXPECT_EQ(setDesc(1, 8, bytes), 22) << len;
    EXPECT_EQ(relayCount(), before + 1) << len;
    for (uint32_t cmd : {10u, 11u, 13u}) {
      before = relayCount();
      EXPECT_EQ(setDesc(1, cmd, bytes), 22) << cmd << " " << len;
      EXPECT_EQ(relayCount(), before) << cmd << " " << len;
    }
  }
  EXPECT_EQ(std::make_tuple(fieldBit(1, RULE_BIT_SRCADDR), aclValueFirst(record(1)),
                            getDesc(1, 8).size()),  // an absent address has length 0
            std::make_tuple(false, nullptr, 0ul));
  // A descriptor whose data address is missing.
  Key k(kList, 1);
  wire::BufDesc d{nullptr, 4};
  EXPECT_EQ(aclRuleSetApi(k.addr(), 11, reinterpret_cast<uintptr_t>(&d)), 22);
}

TEST_F(RuleFields, MacsTakeExactlySixBytes) {
  const Bytes mac{0x00, 0x1b, 0x21, 0x3c, 0x4d, 0x5e};
  const Bytes mask{0xff, 0xff, 0xff, 0, 0, 0};
  for (uint32_t len : {0u, 5u, 7u, 16u}) {
    for (uint32_t cmd : {34u, 36u, 37u, 39u}) {
      const size_t before = relayCount();
      EXPECT_EQ(setDesc(1, cmd, Bytes(len, 1)), 22) << cmd << " " << len;
      EXPECT_EQ(relayCount(), before) << cmd;
    }
  }
  // An absent MAC still answers six bytes; an absent mask answers none.
  EXPECT_EQ(std::make_pair(getDesc(1, 34), getDesc(1, 36)), std::make_pair(Bytes(6, 0), Bytes{}));
  const std::pair<uint32_t, Bytes> sets[] = {{34, mac}, {36, mask}, {37, mac}, {39, mask}};
  for (const auto& [cmd, bytes] : sets) ASSERT_EQ(setDesc(1, cmd, bytes), 0) << cmd;
  ASSERT_EQ(set(1, 35, 24), 0);
  for (const auto& [cmd, bytes] : sets) EXPECT_EQ(getDesc(1, cmd), bytes) << cmd;
  EXPECT_EQ(get(1, 35), 24u);
  EXPECT_EQ(getDesc(1, 34, 4), Bytes(mac.begin(), mac.begin() + 4));
  for (uint32_t code : {35u, 36u, 37u, 38u, 40u}) EXPECT_TRUE(fieldBit(1, code)) << code;
}

TEST_F(RuleFields, UserDefinedDataIsFourRecords) {
  Bytes udf(48);
  for (size_t i = 0; i < udf.size(); ++i) udf[i] = static_cast<uint8_t>(i + 1);
  EXPECT_EQ(getDesc(1, 48).size(), 0u);
  const size_t before = relayCount();
  EXPECT_EQ(setDesc(1, 48, Bytes(47, 1)), 22) << "too short for the four records";
  EXPECT_EQ(relayCount(), before);
  ASSERT_EQ(setDesc(1, 48, udf), 0);
  EXPECT_TRUE(fieldBit(1, RULE_BIT_USERDEFINED));
  for (uint32_t n = 0; n < 4; ++n) {
    const AclValueEntry* e =
        aclRuleValueEntryGet(record(1), static_cast<uint8_t>(RULE_BIT_USERDEFINEDDATA1 + n));
    EXPECT_TRUE(e != nullptr && e->len == 12) << n;
  }
  EXPECT_EQ(std::make_pair(getDesc(1, 48), getDesc(1, 48, 20)),
            std::make_pair(udf, Bytes(udf.begin(), udf.begin() + 20)));
  udf[0] = 0x99;
  ASSERT_EQ(setDesc(1, 48, udf), 0);
  EXPECT_EQ(std::make_pair(getDesc(1, 48), entries(1, RULE_BIT_USERDEFINEDDATA1)),
            std::make_pair(udf, 1ul));
}

TEST_F(RuleFields, UnknownCommandsAnswerMinusOne) {
  for (uint32_t cmd : {0u, 1u, 44u, 59u, 60u, 61u, 73u, 75u, 81u, 82u, 83u, 87u, 88u, 200u}) {
    const size_t before = relayCount();
    EXPECT_EQ(set(1, cmd, 1), -1) << cmd;
    EXPECT_EQ(relayCount(), before) << cmd;
  }
  for (uint32_t cmd : {1u, 44u, 58u, 59u, 60u, 61u, 73u, 81u, 82u, 83u, 89u, 300u}) {
    int32_t ret = 0;
    get(1, cmd, &ret);
    EXPECT_EQ(ret, -1) << cmd;
  }
}

TEST_F(RuleFields, RecordCommandsOfTheGet) {
  ASSERT_EQ(set(1, 14, 80), 0);
  ASSERT_EQ(set(1, 43, 1), 0);
  // The image of the rule record: list, rule, field bits, ..., status, time range.
  const Bytes img = getDesc(1, ACL_RULE_CMD_RULE_IMAGE);
  ASSERT_EQ(img.size(), ACL_RULE_IMAGE_LEN);
  EXPECT_EQ(
      std::make_tuple(be::load32(img, ACL_RULE_IMAGE_LST), be::load32(img, ACL_RULE_IMAGE_RULE),
                      aclBitTest(std::span(img).subspan(ACL_RULE_IMAGE_FIELD_BITS, 12), 13),
                      img[ACL_RULE_IMAGE_STATUS], be::load16(img, ACL_RULE_IMAGE_TR_IDX)),
      std::make_tuple(kList, 1u, true, 3, 1u));
  // Short reads are cut; field bits are 12 bytes at most.
  EXPECT_EQ(std::make_tuple(getDesc(1, ACL_RULE_CMD_RULE_IMAGE, 10).size(), getDesc(1, 0).size(),
                            getDesc(1, 0, 3).size()),
            std::make_tuple(10u, 12u, 3u));
  // A get without a buffer.
  Key k(kList, 1);
  EXPECT_EQ(aclRuleGetApi(k.addr(), 14, 0), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclRuleGetApi(k.addr(), 0, 0), CMN_ERR_BAD_PARAM);
}

}  // namespace
