// Both forms are brought to what the hardware would program: a field by the place the record has
// for it (so a TLV value is cut to the record's width), an action by the TLV item it becomes (so
// a record's port set shows as its two chunks), and policing by attribute.
#include "platform/vdev/decode.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "wire/acl_dev_fields.h"
#include "wire/acl_dev_layout.h"
#include "wire/be.h"

namespace vdev {
namespace {

using nlohmann::json;
using namespace acldev;

std::string hex(std::span<const uint8_t> b) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  for (uint8_t c : b) {
    s.push_back(kDigits[c >> 4]);
    s.push_back(kDigits[c & 15]);
  }
  return s;
}

// An address or prefix string: dotted when only the first four bytes are used, else IPv6 groups.
std::string address(std::span<const uint8_t, kAddrLen> a) {
  char out[48];
  if (std::all_of(a.begin() + 4, a.end(), [](uint8_t b) { return b == 0; })) {
    std::snprintf(out, sizeof out, "%u.%u.%u.%u", a[0], a[1], a[2], a[3]);
    return out;
  }
  std::string s;
  for (uint32_t i = 0; i < kAddrLen; i += 2) {
    std::snprintf(out, sizeof out, "%s%02x%02x", i == 0 ? "" : ":", a[i], a[i + 1]);
    s += out;
  }
  return s;
}

std::string mac(std::span<const uint8_t> m) {
  char out[24];
  std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4],
                m[5]);
  return out;
}

// A field's value from its bytes laid out as the record lays them out (16 bytes, zero-padded).
json fieldValue(const FieldPlace& p, std::span<const uint8_t, kAddrLen> v, uint32_t number) {
  switch (p.kind) {
    case FieldKind::U8:
      return number & 0xFF;
    case FieldKind::U16:
      return number & 0xFFFF;
    case FieldKind::U32:
      return number;
    case FieldKind::Bytes:
      return address(v);
    case FieldKind::Mac:
      return mac(v);
    case FieldKind::Udf:
      return {{"data", be::load32(v, 0)}, {"mask", be::load32(v, 4)}, {"offset", be::load32(v, 8)}};
    case FieldKind::None:
      break;
  }
  return nullptr;
}

json field(uint32_t code, json value) {
  return {{"name", kFieldPlaces[code].name}, {"value", value}};
}

const char* actionName(uint32_t code) {
  return code < kActionCodes ? kActionNames[code] : "unknown";
}

json action(uint32_t code, std::span<const uint8_t> value) {
  json a = {{"name", actionName(code)}};
  if (!value.empty()) a["value"] = hex(value);
  return a;
}

// Policing attributes by TLV item type 65..74.
constexpr std::array<const char*, 10> kPolicingNames = {
    "carType", "meterType", "meterMode", "cir",         "cbs",
    "pir",     "pbs",       "ebs",       "counterType", "counterColor"};
constexpr uint32_t kPolicingFirst = 65;

void setPolicing(json& policing, uint32_t type, uint32_t value) {
  if (value == 0) {
    policing.erase(kPolicingNames[type - kPolicingFirst]);
    return;
  }
  policing[kPolicingNames[type - kPolicingFirst]] = value;
}

json header(uint32_t list, uint32_t rule, uint32_t dir, uint32_t priority, uint32_t layerType) {
  return {{"list", list},
          {"rule", rule},
          {"direction", dir},
          {"priority", priority},
          {"layerType", layerType},
          {"fields", json::array()},
          {"actions", json::array()},
          {"outActions", json::array()},
          {"policing", json::object()}};
}

bool bitSet(std::span<const uint8_t> bits, uint32_t n) {
  return n / 8 < bits.size() && (bits[n / 8] & (0x80u >> (n % 8))) != 0;
}

json decodeRecord(std::span<const uint8_t> d) {
  if (d.size() < kRecLen) return {{"error", "rule record shorter than 508 bytes"}};
  json out = header(be::load32(d, kLstIdx), be::load32(d, kRuleIdx), d[kDir],
                    be::load16(d, kPriority), d[kLayerType]);
  const auto bits = d.subspan(kBits, kBitsLen);
  for (uint32_t c = 0; c < kPlacedFieldCodes; ++c) {
    const FieldPlace& p = kFieldPlaces[c];
    if (!bitSet(bits, c) || p.kind == FieldKind::None) continue;
    std::array<uint8_t, kAddrLen> v{};
    uint32_t number = 0;
    switch (p.kind) {
      case FieldKind::U8:
        number = d[p.off];
        break;
      case FieldKind::U16:
        number = be::load16(d, p.off);
        break;
      case FieldKind::U32:
        number = be::load32(d, p.off);
        break;
      case FieldKind::Bytes:
        std::copy_n(d.begin() + p.off, kAddrLen, v.begin());
        break;
      case FieldKind::Mac:
        std::copy_n(d.begin() + p.off, kMacLen, v.begin());
        break;
      case FieldKind::Udf:
        be::store32(v, 0, be::load32(d, kUserData + 4 * p.off));
        be::store32(v, 4, be::load32(d, kUserDataMask + 4 * p.off));
        be::store32(v, 8, be::load32(d, kUserDataOffset + 4 * p.off));
        break;
      case FieldKind::None:
        break;
    }
    out["fields"].push_back(field(c, fieldValue(p, v, number)));
  }

  const auto actionBits = d.subspan(kAction, kActionLen);
  for (uint32_t c = 0; c < kActionLen * 8; ++c) {
    if (!bitSet(actionBits, c)) continue;
    const ActionParam ap = actionParam(c);
    if (ap.entryLen == 0) {
      out["actions"].push_back(action(c, {}));
      continue;
    }
    const uint32_t chunks = (ap.totalLen + ap.entryLen - 1) / ap.entryLen;
    for (uint32_t k = 0; k < chunks; ++k) {
      const uint32_t word = ap.slot + 4 * k;
      const auto bytes = d.subspan(kActionParam + 4 * word, ap.entryLen);
      // Port sets and next-hop lists keep no chunk that is all zero.
      const bool chunked = ap.slot == 11 || ap.slot == 23;
      if (chunked && std::all_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b == 0; })) {
        continue;
      }
      uint32_t type = c;
      if (c == kActionOutputPort && k == 1) type = kActionOutputPort2;
      if (c == kActionIp6MultiHop) type = kActionIp6NextHop + k;
      out["actions"].push_back(action(type, bytes));
    }
  }

  const auto outBits = d.subspan(kOutAction, kOutActionLen);
  for (uint32_t b = 0; b < kOutActionLen * 8; ++b) {
    if (!bitSet(outBits, b)) continue;
    std::span<const uint8_t> value;
    if (b >= kOutActionParamFirstBit && b <= kOutActionParamLastBit) {
      value = d.subspan(kOutActionParam + 4 * (b - kOutActionParamFirstBit), 4);
    }
    out["outActions"].push_back(action(kOutActionTlvBase + b, value));
  }

  json& pol = out["policing"];
  if (bitSet(bits, kFieldCarId)) {
    // A CAR is programmed as meter type 1 of CAR type 3 at the CAR value.
    setPolicing(pol, 65, 3);
    setPolicing(pol, 66, 1);
    setPolicing(pol, 68, be::load32(d, kCir));
  }
  if (bitSet(bits, kFieldMeterId)) {
    setPolicing(pol, 65, d[kCarType]);
    setPolicing(pol, 66, d[kMeterType]);
    setPolicing(pol, 67, d[kMeterMode]);
    setPolicing(pol, 68, be::load32(d, kCir));
    setPolicing(pol, 69, be::load32(d, kCbs));
    setPolicing(pol, 70, be::load32(d, kPir));
    setPolicing(pol, 71, be::load32(d, kPbs));
    setPolicing(pol, 72, be::load32(d, kEbs));
  }
  if (bitSet(bits, kFieldCounterId)) {
    setPolicing(pol, 73, d[kCounterType]);
    setPolicing(pol, 74, d[kCounterColor]);
  }
  return out;
}

// Walks the items of the section at pos; false when an item runs past the section.
template <typename Fn>
bool items(std::span<const uint8_t> m, uint32_t pos, uint32_t sectionLen, Fn fn) {
  const uint32_t end = pos + sectionLen;
  uint32_t p = pos + kTlvSectionLenLen;
  while (p < end) {
    if (p + kTlvItemHeaderLen > end || p + kTlvItemHeaderLen + m[p + 1] > end) return false;
    fn(m[p], m.subspan(p + kTlvItemHeaderLen, m[p + 1]));
    p += kTlvItemHeaderLen + m[p + 1];
  }
  return true;
}

json decodeTlv(std::span<const uint8_t> m) {
  if (m.size() < kTlvHeaderLen) return {{"error", "TLV message shorter than its header"}};
  json out = header(be::load32(m, kTlvLstIdx), be::load32(m, kTlvRuleIdx), m[kTlvDir],
                    be::load16(m, kTlvPriority), m[kTlvLayerType]);
  const uint32_t total = kTlvHeaderLen + be::load16(m, kTlvBufferLen);
  if (total > m.size()) {
    out["error"] = "tlvBufferLen runs past the message";
    return out;
  }
  const auto msg = m.first(total);
  uint32_t pos = kTlvHeaderLen;
  if (pos + kTlvSectionLenLen > total || pos + be::load16(msg, pos) > total ||
      be::load16(msg, pos) < kTlvSectionLenLen) {
    out["error"] = "rule section length out of range";
    return out;
  }
  const uint32_t ruleLen = be::load16(msg, pos);
  const bool fieldsOk = items(msg, pos, ruleLen, [&](uint8_t code, std::span<const uint8_t> v) {
    if (code >= kPlacedFieldCodes || kFieldPlaces[code].kind == FieldKind::None) return;
    std::array<uint8_t, kAddrLen> padded{};
    std::copy_n(v.begin(), std::min<size_t>(v.size(), kAddrLen), padded.begin());
    uint32_t number = 0;
    for (size_t i = 0; i < v.size() && i < 4; ++i) number = (number << 8) | v[i];
    out["fields"].push_back(field(code, fieldValue(kFieldPlaces[code], padded, number)));
  });
  if (!fieldsOk) {
    out["error"] = "a field item runs past the rule section";
    return out;
  }
  pos += ruleLen;
  if (pos + kTlvSectionLenLen > total || pos + be::load16(msg, pos) != total ||
      be::load16(msg, pos) < kTlvSectionLenLen) {
    out["error"] = "action section length out of range";
    return out;
  }
  const bool actionsOk =
      items(msg, pos, be::load16(msg, pos), [&](uint8_t type, std::span<const uint8_t> v) {
        if (type < kPolicingFirst - 1) {
          out["actions"].push_back(action(type, v));
        } else if (type >= kOutActionTlvBase) {
          out["outActions"].push_back(action(type, v));
        } else if (type >= kPolicingFirst) {
          uint32_t value = 0;
          for (size_t i = 0; i < v.size() && i < 4; ++i) value = (value << 8) | v[i];
          setPolicing(out["policing"], type, value);
        }
      });
  if (!actionsOk) out["error"] = "an action item runs past the action section";
  return out;
}

}  // namespace

json decodeHwRule(std::span<const uint8_t> data, bool tlv) {
  return tlv ? decodeTlv(data) : decodeRecord(data);
}

}  // namespace vdev
