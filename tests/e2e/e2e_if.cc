// Interface binding through the daemon's command table: an aggregation's members carry the list,
// a refusing member leaves no unit with any of it, and aclctl if binds, shows and refuses by
// name. Slot capacities come from a card option.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "support/acl_e2e.h"
#include "support/run_dir.h"

namespace {

using nlohmann::json;

class IfE2e : public AclE2eTest {
 protected:
  int32_t ifSet(uint32_t ifIndex, uint32_t cmd, uint32_t v) {
    return run({"call", "aclIfSetApi", std::to_string(ifIndex), std::to_string(cmd),
                "u32:" + std::to_string(v)})["ret"]
        .get<int32_t>();
  }
  // What aclctl printed on both streams (its refusals go to stderr).
  std::string said(const std::vector<std::string>& args) {
    std::string cmd =
        std::string(ACL_BINARY_DIR) + "/src/client/aclctl --run-dir " + acl_->runDir();
    for (const auto& a : args) cmd += " " + a;
    cmd += " 2>&1";
    std::string text;
    if (FILE* p = ::popen(cmd.c_str(), "r")) {
      char buf[512];
      while (size_t n = std::fread(buf, 1, sizeof buf, p)) text.append(buf, n);
      ::pclose(p);
    }
    return text;
  }
};

TEST_F(IfE2e, AggregationMembersCarryTheListAndARefusalLeavesNone) {
  slotsKnown();
  run({"dev", "agg", "set", "--index", "1001", "--members", "203,204,303", "--mode", "1"});
  validRules(1001, 2);
  ASSERT_EQ(ifSet(1001, 17, 2), 0);
  ASSERT_EQ(ifSet(1001, 24, 1001), 0);
  const std::map<uint32_t, uint32_t> both = {{1, 4097}, {2, 4098}};
  for (uint32_t m : {203u, 204u, 303u}) EXPECT_EQ(unitRules(m, 1001), both) << m;
  EXPECT_TRUE(unitRules(1001, 1001).empty());
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 1);
  expectAuditClean();
  // An entry taken out behind the daemon's back is a difference.
  run({"dev", "clear", "--what", "hw"});
  std::string out;
  EXPECT_EQ(acl_->aclctl({"audit"}, &out), 1);
  EXPECT_NE(out.find("lacks list 1001 rule 2"), std::string::npos) << out;
  ASSERT_EQ(ifSet(1001, 24, 0), 0);
  for (uint32_t u : {203u, 204u, 303u, 1001u}) EXPECT_TRUE(unitRules(u, 1001).empty()) << u;
  run({"dev", "clear", "--what", "anomalies"});
  expectAuditClean();

  run({"dev", "fault", "add", "--call", "zorHwilCmdSetApi", "--scope", "unit", "--unit", "204",
       "--cmd", "65536398", "--list", "1001", "--rule", "2", "--result", "0x3E80099"});
  EXPECT_EQ(ifSet(1001, 24, 1001), 0x3E80099);
  for (uint32_t u : {203u, 204u, 303u, 1001u}) EXPECT_TRUE(unitRules(u, 1001).empty()) << u;
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 0);
  EXPECT_EQ(run({"call", "aclIfGetApi", "1001", "24", "u32:0"})["buf"]["u32"], 0);
  expectAuditClean();
}

TEST_F(IfE2e, AclctlIfBindsShowsAndNamesRefusals) {
  slotsKnown();
  validRules(1001, 2);
  run({"if", "create", "201"});
  std::string out;
  EXPECT_EQ(acl_->aclctl({"if", "bind", "201", "in", "ipv4", "1500"}, &out), 1);
  out = said({"if", "bind", "201", "in", "ipv4", "1500"});
  EXPECT_NE(out.find("list 1500 does not exist"), std::string::npos) << out;
  EXPECT_EQ(acl_->aclctl({"if", "bind", "201", "in", "l2", "1001"}, &out), 1);
  out = said({"if", "bind", "201", "in", "l2", "1001"});
  EXPECT_NE(out.find("does not fit"), std::string::npos) << out;
  EXPECT_EQ(acl_->aclctl({"if", "bind", "201", "sideways", "1001"}, &out), 2);
  EXPECT_EQ(acl_->aclctl({"if", "bind", "202", "in", "ipv4", "1001"}, &out), 1);
  out = said({"if", "bind", "202", "in", "ipv4", "1001"});
  EXPECT_NE(out.find("no record"), std::string::npos) << out;

  run({"if", "bind", "201", "in", "ipv4", "1001"});
  run({"if", "bind", "201", "out", "1001"});  // untyped: list index, then the switch
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
  EXPECT_EQ(acl_->aclctl({"if", "delete", "201"}, &out), 1);
  run({"if", "unbind", "201", "in", "ipv4"});
  run({"if", "unbind", "201", "out"});
  EXPECT_TRUE(unitRules(201, 1001).empty());
  run({"if", "delete", "201"});
  EXPECT_TRUE(run({"--json", "if", "show"})["interfaces"].empty());
  EXPECT_TRUE(run({"--json", "if", "stats", "show"})["stats"].empty());
  run({"if", "stats", "clear", "--all"});
  EXPECT_EQ(acl_->aclctl({"if", "stats", "clear"}, &out), 2);
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
    for (int i = 0; i < 100; ++i) {
      const json slots = run({"--json", "slot", "show"})["slots"];
      for (const auto& s : slots) {
        if (s["slot"] != 2) continue;
        for (const auto& t : s["types"]) {
          if (t["dir"] == "in" && t["list"] == "ipv4" && t["capacity"] == 3) return t;
        }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return json();
  };
  ASSERT_FALSE(ipv4In().is_null());
  for (uint32_t lst : {1001u, 1002u}) validRules(lst, 2);
  run({"if", "create", "201"});
  run({"if", "create", "202"});
  run({"if", "bind", "201", "in", "ipv4", "1001"});
  EXPECT_EQ(ipv4In()["current"], 2);
  std::string out;
  EXPECT_EQ(acl_->aclctl({"if", "bind", "202", "in", "ipv4", "1002"}, &out), 1);
  out = said({"if", "bind", "202", "in", "ipv4", "1002"});
  EXPECT_NE(out.find("slot 1/2 is full for ipv4 in"), std::string::npos) << out;
  EXPECT_NE(out.find("ACL_ERR_SLOT_RULE_FULL"), std::string::npos) << out;
  const json t202 = run({"dev", "hw", "--scope", "unit", "--unit", "202"});
  EXPECT_TRUE(t202["table"]["entries"].empty()) << t202.dump();
  expectAuditClean();
  // The same list again on another port of the slot is charged once.
  run({"if", "bind", "202", "in", "ipv4", "1001"});
  EXPECT_EQ(ipv4In()["current"], 2);
  expectAuditClean();
}

}  // namespace
