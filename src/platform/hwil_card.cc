// Card and slot queries and commands of the hardware interface layer: property tests, the card's
// option answers (slot rule capacities), the slot's resource records, slot commands and the
// card-up completion.
#include <algorithm>
#include <cstring>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/vdev/calls.h"
#include "wire/be.h"

namespace {

using namespace vdev;

// The option query: entries of 132 bytes, the option key in bytes 0..63, the answer in 64..127
// (NUL-terminated decimal text) and its length as a big-endian i32 in 128..131.
constexpr size_t kOptEntry = 132, kOptKey = 64, kOptValue = 64, kOptValueLen = 128;
constexpr size_t kResourceRecord = 20;

int answerOptions(const Card& card, ZorBufDesc* desc) {
  if (desc->data == nullptr) return kErrBadParam;
  std::span<uint8_t> buf(static_cast<uint8_t*>(desc->data), desc->len);
  for (size_t off = 0; off + kOptEntry <= buf.size(); off += kOptEntry) {
    const char* key = reinterpret_cast<const char*>(&buf[off]);
    const std::string k(key, strnlen(key, kOptKey));
    auto it = card.options.find(k);
    std::fill(buf.begin() + off + kOptValue, buf.begin() + off + kOptEntry, 0);
    if (it == card.options.end()) continue;
    const size_t n = std::min(it->second.size(), kOptKey - 1);
    std::memcpy(&buf[off + kOptValue], it->second.data(), n);
    be::store32(buf, off + kOptValueLen, static_cast<uint32_t>(n));
  }
  return 0;
}

int answerResources(const Slot& slot, ZorBufDesc* desc) {
  if (desc->data == nullptr) return kErrBadParam;
  std::span<uint8_t> buf(static_cast<uint8_t*>(desc->data), desc->len);
  size_t off = 0;
  for (const auto& r : slot.resources) {
    if (off + kResourceRecord > buf.size()) break;
    be::store8(buf, off, r.chip);
    be::store8(buf, off + 1, r.tcam);
    be::store8(buf, off + 2, r.resource);
    be::store8(buf, off + 3, r.stage);
    be::store32(buf, off + 4, r.total);
    be::store32(buf, off + 8, r.used);
    be::store32(buf, off + 12, r.reserve);
    be::store32(buf, off + 16, r.free);
    off += kResourceRecord;
  }
  desc->len = static_cast<uint32_t>(off);
  return 0;
}

int propertyAnswer(const std::map<uint32_t, int32_t>& props, uint32_t cmd) {
  auto it = props.find(cmd);
  return it == props.end() ? kErrNotSupported : it->second;
}

void logCommand(Device& d, const char* call, uint32_t cmd, std::vector<uint32_t> key,
                std::vector<uint8_t> data) {
  journalPush(d.journal.commands,
              CommandLogEntry{nextSeq(d.journal), call, cmd, std::move(key), std::move(data)});
}

}  // namespace

int zorHwilCardGet(const void* key, uint32_t cmd, void* data) {
  const auto w = keyWords(key, 4);
  if (auto f = plat::faultHit({.call = "zorHwilCardGet",
                               .cmd = cmd,
                               .unit = w.empty() ? std::nullopt : std::optional(w[1])})) {
    return *f;
  }
  if (key == nullptr) return kErrBadParam;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto it = d.model.slots.find({w[0], w[1]});
  if (it == d.model.slots.end() || !it->second.card) return kErrNotFound;
  const Card& card = *it->second.card;
  if (cmd == HWIL_CARD_OPTION_QUERY) {
    if (data == nullptr) return kErrBadParam;
    return answerOptions(card, static_cast<ZorBufDesc*>(data));
  }
  return propertyAnswer(card.properties, cmd);
}

int zorHwilSlotGet(const void* key, uint32_t cmd, void* data) {
  const auto w = keyWords(key, 4);
  if (auto f = plat::faultHit({.call = "zorHwilSlotGet",
                               .cmd = cmd,
                               .unit = w.empty() ? std::nullopt : std::optional(w[1])})) {
    return *f;
  }
  if (key == nullptr) return kErrBadParam;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto it = d.model.slots.find({w[0], w[1]});
  if (it == d.model.slots.end()) return kErrNotFound;
  if (cmd == HWIL_SLOT_RESOURCE_QUERY) {
    if (data == nullptr) return kErrBadParam;
    return answerResources(it->second, static_cast<ZorBufDesc*>(data));
  }
  return propertyAnswer(it->second.properties, cmd);
}

int zorHwilSlotSet(const void* key, uint32_t cmd, const void* data, uint32_t /*options*/) {
  const auto w = keyWords(key, 2);
  if (auto f = plat::faultHit({.call = "zorHwilSlotSet",
                               .cmd = cmd,
                               .unit = w.empty() ? std::nullopt : std::optional(w[1])})) {
    return *f;
  }
  if (key == nullptr || data == nullptr) return kErrBadParam;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  if (!d.model.slots.count({w[0], w[1]})) return kErrNotFound;
  logCommand(d, "zorHwilSlotSet", cmd, w, copyBytes(data, 508));
  return 0;
}

int zorCardUpPcsSet(const void* location, uint32_t module) {
  const auto w = keyWords(location, 4);
  if (auto f = plat::faultHit(
          {.call = "zorCardUpPcsSet", .unit = w.empty() ? std::nullopt : std::optional(w[1])})) {
    return *f;
  }
  if (location == nullptr) return kErrBadParam;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  logCommand(d, "zorCardUpPcsSet", module, w, {});
  return 0;
}
