// What the stress tool's threads share: where the daemon is, the tally, the stop flag, and the
// tool's own record of every bind slot it set, kept per scope object under that object's lock so
// that a read-back after a set can be judged against it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "client/aclctl.h"
#include "client/stress_tally.h"

namespace aclstress {

struct Shared {
  AclctlGlobals globals;
  Tally tally;
  std::atomic<bool> stop{false};
  std::set<uint32_t> volatileIfs;    // interfaces the device thread changes: not read back
  std::vector<uint32_t> interfaces;  // interfaces clients bind to
  uint32_t ponInterface = 0;         // GEM ports live behind it; 0: no GEM work
  // Faults are armed: a refused slot change whose undo hit one too may leave the slot empty.
  bool faults = false;

  // Interfaces the device has removed and not put back: clients leave them alone, since a binding
  // made on an interface the device no longer has is one the audit cannot judge. Changed by the
  // device thread under the interface's scope lock.
  std::set<uint32_t> absent;
  std::mutex absentMu;
  bool isAbsent(uint32_t ifIndex) {
    std::lock_guard<std::mutex> l(absentMu);
    return absent.count(ifIndex) != 0;
  }

  // One lock per scope object ("g", "if/201", "gem/401/1/2"), taken for a whole set and read-back.
  std::mutex& lockOf(const std::string& scope) {
    return locks[std::hash<std::string>{}(scope) % locks.size()];
  }
  std::array<std::mutex, 64> locks;
  // (scope, command) -> what the slot read last; guarded by the scope's lock.
  std::map<std::pair<std::string, uint32_t>, SlotRead> slots;
  std::mutex slotsMu;  // the map itself (several scopes share it)

  std::optional<SlotRead> known(const std::string& scope, uint32_t cmd) {
    std::lock_guard<std::mutex> l(slotsMu);
    auto it = slots.find({scope, cmd});
    if (it == slots.end()) return std::nullopt;
    return it->second;
  }
  void remember(const std::string& scope, uint32_t cmd, SlotRead r) {
    std::lock_guard<std::mutex> l(slotsMu);
    slots[{scope, cmd}] = r;
  }
  void forget(const std::string& scope) {
    std::lock_guard<std::mutex> l(slotsMu);
    for (auto it = slots.begin(); it != slots.end();) {
      it = it->first.first == scope ? slots.erase(it) : std::next(it);
    }
  }
};

// One client thread: works on its own lists for as long as shared.stop is false.
void runClient(Shared& shared, uint32_t id, uint32_t seed);

}  // namespace aclstress
