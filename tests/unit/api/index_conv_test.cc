// The index conversion pair (function ids 45 and 46) and the command table that registers them.
#include <gtest/gtest.h>

#include "api/acl_func_map.h"
#include "api/acl_index_conv.h"
#include "main/acl_group.h"
#include "platform/sil.h"
#include "store/acl_list.h"
#include "support/run_dir.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace {

class IndexConv : public ::testing::Test {
 protected:
  void SetUp() override { aclResetForTest(); }
  void TearDown() override { aclResetForTest(); }

  // A list as the store links it, without the rest of list creation.
  AclListEntry* addList(uint32_t lstIdx, uint32_t freeIdx) {
    auto* l = static_cast<AclListEntry*>(silMemPoolAlloc(gaclGrp.listPool, nullptr));
    EXPECT_NE(l, nullptr);
    if (l == nullptr) return nullptr;
    l->lstIdx = lstIdx;
    l->freeIdx = freeIdx;
    EXPECT_EQ(avl_add(&gaclGrp.listTree, l), 0);
    return l;
  }
  // The value written and the answer of f(idx).
  static std::pair<uint32_t, int32_t> call(int32_t (*f)(uintptr_t, uintptr_t, uintptr_t),
                                           uint32_t idx) {
    uint8_t word[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    const int32_t ret = f(idx, reinterpret_cast<uintptr_t>(word), 0);
    return {be::load32(word), ret};
  }

  test::TempRunDir runDir;
};

TEST_F(IndexConv, FreeIdxToIndexEchoesWhetherOrNotTheListExists) {
  using R = std::pair<uint32_t, int32_t>;
  EXPECT_EQ(call(aclFreeIdxToIndex, 7), R(7, ACL_RET_OK));
  ASSERT_EQ(aclOptInit(), 0);
  EXPECT_EQ(call(aclFreeIdxToIndex, 7), R(7, ACL_RET_OK));
  EXPECT_EQ(call(aclFreeIdxToIndex, 0xFFFFFFFF), R(0xFFFFFFFF, ACL_RET_OK));
  EXPECT_EQ(aclFreeIdxToIndex(7, 0, 0), CMN_ERR_BAD_PARAM);
}

TEST_F(IndexConv, IndexToFreeIdxReportsTheListsFreeIdx) {
  using R = std::pair<uint32_t, int32_t>;
  const R missing(0xEEEEEEEE, ACL_ERR_LIST_NOT_EXIST);  // no answer written
  // Before start-up there are no lists, and nothing to crash on.
  EXPECT_EQ(call(aclIndexToFreeIdx, 7), missing);
  ASSERT_EQ(aclOptInit(), 0);
  EXPECT_EQ(call(aclIndexToFreeIdx, 7), missing);
  addList(7, 7);
  addList(2001, 2001);
  // The field is what is reported, not the index the caller gave.
  addList(3001, 12);
  EXPECT_EQ(call(aclIndexToFreeIdx, 7), R(7, ACL_RET_OK));
  EXPECT_EQ(call(aclIndexToFreeIdx, 3001), R(12, ACL_RET_OK));
  EXPECT_EQ(call(aclIndexToFreeIdx, 2000), missing);
  EXPECT_EQ(aclIndexToFreeIdx(7, 0, 0), CMN_ERR_BAD_PARAM);
}

TEST(AclFuncMap, EverySlotCarriesItsIdAndMatchesTheClientsTable) {
  for (uint32_t n = 0; n < ACL_FUNC_MAP_ENTRIES; ++n) {
    const auto& e = gAclFuncMap[n];
    const auto& info = wire::funcInfo(n);
    if (info.shape == wire::FuncShape::Empty) {
      EXPECT_EQ(e.funcId, 0u) << "empty slot " << n;
      EXPECT_EQ(e.func, nullptr) << "empty slot " << n;
    } else {
      EXPECT_EQ(e.funcId, n) << info.name;
    }
  }
  EXPECT_EQ(gAclFuncMap[45].func, &aclFreeIdxToIndex);
  EXPECT_EQ(gAclFuncMap[46].func, &aclIndexToFreeIdx);
}

}  // namespace
