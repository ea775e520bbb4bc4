// The stress tool's book-keeping: requests made, refusals the daemon answers on purpose (counted
// by code, not failures), failures with their detail, audits, and the verdict.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace aclstress {

// A failure's detail is kept for the first kKeptFailures of its kind; the rest are only counted.
inline constexpr size_t kKeptFailures = 8;

class Tally {
 public:
  void request(uint64_t n = 1);
  // The daemon answered code to what (a result other than 0); code 0 is not a refusal.
  void refusal(const std::string& what, int32_t code);
  // kind groups failures in the report ("client", "audit", "device", "version", "daemon").
  void failure(const std::string& kind, const std::string& detail);
  void audit(bool clean);

  struct Snapshot {
    uint64_t requests = 0;
    std::map<std::string, uint64_t> refusals;  // "what: code" -> count
    uint64_t refusalTotal = 0;
    uint64_t failureTotal = 0;
    std::map<std::string, std::vector<std::string>> failures;  // the first kKeptFailures by kind
    std::map<std::string, uint64_t> failuresByKind;
    uint64_t auditsRun = 0;
    uint64_t auditsClean = 0;
  };
  Snapshot snapshot() const;

 private:
  mutable std::mutex mu_;
  Snapshot s_;
};

// What the run ends with besides the tally.
struct RunFigures {
  double seconds = 0;
  uint64_t routeMessagesOk = 0;  // the daemon's event counters at the end
  uint64_t routeMessagesFailed = 0;
  std::map<std::string, uint64_t> deviceSteps;  // by step name
};

// The run passed: no failure, and at least one audit, all of them clean.
bool passed(const Tally::Snapshot& s);

// The report printed at the end, one item per line.
std::vector<std::string> reportLines(const Tally::Snapshot& s, const RunFigures& f);

// What a read of a bind slot answered: the result and, when 0, the list in the slot.
struct SlotRead {
  int32_t ret = 0;
  uint32_t value = 0;
  bool operator==(const SlotRead&) const = default;
};

enum class SlotVerdict { Consistent, LeftEmpty, Contradiction };

// Judges a slot read right after the daemon answered ret to setting it to value, against what it
// read before (unknown: nullopt). An answered set leaves the value (emptying the slot of a missing
// record succeeds and leaves the record missing); a refused one leaves the previous value, or,
// with faults armed, an empty slot when putting the previous list back failed too.
SlotVerdict judgeSlot(int32_t ret, uint32_t value, std::optional<SlotRead> before, SlotRead after,
                      bool faults);

// The route messages have drained when the daemon's received counter read the same in the last
// `need` samples (taken at a steady pace with the device quiet).
bool countersSettled(const std::vector<uint64_t>& samples, size_t need);

}  // namespace aclstress
