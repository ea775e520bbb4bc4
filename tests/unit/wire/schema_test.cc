// The payload schema: keys of the family's width, the buffer shapes and sizes each shape and
// command accepts, and the command table's shape as clients see it.
#include <gtest/gtest.h>

#include "wire/func_table.h"
#include "wire/schema.h"

namespace {

using wire::BufShape;
using wire::KeyShape;
using wire::Status;

wire::Request req(uint32_t funcId, KeyShape ks, size_t keyLen, BufShape bs, size_t dataLen = 0) {
  wire::Request r;
  r.funcId = funcId;
  r.keyShape = ks;
  if (ks == KeyShape::Bytes) r.key.assign(keyLen, 0);
  r.bufShape = bs;
  r.data.assign(dataLen, 0);
  if (bs == BufShape::Desc) r.descCapacity = static_cast<uint32_t>(dataLen);
  return r;
}

TEST(WireSchema, FunctionIdsPastTheTableAreUnknownAndEmptySlotsPass) {
  EXPECT_EQ(wire::checkRequest(req(87, KeyShape::None, 0, BufShape::None)),
            Status::UnknownFunction);
  EXPECT_EQ(wire::checkRequest(req(0xFFFFFFFF, KeyShape::None, 0, BufShape::None)),
            Status::UnknownFunction);
  // Empty slots answer -1 whatever they carry, as the daemon always has.
  for (uint32_t id : {0u, 31u, 44u, 47u, 74u}) {
    EXPECT_EQ(wire::checkRequest(req(id, KeyShape::Bytes, 3, BufShape::Raw, 9)), Status::Ok) << id;
  }
}

TEST(WireSchema, KeysMustHaveTheFamilyWidth) {
  // Rule get: a 12-byte key record only.
  EXPECT_EQ(wire::checkRequest(req(11, KeyShape::Bytes, 12, BufShape::Desc)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(11, KeyShape::Bytes, 11, BufShape::Value)), Status::Schema);
  EXPECT_EQ(wire::checkRequest(req(11, KeyShape::Bytes, 13, BufShape::Value)), Status::Schema);
  EXPECT_EQ(wire::checkRequest(req(11, KeyShape::Value, 0, BufShape::Value)), Status::Schema);
  // Statistics: 28; GEM port bind list: 24; slot: 8.
  EXPECT_EQ(wire::checkRequest(req(24, KeyShape::Bytes, 28, BufShape::Value)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(24, KeyShape::Bytes, 12, BufShape::Value)), Status::Schema);
  EXPECT_EQ(wire::checkRequest(req(76, KeyShape::Bytes, 24, BufShape::None)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(48, KeyShape::Bytes, 8, BufShape::Desc, 24)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(48, KeyShape::Bytes, 7, BufShape::Desc, 24)), Status::Schema);
  // Value-keyed tables take the key by value, never as bytes.
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Value)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Bytes, 4, BufShape::Value)), Status::Schema);
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::None, 0, BufShape::Value)), Status::Schema);
  // Scalars ignore the key: absent or a value.
  EXPECT_EQ(wire::checkRequest(req(2, KeyShape::None, 0, BufShape::Value)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(2, KeyShape::Value, 0, BufShape::Value)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(2, KeyShape::Bytes, 4, BufShape::Value)), Status::Schema);
}

TEST(WireSchema, WalksAndIndexConversionTakeOnlyTheirWords) {
  // GetFirst fills a key area of the family's width, also for value-keyed tables.
  EXPECT_EQ(wire::checkRequest(req(4, KeyShape::Bytes, 4, BufShape::None)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(4, KeyShape::Value, 0, BufShape::None)), Status::Schema);
  EXPECT_EQ(wire::checkRequest(req(9, KeyShape::Bytes, 12, BufShape::None)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(9, KeyShape::Bytes, 12, BufShape::Value)), Status::Schema);
  auto withCmd = req(9, KeyShape::Bytes, 12, BufShape::None);
  withCmd.cmd = 1;
  EXPECT_EQ(wire::checkRequest(withCmd), Status::Schema);
  // GetNext: the current key in the family's form.
  EXPECT_EQ(wire::checkRequest(req(5, KeyShape::Value, 0, BufShape::None)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(22, KeyShape::Bytes, 28, BufShape::None)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(22, KeyShape::Value, 0, BufShape::None)), Status::Schema);
  // 45 and 46: an index by value and a value word for the answer, nothing else.
  for (uint32_t id : {45u, 46u}) {
    EXPECT_EQ(wire::checkRequest(req(id, KeyShape::Value, 0, BufShape::Value)), Status::Ok);
    EXPECT_EQ(wire::checkRequest(req(id, KeyShape::Value, 0, BufShape::None)), Status::Schema);
    EXPECT_EQ(wire::checkRequest(req(id, KeyShape::Value, 0, BufShape::Desc, 4)), Status::Schema);
    EXPECT_EQ(wire::checkRequest(req(id, KeyShape::None, 0, BufShape::Value)), Status::Schema);
  }
}

TEST(WireSchema, BufferSizesAreBounded) {
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Raw, 0)), Status::Schema);
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Raw, 1)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Raw, wire::kMaxRecordLen)),
            Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Raw, wire::kMaxRecordLen + 1)),
            Status::Schema);
  // A pointer with no record carries a null address: the function's null check answers it.
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Ptr, 0)), Status::Ok);
  EXPECT_EQ(wire::checkRequest(req(7, KeyShape::Value, 0, BufShape::Ptr, wire::kMaxRecordLen + 1)),
            Status::Schema);
}

TEST(WireSchema, CommandRowsReplaceTheDefault) {
  // Rule statistics read: a descriptor only, of any length (short ones have their own answer).
  EXPECT_EQ(wire::checkRequest(req(23, KeyShape::Bytes, 28, BufShape::Desc, 32)), Status::Ok);
  auto none = req(23, KeyShape::Bytes, 28, BufShape::None);
  none.cmd = 1;
  auto desc = req(23, KeyShape::Bytes, 28, BufShape::Desc, 32);
  desc.cmd = 1;
  auto value = req(23, KeyShape::Bytes, 28, BufShape::Value);
  value.cmd = 1;
  EXPECT_EQ(wire::checkRequest(desc), Status::Ok);
  EXPECT_EQ(wire::checkRequest(none), Status::Schema);
  EXPECT_EQ(wire::checkRequest(value), Status::Schema);
  // Another command of the same function keeps the default.
  value.cmd = 2;
  EXPECT_EQ(wire::checkRequest(value), Status::Ok);
}

TEST(WireSchema, EveryRowNamesAFunctionThatTakesACommand) {
  // A row for a walk, an empty slot or an id past the table would never be consulted.
  for (const auto& row : wire::cmdSchemas()) {
    const auto shape = wire::funcInfo(row.funcId).shape;
    EXPECT_TRUE(row.funcId < wire::kFuncCount &&
                (shape == wire::FuncShape::Get || shape == wire::FuncShape::Set ||
                 shape == wire::FuncShape::Sync))
        << "row for function " << row.funcId << " cmd " << row.cmd;
    EXPECT_NE(row.buf.shapes, 0) << row.funcId;
    EXPECT_LE(row.buf.minLen, row.buf.maxLen) << row.funcId;
  }
}

TEST(WireFuncTable, NamesAreUniqueAndFindTheirIds) {
  size_t named = 0;
  for (const auto& f : wire::funcTable()) {
    if (f.name.empty()) {
      EXPECT_EQ(f.shape, wire::FuncShape::Empty) << f.id;
      continue;
    }
    ++named;
    const auto* byName = wire::funcByName(f.name);
    ASSERT_NE(byName, nullptr) << f.name;
    EXPECT_EQ(byName->id, f.id) << f.name;
  }
  // 87 slots less the 17 empty ones (0, 31 to 44, 47, 74).
  EXPECT_EQ(named, 70u);
  EXPECT_EQ(wire::funcByName("aclIndexToFreeIdx")->id, 46u);
  EXPECT_EQ(wire::funcByName(""), nullptr);
}

}  // namespace
