// The device file shown in the README is one the daemon accepts, and means what the README says.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "main/acl_group.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "platform/vdev/vdev.h"
#include "support/run_dir.h"

namespace {

std::filesystem::path repoRoot() {
  return std::filesystem::path(ACL_SOURCE_DIR);
}

// The text of the first ```json block of the README.
std::string readmeDeviceFile() {
  std::ifstream in(repoRoot() / "README.md");
  std::stringstream text;
  text << in.rdbuf();
  const std::string s = text.str();
  const auto start = s.find("```json\n");
  if (start == std::string::npos) return {};
  const auto body = start + 8;
  return s.substr(body, s.find("```", body) - body);
}

TEST(ReadmeExampleTest, DeviceFileInTheReadmeLoads) {
  aclResetForTest();
  test::TempRunDir dir;
  const std::string json = readmeDeviceFile();
  ASSERT_FALSE(json.empty()) << "the README has a json block";
  const std::string path = dir.path() + "/device.json";
  std::ofstream(path) << json;
  std::string error;
  ASSERT_TRUE(vdev::load(path, &error)) << error;
  EXPECT_EQ(zorSelfSysIndex(), 1u);
  EXPECT_EQ(zorSelfSlotIndex(), 1u);
  // The file's ports replace the built-in chassis: 201 is its first port, 301 is gone.
  char name[64] = {};
  ASSERT_EQ(zorIfUnit2Name(201, name, sizeof name), 0);
  EXPECT_STREQ(name, "ge-1/2/1");
  uint8_t location[32];
  EXPECT_NE(zorIndexTrans(301, 5, location), 0);
  EXPECT_EQ(zorIndexTrans(1001, 5, location), 0);
  aclResetForTest();
}

}  // namespace
