// aclctl stats ...: the rule statistics table (function ids 21 to 25). "show" walks the records
// with the index's filter bits and reads each one's counters; "clear" clears one record or all.
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_common.h"
#include "client/aclctl_views.h"
#include "client/table_session.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kCmdCounters = 1;
constexpr uint32_t kCmdClear = 2;
constexpr uint32_t kCmdClearAll = 6;

// The 28-byte statistics index: lstIdx, ruleIdx, ifIndex, dir (u16 at 22) and the walk filter
// bits from byte 24, numbered from its most significant bit.
constexpr size_t kIndexLen = 28;
constexpr size_t kDirAt = 22;
constexpr size_t kFilterAt = 24;
constexpr uint8_t kFilterList = 0x80;  // bit 0
constexpr uint8_t kFilterRule = 0x40;  // bit 1
constexpr uint8_t kFilterDir = 0x10;   // bit 3
constexpr uint32_t kAnswerLen = 64;

struct StatsArgs {
  std::optional<uint32_t> lst, rule;
  std::string dir;
  bool all = false;
};

using Index = std::vector<uint8_t>;

Index makeIndex(uint32_t lst, uint32_t rule, uint16_t dir, uint8_t filter) {
  Index k(kIndexLen, 0);
  be::store32(k, 0, lst);
  be::store32(k, 4, rule);
  be::store16(k, kDirAt, dir);
  k[kFilterAt] = filter;
  return k;
}

std::optional<uint16_t> statsDirCode(const std::string& dir) {
  if (dir.empty()) return std::nullopt;
  if (dir == "in") return 0;
  if (dir == "out") return 1;
  throw AclctlExit(kAclctlExitUsage, "--dir takes in or out, not '" + dir + "'");
}

std::string statsDirName(uint16_t dir) {
  if (dir == 0) return "in";
  if (dir == 1) return "out";
  return std::to_string(static_cast<int16_t>(dir));
}

std::string statsRetText(int32_t ret) {
  if (ret == ACL_ERR_COUNTER_GET) return "ACL_ERR_COUNTER_GET (" + hex32(ret) + ")";
  return aclclient::retText(ret);
}

wire::Request indexed(uint32_t funcId, const Index& key, uint32_t cmd = 0) {
  wire::Request req;
  req.funcId = funcId;
  req.cmd = cmd;
  req.keyShape = wire::KeyShape::Bytes;
  req.key = key;
  return req;
}

// True when b's key fields sort after a's, as the walk moves: dir, list, rule.
bool advances(const Index& a, const Index& b) {
  const auto key = [](const Index& k) {
    return std::tuple(static_cast<int16_t>(be::load16(k, kDirAt)), be::load32(k, 0),
                      be::load32(k, 4));
  };
  return key(a) < key(b);
}

ordered_json readRecord(aclclient::TableSession& s, const Index& key) {
  const uint16_t dir = be::load16(key, kDirAt);
  ordered_json row = {
      {"list", be::load32(key, 0)}, {"rule", be::load32(key, 4)}, {"dir", statsDirName(dir)}};
  wire::Request req = indexed(wire::fid::aclStatsGetApi, key, kCmdCounters);
  req.bufShape = wire::BufShape::Desc;
  req.descCapacity = kAnswerLen;
  const wire::Response resp = s.call(req);
  row["ret"] = resp.result;
  if (resp.result != 0 || resp.data.size() < kAnswerLen) {
    row["error"] = statsRetText(resp.result);
    return row;
  }
  for (size_t i = 0; i < std::size(kCounterNames); ++i) {
    row[kCounterNames[i]] = be::load64(resp.data, 8 * i);
  }
  return row;
}

void printRow(const ordered_json& r) {
  std::printf("filter %u/%u %-3s", r["list"].get<uint32_t>(), r["rule"].get<uint32_t>(),
              r["dir"].get<std::string>().c_str());
  if (r.contains("error")) {
    std::printf("  unreadable: %s\n", r["error"].get<std::string>().c_str());
    return;
  }
  for (const char* name : kCounterNames) {
    std::printf("  %s=%llu", name, static_cast<unsigned long long>(r[name].get<uint64_t>()));
  }
  std::printf("\n");
}

// The records the walk from first passes, each with its counters.
ordered_json statsRows(const AclctlGlobals& g, const Index& first) {
  aclclient::TableSession s(g);
  ordered_json rows = ordered_json::array();
  wire::Response resp = s.call(indexed(wire::fid::aclStatsGetFirst, first));
  while (resp.result == 0 && resp.key.size() == kIndexLen) {
    const Index cur = resp.key;
    rows.push_back(readRecord(s, cur));
    resp = s.call(indexed(wire::fid::aclStatsGetNext, cur));
    // A table that answers a key that does not move on would walk for ever.
    if (resp.result == 0 && (resp.key.size() != kIndexLen || !advances(cur, resp.key))) break;
  }
  if (resp.result != 0 && resp.result != CMN_ERR_NOT_FOUND) {
    throw AclctlExit(kAclctlExitFailed, "statistics walk: " + statsRetText(resp.result));
  }
  return rows;
}

void show(const AclctlGlobals& g, const StatsArgs& a) {
  const std::optional<uint16_t> dir = statsDirCode(a.dir);
  uint8_t filter = 0;
  if (a.lst) filter |= kFilterList;
  if (a.rule) filter |= kFilterRule;
  if (dir) filter |= kFilterDir;
  const ordered_json rows =
      statsRows(g, makeIndex(a.lst.value_or(0), a.rule.value_or(0), dir.value_or(0), filter));
  if (g.json) {
    std::cout << ordered_json{{"stats", rows}}.dump() << std::endl;
    return;
  }
  if (rows.empty()) std::printf("no rule statistics\n");
  for (const auto& r : rows) printRow(r);
}

void clear(const AclctlGlobals& g, const StatsArgs& a) {
  Index key;
  std::string what;
  uint32_t cmd = kCmdClearAll;
  if (a.all) {
    if (a.lst || a.rule || !a.dir.empty()) {
      throw AclctlExit(kAclctlExitUsage,
                       "--all clears every record: give no --list, --rule or --dir");
    }
    key = makeIndex(0, 0, 0, 0);
    what = "all rule statistics";
  } else {
    const std::optional<uint16_t> dir = statsDirCode(a.dir);
    if (!a.lst || !a.rule || !dir) {
      throw AclctlExit(kAclctlExitUsage, "give --list, --rule and --dir, or --all");
    }
    key = makeIndex(*a.lst, *a.rule, *dir, 0);
    cmd = kCmdClear;
    what = "statistics of filter " + std::to_string(*a.lst) + "/" + std::to_string(*a.rule) + " " +
           a.dir;
  }
  aclclient::TableSession s(g);
  wire::Request req = indexed(wire::fid::aclStatsSetApi, key, cmd);
  req.bufShape = wire::BufShape::Value;
  const int32_t ret = s.call(req).result;
  if (g.json) {
    std::cout << ordered_json{{"ret", ret}, {"ret_hex", hex32(ret)}}.dump() << std::endl;
  } else if (ret == 0) {
    std::cout << "cleared " << what << std::endl;
  }
  if (ret != 0) throw AclctlExit(kAclctlExitFailed, "clear " + what + ": " + statsRetText(ret));
}

}  // namespace

ordered_json aclctlStatsRows(const AclctlGlobals& g) {
  return statsRows(g, makeIndex(0, 0, 0, 0));
}

void aclctlAddStatsCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* stats = app.add_subcommand("stats", "Rule statistics: packet and byte counters per rule");
  stats->require_subcommand(1);
  auto args = std::make_shared<StatsArgs>();

  auto* show_ = stats->add_subcommand("show", "Walk the rule statistics and read their counters");
  show_->add_option("--list", args->lst, "only records of this list");
  show_->add_option("--rule", args->rule, "only records of this rule number");
  show_->add_option("--dir", args->dir, "only records of this direction (in or out)");
  show_->callback([&globals, args] { show(globals, *args); });

  auto* clear_ = stats->add_subcommand("clear", "Clear one record's counters, or all of them");
  clear_->add_option("--list", args->lst, "list of the record");
  clear_->add_option("--rule", args->rule, "rule of the record");
  clear_->add_option("--dir", args->dir, "direction of the record (in or out)");
  clear_->add_flag("--all", args->all, "clear every rule statistics record");
  clear_->callback([&globals, args] { clear(globals, *args); });
}
