// The action conflict check, rule by rule in its order, and the hardware support query.
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <vector>

#include "platform/fault.h"
#include "platform/proc.h"
#include "platform/vdev/model.h"
#include "store/acl_conflict.h"
#include "wire/acl_bits.h"
#include "wire/acl_ret.h"

namespace {

using Set = std::array<uint8_t, 8>;

Set bits(std::initializer_list<uint32_t> codes) {
  Set s{};
  for (uint32_t c : codes) aclBitSet(s, c);
  return s;
}

int32_t check(std::initializer_list<uint32_t> cur, std::initializer_list<uint32_t> req) {
  const Set c = bits(cur), r = bits(req);
  return aclRuleActionConflictCheck(c.data(), r.data());
}

TEST(Conflict, SubsetsAndUnrelatedAdditionsPass) {
  EXPECT_EQ(check({2}, {2}), 0);
  EXPECT_EQ(check({2}, {2, 38}), 0);
  EXPECT_EQ(check({}, {2, 3}), 0) << "only present actions are contradicted";
  EXPECT_EQ(check({38, 3}, {38}), 0);
  const Set s{};
  EXPECT_EQ(aclRuleActionConflictCheck(nullptr, s.data()), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclRuleActionConflictCheck(s.data(), nullptr), CMN_ERR_BAD_PARAM);
}

TEST(Conflict, PermitAndDeny) {
  EXPECT_EQ(check({3}, {2}), ACL_ERR_ACTION_PERMIT_DENY);
  EXPECT_EQ(check({2}, {3}), ACL_ERR_ACTION_PERMIT_DENY);
  // Permit/deny is decided before any later rule.
  EXPECT_EQ(check({2, 38}, {3, 15}), ACL_ERR_ACTION_PERMIT_DENY);
}

TEST(Conflict, RemarksRowByRow) {
  struct Row {
    uint32_t current;
    std::initializer_list<uint32_t> refused;
  };
  const Row rows[] = {{38, {19, 20, 15, 51, 52, 14}}, {15, {19, 20, 38, 51, 52}},
                      {14, {19, 20, 38, 51, 52}},     {19, {38, 20, 15, 51, 52, 14}},
                      {20, {38, 19, 15, 51, 52, 14}}, {51, {20, 19, 15, 38, 52, 14}},
                      {52, {20, 19, 15, 38, 51, 14}}};
  for (const Row& row : rows) {
    for (uint32_t req : row.refused) {
      const Set c = bits({row.current}), r = bits({req});
      EXPECT_EQ(aclRuleActionConflictCheck(c.data(), r.data()), ACL_ERR_ACTION_REMARK)
          << row.current << " + " << req;
    }
  }
  // TOS and PRECEDENCE combine, both ways.
  EXPECT_EQ(check({15}, {14}), 0);
  EXPECT_EQ(check({14}, {15}), 0);
  EXPECT_EQ(check({15, 14}, {15, 14, 2}), 0);
}

// Within each group any two different actions exclude each other.
TEST(Conflict, VlanRewritesOfOneTagAndForwardingExcludeEachOther) {
  const struct {
    std::vector<uint32_t> group;
    int32_t err;
  } groups[] = {{{25, 26, 27, 33, 31, 32}, ACL_ERR_ACTION_OUTER_VLAN},
                {{28, 29, 30, 36, 34, 35}, ACL_ERR_ACTION_INNER_VLAN},
                {{4, 7, 8, 6, 46, 50}, ACL_ERR_ACTION_FORWARD}};
  for (const auto& g : groups) {
    for (uint32_t a : g.group) {
      for (uint32_t b : g.group) EXPECT_EQ(check({a}, {b}), a == b ? 0 : g.err) << a << "," << b;
    }
  }
  // Forwarding and mirroring exclude each other; mirrors combine with each other.
  for (uint32_t a : groups[2].group) {
    for (uint32_t m : {16u, 17u, 18u}) {
      EXPECT_EQ(check({a}, {m}), ACL_ERR_ACTION_MIRROR) << a << "," << m;
      EXPECT_EQ(check({m}, {a}), ACL_ERR_ACTION_MIRROR) << m << "," << a;
    }
  }
  EXPECT_EQ(check({16}, {17, 18}), 0);
  EXPECT_EQ(check({4}, {4, 6}), ACL_ERR_ACTION_FORWARD);
  // One outer and one inner rewrite may combine.
  EXPECT_EQ(check({25}, {28}), 0);
  // The order of the rules: remarks, VLANs, forwarding, mirroring.
  EXPECT_EQ(check({38, 25}, {15, 26}), ACL_ERR_ACTION_REMARK);
  EXPECT_EQ(check({25, 4}, {26, 7}), ACL_ERR_ACTION_OUTER_VLAN);
  EXPECT_EQ(check({4, 16}, {7}), ACL_ERR_ACTION_FORWARD);
}

TEST(SupportQuery, HandsTheRequestToThePlatformAndItsAnswerBack) {
  plat::resetForTest();
  const uint8_t data[12] = {};
  EXPECT_EQ(actRuleActionHwSupportCheck(data, 12), 0);
  {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    d.model.actionSupportResult = 0x3E80010;
  }
  EXPECT_EQ(actRuleActionHwSupportCheck(data, 12), 0x3E80010);
  plat::resetForTest();
  plat::faultAdd({.call = "zorScalarGetApi", .cmd = 554u, .result = -7});
  EXPECT_EQ(actRuleActionHwSupportCheck(data, 12), -7);
  EXPECT_EQ(actRuleActionHwSupportCheck(data, 12), 0) << "the fault fired once";
  plat::resetForTest();
}

}  // namespace
