// Every built table function through the server's own path (schema check, then invoke with the
// areas it allocates): a missing, short or long payload that a function has an answer for reaches
// it and gets that answer; a shape that would make it read a data address out of the client's
// bytes is refused by the schema.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "api/acl_func_map.h"
#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "stats/acl_stats.h"
#include "unit/store/store_fixture.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/invoke.h"
#include "wire/schema.h"

namespace {

using wire::BufShape;

// The buffer of a request: its shape, the descriptor's capacity or the record's length, and the
// first bytes of the area.
struct Buf {
  BufShape shape;
  uint32_t size;
  std::string bytes;
};
Buf none() {
  return {BufShape::None, 0, {}};
}
Buf val() {
  return {BufShape::Value, 0, {}};
}
Buf desc(uint32_t cap, std::string bytes = {}) {
  return {BufShape::Desc, cap, std::move(bytes)};
}
Buf ptr(uint32_t len) {
  return {BufShape::Ptr, len, {}};
}
Buf raw(uint32_t len) {
  return {BufShape::Raw, len, {}};
}

constexpr int64_t kRefused = INT64_MIN;  // the schema answers; the function is never called
constexpr int64_t kAnyLen = -1;

struct Case {
  uint32_t func, cmd;
  Buf buf;
  int64_t ret;
  int64_t len = kAnyLen;  // the descriptor's length word after the call
};

constexpr int32_t BAD = CMN_ERR_BAD_PARAM;
constexpr int32_t SHORT = CMN_ERR_BUFFER_SHORT;

// Keys: list 7, rule 7/1, the rule statistics of 7/1 inwards, slot 1/1, meter, profile and
// counter 1 (all made by the fixture); the scalars take none.
// clang-format off
const std::vector<Case> kCases = {
    // Scalar get: NAMETOID, version and capability answer a missing descriptor or data address.
    {1, 20, none(), ACL_RET_INVALID}, {1, 20, desc(0), ACL_RET_INVALID}, {1, 20, desc(3), SHORT},
    {1, 20, desc(8, std::string("\0\0\0\0acl7", 8)), 0, 8}, {1, 20, val(), kRefused},
    {1, 20, raw(16), kRefused}, {1, 20, ptr(16), kRefused}, {1, 21, none(), ACL_RET_INVALID},
    {1, 21, desc(0), ACL_RET_INVALID}, {1, 21, desc(4), 0, 4}, {1, 21, desc(64), 0, 15},
    {1, 66, none(), BAD}, {1, 66, desc(0), BAD, 0}, {1, 66, desc(8), BAD, 8},
    {1, 66, desc(16), 0, 12}, {1, 66, val(), kRefused}, {1, 0, none(), BAD},
    // Scalar set: a missing buffer first, then each payload's own check.
    {2, 5, none(), BAD}, {2, 22, none(), BAD}, {2, 22, desc(8), ACL_RET_INVALID},
    {2, 24, desc(0), ACL_RET_INVALID}, {2, 53, ptr(0), BAD}, {2, 67, ptr(0), BAD},
    {2, 67, ptr(4), kRefused}, {2, 67, val(), kRefused}, {2, 53, desc(8), kRefused},
    {3, 26, none(), BAD},
    // Lists.
    {6, 1, none(), BAD}, {6, 1, desc(0), 0, 0}, {6, 1, desc(3), 0, 3}, {6, 1, desc(64), 0, 4},
    {6, 1, val(), kRefused}, {6, 2, none(), BAD}, {6, 2, desc(4), kRefused}, {6, 16, desc(0), BAD},
    {6, 16, desc(8), SHORT}, {6, 18, raw(4), -1},
    {7, 3, none(), BAD}, {7, 4, none(), ACL_ERR_READ_ONLY}, {7, 1, raw(8), kRefused},
    // Rules.
    {11, 0, none(), BAD}, {11, 0, desc(64), 0, 12}, {11, 75, desc(100), 0, 100},
    {11, 87, desc(0), BAD}, {11, 87, desc(100), SHORT}, {11, 34, val(), kRefused},
    {12, 14, none(), ACL_RET_INVALID}, {12, 8, desc(6), ACL_RET_INVALID},
    {12, 34, desc(0), ACL_RET_INVALID}, {12, 48, desc(12), ACL_RET_INVALID}, {12, 54, desc(0), 0},
    {12, 56, desc(7), ACL_RET_INVALID}, {12, 8, val(), kRefused},
    // Rule statistics and slots.
    {23, 1, desc(32), ACL_RET_INVALID, 32}, {23, 1, desc(0), ACL_RET_INVALID},
    {23, 1, none(), kRefused},
    {24, 2, desc(4), kRefused},
    {48, 0, none(), ACL_RET_INVALID}, {48, 2, desc(8), ACL_RET_INVALID}, {48, 9, raw(4), 0},
    // Meters and profiles.
    {50, 17, none(), BAD}, {50, 17, desc(0), ACL_RET_INVALID}, {50, 17, desc(32), 0, 17},
    {50, 25, desc(8), BAD, 8}, {50, 17, val(), kRefused},
    {51, 15, none(), BAD},
    {55, 1, none(), BAD},
    {60, 0, none(), -1}, {60, 1, desc(4), 0, 4}, {60, 10, desc(20), SHORT},
    {60, 10, desc(64), 0, 48},
    {61, 1, none(), -1},
    // Counters.
    {63, 2, none(), ACL_RET_INVALID}, {63, 2, desc(8), 0, 8}, {63, 2, desc(64), 0, 19},
    {63, 4, none(), BAD}, {63, 4, desc(8), BAD, 8}, {63, 4, desc(12), 0, 12},
    {68, 1, none(), BAD}, {68, 1, desc(0), ACL_RET_INVALID}, {68, 1, desc(64), 0, 8},
    {68, 1, val(), kRefused},
    {69, 1, desc(100), 0, 63},
    // GEM port traffic policies: a word holding a record's address, or nothing.
    {80, 16, none(), BAD}, {80, 16, val(), kRefused}, {80, 16, desc(8), kRefused},
    {81, 20, none(), BAD},
};
// clang-format on

class Payload : public storetest::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_EQ(test::callValue(aclLstSetApi, 7, 9, 2), 0);
    ASSERT_EQ(test::callValue(aclRuleSetApi, reinterpret_cast<uintptr_t>(ruleKey_.data()), 57, 2),
              0);
    AclStatsEntry* e = aclStatsMalloc();
    ASSERT_NE(e, nullptr);
    e->lstIdx = 7;
    e->ruleIdx = 1;
    ASSERT_EQ(aclStatsAdd(e), 0);
    ASSERT_EQ(test::callValue(meterSetApi, 1, 13, 2), 0);
    ASSERT_EQ(test::callValue(meterProfileSetApi, 1, 0, 2), 0);
    ASSERT_EQ(test::callValue(counterSetApi, 1, 3, 2), 0);
  }

  wire::Request request(const Case& c) const {
    wire::Request r;
    r.funcId = c.func;
    r.cmd = c.cmd;
    const wire::FuncInfo& f = wire::funcInfo(c.func);
    if (f.keyKind == wire::KeyKind::Value) {
      r.keyShape = wire::KeyShape::Value;
      r.keyValue = f.id <= 8 ? 7 : 1;  // list 7; meter, profile and counter 1
    } else if (f.keyKind == wire::KeyKind::Bytes) {
      r.keyShape = wire::KeyShape::Bytes;
      r.key.assign(f.keyWidth, 0);  // statistics index 7/1 inwards, slot 1/1
      be::store32(r.key.data(), f.keyWidth == 8 ? 1 : 7);
      be::store32(r.key.data() + 4, 1);
    }
    r.bufShape = c.buf.shape;
    if (c.buf.shape == BufShape::Desc) r.descCapacity = c.buf.size;
    if (c.buf.shape != BufShape::Value && c.buf.shape != BufShape::None) {
      r.data.assign(c.buf.bytes.begin(), c.buf.bytes.end());
      if (c.buf.shape != BufShape::Desc) r.data.resize(c.buf.size);
    }
    return r;
  }

  std::array<uint8_t, 12> ruleKey_{0, 0, 0, 7, 0, 0, 0, 1};
};

TEST_F(Payload, EveryAnsweredPayloadReachesItsFunctionAndNoOtherDoes) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << "function " << c.func << " cmd " << c.cmd << " shape "
                                    << static_cast<int>(c.buf.shape) << " size " << c.buf.size);
    const wire::Request r = request(c);
    const wire::Status st = wire::checkRequest(r);
    if (c.ret == kRefused) {
      EXPECT_EQ(st, wire::Status::Schema);
      continue;
    }
    EXPECT_EQ(st, wire::Status::Ok);
    if (st != wire::Status::Ok) continue;
    const wire::Response resp = wire::invoke(r, gAclFuncMap[c.func].func);
    EXPECT_EQ(resp.result, c.ret);
    if (c.len != kAnyLen) {
      EXPECT_EQ(resp.descLen, c.len);
    }
  }
}

}  // namespace
