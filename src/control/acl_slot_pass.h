// What the two forms of the charging pass share: the indexed one the daemon uses and the walk
// over the bind trees kept as its reference. Both count, per slot record, the bindings of a list
// as the bind trees stand (bindRefCnt), then apply the same add and delete rule. Callers hold
// aclMutex.
#pragma once

#include <cstdint>

#include "control/acl_slot.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"

namespace slotpass {

inline int32_t bindTypeOf(uint32_t listIdx, uint32_t dir) {
  return aclBindType(aclListTypeGetByIndex(listIdx), dir);
}

template <typename Fn>
void forEachSlot(Fn&& fn) {
  for (AclSlotEntry* s = aclSlotFirst(); s != nullptr; s = aclSlotNext(s)) fn(s);
}

inline void resetBindRefCnt() {
  forEachSlot([](AclSlotEntry* s) { s->bindRefCnt = 0; });
}

// Whether cur + need stays within max. Computed wide, so a counter that an unbalanced release has
// wrapped refuses everything instead of wrapping back into room.
inline bool fits(uint32_t cur, int64_t need, uint32_t max) {
  return static_cast<int64_t>(cur) + need <= static_cast<int64_t>(max);
}

// The add and delete rule of the updates for one record: an add charges only a list new to the
// slot, a delete releases only the slot's last binding of it.
inline void chargeRecord(AclSlotEntry* s, int32_t bindType, uint32_t count, uint32_t op) {
  uint32_t& cur = s->curSubRuleNum[bindType];
  if (op == ACL_SLOT_OP_ADD) {
    if (s->bindRefCnt <= 0) cur += count;
  } else if (s->bindRefCnt < 2) {
    cur -= count;
  }
}

// The records a target reaches, after the counting pass: all of them, or the one of its slot.
template <typename Fn>
int32_t applyToTarget(const AclSlotIfLoc& loc, Fn&& fn) {
  if (loc.allSlot()) {
    forEachSlot(fn);
    return 0;
  }
  AclSlotEntry* s = aclSlotEntryGet(loc.sys, loc.slot);
  if (s == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
  fn(s);
  return 0;
}

// Whether one binding's place is the target's slot.
inline bool onSlot(const AclSlotIfLoc& loc, uint32_t sys, uint32_t slot) {
  return loc.sys == sys && loc.slot == slot;
}

}  // namespace slotpass
