// aclctl gem ...: GEM port records of ONUs behind PON interfaces, their bind slots and
// bind-list entries (function ids 75 to 81), and GEM port statistics (82 to 86). A GEM port is
// named IFINDEX/ONU/GEMPORT; a bind names its slot by direction and list type.
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
#include "client/table_session.h"
#include "hw/acl_bind_slot.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kGemCmdRowStatus = 1;

constexpr size_t kKeyLen = 12;
constexpr size_t kGemLstKeyLen = 24;

struct Gem {
  uint32_t ifIndex = 0;
  uint32_t onu = 0;
  uint32_t gem = 0;
  std::string text() const {
    return std::to_string(ifIndex) + "/" + std::to_string(onu) + "/" + std::to_string(gem);
  }
};

struct GemArgs {
  std::string where;  // IFINDEX/ONU/GEMPORT
  std::optional<std::string> whereOpt;
  std::string dir, type;
  uint32_t lst = 0;
  bool all = false;
};

Gem parseGem(const std::string& text) {
  Gem g;
  unsigned long v[3] = {};
  size_t pos = 0;
  try {
    for (int i = 0; i < 3; ++i) {
      size_t used = 0;
      v[i] = std::stoul(text.substr(pos), &used);
      pos += used;
      if (i < 2) {
        if (pos >= text.size() || text[pos] != '/') throw std::invalid_argument("slash");
        ++pos;
      }
    }
  } catch (const std::exception&) {
    pos = std::string::npos;
  }
  if (pos != text.size() || v[0] > UINT32_MAX || v[1] > 0xFFFF || v[2] > 0xFFFF) {
    throw AclctlExit(
        kAclctlExitUsage,
        "a GEM port is IFINDEX/ONU/GEMPORT (ONU and GEM port up to 65535), not '" + text + "'");
  }
  g.ifIndex = static_cast<uint32_t>(v[0]);
  g.onu = static_cast<uint32_t>(v[1]);
  g.gem = static_cast<uint32_t>(v[2]);
  return g;
}

std::vector<uint8_t> keyOf(const Gem& g) {
  std::vector<uint8_t> k(kKeyLen, 0);
  be::store32(k, 0, g.ifIndex);
  be::store16(k, 4, static_cast<uint16_t>(g.onu));
  be::store16(k, 6, static_cast<uint16_t>(g.gem));
  return k;
}

// The command of a slot: 2 to 13 the typed slots in table order, 21 to 26 the pre-stage ones.
uint32_t gemCmd(size_t slotPos) {
  return slotPos < ACL_BIND_SLOT_FIRST_VFP
             ? static_cast<uint32_t>(slotPos)
             : static_cast<uint32_t>(21 + slotPos - ACL_BIND_SLOT_FIRST_VFP);
}

// The position in kAclBindSlots of the slot a direction and list type name.
size_t gemSlotFor(const std::string& dirText, const std::string& type) {
  uint32_t dir = 3;
  for (uint32_t d = 0; d < std::size(kDirNames); ++d) {
    if (dirText == kDirNames[d]) dir = d;
  }
  if (dir == 3)
    throw AclctlExit(kAclctlExitUsage, "direction is in, out or vfp, not '" + dirText + "'");
  for (size_t i = ACL_BIND_SLOT_FIRST_TYPED; i < kAclBindSlots.size(); ++i) {
    const AclBindSlotDef& s = kAclBindSlots[i];
    if (s.dir == dir && type == kListTypeNames[s.listType]) return i;
  }
  throw AclctlExit(kAclctlExitUsage, "no " + dirText + " slot for list type '" + type +
                                         "' (l2, ipv4, ipv6, hybrid, mpls, udf)");
}

wire::Request gemKeyed(uint32_t funcId, const std::vector<uint8_t>& key, uint32_t cmd = 0) {
  wire::Request req;
  req.funcId = funcId;
  req.cmd = cmd;
  req.keyShape = wire::KeyShape::Bytes;
  req.key = key;
  return req;
}

int32_t setWord(aclclient::TableSession& s, const Gem& g, uint32_t cmd, uint32_t value) {
  wire::Request req = gemKeyed(wire::fid::aclGemPortSetApi, keyOf(g), cmd);
  req.bufShape = wire::BufShape::Value;
  req.bufValue = value;
  return s.call(req).result;
}

aclclient::ValueAnswer getWord(aclclient::TableSession& s, const Gem& g, uint32_t cmd) {
  wire::Request req = gemKeyed(wire::fid::aclGemPortGetApi, keyOf(g), cmd);
  req.bufShape = wire::BufShape::Value;
  const wire::Response r = s.call(req);
  return {r.result, r.result == 0 ? r.bufValue : 0};
}

[[noreturn]] void refused(const std::string& what, int32_t ret, const Gem& g, uint32_t lst) {
  std::string cause;
  if (ret == ACL_ERR_LIST_NOT_EXIST) {
    cause = "list " + std::to_string(lst) + " does not exist";
  } else if (ret == ACL_ERR_IF_NOT_EXIST) {
    cause = "GEM port " + g.text() + " has no record (aclctl gem create " + g.text() + ")";
  } else if (ret == ACL_ERR_SLOT_RULE_FULL) {
    cause = "the slot of interface " + std::to_string(g.ifIndex) + " is full";
  } else if (ret == CMN_ERR_BAD_PARAM && lst != 0) {
    cause = "list " + std::to_string(lst) + " does not fit that slot";
  } else if (ret == CMN_ERR_BAD_PARAM) {
    cause = "ONU and GEM port may not both be 0";
  }
  throw AclctlExit(kAclctlExitFailed,
                   what + ": " + (cause.empty() ? "" : cause + ": ") + aclclient::retText(ret));
}

void create(const AclctlGlobals& glob, const GemArgs& a) {
  const Gem g = parseGem(a.where);
  aclclient::TableSession s(glob);
  const std::string what = "create GEM port " + g.text();
  if (int32_t ret = setWord(s, g, kGemCmdRowStatus, kRowCreate)) refused(what, ret, g, 0);
  if (getWord(s, g, kGemCmdRowStatus).ret != 0) {
    throw AclctlExit(kAclctlExitFailed, what + ": the interface takes no GEM port records");
  }
  reportOk(glob, "created GEM port " + g.text());
}

void remove(const AclctlGlobals& glob, const GemArgs& a) {
  const Gem g = parseGem(a.where);
  aclclient::TableSession s(glob);
  const std::string what = "delete GEM port " + g.text();
  if (getWord(s, g, kGemCmdRowStatus).ret != 0) refused(what, ACL_ERR_IF_NOT_EXIST, g, 0);
  if (int32_t ret = setWord(s, g, kGemCmdRowStatus, kRowDestroy)) refused(what, ret, g, 0);
  if (getWord(s, g, kGemCmdRowStatus).ret == 0) {
    throw AclctlExit(kAclctlExitFailed, what + ": lists are still bound to it");
  }
  reportOk(glob, "deleted GEM port " + g.text());
}

void bind(const AclctlGlobals& glob, const GemArgs& a) {
  const Gem g = parseGem(a.where);
  const size_t pos = gemSlotFor(a.dir, a.type);
  aclclient::TableSession s(glob);
  const std::string what = "bind list " + std::to_string(a.lst) + " to GEM port " + g.text() + " " +
                           kAclBindSlots[pos].name;
  if (s.getValue(wire::fid::aclLstGetApi, a.lst, kLstCmdStatus).ret == ACL_ERR_LIST_NOT_EXIST) {
    refused(what, ACL_ERR_LIST_NOT_EXIST, g, a.lst);
  }
  if (int32_t ret = setWord(s, g, gemCmd(pos), a.lst)) refused(what, ret, g, a.lst);
  reportOk(glob, "bound list " + std::to_string(a.lst) + " to GEM port " + g.text() + " " +
                     kAclBindSlots[pos].name);
}

void unbind(const AclctlGlobals& glob, const GemArgs& a) {
  const Gem g = parseGem(a.where);
  const size_t pos = gemSlotFor(a.dir, a.type);
  aclclient::TableSession s(glob);
  const std::string what = "unbind GEM port " + g.text() + " " + kAclBindSlots[pos].name;
  if (int32_t ret = setWord(s, g, gemCmd(pos), 0)) refused(what, ret, g, 0);
  reportOk(glob, "unbound GEM port " + g.text() + " " + kAclBindSlots[pos].name);
}

struct GemBindEntry {
  uint32_t lst, dir, ifIndex, onu, gem, kind;
};

std::vector<GemBindEntry> gemBindEntries(aclclient::TableSession& s) {
  std::vector<GemBindEntry> out;
  wire::Response resp =
      s.call(gemKeyed(wire::fid::aclGemPortLstGetFirst, std::vector<uint8_t>(kGemLstKeyLen, 0)));
  while (resp.result == 0 && resp.key.size() == kGemLstKeyLen) {
    const std::vector<uint8_t> cur = resp.key;
    out.push_back({be::load32(cur, 0), be::load32(cur, 4), be::load32(cur, 8), be::load16(cur, 12),
                   be::load16(cur, 14), be::load32(cur, 16)});
    if (out.size() > 1'000'000) break;
    resp = s.call(gemKeyed(wire::fid::aclGemPortLstGetNext, cur));
    // A daemon that answers the same key again would walk for ever.
    if (resp.result == 0 && resp.key == cur) break;
  }
  return out;
}

std::vector<Gem> records(aclclient::TableSession& s) {
  std::vector<Gem> out;
  wire::Response resp =
      s.call(gemKeyed(wire::fid::aclGemPortGetFirst, std::vector<uint8_t>(kKeyLen, 0)));
  while (resp.result == 0 && resp.key.size() == kKeyLen) {
    const std::vector<uint8_t> cur = resp.key;
    out.push_back({be::load32(cur, 0), be::load16(cur, 4), be::load16(cur, 6)});
    if (out.size() > 1'000'000) break;
    resp = s.call(gemKeyed(wire::fid::aclGemPortGetNext, cur));
    if (resp.result == 0 && resp.key == cur) break;
  }
  return out;
}

ordered_json describe(aclclient::TableSession& s, const Gem& g,
                      const std::vector<GemBindEntry>& entries) {
  ordered_json j = {{"ifIndex", g.ifIndex}, {"onu", g.onu}, {"gemPort", g.gem}};
  const auto status = getWord(s, g, kGemCmdRowStatus);
  if (status.ret != 0) {
    j["error"] = aclclient::retText(status.ret);
    return j;
  }
  j["rowStatus"] = status.value;
  ordered_json slots = ordered_json::object();
  for (size_t i = ACL_BIND_SLOT_FIRST_TYPED; i < kAclBindSlots.size(); ++i) {
    const auto v = getWord(s, g, gemCmd(i));
    if (v.ret == 0 && v.value != 0) slots[kAclBindSlots[i].name] = v.value;
  }
  j["slots"] = slots;
  ordered_json binds = ordered_json::array();
  for (const GemBindEntry& e : entries) {
    if (e.ifIndex != g.ifIndex || e.onu != g.onu || e.gem != g.gem) continue;
    binds.push_back({{"list", e.lst}, {"kind", kindName(e.kind)}, {"dir", dirName(e.dir)}});
  }
  j["bindings"] = binds;
  return j;
}

void show(const AclctlGlobals& glob, const GemArgs& a) {
  aclclient::TableSession s(glob);
  std::vector<Gem> gems;
  if (a.whereOpt) {
    gems.push_back(parseGem(*a.whereOpt));
  } else {
    gems = records(s);
  }
  const std::vector<GemBindEntry> entries = gemBindEntries(s);
  std::vector<ordered_json> rows;
  for (const Gem& g : gems) rows.push_back(describe(s, g, entries));
  if (a.whereOpt && rows[0].contains("error")) {
    throw AclctlExit(kAclctlExitFailed,
                     "GEM port " + *a.whereOpt + ": " + rows[0]["error"].get<std::string>());
  }
  if (glob.json) {
    std::cout << ordered_json{{"gemPorts", rows}}.dump() << std::endl;
    return;
  }
  if (rows.empty()) std::printf("no GEM port records\n");
  for (const auto& r : rows) {
    std::printf("GEM port %u/%u/%u  status %u\n", r["ifIndex"].get<uint32_t>(),
                r["onu"].get<uint32_t>(), r["gemPort"].get<uint32_t>(),
                r["rowStatus"].get<uint32_t>());
    for (const auto& [name, v] : r["slots"].items()) {
      std::printf("  %-15s list %u\n", name.c_str(), v.get<uint32_t>());
    }
    for (const auto& b : r["bindings"]) {
      std::printf("  bound: list %u  %s %s\n", b["list"].get<uint32_t>(),
                  b["kind"].get<std::string>().c_str(), b["dir"].get<std::string>().c_str());
    }
  }
}

void statsShow(const AclctlGlobals& glob, const GemArgs& a) {
  aclclient::TableSession s(glob);
  std::vector<uint8_t> key(kStatsIndexLen, 0);
  if (a.whereOpt) {
    const Gem g = parseGem(*a.whereOpt);
    be::store32(key, 8, g.ifIndex);
    be::store32(key, 12, g.onu);
    be::store16(key, 20, static_cast<uint16_t>(g.gem));
    key[24] = 0x20 | 0x08 | 0x04;  // ifIndex, ONU id, GEM port
  }
  std::vector<ordered_json> rows;
  wire::Response resp = s.call(gemKeyed(wire::fid::aclGemPortStatsGetFirst, key));
  while (resp.result == 0 && resp.key.size() == kStatsIndexLen) {
    const std::vector<uint8_t> cur = resp.key;
    ordered_json row = {{"ifIndex", be::load32(cur, 8)},  {"onu", be::load32(cur, 12)},
                        {"gemPort", be::load16(cur, 20)}, {"list", be::load32(cur, 0)},
                        {"rule", be::load32(cur, 4)},     {"dir", dirName(be::load16(cur, 22))}};
    wire::Request get = gemKeyed(wire::fid::aclGemPortStatsGetApi, cur, 1);
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
    if (rows.size() > 1'000'000) break;
    resp = s.call(gemKeyed(wire::fid::aclGemPortStatsGetNext, cur));
    if (resp.result == 0 && resp.key == cur) break;
  }
  if (resp.result != 0 && resp.result != CMN_ERR_NOT_FOUND) {
    throw AclctlExit(kAclctlExitFailed,
                     "GEM port statistics walk: " + aclclient::retText(resp.result));
  }
  if (glob.json) {
    std::cout << ordered_json{{"stats", rows}}.dump() << std::endl;
    return;
  }
  if (rows.empty()) std::printf("no GEM port statistics\n");
  for (const auto& r : rows) {
    std::printf("GEM port %u/%u/%u filter %u/%u %-3s", r["ifIndex"].get<uint32_t>(),
                r["onu"].get<uint32_t>(), r["gemPort"].get<uint32_t>(), r["list"].get<uint32_t>(),
                r["rule"].get<uint32_t>(), r["dir"].get<std::string>().c_str());
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

void statsClear(const AclctlGlobals& glob, const GemArgs& a) {
  if (a.all == a.whereOpt.has_value()) {
    throw AclctlExit(kAclctlExitUsage, "give a GEM port (IFINDEX/ONU/GEMPORT) or --all");
  }
  std::vector<uint8_t> key(kStatsIndexLen, 0);
  std::string what = "all GEM port statistics";
  if (a.whereOpt) {
    // 0 in any part means every value of it: 401/5/0 clears every GEM port of ONU 5.
    const Gem g = parseGem(*a.whereOpt);
    be::store32(key, 8, g.ifIndex);
    be::store32(key, 12, g.onu);
    be::store16(key, 20, static_cast<uint16_t>(g.gem));
    what = "statistics of GEM port " + g.text();
  }
  aclclient::TableSession s(glob);
  wire::Request req = gemKeyed(wire::fid::aclGemPortStatsSetApi, key, 6);
  req.bufShape = wire::BufShape::Value;
  const int32_t ret = s.call(req).result;
  if (ret != 0)
    throw AclctlExit(kAclctlExitFailed, "clear " + what + ": " + aclclient::retText(ret));
  reportOk(glob, "cleared " + what);
}

}  // namespace

std::vector<uint8_t> aclctlGemKey(const std::string& text) {
  return keyOf(parseGem(text));
}

void aclctlAddGemCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* cmd =
      app.add_subcommand("gem", "GEM port records of ONUs, their bind slots and statistics");
  cmd->require_subcommand(1);
  auto a = std::make_shared<GemArgs>();
  const std::string gemHelp = "IFINDEX/ONU/GEMPORT";

  auto* create_ = cmd->add_subcommand("create", "Create the GEM port's record");
  create_->add_option("gemport", a->where, gemHelp)->required();
  create_->callback([&globals, a] { create(globals, *a); });

  auto* delete_ =
      cmd->add_subcommand("delete", "Delete the record of a GEM port with nothing bound");
  delete_->add_option("gemport", a->where, gemHelp)->required();
  delete_->callback([&globals, a] { remove(globals, *a); });

  auto* bind_ = cmd->add_subcommand("bind", "Bind a list: IFINDEX/ONU/GEMPORT DIR TYPE LIST");
  bind_->add_option("gemport", a->where, gemHelp)->required();
  bind_->add_option("dir", a->dir, "in, out or vfp")->required();
  bind_->add_option("type", a->type, "l2, ipv4, ipv6, hybrid, mpls or udf")->required();
  bind_->add_option("list", a->lst, "list number")->required();
  bind_->callback([&globals, a] { bind(globals, *a); });

  auto* unbind_ =
      cmd->add_subcommand("unbind", "Take the list off a slot: IFINDEX/ONU/GEMPORT DIR TYPE");
  unbind_->add_option("gemport", a->where, gemHelp)->required();
  unbind_->add_option("dir", a->dir, "in, out or vfp")->required();
  unbind_->add_option("type", a->type, "l2, ipv4, ipv6, hybrid, mpls or udf")->required();
  unbind_->callback([&globals, a] { unbind(globals, *a); });

  auto* show_ = cmd->add_subcommand("show", "Show one GEM port, or every one, with its bindings");
  show_->add_option("gemport", a->whereOpt, gemHelp);
  show_->callback([&globals, a] { show(globals, *a); });

  auto* stats = cmd->add_subcommand("stats", "GEM port statistics");
  stats->require_subcommand(1);
  auto* sshow = stats->add_subcommand("show", "Walk the GEM port statistics and read them");
  sshow->add_option("gemport", a->whereOpt, "only this GEM port's records");
  sshow->callback([&globals, a] { statsShow(globals, *a); });
  auto* sclear = stats->add_subcommand("clear", "Clear one GEM port's statistics, or all");
  sclear->add_option("gemport", a->whereOpt, gemHelp + " (0 in a part: any)");
  sclear->add_flag("--all", a->all, "every GEM port");
  sclear->callback([&globals, a] { statsClear(globals, *a); });
}
