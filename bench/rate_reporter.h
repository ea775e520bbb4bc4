// A console reporter that also keeps each run's rate of one counter by benchmark name, so a
// benchmark can print its runs against a reference run afterwards.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <utility>

class RateReporter : public benchmark::ConsoleReporter {
 public:
  explicit RateReporter(std::string counter) : counter_(std::move(counter)) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& r : runs) {
      const auto it = r.counters.find(counter_);
      if (it != r.counters.end() && !r.error_occurred) rates[r.benchmark_name()] = it->second;
    }
  }
  std::map<std::string, double> rates;

 private:
  std::string counter_;
};
