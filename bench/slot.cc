// The slot accounting's check and update with the index of bindings and with the walk over the
// bind trees, for a list bound on 10 interfaces and for one bound on 10000. The bindings are IPv4
// ingress whole-list entries on ports spread over slots 1/2 to 1/4; the target of every call is a
// port of slot 1/5, where neither list is bound, so the walk must locate every binding of the list
// before it can answer. An update iteration charges the list on 1/5 and releases it again (two
// calls); a check iteration is one call. Afterwards the index's cost at 10000 bindings is printed
// against its cost at 10.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>

#include <benchmark/benchmark.h>

#include "bench_group.h"
#include "control/acl_slot.h"
#include "control/acl_slot_walk.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "platform/ifmgr.h"
#include "platform/options.h"
#include "platform/proc.h"
#include "platform/vdev/model.h"
#include "rate_reporter.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"

namespace {

constexpr uint32_t kSmallList = 1001, kLargeList = 1002;  // IPv4
constexpr uint32_t kSmall = 10, kLarge = 10000;
constexpr uint32_t kRules = 8;
constexpr uint32_t kFirstUnit = 100001;
constexpr uint32_t kTarget = 99999;  // a port of 1/5
constexpr uint8_t kIngress = 0, kKindIpv4 = 2;

void addInterface(vdev::Model& m, uint32_t unit, uint32_t slot, uint32_t port) {
  vdev::Interface& it = m.interfaces[unit];
  it.index = unit;
  it.name = "bench-" + std::to_string(unit);
  it.location[ZOR_LOC_SYS] = 1;
  it.location[ZOR_LOC_SLOT] = slot;
  it.location[ZOR_LOC_PORT] = port;
  it.location[ZOR_LOC_KIND] = ZOR_IF_KIND_ETH;
}

bool build() {
  {
    vdev::Device& d = vdev::device();
    std::lock_guard lock(d.mutex);
    for (uint32_t i = 0; i < kSmall + kLarge; ++i)
      addInterface(d.model, kFirstUnit + i, 2 + i % 3, i);
    addInterface(d.model, kTarget, 5, 1);
  }
  AclLockGuard lock;
  for (uint32_t s = 2; s <= 5; ++s) {
    AclSlotEntry* e = aclSlotEntryGetOrAdd(1, s);
    if (e == nullptr) return false;
    for (uint32_t& m : e->maxSubRuleNum) m = 1u << 30;
  }
  uint32_t unit = kFirstUnit;
  for (const auto& [lst, bindings] :
       {std::pair{kSmallList, kSmall}, std::pair{kLargeList, kLarge}}) {
    if (aclListEntryAdd(lst) == nullptr) return false;
    for (uint32_t r = 1; r <= kRules; ++r) {
      if (aclRuleEntryAdd(lst, r) == nullptr) return false;
    }
    // Charged and entered as the interface binding does it.
    for (uint32_t i = 0; i < bindings; ++i, ++unit) {
      if (aclSlotSubRuleNumUpdate(unit, lst, kRules, kIngress, ACL_SLOT_OP_ADD) != 0 ||
          aclIfListAdd(unit, kKindIpv4, kIngress, lst, 0) == nullptr) {
        return false;
      }
    }
  }
  return true;
}

uint32_t listOf(const benchmark::State& state) {
  return state.range(0) == kSmall ? kSmallList : kLargeList;
}

template <bool Walk>
void BM_Check(benchmark::State& state) {
  const uint32_t lst = listOf(state);
  AclLockGuard lock;
  for (auto _ : state) {
    const int32_t ret = Walk ? aclSlotWalkSubRuleNumCheck(kTarget, 0, lst, kRules, kIngress)
                             : aclSlotSubRuleNumCheck(kTarget, 0, lst, kRules, kIngress);
    if (ret != 0) state.SkipWithError("check refused");
    benchmark::DoNotOptimize(ret);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

template <bool Walk>
void BM_Update(benchmark::State& state) {
  const uint32_t lst = listOf(state);
  AclLockGuard lock;
  for (auto _ : state) {
    for (uint32_t op : {ACL_SLOT_OP_ADD, ACL_SLOT_OP_DEL}) {
      const int32_t ret = Walk ? aclSlotWalkSubRuleNumUpdate(kTarget, lst, kRules, kIngress, op)
                               : aclSlotSubRuleNumUpdate(kTarget, lst, kRules, kIngress, op);
      if (ret != 0) state.SkipWithError("update refused");
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(2 * state.iterations()));
}

BENCHMARK(BM_Check<false>)->Name("CheckIndex")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(BM_Check<true>)->Name("CheckWalk")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(BM_Update<false>)->Name("UpdateIndex")->Arg(kSmall)->Arg(kLarge);
BENCHMARK(BM_Update<true>)->Name("UpdateWalk")->Arg(kSmall)->Arg(kLarge);

}  // namespace

int main(int argc, char** argv) {
  const BenchGroup group;
  if (!group.ok()) return 1;
  if (aclOptInit() != 0 || !build()) {
    std::fprintf(stderr, "bench_slot: could not bind the lists\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  RateReporter reporter("items_per_second");
  benchmark::RunSpecifiedBenchmarks(&reporter);

  // Cost is the inverse of the rate: cost(10000) / cost(10) = rate(10) / rate(10000).
  std::printf("\ncost per call at %u bindings / at %u bindings (items: one check or update):\n",
              kLarge, kSmall);
  for (const char* name : {"CheckIndex", "CheckWalk", "UpdateIndex", "UpdateWalk"}) {
    const auto small = reporter.rates.find(std::string(name) + "/" + std::to_string(kSmall));
    const auto large = reporter.rates.find(std::string(name) + "/" + std::to_string(kLarge));
    if (small == reporter.rates.end() || large == reporter.rates.end() || large->second <= 0) {
      continue;
    }
    std::printf("  %-12s %12.0f/s / %12.0f/s = %.2f\n", name, small->second, large->second,
                small->second / large->second);
  }
  return 0;
}
