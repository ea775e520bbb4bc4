// Interface binding through aclctl if: binds, shows and refusals by name, and slot capacities
// that come from a card option. (Aggregation fan-out and rollback are tested against the binding
// code itself.)
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <set>

#include "support/aclctl_script.h"
#include "support/run_dir.h"

namespace {

using nlohmann::json;

class IfE2e : public AclScriptTest {};

TEST_F(IfE2e, AclctlIfBindsShowsAndNamesRefusals) {
  slotsKnown();
  validRules(1001, 2);
  run({"if", "create", "201"});
  says({"if", "bind", "201", "in", "ipv4", "1500"}, 1, {"list 1500 does not exist"});
  says({"if", "bind", "201", "in", "l2", "1001"}, 1, {"does not fit"});
  run({"if", "bind", "201", "sideways", "1001"}, 2);
  says({"if", "bind", "202", "in", "ipv4", "1001"}, 1, {"no record"});

  // Untyped (out): list index, then the switch.
  script("if bind 201 in ipv4 1001; if bind 201 out 1001");
  const json one = run({"--json", "if", "show", "201"})["interfaces"][0];
  EXPECT_EQ(one["slots"], (json{{"outAcl", 1001}, {"inIpv4Acl", 1001}})) << one.dump();
  EXPECT_EQ(one["outCtrl"], "on");
  std::set<std::string> kinds;
  for (const auto& b : one["bindings"]) {
    kinds.insert(b["kind"].get<std::string>() + " " + b["dir"].get<std::string>());
  }
  EXPECT_EQ(kinds, (std::set<std::string>{"ipv4 in", "untyped out"}));
  const json t201 = run({"dev", "hw", "--scope", "unit", "--unit", "201"})["table"]["entries"];
  EXPECT_EQ(t201.size(), 4u) << t201.dump();  // two rules, both directions

  // A record with lists bound stays; emptied, it goes.
  run({"if", "delete", "201"}, 1);
  script("if unbind 201 in ipv4; if unbind 201 out");
  EXPECT_TRUE(unitRules(201, 1001).empty());
  run({"if", "delete", "201"});
  EXPECT_TRUE(run({"--json", "if", "show"})["interfaces"].empty());
  EXPECT_TRUE(run({"--json", "if", "stats", "show"})["stats"].empty());
  run({"if", "stats", "clear", "--all"});
  run({"if", "stats", "clear"}, 2);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 0);
}

class IfSlotE2e : public IfE2e {
 protected:
  void SetUp() override {}
  test::TempRunDir dir_;
};

// A slot whose card allows three IPv4 ingress rules takes one two-rule list and refuses a second
// one on another port of the slot, leaving that port's table empty and the ledger as it was.
TEST_F(IfSlotE2e, ACardOptionCapsTheSlotAndARefusedBindLeavesNothing) {
  // The compiler names this file relative to the build directory (or absolutely).
  const auto root = std::filesystem::path(ACL_BINARY_DIR) /
                    std::filesystem::path(__FILE__).parent_path().parent_path().parent_path();
  json d = json::parse(std::ifstream(root / "docs/examples/device.json"));
  d["announce"] = true;
  for (auto& s : d["systems"][0]["slots"]) {
    if (s["slot"] == 2) s["card"]["options"]["acl.maxipv4inrulenumperslot"] = "3";
  }
  const std::string path = dir_.path() + "/device.json";
  std::ofstream(path) << d.dump();
  AclProcessOptions o;
  o.deviceFile = path;
  acl_ = AclProcess::start(o);
  ASSERT_NE(acl_, nullptr);
  const auto ipv4In = [&] {
    const json shown = run({"--json", "slot", "show"});
    for (const auto& s : shown["slots"]) {
      for (const auto& t : s["types"]) {
        if (s["slot"] == 2 && t["dir"] == "in" && t["list"] == "ipv4" && t["capacity"] == 3)
          return t;
      }
    }
    return json();
  };
  ASSERT_TRUE(within([&] { return !ipv4In().is_null(); }));
  for (uint32_t lst : {1001u, 1002u}) validRules(lst, 2);
  script("if create 201; if create 202; if bind 201 in ipv4 1001");
  EXPECT_EQ(ipv4In()["current"], 2);
  says({"if", "bind", "202", "in", "ipv4", "1002"}, 1,
       {"slot 1/2 is full for ipv4 in", "ACL_ERR_SLOT_RULE_FULL"});
  const json t202 = run({"dev", "hw", "--scope", "unit", "--unit", "202"});
  EXPECT_TRUE(t202["table"]["entries"].empty()) << t202.dump();
  expectAuditClean();
}

}  // namespace
