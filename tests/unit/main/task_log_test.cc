#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "main/acl_group.h"
#include "main/acl_log.h"
#include "main/acl_task.h"
#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/rtbus.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

std::vector<uint8_t> message(uint32_t len, uint16_t type) {
  std::vector<uint8_t> m(len, 0);
  be::store32(m, 0, len);
  be::store16(m, 4, type);
  return m;
}

struct Seen {
  uint16_t type;
  size_t len;
  uint32_t remaining;
};

std::vector<Seen> walk(const std::vector<uint8_t>& data) {
  std::vector<Seen> seen;
  aclRtMsgWalk(data, [&](uint16_t t, std::span<const uint8_t> m, uint32_t rem) {
    seen.push_back({t, m.size(), rem});
  });
  return seen;
}

TEST(RouteWalkTest, PaddedMessagesAreAllVisited) {
  // 30 bytes, 2 bytes of padding, then 24 bytes: 56 bytes in one read.
  std::vector<uint8_t> data = message(30, 34);
  data.resize(32);
  auto second = message(24, 97);
  data.insert(data.end(), second.begin(), second.end());
  auto seen = walk(data);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].type, 34);
  EXPECT_EQ(seen[0].len, 30u);
  EXPECT_EQ(seen[0].remaining, 56u);
  EXPECT_EQ(seen[1].type, 97);
  EXPECT_EQ(seen[1].remaining, 24u);
}

TEST(RouteWalkTest, MalformedLengthEndsTheWalk) {
  std::vector<uint8_t> data = message(24, 1);
  auto bad = message(24, 2);
  be::store32(bad, 0, 20);  // shorter than a header
  data.insert(data.end(), bad.begin(), bad.end());
  auto more = message(24, 3);
  data.insert(data.end(), more.begin(), more.end());
  auto seen = walk(data);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].type, 1);

  auto tooLong = message(24, 5);
  be::store32(tooLong, 0, 4000);
  EXPECT_TRUE(walk(tooLong).empty());
  EXPECT_TRUE(walk(std::vector<uint8_t>(23, 0)).empty());
  EXPECT_TRUE(walk({}).empty());
  // A last message without its padding is still taken.
  std::vector<uint8_t> unpadded = message(24, 7);
  auto tail = message(25, 8);
  unpadded.insert(unpadded.end(), tail.begin(), tail.end());
  EXPECT_EQ(walk(unpadded).size(), 2u);
  EXPECT_EQ(aclRtMsgRecv(tooLong), 0);
}

class EventTaskTest : public ::testing::Test {
 protected:
  void SetUp() override {
    aclResetForTest();
    ASSERT_EQ(aclOptInit(), 0);
  }
  void TearDown() override { aclResetForTest(); }

  // Writes raw bytes to the daemon's route socket, as any process on the bus may.
  void sendRaw(const std::vector<uint8_t>& bytes) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un sa{};
    sa.sun_family = AF_UNIX;
    const std::string path = plat::busDir() + "/route.sock";
    std::strncpy(sa.sun_path, path.c_str(), sizeof sa.sun_path - 1);
    ASSERT_EQ(
        sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&sa), sizeof sa),
        static_cast<ssize_t>(bytes.size()));
    close(fd);
  }
  template <typename Pred>
  bool waitFor(Pred pred) {
    for (int i = 0; i < 2000; ++i) {
      aclLock();
      const bool ok = pred();
      aclUnlock();
      if (ok) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

  test::TempRunDir runDir;
};

int gTimerRuns = 0;
bool gLockHeldInTimer = false;

void timerCallback(uintptr_t) {
  ++gTimerRuns;
  // The event task runs timers with the lock held: another task cannot take it now.
  int other = 0;
  std::thread([&] { other = silTakeSem(gaclGrp.aclMutex, 0); }).join();
  gLockHeldInTimer = other != 0;
}

TEST_F(EventTaskTest, ReadsAreCountedAndTimersRunInTheTaskUnderTheLock) {
  sendRaw(message(24, 32));
  ASSERT_TRUE(waitFor([] { return gaclGrp.rtMsgRecvCnt == 1; }));
  EXPECT_EQ(gaclGrp.rtMsgOkCnt, 1u);
  EXPECT_EQ(gaclGrp.rtMsgErrCnt, 0u);

  // Garbage is still a handled read: the walk stops at it.
  sendRaw({1, 2, 3});
  ASSERT_TRUE(waitFor([] { return gaclGrp.rtMsgRecvCnt == 2; }));
  EXPECT_EQ(gaclGrp.rtMsgOkCnt, 2u);

  static SilTimer timer;
  gTimerRuns = 0;
  aclLock();
  silTimerStart(&gaclGrp.timerList, &timer, 0, 0, timerCallback, 0, 0, 0);
  aclUnlock();
  sendRaw(message(24, 1));  // wakes the task, which then runs what is due
  ASSERT_TRUE(waitFor([] { return gTimerRuns == 1; }));
  EXPECT_TRUE(gLockHeldInTimer);
}

TEST(AclLogTest, LinesAreWrittenOnlyUnderTheirGuardBit) {
  aclResetForTest();
  gaclGrp.debugFlags = 0x100;
  const uint64_t start = plat::logLastSeq();
  aclDebug(ACL_LOG_RULE, "rule %d\r\n", 1);
  aclDebug(ACL_LOG_GLOBAL, "global\r\n");
  EXPECT_TRUE(plat::logRecent(start).empty());

  gaclGrp.debugFlags = 0x10 | 0x02;
  aclDebug(ACL_LOG_RULE, "rule %d\r\n", 2);
  aclDebug(ACL_LOG_WORKMODE, "workmode\r\n");
  aclDebug(ACL_LOG_IF, "if\r\n");
  aclDebug(ACL_LOG_STATS, "stats\r\n");      // 0x08 is not set
  aclDebug(ACL_LOG_COUNTER, "counter\r\n");  // its own module's flag, never this one
  auto lines = plat::logRecent(start);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].text, "rule 2");
  EXPECT_EQ(lines[0].tag, 0x3EA0003u);
  EXPECT_EQ(lines[0].priority, 7u);
  EXPECT_EQ(lines[1].tag, 0x3EA0008u);
  EXPECT_EQ(lines[1].priority, 5u);
  EXPECT_EQ(lines[2].tag, 0x3EA0001u);

  gaclGrp.debugFlags = 0x20;
  const uint64_t mid = plat::logLastSeq();
  aclDebugStyled(0x20, ACL_LOG_DEV, ACL_LOG_STYLE_FIRST, "first");
  aclDebugStyled(0x20, ACL_LOG_DEV, ACL_LOG_STYLE_MORE, "more");
  aclDebugStyled(0x20, ACL_LOG_DEV, ACL_LOG_STYLE_LAST, "last");
  lines = plat::logRecent(mid);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].style, 26u);
  EXPECT_EQ(lines[1].style, 27u);
  EXPECT_EQ(lines[1].tag, 0x3EA0000u);
  EXPECT_EQ(lines[1].priority, 0u);
  EXPECT_EQ(lines[2].style, 25u);

  gaclGrp.debugFlags = 0;
  const uint64_t before = plat::logLastSeq();
  aclOperLog("ACL interface [add acl] error.\r\n");
  lines = plat::logRecent(before);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].operational);
  EXPECT_EQ(lines[0].tag, 0x3EA000Cu);
  EXPECT_EQ(lines[0].priority, 5u);
  gaclGrp.debugFlags = 0;
}

int gTimerFired = 0;
void countFired(uintptr_t) {
  ++gTimerFired;
}

// The task's timer run takes the lock as a change only when a timer is due, so an idle wake-up
// leaves the store generation (and every compiled list with it) where it was.
TEST_F(EventTaskTest, TimerRunMovesTheStoreGenerationOnlyWhenATimerIsDue) {
  plat::stopAllTasksForTest();  // the test plays the event task itself
  const struct {
    const char* what;
    int32_t armMs;  // -1: nothing armed
    int fired;
    bool moves;
  } cases[] = {
      {"nothing armed", -1, 0, false},
      {"armed for later", 60000, 0, false},
      {"due now", 0, 1, true},
  };
  for (const auto& c : cases) {
    SilTimer timer{};
    gTimerFired = 0;
    if (c.armMs >= 0) {
      aclLock();
      ASSERT_EQ(silTimerStart(&gaclGrp.timerList, &timer, 0, static_cast<uint32_t>(c.armMs),
                              countFired, 0, 0, 0),
                0);
      aclUnlock();
    }
    const uint64_t before = aclStoreGen();
    EXPECT_EQ(aclTimersRun(), c.fired) << c.what;
    EXPECT_EQ(gTimerFired, c.fired) << c.what;
    EXPECT_EQ(aclStoreGen() != before, c.moves) << c.what;
    aclLock();
    silTimerStop(&gaclGrp.timerList, &timer);
    aclUnlock();
  }
}

}  // namespace
