// Rules on the real daemon: a whole rule built by names with the friendly "aclctl rule" commands
// and shown back (the rule table itself is tested against its functions).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class RuleE2e : public AclScriptTest {
 protected:
  void SetUp() override {
    AclScriptTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(run({"call", "aclLstSetApi", "1001", "9", "u32:2"})["ret"], 0);
  }
};

TEST_F(RuleE2e, ARuleBuiltAndShownByNames) {
  script(
      "rule create 1001; rule set 1001 1 src=10.1.0.0/16 dst=192.168.10.0/24 protocol=tcp "
      "dport=8000-8080; rule action 1001 1 deny; rule valid 1001 1");
  json rules = run({"--json", "rule", "show", "1001"})["rules"];
  ASSERT_EQ(rules.size(), 1u);
  const json& r = rules[0];
  expectFields(r, {{"rule", 1}, {"status", "valid"}});
  expectFields(r["fields"], {{"src", "10.1.0.0/16"},
                             {"dst", "192.168.10.0/24"},
                             {"protocol", "tcp"},
                             {"dport", "8000-8080"}});
  EXPECT_EQ(r["actions"], json::parse(R"([{"name":"deny"}])"));

  // The text form names the same things.
  std::string out;
  ASSERT_EQ(acl_->aclctl({"rule", "show", "1001", "1"}, &out), 0);
  EXPECT_NE(out.find("src=10.1.0.0/16"), std::string::npos) << out;
  EXPECT_NE(out.find("deny"), std::string::npos) << out;

  // A refusal (a valid rule is not changed) ends aclctl with 1, an unknown name with 2.
  EXPECT_EQ(acl_->aclctl({"rule", "set", "1001", "1", "sport=1"}, &out), 1);
  EXPECT_EQ(acl_->aclctl({"rule", "set", "1001", "1", "colour=red"}, &out), 2);

  // IPv6, MACs and the references.
  script(
      "rule create 1001 2; rule set 1001 2 src=2001:db8::/32 "
      "smac=00:1b:21:3c:4d:5e/ff:ff:ff:00:00:00 vlan=100; rule attach 1001 2 --time-range 1");
  rules = run({"--json", "rule", "show", "1001", "2"})["rules"];
  ASSERT_EQ(rules.size(), 1u);
  expectFields(
      rules[0]["fields"],
      {{"src", "2001:db8::/32"}, {"smac", "00:1b:21:3c:4d:5e/ff:ff:ff:00:00:00"}, {"vlan", "100"}});
  EXPECT_EQ(rules[0]["time_range"], 1);
  run({"rule", "detach", "1001", "2", "--time-range"});
  EXPECT_FALSE(run({"--json", "rule", "show", "1001", "2"})["rules"][0].contains("time_range"));

  run({"rule", "delete", "1001", "2"});
  EXPECT_EQ(run({"--json", "rule", "show"})["rules"].size(), 1u);
}

// Ports past the first 32 need multi-port redirect, which this daemon does not take: aclctl
// refuses before the action goes in, so the rule is not left redirecting with no port.
TEST_F(RuleE2e, RedirectToPortsPastTheFirst32IsRefusedWhole) {
  run({"rule", "create", "1001"});
  json j = run({"--json", "rule", "action", "1001", "1", "redirect-port=1,40"}, 1);
  expectFields(j, {{"ret_hex", "0x03EA0044"}, {"step", "parameters"}});
  EXPECT_TRUE(run({"--json", "rule", "show", "1001", "1"})["rules"][0]["actions"].empty());
  run({"rule", "action", "1001", "1", "redirect-port=1,2"});
  EXPECT_EQ(run({"--json", "rule", "show", "1001", "1"})["rules"][0]["actions"].size(), 1u);
}

}  // namespace
