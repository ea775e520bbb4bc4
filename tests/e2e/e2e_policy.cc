// Traffic policies, HQoS and policy-based redirect through the daemon's command table with aclctl:
// what the port's table holds, who owns each bind-list entry, the stored rules left as they were,
// and the audit after each step.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class PolicyE2e : public AclScriptTest {
 protected:
  // List 1001 with valid rules 1 and 2, rule 1 permitting and rule 2 denying.
  void twoRules() {
    script(
        "list create 1001; rule create 1001 1; rule set 1001 1 dst=10.0.0.1;"
        "rule action 1001 1 permit; rule valid 1001 1; rule create 1001 2;"
        "rule set 1001 2 dst=10.0.0.2; rule action 1001 2 deny; rule valid 1001 2;"
        "if create 201");
  }
  json port201() {
    const json t = run({"--json", "dev", "hw", "--scope", "unit", "--unit", "201"});
    return t["table"]["entries"];
  }
  json storedActions() {
    json out = json::array();
    // Kept in a local: a range over a member of the temporary would outlive it.
    const json rules = run({"--json", "rule", "show", "1001"})["rules"];
    for (const auto& r : rules) out.push_back(r["actions"]);
    return out;
  }
};

TEST_F(PolicyE2e, FilterOnAPortShowsTheCopiesAndLeavesTheRulesAlone) {
  twoRules();
  const json before = storedActions();
  run({"policy", "apply", "filter", "--if", "201", "--list", "1001", "--action", "deny"});

  EXPECT_EQ(port201().size(), 2u);
  const json ifs = run({"--json", "if", "show", "201"})["interfaces"];
  ASSERT_EQ(ifs.size(), 1u);
  ASSERT_EQ(ifs[0]["bindings"].size(), 2u);
  for (const auto& b : ifs[0]["bindings"])
    expectFields(b, {{"owner", "trafficpolicy"}, {"refcount", 1}});
  EXPECT_EQ(storedActions(), before);
  expectAuditClean();

  run({"policy", "remove", "filter", "--if", "201", "--list", "1001"});
  EXPECT_TRUE(port201().empty());
  EXPECT_TRUE(run({"--json", "if", "show", "201"})["interfaces"][0]["bindings"].empty());
  expectAuditClean();
}

TEST_F(PolicyE2e, HqosAndRedirectThroughAclctl) {
  twoRules();
  run({"if", "hqos", "add", "201", "in", "1001", "7"});
  EXPECT_EQ(port201().size(), 2u);
  run({"if", "hqos", "del", "201", "in", "1001", "7"});
  run({"if", "pbr", "add", "201", "in", "1001", "--to", "multihop6:fe80::1,fe80::2"});
  const json entries = port201();
  ASSERT_EQ(entries.size(), 2u);
  const json ifs = run({"--json", "if", "show", "201"})["interfaces"];
  ASSERT_EQ(ifs[0]["bindings"].size(), 1u);
  EXPECT_EQ(ifs[0]["bindings"][0]["owner"], "pbr");
  expectAuditClean();
  run({"if", "pbr", "del", "201", "in", "1001", "--to", "multihop6:fe80::1"});
  EXPECT_TRUE(port201().empty());
}

}  // namespace
