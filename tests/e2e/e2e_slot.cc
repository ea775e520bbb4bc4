// The chassis as a started daemon learns it: the device replays its slots and cards when the
// daemon's route socket joins, and aclctl slot shows the ledger and the cards' resources.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class SlotE2e : public AclScriptTest {
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
    expectFields(slots[i], {{"sys", 1}, {"slot", i + 1}});
    ASSERT_EQ(slots[i]["types"].size(), 18u);
  }
  // The control card reports nothing: the default stays. Line cards report their own.
  EXPECT_EQ(type(slots[0], "vfp", "ipv4")["capacity"], 1024);
  expectFields(type(slots[1], "in", "ipv4"), {{"type", 1}, {"current", 0}, {"free", 1024}});
  EXPECT_EQ(type(slots[3], "vfp", "udf")["capacity"], 256);

  EXPECT_EQ(run({"--json", "slot", "resources", "1/2"})["resources"].size(), 5u);

  says({"slot", "show", "1/3"}, 0, {"slot 1/3", "vfp ipv4"});
  run({"slot", "show", "1/9"}, 1);
  run({"slot", "resources", "1-2"}, 2);
}

}  // namespace
