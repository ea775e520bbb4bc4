// GEM port binding through aclctl gem on the built-in PON card (interface 401), and the ONU
// leaving through the virtual device.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <map>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class GemE2e : public AclScriptTest {
 protected:
  // (rule -> priority) in the table of GEM key 401/5/3.
  std::map<uint32_t, uint32_t> gemRules() {
    std::map<uint32_t, uint32_t> out;
    const json t =
        run({"dev", "hw", "--scope", "gem", "--unit", "401", "--onu", "5", "--gem", "3"});
    for (const auto& e : t["table"]["entries"]) {
      out[e["rule"].get<uint32_t>()] = e["priority"].get<uint32_t>();
    }
    return out;
  }
};

TEST_F(GemE2e, BindShowUnbindAndRefusals) {
  slotsKnown();
  validRules(1001, 2);
  expectAuditClean();
  script("gem create 401/5/3; gem bind 401/5/3 in ipv4 1001");
  EXPECT_EQ(gemRules(), (std::map<uint32_t, uint32_t>{{1, 1}, {2, 2}}));
  const json shown = run({"--json", "gem", "show", "401/5/3"});
  ASSERT_EQ(shown["gemPorts"].size(), 1u);
  EXPECT_EQ(shown["gemPorts"][0]["slots"]["inIpv4Acl"], 1001);
  EXPECT_EQ(shown["gemPorts"][0]["bindings"],
            json::parse(R"([{"list":1001,"kind":"ipv4","dir":"in"}])"));
  expectAuditClean();

  // A refusal ends aclctl with 1, a key it cannot read with 2.
  run({"gem", "delete", "401/5/3"}, 1);  // a list is still bound
  run({"gem", "create", "401/5"}, 2);
  // The device refuses ONUs where there is no PON interface, and removals of what it does not have.
  run({"dev", "onu", "set", "--interface", "201", "--onu", "5"}, 1);
  run({"dev", "onu", "set", "--interface", "401", "--onu", "70000"}, 1);
  run({"dev", "onu", "remove", "--interface", "401", "--onu", "9"}, 1);
  script("dev onu set --interface 401 --onu 5 --gem 3");
  run({"dev", "onu", "remove", "--interface", "401", "--onu", "5", "--gem", "4"}, 1);
  EXPECT_EQ(run({"dev", "show"})["model"]["interfaces"].back()["onus"],
            json::parse(R"([{"id":5,"gemPorts":[3]}])"));
  EXPECT_EQ(gemRules().size(), 2u);

  run({"gem", "unbind", "401/5/3", "in", "ipv4"});
  EXPECT_TRUE(gemRules().empty());
  run({"gem", "delete", "401/5/3"});
  EXPECT_EQ(run({"--json", "gem", "show"})["gemPorts"].size(), 0u);
  expectAuditClean();
}

// Needs the event task's dispatch of message 382 to aclOnuGemPortUnregister: until then the
// daemon does not act on the ONU's removal and the table stays.
TEST_F(GemE2e, OnuRemovalEmptiesItsTablesAndRecords) {
  slotsKnown();
  validRules(1001, 2);
  script(
      "dev onu set --interface 401 --onu 5 --gem 3; gem create 401/5/3;"
      "gem bind 401/5/3 in ipv4 1001");
  EXPECT_EQ(gemRules(), (std::map<uint32_t, uint32_t>{{1, 1}, {2, 2}}));
  expectAuditClean();

  run({"dev", "onu", "remove", "--interface", "401", "--onu", "5"});
  EXPECT_TRUE(within([&] {
    return run({"--json", "gem", "show"})["gemPorts"].empty();
  })) << "the daemon kept the GEM port record of the removed ONU";
  EXPECT_TRUE(gemRules().empty());
  // The audit holds refCnt, the bind list and the slot charge to the bindings that are left.
  expectAuditClean();
}

}  // namespace
