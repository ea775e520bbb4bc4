// aclctl cpudefend|nat|blacklist: the installations other modules ask for, made by hand. CPU
// defend and NAT go through scalar set 22 to 25 for the whole system and slot set 0 to 3 for one
// slot; the blacklist through scalar set 67 and 68.
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_tables.h"
#include "client/table_session.h"
#include "wire/be.h"
#include "wire/func_table.h"
#include "wire/protocol.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kCpudefendAdd = 22, kCpudefendDel = 23, kNatAdd = 24, kNatDel = 25;
constexpr uint32_t kSlotCpudefendAdd = 0, kSlotCpudefendDel = 1, kSlotNatAdd = 2, kSlotNatDel = 3;
constexpr uint32_t kBlackListAdd = 67, kBlackListDel = 68;

std::vector<uint8_t> words(const std::vector<uint32_t>& w) {
  std::vector<uint8_t> b(4 * w.size());
  for (size_t i = 0; i < w.size(); ++i) be::store32(b, 4 * i, w[i]);
  return b;
}

std::pair<uint32_t, uint32_t> parseSlot(const std::string& text) {
  return aclclient::parseSlotKey(text, "--slot");
}

uint32_t parseDir(const std::string& text) {
  if (text == "in" || text == "0") return 0;
  if (text == "out" || text == "1") return 1;
  if (text == "vfp" || text == "2") return 2;
  throw AclctlExit(kAclctlExitUsage, "--dir takes in, out or vfp: " + text);
}

// Sends the argument record to the scalar table (no slot) or the slot table (with one).
int32_t sendArgs(const AclctlGlobals& globals, const std::string& slot, uint32_t scalarCmd,
                 uint32_t slotCmd, const std::vector<uint8_t>& record, ordered_json* out) {
  wire::Request req;
  req.bufShape = wire::BufShape::Desc;
  req.data = record;
  req.descCapacity = static_cast<uint32_t>(record.size());
  if (slot.empty()) {
    req.funcId = wire::fid::aclScalarSetApi;
    req.cmd = scalarCmd;
    req.keyShape = wire::KeyShape::None;
    (*out)["scope"] = "global";
  } else {
    const auto [sys, sl] = parseSlot(slot);
    req.funcId = wire::fid::aclSlotSetApi;
    req.cmd = slotCmd;
    req.keyShape = wire::KeyShape::Bytes;
    req.key = words({sys, sl});
    (*out)["scope"] = "slot";
    (*out)["system"] = sys;
    (*out)["slot"] = sl;
  }
  aclclient::TableSession s(globals);
  return s.call(req).result;
}

std::string scopeText(const std::string& slot) {
  return slot.empty() ? "global" : "slot " + slot;
}

struct CpudefendArgs {
  std::string slot;
  uint32_t lstIdx = 0;
  uint32_t action = 0;
  std::vector<uint32_t> car;
};

void addCpudefend(CLI::App& app, AclctlGlobals& globals) {
  auto* cmd = app.add_subcommand("cpudefend", "Install or remove a list for CPU protection");
  cmd->require_subcommand(1);
  for (const bool add : {true, false}) {
    auto a = std::make_shared<CpudefendArgs>();
    auto* sub = cmd->add_subcommand(add ? "add" : "del",
                                    add ? "Install the list's rules, marked for CPU protection"
                                        : "Remove them (give the arguments of the installation)");
    sub->add_option("--slot", a->slot, "SYS/SLOT: one slot instead of the whole system");
    sub->add_option("LIST", a->lstIdx, "list number")->required();
    sub->add_option("--action", a->action, "action code given to every rule (3 deny, 2 permit)")
        ->required();
    sub->add_option("--car", a->car, "CIR,CBS,EBS: also rate limit the rules")
        ->delimiter(',')
        ->expected(3);
    sub->callback([&globals, a, add] {
      if (!a->car.empty() && a->car.size() != 3) {
        throw AclctlExit(kAclctlExitUsage, "--car takes CIR,CBS,EBS");
      }
      const bool car = a->car.size() == 3;
      const std::vector<uint8_t> record =
          words({a->lstIdx, a->action, car ? a->car[0] : 0, car ? a->car[1] : 0,
                 car ? a->car[2] : 0, car ? 1u : 0u});
      ordered_json out = {{"service", "cpudefend"}, {"op", add ? "add" : "del"}};
      const int32_t ret = sendArgs(globals, a->slot, add ? kCpudefendAdd : kCpudefendDel,
                                   add ? kSlotCpudefendAdd : kSlotCpudefendDel, record, &out);
      out["list"] = a->lstIdx;
      out["action"] = a->action;
      if (car) out["car"] = {{"cir", a->car[0]}, {"cbs", a->car[1]}, {"ebs", a->car[2]}};
      aclclient::reportResult(globals,
                              std::string("cpudefend ") + (add ? "add " : "del ") +
                                  std::to_string(a->lstIdx) + " (" + scopeText(a->slot) + ")",
                              ret, out);
    });
  }
}

struct NatArgs {
  std::string slot;
  uint32_t lstIdx = 0;
  uint32_t natCmd = 0;
  std::string dir = "in";
};

void addNat(CLI::App& app, AclctlGlobals& globals) {
  auto* cmd = app.add_subcommand("nat", "Send a list's rules under a NAT module command");
  cmd->require_subcommand(1);
  for (const bool add : {true, false}) {
    auto a = std::make_shared<NatArgs>();
    auto* sub = cmd->add_subcommand(add ? "add" : "del",
                                    add ? "Send every valid rule under the installing command"
                                        : "Send every valid rule under the removing command");
    sub->add_option("--slot", a->slot, "SYS/SLOT: one slot instead of the whole system");
    sub->add_option("LIST", a->lstIdx, "list number")->required();
    sub->add_option("--cmd", a->natCmd, "the NAT module's platform command")->required();
    sub->add_option("--dir", a->dir, "in, out or vfp (default in)");
    sub->callback([&globals, a, add] {
      const uint32_t dir = parseDir(a->dir);
      ordered_json out = {{"service", "nat"}, {"op", add ? "add" : "del"}};
      const int32_t ret =
          sendArgs(globals, a->slot, add ? kNatAdd : kNatDel, add ? kSlotNatAdd : kSlotNatDel,
                   words({a->lstIdx, a->natCmd, dir}), &out);
      out["list"] = a->lstIdx;
      out["cmd"] = a->natCmd;
      out["dir"] = dir;
      aclclient::reportResult(globals,
                              std::string("nat ") + (add ? "add " : "del ") +
                                  std::to_string(a->lstIdx) + " (" + scopeText(a->slot) + ")",
                              ret, out);
    });
  }
}

struct BlackListArgs {
  uint32_t sys = 0, slot = 0, lstIdx = 0;
};

void addBlackList(CLI::App& app, AclctlGlobals& globals) {
  auto* cmd = app.add_subcommand("blacklist", "Put a list on a slot's blacklist or take it off");
  cmd->require_subcommand(1);
  for (const bool add : {true, false}) {
    auto a = std::make_shared<BlackListArgs>();
    auto* sub = cmd->add_subcommand(
        add ? "add" : "del",
        add ? "Install the list's rules as deny rules for the slot" : "Remove that blacklisting");
    sub->add_option("SYS", a->sys, "system (0: no particular system)")->required();
    sub->add_option("SLOT", a->slot, "slot (0: no particular slot)")->required();
    sub->add_option("LIST", a->lstIdx, "list number")->required();
    sub->callback([&globals, a, add] {
      wire::Request req;
      req.funcId = wire::fid::aclScalarSetApi;
      req.cmd = add ? kBlackListAdd : kBlackListDel;
      req.keyShape = wire::KeyShape::None;
      req.bufShape = wire::BufShape::Ptr;
      req.data = words({a->sys, a->slot, a->lstIdx});
      aclclient::TableSession s(globals);
      const int32_t ret = s.call(req).result;
      const ordered_json out = {{"service", "blacklist"},
                                {"op", add ? "add" : "del"},
                                {"system", a->sys},
                                {"slot", a->slot},
                                {"list", a->lstIdx}};
      aclclient::reportResult(globals,
                              std::string("blacklist ") + (add ? "add " : "del ") +
                                  std::to_string(a->sys) + "/" + std::to_string(a->slot) + " " +
                                  std::to_string(a->lstIdx),
                              ret, out);
    });
  }
}

}  // namespace

void aclctlAddServiceCommands(CLI::App& app, AclctlGlobals& globals) {
  addCpudefend(app, globals);
  addNat(app, globals);
  addBlackList(app, globals);
}
