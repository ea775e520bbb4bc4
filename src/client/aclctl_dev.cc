// aclctl dev ...: inspection and control of the virtual device over its socket. Every command
// prints the device's JSON reply; an error reply is printed too and ends aclctl with status 1.
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/aclctl.h"
#include "client/aclctl_classify.h"
#include "client/aclctl_cmds.h"
#include "client/call_args.h"
#include "client/dev_client.h"

namespace {

using nlohmann::json;

enum class Kind { Number, Text, Flag, Numbers, Pairs, Raw };

struct Field {
  std::string flag;  // "--unit"
  std::string key;   // "unit"
  Kind kind;
  std::string help;
};

// Values given on the command line, by JSON key.
struct Given {
  std::map<std::string, std::vector<std::string>> values;
};

json number(const std::string& flag, const std::string& text) {
  char* end = nullptr;
  errno = 0;
  if (!text.empty() && text[0] == '-') {
    const long long v = std::strtoll(text.c_str(), &end, 0);
    if (*end == '\0' && errno == 0) return v;
  } else {
    const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (!text.empty() && *end == '\0' && errno == 0) return v;
  }
  throw AclctlExit(kAclctlExitUsage, flag + ": \"" + text + "\" is not a number");
}

json build(const std::string& op, const std::vector<Field>& fields, const Given& g) {
  json req = {{"op", op}};
  for (const Field& f : fields) {
    auto it = g.values.find(f.key);
    if (it == g.values.end() || it->second.empty()) continue;
    const auto& v = it->second;
    switch (f.kind) {
      case Kind::Number:
        req[f.key] = number(f.flag, v.front());
        break;
      case Kind::Text:
        req[f.key] = v.front();
        break;
      case Kind::Flag:
        if (v.front() != "true" && v.front() != "false") {
          throw AclctlExit(kAclctlExitUsage, f.flag + " takes true or false");
        }
        req[f.key] = v.front() == "true";
        break;
      case Kind::Numbers: {
        json a = json::array();
        for (const auto& s : v) a.push_back(number(f.flag, s));
        req[f.key] = a;
        break;
      }
      case Kind::Pairs: {
        // KEY=VALUE; a numeric value stays a number (properties, modes), else text (options).
        json o = json::object();
        for (const auto& s : v) {
          const auto eq = s.find('=');
          if (eq == std::string::npos || eq == 0) {
            throw AclctlExit(kAclctlExitUsage, f.flag + " takes KEY=VALUE, not \"" + s + "\"");
          }
          const std::string val = s.substr(eq + 1);
          char* end = nullptr;
          const long long n = std::strtoll(val.c_str(), &end, 0);
          o[s.substr(0, eq)] = (!val.empty() && *end == '\0') ? json(n) : json(val);
        }
        req[f.key] = o;
        break;
      }
      case Kind::Raw:
        try {
          req[f.key] = json::parse(v.front());
        } catch (const json::exception& e) {  // also a number out of range
          throw AclctlExit(kAclctlExitUsage, f.flag + ": not JSON: " + e.what());
        }
        break;
    }
  }
  return req;
}

json ask(const AclctlGlobals& globals, const json& req) {
  json reply;
  std::string err;
  if (!aclclient::devRequest(aclclient::devSocketPath(globals.runDir), req, &reply, &err)) {
    throw AclctlExit(kAclctlExitFailed, err);
  }
  return reply;
}

void print(const json& reply) {
  std::cout << reply.dump(2, ' ', false, json::error_handler_t::replace) << std::endl;
  if (!reply.value("ok", false)) {
    throw AclctlExit(kAclctlExitFailed, reply.value("error", std::string("device refused")));
  }
}

void run(const AclctlGlobals& globals, const json& req) {
  print(ask(globals, req));
}

// A journal log comes in pages ("more", and "last" to pass as "since"); the pages are joined so
// the listing prints as one reply, whatever its length.
void runPaged(const AclctlGlobals& globals, json req, const std::string& key) {
  json all = ask(globals, req);
  json reply = all;
  while (reply.value("ok", false) && reply.value("more", false)) {
    const json last = reply.value("last", json());
    if (!last.is_number_unsigned() || last == req.value("since", json())) break;  // no progress
    req["since"] = last;
    reply = ask(globals, req);
    if (!reply.value("ok", false)) {
      all = reply;
      break;
    }
    for (auto& e : reply[key]) all[key].push_back(std::move(e));
    all["last"] = reply["last"];
  }
  all.erase("more");
  print(all);
}

// Adds one subcommand that sends op with the given fields. wrap, when set, moves the listed keys
// into an object under that key (interface.set takes {"interface": {...}}).
CLI::App* command(CLI::App* parent, AclctlGlobals& globals, const std::string& name,
                  const std::string& help, const std::string& op, std::vector<Field> fields,
                  const std::string& wrap = {}, std::vector<std::string> required = {}) {
  auto* sub = parent->add_subcommand(name, help);
  auto given = std::make_shared<Given>();
  for (const Field& f : fields) {
    auto& slot = given->values[f.key];
    CLI::Option* o = nullptr;
    if (f.kind == Kind::Numbers || f.kind == Kind::Pairs) {
      o = sub->add_option(f.flag, slot, f.help)->delimiter(',');
    } else {
      o = sub->add_option(f.flag, slot, f.help)->expected(1);
    }
    for (const auto& r : required) {
      if (r == f.key) o->required();
    }
  }
  sub->callback([&globals, op, fields, wrap, given] {
    json req = build(op, fields, *given);
    if (!wrap.empty()) {
      json inner = json::object();
      for (const Field& f : fields) {
        if (req.contains(f.key)) {
          inner[f.key] = req[f.key];
          req.erase(f.key);
        }
      }
      req[wrap] = inner;
    }
    run(globals, req);
  });
  return sub;
}

const Field kSince{"--since", "since", Kind::Number, "only entries after this sequence number"};

void journalCommand(CLI::App* dev, AclctlGlobals& globals, const std::string& name,
                    const std::string& help) {
  auto* sub = dev->add_subcommand(name, help);
  auto given = std::make_shared<Given>();
  sub->add_option(kSince.flag, given->values[kSince.key], kSince.help)->expected(1);
  sub->callback(
      [&globals, name, given] { runPaged(globals, build(name, {kSince}, *given), name); });
}

}  // namespace

void aclctlAddDevCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* dev = app.add_subcommand("dev", "Inspect and control the virtual device");
  dev->require_subcommand(1);
  command(dev, globals, "show", "The device model, journal sizes and armed faults", "show", {});
  command(dev, globals, "hw", "Hardware rule tables (each rule decoded): all scopes, or one", "hw",
          {{"--scope", "scope", Kind::Text, "global, unit or gem"},
           {"--unit", "unit", Kind::Number, "unit of a unit or GEM scope"},
           {"--onu", "onu", Kind::Number, "ONU id of a GEM scope"},
           {"--gem", "gem", Kind::Number, "GEM port of a GEM scope"}});
  aclctlAddDevClassify(dev, globals);
  journalCommand(dev, globals, "relays", "The relay log");
  journalCommand(dev, globals, "announcements", "Announcements sent to message groups");
  journalCommand(dev, globals, "anomalies", "Double installs and removals of missing entries");
  journalCommand(dev, globals, "commands", "Slot, scalar and card-up commands the device kept");
  command(dev, globals, "log", "The daemon's recent log lines", "log", {kSince});
  command(dev, globals, "clear", "Empty journal parts", "clear",
          {{"--what", "what", Kind::Text,
            "relays, announcements, anomalies, commands, hw or all (default all)"}});
  {
    // The request object exactly as given.
    auto* raw = dev->add_subcommand("request", "Send a raw JSON request");
    auto text = std::make_shared<std::string>();
    raw->add_option("json", *text, "the request object, e.g. {\"op\":\"show\"}")->required();
    raw->callback([&globals, text] {
      json req;
      try {
        req = json::parse(*text);
      } catch (const json::exception& e) {  // also a number out of range
        throw AclctlExit(kAclctlExitUsage, std::string("request is not JSON: ") + e.what());
      }
      run(globals, req);
    });
  }

  auto* fault = dev->add_subcommand("fault", "Fail chosen platform calls (alone: list them)");
  fault->require_subcommand(0, 1);
  fault->callback([&globals, fault] {
    if (fault->get_subcommands().empty()) run(globals, {{"op", "fault.list"}});
  });
  command(fault, globals, "add", "Arm a fault", "fault.add",
          {{"--call", "call", Kind::Text, "call name, e.g. zorHwilCmdSetApi (default any)"},
           {"--cmd", "cmd", Kind::Number, "command or field id"},
           {"--scope", "scope", Kind::Text, "global, unit or gem"},
           {"--unit", "unit", Kind::Number, "unit"},
           {"--list", "list", Kind::Number, "list index"},
           {"--rule", "rule", Kind::Number, "rule index"},
           {"--onu", "onu", Kind::Number, "ONU id of a GEM key"},
           {"--gem", "gem", Kind::Number, "GEM port of a GEM key"},
           {"--name", "name", Kind::Text, "name the call carries"},
           {"--result", "result", Kind::Number, "result to fail with (default -1)"},
           {"--skip", "skip", Kind::Number, "matching calls to let through first"},
           {"--count", "count", Kind::Text, "once, always or a number (default once)"}});
  command(fault, globals, "list", "Armed faults", "fault.list", {});
  command(fault, globals, "remove", "Disarm one fault", "fault.remove",
          {{"--id", "id", Kind::Number, "fault id"}}, {}, {"id"});
  command(fault, globals, "clear", "Disarm every fault", "fault.clear", {});

  const std::vector<Field> ifFields = {
      {"--index", "index", Kind::Number, "interface index"},
      {"--name", "name", Kind::Text, "interface name"},
      {"--system", "system", Kind::Number, "system"},
      {"--slot", "slot", Kind::Number, "slot"},
      {"--port", "port", Kind::Number, "port"},
      {"--kind", "kind", Kind::Number, "1 Ethernet, 3 all-slot, 4 PON"},
      {"--flags13", "flags13", Kind::Number, "flag word 13"},
      {"--flags10", "flags10", Kind::Number, "flag word 10"}};
  auto* ifc = dev->add_subcommand("if", "Interfaces");
  ifc->require_subcommand(1);
  command(ifc, globals, "set", "Add an interface or change its fields", "interface.set", ifFields,
          "interface", {"index"});
  command(ifc, globals, "remove", "Remove an interface", "interface.remove",
          {{"--index", "index", Kind::Number, "interface index"}}, {}, {"index"});
  command(ifc, globals, "reset", "Announce a reset of the interface's configuration",
          "interface.reset",
          {{"--index", "index", Kind::Number, "interface index"},
           {"--reason", "reason", Kind::Number, "1 mlag, other manual (default 0)"},
           {"--operation", "operation", Kind::Number, "1 reset all, other defaults (default 0)"},
           {"--flags", "flags", Kind::Number, "flag word (default 0)"}},
          {}, {"index"});

  auto* agg = dev->add_subcommand("agg", "Aggregations");
  agg->require_subcommand(1);
  command(agg, globals, "set", "Add an aggregation or change it", "aggregation.set",
          {{"--index", "index", Kind::Number, "aggregation index"},
           {"--name", "name", Kind::Text, "name"},
           {"--members", "members", Kind::Numbers, "member ports, comma-separated"},
           {"--mode", "mode", Kind::Number,
            "mode for commands without their own (bit 1 agg, bit 0 members)"},
           {"--modes", "modes", Kind::Pairs, "CMD=MODE per hardware command"}},
          "aggregation", {"index"});
  command(agg, globals, "remove", "Remove an aggregation", "interface.remove",
          {{"--index", "index", Kind::Number, "aggregation index"}}, {}, {"index"});

  auto* card = dev->add_subcommand("card", "Cards");
  card->require_subcommand(1);
  {
    // System and slot at the top of the request, the card's own fields under "card".
    auto* set = card->add_subcommand("set", "Insert a card or change it");
    auto given = std::make_shared<Given>();
    const std::vector<Field> where = {{"--system", "system", Kind::Number, "system"},
                                      {"--slot", "slot", Kind::Number, "slot"}};
    const std::vector<Field> cardFields = {
        {"--type", "type", Kind::Number, "card type"},
        {"--name", "name", Kind::Text, "card name"},
        {"--property", "properties", Kind::Pairs, "ID=RESULT property answers"},
        {"--option", "options", Kind::Pairs, "KEY=VALUE option answers"}};
    for (const Field& f : where) {
      set->add_option(f.flag, given->values[f.key], f.help)->expected(1)->required();
    }
    for (const Field& f : cardFields) {
      set->add_option(f.flag, given->values[f.key], f.help)->delimiter(',');
    }
    set->callback([&globals, given, where, cardFields] {
      json req = build("card.set", where, *given);
      json c = build("", cardFields, *given);
      c.erase("op");
      req["card"] = c;
      run(globals, req);
    });
  }
  const std::vector<Field> where = {{"--system", "system", Kind::Number, "system"},
                                    {"--slot", "slot", Kind::Number, "slot"}};
  command(card, globals, "remove", "Pull the card out of a slot", "card.set", where, {},
          {"system", "slot"});
  command(card, globals, "up", "Announce that the card in a slot is up", "card.up", where, {},
          {"system", "slot"});
  auto* slot = dev->add_subcommand("slot", "Slots");
  slot->require_subcommand(1);
  command(slot, globals, "up", "Announce that a slot is up", "slot.up", where, {},
          {"system", "slot"});
  auto* sys = dev->add_subcommand("system", "Systems");
  sys->require_subcommand(1);
  command(sys, globals, "up", "Announce that a system is up", "system.up",
          {{"--system", "system", Kind::Number, "system"}}, {}, {"system"});
  {
    // The bytes are checked here, so a typo never reaches the bus.
    auto* send = dev->add_subcommand(
        "send", "Send raw bytes as one route message: to the daemon, or to a group's members");
    auto hex = std::make_shared<std::string>();
    auto group = std::make_shared<std::vector<std::string>>();
    send->add_option("HEX", *hex, "the datagram in hex, e.g. 0000001800220000...")->required();
    send->add_option("--group", *group, "message group: every socket that joined it")->expected(1);
    send->callback([&globals, hex, group] {
      const auto bytes = aclclient::parseHex(*hex);
      if (!bytes || bytes->empty()) {
        throw AclctlExit(
            kAclctlExitUsage,
            "HEX must be hex digits, two to a byte, at least one byte: \"" + *hex + "\"");
      }
      json req = {{"op", "route.send"}, {"hex", aclclient::toHex(*bytes)}};
      if (!group->empty()) req["group"] = number("--group", group->front());
      run(globals, req);
    });
  }

  auto* nbr = dev->add_subcommand("nbr", "Neighbours");
  nbr->require_subcommand(1);
  const std::vector<Field> nbrFields = {{"--vrf", "vrf", Kind::Number, "VRF (default 0)"},
                                        {"--address", "address", Kind::Text, "IPv4 or IPv6"}};
  command(nbr, globals, "add", "Learn a neighbour", "neighbour.add", nbrFields, {}, {"address"});
  command(nbr, globals, "remove", "Lose a neighbour", "neighbour.remove", nbrFields, {},
          {"address"});

  auto* tr = dev->add_subcommand("timerange", "Time ranges");
  tr->require_subcommand(1);
  command(tr, globals, "set", "Add a time range or switch it", "timerange.set",
          {{"--id", "id", Kind::Number, "time range id"},
           {"--name", "name", Kind::Text, "name"},
           {"--active", "active", Kind::Flag, "true or false"}},
          {}, {"id"});
  command(tr, globals, "remove", "Remove a time range", "timerange.remove",
          {{"--id", "id", Kind::Number, "time range id"}}, {}, {"id"});

  auto* onu = dev->add_subcommand("onu", "ONUs and GEM ports behind PON interfaces");
  onu->require_subcommand(1);
  command(onu, globals, "set", "Register an ONU or add GEM ports to it", "onu.set",
          {{"--interface", "interface", Kind::Number, "PON interface"},
           {"--onu", "onu", Kind::Number, "ONU id"},
           {"--gem", "gemPorts", Kind::Numbers, "GEM ports, comma-separated"}},
          {}, {"interface", "onu"});
  command(onu, globals, "remove", "Remove an ONU, or one GEM port of it", "onu.remove",
          {{"--interface", "interface", Kind::Number, "PON interface"},
           {"--onu", "onu", Kind::Number, "ONU id"},
           {"--gem", "gem", Kind::Number, "only this GEM port"}},
          {}, {"interface", "onu"});

  command(dev, globals, "scalar", "Set a hardware scalar", "scalar.set",
          {{"--id", "id", Kind::Number, "scalar id"}, {"--value", "value", Kind::Number, "value"}},
          {}, {"id", "value"});
  command(dev, globals, "counter", "Set the counters behind a statistics read", "counter.set",
          {{"--list", "list", Kind::Number, "list index"},
           {"--rule", "rule", Kind::Number, "rule index"},
           {"--interface", "interface", Kind::Number, "interface (0 rule statistics)"},
           {"--direction", "direction", Kind::Number, "direction"},
           {"--p1", "p1", Kind::Number, ""},
           {"--p2", "p2", Kind::Number, ""},
           {"--b1", "b1", Kind::Number, ""},
           {"--b2", "b2", Kind::Number, ""},
           {"--p3", "p3", Kind::Number, ""},
           {"--p4", "p4", Kind::Number, ""},
           {"--b3", "b3", Kind::Number, ""},
           {"--b4", "b4", Kind::Number, ""}},
          {}, {"list", "rule"});
}
