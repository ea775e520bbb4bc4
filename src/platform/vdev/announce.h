// The route messages the device sends about its chassis: a slot message (108) for every slot that
// is up and a card message (101) for every card, replayed to a route socket when it joins the
// chassis group and sent to every member of the group when a card comes up later.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/vdev/model.h"

namespace vdev {

// The message group of slot and card messages.
constexpr uint32_t kChassisGroup = 33;
constexpr uint16_t kMsgCardUp = 101;
constexpr uint16_t kMsgSlotUp = 108;
// A read of the route socket takes at most this many bytes; replays are packed to fit.
constexpr size_t kRouteReadMax = 0xF00;

// The messages, header included: 24-byte header (u32 length, u16 type), then the body.
std::vector<uint8_t> slotUpMessage(uint32_t sys, uint32_t slot);
std::vector<uint8_t> cardUpMessage(uint32_t sys, uint32_t slot, uint32_t cardType);

// Called by the route bus when the socket at sockPath joined group (without the bus lock held).
void routeGroupJoined(const std::string& sockPath, uint32_t group);
// Called with the device mutex held when the card in (sys, slot) came up through a model change.
void announceCardUp(const Model& m, uint32_t sys, uint32_t slot);

}  // namespace vdev
