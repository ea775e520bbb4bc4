// The relay of a Set or Sync to the hardware interface layer: the 64-byte options record, the
// family bases of the hardware command numbers, and the one helper every Set family relays with.
#pragma once

#include <cstdint>
#include <span>

#include "hw/acl_hw_options.h"  // ACL_HW_OPTIONS_LEN

// The mode a Set or Sync entry hands its family's shared body.
constexpr uint32_t ACL_MODE_SET = 3;
constexpr uint32_t ACL_MODE_SYNC = 1;

// Flags ORed into the first word of the options record.
constexpr uint32_t ACL_HW_OPT_KEY_BY_VALUE = 0x10000000;
constexpr uint32_t ACL_HW_OPT_VAR_LEN = 0x80000000;

// A family's relay: the base its command ids are added to, and how its key is described.
struct AclRelayFamily {
  uint32_t base;
  uint32_t keyLen;  // 0 scalars, 4 a one-word index, 12 rule or GEM port key, 28 statistics index
  bool keyByValue;  // the key travels by value: ACL_HW_OPT_KEY_BY_VALUE in the mode word
};

constexpr AclRelayFamily ACL_RELAY_SCALAR = {0x00014000, 0, false};
constexpr AclRelayFamily ACL_RELAY_LIST = {0x06D98000, 4, true};
constexpr AclRelayFamily ACL_RELAY_IF = {0x04020000, 4, true};
constexpr AclRelayFamily ACL_RELAY_RULE = {0x08CDC000, 12, false};
constexpr AclRelayFamily ACL_RELAY_STATS = {0x0AC08000, 28, false};
constexpr AclRelayFamily ACL_RELAY_IF_STATS = {0x0CB38000, 28, false};
constexpr AclRelayFamily ACL_RELAY_GEM_PORT = {0x0CC94000, 12, false};
constexpr AclRelayFamily ACL_RELAY_GEM_PORT_STATS = {0x0CCA0000, 28, false};
constexpr AclRelayFamily ACL_RELAY_METER = {0x06DB8000, 4, true};
constexpr AclRelayFamily ACL_RELAY_METER_SCALAR = {0x06DB8000, 0, false};
constexpr AclRelayFamily ACL_RELAY_METER_PROFILE = {0x0733C000, 4, true};
constexpr AclRelayFamily ACL_RELAY_COUNTER = {0x06DBC000, 4, true};
constexpr AclRelayFamily ACL_RELAY_COUNTER_SCALAR = {0x06DBC000, 0, false};

// What the relayed data address points at: a value word (data length 4), or a buffer descriptor
// (variable-length data: ACL_HW_OPT_VAR_LEN, and the descriptor's length as data length).
enum class AclRelayData { Value, Desc };

// Fills the options record: all zero but the mode word, the key length and the data length.
void aclHwOptionsFill(std::span<uint8_t, ACL_HW_OPTIONS_LEN> rec, const AclRelayFamily& family,
                      uint32_t mode, bool varLen, uint32_t dataLen);

// Relays command cmd of family with the caller's own key and buffer, unchanged, and returns the
// hardware layer's result unchanged (0 when it took the command).
int32_t aclHwRelay(const AclRelayFamily& family, uint32_t mode, uintptr_t key, uint32_t cmd,
                   uintptr_t buf, AclRelayData data = AclRelayData::Value);

// The same with an explicit data description, for the few commands whose data is neither a value
// word nor described by a descriptor at buf.
int32_t aclHwRelayData(const AclRelayFamily& family, uint32_t mode, uintptr_t key, uint32_t cmd,
                       const void* data, bool varLen, uint32_t dataLen);
