// The chassis as the device announces it on the route bus: a replay to a socket that joins the
// chassis group, and the messages of a card that comes up later.
#include <gtest/gtest.h>
#include <sys/select.h>

#include <mutex>
#include <vector>

#include "platform/rtbus.h"
#include "platform/vdev/announce.h"
#include "platform/vdev/control.h"
#include "platform/vdev/vdev.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

using nlohmann::json;

// (type, sys, slot, card type) of each message of a read.
using Seen = std::vector<std::tuple<uint16_t, uint32_t, uint32_t, uint32_t>>;

class AnnounceTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override {
    for (int fd : fds_) zor_close(fd);
    vdev::resetForTest();
  }
  static void setAnnounce(bool on) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    d.model.announce = on;
  }
  int joined(uint32_t group) {
    const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
    uint8_t addr[12] = {};
    be::store16(addr, 0, ZOR_AF_ROUTE);
    EXPECT_EQ(zor_bind(fd, addr, sizeof addr), 0);
    uint8_t v[4];
    be::store32(v, group);
    EXPECT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, v, 4), 0);
    fds_.push_back(fd);
    return fd;
  }
  // Every read waiting on fd, walked into messages; sizes collects each read's length.
  static Seen drain(int fd, std::vector<size_t>* sizes = nullptr) {
    Seen seen;
    for (;;) {
      fd_set rd;
      FD_ZERO(&rd);
      FD_SET(fd, &rd);
      timeval tv{0, 50000};
      if (zor_select(fd + 1, &rd, nullptr, nullptr, &tv) != 1) return seen;
      std::vector<uint8_t> buf(8192);
      const int n = zor_recv(fd, buf.data(), buf.size(), 0);
      if (n <= 0) return seen;
      if (sizes) sizes->push_back(static_cast<size_t>(n));
      for (size_t off = 0; off + 24 <= static_cast<size_t>(n);) {
        const uint32_t len = be::load32(buf, off);
        const uint16_t type = be::load16(buf, off + 4);
        seen.emplace_back(type, be::load32(buf, off + 24), be::load32(buf, off + 28),
                          type == vdev::kMsgCardUp ? be::load32(buf, off + 36) : 0);
        if (type == vdev::kMsgCardUp) {
          EXPECT_EQ(buf[off + 72], 0);  // kind: up
        }
        off += (len + 3) & ~3u;
      }
    }
  }

  test::TempRunDir runDir;
  std::vector<int> fds_;
};

TEST_F(AnnounceTest, JoiningReplaysEveryCardAndACardInsertedLaterFollows) {
  setAnnounce(true);
  const int fd = joined(vdev::kChassisGroup);
  const Seen builtin = {{108, 1, 1, 0}, {101, 1, 1, 1}, {108, 1, 2, 0}, {101, 1, 2, 2},
                        {108, 1, 3, 0}, {101, 1, 3, 2}, {108, 1, 4, 0}, {101, 1, 4, 3}};
  EXPECT_EQ(drain(fd), builtin);
  EXPECT_TRUE(drain(joined(1)).empty()) << "another group hears nothing";

  const json ok = {{"ok", true}};
  EXPECT_EQ(vdev::handleRequest(
                {{"op", "card.set"}, {"system", 1}, {"slot", 5}, {"card", {{"type", 9}}}}),
            ok);
  EXPECT_EQ(drain(fd), (Seen{{108, 1, 5, 0}, {101, 1, 5, 9}}));
  // Changing a seated card, or pulling it, brings nothing up.
  EXPECT_EQ(vdev::handleRequest(
                {{"op", "card.set"}, {"system", 1}, {"slot", 5}, {"card", {{"name", "x"}}}}),
            ok);
  EXPECT_EQ(vdev::handleRequest({{"op", "card.set"}, {"system", 1}, {"slot", 5}}), ok);
  EXPECT_TRUE(drain(fd).empty());

  setAnnounce(false);
  EXPECT_TRUE(drain(joined(vdev::kChassisGroup)).empty());
}

TEST_F(AnnounceTest, ALargeChassisIsPackedIntoFewWholeReads) {
  setAnnounce(true);
  {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    for (uint32_t s = 5; s <= 60; ++s) {
      d.model.slots[{2, s}].card = vdev::Card{};
      d.model.slots[{2, s}].card->type = 2;
    }
  }
  std::vector<size_t> sizes;
  const Seen seen = drain(joined(vdev::kChassisGroup), &sizes);
  EXPECT_EQ(seen.size(), 2u * (4 + 56));
  ASSERT_GE(sizes.size(), 2u);
  for (size_t n : sizes) EXPECT_LE(n, vdev::kRouteReadMax);
  EXPECT_EQ(seen.back(), (std::tuple<uint16_t, uint32_t, uint32_t, uint32_t>{101, 2, 60, 2}));
}

}  // namespace
