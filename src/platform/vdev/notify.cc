// The one place where model changes made from outside reach the rest of the platform.
#include "platform/vdev/announce.h"
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

void modelChanged(Device& d, const std::string& what, const nlohmann::json& detail) {
  // A card inserted into a slot brings the slot up with it.
  if (what == "card.set" && detail.value("inserted", false)) {
    announceCardUp(d.model, detail.at("system").get<uint32_t>(), detail.at("slot").get<uint32_t>());
  }
  // The route messages of the other kinds of change are sent from here as they are built; until
  // then such a change only alters what later calls answer.
}

}  // namespace vdev
