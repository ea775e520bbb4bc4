// The chassis as a started daemon learns it: the device replays its slots and cards when the
// daemon's route socket joins, and aclctl slot shows the ledger and the cards' resources.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <thread>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class SlotE2e : public AclE2eTest {
 protected:
  static json type(const json& slot, const char* dir, const char* list) {
    for (const auto& t : slot["types"]) {
      if (t["dir"] == dir && t["list"] == list) return t;
    }
    return json();
  }
};

TEST_F(SlotE2e, ADaemonOnTheBuiltInDeviceLearnsItsLineCards) {
  const json slots = slotsKnown();
  ASSERT_EQ(slots.size(), 4u) << slots.dump();
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(slots[i]["sys"], 1);
    EXPECT_EQ(slots[i]["slot"], i + 1);
    ASSERT_EQ(slots[i]["types"].size(), 18u);
  }
  // The control card reports nothing: the default stays. Line cards report their own.
  EXPECT_EQ(type(slots[0], "vfp", "ipv4")["capacity"], 1024);
  expectFields(type(slots[1], "in", "ipv4"), {{"type", 1}, {"current", 0}, {"free", 1024}});
  EXPECT_EQ(type(slots[3], "vfp", "udf")["capacity"], 256);

  EXPECT_EQ(run({"--json", "slot", "resources", "1/2"})["resources"].size(), 5u);

  std::string out;
  EXPECT_EQ(acl_->aclctl({"slot", "show", "1/3"}, &out), 0);
  EXPECT_NE(out.find("slot 1/3"), std::string::npos) << out;
  EXPECT_NE(out.find("vfp ipv4"), std::string::npos) << out;
  EXPECT_EQ(acl_->aclctl({"slot", "show", "1/9"}, &out), 1);
  EXPECT_EQ(acl_->aclctl({"slot", "resources", "1-2"}, &out), 2);
}

}  // namespace
