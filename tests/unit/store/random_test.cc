// Long random sequences of list and rule creations and deletions, with the store's invariants
// checked after every step.
#include <gtest/gtest.h>

#include <iterator>
#include <random>

#include "store_fixture.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace storetest {
namespace {

class RandomStore : public StoreTest {
 protected:
  // The rule-count pair of a list number's type: types 1 to 5, then 8; -1 for none.
  static int typeColumn(uint32_t lstIdx) {
    static constexpr int kColumn[] = {-1, 0, 1, 2, 3, 4, -1, -1, 5};
    const uint32_t type = aclListTypeGetByIndex(lstIdx);
    return type < std::size(kColumn) ? kColumn[type] : -1;
  }

  void checkInvariants(int step) {
    SCOPED_TRACE(step);
    uint32_t lists = 0;
    uint32_t perType[6] = {};
    uint32_t rules = 0;
    for (auto* l = static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree)); l != nullptr;
         l = static_cast<AclListEntry*>(avl_next(&gaclGrp.listTree, l))) {
      ++lists;
      ASSERT_EQ(l->status, 1);
      ASSERT_EQ(l->ruleNum, avl_numnodes(&l->ruleTree));
      ASSERT_LE(l->ruleNum, gaclGrp.maxLstRuleNum);
      uint32_t prev = 0;
      for (auto* r = static_cast<AclRuleEntry*>(avl_first(&l->ruleTree)); r != nullptr;
           r = static_cast<AclRuleEntry*>(avl_next(&l->ruleTree, r))) {
        ASSERT_GT(r->ruleIdx, prev);
        ASSERT_EQ(r->lstIdx, l->lstIdx);
        prev = r->ruleIdx;
      }
      rules += l->ruleNum;
      if (typeColumn(l->lstIdx) >= 0) perType[typeColumn(l->lstIdx)] += l->ruleNum;
    }
    ASSERT_EQ(gaclGrp.curLstNum, lists);
    ASSERT_EQ(used(gaclGrp.listPool), lists);
    ASSERT_EQ(used(gaclGrp.rulePool), rules);
    for (int c = 0; c < 6; ++c) {
      ASSERT_EQ(gaclGrp.ruleNum[c].cur, perType[c]) << "type column " << c;
      ASSERT_LE(gaclGrp.ruleNum[c].cur, gaclGrp.ruleNum[c].max);
    }
  }

  // Gives the rule a few values and actions of both lengths.
  static void fill(AclRuleEntry* r, std::mt19937& rng) {
    uint8_t bytes[16];
    for (auto& b : bytes) b = static_cast<uint8_t>(rng());
    const int n = static_cast<int>(rng() % 4);
    for (int i = 0; i < n; ++i) {
      const uint32_t len = 1 + rng() % 16;
      const auto code = static_cast<uint8_t>(rng() % 80);
      const int32_t ret = rng() % 2 ? aclRuleShortEntryAdd(r, code, bytes, len)
                                    : aclShortActionEntryAdd(r, code, code % 44, bytes, len);
      // Pools may run out; anything else is a fault.
      ASSERT_TRUE(ret == 0 || ret == CMN_ERR_NO_RESOURCE) << ret;
    }
  }
};

TEST_F(RandomStore, InvariantsHoldThroughLongSequences) {
  start({{"acl.maxlstnum", "8"},
         {"acl.maxrulenum", "10"},
         {"acl.maxgrulenum", "40"},
         {"acl.maxl2rulenum", "15"},
         {"acl.maxipv6rulenum", "6"}});
  std::mt19937 rng(20261122);
  // A few numbers in every range, the edges and numbers without a type.
  const uint32_t numbers[] = {1,    1000, 1001, 2000, 2001, 3000, 3001,
                              4000, 4001, 5000, 5001, 6000, 6001, 7};
  int rulesMade = 0, rulesRefused = 0, listsFull = 0;
  for (int step = 0; step < 20000; ++step) {
    const uint32_t lstIdx = numbers[rng() % std::size(numbers)];
    AclListEntry* l = aclListEntryGet(lstIdx);
    switch (rng() % 8) {
      case 0:
        if (l == nullptr && aclListEntryAdd(lstIdx) == nullptr) ++listsFull;
        break;
      case 1:
        if (l != nullptr) {
          ASSERT_EQ(aclListEntryDel(l), 0);
        }
        break;
      case 2:
      case 3:
      case 4: {
        uint32_t ruleIdx = 1 + rng() % 12;
        if (rng() % 2 && aclRuleGetFree(lstIdx, &ruleIdx) != 0) break;
        if (AclRuleEntry* r = aclRuleEntryAdd(lstIdx, ruleIdx)) {
          ++rulesMade;
          ASSERT_NO_FATAL_FAILURE(fill(r, rng));
        } else {
          ++rulesRefused;
        }
        break;
      }
      default:
        if (AclRuleEntry* r = aclRuleEntryGetByIndex(lstIdx, 1 + rng() % 12)) {
          ASSERT_EQ(aclRuleEntryDel(r), 0);
        }
        break;
    }
    ASSERT_NO_FATAL_FAILURE(checkInvariants(step));
  }
  // The sequence reached the limits it is meant to exercise.
  EXPECT_GT(rulesMade, 2000);
  EXPECT_GT(rulesRefused, 100);
  EXPECT_GT(listsFull, 0);
  while (auto* l = static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree))) {
    ASSERT_EQ(aclListEntryDel(l), 0);
  }
  checkInvariants(-1);
  for (SIL_POOL_ID p : {gaclGrp.listPool, gaclGrp.rulePool, gaclGrp.shortRulePool,
                        gaclGrp.longRulePool, gaclGrp.shortActionPool, gaclGrp.longActionPool}) {
    EXPECT_EQ(used(p), 0u);
  }
}

}  // namespace
}  // namespace storetest
