#include "platform/vdev/announce.h"

#include <map>
#include <mutex>

#include "platform/rtbus.h"
#include "wire/be.h"

namespace vdev {

namespace {

constexpr size_t kNeighbourBodyLen = 24;  // 16 address bytes, family at 16, vrf at 20..23
constexpr size_t kNeighbourFamilyAt = 16;
constexpr size_t kLinkBodyLen = 24;  // the interface index at 4..7, then the attribute run
constexpr size_t kCardBodyLen = 52;  // system, slot, subslot, card type, ..., kind at 48
constexpr size_t kCardKindAt = 48;
constexpr uint8_t kCardKindUp = 0;

// The chassis as messages: per slot with a card, its slot message then its card message, packed
// into as few reads as fit (the route socket holds only a few datagrams until they are read).
std::vector<std::vector<uint8_t>> chassisReads(const Model& m) {
  std::vector<std::vector<uint8_t>> reads(1);
  for (const auto& [key, s] : m.slots) {
    if (!s.card) continue;
    for (const auto& msg : {slotUpMessage(key.first, key.second),
                            cardUpMessage(key.first, key.second, s.card->type)}) {
      if (reads.back().size() + msg.size() > kRouteReadMax) reads.emplace_back();
      reads.back().insert(reads.back().end(), msg.begin(), msg.end());
    }
  }
  if (reads.back().empty()) reads.pop_back();
  return reads;
}

// Each port's aggregation, for the ports that are in one.
std::map<uint32_t, uint32_t> aggOfPort(const Model& m) {
  std::map<uint32_t, uint32_t> out;
  for (const auto& [index, i] : m.interfaces) {
    for (uint32_t port : i.members) out[port] = index;
  }
  return out;
}

bool activeIn(const Model& m, uint32_t id) {
  auto it = m.timeRanges.find(id);
  return it != m.timeRanges.end() && it->second.active;
}

bool hasNeighbour(const Model& m, const Neighbour& n) {
  for (const auto& x : m.neighbours) {
    if (x == n) return true;
  }
  return false;
}

}  // namespace

RouteMessageBuilder::RouteMessageBuilder(uint16_t type) : m_(kHeaderLen, 0) {
  be::store16(m_, 4, type);
}

RouteMessageBuilder& RouteMessageBuilder::word(uint32_t v) {
  const size_t at = m_.size();
  m_.resize(at + 4);
  be::store32(m_, at, v);
  return *this;
}

RouteMessageBuilder& RouteMessageBuilder::words(std::initializer_list<uint32_t> vs) {
  for (uint32_t v : vs) word(v);
  return *this;
}

RouteMessageBuilder& RouteMessageBuilder::bytes(std::span<const uint8_t> b) {
  m_.insert(m_.end(), b.begin(), b.end());
  return *this;
}

RouteMessageBuilder& RouteMessageBuilder::bodyTo(size_t bodyLen) {
  if (m_.size() < kHeaderLen + bodyLen) m_.resize(kHeaderLen + bodyLen, 0);
  return *this;
}

RouteMessageBuilder& RouteMessageBuilder::attr(uint16_t type, std::span<const uint8_t> data) {
  bodyTo(kAttrRunAt - kHeaderLen);
  m_.resize((m_.size() + 3) & ~size_t{3}, 0);  // each attribute starts on a 4-byte boundary
  const size_t at = m_.size();
  m_.resize(at + 4);
  be::store16(m_, at, static_cast<uint16_t>(4 + data.size()));
  be::store16(m_, at + 2, type);
  m_.insert(m_.end(), data.begin(), data.end());
  m_.resize((m_.size() + 3) & ~size_t{3}, 0);
  return *this;
}

RouteMessageBuilder& RouteMessageBuilder::attrWords(uint16_t type,
                                                    std::initializer_list<uint32_t> vs) {
  std::vector<uint8_t> data(4 * vs.size());
  size_t at = 0;
  for (uint32_t v : vs) {
    be::store32(data, at, v);
    at += 4;
  }
  return attr(type, data);
}

std::vector<uint8_t> RouteMessageBuilder::build() const {
  std::vector<uint8_t> out = m_;
  be::store32(out, 0, static_cast<uint32_t>(out.size()));
  return out;
}

std::vector<uint8_t> slotUpMessage(uint32_t sys, uint32_t slot) {
  return RouteMessageBuilder(kMsgSlotUp).words({sys, slot, 0}).build();
}

std::vector<uint8_t> cardUpMessage(uint32_t sys, uint32_t slot, uint32_t cardType) {
  std::vector<uint8_t> m =
      RouteMessageBuilder(kMsgCardUp).words({sys, slot, 0, cardType}).bodyTo(kCardBodyLen).build();
  m[RouteMessageBuilder::kHeaderLen + kCardKindAt] = kCardKindUp;
  return m;
}

std::vector<uint8_t> cardReadyMessage(uint32_t sys, uint32_t slot, uint32_t cardType) {
  return RouteMessageBuilder(kMsgCardReady).words({sys, slot, 0, cardType}).build();
}

std::vector<uint8_t> cardPulledMessage(uint32_t sys, uint32_t slot) {
  return RouteMessageBuilder(kMsgCardPulled).words({sys, slot}).build();
}

std::vector<uint8_t> systemUpMessage(uint32_t sys) {
  return RouteMessageBuilder(kMsgSystemUp).word(sys).build();
}

std::vector<uint8_t> aggMemberMessage(uint32_t port, uint32_t agg, bool join) {
  return RouteMessageBuilder(kMsgLinkChange)
      .words({0, port})
      .attrWords(join ? kAttrAggJoin : kAttrAggLeave, {agg})
      .build();
}

std::vector<uint8_t> linkRemovedMessage(uint32_t ifIndex) {
  return RouteMessageBuilder(kMsgLinkRemoved).words({0, ifIndex}).bodyTo(kLinkBodyLen).build();
}

std::vector<uint8_t> configResetMessage(uint32_t ifIndex, uint32_t reason, uint32_t operation,
                                        uint32_t flags) {
  return RouteMessageBuilder(kMsgIfConfigReset)
      .words({0, ifIndex})
      .attrWords(kAttrConfigReset, {reason, operation, flags})
      .build();
}

std::vector<uint8_t> neighbourMessage(uint16_t type, const Neighbour& n) {
  // The family byte: 1 for IPv4 (the first 4 address bytes count), anything else IPv6.
  std::vector<uint8_t> m =
      RouteMessageBuilder(type).bytes(n.addr).bodyTo(kNeighbourBodyLen - 4).word(n.vrf).build();
  m[RouteMessageBuilder::kHeaderLen + kNeighbourFamilyAt] = n.family;
  return m;
}

std::vector<uint8_t> timeRangeMessage(uint32_t id, bool active) {
  return RouteMessageBuilder(active ? kMsgTimeRangeOn : kMsgTimeRangeOff).word(id).build();
}

std::vector<RouteOut> changeMessages(const Model& before, const Model& after,
                                     const std::string& what) {
  std::vector<RouteOut> out;
  if (!after.announce || what == "model.load") return out;
  auto link = [&](std::vector<uint8_t> m) { out.push_back({kLinkGroup, std::move(m)}); };

  // A port leaves its aggregation before anything goes away, so the daemon can still take the
  // aggregation's lists off it; it joins a new one only once everything removed is gone.
  const auto aggBefore = aggOfPort(before), aggAfter = aggOfPort(after);
  for (const auto& [port, agg] : aggBefore) {
    auto it = aggAfter.find(port);
    if (it == aggAfter.end() || it->second != agg) link(aggMemberMessage(port, agg, false));
  }
  for (const auto& [index, i] : before.interfaces) {
    if (!after.interfaces.contains(index)) link(linkRemovedMessage(index));
  }
  for (const auto& [port, agg] : aggAfter) {
    auto it = aggBefore.find(port);
    if (it == aggBefore.end() || it->second != agg) link(aggMemberMessage(port, agg, true));
  }

  for (const auto& [key, s] : before.slots) {
    auto it = after.slots.find(key);
    if (s.card && (it == after.slots.end() || !it->second.card)) {
      out.push_back({kChassisGroup, cardPulledMessage(key.first, key.second)});
    }
  }
  for (const auto& [key, s] : after.slots) {
    auto it = before.slots.find(key);
    if (s.card && (it == before.slots.end() || !it->second.card)) {
      // A card put into a slot brings the slot up with it.
      out.push_back({kChassisGroup, slotUpMessage(key.first, key.second)});
      out.push_back({kChassisGroup, cardUpMessage(key.first, key.second, s.card->type)});
    }
  }

  for (const auto& n : before.neighbours) {
    if (!hasNeighbour(after, n)) {
      out.push_back({kNeighbourGroup, neighbourMessage(kMsgNeighbourLost, n)});
    }
  }
  for (const auto& n : after.neighbours) {
    if (!hasNeighbour(before, n)) {
      out.push_back({kNeighbourGroup, neighbourMessage(kMsgNeighbourLearned, n)});
    }
  }

  // A time range that goes away while active is switched off first.
  std::map<uint32_t, bool> ids;
  for (const auto& [id, t] : before.timeRanges) ids[id] = true;
  for (const auto& [id, t] : after.timeRanges) ids[id] = true;
  for (const auto& [id, unused] : ids) {
    const bool was = activeIn(before, id), is = activeIn(after, id);
    if (was != is) out.push_back({kTimeRangeGroup, timeRangeMessage(id, is)});
  }
  return out;
}

void sendAll(const std::vector<RouteOut>& out) {
  for (const RouteOut& o : out) plat::busSend(o.group, o.bytes);
}

void routeGroupJoined(const std::string& sockPath, uint32_t group) {
  if (group != kChassisGroup) return;
  std::vector<std::vector<uint8_t>> reads;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    if (!d.model.announce) return;
    reads = chassisReads(d.model);
  }
  for (const auto& r : reads) plat::busSendTo(sockPath, r);
}

}  // namespace vdev
