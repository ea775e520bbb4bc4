// The fields are compared as the decoded entry names them, so the record and the TLV form of one
// rule classify alike. A field that the frame lacks (ports of a non-TCP/UDP packet, an inner VLAN
// of a single-tagged frame) never matches; a field this classifier does not read makes the entry
// unjudged rather than guessed, and the answer lists it.
#include "platform/vdev/classify.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "platform/vdev/decode.h"
#include "platform/vdev/model_json.h"
#include "wire/be.h"

namespace vdev {

namespace {

using nlohmann::json;

constexpr uint16_t kEthIpv4 = 0x0800, kEthIpv6 = 0x86DD;
constexpr uint8_t kIcmp = 1, kTcp = 6, kUdp = 17, kIcmp6 = 58;

bool isTag(uint16_t t) {
  return t == 0x8100 || t == 0x88A8 || t == 0x9100;
}

// True when the first bits of a and b are equal.
bool prefixEqual(const uint8_t* a, const uint8_t* b, uint32_t bits) {
  for (uint32_t i = 0; bits > 0; ++i) {
    const uint32_t take = std::min<uint32_t>(bits, 8);
    const uint8_t mask = static_cast<uint8_t>(0xFF00u >> take);
    if ((a[i] & mask) != (b[i] & mask)) return false;
    bits -= take;
  }
  return true;
}

bool parseMac(const std::string& s, uint8_t out[6]) {
  unsigned v[6];
  char tail;
  if (std::sscanf(s.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5],
                  &tail) != 6) {
    return false;
  }
  for (int i = 0; i < 6; ++i) out[i] = static_cast<uint8_t>(v[i]);
  return true;
}

std::string macText(const uint8_t m[6]) {
  char out[24];
  std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4],
                m[5]);
  return out;
}

// The decoded fields by name without the "RULE_BIT_" prefix.
using Fields = std::map<std::string, json>;

std::optional<uint32_t> num(const Fields& fs, const char* name) {
  auto it = fs.find(name);
  if (it == fs.end() || !it->second.is_number_integer()) return std::nullopt;
  const int64_t v = it->second.get<int64_t>();
  if (v < 0 || v > UINT32_MAX) return std::nullopt;
  return static_cast<uint32_t>(v);
}

// An address field with its prefix field: the frame's address of its family compared over the
// prefix (the whole address when no prefix field is given).
bool addrMatches(const Fields& fs, const char* addrName, const char* prefixName,
                 const std::array<uint8_t, 16>& frameAddr, const Frame& f) {
  const bool hasAddr = fs.count(addrName) != 0;
  const auto prefix = num(fs, prefixName);
  if (!hasAddr && !prefix) return true;
  if (f.ipVer == 0) return false;
  const uint32_t width = f.ipVer == 1 ? 32 : 128;
  std::array<uint8_t, 16> ruleAddr{};
  if (hasAddr) {
    const json& v = fs.at(addrName);
    uint8_t family = 0;
    if (!v.is_string() || !parseAddr(v.get<std::string>(), &family, &ruleAddr)) return false;
  }
  return prefixEqual(ruleAddr.data(), frameAddr.data(), std::min(prefix.value_or(width), width));
}

// A port (or VLAN) field with its optional end field: the value alone, or the range.
bool rangeMatches(const Fields& fs, const char* first, const char* end, uint32_t value) {
  const auto lo = num(fs, first);
  const auto hi = num(fs, end);
  if (lo && hi) return *lo <= value && value <= *hi;
  if (lo) return value == *lo;
  return !hi || value <= *hi;
}

bool macMatches(const Fields& fs, const char* macName, const char* prefixName,
                const uint8_t frameMac[6]) {
  const bool hasMac = fs.count(macName) != 0;
  const auto prefix = num(fs, prefixName);
  if (!hasMac && !prefix) return true;
  uint8_t ruleMac[6]{};
  if (hasMac) {
    const json& v = fs.at(macName);
    if (!v.is_string() || !parseMac(v.get<std::string>(), ruleMac)) return false;
  }
  return prefixEqual(ruleMac, frameMac, std::min<uint32_t>(prefix.value_or(48), 48));
}

// The fields compared here; any other makes the entry unjudged. LAYERTYPE says which key layout
// the rule is programmed in, not something a frame carries, so it constrains nothing.
const char* const kJudged[] = {
    "IPVER",     "ETHTYPE",  "PROTOSUBTYPE", "NEXTHEADER", "SRCADDR",      "SRCPREFIX", "DSTADDR",
    "DSTPREFIX", "SRCPORT",  "SRCENDPORT",   "DSTPORT",    "DSTENDPORT",   "ICMPTYPE",  "ICMPCODE",
    "IPTTL",     "HOPLIMIT", "OUTVID",       "OUTENDVID",  "OUTPRI",       "INVID",     "INENDVID",
    "INPRI",     "SRCMAC",   "SRCMACPREFIX", "DSTMAC",     "DSTMACPREFIX", "LAYERTYPE"};

}  // namespace

bool decodeFrame(std::span<const uint8_t> b, Frame* f, std::string* error) {
  *f = Frame{};
  if (b.size() < 14) {
    if (error) *error = "a frame needs at least 14 bytes (two MAC addresses and an EtherType)";
    return false;
  }
  std::copy_n(b.begin(), 6, f->dstMac);
  std::copy_n(b.begin() + 6, 6, f->srcMac);
  size_t pos = 12;
  uint16_t type = be::load16(b, pos);
  while (isTag(type) && pos + 6 <= b.size()) {
    const uint16_t tci = be::load16(b, pos + 2);
    if (f->tags == 0) {
      f->outerVid = tci & 0x0FFF;
      f->outerPri = static_cast<uint8_t>(tci >> 13);
    } else if (f->tags == 1) {
      f->innerVid = tci & 0x0FFF;
      f->innerPri = static_cast<uint8_t>(tci >> 13);
    }
    ++f->tags;
    pos += 4;
    type = be::load16(b, pos);
  }
  f->ethType = type;
  pos += 2;
  size_t l4 = 0;
  bool l4Allowed = true;
  if (type == kEthIpv4 && pos + 20 <= b.size() && (b[pos] >> 4) == 4) {
    const size_t ihl = (b[pos] & 0x0F) * 4u;
    if (ihl < 20 || pos + ihl > b.size()) return true;
    f->ipVer = 1;
    f->ttl = b[pos + 8];
    f->protocol = b[pos + 9];
    std::copy_n(b.begin() + pos + 12, 4, f->src.begin());
    std::copy_n(b.begin() + pos + 16, 4, f->dst.begin());
    // Later fragments carry no transport header.
    l4Allowed = (be::load16(b, pos + 6) & 0x1FFF) == 0;
    l4 = pos + ihl;
  } else if (type == kEthIpv6 && pos + 40 <= b.size() && (b[pos] >> 4) == 6) {
    f->ipVer = 2;
    f->protocol = b[pos + 6];
    f->ttl = b[pos + 7];
    std::copy_n(b.begin() + pos + 8, 16, f->src.begin());
    std::copy_n(b.begin() + pos + 24, 16, f->dst.begin());
    l4 = pos + 40;
  } else {
    return true;
  }
  const bool ports = f->protocol == kTcp || f->protocol == kUdp;
  const bool icmp =
      (f->protocol == kIcmp && f->ipVer == 1) || (f->protocol == kIcmp6 && f->ipVer == 2);
  if (l4Allowed && (ports || icmp) && l4 + (ports ? 4 : 2) <= b.size()) {
    f->l4 = true;
    f->srcPort = ports ? be::load16(b, l4) : b[l4];
    f->dstPort = ports ? be::load16(b, l4 + 2) : b[l4 + 1];
  }
  return true;
}

json frameToJson(const Frame& f) {
  json j = {{"dstMac", macText(f.dstMac)}, {"srcMac", macText(f.srcMac)}, {"tags", f.tags}};
  if (f.tags >= 1) j["outer"] = {{"vid", f.outerVid}, {"pri", f.outerPri}};
  if (f.tags >= 2) j["inner"] = {{"vid", f.innerVid}, {"pri", f.innerPri}};
  char type[8];
  std::snprintf(type, sizeof type, "0x%04x", f.ethType);
  j["ethType"] = type;
  if (f.ipVer == 0) return j;
  j["ipVer"] = f.ipVer;
  j["src"] = addrText(f.ipVer, f.src);
  j["dst"] = addrText(f.ipVer, f.dst);
  j["protocol"] = f.protocol;
  j["ttl"] = f.ttl;
  if (f.l4) {
    const bool ports = f.protocol == kTcp || f.protocol == kUdp;
    j[ports ? "srcPort" : "icmpType"] = f.srcPort;
    j[ports ? "dstPort" : "icmpCode"] = f.dstPort;
  }
  return j;
}

EntryMatch matchEntry(const json& decoded, const Frame& f, std::string* unjudged) {
  if (decoded.contains("error") || !decoded.contains("fields")) {
    if (unjudged) *unjudged = "undecodable entry";
    return EntryMatch::Unjudged;
  }
  Fields fs;
  for (const json& field : decoded.at("fields")) {
    std::string name = field.value("name", "");
    if (name.rfind("RULE_BIT_", 0) == 0) name.erase(0, 9);
    if (std::find(std::begin(kJudged), std::end(kJudged), name) == std::end(kJudged)) {
      if (unjudged) *unjudged = "RULE_BIT_" + name;
      return EntryMatch::Unjudged;
    }
    fs[name] = field.value("value", json());
  }
  const auto no = EntryMatch::NoMatch;
  if (auto v = num(fs, "IPVER"); v && *v != f.ipVer) return no;
  if (auto v = num(fs, "ETHTYPE"); v && *v != f.ethType) return no;
  for (const char* p : {"PROTOSUBTYPE", "NEXTHEADER"}) {
    if (auto v = num(fs, p); v && (f.ipVer == 0 || *v != f.protocol)) return no;
  }
  for (const char* t : {"IPTTL", "HOPLIMIT"}) {
    if (auto v = num(fs, t); v && (f.ipVer == 0 || *v != f.ttl)) return no;
  }
  if (!addrMatches(fs, "SRCADDR", "SRCPREFIX", f.src, f)) return no;
  if (!addrMatches(fs, "DSTADDR", "DSTPREFIX", f.dst, f)) return no;
  const bool ports = f.l4 && (f.protocol == kTcp || f.protocol == kUdp);
  const bool icmp = f.l4 && !ports;
  const bool wantsPorts = fs.count("SRCPORT") || fs.count("SRCENDPORT") || fs.count("DSTPORT") ||
                          fs.count("DSTENDPORT");
  if (wantsPorts && (!ports || !rangeMatches(fs, "SRCPORT", "SRCENDPORT", f.srcPort) ||
                     !rangeMatches(fs, "DSTPORT", "DSTENDPORT", f.dstPort))) {
    return no;
  }
  if (auto v = num(fs, "ICMPTYPE"); v && (!icmp || *v != f.srcPort)) return no;
  if (auto v = num(fs, "ICMPCODE"); v && (!icmp || *v != f.dstPort)) return no;
  const bool wantsOuter = fs.count("OUTVID") || fs.count("OUTENDVID") || fs.count("OUTPRI");
  if (wantsOuter && (f.tags < 1 || !rangeMatches(fs, "OUTVID", "OUTENDVID", f.outerVid))) return no;
  if (auto v = num(fs, "OUTPRI"); v && *v != f.outerPri) return no;
  const bool wantsInner = fs.count("INVID") || fs.count("INENDVID") || fs.count("INPRI");
  if (wantsInner && (f.tags < 2 || !rangeMatches(fs, "INVID", "INENDVID", f.innerVid))) return no;
  if (auto v = num(fs, "INPRI"); v && *v != f.innerPri) return no;
  if (!macMatches(fs, "SRCMAC", "SRCMACPREFIX", f.srcMac)) return no;
  if (!macMatches(fs, "DSTMAC", "DSTMACPREFIX", f.dstMac)) return no;
  return EntryMatch::Match;
}

json classifyFrame(const Journal& jr, const ScopeKey& key, uint32_t dir, const Frame& f) {
  json out = {
      {"frame", frameToJson(f)}, {"match", nullptr}, {"examined", 0}, {"unjudged", json::array()}};
  auto t = jr.hw.find(key);
  if (t == jr.hw.end()) return out;
  const HwEntry* best = nullptr;
  json bestDecoded;
  uint32_t examined = 0;
  for (const auto& [k, e] : t->second.entries) {
    if (e.dir != dir) continue;
    ++examined;
    // One already found at a better priority cannot lose to this one.
    if (best != nullptr && e.priority >= best->priority) continue;
    json decoded = decodeHwRule(e.data, e.tlv);
    std::string why;
    switch (matchEntry(decoded, f, &why)) {
      case EntryMatch::Match:
        best = &e;
        bestDecoded = std::move(decoded);
        break;
      case EntryMatch::Unjudged:
        out["unjudged"].push_back(
            {{"list", e.list}, {"rule", e.rule}, {"priority", e.priority}, {"field", why}});
        break;
      case EntryMatch::NoMatch:
        break;
    }
  }
  out["examined"] = examined;
  if (best != nullptr) {
    out["match"] = {{"list", best->list},
                    {"rule", best->rule},
                    {"direction", best->dir},
                    {"priority", best->priority},
                    {"form", best->tlv ? "tlv" : "record"},
                    {"decoded", bestDecoded}};
  }
  return out;
}

}  // namespace vdev
