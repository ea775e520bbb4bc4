// The route messages the device sends as the platform would: one for every change of the model
// that the platform announces (an interface removed, a port joining or leaving an aggregation, a
// card inserted, up or pulled, a slot or system up, a neighbour learned, lost or re-learned, a
// time range switched, an interface's configuration reset), and the chassis replayed to a route
// socket when it joins the chassis group.
//
// Messages are built while the device mutex is held and sent only after it is given back, so a
// receiver that is slow, full or itself waiting for the device never holds the device up.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "platform/vdev/model.h"

namespace vdev {

// Message groups, one per family of messages (each is one the ACL daemon joins).
constexpr uint32_t kLinkGroup = 1;        // interface messages: 32, 34, 324
constexpr uint32_t kNeighbourGroup = 3;   // next-hop neighbours: 305, 306, 307
constexpr uint32_t kChassisGroup = 33;    // slots, cards and systems: 97, 101, 103, 108, 117
constexpr uint32_t kTimeRangeGroup = 85;  // time ranges: 396, 397

// Message types.
constexpr uint16_t kMsgLinkChange = 32;  // attributes 66 (joined) / 67 (left an aggregation)
constexpr uint16_t kMsgLinkRemoved = 34;
constexpr uint16_t kMsgCardReady = 97;
constexpr uint16_t kMsgCardUp = 101;
constexpr uint16_t kMsgCardPulled = 103;
constexpr uint16_t kMsgSlotUp = 108;
constexpr uint16_t kMsgSystemUp = 117;
constexpr uint16_t kMsgNeighbourLearned = 305;
constexpr uint16_t kMsgNeighbourLost = 306;
constexpr uint16_t kMsgNeighbourRelearned = 307;
constexpr uint16_t kMsgIfConfigReset = 324;
constexpr uint16_t kMsgTimeRangeOn = 396;
constexpr uint16_t kMsgTimeRangeOff = 397;

constexpr uint16_t kAttrAggJoin = 66;
constexpr uint16_t kAttrAggLeave = 67;
constexpr uint16_t kAttrConfigReset = 75;

// A read of the route socket takes at most this many bytes; replays are packed to fit.
constexpr size_t kRouteReadMax = 0xF00;

// Builds one route message: a 24-byte header (u32 length, u16 type, the rest zero), a body of
// big-endian words and bytes from byte 24, and optionally an attribute run from byte 48 (the body
// is zero-filled up to it). Each attribute is u16 length (its 4-byte head included), u16 type and
// its data, and the next one starts at the length rounded up to 4.
class RouteMessageBuilder {
 public:
  static constexpr size_t kHeaderLen = 24;
  static constexpr size_t kAttrRunAt = 48;

  explicit RouteMessageBuilder(uint16_t type);
  RouteMessageBuilder& word(uint32_t v);
  RouteMessageBuilder& words(std::initializer_list<uint32_t> vs);
  RouteMessageBuilder& bytes(std::span<const uint8_t> b);
  // Zero-fills the body up to bodyLen bytes (nothing when it is already that long).
  RouteMessageBuilder& bodyTo(size_t bodyLen);
  // Appends an attribute; the first one fills the body up to the start of the attribute run.
  RouteMessageBuilder& attr(uint16_t type, std::span<const uint8_t> data);
  RouteMessageBuilder& attrWords(uint16_t type, std::initializer_list<uint32_t> vs);
  // The message with its length filled in.
  std::vector<uint8_t> build() const;

 private:
  std::vector<uint8_t> m_;
};

// One message for one group.
struct RouteOut {
  uint32_t group = 0;
  std::vector<uint8_t> bytes;
  bool operator==(const RouteOut&) const = default;
};

std::vector<uint8_t> slotUpMessage(uint32_t sys, uint32_t slot);
std::vector<uint8_t> cardUpMessage(uint32_t sys, uint32_t slot, uint32_t cardType);
std::vector<uint8_t> cardReadyMessage(uint32_t sys, uint32_t slot, uint32_t cardType);
std::vector<uint8_t> cardPulledMessage(uint32_t sys, uint32_t slot);
std::vector<uint8_t> systemUpMessage(uint32_t sys);
// A port joined (join) or left its aggregation.
std::vector<uint8_t> aggMemberMessage(uint32_t port, uint32_t agg, bool join);
std::vector<uint8_t> linkRemovedMessage(uint32_t ifIndex);
std::vector<uint8_t> configResetMessage(uint32_t ifIndex, uint32_t reason, uint32_t operation,
                                        uint32_t flags);
std::vector<uint8_t> neighbourMessage(uint16_t type, const Neighbour& n);
std::vector<uint8_t> timeRangeMessage(uint32_t id, bool active);

// The messages a model change sends, found by comparing the model before and after it: ports
// that left an aggregation, interfaces removed, ports that joined one, cards pulled, cards
// inserted, neighbours lost and learned, time ranges switched, in that order. What names the
// change (a control op); a whole model loaded at once ("model.load") is a new device, not a change
// of the running one, and sends nothing.
std::vector<RouteOut> changeMessages(const Model& before, const Model& after,
                                     const std::string& what);

// Sends each message to the members of its group. Called without the device mutex.
void sendAll(const std::vector<RouteOut>& out);

// Called by the route bus when the socket at sockPath joined group (without the bus lock held).
void routeGroupJoined(const std::string& sockPath, uint32_t group);

}  // namespace vdev
