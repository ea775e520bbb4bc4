// aclctl load FILE: makes the daemon hold what a saved document holds, over one connection.
//
// Three passes. First the whole document is checked against itself and against what the daemon
// holds now (schema, names, references, list types against bind slots, counts against the limits),
// and a bad one is refused with its JSON path before anything is sent. Then each part is compared
// with the daemon's and planned as created, changed or unchanged; only the first two become
// steps, so loading the same document again sends no change. Last the steps run in dependency
// order (meters, profiles and counters; lists and their rules; global bindings; interfaces), each
// with the step that puts the daemon back; the first refusal runs those in reverse, so a load is
// all or nothing.
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/config_doc.h"
#include "client/rule_actions.h"
#include "client/rule_fields.h"
#include "hw/acl_bind_slot.h"
#include "wire/acl_ret.h"
#include "wire/acl_rule_cmds.h"
#include "wire/func_table.h"

namespace {

using aclclient::ConfigTable;
using aclclient::RuleClient;
using aclclient::RuleRef;
using aclclient::TableSession;
using nlohmann::ordered_json;

constexpr uint32_t kScalarMaxLists = 0;
constexpr uint32_t kScalarMaxListRules = 2;
constexpr uint32_t kScalarRuleNum = 41;  // used / maximum pairs, by type column
constexpr uint32_t kLstName = 1;
constexpr uint32_t kLstRefCnt = 2;
constexpr uint32_t kLstStatus = 9;
constexpr uint32_t kLstCreate = 2;
constexpr uint32_t kLstDelete = 4;
constexpr uint32_t kIfRowStatus = 17;
constexpr uint32_t kIfCreate = 2;
constexpr uint32_t kIfDestroy = 4;
constexpr uint32_t kListNameMax = 64;
constexpr uint8_t kTypeColumns[] = {1, 2, 3, 4, 5, 8};  // scalar rule-count columns

// A document refused before anything is applied: where and why.
struct Refusal {
  std::string path;
  std::string text;
};

[[noreturn]] void refuse(const std::string& path, const std::string& text) {
  throw Refusal{path.empty() ? "/" : path, text};
}

std::string at(const std::string& path, const std::string& key) {
  return path + "/" + key;
}
std::string at(const std::string& path, size_t i) {
  return path + "/" + std::to_string(i);
}

// --- checks of the document's shape ---------------------------------------------------------

void onlyKeys(const ordered_json& obj, const std::string& path, std::set<std::string> keys) {
  if (!obj.is_object()) refuse(path, "expected an object");
  for (const auto& [k, v] : obj.items()) {
    if (!keys.count(k)) refuse(at(path, k), "unknown key");
  }
}

uint32_t u32(const ordered_json& v, const std::string& path, uint32_t min = 0,
             uint32_t max = 0xFFFFFFFF) {
  if (!v.is_number_unsigned() && !(v.is_number_integer() && v.get<int64_t>() >= 0)) {
    refuse(path, "expected a number from " + std::to_string(min) + " to " + std::to_string(max));
  }
  const uint64_t n = v.get<uint64_t>();
  if (n < min || n > max) {
    refuse(path, "expected a number from " + std::to_string(min) + " to " + std::to_string(max));
  }
  return static_cast<uint32_t>(n);
}

const ordered_json& arrayAt(const ordered_json& doc, const char* key, const std::string& path) {
  static const ordered_json empty = ordered_json::array();
  if (!doc.contains(key)) return empty;
  if (!doc[key].is_array()) refuse(at(path, key), "expected an array");
  return doc[key];
}

std::string statusOf(const ordered_json& e, const char* dflt, const std::string& path,
                     std::set<std::string> allowed) {
  if (!e.contains("status")) return dflt;
  if (!e["status"].is_string() || !allowed.count(e["status"].get<std::string>())) {
    std::string names;
    for (const auto& a : allowed) names += (names.empty() ? "" : " or ") + a;
    refuse(at(path, "status"), "expected " + names);
  }
  return e["status"].get<std::string>();
}

// An action list of the document as aclctl's NAME[=VALUE] words.
std::vector<std::string> actionWords(const ordered_json& list, const std::string& path) {
  if (!list.is_array()) refuse(path, "expected an array of {\"name\", \"value\"}");
  std::vector<std::string> words;
  for (size_t i = 0; i < list.size(); ++i) {
    const ordered_json& a = list[i];
    onlyKeys(a, at(path, i), {"name", "value"});
    if (!a.contains("name") || !a["name"].is_string()) refuse(at(path, i), "needs a name");
    if (a.contains("value") && !a["value"].is_string()) {
      refuse(at(at(path, i), "value"), "expected a string");
    }
    words.push_back(a["name"].get<std::string>() +
                    (a.contains("value") ? "=" + a["value"].get<std::string>() : ""));
  }
  return words;
}

// --- what the daemon holds now, by key ------------------------------------------------------

struct Current {
  ordered_json doc;  // as aclctl save would write it
  std::map<std::string, std::map<uint32_t, const ordered_json*>> tables;
  std::map<uint32_t, const ordered_json*> lists;
  std::map<uint32_t, const ordered_json*> interfaces;
};

void indexCurrent(Current& cur) {
  for (const ConfigTable& t : aclclient::configTables()) {
    cur.tables[t.section];  // every table has its entry, empty or not
    for (const auto& e : cur.doc[t.section]) cur.tables[t.section][e["index"].get<uint32_t>()] = &e;
  }
  for (const auto& l : cur.doc["lists"]) cur.lists[l["list"].get<uint32_t>()] = &l;
  for (const auto& i : cur.doc["interfaces"]) cur.interfaces[i["ifindex"].get<uint32_t>()] = &i;
}

// --- the check of the whole document --------------------------------------------------------

struct Checked {
  std::map<uint32_t, size_t> lists;  // list index -> position in the document
  std::map<std::string, std::map<uint32_t, std::string>> tableStatus;  // section -> index -> status
};

void checkTables(const ordered_json& doc, Checked& ck) {
  for (const ConfigTable& t : aclclient::configTables()) {
    const std::string path = std::string("/") + t.section;
    ck.tableStatus[t.section];
    const ordered_json& entries = arrayAt(doc, t.section, "");
    for (size_t i = 0; i < entries.size(); ++i) {
      const std::string p = at(path, i);
      const ordered_json& e = entries[i];
      std::set<std::string> keys = {"index", "status"};
      if (t.nameCmd != 0) keys.insert("name");
      for (const auto& a : t.attrs) keys.insert(a.key);
      onlyKeys(e, p, keys);
      if (!e.contains("index")) refuse(p, "needs an index");
      const uint32_t idx = u32(e["index"], at(p, "index"), 1);
      const std::string status = statusOf(e, "valid", p, {"valid", "created"});
      if (!ck.tableStatus[t.section].emplace(idx, status).second) {
        refuse(at(p, "index"), std::string(t.noun) + " " + std::to_string(idx) + " appears twice");
      }
      if (e.contains("name") &&
          (!e["name"].is_string() || e["name"].get<std::string>().size() > t.nameMax)) {
        refuse(at(p, "name"), "expected a name of at most " + std::to_string(t.nameMax) + " bytes");
      }
      for (const auto& a : t.attrs) {
        if (e.contains(a.key)) u32(e[a.key], at(p, a.key));
      }
    }
  }
}

// A rule's reference to a meter or counter: valid in the document, or valid in the daemon when
// the document leaves it alone.
void checkRef(const ordered_json& rule, const char* key, const char* section, const char* noun,
              const std::string& p, const Checked& ck, const Current& cur) {
  if (!rule.contains(key)) return;
  const uint32_t idx = u32(rule[key], at(p, key));
  const auto& doc = ck.tableStatus.at(section);
  std::string status;
  if (auto it = doc.find(idx); it != doc.end()) {
    status = it->second;
  } else if (auto c = cur.tables.at(section).find(idx); c != cur.tables.at(section).end()) {
    status = (*c->second)["status"].get<std::string>();
  } else {
    refuse(at(p, key), std::string(noun) + " " + std::to_string(idx) + " does not exist");
  }
  if (status != "valid") {
    refuse(at(p, key), std::string(noun) + " " + std::to_string(idx) + " is not valid");
  }
}

void checkRule(const ordered_json& r, const std::string& p, const Checked& ck, const Current& cur) {
  onlyKeys(r, p,
           {"rule", "status", "fields", "actions", "out_actions", "car", "meter", "counter",
            "time_range"});
  statusOf(r, "valid", p, {"valid", "invalid"});
  if (r.contains("fields")) {
    const ordered_json& f = r["fields"];
    if (!f.is_object()) refuse(at(p, "fields"), "expected an object of NAME: VALUE");
    for (const auto& [name, v] : f.items()) {
      if (!v.is_string()) refuse(at(at(p, "fields"), name), "expected a string");
      std::string err;
      if (!aclclient::parseFieldAssignment(name + "=" + v.get<std::string>(), &err)) {
        refuse(at(at(p, "fields"), name), err);
      }
    }
  }
  for (const auto& [key, out] : {std::pair{"actions", false}, std::pair{"out_actions", true}}) {
    if (!r.contains(key)) continue;
    std::string err;
    if (!aclclient::parseActions(actionWords(r[key], at(p, key)), out, &err)) {
      refuse(at(p, key), err);
    }
  }
  if (r.contains("car") && r.contains("meter")) {
    refuse(at(p, "car"), "a rule has a CAR id or a meter, not both");
  }
  if (r.contains("car")) u32(r["car"], at(p, "car"));
  if (r.contains("time_range")) u32(r["time_range"], at(p, "time_range"));
  checkRef(r, "meter", "meters", "meter", p, ck, cur);
  checkRef(r, "counter", "counters", "counter", p, ck, cur);
}

void checkLists(const ordered_json& doc, Checked& ck, const Current& cur, TableSession& s) {
  const ordered_json& lists = arrayAt(doc, "lists", "");
  const uint32_t maxRules = s.getValue(wire::fid::aclScalarGetApi, 0, kScalarMaxListRules).value;
  std::map<std::string, uint32_t> names;
  for (size_t i = 0; i < lists.size(); ++i) {
    const std::string p = at("/lists", i);
    const ordered_json& l = lists[i];
    std::set<std::string> keys = {"list", "name", "rules"};
    for (const auto& o : aclclient::configListOptions()) keys.insert(o.key);
    onlyKeys(l, p, keys);
    if (!l.contains("list")) refuse(p, "needs a list number");
    const uint32_t lst = u32(l["list"], at(p, "list"), 1, 6000);
    if (!ck.lists.emplace(lst, i).second) {
      refuse(at(p, "list"), "list " + std::to_string(lst) + " appears twice");
    }
    if (l.contains("name")) {
      if (!l["name"].is_string() || l["name"].get<std::string>().empty() ||
          l["name"].get<std::string>().size() > kListNameMax) {
        refuse(at(p, "name"), "expected a name of 1 to 64 characters");
      }
      const std::string name = l["name"].get<std::string>();
      if (auto [it, fresh] = names.emplace(name, lst); !fresh) {
        refuse(at(p, "name"),
               "name \"" + name + "\" is also list " + std::to_string(it->second) + "'s");
      }
    }
    for (const auto& o : aclclient::configListOptions()) {
      if (l.contains(o.key)) u32(l[o.key], at(p, o.key));
    }
    const ordered_json& rules = arrayAt(l, "rules", p);
    if (rules.size() > maxRules) {
      refuse(at(p, "rules"), std::to_string(rules.size()) + " rules; a list holds at most " +
                                 std::to_string(maxRules));
    }
    std::set<uint32_t> seen;
    for (size_t n = 0; n < rules.size(); ++n) {
      const std::string rp = at(at(p, "rules"), n);
      if (!rules[n].is_object() || !rules[n].contains("rule")) refuse(rp, "needs a rule number");
      const uint32_t idx = u32(rules[n]["rule"], at(rp, "rule"), 1);
      if (!seen.insert(idx).second)
        refuse(at(rp, "rule"), "rule " + std::to_string(idx) + " appears twice");
      checkRule(rules[n], rp, ck, cur);
    }
  }
  // A name the document gives must not be another list's in the daemon.
  for (const auto& [lst, l] : cur.lists) {
    if (ck.lists.count(lst)) continue;
    const std::string name = (*l)["name"].get<std::string>();
    if (auto it = names.find(name); it != names.end()) {
      refuse(at(at("/lists", ck.lists.at(it->second)), "name"),
             "name \"" + name + "\" belongs to list " + std::to_string(lst) + " in the daemon");
    }
  }
}

// Counts against the daemon's limits: lists in all, rules per list type.
void checkCapacity(const ordered_json& doc, const Checked& ck, const Current& cur,
                   TableSession& s) {
  std::set<uint32_t> all;
  for (const auto& [lst, l] : cur.lists) all.insert(lst);
  for (const auto& [lst, i] : ck.lists) all.insert(lst);
  const uint32_t maxLists = s.getValue(wire::fid::aclScalarGetApi, 0, kScalarMaxLists).value;
  if (all.size() > maxLists) {
    refuse("/lists", "the daemon would hold " + std::to_string(all.size()) + " lists; at most " +
                         std::to_string(maxLists));
  }
  for (size_t col = 0; col < std::size(kTypeColumns); ++col) {
    const uint8_t type = kTypeColumns[col];
    int64_t used = s.getValue(wire::fid::aclScalarGetApi, 0, kScalarRuleNum + col * 2).value;
    const uint32_t max =
        s.getValue(wire::fid::aclScalarGetApi, 0, kScalarRuleNum + col * 2 + 1).value;
    for (const auto& [lst, i] : ck.lists) {
      if (aclclient::listTypeOfIndex(lst) != type) continue;
      if (auto c = cur.lists.find(lst); c != cur.lists.end()) used -= (*c->second)["rules"].size();
      used += arrayAt(doc["lists"][i], "rules", "").size();
    }
    if (used > max) {
      refuse("/lists", "the daemon would hold " + std::to_string(used) + " " +
                           aclclient::listTypeText(type) + " rules; at most " +
                           std::to_string(max));
    }
  }
}

bool listKnown(uint32_t lst, const Checked& ck, const Current& cur) {
  return ck.lists.count(lst) || cur.lists.count(lst);
}

void checkBindList(const ordered_json& v, const std::string& p, uint8_t slotType, const char* slot,
                   const Checked& ck, const Current& cur) {
  const uint32_t lst = u32(v, p);
  if (lst == 0) return;
  if (!listKnown(lst, ck, cur)) refuse(p, "list " + std::to_string(lst) + " does not exist");
  const uint8_t type = aclclient::listTypeOfIndex(lst);
  if (slotType != 0 && type != slotType) {
    refuse(p, "list " + std::to_string(lst) + " is an " + aclclient::listTypeText(type) +
                  " list; " + slot + " takes " + aclclient::listTypeText(slotType) + " lists");
  }
}

void checkGeneric(const ordered_json& scope, const std::string& p, const Checked& ck,
                  const Current& cur) {
  if (!scope.contains("generic")) return;
  onlyKeys(scope["generic"], at(p, "generic"), {"in", "out"});
  for (const auto& [dir, g] : scope["generic"].items()) {
    const std::string gp = at(at(p, "generic"), dir);
    onlyKeys(g, gp, {"list", "on"});
    if (g.contains("on") && !g["on"].is_boolean()) refuse(at(gp, "on"), "expected true or false");
    if (g.contains("list")) checkBindList(g["list"], at(gp, "list"), 0, "", ck, cur);
    if (g.value("on", false) && g.value("list", 0u) == 0) {
      refuse(gp, "a generic binding switched on needs a list");
    }
  }
}

void checkBindings(const ordered_json& doc, const Checked& ck, const Current& cur) {
  if (doc.contains("global")) {
    const ordered_json& g = doc["global"];
    onlyKeys(g, "/global", {"generic", "slots"});
    checkGeneric(g, "/global", ck, cur);
    if (g.contains("slots")) {
      if (!g["slots"].is_object()) refuse("/global/slots", "expected an object");
      for (const auto& [name, v] : g["slots"].items()) {
        const aclclient::GlobalSlot* slot = nullptr;
        for (const auto& s : aclclient::globalSlots()) {
          if (name == s.name) slot = &s;
        }
        if (slot == nullptr) refuse(at("/global/slots", name), "no such global slot");
        checkBindList(v, at("/global/slots", name), slot->listType, slot->name, ck, cur);
      }
    }
  }
  const ordered_json& ifs = arrayAt(doc, "interfaces", "");
  std::set<uint32_t> seen;
  for (size_t i = 0; i < ifs.size(); ++i) {
    const std::string p = at("/interfaces", i);
    onlyKeys(ifs[i], p, {"ifindex", "generic", "slots"});
    if (!ifs[i].contains("ifindex")) refuse(p, "needs an ifindex");
    const uint32_t ifIndex = u32(ifs[i]["ifindex"], at(p, "ifindex"));
    if (!seen.insert(ifIndex).second) {
      refuse(at(p, "ifindex"), "interface " + std::to_string(ifIndex) + " appears twice");
    }
    checkGeneric(ifs[i], p, ck, cur);
    if (!ifs[i].contains("slots")) continue;
    if (!ifs[i]["slots"].is_object()) refuse(at(p, "slots"), "expected an object");
    for (const auto& [name, v] : ifs[i]["slots"].items()) {
      const AclBindSlotDef* slot = nullptr;
      for (size_t n = ACL_BIND_SLOT_FIRST_TYPED; n < kAclBindSlots.size(); ++n) {
        if (name == kAclBindSlots[n].name) slot = &kAclBindSlots[n];
      }
      if (slot == nullptr) {
        refuse(at(at(p, "slots"), name), name == "inAcl" || name == "outAcl"
                                             ? "the untyped slots go under \"generic\""
                                             : "no such bind slot");
      }
      checkBindList(v, at(at(p, "slots"), name), slot->listType, slot->name, ck, cur);
    }
  }
}

void checkDocument(const ordered_json& doc, const Current& cur, TableSession& s, Checked& ck) {
  if (!doc.is_object()) refuse("/", "expected a JSON object");
  for (const auto& [k, v] : doc.items()) {
    if (k == "gem_ports" || k == "policies") {
      refuse(at("", k),
             "not supported by this version: GEM port bindings and traffic policies "
             "are not saved yet");
    }
  }
  onlyKeys(doc, "",
           {"version", "meters", "meter_profiles", "counters", "lists", "global", "interfaces"});
  if (!doc.contains("version")) refuse("/version", "missing");
  if (!doc["version"].is_number_integer() ||
      doc["version"].get<int64_t>() != aclclient::kConfigVersion) {
    refuse("/version", "this aclctl reads version " + std::to_string(aclclient::kConfigVersion));
  }
  checkTables(doc, ck);
  checkLists(doc, ck, cur, s);
  checkCapacity(doc, ck, cur, s);
  checkBindings(doc, ck, cur);
}

// --- plan and apply -------------------------------------------------------------------------

// One change of the daemon and the change that takes it back. undo must also be right after an
// apply that failed part way, since the failing step is undone too.
struct Step {
  std::string path;
  std::function<int32_t(std::string* what)> apply;
  std::function<void()> undo;
};

struct Tally {
  size_t created = 0, changed = 0, unchanged = 0, failed = 0;
};

// Equal as JSON values, whatever the order of the keys of their objects: a document written by
// hand or by another tool need not keep the order save writes.
bool same(const ordered_json& a, const ordered_json& b) {
  return nlohmann::json(a) == nlohmann::json(b);
}

// Whether every key that want gives has the value have holds.
bool sameGiven(const ordered_json& want, const ordered_json& have,
               std::initializer_list<const char*> skip = {}) {
  for (const auto& [k, v] : want.items()) {
    bool skipped = false;
    for (const char* s : skip) skipped = skipped || k == s;
    if (skipped) continue;
    if (!have.contains(k) || !same(have[k], v)) return false;
  }
  return true;
}

// A rule as the daemon would read it back: the defaults filled in, so that two rules compare by
// what they hold.
ordered_json normalRule(const ordered_json& r) {
  ordered_json n = r;
  if (!n.contains("status")) n["status"] = "valid";
  for (const char* k : {"fields", "actions", "out_actions"}) {
    if (n.contains(k) && n[k].empty()) n.erase(k);
  }
  return n;
}

class Loader {
 public:
  Loader(RuleClient& c, const Current& cur) : c_(c), s_(c.session()), cur_(cur) {}

  void plan(const ordered_json& doc, const Checked& ck);
  bool run(bool progress, std::string* failure);
  Tally tally;

 private:
  void planTable(const ConfigTable& t, const ordered_json& e, const std::string& path);
  void planList(const ordered_json& l, const std::string& path);
  void planScope(const ordered_json& want, const ordered_json& have, const std::string& path,
                 bool global, uint32_t ifIndex, bool fresh);

  int32_t fillTable(const ConfigTable& t, uint32_t idx, const ordered_json& e, bool create,
                    std::string* what);
  int32_t fillList(uint32_t lst, const ordered_json& l, std::string* what);
  int32_t buildRule(RuleRef r, const ordered_json& rule, std::string* what);
  int32_t setGeneric(bool global, uint32_t ifIndex, const aclclient::GenericSlot& g, uint32_t list,
                     bool on);
  void add(std::string path, std::function<int32_t(std::string*)> apply,
           std::function<void()> undo) {
    steps_.push_back({std::move(path), std::move(apply), std::move(undo)});
  }

  RuleClient& c_;
  TableSession& s_;
  const Current& cur_;
  std::vector<Step> steps_;
};

int32_t Loader::fillTable(const ConfigTable& t, uint32_t idx, const ordered_json& e, bool create,
                          std::string* what) {
  if (create) {
    *what = "create";
    if (int32_t ret = s_.setValue(t.setApi, idx, t.statusCmd, t.createStatus)) return ret;
  }
  if (t.nameCmd != 0 && e.contains("name")) {
    *what = "name";
    const std::string name = e["name"].get<std::string>();
    if (int32_t ret = s_.setBytes(t.setApi, idx, t.nameCmd, {name.begin(), name.end()})) return ret;
  }
  for (const auto& a : t.attrs) {
    if (!e.contains(a.key)) continue;
    *what = a.key;
    if (int32_t ret = s_.setValue(t.setApi, idx, a.cmd, e[a.key].get<uint32_t>())) return ret;
  }
  const std::string status = e.value("status", std::string("valid"));
  *what = "status";
  if (status == "valid") return s_.setValue(t.setApi, idx, t.statusCmd, t.validStatus);
  // Only a profile goes back from valid to created; a created meter or counter stays as it is.
  if (!create && t.statusCmd == 0) return s_.setValue(t.setApi, idx, t.statusCmd, 3);
  return 0;
}

int32_t Loader::fillList(uint32_t lst, const ordered_json& l, std::string* what) {
  if (l.contains("name")) {
    *what = "name";
    const std::string name = l["name"].get<std::string>();
    if (int32_t ret =
            s_.setBytes(wire::fid::aclLstSetApi, lst, kLstName, {name.begin(), name.end()}))
      return ret;
  }
  for (const auto& o : aclclient::configListOptions()) {
    if (!l.contains(o.key)) continue;
    *what = o.key;
    if (int32_t ret = s_.setValue(wire::fid::aclLstSetApi, lst, o.cmd, l[o.key].get<uint32_t>()))
      return ret;
  }
  return 0;
}

int32_t Loader::buildRule(RuleRef r, const ordered_json& rule, std::string* what) {
  // Creating an existing rule empties it, so a changed rule is built afresh like a new one.
  *what = "create";
  if (int32_t ret = c_.setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE)) return ret;
  auto send = [&](const aclclient::RuleSetCall& call) {
    return call.desc ? c_.setBytes(r, call.cmd, call.bytes) : c_.setValue(r, call.cmd, call.value);
  };
  if (rule.contains("fields")) {
    for (const auto& [name, v] : rule["fields"].items()) {
      *what = "fields/" + name;
      std::string err;
      const auto calls = aclclient::parseFieldAssignment(name + "=" + v.get<std::string>(), &err);
      for (const auto& call : calls.value_or(std::vector<aclclient::RuleSetCall>{})) {
        if (int32_t ret = send(call)) return ret;
      }
    }
  }
  for (const auto& [key, out] : {std::pair{"actions", false}, std::pair{"out_actions", true}}) {
    if (!rule.contains(key) || rule[key].empty()) continue;
    *what = key;
    std::string err;
    const auto req = aclclient::parseActions(actionWords(rule[key], ""), out, &err);
    if (!req) return ACL_RET_INVALID;
    if (int32_t ret =
            c_.setBytes(r, out ? ACL_RULE_CMD_OUTACTION : ACL_RULE_CMD_ACTION, req->bits)) {
      return ret;
    }
    if (!req->params.empty()) {
      if (int32_t ret = c_.setBytes(r, out ? ACL_RULE_CMD_OUTACTIONPARAM : ACL_RULE_CMD_ACTIONPARAM,
                                    req->params)) {
        return ret;
      }
    }
  }
  for (const auto& [key, cmd] :
       {std::pair{"car", ACL_RULE_CMD_CARID}, std::pair{"meter", ACL_RULE_CMD_METERID},
        std::pair{"counter", ACL_RULE_CMD_COUNTERID}, std::pair{"time_range", ACL_RULE_CMD_TRID}}) {
    if (!rule.contains(key)) continue;
    *what = key;
    if (int32_t ret = c_.setValue(r, cmd, rule[key].get<uint32_t>())) return ret;
  }
  if (rule.value("status", std::string("valid")) == "valid") {
    *what = "status";
    return c_.setValue(r, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID);
  }
  return 0;
}

// Puts a generic binding into the wanted state from whatever it is now: switched off first (a
// switched-on list cannot be replaced), then the list, then the switch.
int32_t Loader::setGeneric(bool global, uint32_t ifIndex, const aclclient::GenericSlot& g,
                           uint32_t list, bool on) {
  const uint32_t func = global ? wire::fid::aclScalarSetApi : wire::fid::aclIfSetApi;
  const uint32_t key = global ? 0 : ifIndex;
  const uint32_t listCmd = global ? g.scalarList : g.ifList;
  const uint32_t swCmd = global ? g.scalarSwitch : g.ifSwitch;
  const uint32_t offValue = global ? 0 : aclclient::kIfSwitchOff;
  const aclclient::ValueAnswer sw =
      s_.getValue(global ? wire::fid::aclScalarGetApi : wire::fid::aclIfGetApi, key, swCmd);
  if (sw.ret == 0 && sw.value == 1) {
    if (int32_t ret = s_.setValue(func, key, swCmd, offValue)) return ret;
  }
  if (int32_t ret = s_.setValue(func, key, listCmd, list)) return ret;
  if (on) return s_.setValue(func, key, swCmd, 1);
  return 0;
}

void Loader::planTable(const ConfigTable& t, const ordered_json& e, const std::string& path) {
  const uint32_t idx = e["index"].get<uint32_t>();
  const auto& have = cur_.tables.at(t.section);
  const auto it = have.find(idx);
  if (it == have.end()) {
    ++tally.created;
    add(
        path, [this, &t, idx, e](std::string* w) { return fillTable(t, idx, e, true, w); },
        [this, &t, idx] { s_.setValue(t.setApi, idx, t.statusCmd, t.deleteStatus); });
    return;
  }
  const ordered_json& old = *it->second;
  ordered_json want = e;
  if (!want.contains("status")) want["status"] = "valid";
  if (sameGiven(want, old)) {
    ++tally.unchanged;
    return;
  }
  if (t.statusCmd != 0 && want["status"] == "created" && old["status"] == "valid") {
    refuse(at(path, "status"), std::string(t.noun) + " " + std::to_string(idx) +
                                   " is valid in the daemon and cannot be made created again");
  }
  ++tally.changed;
  add(
      path, [this, &t, idx, want](std::string* w) { return fillTable(t, idx, want, false, w); },
      [this, &t, idx, old] {
        std::string w;
        fillTable(t, idx, old, false, &w);
      });
}

void Loader::planList(const ordered_json& l, const std::string& path) {
  const uint32_t lst = l["list"].get<uint32_t>();
  const ordered_json& rules = l.contains("rules") ? l["rules"] : ordered_json::array();
  const auto it = cur_.lists.find(lst);
  const ordered_json* have = it == cur_.lists.end() ? nullptr : it->second;
  std::map<uint32_t, const ordered_json*> haveRules;
  if (have != nullptr) {
    for (const auto& r : (*have)["rules"]) haveRules[r["rule"].get<uint32_t>()] = &r;
  }
  if (have == nullptr) {
    ++tally.created;
    add(
        path,
        [this, lst, l](std::string* w) {
          *w = "create";
          if (int32_t ret = s_.setValue(wire::fid::aclLstSetApi, lst, kLstStatus, kLstCreate))
            return ret;
          return fillList(lst, l, w);
        },
        [this, lst] { s_.setValue(wire::fid::aclLstSetApi, lst, kLstStatus, kLstDelete); });
  } else {
    // A bound list cannot change (the daemon refuses it while dynamic binding is off), so a
    // document that would change one is refused whole instead of half applied.
    bool differs = !sameGiven(l, *have, {"rules"}) || haveRules.size() != rules.size();
    for (const auto& r : rules) {
      const auto h = haveRules.find(r["rule"].get<uint32_t>());
      differs = differs || h == haveRules.end() || !same(normalRule(r), normalRule(*h->second));
    }
    if (differs && s_.getValue(wire::fid::aclLstGetApi, lst, kLstRefCnt).value != 0) {
      refuse(path, "list " + std::to_string(lst) +
                       " is bound in the daemon and would change; unbind it first");
    }
    if (sameGiven(l, *have, {"rules"})) {
      ++tally.unchanged;
    } else {
      ++tally.changed;
      add(
          path, [this, lst, l](std::string* w) { return fillList(lst, l, w); },
          [this, lst, old = *have] {
            std::string w;
            fillList(lst, old, &w);
          });
    }
  }
  std::set<uint32_t> wanted;
  for (size_t n = 0; n < rules.size(); ++n) {
    const ordered_json& r = rules[n];
    const RuleRef ref{lst, r["rule"].get<uint32_t>()};
    wanted.insert(ref.rule);
    const std::string rp = at(at(path, "rules"), n);
    const auto h = haveRules.find(ref.rule);
    if (h == haveRules.end()) {
      ++tally.created;
      add(
          rp, [this, ref, r](std::string* w) { return buildRule(ref, r, w); },
          [this, ref] { c_.setValue(ref, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_DELETE); });
    } else if (same(normalRule(r), normalRule(*h->second))) {
      ++tally.unchanged;
    } else {
      ++tally.changed;
      add(
          rp, [this, ref, r](std::string* w) { return buildRule(ref, r, w); },
          [this, ref, old = *h->second] {
            std::string w;
            buildRule(ref, old, &w);
          });
    }
  }
  // Rules the daemon's list has and the document's does not: the list becomes the document's.
  for (const auto& [idx, old] : haveRules) {
    if (wanted.count(idx)) continue;
    ++tally.changed;
    const RuleRef ref{lst, idx};
    add(
        at(path, "rules"),
        [this, ref](std::string* w) {
          *w = "delete rule " + std::to_string(ref.rule);
          return c_.setValue(ref, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_DELETE);
        },
        [this, ref, o = *old] {
          std::string w;
          buildRule(ref, o, &w);
        });
  }
}

// The global scope or one interface: generic bindings and typed slots made as want says.
void Loader::planScope(const ordered_json& want, const ordered_json& have, const std::string& path,
                       bool global, uint32_t ifIndex, bool fresh) {
  bool changed = fresh;
  const uint32_t func = global ? wire::fid::aclScalarSetApi : wire::fid::aclIfSetApi;
  const uint32_t key = global ? 0 : ifIndex;
  if (fresh) {
    add(
        path,
        [this, ifIndex](std::string* w) {
          *w = "create the interface record";
          if (int32_t ret = s_.setValue(wire::fid::aclIfSetApi, ifIndex, kIfRowStatus, kIfCreate))
            return ret;
          // The interface manager may keep no record for some interfaces and still say yes.
          return s_.getValue(wire::fid::aclIfGetApi, ifIndex, kIfRowStatus).ret;
        },
        [this, ifIndex] {
          s_.setValue(wire::fid::aclIfSetApi, ifIndex, kIfRowStatus, kIfDestroy);
        });
  }
  for (const aclclient::GenericSlot& g : aclclient::genericSlots()) {
    const ordered_json& h = have["generic"][g.dir];
    const uint32_t hList = h["list"].get<uint32_t>();
    const bool hOn = h["on"].get<bool>();
    uint32_t wList = hList;
    bool wOn = hOn;
    if (want.contains("generic") && want["generic"].contains(g.dir)) {
      const ordered_json& w = want["generic"][g.dir];
      wList = w.value("list", hList);
      wOn = w.value("on", hOn);
    }
    if (wList == hList && wOn == hOn) continue;
    changed = true;
    add(
        at(at(path, "generic"), g.dir),
        [this, global, ifIndex, &g, wList, wOn](std::string* w) {
          *w = std::string("generic ") + g.dir;
          return setGeneric(global, ifIndex, g, wList, wOn);
        },
        [this, global, ifIndex, &g, hList, hOn] { setGeneric(global, ifIndex, g, hList, hOn); });
  }
  if (want.contains("slots")) {
    auto slotStep = [&](const char* name, uint32_t cmd) {
      const uint32_t hList = have["slots"].value(name, 0u);
      const uint32_t wList = want["slots"].value(name, 0u);
      if (hList == wList) return;
      changed = true;
      // Emptied before it takes another list, so a replacement never holds both at once.
      auto put = [this, func, key, cmd](uint32_t from, uint32_t to) {
        if (from != 0 && to != 0) {
          if (int32_t ret = s_.setValue(func, key, cmd, 0)) return ret;
        }
        return s_.setValue(func, key, cmd, to);
      };
      add(
          at(at(path, "slots"), name),
          [put, hList, wList, name](std::string* w) {
            *w = std::string("bind ") + name;
            return put(hList, wList);
          },
          [put, hList, wList] { put(wList, hList); });
    };
    if (global) {
      for (const auto& gs : aclclient::globalSlots()) slotStep(gs.name, gs.cmd);
    } else {
      for (size_t n = ACL_BIND_SLOT_FIRST_TYPED; n < kAclBindSlots.size(); ++n) {
        slotStep(kAclBindSlots[n].name, kAclBindSlots[n].ifCmd);
      }
    }
  }
  if (fresh) {
    ++tally.created;
  } else if (changed) {
    ++tally.changed;
  } else {
    ++tally.unchanged;
  }
}

void Loader::plan(const ordered_json& doc, const Checked&) {
  for (const ConfigTable& t : aclclient::configTables()) {
    const ordered_json& entries = arrayAt(doc, t.section, "");
    for (size_t i = 0; i < entries.size(); ++i) {
      planTable(t, entries[i], at(std::string("/") + t.section, i));
    }
  }
  const ordered_json& lists = arrayAt(doc, "lists", "");
  for (size_t i = 0; i < lists.size(); ++i) planList(lists[i], at("/lists", i));
  if (doc.contains("global")) {
    planScope(doc["global"], cur_.doc["global"], "/global", true, 0, false);
  }
  const ordered_json& ifs = arrayAt(doc, "interfaces", "");
  for (size_t i = 0; i < ifs.size(); ++i) {
    const uint32_t ifIndex = ifs[i]["ifindex"].get<uint32_t>();
    const auto it = cur_.interfaces.find(ifIndex);
    // A new record starts with every slot empty and both switches off.
    static const ordered_json empty = {
        {"generic", {{"in", {{"list", 0}, {"on", false}}}, {"out", {{"list", 0}, {"on", false}}}}},
        {"slots", ordered_json::object()}};
    planScope(ifs[i], it == cur_.interfaces.end() ? empty : *it->second, at("/interfaces", i),
              false, ifIndex, it == cur_.interfaces.end());
  }
}

bool Loader::run(bool progress, std::string* failure) {
  const size_t n = steps_.size();
  for (size_t i = 0; i < n; ++i) {
    std::string what;
    const int32_t ret = steps_[i].apply(&what);
    if (progress && (i % 64 == 0 || i + 1 == n)) {
      std::cout << "\rload: " << i + 1 << "/" << n << " changes" << std::flush;
    }
    if (ret == 0) continue;
    if (progress) std::cout << std::endl;
    *failure = steps_[i].path + ": " + what + ": " + aclclient::ruleRetText(ret);
    ++tally.failed;
    for (size_t j = i + 1; j-- > 0;) steps_[j].undo();
    return false;
  }
  if (progress && n > 0) std::cout << std::endl;
  return true;
}

void load(const AclctlGlobals& globals, const std::string& file) {
  std::ifstream in(file == "-" ? "/dev/stdin" : file);
  if (!in) throw AclctlExit(kAclctlExitUsage, "cannot read " + file);
  const ordered_json doc = ordered_json::parse(in, nullptr, false);
  if (doc.is_discarded()) throw AclctlExit(kAclctlExitUsage, file + ": not a JSON document");

  RuleClient c(globals);
  Current cur;
  cur.doc = aclclient::readConfig(c);
  indexCurrent(cur);
  Loader loader(c, cur);
  try {
    Checked ck;
    checkDocument(doc, cur, c.session(), ck);
    loader.plan(doc, ck);
  } catch (const Refusal& r) {
    throw AclctlExit(kAclctlExitFailed, "load " + file + ": refused at " + r.path + ": " + r.text +
                                            "; nothing applied");
  }
  std::string failure;
  const bool ok = loader.run(isatty(STDOUT_FILENO) == 1, &failure);
  const Tally& t = loader.tally;
  if (globals.json) {
    ordered_json j = {{"created", t.created},
                      {"changed", t.changed},
                      {"unchanged", t.unchanged},
                      {"failed", t.failed}};
    if (!ok) j["error"] = failure;
    std::cout << j.dump() << std::endl;
  } else {
    std::cout << "load: " << t.created << " created, " << t.changed << " changed, " << t.unchanged
              << " unchanged, " << t.failed << " failed" << std::endl;
  }
  if (!ok) {
    throw AclctlExit(kAclctlExitFailed,
                     "load " + file + ": " + failure + "; undone, nothing applied");
  }
}

}  // namespace

void aclctlAddLoadCommand(CLI::App& app, AclctlGlobals& globals) {
  auto file = std::make_shared<std::string>();
  auto* cmd = app.add_subcommand(
      "load", "Make the daemon hold a saved configuration (all or nothing; docs/CONFIG.md)");
  cmd->add_option("FILE", *file, "the document (- for standard input)")->required();
  cmd->callback([&globals, file] { load(globals, *file); });
}
