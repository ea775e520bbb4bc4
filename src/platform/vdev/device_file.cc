// Reading a model from a device file. Every object is checked for unknown keys (a misspelt key
// would otherwise silently give a default) and every reference for a target that exists, so a
// file that loads describes a consistent device.
#include <cstdlib>
#include <set>
#include <string_view>

#include "platform/ifmgr.h"
#include "platform/vdev/model_json.h"

namespace vdev {

using nlohmann::json;

namespace {

struct Bad {
  std::string place, problem;
};

std::string at(const std::string& base, const std::string& key) {
  return base.empty() ? key : base + "." + key;
}
std::string at(const std::string& base, size_t n) {
  return base + "[" + std::to_string(n) + "]";
}

void onlyKeys(const json& j, const std::string& place,
              std::initializer_list<std::string_view> keys) {
  if (!j.is_object()) throw Bad{place, "expected an object"};
  for (auto& [k, v] : j.items()) {
    bool known = false;
    for (auto allowed : keys) known = known || k == allowed;
    if (!known) throw Bad{at(place, k), "unknown key"};
  }
}

uint64_t number(const json& j, const std::string& place, uint64_t max) {
  if (!j.is_number_unsigned() && !(j.is_number_integer() && j.get<int64_t>() >= 0)) {
    throw Bad{place, "expected a non-negative whole number"};
  }
  const uint64_t v = j.get<uint64_t>();
  if (v > max) throw Bad{place, "value " + std::to_string(v) + " above " + std::to_string(max)};
  return v;
}

int32_t signedNumber(const json& j, const std::string& place) {
  if (!j.is_number_integer()) throw Bad{place, "expected a whole number"};
  const int64_t v = j.get<int64_t>();
  if (v < INT32_MIN || v > UINT32_MAX) throw Bad{place, "value out of the 32-bit range"};
  return static_cast<int32_t>(v);
}

uint32_t u32(const json& parent, const std::string& base, const char* key, bool required,
             uint32_t dflt = 0) {
  if (!parent.contains(key)) {
    if (required) throw Bad{at(base, key), "missing"};
    return dflt;
  }
  return static_cast<uint32_t>(number(parent.at(key), at(base, key), UINT32_MAX));
}

std::string text(const json& parent, const std::string& base, const char* key) {
  if (!parent.contains(key)) return {};
  if (!parent.at(key).is_string()) throw Bad{at(base, key), "expected a string"};
  return parent.at(key).get<std::string>();
}

// Object keys that are numbers: decimal or 0x-prefixed hexadecimal.
uint32_t keyNumber(const std::string& k, const std::string& place) {
  if (k.empty()) throw Bad{place, "empty key"};
  char* end = nullptr;
  errno = 0;
  const unsigned long long v = std::strtoull(k.c_str(), &end, 0);
  if (*end != '\0' || errno != 0 || v > UINT32_MAX || k[0] == '-' || k[0] == '+') {
    throw Bad{place, "key \"" + k + "\" is not a 32-bit number"};
  }
  return static_cast<uint32_t>(v);
}

std::map<uint32_t, int32_t> properties(const json& j, const std::string& place) {
  std::map<uint32_t, int32_t> out;
  if (!j.is_object()) throw Bad{place, "expected an object of property -> result"};
  for (auto& [k, v] : j.items()) {
    out[keyNumber(k, at(place, k))] = signedNumber(v, at(place, k));
  }
  return out;
}

void readSlot(const json& j, const std::string& place, uint32_t sys, Model* m) {
  onlyKeys(j, place, {"slot", "card", "properties", "resources"});
  Slot s;
  s.system = sys;
  s.slot = u32(j, place, "slot", true);
  if (s.slot == 0) throw Bad{at(place, "slot"), "slot 0 is not a slot"};
  if (m->slots.count({sys, s.slot})) {
    throw Bad{at(place, "slot"), "slot " + std::to_string(s.slot) + " listed twice"};
  }
  if (j.contains("card")) {
    const std::string cp = at(place, "card");
    const json& c = j.at("card");
    onlyKeys(c, cp, {"type", "name", "properties", "options"});
    Card card;
    card.type = u32(c, cp, "type", true);
    card.name = text(c, cp, "name");
    if (c.contains("properties"))
      card.properties = properties(c.at("properties"), at(cp, "properties"));
    if (c.contains("options")) {
      const std::string op = at(cp, "options");
      if (!c.at("options").is_object()) throw Bad{op, "expected an object of option key -> value"};
      for (auto& [k, v] : c.at("options").items()) {
        if (k.size() > 63) throw Bad{at(op, k), "option key longer than 63 characters"};
        if (v.is_string()) {
          if (v.get<std::string>().size() > 63) throw Bad{at(op, k), "value longer than 63"};
          card.options[k] = v.get<std::string>();
        } else if (v.is_number_integer()) {
          card.options[k] = std::to_string(v.get<int64_t>());
        } else {
          throw Bad{at(op, k), "expected a string or a number"};
        }
      }
    }
    s.card = std::move(card);
  }
  if (j.contains("properties"))
    s.properties = properties(j.at("properties"), at(place, "properties"));
  if (j.contains("resources")) {
    const std::string rp = at(place, "resources");
    if (!j.at("resources").is_array()) throw Bad{rp, "expected an array"};
    size_t n = 0;
    for (auto& r : j.at("resources")) {
      const std::string p = at(rp, n++);
      onlyKeys(r, p, {"chip", "tcam", "resource", "stage", "total", "used", "reserve", "free"});
      SlotResource res;
      auto byte = [&](const char* k) {
        return static_cast<uint8_t>(r.contains(k) ? number(r.at(k), at(p, k), 255) : 0);
      };
      res.chip = byte("chip");
      res.tcam = byte("tcam");
      res.resource = byte("resource");
      res.stage = byte("stage");
      res.total = u32(r, p, "total", false);
      res.used = u32(r, p, "used", false);
      res.reserve = u32(r, p, "reserve", false);
      res.free = u32(r, p, "free", false);
      s.resources.push_back(res);
    }
  }
  m->slots[{sys, s.slot}] = std::move(s);
}

// "onus": [{"id": O, "gemPorts": [G, ...]}], on a PON interface; ids and GEM ports 1..65535.
void readOnus(const json& arr, const std::string& place, Interface* i) {
  if (i->kind() != ZOR_IF_KIND_PON) throw Bad{place, "only a PON interface (kind 4) has ONUs"};
  if (!arr.is_array()) throw Bad{place, "expected an array of ONUs"};
  size_t n = 0;
  for (const json& o : arr) {
    const std::string p = at(place, n++);
    if (!o.is_object()) throw Bad{p, "expected an object"};
    onlyKeys(o, p, {"id", "gemPorts"});
    const uint32_t id = u32(o, p, "id", true);
    if (id == 0 || id > 0xFFFF) throw Bad{at(p, "id"), "an ONU id is 1 to 65535"};
    if (i->onus.count(id)) throw Bad{at(p, "id"), "ONU " + std::to_string(id) + " listed twice"};
    std::set<uint32_t>& gems = i->onus[id];
    if (!o.contains("gemPorts")) continue;
    const std::string gp = at(p, "gemPorts");
    if (!o.at("gemPorts").is_array()) throw Bad{gp, "expected an array of GEM ports"};
    size_t k = 0;
    for (const json& g : o.at("gemPorts")) {
      const std::string gpk = at(gp, k++);
      const auto gem = static_cast<uint32_t>(number(g, gpk, 0xFFFF));
      if (gem == 0) throw Bad{gpk, "a GEM port is 1 to 65535"};
      if (!gems.insert(gem).second) throw Bad{gpk, "GEM port " + std::to_string(gem) + " listed twice"};
    }
  }
}

Interface readInterface(const json& j, const std::string& place, bool agg, const Model& m) {
  if (agg) {
    onlyKeys(j, place,
             {"index", "name", "system", "slot", "subslot", "port", "type", "kind", "flags13",
              "flags10", "extra", "members", "mode", "modes", "protocols", "ignoring"});
  } else {
    onlyKeys(j, place,
             {"index", "name", "system", "slot", "subslot", "port", "type", "kind", "flags13",
              "flags10", "extra", "protocols", "ignoring", "onus"});
  }
  Interface i;
  i.index = u32(j, place, "index", true);
  if (i.index == 0) throw Bad{at(place, "index"), "interface index 0 is not an interface"};
  if (m.interfaces.count(i.index)) {
    throw Bad{at(place, "index"), "interface " + std::to_string(i.index) + " listed twice"};
  }
  i.name = text(j, place, "name");
  if (i.name.empty()) throw Bad{at(place, "name"), "missing"};
  if (i.name.size() > 62) throw Bad{at(place, "name"), "longer than 62 characters"};
  i.location[ZOR_LOC_SYS] = u32(j, place, "system", !agg, m.selfSys);
  i.location[ZOR_LOC_SLOT] = u32(j, place, "slot", !agg, 0);
  i.location[ZOR_LOC_SUBSLOT] = u32(j, place, "subslot", false);
  i.location[ZOR_LOC_PORT] = u32(j, place, "port", false);
  i.location[ZOR_LOC_TYPE] = u32(j, place, "type", false);
  i.location[ZOR_LOC_KIND] = u32(j, place, "kind", false, agg ? ZOR_IF_KIND_AGG : ZOR_IF_KIND_ETH);
  if (agg != (i.kind() == ZOR_IF_KIND_AGG)) {
    throw Bad{at(place, "kind"),
              agg ? "an aggregation has kind 2" : "kind 2 belongs in aggregations"};
  }
  if (j.contains("extra")) {
    const json& e = j.at("extra");
    if (!e.is_array() || e.size() != 2) throw Bad{at(place, "extra"), "expected two numbers"};
    i.location[6] = static_cast<uint32_t>(number(e[0], at(at(place, "extra"), 0), UINT32_MAX));
    i.location[7] = static_cast<uint32_t>(number(e[1], at(at(place, "extra"), 1), UINT32_MAX));
  }
  const uint32_t sys = i.location[ZOR_LOC_SYS], sl = i.location[ZOR_LOC_SLOT];
  const bool allSlot = i.kind() == ZOR_IF_KIND_AGG || i.kind() == ZOR_IF_KIND_ALLSLOT;
  if (!(allSlot && sl == 0) && !m.slots.count({sys, sl})) {
    throw Bad{at(place, "slot"),
              "no slot " + std::to_string(sys) + "/" + std::to_string(sl) + " in systems"};
  }
  i.flags13 = u32(j, place, "flags13", false);
  i.flags10 = u32(j, place, "flags10", false);
  auto units = [&](const char* key, std::vector<uint32_t>* out) {
    if (!j.contains(key)) return;
    const std::string p = at(place, key);
    if (!j.at(key).is_array()) throw Bad{p, "expected an array of numbers"};
    size_t n = 0;
    for (auto& v : j.at(key))
      out->push_back(static_cast<uint32_t>(number(v, at(p, n++), UINT32_MAX)));
  };
  units("protocols", &i.protocols);
  units("ignoring", &i.ignoring);
  if (j.contains("onus")) readOnus(j.at("onus"), at(place, "onus"), &i);
  if (agg) {
    units("members", &i.members);
    if (i.members.size() > ZOR_AGG_MAX_MEMBERS) throw Bad{at(place, "members"), "more than 128"};
    i.defaultMode =
        static_cast<uint8_t>(j.contains("mode") ? number(j.at("mode"), at(place, "mode"), 3) : 2);
    if (j.contains("modes")) {
      const std::string p = at(place, "modes");
      if (!j.at("modes").is_object()) throw Bad{p, "expected an object of command -> mode"};
      for (auto& [k, v] : j.at("modes").items()) {
        i.modes[keyNumber(k, at(p, k))] = static_cast<uint8_t>(number(v, at(p, k), 3));
      }
    }
  }
  return i;
}

void readModel(const json& j, Model* m) {
  onlyKeys(j, "",
           {"self", "announce", "systems", "interfaces", "aggregations", "neighbours",
            "detectList", "timeRanges", "mirrorGroups", "scalars", "actionSupport", "counters"});
  if (j.contains("announce")) {
    if (!j.at("announce").is_boolean()) throw Bad{"announce", "expected true or false"};
    m->announce = j.at("announce").get<bool>();
  }
  if (!j.contains("self")) throw Bad{"self", "missing"};
  onlyKeys(j.at("self"), "self", {"system", "slot"});
  m->selfSys = u32(j.at("self"), "self", "system", true);
  m->selfSlot = u32(j.at("self"), "self", "slot", true);
  if (!j.contains("systems") || !j.at("systems").is_array() || j.at("systems").empty()) {
    throw Bad{"systems", "expected a non-empty array"};
  }
  size_t n = 0;
  for (auto& s : j.at("systems")) {
    const std::string p = at("systems", n++);
    onlyKeys(s, p, {"index", "slots"});
    const uint32_t sys = u32(s, p, "index", true);
    if (sys == 0 || sys > 16) throw Bad{at(p, "index"), "a system is numbered 1 to 16"};
    for (uint32_t known : m->systems) {
      if (known == sys)
        throw Bad{at(p, "index"), "system " + std::to_string(sys) + " listed twice"};
    }
    m->systems.push_back(sys);
    if (s.contains("slots")) {
      if (!s.at("slots").is_array()) throw Bad{at(p, "slots"), "expected an array"};
      size_t k = 0;
      for (auto& sl : s.at("slots")) readSlot(sl, at(at(p, "slots"), k++), sys, m);
    }
  }
  if (!m->slots.count({m->selfSys, m->selfSlot})) {
    throw Bad{"self", "no slot " + std::to_string(m->selfSys) + "/" + std::to_string(m->selfSlot) +
                          " in systems"};
  }
  for (const char* key : {"interfaces", "aggregations"}) {
    if (!j.contains(key)) continue;
    if (!j.at(key).is_array()) throw Bad{key, "expected an array"};
    const bool agg = std::string_view(key) == "aggregations";
    size_t k = 0;
    for (auto& i : j.at(key)) {
      Interface ifc = readInterface(i, at(key, k++), agg, *m);
      m->interfaces[ifc.index] = std::move(ifc);
    }
  }
  // Members must be ports, and a port belongs to one aggregation at most.
  std::set<uint32_t> taken;
  n = 0;
  for (auto& [idx, i] : m->interfaces) {
    if (i.kind() != ZOR_IF_KIND_AGG) continue;
    for (size_t k = 0; k < i.members.size(); ++k) {
      const uint32_t mem = i.members[k];
      // Find the aggregation's place in the file for the message.
      std::string p = "aggregations";
      for (size_t a = 0; a < j.at("aggregations").size(); ++a) {
        if (j.at("aggregations")[a].at("index") == idx)
          p = at(at(at("aggregations", a), "members"), k);
      }
      auto it = m->interfaces.find(mem);
      if (it == m->interfaces.end()) throw Bad{p, "no interface " + std::to_string(mem)};
      if (it->second.kind() != ZOR_IF_KIND_ETH)
        throw Bad{p, "member " + std::to_string(mem) + " is not an Ethernet port"};
      if (!taken.insert(mem).second)
        throw Bad{p, "port " + std::to_string(mem) + " is already a member"};
    }
  }
  auto addrList = [&](const char* key, auto add) {
    if (!j.contains(key)) return;
    if (!j.at(key).is_array()) throw Bad{key, "expected an array"};
    size_t k = 0;
    for (auto& e : j.at(key)) {
      const std::string p = at(key, k++);
      onlyKeys(e, p, {"vrf", "address"});
      uint8_t fam = 0;
      std::array<uint8_t, 16> addr{};
      const std::string a = text(e, p, "address");
      if (!parseAddr(a, &fam, &addr))
        throw Bad{at(p, "address"), "\"" + a + "\" is not an IP address"};
      add(u32(e, p, "vrf", false), fam, addr);
    }
  };
  addrList("neighbours", [&](uint32_t vrf, uint8_t fam, const std::array<uint8_t, 16>& a) {
    m->neighbours.push_back({vrf, fam, a});
  });
  addrList("detectList", [&](uint32_t vrf, uint8_t fam, const std::array<uint8_t, 16>& a) {
    m->detectList.push_back({vrf, fam, a});
  });
  if (j.contains("timeRanges")) {
    if (!j.at("timeRanges").is_array()) throw Bad{"timeRanges", "expected an array"};
    size_t k = 0;
    for (auto& t : j.at("timeRanges")) {
      const std::string p = at("timeRanges", k++);
      onlyKeys(t, p, {"id", "name", "active", "refCount"});
      TimeRange tr;
      // The ACL module keeps a time range's id in 16 bits.
      tr.id = static_cast<uint32_t>(t.contains("id") ? number(t.at("id"), at(p, "id"), 65535) : 0);
      if (tr.id == 0) throw Bad{at(p, "id"), "missing or 0"};
      if (m->timeRanges.count(tr.id))
        throw Bad{at(p, "id"), "time range " + std::to_string(tr.id) + " listed twice"};
      tr.name = text(t, p, "name");
      if (t.contains("active")) {
        if (!t.at("active").is_boolean()) throw Bad{at(p, "active"), "expected true or false"};
        tr.active = t.at("active").get<bool>();
      }
      if (t.contains("refCount")) tr.refCount = signedNumber(t.at("refCount"), at(p, "refCount"));
      m->timeRanges[tr.id] = tr;
    }
  }
  if (j.contains("mirrorGroups")) {
    if (!j.at("mirrorGroups").is_array()) throw Bad{"mirrorGroups", "expected an array"};
    size_t k = 0;
    for (auto& g : j.at("mirrorGroups")) {
      const std::string p = at("mirrorGroups", k++);
      MirrorGroup mg;
      if (g.is_object()) {
        onlyKeys(g, p, {"id", "refCounts"});
        mg.id = u32(g, p, "id", true);
        if (g.contains("refCounts"))
          mg.refCounts = properties(g.at("refCounts"), at(p, "refCounts"));
      } else {
        mg.id = static_cast<uint32_t>(number(g, p, UINT32_MAX));
      }
      if (mg.id == 0) throw Bad{p, "mirror group 0 is not a group"};
      if (m->mirrors.count(mg.id))
        throw Bad{p, "mirror group " + std::to_string(mg.id) + " listed twice"};
      m->mirrors[mg.id] = mg;
    }
  }
  if (j.contains("scalars")) {
    if (!j.at("scalars").is_object()) throw Bad{"scalars", "expected an object of id -> value"};
    for (auto& [k, v] : j.at("scalars").items()) {
      m->scalars[keyNumber(k, at("scalars", k))] =
          static_cast<uint32_t>(number(v, at("scalars", k), UINT32_MAX));
    }
  }
  if (j.contains("actionSupport"))
    m->actionSupportResult = signedNumber(j.at("actionSupport"), "actionSupport");
  if (j.contains("counters")) {
    if (!j.at("counters").is_array()) throw Bad{"counters", "expected an array"};
    static constexpr const char* kNames[] = {"p1", "p2", "b1", "b2", "p3", "p4", "b3", "b4"};
    size_t k = 0;
    for (auto& c : j.at("counters")) {
      const std::string p = at("counters", k++);
      onlyKeys(c, p,
               {"list", "rule", "interface", "direction", "p1", "p2", "b1", "b2", "p3", "p4", "b3",
                "b4"});
      CounterKey key{u32(c, p, "list", true), u32(c, p, "rule", true),
                     u32(c, p, "interface", false), u32(c, p, "direction", false)};
      Counters cnt;
      for (size_t f = 0; f < 8; ++f) {
        if (c.contains(kNames[f])) cnt.v[f] = number(c.at(kNames[f]), at(p, kNames[f]), UINT64_MAX);
      }
      m->counters[key] = cnt;
    }
  }
}

}  // namespace

bool modelFromJson(const json& j, Model* m, std::string* error) {
  try {
    readModel(j, m);
    return true;
  } catch (const Bad& b) {
    if (error) *error = (b.place.empty() ? std::string("top level") : b.place) + ": " + b.problem;
    return false;
  } catch (const json::exception& e) {
    if (error) *error = std::string("top level: ") + e.what();
    return false;
  }
}

}  // namespace vdev
