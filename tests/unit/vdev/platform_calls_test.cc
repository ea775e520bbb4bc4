// The interface manager, card and slot queries, time ranges, mirror groups, neighbours and
// announcements as the ACL module calls them, on the built-in device. The counters are read and
// cleared through the statistics tests.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "platform/mirror.h"
#include "platform/netlink.h"
#include "platform/rtbus.h"
#include "platform/timerange.h"
#include "platform/vdev/locked.h"
#include "platform/vdev/model.h"
#include "platform/vdev/vdev.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr int32_t kNotFound = 0x03E80002;

class PlatformCallsTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override { vdev::resetForTest(); }
};

TEST_F(PlatformCallsTest, InterfaceFlagsNamesAndRegistration) {
  vdev::device().model.interfaces[205].flags10 = 0x400;
  // (unit, field, answer, word read)
  for (auto [unit, field, ret, want] : {std::tuple{205u, ZOR_IF_FIELD_FLAGS10, 0, 0x400u},
                                        {205u, ZOR_IF_FIELD_FLAGS13, 0, 0u},
                                        {9999u, ZOR_IF_FIELD_FLAGS13, kNotFound, 0u}}) {
    uint8_t w[4] = {};
    EXPECT_EQ(zorIfGetApi(unit, field, w), ret) << unit;
    EXPECT_EQ(be::load32(w), want) << unit;
  }
  // (unit, buffer size, answer, name): a name is cut to its buffer.
  for (auto [unit, size, ret, want] :
       {std::tuple{305u, 64u, 0, "ge-1/3/5"}, {305u, 5u, 0, "ge-1"}, {9999u, 64u, kNotFound, ""}}) {
    char name[64];
    EXPECT_EQ(zorIfUnit2Name(unit, name, size), ret);
    EXPECT_STREQ(name, want);
  }

  uint8_t p[8] = {};
  be::store32(p, 165);
  ASSERT_EQ(zorIfSetApi(201, ZOR_IF_PROTO_ENABLE, p), 0);
  ASSERT_EQ(zorIfSetApi(201, ZOR_IF_PROTO_ENABLE, p), 0);  // registering twice is one registration
  ASSERT_EQ(zorIfSetApi(201, ZOR_IF_IGNORE_ENABLE, p), 0);
  auto& i = vdev::device().model.interfaces.at(201);
  using Ids = std::vector<uint32_t>;
  EXPECT_EQ(std::make_pair(i.protocols, i.ignoring), std::make_pair(Ids{165}, Ids{165}));
  ASSERT_EQ(zorIfSetApi(201, ZOR_IF_PROTO_DISABLE, p), 0);
  ASSERT_EQ(zorIfSetApi(201, ZOR_IF_IGNORE_DISABLE, p), 0);
  EXPECT_EQ(std::make_pair(i.protocols, i.ignoring), std::make_pair(Ids{}, Ids{}));
}

TEST_F(PlatformCallsTest, AggregationModeAndMembers) {
  auto& agg = vdev::device().model.interfaces.at(1001);
  agg.modes[HWIL_CMD_IF_DEL] = 1;
  for (auto [cmd, want] : {std::pair{HWIL_CMD_IF_ADD, agg.defaultMode}, {HWIL_CMD_IF_DEL, 1}}) {
    uint8_t q[20] = {};
    be::store32(q, cmd);
    q[8] = 7;
    ASSERT_EQ(zorIfGetApi(1001, ZOR_IF_FIELD_AGG_MODE, q), 0);
    EXPECT_EQ(q[8], want) << cmd;
    EXPECT_NE(zorIfGetApi(201, ZOR_IF_FIELD_AGG_MODE, q), 0);  // a port has no mode
  }

  // The members as words; a short buffer gets the members that fit.
  const auto members = [](uint32_t unit, uint32_t cap) {
    Bytes buf(cap);
    ZorBufDesc d{buf.data(), cap};
    const int32_t ret = zorEthAggIfGetApi(unit, ZOR_AGG_MEMBERS, &d);
    std::vector<uint32_t> out;
    for (uint32_t at = 0; ret == 0 && at + 4 <= d.len; at += 4) out.push_back(be::load32(buf, at));
    return std::make_pair(ret, out);
  };
  EXPECT_EQ(members(1001, 512), std::make_pair(0, agg.members));
  EXPECT_EQ(members(1001, 6), std::make_pair(0, std::vector<uint32_t>{agg.members[0]}));
  EXPECT_EQ(members(201, 512), std::make_pair(kNotFound, std::vector<uint32_t>{}));
}

TEST_F(PlatformCallsTest, CardAndSlotQueries) {
  uint8_t key[16] = {};
  be::store32(std::span<uint8_t>(key), 0, 1);
  be::store32(std::span<uint8_t>(key), 4, 2);
  EXPECT_EQ(std::make_tuple(zorHwilCardGet(key, vdev::CARD_PROP_NOT_READY, nullptr) != 0,
                            zorHwilCardGet(key, vdev::CARD_PROP_READY, nullptr),
                            zorHwilSlotGet(key, vdev::SLOT_PROP_NOT_READY, nullptr) != 0,
                            zorHwilSlotGet(key, vdev::SLOT_PROP_READY, nullptr)),
            std::make_tuple(true, 0, true, 0));

  // Card options and resources as the daemon reads them are shown end to end; here the edge:
  // whole 20-byte resource records only.
  Bytes res(50, 0);
  ZorBufDesc r{res.data(), 50};
  ASSERT_EQ(zorHwilSlotGet(key, HWIL_SLOT_RESOURCE_QUERY, &r), 0);
  EXPECT_EQ(r.len, 40u);

  be::store32(std::span<uint8_t>(key), 4, 9);  // empty slot
  EXPECT_EQ(zorHwilCardGet(key, vdev::CARD_PROP_READY, nullptr), kNotFound);
}

TEST_F(PlatformCallsTest, TimeRangesAndMirrorGroupsCountUsers) {
  // (time range, answer, state)
  for (auto [id, ret, want] : {std::tuple{1u, 0, 1u}, {2u, 0, 0u}, {77u, kNotFound, 0xEEEEEEEEu}}) {
    uint8_t v[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    EXPECT_EQ(timerangeListGetApi(id, TIMERANGE_ATTR_STATE, v), ret) << id;
    EXPECT_EQ(be::load32(v), want) << id;
  }
  // Take, take, release; then a release without a take is an anomaly.
  for (auto [id, delta] : {std::pair{1u, 1}, {1u, 1}, {1u, -1}, {2u, -1}}) {
    uint8_t v[4];
    be::store32(v, static_cast<uint32_t>(delta));
    ASSERT_EQ(timerangeListSetApi(id, TIMERANGE_ATTR_REFCNT, v), 0);
  }
  EXPECT_EQ(std::make_pair(vdev::device().model.timeRanges.at(1).refCount,
                           vdev::device().journal.anomalies.size()),
            std::make_pair(1, size_t{1}));

  ASSERT_EQ(mirrorRefCount(3, 165, 1), 0);
  ASSERT_EQ(mirrorRefCount(3, 165, 1), 0);
  ASSERT_EQ(mirrorRefCount(3, 165, -1), 0);
  EXPECT_EQ(vdev::device().model.mirrors.at(3).refCounts.at(165), 1);
  EXPECT_EQ(mirrorRefCount(99, 165, 1), kNotFound);
}

TEST_F(PlatformCallsTest, NeighbourQueryAndDetectList) {
  // Request and answer in one buffer, as the caller lays it out.
  Bytes buf(1024, 0);
  be::store32(buf, 0, 0);
  be::store8(buf, 4, 1);
  const uint8_t known[4] = {192, 0, 2, 1};
  std::memcpy(&buf[5], known, 4);
  ZorBufDesc in{buf.data(), 4 + 9};
  ZorBufDesc out{buf.data(), 1024};
  for (auto [last, known] : {std::pair{1, true}, {99, false}}) {  // 192.0.2.99 is not known
    buf[8] = static_cast<uint8_t>(last);
    buf[13] = 0;
    ASSERT_EQ(zorIndexTrans(reinterpret_cast<uintptr_t>(&in), ZOR_TRANS_NEIGHBOUR, &out), 0);
    EXPECT_EQ(buf[13] != 0, known) << last;
  }

  Bytes rec(28, 0);
  rec[0] = 1;
  rec[1] = 2;
  rec[2] = 2;
  be::store32(rec, 4, 5);
  rec[12] = 0x20;
  ZorBufDesc d{rec.data(), 28};
  ASSERT_EQ(hrdScalarSetApi(0, 6, &d), 0);
  ASSERT_EQ(hrdScalarSetApi(0, 6, &d), 0);
  ASSERT_EQ(vdev::device().model.detectList.size(), 1u);
  EXPECT_EQ(vdev::device().model.detectList[0].vrf, 5u) << "added once";
  rec[0] = 0;
  ASSERT_EQ(hrdScalarSetApi(0, 6, &d), 0);
  EXPECT_TRUE(vdev::device().model.detectList.empty());
  ZorBufDesc shortRec{rec.data(), 20};  // an IPv6 record needs 28 bytes
  EXPECT_EQ(hrdScalarSetApi(0, 6, &shortRec), 0x03E8001A);
}

TEST_F(PlatformCallsTest, AnnouncementsAreKeptInOrderAndGoOnTheBus) {
  test::TempRunDir dir;
  const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
  ASSERT_GE(fd, 0);
  uint8_t addr[12] = {};
  be::store16(std::span<uint8_t>(addr), 0, ZOR_AF_ROUTE);
  ASSERT_EQ(zor_bind(fd, addr, sizeof addr), 0);
  uint8_t group[4];
  be::store32(group, 56);
  ASSERT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, group, 4), 0);

  Bytes m(32, 0);
  be::store32(m, 0, 32);
  be::store32(m, 24, 2001);
  for (uint16_t event : {247, 248}) {
    be::store16(m, 4, event);
    ASSERT_EQ(zorNetlinkSGrpSend(56, 0, m.data(), 32), 0);
  }
  const auto& a = vdev::device().journal.announcements;
  ASSERT_EQ(a.size(), 2u);
  for (size_t n = 0; n < 2; ++n) {
    EXPECT_EQ(a[n].group, 56u);
    uint8_t got[64];
    ASSERT_EQ(zor_recv(fd, got, sizeof got, MSG_DONTWAIT), 32);
    EXPECT_EQ(Bytes(got, got + 32), a[n].bytes);
    EXPECT_EQ(be::load16(a[n].bytes, 4), 247 + n);
  }
  EXPECT_EQ(plat::busSend(56, m), 1) << "one socket joined the group";
  EXPECT_EQ(plat::busSend(99, m), 0) << "nobody joined this one";
  zor_close(fd);
  EXPECT_EQ(plat::busSend(56, m), 0) << "a closed socket leaves the bus";
}

// Locations are answered from a per-thread cache: every edit of the model, however it is made,
// shows in the next answer, and a cached answer is never another unit's.
TEST_F(PlatformCallsTest, LocationFollowsEveryModelEdit) {
  const auto location = [](uint32_t unit) {
    Bytes b(32);
    const int ret = zorIndexTrans(unit, ZOR_TRANS_LOCATION, b.data());
    return ret == 0 ? b : Bytes{};
  };
  const auto underLock = [](const std::function<void(vdev::Model&)>& fn) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    fn(d.model);
  };
  struct Case {
    const char* name;
    uint32_t unit;
    std::function<void()> edit;
    uint32_t slot;  // the slot word the next answer holds; 0: no answer
  };
  const Case cases[] = {
      {"moved under the mutex", 301,
       [&] { underLock([](vdev::Model& m) { m.interfaces.at(301).location[ZOR_LOC_SLOT] = 7; }); },
       7},
      {"moved through modelEdit", 301,
       [] {
         vdev::modelEdit([](vdev::Model& m) { m.interfaces.at(301).location[ZOR_LOC_SLOT] = 8; });
       },
       8},
      {"moved by another thread", 301,
       [&] {
         std::thread t([&] {
           underLock([](vdev::Model& m) { m.interfaces.at(301).location[ZOR_LOC_SLOT] = 9; });
         });
         t.join();
       },
       9},
      {"removed", 301, [&] { underLock([](vdev::Model& m) { m.interfaces.erase(301); }); }, 0},
      // 201 and 305 share a place in the cache.
      {"another unit asked", 305, [&] { location(201); }, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    vdev::resetForTest();
    ASSERT_FALSE(location(c.unit).empty());
    ASSERT_FALSE(location(c.unit).empty());  // the second answer comes from the cache
    c.edit();
    const Bytes got = location(c.unit);
    if (c.slot == 0) {
      EXPECT_TRUE(got.empty());
      continue;
    }
    ASSERT_FALSE(got.empty());
    EXPECT_EQ(be::load32(got.data() + 4 * ZOR_LOC_SLOT), c.slot);
    EXPECT_EQ(be::load32(got.data() + 4 * ZOR_LOC_PORT), c.unit % 100);
  }
}

// A thread that keeps asking while another moves the interface sees the old or the new place,
// and the new one once the move is known to have happened.
TEST_F(PlatformCallsTest, LocationLookupsRaceWithAMove) {
  std::atomic<bool> moved{false};
  std::thread mover([&] {
    vdev::modelEdit([](vdev::Model& m) { m.interfaces.at(301).location[ZOR_LOC_SLOT] = 7; });
    moved.store(true, std::memory_order_release);
  });
  uint8_t b[32];
  bool done = false;
  while (!done) {
    done = moved.load(std::memory_order_acquire);
    ASSERT_EQ(zorIndexTrans(301, ZOR_TRANS_LOCATION, b), 0);
    const uint32_t slot = be::load32(b + 4 * ZOR_LOC_SLOT);
    ASSERT_TRUE(slot == 3 || slot == 7) << slot;
    if (done) {
      EXPECT_EQ(slot, 7u);
    }
  }
  mover.join();
}

TEST_F(PlatformCallsTest, EveryCallAsksTheFaultTable) {
  plat::faultAdd({.result = 0x77, .count = -1});  // every call fails
  uint8_t b[64] = {};
  ZorBufDesc d{b, 64};
  uint8_t counterReq[88] = {};  // a counter request is always 88 bytes
  ZorScalarReq s{ZOR_SCALAR_STATS_READ, counterReq, 1, 0, 0, 0};
  const std::vector<int32_t> answers{zorIndexTrans(201, ZOR_TRANS_LOCATION, b),
                                     zorIfGetApi(201, ZOR_IF_FIELD_FLAGS13, b),
                                     zorIfSetApi(201, ZOR_IF_PROTO_ENABLE, b),
                                     zorIfUnit2Name(201, reinterpret_cast<char*>(b), 64),
                                     zorEthAggIfGetApi(1001, ZOR_AGG_MEMBERS, &d),
                                     zorHwilCardGet(b, 1, nullptr),
                                     zorHwilSlotGet(b, 1, nullptr),
                                     zorHwilSlotSet(b, 1, b, 0),
                                     zorCardUpPcsSet(b, 165),
                                     zorHwilScalarGet(0, 46, b, 0),
                                     zorHwilScalarSet(0, 46, b, 0),
                                     zorScalarGetApi(0, 0, &s),
                                     zorScalarSetApi(0, 0, &s),
                                     hrdScalarSetApi(0, 6, &d),
                                     timerangeListGetApi(1, 11, b),
                                     timerangeListSetApi(1, 4, b),
                                     mirrorRefCount(1, 165, 1),
                                     zorNetlinkSGrpSend(56, 0, b, 32)};
  EXPECT_EQ(answers, std::vector<int32_t>(answers.size(), 0x77));
  EXPECT_TRUE(vdev::device().journal.announcements.empty());
}

}  // namespace
