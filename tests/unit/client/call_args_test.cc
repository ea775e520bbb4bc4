// aclctl's raw-call arguments: each KEY and BUF form, the shape rules and the JSON answer.
#include <gtest/gtest.h>

#include "client/call_args.h"
#include "client/cmd_client.h"

namespace {

using aclclient::buildRequest;
using aclclient::CallArgs;
using aclclient::parseFunc;

// The request aclctl builds, as one line: "key:SHAPE/VALUE/HEX cmd:N buf:SHAPE/VALUE/CAP/HEX",
// or "refused".
std::string build(const std::string& func, CallArgs args) {
  const auto f = parseFunc(func);
  EXPECT_TRUE(f.has_value()) << func;
  wire::Request r;
  std::string err;
  if (!f || !buildRequest(*f, args, &r, &err)) return "refused";
  return "key:" + std::to_string(int(r.keyShape)) + "/" + std::to_string(r.keyValue) + "/" +
         aclclient::toHex(r.key) + " cmd:" + std::to_string(r.cmd) +
         " buf:" + std::to_string(int(r.bufShape)) + "/" + std::to_string(r.bufValue) + "/" +
         std::to_string(r.descCapacity) + "/" + aclclient::toHex(r.data);
}

TEST(AclctlCall, FunctionsByNameOrId) {
  EXPECT_EQ(parseFunc("0x2D")->id, 45u);
  EXPECT_FALSE(parseFunc("-1"));
  EXPECT_FALSE(parseFunc("0x100000000"));
}

// Key shapes: 0 none, 1 value, 2 bytes; buffer shapes: 0 none, 1 value, 2 desc, 3 ptr, 4 raw.
TEST(AclctlCall, EachFormBuildsItsRequest) {
  const std::string z28(56, '0');
  const struct {
    const char* func;
    CallArgs args;
    std::string want;
  } cases[] = {
      {"aclLstSetApi", {"2001", "1", "d:61636c"}, "key:1/2001/ cmd:1 buf:2/0/3/61636c"},
      {"aclRuleGetApi",
       {"x:000007D10000000100000000", "0x10", "dlen:128"},
       "key:2/0/000007d10000000100000000 cmd:16 buf:2/0/128/"},
      {"aclScalarSetApi", {"-", "5", "u32:0xFFFFFFFF"}, "key:0/0/ cmd:5 buf:1/4294967295/0/"},
      {"aclIfSetApi", {"5", "34", "p:0102"}, "key:1/5/ cmd:34 buf:3/0/0/0102"},
      {"aclIfSetApi", {"5", "34", "p:"}, "key:1/5/ cmd:34 buf:3/0/0/"},  // a null record address
      {"aclIfSetApi", {"5", "34", "x:0102"}, "key:1/5/ cmd:34 buf:4/0/0/0102"},
      {"aclIfSetApi", {"5", "34", "-"}, "key:1/5/ cmd:34 buf:0/0/0/"},
      // GetFirst: the key area, zeroed at the family's width unless given.
      {"aclStatsGetFirst", {"-", "", "-"}, "key:2/0/" + z28 + " cmd:0 buf:0/0/0/"},
      {"aclLstGetFirst", {"1000", "", "-"}, "key:2/0/000003e8 cmd:0 buf:0/0/0/"},
      // GetNext: the current key as the family passes it.
      {"aclLstGetNext", {"1000", "", "-"}, "key:1/1000/ cmd:0 buf:0/0/0/"},
      // Index conversion: the index, and a value word for the answer.
      {"aclFreeIdxToIndex", {"7", "", "-"}, "key:1/7/ cmd:0 buf:1/0/0/"},
      // Walks and conversions take no CMD or BUF.
      {"aclLstGetFirst", {"-", "1", "-"}, "refused"},
      {"aclIndexToFreeIdx", {"7", "", "u32:1"}, "refused"},
      // Malformed arguments.
      {"aclLstSetApi", {"abc", "1", "-"}, "refused"},
      {"aclLstSetApi", {"1", "-3", "-"}, "refused"},
      {"aclLstSetApi", {"x:123", "1", "-"}, "refused"},  // odd number of digits
      {"aclLstSetApi", {"1", "1", "u32:"}, "refused"},
      {"aclLstSetApi", {"1", "1", "d:zz"}, "refused"},
      {"aclLstSetApi", {"1", "1", "q:00"}, "refused"},
      {"aclLstSetApi", {"1", "1", "u32:4294967296"}, "refused"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(build(c.func, c.args), c.want) << c.func << " " << c.args.key << " " << c.args.buf;
  }
}

TEST(AclctlCall, SocketPathFollowsTheRunDirectory) {
  EXPECT_EQ(aclclient::cmdSocketPath("", ""), "/tmp/aclcmd.socket");
  EXPECT_EQ(aclclient::cmdSocketPath("/run/x", ""), "/run/x/aclcmd.socket");
  EXPECT_EQ(aclclient::cmdSocketPath("/run/x", "/s"), "/s");
}

}  // namespace
