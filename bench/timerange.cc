// One time-range switch over 1000 IPv4 lists of 8 rules bound on interfaces, three lists to an
// interface (its ingress, egress and pre-stage IPv4 slots: the bind-list pool, sized by interfaces
// times rules, must stay under the platform's 4 GiB per pool). Rule 8 of every list follows the
// range. Without dynamic binding a switch takes every list off its interface and puts it back (8000
// rules each way); with it only the 1000 rules of the range are added or removed. Each iteration
// switches the range once, alternately on and off; the counters give the time per switch and per
// rule the switch re-programmed.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>

#include <benchmark/benchmark.h>

#include "control/acl_timerange.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "platform/ifmgr.h"
#include "platform/options.h"
#include "platform/proc.h"
#include "platform/vdev/calls.h"
#include "platform/vdev/model.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/be.h"

namespace {

constexpr uint32_t kLists = 1000;
constexpr uint32_t kRules = 8;
constexpr uint32_t kFirstList = 1001;  // IPv4 lists 1001..2000
constexpr uint32_t kFirstUnit = 5001;
constexpr uint32_t kListsPerUnit = 3;
constexpr uint32_t kUnits = (kLists + kListsPerUnit - 1) / kListsPerUnit;
constexpr uint32_t kRange = 2;

// Interfaces the device does not have by default, on slot 1/2.
void addInterfaces() {
  vdev::Device& d = vdev::device();
  std::lock_guard lock(d.mutex);
  for (uint32_t i = 0; i < kUnits; ++i) {
    vdev::Interface& it = d.model.interfaces[kFirstUnit + i];
    it.index = kFirstUnit + i;
    it.name = "bench-" + std::to_string(i);
    it.location[ZOR_LOC_SYS] = 1;
    it.location[ZOR_LOC_SLOT] = 2;
    it.location[ZOR_LOC_PORT] = i + 1;
    it.location[ZOR_LOC_KIND] = ZOR_IF_KIND_ETH;
  }
}

bool fail(const char* what, uint32_t n, uint32_t code) {
  std::fprintf(stderr, "bench_timerange: %s %u: 0x%08x\n", what, n, code);
  return false;
}

bool build() {
  addInterfaces();
  AclLockGuard lock;
  for (uint32_t i = 0; i < kLists; ++i) {
    const uint32_t lst = kFirstList + i;
    AclListEntry* l = aclListEntryAdd(lst);
    if (l == nullptr) return fail("list", lst, gaclGrp.lastErr);
    for (uint32_t r = 1; r <= kRules; ++r) {
      AclRuleEntry* rule = aclRuleEntryAdd(lst, r);
      if (rule == nullptr) return fail("rule", lst, gaclGrp.lastErr);
      rule->status = ACL_RULE_STATUS_VALID;
      if (r == kRules) {
        aclBitSet(rule->fieldBits, RULE_BIT_TRID);
        rule->trIdx = kRange;
        rule->trActive = 0;
      }
    }
    struct Slot {
      uint32_t AclBindSlots::*field;
      uint32_t dir, kind;
    };
    static constexpr Slot kSlots[kListsPerUnit] = {{&AclBindSlots::inIpv4Acl, 0, 2},
                                                   {&AclBindSlots::outIpv4Acl, 1, 2},
                                                   {&AclBindSlots::inIpv4VfpAcl, 2, 10}};
    const uint32_t unit = kFirstUnit + i / kListsPerUnit;
    const Slot& s = kSlots[i % kListsPerUnit];
    AclIfEntry* e = aclIfEntryAdd(unit);
    if (e == nullptr) return fail("interface record", unit, gaclGrp.lastErr);
    if (const int32_t ret = aclIfAdd(unit, 0, 0, l, s.dir, nullptr, s.kind); ret != 0) {
      return fail("binding", lst, static_cast<uint32_t>(ret));
    }
    e->slots.*s.field = lst;
    ++l->refCnt;
  }
  return true;
}

void BM_TimeRangeSwitch(benchmark::State& state) {
  const bool dynamic = state.range(0) != 0;
  uint8_t body[4];
  be::store32(body, kRange);
  bool on = false;
  {
    AclLockGuard lock;
    gaclGrp.dynamicBindEnable = dynamic ? 1 : 0;
  }
  for (auto _ : state) {
    on = !on;
    AclLockGuard lock;
    aclTimerangeStateChangeProcess(body, on ? 1 : 0);
  }
  // Put the range back off for the next run.
  if (on) {
    AclLockGuard lock;
    aclTimerangeStateChangeProcess(body, 0);
  }
  // Whole lists: every rule of every list comes off and goes back (the one that follows the
  // range in one of the two directions only). Rule by rule: one rule per list.
  const double perSwitch = dynamic ? kLists : kLists * (2.0 * kRules - 1);
  state.counters["switches"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["per_rule"] = benchmark::Counter(
      perSwitch, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.SetLabel(dynamic ? "rule by rule" : "whole lists");
}

BENCHMARK(BM_TimeRangeSwitch)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  char tmpl[] = "/tmp/acl-bench-XXXXXX";
  if (::mkdtemp(tmpl) == nullptr) return 1;
  const std::string runDir = tmpl;
  plat::setRunDir(runDir);
  plat::optSet("acl.maxlstnum", "1024");
  plat::optSet("acl.maxrulenum", "8000");
  plat::optSet("acl.maxgrulenum", "8192");
  plat::optSet("acl.maxifnum", "340");
  if (aclOptInit() != 0 || !build()) {
    std::fprintf(stderr, "bench_timerange: could not bind the lists\n");
    aclResetForTest();
    std::filesystem::remove_all(runDir);
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  std::printf(
      "\nTime: one switch; per_rule: seconds per re-programmed rule (a removal and an install "
      "each count)\n");
  aclResetForTest();
  std::filesystem::remove_all(runDir);
  return 0;
}
