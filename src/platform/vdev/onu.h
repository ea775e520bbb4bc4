// ONUs and their GEM ports behind the device's PON interfaces: the control requests that register
// and remove them, and the route messages those changes send (message group 105).
#pragma once

#include <cstdint>
#include <vector>

#include <nlohmann/json.hpp>

namespace vdev {

constexpr uint32_t kOnuGroup = 105;
constexpr uint16_t kMsgOnuRemoved = 382;
constexpr uint16_t kMsgOnuUp = 383;
constexpr uint16_t kMsgGemPortRemoved = 386;
constexpr uint16_t kMsgGemPortUp = 387;

// The message, header included: 24-byte header (u32 length, u16 type), then the body words.
std::vector<uint8_t> onuMessage(uint16_t type, const std::vector<uint32_t>& words);

// onu.set {"interface", "onu", "gemPorts": [...]}: registers the ONU when it is new (383) and
// each GEM port it does not have yet (387).
nlohmann::json onuSet(const nlohmann::json& req);
// onu.remove {"interface", "onu"[, "gem"]}: removes the ONU with its GEM ports (382), or one GEM
// port (386).
nlohmann::json onuRemove(const nlohmann::json& req);

}  // namespace vdev
