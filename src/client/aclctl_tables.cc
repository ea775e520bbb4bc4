#include "client/aclctl_tables.h"

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"

namespace aclclient {

std::string statusName(uint32_t status) {
  switch (status) {
    case 0: return "free";
    case 1: return "valid";
    case 3: return "created";
    default: return std::to_string(status);
  }
}

void reportResult(const AclctlGlobals& globals, const std::string& what, int32_t ret,
                  nlohmann::ordered_json extra) {
  if (globals.json) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", static_cast<uint32_t>(ret));
    extra["ret"] = ret;
    extra["ret_hex"] = hex;
    extra["ok"] = ret == 0;
    std::cout << extra.dump() << std::endl;
  } else if (ret == 0) {
    std::cout << what << ": ok" << std::endl;
  }
  if (ret != 0) throw AclctlExit(kAclctlExitFailed, what + ": " + retText(ret));
}

namespace {

struct EntryOptions {
  uint32_t index = 0;
  std::map<std::string, uint32_t> values;  // by attribute key
  std::string name;
  bool hasName = false;
};

nlohmann::ordered_json showEntry(TableSession& s, const TableFamily& f, uint32_t index) {
  nlohmann::ordered_json e;
  e["index"] = index;
  const ValueAnswer status = s.getValue(f.getApi, index, f.statusCmd);
  if (status.ret != 0) {
    e["error"] = retText(status.ret);
    return e;
  }
  e["status"] = statusName(status.value);
  if (f.name) {
    const BytesAnswer n = s.getBytes(f.getApi, index, f.name->cmd, 64);
    if (n.ret == 0) e[f.name->key] = std::string(n.data.begin(), n.data.end());
  }
  for (const TableAttr& a : f.attrs) {
    const ValueAnswer v = s.getValue(f.getApi, index, a.cmd);
    if (v.ret == 0) e[a.key] = v.value;
  }
  if (f.extra) f.extra(s, index, e);
  return e;
}

void printEntries(const nlohmann::ordered_json& entries, const TableFamily& f) {
  for (const auto& e : entries) {
    std::cout << f.noun << " " << e["index"].get<uint32_t>();
    for (auto it = e.begin(); it != e.end(); ++it) {
      if (it.key() == "index") continue;
      std::cout << "  " << it.key() << "="
                << (it->is_string() ? it->get<std::string>() : it->dump());
    }
    std::cout << "\n";
  }
  if (entries.empty()) std::cout << "no " << f.noun << "s\n";
}

uint32_t chooseIndex(TableSession& s, const TableFamily& f, uint32_t index) {
  if (index != 0) return index;
  const ValueAnswer free = f.freeIndex(s);
  if (free.ret != 0 || free.value == UINT32_MAX) {
    throw AclctlExit(kAclctlExitFailed, std::string("no free ") + f.noun + ": " +
                                            retText(free.ret));
  }
  return free.value;
}

}  // namespace

void addTableCommands(CLI::App& parent, AclctlGlobals& globals, const TableFamily& f) {
  const std::string noun = f.noun;
  auto family = std::make_shared<TableFamily>(f);

  auto create = std::make_shared<EntryOptions>();
  auto* c = parent.add_subcommand("create", "Create a " + noun + " (the lowest free index when "
                                                                 "none is given)");
  c->add_option("INDEX", create->index, noun + " index");
  c->callback([&globals, family, create] {
    TableSession s(globals);
    const uint32_t idx = chooseIndex(s, *family, create->index);
    const int32_t ret = s.setValue(family->setApi, idx, family->statusCmd, family->createStatus);
    reportResult(globals, std::string(family->noun) + " " + std::to_string(idx) + " create", ret,
                 {{"index", idx}});
  });

  auto set = std::make_shared<EntryOptions>();
  auto* st = parent.add_subcommand("set", "Set attributes of a " + noun);
  st->add_option("INDEX", set->index, noun + " index")->required();
  for (const TableAttr& a : family->attrs) {
    st->add_option_function<uint32_t>(
        a.option, [set, key = a.key](const uint32_t& v) { set->values[key] = v; }, a.help);
  }
  if (family->name) {
    st->add_option_function<std::string>(
        family->name->option,
        [set](const std::string& v) {
          set->name = v;
          set->hasName = true;
        },
        family->name->help);
  }
  st->callback([&globals, family, set] {
    if (set->values.empty() && !set->hasName) {
      throw AclctlExit(kAclctlExitUsage, "set: give at least one attribute (see --help)");
    }
    TableSession s(globals);
    const std::string what = std::string(family->noun) + " " + std::to_string(set->index);
    if (set->hasName) {
      const int32_t ret = s.setBytes(family->setApi, set->index, family->name->cmd,
                                     {set->name.begin(), set->name.end()});
      if (ret != 0) reportResult(globals, what + " " + family->name->key, ret);
    }
    for (const TableAttr& a : family->attrs) {
      auto it = set->values.find(a.key);
      if (it == set->values.end()) continue;
      const int32_t ret = s.setValue(family->setApi, set->index, a.cmd, it->second);
      if (ret != 0) reportResult(globals, what + " " + a.key, ret);
    }
    reportResult(globals, what + " set", 0, {{"index", set->index}});
  });

  for (auto [verb, status, help] :
       {std::tuple{"valid", family->validStatus, "Make a " + noun + " valid"},
        std::tuple{"delete", family->deleteStatus, "Delete a " + noun}}) {
    auto opts = std::make_shared<EntryOptions>();
    auto* sub = parent.add_subcommand(verb, help);
    sub->add_option("INDEX", opts->index, noun + " index")->required();
    sub->callback([&globals, family, opts, verb = std::string(verb), status = status] {
      TableSession s(globals);
      const int32_t ret = s.setValue(family->setApi, opts->index, family->statusCmd, status);
      reportResult(globals, std::string(family->noun) + " " + std::to_string(opts->index) + " " +
                                verb,
                   ret, {{"index", opts->index}});
    });
  }

  auto show = std::make_shared<EntryOptions>();
  auto* sh = parent.add_subcommand("show", "Show one " + noun + ", or all");
  sh->add_option("INDEX", show->index, noun + " index (all when omitted)");
  sh->callback([&globals, family, show] {
    TableSession s(globals);
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    if (show->index != 0) {
      entries.push_back(showEntry(s, *family, show->index));
    } else {
      for (uint32_t idx : s.walk(family->getFirst, family->getNext)) {
        entries.push_back(showEntry(s, *family, idx));
      }
    }
    if (globals.json) {
      std::cout << nlohmann::ordered_json{{std::string(family->noun) + "s", entries}}.dump() << std::endl;
    } else {
      printEntries(entries, *family);
    }
    if (show->index != 0 && entries[0].contains("error")) {
      throw AclctlExit(kAclctlExitFailed, std::string(family->noun) + " " +
                                              std::to_string(show->index) + ": " +
                                              entries[0]["error"].get<std::string>());
    }
  });
}

}  // namespace aclclient
