// A started ACL group with statistics records made directly, the way the binding code makes them,
// and access to what the virtual device holds and received for them.
#pragma once

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "counter/counter.h"
#include "platform/vdev/locked.h"
#include "platform/vdev/model.h"
#include "stats/acl_stats.h"
#include "support/table_call.h"
#include "unit/store/store_fixture.h"

namespace statstest {

// dir, list, rule: the rule statistics list's key in its order.
using Key = std::tuple<int, uint32_t, uint32_t>;

class StatsTest : public storetest::StoreTest {
 protected:
  static AclStatsEntry* record(uint32_t lst, uint32_t rule, int8_t dir, uint32_t ifIndex = 0) {
    AclStatsEntry* e = aclStatsMalloc();
    EXPECT_NE(e, nullptr);
    if (e == nullptr) return nullptr;
    e->lstIdx = lst;
    e->ruleIdx = rule;
    e->dir = dir;
    e->ifIndex = ifIndex;
    return e;
  }
  static AclStatsEntry* added(uint32_t lst, uint32_t rule, int8_t dir) {
    AclStatsEntry* e = record(lst, rule, dir);
    EXPECT_EQ(aclStatsAdd(e), 0);
    return e;
  }
  static std::vector<Key> ruleOrder() {
    std::vector<Key> keys;
    for (SilDlNode* n = gaclGrp.statsList.next; n != &gaclGrp.statsList; n = n->next) {
      auto* e = dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ruleNode));
      keys.emplace_back(e->dir, e->lstIdx, e->ruleIdx);
    }
    return keys;
  }
  static AclStatsIndex index(uint32_t lst, uint32_t rule, uint16_t dir, uint32_t ifIndex = 0) {
    return AclStatsIndex{lst, rule, ifIndex, dir};
  }

  // A valid counter with this type and color, held by rule lst/rule (both created here).
  void countedRule(uint32_t lst, uint32_t rule, uint32_t counter, uint32_t type, uint32_t color) {
    if (aclListEntryGet(lst) == nullptr) list(lst);
    AclRuleEntry* r = aclRuleEntryGetByIndex(lst, rule);
    if (r == nullptr) r = this->rule(lst, rule);
    ASSERT_NE(r, nullptr);
    r->counterId = counter;
    ASSERT_EQ(test::callValue(counterSetApi, counter, 3, 2), 0);
    ASSERT_EQ(test::callValue(counterSetApi, counter, 3, 1), 0);
    ASSERT_EQ(test::callValue(counterSetApi, counter, 4, type), 0);
    ASSERT_EQ(test::callValue(counterSetApi, counter, 5, color), 0);
  }

  // The device's counters of a record, in the request's order p1, p2, b1, b2, p3, p4, b3, b4.
  static void deviceCounters(uint32_t lst, uint32_t rule, uint32_t dir,
                             std::array<uint64_t, 8> v, uint32_t ifIndex = 0) {
    vdev::modelEdit([&](vdev::Model& m) { m.counters[{lst, rule, ifIndex, dir}].v = v; });
  }
  static bool deviceHolds(uint32_t lst, uint32_t rule, uint32_t dir, uint32_t ifIndex = 0) {
    return vdev::modelCopy().counters.count({lst, rule, ifIndex, dir}) != 0;
  }
  // The rule counter requests the device received, oldest first.
  static std::vector<vdev::CommandLogEntry> counterRequests() {
    std::vector<vdev::CommandLogEntry> out;
    for (auto& c : vdev::journalCopy().commands) {
      if (c.cmd == 215 || c.cmd == 216) out.push_back(c);
    }
    return out;
  }
};

}  // namespace statstest
