#include "platform/vdev/announce.h"

#include <mutex>

#include "platform/rtbus.h"
#include "wire/be.h"

namespace vdev {

namespace {

constexpr size_t kHeaderLen = 24;
constexpr size_t kSlotBodyLen = 12;  // system, slot, a word the daemon does not read
constexpr size_t kCardBodyLen = 52;  // system, slot, subslot, card type, ..., kind byte at 48
constexpr size_t kCardKindAt = 48;
constexpr uint8_t kCardKindUp = 0;

std::vector<uint8_t> message(uint16_t type, size_t bodyLen) {
  std::vector<uint8_t> m(kHeaderLen + bodyLen, 0);
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  be::store16(m, 4, type);
  return m;
}

// The chassis as messages: per slot with a card, its slot message then its card message, packed
// into as few reads as fit (the route socket holds only a few datagrams until they are read).
std::vector<std::vector<uint8_t>> chassisReads(const Model& m,
                                               const std::pair<uint32_t, uint32_t>* only) {
  std::vector<std::vector<uint8_t>> reads(1);
  for (const auto& [key, s] : m.slots) {
    if (!s.card || (only != nullptr && key != *only)) continue;
    for (const auto& msg : {slotUpMessage(key.first, key.second),
                            cardUpMessage(key.first, key.second, s.card->type)}) {
      if (reads.back().size() + msg.size() > kRouteReadMax) reads.emplace_back();
      reads.back().insert(reads.back().end(), msg.begin(), msg.end());
    }
  }
  if (reads.back().empty()) reads.pop_back();
  return reads;
}

}  // namespace

std::vector<uint8_t> slotUpMessage(uint32_t sys, uint32_t slot) {
  std::vector<uint8_t> m = message(kMsgSlotUp, kSlotBodyLen);
  be::store32(m, kHeaderLen, sys);
  be::store32(m, kHeaderLen + 4, slot);
  return m;
}

std::vector<uint8_t> cardUpMessage(uint32_t sys, uint32_t slot, uint32_t cardType) {
  std::vector<uint8_t> m = message(kMsgCardUp, kCardBodyLen);
  be::store32(m, kHeaderLen, sys);
  be::store32(m, kHeaderLen + 4, slot);
  be::store32(m, kHeaderLen + 12, cardType);
  m[kHeaderLen + kCardKindAt] = kCardKindUp;
  return m;
}

void routeGroupJoined(const std::string& sockPath, uint32_t group) {
  if (group != kChassisGroup) return;
  std::vector<std::vector<uint8_t>> reads;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    if (!d.model.announce) return;
    reads = chassisReads(d.model, nullptr);
  }
  for (const auto& r : reads) plat::busSendTo(sockPath, r);
}

void announceCardUp(const Model& m, uint32_t sys, uint32_t slot) {
  const std::pair<uint32_t, uint32_t> key{sys, slot};
  for (const auto& r : chassisReads(m, &key)) plat::busSend(kChassisGroup, r);
}

}  // namespace vdev
