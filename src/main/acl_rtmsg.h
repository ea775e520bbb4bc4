// The route messages the event task acts on, their bodies and attributes, and the handlers that
// hand each to the subsystem owning what it changes. Every handler runs in the event task with
// aclMutex held and reads only the bytes of its own message.
#pragma once

#include <cstdint>
#include <span>

#include "main/acl_task.h"
#include "wire/be.h"

// Message types (the slot and card types 101 to 112 are in control/acl_slot_rtmsg.h).
constexpr uint16_t ACL_RTM_NEWLINK = 32;
constexpr uint16_t ACL_RTM_DELLINK = 34;
constexpr uint16_t ACL_RTM_CARD_READY = 97;
constexpr uint16_t ACL_RTM_SYS_UP = 117;
constexpr uint16_t ACL_RTM_NH_LEARN = 305;
constexpr uint16_t ACL_RTM_NH_LOSE = 306;
constexpr uint16_t ACL_RTM_NH_RELEARN = 307;
constexpr uint16_t ACL_RTM_RESET_CONFIG = 324;
constexpr uint16_t ACL_RTM_ONU_DEL = 382;
constexpr uint16_t ACL_RTM_ONU_UP = 383;
constexpr uint16_t ACL_RTM_GEM_DEL = 386;
constexpr uint16_t ACL_RTM_GEM_UP = 387;
constexpr uint16_t ACL_RTM_TIMERANGE_ON = 396;
constexpr uint16_t ACL_RTM_TIMERANGE_OFF = 397;

// Attribute types of messages 32 and 324.
constexpr uint16_t ACL_RTA_IF_DEL = 52;
constexpr uint16_t ACL_RTA_AGG_JOIN = 66;
constexpr uint16_t ACL_RTA_AGG_QUIT = 67;
constexpr uint16_t ACL_RTA_RESET_CONFIG = 75;

// Attributes run from this byte of the message to its end.
constexpr uint32_t ACL_RTA_RUN_AT = 48;
constexpr uint32_t ACL_RTA_HDR_LEN = 4;

// Flags word of a configuration reset: the interface is to ignore the reset (keep its lists).
constexpr uint32_t ACL_RESET_FLAG_KEEP = 1u << 25;

// Calls visit(type, attribute) for each attribute of msg (the attribute with its 4-byte head),
// stopping at the first whose length is below 4 or past the bytes left. Attributes start on
// 4-byte boundaries.
template <typename Visit>
void aclRtAttrWalk(std::span<const uint8_t> msg, Visit&& visit) {
  if (msg.size() <= ACL_RTA_RUN_AT) return;
  size_t off = ACL_RTA_RUN_AT;
  size_t left = msg.size() - ACL_RTA_RUN_AT;
  while (left >= ACL_RTA_HDR_LEN) {
    const uint16_t len = be::load16(msg, off);
    if (len < ACL_RTA_HDR_LEN || len > left) break;
    visit(be::load16(msg, off + 2), msg.subspan(off, len));
    const size_t step = (static_cast<size_t>(len) + 3) & ~size_t{3};
    if (step >= left) break;
    off += step;
    left -= step;
  }
}

// Messages 32, 34 and 324; len counts the bytes from the message on, less the 24-byte header.
// Each acts only when len is at least 24.
void aclNewLinkProcess(std::span<const uint8_t> msg, uint32_t len);
void aclDelLinkProcess(std::span<const uint8_t> msg, uint32_t len);
void aclResetConfigProcess(std::span<const uint8_t> msg, uint32_t len);

// Resynchronisation of one slot (messages 97, 108, 112) or a whole system (117), after the
// platform's readiness tests. Each takes the whole message.
void aclRtCardReadyProcess(std::span<const uint8_t> msg);
void aclRtSlotResyncProcess(std::span<const uint8_t> msg);
void aclRtSysUpProcess(std::span<const uint8_t> msg);

// The checks of a card-ready message for slot of system 1 and, when they pass, the slot's
// resynchronisation (without the card-up completion). aclCardSync's result, or -1 when a check
// fails.
int32_t aclTestCardUp(uint32_t slot);
