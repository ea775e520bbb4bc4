// Rule statistics through the real daemon: a counted rule bound globally gets a statistics record,
// aclctl stats walks and reads it, and clears one record or all of them.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class StatsE2e : public AclScriptTest {
 protected:
  // Valid IPv4 rules 1 and 2 of list 1001 counting with counter 12 (type 2, color 1: set 1 for
  // packets and bytes), the list bound to the global ingress IPv4 slot.
  void countedRulesBound() {
    script("counter create 12; counter set 12 --type 2 --color 1; counter valid 12");
    ASSERT_EQ(run({"call", "aclLstSetApi", "1001", "9", "u32:2"})["ret"], 0);
    for (uint32_t r : {1u, 2u}) {
      ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(1001, r), "57", "u32:2"})["ret"], 0);
      ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(1001, r), "19", "u32:46"})["ret"], 0);
      const std::string rule = "1001 " + std::to_string(r);
      script("rule action " + rule + " count=12; rule attach " + rule + " --counter 12");
      ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(1001, r), "57", "u32:1"})["ret"], 0);
    }
    ASSERT_EQ(run({"call", "aclScalarSetApi", "-", "28", "u32:1001"})["ret"], 0);
  }
};

TEST_F(StatsE2e, ShowReadsAndClearClearsTheCounters) {
  EXPECT_TRUE(run({"--json", "stats", "show"})["stats"].empty());
  countedRulesBound();
  script(R"(dev counter --list 1001 --rule 1 --direction 0 --p1 5 --p2 6 --b1 700 --b2 800 --p3 3
            dev counter --list 1001 --rule 2 --direction 0 --p1 9)");

  json rows = run({"--json", "stats", "show"})["stats"];
  ASSERT_EQ(rows.size(), 2u);
  // Which device counter lands in which field is the statistics tests' business.
  expectFields(rows[0], {{"list", 1001}, {"rule", 1}, {"dir", "in"}, {"p1", 5}, {"b2", 800}});
  expectFields(rows[1], {{"rule", 2}, {"p1", 9}});
  // Filters: one rule, and a direction nothing is bound in.
  EXPECT_EQ(run({"--json", "stats", "show", "--list", "1001", "--rule", "2"})["stats"].size(), 1u);
  EXPECT_TRUE(run({"--json", "stats", "show", "--dir", "out"})["stats"].empty());
  std::string text;
  ASSERT_EQ(acl_->aclctl({"stats", "show", "--rule", "1"}, &text), 0);
  EXPECT_NE(text.find("filter 1001/1 in"), std::string::npos) << text;
  EXPECT_NE(text.find("b1=700"), std::string::npos) << text;

  // Clear one: its counters go, the other record keeps its own.
  EXPECT_EQ(
      run({"--json", "stats", "clear", "--list", "1001", "--rule", "1", "--dir", "in"})["ret"], 0);
  rows = run({"--json", "stats", "show"})["stats"];
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(std::pair(rows[0]["p1"], rows[1]["p1"]), std::pair(json(0), json(9)));

  // A record that does not exist, or the wrong direction, is refused.
  json refused =
      run({"--json", "stats", "clear", "--list", "1001", "--rule", "1", "--dir", "out"}, 1);
  EXPECT_EQ(refused["ret_hex"], "0x03EA0007");

  // Clear all (where a failure stops it and which relay it sends are the unit tests' business).
  EXPECT_EQ(run({"--json", "stats", "clear", "--all"})["ret"], 0);
  EXPECT_EQ(run({"--json", "stats", "show"})["stats"][1]["p1"], 0);
  EXPECT_TRUE(acl_->alive());
}

TEST_F(StatsE2e, UsageErrors) {
  script("stats clear --list 1001; stats clear --all --list 1; stats show --dir sideways", 2);
  EXPECT_TRUE(acl_->alive());
}

}  // namespace
