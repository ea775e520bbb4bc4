// The slot and card route messages: how the daemon learns the chassis. A slot announced up gets
// its record; a card that comes up gets its slot record, reports its capacities and has the
// all-slot bindings charged on it; a slot removed loses its record. The event task calls these
// with aclMutex held, each with one whole message (header included).
#pragma once

#include <cstdint>
#include <span>

constexpr uint16_t ACL_RTM_CARD_UP = 101;
constexpr uint16_t ACL_RTM_SLOT_DEL = 103;
constexpr uint16_t ACL_RTM_CARD_CHANGE = 104;
constexpr uint16_t ACL_RTM_SLOT_UP = 108;
constexpr uint16_t ACL_RTM_SLOT_READY = 112;

// Body of a card message: system, slot, two more words (the fourth is the card type), and the
// kind byte at body byte 48.
constexpr uint32_t ACL_RTM_CARD_BODY_LEN = 49;
constexpr uint32_t ACL_RTM_CARD_KIND_AT = 48;
// Body of a slot message: system, slot and one more word; of a slot removal: system and slot.
constexpr uint32_t ACL_RTM_SLOT_BODY_LEN = 12;
constexpr uint32_t ACL_RTM_SLOT_DEL_BODY_LEN = 8;

// Types 101 and 104.
void aclRtCardMsgProcess(uint16_t type, std::span<const uint8_t> msg);
// Type 103.
void aclRtSlotDelMsgProcess(std::span<const uint8_t> msg);
// Types 108 and 112.
void aclRtSlotMsgProcess(uint16_t type, std::span<const uint8_t> msg);
