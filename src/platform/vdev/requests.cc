// Control requests of the virtual device: inspection of the model and the journal, faults, and
// changes to the model. One JSON object in, one JSON object out; the socket server and in-process
// tests share this.
#include <algorithm>
#include <functional>
#include <mutex>
#include <new>

#include "platform/fault.h"
#include "platform/logging.h"
#include "platform/rtbus.h"
#include "platform/vdev/announce.h"
#include "platform/vdev/calls.h"
#include "platform/vdev/classify.h"
#include "platform/vdev/control.h"
#include "platform/vdev/decode.h"
#include "platform/vdev/json_text.h"
#include "platform/vdev/model_json.h"
#include "platform/vdev/onu.h"

namespace vdev {

using nlohmann::json;

namespace {

// The most one journal answer holds, counted as twice the bytes its entries keep (their bytes
// travel in hex); the rest comes in further pages.
constexpr size_t kJournalPageBytes = 4u << 20;

struct RequestError {
  std::string text;
};

uint64_t optU64(const json& req, const char* key, uint64_t dflt = 0) {
  if (!req.contains(key)) return dflt;
  const json& v = req.at(key);
  if (!v.is_number_unsigned() && !(v.is_number_integer() && v.get<int64_t>() >= 0)) {
    throw RequestError{std::string("\"") + key + "\" must be a non-negative whole number"};
  }
  return v.get<uint64_t>();
}

std::optional<uint32_t> optU32(const json& req, const char* key) {
  if (!req.contains(key)) return std::nullopt;
  const uint64_t v = optU64(req, key);
  if (v > UINT32_MAX) throw RequestError{std::string("\"") + key + "\" is above 32 bits"};
  return static_cast<uint32_t>(v);
}

uint32_t needU32(const json& req, const char* key) {
  auto v = optU32(req, key);
  if (!v) throw RequestError{std::string("\"") + key + "\" is missing"};
  return *v;
}

const json& needObject(const json& req, const char* key) {
  if (!req.contains(key) || !req.at(key).is_object()) {
    throw RequestError{std::string("\"") + key + "\" must be an object"};
  }
  return req.at(key);
}

std::optional<uint32_t> scopeNumber(const json& req) {
  if (!req.contains("scope")) return std::nullopt;
  const json& s = req.at("scope");
  if (s.is_string()) {
    if (s == "global") return 0;
    if (s == "unit") return 1;
    if (s == "gem") return 2;
    if (s == "0" || s == "1" || s == "2")
      return static_cast<uint32_t>(s.get<std::string>()[0] - '0');
    throw RequestError{"\"scope\" must be global, unit or gem"};
  }
  const uint32_t v = needU32(req, "scope");
  if (v > 2) throw RequestError{"\"scope\" must be 0, 1 or 2"};
  return v;
}

json faultToJson(const plat::FaultRule& r) {
  json j = {{"id", r.id},     {"call", r.call},   {"name", r.name}, {"result", r.result},
            {"skip", r.skip}, {"count", r.count}, {"hits", r.hits}};
  auto put = [&](const char* k, const std::optional<uint32_t>& v) {
    if (v) j[k] = *v;
  };
  put("cmd", r.cmd);
  put("scope", r.scope);
  put("unit", r.unit);
  put("list", r.list);
  put("rule", r.rule);
  put("onu", r.onu);
  put("gem", r.gem);
  return j;
}

json faultAdd(const json& req) {
  plat::FaultRule r;
  if (req.contains("call")) {
    if (!req.at("call").is_string()) throw RequestError{"\"call\" must be a string"};
    r.call = req.at("call").get<std::string>();
  }
  if (req.contains("name")) {
    if (!req.at("name").is_string()) throw RequestError{"\"name\" must be a string"};
    r.name = req.at("name").get<std::string>();
  }
  r.cmd = optU32(req, "cmd");
  r.scope = scopeNumber(req);
  r.unit = optU32(req, "unit");
  r.list = optU32(req, "list");
  r.rule = optU32(req, "rule");
  r.onu = optU32(req, "onu");
  r.gem = optU32(req, "gem");
  if (req.contains("result")) {
    if (!req.at("result").is_number_integer()) throw RequestError{"\"result\" must be a number"};
    const int64_t v = req.at("result").get<int64_t>();
    if (v < INT32_MIN || v > UINT32_MAX) throw RequestError{"\"result\" is out of 32 bits"};
    r.result = static_cast<int32_t>(v);
  }
  r.skip = optU32(req, "skip").value_or(0);
  // "once", a number of times, or "always".
  if (req.contains("count")) {
    const json& c = req.at("count");
    if (c == "always" || c == -1) {
      r.count = -1;
    } else if (c == "once") {
      r.count = 1;
    } else {
      if (!c.is_number_integer()) throw RequestError{"\"count\" must be once, always or 1 and up"};
      const uint64_t n = optU64(req, "count");
      if (n == 0 || n > INT32_MAX) throw RequestError{"\"count\" must be once, always or 1 and up"};
      r.count = static_cast<int32_t>(n);
    }
  }
  const uint32_t id = plat::faultAdd(r);
  return {{"ok", true}, {"id", id}};
}

// Changes the model through its file form, so a change is checked exactly as a device file is
// and a refused change leaves the model as it was. edit returns the file place of the entry it
// changed ("interfaces[26]"); a problem found there is reported under requestPlace instead, the
// name the request gave it. The route messages of the change (and extra, messages the comparison
// of the two models cannot see, such as a neighbour learned again) go out once the device mutex
// is given back.
json editModel(const std::string& what, const std::function<std::string(json&)>& edit,
               const std::string& requestPlace = {}, const std::vector<RouteOut>* extra = nullptr) {
  std::vector<RouteOut> out;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    json j = modelToJson(d.model);
    const std::string place = edit(j);
    Model m;
    std::string err;
    if (!modelFromJson(j, &m, &err)) {
      if (!place.empty() && err.rfind(place, 0) == 0 &&
          (err[place.size()] == '.' || err[place.size()] == ':')) {
        err = requestPlace + err.substr(place.size());
      }
      throw RequestError{err};
    }
    out = changeMessages(d.model, m, what);
    if (what != "model.load") {
      m.departed = d.model.departed;
      for (const auto& [index, i] : d.model.interfaces) {
        if (!m.interfaces.count(index)) m.departed[index] = i;
      }
      for (const auto& [index, i] : m.interfaces) m.departed.erase(index);
    }
    if (extra != nullptr && m.announce) out.insert(out.end(), extra->begin(), extra->end());
    d.model = std::move(m);
  }
  sendAll(out);
  return {{"ok", true}};
}

// The entry of arr whose key equals id, or nullptr.
json* findIn(json& arr, const char* key, uint32_t id) {
  for (auto& e : arr) {
    if (e.contains(key) && e.at(key) == id) return &e;
  }
  return nullptr;
}

bool eraseIn(json& arr, const std::function<bool(const json&)>& match) {
  for (auto it = arr.begin(); it != arr.end(); ++it) {
    if (match(*it)) {
      arr.erase(it);
      return true;
    }
  }
  return false;
}

// interface.set and aggregation.set: an existing entry takes the given fields, a new one is added.
json setInterface(const json& req, const char* section, const char* key) {
  const json& obj = needObject(req, key);
  const uint32_t index = needU32(obj, "index");
  return editModel(
      std::string(key) + ".set",
      [&](json& j) {
        // An interface changes section when it becomes or stops being an aggregation.
        const std::string other =
            std::string_view(section) == "interfaces" ? "aggregations" : "interfaces";
        json& arr = j[section];
        if (json* e = findIn(j[other], "index", index)) {
          json moved = *e;
          eraseIn(j[other], [&](const json& x) { return x.at("index") == index; });
          moved.merge_patch(obj);
          if (std::string_view(section) == "aggregations") moved["kind"] = 2;
          arr.push_back(moved);
        } else if (json* e = findIn(arr, "index", index)) {
          e->merge_patch(obj);
          return std::string(section) + "[" + std::to_string(e - &arr[0]) + "]";
        } else {
          arr.push_back(obj);
        }
        return std::string(section) + "[" + std::to_string(arr.size() - 1) + "]";
      },
      key);
}

json removeInterface(const json& req) {
  const uint32_t index = needU32(req, "index");
  return editModel("interface.remove", [&](json& j) {
    auto match = [&](const json& x) { return x.at("index") == index; };
    if (!eraseIn(j["interfaces"], match) && !eraseIn(j["aggregations"], match)) {
      throw RequestError{"no interface " + std::to_string(index)};
    }
    // A port that goes away leaves its aggregation.
    for (auto& a : j["aggregations"]) {
      auto& mem = a["members"];
      for (auto it = mem.begin(); it != mem.end();) it = (*it == index) ? mem.erase(it) : it + 1;
    }
    return std::string();
  });
}

json setCard(const json& req) {
  const uint32_t sys = needU32(req, "system"), slot = needU32(req, "slot");
  const bool remove = !req.contains("card") || req.at("card").is_null();
  if (!remove) needObject(req, "card");
  return editModel(
      remove ? "card.remove" : "card.set",
      [&](json& j) {
        json& systems = j["systems"];
        json* s = findIn(systems, "index", sys);
        if (s == nullptr) {
          if (remove) throw RequestError{"no system " + std::to_string(sys)};
          systems.push_back({{"index", sys}, {"slots", json::array()}});
          s = &systems.back();
        }
        json& slots = (*s)["slots"];
        json* sl = findIn(slots, "slot", slot);
        if (remove) {
          if (sl == nullptr || !sl->contains("card")) {
            throw RequestError{"no card in slot " + std::to_string(sys) + "/" +
                               std::to_string(slot)};
          }
          sl->erase("card");
          return std::string();
        }
        if (sl == nullptr) {
          slots.push_back({{"slot", slot}});
          sl = &slots.back();
        }
        // A card seated without saying otherwise comes up and ready, in a slot that is up and
        // ready, as the built-in chassis's cards are: the daemon then synchronises it.
        if (req.contains("properties")) {
          (*sl)["properties"] = req.at("properties");
        } else if (!sl->contains("properties")) {
          (*sl)["properties"] = {{"0x01F4002B", 1}, {"0x01F40032", 0}};
        }
        if (req.contains("resources")) (*sl)["resources"] = req.at("resources");
        if (!sl->contains("card") && !req.at("card").contains("properties")) {
          (*sl)["card"] = {{"properties", {{"0x02EE002A", 1}, {"0x02EE002B", 0}}}};
        }
        if (sl->contains("card")) {
          (*sl)["card"].merge_patch(req.at("card"));
        } else {
          (*sl)["card"] = req.at("card");
        }
        return "systems[" + std::to_string(s - &systems[0]) + "].slots[" +
               std::to_string(sl - &slots[0]) + "]";
      },
      "request");
}

json neighbour(const json& req, bool add) {
  if (!req.contains("address") || !req.at("address").is_string()) {
    throw RequestError{"\"address\" must be a string"};
  }
  const uint32_t vrf = optU32(req, "vrf").value_or(0);
  uint8_t fam = 0;
  std::array<uint8_t, 16> addr{};
  const std::string text = req.at("address").get<std::string>();
  if (!parseAddr(text, &fam, &addr)) throw RequestError{"\"" + text + "\" is not an IP address"};
  const json entry = {{"vrf", vrf}, {"address", addrText(fam, addr)}};
  // Adding a neighbour the device already knows is learning it again.
  std::vector<RouteOut> relearned;
  return editModel(
      add ? "neighbour.add" : "neighbour.remove",
      [&](json& j) {
        const bool had = eraseIn(j["neighbours"], [&](const json& x) { return x == entry; });
        if (add) {
          j["neighbours"].push_back(entry);
          if (had) {
            relearned.push_back({kNeighbourGroup, neighbourMessage(kMsgNeighbourRelearned,
                                                                   Neighbour{vrf, fam, addr})});
          }
        } else if (!had) {
          throw RequestError{"no neighbour " + text + " in vrf " + std::to_string(vrf)};
        }
        return std::string();
      },
      {}, &relearned);
}

json setTimeRange(const json& req) {
  const uint32_t id = needU32(req, "id");
  json patch = req;
  patch.erase("op");
  return editModel(
      "timerange.set",
      [&](json& j) {
        json& arr = j["timeRanges"];
        if (json* t = findIn(arr, "id", id)) {
          t->merge_patch(patch);
          return "timeRanges[" + std::to_string(t - &arr[0]) + "]";
        }
        arr.push_back(patch);
        return "timeRanges[" + std::to_string(arr.size() - 1) + "]";
      },
      "request");
}

json removeTimeRange(const json& req) {
  const uint32_t id = needU32(req, "id");
  return editModel("timerange.remove", [&](json& j) {
    if (!eraseIn(j["timeRanges"], [&](const json& x) { return x.at("id") == id; })) {
      throw RequestError{"no time range " + std::to_string(id)};
    }
    return std::string();
  });
}

// A platform event that changes nothing the device models (a card or slot coming up, an
// interface's configuration reset): build checks it against the model and makes its messages,
// which go out once the device mutex is given back; none while announcements are off.
json event(const std::function<std::vector<RouteOut>(const Model&)>& build) {
  std::vector<RouteOut> out;
  {
    Device& d = device();
    std::lock_guard lock(d.mutex);
    out = build(d.model);
    if (!d.model.announce) out.clear();
  }
  sendAll(out);
  return {{"ok", true}, {"messages", out.size()}};
}

const Slot& needSlot(const Model& m, uint32_t sys, uint32_t slot) {
  auto it = m.slots.find({sys, slot});
  if (it == m.slots.end()) {
    throw RequestError{"no slot " + std::to_string(sys) + "/" + std::to_string(slot)};
  }
  return it->second;
}

json cardUp(const json& req) {
  const uint32_t sys = needU32(req, "system"), slot = needU32(req, "slot");
  return event([&](const Model& m) {
    const Slot& s = needSlot(m, sys, slot);
    if (!s.card) {
      throw RequestError{"no card in slot " + std::to_string(sys) + "/" + std::to_string(slot)};
    }
    return std::vector<RouteOut>{{kChassisGroup, cardReadyMessage(sys, slot, s.card->type)}};
  });
}

json slotUp(const json& req) {
  const uint32_t sys = needU32(req, "system"), slot = needU32(req, "slot");
  return event([&](const Model& m) {
    needSlot(m, sys, slot);
    return std::vector<RouteOut>{{kChassisGroup, slotUpMessage(sys, slot)}};
  });
}

json systemUp(const json& req) {
  const uint32_t sys = needU32(req, "system");
  return event([&](const Model& m) {
    if (std::find(m.systems.begin(), m.systems.end(), sys) == m.systems.end()) {
      throw RequestError{"no system " + std::to_string(sys)};
    }
    return std::vector<RouteOut>{{kChassisGroup, systemUpMessage(sys)}};
  });
}

// reason 1 is an mlag reset, anything else a manual one; operation 1 resets everything, anything
// else the defaults; flags are passed on as given.
json resetInterface(const json& req) {
  const uint32_t index = needU32(req, "index");
  const uint32_t reason = optU32(req, "reason").value_or(0);
  const uint32_t operation = optU32(req, "operation").value_or(0);
  const uint32_t flags = optU32(req, "flags").value_or(0);
  return event([&](const Model& m) {
    if (!m.interfaces.contains(index)) throw RequestError{"no interface " + std::to_string(index)};
    return std::vector<RouteOut>{{kLinkGroup, configResetMessage(index, reason, operation, flags)}};
  });
}

// Raw bytes as one datagram, to this process's own route socket (the daemon's) or to every member
// of a group: for tests and operators. Nothing is checked but the hex itself.
constexpr size_t kRouteSendMax = 65536;

std::vector<uint8_t> hexBytes(const json& req) {
  if (!req.contains("hex") || !req.at("hex").is_string()) {
    throw RequestError{"\"hex\" must be a string of hex digits"};
  }
  const std::string& text = req.at("hex").get_ref<const std::string&>();
  if (text.empty() || text.size() % 2 != 0) {
    throw RequestError{"\"hex\" must hold an even number of hex digits, at least two"};
  }
  if (text.size() / 2 > kRouteSendMax) {
    throw RequestError{"\"hex\" holds more than " + std::to_string(kRouteSendMax) + " bytes"};
  }
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::vector<uint8_t> out(text.size() / 2);
  for (size_t i = 0; i < out.size(); ++i) {
    const int hi = nibble(text[2 * i]), lo = nibble(text[2 * i + 1]);
    if (hi < 0 || lo < 0) {
      throw RequestError{"\"hex\": \"" + text.substr(2 * i, 2) + "\" at byte " + std::to_string(i) +
                         " is not a hex byte"};
    }
    out[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
  return out;
}

json routeSend(const json& req) {
  const std::vector<uint8_t> bytes = hexBytes(req);
  if (auto group = optU32(req, "group")) {
    return {{"ok", true}, {"group", *group}, {"delivered", plat::busSend(*group, bytes)}};
  }
  const std::string path = plat::ownRouteSocketPath();
  if (path.empty()) throw RequestError{"no route socket is bound in this process"};
  if (!plat::busSendTo(path, bytes)) {
    throw RequestError{"the route socket did not take the message (full or gone)"};
  }
  return {{"ok", true}, {"delivered", 1}};
}

json setCounter(const json& req) {
  json c = req;
  c.erase("op");
  return editModel(
      "counter.set",
      [&](json& j) {
        auto same = [&](const json& x) {
          for (const char* k : {"list", "rule", "interface", "direction"}) {
            if (x.value(k, json(0)) != c.value(k, json(0))) return false;
          }
          return true;
        };
        json& arr = j["counters"];
        eraseIn(arr, same);
        arr.push_back(c);
        return "counters[" + std::to_string(arr.size() - 1) + "]";
      },
      "request");
}

json setScalar(const json& req) {
  const uint32_t id = needU32(req, "id"), value = needU32(req, "value");
  return editModel("scalar.set", [&](json& j) {
    j["scalars"][std::to_string(id)] = value;
    return std::string();
  });
}

json replaceModel(const json& req) {
  const json& m = needObject(req, "model");
  return editModel("model.load", [&](json& j) {
    j = m;
    return std::string();
  });
}

json clearJournal(const json& req) {
  const std::string what = req.value("what", std::string("all"));
  Device& d = device();
  std::lock_guard lock(d.mutex);
  Journal& jr = d.journal;
  if (what == "relays" || what == "all") jr.relays.clear();
  if (what == "announcements" || what == "all") jr.announcements.clear();
  if (what == "anomalies" || what == "all") jr.anomalies.clear();
  if (what == "commands" || what == "all") jr.commands.clear();
  if (what == "hw" || what == "all") jr.hw.clear();
  if (what != "relays" && what != "announcements" && what != "anomalies" && what != "commands" &&
      what != "hw" && what != "all") {
    throw RequestError{"\"what\" must be relays, announcements, anomalies, commands, hw or all"};
  }
  return {{"ok", true}};
}

// Each entry of tables (as hwTablesToJson listed them, in the same order) with its rule decoded.
void addDecoded(json& tables, const Journal& jr, const ScopeKey* only) {
  size_t t = 0;
  for (const auto& [key, table] : jr.hw) {
    if (only && !(key == *only)) continue;
    if (t >= tables.size()) return;
    size_t i = 0;
    for (const auto& [k, e] : table.entries) {
      if (i < tables[t]["entries"].size()) {
        tables[t]["entries"][i]["decoded"] = decodeHwRule(e.data, e.tlv);
      }
      ++i;
    }
    ++t;
  }
}

json hw(const json& req) {
  const auto scope = scopeNumber(req);
  Device& d = device();
  std::lock_guard lock(d.mutex);
  if (!scope) {
    json tables = hwTablesToJson(d.journal, nullptr);
    addDecoded(tables, d.journal, nullptr);
    return {{"ok", true}, {"tables", tables}};
  }
  ScopeKey key;
  key.scope = *scope;
  if (*scope >= 1) key.unit = needU32(req, "unit");
  if (*scope == 2) {
    key.onu = needU32(req, "onu");
    key.gem = needU32(req, "gem");
  }
  json tables = hwTablesToJson(d.journal, &key);
  addDecoded(tables, d.journal, &key);
  // One scope asked for: its entries, empty when nothing is installed there.
  json out = scopeToJson(key);
  out["entries"] = tables.empty() ? json::array() : tables[0]["entries"];
  return {{"ok", true}, {"table", out}};
}

// Classifies a frame (hex bytes, spaces and colons allowed between them) against one scope's
// table for one direction (ingress unless "dir" says otherwise).
json classify(const json& req) {
  if (!req.contains("frame") || !req.at("frame").is_string()) {
    throw RequestError{"\"frame\" must be a string of hex bytes"};
  }
  std::vector<uint8_t> bytes;
  int high = -1;
  for (char c : req.at("frame").get<std::string>()) {
    if (c == ' ' || c == ':' || c == '-') continue;
    int v = -1;
    if (c >= '0' && c <= '9') v = c - '0';
    if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
    if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
    if (v < 0) throw RequestError{"\"frame\" holds a character that is not a hex digit"};
    if (high < 0) {
      high = v;
    } else {
      bytes.push_back(static_cast<uint8_t>(high << 4 | v));
      high = -1;
    }
  }
  if (high >= 0) throw RequestError{"\"frame\" has an odd number of hex digits"};
  Frame f;
  std::string err;
  if (!decodeFrame(bytes, &f, &err)) throw RequestError{err};
  const auto scope = scopeNumber(req);
  ScopeKey key;
  key.scope = scope.value_or(0);
  if (key.scope >= 1) key.unit = needU32(req, "unit");
  if (key.scope == 2) {
    key.onu = needU32(req, "onu");
    key.gem = needU32(req, "gem");
  }
  const uint32_t dir = optU32(req, "dir").value_or(0);
  Device& d = device();
  std::lock_guard lock(d.mutex);
  json out = classifyFrame(d.journal, key, dir, f);
  out["ok"] = true;
  out["scope"] = scopeToJson(key);
  return out;
}

// The entries of a journal log after since, as many as fit in one answer. When some are left
// over, "more" is true and "last" is the last entry's sequence number, which the client passes as
// "since" for the next page; otherwise "last" is the journal's latest sequence number.
template <typename T>
json journalList(const json& req, const char* name, JournalLog<T> Journal::*log) {
  const uint64_t since = optU64(req, "since");
  Device& d = device();
  std::lock_guard lock(d.mutex);
  const JournalLog<T>& entries = d.journal.*log;
  auto it = std::partition_point(entries.begin(), entries.end(),
                                 [&](const T& e) { return e.seq <= since; });
  json page = json::array();
  size_t bytes = 0;
  for (; it != entries.end(); ++it) {
    // Bytes are shown in hex: an entry's reply text is about twice what it holds.
    const size_t cost = 2 * entryBytes(*it);
    if (!page.empty() && bytes + cost > kJournalPageBytes) break;
    bytes += cost;
    page.push_back(entryToJson(*it));
  }
  const bool more = it != entries.end();
  const uint64_t last = more ? page.back().at("seq").get<uint64_t>() : d.journal.seq;
  return {{"ok", true}, {name, std::move(page)}, {"last", last}, {"more", more}};
}

json logLines(const json& req) {
  json lines = json::array();
  for (auto& l : plat::logRecent(optU64(req, "since"))) {
    lines.push_back({{"seq", l.seq},
                     {"tag", l.tag},
                     {"priority", l.priority},
                     {"style", l.style},
                     {"operational", l.operational},
                     {"text", l.text}});
  }
  return {{"ok", true}, {"lines", lines}, {"last", plat::logLastSeq()}};
}

json show() {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  json faults = json::array();
  for (auto& f : plat::faultList()) faults.push_back(faultToJson(f));
  size_t entries = 0;
  for (auto& [k, t] : d.journal.hw) entries += t.entries.size();
  return {{"ok", true},
          {"model", modelToJson(d.model)},
          {"hwEntries", entries},
          {"relays", d.journal.relays.size()},
          {"announcements", d.journal.announcements.size()},
          {"anomalies", d.journal.anomalies.size()},
          {"routeDropped", plat::busDropCount()},
          {"faults", faults}};
}

using Handler = std::function<json(const json&)>;

const std::map<std::string, Handler>& handlers() {
  static const std::map<std::string, Handler> table = {
      {"show", [](const json&) { return show(); }},
      {"hw", hw},
      {"classify", classify},
      {"relays", [](const json& r) { return journalList(r, "relays", &Journal::relays); }},
      {"announcements",
       [](const json& r) { return journalList(r, "announcements", &Journal::announcements); }},
      {"anomalies", [](const json& r) { return journalList(r, "anomalies", &Journal::anomalies); }},
      {"commands", [](const json& r) { return journalList(r, "commands", &Journal::commands); }},
      {"clear", clearJournal},
      {"log", logLines},
      {"fault.add", faultAdd},
      {"fault.list",
       [](const json&) {
         json a = json::array();
         for (auto& f : plat::faultList()) a.push_back(faultToJson(f));
         return json{{"ok", true}, {"faults", a}};
       }},
      {"fault.remove",
       [](const json& r) {
         if (!plat::faultRemove(needU32(r, "id"))) throw RequestError{"no such fault"};
         return json{{"ok", true}};
       }},
      {"fault.clear",
       [](const json&) {
         plat::faultClear();
         return json{{"ok", true}};
       }},
      {"interface.set", [](const json& r) { return setInterface(r, "interfaces", "interface"); }},
      {"aggregation.set",
       [](const json& r) { return setInterface(r, "aggregations", "aggregation"); }},
      {"interface.remove", removeInterface},
      {"card.set", setCard},
      {"neighbour.add", [](const json& r) { return neighbour(r, true); }},
      {"neighbour.remove", [](const json& r) { return neighbour(r, false); }},
      {"timerange.set", setTimeRange},
      {"timerange.remove", removeTimeRange},
      {"counter.set", setCounter},
      {"scalar.set", setScalar},
      {"model.load", replaceModel},
      {"card.up", cardUp},
      {"slot.up", slotUp},
      {"system.up", systemUp},
      {"interface.reset", resetInterface},
      {"route.send", routeSend},
      {"onu.set", onuSet},
      {"onu.remove", onuRemove},
  };
  return table;
}

std::mutex gOpsMutex;
std::map<std::string, ControlOp>& registeredOps() {
  static std::map<std::string, ControlOp> ops;
  return ops;
}

// The registered op of that name, copied out so it runs without gOpsMutex held.
ControlOp registeredOp(const std::string& name) {
  std::lock_guard lock(gOpsMutex);
  auto it = registeredOps().find(name);
  return it == registeredOps().end() ? ControlOp{} : it->second;
}

}  // namespace

bool registerControlOp(const std::string& name, ControlOp fn) {
  if (name.empty() || !fn || handlers().contains(name)) return false;
  std::lock_guard lock(gOpsMutex);
  return registeredOps().emplace(name, std::move(fn)).second;
}

void unregisterControlOp(const std::string& name) {
  std::lock_guard lock(gOpsMutex);
  registeredOps().erase(name);
}

json handleRequest(const json& req) {
  // Nothing a request holds may stop the process: every failure, foreseen or not, is an answer.
  // Handlers change the model or the journal only as their last step, so an exception before it
  // leaves both as they were.
  try {
    if (!req.is_object()) return {{"ok", false}, {"error", "a request is a JSON object"}};
    if (!req.contains("op") || !req.at("op").is_string()) {
      return {{"ok", false}, {"error", "\"op\" is missing or not a string"}};
    }
    const std::string op = req.at("op").get<std::string>();
    auto it = handlers().find(op);
    if (it != handlers().end()) return it->second(req);
    if (ControlOp fn = registeredOp(op)) return fn(req);
    return {{"ok", false}, {"error", "unknown op \"" + op + "\""}};
  } catch (const RequestError& e) {
    return {{"ok", false}, {"error", e.text}};
  } catch (const json::exception& e) {
    return {{"ok", false}, {"error", std::string("bad request: ") + e.what()}};
  } catch (const std::bad_alloc&) {
    return {{"ok", false}, {"error", "out of memory"}};
  } catch (const std::exception& e) {
    return {{"ok", false}, {"error", std::string("request failed: ") + e.what()}};
  }
}

std::string handleRequestLine(const std::string& line) {
  try {
    json req;
    JsonTextError err;
    json reply;
    if (parseJsonText(line, &req, &err)) {
      reply = handleRequest(req);
    } else {
      reply = {{"ok", false}, {"error", "not JSON: " + err.what}};
    }
    // Binary junk in a string must not stop the reply from being written.
    return reply.dump(-1, ' ', false, json::error_handler_t::replace);
  } catch (...) {
    // Only allocation can fail here; this reply needs none beyond the string itself.
    return R"({"ok":false,"error":"out of memory"})";
  }
}

}  // namespace vdev
