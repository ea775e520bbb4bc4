// The one place where model changes made from outside reach the rest of the platform.
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

void modelChanged(Device& /*d*/, const std::string& /*what*/, const nlohmann::json& /*detail*/) {
  // The route messages that announce each kind of change to the daemon are sent from here once
  // they are built; until then a change only alters what later calls answer.
}

}  // namespace vdev
