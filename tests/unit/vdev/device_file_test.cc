// Loading the device: the built-in model, valid files, and every kind of refused file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "platform/vdev/model_json.h"
#include "platform/vdev/vdev.h"
#include "wire/be.h"

namespace {

using nlohmann::json;

class DeviceFileTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override {
    vdev::resetForTest();
    for (auto& p : files_) std::filesystem::remove(p);
  }
  std::string write(const std::string& text) {
    char name[] = "/tmp/vdev-device-XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    close(fd);
    std::ofstream(name) << text;
    files_.push_back(name);
    return name;
  }
  std::string writeJson(const json& j) { return write(j.dump(2)); }

  // A small valid device to break in one place per test.
  static json base() {
    return json::parse(R"({
      "self": {"system": 2, "slot": 5},
      "systems": [{"index": 2, "slots": [
        {"slot": 5, "card": {"type": 7, "name": "MCU"}},
        {"slot": 6, "card": {"type": 8, "options": {"acl.maxl2inrulenumperslot": "64"}}}]}],
      "interfaces": [
        {"index": 601, "name": "ge-2/6/1", "system": 2, "slot": 6, "port": 1},
        {"index": 602, "name": "ge-2/6/2", "system": 2, "slot": 6, "port": 2}],
      "aggregations": [{"index": 900, "name": "agg-9", "members": [601]}],
      "neighbours": [{"vrf": 3, "address": "10.1.1.1"}],
      "timeRanges": [{"id": 9, "name": "t", "active": true}],
      "mirrorGroups": [2]
    })");
  }

  // Loads j and expects a refusal whose message names the file, place and problem.
  void expectRefused(const json& j, const std::string& place, const std::string& problem) {
    const std::string path = writeJson(j);
    std::string error;
    EXPECT_FALSE(vdev::load(path, &error));
    EXPECT_EQ(error.rfind(path + ": ", 0), 0u) << error;
    EXPECT_NE(error.find(place), std::string::npos) << error;
    EXPECT_NE(error.find(problem), std::string::npos) << error;
    // The model in force is untouched: still the built-in device.
    EXPECT_EQ(zorSelfSysIndex(), 1u);
    EXPECT_EQ(zorSelfSlotIndex(), 1u);
  }

  std::vector<std::string> files_;
};

uint32_t locationWord(uint32_t unit, uint32_t word) {
  uint8_t loc[32] = {};
  EXPECT_EQ(zorIndexTrans(unit, ZOR_TRANS_LOCATION, loc), 0) << unit;
  return be::load32(std::span<const uint8_t>(loc), 4 * word);
}

TEST_F(DeviceFileTest, BuiltinDeviceIsASmallChassis) {
  std::string error;
  ASSERT_TRUE(vdev::load("", &error));
  EXPECT_EQ(zorSelfSysIndex(), 1u);
  EXPECT_EQ(zorSelfSlotIndex(), 1u);
  const json m = vdev::modelToJson(vdev::device().model);
  size_t eth = 0, pon = 0;
  for (auto& i : m["interfaces"]) {
    eth += i["kind"] == ZOR_IF_KIND_ETH;
    pon += i["kind"] == ZOR_IF_KIND_PON;
    // Every interface lies on a slot that holds a card.
    EXPECT_EQ(locationWord(i["index"], ZOR_LOC_SLOT), i["slot"]);
  }
  EXPECT_GE(eth, 20u);
  EXPECT_EQ(pon, 1u);
  ASSERT_EQ(m["aggregations"].size(), 1u);
  EXPECT_GE(m["aggregations"][0]["members"].size(), 2u);
  EXPECT_EQ(locationWord(m["aggregations"][0]["index"], ZOR_LOC_KIND), ZOR_IF_KIND_AGG);
  // Ready for card-up handling: 46 and 55 read non-zero, 54 reads 0.
  uint8_t v[4];
  ASSERT_EQ(zorHwilScalarGet(0, 46, v, 0), 0);
  EXPECT_NE(be::load32(v), 0u);
  ASSERT_EQ(zorHwilScalarGet(0, 54, v, 0), 0);
  EXPECT_EQ(be::load32(v), 0u);
}

TEST_F(DeviceFileTest, ModelSurvivesItsOwnFileForm) {
  const json once = vdev::modelToJson(vdev::builtinModel());
  vdev::Model m;
  std::string error;
  ASSERT_TRUE(vdev::modelFromJson(once, &m, &error)) << error;
  EXPECT_EQ(vdev::modelToJson(m), once);
}

TEST_F(DeviceFileTest, ValidFileReplacesTheModel) {
  std::string error;
  ASSERT_TRUE(vdev::load(writeJson(base()), &error)) << error;
  EXPECT_EQ(zorSelfSysIndex(), 2u);
  EXPECT_EQ(zorSelfSlotIndex(), 5u);
  char name[64];
  ASSERT_EQ(zorIfUnit2Name(602, name, sizeof name), 0);
  EXPECT_STREQ(name, "ge-2/6/2");
  EXPECT_EQ(locationWord(900, ZOR_LOC_KIND), ZOR_IF_KIND_AGG);
  // Interfaces of the built-in device are gone.
  uint8_t loc[32];
  EXPECT_NE(zorIndexTrans(201, ZOR_TRANS_LOCATION, loc), 0);
}

// Each case breaks the valid base() in one place, structurally or by a reference that does not
// resolve. (An interface on a slot that does not exist is refused end to end, by the daemon.)
TEST_F(DeviceFileTest, EachProblemNamesItsPlace) {
  std::string error;
  EXPECT_FALSE(vdev::load("/nonexistent/device.json", &error));
  EXPECT_NE(error.find("/nonexistent/device.json: cannot read"), std::string::npos) << error;
  // (where base() is broken, the JSON put there or nullptr to erase it, place, problem)
  struct Case {
    const char *pointer, *value, *place, *problem;
  };
  const Case cases[] = {
      {"", "[]", "top level", "expected an object"},
      {"/interfaces/1/prot", "3", "interfaces[1].prot", "unknown key"},
      {"/self", nullptr, "self", "missing"},
      {"/self/slot", "9", "self", "no slot 2/9"},
      {"/systems/0/slots/1/slot", "5", "systems[0].slots[1].slot", "listed twice"},
      {"/interfaces/0/slot", R"("six")", "interfaces[0].slot", "non-negative whole number"},
      {"/interfaces/1/index", "601", "interfaces[1].index", "listed twice"},
      {"/interfaces/0/system", "4294967296", "interfaces[0].system", "above"},
      {"/announce", R"("no")", "announce", "expected true or false"},
      {"/aggregations/0/members", "[601, 777]", "aggregations[0].members[1]", "no interface 777"},
      {"/aggregations/1", R"({"index": 901, "name": "agg-b", "members": [601]})",
       "aggregations[1].members[0]", "already a member"},
      {"/aggregations/0/members", "[900]", "aggregations[0].members[0]", "not an Ethernet port"},
      {"/neighbours/0/address", R"("10.1.1")", "neighbours[0].address", "not an IP address"},
      {"/timeRanges/0/id", "70000", "timeRanges[0].id", "above 65535"},
      {"/mirrorGroups", "[2, 2]", "mirrorGroups[1]", "listed twice"},
      {"/scalars", R"({"forty": 1})", "scalars.forty", "not a 32-bit number"},
  };
  for (const Case& c : cases) {
    json j = base();
    const json::json_pointer at(c.pointer);
    if (c.value == nullptr) {
      j[at.parent_pointer()].erase(at.back());
    } else {
      j[at] = json::parse(c.value);
    }
    expectRefused(j, c.place, c.problem);
  }
}

// The device file shown in the README (its first json block) loads and means what it says.
TEST_F(DeviceFileTest, ReadmeDeviceFileLoads) {
  std::ifstream in(std::filesystem::path(ACL_SOURCE_DIR) / "README.md");
  const std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const auto start = s.find("```json\n");
  ASSERT_NE(start, std::string::npos) << "the README has a json block";
  const std::string text = s.substr(start + 8, s.find("```", start + 8) - start - 8);
  std::string error;
  ASSERT_TRUE(vdev::load(write(text), &error)) << error;
  EXPECT_EQ(zorSelfSysIndex(), 1u);
  EXPECT_EQ(zorSelfSlotIndex(), 1u);
  // The file's ports replace the built-in chassis: 201 is its first port, 301 is gone.
  char name[64] = {};
  ASSERT_EQ(zorIfUnit2Name(201, name, sizeof name), 0);
  EXPECT_STREQ(name, "ge-1/2/1");
  uint8_t loc[32];
  EXPECT_NE(zorIndexTrans(301, ZOR_TRANS_LOCATION, loc), 0);
  EXPECT_EQ(zorIndexTrans(1001, ZOR_TRANS_LOCATION, loc), 0);
}

}  // namespace
