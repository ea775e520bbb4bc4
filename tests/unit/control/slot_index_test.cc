// The indexed slot accounting against the walk over the bind trees. Random sequences of whole-list
// and single-rule bindings, GEM bindings, rule changes on bound lists, capacity changes and card
// recounts; every operation is asked both ways from the same ledger and must give the same answer
// and leave the same ledger. The interfaces cover every kind of place: ports of a slot with a
// record and of one without, the PON card, an aggregation, an all-slot interface and one the
// platform cannot locate.
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "control/acl_slot_dynamic.h"
#include "control/acl_slot_index.h"
#include "control/acl_slot_walk.h"
#include "diag/acl_audit.h"
#include "support/device_lock.h"
#include "unit/control/slot_fixture.h"

namespace slottest {
namespace {

using Ledger = std::vector<std::tuple<uint32_t, uint32_t, std::vector<uint32_t>>>;

Ledger snapshot() {
  Ledger out;
  for (AclSlotEntry* s = aclSlotFirst(); s != nullptr; s = aclSlotNext(s)) {
    out.emplace_back(
        s->sys, s->slot,
        std::vector<uint32_t>(std::begin(s->curSubRuleNum), std::end(s->curSubRuleNum)));
  }
  return out;
}

// Back to a snapshot: counts restored, records created since then deleted.
void restore(const Ledger& l) {
  for (AclSlotEntry* s = aclSlotFirst(); s != nullptr;) {
    AclSlotEntry* next = aclSlotNext(s);
    bool kept = false;
    for (const auto& [sys, slot, cur] : l) {
      if (sys != s->sys || slot != s->slot) continue;
      std::copy(cur.begin(), cur.end(), s->curSubRuleNum);
      kept = true;
    }
    if (!kept) aclSlotEntryDel(s);
    s = next;
  }
}

std::string indexDiffs() {
  std::string out;
  for (const AclAuditDiff& d : aclAuditRun()) {
    if (d.check == "ledgerIndex") out += d.text + "\n";
  }
  return out;
}

// The two forms of one accounting call, for same().
#define BOTH(fn, ...) \
  [&] { return aclSlotWalk##fn(__VA_ARGS__); }, [&] { return aclSlot##fn(__VA_ARGS__); }

class SlotIndexTest : public SlotTest {
 protected:
  // The walk first, then the index from the same ledger; the index's answer and ledger are the
  // ones kept. A difference fails the test (the caller stops at it).
  template <typename Walk, typename Indexed>
  int64_t same(const std::string& at, const std::string& what, Walk walk, Indexed indexed) {
    const Ledger before = snapshot();
    const int64_t byWalk = walk();
    const Ledger afterWalk = snapshot();
    restore(before);
    const int64_t byIndex = indexed();
    EXPECT_EQ(byIndex, byWalk) << at << " " << what;
    EXPECT_EQ(snapshot(), afterWalk) << at << " " << what;
    reached.insert({what, byIndex});
    return byIndex;
  }

  // Every (operation, answer) that came up.
  std::set<std::pair<std::string, int64_t>> reached;
  std::vector<AclIfListEntry> ifEntries(bool wholeList) {
    std::vector<AclIfListEntry> out;
    for (auto* e = static_cast<AclIfListEntry*>(avl_first(&gaclGrp.ifListTree)); e != nullptr;
         e = static_cast<AclIfListEntry*>(avl_next(&gaclGrp.ifListTree, e))) {
      if ((e->ruleIdx == 0) == wholeList) out.push_back(*e);
    }
    return out;
  }
  std::vector<AclGemPortListEntry> gemEntries() {
    std::vector<AclGemPortListEntry> out;
    for (auto* e = static_cast<AclGemPortListEntry*>(avl_first(&gaclGrp.gemPortListTree));
         e != nullptr;
         e = static_cast<AclGemPortListEntry*>(avl_next(&gaclGrp.gemPortListTree, e))) {
      out.push_back(*e);
    }
    return out;
  }
};

// 1/3 keeps no record; 1/5 has no interfaces.
constexpr uint32_t kRecountSlots[] = {1, 2, 4, 5};

struct Mix {
  const char* name;
  uint32_t seed;
  uint32_t steps;
  uint32_t capacity;  // of every bind type on the slot records at the start
  bool singles;       // single-rule bindings, as traffic policies make them
  bool gem;
  bool dynamic;  // rules added to and removed from bound lists
  std::vector<std::pair<std::string, int64_t>> mustReach;
};

enum Op {
  Bind,
  Unbind,
  Single,
  SingleOff,
  GemOn,
  GemOff,
  RuleAdd,
  RuleDel,
  Recount,
  Capacity,
  Query
};
// Drawn with these weights: more bindings made than taken back, so the slots fill up.
constexpr Op kOps[] = {Bind,    Bind,    Bind,      Bind,     Unbind, Unbind, Single,
                       Single,  Single,  SingleOff, GemOn,    GemOn,  GemOff, RuleAdd,
                       RuleDel, RuleDel, Recount,   Capacity, Query,  Query};

TEST_F(SlotIndexTest, AnswersAsTheWalkAfterEveryStep) {
  const Mix mixes[] = {
      {"whole lists, room everywhere", 11, 1000, 1000, false, false, false, {}},
      {"whole lists on tight slots", 12, 1500, 8, false, false, false, {}},
      {"single rules beside whole lists", 13, 2000, 14, true, false, false, {}},
      {"GEM bindings and rule changes", 14, 2000, 10, false, true, true, {}},
      {"every kind of step",
       15,
       4000,
       9,
       true,
       true,
       true,
       {{"rule room", ACL_ERR_SLOT_NOT_EXIST},
        {"rule room", ACL_ERR_SLOT_RULE_FULL},
        {"recount of 1/4", CMN_ERR_IF_LOCATE},
        {"recount of 1/4", 0},
        {"rule bound", 1},
        {"single rules", 1}}},
  };
  // 150 is unknown to the platform; 500 is a port of 1/2 numbered after the PON interface of 1/4,
  // so the order of places and the order of interface numbers differ.
  const uint32_t units[] = {150, 201, 202, 203, 301, 302, kPon, 500, kAgg, kAllSlot, kNowhere};
  const uint32_t lists[] = {1001, 1002, 1003};
  for (const Mix& m : mixes) {
    SCOPED_TRACE(m.name);
    start();
    test::onDevice([&](vdev::Device& d) {
      d.model.interfaces[500] = d.model.interfaces[201];
      d.model.interfaces[500].index = 500;
    });
    for (uint32_t l : lists) list(l, 3);
    for (uint32_t s : {2u, 4u}) slot(s);  // 1/3 has no record until a recount makes one
    for (AclSlotEntry* s = aclSlotFirst(); s != nullptr; s = aclSlotNext(s)) {
      for (uint32_t& c : s->maxSubRuleNum) c = m.capacity;
    }
    std::mt19937 rng(m.seed);
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
    for (uint32_t step = 0; step < m.steps; ++step) {
      const Op op = kOps[pick(std::size(kOps))];
      if ((op == Single || op == SingleOff) && !m.singles) continue;
      if ((op == GemOn || op == GemOff) && !m.gem) continue;
      if ((op == RuleAdd || op == RuleDel) && !m.dynamic) continue;
      const uint32_t unit = units[pick(std::size(units))];
      const uint32_t lst = lists[pick(std::size(lists))];
      const auto dir = static_cast<uint8_t>(pick(3));
      // The list's own kind, or the untyped slots' kind 7 for the same list.
      const auto kind = static_cast<uint8_t>(pick(4) == 0 ? ACL_BIND_KIND_UNTYPED : 2);
      AclListEntry* l = aclListEntryGet(lst);
      const uint32_t n = l->ruleNum;
      const std::string at = "step " + std::to_string(step) + " op " + std::to_string(op) +
                             " unit " + std::to_string(unit) + " list " + std::to_string(lst) +
                             " dir " + std::to_string(dir);
      int64_t ret = 0;
      switch (op) {
        case Bind: {
          if (aclIfListGet(unit, kind, dir, lst, 0) != nullptr) break;
          // The untyped slots are bound without the ledger, wherever the interface lies.
          if (kind == ACL_BIND_KIND_UNTYPED) {
            ASSERT_NE(aclIfListAdd(unit, kind, dir, lst, 0), nullptr);
            break;
          }
          const uint32_t old = pick(2) == 0 ? pick(n + 1) : 0;  // sometimes a replacement
          ret = same(at, "check", BOTH(SubRuleNumCheck, unit, old, lst, n, dir));
          if (ret != 0) break;
          ret = same(at, "charge", BOTH(SubRuleNumUpdate, unit, lst, n, dir, ACL_SLOT_OP_ADD));
          if (ret == 0) {
            ASSERT_NE(aclIfListAdd(unit, kind, dir, lst, 0), nullptr);
          }
          break;
        }
        case Unbind: {
          const auto all = ifEntries(true);
          if (all.empty()) break;
          const AclIfListEntry e = all[pick(all.size())];
          const uint32_t count = aclListEntryGet(e.lstIdx)->ruleNum;
          if (e.listType == ACL_BIND_KIND_UNTYPED) {
            aclIfListDel(aclIfListGet(e.ifIndex, e.listType, e.dir, e.lstIdx, 0));
            break;
          }
          ret = same(at, "release",
                     BOTH(SubRuleNumUpdate, e.ifIndex, e.lstIdx, count, e.dir, ACL_SLOT_OP_DEL));
          aclIfListDel(aclIfListGet(e.ifIndex, e.listType, e.dir, e.lstIdx, 0));
          break;
        }
        case Single: {
          // Rule 0 binds the whole list the way a policy does, taking over its single rules.
          const uint32_t rule = pick(n + 2);
          const uint32_t count = rule == 0 ? n : 1;
          if (aclIfListGet(unit, kind, dir, lst, rule) != nullptr) break;
          ret = same(at, "rule check", BOTH(SubRuleNumCheckWithRule, unit, lst, rule, count, dir));
          if (ret != 0) break;
          ret = same(at, "rule charge",
                     BOTH(SubRuleNumUpdateWithRule, unit, lst, rule, count, dir, ACL_SLOT_OP_ADD));
          if (ret == 0) {
            ASSERT_NE(aclIfListAdd(unit, kind, dir, lst, rule), nullptr);
          }
          break;
        }
        case SingleOff: {
          const auto singles = ifEntries(false);
          if (singles.empty()) break;
          const AclIfListEntry e = singles[pick(singles.size())];
          ret = same(at, "rule release",
                     BOTH(SubRuleNumUpdateWithRule, e.ifIndex, e.lstIdx, e.ruleIdx, 1, e.dir,
                          ACL_SLOT_OP_DEL));
          aclIfListDel(aclIfListGet(e.ifIndex, e.listType, e.dir, e.lstIdx, e.ruleIdx));
          break;
        }
        case GemOn: {
          // GEM ports behind the PON card, and behind interfaces placed anywhere else.
          const uint32_t pon = pick(2) == 0 ? kPon : unit;
          const auto gem = static_cast<uint16_t>(1 + pick(2));
          if (aclGemPortListGet(pon, 1, gem, kind, dir, lst) != nullptr) break;
          ret = same(at, "GEM check", BOTH(SubRuleNumCheck, pon, 0, lst, n, dir));
          if (ret != 0) break;
          ret = same(at, "GEM charge", BOTH(SubRuleNumUpdate, pon, lst, n, dir, ACL_SLOT_OP_ADD));
          if (ret == 0) {
            ASSERT_NE(aclGemPortListAdd(pon, 1, gem, kind, dir, lst), nullptr);
          }
          break;
        }
        case GemOff: {
          const auto gems = gemEntries();
          if (gems.empty()) break;
          const AclGemPortListEntry e = gems[pick(gems.size())];
          const uint32_t count = aclListEntryGet(e.lstIdx)->ruleNum;
          ret = same(at, "GEM release",
                     BOTH(SubRuleNumUpdate, e.ifIndex, e.lstIdx, count, e.dir, ACL_SLOT_OP_DEL));
          aclGemPortListDel(
              aclGemPortListGet(e.ifIndex, e.onuId, e.gemPort, e.listType, e.dir, e.lstIdx));
          break;
        }
        case RuleAdd: {
          uint32_t rule = 0;
          if (n >= 6 || aclRuleGetFree(lst, &rule) != 0 || rule == 0) break;
          ret = same(at, "rule room", BOTH(SubRuleNumCheckDynamic, lst, rule));
          if (ret != 0) break;
          ASSERT_NE(aclRuleEntryAdd(lst, rule), nullptr);
          ret = same(at, "rule added",
                     BOTH(SubRuleNumUpdateDynamic, lst, rule, ACL_SLOT_DYNAMIC_ADD));
          break;
        }
        case RuleDel: {
          // Single-rule bindings may outlive their rule; the accounting then no longer counts them.
          if (n <= 1) break;
          auto* r = static_cast<AclRuleEntry*>(avl_first(&l->ruleTree));
          for (uint32_t skip = pick(n); skip > 0; --skip) {
            r = static_cast<AclRuleEntry*>(avl_next(&l->ruleTree, r));
          }
          const uint32_t rule = r->ruleIdx;
          ret = same(at, "rule removed",
                     BOTH(SubRuleNumUpdateDynamic, lst, rule, ACL_SLOT_DYNAMIC_DEL));
          ASSERT_EQ(aclRuleEntryDel(r), 0);
          break;
        }
        case Recount: {
          const uint32_t s = kRecountSlots[pick(std::size(kRecountSlots))];
          ret = same(at, "recount of 1/" + std::to_string(s), BOTH(CurRuleNumSync, 1, s));
          break;
        }
        case Capacity: {
          AclSlotEntry* s = aclSlotEntryGet(1, 1 + pick(4));
          if (s != nullptr) s->maxSubRuleNum[pick(ACL_BIND_TYPE_NUM)] = pick(2 * m.capacity);
          break;
        }
        case Query: {
          const uint32_t s = 1 + pick(4);
          const uint32_t rule = pick(n + 2);
          ret = same(at + " slot 1/" + std::to_string(s), "single rules",
                     BOTH(SingleRuleNumGet, 1, s, lst, dir));
          ret = same(at + " slot 1/" + std::to_string(s), "rule bound",
                     BOTH(ListRuleBindedCheck, 1, s, lst, rule, dir));
          break;
        }
      }
      if (HasFailure()) return;
      if (step % 100 == 99) {
        ASSERT_EQ(indexDiffs(), "") << at;
      }
    }
    EXPECT_EQ(indexDiffs(), "");
    // Everything unbound, the index is empty again.
    for (const AclIfListEntry& e : ifEntries(true)) {
      aclIfListDel(aclIfListGet(e.ifIndex, e.listType, e.dir, e.lstIdx, e.ruleIdx));
    }
    for (const AclIfListEntry& e : ifEntries(false)) {
      aclIfListDel(aclIfListGet(e.ifIndex, e.listType, e.dir, e.lstIdx, e.ruleIdx));
    }
    for (const AclGemPortListEntry& e : gemEntries()) {
      aclGemPortListDel(
          aclGemPortListGet(e.ifIndex, e.onuId, e.gemPort, e.listType, e.dir, e.lstIdx));
    }
    EXPECT_TRUE(aclSlotIndexAll().empty());
    // The answers that depend on the order of the bind tree came up, so the walk and the index
    // were held to it.
    for (const auto& [what, ret] : m.mustReach) {
      EXPECT_TRUE(reached.contains({what, ret})) << what << " never answered " << ret;
    }
    reached.clear();
  }
}

}  // namespace
}  // namespace slottest
