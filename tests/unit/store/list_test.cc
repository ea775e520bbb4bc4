// Filter lists: numbering and types, creation, lookups, the rule room check, priorities,
// announcements and deletion with the references it releases.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "platform/fault.h"
#include "store_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace storetest {
namespace {

using ListTest = StoreTest;

TEST(ListNumbering, TypesAtEveryRangeEdge) {
  struct Case {
    uint32_t idx, type;
  };
  // Hybrid (4) comes before IPv6 (3) in the numbering.
  constexpr Case kCases[] = {{0, 0},    {1, 1},    {1000, 1}, {1001, 2}, {2000, 2},      {2001, 4},
                             {2500, 4}, {3000, 4}, {3001, 3}, {3500, 3}, {4000, 3},      {4001, 5},
                             {5000, 5}, {5001, 8}, {6000, 8}, {6001, 0}, {0xFFFFFFFF, 0}};
  for (const Case& c : kCases) EXPECT_EQ(aclListTypeGetByIndex(c.idx), c.type) << c.idx;
}

TEST(ListNumbering, BindTypesByDirectionAndColumn) {
  constexpr uint32_t kTypes[] = {1, 2, 3, 4, 5, 8};
  for (uint32_t dir = 0; dir < 3; ++dir) {
    for (int col = 0; col < 6; ++col) {
      EXPECT_EQ(aclBindType(kTypes[col], dir), static_cast<int32_t>(dir * 6 + col))
          << kTypes[col] << "," << dir;
    }
  }
  for (uint32_t type : {0u, 6u, 7u, 9u, 14u}) EXPECT_EQ(aclBindType(type, 0), 18) << type;
  EXPECT_EQ(aclBindType(1, 3), 18);
}

TEST_F(ListTest, CreationDefaultsCountAndAnnouncement) {
  AclListEntry* l = list(2001);
  ASSERT_NE(l, nullptr);
  // Number, free index, name, references, rules, priority, status, counter and meter sharing.
  EXPECT_EQ(std::make_tuple(l->lstIdx, l->freeIdx, std::string(l->name, l->nameLen), l->refCnt,
                            l->ruleNum, int(l->priority), int(l->status), int(l->counterShared),
                            int(l->meterShared)),
            std::make_tuple(2001u, 2001u, std::string("acl2001"), 0, 0u, 0, 1, 2, 2));
  EXPECT_EQ(
      std::make_tuple(gaclGrp.curLstNum, aclLookupByIndex(2001), aclLookupByIndex(2002), events()),
      std::make_tuple(1u, 0, -1, std::vector<Event>{{247, 2001, 0}}));
}

TEST_F(ListTest, NameLookupIsLengthExactAndCaseSensitive) {
  list(12);
  list(13);
  // acl1 is nobody's name.
  EXPECT_EQ((std::vector<AclListEntry*>{
                aclListEntryGetByName("acl12", 5), aclListEntryGetByName("acl12", 4),
                aclListEntryGetByName("ACL12", 5), aclListEntryGetByName("acl123", 6)}),
            (std::vector<AclListEntry*>{aclListEntryGet(12), nullptr, nullptr, nullptr}));
  // Two lists with the same name: the lower number is found first.
  AclListEntry* l13 = aclListEntryGet(13);
  std::memcpy(l13->name, "acl12", 5);
  l13->nameLen = 5;
  list(5);
  std::memcpy(aclListEntryGet(5)->name, "acl12", 5);
  aclListEntryGet(5)->nameLen = 5;
  EXPECT_EQ(aclListEntryGetByName("acl12", 5), aclListEntryGet(5));
}

TEST_F(ListTest, RoomCheckFollowsPerTypeMaxima) {
  start({{"acl.maxrulenum", "4"}, {"acl.maxipv4rulenum", "3"}});
  EXPECT_EQ((std::pair<uint32_t, uint32_t>(gaclGrp.ruleNum[0].max, gaclGrp.ruleNum[1].max)),
            std::make_pair(4u, 3u));
  AclListEntry* a = list(1001);
  AclListEntry* b = list(1500);
  ASSERT_TRUE(a && b);
  rule(1001, 1);
  rule(1001, 2);
  EXPECT_EQ(aclListRuleCheck(b), 0);
  rule(1500, 1);
  EXPECT_EQ(gaclGrp.ruleNum[1].cur, 3u);
  // The type is full: even a list without rules of that type is refused.
  AclListEntry* c = list(1999);
  EXPECT_EQ(std::make_tuple(aclListRuleCheck(a), aclListRuleCheck(c), aclRuleEntryAdd(1999, 1)),
            std::make_tuple(ACL_ERR_RULE_LIMIT, ACL_ERR_RULE_LIMIT, nullptr));
  EXPECT_EQ(gaclGrp.lastErr, static_cast<uint32_t>(ACL_ERR_RULE_LIMIT));
  // Other types are counted apart.
  AclListEntry* l2 = list(7);
  EXPECT_EQ(aclListRuleCheck(l2), 0);
  // One list's own count is bounded by the same maximum.
  for (uint32_t r = 1; r <= 4; ++r) rule(7, r);
  EXPECT_EQ(aclListRuleCheck(l2), ACL_ERR_RULE_LIMIT);
  EXPECT_EQ(gaclGrp.ruleNum[0].cur, 4u);
}

TEST_F(ListTest, RoomCheckEdgesAndCounts) {
  // Number 0 answers -1; a number without a type has room for nothing.
  AclListEntry* zero = list(0);
  AclListEntry* untyped = list(6001);
  EXPECT_EQ(
      std::make_tuple(aclListRuleCheck(zero), aclListRuleCheck(untyped), aclRuleEntryAdd(6001, 1)),
      std::make_tuple(-1, ACL_ERR_RULE_LIMIT, nullptr));
  // Counting never touches a pair for numbers without a type.
  aclListRuleCount(0, 1);
  aclListRuleCount(6001, 1);
  for (const AclRuleNum& p : gaclGrp.ruleNum) EXPECT_EQ(p.cur, 0u);
  aclListRuleCount(3001, 1);
  EXPECT_EQ(gaclGrp.ruleNum[2].cur, 1u) << "3001 is IPv6, the third pair";
  aclListRuleCount(3001, -1);
  aclListRuleCount(2001, 1);
  EXPECT_EQ(gaclGrp.ruleNum[3].cur, 1u) << "2001 is hybrid, the fourth pair";
}

TEST_F(ListTest, PrioritiesFollowPositions) {
  list(1);
  for (uint32_t r : {9u, 2u, 5u}) rule(1, r);
  const auto priorities = [] {
    std::vector<uint16_t> out;
    for (uint32_t r : {2u, 5u, 9u}) out.push_back(aclRuleEntryGetByIndex(1, r)->priority);
    return out;
  };
  aclListRulePrioritySet(aclListEntryGet(1), 100);
  EXPECT_EQ(priorities(), (std::vector<uint16_t>{101, 102, 103}));
  aclListRulePrioritySet(aclListEntryGet(1), 0xFFFF);  // 16-bit arithmetic wraps
  EXPECT_EQ(priorities(), (std::vector<uint16_t>{0, 1, 2}));
}

TEST_F(ListTest, RuleAnnouncementCarriesListAndRule) {
  aclRuleNotify(250, 2001, 7);
  aclListNotify(249, 2001);
  EXPECT_EQ(events(), (std::vector<Event>{{250, 2001, 7}, {249, 2001, 0}}));
  // A failed send changes nothing for the caller.
  plat::faultAdd({.call = "zorNetlinkSGrpSend", .result = -5});
  EXPECT_EQ(aclListNotify(248, 1), 0);
}

// A list whose rules hold every kind of outside reference.
class ListDelete : public StoreTest {
 protected:
  // References of meter 3, counter 4, mirror group 2, time ranges 1 and 2.
  static std::vector<int32_t> refs() {
    return {meterGetRefcount(3), counterGetRefcount(4), mirrorRefs(2), timeRangeRefs(1),
            timeRangeRefs(2)};
  }
  void SetUp() override {
    StoreTest::SetUp();
    validMeter(3);
    validCounter(4);
    l = list(1001);
    for (uint32_t r = 1; r <= 3; ++r) {
      AclRuleEntry* x = rule(1001, r);
      ASSERT_EQ(meterRefcount(3, 1), 0);
      x->meterId = 3;
      aclBitSet(x->fieldBits, RULE_BIT_METERID);
      ASSERT_EQ(counterRefcount(4, 1), 0);
      x->counterId = 4;
      aclBitSet(x->fieldBits, RULE_BIT_COUNTERID);
      uint8_t group[4];
      be::store32(group, 2);
      ASSERT_EQ(aclShortActionEntryAdd(x, RULE_ACTION_MIRROR_GROUP, 3, group, 4), 0);
      aclBitSet(x->actionBits, RULE_ACTION_MIRROR_GROUP);
      ASSERT_EQ(mirrorRefCount(2, ACL_MODULE_NUM, 1), 0);
      // Rules 1 and 3 follow time range 1, rule 2 time range 2.
      x->trIdx = r == 2 ? 2 : 1;
      aclBitSet(x->fieldBits, RULE_BIT_TRID);
      uint8_t one[4];
      be::store32(one, 1);
      ASSERT_EQ(timerangeListSetApi(x->trIdx, 4, one), 0);
    }
    uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(aclRuleLongEntryAdd(aclRuleEntryGetByIndex(1001, 1), RULE_BIT_SRCMAC, mac, 6), 0);
  }
  AclListEntry* l = nullptr;
};

TEST_F(ListDelete, ReleasesEveryReferenceAndAnnouncesLast) {
  ASSERT_EQ(refs(), (std::vector<int32_t>{3, 3, 3, 2, 1}));
  ASSERT_EQ(aclListEntryDel(l), 0);
  EXPECT_EQ(refs(), std::vector<int32_t>(5, 0));
  EXPECT_EQ(std::make_tuple(aclListEntryGet(1001), gaclGrp.curLstNum, gaclGrp.ruleNum[1].cur),
            std::make_tuple(nullptr, 0u, 0u));
  for (SIL_POOL_ID p :
       {gaclGrp.listPool, gaclGrp.rulePool, gaclGrp.shortActionPool, gaclGrp.longRulePool}) {
    EXPECT_EQ(used(p), 0u);
  }
  EXPECT_EQ(events(), (std::vector<Event>{{247, 1001, 0}, {248, 1001, 0}}));
  EXPECT_EQ(aclListEntryDel(nullptr), CMN_ERR_NOT_FOUND);
}

TEST_F(ListDelete, StopsAtAFailedTimeRangeUnbindAndCanBeRepeated) {
  plat::faultAdd({.call = "timerangeListSetApi", .unit = 2, .result = 0x3E80002});
  EXPECT_EQ(aclListEntryDel(l), 0x3E80002);
  // The list stays with all its rules and is not announced as gone.
  ASSERT_EQ(aclListEntryGet(1001), l);
  EXPECT_EQ(std::make_tuple(l->ruleNum, avl_numnodes(&l->ruleTree), gaclGrp.ruleNum[1].cur,
                            int(l->status), events().size()),
            std::make_tuple(3u, 3u, 3u, 1, 1u));
  // Rules 1 and 2 gave up meter, counter and mirror; only rule 1 left its time range.
  EXPECT_EQ(refs(), std::vector<int32_t>(5, 1));
  // Repeated, each reference is released exactly once.
  ASSERT_EQ(aclListEntryDel(l), 0);
  EXPECT_EQ(refs(), std::vector<int32_t>(5, 0));
  auto& d = vdev::device();
  std::lock_guard lock(d.mutex);
  EXPECT_TRUE(d.journal.anomalies.empty()) << "nothing released more often than taken";
}

}  // namespace
}  // namespace storetest
