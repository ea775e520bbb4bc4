// Set commands that change several things (field bit and value, action bits and their entries,
// parameters, the four user-defined records, a meter and its reference) and are refused midway:
// the rule reads back as it was, and no pool keeps an entry for it.
#include <functional>

#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Bytes;
using ruletest::RuleApiTest;

using PoolField = SIL_POOL_ID AclGroup::*;

class RuleRefusal : public RuleApiTest {
 protected:
  // Everything the rule answers, byte for byte.
  static std::vector<Bytes> readBack() {
    std::vector<Bytes> out;
    for (uint32_t cmd :
         {ACL_RULE_CMD_RULE_IMAGE, ACL_RULE_CMD_FIELD_BITS, ACL_RULE_CMD_ACTION,
          ACL_RULE_CMD_ACTIONPARAM, ACL_RULE_CMD_OUTACTION, ACL_RULE_CMD_OUTACTIONPARAM,
          ACL_RULE_CMD_USERDEFINED, ACL_RULE_CMD_SRCADDR}) {
      out.push_back(getDesc(1, cmd));
    }
    out.push_back(num(get(1, 19)));  // ToS
    out.push_back(num(get(1, ACL_RULE_CMD_METERID)));
    out.push_back(num(static_cast<uint32_t>(meterRefs(1))));
    return out;
  }
  static Bytes num(uint32_t v) {
    Bytes b(4);
    be::store32(b, 0, v);
    return b;
  }
  static std::vector<uint32_t> poolsUsed() {
    std::vector<uint32_t> out;
    for (PoolField p : kEntryPools) out.push_back(used(gaclGrp.*p));
    return out;
  }
  // Takes entries of the pool until room are left.
  void leaveRoom(PoolField pool, uint32_t room) {
    while (entries(gaclGrp.*pool) - used(gaclGrp.*pool) > room) {
      void* e = silMemPoolAlloc(gaclGrp.*pool, nullptr);
      ASSERT_NE(e, nullptr);
      held_.push_back({gaclGrp.*pool, e});
    }
  }
  void releaseRoom() {
    for (auto [pool, e] : held_) silMemPoolFree(pool, e);
    held_.clear();
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
  std::vector<std::pair<SIL_POOL_ID, void*>> held_;
};

TEST_F(RuleRefusal, RefusedSetLeavesTheRuleAndThePoolsAsTheyWere) {
  struct Case {
    const char* name;
    std::function<void()> prepare;  // on top of ToS 46, PERMIT and INNER_DOT1P 3
    PoolField pool;                 // the pool that runs short, or nullptr
    uint32_t room;
    std::function<int32_t()> request;
    int32_t answer;
  };
  const Bytes v4{192, 0, 2, 1};
  const Bytes v6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  const Case cases[] = {
      {"in-action bits, room for one of two entries", [] {}, &AclGroup::shortActionPool, 1,
       [] {
         return setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_CPU, RULE_ACTION_LOOPBACK}));
       },
       CMN_ERR_NO_RESOURCE},
      {"parameters overwriting one and adding another",
       [] { ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_DSCP})), 0); },
       &AclGroup::shortActionPool, 0,
       [=] {
         return setDesc(1, ACL_RULE_CMD_ACTIONPARAM, items({{2, 5}, {9, 46}}));
       },
       CMN_ERR_NO_RESOURCE},
      {"a port set with the long action pool full",
       [] { ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_OUTPUT_PORT})), 0); },
       &AclGroup::longActionPool, 0,
       [=] {
         return setDesc(1, ACL_RULE_CMD_ACTIONPARAM, items({{2, 5}, {11, 0x10}}));
       },
       CMN_ERR_NO_RESOURCE},
      {"two redirect ports with multi-redirect off",
       [] { ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_OUTPUT_PORT})), 0); },
       nullptr, 0,
       [=] {
         return setDesc(1, ACL_RULE_CMD_ACTIONPARAM, items({{11, 1}, {12, 1}}));
       },
       ACL_ERR_MULTI_REDIRECT},
      {"out-action bits, room for one of two entries", [] {}, &AclGroup::shortActionPool, 1,
       [] {
         return setDesc(1, ACL_RULE_CMD_OUTACTION, bits({1, 2}, 2));
       },
       CMN_ERR_NO_RESOURCE},
      {"out-action parameters, room for one of two",
       [] {
         ASSERT_EQ(setDesc(1, ACL_RULE_CMD_OUTACTION, bits({4, 5}, 2)), 0);
       },
       &AclGroup::shortActionPool, 1,
       [] {
         return setDesc(1, ACL_RULE_CMD_OUTACTIONPARAM, {0, 0, 0, 0, 46, 1, 0, 0, 0, 10});
       },
       CMN_ERR_NO_RESOURCE},
      {"user-defined records, room for two of four", [] {}, &AclGroup::longRulePool, 2,
       [] { return setDesc(1, ACL_RULE_CMD_USERDEFINED, Bytes(ACL_RULE_UDF_LEN, 7)); },
       CMN_ERR_NO_RESOURCE},
      {"an IPv4 source address replaced by an IPv6 one",
       [=] { ASSERT_EQ(setDesc(1, ACL_RULE_CMD_SRCADDR, v4), 0); }, &AclGroup::longRulePool, 0,
       [=] { return setDesc(1, ACL_RULE_CMD_SRCADDR, v6); }, CMN_ERR_NO_RESOURCE},
      {"a plain value with the short value pool full", [] {}, &AclGroup::shortRulePool, 0,
       [] { return set(1, 20, 10); },  // DSCP: a new field
       CMN_ERR_NO_RESOURCE},
      {"a meter that refuses the reference",
       [] {
         validMeter(1);
         ASSERT_EQ(set(1, ACL_RULE_CMD_METERID, 1), 0);
       },
       nullptr, 0, [] { return set(1, ACL_RULE_CMD_METERID, 3); }, CMN_ERR_NOT_FOUND},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart({});
    ASSERT_EQ(create(1), 0);
    ASSERT_EQ(set(1, 19, 46), 0);
    ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTION, bits({RULE_ACTION_PERMIT, RULE_ACTION_INNER_DOT1P})),
              0);
    ASSERT_EQ(setDesc(1, ACL_RULE_CMD_ACTIONPARAM, item(2, 3)), 0);
    c.prepare();
    if (c.pool != nullptr) leaveRoom(c.pool, c.room);
    const auto rule = readBack();
    const auto pools = poolsUsed();

    EXPECT_EQ(c.request(), c.answer);
    EXPECT_EQ(readBack(), rule);
    EXPECT_EQ(poolsUsed(), pools);

    // With room the same request goes through: nothing of the refused one is in its way.
    releaseRoom();
    if (c.answer == CMN_ERR_NO_RESOURCE) {
      EXPECT_EQ(c.request(), 0);
    }
  }
}

}  // namespace
