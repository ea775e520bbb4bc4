// Filter lists on the real daemon: the list table through "aclctl call", the announcements the
// device kept, and the friendly "aclctl list" commands.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class ListE2e : public AclE2eTest {};

std::string hexOf(const std::string& text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  for (unsigned char c : text) {
    s.push_back(kDigits[c >> 4]);
    s.push_back(kDigits[c & 0xF]);
  }
  return s;
}

TEST_F(ListE2e, CreateReadAndDeleteThroughTheTable) {
  EXPECT_EQ(run({"call", "aclLstSetApi", "2001", "9", "u32:2"})["ret"], 0);
  json j = run({"call", "aclLstGetApi", "2001", "1", "dlen:64"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["buf"]["len"], 7);
  EXPECT_EQ(j["buf"]["hex"], hexOf("acl2001"));
  j = run({"call", "aclLstGetApi", "2001", "4", "u32:0"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["buf"]["u32"], 0);
  j = run({"call", "aclLstGetFirst"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["key"], "000007d1");
  EXPECT_EQ(run({"call", "aclLstSetApi", "2001", "9", "u32:4"})["ret"], 0);

  j = run({"dev", "announcements"});
  std::vector<int> events;
  for (const auto& a : j["announcements"]) {
    if (a["group"] == 56 && a["list"] == 2001) events.push_back(a["event"].get<int>());
  }
  EXPECT_EQ(events, (std::vector<int>{247, 248}));
}

TEST_F(ListE2e, MissingListsAndTakenNames) {
  EXPECT_EQ(run({"call", "aclLstGetApi", "1500", "2", "u32:0"})["ret_hex"], "0x03EA0041");
  EXPECT_EQ(run({"call", "aclLstSetApi", "1500", "3", "u32:1"})["ret_hex"], "0x03EA0041");
  ASSERT_EQ(run({"call", "aclLstSetApi", "1", "9", "u32:2"})["ret"], 0);
  ASSERT_EQ(run({"call", "aclLstSetApi", "2", "9", "u32:2"})["ret"], 0);
  EXPECT_EQ(run({"call", "aclLstSetApi", "2", "1", "d:" + hexOf("acl1")})["ret_hex"], "0x03E80003");
  EXPECT_EQ(run({"call", "aclLstSetApi", "2", "1", "d:" + hexOf("edge")})["ret"], 0);
  // A request without a buffer is answered, and the daemon carries on.
  EXPECT_EQ(run({"call", "aclLstGetApi", "2", "2", "-"})["ret_hex"], "0x03E8001A");
  EXPECT_EQ(run({"call", "aclLstGetNext", "1"})["key"], "00000002");
  EXPECT_TRUE(acl_->alive());
}

TEST_F(ListE2e, FriendlyListCommands) {
  run({"list", "create", "1001", "--name", "web"});
  run({"list", "create", "7"});
  run({"list", "rename", "7", "l2-edge"});
  json all = run({"--json", "list", "show"})["lists"];
  ASSERT_TRUE(all.is_array());
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0]["list"], 7);
  EXPECT_EQ(all[0]["name"], "l2-edge");
  EXPECT_EQ(all[0]["type"], "l2");
  EXPECT_EQ(all[1]["name"], "web");
  EXPECT_EQ(all[1]["type"], "ipv4");
  EXPECT_EQ(all[1]["rules"], 0);
  EXPECT_EQ(all[1]["refcnt"], 0);
  EXPECT_EQ(all[1]["status"], 1);
  // A taken name and a missing list fail with status 1.
  run({"list", "rename", "7", "web"}, 1);
  run({"list", "show", "8"}, 1);
  run({"list", "delete", "8"}, 1);
  run({"list", "delete", "1001"});
  json one = run({"--json", "list", "show", "7"})["lists"];
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0]["name"], "l2-edge");
  EXPECT_EQ(run({"--json", "list", "show"})["lists"].size(), 1u);
}

}  // namespace
