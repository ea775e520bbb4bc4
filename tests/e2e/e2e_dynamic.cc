// Dynamic binding on the real daemon: a rule made valid in a bound list reaches two interfaces
// and the global table at once, aclctl rule show names each binding's table and whether it holds
// the rule, and an activation the second interface refuses is answered with the hardware's code,
// logged with the slot's line and undone everywhere.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

#include <gmock/gmock.h>

#include "support/aclctl_script.h"

namespace {

using ::testing::HasSubstr;

using nlohmann::json;

class DynamicE2e : public AclScriptTest {
 protected:
  void SetUp() override {
    AclProcessOptions o;
    o.opts = {{"acl.dynamicbindenable", "true"}};
    acl_ = AclProcess::start(o);
    ASSERT_NE(acl_, nullptr);
  }
  // The tables of ports 201 and 202 and the global table that hold rule `rule` of list 1001.
  std::set<std::string> tablesWith(uint32_t rule) {
    std::set<std::string> out;
    auto look = [&](const std::vector<std::string>& scope, const std::string& name) {
      std::vector<std::string> args = {"dev", "hw"};
      args.insert(args.end(), scope.begin(), scope.end());
      const json t = run(args);
      for (const auto& e : t["table"]["entries"]) {
        if (e["list"] == 1001 && e["rule"] == rule) out.insert(name);
      }
    };
    look({"--scope", "unit", "--unit", "201"}, "unit 201");
    look({"--scope", "unit", "--unit", "202"}, "unit 202");
    look({"--scope", "global"}, "global");
    return out;
  }
};

TEST_F(DynamicE2e, NewRuleReachesEveryBindingAndARefusedOneIsUndone) {
  slotsKnown();
  ASSERT_EQ(run({"call", "aclLstSetApi", "1001", "9", "u32:2"})["ret"], 0);
  script(R"(rule create 1001 1; rule valid 1001 1
            if create 201; if bind 201 in ipv4 1001; if create 202; if bind 202 in ipv4 1001
            global bind in ipv4 1001
            rule create 1001 2; rule valid 1001 2)");
  const std::set<std::string> all = {"unit 201", "unit 202", "global"};
  EXPECT_EQ(tablesWith(2), all);
  expectAuditClean();
  std::string out;
  ASSERT_EQ(acl_->aclctl({"rule", "show", "1001", "2"}, &out), 0);
  EXPECT_THAT(out, HasSubstr("binding    interface 202 inIpv4Acl -> unit 202: installed"));
  EXPECT_THAT(out, HasSubstr("binding    global inIpv4Acl -> global table: installed"));

  script(
      "dev fault add --call zorHwilCmdSetApi --scope unit --unit 202 --cmd 65536398 --list 1001"
      " --rule 3 --result 0x3E80099; rule create 1001 3");
  EXPECT_EQ(run({"call", "aclRuleSetApi", ruleKey(1001, 3), "57", "u32:1"})["ret"], 0x3E80099);
  EXPECT_THAT(acl_->logText(),
              HasSubstr("Filter 1001/3 add to interface ge-1/2/2 IPV4 IN direction "
                        "ERROR. Need to delete related filter manual."));
  EXPECT_EQ(run({"call", "aclRuleGetApi", ruleKey(1001, 3), "57", "u32:0"})["buf"]["u32"], 3);
  EXPECT_TRUE(tablesWith(3).empty());
  ASSERT_EQ(acl_->aclctl({"rule", "show", "1001", "3"}, &out), 0);
  EXPECT_THAT(out, HasSubstr("interface 201 inIpv4Acl -> unit 201: not installed (not valid)"));
  EXPECT_EQ(tablesWith(2), all);
  expectAuditClean();
}

}  // namespace
