// Filter lists on the real daemon through the friendly "aclctl list" commands (the list table
// itself is tested against its functions).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class ListE2e : public AclScriptTest {};

TEST_F(ListE2e, FriendlyListCommands) {
  script("list create 1001 --name web; list create 7; list rename 7 l2-edge");
  json all = run({"--json", "list", "show"})["lists"];
  ASSERT_TRUE(all.is_array());
  ASSERT_EQ(all.size(), 2u);
  expectFields(all[0], {{"list", 7}, {"name", "l2-edge"}, {"type", "l2"}});
  expectFields(all[1],
               {{"name", "web"}, {"type", "ipv4"}, {"rules", 0}, {"refcnt", 0}, {"status", 1}});
  // A taken name and a missing list fail with status 1.
  script("list rename 7 web; list show 8; list delete 8", 1);
  run({"list", "delete", "1001"});
  json one = run({"--json", "list", "show", "7"})["lists"];
  ASSERT_EQ(one.size(), 1u);
  EXPECT_EQ(one[0]["name"], "l2-edge");
  EXPECT_EQ(run({"--json", "list", "show"})["lists"].size(), 1u);
}

}  // namespace
