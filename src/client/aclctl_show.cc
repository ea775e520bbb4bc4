// aclctl show: the daemon at a glance for people: lists, rules, interface bindings, the slot
// ledger and rule statistics as aligned tables, or the same as one JSON document with --json.
// The rows are exactly what each family's own show fetches (aclctl_views.h).
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_views.h"

namespace {

using nlohmann::ordered_json;
using Row = std::vector<std::string>;

std::string text(const ordered_json& v) {
  if (v.is_string()) return v.get<std::string>();
  if (v.is_null()) return "";
  return v.dump();
}

// Columns as wide as their widest cell, two spaces apart; numbers right-aligned.
void printTable(const char* title, const Row& head, const std::vector<Row>& rows) {
  std::printf("%s\n", title);
  if (rows.empty()) {
    std::printf("  (none)\n\n");
    return;
  }
  std::vector<size_t> width(head.size());
  std::vector<bool> numeric(head.size(), true);
  for (size_t c = 0; c < head.size(); ++c) width[c] = head[c].size();
  for (const Row& r : rows) {
    for (size_t c = 0; c < head.size() && c < r.size(); ++c) {
      width[c] = std::max(width[c], r[c].size());
      const bool num = !r[c].empty() && r[c].find_first_not_of("-0123456789") == std::string::npos;
      numeric[c] = numeric[c] && num;
    }
  }
  auto line = [&](const Row& r, bool header) {
    std::string out = " ";
    for (size_t c = 0; c < head.size(); ++c) {
      const std::string cell = c < r.size() ? r[c] : "";
      const size_t pad = width[c] - std::min(width[c], cell.size());
      const bool last = c + 1 == head.size();
      out += ' ';
      if (numeric[c] && !header) out.append(pad, ' ');
      out += cell;
      if ((!numeric[c] || header) && !last) out.append(pad, ' ');
      if (!last) out += ' ';
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    std::printf("%s\n", out.c_str());
  };
  line(head, true);
  for (const Row& r : rows) line(r, false);
  std::printf("\n");
}

std::string joinActions(const ordered_json& list) {
  std::string out;
  for (const auto& a : list) {
    if (!out.empty()) out += ' ';
    out += text(a.value("name", ordered_json()));
    if (a.contains("value")) out += "=" + text(a["value"]);
  }
  return out;
}

std::vector<Row> listRows(const ordered_json& lists) {
  std::vector<Row> rows;
  for (const auto& l : lists) {
    rows.push_back({text(l["list"]), text(l["name"]), text(l["type"]), text(l["refcnt"]),
                    text(l["rules"]), text(l["status"])});
  }
  return rows;
}

std::vector<Row> ruleRows(const ordered_json& rules) {
  std::vector<Row> rows;
  for (const auto& r : rules) {
    std::string match;
    for (const auto& [k, v] : r["fields"].items())
      match += (match.empty() ? "" : " ") + k + "=" + text(v);
    std::string refs;
    for (const char* key : {"car", "meter", "counter", "time_range"}) {
      if (r.contains(key))
        refs += (refs.empty() ? "" : " ") + std::string(key) + "=" + text(r[key]);
    }
    std::string actions = joinActions(r["actions"]);
    const std::string out = joinActions(r["out_actions"]);
    if (!out.empty()) actions += (actions.empty() ? "out: " : "; out: ") + out;
    rows.push_back({text(r["list"]), text(r["rule"]), text(r["status"]), match, actions, refs});
  }
  return rows;
}

std::vector<Row> bindingRows(const ordered_json& ifs) {
  std::vector<Row> rows;
  for (const auto& i : ifs) {
    if (i.contains("error")) {
      rows.push_back({text(i["ifIndex"]), "", "", "", "", text(i["error"])});
      continue;
    }
    for (const auto& b : i["bindings"]) {
      rows.push_back({text(i["ifIndex"]), text(b["list"]), text(b["rule"]), text(b["kind"]),
                      text(b["dir"]), ""});
    }
  }
  return rows;
}

// Per slot its totals, then each bind type that holds rules.
std::vector<Row> ledgerRows(const ordered_json& slots) {
  std::vector<Row> rows;
  for (const auto& s : slots) {
    const std::string name = text(s["sys"]) + "/" + text(s["slot"]);
    rows.push_back({name, "all", text(s["curRuleNum"]), text(s["maxRuleNum"])});
    for (const auto& t : s["types"]) {
      if (t.value("current", 0u) == 0) continue;
      rows.push_back(
          {name, text(t["dir"]) + " " + text(t["list"]), text(t["current"]), text(t["capacity"])});
    }
  }
  return rows;
}

std::vector<Row> statsRows(const ordered_json& stats) {
  std::vector<Row> rows;
  for (const auto& r : stats) {
    if (r.contains("error")) {
      rows.push_back({text(r["list"]), text(r["rule"]), text(r["dir"]), text(r["error"])});
      continue;
    }
    rows.push_back({text(r["list"]), text(r["rule"]), text(r["dir"]), text(r["p1"]), text(r["b1"]),
                    text(r["p2"]), text(r["b2"])});
  }
  return rows;
}

}  // namespace

void aclctlAddShowCommand(CLI::App& app, AclctlGlobals& globals) {
  auto* show = app.add_subcommand(
      "show", "Lists, rules, interface bindings, slot ledger and statistics at a glance");
  show->callback([&globals] {
    const ordered_json doc = {{"lists", aclctlListRows(globals)},
                              {"rules", aclctlRuleRows(globals)},
                              {"interfaces", aclctlIfRows(globals)},
                              {"slots", aclctlSlotRows(globals)},
                              {"stats", aclctlStatsRows(globals)}};
    if (globals.json) {
      std::cout << doc.dump(2) << std::endl;
      return;
    }
    printTable("LISTS", {"LIST", "NAME", "TYPE", "REFCNT", "RULES", "STATUS"},
               listRows(doc["lists"]));
    printTable("RULES", {"LIST", "RULE", "STATUS", "MATCH", "ACTIONS", "REFS"},
               ruleRows(doc["rules"]));
    printTable("BINDINGS", {"IFINDEX", "LIST", "RULE", "KIND", "DIR", "NOTE"},
               bindingRows(doc["interfaces"]));
    printTable("SLOT LEDGER", {"SLOT", "BIND TYPE", "CURRENT", "CAPACITY"},
               ledgerRows(doc["slots"]));
    printTable("STATISTICS", {"LIST", "RULE", "DIR", "P1", "B1", "P2", "B2"},
               statsRows(doc["stats"]));
  });
}
