// The machine's echo baseline: the wall time of fork+exec of /bin/echo (posix_spawn, then
// waitpid), measured in the benchmark's own run so that a figure can be read against what the
// same machine, under the same load, takes to start and reap a trivial process.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

extern char** environ;

namespace benchecho {

// Median wall time of runs spawns of `/bin/echo echo`, in ms; a negative value when a spawn
// failed.
inline double forkExecEchoMs(int runs = 21) {
  std::vector<double> ms;
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
  char arg0[] = "/bin/echo", arg1[] = "echo";
  char* argv[] = {arg0, arg1, nullptr};
  for (int i = 0; i < runs; ++i) {
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    int status = 0;
    if (posix_spawn(&pid, arg0, &fa, nullptr, argv, environ) != 0 ||
        waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      posix_spawn_file_actions_destroy(&fa);
      return -1;
    }
    ms.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
  }
  posix_spawn_file_actions_destroy(&fa);
  std::sort(ms.begin(), ms.end());
  return ms[ms.size() / 2];
}

// A console reporter that also keeps each run's wall and CPU time per iteration, in ms, by name.
class TimeReporter : public benchmark::ConsoleReporter {
 public:
  struct Times {
    double wallMs, cpuMs;
  };
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& r : runs) {
      if (r.error_occurred || r.iterations == 0) continue;
      const double toMs = 1e3 / benchmark::GetTimeUnitMultiplier(r.time_unit);
      times[r.benchmark_name()] = {r.GetAdjustedRealTime() * toMs, r.GetAdjustedCPUTime() * toMs};
    }
  }
  std::map<std::string, Times> times;
};

// Prints each kept run's time per iteration next to the echo baseline.
inline void printAgainstEcho(const TimeReporter& rep, double echoMs, const char* what) {
  std::printf("\n%s, against fork+exec of /bin/echo (median of 21, this run: %.3f ms wall):\n",
              what, echoMs);
  for (const auto& [name, t] : rep.times) {
    std::printf("  %-28s %8.2f ms wall (%7.2f ms CPU) = %6.1f echoes\n", name.c_str(), t.wallMs,
                t.cpuMs, echoMs > 0 ? t.wallMs / echoMs : 0.0);
  }
}

}  // namespace benchecho
