// Meters, meter profiles and counters through the real daemon: the raw table calls and the
// friendly aclctl commands.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class MeterCounterE2e : public AclScriptTest {};

// Raw calls: a meter that one rule holds refuses its deletion, and the version strings as aclctl
// shows a descriptor answer. (The tables' other commands and refusals are the meter and counter
// tests' business.)
TEST_F(MeterCounterE2e, RawCallsGuardAReferencedMeterAndAnswerTheVersions) {
  EXPECT_EQ(run({"call", "meterSetApi", "5", "13", "u32:2"})["ret"], 0);
  EXPECT_EQ(run({"call", "meterSetApi", "5", "13", "u32:1"})["ret"], 0);
  EXPECT_EQ(run({"call", "meterSetApi", "5", "12", "u32:1"})["ret"], 0);
  EXPECT_EQ(run({"call", "meterSetApi", "5", "13", "u32:4"})["ret_hex"], "0x03E8000B");
  json v = run({"call", "meterScalarGetApi", "-", "17", "dlen:32"});
  EXPECT_EQ(v["buf"]["hex"], "4d455445525f56372e30302e30302e3030");  // METER_V7.00.00.00
  v = run({"call", "counterScalarGetApi", "-", "2", "dlen:8"});
  EXPECT_EQ(v["buf"]["hex"], "434f554e5445525f");  // COUNTER_, cut to the room given
}

TEST_F(MeterCounterE2e, FriendlyCommandsRoundTrip) {
  EXPECT_EQ(run({"--json", "meter", "create"})["index"], 1);
  script("meter set 1 --cir 2048 --pbs 9; meter valid 1");
  json shown = run({"--json", "meter", "show"});
  ASSERT_EQ(shown["meters"].size(), 1u);
  expectFields(shown["meters"][0], {{"status", "valid"}, {"cir", 2048}, {"pbs", 9}});

  script("meter profile create 7; meter profile set 7 --name gold --ds-pir 300");
  shown = run({"--json", "meter", "profile", "show", "7"});
  expectFields(shown["profiles"][0], {{"name", "gold"}, {"ds_pir", 300}});

  run({"counter", "create", "12"});
  shown = run({"--json", "counter", "show", "12"});
  expectFields(shown["counters"][0], {{"name", "counter12"}, {"color", 4}});
  script("counter valid 12; counter delete 12");
  run({"counter", "show", "12"}, 1);
  run({"meter", "set", "1"}, 2);
}

}  // namespace
