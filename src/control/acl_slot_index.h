// The index of bindings behind the slot accounting. Every interface and GEM port bind-list entry
// is filed by (list, direction), then by rule index, with the place the platform gave for its
// interface when the entry went into its bind tree. The charging pass then asks the index how many
// bindings of a list reach a slot instead of walking the list's bindings and locating each one, so
// a check or an update costs the same however many interfaces carry the list.
//
// The bind-list add and delete functions keep it in step: an entry is filed right after it joins
// its tree and taken out right before it leaves, so the index always holds exactly the trees'
// entries. Callers hold aclMutex, as for the trees.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

struct AclIfListEntry;
struct AclGemPortListEntry;

// Where a binding's interface lies, as the slot accounting reads the platform's location.
struct AclSlotWhere {
  bool located = false;  // false: the platform could not locate it (the rest is 0)
  bool allSlot = false;  // aggregation or all-slot interface: reaches every slot record
  uint32_t sys = 0;
  uint32_t slot = 0;
  auto operator<=>(const AclSlotWhere&) const = default;
};
// Asks the platform where ifIndex lies.
AclSlotWhere aclSlotWhereOf(uint32_t ifIndex);

using AclSlotKey = std::pair<uint32_t, uint32_t>;  // (sys, slot)

// Counts of a set of interface bindings.
struct AclSlotTally {
  uint32_t total = 0;    // every binding, located or not
  uint32_t allSlot = 0;  // located on an all-slot interface
  // Located on an interface of one slot, by that slot.
  std::map<AclSlotKey, uint32_t> own;
  // Located with that (sys, slot), all-slot interfaces included (they too have a place).
  std::map<AclSlotKey, uint32_t> on;

  uint32_t ownAt(uint32_t sys, uint32_t slot) const;
  uint32_t onAt(uint32_t sys, uint32_t slot) const;
  void add(const AclSlotWhere& w, int32_t by);
};

// A binding's place among its list's entries in bind-tree order: (ifIndex, listType) orders the
// entries of one rule index and direction.
using AclSlotIfKey = std::pair<uint32_t, uint8_t>;

// The bindings of one list, direction and rule index.
struct AclSlotRuleCell : AclSlotTally {
  std::map<AclSlotIfKey, AclSlotWhere> at;
  // The same entries by place, each place's entries in tree order.
  std::map<AclSlotWhere, std::set<AclSlotIfKey>> byWhere;
};

// A GEM port entry within its list and direction: (ifIndex, onuId, gemPort, listType).
using AclSlotGemKey = std::tuple<uint32_t, uint16_t, uint16_t, uint8_t>;

// The bindings of one list in one direction.
struct AclSlotListDir {
  AclSlotTally all;                           // every rule index
  std::map<uint32_t, AclSlotRuleCell> rules;  // by rule index; 0 is the whole list
  // GEM port bindings, each counted on the slot of its PON interface only.
  std::map<AclSlotKey, uint32_t> gemOn;
  std::map<AclSlotGemKey, AclSlotWhere> gemAt;
  uint32_t gemOnAt(uint32_t sys, uint32_t slot) const;
};

using AclSlotListDirKey = std::pair<uint32_t, uint8_t>;  // (lstIdx, dir)

// Maintenance, from the bind-list add and delete functions and the group's life cycle.
void aclSlotIndexIfAdd(const AclIfListEntry& e);
void aclSlotIndexIfDel(const AclIfListEntry& e);
void aclSlotIndexGemAdd(const AclGemPortListEntry& e);
void aclSlotIndexGemDel(const AclGemPortListEntry& e);
void aclSlotIndexClear();

// The bindings of (lstIdx, dir), or nullptr when there are none.
const AclSlotListDir* aclSlotIndexFind(uint32_t lstIdx, uint8_t dir);
// Everything, by (lstIdx, dir).
const std::map<AclSlotListDirKey, AclSlotListDir>& aclSlotIndexAll();

// One entry as the index files it, for comparing with a recount from the trees.
struct AclSlotIndexRow {
  bool gem = false;
  uint32_t lstIdx = 0;
  uint8_t dir = 0;
  uint32_t ruleIdx = 0;  // interface entries only
  uint32_t ifIndex = 0;
  uint16_t onuId = 0;    // GEM entries only
  uint16_t gemPort = 0;  // GEM entries only
  uint8_t listType = 0;
  AclSlotWhere where;
  auto operator<=>(const AclSlotIndexRow&) const = default;
};
// Every entry the index holds, sorted.
std::vector<AclSlotIndexRow> aclSlotIndexRows();
