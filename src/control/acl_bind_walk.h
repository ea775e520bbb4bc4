// The bindings of one list across every scope, for the walks that re-program lists that are
// already bound (time-range switches, dynamic rule changes): interface records in interface order,
// then GEM port records in GEM port order, then the global scope. Callers hold aclMutex.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "hw/acl_bind_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "store/acl_list.h"

enum class AclBindScope : uint8_t { If, Gem, Global };

// One bind slot of one record that holds the list.
struct AclBindAt {
  AclBindScope scope;
  uint32_t unit;  // interface (GEM port: its PON interface); 0 for the global scope
  uint16_t onuId;
  uint16_t gemPort;
  size_t slotPos;  // position in kAclBindSlots
  const AclBindSlotDef& slot() const { return kAclBindSlots[slotPos]; }
};

// Whether a record's slot holds the list. An untyped slot of an interface counts only while its
// switch is on; the global untyped slots count the list their switch installed; a GEM port has no
// untyped slots.
inline bool aclIfSlotHolds(const AclIfEntry& e, const AclBindSlotDef& s, uint32_t lstIdx) {
  if (e.slots.*s.field != lstIdx) return false;
  if (s.cls != AclSlotClass::Untyped) return true;
  return (s.dir == ACL_DIR_INGRESS ? e.inCtrl : e.outCtrl) == ACL_IF_CTRL_ON;
}
inline bool aclGemSlotHolds(const AclGemPortEntry& e, const AclBindSlotDef& s, uint32_t lstIdx) {
  return s.cls != AclSlotClass::Untyped && e.slots.*s.field == lstIdx;
}
inline bool aclGlbSlotHolds(const AclBindSlotDef& s, uint32_t lstIdx) {
  if (s.cls != AclSlotClass::Untyped) return gaclGrp.slots.*s.field == lstIdx;
  const bool in = s.dir == ACL_DIR_INGRESS;
  return (in ? gaclGrp.inCtrl : gaclGrp.outCtrl) == 1 &&
         (in ? gaclGrp.inCtrlList : gaclGrp.outCtrlList) == lstIdx;
}

// Calls fn(const AclBindAt&) for every slot that holds the list, scope by scope, each record's
// slots in the order `pick` gives: pick(record-holds predicate, visit) decides which of the
// record's slots are visited and in what order. fn returns false to stop the walk; the result is
// false when it was stopped.
template <typename Pick, typename Fn>
bool aclBindWalk(uint32_t lstIdx, Pick pick, Fn fn) {
  auto visitRecord = [&](AclBindScope scope, uint32_t unit, uint16_t onu, uint16_t gem,
                         auto holds) {
    return pick(holds, [&](size_t pos) { return fn(AclBindAt{scope, unit, onu, gem, pos}); });
  };
  if (gaclGrp.ifTree.compar != nullptr) {
    for (auto* e = static_cast<AclIfEntry*>(avl_first(&gaclGrp.ifTree)); e != nullptr;
         e = static_cast<AclIfEntry*>(avl_next(&gaclGrp.ifTree, e))) {
      auto holds = [&](const AclBindSlotDef& s) { return aclIfSlotHolds(*e, s, lstIdx); };
      if (!visitRecord(AclBindScope::If, e->unit, 0, 0, holds)) return false;
    }
  }
  if (gaclGrp.gemPortTree.compar != nullptr) {
    for (auto* e = static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree)); e != nullptr;
         e = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e))) {
      auto holds = [&](const AclBindSlotDef& s) { return aclGemSlotHolds(*e, s, lstIdx); };
      if (!visitRecord(AclBindScope::Gem, e->unit, e->onuId, e->gemPort, holds)) return false;
    }
  }
  auto holds = [&](const AclBindSlotDef& s) { return aclGlbSlotHolds(s, lstIdx); };
  return visitRecord(AclBindScope::Global, 0, 0, 0, holds);
}

// Every binding of every list, gathered in one walk of the records, for passes over many lists
// (a time-range switch visits every list): of(lstIdx) is exactly what aclBindWalk(lstIdx, pick,
// ...) visits, in the same order, without walking every record once per list. It holds while no
// record or slot changes; the binding calls themselves change neither.
class AclBindIndex {
 public:
  template <typename Pick>
  explicit AclBindIndex(Pick pick) {
    std::vector<uint32_t> lists;
    // Runs pick once per list the record names, each list's visits appended to its own entry.
    auto record = [&](AclBindScope scope, uint32_t unit, uint16_t onu, uint16_t gem, auto holds) {
      for (const uint32_t lst : lists) {
        std::vector<AclBindAt>& at = byList_[lst];
        pick([&](const AclBindSlotDef& s) { return holds(s, lst); },
             [&](size_t pos) {
               at.push_back(AclBindAt{scope, unit, onu, gem, pos});
               return true;
             });
      }
    };
    auto named = [&](const AclBindSlots& slots) {
      lists.clear();
      for (const AclBindSlotDef& s : kAclBindSlots) note(lists, slots.*s.field);
    };
    if (gaclGrp.ifTree.compar != nullptr) {
      for (auto* e = static_cast<AclIfEntry*>(avl_first(&gaclGrp.ifTree)); e != nullptr;
           e = static_cast<AclIfEntry*>(avl_next(&gaclGrp.ifTree, e))) {
        named(e->slots);
        record(AclBindScope::If, e->unit, 0, 0,
               [&](const AclBindSlotDef& s, uint32_t lst) { return aclIfSlotHolds(*e, s, lst); });
      }
    }
    if (gaclGrp.gemPortTree.compar != nullptr) {
      for (auto* e = static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree)); e != nullptr;
           e = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e))) {
        named(e->slots);
        record(AclBindScope::Gem, e->unit, e->onuId, e->gemPort,
               [&](const AclBindSlotDef& s, uint32_t lst) { return aclGemSlotHolds(*e, s, lst); });
      }
    }
    // The global untyped slots hold the list their switch installed, not the slot's own index.
    named(gaclGrp.slots);
    note(lists, gaclGrp.inCtrlList);
    note(lists, gaclGrp.outCtrlList);
    record(AclBindScope::Global, 0, 0, 0,
           [](const AclBindSlotDef& s, uint32_t lst) { return aclGlbSlotHolds(s, lst); });
  }

  std::span<const AclBindAt> of(uint32_t lstIdx) const {
    const auto it = byList_.find(lstIdx);
    return it == byList_.end() ? std::span<const AclBindAt>() : std::span(it->second);
  }

 private:
  static void note(std::vector<uint32_t>& lists, uint32_t lst) {
    if (lst != 0 && std::find(lists.begin(), lists.end(), lst) == lists.end()) lists.push_back(lst);
  }
  std::unordered_map<uint32_t, std::vector<AclBindAt>> byList_;
};

// The bind type code a binding function takes for the slot: the slot's kind, but 0 for the
// generic global slots.
inline uint32_t aclBindCode(const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  return b.scope == AclBindScope::Global && s.cls == AclSlotClass::Untyped ? 0 : s.kind;
}
