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
#include "client/cmd_client.h"
#include "wire/be.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kLstGetFirst = 4;
constexpr uint32_t kLstGetNext = 5;
constexpr uint32_t kLstGet = 6;
constexpr uint32_t kLstSet = 7;
constexpr uint32_t kCmdName = 1;
constexpr uint32_t kCmdRefCnt = 2;
constexpr uint32_t kCmdRuleNum = 4;
constexpr uint32_t kCmdStatus = 9;
constexpr uint32_t kStatusCreate = 2;
constexpr uint32_t kStatusDelete = 4;
constexpr uint32_t kNameMax = 64;
constexpr int32_t kWalkEnd = -1;

std::string hex32(int32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<uint32_t>(v));
  return text;
}

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

class ListClient {
 public:
  explicit ListClient(const AclctlGlobals& g) {
    std::string err;
    client_ = aclclient::CmdClient::connect(aclclient::cmdSocketPath(g.runDir, g.socket), &err);
    if (!client_) throw AclctlExit(kAclctlExitFailed, err);
  }

  wire::Response call(const wire::Request& req) {
    wire::Response resp;
    std::string err;
    if (!client_->call(req, &resp, &err)) throw AclctlExit(kAclctlExitFailed, err);
    if (resp.status != wire::Status::Ok) {
      throw AclctlExit(kAclctlExitFailed, "the daemon refused the request: " +
                                              std::string(wire::statusName(resp.status)));
    }
    return resp;
  }

  wire::Response setValue(uint32_t lstIdx, uint32_t cmd, uint32_t value) {
    wire::Request req;
    req.funcId = kLstSet;
    req.cmd = cmd;
    req.keyShape = wire::KeyShape::Value;
    req.keyValue = lstIdx;
    req.bufShape = wire::BufShape::Value;
    req.bufValue = value;
    return call(req);
  }

  wire::Response setName(uint32_t lstIdx, const std::string& name) {
    wire::Request req;
    req.funcId = kLstSet;
    req.cmd = kCmdName;
    req.keyShape = wire::KeyShape::Value;
    req.keyValue = lstIdx;
    req.bufShape = wire::BufShape::Desc;
    req.data.assign(name.begin(), name.end());
    req.descCapacity = static_cast<uint32_t>(req.data.size());
    return call(req);
  }

  // A value attribute, or nothing with the result in *ret.
  std::optional<uint32_t> getValue(uint32_t lstIdx, uint32_t cmd, int32_t* ret) {
    wire::Request req;
    req.funcId = kLstGet;
    req.cmd = cmd;
    req.keyShape = wire::KeyShape::Value;
    req.keyValue = lstIdx;
    req.bufShape = wire::BufShape::Value;
    const wire::Response resp = call(req);
    *ret = resp.result;
    if (resp.result != 0) return std::nullopt;
    return resp.bufValue;
  }

  std::optional<std::string> getName(uint32_t lstIdx, int32_t* ret) {
    wire::Request req;
    req.funcId = kLstGet;
    req.cmd = kCmdName;
    req.keyShape = wire::KeyShape::Value;
    req.keyValue = lstIdx;
    req.bufShape = wire::BufShape::Desc;
    req.descCapacity = kNameMax;
    const wire::Response resp = call(req);
    *ret = resp.result;
    if (resp.result != 0) return std::nullopt;
    return std::string(resp.data.begin(), resp.data.end());
  }

  // Every list number in order; the walk resumes from the last number it saw.
  std::vector<uint32_t> numbers() {
    std::vector<uint32_t> out;
    wire::Request first;
    first.funcId = kLstGetFirst;
    first.keyShape = wire::KeyShape::Bytes;
    first.key.assign(4, 0);
    wire::Response resp = call(first);
    while (resp.result == 0 && resp.key.size() == 4) {
      const uint32_t idx = be::load32(resp.key, 0);
      // A walk that does not move forward would never end.
      if (!out.empty() && idx <= out.back()) break;
      out.push_back(idx);
      wire::Request next;
      next.funcId = kLstGetNext;
      next.keyShape = wire::KeyShape::Value;
      next.keyValue = idx;
      resp = call(next);
    }
    if (resp.result != 0 && resp.result != kWalkEnd) {
      throw AclctlExit(kAclctlExitFailed, "list walk: result " + hex32(resp.result));
    }
    return out;
  }

 private:
  std::unique_ptr<aclclient::CmdClient> client_;
};

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
std::optional<ordered_json> describe(ListClient& c, uint32_t lstIdx, int32_t* ret) {
  const auto name = c.getName(lstIdx, ret);
  if (!name) return std::nullopt;
  const auto refCnt = c.getValue(lstIdx, kCmdRefCnt, ret);
  const auto ruleNum = c.getValue(lstIdx, kCmdRuleNum, ret);
  const auto status = c.getValue(lstIdx, kCmdStatus, ret);
  if (!refCnt || !ruleNum || !status) return std::nullopt;
  return ordered_json{{"list", lstIdx},
                      {"name", *name},
                      {"type", listTypeName(lstIdx)},
                      {"refcnt", static_cast<int32_t>(*refCnt)},
                      {"rules", *ruleNum},
                      {"status", *status}};
}

void show(const AclctlGlobals& g, std::optional<uint32_t> one) {
  ListClient c(g);
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
    for (uint32_t idx : c.numbers()) {
      int32_t ret = 0;
      if (auto row = describe(c, idx, &ret)) rows.push_back(*row);
    }
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
    ListClient c(globals);
    int32_t ret = c.setValue(a->lstIdx, kCmdStatus, kStatusCreate).result;
    if (ret == 0 && !a->name.empty()) ret = c.setName(a->lstIdx, a->name).result;
    expectOk(globals, "created", a->lstIdx, ret);
  });

  auto* del = list->add_subcommand("delete", "Delete a list with all its rules");
  del->add_option("LIST", a->lstIdx, "list number")->required();
  del->callback([&globals, a] {
    ListClient c(globals);
    // Deleting a missing list succeeds on the daemon's side; say so rather than claim it.
    int32_t ret = 0;
    if (!c.getValue(a->lstIdx, kCmdStatus, &ret)) {
      expectOk(globals, "deleted", a->lstIdx, ret);
      return;
    }
    expectOk(globals, "deleted", a->lstIdx,
             c.setValue(a->lstIdx, kCmdStatus, kStatusDelete).result);
  });

  auto* rename = list->add_subcommand("rename", "Give a list another name");
  rename->add_option("LIST", a->lstIdx, "list number")->required();
  rename->add_option("NAME", a->name, "the new name (at most 64 characters)")->required();
  rename->callback([&globals, a] {
    if (a->name.size() > kNameMax) {
      throw AclctlExit(kAclctlExitUsage, "a list name has at most 64 characters");
    }
    ListClient c(globals);
    expectOk(globals, "renamed", a->lstIdx, c.setName(a->lstIdx, a->name).result);
  });

  auto* showCmd = list->add_subcommand("show", "Show one list or all of them");
  showCmd->add_option("LIST", a->one, "list number (default: every list)");
  showCmd->callback([&globals, a] { show(globals, a->one); });
}
