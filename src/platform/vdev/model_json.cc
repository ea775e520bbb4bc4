// The model and the journal as JSON, for the control socket and for writing device files.
#include <arpa/inet.h>

#include <cstdio>

#include "platform/vdev/model_json.h"
#include "wire/be.h"

namespace vdev {

using nlohmann::json;

std::string hexBytes(const std::vector<uint8_t>& b) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  s.reserve(b.size() * 2);
  for (uint8_t c : b) {
    s.push_back(kDigits[c >> 4]);
    s.push_back(kDigits[c & 15]);
  }
  return s;
}

std::string addrText(uint8_t family, const std::array<uint8_t, 16>& addr) {
  char buf[INET6_ADDRSTRLEN] = {};
  inet_ntop(family == 1 ? AF_INET : AF_INET6, addr.data(), buf, sizeof buf);
  return buf;
}

bool parseAddr(const std::string& text, uint8_t* family, std::array<uint8_t, 16>* addr) {
  addr->fill(0);
  if (inet_pton(AF_INET, text.c_str(), addr->data()) == 1) {
    *family = 1;
    return true;
  }
  if (inet_pton(AF_INET6, text.c_str(), addr->data()) == 1) {
    *family = 2;
    return true;
  }
  return false;
}

namespace {

std::string hexId(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08X", v);
  return buf;
}

json propsToJson(const std::map<uint32_t, int32_t>& p) {
  json j = json::object();
  for (auto& [k, v] : p) j[hexId(k)] = v;
  return j;
}

json slotToJson(const Slot& s) {
  json j = {{"slot", s.slot}, {"properties", propsToJson(s.properties)}};
  if (s.card) {
    j["card"] = {{"type", s.card->type},
                 {"name", s.card->name},
                 {"properties", propsToJson(s.card->properties)},
                 {"options", s.card->options}};
  }
  json res = json::array();
  for (auto& r : s.resources) {
    res.push_back({{"chip", r.chip},
                   {"tcam", r.tcam},
                   {"resource", r.resource},
                   {"stage", r.stage},
                   {"total", r.total},
                   {"used", r.used},
                   {"reserve", r.reserve},
                   {"free", r.free}});
  }
  j["resources"] = res;
  return j;
}

}  // namespace

json interfaceToJson(const Interface& i) {
  json j = {{"index", i.index},      {"name", i.name},           {"system", i.location[0]},
            {"slot", i.location[1]}, {"subslot", i.location[2]}, {"port", i.location[3]},
            {"type", i.location[4]}, {"kind", i.location[5]},    {"flags13", i.flags13},
            {"flags10", i.flags10}};
  if (i.location[6] || i.location[7]) j["extra"] = {i.location[6], i.location[7]};
  if (!i.protocols.empty()) j["protocols"] = i.protocols;
  if (!i.ignoring.empty()) j["ignoring"] = i.ignoring;
  if (!i.onus.empty()) {
    json onus = json::array();
    for (const auto& [id, gems] : i.onus) onus.push_back({{"id", id}, {"gemPorts", gems}});
    j["onus"] = onus;
  }
  if (i.kind() == 2) {
    j["members"] = i.members;
    j["mode"] = i.defaultMode;
    json modes = json::object();
    for (auto& [cmd, mode] : i.modes) modes[std::to_string(cmd)] = mode;
    j["modes"] = modes;
  }
  return j;
}

json modelToJson(const Model& m) {
  json j;
  j["self"] = {{"system", m.selfSys}, {"slot", m.selfSlot}};
  j["announce"] = m.announce;
  json systems = json::array();
  for (uint32_t sys : m.systems) {
    json slots = json::array();
    for (auto& [key, s] : m.slots) {
      if (key.first == sys) slots.push_back(slotToJson(s));
    }
    systems.push_back({{"index", sys}, {"slots", slots}});
  }
  j["systems"] = systems;
  json ifs = json::array(), aggs = json::array();
  for (auto& [idx, i] : m.interfaces) {
    json ij = interfaceToJson(i);
    if (i.kind() == 2) {
      aggs.push_back(ij);
    } else {
      ifs.push_back(ij);
    }
  }
  j["interfaces"] = ifs;
  j["aggregations"] = aggs;
  json nbrs = json::array();
  for (auto& n : m.neighbours)
    nbrs.push_back({{"vrf", n.vrf}, {"address", addrText(n.family, n.addr)}});
  j["neighbours"] = nbrs;
  json detect = json::array();
  for (auto& d : m.detectList) {
    detect.push_back({{"vrf", d.vrf}, {"address", addrText(d.family, d.addr)}});
  }
  j["detectList"] = detect;
  json trs = json::array();
  for (auto& [id, t] : m.timeRanges) {
    trs.push_back({{"id", id}, {"name", t.name}, {"active", t.active}, {"refCount", t.refCount}});
  }
  j["timeRanges"] = trs;
  json mirrors = json::array();
  for (auto& [id, g] : m.mirrors) {
    json refs = json::object();
    for (auto& [mod, n] : g.refCounts) refs[std::to_string(mod)] = n;
    mirrors.push_back({{"id", id}, {"refCounts", refs}});
  }
  j["mirrorGroups"] = mirrors;
  json scalars = json::object();
  for (auto& [id, v] : m.scalars) scalars[std::to_string(id)] = v;
  j["scalars"] = scalars;
  j["actionSupport"] = m.actionSupportResult;
  json counters = json::array();
  static constexpr const char* kNames[] = {"p1", "p2", "b1", "b2", "p3", "p4", "b3", "b4"};
  for (auto& [k, c] : m.counters) {
    json cj = {{"list", k.list}, {"rule", k.rule}, {"interface", k.ifIndex}, {"direction", k.dir}};
    for (size_t n = 0; n < 8; ++n) cj[kNames[n]] = c.v[n];
    counters.push_back(cj);
  }
  j["counters"] = counters;
  return j;
}

json scopeToJson(const ScopeKey& s) {
  switch (s.scope) {
    case 0:
      return {{"scope", "global"}};
    case 1:
      return {{"scope", "unit"}, {"unit", s.unit}};
    default:
      return {{"scope", "gem"}, {"unit", s.unit}, {"onu", s.onu}, {"gem", s.gem}};
  }
}

json hwTablesToJson(const Journal& jr, const ScopeKey* only) {
  json tables = json::array();
  for (auto& [key, table] : jr.hw) {
    if (only && !(key == *only)) continue;
    json t = scopeToJson(key);
    json entries = json::array();
    for (auto& [k, e] : table.entries) {
      entries.push_back({{"list", e.list},
                         {"rule", e.rule},
                         {"direction", e.dir},
                         {"priority", e.priority},
                         {"form", e.tlv ? "tlv" : "record"},
                         {"cmd", e.cmd},
                         {"seq", e.seq},
                         {"installs", e.installs},
                         {"options", hexBytes(e.options)},
                         {"data", hexBytes(e.data)}});
    }
    t["entries"] = entries;
    tables.push_back(t);
  }
  return tables;
}

json entryToJson(const Relay& r) {
  json j = {{"seq", r.seq},
            {"key", r.key},
            {"cmd", r.cmd},
            {"options", hexBytes(r.options)},
            {"data", hexBytes(r.data)},
            {"result", r.result}};
  if (!r.keyBytes.empty()) j["keyBytes"] = hexBytes(r.keyBytes);
  if (r.options.size() >= 4) j["mode"] = be::load32(r.options, 0);
  return j;
}

json entryToJson(const Announcement& m) {
  json j = {{"seq", m.seq}, {"group", m.group}, {"bytes", hexBytes(m.bytes)}};
  // The ACL module's announcements: length, event, then list and rule from byte 24.
  if (m.bytes.size() >= 32) {
    j["event"] = be::load16(m.bytes, 4);
    j["list"] = be::load32(m.bytes, 24);
    j["rule"] = be::load32(m.bytes, 28);
  }
  return j;
}

json entryToJson(const Anomaly& x) {
  json j = {{"seq", x.seq},   {"call", x.call}, {"what", x.what},    {"cmd", x.cmd},
            {"list", x.list}, {"rule", x.rule}, {"direction", x.dir}};
  j.update(scopeToJson(x.scope));
  return j;
}

json entryToJson(const CommandLogEntry& c) {
  return {
      {"seq", c.seq}, {"call", c.call}, {"cmd", c.cmd}, {"key", c.key}, {"data", hexBytes(c.data)}};
}

}  // namespace vdev
