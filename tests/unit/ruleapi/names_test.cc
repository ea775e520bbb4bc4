// aclctl's names for rule fields and actions: the set calls and parameter items each notation
// becomes, and the notations refused.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/rule_actions.h"
#include "client/rule_fields.h"
#include "wire/acl_bits.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"

namespace {

using aclclient::RuleSetCall;
using Bytes = std::vector<uint8_t>;

std::vector<RuleSetCall> calls(const std::string& word) {
  std::string err;
  auto c = aclclient::parseFieldAssignment(word, &err);
  EXPECT_TRUE(c.has_value()) << word << ": " << err;
  return c.value_or(std::vector<RuleSetCall>{});
}

bool refused(const std::string& word) {
  std::string err;
  const bool bad = !aclclient::parseFieldAssignment(word, &err).has_value();
  EXPECT_TRUE(!bad || !err.empty()) << word;
  return bad;
}

TEST(RuleNames, AddressesWithPrefixOrMask) {
  auto c = calls("dst=192.168.0.0/255.255.0.0");
  ASSERT_EQ(c.size(), 2u);
  EXPECT_EQ(std::make_pair(c[1].cmd, c[1].bytes), std::make_pair(13u, Bytes{255, 255, 0, 0}));
  c = calls("src=2001:db8::1");
  ASSERT_EQ(c.size(), 1u);
  EXPECT_EQ(c[0].bytes.size(), 16u);
  for (const char* w : {"src=10.1.0.0/33", "src=10.1.0/8", "src=10.1.0.0/ffff::", "src="})
    EXPECT_TRUE(refused(w)) << w;
}

TEST(RuleNames, MacsRangesAndNumbers) {
  EXPECT_EQ(calls("dmac=00-1b-21-3c-4d-5e/24")[1].cmd, 38u);
  EXPECT_TRUE(refused("smac=00:1b:21:3c:4d"));
  EXPECT_EQ(calls("sport=53").size(), 1u);
  EXPECT_TRUE(refused("sport=90-80"));
  EXPECT_EQ(calls("vlan=100-200")[1].cmd, 51u);
  EXPECT_EQ(calls("protocol=udp")[0].cmd, 6u) << "the IP protocol is the protocol subtype";
  EXPECT_EQ(calls("protocol=udp")[0].value, 17u);
  EXPECT_EQ(calls("proto-type=0x0800")[0].cmd, 5u);
  EXPECT_EQ(calls("protocol=47")[0].value, 47u);
  EXPECT_TRUE(refused("protocol=tcpx"));
  EXPECT_EQ(calls("ip-version=6")[0].value, 2u);
  EXPECT_EQ(calls("ethertype=0x86dd")[0].value, 0x86DDu);
  EXPECT_EQ(calls("dscp=46")[0].cmd, 20u);
  EXPECT_TRUE(refused("dscp=4x6"));
  auto c = calls("udf=0x45/0xff@4,7");
  ASSERT_EQ(c.size(), 1u);
  ASSERT_EQ(c[0].bytes.size(), 48u);
  // Data, mask, offset, length, then the next record with no mask: every bit.
  EXPECT_EQ(Bytes(c[0].bytes.begin(), c[0].bytes.begin() + 20),
            (Bytes{0, 0, 0, 0x45, 0, 0, 0, 0xFF, 0, 0, 0, 4, 0, 0, 0, 7, 0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_TRUE(refused("udf=1,2,3,4,5"));
}

TEST(RuleNames, ActionsBecomeBitsAndItems) {
  std::string err;
  const std::vector<std::string> words{"deny", "dscp=46", "redirect-port=1,40",
                                       "sa-rewrite=00:11:22:33:44:55"};
  const auto req = aclclient::parseActions(words, false, &err);
  ASSERT_TRUE(req) << err;
  ASSERT_EQ(req->bits.size(), 8u);
  for (uint32_t code : {3u, 38u, 4u, 23u}) EXPECT_TRUE(aclBitTest(req->bits, code)) << code;
  // dscp: word 9; ports: words 11 and 12 (port 40 lies in the second word); MAC: words 7 and 8.
  const Bytes want{9, 0, 0, 0, 46,   11,   0x40, 0, 0,    0,    12, 0, 0x80,
                   0, 0, 7, 0, 0x11, 0x22, 0x33, 8, 0x44, 0x55, 0,  0};
  EXPECT_EQ(req->params, want);

  EXPECT_FALSE(aclclient::parseActions(std::vector<std::string>{"deny=1"}, false, &err));
  EXPECT_FALSE(aclclient::parseActions(std::vector<std::string>{"dscp"}, false, &err));
  EXPECT_FALSE(aclclient::parseActions(std::vector<std::string>{"fly"}, false, &err));
  EXPECT_FALSE(aclclient::parseActions(std::vector<std::string>{"redirect-port=256"}, false, &err));

  const auto out =
      aclclient::parseActions(std::vector<std::string>{"drop", "red-dscp=10"}, true, &err);
  ASSERT_TRUE(out) << err;
  EXPECT_EQ(out->bits, (Bytes{0x48, 0}));
  EXPECT_EQ(out->params, (Bytes{0, 0, 0, 0, 10}));
  EXPECT_EQ(aclclient::clearActions(true).bits, (Bytes{0x80, 0}));
  EXPECT_EQ(aclclient::clearActions(false).bits, (Bytes{0x80, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(RuleNames, EveryNameSetsACommandOfTheSetTable) {
  for (const auto& f : aclclient::ruleFieldNames()) {
    for (uint32_t cmd : {f.cmd, f.lenCmd, f.maskCmd, f.endCmd}) {
      if (cmd == 0) continue;
      EXPECT_NE(aclRuleSetCmd(cmd).kind, AclRuleCmdKind::Unknown) << f.name << " " << cmd;
    }
  }
}

}  // namespace
