// The virtual device's model: what the switch is (systems, slots, cards, interfaces, neighbours,
// time ranges, mirror groups, scalars) and what it has been told (hardware tables, relays,
// announcements, anomalies). One instance per process, behind one mutex.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "platform/vdev/flat_table.h"

namespace vdev {

struct Card {
  uint32_t type = 0;
  std::string name;
  // Answers of the property tests (zorHwilCardGet with no output): property -> result.
  std::map<uint32_t, int32_t> properties;
  // Answers of the option query, by option key (decimal text, as the card reports it).
  std::map<std::string, std::string> options;
};

struct SlotResource {
  uint8_t chip = 0, tcam = 0, resource = 0, stage = 0;
  uint32_t total = 0, used = 0, reserve = 0, free = 0;
};

struct Slot {
  uint32_t system = 0, slot = 0;
  std::optional<Card> card;
  std::map<uint32_t, int32_t> properties;  // zorHwilSlotGet property tests
  std::vector<SlotResource> resources;     // answer of the resource query
};

struct Interface {
  uint32_t index = 0;
  std::string name;
  std::array<uint32_t, 8> location{};  // words of zorIndexTrans type 5
  uint32_t flags13 = 0, flags10 = 0;
  // Set through zorIfSetApi: the modules registered on the interface, and those ignoring it.
  std::vector<uint32_t> protocols;
  std::vector<uint32_t> ignoring;
  // Aggregations only: members in the order the manager reports them, and the programming mode
  // per hardware command (bit 1 on the aggregation, bit 0 on each member).
  std::vector<uint32_t> members;
  std::map<uint32_t, uint8_t> modes;
  uint8_t defaultMode = 2;
  // PON interfaces only: the ONUs registered behind it, each with its GEM ports.
  std::map<uint32_t, std::set<uint32_t>> onus;
  uint32_t kind() const { return location[5]; }
};

struct Neighbour {
  uint32_t vrf = 0;
  uint8_t family = 1;  // 1 IPv4, 2 IPv6
  std::array<uint8_t, 16> addr{};
  bool operator==(const Neighbour&) const = default;
};

struct DetectEntry {
  uint32_t vrf = 0;
  uint8_t family = 1;
  std::array<uint8_t, 16> addr{};
};

struct TimeRange {
  uint32_t id = 0;
  std::string name;
  bool active = false;
  int32_t refCount = 0;
};

struct MirrorGroup {
  uint32_t id = 0;
  std::map<uint32_t, int32_t> refCounts;  // per module
};

// Packet and byte counters behind the statistics reads; interface 0 = rule statistics.
struct CounterKey {
  uint32_t list = 0, rule = 0, ifIndex = 0, dir = 0;
  auto operator<=>(const CounterKey&) const = default;
};
struct Counters {
  std::array<uint64_t, 8> v{};  // p1, p2, b1, b2, p3, p4, b3, b4: the request's order
};

// A hardware table: global (0), one unit (1) or one GEM key (2).
struct ScopeKey {
  uint32_t scope = 0;
  uint32_t unit = 0, onu = 0, gem = 0;
  auto operator<=>(const ScopeKey&) const = default;
};
// The four words as one 128-bit number: the order of operator<=>, for the table search.
inline bool keyLess(const ScopeKey& a, const ScopeKey& b) {
  const auto wide = [](const ScopeKey& k) {
    return static_cast<unsigned __int128>(static_cast<uint64_t>(k.scope) << 32 | k.unit) << 64 |
           (static_cast<uint64_t>(k.onu) << 32 | k.gem);
  };
  return wide(a) < wide(b);
}

// An install into a slot another entry left writes every field (zorHwilCmdSetApi).
struct HwEntry {
  uint32_t list = 0, rule = 0, dir = 0, priority = 0;
  bool tlv = false;
  uint32_t cmd = 0;
  std::vector<uint8_t> data;     // the rule record or the TLV message, as handed over
  std::vector<uint8_t> options;  // the 64-byte options record (its target)
  uint64_t seq = 0;              // the call that installed it
  uint32_t installs = 1;
};

struct HwTable {
  // By list, rule and direction: one rule is in a table at most once.
  FlatTable<std::tuple<uint32_t, uint32_t, uint32_t>, HwEntry> entries;
};
// The hardware tables by scope; a table that empties leaves.
using HwTables = FlatTable<ScopeKey, HwTable>;

struct Relay {
  uint64_t seq = 0;
  uintptr_t key = 0;
  std::vector<uint8_t> keyBytes;  // when the key travelled by address
  uint32_t cmd = 0;
  std::vector<uint8_t> options;
  std::vector<uint8_t> data;
  int32_t result = 0;
};

struct Announcement {
  uint64_t seq = 0;
  uint32_t group = 0;
  std::vector<uint8_t> bytes;
};

struct Anomaly {
  uint64_t seq = 0;
  std::string call;
  std::string what;
  uint32_t cmd = 0;
  ScopeKey scope;
  uint32_t list = 0, rule = 0, dir = 0;
};

// Commands the device accepted without a table of their own: slot commands, scalar sets, card-up
// completions, hardware scalar sets.
struct CommandLogEntry {
  uint64_t seq = 0;
  std::string call;
  uint32_t cmd = 0;
  std::vector<uint32_t> key;
  std::vector<uint8_t> data;
};

struct Model {
  uint32_t selfSys = 1, selfSlot = 1;
  // Whether a route socket that joins the chassis group is told every slot and card that is up.
  bool announce = true;
  std::vector<uint32_t> systems;
  std::map<std::pair<uint32_t, uint32_t>, Slot> slots;
  std::map<uint32_t, Interface> interfaces;
  // Interfaces removed since the model was loaded. An index names its location on this platform,
  // so the index translation still answers for them: a module that handles the removal message
  // after the interface went can still find the unit and slot of what it programmed there. Not
  // part of the device file; an interface added again under the same index leaves this map.
  std::map<uint32_t, Interface> departed;
  std::vector<Neighbour> neighbours;
  std::vector<DetectEntry> detectList;
  std::map<uint32_t, TimeRange> timeRanges;
  std::map<uint32_t, MirrorGroup> mirrors;
  std::map<uint32_t, uint32_t> scalars;  // hardware scalars by id
  int32_t actionSupportResult = 0;       // answer of the support query 554
  std::map<CounterKey, Counters> counters;
};

// What an entry costs the process: the record and the bytes it owns.
inline size_t entryBytes(const Relay& r) {
  return sizeof r + r.keyBytes.size() + r.options.size() + r.data.size();
}
inline size_t entryBytes(const Announcement& a) {
  return sizeof a + a.bytes.size();
}
inline size_t entryBytes(const Anomaly& a) {
  return sizeof a + a.call.size() + a.what.size();
}
inline size_t entryBytes(const CommandLogEntry& c) {
  return sizeof c + c.call.size() + 4 * c.key.size() + c.data.size();
}

// Each log keeps at most this many entries and this many bytes (entryBytes); past either, the
// oldest go first. A relay keeps up to 4 KiB of data, so the byte bound is the one a flood of
// large relays meets.
constexpr size_t kJournalCapacity = 65536;
constexpr size_t kJournalBytes = 16u << 20;

// One log of the journal, oldest entry first. It reads as the vector of its entries.
template <typename T>
class JournalLog {
 public:
  // Appends entry. A full log drops its oldest entries down to three quarters of each bound at
  // once, so appending stays cheap however long the log runs full.
  void push(T entry) {
    bytes_ += entryBytes(entry);
    entries_.push_back(std::move(entry));
    if (entries_.size() <= kJournalCapacity && bytes_ <= kJournalBytes) return;
    size_t drop = 0;
    while (drop + 1 < entries_.size() &&
           (entries_.size() - drop > kJournalCapacity / 4 * 3 || bytes_ > kJournalBytes / 4 * 3)) {
      bytes_ -= entryBytes(entries_[drop++]);
    }
    entries_.erase(entries_.begin(), entries_.begin() + static_cast<ptrdiff_t>(drop));
  }
  void clear() {
    entries_.clear();
    bytes_ = 0;
  }
  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  size_t bytes() const { return bytes_; }
  const T& back() const { return entries_.back(); }
  const T& operator[](size_t i) const { return entries_[i]; }
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }
  operator const std::vector<T>&() const { return entries_; }

 private:
  std::vector<T> entries_;
  size_t bytes_ = 0;
};

struct Journal {
  HwTables hw;
  JournalLog<Relay> relays;
  JournalLog<Announcement> announcements;
  JournalLog<Anomaly> anomalies;
  JournalLog<CommandLogEntry> commands;
  uint64_t seq = 0;
};

// The device's mutex. Each release of it moves the model generation: whoever held it may have
// changed the model (tests and control requests edit it in place), so an answer cached against a
// generation can never outlive an edit made under the mutex. Holders that leave the model alone
// (the rule commands, which write the journal only, and reads) give it back through
// ModelUnchangedLock, which keeps the generation.
class DeviceMutex {
 public:
  void lock() { m_.lock(); }
  bool try_lock() { return m_.try_lock(); }
  void unlock() {
    // Only the holder writes the generation: a plain store, no read-modify-write.
    gen_.store(gen_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    m_.unlock();
  }
  // For a holder that did not change the model.
  void unlockUnchanged() { m_.unlock(); }
  // Readable without the mutex. An answer taken from the model under the mutex at generation g
  // is still the model's answer while this reads g.
  uint64_t generation() const { return gen_.load(std::memory_order_acquire); }

 private:
  std::mutex m_;
  std::atomic<uint64_t> gen_{1};
};

// Holds the device's mutex for a holder that does not change the model.
class ModelUnchangedLock {
 public:
  explicit ModelUnchangedLock(DeviceMutex& m) : m_(m) { m_.lock(); }
  ~ModelUnchangedLock() { m_.unlockUnchanged(); }
  ModelUnchangedLock(const ModelUnchangedLock&) = delete;
  ModelUnchangedLock& operator=(const ModelUnchangedLock&) = delete;

 private:
  DeviceMutex& m_;
};

struct Device {
  DeviceMutex mutex;
  Model model;
  Journal journal;
};

// The process's device. Every platform call and control request takes device().mutex.
Device& device();

// The built-in model: one system, the daemon's own slot, line cards, Ethernet ports, an
// aggregation and a PON interface.
Model builtinModel();

// Appends to a bounded log.
template <typename T>
void journalPush(JournalLog<T>& log, T entry) {
  log.push(std::move(entry));
}

// Ids of the card and slot property tests the ACL module makes at card and slot up.
constexpr uint32_t CARD_PROP_NOT_READY = 0x02EE002A;
constexpr uint32_t CARD_PROP_READY = 0x02EE002B;
constexpr uint32_t SLOT_PROP_NOT_READY = 0x01F4002B;
constexpr uint32_t SLOT_PROP_READY = 0x01F40032;

}  // namespace vdev
