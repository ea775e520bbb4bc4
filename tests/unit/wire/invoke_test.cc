// The call the server makes from a request: what each shape hands the function, and that only
// memory the call owns comes back, however the function treats its arguments. (Missing and empty
// buffers, and value words, are the payload tests' and the end-to-end tests' business.)
#include <gtest/gtest.h>

#include <cstring>

#include "wire/be.h"
#include "wire/buf_desc.h"
#include "wire/invoke.h"
#include "wire/schema.h"

namespace {

using wire::BufShape;
using wire::KeyShape;

TEST(WireInvoke, DescriptorCarriesInputAndOnlyTheOwnedAreaComesBack) {
  wire::Request r;
  r.funcId = 6;
  r.cmd = 1;
  r.keyShape = KeyShape::Value;
  r.bufShape = BufShape::Desc;
  r.descCapacity = 8;
  r.data = {'a', 'b'};
  auto clampTo3 = [](uintptr_t, uintptr_t, uintptr_t buf) -> int32_t {
    auto* d = reinterpret_cast<wire::BufDesc*>(buf);
    auto* p = static_cast<uint8_t*>(d->data);
    if (d->len != 8 || p[0] != 'a' || p[1] != 'b' || p[2] != 0 || p[7] != 0) return 99;
    std::memcpy(p, "xyz", 3);
    d->len = 3;
    return 0;
  };
  auto resp = wire::invoke(r, clampTo3);
  EXPECT_EQ(std::make_tuple(resp.result, resp.descLen, resp.data),
            std::make_tuple(0, 3u, std::vector<uint8_t>{'x', 'y', 'z'}));

  // A function that claims more than the area: the claim is reported, the bytes stop at the area.
  resp = wire::invoke(r, [](uintptr_t, uintptr_t, uintptr_t buf) -> int32_t {
    reinterpret_cast<wire::BufDesc*>(buf)->len = 100000;
    return 0;
  });
  EXPECT_EQ(std::make_pair(resp.descLen, resp.data.size()), std::make_pair(100000u, 8ul));
}

TEST(WireInvoke, RecordsArePaddedToTheLongestTheCommandAccepts) {
  wire::Request r;
  r.funcId = 12;
  r.cmd = 30;
  r.keyShape = KeyShape::Bytes;
  r.key.assign(12, 0);
  r.key[3] = 7;
  r.bufShape = BufShape::Ptr;
  r.data = {5, 6};
  auto resp = wire::invoke(r, [](uintptr_t key, uintptr_t, uintptr_t buf) -> int32_t {
    auto* rec = *reinterpret_cast<uint8_t**>(buf);
    // Reads past the two bytes sent stay inside the padded record and see zeros.
    if (rec[0] != 5 || rec[1] != 6 || rec[wire::kMaxRecordLen - 1] != 0) return 99;
    rec[0] = 50;
    reinterpret_cast<uint8_t*>(key)[11] = 1;  // a key written back
    return 0;
  });
  std::vector<uint8_t> key(12, 0);
  key[3] = 7;
  key[11] = 1;
  EXPECT_EQ(std::make_tuple(resp.result, resp.data, resp.key),
            std::make_tuple(0, std::vector<uint8_t>{50, 6}, key));

  // A raw record is handed over directly.
  r.bufShape = BufShape::Raw;
  r.data = {1, 2, 3};
  resp = wire::invoke(r, [](uintptr_t, uintptr_t, uintptr_t buf) -> int32_t {
    return reinterpret_cast<uint8_t*>(buf)[2] == 3 ? 0 : 99;
  });
  EXPECT_EQ(std::make_pair(resp.result, resp.data.size()), std::make_pair(0, 3ul));
}

TEST(WireInvoke, WalksGetAKeyArea) {
  wire::Request first;
  first.funcId = 4;  // aclLstGetFirst
  first.keyShape = KeyShape::Bytes;
  first.key.assign(4, 0);
  auto resp = wire::invoke(first, [](uintptr_t area, uintptr_t a2, uintptr_t a3) -> int32_t {
    be::store32(reinterpret_cast<void*>(area), 1001);
    return a2 == 0 && a3 == 0 ? 0 : 99;
  });
  EXPECT_EQ(std::make_pair(resp.result, resp.key),
            std::make_pair(0, std::vector<uint8_t>{0, 0, 0x03, 0xE9}));

  wire::Request next;
  next.funcId = 22;  // aclStatsGetNext: current and next are both 28-byte areas
  next.keyShape = KeyShape::Bytes;
  next.key.assign(28, 0xAA);
  resp = wire::invoke(next, [](uintptr_t cur, uintptr_t nxt, uintptr_t) -> int32_t {
    const auto* c = reinterpret_cast<const uint8_t*>(cur);
    auto* n = reinterpret_cast<uint8_t*>(nxt);
    if (c[27] != 0xAA || n[0] != 0 || n[27] != 0) return 99;
    n[27] = 0x5A;
    return 0;
  });
  std::vector<uint8_t> want(28, 0);  // the next area comes back as the key
  want[27] = 0x5A;
  EXPECT_EQ(std::make_pair(resp.result, resp.key), std::make_pair(0, want));
}

}  // namespace
