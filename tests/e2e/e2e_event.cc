// The daemon follows the device: model changes made through aclctl dev reach it as route
// messages, and the hardware, the records, the bind lists and the ledger follow.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <thread>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class EventE2e : public AclE2eTest {
 protected:
  int32_t ifSet(uint32_t ifIndex, uint32_t cmd, uint32_t v) {
    return run({"call", "aclIfSetApi", std::to_string(ifIndex), std::to_string(cmd),
                "u32:" + std::to_string(v)})["ret"]
        .get<int32_t>();
  }
  json table(const std::string& scope, uint32_t unit = 0) {
    std::vector<std::string> args = {"dev", "hw", "--scope", scope};
    if (scope == "unit") args.insert(args.end(), {"--unit", std::to_string(unit)});
    return run(args)["table"]["entries"];
  }
  // Polls until done() holds; the daemon acts on a route message shortly after it is sent.
  static bool within(const std::function<bool()>& done) {
    for (int i = 0; i < 100; ++i) {
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return done();
  }
};

TEST_F(EventE2e, APortJoiningAnAggregationInMemberModeTakesItsListsAndLeavingDropsThem) {
  slotsKnown();
  run({"dev", "agg", "set", "--index", "1001", "--members", "203,204,303", "--mode", "1"});
  validRules(1001, 2);
  ASSERT_EQ(ifSet(1001, 17, 2), 0);
  ASSERT_EQ(ifSet(1001, 24, 1001), 0);
  std::map<uint32_t, json> before;
  for (uint32_t u : {201u, 202u, 203u, 204u, 303u, 1001u}) before[u] = table("unit", u);

  run({"dev", "agg", "set", "--index", "1001", "--members", "203,204,303,205"});
  EXPECT_TRUE(within([&] { return unitRules(205, 1001).size() == 2; }));
  for (const auto& [u, t] : before) EXPECT_EQ(table("unit", u), t) << u;
  expectAuditClean();

  run({"dev", "agg", "set", "--index", "1001", "--members", "203,204,303"});
  EXPECT_TRUE(within([&] { return table("unit", 205).empty(); }));
  for (const auto& [u, t] : before) EXPECT_EQ(table("unit", u), t) << u;
  expectAuditClean();
}

TEST_F(EventE2e, AnInterfaceRemovedByTheDeviceLosesItsEntriesRecordBindingsAndCharge) {
  slotsKnown();
  validRules(1001, 2);
  const json idle = run({"--json", "slot", "show"});
  run({"if", "create", "201"});
  run({"if", "bind", "201", "in", "ipv4", "1001"});
  ASSERT_EQ(unitRules(201, 1001).size(), 2u);
  ASSERT_NE(run({"--json", "slot", "show"}), idle);

  run({"dev", "if", "remove", "--index", "201"});
  EXPECT_TRUE(within([&] { return run({"--json", "if", "show"})["interfaces"].empty(); }));
  EXPECT_TRUE(table("unit", 201).empty());
  EXPECT_EQ(run({"--json", "slot", "show"}), idle);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 0);
  expectAuditClean();
}

TEST_F(EventE2e, ACardComingUpGetsTheBindingsThatConcernItAndItsSlotIsCharged) {
  slotsKnown();
  validRules(1001, 2);
  run({"global", "bind", "in", "ipv4", "1001"});
  run({"dev", "if", "set", "--index", "4001", "--name", "vlanif-1", "--system", "1", "--slot", "0",
       "--kind", "3"});
  run({"if", "create", "4001"});
  run({"if", "bind", "4001", "in", "ipv4", "1001"});
  // Byte 24 of an entry's options record: 0 for an install to every card, 2 for one slot.
  auto aimedAtSlot5 = [&](const json& entries) {
    if (entries.size() != 2) return false;
    for (const auto& e : entries) {
      const std::string o = e["options"].get<std::string>();
      if (o.substr(48, 2) != "02" || o.substr(52, 4) != "8000" || o.substr(56, 8) != "08000000") {
        return false;
      }
    }
    return true;
  };
  EXPECT_FALSE(aimedAtSlot5(table("global")));
  EXPECT_FALSE(aimedAtSlot5(table("unit", 4001)));
  auto slot5 = [&] {
    const json slots = run({"--json", "slot", "show"})["slots"];
    for (const auto& s : slots) {
      if (s["slot"] != 5) continue;
      for (const auto& t : s["types"]) {
        if (t["list"] == "ipv4" && t["dir"] == "in") return t["current"].get<int>();
      }
    }
    return -1;
  };
  ASSERT_EQ(slot5(), -1);

  run({"dev", "card", "set", "--system", "1", "--slot", "5", "--type", "2", "--name", "GE12-5"});
  EXPECT_TRUE(within([&] { return aimedAtSlot5(table("global")); }));
  EXPECT_TRUE(within([&] { return aimedAtSlot5(table("unit", 4001)); }));
  EXPECT_TRUE(within([&] { return slot5() == 2; }));
  for (uint32_t u : {201u, 301u}) EXPECT_TRUE(table("unit", u).empty()) << u;
  expectAuditClean();
}

TEST_F(EventE2e, ATimeRangeSwitchedByTheDeviceMovesItsRuleOnEveryScope) {
  slotsKnown();
  validRules(1001, 2, 2);  // time range 2 "night" is inactive on the built-in device
  run({"if", "create", "201"});
  run({"if", "bind", "201", "in", "ipv4", "1001"});
  run({"global", "bind", "in", "ipv4", "1001"});
  auto globalRules = [&] {
    std::map<uint32_t, uint32_t> out;
    for (const auto& e : table("global")) out[e["rule"].get<uint32_t>()] = 1;
    return out.size();
  };
  EXPECT_EQ(unitRules(201, 1001).size(), 1u);
  EXPECT_EQ(globalRules(), 1u);
  expectAuditClean();
  for (const char* active : {"true", "false", "true"}) {
    run({"dev", "timerange", "set", "--id", "2", "--active", active});
    const size_t want = std::string(active) == "true" ? 2 : 1;
    EXPECT_TRUE(within([&] { return unitRules(201, 1001).size() == want; })) << active;
    EXPECT_TRUE(within([&] { return globalRules() == want; })) << active;
    expectAuditClean();
  }
}

}  // namespace
