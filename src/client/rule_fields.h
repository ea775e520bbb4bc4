// The match fields of a rule by name, for aclctl: how NAME=VALUE becomes the rule table's set
// commands (addresses with their prefix or mask, port and VLAN ranges, MACs, protocols, plain
// numbers), and how a rule's fields read back into the same notation.
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

enum class FieldFormat : uint8_t {
  Number,     // decimal or 0x-hex
  Hex,        // as a number, shown in hex
  Protocol,   // IP protocol: a name (tcp, udp, icmp, ...) or a number
  IpVersion,  // 4 or 6
  Address,    // A.B.C.D or IPv6, with /length or /mask
  Range,      // N or N-M (ports, VLANs, priorities)
  Mac,        // aa:bb:cc:dd:ee:ff, with /length or /mask
  Udf,        // up to four DATA/MASK@OFFSET records, comma-separated
};

struct RuleFieldName {
  const char* name;
  FieldFormat format;
  uint32_t cmd;      // the field's own set and get command
  uint32_t lenCmd;   // Address, Mac: prefix length; 0 for none
  uint32_t maskCmd;  // Address, Mac: address-form mask; 0 for none
  uint32_t endCmd;   // Range: the end of the range; 0 for none
  const char* help;
};

std::span<const RuleFieldName> ruleFieldNames();
const RuleFieldName* ruleFieldByName(std::string_view name);

// One set call of the rule table.
struct RuleSetCall {
  uint32_t cmd;
  bool desc;  // bytes travel in a descriptor, else value is the value word
  uint32_t value;
  std::vector<uint8_t> bytes;
};

// NAME=VALUE as the set calls that store it; nothing, with err, for a name or value it does not
// understand.
std::optional<std::vector<RuleSetCall>> parseFieldAssignment(std::string_view word,
                                                             std::string* err);

// The rule's fields by name, in the table's order, for the fields whose bits are set in fieldBits.
nlohmann::ordered_json describeFields(RuleClient& c, RuleRef r, std::span<const uint8_t> fieldBits);

// Text forms shared with the actions.
std::optional<uint32_t> parseNumber(std::string_view text);
std::optional<std::vector<uint8_t>> parseIpAddress(std::string_view text);
std::optional<std::vector<uint8_t>> parseMac(std::string_view text);
std::string ipText(std::span<const uint8_t> bytes);
std::string macText(std::span<const uint8_t> bytes);

// The text before and after the first c (all of s and nothing when there is none).
std::pair<std::string_view, std::string_view> splitAt(std::string_view s, char c);

}  // namespace aclclient
