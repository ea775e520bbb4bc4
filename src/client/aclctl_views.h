// What the families' show commands fetch, as rows, so that aclctl show can put them side by side
// without fetching them another way. Each call opens its own session with the daemon.
#pragma once

#include <nlohmann/json.hpp>

#include "client/aclctl.h"

// Every list: list, name, type, refcnt, rules, status.
nlohmann::ordered_json aclctlListRows(const AclctlGlobals& g);
// Every rule: list, rule, status, fields, actions, out_actions and its references.
nlohmann::ordered_json aclctlRuleRows(const AclctlGlobals& g);
// Every interface record: ifIndex, rowStatus, inCtrl, outCtrl, slots, bindings.
nlohmann::ordered_json aclctlIfRows(const AclctlGlobals& g);
// Every slot record's ledger: sys, slot, chipNum, curRuleNum, maxRuleNum, types.
nlohmann::ordered_json aclctlSlotRows(const AclctlGlobals& g);
// Every rule statistics record: list, rule, dir and its counters (or error).
nlohmann::ordered_json aclctlStatsRows(const AclctlGlobals& g);

namespace CLI {
class App;
}

// "shell": the daemon's process-shell commands, called by name.
void aclctlAddShellCommand(CLI::App& app, AclctlGlobals& globals);
// "show": lists, rules, bindings, the slot ledger and statistics at a glance.
void aclctlAddShowCommand(CLI::App& app, AclctlGlobals& globals);
