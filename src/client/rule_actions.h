// The actions of a rule by name, for aclctl: in-actions (deny, permit, redirect, remark, mirror,
// VLAN rewrites, ...) and out-actions (drop and remark by colour), with their parameters, as the
// rule table's bit sets and parameter items, and read back into the same names.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "client/rule_client.h"

namespace aclclient {

enum class ActionParam : uint8_t {
  None,
  Number,  // decimal or 0x-hex
  Ports,   // port bits N[,N...] of the redirect port set
  Ipv4,    // A.B.C.D
  Ipv6,    // an IPv6 address
  Mac,     // aa:bb:cc:dd:ee:ff
};

struct RuleActionName {
  const char* name;
  uint32_t bit;  // in-action code, or out-action bit
  ActionParam param;
  const char* help;
};

std::span<const RuleActionName> ruleActionNames();
std::span<const RuleActionName> ruleOutActionNames();

// What a list of NAME[=VALUE] words sets: the bit set and the parameter items.
struct ActionRequest {
  std::vector<uint8_t> bits;    // 8 bytes (in-actions) or 2 (out-actions)
  std::vector<uint8_t> params;  // items: code byte and value
};
std::optional<ActionRequest> parseActions(std::span<const std::string> words, bool out,
                                          std::string* err);
// The remove-all marker.
ActionRequest clearActions(bool out);

// The rule's in-actions or out-actions as [{"name", "value"?}], from its bits and parameter block.
nlohmann::ordered_json describeActions(RuleClient& c, RuleRef r, bool out);

}  // namespace aclclient
