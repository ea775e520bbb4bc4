// The software match and CPU-defend services on the real daemon: list get 10 and 16 through
// "aclctl call" against rules built with "aclctl rule", and the friendly "aclctl match" commands.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class MatchE2e : public AclE2eTest {
 protected:
  // An IPv4 list 1001 with one valid rule of these fields and action.
  void oneRule(const std::vector<std::string>& fields, const std::string& action) {
    run({"list", "create", "1001"});
    run({"rule", "create", "1001", "1"});
    std::vector<std::string> set = {"rule", "set", "1001", "1"};
    set.insert(set.end(), fields.begin(), fields.end());
    run(set);
    run({"rule", "action", "1001", "1", action});
    run({"rule", "valid", "1001", "1"});
  }
};

// family 1, address, prefix length: the query of list get 10.
std::string addrQuery(const std::string& addrHex, uint32_t len) {
  char text[64];
  std::snprintf(text, sizeof text, "d:00000001%s%08x", addrHex.c_str(), len);
  return text;
}

// Ethernet, IPv4 192.0.2.1 -> 198.51.100.7, TCP 40000 -> 80 with SYN.
const std::string kSynFrame =
    "001b21000001001b213c4d5e0800"
    "45b80028000000004006"
    "0000"
    "c0000201c6336407"
    "9c400050000000000000000050020000"
    "00000000";

// The 148-byte request of a frame: the frame padded to 128 bytes, l2len 14, ifUnit 7, EtherType
// 0x0800, no VLANs or priorities, the verdict byte and the reserved one.
std::string packetRequest(const std::string& frameHex) {
  std::string hex = frameHex;
  hex.resize(256, '0');
  hex +=
      "0000000e"
      "00000007"
      "0800"
      "0000"
      "0000"
      "0000"
      "00"
      "00"
      "ee"
      "00";
  return "d:" + hex;
}

TEST_F(MatchE2e, AddressMatchThroughTheListTable) {
  oneRule({"ip-version=4", "src=10.0.0.0/8"}, "permit");
  json j = run({"call", "aclLstGetApi", "1001", "10", addrQuery("0a010203", 32)});
  EXPECT_EQ(j["ret"], 0);
  j = run({"call", "aclLstGetApi", "1001", "10", addrQuery("0b000001", 32)});
  EXPECT_EQ(j["ret"], -1);
  // 13 bytes for family 1.
  j = run({"call", "aclLstGetApi", "1001", "10", addrQuery("0a010203", 32) + "00"});
  EXPECT_EQ(j["ret"], -1);
  // Command 11 writes the verdict into the byte after the prefix length.
  j = run({"call", "aclLstGetApi", "1001", "11", addrQuery("0a010203", 32) + "00"});
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["buf"]["hex"], "000000010a0102030000002002");
  EXPECT_TRUE(acl_->alive());
}

TEST_F(MatchE2e, CpuDefendVerdictOfATcpSyn) {
  oneRule({"dport=80"}, "deny");
  json j = run({"call", "aclLstGetApi", "1001", "16", packetRequest(kSynFrame)});
  EXPECT_EQ(j["ret"], 0);
  const std::string back = j["buf"]["hex"];
  ASSERT_EQ(back.size(), 296u);
  EXPECT_EQ(back.substr(292, 2), "03") << "deny";
  // A request one byte short is refused.
  std::string shortReq = packetRequest(kSynFrame);
  shortReq.resize(shortReq.size() - 2);
  j = run({"call", "aclLstGetApi", "1001", "16", shortReq});
  EXPECT_EQ(j["ret_hex"], "0x03E8000D");
  EXPECT_TRUE(acl_->alive());
}

// Needs "aclctl match" registered in aclctl_main.cc.
TEST_F(MatchE2e, FriendlyMatchCommands) {
  oneRule({"ip-version=4", "src=192.0.2.0/24", "dport=80"}, "deny");
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
