// Control requests: inspection, model changes and registered ops. Bad requests are the hostile
// input tests' business; requests while the daemon's tasks call the device, the stress run's.
#include <gtest/gtest.h>

#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "platform/proc.h"
#include "platform/timerange.h"
#include "platform/vdev/control.h"
#include "platform/vdev/vdev.h"
#include "wire/be.h"

namespace {

using nlohmann::json;

class ControlTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override {
    plat::stopAllTasksForTest();  // joins the control server's task, as the test teardown does
    vdev::resetForTest();
  }
  static json req(const json& r) { return vdev::handleRequest(r); }
};

TEST_F(ControlTest, ShowHwAndJournals) {
  std::vector<uint8_t> rec(508, 0), opt(64, 0);
  be::store32(rec, 476, 1001);
  be::store32(rec, 480, 4);
  ASSERT_EQ(zorHwilCmdSetApi(202, HWIL_CMD_IF_ADD, rec.data(), opt.data()), 0);
  ASSERT_EQ(zorHwilCmdSetApi(0, HWIL_CMD_GLOBAL_DEL, rec.data(), opt.data()), 0);  // anomaly

  const json show = req({{"op", "show"}});
  ASSERT_TRUE(show["ok"]);
  EXPECT_EQ(show["model"]["self"]["slot"], 1);
  EXPECT_EQ(show["hwEntries"], 1);
  EXPECT_EQ(show["anomalies"], 1);

  json all = req({{"op", "hw"}});
  ASSERT_EQ(all["tables"].size(), 1u);
  EXPECT_EQ(all["tables"][0]["unit"], 202);
  json one = req({{"op", "hw"}, {"scope", "unit"}, {"unit", 202}});
  ASSERT_EQ(one["table"]["entries"].size(), 1u);
  EXPECT_EQ(one["table"]["entries"][0]["list"], 1001);
  EXPECT_EQ(one["table"]["entries"][0]["data"].get<std::string>().size(), 1016u);
  json empty = req({{"op", "hw"}, {"scope", "global"}});
  EXPECT_TRUE(empty["table"]["entries"].empty());

  json an = req({{"op", "anomalies"}});
  ASSERT_EQ(an["anomalies"].size(), 1u);
  EXPECT_EQ(an["anomalies"][0]["scope"], "global");
  // since: only what came after.
  EXPECT_TRUE(req({{"op", "anomalies"}, {"since", an["last"]}})["anomalies"].empty());

  ASSERT_TRUE(req({{"op", "clear"}, {"what", "hw"}})["ok"]);
  EXPECT_TRUE(req({{"op", "hw"}})["tables"].empty());
  EXPECT_EQ(req({{"op", "anomalies"}})["anomalies"].size(), 1u);
}

TEST_F(ControlTest, ModelChangesAreCheckedLikeADeviceFile) {
  // A new port, then a change of its flags.
  ASSERT_TRUE(req(
      {{"op", "interface.set"},
       {"interface",
        {{"index", 213}, {"name", "ge-1/2/13"}, {"system", 1}, {"slot", 2}, {"port", 13}}}})["ok"]);
  ASSERT_TRUE(
      req({{"op", "interface.set"}, {"interface", {{"index", 213}, {"flags13", 1}}}})["ok"]);
  uint8_t w[4];
  ASSERT_EQ(zorIfGetApi(213, ZOR_IF_FIELD_FLAGS13, w), 0);
  EXPECT_EQ(be::load32(w), 1u);

  // Refused changes leave the model as it was.
  json bad = req({{"op", "interface.set"},
                  {"interface", {{"index", 214}, {"name", "x"}, {"system", 1}, {"slot", 8}}}});
  EXPECT_FALSE(bad["ok"]);
  // The problem is named by the request's own place, not the model's.
  EXPECT_EQ(bad["error"], "interface.slot: no slot 1/8 in systems");
  uint8_t loc[32];
  EXPECT_NE(zorIndexTrans(214, ZOR_TRANS_LOCATION, loc), 0);

  // Aggregation members; a removed port leaves its aggregation.
  ASSERT_TRUE(req({{"op", "aggregation.set"},
                   {"aggregation", {{"index", 1001}, {"members", {213, 210}}}}})["ok"]);
  ASSERT_TRUE(req({{"op", "interface.remove"}, {"index", 213}})["ok"]);
  uint8_t buf[512];
  ZorBufDesc d{buf, 512};
  ASSERT_EQ(zorEthAggIfGetApi(1001, ZOR_AGG_MEMBERS, &d), 0);
  ASSERT_EQ(d.len, 4u);
  EXPECT_EQ(be::load32(buf), 210u);

  // A card's properties: what it is given is what the platform answers, and a pulled card has
  // none. (Neighbours and the messages of each change are the route-bus tests' business.)
  ASSERT_TRUE(req({{"op", "card.set"},
                   {"system", 1},
                   {"slot", 6},
                   {"card", {{"type", 2}, {"properties", {{"0x02EE002B", 0}}}}}})["ok"]);
  uint8_t key[16] = {0, 0, 0, 1, 0, 0, 0, 6};
  EXPECT_EQ(zorHwilCardGet(key, 0x02EE002B, nullptr), 0);
  ASSERT_TRUE(req({{"op", "card.set"}, {"system", 1}, {"slot", 6}})["ok"]);
  EXPECT_NE(zorHwilCardGet(key, 0x02EE002B, nullptr), 0);
  EXPECT_EQ(req({{"op", "timerange.set"}, {"id", 2}, {"active", "yes"}})["error"],
            "request.active: expected true or false");
  ASSERT_EQ(timerangeListGetApi(2, 11, w), 0);
  EXPECT_EQ(be::load32(w), 0u) << "a refused change leaves the range as it was";
}

TEST_F(ControlTest, RegisteredOpsAnswerByNameAndCannotShadowBuiltIns) {
  auto echo = [](const json& r) { return json{{"ok", true}, {"got", r.value("x", 0)}}; };
  EXPECT_FALSE(vdev::registerControlOp("hw", echo));  // a built-in keeps its name
  EXPECT_FALSE(vdev::registerControlOp("", echo));
  EXPECT_FALSE(vdev::registerControlOp("test.op", nullptr));
  ASSERT_TRUE(vdev::registerControlOp("test.op", echo));
  EXPECT_FALSE(vdev::registerControlOp("test.op", echo));
  EXPECT_EQ(vdev::handleRequest({{"op", "test.op"}, {"x", 7}})["got"], 7);
  EXPECT_TRUE(vdev::handleRequest({{"op", "hw"}}).contains("tables"));
  vdev::unregisterControlOp("test.op");
  const json gone = vdev::handleRequest({{"op", "test.op"}});
  EXPECT_EQ(gone["ok"], false);
  EXPECT_EQ(gone["error"], "unknown op \"test.op\"");
}

}  // namespace
