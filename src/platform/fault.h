// Fault injection for platform and hardware calls: a test or an operator arms a rule, and the
// next calls that match it fail with the chosen result instead of doing their work.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plat {

// What a call tells the fault table about itself. Unset fields match only rules that leave them
// unset.
struct FaultCall {
  std::string_view call{};  // the platform call's name, e.g. "silMemPoolInit", "zorHwilCmdSetApi"
  std::optional<uint32_t> cmd{};
  std::optional<uint32_t> scope{};  // 0 global, 1 unit, 2 GEM key
  std::optional<uint32_t> unit{};
  std::optional<uint32_t> list{};
  std::optional<uint32_t> rule{};
  std::optional<uint32_t> onu{};  // GEM scope: the ONU and GEM port of the key
  std::optional<uint32_t> gem{};
  std::string_view name{};  // a name the call carries (pool name, task name), may be empty
};

struct FaultRule {
  std::string call{};  // empty matches every call
  std::optional<uint32_t> cmd{}, scope{}, unit{}, list{}, rule{}, onu{}, gem{};
  std::string name{};  // empty matches every name
  int32_t result = -1;
  uint32_t skip = 0;  // matching calls let through before the first failure
  int32_t count = 1;  // failures to inject; -1 for always
  uint32_t id = 0;    // given by faultAdd
  uint32_t hits = 0;  // failures injected so far
};

uint32_t faultAdd(FaultRule rule);
bool faultRemove(uint32_t id);
void faultClear();
std::vector<FaultRule> faultList();

// The number of armed rules, readable without the table's mutex.
extern std::atomic<size_t> gFaultRuleCount;
// The walk over the armed rules behind faultHit.
std::optional<int32_t> faultHitArmed(const FaultCall& call);

// Whether any rule is armed: a hot call asks this first and builds its FaultCall for
// faultHitArmed only then.
inline bool faultArmed() {
  return gFaultRuleCount.load(std::memory_order_acquire) != 0;
}

// Called by each call that can fail; the result to fail with, or nothing. Inline: with no rule
// armed (the daemon's normal state) a call pays one load, and its FaultCall need not be built.
inline std::optional<int32_t> faultHit(const FaultCall& call) {
  if (gFaultRuleCount.load(std::memory_order_acquire) == 0) return std::nullopt;
  return faultHitArmed(call);
}

}  // namespace plat
