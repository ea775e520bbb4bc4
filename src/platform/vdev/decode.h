// Decoding of the rules the hardware tables hold, whichever form carried them (the 508-byte rule
// record or the TLV message), into one shape: list, rule, direction, priority, layer type, match
// fields, actions, out-actions and policing attributes by name. Both forms of one rule decode to
// the same content, so an operator can compare what the hardware holds with what was configured.
#pragma once

#include <cstdint>
#include <span>

#include <nlohmann/json.hpp>

namespace vdev {

// A form the device cannot read gives an object with "error" and whatever was read before it.
nlohmann::json decodeHwRule(std::span<const uint8_t> data, bool tlv);

}  // namespace vdev
