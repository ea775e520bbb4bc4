#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "counter/counter.h"
#include "main/acl_group.h"
#include "platform/fault.h"
#include "platform/logging.h"
#include "platform/options.h"
#include "support/table_call.h"
#include "wire/acl_ret.h"

namespace {

using test::callValue;
using test::Desc;
using test::Word;

constexpr uint32_t kStatus = 3;

class CounterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    aclResetForTest();
    counterResetForTest();
    sems = silSemLiveCount();
    ASSERT_EQ(counterOptInit(), 0);
  }
  void TearDown() override {
    aclResetForTest();
    EXPECT_EQ(silSemLiveCount(), sems) << "the counter mutex is released";
  }
  int32_t set(uint32_t idx, uint32_t cmd, uint32_t v) {
    return callValue(counterSetApi, idx, cmd, v);
  }
  uint32_t get(uint32_t idx, uint32_t cmd, int32_t* ret = nullptr) {
    uint32_t out = 0;
    const int32_t r = callValue(counterGetApi, idx, cmd, 0, &out);
    if (ret) *ret = r;
    return out;
  }
  void makeValid(uint32_t idx) {
    ASSERT_EQ(set(idx, kStatus, 2), 0);
    ASSERT_EQ(set(idx, kStatus, 1), 0);
  }
  uint32_t sems = 0;
};

TEST_F(CounterTest, TableSizeOptionLimits) {
  EXPECT_EQ(gcounterList.maxCounterNum, 65535u);
  struct Case {
    const char* value;
    int32_t ret;
    uint32_t max;
  };
  for (const Case& c : {Case{"65535", 0, 65535}, Case{"1", 0, 1}, Case{"0", 0, 65535},
                        Case{"65536", -1, 0}, Case{"-1", -1, 0}}) {
    counterResetForTest();
    plat::optSet("counter.maxcounternum", c.value);
    const uint64_t before = plat::logLastSeq();
    EXPECT_EQ(counterOptInit(), c.ret) << c.value;
    EXPECT_EQ(gcounterList.maxCounterNum, c.max) << c.value;
    if (c.ret != 0) {
      auto lines = plat::logRecent(before);
      ASSERT_EQ(lines.size(), 1u);
      EXPECT_EQ(lines[0].text, "counter list is too big");
      EXPECT_EQ(lines[0].tag, 0x03EA0006u);
    }
  }
  counterResetForTest();
  plat::optSet("counter.enable", "False");
  EXPECT_EQ(counterOptInit(), -1);
}

// The default name and colour of a new counter are checked end to end.
TEST_F(CounterTest, LifeCycle) {
  ASSERT_EQ(set(12, kStatus, 2), 0);
  // Created (3) is not valid: no reference is taken.
  EXPECT_EQ(std::make_tuple(get(12, kStatus), gcounterList.counterNum, counterRefcount(12, 1)),
            std::make_tuple(3u, 1u, -1));
  ASSERT_EQ(set(12, kStatus, 1), 0);
  EXPECT_EQ(set(12, 4, 0x102), 0);
  EXPECT_EQ(get(12, 4), 2u) << "type keeps its low 8 bits";
  EXPECT_EQ(set(12, kStatus, 7), -1);
  EXPECT_EQ(set(12, 6, 1), -1);
  ASSERT_EQ(set(12, kStatus, 4), 0);
  int32_t ret = 0;
  get(12, kStatus, &ret);
  EXPECT_EQ(std::make_pair(gcounterList.counterNum, ret), std::make_pair(0u, CMN_ERR_NOT_FOUND));
  // Deleting a missing counter succeeds; 65535 is the last record of the table.
  const std::vector<int32_t> answers{set(12, 4, 1), set(12, kStatus, 1), set(12, kStatus, 4),
                                     set(65535, kStatus, 2), set(65536, kStatus, 2)};
  EXPECT_EQ(answers, (std::vector<int32_t>{CMN_ERR_NOT_FOUND, CMN_ERR_NOT_FOUND, 0, 0, 63}));
  EXPECT_EQ(get(0, 6), 1u);
}

TEST_F(CounterTest, LongNameIsClampedTo63) {
  ASSERT_EQ(set(1, kStatus, 2), 0);
  Desc name(std::string(100, 'n'));
  ASSERT_EQ(counterSetApi(1, 1, name.addr()), 0);
  EXPECT_EQ(name.desc.len, 63u);
  Desc back(128);
  ASSERT_EQ(counterGetApi(1, 1, back.addr()), 0);
  EXPECT_EQ(back.text(), std::string(63, 'n'));
  Desc small(4);
  ASSERT_EQ(counterGetApi(1, 1, small.addr()), 0);
  EXPECT_EQ(small.desc.len, 4u) << "never more than the client's area";
}

TEST_F(CounterTest, ReferencedCounterCannotBeDeleted) {
  makeValid(5);
  // A release below zero stops at zero; a deleted counter has no count.
  const std::vector<int32_t> answers{
      counterRefcount(5, 2), set(5, kStatus, 4), counterRefcount(5, -7), counterGetRefcount(5),
      counterIsValid(5),     set(5, kStatus, 4), counterGetRefcount(5)};
  EXPECT_EQ(answers, (std::vector<int32_t>{0, CMN_ERR_IN_USE, 0, 0, 0, 0, -1}));
}

TEST_F(CounterTest, ScalarsWalkAndShrinking) {
  makeValid(1);
  EXPECT_EQ(callValue(counterScalarSetApi, 0, kStatus, 0), -1);
  EXPECT_EQ(callValue(counterScalarSetApi, 0, 1, 0), CMN_ERR_NOT_SUPPORTED);
  EXPECT_EQ(set(1, kStatus, 4), 0);
  ASSERT_EQ(set(9, kStatus, 2), 0);
  Word w;
  ASSERT_EQ(counterGetFirst(w.addr(), 0, 0), 0);
  EXPECT_EQ(w.value(), 9u);
  EXPECT_EQ(counterGetNext(9, w.addr(), 0), -1);
  EXPECT_EQ(callValue(counterScalarSetApi, 0, kStatus, 0), 0) << "created, not valid";
  int32_t ret = 0;
  get(0, 6, &ret);  // the free-index search of an empty table
  EXPECT_EQ(std::make_tuple(counterGetFirst(w.addr(), 0, 0), counterGetNext(0, w.addr(), 0), ret),
            std::make_tuple(CMN_ERR_NO_TABLE, CMN_ERR_NO_TABLE, 22));

  // The version text itself is checked end to end.
  EXPECT_EQ(counterScalarGetApi(0, 2, 0), 22);
  EXPECT_EQ(counterScalarGetApi(0, 4, 0), CMN_ERR_BAD_PARAM);
}

TEST_F(CounterTest, FailedRelayChangesNothing) {
  makeValid(2);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x06DBC000 + 5, .result = 12});
  EXPECT_EQ(set(2, 5, 1), 12);
  EXPECT_EQ(get(2, 5), 4u);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x06DBC000 + kStatus, .result = 13});
  EXPECT_EQ(set(3, kStatus, 2), 13);
  int32_t ret = 0;
  get(3, kStatus, &ret);
  EXPECT_EQ(ret, CMN_ERR_NOT_FOUND);
}

// Table functions from two tasks at once, with the ACL side reading under the ACL lock: every
// create and delete is counted exactly once.
TEST_F(CounterTest, TwoTasksAtOnce) {
  ASSERT_EQ(aclOptInit(), 0);
  std::atomic<int> failures{0};
  auto worker = [&](uint32_t base) {
    for (uint32_t round = 0; round < 200; ++round) {
      const uint32_t idx = base + round % 50;
      if (set(idx, kStatus, 2) != 0 || set(idx, kStatus, 1) != 0) ++failures;
      aclLock();
      uint32_t colour = 0;
      if (callValue(counterGetApi, idx, 5, 0, &colour) != 0 || colour != 4) ++failures;
      aclUnlock();
      if (set(idx, kStatus, 4) != 0) ++failures;
    }
  };
  std::thread a(worker, 1), b(worker, 1001);
  a.join();
  b.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(gcounterList.counterNum, 0u);
}

}  // namespace
