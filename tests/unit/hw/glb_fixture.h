// A started ACL group for the global binding and next-hop tests: rules with redirect actions,
// the global hardware table of the virtual device, its neighbours and faults. The test thread
// holds aclMutex for the whole test, as the binding code expects of its callers, so the event
// task cannot run the timer list behind the test's back.
#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <array>
#include <map>
#include <string>
#include <tuple>

#include "control/acl_dstip.h"
#include "control/acl_nexthop.h"
#include "hw/acl_glb.h"
#include "platform/fault.h"
#include "platform/hwil.h"
#include "stats/acl_stats.h"
#include "support/device_lock.h"
#include "unit/trans/trans_fixture.h"

namespace glbtest {

using transtest::Bytes;
using transtest::num;

inline Bytes ip4(const char* text) {
  Bytes b(4);
  EXPECT_EQ(inet_pton(AF_INET, text, b.data()), 1) << text;
  return b;
}
inline Bytes ip6(const char* text) {
  Bytes b(16);
  EXPECT_EQ(inet_pton(AF_INET6, text, b.data()), 1) << text;
  return b;
}

// (list, rule, dir) -> priority of what the global hardware table holds.
using HwKey = std::tuple<uint32_t, uint32_t, uint32_t>;
using HwView = std::map<HwKey, uint32_t>;

class GlbTest : public transtest::TransTest {
 protected:
  void SetUp() override {
    transtest::TransTest::SetUp();
    aclLock();
  }
  void TearDown() override {
    aclUnlock();
    transtest::TransTest::TearDown();
  }

  // A fresh process for one case of a table, still holding aclMutex as the fixture does.
  void restart(const std::vector<std::pair<std::string, std::string>>& opts = {}) {
    aclUnlock();
    start(opts);
    aclLock();
  }
  // A valid rule; redirect actions are added by the helpers below.
  static AclRuleEntry* validRule(uint32_t lstIdx, uint32_t ruleIdx) {
    AclRuleEntry* r = rule(lstIdx, ruleIdx);
    if (r != nullptr) r->status = ACL_RULE_STATUS_VALID;
    return r;
  }
  static void nextHop(AclRuleEntry* r, const char* addr) {
    action(r, RULE_ACTION_OUTPUT_NEXTHOP, 11, ip4(addr));
  }
  static void nextHop6(AclRuleEntry* r, const char* addr) {
    action(r, RULE_ACTION_IP6OUTPUT_NEXTHOP, 23, ip6(addr));
  }
  // Up to four IPv4 next hops in one 16-byte parameter.
  static void multiHop(AclRuleEntry* r, std::initializer_list<const char*> addrs) {
    Bytes b;
    for (const char* a : addrs) {
      const Bytes one = ip4(a);
      b.insert(b.end(), one.begin(), one.end());
    }
    b.resize(16, 0);
    action(r, RULE_ACTION_OUTPUT_MULTIHOP, 11, b);
  }
  static void counted(AclRuleEntry* r) { action(r, RULE_ACTION_AWARE, 10, num(0, 4)); }
  // List lst with valid rules; counted ones carry the statistics action.
  static AclListEntry* listOf(uint32_t lst, std::initializer_list<uint32_t> rules,
                              std::initializer_list<uint32_t> countedRules = {}) {
    AclListEntry* l = list(lst);
    for (uint32_t r : rules) validRule(lst, r);
    for (uint32_t r : countedRules) counted(validRule(lst, r));
    return l;
  }
  // A rule's next hops: how many it has, how many are known.
  static std::pair<int, int> hops(const AclRuleEntry* r) { return {r->nhNum, r->nhLearned}; }

  static HwView global() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    HwView out;
    auto it = d.journal.hw.find(vdev::ScopeKey{0, 0, 0, 0});
    if (it == d.journal.hw.end()) return out;
    for (const auto& [key, e] : it->second.entries) out[key] = e.priority;
    return out;
  }
  static uint64_t installSeq(uint32_t list, uint32_t rule, uint32_t dir) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    auto it = d.journal.hw.find(vdev::ScopeKey{0, 0, 0, 0});
    if (it == d.journal.hw.end()) return 0;
    auto e = it->second.entries.find({list, rule, dir});
    return e == it->second.entries.end() ? 0 : e->second.seq;
  }
  // Removals of rules the hardware did not hold, as (list, rule, dir).
  static std::vector<HwKey> strayRemovals() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    std::vector<HwKey> out;
    for (const auto& a : d.journal.anomalies) {
      if (a.what == "removal of an entry not in hardware") out.emplace_back(a.list, a.rule, a.dir);
    }
    return out;
  }
  static size_t anomalyCount() {
    return test::onDevice([&](vdev::Device& d) { return d.journal.anomalies.size(); });
  }

  static void neighbour(const Bytes& addr, bool known, uint32_t vrf = 0) {
    vdev::Neighbour n;
    n.vrf = vrf;
    n.family = addr.size() == 4 ? 1 : 2;
    std::copy(addr.begin(), addr.end(), n.addr.begin());
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    auto& v = d.model.neighbours;
    std::erase(v, n);
    if (known) v.push_back(n);
  }
  static size_t detectListSize() {
    return test::onDevice([&](vdev::Device& d) { return d.model.detectList.size(); });
  }

  // Fails the hardware command cmd for one rule of a list.
  static uint32_t failRule(uint32_t cmd, uint32_t list, uint32_t rule, int32_t count = 1) {
    return plat::faultAdd({.call = "zorHwilCmdSetApi",
                           .cmd = cmd,
                           .list = list,
                           .rule = rule,
                           .result = kHwFault,
                           .count = count});
  }
  static uint32_t faultHits(uint32_t id) {
    for (const auto& f : plat::faultList()) {
      if (f.id == id) return f.hits;
    }
    return 0;
  }
  // A fault with a count leaves the table once it has failed that many calls.
  static bool faultArmed(uint32_t id) {
    for (const auto& f : plat::faultList()) {
      if (f.id == id) return true;
    }
    return false;
  }

  // Runs the timer list as the event task does after the clock moved by ms.
  static int runTimers(uint64_t ms) {
    silUpTimeAdvanceForTest(ms);
    return silTimerListCheck(&gaclGrp.timerList);
  }
  static bool retryArmed(const AclListEntry* l) { return l->retryTimer.list != nullptr; }

  static constexpr int32_t kHwFault = 0x03E80099;
};

}  // namespace glbtest
