// The chassis as the device announces it on the route bus: a replay to a socket that joins the
// chassis group, and the messages of a card that comes up later.
#include <gtest/gtest.h>
#include <sys/select.h>

#include <mutex>
#include <tuple>
#include <vector>

#include "platform/rtbus.h"
#include "platform/vdev/announce.h"
#include "platform/vdev/control.h"
#include "platform/vdev/vdev.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

// (type, sys, slot, card type, kind) of a message received.
using Msg = std::tuple<uint16_t, uint32_t, uint32_t, uint32_t, uint8_t>;

class AnnounceTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override {
    for (int fd : fds_) zor_close(fd);
    vdev::resetForTest();
  }
  int joined(uint32_t group, bool announce = true) {
    vdev::device().model.announce = announce;  // no other task uses the device here
    const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
    uint8_t addr[12] = {}, v[4];
    be::store16(addr, 0, ZOR_AF_ROUTE);
    be::store32(v, group);
    EXPECT_EQ(zor_bind(fd, addr, sizeof addr), 0);
    EXPECT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, v, 4), 0);
    fds_.push_back(fd);
    return fd;
  }
  // The messages of every read waiting on fd; no read may pass what the daemon reads at once.
  static std::vector<Msg> drain(int fd) {
    std::vector<Msg> seen;
    std::vector<uint8_t> b(8192);
    for (fd_set rd;;) {
      FD_ZERO(&rd);
      FD_SET(fd, &rd);
      timeval tv{0, 50000};
      if (zor_select(fd + 1, &rd, nullptr, nullptr, &tv) != 1) return seen;
      const int n = zor_recv(fd, b.data(), b.size(), 0);
      EXPECT_LE(n, static_cast<int>(vdev::kRouteReadMax));
      for (size_t at = 0; at + 24 <= static_cast<size_t>(n); at += (be::load32(b, at) + 3) & ~3u) {
        const bool card = be::load16(b, at + 4) == vdev::kMsgCardUp;
        seen.emplace_back(be::load16(b, at + 4), be::load32(b, at + 24), be::load32(b, at + 28),
                          card ? be::load32(b, at + 36) : 0, card ? b[at + 72] : 0);
      }
    }
  }

  test::TempRunDir runDir;
  std::vector<int> fds_;
};

TEST_F(AnnounceTest, JoiningReplaysEveryCardAndACardInsertedLaterFollows) {
  const int fd = joined(vdev::kChassisGroup);
  EXPECT_EQ(drain(fd), (std::vector<Msg>{{108, 1, 1, 0, 0},
                                         {101, 1, 1, 1, 0},
                                         {108, 1, 2, 0, 0},
                                         {101, 1, 2, 2, 0},
                                         {108, 1, 3, 0, 0},
                                         {101, 1, 3, 2, 0},
                                         {108, 1, 4, 0, 0},
                                         {101, 1, 4, 3, 0}}));
  EXPECT_TRUE(drain(joined(1)).empty()) << "another group hears nothing";
  EXPECT_TRUE(drain(joined(vdev::kChassisGroup, false)).empty()) << "switched off";

  const nlohmann::json ok = {{"ok", true}},
                       slot5 = {{"op", "card.set"}, {"system", 1}, {"slot", 5}};
  nlohmann::json insert = slot5, change = slot5;
  insert["card"] = {{"type", 9}};
  change["card"] = {{"name", "x"}};
  EXPECT_EQ(vdev::handleRequest(insert), ok);
  EXPECT_EQ(drain(fd), (std::vector<Msg>{{108, 1, 5, 0, 0}, {101, 1, 5, 9, 0}}));
  // Changing a seated card, or pulling it, brings nothing up.
  EXPECT_EQ(vdev::handleRequest(change), ok);
  EXPECT_EQ(vdev::handleRequest(slot5), ok);
  EXPECT_TRUE(drain(fd).empty());

  // A chassis too large for one read is spread over several, none cut.
  for (uint32_t s = 1; s <= 60; ++s)
    vdev::device().model.slots[{2, s}].card = vdev::Card{2, "", {}, {}};
  const std::vector<Msg> all = drain(joined(vdev::kChassisGroup));
  EXPECT_EQ(all.size(), 2u * (4 + 60));
  EXPECT_EQ(all.back(), (Msg{101, 2, 60, 2, 0}));
}

}  // namespace
