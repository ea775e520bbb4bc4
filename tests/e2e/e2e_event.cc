// The daemon follows the device: an interface removed through aclctl dev reaches it as a route
// message, and the hardware, the records, the bind lists and the ledger follow. (Each kind of
// route message is tested against the message walk itself.)
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class EventE2e : public AclScriptTest {
 protected:
  json table(const std::string& scope, uint32_t unit = 0) {
    std::vector<std::string> args = {"dev", "hw", "--scope", scope};
    if (scope == "unit") args.insert(args.end(), {"--unit", std::to_string(unit)});
    return run(args)["table"]["entries"];
  }
};

TEST_F(EventE2e, AnInterfaceRemovedByTheDeviceLosesItsEntriesRecordBindingsAndCharge) {
  slotsKnown();
  validRules(1001, 2);
  const json idle = run({"--json", "slot", "show"});
  script("if create 201; if bind 201 in ipv4 1001");
  ASSERT_EQ(unitRules(201, 1001).size(), 2u);
  ASSERT_NE(run({"--json", "slot", "show"}), idle);

  run({"dev", "if", "remove", "--index", "201"});
  EXPECT_TRUE(within([&] { return run({"--json", "if", "show"})["interfaces"].empty(); }));
  EXPECT_TRUE(table("unit", 201).empty());
  EXPECT_EQ(run({"--json", "slot", "show"}), idle);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 0);
  expectAuditClean();
}

}  // namespace
