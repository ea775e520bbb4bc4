// The invariant audit. Everything it expects is derived here from the bind slots, the lists and
// their rules, in the simplest terms the system promises them:
//
// - a list's refCnt is the number of bind slots holding it (an untyped slot counts while its
//   switch is on; the global untyped slots count the list their switch installed);
// - every interface or GEM binding has its ACL-owned, whole-list bind-list entry, and every such
//   entry has its binding;
// - a slot record charges, per bind type, the rule count of each list bound there once, however
//   many bindings reach it (typed and pre-stage bindings only; aggregations and all-slot
//   interfaces reach every record, a GEM binding the record of its interface);
// - the slot accounting's index of bindings holds every bind-list entry, each where the platform
//   locates its interface now, as the walk over the bind trees would count it, and nothing else;
// - a rule that follows a time range holds the state the time-range service gives that range;
// - the hardware holds, for each binding, exactly its eligible rules (valid, next hops all
//   learned, no VRF field, and its time range active as the service says, so a rule whose range
//   is off is on no binding), with the binding's priority, in the form tlvEnable selects, on the
//   units the aggregation mode names; and nothing else;
// - the bindings without a bind slot count too: an interface traffic policy's per-rule entries
//   (owner trafficpolicy) add their refcount to the list's refCnt and hold their rule with priority
//   ruleIdx; a policy-based redirect's whole-list entry (owner pbr) adds one and holds every rule
//   of the list as a TLV message; an HQoS binding adds one and holds the valid rules; a global
//   traffic policy holds its rules in the global table and adds nothing to refCnt; each
//   blacklisting adds one and holds the valid rules of its list in the global table, ingress,
//   with priority ruleIdx (blacklistings of one list share those entries; a rule that is not
//   valid may be there or not).
#include "diag/acl_audit.h"

#include <array>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <tuple>

#include "control/acl_slot.h"
#include "control/acl_slot_index.h"
#include "diag/acl_event_counters.h"
#include "hw/acl_bind_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "hw/acl_policy.h"
#include "main/acl_group.h"
#include "platform/vdev/control.h"
#include "platform/vdev/model.h"
#include "services/acl_blacklist_record.h"
#include "services/acl_traffic_policy.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"

namespace {

using nlohmann::json;

// Hardware command ids, as the device files them.
constexpr uint32_t kGlobalAdd = 217, kGlobalTlv = 219;
constexpr uint32_t kIfAdd = 65536398, kIfTlv = 65536400;
constexpr uint32_t kGemAdd = 212992037, kGemTlv = 212992039;
constexpr uint32_t kKindAggregation = 2, kKindAllSlot = 3;
constexpr uint8_t kModeAggregation = 0x02, kModeMembers = 0x01;
constexpr size_t kMaxMembers = 128;  // what one member read can return

enum class Scope { Global, If, Gem };

struct Binding {
  Scope scope;
  uint32_t unit = 0;
  uint16_t onu = 0, gem = 0;
  const AclBindSlotDef* slot;
  uint32_t lstIdx;
};

std::string where(const Binding& b) {
  char buf[96];
  switch (b.scope) {
    case Scope::Global:
      std::snprintf(buf, sizeof buf, "global %s", b.slot->name);
      break;
    case Scope::If:
      std::snprintf(buf, sizeof buf, "interface %u %s", b.unit, b.slot->name);
      break;
    case Scope::Gem:
      std::snprintf(buf, sizeof buf, "GEM port %u/%u/%u %s", b.unit, unsigned{b.onu},
                    unsigned{b.gem}, b.slot->name);
      break;
  }
  return buf;
}

template <typename T, typename Fn>
void eachInTree(avl_tree_t* tree, Fn fn) {
  if (tree->compar == nullptr) return;
  for (void* p = avl_first(tree); p != nullptr; p = avl_next(tree, p)) fn(*static_cast<T*>(p));
}

// Every binding the bind slots hold, global first, then interfaces and GEM ports in tree order.
std::vector<Binding> bindings() {
  std::vector<Binding> out;
  for (const AclBindSlotDef& s : kAclBindSlots) {
    uint32_t lst = gaclGrp.slots.*s.field;
    if (s.cls == AclSlotClass::Untyped) {
      const bool ingress = s.dir == ACL_DIR_INGRESS;
      lst = (ingress ? gaclGrp.inCtrl : gaclGrp.outCtrl) == 1
                ? (ingress ? gaclGrp.inCtrlList : gaclGrp.outCtrlList)
                : 0;
    }
    if (lst != 0) out.push_back({Scope::Global, 0, 0, 0, &s, lst});
  }
  eachInTree<AclIfEntry>(&gaclGrp.ifTree, [&](AclIfEntry& e) {
    for (const AclBindSlotDef& s : kAclBindSlots) {
      const uint32_t lst = e.slots.*s.field;
      if (lst == 0) continue;
      if (s.cls == AclSlotClass::Untyped &&
          (s.dir == ACL_DIR_INGRESS ? e.inCtrl : e.outCtrl) != ACL_IF_CTRL_ON) {
        continue;
      }
      out.push_back({Scope::If, e.unit, 0, 0, &s, lst});
    }
  });
  eachInTree<AclGemPortEntry>(&gaclGrp.gemPortTree, [&](AclGemPortEntry& e) {
    for (const AclBindSlotDef& s : kAclBindSlots) {
      const uint32_t lst = e.slots.*s.field;
      if (lst == 0 || s.cls == AclSlotClass::Untyped) continue;
      out.push_back({Scope::Gem, e.unit, e.onuId, e.gemPort, &s, lst});
    }
  });
  return out;
}

class Audit {
 public:
  Audit() {
    vdev::Device& d = vdev::device();
    std::lock_guard lock(d.mutex);
    interfaces_ = d.model.interfaces;
    hw_ = d.journal.hw;
    for (const auto& [id, tr] : d.model.timeRanges) ranges_[id] = tr.active;
  }

  // Where one rule stands: its time range and, for every binding of its list, whether each table
  // the binding reaches holds it; why it may not be there.
  json ruleState(const AclListEntry& l, const AclRuleEntry& r) {
    json out = {{"list", l.lstIdx}, {"rule", r.ruleIdx}};
    if (followsRange(r)) {
      out["timeRange"] = r.trIdx;
      out["rangeActive"] = rangeOn(r);
      out["stored"] = r.trActive != 0 ? "active" : "inactive";
    }
    const char* why = r.status != ACL_RULE_STATUS_VALID ? "not valid"
                      : followsRange(r) && !rangeOn(r)   ? "time range inactive"
                      : !eligible(r)                     ? "VRF field or next hops unresolved"
                                                         : "";
    if (*why != 0) out["notEligible"] = why;
    const bool tlv = gaclGrp.tlvEnable == 1;
    json rows = json::array();
    for (const Binding& b : bindings()) {
      if (b.lstIdx != l.lstIdx) continue;
      const uint32_t cmd = b.scope == Scope::Global ? (tlv ? kGlobalTlv : kGlobalAdd)
                           : b.scope == Scope::If   ? (tlv ? kIfTlv : kIfAdd)
                                                    : (tlv ? kGemTlv : kGemAdd);
      for (const vdev::ScopeKey& k : scopes(b, cmd)) {
        auto t = hw_.find(k);
        const bool in = t != hw_.end() &&
                        t->second.entries.contains({l.lstIdx, r.ruleIdx, b.slot->dir});
        rows.push_back({{"binding", where(b)}, {"table", scopeName(k)}, {"installed", in}});
      }
    }
    out["bindings"] = rows;
    return out;
  }

  std::vector<AclAuditDiff> run() {
    const std::vector<Binding> all = bindings();
    refCounts(all);
    bindList(all);
    ledger();
    ledgerIndex();
    timeRanges();
    hardware(all);
    return std::move(diffs_);
  }

 private:
  template <typename... Args>
  void diff(const char* check, const char* fmt, Args... args) {
    char buf[256];
    std::snprintf(buf, sizeof buf, fmt, args...);
    diffs_.push_back({check, buf});
  }

  // refCnt: one per slot holding the list.
  void refCounts(const std::vector<Binding>& all) {
    std::map<uint32_t, int32_t> held;
    for (const Binding& b : all) {
      ++held[b.lstIdx];
      if (aclListEntryGet(b.lstIdx) == nullptr) {
        diff("refCnt", "%s holds list %u, which does not exist", where(b).c_str(), b.lstIdx);
      }
    }
    eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
      if (e.bindOwner == ACL_BIND_OWNER_PBR) ++held[e.lstIdx];
      if (e.bindOwner == ACL_BIND_OWNER_TRAFFIC) held[e.lstIdx] += e.refcount;
    });
    for (const AclHqosBinding& h : aclHqosBindings()) ++held[h.lstIdx];
    eachInTree<AclBlackListEntry>(&gaclGrp.blackListTree,
                                  [&](AclBlackListEntry& e) { ++held[e.lstIdx]; });
    eachInTree<AclListEntry>(&gaclGrp.listTree, [&](AclListEntry& l) {
      const int32_t want = held.contains(l.lstIdx) ? held[l.lstIdx] : 0;
      if (l.refCnt != want) {
        diff("refCnt", "list %u has refCnt %d, its bind slots hold it %d time(s)", l.lstIdx,
             l.refCnt, want);
      }
    });
  }

  // Every interface and GEM binding against its ACL-owned whole-list entry, both ways.
  void bindList(const std::vector<Binding>& all) {
    using IfKey = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>;  // if, kind, dir, list
    using GemKey = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t>;
    std::set<IfKey> ifWant, ifHave;
    std::set<GemKey> gemWant, gemHave;
    for (const Binding& b : all) {
      if (b.scope == Scope::If) ifWant.insert({b.unit, b.slot->kind, b.slot->dir, b.lstIdx});
      if (b.scope == Scope::Gem) {
        gemWant.insert({b.unit, b.onu, b.gem, b.slot->kind, b.slot->dir, b.lstIdx});
      }
    }
    // Entries of single rules and of other owners (redirects, traffic policies) have no bind slot.
    eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
      if (e.ruleIdx == 0 && e.bindOwner == ACL_BIND_OWNER_ACL) {
        ifHave.insert({e.ifIndex, e.listType, e.dir, e.lstIdx});
      }
      // A policy's entry names one rule and has a user; a redirect's names the whole list.
      if (e.bindOwner == ACL_BIND_OWNER_TRAFFIC && (e.ruleIdx == 0 || e.refcount == 0)) {
        diff("bindList",
             "traffic-policy entry (interface %u, list %u, rule %u, dir %u) has refcount %u",
             e.ifIndex, e.lstIdx, e.ruleIdx, unsigned{e.dir}, unsigned{e.refcount});
      }
      if (e.bindOwner == ACL_BIND_OWNER_PBR && e.ruleIdx != 0) {
        diff("bindList", "redirect entry (interface %u, list %u, dir %u) names rule %u", e.ifIndex,
             e.lstIdx, unsigned{e.dir}, e.ruleIdx);
      }
    });
    eachInTree<AclGemPortListEntry>(&gaclGrp.gemPortListTree, [&](AclGemPortListEntry& e) {
      gemHave.insert({e.ifIndex, e.onuId, e.gemPort, e.listType, e.dir, e.lstIdx});
    });
    for (const auto& [i, k, d, l] : ifWant) {
      if (!ifHave.contains({i, k, d, l})) {
        diff("bindList", "interface %u holds list %u (kind %u, dir %u) without a bind-list entry",
             i, l, k, d);
      }
    }
    for (const auto& [i, k, d, l] : ifHave) {
      if (!ifWant.contains({i, k, d, l})) {
        diff("bindList", "bind-list entry (interface %u, kind %u, dir %u, list %u) has no slot", i,
             k, d, l);
      }
    }
    for (const auto& [i, o, g, k, d, l] : gemWant) {
      if (!gemHave.contains({i, o, g, k, d, l})) {
        diff("bindList", "GEM port %u/%u/%u holds list %u (kind %u, dir %u) without an entry", i,
             o, g, l, k, d);
      }
    }
    for (const auto& [i, o, g, k, d, l] : gemHave) {
      if (!gemWant.contains({i, o, g, k, d, l})) {
        diff("bindList", "GEM entry (%u/%u/%u, kind %u, dir %u, list %u) has no slot", i, o, g, k,
             d, l);
      }
    }
  }

  const vdev::Interface* iface(uint32_t unit) const {
    auto it = interfaces_.find(unit);
    return it == interfaces_.end() ? nullptr : &it->second;
  }

  // The ledger column of a list type and a direction, or -1 for none.
  static int bindType(uint32_t listType, uint32_t dir) {
    static const std::map<uint32_t, int> column = {{ACL_LIST_TYPE_L2, 0},   {ACL_LIST_TYPE_IPV4, 1},
                                                   {ACL_LIST_TYPE_IPV6, 2}, {ACL_LIST_TYPE_HYBRID, 3},
                                                   {ACL_LIST_TYPE_MPLS, 4}, {ACL_LIST_TYPE_UDF, 5}};
    auto it = column.find(listType);
    if (it == column.end() || dir > 2) return -1;
    return static_cast<int>(dir) * 6 + it->second;
  }

  // Recount from the bind trees: per slot record, the distinct (list, dir) pairs that reach it.
  void ledger() {
    std::map<AclSlotEntry*, std::set<std::pair<uint32_t, uint32_t>>> charged;
    std::vector<AclSlotEntry*> records;
    for (AclSlotEntry* e = aclSlotFirst(); e != nullptr; e = aclSlotNext(e)) records.push_back(e);
    auto reach = [&](uint32_t unit, uint32_t lst, uint32_t dir, bool allSlotCounts) {
      const vdev::Interface* i = iface(unit);
      if (i == nullptr) return;  // a binding nobody can locate is charged nowhere
      const uint32_t kind = i->kind();
      const bool allSlot = allSlotCounts && (kind == kKindAggregation || kind == kKindAllSlot);
      for (AclSlotEntry* e : records) {
        if (allSlot || (e->sys == i->location[0] && e->slot == i->location[1])) {
          charged[e].insert({lst, dir});
        }
      }
    };
    // The untyped slots are never charged.
    eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
      if (e.ruleIdx == 0 && e.listType != ACL_BIND_KIND_UNTYPED) reach(e.ifIndex, e.lstIdx, e.dir, true);
    });
    // Single rules bound where their whole list is not charge one each, once per slot.
    std::map<AclSlotEntry*, std::set<std::tuple<uint32_t, uint32_t, uint32_t>>> singles;
    eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
      if (e.ruleIdx == 0) return;
      const vdev::Interface* i = iface(e.ifIndex);
      const AclListEntry* l = aclListEntryGet(e.lstIdx);
      if (i == nullptr || l == nullptr ||
          aclRuleEntryGet(const_cast<AclListEntry*>(l), e.ruleIdx) == nullptr) {
        return;
      }
      const bool allSlot = i->kind() == kKindAggregation || i->kind() == kKindAllSlot;
      for (AclSlotEntry* s : records) {
        if (allSlot || (s->sys == i->location[0] && s->slot == i->location[1])) {
          singles[s].insert({e.lstIdx, e.ruleIdx, e.dir});
        }
      }
    });
    eachInTree<AclGemPortListEntry>(&gaclGrp.gemPortListTree, [&](AclGemPortListEntry& e) {
      reach(e.ifIndex, e.lstIdx, e.dir, false);
    });
    for (AclSlotEntry* e : records) {
      std::array<uint64_t, ACL_BIND_TYPE_NUM> want{};
      for (const auto& [lst, dir] : charged[e]) {
        const int bt = bindType(aclListTypeGetByIndex(lst), dir);
        const AclListEntry* l = aclListEntryGet(lst);
        if (bt >= 0 && l != nullptr) want[static_cast<size_t>(bt)] += l->ruleNum;
      }
      for (const auto& [lst, rule, dir] : singles[e]) {
        const int bt = bindType(aclListTypeGetByIndex(lst), dir);
        if (bt >= 0 && !charged[e].contains({lst, dir})) ++want[static_cast<size_t>(bt)];
      }
      for (size_t bt = 0; bt < ACL_BIND_TYPE_NUM; ++bt) {
        if (e->curSubRuleNum[bt] != want[bt]) {
          diff("ledger", "slot %u/%u bind type %zu charges %u rules, the bindings call for %llu",
               e->sys, e->slot, bt, e->curSubRuleNum[bt], static_cast<unsigned long long>(want[bt]));
        }
      }
    }
  }

  // The index behind the slot accounting against a recount the slow way: every entry of both bind
  // trees, located through the platform as the walk locates it. A binding whose interface the
  // platform now places elsewhere is charged by the index where it was when it was made.
  void ledgerIndex() {
    std::map<AclSlotIndexRow, AclSlotWhere> want, have;
    auto keyOf = [](AclSlotIndexRow r) {
      r.where = {};
      return r;
    };
    eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
      const AclSlotIndexRow r{false, e.lstIdx, e.dir, e.ruleIdx, e.ifIndex, 0, 0, e.listType, {}};
      want[r] = aclSlotWhereOf(e.ifIndex);
    });
    eachInTree<AclGemPortListEntry>(&gaclGrp.gemPortListTree, [&](AclGemPortListEntry& e) {
      const AclSlotIndexRow r{true, e.lstIdx, e.dir, 0, e.ifIndex, e.onuId, e.gemPort, e.listType,
                              {}};
      want[r] = aclSlotWhereOf(e.ifIndex);
    });
    for (const AclSlotIndexRow& r : aclSlotIndexRows()) have[keyOf(r)] = r.where;
    for (const auto& [r, w] : want) {
      auto it = have.find(r);
      if (it == have.end()) {
        diff("ledgerIndex", "%s is missing from the slot index", entryName(r).c_str());
      } else if (it->second != w) {
        diff("ledgerIndex", "%s: the slot index has it %s, the platform locates it %s",
             entryName(r).c_str(), placeName(it->second).c_str(), placeName(w).c_str());
      }
    }
    for (const auto& [r, w] : have) {
      if (!want.contains(r)) {
        diff("ledgerIndex", "the slot index holds %s %s, which no bind tree has",
             entryName(r).c_str(), placeName(w).c_str());
      }
    }
  }
  static std::string entryName(const AclSlotIndexRow& r) {
    char buf[128];
    if (r.gem) {
      std::snprintf(buf, sizeof buf, "GEM entry (%u/%u/%u, kind %u, dir %u, list %u)", r.ifIndex,
                    unsigned{r.onuId}, unsigned{r.gemPort}, unsigned{r.listType}, unsigned{r.dir},
                    r.lstIdx);
    } else {
      std::snprintf(buf, sizeof buf,
                    "bind-list entry (interface %u, kind %u, dir %u, list %u, rule %u)", r.ifIndex,
                    unsigned{r.listType}, unsigned{r.dir}, r.lstIdx, r.ruleIdx);
    }
    return buf;
  }
  static std::string placeName(const AclSlotWhere& w) {
    char buf[48];
    if (!w.located) return "nowhere";
    std::snprintf(buf, sizeof buf, w.allSlot ? "on every slot (from %u/%u)" : "on %u/%u", w.sys,
                  w.slot);
    return buf;
  }

  static bool followsRange(const AclRuleEntry& r) {
    return aclBitTest(std::span<const uint8_t>(r.fieldBits), RULE_BIT_TRID) && r.trIdx != 0;
  }
  // Whether the rule's time range is on: the service's word for a range it knows, else the
  // rule's own (a range the service no longer has cannot be asked).
  bool rangeOn(const AclRuleEntry& r) const {
    auto it = ranges_.find(r.trIdx);
    return it != ranges_.end() ? it->second : r.trActive != 0;
  }

  // The state each rule stored for its time range against the service.
  void timeRanges() {
    eachInTree<AclListEntry>(&gaclGrp.listTree, [&](AclListEntry& l) {
      eachInTree<AclRuleEntry>(&l.ruleTree, [&](AclRuleEntry& r) {
        if (!followsRange(r) || rangeOn(r) == (r.trActive != 0)) return;
        diff("timeRange", "list %u rule %u holds time range %u as %s, the service says %s",
             r.lstIdx, r.ruleIdx, unsigned{r.trIdx}, r.trActive != 0 ? "active" : "inactive",
             rangeOn(r) ? "active" : "inactive");
      });
    });
  }

  bool eligible(const AclRuleEntry& r) const {
    if (r.status != ACL_RULE_STATUS_VALID) return false;
    const std::span<const uint8_t> fields(r.fieldBits);
    if (followsRange(r) && !rangeOn(r)) return false;
    if (aclBitTest(fields, RULE_BIT_VRFID)) return false;
    const std::span<const uint8_t> actions(r.actionBits);
    const bool redirect = aclBitTest(actions, RULE_ACTION_OUTPUT_NEXTHOP) ||
                          aclBitTest(actions, RULE_ACTION_IP6OUTPUT_NEXTHOP) ||
                          aclBitTest(actions, RULE_ACTION_OUTPUT_MULTIHOP) ||
                          aclBitTest(actions, RULE_ACTION_IP6OUTPUT_MULTIHOP);
    return !redirect || (r.nhNum > 0 && r.nhLearned == r.nhNum);
  }

  static uint16_t priority(const Binding& b, uint32_t ruleIdx) {
    uint32_t base = 0;
    if (b.scope == Scope::Global) {
      base = b.slot->listType == ACL_LIST_TYPE_HYBRID ? 9216 : 8192;
    } else {
      const uint32_t kind = b.slot->kind;
      base = (kind == 4 || kind == 12) ? 1024 : 0;
      if (b.scope == Scope::If) base += 4096;
    }
    return static_cast<uint16_t>(base + ruleIdx);
  }

  struct Want {
    std::set<uint32_t> priorities;  // one binding each; two bindings may share an entry
    std::string by;
    int tlv = -1;  // 1 a TLV message, 0 a rule record, -1 as tlvEnable says
  };
  using Entries = std::map<std::tuple<uint32_t, uint32_t, uint32_t>, Want>;

  // The tables a binding's commands reach.
  std::vector<vdev::ScopeKey> scopes(const Binding& b, uint32_t cmd) {
    if (b.scope == Scope::Global) return {vdev::ScopeKey{0, 0, 0, 0}};
    if (b.scope == Scope::Gem) return {vdev::ScopeKey{2, b.unit, b.onu, b.gem}};
    return unitScopes(b.unit, cmd, where(b));
  }
  std::vector<vdev::ScopeKey> unitScopes(uint32_t unit, uint32_t cmd, const std::string& by) {
    const vdev::Interface* i = iface(unit);
    if (i == nullptr) {
      diff("hardware", "%s: interface %u is unknown to the device", by.c_str(), unit);
      return {};
    }
    if (i->kind() != kKindAggregation) return {vdev::ScopeKey{1, unit, 0, 0}};
    auto m = i->modes.find(cmd);
    const uint8_t mode = m == i->modes.end() ? i->defaultMode : m->second;
    std::vector<vdev::ScopeKey> out;
    if (mode & kModeAggregation) out.push_back({1, unit, 0, 0});
    if (mode & kModeMembers) {
      for (size_t n = 0; n < i->members.size() && n < kMaxMembers; ++n) {
        out.push_back({1, i->members[n], 0, 0});
      }
    }
    return out;
  }

  static std::string scopeName(const vdev::ScopeKey& k) {
    char buf[64];
    if (k.scope == 0) return "global table";
    if (k.scope == 1) {
      std::snprintf(buf, sizeof buf, "unit %u", k.unit);
    } else {
      std::snprintf(buf, sizeof buf, "GEM key %u/%u/%u", k.unit, k.onu, k.gem);
    }
    return buf;
  }

  void hardware(const std::vector<Binding>& all) {
    const bool tlv = gaclGrp.tlvEnable == 1;
    std::map<vdev::ScopeKey, Entries> want;
    for (const Binding& b : all) {
      AclListEntry* l = aclListEntryGet(b.lstIdx);
      if (l == nullptr) continue;
      const uint32_t cmd = b.scope == Scope::Global ? (tlv ? kGlobalTlv : kGlobalAdd)
                           : b.scope == Scope::If   ? (tlv ? kIfTlv : kIfAdd)
                                                    : (tlv ? kGemTlv : kGemAdd);
      for (const vdev::ScopeKey& k : scopes(b, cmd)) {
        Entries& entries = want[k];
        eachInTree<AclRuleEntry>(&l->ruleTree, [&](AclRuleEntry& r) {
          if (!eligible(r)) return;
          Want& w = entries[{b.lstIdx, r.ruleIdx, b.slot->dir}];
          w.priorities.insert(priority(b, r.ruleIdx));
          if (w.by.empty()) w.by = where(b);
        });
      }
    }
    policyWant(want);
    for (const auto& [k, entries] : want) {
      auto t = hw_.find(k);
      for (const auto& [key, w] : entries) {
        const auto& [lst, rule, dir] = key;
        const vdev::HwEntry* e = nullptr;
        if (t != hw_.end()) {
          auto it = t->second.entries.find(key);
          if (it != t->second.entries.end()) e = &it->second;
        }
        if (e == nullptr) {
          diff("hardware", "%s lacks list %u rule %u dir %u (%s, priority %u)",
               scopeName(k).c_str(), lst, rule, dir, w.by.c_str(), *w.priorities.begin());
          continue;
        }
        if (!w.priorities.contains(e->priority)) {
          diff("hardware", "%s holds list %u rule %u dir %u with priority %u, %s calls for %u",
               scopeName(k).c_str(), lst, rule, dir, e->priority, w.by.c_str(),
               *w.priorities.begin());
        }
        const bool wantTlv = w.tlv < 0 ? tlv : w.tlv == 1;
        if (e->tlv != wantTlv) {
          diff("hardware", "%s holds list %u rule %u dir %u as a %s, %s calls for a %s",
               scopeName(k).c_str(), lst, rule, dir, e->tlv ? "TLV message" : "rule record",
               w.tlv < 0 ? "tlvEnable" : w.by.c_str(), wantTlv ? "TLV message" : "rule record");
        }
      }
    }
    for (const auto& [k, table] : hw_) {
      auto w = want.find(k);
      for (const auto& [key, e] : table.entries) {
        if (w != want.end() && w->second.contains(key)) continue;
        if (k.scope == 0 && e.dir == ACL_DIR_INGRESS && blackListMay_.contains({e.list, e.rule})) {
          continue;
        }
        diff("hardware", "%s holds list %u rule %u dir %u that no binding calls for",
             scopeName(k).c_str(), e.list, e.rule, e.dir);
      }
    }
  }

  // What the bindings without a bind slot hold in the hardware.
  void policyWant(std::map<vdev::ScopeKey, Entries>& want) {
    const bool tlv = gaclGrp.tlvEnable == 1;
    auto put = [&](const vdev::ScopeKey& k, uint32_t lst, uint32_t rule, uint32_t dir,
                   uint32_t prio, int form, const std::string& by) {
      Want& w = want[k][{lst, rule, dir}];
      w.priorities.insert(prio);
      if (w.by.empty()) w.by = by;
      if (w.tlv < 0) w.tlv = form;
    };
    auto noVrf = [](const AclRuleEntry& r) { return !aclBitTest(r.fieldBits, RULE_BIT_VRFID); };
    char by[96];
    eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
      AclListEntry* l = aclListEntryGet(e.lstIdx);
      if (l == nullptr) return;
      if (e.bindOwner == ACL_BIND_OWNER_TRAFFIC) {
        AclRuleEntry* r = aclRuleEntryGet(l, e.ruleIdx);
        if (r == nullptr || !noVrf(*r)) return;
        std::snprintf(by, sizeof by, "traffic policy on interface %u", e.ifIndex);
        for (const auto& k : unitScopes(e.ifIndex, tlv ? kIfTlv : kIfAdd, by)) {
          put(k, e.lstIdx, e.ruleIdx, e.dir, e.ruleIdx, -1, by);
        }
      } else if (e.bindOwner == ACL_BIND_OWNER_PBR) {
        std::snprintf(by, sizeof by, "redirect on interface %u", e.ifIndex);
        const uint32_t base = aclListTypeGetByIndex(e.lstIdx) == ACL_LIST_TYPE_HYBRID ? 1024 : 0;
        for (const auto& k : unitScopes(e.ifIndex, kIfTlv, by)) {
          eachInTree<AclRuleEntry>(&l->ruleTree, [&](AclRuleEntry& r) {
            put(k, e.lstIdx, r.ruleIdx, e.dir, base + r.ruleIdx, 1, by);
          });
        }
      }
    });
    for (const AclHqosBinding& h : aclHqosBindings()) {
      AclListEntry* l = aclListEntryGet(h.lstIdx);
      if (l == nullptr) continue;
      std::snprintf(by, sizeof by, "HQoS on interface %u", h.ifIndex);
      for (const auto& k : unitScopes(h.ifIndex, tlv ? kIfTlv : kIfAdd, by)) {
        eachInTree<AclRuleEntry>(&l->ruleTree, [&](AclRuleEntry& r) {
          if (r.status == ACL_RULE_STATUS_VALID && noVrf(r)) {
            put(k, h.lstIdx, r.ruleIdx, h.dir, r.ruleIdx, -1, by);
          }
        });
      }
    }
    eachInTree<AclBlackListEntry>(&gaclGrp.blackListTree, [&](AclBlackListEntry& e) {
      AclListEntry* l = aclListEntryGet(e.lstIdx);
      if (l == nullptr) return;
      std::snprintf(by, sizeof by, "blacklist of %u/%u", e.sys, e.slot);
      eachInTree<AclRuleEntry>(&l->ruleTree, [&](AclRuleEntry& r) {
        if (r.status == ACL_RULE_STATUS_VALID) {
          put(vdev::ScopeKey{0, 0, 0, 0}, e.lstIdx, r.ruleIdx, ACL_DIR_INGRESS, r.ruleIdx, -1, by);
        } else {
          blackListMay_.insert({e.lstIdx, r.ruleIdx});
        }
      });
    });
    for (const AclTrafficGlobalRule& g : aclTrafficGlobalRules()) {
      put(vdev::ScopeKey{0, 0, 0, 0}, g.lstIdx, g.ruleIdx, g.dir, g.ruleIdx, -1,
          "global traffic policy");
    }
  }

  std::map<uint32_t, vdev::Interface> interfaces_;
  vdev::HwTables hw_;
  std::map<uint32_t, bool> ranges_;  // time range id -> active, as the service has it
  std::vector<AclAuditDiff> diffs_;
  // Rules of blacklisted lists that are not valid: the blacklisting installed them if they were
  // there when it was made, and a status change since took them out; either way is right.
  std::set<std::pair<uint32_t, uint32_t>> blackListMay_;
};

}  // namespace

std::vector<AclAuditDiff> aclAuditRun() { return Audit().run(); }

json aclAuditReply() {
  if (!aclStarted()) return {{"ok", false}, {"error", "the ACL module is not running"}};
  std::vector<AclAuditDiff> diffs;
  {
    AclLockGuard lock;
    diffs = aclAuditRun();
  }
  json list = json::array();
  for (const AclAuditDiff& d : diffs) list.push_back({{"check", d.check}, {"text", d.text}});
  return {{"ok", true}, {"clean", diffs.empty()}, {"differences", list}};
}

json aclRuleStateReply(const json& req) {
  if (!aclStarted()) return {{"ok", false}, {"error", "the ACL module is not running"}};
  auto number = [&](const char* key) -> std::optional<uint32_t> {
    if (!req.contains(key) || !req[key].is_number_unsigned()) return std::nullopt;
    const uint64_t v = req[key].get<uint64_t>();
    if (v > UINT32_MAX) return std::nullopt;
    return static_cast<uint32_t>(v);
  };
  const auto lst = number("list");
  const auto rule = number("rule");
  if (!lst || !rule) {
    return {{"ok", false}, {"error", "\"list\" and \"rule\" must be numbers of 32 bits"}};
  }
  AclLockGuard lock;
  AclListEntry* l = aclListEntryGet(*lst);
  if (l == nullptr) return {{"ok", false}, {"error", "no list " + std::to_string(*lst)}};
  const AclRuleEntry* r = aclRuleEntryGet(l, *rule);
  if (r == nullptr) {
    return {{"ok", false},
            {"error", "no rule " + std::to_string(*lst) + "/" + std::to_string(*rule)}};
  }
  json out = Audit().ruleState(*l, *r);
  out["ok"] = true;
  return out;
}

// Every interface bind-list entry with who made it and how many users it has, which the command
// table's bind-list walk does not carry.
json aclBindListReply() {
  if (!aclStarted()) return {{"ok", false}, {"error", "the ACL module is not running"}};
  static const char* const kOwners[] = {"acl", "pbr", "trafficpolicy"};
  json entries = json::array();
  AclLockGuard lock;
  eachInTree<AclIfListEntry>(&gaclGrp.ifListTree, [&](AclIfListEntry& e) {
    entries.push_back({{"ifIndex", e.ifIndex},
                       {"kind", e.listType},
                       {"dir", e.dir},
                       {"list", e.lstIdx},
                       {"rule", e.ruleIdx},
                       {"owner", e.bindOwner < 3 ? kOwners[e.bindOwner] : "unknown"},
                       {"refcount", e.refcount}});
  });
  return {{"ok", true}, {"entries", entries}};
}

void aclAuditRegister() {
  vdev::registerControlOp("audit", [](const json&) { return aclAuditReply(); });
  vdev::registerControlOp("rule-state", [](const json& req) { return aclRuleStateReply(req); });
  vdev::registerControlOp("events", [](const json&) { return aclEventCountersReply(); });
  vdev::registerControlOp("bindlist", [](const json&) { return aclBindListReply(); });
}
