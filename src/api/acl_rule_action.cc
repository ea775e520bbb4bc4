// Set 53 to 56: a rule's in-actions and out-actions and their parameters. In-action bits only
// accumulate; the remove-all marker (RULE_ACTION_INVALID, bit 0) takes every in-action away, and
// out-action bit 0 every out-action. The mirror group of the MIRROR_GROUP action is a reference the
// rule holds (rule deletion releases the group of that action's parameter): it follows every
// change of that parameter.
#include <algorithm>
#include <array>

#include "api/acl_rule_internal.h"
#include "counter/counter.h"
#include "main/acl_group.h"
#include "meter/meter.h"
#include "platform/mirror.h"
#include "store/acl_action_param.h"
#include "store/acl_conflict.h"
#include "store/acl_entry.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace {

// The support query is handed the union padded to the 12 bytes the platform expects.
constexpr uint16_t kSupportCheckLen = 12;

std::span<const uint8_t> descBytes(const wire::BufDesc* d) {
  return {static_cast<const uint8_t*>(d->data), d->len};
}

// What an action command may change in a rule, kept so that a refused command leaves the rule as
// it was: the bit sets, and the action entries with their bytes. The commands only add entries
// and overwrite their bytes, so putting the rule back deletes the entries added since and writes
// the old bytes back; nothing is allocated, so it cannot fail.
class ActionUndo {
 public:
  explicit ActionUndo(AclRuleEntry* rule) : rule_(rule) {
    std::copy(std::begin(rule->fieldBits), std::end(rule->fieldBits), fieldBits_.begin());
    std::copy(std::begin(rule->actionBits), std::end(rule->actionBits), actionBits_.begin());
    std::copy(std::begin(rule->oldActionBits), std::end(rule->oldActionBits),
              oldActionBits_.begin());
    std::copy(std::begin(rule->outActionBits), std::end(rule->outActionBits),
              outActionBits_.begin());
    std::copy(std::begin(rule->oldOutActionBits), std::end(rule->oldOutActionBits),
              oldOutActionBits_.begin());
    for (AclActionEntry* e = aclActionFirst(rule); e != nullptr; e = aclActionNext(rule, e)) {
      if (count_ == kept_.size()) {
        complete_ = false;
        break;
      }
      Kept& k = kept_[count_++];
      k.entry = e;
      const auto bytes = aclActionBytes(e);
      std::copy(bytes.begin(), bytes.end(), k.bytes.begin());
    }
  }
  // False when the rule has more entries than can be kept (no action command makes that many);
  // the command is then refused before it changes anything.
  bool complete() const { return complete_; }

  void restore() const {
    AclActionEntry* e = aclActionFirst(rule_);
    while (e != nullptr) {
      AclActionEntry* next = aclActionNext(rule_, e);
      if (const Kept* k = find(e)) {
        const auto bytes = aclActionBytes(e);
        std::copy_n(k->bytes.begin(), bytes.size(), bytes.begin());
      } else {
        aclActionEntryDel(e);
      }
      e = next;
    }
    std::copy(fieldBits_.begin(), fieldBits_.end(), rule_->fieldBits);
    std::copy(actionBits_.begin(), actionBits_.end(), rule_->actionBits);
    std::copy(oldActionBits_.begin(), oldActionBits_.end(), rule_->oldActionBits);
    std::copy(outActionBits_.begin(), outActionBits_.end(), rule_->outActionBits);
    std::copy(oldOutActionBits_.begin(), oldOutActionBits_.end(), rule_->oldOutActionBits);
  }

 private:
  // Every in-action code with all its chunks and every out-action code stay well below this.
  static constexpr size_t kMaxEntries = 2 * (ACL_ACTION_BIT_NUM + ACL_OUT_ACTION_BIT_NUM);
  struct Kept {
    AclActionEntry* entry;
    std::array<uint8_t, ACL_LONG_VALUE_LEN> bytes;
  };
  const Kept* find(const AclActionEntry* e) const {
    for (size_t i = 0; i < count_; ++i) {
      if (kept_[i].entry == e) return &kept_[i];
    }
    return nullptr;
  }

  AclRuleEntry* rule_;
  std::array<uint8_t, ACL_FIELD_BITS_LEN> fieldBits_;
  std::array<uint8_t, ACL_ACTION_BITS_LEN> actionBits_;
  std::array<uint8_t, ACL_ACTION_BITS_LEN> oldActionBits_;
  std::array<uint8_t, ACL_OUT_ACTION_BITS_LEN> outActionBits_;
  std::array<uint8_t, ACL_OUT_ACTION_BITS_LEN> oldOutActionBits_;
  std::array<Kept, kMaxEntries> kept_;
  size_t count_ = 0;
  bool complete_ = true;
};

// Runs change on the rule; when it answers anything but 0 the rule is put back as it was.
template <typename Change>
int32_t allOrNothing(AclRuleEntry* rule, Change change) {
  const ActionUndo undo(rule);
  if (!undo.complete()) return CMN_ERR_NO_RESOURCE;
  const int32_t ret = change();
  if (ret != 0) undo.restore();
  return ret;
}

// Keeps the rule's mirror-group reference on the group its MIRROR_GROUP parameter names now.
void mirrorFollow(AclRuleEntry* rule, uint32_t before) {
  const uint32_t after = aclRuleMirrorGroupHeld(rule);
  if (after == before) return;
  if (before != 0) mirrorRefCount(before, ACL_MODULE_NUM, -1);
  if (after != 0) mirrorRefCount(after, ACL_MODULE_NUM, +1);
}

}  // namespace

uint32_t aclRuleMirrorGroupHeld(AclRuleEntry* rule) {
  if (!aclBitTest(rule->actionBits, RULE_ACTION_MIRROR_GROUP)) return 0;
  const AclActionEntry* e = aclActionEntryGet(rule, RULE_ACTION_MIRROR_GROUP,
                                              static_cast<uint8_t>(ACL_RULE_PARAM_MIRROR));
  return e != nullptr ? aclActionValueWord(e) : 0;
}

void aclRuleInActionStrip(AclRuleEntry* rule) {
  if (const uint32_t group = aclRuleMirrorGroupHeld(rule)) {
    mirrorRefCount(group, ACL_MODULE_NUM, -1);
  }
  // Counting goes with the AWARE action.
  if (aclBitTest(rule->actionBits, RULE_ACTION_AWARE)) {
    if (aclBitTest(rule->fieldBits, RULE_BIT_COUNTERID)) counterRefcount(rule->counterId, -1);
    rule->counterId = 0;
    aclBitClear(rule->fieldBits, RULE_BIT_COUNTERID);
  }
  std::fill(std::begin(rule->actionBits), std::end(rule->actionBits), uint8_t{0});
  aclActionListDel(rule);
  aclBitClear(rule->fieldBits, RULE_BIT_ACTION);
  aclBitClear(rule->fieldBits, RULE_BIT_ACTIONPARAM);
}

int32_t aclRuleSetAction(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  if (d->data == nullptr || d->len < ACL_ACTION_BITS_LEN) return ACL_RET_INVALID;
  AclRuleEntry* rule = c.rule;
  std::array<uint8_t, ACL_ACTION_BITS_LEN> requested;
  std::copy_n(static_cast<const uint8_t*>(d->data), requested.size(), requested.begin());
  std::array<uint8_t, kSupportCheckLen> all{};
  for (size_t i = 0; i < requested.size(); ++i) {
    all[i] = static_cast<uint8_t>(rule->actionBits[i] | requested[i]);
  }
  const bool removeAll = aclBitTest(all, RULE_ACTION_INVALID);
  if (!removeAll) {
    if (int32_t ret = actRuleActionHwSupportCheck(all.data(), kSupportCheckLen)) return ret;
  }
  if (int32_t ret = aclRuleRelay(c)) return ret;
  if (int32_t ret = aclRuleActionConflictCheck(rule->actionBits, requested.data())) return ret;
  if (removeAll) {
    std::copy(std::begin(rule->actionBits), std::end(rule->actionBits), rule->oldActionBits);
    std::copy_n(all.begin(), ACL_ACTION_BITS_LEN, rule->actionBits);
    aclRuleInActionStrip(rule);
    return 0;
  }
  return allOrNothing(rule, [&] {
    std::copy(std::begin(rule->actionBits), std::end(rule->actionBits), rule->oldActionBits);
    std::copy_n(all.begin(), ACL_ACTION_BITS_LEN, rule->actionBits);
    aclBitSet(rule->fieldBits, RULE_BIT_ACTION);
    return aclActionBit2Entry(rule);
  });
}

int32_t aclRuleSetActionParam(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  if (d->len == 0) return 0;
  if (d->data == nullptr) return ACL_RET_INVALID;
  AclRuleEntry* rule = c.rule;
  std::array<uint8_t, ACL_ACTION_PARAM_LEN> block;
  aclActionEntry2Param(rule, block);
  if (int32_t ret = aclRuleRelay(c)) return ret;

  // Every item is checked before any is stored.
  const auto items = descBytes(d);
  for (size_t at = 0; at < items.size();) {
    const uint32_t code = items[at];
    if (code > ACL_RULE_PARAM_CODE_MAX) return ACL_RET_INVALID;
    if (at + 1 + aclRuleParamItemLen(code) > items.size()) return ACL_RET_INVALID;
    if (aclRuleParamIsMultiPort(code) && gaclGrp.redirectMultiEnable != 1) {
      return ACL_ERR_MULTI_REDIRECT;
    }
    at += 1 + aclRuleParamItemLen(code);
  }
  for (size_t at = 0; at < items.size();) {
    const uint32_t code = items[at];
    const uint32_t len = aclRuleParamItemLen(code);
    std::copy_n(items.begin() + static_cast<ptrdiff_t>(at + 1), len, block.begin() + code * 4);
    at += 1 + len;
  }

  const uint32_t mirrorBefore = aclRuleMirrorGroupHeld(rule);
  // A parameter block that cannot be stored whole leaves the rule's actions as they were, rather
  // than with some parameters, or (dropping them all) with actions and no parameters at all.
  const int32_t ret = allOrNothing(rule, [&] {
    aclBitSet(rule->fieldBits, RULE_BIT_ACTIONPARAM);
    return aclActionParam2Entry(rule, block);
  });
  if (ret == 0) mirrorFollow(rule, mirrorBefore);
  return ret;
}

int32_t aclRuleSetOutAction(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  if (d->data == nullptr || d->len < ACL_OUT_ACTION_BITS_LEN) return ACL_RET_INVALID;
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  const auto* requested = static_cast<const uint8_t*>(d->data);
  if (!aclBitTest({requested, ACL_OUT_ACTION_BITS_LEN}, 0) && !aclBitTest(rule->outActionBits, 0)) {
    return allOrNothing(rule, [&] {
      std::copy(std::begin(rule->outActionBits), std::end(rule->outActionBits),
                rule->oldOutActionBits);
      for (size_t i = 0; i < ACL_OUT_ACTION_BITS_LEN; ++i) rule->outActionBits[i] |= requested[i];
      aclBitSet(rule->fieldBits, RULE_BIT_OUTACTION);
      return aclOutActionBit2Entry(rule);
    });
  }
  std::copy(std::begin(rule->outActionBits), std::end(rule->outActionBits), rule->oldOutActionBits);
  for (size_t i = 0; i < ACL_OUT_ACTION_BITS_LEN; ++i) rule->outActionBits[i] |= requested[i];
  // Every out-action goes, and the CAR or meter they qualified with them. The device releases no
  // meter reference here: the meter keeps the count this rule gave it.
  if (aclBitTest(rule->fieldBits, RULE_BIT_CARID) ||
      aclBitTest(rule->fieldBits, RULE_BIT_METERID)) {
    aclBitClear(rule->fieldBits, RULE_BIT_CARID);
    aclBitClear(rule->fieldBits, RULE_BIT_METERID);
    rule->meterId = 0;
  }
  std::fill(std::begin(rule->outActionBits), std::end(rule->outActionBits), uint8_t{0});
  aclOutActionListDel(rule);
  aclBitClear(rule->fieldBits, RULE_BIT_OUTACTION);
  aclBitClear(rule->fieldBits, RULE_BIT_OUTACTIONPARAM);
  return 0;
}

int32_t aclRuleSetOutActionParam(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  if (d->len == 0) return 0;
  if (d->data == nullptr || d->len % ACL_RULE_OUT_PARAM_ITEM_LEN != 0) return ACL_RET_INVALID;
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  const auto items = descBytes(d);
  for (size_t at = 0; at < items.size(); at += ACL_RULE_OUT_PARAM_ITEM_LEN) {
    if (items[at] > ACL_RULE_OUT_PARAM_CODE_MAX) return ACL_RET_INVALID;
  }
  std::array<uint8_t, ACL_OUT_ACTION_PARAM_LEN> block;
  aclOutActionEntry2Param(rule, block);
  for (size_t at = 0; at < items.size(); at += ACL_RULE_OUT_PARAM_ITEM_LEN) {
    std::copy_n(items.begin() + static_cast<ptrdiff_t>(at + 1), 4, block.begin() + items[at] * 4);
  }
  return allOrNothing(rule, [&] {
    aclBitSet(rule->fieldBits, RULE_BIT_OUTACTIONPARAM);
    return aclOutActionParam2Entry(rule, block);
  });
}
