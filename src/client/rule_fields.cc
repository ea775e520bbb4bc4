#include "client/rule_fields.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include "wire/acl_bits.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"

namespace aclclient {

namespace {

using F = FieldFormat;

constexpr RuleFieldName kFields[] = {
    {"src", F::Address, 8, 9, 10, 0, "source address: A.B.C.D[/LEN|/MASK] or IPv6[/LEN|/MASK]"},
    {"dst", F::Address, 11, 12, 13, 0, "destination address, as src"},
    {"sport", F::Range, 14, 0, 0, 15, "source port or range N-M"},
    {"dport", F::Range, 16, 0, 0, 17, "destination port or range N-M"},
    // The IP protocol is the rule's protocol subtype; the protocol type is the layer-3 type the
    // packet parsers fill (0x0800 for IPv4 and IPv6 alike).
    {"protocol", F::Protocol, 6, 0, 0, 0, "IP protocol: tcp, udp, icmp, ... or a number"},
    {"proto-type", F::Hex, 5, 0, 0, 0, "layer-3 protocol type, e.g. 0x0800"},
    {"ip-version", F::IpVersion, 7, 0, 0, 0, "4 or 6"},
    {"smac", F::Mac, 34, 35, 36, 0, "source MAC: aa:bb:cc:dd:ee:ff[/LEN|/MASK]"},
    {"dmac", F::Mac, 37, 38, 39, 0, "destination MAC, as smac"},
    {"ethertype", F::Hex, 33, 0, 0, 0, "EtherType, e.g. 0x0800"},
    {"vlan", F::Range, 30, 0, 0, 51, "outer VLAN or range N-M"},
    {"inner-vlan", F::Range, 32, 0, 0, 52, "inner VLAN or range N-M"},
    {"pri", F::Range, 29, 0, 0, 72, "outer 802.1p priority or range N-M"},
    {"inner-pri", F::Range, 31, 0, 0, 71, "inner 802.1p priority or range N-M"},
    {"dtag", F::Number, 2, 0, 0, 0, "double-tagged"},
    {"encap", F::Number, 3, 0, 0, 0, "encapsulation type"},
    {"layer", F::Number, 4, 0, 0, 0, "layer type"},
    {"tcp-flags", F::Hex, 18, 0, 0, 0, "TCP flags (state machine bits)"},
    {"tos", F::Number, 19, 0, 0, 0, "IP ToS (0..15)"},
    {"dscp", F::Number, 20, 0, 0, 0, "DSCP (0..63)"},
    {"precedence", F::Number, 74, 0, 0, 0, "IP precedence (0..7)"},
    {"ttl", F::Number, 21, 0, 0, 0, "IP TTL"},
    {"fragment", F::Number, 22, 0, 0, 0, "IP fragment flag"},
    {"ip-options", F::Number, 23, 0, 0, 0, "IP options flag"},
    {"traffic-class", F::Number, 24, 0, 0, 0, "IPv6 traffic class"},
    {"hop-limit", F::Number, 25, 0, 0, 0, "IPv6 hop limit"},
    {"next-header", F::Number, 26, 0, 0, 0, "IPv6 next header"},
    {"flow-label", F::Number, 27, 0, 0, 0, "IPv6 flow label"},
    {"ip-length", F::Number, 86, 0, 0, 0, "IP total length"},
    {"icmp-type", F::Number, 49, 0, 0, 0, "ICMP type"},
    {"icmp-code", F::Number, 50, 0, 0, 0, "ICMP code"},
    {"app", F::Number, 28, 0, 0, 0, "application"},
    {"srvid", F::Number, 45, 0, 0, 0, "service id"},
    {"lookup", F::Hex, 46, 0, 0, 0, "lookup status bits"},
    {"lookup-mask", F::Hex, 47, 0, 0, 0, "lookup status mask"},
    {"vrf", F::Number, 62, 0, 0, 0, "VRF id"},
    {"mpls-exp1", F::Number, 63, 0, 0, 0, "MPLS EXP of label 1"},
    {"mpls-exp2", F::Number, 64, 0, 0, 0, "MPLS EXP of label 2"},
    {"mpls-exp3", F::Number, 65, 0, 0, 0, "MPLS EXP of label 3"},
    {"mpls-exp4", F::Number, 66, 0, 0, 0, "MPLS EXP of label 4"},
    {"mpls-label1", F::Number, 67, 0, 0, 0, "MPLS label 1"},
    {"mpls-label2", F::Number, 68, 0, 0, 0, "MPLS label 2"},
    {"mpls-label3", F::Number, 69, 0, 0, 0, "MPLS label 3"},
    {"mpls-label4", F::Number, 70, 0, 0, 0, "MPLS label 4"},
    {"vxlan-flag", F::Number, 76, 0, 0, 0, "VXLAN flag"},
    {"vxlan-vni", F::Number, 77, 0, 0, 0, "VXLAN VNI"},
    {"vxlan-tag", F::Number, 78, 0, 0, 0, "VXLAN outer tag"},
    {"vxlan-transit", F::Number, 79, 0, 0, 0, "VXLAN transit"},
    {"vxlan-bum", F::Number, 80, 0, 0, 0, "VXLAN BUM"},
    {"multicast-gem", F::Number, 84, 0, 0, 0, "multicast GEM port (0 or 1)"},
    {"untagged", F::Number, 85, 0, 0, 0, "untagged"},
    {"udf", F::Udf, 48, 0, 0, 0, "user-defined: DATA/MASK@OFFSET[,...] (at most 4)"},
};

struct Proto {
  const char* name;
  uint32_t number;
};
constexpr Proto kProtocols[] = {{"icmp", 1},  {"igmp", 2},  {"tcp", 6},    {"udp", 17},
                                {"gre", 47},  {"esp", 50},  {"ah", 51},    {"icmpv6", 58},
                                {"ospf", 89}, {"pim", 103}, {"vrrp", 112}, {"sctp", 132}};

// IPv4 version values of the rule store: 1 IPv4, 2 IPv6.
constexpr uint32_t kIpVer4 = 1;
constexpr uint32_t kIpVer6 = 2;

uint8_t codeOf(uint32_t cmd) {
  return aclRuleSetCmd(cmd).code;
}

RuleSetCall valueCall(uint32_t cmd, uint32_t v) {
  return {cmd, false, v, {}};
}
RuleSetCall bytesCall(uint32_t cmd, std::vector<uint8_t> b) {
  return {cmd, true, 0, std::move(b)};
}

bool fail(std::string* err, const std::string& text) {
  if (err) *err = text;
  return false;
}

// An address with an optional /length or /mask.
bool parseAddress(const RuleFieldName& f, std::string_view v, std::vector<RuleSetCall>* out,
                  std::string* err) {
  const bool mac = f.format == F::Mac;
  const auto [addrText, suffix] = splitAt(v, '/');
  const auto addr = mac ? parseMac(addrText) : parseIpAddress(addrText);
  if (!addr) return fail(err, std::string(f.name) + ": not an address: " + std::string(addrText));
  out->push_back(bytesCall(f.cmd, *addr));
  if (suffix.empty()) return true;
  const bool maskForm = mac ? suffix.find(':') != std::string_view::npos
                            : suffix.find_first_of(".:") != std::string_view::npos;
  if (maskForm) {
    const auto mask = mac ? parseMac(suffix) : parseIpAddress(suffix);
    if (!mask || mask->size() != addr->size()) {
      return fail(err, std::string(f.name) + ": not a mask: " + std::string(suffix));
    }
    out->push_back(bytesCall(f.maskCmd, *mask));
    return true;
  }
  const auto len = parseNumber(suffix);
  if (!len || *len > addr->size() * 8) {
    return fail(err, std::string(f.name) + ": not a prefix length: " + std::string(suffix));
  }
  out->push_back(valueCall(f.lenCmd, *len));
  return true;
}

bool parseUdf(const RuleFieldName& f, std::string_view v, std::vector<RuleSetCall>* out,
              std::string* err) {
  std::vector<uint8_t> records(ACL_RULE_UDF_LEN, 0);
  uint32_t n = 0;
  while (!v.empty()) {
    const auto [one, rest] = splitAt(v, ',');
    v = rest;
    const auto [dataMask, offsetText] = splitAt(one, '@');
    const auto [dataText, maskText] = splitAt(dataMask, '/');
    const auto data = parseNumber(dataText);
    const auto mask =
        maskText.empty() ? std::optional<uint32_t>(0xFFFFFFFF) : parseNumber(maskText);
    const auto offset = offsetText.empty() ? std::optional<uint32_t>(0) : parseNumber(offsetText);
    if (n == ACL_RULE_UDF_NUM || !data || !mask || !offset) {
      return fail(err, std::string(f.name) + ": expected at most 4 DATA/MASK@OFFSET records");
    }
    std::span<uint8_t> rec(records.data() + n * ACL_RULE_UDF_RECORD_LEN, ACL_RULE_UDF_RECORD_LEN);
    be::store32(rec, 0, *data);
    be::store32(rec, 4, *mask);
    be::store32(rec, 8, *offset);
    ++n;
  }
  out->push_back(bytesCall(f.cmd, std::move(records)));
  return true;
}

std::optional<uint32_t> parseProtocol(std::string_view v) {
  for (const Proto& p : kProtocols) {
    if (v == p.name) return p.number;
  }
  return parseNumber(v);
}

std::string protocolText(uint32_t n) {
  for (const Proto& p : kProtocols) {
    if (p.number == n) return p.name;
  }
  return std::to_string(n);
}

std::string hexText(uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", v);
  return text;
}

std::string bitsText(RuleClient& c, RuleRef r, uint32_t cmd) {
  const ValueAnswer a = c.getValue(r, cmd);
  return a.ret == 0 ? std::to_string(a.value) : "?";
}

// One field as text, from the commands its bits say it has.
std::string fieldText(RuleClient& c, RuleRef r, const RuleFieldName& f,
                      std::span<const uint8_t> bits) {
  auto has = [&](uint32_t cmd) { return cmd != 0 && aclBitTest(bits, codeOf(cmd)); };
  switch (f.format) {
    case F::Address:
    case F::Mac: {
      std::string text;
      if (has(f.cmd)) {
        const BytesAnswer a = c.getBytes(r, f.cmd, 16);
        text = f.format == F::Mac ? macText(a.data) : ipText(a.data);
      }
      if (has(f.lenCmd)) {
        text += "/" + bitsText(c, r, f.lenCmd);
      } else if (has(f.maskCmd)) {
        const BytesAnswer m = c.getBytes(r, f.maskCmd, 16);
        text += "/" + (f.format == F::Mac ? macText(m.data) : ipText(m.data));
      }
      return text;
    }
    case F::Range: {
      std::string text = has(f.cmd) ? bitsText(c, r, f.cmd) : "";
      if (has(f.endCmd)) text += "-" + bitsText(c, r, f.endCmd);
      return text;
    }
    case F::Protocol: {
      const ValueAnswer a = c.getValue(r, f.cmd);
      return protocolText(a.value);
    }
    case F::IpVersion: {
      const ValueAnswer a = c.getValue(r, f.cmd);
      return a.value == kIpVer4 ? "4" : a.value == kIpVer6 ? "6" : std::to_string(a.value);
    }
    case F::Hex:
      return hexText(c.getValue(r, f.cmd).value);
    case F::Udf: {
      const BytesAnswer a = c.getBytes(r, f.cmd, ACL_RULE_UDF_LEN);
      std::string text;
      for (size_t at = 0; at + ACL_RULE_UDF_RECORD_LEN <= a.data.size();
           at += ACL_RULE_UDF_RECORD_LEN) {
        const std::span<const uint8_t> rec(a.data.data() + at, ACL_RULE_UDF_RECORD_LEN);
        // Records never given stay all zero.
        if (std::all_of(rec.begin(), rec.end(), [](uint8_t b) { return b == 0; })) continue;
        if (!text.empty()) text += ",";
        char one[48];
        std::snprintf(one, sizeof one, "0x%X/0x%X@%u", be::load32(rec, 0), be::load32(rec, 4),
                      be::load32(rec, 8));
        text += one;
      }
      return text;
    }
    case F::Number:
      break;
  }
  return bitsText(c, r, f.cmd);
}

}  // namespace

std::pair<std::string_view, std::string_view> splitAt(std::string_view s, char c) {
  const auto at = s.find(c);
  if (at == std::string_view::npos) return {s, {}};
  return {s.substr(0, at), s.substr(at + 1)};
}

std::optional<uint32_t> parseNumber(std::string_view text) {
  if (text.empty()) return std::nullopt;
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  uint32_t v = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v, base);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return v;
}

std::optional<std::vector<uint8_t>> parseIpAddress(std::string_view text) {
  const std::string s(text);
  std::array<uint8_t, 16> buf{};
  if (inet_pton(AF_INET, s.c_str(), buf.data()) == 1) {
    return std::vector<uint8_t>(buf.begin(), buf.begin() + 4);
  }
  if (inet_pton(AF_INET6, s.c_str(), buf.data()) == 1) {
    return std::vector<uint8_t>(buf.begin(), buf.end());
  }
  return std::nullopt;
}

std::optional<std::vector<uint8_t>> parseMac(std::string_view text) {
  std::vector<uint8_t> out;
  while (!text.empty()) {
    const auto [part, rest] = splitAt(text, text.find('-') != std::string_view::npos ? '-' : ':');
    text = rest;
    uint32_t byte = 0;
    const auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), byte, 16);
    if (part.empty() || part.size() > 2 || ec != std::errc() || end != part.data() + part.size()) {
      return std::nullopt;
    }
    out.push_back(static_cast<uint8_t>(byte));
  }
  if (out.size() != ACL_RULE_MAC_LEN) return std::nullopt;
  return out;
}

std::string ipText(std::span<const uint8_t> bytes) {
  char text[INET6_ADDRSTRLEN] = "";
  if (bytes.size() == 4) inet_ntop(AF_INET, bytes.data(), text, sizeof text);
  if (bytes.size() == 16) inet_ntop(AF_INET6, bytes.data(), text, sizeof text);
  return text;
}

std::string macText(std::span<const uint8_t> bytes) {
  std::string text;
  for (uint8_t b : bytes) {
    char two[4];
    std::snprintf(two, sizeof two, "%s%02x", text.empty() ? "" : ":", b);
    text += two;
  }
  return text;
}

std::span<const RuleFieldName> ruleFieldNames() {
  return kFields;
}

const RuleFieldName* ruleFieldByName(std::string_view name) {
  const auto it = std::find_if(std::begin(kFields), std::end(kFields),
                               [&](const RuleFieldName& f) { return name == f.name; });
  return it != std::end(kFields) ? &*it : nullptr;
}

std::optional<std::vector<RuleSetCall>> parseFieldAssignment(std::string_view word,
                                                             std::string* err) {
  const auto [name, value] = splitAt(word, '=');
  const RuleFieldName* f = ruleFieldByName(name);
  if (f == nullptr) {
    fail(err, "unknown field: " + std::string(name));
    return std::nullopt;
  }
  if (value.empty()) {
    fail(err, std::string(f->name) + ": expected " + f->name + "=VALUE");
    return std::nullopt;
  }
  std::vector<RuleSetCall> out;
  bool ok = true;
  switch (f->format) {
    case F::Address:
    case F::Mac:
      ok = parseAddress(*f, value, &out, err);
      break;
    case F::Udf:
      ok = parseUdf(*f, value, &out, err);
      break;
    case F::Range: {
      const auto [from, to] = splitAt(value, '-');
      const auto a = parseNumber(from);
      const auto b = to.empty() ? a : parseNumber(to);
      if (!a || !b || *b < *a) {
        ok = fail(err, std::string(f->name) + ": expected N or N-M, got " + std::string(value));
        break;
      }
      out.push_back(valueCall(f->cmd, *a));
      if (!to.empty()) out.push_back(valueCall(f->endCmd, *b));
      break;
    }
    case F::Protocol: {
      const auto p = parseProtocol(value);
      if (!p) ok = fail(err, "protocol: unknown protocol " + std::string(value));
      if (p) out.push_back(valueCall(f->cmd, *p));
      break;
    }
    case F::IpVersion:
      if (value == "4") {
        out.push_back(valueCall(f->cmd, kIpVer4));
      } else if (value == "6") {
        out.push_back(valueCall(f->cmd, kIpVer6));
      } else {
        ok = fail(err, "ip-version: expected 4 or 6");
      }
      break;
    case F::Number:
    case F::Hex: {
      const auto n = parseNumber(value);
      if (!n) ok = fail(err, std::string(f->name) + ": not a number: " + std::string(value));
      if (n) out.push_back(valueCall(f->cmd, *n));
      break;
    }
  }
  if (!ok) return std::nullopt;
  return out;
}

nlohmann::ordered_json describeFields(RuleClient& c, RuleRef r,
                                      std::span<const uint8_t> fieldBits) {
  nlohmann::ordered_json out = nlohmann::ordered_json::object();
  for (const RuleFieldName& f : kFields) {
    bool present = false;
    for (uint32_t cmd : {f.cmd, f.lenCmd, f.maskCmd, f.endCmd}) {
      present = present || (cmd != 0 && aclBitTest(fieldBits, codeOf(cmd)));
    }
    if (present) out[f.name] = fieldText(c, r, f, fieldBits);
  }
  return out;
}

}  // namespace aclclient
