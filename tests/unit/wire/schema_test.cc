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

// One request shape per row and the check's answer.
TEST(WireSchema, EachFunctionTakesOnlyItsShapes) {
  constexpr size_t kMax = wire::kMaxRecordLen;
  const struct {
    const char* what;
    uint32_t funcId, cmd;
    KeyShape ks;
    size_t keyLen;
    BufShape bs;
    size_t dataLen;
    Status want;
  } cases[] = {
      {"id past the table", 87, 0, KeyShape::None, 0, BufShape::None, 0, Status::UnknownFunction},
      {"largest id", 0xFFFFFFFF, 0, KeyShape::None, 0, BufShape::None, 0, Status::UnknownFunction},
      // Empty slots answer -1 whatever they carry, as the daemon always has.
      {"empty slot 0", 0, 0, KeyShape::Bytes, 3, BufShape::Raw, 9, Status::Ok},
      {"empty slot 31", 31, 0, KeyShape::Bytes, 3, BufShape::Raw, 9, Status::Ok},
      {"empty slot 74", 74, 0, KeyShape::Bytes, 3, BufShape::Raw, 9, Status::Ok},
      // Keys of the family's width: rule 12, statistics 28, GEM port bind list 24, slot 8.
      {"rule key", 11, 0, KeyShape::Bytes, 12, BufShape::Desc, 0, Status::Ok},
      {"short rule key", 11, 0, KeyShape::Bytes, 11, BufShape::Value, 0, Status::Schema},
      {"long rule key", 11, 0, KeyShape::Bytes, 13, BufShape::Value, 0, Status::Schema},
      {"rule key by value", 11, 0, KeyShape::Value, 0, BufShape::Value, 0, Status::Schema},
      {"statistics key", 24, 0, KeyShape::Bytes, 28, BufShape::Value, 0, Status::Ok},
      {"short statistics key", 24, 0, KeyShape::Bytes, 12, BufShape::Value, 0, Status::Schema},
      {"GEM port key", 76, 0, KeyShape::Bytes, 24, BufShape::None, 0, Status::Ok},
      {"slot key", 48, 0, KeyShape::Bytes, 8, BufShape::Desc, 24, Status::Ok},
      {"short slot key", 48, 0, KeyShape::Bytes, 7, BufShape::Desc, 24, Status::Schema},
      // Value-keyed tables take the key by value, never as bytes; scalars absent or a value.
      {"list key", 7, 0, KeyShape::Value, 0, BufShape::Value, 0, Status::Ok},
      {"list key as bytes", 7, 0, KeyShape::Bytes, 4, BufShape::Value, 0, Status::Schema},
      {"list without key", 7, 0, KeyShape::None, 0, BufShape::Value, 0, Status::Schema},
      {"scalar", 2, 0, KeyShape::None, 0, BufShape::Value, 0, Status::Ok},
      {"scalar with value key", 2, 0, KeyShape::Value, 0, BufShape::Value, 0, Status::Ok},
      {"scalar with key bytes", 2, 0, KeyShape::Bytes, 4, BufShape::Value, 0, Status::Schema},
      // GetFirst fills a key area of the family's width, also for value-keyed tables.
      {"list GetFirst", 4, 0, KeyShape::Bytes, 4, BufShape::None, 0, Status::Ok},
      {"list GetFirst by value", 4, 0, KeyShape::Value, 0, BufShape::None, 0, Status::Schema},
      {"rule GetFirst", 9, 0, KeyShape::Bytes, 12, BufShape::None, 0, Status::Ok},
      {"GetFirst with a buffer", 9, 0, KeyShape::Bytes, 12, BufShape::Value, 0, Status::Schema},
      {"GetFirst with a command", 9, 1, KeyShape::Bytes, 12, BufShape::None, 0, Status::Schema},
      // GetNext: the current key in the family's form.
      {"list GetNext", 5, 0, KeyShape::Value, 0, BufShape::None, 0, Status::Ok},
      {"statistics GetNext", 22, 0, KeyShape::Bytes, 28, BufShape::None, 0, Status::Ok},
      {"statistics GetNext by value", 22, 0, KeyShape::Value, 0, BufShape::None, 0, Status::Schema},
      // Index conversion: an index by value and a value word for the answer, nothing else.
      {"conversion", 45, 0, KeyShape::Value, 0, BufShape::Value, 0, Status::Ok},
      {"conversion back", 46, 0, KeyShape::Value, 0, BufShape::Value, 0, Status::Ok},
      {"conversion without answer", 46, 0, KeyShape::Value, 0, BufShape::None, 0, Status::Schema},
      {"conversion to a descriptor", 45, 0, KeyShape::Value, 0, BufShape::Desc, 4, Status::Schema},
      {"conversion without index", 46, 0, KeyShape::None, 0, BufShape::Value, 0, Status::Schema},
      // Buffer sizes; a pointer with no record carries a null address for the function to answer.
      {"empty record", 7, 0, KeyShape::Value, 0, BufShape::Raw, 0, Status::Schema},
      {"one byte", 7, 0, KeyShape::Value, 0, BufShape::Raw, 1, Status::Ok},
      {"longest record", 7, 0, KeyShape::Value, 0, BufShape::Raw, kMax, Status::Ok},
      {"record too long", 7, 0, KeyShape::Value, 0, BufShape::Raw, kMax + 1, Status::Schema},
      {"null pointer", 7, 0, KeyShape::Value, 0, BufShape::Ptr, 0, Status::Ok},
      {"pointer too long", 7, 0, KeyShape::Value, 0, BufShape::Ptr, kMax + 1, Status::Schema},
      // A command row replaces the default: the statistics read takes a descriptor only.
      {"statistics default", 23, 0, KeyShape::Bytes, 28, BufShape::Desc, 32, Status::Ok},
      {"statistics read", 23, 1, KeyShape::Bytes, 28, BufShape::Desc, 32, Status::Ok},
      {"statistics read, none", 23, 1, KeyShape::Bytes, 28, BufShape::None, 0, Status::Schema},
      {"statistics read, value", 23, 1, KeyShape::Bytes, 28, BufShape::Value, 0, Status::Schema},
      {"statistics clear, value", 23, 2, KeyShape::Bytes, 28, BufShape::Value, 0, Status::Ok},
  };
  for (const auto& c : cases) {
    wire::Request r = req(c.funcId, c.ks, c.keyLen, c.bs, c.dataLen);
    r.cmd = c.cmd;
    EXPECT_EQ(wire::checkRequest(r), c.want) << c.what;
  }
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
