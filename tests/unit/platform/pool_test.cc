#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

#include "platform/sil.h"

namespace {

class PoolTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (pool) silMemPoolDestroy(&pool);
    EXPECT_EQ(silMemPoolLiveCount(), live);
  }
  SIL_POOL_ID pool = nullptr;
  uint32_t live = silMemPoolLiveCount();
};

TEST_F(PoolTest, AllocatesExactlyItsEntriesZeroedAndReusesFreed) {
  ASSERT_EQ(silMemPoolInit(&pool, "t", 3, 40, 0), 0);
  std::set<void*> seen;
  std::vector<void*> got;
  for (int i = 0; i < 3; ++i) {
    uint32_t id = 99;
    void* e = silMemPoolAlloc(pool, &id);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e, silMemPoolId2Entry(pool, id));
    std::memset(e, 0xAB, 40);
    EXPECT_TRUE(seen.insert(e).second);
    got.push_back(e);
  }
  EXPECT_EQ(silMemPoolAlloc(pool, nullptr), nullptr);
  EXPECT_EQ(silMemPoolFree(pool, got[1]), 0);
  void* again = silMemPoolAlloc(pool, nullptr);
  EXPECT_EQ(again, got[1]);
  const auto* bytes = static_cast<const uint8_t*>(again);
  for (int i = 0; i < 40; ++i) ASSERT_EQ(bytes[i], 0) << i;
  SilMemPoolInfo info{};
  ASSERT_TRUE(silMemPoolInfoGet(pool, &info));
  EXPECT_STREQ(info.name, "t");
  EXPECT_EQ(info.used, 3u);
}

TEST_F(PoolTest, RefusesForeignDoubleAndMisalignedFrees) {
  ASSERT_EQ(silMemPoolInit(&pool, "t", 4, 16, 0), 0);
  void* e = silMemPoolAlloc(pool, nullptr);
  int local = 0;
  EXPECT_EQ(silMemPoolFree(pool, &local), -1);
  EXPECT_EQ(silMemPoolFree(pool, static_cast<char*>(e) + 1), -1);
  EXPECT_EQ(silMemPoolFree(pool, e), 0);
  EXPECT_EQ(silMemPoolFree(pool, e), -1);
  // The double free did not put the entry on the free list twice.
  void* a = silMemPoolAlloc(pool, nullptr);
  void* b = silMemPoolAlloc(pool, nullptr);
  EXPECT_NE(a, b);
}

TEST_F(PoolTest, IndexedPoolReachesEveryEntryByNumber) {
  ASSERT_EQ(silMemPoolInit(&pool, "idx", 5, 8, 1), 0);
  for (uint32_t i = 0; i < 5; ++i) ASSERT_NE(silMemPoolId2Entry(pool, i), nullptr);
  EXPECT_EQ(silMemPoolId2Entry(pool, 5), nullptr);
  EXPECT_EQ(static_cast<char*>(silMemPoolId2Entry(pool, 1)) -
                static_cast<char*>(silMemPoolId2Entry(pool, 0)),
            8);
}

TEST_F(PoolTest, RefusesImpossibleSizes) {
  EXPECT_EQ(silMemPoolInit(&pool, "zero", 0, 8, 0), -1);
  EXPECT_EQ(pool, nullptr);
  EXPECT_EQ(silMemPoolInit(&pool, "huge", 0xFFFFFFFFu, 64, 0), -1);
  EXPECT_EQ(pool, nullptr);
}

}  // namespace
