// A started ACL group with helpers that build rules entry by entry, for the translation tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "hw/acl_dev_trans.h"
#include "unit/store/store_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace transtest {

using Bytes = std::vector<uint8_t>;

// n big-endian bytes of v.
inline Bytes num(uint64_t v, size_t n) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[n - 1 - i] = static_cast<uint8_t>(v >> (8 * i));
  return b;
}
// count bytes first, first + 1, ...
inline Bytes seq(uint8_t first, size_t count) {
  Bytes b(count);
  for (size_t i = 0; i < count; ++i) b[i] = static_cast<uint8_t>(first + i);
  return b;
}

class TransTest : public storetest::StoreTest {
 protected:
  // A value entry of code with bytes, and its field bit.
  static void value(AclRuleEntry* r, uint32_t code, const Bytes& v) {
    ASSERT_EQ(aclRuleLongEntryAdd(r, static_cast<uint8_t>(code), v.data(), uint32_t(v.size())), 0);
    aclBitSet(r->fieldBits, code);
  }
  static void bit(AclRuleEntry* r, uint32_t code) { aclBitSet(r->fieldBits, code); }
  // An action entry; in-actions also get their bit.
  static void action(AclRuleEntry* r, uint32_t code, uint8_t slot, const Bytes& v) {
    ASSERT_EQ(
        aclLongActionEntryAdd(r, static_cast<uint8_t>(code), slot, v.data(), uint32_t(v.size())),
        0);
    if (code < ACL_ACTION_BIT_NUM) aclBitSet(r->actionBits, code);
  }
  static void meter(uint32_t idx, const std::vector<uint32_t>& attrs) {
    validMeter(idx);
    for (uint32_t i = 0; i < attrs.size(); ++i) {
      ASSERT_EQ(test::callValue(meterSetApi, idx, i + 1, attrs[i]), 0);
    }
  }
  static void counter(uint32_t idx, uint32_t type, uint32_t color) {
    validCounter(idx);
    ASSERT_EQ(test::callValue(counterSetApi, idx, 4, type), 0);
    ASSERT_EQ(test::callValue(counterSetApi, idx, 5, color), 0);
  }
  static Bytes tlv(const AclRuleEntry* r, uint8_t oper = 0, uint32_t gemPortVp = 0) {
    Bytes buf(ACL_DEV_TLV_BUF_LEN);
    uint16_t len = 0;
    EXPECT_EQ(aclDevTransNew(r, 1, oper, 1, 0, 0x1234, 0x55, 9, 7, 8, gemPortVp, buf.data(), &len),
              0u);
    buf.resize(len);
    return buf;
  }
};

// Where two byte strings differ, as "offset: got/want" lines, so a failure names the field.
inline std::string diff(const Bytes& got, const Bytes& want) {
  std::string out;
  for (size_t i = 0; i < std::max(got.size(), want.size()); ++i) {
    const int g = i < got.size() ? got[i] : -1;
    const int w = i < want.size() ? want[i] : -1;
    if (g != w)
      out += std::to_string(i) + ": " + std::to_string(g) + "/" + std::to_string(w) + "\n";
  }
  return out;
}

}  // namespace transtest
