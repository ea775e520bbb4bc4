// The index of bindings behind the slot accounting: filing and unfiling bind-list entries.
#include "control/acl_slot_index.h"

#include <algorithm>

#include "control/acl_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"

namespace {

std::map<AclSlotListDirKey, AclSlotListDir>& filed() {
  static auto& all = *new std::map<AclSlotListDirKey, AclSlotListDir>;  // never destroyed
  return all;
}

uint32_t countAt(const std::map<AclSlotKey, uint32_t>& m, uint32_t sys, uint32_t slot) {
  auto it = m.find({sys, slot});
  return it == m.end() ? 0 : it->second;
}

// Moves m[k] by `by`, dropping the key at 0, so that walks over the maps see only places that
// hold something.
void bump(std::map<AclSlotKey, uint32_t>& m, const AclSlotKey& k, int32_t by) {
  uint32_t& n = m[k];
  n += static_cast<uint32_t>(by);
  if (n == 0) m.erase(k);
}

bool emptied(const AclSlotListDir& ld) {
  return ld.all.total == 0 && ld.gemAt.empty();
}

void dropIfEmpty(std::map<AclSlotListDirKey, AclSlotListDir>::iterator it) {
  if (emptied(it->second)) filed().erase(it);
}

}  // namespace

AclSlotWhere aclSlotWhereOf(uint32_t ifIndex) {
  AclSlotIfLoc loc{};
  if (!aclSlotIfLocate(ifIndex, &loc)) return {};
  return {true, loc.allSlot(), loc.sys, loc.slot};
}

uint32_t AclSlotTally::ownAt(uint32_t sys, uint32_t slot) const {
  return countAt(own, sys, slot);
}
uint32_t AclSlotTally::onAt(uint32_t sys, uint32_t slot) const {
  return countAt(on, sys, slot);
}
uint32_t AclSlotListDir::gemOnAt(uint32_t sys, uint32_t slot) const {
  return countAt(gemOn, sys, slot);
}

void AclSlotTally::add(const AclSlotWhere& w, int32_t by) {
  total += static_cast<uint32_t>(by);
  if (!w.located) return;
  const AclSlotKey k{w.sys, w.slot};
  bump(on, k, by);
  if (w.allSlot) {
    allSlot += static_cast<uint32_t>(by);
  } else {
    bump(own, k, by);
  }
}

void aclSlotIndexIfAdd(const AclIfListEntry& e) {
  AclSlotListDir& ld = filed()[{e.lstIdx, e.dir}];
  AclSlotRuleCell& cell = ld.rules[e.ruleIdx];
  const AclSlotIfKey k{e.ifIndex, e.listType};
  if (cell.at.contains(k)) return;  // filed already: the trees hold each key once
  const AclSlotWhere w = aclSlotWhereOf(e.ifIndex);
  cell.at.emplace(k, w);
  cell.byWhere[w].insert(k);
  cell.add(w, 1);
  ld.all.add(w, 1);
}

void aclSlotIndexIfDel(const AclIfListEntry& e) {
  auto it = filed().find({e.lstIdx, e.dir});
  if (it == filed().end()) return;
  AclSlotListDir& ld = it->second;
  auto cellIt = ld.rules.find(e.ruleIdx);
  if (cellIt == ld.rules.end()) return;
  AclSlotRuleCell& cell = cellIt->second;
  auto at = cell.at.find({e.ifIndex, e.listType});
  if (at == cell.at.end()) return;
  // Taken out where it was filed: the platform may place the interface elsewhere by now.
  const AclSlotWhere w = at->second;
  if (auto place = cell.byWhere.find(w); place != cell.byWhere.end()) {
    place->second.erase(at->first);
    if (place->second.empty()) cell.byWhere.erase(place);
  }
  cell.at.erase(at);
  cell.add(w, -1);
  ld.all.add(w, -1);
  if (cell.total == 0) ld.rules.erase(cellIt);
  dropIfEmpty(it);
}

void aclSlotIndexGemAdd(const AclGemPortListEntry& e) {
  AclSlotListDir& ld = filed()[{e.lstIdx, e.dir}];
  const AclSlotGemKey k{e.ifIndex, e.onuId, e.gemPort, e.listType};
  if (ld.gemAt.contains(k)) return;
  const AclSlotWhere w = aclSlotWhereOf(e.ifIndex);
  ld.gemAt.emplace(k, w);
  if (w.located) bump(ld.gemOn, {w.sys, w.slot}, 1);
}

void aclSlotIndexGemDel(const AclGemPortListEntry& e) {
  auto it = filed().find({e.lstIdx, e.dir});
  if (it == filed().end()) return;
  AclSlotListDir& ld = it->second;
  auto at = ld.gemAt.find({e.ifIndex, e.onuId, e.gemPort, e.listType});
  if (at == ld.gemAt.end()) return;
  if (at->second.located) bump(ld.gemOn, {at->second.sys, at->second.slot}, -1);
  ld.gemAt.erase(at);
  dropIfEmpty(it);
}

void aclSlotIndexClear() {
  filed().clear();
}

const AclSlotListDir* aclSlotIndexFind(uint32_t lstIdx, uint8_t dir) {
  auto it = filed().find({lstIdx, dir});
  return it == filed().end() ? nullptr : &it->second;
}

const std::map<AclSlotListDirKey, AclSlotListDir>& aclSlotIndexAll() {
  return filed();
}

std::vector<AclSlotIndexRow> aclSlotIndexRows() {
  std::vector<AclSlotIndexRow> rows;
  for (const auto& [key, ld] : filed()) {
    for (const auto& [rule, cell] : ld.rules) {
      for (const auto& [k, w] : cell.at) {
        rows.push_back({false, key.first, key.second, rule, k.first, 0, 0, k.second, w});
      }
    }
    for (const auto& [k, w] : ld.gemAt) {
      const auto& [ifIndex, onu, gem, type] = k;
      rows.push_back({true, key.first, key.second, 0, ifIndex, onu, gem, type, w});
    }
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}
