// Set commands that change several things (field bit and value, action bits and their entries,
// parameters, the four user-defined records, a meter and its reference) and are refused midway:
// the rule reads back as it was, and no pool keeps an entry for it.
#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::RuleApiTest;

using PoolField = SIL_POOL_ID AclGroup::*;

class RuleRefusal : public RuleApiTest {
 protected:
  // Everything the rule answers, byte for byte (the image holds the bits and the ids), and the
  // references of meter 1.
  static std::vector<Bytes> readBack() {
    std::vector<Bytes> out;
    for (uint32_t cmd :
         {ACL_RULE_CMD_RULE_IMAGE, ACL_RULE_CMD_ACTIONPARAM, ACL_RULE_CMD_OUTACTIONPARAM,
          ACL_RULE_CMD_USERDEFINED, ACL_RULE_CMD_SRCADDR}) {
      out.push_back(getDesc(1, cmd));
    }
    out.push_back({static_cast<uint8_t>(meterRefs(1))});
    return out;
  }
  static std::vector<uint32_t> poolsUsed() {
    std::vector<uint32_t> out;
    for (PoolField p : kEntryPools) out.push_back(used(gaclGrp.*p));
    return out;
  }
  // Takes entries of the pool until room are left.
  static void leaveRoom(PoolField pool, uint32_t room) {
    while (entries(gaclGrp.*pool) - used(gaclGrp.*pool) > room) {
      ASSERT_NE(silMemPoolAlloc(gaclGrp.*pool, nullptr), nullptr);
    }
  }
  static Bytes items(std::initializer_list<std::pair<uint8_t, uint32_t>> list) {
    Bytes out;
    for (auto [code, v] : list) {
      const Bytes one = item(code, v);
      out.insert(out.end(), one.begin(), one.end());
    }
    return out;
  }

  static constexpr PoolField kEntryPools[] = {&AclGroup::shortRulePool, &AclGroup::longRulePool,
                                              &AclGroup::shortActionPool,
                                              &AclGroup::longActionPool};
};

TEST_F(RuleRefusal, RefusedSetLeavesTheRuleAndThePoolsAsTheyWere) {
  struct Case {
    const char* name;
    uint32_t prepareCmd;  // a set made first (0: none), on top of ToS 46, PERMIT and INNER_DOT1P 3
    Bytes prepare;
    PoolField pool;  // the pool that runs short, or nullptr
    uint32_t room;
    uint32_t cmd;
    Bytes data;
    int32_t answer;
  };
  const Bytes v6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  const Case cases[] = {
      {"in-action bits, room for one of two entries", 0, Bytes{}, &AclGroup::shortActionPool, 1,
       ACL_RULE_CMD_ACTION, bits({RULE_ACTION_CPU, RULE_ACTION_LOOPBACK}), CMN_ERR_NO_RESOURCE},
      {"parameters overwriting one and adding another", ACL_RULE_CMD_ACTION,
       bits({RULE_ACTION_DSCP}), &AclGroup::shortActionPool, 0, ACL_RULE_CMD_ACTIONPARAM,
       items({{2, 5}, {9, 46}}), CMN_ERR_NO_RESOURCE},
      {"two redirect ports with multi-redirect off", ACL_RULE_CMD_ACTION,
       bits({RULE_ACTION_OUTPUT_PORT}), nullptr, 0, ACL_RULE_CMD_ACTIONPARAM,
       items({{11, 1}, {12, 1}}), ACL_ERR_MULTI_REDIRECT},
      {"out-action bits, room for one of two entries", 0, Bytes{}, &AclGroup::shortActionPool, 1,
       ACL_RULE_CMD_OUTACTION, bits({1, 2}, 2), CMN_ERR_NO_RESOURCE},
      {"out-action parameters, room for one of two", ACL_RULE_CMD_OUTACTION, bits({4, 5}, 2),
       &AclGroup::shortActionPool, 1, ACL_RULE_CMD_OUTACTIONPARAM,
       Bytes{0, 0, 0, 0, 46, 1, 0, 0, 0, 10}, CMN_ERR_NO_RESOURCE},
      {"user-defined records, room for two of four", 0, Bytes{}, &AclGroup::longRulePool, 2,
       ACL_RULE_CMD_USERDEFINED, Bytes(ACL_RULE_UDF_LEN, 7), CMN_ERR_NO_RESOURCE},
      {"an IPv4 source address replaced by an IPv6 one", ACL_RULE_CMD_SRCADDR, Bytes{192, 0, 2, 1},
       &AclGroup::longRulePool, 0, ACL_RULE_CMD_SRCADDR, v6, CMN_ERR_NO_RESOURCE},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart({});
    ASSERT_EQ(create(1), 0);
    ASSERT_EQ(set(1, 19, 46), 0);
    ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_PERMIT, RULE_ACTION_INNER_DOT1P})),
              0);
    ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(2, 3)), 0);
    if (c.prepareCmd != 0) {
      ASSERT_EQ(setDesc(1, c.prepareCmd, c.prepare), 0);
    }
    if (c.pool != nullptr) leaveRoom(c.pool, c.room);
    const auto rule = readBack();
    const auto pools = poolsUsed();

    EXPECT_EQ(setDesc(1, c.cmd, c.data), c.answer);
    EXPECT_EQ(readBack(), rule);
    EXPECT_EQ(poolsUsed(), pools);
  }

  // A meter that refuses the reference leaves the rule on the meter it had.
  validMeter(1);
  ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
  const auto rule = readBack();
  EXPECT_EQ(set(1, ACL_RULE_CMD_METERID, 3), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(readBack(), rule);
}

}  // namespace
