// aclctl global ..., aclctl limits, aclctl version and aclctl debug: the scalar table (function ids
// 1 to 3) in words. A result other than 0 ends aclctl with status 1 and the code by name.
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_common.h"
#include "client/aclctl_tables.h"
#include "client/dev_client.h"
#include "client/table_session.h"
#include "wire/func_table.h"

namespace {

using aclclient::TableSession;
using nlohmann::ordered_json;

constexpr uint32_t kGlbCmdInCtrl = 6;  // 7 egress
constexpr uint32_t kCmdInAcl = 8;      // 9 egress
constexpr uint32_t kCmdDebugSet = 18;
constexpr uint32_t kCmdDebugClear = 19;
constexpr uint32_t kCmdVersion = 21;
constexpr uint32_t kCmdFirstSlot = 26;   // inL2Acl; then out, then the next type
constexpr uint32_t kGlbCmdRuleNum = 41;  // in use / maximum pairs, L2 first
constexpr uint32_t kVersionCapacity = 64;

// The typed global slots in command order: in and out of each type.
constexpr const char* kTypes[] = {"l2", "ipv4", "ipv6", "hybrid", "mpls", "udf"};
constexpr const char* kSlotTypeNames[] = {"L2", "Ipv4", "Ipv6", "Hybrid", "Mpls", "Udf"};

uint32_t typeColumn(const std::string& type) {
  for (uint32_t n = 0; n < std::size(kTypes); ++n) {
    if (type == kTypes[n]) return n;
  }
  throw AclctlExit(kAclctlExitUsage, "unknown list type " + type);
}

uint32_t dirOffset(const std::string& dir) {
  return dir == "out" ? 1 : 0;
}

uint32_t slotCmd(const std::string& dir, const std::string& type) {
  return kCmdFirstSlot + typeColumn(type) * 2 + dirOffset(dir);
}

// A value the daemon must answer; any refusal ends aclctl.
uint32_t mustGet(TableSession& s, uint32_t cmd, const char* what) {
  const aclclient::ValueAnswer v = s.getValue(wire::fid::aclScalarGetApi, 0, cmd);
  if (v.ret != 0) {
    throw AclctlExit(kAclctlExitFailed, std::string(what) + ": " + aclclient::retText(v.ret));
  }
  return v.value;
}

uint32_t parseBits(const std::string& text) {
  try {
    size_t used = 0;
    const unsigned long v = std::stoul(text, &used, 0);
    if (used == text.size() && v <= 0xFFFFFFFFul) return static_cast<uint32_t>(v);
  } catch (const std::exception&) {
  }
  throw AclctlExit(kAclctlExitUsage, "bits must be a number (0x.. for hex): " + text);
}

void showGlobal(const AclctlGlobals& g) {
  TableSession s(g);
  ordered_json generic;
  for (const char* dir : {"in", "out"}) {
    const uint32_t off = dirOffset(dir);
    const uint32_t sw = mustGet(s, kGlbCmdInCtrl + off, "switch");
    generic[dir] = {{"switch", sw}, {"on", sw == 1}, {"list", mustGet(s, kCmdInAcl + off, "list")}};
  }
  ordered_json slots = ordered_json::array();
  for (uint32_t col = 0; col < std::size(kTypes); ++col) {
    for (const char* dir : {"in", "out"}) {
      const uint32_t cmd = kCmdFirstSlot + col * 2 + dirOffset(dir);
      slots.push_back({{"slot", std::string(dir) + kSlotTypeNames[col] + "Acl"},
                       {"direction", dir},
                       {"type", kTypes[col]},
                       {"list", mustGet(s, cmd, "slot")}});
    }
  }
  if (g.json) {
    std::cout << ordered_json{{"generic", generic}, {"slots", slots}}.dump() << std::endl;
    return;
  }
  for (const char* dir : {"in", "out"}) {
    const auto& e = generic[dir];
    std::printf("generic %-3s  list %-5u switch %s (%u)\n", dir, e["list"].get<uint32_t>(),
                e["on"].get<bool>() ? "on" : "off", e["switch"].get<uint32_t>());
  }
  for (const auto& e : slots) {
    const uint32_t list = e["list"].get<uint32_t>();
    std::printf("%-13s %s\n", e["slot"].get<std::string>().c_str(),
                list == 0 ? "-" : std::to_string(list).c_str());
  }
}

// The event task's counters. The command table has no function for them; the daemon answers them
// on the device control socket it serves in-process.
ordered_json eventCounters(const AclctlGlobals& g) {
  nlohmann::json reply;
  std::string err;
  if (!aclclient::devRequest(aclclient::devSocketPath(g.runDir), {{"op", "events"}}, &reply,
                             &err)) {
    throw AclctlExit(kAclctlExitFailed, "event counters: " + err);
  }
  ordered_json out;
  for (const char* k : {"rtMsgRecvCnt", "rtMsgOkCnt", "rtMsgErrCnt", "rtMsgRecvFailCnt"}) {
    if (!reply.value("ok", false) || !reply.contains(k) || !reply[k].is_number_unsigned()) {
      throw AclctlExit(kAclctlExitFailed,
                       "event counters: " + reply.value("error", std::string("no answer")));
    }
    out[k] = reply[k].get<uint32_t>();
  }
  return out;
}

void showLimits(const AclctlGlobals& g) {
  TableSession s(g);
  ordered_json j;
  j["max_lists"] = mustGet(s, 0, "max lists");
  j["cur_lists"] = mustGet(s, 1, "lists");
  j["max_rules_per_list"] = mustGet(s, 2, "max rules per list");
  j["max_global_rules"] = mustGet(s, 3, "max global rules");
  j["valid_global_rules"] = mustGet(s, 4, "global rules");
  ordered_json rules;
  for (uint32_t col = 0; col < std::size(kTypes); ++col) {
    rules[kTypes[col]] = {{"used", mustGet(s, kGlbCmdRuleNum + col * 2, "rules")},
                          {"max", mustGet(s, kGlbCmdRuleNum + col * 2 + 1, "rules")}};
  }
  j["rules"] = rules;
  j["car_min"] = mustGet(s, 39, "car min");
  j["car_max"] = mustGet(s, 40, "car max");
  j["redirect_multi"] = mustGet(s, 38, "redirect multi");
  j["events"] = eventCounters(g);
  if (g.json) {
    std::cout << j.dump() << std::endl;
    return;
  }
  std::printf("lists              %u of %u\n", j["cur_lists"].get<uint32_t>(),
              j["max_lists"].get<uint32_t>());
  std::printf("rules per list     %u\n", j["max_rules_per_list"].get<uint32_t>());
  std::printf("global rules       %u valid of %u\n", j["valid_global_rules"].get<uint32_t>(),
              j["max_global_rules"].get<uint32_t>());
  for (const char* t : kTypes) {
    std::printf("%-6s rules        %u of %u\n", t, rules[t]["used"].get<uint32_t>(),
                rules[t]["max"].get<uint32_t>());
  }
  std::printf("car                %u .. %u\n", j["car_min"].get<uint32_t>(),
              j["car_max"].get<uint32_t>());
  std::printf("redirect multi     %s\n", j["redirect_multi"].get<uint32_t>() != 0 ? "on" : "off");
  const auto& e = j["events"];
  std::printf("route messages     %u received, %u ok, %u failed, %u receive errors\n",
              e["rtMsgRecvCnt"].get<uint32_t>(), e["rtMsgOkCnt"].get<uint32_t>(),
              e["rtMsgErrCnt"].get<uint32_t>(), e["rtMsgRecvFailCnt"].get<uint32_t>());
}

struct GlobalArgs {
  std::string dir;
  std::string type;
  std::string onOff;
  std::string bits;
  uint32_t list = 0;
};

void addDirOption(CLI::App* sub, GlobalArgs* a) {
  sub->add_option("DIR", a->dir, "in or out")->required()->check(CLI::IsMember({"in", "out"}));
}

void addTypeOption(CLI::App* sub, GlobalArgs* a) {
  sub->add_option("TYPE", a->type, "l2, ipv4, ipv6, hybrid, mpls or udf")
      ->required()
      ->check(CLI::IsMember({"l2", "ipv4", "ipv6", "hybrid", "mpls", "udf"}));
}

}  // namespace

void aclctlAddGlobalCommands(CLI::App& app, AclctlGlobals& globals) {
  auto a = std::make_shared<GlobalArgs>();
  auto* global =
      app.add_subcommand("global", "Global bindings: typed slots and the generic switch");
  global->require_subcommand(1);

  auto* bind = global->add_subcommand("bind", "Bind a list to a typed global slot");
  addDirOption(bind, a.get());
  addTypeOption(bind, a.get());
  bind->add_option("LIST", a->list, "list number")->required();
  bind->callback([&globals, a] {
    TableSession s(globals);
    const uint32_t cmd = slotCmd(a->dir, a->type);
    aclclient::reportResult(globals, "global bind " + a->dir + " " + a->type,
                            s.setValue(wire::fid::aclScalarSetApi, 0, cmd, a->list),
                            {{"direction", a->dir}, {"type", a->type}, {"list", a->list}});
  });

  auto* unbind = global->add_subcommand("unbind", "Empty a typed global slot");
  addDirOption(unbind, a.get());
  addTypeOption(unbind, a.get());
  unbind->callback([&globals, a] {
    TableSession s(globals);
    aclclient::reportResult(globals, "global unbind " + a->dir + " " + a->type,
                            s.setValue(wire::fid::aclScalarSetApi, 0, slotCmd(a->dir, a->type), 0),
                            {{"direction", a->dir}, {"type", a->type}});
  });

  auto* sw = global->add_subcommand("switch", "Switch the generic binding on or off");
  addDirOption(sw, a.get());
  sw->add_option("STATE", a->onOff, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
  sw->callback([&globals, a] {
    TableSession s(globals);
    const bool on = a->onOff == "on";
    aclclient::reportResult(
        globals, "global switch " + a->dir + " " + a->onOff,
        s.setValue(wire::fid::aclScalarSetApi, 0, kGlbCmdInCtrl + dirOffset(a->dir), on ? 1 : 0),
        {{"direction", a->dir}, {"on", on}});
  });

  auto* generic = global->add_subcommand(
      "set-generic", "Name the list of the generic binding (takes effect when switched on)");
  addDirOption(generic, a.get());
  generic->add_option("LIST", a->list, "list number")->required();
  generic->callback([&globals, a] {
    TableSession s(globals);
    aclclient::reportResult(
        globals, "global set-generic " + a->dir,
        s.setValue(wire::fid::aclScalarSetApi, 0, kCmdInAcl + dirOffset(a->dir), a->list),
        {{"direction", a->dir}, {"list", a->list}});
  });

  global->add_subcommand("show", "Every global slot, the switches and the generic lists")
      ->callback([&globals] { showGlobal(globals); });

  app.add_subcommand("limits", "Limits and counts of lists, rules and CAR; event counters")
      ->callback([&globals] { showLimits(globals); });

  app.add_subcommand("version", "The daemon's version string")->callback([&globals] {
    TableSession s(globals);
    const aclclient::BytesAnswer v =
        s.getBytes(wire::fid::aclScalarGetApi, 0, kCmdVersion, kVersionCapacity);
    if (v.ret != 0) {
      throw AclctlExit(kAclctlExitFailed, "version: " + aclclient::retText(v.ret));
    }
    const std::string text(v.data.begin(), v.data.end());
    if (globals.json) {
      std::cout << ordered_json{{"version", text}}.dump() << std::endl;
    } else {
      std::cout << text << std::endl;
    }
  });

  auto* debug = app.add_subcommand("debug", "Set or clear debug bits (0x40 counter, 0x80 meter)");
  debug->require_subcommand(1);
  for (const auto& [verb, cmd] :
       {std::pair{"set", kCmdDebugSet}, std::pair{"clear", kCmdDebugClear}}) {
    auto* sub = debug->add_subcommand(verb, std::string(verb) + " the given bits");
    sub->add_option("BITS", a->bits, "bit mask, e.g. 0x4")->required();
    sub->callback([&globals, a, verb = std::string(verb), cmd = cmd] {
      const uint32_t bits = parseBits(a->bits);
      TableSession s(globals);
      const int32_t ret = s.setValue(wire::fid::aclScalarSetApi, 0, cmd, bits);
      ordered_json extra = {{"bits", bits}};
      if (ret == 0) {
        const aclclient::ValueAnswer now = s.getValue(wire::fid::aclScalarGetApi, 0, kCmdDebugSet);
        if (now.ret == 0) extra["debug_flags"] = now.value;
        if (!globals.json && now.ret == 0) {
          std::cout << "debug flags " << hex32(now.value) << std::endl;
        }
      }
      aclclient::reportResult(globals, "debug " + verb + " " + hex32(bits), ret, extra);
    });
  }
}
