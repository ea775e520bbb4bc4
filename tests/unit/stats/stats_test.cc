// Statistics records: list order and lookups, the pool, the counter selection and the counter
// requests as the device receives them.
#include <array>
#include <string>

#include "platform/fault.h"
#include "unit/stats/stats_fixture.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using statstest::Key;
using statstest::StatsTest;

// A counter request for the record lst/rule/dir with no counter selected.
std::vector<uint8_t> request(uint32_t lst, uint32_t rule, uint32_t dir) {
  std::vector<uint8_t> r(ACL_STATS_REQ_LEN, 0);
  be::store32(r, 0, lst);
  be::store32(r, 4, rule);
  be::store32(r, 12, dir);
  return r;
}

TEST_F(StatsTest, RecordsKeepKeyOrderAndRefuseDuplicates) {
  added(3, 7, 0);
  added(1, 1, 1);
  AclStatsEntry* first = added(3, 5, 0);
  added(3, 6, 1);
  added(2, 9, 0);
  EXPECT_EQ(ruleOrder(), (std::vector<Key>{{0, 2, 9}, {0, 3, 5}, {0, 3, 7}, {1, 1, 1}, {1, 3, 6}}));
  EXPECT_EQ(first->inList, 1);

  // A second record with an existing key is accepted without being linked; the caller keeps it.
  AclStatsEntry* dup = record(3, 5, 0);
  EXPECT_EQ(aclStatsAdd(dup), 0);
  EXPECT_EQ(std::make_tuple(int(dup->inList), ruleOrder().size(), aclStatsGetEntry(index(3, 5, 0))),
            std::make_tuple(0, 5u, first));
  EXPECT_EQ(aclStatsFree(dup), 0);

  // Removal unlinks and zeroes but does not free; a second removal finds nothing.
  const uint32_t inUse = used(gaclGrp.statsPool);
  EXPECT_EQ(aclStatsDel(index(3, 5, 0)), 0);
  EXPECT_EQ(std::make_tuple(first->lstIdx, int(first->inList), used(gaclGrp.statsPool)),
            std::make_tuple(0u, 0, inUse));
  EXPECT_EQ(aclStatsDel(index(3, 5, 0)), -1);
  EXPECT_EQ(aclStatsFree(first), 0);
  EXPECT_EQ(used(gaclGrp.statsPool), inUse - 1);
  EXPECT_EQ(ruleOrder(), (std::vector<Key>{{0, 2, 9}, {0, 3, 7}, {1, 1, 1}, {1, 3, 6}}));
}

TEST_F(StatsTest, DirectionNeverMatchesTheOtherDirection) {
  AclStatsEntry* in = added(3, 5, 0);
  EXPECT_EQ(std::make_tuple(aclStatsGetEntry(index(3, 5, 1)), aclStatsDel(index(3, 5, 1)),
                            aclStatsGetEntry(index(3, 5, 0))),
            std::make_tuple(nullptr, -1, in));
  // The index's u16 is sign-extended like the record's i8: 0xFFFF names direction -1.
  AclStatsEntry* odd = added(3, 5, -1);
  EXPECT_EQ(aclStatsGetEntry(index(3, 5, 0xFFFF)), odd);
  EXPECT_EQ(ruleOrder().front(), (Key{-1, 3, 5}));
}

TEST_F(StatsTest, InterfaceRecordsOrderByInterfaceToo) {
  for (uint32_t ifIndex : {205u, 201u, 203u}) ASSERT_EQ(aclIfStatsAdd(record(3, 5, 0, ifIndex)), 0);
  AclStatsEntry* dup = record(3, 5, 0, 201);
  EXPECT_EQ(aclIfStatsAdd(dup), 0);
  EXPECT_EQ(dup->inList, 0);
  aclStatsFree(dup);
  std::vector<uint32_t> ifs;
  for (SilDlNode* n = gaclGrp.ifStatsList.next; n != &gaclGrp.ifStatsList; n = n->next) {
    ifs.push_back(dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, ifNode))->ifIndex);
  }
  EXPECT_EQ(ifs, (std::vector<uint32_t>{201, 203, 205}));
  // Interface records are not rule statistics, and the interface is part of their key.
  EXPECT_EQ(aclStatsGetEntry(index(3, 5, 0)), nullptr);
  EXPECT_NE(aclIfStatsGetEntry(index(3, 5, 0, 203)), nullptr);
  EXPECT_EQ(aclIfStatsDel(index(3, 5, 0, 204)), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(aclIfStatsDel(index(3, 5, 1, 203)), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(aclIfStatsDel(index(3, 5, 0, 203)), 0);
  EXPECT_EQ(aclIfStatsGetEntry(index(3, 5, 0, 203)), nullptr);
}

// The selector words after a selection from a record whose low halves all held 7.
struct Selection {
  uint32_t color, type;
  uint32_t p1, b1, p2, b2;
};

TEST_F(StatsTest, CounterSelectionFollowsColorAndType) {
  constexpr uint64_t kHigh = 0xABCD000000000000ull;
  const Selection cases[] = {
      {1, 0, 1, 7, 7, 7}, {3, 1, 7, 1, 7, 7}, {1, 2, 1, 1, 7, 7}, {4, 0, 7, 7, 1, 7},
      {4, 1, 7, 7, 7, 1}, {4, 2, 7, 7, 1, 1}, {5, 0, 1, 0, 1, 0}, {6, 1, 0, 1, 0, 1},
      {7, 2, 1, 1, 1, 1}, {2, 2, 7, 7, 7, 7}, {8, 0, 7, 7, 7, 7}, {4, 3, 7, 7, 7, 7},
  };
  AclStatsEntry* e = added(1001, 5, 0);
  for (const Selection& c : cases) {
    countedRule(1001, 5, 12, c.type, c.color);
    e->p1 = e->b1 = e->p2 = e->b2 = kHigh | 7;
    ASSERT_EQ(aclStatsSetPktByte(e), 0);
    EXPECT_EQ((std::array{e->p1, e->b1, e->p2, e->b2}),
              (std::array{kHigh | c.p1, kHigh | c.b1, kHigh | c.p2, kHigh | c.b2}))
        << "color " << c.color << " type " << c.type;
  }
}

TEST_F(StatsTest, SelectionFailsForAMissingRuleOrCounter) {
  AclStatsEntry* e = added(1001, 5, 0);
  EXPECT_EQ(aclStatsSetPktByte(e), CMN_ERR_NOT_FOUND);
  list(1001);
  rule(1001, 5);  // exists now, but holds no counter
  EXPECT_EQ(aclStatsSetPktByte(e), ACL_ERR_COUNTER_GET);
  countedRule(1001, 5, 3, 0, 4);
  EXPECT_EQ(aclStatsSetPktByte(e), 0);
  // The counter going away makes it unreadable again.
  ASSERT_EQ(test::callValue(counterSetApi, 3, 2, 0), 0);
  ASSERT_EQ(test::callValue(counterSetApi, 3, 3, 4), 0);
  EXPECT_EQ(aclStatsSetPktByte(e), ACL_ERR_COUNTER_GET);
}

TEST_F(StatsTest, ReadSendsTheRequestInItsOwnOrderAndMapsTheAnswerBack) {
  AclStatsEntry* e = added(1001, 5, 1);
  e->p1 = 0x0000000100000001ull;
  e->b1 = 0x0000000200000000ull;
  e->p2 = 0x0000000300000001ull;
  e->b2 = 0x0000000400000001ull;
  e->p3 = 99;  // not sent
  deviceCounters(1001, 5, 1, {11, 12, 13, 14, 15, 16, 17, 18});
  ASSERT_EQ(aclStatsGet(e), 0);

  const auto reqs = counterRequests();
  ASSERT_EQ(reqs.size(), 1u);
  EXPECT_EQ(std::make_tuple(reqs[0].call, reqs[0].cmd, reqs[0].key),  // key: flag 1, length 0
            std::make_tuple("zorScalarGetApi", 215u, std::vector<uint32_t>{1, 0}));
  std::vector<uint8_t> want = request(1001, 5, 1);
  be::store64(want, 24, 0x0000000100000001ull);  // p1
  be::store64(want, 32, 0x0000000300000001ull);  // p2
  be::store64(want, 40, 0x0000000200000000ull);  // b1
  be::store64(want, 48, 0x0000000400000001ull);  // b2
  EXPECT_EQ(reqs[0].data, want);

  // The device answers in the request's order; the record keeps its own.
  EXPECT_EQ((std::array{e->p1, e->p2, e->b1, e->b2, e->p3, e->p4, e->b3, e->b4}),
            (std::array<uint64_t, 8>{11, 12, 13, 14, 15, 16, 17, 18}));
}

TEST_F(StatsTest, FailedReadStillOverwritesTheCounters) {
  AclStatsEntry* e = added(1001, 5, 0);
  e->p1 = 1;
  e->p3 = 500;
  deviceCounters(1001, 5, 0, {11, 12, 13, 14, 15, 16, 17, 18});
  plat::faultAdd({.call = "zorScalarGetApi", .cmd = 215, .result = 0x1234});
  EXPECT_EQ(aclStatsGet(e), 0x1234);
  // The request came back unanswered: the selector as sent, and zero for what was not sent.
  EXPECT_EQ((std::array{e->p1, e->p3, e->b4}), (std::array<uint64_t, 3>{1, 0, 0}));
}

TEST_F(StatsTest, ResetSendsOnlyTheIndexAndLeavesTheRecord) {
  AclStatsEntry* e = added(1001, 5, 1);
  e->p1 = 1;
  e->b2 = 77;
  deviceCounters(1001, 5, 1, {11, 12, 13, 14, 15, 16, 17, 18});
  ASSERT_EQ(aclStatsReset(e), 0);
  EXPECT_FALSE(deviceHolds(1001, 5, 1));
  EXPECT_EQ(e->b2, 77u) << "the record's copy waits for the next read";
  const auto reqs = counterRequests();
  ASSERT_EQ(reqs.size(), 1u);
  EXPECT_EQ(
      std::make_tuple(reqs[0].call, reqs[0].cmd, reqs[0].key, reqs[0].data),
      std::make_tuple("zorScalarSetApi", 216u, std::vector<uint32_t>{1, 0}, request(1001, 5, 1)));
  plat::faultAdd({.call = "zorScalarSetApi", .cmd = 216, .result = 0x4321});
  EXPECT_EQ(aclStatsReset(e), 0x4321);
}

TEST_F(StatsTest, InterfaceReadAndClearGoThroughTheInterface) {
  AclStatsEntry* e = record(1001, 5, 0, 203);
  ASSERT_EQ(aclIfStatsAdd(e), 0);
  deviceCounters(1001, 5, 0, {1, 2, 3, 4, 5, 6, 7, 8}, 203);
  deviceCounters(1001, 5, 0, {9, 9, 9, 9, 9, 9, 9, 9});  // the rule statistics of the same rule
  ASSERT_EQ(aclIfStatsGet(e), 0);
  EXPECT_EQ((std::array{e->p1, e->b1, e->b4}), (std::array<uint64_t, 3>{1, 3, 8}));
  ASSERT_EQ(aclIfStatsReset(e), 0);
  EXPECT_EQ(std::make_pair(deviceHolds(1001, 5, 0, 203), deviceHolds(1001, 5, 0)),
            std::make_pair(false, true));
}

}  // namespace
