// aclctl's raw-call arguments: each KEY and BUF form, the shape rules and the JSON answer.
#include <gtest/gtest.h>

#include "client/call_args.h"
#include "client/cmd_client.h"

namespace {

using aclclient::buildRequest;
using aclclient::CallArgs;
using aclclient::parseFunc;
using wire::BufShape;
using wire::KeyShape;

wire::Request build(const std::string& func, CallArgs args, bool expectOk = true) {
  wire::Request req;
  std::string err;
  const auto f = parseFunc(func);
  EXPECT_TRUE(f.has_value()) << func;
  if (!f) return req;
  EXPECT_EQ(buildRequest(*f, args, &req, &err), expectOk) << func << ": " << err;
  return req;
}

TEST(AclctlCall, FunctionsByNameOrId) {
  EXPECT_EQ(parseFunc("0x2D")->id, 45u);
  EXPECT_FALSE(parseFunc("-1"));
  EXPECT_FALSE(parseFunc("0x100000000"));
}

TEST(AclctlCall, KeyAndBufferForms) {
  auto r = build("aclLstSetApi", {"2001", "1", "d:61636c"});
  EXPECT_EQ(r.keyShape, KeyShape::Value);
  EXPECT_EQ(r.keyValue, 2001u);
  EXPECT_EQ(r.cmd, 1u);
  EXPECT_EQ(r.bufShape, BufShape::Desc);
  EXPECT_EQ(r.descCapacity, 3u);
  EXPECT_EQ(r.data, (std::vector<uint8_t>{'a', 'c', 'l'}));

  r = build("aclRuleGetApi", {"x:000007D10000000100000000", "0x10", "dlen:128"});
  EXPECT_EQ(r.keyShape, KeyShape::Bytes);
  EXPECT_EQ(r.key.size(), 12u);
  EXPECT_EQ(r.cmd, 16u);
  EXPECT_EQ(r.descCapacity, 128u);
  EXPECT_TRUE(r.data.empty());

  r = build("aclScalarSetApi", {"-", "5", "u32:0xFFFFFFFF"});
  EXPECT_EQ(r.keyShape, KeyShape::None);
  EXPECT_EQ(r.bufShape, BufShape::Value);
  EXPECT_EQ(r.bufValue, 0xFFFFFFFFu);

  EXPECT_EQ(build("aclIfSetApi", {"5", "34", "p:0102"}).bufShape, BufShape::Ptr);
  EXPECT_TRUE(build("aclIfSetApi", {"5", "34", "p:"}).data.empty());  // a null record address
  EXPECT_EQ(build("aclIfSetApi", {"5", "34", "x:0102"}).bufShape, BufShape::Raw);
  EXPECT_EQ(build("aclIfSetApi", {"5", "34", "-"}).bufShape, BufShape::None);
}

TEST(AclctlCall, ShapesDecideWhatIsTaken) {
  // GetFirst: the key area, zeroed at the family's width unless given.
  auto r = build("aclStatsGetFirst", {"-", "", "-"});
  EXPECT_EQ(r.keyShape, KeyShape::Bytes);
  EXPECT_EQ(r.key, std::vector<uint8_t>(28, 0));
  r = build("aclLstGetFirst", {"1000", "", "-"});
  EXPECT_EQ(r.key, (std::vector<uint8_t>{0, 0, 0x03, 0xE8}));
  // GetNext: the current key as the family passes it.
  r = build("aclLstGetNext", {"1000", "", "-"});
  EXPECT_EQ(r.keyShape, KeyShape::Value);
  EXPECT_EQ(r.keyValue, 1000u);
  // Index conversion: the index, and a value word for the answer.
  r = build("aclFreeIdxToIndex", {"7", "", "-"});
  EXPECT_EQ(r.keyValue, 7u);
  EXPECT_EQ(r.bufShape, BufShape::Value);
  // Walks and conversions take no CMD or BUF.
  build("aclLstGetFirst", {"-", "1", "-"}, false);
  build("aclIndexToFreeIdx", {"7", "", "u32:1"}, false);
}

TEST(AclctlCall, MalformedArgumentsAreUsageErrors) {
  build("aclLstSetApi", {"abc", "1", "-"}, false);
  build("aclLstSetApi", {"1", "-3", "-"}, false);
  build("aclLstSetApi", {"x:123", "1", "-"}, false);  // odd number of digits
  build("aclLstSetApi", {"1", "1", "u32:"}, false);
  build("aclLstSetApi", {"1", "1", "d:zz"}, false);
  build("aclLstSetApi", {"1", "1", "q:00"}, false);
  build("aclLstSetApi", {"1", "1", "u32:4294967296"}, false);
}

TEST(AclctlCall, SocketPathFollowsTheRunDirectory) {
  EXPECT_EQ(aclclient::cmdSocketPath("", ""), "/tmp/aclcmd.socket");
  EXPECT_EQ(aclclient::cmdSocketPath("/run/x", ""), "/run/x/aclcmd.socket");
  EXPECT_EQ(aclclient::cmdSocketPath("/run/x", "/s"), "/s");
}

}  // namespace
