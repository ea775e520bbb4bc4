// Rules on the real daemon: the rule table through "aclctl call" (create, fields, validity, walk),
// and a whole rule built by names with the friendly "aclctl rule" commands and shown back.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

// The rule key 1001/rule as "aclctl call" takes it.
std::string key(uint32_t lst, uint32_t rule, uint32_t filter = 0) {
  char text[40];
  std::snprintf(text, sizeof text, "x:%08x%08x%08x", lst, rule, filter);
  return text;
}

class RuleE2e : public AclE2eTest {
 protected:
  void SetUp() override {
    AclE2eTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(run({"call", "aclLstSetApi", "1001", "9", "u32:2"})["ret"], 0);
  }
};

TEST_F(RuleE2e, TheRuleTableThroughCall) {
  // Set 57 with 2 creates rule 1, which starts invalid (status 3).
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 1), "57", "u32:2"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclRuleGetApi", key(1001, 1), "57", "u32:0"})["buf"]["u32"], 3);
  // ToS 46 reads back as 46 and sets field bit 18 (byte 2, mask 0x20).
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 1), "19", "u32:46"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclRuleGetApi", key(1001, 1), "19", "u32:0"})["buf"]["u32"], 46);
  json j = run({"call", "aclRuleGetApi", key(1001, 1), "0", "dlen:12"});
  EXPECT_EQ(j["buf"]["hex"], "000020000000000000000000");
  // No protocol type: 65535.
  EXPECT_EQ(run({"call", "aclRuleGetApi", key(1001, 1), "5", "u32:0"})["buf"]["u32"], 65535);
  // A valid rule refuses a field.
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 1), "57", "u32:1"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 1), "14", "u32:80"})["ret_hex"], "0x03EA0046");
  // Addresses travel in descriptors; a bad length is refused.
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 2), "57", "u32:2"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 2), "11", "d:c0a80101"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclRuleGetApi", key(1001, 2), "11", "dlen:16"})["buf"]["hex"],
            "c0a80101");
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1001, 2), "11", "d:c0a801010000"})["ret"], 22);
  // The rule's hardware record and TLV message.
  j = run({"call", "aclRuleGetApi", key(1001, 2), "75", "dlen:508"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["buf"]["len"], 508);
  EXPECT_EQ(run({"call", "aclRuleGetApi", key(1001, 2), "87", "dlen:100"})["ret_hex"],
            "0x03E8000D");
  j = run({"call", "aclRuleGetApi", key(1001, 2), "87", "dlen:512"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_GE(j["buf"]["len"].get<int>(), 36);
  // A value word where a descriptor belongs never reaches the daemon's table.
  std::string out;
  EXPECT_EQ(acl_->aclctl({"call", "aclRuleSetApi", key(1001, 2), "11", "u32:1"}, &out), 1);

  // The walk, with and without the filter bit.
  EXPECT_EQ(run({"call", "aclRuleSetApi", key(1, 7), "57", "u32:2"}, 0)["ret_hex"], "0x03EA0041");
  ASSERT_EQ(run({"call", "aclLstSetApi", "1", "9", "u32:2"})["ret"], 0);
  ASSERT_EQ(run({"call", "aclRuleSetApi", key(1, 7), "57", "u32:2"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclRuleGetFirst"})["key"], "000000010000000700000000");
  // The filter word is read, not written: it comes back as it was sent.
  EXPECT_EQ(run({"call", "aclRuleGetFirst", key(1001, 0, 0x80000000)})["key"],
            "000003e90000000180000000");
  EXPECT_EQ(run({"call", "aclRuleGetNext", key(1, 7)})["key"], "000003e90000000100000000");
  EXPECT_EQ(run({"call", "aclRuleGetNext", key(1001, 2, 0x80000000)})["ret"], -1);

  // Announcements: rule 1 became valid.
  std::vector<int> events;
  const json announced = run({"dev", "announcements"});
  for (const auto& a : announced["announcements"]) {
    if (a["group"] == 56 && a["list"] == 1001) events.push_back(a["event"].get<int>());
  }
  EXPECT_EQ(events, (std::vector<int>{247, 249, 250}));
  EXPECT_TRUE(acl_->alive());
}

TEST_F(RuleE2e, ARuleBuiltAndShownByNames) {
  run({"rule", "create", "1001"});
  run({"rule", "set", "1001", "1", "src=10.1.0.0/16", "dst=192.168.10.0/24", "protocol=tcp",
       "dport=8000-8080"});
  run({"rule", "action", "1001", "1", "deny"});
  run({"rule", "valid", "1001", "1"});
  json rules = run({"--json", "rule", "show", "1001"})["rules"];
  ASSERT_EQ(rules.size(), 1u);
  const json& r = rules[0];
  EXPECT_EQ(r["rule"], 1);
  EXPECT_EQ(r["status"], "valid");
  EXPECT_EQ(r["fields"]["src"], "10.1.0.0/16");
  EXPECT_EQ(r["fields"]["dst"], "192.168.10.0/24");
  EXPECT_EQ(r["fields"]["protocol"], "tcp");
  EXPECT_EQ(r["fields"]["dport"], "8000-8080");
  EXPECT_EQ(r["actions"], json::parse(R"([{"name":"deny"}])"));

  // The text form names the same things.
  std::string out;
  ASSERT_EQ(acl_->aclctl({"rule", "show", "1001", "1"}, &out), 0);
  EXPECT_NE(out.find("src=10.1.0.0/16"), std::string::npos) << out;
  EXPECT_NE(out.find("deny"), std::string::npos) << out;

  // A valid rule is not changed; an unknown name is a usage error.
  EXPECT_EQ(acl_->aclctl({"rule", "set", "1001", "1", "sport=1"}, &out), 1);
  EXPECT_EQ(acl_->aclctl({"rule", "set", "1001", "1", "colour=red"}, &out), 2);
  // Conflicting actions are refused with the daemon's code.
  run({"rule", "invalid", "1001", "1"});
  json j = run({"--json", "rule", "action", "1001", "1", "permit"}, 1);
  EXPECT_EQ(j["ret_hex"], "0x03EA003D");

  // IPv6, MACs and the references.
  run({"rule", "create", "1001", "2"});
  run({"rule", "set", "1001", "2", "src=2001:db8::/32", "smac=00:1b:21:3c:4d:5e/ff:ff:ff:00:00:00",
       "vlan=100"});
  run({"rule", "attach", "1001", "2", "--time-range", "1"});
  rules = run({"--json", "rule", "show", "1001", "2"})["rules"];
  ASSERT_EQ(rules.size(), 1u);
  EXPECT_EQ(rules[0]["fields"]["src"], "2001:db8::/32");
  EXPECT_EQ(rules[0]["fields"]["smac"], "00:1b:21:3c:4d:5e/ff:ff:ff:00:00:00");
  EXPECT_EQ(rules[0]["fields"]["vlan"], "100");
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
  EXPECT_EQ(j["ret_hex"], "0x03EA0044");
  EXPECT_EQ(j["step"], "parameters");
  EXPECT_TRUE(run({"--json", "rule", "show", "1001", "1"})["rules"][0]["actions"].empty());
  run({"rule", "action", "1001", "1", "redirect-port=1,2"});
  EXPECT_EQ(run({"--json", "rule", "show", "1001", "1"})["rules"][0]["actions"].size(), 1u);
}

}  // namespace
