// The 64-byte options record that goes with every rule command to the hardware layer: which scope
// the command aims at, how long its data is and, for card synchronisation, the target the outer
// operation named.
#pragma once

#include <cstdint>
#include <span>

enum class AclHwScope : uint8_t { Global, Unit, GemPort };

constexpr uint32_t ACL_HW_OPTIONS_LEN = 64;

// Fills out (64 bytes, cleared first). unit: the unit the command goes to (for a GEM port, the
// GEM port's unit; ignored for the global scope). dataLen: 508 for a rule record, else the TLV
// length. caller: the options record an outer operation handed down, or an empty span for none.
void aclHwOptionsFill(AclHwScope scope, bool tlv, uint32_t unit, uint32_t dataLen,
                      std::span<const uint8_t> caller, std::span<uint8_t, ACL_HW_OPTIONS_LEN> out);
