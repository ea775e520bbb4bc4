// CPU defend, NAT and blacklist installations through the real daemon: the friendly aclctl
// commands and what the virtual device received.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class ServicesE2e : public AclE2eTest {
 protected:
  void SetUp() override {
    AclE2eTest::SetUp();
    if (HasFatalFailure()) return;
    run({"list", "create", "1001"});
    for (const char* r : {"1", "2"}) {
      run({"rule", "create", "1001", r});
      run({"rule", "set", "1001", r, "src=10.1.0.0/16", "protocol=tcp"});
      run({"rule", "action", "1001", r, "permit"});
      run({"rule", "valid", "1001", r});
    }
  }
  json globalEntries() {
    json t = run({"--json", "dev", "hw", "--scope", "global"});
    return t["table"]["entries"];
  }
};

TEST_F(ServicesE2e, CpudefendInstallsMarkedRulesAndTakesThemBack) {
  json r = run({"--json", "cpudefend", "add", "1001", "--action", "3", "--car", "100,200,300"});
  EXPECT_TRUE(r["ok"]);
  EXPECT_EQ(r["scope"], "global");
  json entries = globalEntries();
  ASSERT_EQ(entries.size(), 2u);
  for (const auto& e : entries) {
    const std::string data = e["data"];
    EXPECT_EQ(data.substr(2 * 184, 4), "00bb");      // application 187
    EXPECT_EQ(data.substr(2 * 440, 8), "00000064");  // cir 100
  }
  run({"cpudefend", "del", "1001", "--action", "3", "--car", "100,200,300"});
  EXPECT_TRUE(globalEntries().empty());

  // The slot scope answers, but has no hardware command of its own.
  EXPECT_TRUE(run({"--json", "cpudefend", "add", "--slot", "1/2", "1001", "--action", "3"})["ok"]);
  EXPECT_TRUE(globalEntries().empty());
  r = run({"--json", "cpudefend", "add", "1009", "--action", "3"}, 1);
  EXPECT_EQ(r["ret_hex"], "0x03EA0041");
  run({"cpudefend", "add", "--slot", "1-2", "1001", "--action", "3"}, 2);
}

TEST_F(ServicesE2e, NatSendsUnderTheModulesCommand) {
  EXPECT_TRUE(run({"--json", "nat", "add", "1001", "--cmd", "4660", "--dir", "out"})["ok"]);
  EXPECT_TRUE(run({"--json", "nat", "add", "--slot", "1/3", "1001", "--cmd", "4660"})["ok"]);
  json cmds = run({"--json", "dev", "commands"})["commands"];
  int scalar = 0, slot = 0;
  for (const auto& c : cmds) {
    if (c["cmd"] != 4660) continue;
    const std::string data = c["data"];
    if (c["call"] == "zorScalarSetApi") {
      ++scalar;
      EXPECT_EQ(data.substr(2 * 467, 2), "01");  // the direction travels in the record
    } else if (c["call"] == "zorHwilSlotSet") {
      ++slot;
      EXPECT_EQ(c["key"], json::array({1, 3}));
    }
  }
  EXPECT_EQ(scalar, 2);
  EXPECT_EQ(slot, 2);
  EXPECT_TRUE(globalEntries().empty());
  run({"nat", "del", "1001", "--cmd", "4661", "--dir", "sideways"}, 2);
}

TEST_F(ServicesE2e, BlacklistInstallsOnceAndHoldsTheList) {
  EXPECT_TRUE(run({"--json", "blacklist", "add", "1", "2", "1001"})["ok"]);
  run({"blacklist", "add", "1", "2", "1001"});
  json entries = globalEntries();
  ASSERT_EQ(entries.size(), 2u);
  for (const auto& e : entries) EXPECT_EQ(e["installs"], 1);
  // A blacklisted list is in use.
  run({"list", "delete", "1001"}, 1);
  run({"blacklist", "del", "1", "2", "1001"});
  EXPECT_TRUE(globalEntries().empty());
  run({"blacklist", "del", "1", "2", "1001"});
  json r = run({"--json", "blacklist", "add", "1", "2", "0"}, 1);
  EXPECT_EQ(r["ret_hex"], "0x03E8001A");
  run({"list", "delete", "1001"});
}

}  // namespace
