// The slot accounting as the walk over the bind trees: every check and update visits each binding
// of the list and asks the platform where its interface lies. The daemon answers from the index of
// bindings instead (acl_slot_charge.cc); this form is the plain statement of the same rules, kept
// so the audit, the tests and the benchmark can hold the index against it.
#include "control/acl_slot_walk.h"

#include <cstddef>
#include <functional>

#include "control/acl_slot.h"
#include "control/acl_slot_dynamic.h"
#include "control/acl_slot_pass.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"

namespace {

using slotpass::applyToTarget;
using slotpass::bindTypeOf;
using slotpass::chargeRecord;
using slotpass::fits;
using slotpass::onSlot;
using slotpass::resetBindRefCnt;

// Both bind trees lead with the list index, so the bindings of one list are one run of entries.
void forEachIfBinding(uint32_t listIdx, const std::function<void(AclIfListEntry*)>& fn) {
  AclIfListEntry key{};
  key.lstIdx = listIdx;
  avl_index_t where = 0;
  auto* e = static_cast<AclIfListEntry*>(avl_find(&gaclGrp.ifListTree, &key, &where));
  if (e == nullptr) {
    e = static_cast<AclIfListEntry*>(avl_nearest(&gaclGrp.ifListTree, where, AVL_AFTER));
  }
  for (; e != nullptr && e->lstIdx == listIdx;
       e = static_cast<AclIfListEntry*>(avl_next(&gaclGrp.ifListTree, e))) {
    fn(e);
  }
}

void forEachGemBinding(uint32_t listIdx, const std::function<void(AclGemPortListEntry*)>& fn) {
  AclGemPortListEntry key{};
  key.lstIdx = listIdx;
  avl_index_t where = 0;
  auto* e = static_cast<AclGemPortListEntry*>(avl_find(&gaclGrp.gemPortListTree, &key, &where));
  if (e == nullptr) {
    e = static_cast<AclGemPortListEntry*>(avl_nearest(&gaclGrp.gemPortListTree, where, AVL_AFTER));
  }
  for (; e != nullptr && e->lstIdx == listIdx;
       e = static_cast<AclGemPortListEntry*>(avl_next(&gaclGrp.gemPortListTree, e))) {
    fn(e);
  }
}

template <typename Fn>
void forEachSlot(Fn&& fn) {
  slotpass::forEachSlot(fn);
}

// One binding counted on the records it reaches: every record for an all-slot interface, the
// record of its own slot otherwise.
void countOn(const AclSlotIfLoc& loc) {
  if (loc.allSlot()) {
    forEachSlot([](AclSlotEntry* s) { ++s->bindRefCnt; });
  } else if (AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot)) {
    ++s->bindRefCnt;
  }
}

// Whether a binding of the list is already among those the target shares entries with: any
// binding for an all-slot target, the bindings located on the target's slot otherwise.
bool sharedOnTarget(const AclSlotIfLoc& target, uint32_t listIdx, uint8_t dir,
                    const std::function<bool(const AclIfListEntry*)>& match) {
  bool found = false;
  forEachIfBinding(listIdx, [&](AclIfListEntry* b) {
    if (found || b->dir != dir || !match(b)) return;
    if (target.allSlot()) {
      found = true;
      return;
    }
    AclSlotIfLoc loc{};
    found = aclSlotIfLocate(b->ifIndex, &loc) && onSlot(loc, target.sys, target.slot);
  });
  return found;
}

}  // namespace

int32_t aclSlotWalkSubRuleNumUpdate(uint32_t ifIndex, uint32_t listIdx, uint32_t count, uint8_t dir,
                                    uint32_t op) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  resetBindRefCnt();
  forEachIfBinding(listIdx, [&](AclIfListEntry* b) {
    AclSlotIfLoc loc{};
    if (b->dir == dir && aclSlotIfLocate(b->ifIndex, &loc)) countOn(loc);
  });
  // A GEM port counts on the slot of its PON interface only.
  forEachGemBinding(listIdx, [&](AclGemPortListEntry* g) {
    AclSlotIfLoc loc{};
    if (g->dir != dir || !aclSlotIfLocate(g->ifIndex, &loc)) return;
    if (AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot)) ++s->bindRefCnt;
  });
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return CMN_ERR_IF_LOCATE;
  return applyToTarget(target, [&](AclSlotEntry* s) { chargeRecord(s, bindType, count, op); });
}

int32_t aclSlotWalkSubRuleNumCheck(uint32_t ifIndex, uint32_t oldCount, uint32_t listIdx,
                                   uint32_t newCount, uint8_t dir) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE || oldCount >= newCount) return 0;
  const int64_t delta = static_cast<int64_t>(newCount) - oldCount;
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return CMN_ERR_IF_LOCATE;
  // The list already holds its entries where it is bound: nothing new is needed there.
  if (sharedOnTarget(target, listIdx, dir, [](const AclIfListEntry*) { return true; })) return 0;
  bool onGem = false;
  forEachGemBinding(listIdx, [&](AclGemPortListEntry* g) {
    AclSlotIfLoc loc{};
    if (!onGem && g->dir == dir && aclSlotIfLocate(g->ifIndex, &loc)) {
      onGem = onSlot(loc, target.sys, target.slot);
    }
  });
  if (onGem) return 0;
  if (!target.allSlot()) {
    AclSlotEntry* s = aclSlotEntryGet(target.sys, target.slot);
    if (s == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
    return fits(s->curSubRuleNum[bindType], delta, s->maxSubRuleNum[bindType])
               ? 0
               : ACL_ERR_SLOT_RULE_FULL;
  }
  bool full = false;
  forEachSlot([&](AclSlotEntry* s) {
    full = full || !fits(s->curSubRuleNum[bindType], delta, s->maxSubRuleNum[bindType]);
  });
  return full ? ACL_ERR_SLOT_RULE_FULL : 0;
}

uint32_t aclSlotWalkSingleRuleNumGet(uint32_t sys, uint32_t slot, uint32_t listIdx, uint32_t dir) {
  AclListEntry* list = aclListEntryGet(listIdx);
  if (list == nullptr) return 0;
  uint32_t n = 0;
  forEachIfBinding(listIdx, [&](AclIfListEntry* b) {
    if (b->ruleIdx == 0 || b->dir != dir || aclRuleEntryGet(list, b->ruleIdx) == nullptr) return;
    AclSlotIfLoc loc{};
    if (aclSlotIfLocate(b->ifIndex, &loc) && (loc.allSlot() || onSlot(loc, sys, slot))) ++n;
  });
  return n;
}

int32_t aclSlotWalkSubRuleNumCheckWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                           uint32_t count, uint8_t dir) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return CMN_ERR_IF_LOCATE;
  // The rule is there already, alone or with its whole list.
  if (sharedOnTarget(target, listIdx, dir, [&](const AclIfListEntry* b) {
        return b->ruleIdx == ruleIdx || b->ruleIdx == 0;
      })) {
    return 0;
  }
  // A whole list needs only the rules its single-rule bindings have not charged yet.
  const auto needed = [&](const AclSlotEntry* s) -> int64_t {
    if (ruleIdx != 0) return count;
    return static_cast<int64_t>(count) - aclSlotWalkSingleRuleNumGet(s->sys, s->slot, listIdx, dir);
  };
  if (!target.allSlot()) {
    AclSlotEntry* s = aclSlotEntryGet(target.sys, target.slot);
    if (s == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
    return fits(s->curSubRuleNum[bindType], needed(s), s->maxSubRuleNum[bindType])
               ? 0
               : ACL_ERR_SLOT_RULE_FULL;
  }
  bool full = false;
  forEachSlot([&](AclSlotEntry* s) {
    full = full || !fits(s->curSubRuleNum[bindType], needed(s), s->maxSubRuleNum[bindType]);
  });
  return full ? ACL_ERR_SLOT_RULE_FULL : 0;
}

int32_t aclSlotWalkSubRuleNumUpdateWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                            uint32_t count, uint8_t dir, uint32_t op) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  resetBindRefCnt();
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return -1;
  forEachIfBinding(listIdx, [&](AclIfListEntry* b) {
    AclSlotIfLoc loc{};
    if (b->ruleIdx == ruleIdx && b->dir == dir && aclSlotIfLocate(b->ifIndex, &loc)) countOn(loc);
  });
  return applyToTarget(target, [&](AclSlotEntry* s) {
    // A whole list arriving on a slot takes over the rules its single bindings charged there.
    if (op == ACL_SLOT_OP_ADD && ruleIdx == 0 && s->bindRefCnt <= 0) {
      s->curSubRuleNum[bindType] -= aclSlotWalkSingleRuleNumGet(s->sys, s->slot, listIdx, dir);
    }
    chargeRecord(s, bindType, count, op);
  });
}

int32_t aclSlotWalkCurRuleNumSyncOne(AclSlotEntry* entry, uint32_t listIdx, uint32_t ruleNum,
                                     uint8_t dir, const AclIfListEntry* binding) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  entry->bindRefCnt = 0;
  for (auto* e = static_cast<AclIfListEntry*>(avl_first(&gaclGrp.ifListTree));
       e != nullptr && aclIfListCmp(e, binding) < 0;
       e = static_cast<AclIfListEntry*>(avl_next(&gaclGrp.ifListTree, e))) {
    AclSlotIfLoc loc{};
    if (e->lstIdx == listIdx && e->dir == dir && aclSlotIfLocate(e->ifIndex, &loc) &&
        loc.allSlot()) {
      ++entry->bindRefCnt;
    }
  }
  if (entry->bindRefCnt > 0) return 0;
  entry->curSubRuleNum[bindType] += ruleNum;
  return 0;
}

int32_t aclSlotWalkCurRuleNumSync(uint32_t sys, uint32_t slot) {
  AclSlotEntry* entry = aclSlotEntryGetOrAdd(sys, slot);
  if (entry == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
  for (auto* b = static_cast<AclIfListEntry*>(avl_first(&gaclGrp.ifListTree)); b != nullptr;
       b = static_cast<AclIfListEntry*>(avl_next(&gaclGrp.ifListTree, b))) {
    AclSlotIfLoc loc{};
    if (!aclSlotIfLocate(b->ifIndex, &loc)) return CMN_ERR_IF_LOCATE;
    if (!loc.allSlot()) continue;
    const AclListEntry* list = aclListEntryGet(b->lstIdx);
    if (list == nullptr) continue;
    aclSlotWalkCurRuleNumSyncOne(entry, b->lstIdx, list->ruleNum, b->dir, b);
  }
  return 0;
}

int32_t aclSlotWalkListRuleBindedCheck(uint32_t sys, uint32_t slot, uint32_t listIdx,
                                       uint32_t ruleIdx, uint8_t dir) {
  int32_t result = 0;
  bool decided = false;
  forEachIfBinding(listIdx, [&](AclIfListEntry* b) {
    AclSlotIfLoc loc{};
    if (decided || b->ruleIdx != ruleIdx || b->dir != dir || !aclSlotIfLocate(b->ifIndex, &loc)) {
      return;
    }
    decided = true;
    result = loc.allSlot() || onSlot(loc, sys, slot) ? 1 : 0;
  });
  return result;
}

int32_t aclSlotWalkSubRuleNumCheckDynamic(uint32_t lstIdx, uint32_t /*ruleIdx*/) {
  int32_t ret = 0;
  forEachIfBinding(lstIdx, [&](AclIfListEntry* b) {
    const int32_t bindType = bindTypeOf(lstIdx, b->dir);
    AclSlotIfLoc loc{};
    if (ret != 0 || bindType == ACL_BIND_TYPE_NONE || !aclSlotIfLocate(b->ifIndex, &loc)) return;
    if (!loc.allSlot()) {
      AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot);
      if (s == nullptr) {
        ret = ACL_ERR_SLOT_NOT_EXIST;
      } else if (!fits(s->curSubRuleNum[bindType], 1, s->maxSubRuleNum[bindType])) {
        ret = ACL_ERR_SLOT_RULE_FULL;
      }
      return;
    }
    forEachSlot([&](AclSlotEntry* s) {
      if (!fits(s->curSubRuleNum[bindType], 1, s->maxSubRuleNum[bindType])) {
        ret = ACL_ERR_SLOT_RULE_FULL;
      }
    });
  });
  // GEM bindings charge the slot of their PON interface for the whole list, so a rule added to
  // the list must fit there too.
  forEachGemBinding(lstIdx, [&](AclGemPortListEntry* g) {
    const int32_t bindType = bindTypeOf(lstIdx, g->dir);
    AclSlotIfLoc loc{};
    if (ret != 0 || bindType == ACL_BIND_TYPE_NONE || !aclSlotIfLocate(g->ifIndex, &loc)) return;
    AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot);
    if (s == nullptr) {
      ret = ACL_ERR_SLOT_NOT_EXIST;
    } else if (!fits(s->curSubRuleNum[bindType], 1, s->maxSubRuleNum[bindType])) {
      ret = ACL_ERR_SLOT_RULE_FULL;
    }
  });
  return ret;
}

int32_t aclSlotWalkSubRuleNumUpdateDynamic(uint32_t lstIdx, uint32_t /*ruleIdx*/, uint32_t op) {
  // The pre-stage is checked against its capacity but never charged here.
  for (uint8_t dir : {uint8_t{ACL_DIR_INGRESS}, uint8_t{ACL_DIR_EGRESS}}) {
    resetBindRefCnt();
    const int32_t bindType = bindTypeOf(lstIdx, dir);
    if (bindType == ACL_BIND_TYPE_NONE) continue;
    const auto once = [&](AclSlotEntry* s) {
      if (s->bindRefCnt != 0) return;
      if (op == ACL_SLOT_DYNAMIC_ADD) {
        ++s->curSubRuleNum[bindType];
      } else {
        --s->curSubRuleNum[bindType];
      }
      s->bindRefCnt = 1;
    };
    forEachIfBinding(lstIdx, [&](AclIfListEntry* b) {
      AclSlotIfLoc loc{};
      if (b->dir != dir || !aclSlotIfLocate(b->ifIndex, &loc)) return;
      if (loc.allSlot()) {
        forEachSlot(once);
      } else if (AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot)) {
        once(s);
      }
    });
    // The GEM bindings were charged the whole list when bound and are released by the list's
    // rule count when unbound: a rule added or removed in between moves their slot too, or the
    // release would take more than was charged.
    forEachGemBinding(lstIdx, [&](AclGemPortListEntry* g) {
      AclSlotIfLoc loc{};
      if (g->dir != dir || !aclSlotIfLocate(g->ifIndex, &loc)) return;
      if (AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot)) once(s);
    });
  }
  return 0;
}
