// One time-range switch over 1000 IPv4 lists of 8 rules bound on interfaces (bound_lists.h). Rule
// 8 of every list follows the range. Without dynamic binding a switch takes every list off its
// interface and puts it back (8000 rules each way); with it only the 1000 rules of the range are
// added or removed. Each iteration switches the range once, alternately on and off; the counters
// give the time per switch and per rule the switch re-programmed. The per-switch time is printed
// at the end against fork+exec of /bin/echo measured in the same run.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "bench_group.h"
#include "bound_lists.h"
#include "control/acl_timerange.h"
#include "echo_baseline.h"
#include "platform/proc.h"
#include "wire/be.h"

namespace {

using namespace benchlists;

constexpr uint32_t kRange = 2;

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
  const BenchGroup group;
  if (!group.ok()) return 1;
  setOptions();
  if (aclOptInit() != 0 || !build({.globals = 0, .range = kRange})) {
    std::fprintf(stderr, "bench_timerange: could not bind the lists\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchecho::TimeReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf(
      "\nTime: one switch; per_rule: seconds per re-programmed rule (a removal and an install "
      "each count)\n");
  benchecho::printAgainstEcho(reporter, benchecho::forkExecEchoMs(), "one switch");
  return 0;
}
