// The options record of rule commands for the three scopes, with and without a caller's record.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "hw/acl_hw_options.h"
#include "trans_fixture.h"

namespace transtest {
namespace {

using Opts = std::array<uint8_t, ACL_HW_OPTIONS_LEN>;

Opts fill(AclHwScope scope, bool tlv, uint32_t unit, uint32_t len,
          std::span<const uint8_t> caller) {
  Opts out;
  out.fill(0xEE);
  aclHwOptionsFill(scope, tlv, unit, len, caller, out);
  return out;
}

Bytes words(std::initializer_list<uint32_t> ws) {
  Bytes b;
  for (uint32_t w : ws) {
    const Bytes n = num(w, 4);
    b.insert(b.end(), n.begin(), n.end());
  }
  b.resize(ACL_HW_OPTIONS_LEN, 0);
  return b;
}

Bytes bytes(const Opts& o) {
  return Bytes(o.begin(), o.end());
}

TEST(HwOptionsTest, ScopesWithoutACallersRecord) {
  const struct {
    AclHwScope scope;
    bool tlv;
    uint32_t index, len;
    Bytes want;
  } cases[] = {
      {AclHwScope::Global, false, 9, 508, words({0, 0, 0, 0, 508})},
      {AclHwScope::Global, true, 9, 40, words({0x80000000, 0, 0, 0, 40})},
      {AclHwScope::Unit, false, 0x1234, 508, words({0x10000000, 4, 2, 0x1234, 508})},
      {AclHwScope::Unit, true, 7, 96, words({0x90000000, 4, 2, 7, 96})},
      {AclHwScope::GemPort, false, 5, 508, words({0, 16, 5, 5, 508})},
      {AclHwScope::GemPort, true, 5, 60, words({0x80000000, 16, 5, 5, 60})},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(diff(bytes(fill(c.scope, c.tlv, c.index, c.len, {})), c.want), "")
        << int(c.scope) << " tlv " << c.tlv;
  }
}

TEST(HwOptionsTest, CallersWordZeroAndTargetBytesByScope) {
  Bytes caller(64);
  for (size_t i = 0; i < caller.size(); ++i) caller[i] = static_cast<uint8_t>(0x40 + i);
  caller[0] = 0x01, caller[1] = 0x02, caller[2] = 0x03, caller[3] = 0x04;

  // Global and unit: word 0 merged, bytes 24, 26, 27 and 28..63 copied, 25 and 20..23 not.
  for (const auto scope : {AclHwScope::Global, AclHwScope::Unit}) {
    const Opts o = fill(scope, true, 3, 100, caller);
    Bytes want = scope == AclHwScope::Global ? words({0x81020304, 0, 0, 0, 100})
                                             : words({0x91020304, 4, 2, 3, 100});
    want[24] = caller[24];
    want[26] = caller[26];
    want[27] = caller[27];
    std::copy(caller.begin() + 28, caller.end(), want.begin() + 28);
    EXPECT_EQ(diff(bytes(o), want), "") << int(scope);
  }
  // GEM port: only word 0 is taken.
  EXPECT_EQ(diff(bytes(fill(AclHwScope::GemPort, false, 5, 508, caller)),
                 words({0x01020304, 16, 5, 5, 508})),
            "");
  // A record shorter than 64 bytes is no record.
  EXPECT_EQ(diff(bytes(fill(AclHwScope::Unit, false, 5, 508, std::span(caller).first(20))),
                 words({0x10000000, 4, 2, 5, 508})),
            "");
}

}  // namespace
}  // namespace transtest
