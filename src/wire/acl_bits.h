// Bit sets of the rule store (field bits, action bits, out-action bits) and of the wire: bit n
// lies in byte n / 8 under mask 0x80 >> (n % 8), so the sets read the same on every host and
// travel byte for byte.
#pragma once

#include <cstdint>
#include <span>

inline bool aclBitTest(std::span<const uint8_t> bits, uint32_t n) {
  return n / 8 < bits.size() && (bits[n / 8] & (0x80u >> (n % 8))) != 0;
}

inline void aclBitSet(std::span<uint8_t> bits, uint32_t n) {
  if (n / 8 < bits.size()) bits[n / 8] = static_cast<uint8_t>(bits[n / 8] | (0x80u >> (n % 8)));
}

inline void aclBitClear(std::span<uint8_t> bits, uint32_t n) {
  if (n / 8 < bits.size()) bits[n / 8] = static_cast<uint8_t>(bits[n / 8] & ~(0x80u >> (n % 8)));
}
