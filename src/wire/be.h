// Big-endian loads and stores at a byte offset. Every record that crosses the process boundary or
// is handed to the platform layer is read and written through these, never by copying a struct.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace be {

inline uint8_t load8(std::span<const uint8_t> b, size_t off) { return b[off]; }
inline uint16_t load16(std::span<const uint8_t> b, size_t off) {
  return static_cast<uint16_t>((b[off] << 8) | b[off + 1]);
}
inline uint32_t load32(std::span<const uint8_t> b, size_t off) {
  return (uint32_t{b[off]} << 24) | (uint32_t{b[off + 1]} << 16) | (uint32_t{b[off + 2]} << 8) |
         uint32_t{b[off + 3]};
}
inline uint64_t load64(std::span<const uint8_t> b, size_t off) {
  return (uint64_t{load32(b, off)} << 32) | load32(b, off + 4);
}

inline void store8(std::span<uint8_t> b, size_t off, uint8_t v) { b[off] = v; }
inline void store16(std::span<uint8_t> b, size_t off, uint16_t v) {
  b[off] = static_cast<uint8_t>(v >> 8);
  b[off + 1] = static_cast<uint8_t>(v);
}
inline void store32(std::span<uint8_t> b, size_t off, uint32_t v) {
  b[off] = static_cast<uint8_t>(v >> 24);
  b[off + 1] = static_cast<uint8_t>(v >> 16);
  b[off + 2] = static_cast<uint8_t>(v >> 8);
  b[off + 3] = static_cast<uint8_t>(v);
}
inline void store64(std::span<uint8_t> b, size_t off, uint64_t v) {
  store32(b, off, static_cast<uint32_t>(v >> 32));
  store32(b, off + 4, static_cast<uint32_t>(v));
}

// Raw-pointer forms for the platform calls whose contract is "an address of N bytes".
inline uint32_t load32(const void* p) {
  return load32(std::span<const uint8_t>(static_cast<const uint8_t*>(p), 4), 0);
}
inline void store32(void* p, uint32_t v) {
  store32(std::span<uint8_t>(static_cast<uint8_t*>(p), 4), 0, v);
}

}  // namespace be
