#include "client/stress_tally.h"

#include <cstdio>

#include "client/table_session.h"
#include "wire/acl_ret.h"

namespace aclstress {

void Tally::request(uint64_t n) {
  std::lock_guard<std::mutex> lock(mu_);
  s_.requests += n;
}

void Tally::refusal(const std::string& what, int32_t code) {
  if (code == 0) return;
  std::lock_guard<std::mutex> lock(mu_);
  ++s_.refusals[what + ": " + aclclient::retText(code)];
  ++s_.refusalTotal;
}

void Tally::failure(const std::string& kind, const std::string& detail) {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<std::string>& kept = s_.failures[kind];
  if (kept.size() < kKeptFailures) kept.push_back(detail);
  ++s_.failuresByKind[kind];
  ++s_.failureTotal;
}

void Tally::audit(bool clean) {
  std::lock_guard<std::mutex> lock(mu_);
  ++s_.auditsRun;
  if (clean) ++s_.auditsClean;
}

Tally::Snapshot Tally::snapshot() const {
  std::lock_guard<std::mutex> lock(mu_);
  return s_;
}

bool passed(const Tally::Snapshot& s) {
  return s.failureTotal == 0 && s.auditsRun > 0 && s.auditsClean == s.auditsRun;
}

std::vector<std::string> reportLines(const Tally::Snapshot& s, const RunFigures& f) {
  std::vector<std::string> out;
  char line[256];
  const double rate = f.seconds > 0 ? static_cast<double>(s.requests) / f.seconds : 0;
  std::snprintf(line, sizeof line, "requests: %llu in %.1f s, %.0f per second",
                static_cast<unsigned long long>(s.requests), f.seconds, rate);
  out.emplace_back(line);
  std::snprintf(line, sizeof line, "refusals (expected, by request and code): %llu",
                static_cast<unsigned long long>(s.refusalTotal));
  out.emplace_back(line);
  for (const auto& [what, n] : s.refusals) {
    out.push_back("  " + std::to_string(n) + "  " + what);
  }
  std::snprintf(line, sizeof line, "route messages handled: %llu (failed %llu)",
                static_cast<unsigned long long>(f.routeMessagesOk),
                static_cast<unsigned long long>(f.routeMessagesFailed));
  out.emplace_back(line);
  uint64_t steps = 0;
  for (const auto& [name, n] : f.deviceSteps) steps += n;
  out.push_back("device steps: " + std::to_string(steps));
  for (const auto& [name, n] : f.deviceSteps) {
    out.push_back("  " + std::to_string(n) + "  " + name);
  }
  out.push_back("audits passed: " + std::to_string(s.auditsClean) + " of " +
                std::to_string(s.auditsRun));
  out.push_back("failures: " + std::to_string(s.failureTotal));
  for (const auto& [kind, kept] : s.failures) {
    for (const std::string& d : kept) out.push_back("  FAIL " + kind + ": " + d);
    const uint64_t all = s.failuresByKind.at(kind);
    if (all > kept.size()) {
      out.push_back("  (" + std::to_string(all - kept.size()) + " more " + kind + " failures)");
    }
  }
  out.push_back(passed(s) ? "stress: PASS" : "stress: FAIL");
  return out;
}

SlotVerdict judgeSlot(int32_t ret, uint32_t value, std::optional<SlotRead> before, SlotRead after,
                      bool faults) {
  if (ret == 0) {
    const bool emptyMissing = value == 0 && after.ret == ACL_ERR_IF_NOT_EXIST;
    return after == SlotRead{0, value} || emptyMissing ? SlotVerdict::Consistent
                                                       : SlotVerdict::Contradiction;
  }
  if (!before || after == *before) return SlotVerdict::Consistent;
  if (faults && before->ret == 0 && after == SlotRead{0, 0}) return SlotVerdict::LeftEmpty;
  return SlotVerdict::Contradiction;
}

bool countersSettled(const std::vector<uint64_t>& samples, size_t need) {
  if (need == 0 || samples.size() < need) return false;
  for (size_t k = samples.size() - need + 1; k < samples.size(); ++k) {
    if (samples[k] != samples[k - 1]) return false;
  }
  return true;
}

}  // namespace aclstress
