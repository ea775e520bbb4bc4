// Charging bindings against the slot ledger. A list takes its rules once per slot and bind type,
// however many interfaces of that slot carry it; so every check and update first counts, per slot
// record, the bindings of the list as the bind trees stand (bindRefCnt), and charges or releases
// only where the count says the list is new to the slot or leaves it.
//
// The counts come from the index of bindings (acl_slot_index.h), which files each binding by list,
// direction and rule with its interface's place, so no call walks the list's bindings or asks the
// platform about any interface but the target. Where the walk over the trees decided by the first
// binding in tree order (the dynamic check, the card recount, the bound-rule check), the index
// keeps each place's bindings in tree order and the first one is compared. acl_slot_walk.cc is
// the same accounting as the walk; the two give the same answers.
#include <optional>
#include <tuple>

#include "control/acl_slot.h"
#include "control/acl_slot_dynamic.h"
#include "control/acl_slot_index.h"
#include "control/acl_slot_pass.h"
#include "hw/acl_if_record.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"

namespace {

using slotpass::applyToTarget;
using slotpass::bindTypeOf;
using slotpass::chargeRecord;
using slotpass::fits;
using slotpass::forEachSlot;
using slotpass::resetBindRefCnt;

const AclSlotRuleCell* cellOf(const AclSlotListDir* ld, uint32_t ruleIdx) {
  if (ld == nullptr) return nullptr;
  auto it = ld->rules.find(ruleIdx);
  return it == ld->rules.end() ? nullptr : &it->second;
}

// The charging pass's count for one record: bindings on all-slot interfaces reach every record,
// the others only the record of their own slot.
int32_t reaching(const AclSlotTally* t, const AclSlotEntry* s) {
  if (t == nullptr) return 0;
  return static_cast<int32_t>(t->allSlot + t->ownAt(s->sys, s->slot));
}

// Whether bindings of the tally already hold entries where the target is: any binding at all for
// an all-slot target, bindings located on the target's slot otherwise.
bool sharedOnTarget(const AclSlotIfLoc& target, const AclSlotTally* t) {
  if (t == nullptr) return false;
  return target.allSlot() ? t->total > 0 : t->onAt(target.sys, target.slot) > 0;
}

// A binding's position in the interface bind tree.
using TreeKey = std::tuple<uint32_t, uint32_t, uint32_t, uint8_t, uint8_t>;
TreeKey treeKey(uint32_t lstIdx, uint32_t ruleIdx, const AclSlotIfKey& k, uint8_t dir) {
  return {lstIdx, ruleIdx, k.first, k.second, dir};
}

// The first binding in tree order, over every place of the cell that pick accepts.
template <typename Pick>
std::optional<TreeKey> firstOf(uint32_t lstIdx, uint8_t dir, uint32_t ruleIdx,
                               const AclSlotRuleCell& cell, Pick pick) {
  std::optional<TreeKey> first;
  for (const auto& [where, keys] : cell.byWhere) {
    if (!pick(where)) continue;
    const TreeKey k = treeKey(lstIdx, ruleIdx, *keys.begin(), dir);
    if (!first || k < *first) first = k;
  }
  return first;
}

uint32_t singleRuleNum(const AclSlotListDir* ld, AclListEntry* list, uint32_t sys, uint32_t slot) {
  if (ld == nullptr || list == nullptr) return 0;
  uint32_t n = 0;
  for (const auto& [rule, cell] : ld->rules) {
    if (rule == 0 || aclRuleEntryGet(list, rule) == nullptr) continue;
    n += cell.allSlot + cell.ownAt(sys, slot);
  }
  return n;
}

}  // namespace

int32_t aclSlotSubRuleNumUpdate(uint32_t ifIndex, uint32_t listIdx, uint32_t count, uint8_t dir,
                                uint32_t op) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  const AclSlotListDir* ld = aclSlotIndexFind(listIdx, dir);
  // A GEM port counts on the slot of its PON interface only.
  forEachSlot([&](AclSlotEntry* s) {
    s->bindRefCnt =
        ld == nullptr ? 0
                      : reaching(&ld->all, s) + static_cast<int32_t>(ld->gemOnAt(s->sys, s->slot));
  });
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return CMN_ERR_IF_LOCATE;
  return applyToTarget(target, [&](AclSlotEntry* s) { chargeRecord(s, bindType, count, op); });
}

int32_t aclSlotSubRuleNumCheck(uint32_t ifIndex, uint32_t oldCount, uint32_t listIdx,
                               uint32_t newCount, uint8_t dir) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE || oldCount >= newCount) return 0;
  const int64_t delta = static_cast<int64_t>(newCount) - oldCount;
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return CMN_ERR_IF_LOCATE;
  // The list already holds its entries where it is bound: nothing new is needed there.
  const AclSlotListDir* ld = aclSlotIndexFind(listIdx, dir);
  if (ld != nullptr &&
      (sharedOnTarget(target, &ld->all) || ld->gemOnAt(target.sys, target.slot) > 0)) {
    return 0;
  }
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

uint32_t aclSlotSingleRuleNumGet(uint32_t sys, uint32_t slot, uint32_t listIdx, uint32_t dir) {
  if (dir > UINT8_MAX) return 0;  // no binding has such a direction
  return singleRuleNum(aclSlotIndexFind(listIdx, static_cast<uint8_t>(dir)),
                       aclListEntryGet(listIdx), sys, slot);
}

int32_t aclSlotSubRuleNumCheckWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                       uint32_t count, uint8_t dir) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return CMN_ERR_IF_LOCATE;
  // The rule is there already, alone or with its whole list.
  const AclSlotListDir* ld = aclSlotIndexFind(listIdx, dir);
  if (sharedOnTarget(target, cellOf(ld, ruleIdx)) || sharedOnTarget(target, cellOf(ld, 0))) {
    return 0;
  }
  // A whole list needs only the rules its single-rule bindings have not charged yet.
  AclListEntry* list = ruleIdx == 0 ? aclListEntryGet(listIdx) : nullptr;
  const auto needed = [&](const AclSlotEntry* s) -> int64_t {
    if (ruleIdx != 0) return count;
    return static_cast<int64_t>(count) - singleRuleNum(ld, list, s->sys, s->slot);
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

int32_t aclSlotSubRuleNumUpdateWithRule(uint32_t ifIndex, uint32_t listIdx, uint32_t ruleIdx,
                                        uint32_t count, uint8_t dir, uint32_t op) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  resetBindRefCnt();
  AclSlotIfLoc target{};
  if (!aclSlotIfLocate(ifIndex, &target)) return -1;
  const AclSlotListDir* ld = aclSlotIndexFind(listIdx, dir);
  const AclSlotRuleCell* cell = cellOf(ld, ruleIdx);
  forEachSlot([&](AclSlotEntry* s) { s->bindRefCnt = reaching(cell, s); });
  AclListEntry* list = ruleIdx == 0 ? aclListEntryGet(listIdx) : nullptr;
  return applyToTarget(target, [&](AclSlotEntry* s) {
    // A whole list arriving on a slot takes over the rules its single bindings charged there.
    if (op == ACL_SLOT_OP_ADD && ruleIdx == 0 && s->bindRefCnt <= 0) {
      s->curSubRuleNum[bindType] -= singleRuleNum(ld, list, s->sys, s->slot);
    }
    chargeRecord(s, bindType, count, op);
  });
}

int32_t _aclSlotCurRuleNumSync(AclSlotEntry* entry, uint32_t listIdx, uint32_t ruleNum, uint8_t dir,
                               const AclIfListEntry* binding) {
  const int32_t bindType = bindTypeOf(listIdx, dir);
  if (bindType == ACL_BIND_TYPE_NONE) return 0;
  // Whether an all-slot binding of the list in that direction comes before the given one.
  bool earlier = false;
  if (const AclSlotListDir* ld = aclSlotIndexFind(listIdx, dir); ld != nullptr) {
    const TreeKey before = treeKey(binding->lstIdx, binding->ruleIdx,
                                   {binding->ifIndex, binding->listType}, binding->dir);
    for (const auto& [rule, cell] : ld->rules) {
      auto first =
          firstOf(listIdx, dir, rule, cell, [](const AclSlotWhere& w) { return w.allSlot; });
      if (first && *first < before) {
        earlier = true;
        break;
      }
    }
  }
  // Scratch only: the walk leaves the number of earlier bindings, here 1 stands for any.
  entry->bindRefCnt = earlier ? 1 : 0;
  if (!earlier) entry->curSubRuleNum[bindType] += ruleNum;
  return 0;
}

int32_t aclSlotCurRuleNumSync(uint32_t sys, uint32_t slot) {
  AclSlotEntry* entry = aclSlotEntryGetOrAdd(sys, slot);
  if (entry == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
  // The recount stops at the first binding in tree order that cannot be located; the lists
  // whose first all-slot binding comes before it are charged, each once per direction.
  const auto& all = aclSlotIndexAll();
  std::optional<TreeKey> stop;
  for (const auto& [key, ld] : all) {
    for (const auto& [rule, cell] : ld.rules) {
      auto first = firstOf(key.first, key.second, rule, cell,
                           [](const AclSlotWhere& w) { return !w.located; });
      if (first && (!stop || *first < *stop)) stop = first;
    }
  }
  for (const auto& [key, ld] : all) {
    const auto& [lstIdx, dir] = key;
    if (ld.all.allSlot == 0) continue;
    const AclListEntry* list = aclListEntryGet(lstIdx);
    const int32_t bindType = bindTypeOf(lstIdx, dir);
    if (list == nullptr || bindType == ACL_BIND_TYPE_NONE) continue;
    std::optional<TreeKey> first;
    for (const auto& [rule, cell] : ld.rules) {
      first = firstOf(lstIdx, dir, rule, cell, [](const AclSlotWhere& w) { return w.allSlot; });
      if (first) break;  // cells go by rule index, the second key of the tree
    }
    if (first && (!stop || *first < *stop)) entry->curSubRuleNum[bindType] += list->ruleNum;
  }
  return stop ? CMN_ERR_IF_LOCATE : 0;
}

int32_t aclSlotListRuleBindedCheck(uint32_t sys, uint32_t slot, uint32_t listIdx, uint32_t ruleIdx,
                                   uint8_t dir) {
  const AclSlotRuleCell* cell = cellOf(aclSlotIndexFind(listIdx, dir), ruleIdx);
  if (cell == nullptr) return 0;
  // The place of the first located binding in tree order decides.
  const AclSlotWhere* decides = nullptr;
  const AclSlotIfKey* firstKey = nullptr;
  for (const auto& [where, keys] : cell->byWhere) {
    if (!where.located) continue;
    if (firstKey == nullptr || *keys.begin() < *firstKey) {
      firstKey = &*keys.begin();
      decides = &where;
    }
  }
  if (decides == nullptr) return 0;
  return decides->allSlot || (decides->sys == sys && decides->slot == slot) ? 1 : 0;
}

int32_t aclSlotSubRuleNumCheckDynamic(uint32_t lstIdx, uint32_t /*ruleIdx*/) {
  // Every place the list is bound, in any direction, must take one more rule. Where several
  // places refuse, the first refusing binding in tree order gives the answer.
  std::optional<std::pair<TreeKey, int32_t>> refused;
  for (uint8_t dir = ACL_DIR_INGRESS; dir <= ACL_DIR_VFP; ++dir) {
    const AclSlotListDir* ld = aclSlotIndexFind(lstIdx, dir);
    const int32_t bindType = bindTypeOf(lstIdx, dir);
    if (ld == nullptr || bindType == ACL_BIND_TYPE_NONE) continue;
    const auto answer = [&](const AclSlotWhere& w) -> int32_t {
      if (!w.allSlot) {
        AclSlotEntry* s = aclSlotEntryGet(w.sys, w.slot);
        if (s == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
        return fits(s->curSubRuleNum[bindType], 1, s->maxSubRuleNum[bindType])
                   ? 0
                   : ACL_ERR_SLOT_RULE_FULL;
      }
      bool full = false;
      forEachSlot([&](AclSlotEntry* s) {
        full = full || !fits(s->curSubRuleNum[bindType], 1, s->maxSubRuleNum[bindType]);
      });
      return full ? ACL_ERR_SLOT_RULE_FULL : 0;
    };
    for (const auto& [rule, cell] : ld->rules) {
      for (const auto& [where, keys] : cell.byWhere) {
        if (!where.located) continue;
        const TreeKey k = treeKey(lstIdx, rule, *keys.begin(), dir);
        if (refused && refused->first < k) continue;
        if (const int32_t ret = answer(where); ret != 0) refused = {k, ret};
      }
    }
  }
  if (refused) return refused->second;
  // GEM bindings charge the slot of their PON interface for the whole list, so a rule added to
  // the list must fit there too; the first refusing GEM binding in its tree's order answers.
  std::optional<std::pair<std::tuple<AclSlotGemKey, uint8_t>, int32_t>> gemRefused;
  for (uint8_t dir = ACL_DIR_INGRESS; dir <= ACL_DIR_VFP; ++dir) {
    const AclSlotListDir* ld = aclSlotIndexFind(lstIdx, dir);
    const int32_t bindType = bindTypeOf(lstIdx, dir);
    if (ld == nullptr || bindType == ACL_BIND_TYPE_NONE) continue;
    for (const auto& [key, where] : ld->gemAt) {
      if (!where.located) continue;
      const auto k = std::make_tuple(key, dir);
      if (gemRefused && gemRefused->first < k) continue;
      AclSlotEntry* s = aclSlotEntryGet(where.sys, where.slot);
      if (s == nullptr) {
        gemRefused = {k, ACL_ERR_SLOT_NOT_EXIST};
      } else if (!fits(s->curSubRuleNum[bindType], 1, s->maxSubRuleNum[bindType])) {
        gemRefused = {k, ACL_ERR_SLOT_RULE_FULL};
      }
    }
  }
  return gemRefused ? gemRefused->second : 0;
}

int32_t aclSlotSubRuleNumUpdateDynamic(uint32_t lstIdx, uint32_t /*ruleIdx*/, uint32_t op) {
  // The pre-stage is checked against its capacity but never charged here.
  for (uint8_t dir : {uint8_t{ACL_DIR_INGRESS}, uint8_t{ACL_DIR_EGRESS}}) {
    resetBindRefCnt();
    const int32_t bindType = bindTypeOf(lstIdx, dir);
    const AclSlotListDir* ld = aclSlotIndexFind(lstIdx, dir);
    if (bindType == ACL_BIND_TYPE_NONE || ld == nullptr) continue;
    // Each record the list reaches in this direction moves by one rule, once.
    forEachSlot([&](AclSlotEntry* s) {
      if (ld->all.allSlot == 0 && ld->all.ownAt(s->sys, s->slot) == 0) return;
      if (op == ACL_SLOT_DYNAMIC_ADD) {
        ++s->curSubRuleNum[bindType];
      } else {
        --s->curSubRuleNum[bindType];
      }
      s->bindRefCnt = 1;
    });
    // The GEM bindings were charged the whole list when bound and are released by the list's
    // rule count when unbound: a rule added or removed in between moves their slot too, or the
    // release would take more than was charged.
    for (const auto& [at, count] : ld->gemOn) {
      AclSlotEntry* s = aclSlotEntryGet(at.first, at.second);
      if (count == 0 || s == nullptr || s->bindRefCnt != 0) continue;
      if (op == ACL_SLOT_DYNAMIC_ADD) {
        ++s->curSubRuleNum[bindType];
      } else {
        --s->curSubRuleNum[bindType];
      }
      s->bindRefCnt = 1;
    }
  }
  return 0;
}
