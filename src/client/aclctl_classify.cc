// aclctl dev classify: asks the virtual device which entry of one hardware table a frame hits,
// and with which actions. Readable lines by default, the device's reply with --json.
#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "client/aclctl.h"
#include "client/aclctl_classify.h"
#include "client/aclctl_cmds.h"
#include "client/dev_client.h"

namespace {

using nlohmann::json;

struct ClassifyArgs {
  std::string frame;
  uint32_t unit = 0;
  bool global = false;
  uint32_t dir = 0;
};

std::string text(const json& j) {
  return j.is_string() ? j.get<std::string>() : j.dump();
}

void printReadable(const json& r) {
  const json& f = r.at("frame");
  std::cout << "frame: " << text(f.value("srcMac", json())) << " -> "
            << text(f.value("dstMac", json())) << " ethType " << text(f.value("ethType", json()));
  if (f.contains("outer")) std::cout << " vlan " << f["outer"].value("vid", 0);
  if (f.contains("inner")) std::cout << "/" << f["inner"].value("vid", 0);
  if (f.contains("ipVer")) {
    std::cout << " " << text(f["src"]) << " -> " << text(f["dst"]) << " protocol "
              << f.value("protocol", 0);
    if (f.contains("srcPort")) std::cout << " ports " << f["srcPort"] << " -> " << f["dstPort"];
    if (f.contains("icmpType")) std::cout << " icmp " << f["icmpType"] << "/" << f["icmpCode"];
  }
  std::cout << "\n";
  std::cout << "entries examined: " << r.value("examined", 0) << "\n";
  const json& m = r.at("match");
  if (m.is_null()) {
    std::cout << "no entry matches\n";
  } else {
    std::cout << "match: list " << m.value("list", 0) << " rule " << m.value("rule", 0)
              << " priority " << m.value("priority", 0) << " (" << text(m.value("form", json()))
              << ")\n";
    const json& d = m.at("decoded");
    for (const json& a : d.value("actions", json::array())) {
      std::cout << "  action " << text(a.value("name", json()));
      if (a.contains("value")) std::cout << " " << text(a["value"]);
      std::cout << "\n";
    }
    for (const json& a : d.value("outActions", json::array())) {
      std::cout << "  out-action " << text(a.value("name", json())) << "\n";
    }
  }
  for (const json& u : r.value("unjudged", json::array())) {
    std::cout << "not compared: list " << u.value("list", 0) << " rule " << u.value("rule", 0)
              << " (" << text(u.value("field", json())) << ")\n";
  }
}

}  // namespace

void aclctlAddDevClassify(CLI::App* dev, AclctlGlobals& globals) {
  auto args = std::make_shared<ClassifyArgs>();
  auto* sub = dev->add_subcommand(
      "classify", "Which entry of a hardware table an Ethernet frame (hex bytes) hits");
  sub->add_option("frame", args->frame, "the frame in hex, from the destination MAC on")
      ->required();
  auto* unit = sub->add_option("--unit", args->unit, "the table of this interface unit");
  auto* global = sub->add_flag("--global", args->global, "the global table");
  unit->excludes(global);
  sub->add_option("--dir", args->dir, "0 ingress (default), 1 egress, 2 ingress pre-stage");
  sub->callback([&globals, args, unit] {
    json req = {{"op", "classify"}, {"frame", args->frame}, {"dir", args->dir}};
    if (unit->count() > 0) {
      req["scope"] = "unit";
      req["unit"] = args->unit;
    } else {
      req["scope"] = "global";
    }
    json reply;
    std::string err;
    if (!aclclient::devRequest(aclclient::devSocketPath(globals.runDir), req, &reply, &err)) {
      throw AclctlExit(kAclctlExitFailed, err);
    }
    if (!reply.value("ok", false)) {
      if (globals.json) std::cout << reply.dump() << std::endl;
      throw AclctlExit(kAclctlExitFailed, reply.value("error", std::string("device refused")));
    }
    if (globals.json) {
      std::cout << reply.dump(2, ' ', false, json::error_handler_t::replace) << std::endl;
    } else {
      printReadable(reply);
    }
  });
}
