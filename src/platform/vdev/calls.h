// What the platform calls served by the virtual device share: result codes, the journal's
// sequence, anomalies, and byte copies.
#pragma once

#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/vdev/model.h"

namespace vdev {

// The platform's common result codes, as the device answers them.
constexpr int32_t kErrNoResource = 0x03E80001;
constexpr int32_t kErrNotFound = 0x03E80002;
constexpr int32_t kErrBufferShort = 0x03E8000D;
constexpr int32_t kErrNotSupported = 0x03E80010;
constexpr int32_t kErrBadParam = 0x03E8001A;

inline uint64_t nextSeq(Journal& jr) {
  return ++jr.seq;
}

inline std::vector<uint8_t> copyBytes(const void* p, size_t n) {
  if (p == nullptr || n == 0) return {};
  const auto* b = static_cast<const uint8_t*>(p);
  return std::vector<uint8_t>(b, b + n);
}

// Four big-endian words from a key or location record.
std::vector<uint32_t> keyWords(const void* key, size_t words);

}  // namespace vdev
