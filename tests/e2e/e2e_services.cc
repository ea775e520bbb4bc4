// CPU defend, NAT and blacklist installations through the real daemon's friendly aclctl
// commands.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class ServicesE2e : public AclScriptTest {
 protected:
  void SetUp() override {
    AclScriptTest::SetUp();
    if (HasFatalFailure()) return;
    script("list create 1001");
    for (const std::string r : {"1", "2"}) {
      script("rule create 1001 " + r + "; rule set 1001 " + r +
             " src=10.1.0.0/16 protocol=tcp; rule action 1001 " + r + " permit; rule valid 1001 " +
             r);
    }
  }
  json globalEntries() {
    json t = run({"--json", "dev", "hw", "--scope", "global"});
    return t["table"]["entries"];
  }
};

// What each service writes into its entries, and which command it sends, is tested against the
// service itself; here, that each aclctl command reaches it and how a refusal ends.
TEST_F(ServicesE2e, CpudefendInstallsAndTakesBack) {
  json r = run({"--json", "cpudefend", "add", "1001", "--action", "3", "--car", "100,200,300"});
  expectFields(r, {{"ok", true}, {"scope", "global"}});
  EXPECT_EQ(globalEntries().size(), 2u);
  run({"cpudefend", "del", "1001", "--action", "3", "--car", "100,200,300"});
  EXPECT_TRUE(globalEntries().empty());
  r = run({"--json", "cpudefend", "add", "1009", "--action", "3"}, 1);
  EXPECT_EQ(r["ret_hex"], "0x03EA0041");
  run({"cpudefend", "add", "--slot", "1-2", "1001", "--action", "3"}, 2);
}

TEST_F(ServicesE2e, NatSendsUnderTheModulesCommand) {
  EXPECT_TRUE(run({"--json", "nat", "add", "--slot", "1/3", "1001", "--cmd", "4660"})["ok"]);
  const json cmds = run({"--json", "dev", "commands"})["commands"];
  int sent = 0;
  for (const auto& c : cmds) sent += c["cmd"] == 4660;
  EXPECT_EQ(sent, 2);
  EXPECT_TRUE(globalEntries().empty());
  run({"nat", "del", "1001", "--cmd", "4661", "--dir", "sideways"}, 2);
}

TEST_F(ServicesE2e, BlacklistHoldsTheList) {
  EXPECT_TRUE(run({"--json", "blacklist", "add", "1", "2", "1001"})["ok"]);
  EXPECT_EQ(globalEntries().size(), 2u);
  run({"list", "delete", "1001"}, 1);  // a blacklisted list is in use
  run({"blacklist", "del", "1", "2", "1001"});
  EXPECT_TRUE(globalEntries().empty());
  json r = run({"--json", "blacklist", "add", "1", "2", "0"}, 1);
  EXPECT_EQ(r["ret_hex"], "0x03E8001A");
  run({"list", "delete", "1001"});
}

}  // namespace
