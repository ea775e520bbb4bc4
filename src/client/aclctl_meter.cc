// aclctl meter ... and aclctl meter profile ...: meters and meter profiles.
#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_tables.h"

namespace {

using aclclient::TableAttr;
using aclclient::TableFamily;

TableFamily meterFamily() {
  TableFamily f;
  f.noun = "meter";
  f.getFirst = 53;
  f.getNext = 54;
  f.getApi = 55;
  f.setApi = 56;
  f.statusCmd = 13;
  f.freeIndex = [](aclclient::TableSession& s) { return s.getValue(55, 0, 14); };
  f.createStatus = 2;
  f.validStatus = 1;
  f.deleteStatus = 4;
  f.attrs = {
      {"--type", "meter_type", 1, "meter type"},
      {"--mode", "meter_mode", 2, "meter mode"},
      {"--car-type", "car_type", 3, "CAR type"},
      {"--cir", "cir", 4, "committed information rate"},
      {"--a5", "a5", 5, "stored word A5"},
      {"--pir", "pir", 6, "peak information rate"},
      {"--cbs", "cbs", 7, "committed burst size"},
      {"--ebs", "ebs", 8, "excess burst size"},
      {"--pbs", "pbs", 9, "peak burst size"},
      {"--a10", "a10", 10, "stored word A10"},
  };
  f.extra = [](aclclient::TableSession& s, uint32_t idx, nlohmann::ordered_json& e) {
    const auto ref = s.getValue(55, idx, 11);
    if (ref.ret == 0) e["ref_count"] = static_cast<int32_t>(ref.value);
  };
  return f;
}

TableFamily profileFamily() {
  TableFamily f;
  f.noun = "profile";
  f.getFirst = 58;
  f.getNext = 59;
  f.getApi = 60;
  f.setApi = 61;
  f.statusCmd = 0;
  // The lowest free profile index is a meter scalar; -1 when there is none.
  f.freeIndex = [](aclclient::TableSession& s) { return s.getValue(50, 0, 18); };
  f.createStatus = 2;
  f.validStatus = 1;
  f.deleteStatus = 4;
  f.attrs = {
      {"--us-cir", "us_policy_cir", 3, "upstream policing CIR"},
      {"--us-cbs", "us_cbs", 4, "upstream CBS"},
      {"--us-ebs", "us_ebs", 5, "upstream EBS"},
      {"--ds-cir", "ds_policy_cir", 6, "downstream policing CIR"},
      {"--ds-pir", "ds_pir", 7, "downstream PIR"},
      {"--us-policing", "us_policing", 8, "upstream policing status"},
      {"--ds-policing", "ds_policing", 9, "downstream policing status"},
  };
  f.name = TableAttr{"--name", "name", 1, "profile name (at most 20 bytes are kept)"};
  f.extra = [](aclclient::TableSession& s, uint32_t idx, nlohmann::ordered_json& e) {
    const auto ref = s.getValue(60, idx, 2);
    if (ref.ret == 0) e["ref_count"] = ref.value;
  };
  return f;
}

}  // namespace

void aclctlAddMeterCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* meter = app.add_subcommand("meter", "Meters and meter profiles");
  meter->require_subcommand(1);
  aclclient::addTableCommands(*meter, globals, meterFamily());
  auto* profile = meter->add_subcommand("profile", "Meter profiles (per-ONU policing)");
  profile->require_subcommand(1);
  aclclient::addTableCommands(*profile, globals, profileFamily());
}

void aclctlAddCounterCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* counter = app.add_subcommand("counter", "Counters");
  counter->require_subcommand(1);
  TableFamily f;
  f.noun = "counter";
  f.getFirst = 66;
  f.getNext = 67;
  f.getApi = 68;
  f.setApi = 69;
  f.statusCmd = 3;
  f.freeIndex = [](aclclient::TableSession& s) { return s.getValue(68, 0, 6); };
  f.createStatus = 2;
  f.validStatus = 1;
  f.deleteStatus = 4;
  f.attrs = {
      {"--type", "type", 4, "counter type"},
      {"--color", "color", 5, "counter colour"},
  };
  f.name = TableAttr{"--name", "name", 1, "counter name (at most 63 bytes are kept)"};
  f.extra = [](aclclient::TableSession& s, uint32_t idx, nlohmann::ordered_json& e) {
    const auto ref = s.getValue(68, idx, 2);
    if (ref.ret == 0) e["ref_count"] = static_cast<int32_t>(ref.value);
  };
  aclclient::addTableCommands(*counter, globals, f);
}
