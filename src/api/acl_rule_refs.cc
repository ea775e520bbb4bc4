// Set 40 to 43: the CAR id, the meter, the counter and the time range of a rule. Each of the last
// three is a reference the rule holds elsewhere, and the rule record says which: field bit
// RULE_BIT_METERID with meterId, RULE_BIT_COUNTERID with counterId, RULE_BIT_TRID with trIdx. Rule
// deletion releases exactly what the bits say, so every change here keeps bit and reference
// together: attaching another meter, counter or time range releases the one held before, and
// attaching the one already held changes no count.
#include <algorithm>
#include <array>

#include "api/acl_rule_internal.h"
#include "counter/counter.h"
#include "main/acl_group.h"
#include "meter/meter.h"
#include "platform/timerange.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

int32_t timeRangeUse(uint32_t id, int32_t delta) {
  std::array<uint8_t, 4> word;
  be::store32(word, 0, static_cast<uint32_t>(delta));
  return timerangeListSetApi(id, TIMERANGE_ATTR_REFCNT, word.data());
}

// A meter given up by the rule: its reference goes, and with it the out-actions that qualified
// the meter.
void meterDrop(AclRuleEntry* rule) {
  meterRefcount(rule->meterId, -1);
  aclBitClear(rule->fieldBits, RULE_BIT_METERID);
}

}  // namespace

int32_t aclRuleSetCarId(AclRuleSetCtx& c) {
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  // The CAR id takes the word the meter used: the meter is given up.
  if (aclBitTest(rule->fieldBits, RULE_BIT_METERID)) {
    meterDrop(rule);
    aclOutActionListDel(rule);
  }
  rule->meterId = aclRuleSetValue(c);
  aclBitSet(rule->fieldBits, RULE_BIT_CARID);
  return 0;
}

int32_t aclRuleSetMeterId(AclRuleSetCtx& c) {
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  const uint32_t v = aclRuleSetValue(c);
  const bool held = aclBitTest(rule->fieldBits, RULE_BIT_METERID);
  if (v == ACL_RULE_DETACH) {
    if (!held) return 0;
    if (int32_t ret = meterRefcount(rule->meterId, -1)) return ret;
    aclBitClear(rule->fieldBits, RULE_BIT_METERID);
    rule->meterId = 0;
    std::fill(std::begin(rule->outActionBits), std::end(rule->outActionBits), uint8_t{0});
    aclOutActionListDel(rule);
    aclBitClear(rule->fieldBits, RULE_BIT_OUTACTION);
    aclBitClear(rule->fieldBits, RULE_BIT_OUTACTIONPARAM);
    return 0;
  }
  if (!held || rule->meterId != v) {
    // A meter that refuses the reference refuses the request: the rule keeps what it had.
    if (int32_t ret = meterRefcount(v, +1)) return ret;
    if (held) meterDrop(rule);
    rule->meterId = v;
    aclBitSet(rule->fieldBits, RULE_BIT_METERID);
  }
  if (aclBitTest(rule->fieldBits, RULE_BIT_CARID)) {
    aclBitClear(rule->fieldBits, RULE_BIT_CARID);
    std::fill(std::begin(rule->outActionBits), std::end(rule->outActionBits), uint8_t{0});
  }
  return 0;
}

int32_t aclRuleSetCounterId(AclRuleSetCtx& c) {
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  const uint32_t v = aclRuleSetValue(c);
  const bool held = aclBitTest(rule->fieldBits, RULE_BIT_COUNTERID);
  if (v == ACL_RULE_DETACH) {
    if (held) {
      counterRefcount(rule->counterId, -1);
      rule->counterId = 0;
      aclBitClear(rule->fieldBits, RULE_BIT_COUNTERID);
    }
    return 0;
  }
  if (held && rule->counterId == v) return 0;
  if (held) counterRefcount(rule->counterId, -1);
  rule->counterId = v;
  aclBitSet(rule->fieldBits, RULE_BIT_COUNTERID);
  // The counter's answer does not change the rule's.
  counterRefcount(v, +1);
  return 0;
}

int32_t aclRuleSetTimeRange(AclRuleSetCtx& c) {
  // A valid rule may change its time range, but not while its list is bound.
  if (c.list->refCnt != 0) return ACL_ERR_SHARED_IN_USE;
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  const uint32_t v = aclRuleSetValue(c);
  const bool held = aclBitTest(rule->fieldBits, RULE_BIT_TRID) && rule->trIdx != 0;
  if (v == ACL_RULE_DETACH) {
    // When the service keeps the use, so does the rule: the two stay in step.
    if (held) {
      if (int32_t ret = timeRangeUse(rule->trIdx, -1)) return ret;
    }
    if (aclBitTest(rule->fieldBits, RULE_BIT_TRID)) {
      rule->trIdx = 0;
      rule->trActive = 0;
      aclBitClear(rule->fieldBits, RULE_BIT_TRID);
    }
    return 0;
  }
  std::array<uint8_t, 4> state{};
  if (int ret = timerangeListGetApi(v, TIMERANGE_ATTR_STATE, state.data())) return ret;
  const auto trIdx = static_cast<uint16_t>(v);
  if (!held || rule->trIdx != trIdx) {
    if (int32_t ret = timeRangeUse(v, +1)) return ret;
    if (held) {
      if (int32_t ret = timeRangeUse(rule->trIdx, -1)) {
        timeRangeUse(v, -1);
        return ret;
      }
    }
  }
  rule->trIdx = trIdx;
  rule->trActive = be::load32(state, 0) == 1 ? 1 : 0;
  aclBitSet(rule->fieldBits, RULE_BIT_TRID);
  return 0;
}
