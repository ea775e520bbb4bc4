// The fault table. Calls consult it on every entry, so a match is a short walk over a few rules.
#include "platform/fault.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace plat {
namespace {

std::mutex gFaultMutex;
std::vector<FaultRule> gRules;
uint32_t gNextId = 1;

bool fieldMatches(const std::optional<uint32_t>& want, const std::optional<uint32_t>& have) {
  return !want || (have && *want == *have);
}

bool matches(const FaultRule& r, const FaultCall& c) {
  return (r.call.empty() || r.call == c.call) && (r.name.empty() || r.name == c.name) &&
         fieldMatches(r.cmd, c.cmd) && fieldMatches(r.scope, c.scope) &&
         fieldMatches(r.unit, c.unit) && fieldMatches(r.list, c.list) &&
         fieldMatches(r.rule, c.rule) && fieldMatches(r.onu, c.onu) && fieldMatches(r.gem, c.gem);
}

}  // namespace

// gRules.size(), readable without the mutex: with no rule armed (the daemon's normal state) a
// call's check is one load instead of a lock.
std::atomic<size_t> gFaultRuleCount{0};

uint32_t faultAdd(FaultRule rule) {
  std::lock_guard lock(gFaultMutex);
  rule.id = gNextId++;
  rule.hits = 0;
  gRules.push_back(std::move(rule));
  gFaultRuleCount.store(gRules.size(), std::memory_order_release);
  return gRules.back().id;
}

bool faultRemove(uint32_t id) {
  std::lock_guard lock(gFaultMutex);
  const bool removed = std::erase_if(gRules, [id](const FaultRule& r) { return r.id == id; }) > 0;
  gFaultRuleCount.store(gRules.size(), std::memory_order_release);
  return removed;
}

void faultClear() {
  std::lock_guard lock(gFaultMutex);
  gRules.clear();
  gFaultRuleCount.store(0, std::memory_order_release);
}

std::vector<FaultRule> faultList() {
  std::lock_guard lock(gFaultMutex);
  return gRules;
}

std::optional<int32_t> faultHitArmed(const FaultCall& call) {
  std::lock_guard lock(gFaultMutex);
  for (auto it = gRules.begin(); it != gRules.end(); ++it) {
    if (!matches(*it, call)) continue;
    if (it->skip > 0) {
      --it->skip;
      continue;
    }
    const int32_t result = it->result;
    ++it->hits;
    // A rule that has injected all its failures is spent and leaves the table.
    if (it->count > 0 && --it->count == 0) {
      gRules.erase(it);
      gFaultRuleCount.store(gRules.size(), std::memory_order_release);
    }
    return result;
  }
  return std::nullopt;
}

}  // namespace plat
