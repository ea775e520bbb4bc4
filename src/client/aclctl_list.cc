// aclctl list create|delete|rename|show: the filter-list table (function ids 4 to 7) in words.
// A result other than 0 ends aclctl with status 1 and the code on stderr.
#include "client/aclctl_list.h"

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
#include "client/table_session.h"
#include "wire/func_table.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kCmdName = 1;
constexpr uint32_t kCmdRefCnt = 2;
constexpr uint32_t kCmdRuleNum = 4;
constexpr uint32_t kCmdStatus = 9;
constexpr uint32_t kStatusCreate = 2;
constexpr uint32_t kStatusDelete = 4;
constexpr uint32_t kNameMax = 64;

// The list type a number gives; hybrid numbers come before IPv6 ones.
const char* listTypeName(uint32_t lstIdx) {
  if (lstIdx == 0 || lstIdx > 6000) return "none";
  if (lstIdx <= 1000) return "l2";
  if (lstIdx <= 2000) return "ipv4";
  if (lstIdx <= 3000) return "hybrid";
  if (lstIdx <= 4000) return "ipv6";
  if (lstIdx <= 5000) return "mpls";
  return "udf";
}

using aclclient::TableSession;

std::vector<uint8_t> nameBytes(const std::string& name) {
  return {name.begin(), name.end()};
}

void expectOk(const AclctlGlobals& g, const char* what, uint32_t lstIdx, int32_t ret) {
  if (g.json) {
    ordered_json j = {{"list", lstIdx}, {"ret", ret}, {"ret_hex", hex32(ret)}};
    std::cout << j.dump() << std::endl;
  } else if (ret == 0) {
    std::cout << what << " list " << lstIdx << std::endl;
  }
  if (ret != 0) {
    throw AclctlExit(kAclctlExitFailed, std::string(what) + " list " + std::to_string(lstIdx) +
                                            ": result " + hex32(ret));
  }
}

// One list's attributes; nothing when it has gone meanwhile.
std::optional<ordered_json> describe(TableSession& c, uint32_t lstIdx, int32_t* ret) {
  const aclclient::BytesAnswer name =
      c.getBytes(wire::fid::aclLstGetApi, lstIdx, kCmdName, kNameMax);
  *ret = name.ret;
  if (name.ret != 0) return std::nullopt;
  uint32_t values[3] = {};
  const uint32_t cmds[3] = {kCmdRefCnt, kCmdRuleNum, kCmdStatus};
  for (int i = 0; i < 3; ++i) {
    const aclclient::ValueAnswer v = c.getValue(wire::fid::aclLstGetApi, lstIdx, cmds[i]);
    *ret = v.ret;
    if (v.ret != 0) return std::nullopt;
    values[i] = v.value;
  }
  return ordered_json{{"list", lstIdx},
                      {"name", std::string(name.data.begin(), name.data.end())},
                      {"type", listTypeName(lstIdx)},
                      {"refcnt", static_cast<int32_t>(values[0])},
                      {"rules", values[1]},
                      {"status", values[2]}};
}

}  // namespace

ordered_json aclctlListRows(const AclctlGlobals& g) {
  TableSession c(g);
  ordered_json rows = ordered_json::array();
  for (uint32_t idx : c.walk(wire::fid::aclLstGetFirst, wire::fid::aclLstGetNext)) {
    int32_t ret = 0;
    if (auto row = describe(c, idx, &ret)) rows.push_back(*row);
  }
  return rows;
}

namespace {

void show(const AclctlGlobals& g, std::optional<uint32_t> one) {
  TableSession c(g);
  std::vector<ordered_json> rows;
  if (one) {
    int32_t ret = 0;
    auto row = describe(c, *one, &ret);
    if (!row) {
      throw AclctlExit(kAclctlExitFailed,
                       "list " + std::to_string(*one) + ": result " + hex32(ret));
    }
    rows.push_back(*row);
  } else {
    for (const auto& row : aclctlListRows(g)) rows.push_back(row);
  }
  if (g.json) {
    // The same shape as the other families' show: one array under the family's name.
    std::cout << ordered_json{{"lists", rows}}.dump() << std::endl;
    return;
  }
  std::printf("%-6s %-24s %-7s %6s %6s %6s\n", "LIST", "NAME", "TYPE", "REFCNT", "RULES", "STATUS");
  for (const auto& r : rows) {
    std::printf("%-6u %-24s %-7s %6d %6u %6u\n", r["list"].get<uint32_t>(),
                r["name"].get<std::string>().c_str(), r["type"].get<std::string>().c_str(),
                r["refcnt"].get<int32_t>(), r["rules"].get<uint32_t>(),
                r["status"].get<uint32_t>());
  }
}

}  // namespace

void aclctlAddListCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* list = app.add_subcommand("list", "Create, delete, rename and show filter lists");
  list->require_subcommand(1);

  struct Args {
    uint32_t lstIdx = 0;
    std::string name;
    std::optional<uint32_t> one;
  };
  auto a = std::make_shared<Args>();

  auto* create = list->add_subcommand("create", "Create a list (and name it)");
  create->add_option("LIST", a->lstIdx, "list number")->required();
  create->add_option("--name", a->name, "name of the new list");
  create->callback([&globals, a] {
    if (a->name.size() > kNameMax) {
      throw AclctlExit(kAclctlExitUsage, "a list name has at most 64 characters");
    }
    TableSession c(globals);
    int32_t ret = c.setValue(wire::fid::aclLstSetApi, a->lstIdx, kCmdStatus, kStatusCreate);
    if (ret == 0 && !a->name.empty())
      ret = c.setBytes(wire::fid::aclLstSetApi, a->lstIdx, kCmdName, nameBytes(a->name));
    expectOk(globals, "created", a->lstIdx, ret);
  });

  auto* del = list->add_subcommand("delete", "Delete a list with all its rules");
  del->add_option("LIST", a->lstIdx, "list number")->required();
  del->callback([&globals, a] {
    TableSession c(globals);
    // Deleting a missing list succeeds on the daemon's side; say so rather than claim it.
    const aclclient::ValueAnswer status =
        c.getValue(wire::fid::aclLstGetApi, a->lstIdx, kCmdStatus);
    if (status.ret != 0) {
      expectOk(globals, "deleted", a->lstIdx, status.ret);
      return;
    }
    expectOk(globals, "deleted", a->lstIdx,
             c.setValue(wire::fid::aclLstSetApi, a->lstIdx, kCmdStatus, kStatusDelete));
  });

  auto* rename = list->add_subcommand("rename", "Give a list another name");
  rename->add_option("LIST", a->lstIdx, "list number")->required();
  rename->add_option("NAME", a->name, "the new name (at most 64 characters)")->required();
  rename->callback([&globals, a] {
    if (a->name.size() > kNameMax) {
      throw AclctlExit(kAclctlExitUsage, "a list name has at most 64 characters");
    }
    TableSession c(globals);
    expectOk(globals, "renamed", a->lstIdx,
             c.setBytes(wire::fid::aclLstSetApi, a->lstIdx, kCmdName, nameBytes(a->name)));
  });

  auto* showCmd = list->add_subcommand("show", "Show one list or all of them");
  showCmd->add_option("LIST", a->one, "list number (default: every list)");
  showCmd->callback([&globals, a] { show(globals, a->one); });
}
