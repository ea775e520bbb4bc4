// aclctl rule create|delete|valid|invalid|set|action|out-action|attach|detach|show. A rule is
// filled while it is not valid; the daemon's answer to each step is reported as it comes, and the
// first step that fails ends aclctl with status 1 and the code on stderr.
#include "client/aclctl_rule.h"

#include <algorithm>
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
#include "client/aclctl_tables.h"
#include "client/aclctl_views.h"
#include "client/dev_client.h"
#include "client/rule_actions.h"
#include "client/rule_client.h"
#include "client/rule_fields.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/acl_rule_cmds.h"

namespace {

using aclclient::RuleClient;
using aclclient::RuleRef;
using nlohmann::ordered_json;

constexpr uint32_t kFieldBitsLen = 12;

struct RuleArgs {
  uint32_t lst = 0;
  std::optional<uint32_t> rule;
  std::vector<std::string> words;
  bool clear = false;
  std::optional<uint32_t> meter, counter, timeRange, car;
  bool dropMeter = false, dropCounter = false, dropTimeRange = false;
};

std::string refText(RuleRef r) {
  return "filter " + std::to_string(r.lst) + "/" + std::to_string(r.rule);
}

// Reports one finished operation; a failure ends aclctl.
void report(const AclctlGlobals& g, const std::string& what, RuleRef r, int32_t ret,
            const std::string& step = "") {
  if (g.json) {
    ordered_json j = {{"list", r.lst}, {"rule", r.rule}, {"ret", ret}, {"ret_hex", hex32(ret)}};
    if (!step.empty()) j["step"] = step;
    std::cout << j.dump() << std::endl;
  } else if (ret == 0) {
    std::cout << what << " " << refText(r) << std::endl;
  }
  if (ret != 0) {
    throw AclctlExit(kAclctlExitFailed, what + " " + refText(r) +
                                            (step.empty() ? "" : " (" + step + ")") + ": " +
                                            aclclient::ruleRetText(ret));
  }
}

RuleRef ruleOf(const RuleArgs& a) {
  return {a.lst, a.rule.value_or(0)};
}

// Applies set calls in order; the first failure is the answer, with the word that made it.
void applyCalls(const AclctlGlobals& g, RuleClient& c, RuleRef r, const std::string& what,
                const std::vector<std::pair<std::string, aclclient::RuleSetCall>>& calls) {
  for (const auto& [word, call] : calls) {
    const int32_t ret =
        call.desc ? c.setBytes(r, call.cmd, call.bytes) : c.setValue(r, call.cmd, call.value);
    if (ret != 0) report(g, what, r, ret, word);
  }
  report(g, what, r, 0);
}

void setFields(const AclctlGlobals& g, const RuleArgs& a) {
  std::vector<std::pair<std::string, aclclient::RuleSetCall>> calls;
  for (const std::string& w : a.words) {
    std::string err;
    const auto parsed = aclclient::parseFieldAssignment(w, &err);
    if (!parsed) throw AclctlExit(kAclctlExitUsage, err);
    for (const auto& call : *parsed) calls.emplace_back(w, call);
  }
  RuleClient c(g);
  applyCalls(g, c, ruleOf(a), "set", calls);
}

// Whether in-action parameter items name ports past the first 32 (multi-port redirect).
bool needsMultiRedirect(const std::vector<uint8_t>& items) {
  for (size_t at = 0; at < items.size(); at += 1 + aclRuleParamItemLen(items[at])) {
    if (aclRuleParamIsMultiPort(items[at])) return true;
  }
  return false;
}

void setActions(const AclctlGlobals& g, const RuleArgs& a, bool out) {
  if (a.clear == !a.words.empty()) {
    throw AclctlExit(kAclctlExitUsage, "give actions or --clear, not both or neither");
  }
  std::string err;
  const auto req = a.clear ? std::optional(aclclient::clearActions(out))
                           : aclclient::parseActions(a.words, out, &err);
  if (!req) throw AclctlExit(kAclctlExitUsage, err);
  const uint32_t bitsCmd = out ? ACL_RULE_CMD_OUTACTION : ACL_RULE_CMD_ACTION;
  const uint32_t paramCmd = out ? ACL_RULE_CMD_OUTACTIONPARAM : ACL_RULE_CMD_ACTIONPARAM;
  std::vector<std::pair<std::string, aclclient::RuleSetCall>> calls;
  calls.emplace_back(a.clear ? "--clear" : "actions",
                     aclclient::RuleSetCall{bitsCmd, true, 0, req->bits});
  if (!req->params.empty()) {
    calls.emplace_back("parameters", aclclient::RuleSetCall{paramCmd, true, 0, req->params});
  }
  RuleClient c(g);
  // Asked before anything is sent: the daemon would refuse the parameters only after the action
  // bits went in, and leave the rule with an action and no parameter.
  if (!out && needsMultiRedirect(req->params) && !c.multiRedirect()) {
    report(g, "action", ruleOf(a), ACL_ERR_MULTI_REDIRECT, "parameters");
  }
  applyCalls(g, c, ruleOf(a), out ? "out-action" : "action", calls);
}

void attach(const AclctlGlobals& g, const RuleArgs& a, bool detach) {
  std::vector<std::pair<std::string, aclclient::RuleSetCall>> calls;
  auto add = [&](const char* what, uint32_t cmd, std::optional<uint32_t> v, bool drop) {
    if (detach && drop)
      calls.emplace_back(what, aclclient::RuleSetCall{cmd, false, ACL_RULE_DETACH, {}});
    if (!detach && v) calls.emplace_back(what, aclclient::RuleSetCall{cmd, false, *v, {}});
  };
  add("car", ACL_RULE_CMD_CARID, a.car, false);
  add("meter", ACL_RULE_CMD_METERID, a.meter, a.dropMeter);
  add("counter", ACL_RULE_CMD_COUNTERID, a.counter, a.dropCounter);
  add("time-range", ACL_RULE_CMD_TRID, a.timeRange, a.dropTimeRange);
  if (calls.empty()) throw AclctlExit(kAclctlExitUsage, "nothing to attach or detach");
  RuleClient c(g);
  applyCalls(g, c, ruleOf(a), detach ? "detach" : "attach", calls);
}

// One rule by name; nothing when it has gone meanwhile.
std::optional<ordered_json> describe(RuleClient& c, RuleRef r, int32_t* ret) {
  const aclclient::ValueAnswer status = c.getValue(r, ACL_RULE_CMD_STATUS);
  *ret = status.ret;
  if (status.ret != 0) return std::nullopt;
  const aclclient::BytesAnswer bits = c.getBytes(r, ACL_RULE_CMD_FIELD_BITS, kFieldBitsLen);
  ordered_json j;
  j["list"] = r.lst;
  j["rule"] = r.rule;
  j["status"] = status.value == 1   ? "valid"
                : status.value == 3 ? "invalid"
                                    : std::to_string(status.value);
  j["fields"] = aclclient::describeFields(c, r, bits.data);
  j["actions"] = aclclient::describeActions(c, r, false);
  j["out_actions"] = aclclient::describeActions(c, r, true);
  auto ref = [&](const char* key, uint32_t code, uint32_t cmd) {
    if (aclBitTest(bits.data, code)) j[key] = c.getValue(r, cmd).value;
  };
  ref("car", RULE_BIT_CARID, ACL_RULE_CMD_CARID);
  ref("meter", RULE_BIT_METERID, ACL_RULE_CMD_METERID);
  ref("counter", RULE_BIT_COUNTERID, ACL_RULE_CMD_COUNTERID);
  ref("time_range", RULE_BIT_TRID, ACL_RULE_CMD_TRID);
  return j;
}

std::string actionsText(const ordered_json& list) {
  std::string text;
  for (const auto& a : list) {
    if (!text.empty()) text += " ";
    text += a["name"].get<std::string>();
    if (a.contains("value")) text += "=" + a["value"].get<std::string>();
  }
  return text;
}

// Where the rule stands in the hardware: its time range's state and, per binding of its list,
// whether each table the binding reaches holds it. The daemon answers this on the device control
// socket; without one (a daemon that serves no device socket) the rule is shown without it.
void addState(const AclctlGlobals& g, ordered_json& j) {
  nlohmann::json reply;
  std::string err;
  const nlohmann::json req = {{"op", "rule-state"}, {"list", j["list"]}, {"rule", j["rule"]}};
  if (!aclclient::devRequest(aclclient::devSocketPath(g.runDir), req, &reply, &err) ||
      !reply.value("ok", false)) {
    return;
  }
  if (reply.contains("rangeActive")) {
    j["time_range_active"] = reply["rangeActive"];
    j["time_range_stored"] = reply.value("stored", std::string());
  }
  if (reply.contains("notEligible")) j["not_eligible"] = reply["notEligible"];
  ordered_json rows = ordered_json::array();
  for (const auto& b : reply.value("bindings", nlohmann::json::array())) {
    rows.push_back({{"binding", b.value("binding", std::string())},
                    {"table", b.value("table", std::string())},
                    {"installed", b.value("installed", false)}});
  }
  j["bindings"] = rows;
}

void printRule(const ordered_json& j) {
  std::printf("filter %u/%u %s\n", j["list"].get<uint32_t>(), j["rule"].get<uint32_t>(),
              j["status"].get<std::string>().c_str());
  if (!j["fields"].empty()) {
    std::string text;
    for (const auto& [k, v] : j["fields"].items()) text += " " + k + "=" + v.get<std::string>();
    std::printf("  match      %s\n", text.substr(1).c_str());
  }
  if (!j["actions"].empty()) std::printf("  actions    %s\n", actionsText(j["actions"]).c_str());
  if (!j["out_actions"].empty()) {
    std::printf("  out        %s\n", actionsText(j["out_actions"]).c_str());
  }
  for (const char* key : {"car", "meter", "counter"}) {
    if (j.contains(key)) std::printf("  %-10s %u\n", key, j[key].get<uint32_t>());
  }
  if (j.contains("time_range")) {
    std::string state;
    if (j.contains("time_range_active")) {
      state = j["time_range_active"].get<bool>() ? " (active)" : " (inactive)";
      const std::string stored = j["time_range_stored"].get<std::string>();
      if (stored != (j["time_range_active"].get<bool>() ? "active" : "inactive")) {
        state += ", the daemon still holds it " + stored;
      }
    }
    std::printf("  %-10s %u%s\n", "time_range", j["time_range"].get<uint32_t>(), state.c_str());
  }
  if (!j.contains("bindings")) return;
  const std::string why =
      j.contains("not_eligible") ? " (" + j["not_eligible"].get<std::string>() + ")" : "";
  for (const auto& b : j["bindings"]) {
    const bool in = b["installed"].get<bool>();
    std::printf("  %-10s %s -> %s: %s\n", "binding", b["binding"].get<std::string>().c_str(),
                b["table"].get<std::string>().c_str(),
                in ? "installed" : ("not installed" + why).c_str());
  }
}

// The rules of one list (0: of every list) as show prints them.
ordered_json ruleRows(RuleClient& c, uint32_t lst) {
  ordered_json rows = ordered_json::array();
  for (const RuleRef& r : c.walk(lst != 0 ? std::optional(lst) : std::nullopt)) {
    int32_t ret = 0;
    if (auto row = describe(c, r, &ret)) rows.push_back(*row);
  }
  return rows;
}

void show(const AclctlGlobals& g, const RuleArgs& a) {
  RuleClient c(g);
  std::vector<ordered_json> rows;
  if (a.rule) {
    int32_t ret = 0;
    auto row = describe(c, ruleOf(a), &ret);
    if (!row) {
      throw AclctlExit(kAclctlExitFailed, refText(ruleOf(a)) + ": " + aclclient::ruleRetText(ret));
    }
    rows.push_back(*row);
  } else {
    for (const auto& row : ruleRows(c, a.lst)) rows.push_back(row);
  }
  for (auto& r : rows) addState(g, r);
  if (g.json) {
    std::cout << ordered_json{{"rules", rows}}.dump() << std::endl;
    return;
  }
  for (const auto& r : rows) printRule(r);
}

std::string fieldHelp() {
  std::string s = "Fields (NAME=VALUE):\n";
  for (const auto& f : aclclient::ruleFieldNames()) {
    std::string name = f.name;
    name.resize(std::max<size_t>(name.size() + 1, 16), ' ');
    s += "  " + name + f.help + "\n";
  }
  return s;
}

std::string actionHelp(bool out) {
  std::string s = out ? "Out-actions (NAME or NAME=VALUE):\n" : "Actions (NAME or NAME=VALUE):\n";
  for (const auto& a : out ? aclclient::ruleOutActionNames() : aclclient::ruleActionNames()) {
    std::string name = a.name;
    if (a.param != aclclient::ActionParam::None) name += "=V";
    name.resize(std::max<size_t>(name.size() + 1, 26), ' ');
    s += "  " + name + a.help + "\n";
  }
  return s;
}

CLI::App* ruleCommand(CLI::App* parent, const char* name, const char* help,
                      std::shared_ptr<RuleArgs> a, bool ruleRequired = true) {
  auto* cmd = parent->add_subcommand(name, help);
  cmd->add_option("LIST", a->lst, "list number")->required();
  auto* rule = cmd->add_option("RULE", a->rule, "rule number");
  if (ruleRequired) rule->required();
  return cmd;
}

}  // namespace

ordered_json aclctlRuleRows(const AclctlGlobals& g) {
  RuleClient c(g);
  return ruleRows(c, 0);
}

void aclctlAddRuleCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* rule = app.add_subcommand("rule", "Build, change and show the rules of filter lists");
  rule->require_subcommand(1);
  auto a = std::make_shared<RuleArgs>();

  auto* create =
      ruleCommand(rule, "create", "Create a rule (default: the lowest free number)", a, false);
  create->callback([&globals, a] {
    RuleClient c(globals);
    if (!a->rule) a->rule = c.freeRule(a->lst);
    report(globals, "created", ruleOf(*a),
           c.setValue(ruleOf(*a), ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE));
  });

  auto status = [&globals, a](const char* what, uint32_t value) {
    RuleClient c(globals);
    report(globals, what, ruleOf(*a), c.setValue(ruleOf(*a), ACL_RULE_CMD_STATUS, value));
  };
  ruleCommand(rule, "delete", "Delete a rule", a)->callback([status] {
    status("deleted", ACL_RULE_STATUS_SET_DELETE);
  });
  ruleCommand(rule, "valid", "Make a rule valid (install it)", a)->callback([status] {
    status("made valid", ACL_RULE_STATUS_SET_VALID);
  });
  ruleCommand(rule, "invalid", "Make a rule invalid (so it can be changed)", a)->callback([status] {
    status("made invalid", ACL_RULE_STATUS_SET_INVALID);
  });

  auto* set = ruleCommand(rule, "set", "Set match fields by name", a);
  set->add_option("FIELDS", a->words, "NAME=VALUE ...")->required();
  set->footer(fieldHelp());
  set->callback([&globals, a] { setFields(globals, *a); });

  auto* action = ruleCommand(rule, "action", "Add in-actions by name, or remove them all", a);
  action->add_option("ACTIONS", a->words, "NAME or NAME=VALUE ...");
  action->add_flag("--clear", a->clear, "remove every in-action");
  action->footer(actionHelp(false));
  action->callback([&globals, a] { setActions(globals, *a, false); });

  auto* outAction =
      ruleCommand(rule, "out-action", "Add out-actions by name, or remove them all", a);
  outAction->add_option("ACTIONS", a->words, "NAME or NAME=VALUE ...");
  outAction->add_flag("--clear", a->clear, "remove every out-action (and the CAR or meter)");
  outAction->footer(actionHelp(true));
  outAction->callback([&globals, a] { setActions(globals, *a, true); });

  auto* att = ruleCommand(rule, "attach", "Give a rule a CAR, meter, counter or time range", a);
  att->add_option("--car", a->car, "CAR id");
  att->add_option("--meter", a->meter, "meter index");
  att->add_option("--counter", a->counter, "counter index");
  att->add_option("--time-range", a->timeRange, "time range id");
  att->callback([&globals, a] { attach(globals, *a, false); });

  auto* det = ruleCommand(rule, "detach", "Take a rule's meter, counter or time range away", a);
  det->add_flag("--meter", a->dropMeter, "the meter");
  det->add_flag("--counter", a->dropCounter, "the counter");
  det->add_flag("--time-range", a->dropTimeRange, "the time range");
  det->callback([&globals, a] { attach(globals, *a, true); });

  auto* showCmd = rule->add_subcommand("show", "Show one rule, a list's rules or every rule");
  showCmd->add_option("LIST", a->lst, "list number (default: every list)");
  showCmd->add_option("RULE", a->rule, "rule number (default: every rule of the list)");
  showCmd->callback([&globals, a] { show(globals, *a); });
}
