#include "store/acl_conflict.h"

#include <array>
#include <span>

#include "platform/hwil.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace {

using Bits = std::span<const uint8_t, 8>;

bool has(Bits set, uint32_t code) {
  return aclBitTest(set, code);
}

template <size_t N>
bool hasAny(Bits set, const std::array<uint32_t, N>& codes) {
  for (uint32_t c : codes) {
    if (has(set, c)) return true;
  }
  return false;
}

// A remark action already present, and the requested remarks it cannot live with. TOS and
// PRECEDENCE may be combined; every other pair of remarks conflicts.
struct RemarkRule {
  uint32_t current;
  std::array<uint32_t, 6> refused;
  size_t count;
};
constexpr std::array<RemarkRule, 7> kRemarkRules = {{
    {RULE_ACTION_DSCP, {19, 20, 15, 51, 52, 14}, 6},
    {RULE_ACTION_TOS, {19, 20, 38, 51, 52}, 5},
    {RULE_ACTION_PRECEDENCE, {19, 20, 38, 51, 52}, 5},
    {RULE_ACTION_PRI2TOS, {38, 20, 15, 51, 52, 14}, 6},
    {RULE_ACTION_TOS2PRI, {38, 19, 15, 51, 52, 14}, 6},
    {RULE_ACTION_PRI2PRECEDENCE, {20, 19, 15, 38, 52, 14}, 6},
    {RULE_ACTION_PRECEDENCE2PRI, {20, 19, 15, 38, 51, 14}, 6},
}};

constexpr std::array<uint32_t, 6> kOuterVlan = {25, 26, 27, 33, 31, 32};
constexpr std::array<uint32_t, 6> kInnerVlan = {28, 29, 30, 36, 34, 35};
constexpr std::array<uint32_t, 6> kForward = {4, 7, 8, 6, 46, 50};
constexpr std::array<uint32_t, 3> kMirror = {16, 17, 18};

// One of group is in a and another one of group is in b.
bool exclusive(Bits a, Bits b, const std::array<uint32_t, 6>& group) {
  for (uint32_t x : group) {
    if (!has(a, x)) continue;
    for (uint32_t y : group) {
      if (y != x && has(b, y)) return true;
    }
  }
  return false;
}

}  // namespace

int32_t aclRuleActionConflictCheck(const uint8_t* currentBits, const uint8_t* requestedBits) {
  if (currentBits == nullptr || requestedBits == nullptr) return CMN_ERR_BAD_PARAM;
  const Bits cur(currentBits, 8);
  const Bits req(requestedBits, 8);
  bool subset = true;
  for (size_t i = 0; i < 8; ++i) subset = subset && (req[i] & ~cur[i]) == 0;
  if (subset) return 0;

  if ((has(req, RULE_ACTION_PERMIT) && has(cur, RULE_ACTION_DENY)) ||
      (has(req, RULE_ACTION_DENY) && has(cur, RULE_ACTION_PERMIT))) {
    return ACL_ERR_ACTION_PERMIT_DENY;
  }
  for (const RemarkRule& r : kRemarkRules) {
    if (!has(cur, r.current)) continue;
    for (size_t i = 0; i < r.count; ++i) {
      if (has(req, r.refused[i])) return ACL_ERR_ACTION_REMARK;
    }
  }
  if (exclusive(cur, req, kOuterVlan)) return ACL_ERR_ACTION_OUTER_VLAN;
  if (exclusive(cur, req, kInnerVlan)) return ACL_ERR_ACTION_INNER_VLAN;
  if (exclusive(req, cur, kForward)) return ACL_ERR_ACTION_FORWARD;
  if (hasAny(cur, kForward) && hasAny(req, kMirror)) return ACL_ERR_ACTION_MIRROR;
  if (hasAny(cur, kMirror) && hasAny(req, kForward)) return ACL_ERR_ACTION_MIRROR;
  return 0;
}

int32_t actRuleActionHwSupportCheck(const void* data, uint16_t len) {
  // The platform's request descriptor: query 554 on len bytes at data, flag 1, word 0x80000000.
  ZorScalarReq req{ZOR_SCALAR_ACTION_SUPPORT, const_cast<void*>(data), 1, len, 0x80000000u, 0};
  return zorScalarGetApi(0, 0, &req);
}
