// Hardware interface layer: rule commands into the per-scope hardware tables, relays into the
// relay log. Both keep exactly what they were handed, so tests and operators can see what the
// daemon asked of the hardware.
#include "platform/hwil.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <tuple>
#include <vector>

#include "platform/fault.h"
#include "platform/vdev/calls.h"
#include "wire/be.h"

namespace {

using namespace vdev;

constexpr size_t kRecordLen = 508;
constexpr size_t kTlvHeaderLen = 36;
constexpr size_t kTlvMaxLen = 512;
constexpr size_t kOptionsLen = 64;
// Relayed data is names, bit sets and parameter lists; the log keeps at most this much of each.
constexpr uint32_t kRelayDataMax = 4096;

// Where the rule record keeps the fields the table is keyed by.
constexpr size_t kRecOper = 466, kRecDir = 467, kRecList = 476, kRecRule = 480, kRecPrio = 484;
// The same in the TLV header.
constexpr size_t kTlvOper = 1, kTlvDir = 6, kTlvList = 16, kTlvRule = 20, kTlvPrio = 32;
constexpr size_t kTlvBufferLen = 34;

enum class Op { Unknown, Install, Remove };

struct RuleCommand {
  uint32_t scope;  // 0 global, 1 unit, 2 GEM key
  bool tlv;
  Op op;  // record commands know it from the id, TLV commands from `oper`
};

std::optional<RuleCommand> classify(uint32_t cmd) {
  switch (cmd) {
    case HWIL_CMD_GLOBAL_ADD:
      return RuleCommand{0, false, Op::Install};
    case HWIL_CMD_GLOBAL_DEL:
      return RuleCommand{0, false, Op::Remove};
    case HWIL_CMD_GLOBAL_TLV:
      return RuleCommand{0, true, Op::Unknown};
    case HWIL_CMD_IF_ADD:
      return RuleCommand{1, false, Op::Install};
    case HWIL_CMD_IF_DEL:
      return RuleCommand{1, false, Op::Remove};
    case HWIL_CMD_IF_TLV:
      return RuleCommand{1, true, Op::Unknown};
    case HWIL_CMD_GEM_ADD:
      return RuleCommand{2, false, Op::Install};
    case HWIL_CMD_GEM_DEL:
      return RuleCommand{2, false, Op::Remove};
    case HWIL_CMD_GEM_TLV:
      return RuleCommand{2, true, Op::Unknown};
    default:
      return std::nullopt;
  }
}

// A card-synchronisation install carries its target in the options record (bytes 24..63); an
// install that only reaches new cards is not a second install.
bool hasTarget(std::span<const uint8_t> options) {
  for (size_t i = 24; i < options.size(); ++i) {
    if (options[i] != 0) return true;
  }
  return false;
}

// The 64-byte options record, or none when the caller passed none (kept empty then, as given).
std::span<const uint8_t> optionBytes(const void* options) {
  if (options == nullptr) return {};
  return {static_cast<const uint8_t*>(options), kOptionsLen};
}

// A buffer of the same length (a record over a record) is copied over, with no more than that.
void assignBytes(std::vector<uint8_t>& v, std::span<const uint8_t> bytes) {
  if (v.size() != bytes.size()) {
    v.assign(bytes.begin(), bytes.end());
  } else if (!bytes.empty()) {
    std::memcpy(v.data(), bytes.data(), bytes.size());
  }
}

// Writes a command into an entry; the buffers keep their capacity from earlier uses.
void fillEntry(HwEntry& e, std::span<const uint8_t> bytes, std::span<const uint8_t> options,
               uint32_t cmd, uint32_t prio, bool tlv, uint64_t seq) {
  assignBytes(e.data, bytes);
  assignBytes(e.options, options);
  e.cmd = cmd;
  e.priority = prio;
  e.tlv = tlv;
  e.seq = seq;
}

}  // namespace

int zorHwilCmdSetApi(uintptr_t index, uint32_t cmdId, const void* data, const void* options) {
  const auto kind = classify(cmdId);
  ScopeKey scope;
  if (kind) scope.scope = kind->scope;
  if (kind && kind->scope == 1) scope.unit = static_cast<uint32_t>(index);
  if (kind && kind->scope == 2 && index != 0) {
    const auto w = keyWords(reinterpret_cast<const void*>(index), 3);
    scope.unit = w[0];
    scope.onu = w[1];
    scope.gem = w[2];
  }
  // Read the rule's identity before asking the fault table, so faults can aim at a list or rule.
  // The identity is read in place: only an install keeps the bytes.
  std::span<const uint8_t> bytes;
  if (kind && data != nullptr) {
    if (kind->tlv) {
      const auto* desc = static_cast<const ZorBufDesc*>(data);
      if (desc->data != nullptr && desc->len >= kTlvHeaderLen && desc->len <= kTlvMaxLen) {
        bytes = {static_cast<const uint8_t*>(desc->data), desc->len};
      }
    } else {
      bytes = {static_cast<const uint8_t*>(data), kRecordLen};
    }
  }
  std::optional<uint32_t> list, rule;
  uint32_t dir = 0, prio = 0;
  Op op = kind ? kind->op : Op::Unknown;
  if (!bytes.empty()) {
    if (kind->tlv) {
      list = be::load32(bytes, kTlvList);
      rule = be::load32(bytes, kTlvRule);
      dir = be::load8(bytes, kTlvDir);
      prio = be::load16(bytes, kTlvPrio);
      // 0 and 2 install, 1 and 3 remove (2 and 3 come from the traffic-policy path).
      const uint8_t oper = be::load8(bytes, kTlvOper);
      if (oper <= 3) op = (oper % 2 == 0) ? Op::Install : Op::Remove;
    } else {
      list = be::load32(bytes, kRecList);
      rule = be::load32(bytes, kRecRule);
      dir = be::load8(bytes, kRecDir);
      prio = be::load16(bytes, kRecPrio);
      // The traffic-policy path says 1 install or 2 remove in `oper`; 0 leaves it to the id.
      const uint8_t oper = be::load8(bytes, kRecOper);
      if (oper == 1) op = Op::Install;
      if (oper == 2) op = Op::Remove;
    }
  }
  const bool gemScope = kind && kind->scope == 2 && index != 0;
  if (plat::faultArmed()) {
    if (auto f = plat::faultHitArmed(
            {.call = "zorHwilCmdSetApi",
             .cmd = cmdId,
             .scope = kind ? std::optional<uint32_t>(scope.scope) : std::nullopt,
             .unit = scope.unit,
             .list = list,
             .rule = rule,
             .onu = gemScope ? std::optional<uint32_t>(scope.onu) : std::nullopt,
             .gem = gemScope ? std::optional<uint32_t>(scope.gem) : std::nullopt})) {
      return *f;
    }
  }
  if (!kind) return kErrNotSupported;
  if (data == nullptr || (kind->scope == 2 && index == 0)) return kErrBadParam;
  if (bytes.empty() || op == Op::Unknown) return kErrBadParam;
  if (kind->tlv) {
    const uint32_t tlvLen = be::load16(bytes, kTlvBufferLen);
    if (kTlvHeaderLen + tlvLen != bytes.size()) return kErrBadParam;
  }

  Device& d = device();
  // A rule command writes the journal only.
  ModelUnchangedLock lock(d.mutex);
  Journal& jr = d.journal;
  const uint64_t seq = nextSeq(jr);
  auto anomaly = [&](const char* what) {
    journalPush(jr.anomalies,
                Anomaly{seq, "zorHwilCmdSetApi", what, cmdId, scope, *list, *rule, dir});
  };
  const auto key = std::make_tuple(*list, *rule, dir);
  const auto options64 = optionBytes(options);
  // The tables keep what leaves them (vdev::FlatTable): a rule that comes and goes takes its
  // slot and buffers back, and a table that empties and fills again its own.
  if (op == Op::Install) {
    auto [table, tableWas] = jr.hw.take(scope);
    // A table taken out other than by emptying still holds what it had; it comes back empty.
    if (!tableWas && !table.entries.empty()) table.entries.clear();
    auto [e, was] = table.entries.take(key);
    if (was) {
      if (!hasTarget(options64)) anomaly("install of an entry already in hardware");
      ++e.installs;
    } else {
      // The slot may hold another entry's fields: every one is written.
      e.list = *list;
      e.rule = *rule;
      e.dir = dir;
      e.installs = 1;
    }
    fillEntry(e, bytes, options64, cmdId, prio, kind->tlv, seq);
  } else {
    // Nothing is copied for a removal.
    auto t = jr.hw.find(scope);
    if (t == jr.hw.end()) {
      anomaly("removal of an entry not in hardware");
      return 0;
    }
    auto& entries = t->second.entries;
    if (entries.erase(key) == 0) anomaly("removal of an entry not in hardware");
    if (entries.empty()) jr.hw.erase(scope);
  }
  return 0;
}

namespace {

// What a relay's key says about the object it changes, so faults can aim at a list, a rule or an
// interface: the families' keys (their bases are multiples of 0x4000).
struct RelayIdentity {
  std::optional<uint32_t> unit, list, rule;
};

constexpr uint32_t kFamilyList = 0x06D98000, kFamilyIf = 0x04020000, kFamilyRule = 0x08CDC000;
constexpr uint32_t kFamilyStats = 0x0AC08000, kFamilyIfStats = 0x0CB38000;
constexpr uint32_t kFamilyGem = 0x0CC94000, kFamilyGemStats = 0x0CCA0000;

RelayIdentity relayIdentity(uint32_t cmd, uintptr_t key, const std::vector<uint8_t>& keyBytes) {
  RelayIdentity id;
  const uint32_t family = cmd & ~0x3FFFu;
  switch (family) {
    case kFamilyList:
      id.list = static_cast<uint32_t>(key);
      break;
    case kFamilyIf:
      id.unit = static_cast<uint32_t>(key);
      break;
    case kFamilyRule:
      if (keyBytes.size() >= 8) {
        id.list = be::load32(keyBytes, 0);
        id.rule = be::load32(keyBytes, 4);
      }
      break;
    case kFamilyStats:
    case kFamilyIfStats:
    case kFamilyGemStats:
      if (keyBytes.size() >= 12) {
        id.list = be::load32(keyBytes, 0);
        id.rule = be::load32(keyBytes, 4);
        id.unit = be::load32(keyBytes, 8);
      }
      break;
    case kFamilyGem:
      if (keyBytes.size() >= 4) id.unit = be::load32(keyBytes, 0);
      break;
    default:
      break;
  }
  return id;
}

}  // namespace

int zorHwilCmdSyncApi(uintptr_t key, uint32_t cmdNumber, const void* data, const void* options) {
  Relay r;
  r.key = key;
  r.cmd = cmdNumber;
  r.options = copyBytes(options, kOptionsLen);
  const uint32_t mode = r.options.empty() ? 0 : be::load32(r.options, 0);
  const uint32_t keyLen = r.options.empty() ? 0 : be::load32(r.options, 4);
  const uint32_t dataLen = r.options.empty() ? 0 : be::load32(r.options, 16);
  // A key longer than one word travelled by address.
  if (keyLen > 4 && key != 0 && keyLen <= 64) {
    r.keyBytes = copyBytes(reinterpret_cast<const void*>(key), keyLen);
  }
  const RelayIdentity id = relayIdentity(cmdNumber, key, r.keyBytes);
  if (auto f = plat::faultHit({.call = "zorHwilCmdSyncApi",
                               .cmd = cmdNumber,
                               .unit = id.unit,
                               .list = id.list,
                               .rule = id.rule})) {
    return *f;
  }
  if (options == nullptr) return kErrBadParam;
  if (data != nullptr) {
    if (mode & 0x80000000u) {
      const auto* desc = static_cast<const ZorBufDesc*>(data);
      r.data = copyBytes(desc->data, std::min<uint32_t>(desc->len, kRelayDataMax));
    } else if (dataLen == 4) {
      r.data = copyBytes(data, 4);
    }
  }
  Device& d = device();
  std::lock_guard lock(d.mutex);
  r.seq = nextSeq(d.journal);
  journalPush(d.journal.relays, std::move(r));
  return 0;
}

int zorHwilScalarSet(uint32_t unit, uint32_t scalarId, const void* value, uint32_t /*options*/) {
  if (auto f = plat::faultHit({.call = "zorHwilScalarSet", .cmd = scalarId, .unit = unit})) {
    return *f;
  }
  if (value == nullptr) return kErrBadParam;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  d.model.scalars[scalarId] = be::load32(value);
  return 0;
}

int zorHwilScalarGet(uint32_t unit, uint32_t scalarId, void* value, uint32_t /*options*/) {
  if (auto f = plat::faultHit({.call = "zorHwilScalarGet", .cmd = scalarId, .unit = unit})) {
    return *f;
  }
  if (value == nullptr) return kErrBadParam;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  // A scalar nobody set reads 0, as on a fresh device.
  auto it = d.model.scalars.find(scalarId);
  be::store32(value, it == d.model.scalars.end() ? 0 : it->second);
  return 0;
}

uint32_t zorSelfSysIndex() {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  return d.model.selfSys;
}

uint32_t zorSelfSlotIndex() {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  return d.model.selfSlot;
}
