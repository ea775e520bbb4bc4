// aclctl if ...: interface records and their bind slots (function ids 14 to 20) and interface
// statistics (26 to 30). A bind names its slot by direction and list type; without a type it uses
// the untyped slot of the direction and its switch.
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_common.h"
#include "client/aclctl_views.h"
#include "client/dev_client.h"
#include "client/table_session.h"
#include "hw/acl_bind_slot.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kCmdOutCtrl = 1;
constexpr uint32_t kCmdInCtrl = 2;
constexpr uint32_t kCmdRowStatus = 17;
constexpr uint32_t kCtrlOn = 1;
constexpr uint32_t kCtrlOff = 2;

constexpr size_t kLstKeyLen = 20;
constexpr size_t kStatsIfAt = 8;
constexpr size_t kStatsDirAt = 22;
constexpr size_t kStatsFilterAt = 24;
constexpr uint8_t kStatsFilterIf = 0x20;  // bit 2

// The list type a list number carries, by its range.
const char* listTypeOf(uint32_t lst) {
  if (lst <= 1000) return "l2";
  if (lst <= 2000) return "ipv4";
  if (lst <= 3000) return "hybrid";
  if (lst <= 4000) return "ipv6";
  if (lst <= 5000) return "mpls";
  return "udf";
}

struct IfArgs {
  uint32_t ifIndex = 0;
  std::optional<uint32_t> ifOpt;
  std::string dir;
  std::string type;  // empty: the untyped slot
  uint32_t lst = 0;
  bool all = false;
};

uint32_t dirCode(const std::string& dir) {
  for (uint32_t d = 0; d < std::size(kDirNames); ++d) {
    if (dir == kDirNames[d]) return d;
  }
  throw AclctlExit(kAclctlExitUsage, "direction is in, out or vfp, not '" + dir + "'");
}

// The slot a direction and list type name; the untyped slot when type is empty.
const AclBindSlotDef& slotFor(const std::string& dirText, const std::string& type) {
  const uint32_t dir = dirCode(dirText);
  for (const AclBindSlotDef& s : kAclBindSlots) {
    if (s.dir != dir) continue;
    if (type.empty() ? s.cls == AclSlotClass::Untyped
                     : s.cls != AclSlotClass::Untyped && type == kListTypeNames[s.listType]) {
      return s;
    }
  }
  if (type.empty()) throw AclctlExit(kAclctlExitUsage, "vfp has no untyped slot: name a list type");
  throw AclctlExit(kAclctlExitUsage, "no " + dirText + " slot for list type '" + type +
                                         "' (l2, ipv4, ipv6, hybrid, mpls, udf)");
}

// The system and slot of an interface as the device knows it, or "".
std::string slotOfInterface(const AclctlGlobals& g, uint32_t ifIndex) {
  nlohmann::json reply;
  std::string err;
  if (!aclclient::devRequest(aclclient::devSocketPath(g.runDir), {{"op", "show"}}, &reply, &err,
                             2000)) {
    return "";
  }
  for (const char* section : {"interfaces", "aggregations"}) {
    const auto& m = reply["model"][section];
    if (!m.is_array()) continue;
    for (const auto& i : m) {
      if (i.value("index", 0u) == ifIndex) {
        return std::to_string(i.value("system", 0u)) + "/" + std::to_string(i.value("slot", 0u));
      }
    }
  }
  return "";
}

// A refused set, with the cause named where the code tells it.
[[noreturn]] void refused(const AclctlGlobals& g, const std::string& what, int32_t ret,
                          uint32_t ifIndex, uint32_t lst, const std::string& slotText) {
  std::string cause;
  if (ret == ACL_ERR_LIST_NOT_EXIST) {
    cause = "list " + std::to_string(lst) + " does not exist";
  } else if (ret == ACL_ERR_IF_NOT_EXIST) {
    cause = "interface " + std::to_string(ifIndex) + " has no record (aclctl if create " +
            std::to_string(ifIndex) + ")";
  } else if (ret == ACL_ERR_SLOT_RULE_FULL) {
    const std::string where = slotOfInterface(g, ifIndex);
    cause = (where.empty() ? "the slot of interface " + std::to_string(ifIndex) : "slot " + where) +
            " is full for " + slotText;
  } else if (ret == CMN_ERR_BAD_PARAM && lst != 0) {
    cause = "list " + std::to_string(lst) + " is an " + listTypeOf(lst) +
            " list and does not fit that slot";
  } else if (ret == ACL_RET_IF_LIST_ACTIVE) {
    cause = "the untyped slot is switched on; unbind it first";
  }
  throw AclctlExit(kAclctlExitFailed,
                   what + ": " + (cause.empty() ? "" : cause + ": ") + aclclient::retText(ret));
}

void create(const AclctlGlobals& g, const IfArgs& a) {
  aclclient::TableSession s(g);
  const std::string what = "create interface " + std::to_string(a.ifIndex);
  if (int32_t ret = s.setValue(wire::fid::aclIfSetApi, a.ifIndex, kCmdRowStatus, kRowCreate)) {
    refused(g, what, ret, a.ifIndex, 0, "");
  }
  // The interface manager may keep no record for some interfaces and still say yes.
  if (s.getValue(wire::fid::aclIfGetApi, a.ifIndex, kCmdRowStatus).ret != 0) {
    throw AclctlExit(kAclctlExitFailed, what + ": the interface takes no lists");
  }
  reportOk(g, "created interface " + std::to_string(a.ifIndex));
}

void remove(const AclctlGlobals& g, const IfArgs& a) {
  aclclient::TableSession s(g);
  const std::string what = "delete interface " + std::to_string(a.ifIndex);
  if (int32_t ret = s.setValue(wire::fid::aclIfSetApi, a.ifIndex, kCmdRowStatus, kRowDestroy)) {
    refused(g, what, ret, a.ifIndex, 0, "");
  }
  if (s.getValue(wire::fid::aclIfGetApi, a.ifIndex, kCmdRowStatus).ret == 0) {
    throw AclctlExit(kAclctlExitFailed, what + ": lists are still bound to it");
  }
  reportOk(g, "deleted interface " + std::to_string(a.ifIndex));
}

void bind(const AclctlGlobals& g, const IfArgs& a) {
  const AclBindSlotDef& slot = slotFor(a.dir, a.type);
  aclclient::TableSession s(g);
  const std::string what =
      "bind list " + std::to_string(a.lst) + " to " + std::to_string(a.ifIndex) + " " + slot.name;
  const std::string slotText =
      std::string(slot.cls == AclSlotClass::Untyped ? listTypeOf(a.lst)
                                                    : kListTypeNames[slot.listType]) +
      " " + dirName(slot.dir);
  if (s.getValue(wire::fid::aclLstGetApi, a.lst, kLstCmdStatus).ret == ACL_ERR_LIST_NOT_EXIST) {
    refused(g, what, ACL_ERR_LIST_NOT_EXIST, a.ifIndex, a.lst, slotText);
  }
  if (int32_t ret = s.setValue(wire::fid::aclIfSetApi, a.ifIndex, slot.ifCmd, a.lst)) {
    refused(g, what, ret, a.ifIndex, a.lst, slotText);
  }
  if (slot.cls == AclSlotClass::Untyped) {
    if (int32_t ret = s.setValue(wire::fid::aclIfSetApi, a.ifIndex, slot.ctrlCmd, kCtrlOn)) {
      refused(g, what, ret, a.ifIndex, a.lst, slotText);
    }
  }
  reportOk(g, "bound list " + std::to_string(a.lst) + " to interface " + std::to_string(a.ifIndex) +
                  " " + slot.name);
}

void unbind(const AclctlGlobals& g, const IfArgs& a) {
  const AclBindSlotDef& slot = slotFor(a.dir, a.type);
  aclclient::TableSession s(g);
  const std::string what = "unbind " + std::to_string(a.ifIndex) + " " + slot.name;
  int32_t ret = 0;
  if (slot.cls == AclSlotClass::Untyped) {
    // Switching off takes the list off and empties the slot; a slot set but never switched on
    // is emptied directly.
    const auto ctrl = s.getValue(wire::fid::aclIfGetApi, a.ifIndex, slot.ctrlCmd);
    ret = ctrl.ret == 0 && ctrl.value == kCtrlOn
              ? s.setValue(wire::fid::aclIfSetApi, a.ifIndex, slot.ctrlCmd, kCtrlOff)
              : s.setValue(wire::fid::aclIfSetApi, a.ifIndex, slot.ifCmd, 0);
  } else {
    ret = s.setValue(wire::fid::aclIfSetApi, a.ifIndex, slot.ifCmd, 0);
  }
  if (ret != 0) refused(g, what, ret, a.ifIndex, 0, "");
  reportOk(g, "unbound interface " + std::to_string(a.ifIndex) + " " + slot.name);
}

struct BindEntry {
  uint32_t lst, dir, ifIndex, kind, rule;
  std::string owner = "?";
  uint32_t refcount = 0;
};

// Who made each entry and its users, which the walk's key does not carry: asked of the daemon's
// control socket.
void ownersOf(const AclctlGlobals& g, std::vector<BindEntry>& entries) {
  nlohmann::json reply;
  std::string err;
  if (!aclclient::devRequest(aclclient::devSocketPath(g.runDir), {{"op", "bindlist"}}, &reply, &err,
                             2000) ||
      !reply.value("ok", false) || !reply["entries"].is_array()) {
    return;
  }
  for (BindEntry& e : entries) {
    for (const auto& o : reply["entries"]) {
      if (o.value("ifIndex", 0u) == e.ifIndex && o.value("kind", 0u) == e.kind &&
          o.value("dir", 0u) == e.dir && o.value("list", 0u) == e.lst &&
          o.value("rule", 0u) == e.rule) {
        e.owner = o.value("owner", std::string("?"));
        e.refcount = o.value("refcount", 0u);
      }
    }
  }
}

std::vector<BindEntry> bindEntries(aclclient::TableSession& s) {
  std::vector<BindEntry> out;
  wire::Request req;
  req.funcId = wire::fid::aclIfLstGetFirst;
  req.keyShape = wire::KeyShape::Bytes;
  req.key.assign(kLstKeyLen, 0);
  wire::Response resp = s.call(req);
  while (resp.result == 0 && resp.key.size() == kLstKeyLen) {
    const auto& k = resp.key;
    out.push_back({be::load32(k, 0), be::load32(k, 4), be::load32(k, 8), be::load32(k, 12),
                   be::load32(k, 16)});
    // A daemon that answers the same key again would walk for ever.
    if (out.size() > 1'000'000) break;
    req.funcId = wire::fid::aclIfLstGetNext;
    req.key = k;
    const std::vector<uint8_t> cur = k;
    resp = s.call(req);
    if (resp.result == 0 && resp.key == cur) break;
  }
  return out;
}

ordered_json describe(aclclient::TableSession& s, uint32_t ifIndex,
                      const std::vector<BindEntry>& entries) {
  ordered_json j = {{"ifIndex", ifIndex}};
  const auto status = s.getValue(wire::fid::aclIfGetApi, ifIndex, kCmdRowStatus);
  if (status.ret != 0) {
    j["error"] = aclclient::retText(status.ret);
    return j;
  }
  j["rowStatus"] = status.value;
  j["inCtrl"] =
      s.getValue(wire::fid::aclIfGetApi, ifIndex, kCmdInCtrl).value == kCtrlOn ? "on" : "off";
  j["outCtrl"] =
      s.getValue(wire::fid::aclIfGetApi, ifIndex, kCmdOutCtrl).value == kCtrlOn ? "on" : "off";
  ordered_json slots = ordered_json::object();
  for (const AclBindSlotDef& def : kAclBindSlots) {
    const auto v = s.getValue(wire::fid::aclIfGetApi, ifIndex, def.ifCmd);
    if (v.ret == 0 && v.value != 0) slots[def.name] = v.value;
  }
  j["slots"] = slots;
  ordered_json binds = ordered_json::array();
  for (const BindEntry& e : entries) {
    if (e.ifIndex != ifIndex) continue;
    binds.push_back({{"list", e.lst},
                     {"rule", e.rule},
                     {"kind", kindName(e.kind)},
                     {"dir", dirName(e.dir)},
                     {"owner", e.owner},
                     {"refcount", e.refcount}});
  }
  j["bindings"] = binds;
  return j;
}

}  // namespace

ordered_json aclctlIfRows(const AclctlGlobals& g) {
  aclclient::TableSession s(g);
  const std::vector<uint32_t> ifs = s.walk(wire::fid::aclIfGetFirst, wire::fid::aclIfGetNext);
  const std::vector<BindEntry> entries = bindEntries(s);
  ordered_json rows = ordered_json::array();
  for (uint32_t i : ifs) rows.push_back(describe(s, i, entries));
  return rows;
}

namespace {

void show(const AclctlGlobals& g, const IfArgs& a) {
  aclclient::TableSession s(g);
  std::vector<uint32_t> ifs;
  if (a.ifOpt) {
    ifs.push_back(*a.ifOpt);
  } else {
    ifs = s.walk(wire::fid::aclIfGetFirst, wire::fid::aclIfGetNext);
  }
  std::vector<BindEntry> entries = bindEntries(s);
  ownersOf(g, entries);
  std::vector<ordered_json> rows;
  for (uint32_t i : ifs) rows.push_back(describe(s, i, entries));
  if (a.ifOpt && rows[0].contains("error")) {
    throw AclctlExit(kAclctlExitFailed, "interface " + std::to_string(*a.ifOpt) + ": " +
                                            rows[0]["error"].get<std::string>());
  }
  if (g.json) {
    std::cout << ordered_json{{"interfaces", rows}}.dump() << std::endl;
    return;
  }
  if (rows.empty()) std::printf("no interface records\n");
  for (const auto& r : rows) {
    std::printf("interface %u  status %u  in %s  out %s\n", r["ifIndex"].get<uint32_t>(),
                r["rowStatus"].get<uint32_t>(), r["inCtrl"].get<std::string>().c_str(),
                r["outCtrl"].get<std::string>().c_str());
    for (const auto& [name, v] : r["slots"].items()) {
      std::printf("  %-15s list %u\n", name.c_str(), v.get<uint32_t>());
    }
    for (const auto& b : r["bindings"]) {
      std::printf("  bound: list %u rule %u  %s %s  owner %s refcount %u\n",
                  b["list"].get<uint32_t>(), b["rule"].get<uint32_t>(),
                  b["kind"].get<std::string>().c_str(), b["dir"].get<std::string>().c_str(),
                  b["owner"].get<std::string>().c_str(), b["refcount"].get<uint32_t>());
    }
  }
}

wire::Request statsRequest(uint32_t funcId, const std::vector<uint8_t>& key, uint32_t cmd = 0) {
  wire::Request req;
  req.funcId = funcId;
  req.cmd = cmd;
  req.keyShape = wire::KeyShape::Bytes;
  req.key = key;
  return req;
}

void statsShow(const AclctlGlobals& g, const IfArgs& a) {
  aclclient::TableSession s(g);
  std::vector<uint8_t> key(kStatsIndexLen, 0);
  if (a.ifOpt) {
    be::store32(key, kStatsIfAt, *a.ifOpt);
    key[kStatsFilterAt] = kStatsFilterIf;
  }
  std::vector<ordered_json> rows;
  wire::Response resp = s.call(statsRequest(wire::fid::aclIfStatsGetFirst, key));
  while (resp.result == 0 && resp.key.size() == kStatsIndexLen) {
    const std::vector<uint8_t> cur = resp.key;
    ordered_json row = {{"ifIndex", be::load32(cur, kStatsIfAt)},
                        {"list", be::load32(cur, 0)},
                        {"rule", be::load32(cur, 4)},
                        {"dir", dirName(be::load16(cur, kStatsDirAt))}};
    wire::Request get = statsRequest(wire::fid::aclIfStatsGetApi, cur, 1);
    get.bufShape = wire::BufShape::Desc;
    get.descCapacity = kStatsAnswerLen;
    const wire::Response r = s.call(get);
    if (r.result != 0 || r.data.size() < kStatsAnswerLen) {
      row["error"] = aclclient::retText(r.result);
    } else {
      for (size_t i = 0; i < std::size(kCounterNames); ++i) {
        row[kCounterNames[i]] = be::load64(r.data, 8 * i);
      }
    }
    rows.push_back(row);
    resp = s.call(statsRequest(wire::fid::aclIfStatsGetNext, cur));
    if (resp.result == 0 && resp.key == cur) break;
  }
  if (resp.result != 0 && resp.result != CMN_ERR_NOT_FOUND) {
    throw AclctlExit(kAclctlExitFailed,
                     "interface statistics walk: " + aclclient::retText(resp.result));
  }
  if (g.json) {
    std::cout << ordered_json{{"stats", rows}}.dump() << std::endl;
    return;
  }
  if (rows.empty()) std::printf("no interface statistics\n");
  for (const auto& r : rows) {
    std::printf("interface %u filter %u/%u %-3s", r["ifIndex"].get<uint32_t>(),
                r["list"].get<uint32_t>(), r["rule"].get<uint32_t>(),
                r["dir"].get<std::string>().c_str());
    if (r.contains("error")) {
      std::printf("  unreadable: %s\n", r["error"].get<std::string>().c_str());
      continue;
    }
    for (const char* n : kCounterNames) {
      std::printf("  %s=%llu", n, static_cast<unsigned long long>(r[n].get<uint64_t>()));
    }
    std::printf("\n");
  }
}

void statsClear(const AclctlGlobals& g, const IfArgs& a) {
  if (a.all == a.ifOpt.has_value()) {
    throw AclctlExit(kAclctlExitUsage, "give an interface or --all");
  }
  std::vector<uint8_t> key(kStatsIndexLen, 0);
  be::store32(key, kStatsIfAt, a.ifOpt.value_or(0));
  aclclient::TableSession s(g);
  wire::Request req = statsRequest(wire::fid::aclIfStatsSetApi, key, 6);
  req.bufShape = wire::BufShape::Value;
  const int32_t ret = s.call(req).result;
  const std::string what =
      a.all ? "all interface statistics" : "statistics of interface " + std::to_string(*a.ifOpt);
  if (ret != 0)
    throw AclctlExit(kAclctlExitFailed, "clear " + what + ": " + aclclient::retText(ret));
  reportOk(g, "cleared " + what);
}

}  // namespace

void aclctlAddIfCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* cmd = app.add_subcommand("if", "Interface records, their bind slots and statistics");
  cmd->require_subcommand(1);
  auto a = std::make_shared<IfArgs>();

  auto* create_ = cmd->add_subcommand("create", "Create the interface's record");
  create_->add_option("ifindex", a->ifIndex, "interface index")->required();
  create_->callback([&globals, a] { create(globals, *a); });

  auto* delete_ =
      cmd->add_subcommand("delete", "Delete the record of an interface with nothing bound");
  delete_->add_option("ifindex", a->ifIndex, "interface index")->required();
  delete_->callback([&globals, a] { remove(globals, *a); });

  auto* bind_ = cmd->add_subcommand("bind", "Bind a list: IFINDEX DIR [TYPE] LIST");
  auto wordsOwner = std::make_shared<std::vector<std::string>>();
  bind_->add_option("args", *wordsOwner, "IFINDEX in|out|vfp [l2|ipv4|ipv6|hybrid|mpls|udf] LIST")
      ->required()
      ->expected(3, 4);
  bind_->callback([&globals, a, wordsOwner] {
    const auto& w = *wordsOwner;
    try {
      a->ifIndex = static_cast<uint32_t>(std::stoul(w[0]));
      a->lst = static_cast<uint32_t>(std::stoul(w.back()));
    } catch (const std::exception&) {
      throw AclctlExit(kAclctlExitUsage, "interface and list are numbers");
    }
    a->dir = w[1];
    a->type = w.size() == 4 ? w[2] : "";
    bind(globals, *a);
  });

  auto* unbind_ = cmd->add_subcommand("unbind", "Take the list off a slot: IFINDEX DIR [TYPE]");
  unbind_->add_option("ifindex", a->ifIndex, "interface index")->required();
  unbind_->add_option("dir", a->dir, "in, out or vfp")->required();
  unbind_->add_option("type", a->type, "list type of the slot; none for the untyped slot");
  unbind_->callback([&globals, a] { unbind(globals, *a); });

  auto* show_ = cmd->add_subcommand("show", "Show one interface, or every one, with its slots");
  show_->add_option("ifindex", a->ifOpt, "interface index");
  show_->callback([&globals, a] { show(globals, *a); });

  auto* stats = cmd->add_subcommand("stats", "Interface statistics");
  stats->require_subcommand(1);
  auto* sshow = stats->add_subcommand("show", "Walk the interface statistics and read them");
  sshow->add_option("ifindex", a->ifOpt, "only this interface's records");
  sshow->callback([&globals, a] { statsShow(globals, *a); });
  auto* sclear = stats->add_subcommand("clear", "Clear one interface's statistics, or all");
  sclear->add_option("ifindex", a->ifOpt, "interface index");
  sclear->add_flag("--all", a->all, "every interface");
  sclear->callback([&globals, a] { statsClear(globals, *a); });

  aclctlAddIfPolicyCommands(*cmd, globals);
}
