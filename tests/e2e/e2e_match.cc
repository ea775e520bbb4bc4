// The software match and CPU-defend services on the real daemon through the friendly "aclctl
// match" commands, against rules built with "aclctl rule".
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class MatchE2e : public AclScriptTest {
 protected:
  // An IPv4 list 1001 with one valid rule of these fields and action.
  void oneRule(const std::string& fields, const std::string& action) {
    script("list create 1001; rule create 1001 1; rule set 1001 1 " + fields +
           "; rule action 1001 1 " + action + "; rule valid 1001 1");
  }
};

// Ethernet, IPv4 192.0.2.1 -> 198.51.100.7, TCP 40000 -> 80 with SYN.
const std::string kSynFrame =
    "001b21000001001b213c4d5e0800"
    "45b80028000000004006"
    "0000"
    "c0000201c6336407"
    "9c400050000000000000000050020000"
    "00000000";

// Needs "aclctl match" registered in aclctl_main.cc.
TEST_F(MatchE2e, FriendlyMatchCommands) {
  oneRule("ip-version=4 src=192.0.2.0/24 dport=80", "deny");
  json j = run({"--json", "match", "addr", "1001", "192.0.2.9/32", "--verdict"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["verdict"], "deny");
  j = run({"--json", "match", "addr", "1001", "11.0.0.1"});
  EXPECT_EQ(j["matched"], false);
  j = run({"--json", "match", "packet", "1001", kSynFrame, "--in-port", "3"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["verdict"], "deny");
  std::string out;
  EXPECT_EQ(acl_->aclctl({"match", "addr", "1001", "192.0.2.9/8"}, &out), 0);
  EXPECT_NE(out.find("not permitted"), std::string::npos) << out;
  // A missing list is a failure, a bad address a usage error.
  EXPECT_EQ(acl_->aclctl({"match", "nat", "1500", "10.0.0.1"}, &out), 1);
  EXPECT_EQ(acl_->aclctl({"match", "addr", "1001", "10.0.0.300"}, &out), 2);
}

}  // namespace
