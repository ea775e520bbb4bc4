// The rule statistics table (function ids 21 to 25) called as the command server calls it: the
// 28-byte big-endian index by address, descriptors and value words.
#include <array>

#include "api/acl_relay.h"
#include "api/acl_stats_api.h"
#include "platform/fault.h"
#include "unit/stats/stats_fixture.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using statstest::Key;
using statstest::StatsTest;

constexpr uint8_t kByList = 0x80, kByRule = 0x40, kByDir = 0x10;

struct Index {
  std::array<uint8_t, ACL_STATS_INDEX_LEN> b{};
  Index(uint32_t lst = 0, uint32_t rule = 0, uint16_t dir = 0, uint8_t filter = 0) {
    be::store32(b, 0, lst);
    be::store32(b, 4, rule);
    be::store16(b, 22, dir);
    b[24] = filter;
  }
  uintptr_t addr() { return reinterpret_cast<uintptr_t>(b.data()); }
  Key key() const {
    return {static_cast<int16_t>(be::load16(b, 22)), be::load32(b, 0), be::load32(b, 4)};
  }
};

class StatsApiTest : public StatsTest {
 protected:
  // Every record the walk returns for this filter, following GetNext to its end code.
  static std::vector<Key> walk(Index first, int32_t* end = nullptr) {
    std::vector<Key> keys;
    int32_t ret = aclStatsGetFirst(first.addr(), 0, 0);
    Index cur = first;
    while (ret == 0 && keys.size() < 100) {
      keys.push_back(cur.key());
      Index next(0xEEEE, 0xEEEE, 0xEEEE, 0);
      ret = aclStatsGetNext(cur.addr(), next.addr(), 0);
      if (ret == 0) {
        EXPECT_EQ(next.b[24], first.b[24]) << "filter bytes travel on";
      }
      cur = next;
    }
    if (end) *end = ret;
    return keys;
  }
  // Counter 12 of type 2 and color 1 (set 1 for both kinds) on rule lst/rule, and its record.
  AclStatsEntry* readable(uint32_t lst, uint32_t rule, int8_t dir) {
    countedRule(lst, rule, 12, 2, 1);
    return added(lst, rule, dir);
  }
};

TEST_F(StatsApiTest, WalksFollowKeyOrderAndFilterBits) {
  Index probe;
  EXPECT_EQ(aclStatsGetFirst(probe.addr(), 0, 0), CMN_ERR_NOT_FOUND);
  // (list, rule, direction) triples.
  const uint32_t keys[] = {3, 7, 0, 1, 1, 1, 3, 5, 0, 7, 4, 1, 7, 2, 1, 7, 1, 0, 9, 2, 1};
  for (size_t i = 0; i < std::size(keys); i += 3) added(keys[i], keys[i + 1], int8_t(keys[i + 2]));
  int32_t end = 0;
  EXPECT_EQ(walk(Index()),
            (std::vector<Key>{
                {0, 3, 5}, {0, 3, 7}, {0, 7, 1}, {1, 1, 1}, {1, 7, 2}, {1, 7, 4}, {1, 9, 2}}));
  EXPECT_EQ(walk(Index(7, 0, 1, kByList | kByDir), &end), (std::vector<Key>{{1, 7, 2}, {1, 7, 4}}));
  EXPECT_EQ(end, CMN_ERR_NOT_FOUND);
  EXPECT_EQ(walk(Index(0, 2, 0, kByRule)), (std::vector<Key>{{1, 7, 2}, {1, 9, 2}}));
  EXPECT_EQ(walk(Index(0, 0, 1, kByDir)).size(), 4u);
  // The filter bits are numbered from the top of byte 24; the other bytes carry none of them.
  Index low(8, 0, 0, 0x01);
  EXPECT_EQ(walk(low).size(), 7u);
  Index none(8, 0, 0, kByList);
  EXPECT_EQ(aclStatsGetFirst(none.addr(), 0, 0), CMN_ERR_NOT_FOUND);

  // GetNext from a key that has gone continues with the next greater one.
  ASSERT_EQ(aclStatsDel(index(7, 1, 0)), 0);
  Index gone(7, 1, 0), next;
  ASSERT_EQ(aclStatsGetNext(gone.addr(), next.addr(), 0), 0);
  EXPECT_EQ(next.key(), (Key{1, 1, 1}));
}

TEST_F(StatsApiTest, GetRefusals) {
  AclStatsEntry* e = added(1001, 5, 0);
  test::Desc d(64);
  Index missing(1001, 5, 1), k(1001, 5, 0);
  EXPECT_EQ(aclStatsGetApi(missing.addr(), 1, d.addr()), ACL_ERR_STATS_NOT_EXIST);
  EXPECT_EQ(aclStatsGetApi(k.addr(), 2, d.addr()), -1);
  EXPECT_EQ(aclStatsGetApi(k.addr(), 1, 0), CMN_ERR_BAD_PARAM);
  test::Desc shortDesc(32);
  EXPECT_EQ(aclStatsGetApi(k.addr(), 1, shortDesc.addr()), ACL_RET_INVALID);
  EXPECT_EQ(shortDesc.desc.len, 32u);
  // A rule that has gone is reported before the platform is asked.
  EXPECT_EQ(aclStatsGetApi(k.addr(), 1, d.addr()), CMN_ERR_NOT_FOUND);
  EXPECT_TRUE(counterRequests().empty());
  // A failing platform read is returned and writes no answer.
  countedRule(1001, 5, 12, 0, 4);
  plat::faultAdd({.call = "zorScalarGetApi", .cmd = 215, .result = 0x0BAD});
  d.data.assign(64, 0xEE);
  EXPECT_EQ(aclStatsGetApi(k.addr(), 1, d.addr()), 0x0BAD);
  // No answer written; the selected p2 came back as sent.
  EXPECT_EQ(std::make_tuple(d.data[0], e->p2), std::make_tuple(0xEE, 1u));
}

TEST_F(StatsApiTest, ClearOneRelaysThenClears) {
  readable(1001, 5, 1);
  deviceCounters(1001, 5, 1, {1, 2, 3, 4, 5, 6, 7, 8});
  Index k(1001, 5, 1);
  const uint32_t relayId =
      plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x0AC08002, .result = 0x77});
  EXPECT_EQ(test::callValue(aclStatsSetApi, k.addr(), 2, 0), 0x77);
  EXPECT_TRUE(deviceHolds(1001, 5, 1)) << "a refused relay clears nothing";
  plat::faultRemove(relayId);

  ASSERT_EQ(test::callValue(aclStatsSyncApi, k.addr(), 2, 5), 0);
  EXPECT_FALSE(deviceHolds(1001, 5, 1));
  // The sync mode without a key flag, a 28-byte key and a 4-byte word.
  const auto r = vdev::journalCopy().relays.back();
  EXPECT_EQ(std::make_tuple(r.cmd, r.keyBytes, be::load32(r.options, 0), be::load32(r.options, 4),
                            be::load32(r.options, 16), r.data),
            std::make_tuple(0x0AC08002u, std::vector<uint8_t>(k.b.begin(), k.b.end()),
                            uint32_t(ACL_MODE_SYNC), 28u, 4u, std::vector<uint8_t>{0, 0, 0, 5}));

  EXPECT_EQ(test::callValue(aclStatsSetApi, k.addr(), 3, 0), -1);
  EXPECT_EQ(vdev::journalCopy().relays.back().seq, r.seq) << "an unknown command is not relayed";
}

TEST_F(StatsApiTest, ClearAllStopsAtTheFirstFailure) {
  for (uint32_t rule : {1u, 2u, 3u}) {
    added(1001, rule, 0);
    deviceCounters(1001, rule, 0, {1, 1, 1, 1, 1, 1, 1, 1});
  }
  plat::faultAdd({.call = "zorScalarSetApi", .cmd = 216, .rule = 2, .result = 0x99});
  Index all;
  const auto held = [] {
    return std::vector<bool>{deviceHolds(1001, 1, 0), deviceHolds(1001, 2, 0),
                             deviceHolds(1001, 3, 0)};
  };
  EXPECT_EQ(test::callValue(aclStatsSetApi, all.addr(), 6, 0), 0x99);
  EXPECT_EQ(held(), (std::vector<bool>{false, true, true})) << "nothing after the failure cleared";
  const auto r = vdev::journalCopy().relays.back();
  EXPECT_EQ(std::make_tuple(r.cmd, be::load32(r.options, 0)),
            std::make_tuple(0x0AC08006u, uint32_t(ACL_MODE_SET)));
  EXPECT_EQ(test::callValue(aclStatsSetApi, all.addr(), 6, 0), 0);
  EXPECT_EQ(held(), std::vector<bool>(3, false));
}

TEST_F(StatsApiTest, BeforeStartUpEveryCallHasAnAnswer) {
  aclResetForTest();
  Index k(1001, 5, 0), next;
  test::Desc d(64);
  const std::vector<int32_t> answers{
      aclStatsGetFirst(k.addr(), 0, 0), aclStatsGetNext(k.addr(), next.addr(), 0),
      aclStatsGetApi(k.addr(), 1, d.addr()), test::callValue(aclStatsSetApi, k.addr(), 6, 0)};
  EXPECT_EQ(answers, (std::vector<int32_t>{CMN_ERR_NOT_FOUND, CMN_ERR_NOT_FOUND,
                                           ACL_ERR_STATS_NOT_EXIST, ACL_ERR_STATS_NOT_EXIST}));
}

}  // namespace
