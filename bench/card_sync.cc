// Card synchronisation: slot 1/2 comes up and every binding is installed on it again, the caller's
// target in each command. 1000 IPv4 lists of 8 rules (bound_lists.h): 3 bound in the global scope,
// 997 on 333 interfaces, so one synchronisation sends 8000 rules. Each iteration is one whole
// synchronisation; the virtual device replaces what the target already holds, so every iteration
// does the same work. The time per synchronisation is printed at the end against fork+exec of
// /bin/echo measured in the same run.
#include <stdlib.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "bench_group.h"
#include "bound_lists.h"
#include "echo_baseline.h"
#include "hw/acl_card_sync.h"
#include "platform/proc.h"

namespace {

using namespace benchlists;

void BM_CardSync(benchmark::State& state) {
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> target{};
  if (!aclSyncTargetBuild(kSys, kSlot, target)) {
    state.SkipWithError("no target for the slot");
    return;
  }
  for (auto _ : state) {
    AclLockGuard lock;
    if (aclCardSync(target.data(), 1) != 0) {
      state.SkipWithError("an install was refused");
      break;
    }
  }
  state.counters["syncs"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["per_rule"] = benchmark::Counter(
      kLists * kRules, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

BENCHMARK(BM_CardSync)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  const BenchGroup group;
  if (!group.ok()) return 1;
  setOptions();
  if (aclOptInit() != 0 || !build({.globals = 3, .range = 0})) {
    std::fprintf(stderr, "bench_card_sync: could not bind the lists\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchecho::TimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nTime: one synchronisation of slot %u/%u; per_rule: seconds per installed rule\n",
              kSys, kSlot);
  benchecho::printAgainstEcho(reporter, benchecho::forkExecEchoMs(), "one synchronisation");
  return 0;
}
