// aclctl save [FILE]: the daemon's whole configuration as one JSON document, and the readers that
// aclctl load shares to see what the daemon already holds. Everything is read through the command
// table over one connection; what the document holds is configuration only (no reference counts,
// no statistics), in index order, so two saves of the same state are byte-identical.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/config_doc.h"
#include "client/rule_actions.h"
#include "client/rule_fields.h"
#include "hw/acl_bind_slot.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_rule_cmds.h"
#include "wire/func_table.h"

namespace aclclient {

using nlohmann::ordered_json;

namespace {

constexpr uint32_t kLstCmdName = 1;
constexpr uint32_t kListNameMax = 64;
constexpr uint32_t kFieldBitsLen = 12;

const GenericSlot kGeneric[] = {{"in", 8, 6, 3, 2}, {"out", 9, 7, 4, 1}};

const GlobalSlot kGlobalSlots[] = {
    {"inL2Acl", 26, 1},   {"outL2Acl", 27, 1},   {"inIpv4Acl", 28, 2},   {"outIpv4Acl", 29, 2},
    {"inIpv6Acl", 30, 3}, {"outIpv6Acl", 31, 3}, {"inHybridAcl", 32, 4}, {"outHybridAcl", 33, 4},
    {"inMplsAcl", 34, 5}, {"outMplsAcl", 35, 5}, {"inUdfAcl", 36, 8},    {"outUdfAcl", 37, 8},
};

// A value the daemon must answer while the document is read; anything else would make a document
// that does not say what the daemon holds.
uint32_t mustValue(TableSession& s, uint32_t func, uint32_t key, uint32_t cmd,
                   const std::string& what) {
  const ValueAnswer v = s.getValue(func, key, cmd);
  if (v.ret != 0) throw AclctlExit(kAclctlExitFailed, "reading " + what + ": " + retText(v.ret));
  return v.value;
}

std::string statusText(uint32_t status) {
  return status == 1 ? "valid" : status == 3 ? "created" : std::to_string(status);
}

}  // namespace

const std::vector<ConfigTable>& configTables() {
  static const std::vector<ConfigTable> tables = {
      {"meters",
       "meter",
       53,
       54,
       55,
       56,
       13,
       2,
       1,
       4,
       0,
       0,
       {{"meter_type", 1},
        {"meter_mode", 2},
        {"car_type", 3},
        {"cir", 4},
        {"a5", 5},
        {"pir", 6},
        {"cbs", 7},
        {"ebs", 8},
        {"pbs", 9},
        {"a10", 10}}},
      {"meter_profiles",
       "meter profile",
       58,
       59,
       60,
       61,
       0,
       2,
       1,
       4,
       1,
       20,
       {{"us_policy_cir", 3},
        {"us_cbs", 4},
        {"us_ebs", 5},
        {"ds_policy_cir", 6},
        {"ds_pir", 7},
        {"us_policing", 8},
        {"ds_policing", 9}}},
      {"counters", "counter", 66, 67, 68, 69, 3, 2, 1, 4, 1, 63, {{"type", 4}, {"color", 5}}},
  };
  return tables;
}

const std::vector<ConfigAttr>& configListOptions() {
  static const std::vector<ConfigAttr> options = {
      {"priority", 3}, {"attr", 6}, {"counter_shared", 7}, {"meter_shared", 8}};
  return options;
}

std::span<const GenericSlot> genericSlots() {
  return kGeneric;
}

std::span<const GlobalSlot> globalSlots() {
  return kGlobalSlots;
}

uint8_t listTypeOfIndex(uint32_t lst) {
  if (lst == 0 || lst > 6000) return 0;
  if (lst <= 1000) return 1;
  if (lst <= 2000) return 2;
  if (lst <= 3000) return 4;  // hybrid numbers come before IPv6 ones
  if (lst <= 4000) return 3;
  if (lst <= 5000) return 5;
  return 8;
}

const char* listTypeText(uint8_t type) {
  switch (type) {
    case 1:
      return "l2";
    case 2:
      return "ipv4";
    case 3:
      return "ipv6";
    case 4:
      return "hybrid";
    case 5:
      return "mpls";
    case 8:
      return "udf";
    default:
      return "none";
  }
}

ordered_json readTableEntry(TableSession& s, const ConfigTable& t, uint32_t index) {
  const std::string what = std::string(t.noun) + " " + std::to_string(index);
  ordered_json e;
  e["index"] = index;
  e["status"] = statusText(mustValue(s, t.getApi, index, t.statusCmd, what));
  if (t.nameCmd != 0) {
    const BytesAnswer n = s.getBytes(t.getApi, index, t.nameCmd, 64);
    if (n.ret != 0) throw AclctlExit(kAclctlExitFailed, "reading " + what + ": " + retText(n.ret));
    e["name"] = std::string(n.data.begin(), n.data.end());
  }
  for (const ConfigAttr& a : t.attrs) e[a.key] = mustValue(s, t.getApi, index, a.cmd, what);
  return e;
}

ordered_json readRule(RuleClient& c, RuleRef r) {
  const std::string what = "filter " + std::to_string(r.lst) + "/" + std::to_string(r.rule);
  const ValueAnswer status = c.getValue(r, ACL_RULE_CMD_STATUS);
  if (status.ret != 0) {
    throw AclctlExit(kAclctlExitFailed, "reading " + what + ": " + ruleRetText(status.ret));
  }
  const BytesAnswer bits = c.getBytes(r, ACL_RULE_CMD_FIELD_BITS, kFieldBitsLen);
  ordered_json j;
  j["rule"] = r.rule;
  j["status"] = status.value == 1 ? "valid" : "invalid";
  const ordered_json fields = describeFields(c, r, bits.data);
  if (!fields.empty()) j["fields"] = fields;
  const ordered_json actions = describeActions(c, r, false);
  if (!actions.empty()) j["actions"] = actions;
  const ordered_json outActions = describeActions(c, r, true);
  if (!outActions.empty()) j["out_actions"] = outActions;
  auto ref = [&](const char* key, uint32_t code, uint32_t cmd) {
    if (aclBitTest(bits.data, code)) j[key] = c.getValue(r, cmd).value;
  };
  ref("car", RULE_BIT_CARID, ACL_RULE_CMD_CARID);
  ref("meter", RULE_BIT_METERID, ACL_RULE_CMD_METERID);
  ref("counter", RULE_BIT_COUNTERID, ACL_RULE_CMD_COUNTERID);
  ref("time_range", RULE_BIT_TRID, ACL_RULE_CMD_TRID);
  return j;
}

ordered_json readList(RuleClient& c, uint32_t lst) {
  TableSession& s = c.session();
  const std::string what = "list " + std::to_string(lst);
  const BytesAnswer name = s.getBytes(wire::fid::aclLstGetApi, lst, kLstCmdName, kListNameMax);
  if (name.ret != 0)
    throw AclctlExit(kAclctlExitFailed, "reading " + what + ": " + retText(name.ret));
  ordered_json j;
  j["list"] = lst;
  j["name"] = std::string(name.data.begin(), name.data.end());
  for (const ConfigAttr& o : configListOptions())
    j[o.key] = mustValue(s, wire::fid::aclLstGetApi, lst, o.cmd, what);
  ordered_json rules = ordered_json::array();
  for (const RuleRef& r : c.walk(lst)) rules.push_back(readRule(c, r));
  j["rules"] = rules;
  return j;
}

ordered_json readGlobal(TableSession& s) {
  ordered_json generic;
  for (const GenericSlot& g : kGeneric) {
    const uint32_t list =
        mustValue(s, wire::fid::aclScalarGetApi, 0, g.scalarList, "the global generic list");
    const uint32_t sw =
        mustValue(s, wire::fid::aclScalarGetApi, 0, g.scalarSwitch, "the global switch");
    generic[g.dir] = {{"list", list}, {"on", sw == 1}};
  }
  ordered_json slots = ordered_json::object();
  for (const GlobalSlot& g : kGlobalSlots) {
    const uint32_t list =
        mustValue(s, wire::fid::aclScalarGetApi, 0, g.cmd, std::string("global ") + g.name);
    if (list != 0) slots[g.name] = list;
  }
  return {{"generic", generic}, {"slots", slots}};
}

ordered_json readInterface(TableSession& s, uint32_t ifIndex) {
  const std::string what = "interface " + std::to_string(ifIndex);
  ordered_json generic;
  for (const GenericSlot& g : kGeneric) {
    const uint32_t list = mustValue(s, wire::fid::aclIfGetApi, ifIndex, g.ifList, what);
    const uint32_t sw = mustValue(s, wire::fid::aclIfGetApi, ifIndex, g.ifSwitch, what);
    generic[g.dir] = {{"list", list}, {"on", sw == kIfSwitchOn}};
  }
  ordered_json slots = ordered_json::object();
  for (size_t i = ACL_BIND_SLOT_FIRST_TYPED; i < kAclBindSlots.size(); ++i) {
    const uint32_t list =
        mustValue(s, wire::fid::aclIfGetApi, ifIndex, kAclBindSlots[i].ifCmd, what);
    if (list != 0) slots[kAclBindSlots[i].name] = list;
  }
  return {{"ifindex", ifIndex}, {"generic", generic}, {"slots", slots}};
}

std::vector<uint32_t> listIndexes(TableSession& s) {
  return s.walk(wire::fid::aclLstGetFirst, wire::fid::aclLstGetNext);
}

std::vector<uint32_t> interfaceIndexes(TableSession& s) {
  return s.walk(wire::fid::aclIfGetFirst, wire::fid::aclIfGetNext);
}

ordered_json readConfig(RuleClient& c) {
  TableSession& s = c.session();
  ordered_json doc;
  doc["version"] = kConfigVersion;
  for (const ConfigTable& t : configTables()) {
    ordered_json entries = ordered_json::array();
    for (uint32_t idx : s.walk(t.getFirst, t.getNext)) entries.push_back(readTableEntry(s, t, idx));
    doc[t.section] = entries;
  }
  ordered_json lists = ordered_json::array();
  for (uint32_t lst : listIndexes(s)) lists.push_back(readList(c, lst));
  doc["lists"] = lists;
  doc["global"] = readGlobal(s);
  ordered_json ifs = ordered_json::array();
  for (uint32_t i : interfaceIndexes(s)) ifs.push_back(readInterface(s, i));
  doc["interfaces"] = ifs;
  return doc;
}

}  // namespace aclclient

void aclctlAddSaveCommand(CLI::App& app, AclctlGlobals& globals) {
  auto file = std::make_shared<std::string>();
  auto* save = app.add_subcommand(
      "save", "Write the whole configuration as one JSON document (docs/CONFIG.md)");
  save->add_option("FILE", *file, "where to write it (default: standard output)");
  save->callback([&globals, file] {
    aclclient::RuleClient c(globals);
    const std::string text = aclclient::readConfig(c).dump(2) + "\n";
    if (file->empty() || *file == "-") {
      std::cout << text << std::flush;
      return;
    }
    // Written beside the target and renamed, so a failed save never leaves half a document.
    const std::string tmp = *file + ".tmp";
    {
      std::ofstream out(tmp, std::ios::trunc);
      out << text;
      out.close();
      if (!out) throw AclctlExit(kAclctlExitFailed, "cannot write " + tmp);
    }
    if (std::rename(tmp.c_str(), file->c_str()) != 0) {
      std::remove(tmp.c_str());
      throw AclctlExit(kAclctlExitFailed, "cannot write " + *file);
    }
  });
}
