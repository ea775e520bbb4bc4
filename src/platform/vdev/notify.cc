// Helpers shared by the platform calls the device serves.
#include "platform/vdev/calls.h"
#include "wire/be.h"

namespace vdev {

std::vector<uint32_t> keyWords(const void* key, size_t words) {
  std::vector<uint32_t> out;
  if (key == nullptr) return out;
  const auto* b = static_cast<const uint8_t*>(key);
  for (size_t i = 0; i < words; ++i) out.push_back(be::load32(b + 4 * i));
  return out;
}

}  // namespace vdev
