#include <gtest/gtest.h>

#include <vector>

#include "platform/sil.h"

namespace {

std::vector<int> gFired;

void record(uintptr_t arg) {
  gFired.push_back(static_cast<int>(arg));
}

class TimerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gFired.clear();
    ASSERT_EQ(silTimerListInit(&list), 0);
  }
  void TearDown() override { silTimerListDestroy(&list); }
  SilTimerList list{};
  // Timers live in their owner's records; here the fixture owns them, so they outlive the list.
  SilTimer t{}, a{}, b{}, c{}, d{};
};

TEST_F(TimerTest, FiresOnceInExpiryOrderThenStartOrder) {
  EXPECT_EQ(silTimerListNextTimeout(&list), -1) << "no timers";
  silTimerStart(&list, &a, 0, 300, record, 1, 0, 0);
  silTimerStart(&list, &b, 0, 100, record, 2, 0, 0);
  silTimerStart(&list, &c, 0, 200, record, 3, 0, 0);
  silTimerStart(&list, &d, 0, 100, record, 4, 0, 0);
  EXPECT_EQ(silTimerListCheck(&list), 0);
  const int32_t left = silTimerListNextTimeout(&list);
  EXPECT_LE(left, 100);
  EXPECT_GT(left, 0);
  silUpTimeAdvanceForTest(150);
  EXPECT_EQ(silTimerListNextTimeout(&list), 0);
  EXPECT_EQ(silTimerListCheck(&list), 2);
  EXPECT_EQ(gFired, (std::vector<int>{2, 4}));
  silUpTimeAdvanceForTest(1000);
  silTimerListCheck(&list);
  EXPECT_EQ(gFired, (std::vector<int>{2, 4, 3, 1}));
  silTimerListCheck(&list);
  EXPECT_EQ(gFired.size(), 4u) << "one-shot timers fire once";
  EXPECT_EQ(silTimerListNextTimeout(&list), -1);
}

TEST_F(TimerTest, StoppedTimerNeverFiresAndRestartMovesExpiry) {
  silTimerStart(&list, &a, 0, 100, record, 1, 0, 0);
  silTimerStart(&list, &b, 0, 100, record, 2, 0, 0);
  silTimerStop(&list, &a);
  silTimerStop(&list, &a);  // stopping an idle timer is harmless
  silTimerStart(&list, &b, 0, 500, record, 2, 0, 0);
  silUpTimeAdvanceForTest(200);
  silTimerListCheck(&list);
  EXPECT_TRUE(gFired.empty());
  silUpTimeAdvanceForTest(400);
  silTimerListCheck(&list);
  EXPECT_EQ(gFired, std::vector<int>{2});
}

SilTimerList* gList;
SilTimer gSelf, gVictim;

void rearmAndStop(uintptr_t) {
  gFired.push_back(9);
  silTimerStop(gList, &gVictim);
  silTimerStart(gList, &gSelf, 0, 0, rearmAndStop, 0, 0, 0);
}

// A callback may stop other timers and re-arm itself; a re-arm for "now" waits for the next
// check instead of looping inside this one.
TEST_F(TimerTest, CallbackMayStopOthersAndRearmItself) {
  gList = &list;
  silTimerStart(&list, &gSelf, 0, 10, rearmAndStop, 0, 0, 0);
  silTimerStart(&list, &gVictim, 0, 10, record, 5, 0, 0);
  silUpTimeAdvanceForTest(20);
  EXPECT_EQ(silTimerListCheck(&list), 1);
  EXPECT_EQ(gFired, std::vector<int>{9});
  EXPECT_EQ(silTimerListCheck(&list), 1);
  EXPECT_EQ(gFired, (std::vector<int>{9, 9}));
  silTimerStop(&list, &gSelf);
}

}  // namespace
