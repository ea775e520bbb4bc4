#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <tuple>
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

std::vector<uint8_t> join(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

std::vector<uint8_t> withLength(std::vector<uint8_t> m, uint32_t len) {
  be::store32(m, 0, len);
  return m;
}

TEST(RouteWalkTest, VisitsEachWholeMessageAndStopsAtABadLength) {
  // Each message seen: type, its length, the bytes left from it to the end of the read.
  using Seen = std::tuple<uint16_t, size_t, uint32_t>;
  auto padded30 = message(30, 34);
  padded30.resize(32);
  const struct {
    const char* what;
    std::vector<uint8_t> data;
    std::vector<Seen> seen;
  } cases[] = {
      {"padded, then the next", join({padded30, message(24, 97)}), {{34, 30, 56}, {97, 24, 24}}},
      {"last one unpadded", join({message(24, 7), message(25, 8)}), {{7, 24, 49}, {8, 25, 25}}},
      {"length below a header",
       join({message(24, 1), withLength(message(24, 2), 20), message(24, 3)}),
       {{1, 24, 72}}},
      {"length past the read", withLength(message(24, 5), 4000), {}},
      {"shorter than a header", std::vector<uint8_t>(23, 0), {}},
      {"empty", {}, {}},
  };
  for (const auto& c : cases) {
    std::vector<Seen> seen;
    aclRtMsgWalk(c.data, [&](uint16_t t, std::span<const uint8_t> m, uint32_t rem) {
      seen.emplace_back(t, m.size(), rem);
    });
    EXPECT_EQ(seen, c.seen) << c.what;
  }
  EXPECT_EQ(aclRtMsgRecv(withLength(message(24, 5), 4000)), 0);
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

// A well-formed message is counted end to end; here garbage, still a handled read (the walk stops
// at it), and timers.
TEST_F(EventTaskTest, GarbageIsAHandledReadAndTimersRunInTheTaskUnderTheLock) {
  sendRaw({1, 2, 3});
  ASSERT_TRUE(waitFor([] { return gaclGrp.rtMsgRecvCnt == 1; }));
  EXPECT_EQ(gaclGrp.rtMsgOkCnt, 1u);
  EXPECT_EQ(gaclGrp.rtMsgErrCnt, 0u);

  static SilTimer timer;
  gTimerRuns = 0;
  aclLock();
  silTimerStart(&gaclGrp.timerList, &timer, 0, 0, timerCallback, 0, 0, 0);
  aclUnlock();
  sendRaw(message(24, 1));  // wakes the task, which then runs what is due
  ASSERT_TRUE(waitFor([] { return gTimerRuns == 1; }));
  EXPECT_TRUE(gLockHeldInTimer);
}

// (text, tag, priority, operational) of the lines written since seq.
using Written = std::vector<std::tuple<std::string, uint32_t, uint32_t, bool>>;
Written written(uint64_t seq) {
  Written out;
  for (const auto& l : plat::logRecent(seq))
    out.emplace_back(l.text, l.tag, l.priority, l.operational);
  return out;
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
  EXPECT_EQ(written(start), (Written{{"rule 2", 0x3EA0003u, 7u, false},
                                     {"workmode", 0x3EA0008u, 5u, false},
                                     {"if", 0x3EA0001u, 7u, false}}));

  // Styled lines (first, more, last) and their tags are checked by the dump tests.
  gaclGrp.debugFlags = 0;
  const uint64_t before = plat::logLastSeq();
  aclOperLog("ACL interface [add acl] error.\r\n");
  EXPECT_EQ(written(before), (Written{{"ACL interface [add acl] error.", 0x3EA000Cu, 5u, true}}));
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
