#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/proc.h"
#include "platform/sil.h"

namespace {

TEST(SemTest, RecursiveForHolderTimesOutForOthersAndRefusesForeignGive) {
  const uint32_t live = silSemLiveCount();
  SIL_SEM_ID s = silCreateMSem(13);
  ASSERT_NE(s, 0u);
  EXPECT_EQ(silSemLiveCount(), live + 1);
  ASSERT_EQ(silTakeSem(s, SIL_WAIT_FOREVER), 0);
  ASSERT_EQ(silTakeSem(s, SIL_NO_WAIT), 0);

  std::atomic<int> otherTake{99}, otherGive{99};
  std::thread([&] {
    otherGive = silGiveSem(s);
    otherTake = silTakeSem(s, 20);
  }).join();
  EXPECT_EQ(otherGive, -1);
  EXPECT_EQ(otherTake, -1);

  EXPECT_EQ(silGiveSem(s), 0);
  std::thread([&] { otherTake = silTakeSem(s, 20); }).join();
  EXPECT_EQ(otherTake, -1) << "still held once";
  EXPECT_EQ(silGiveSem(s), 0);
  EXPECT_EQ(silGiveSem(s), -1) << "not held any more";
  std::thread([&] {
    otherTake = silTakeSem(s, 1000);
    silGiveSem(s);
  }).join();
  EXPECT_EQ(otherTake, 0);
  EXPECT_EQ(silDeleteSem(s), 0);
  EXPECT_EQ(silSemLiveCount(), live);
}

std::atomic<int> gRuns{0};

void loopUntilStopped(uintptr_t a, uintptr_t b) {
  gRuns = static_cast<int>(a + b);
  while (!silTaskStopRequested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(TaskTest, RunsWithArgumentsAndStopsOnRequest) {
  uint64_t id = 0;
  ASSERT_EQ(silCreateTask("t1", 75, 0x10000, loopUntilStopped, 40, 2, &id), 0);
  EXPECT_NE(id, 0u);
  for (int i = 0; i < 1000 && gRuns == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(gRuns, 42);
  plat::stopAllTasksForTest();
  EXPECT_FALSE(silTaskStopRequested()) << "a later task may run again";
}

}  // namespace
