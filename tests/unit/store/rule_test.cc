// Rules and global rules: creation, deletion, free rule numbers, the status check, the global rule
// table and the action attach.
#include <gtest/gtest.h>

#include <array>
#include <tuple>

#include "store_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace storetest {
namespace {

using RuleTest = StoreTest;

TEST_F(RuleTest, CreationSetsItsFieldsAndCounts) {
  list(2001);
  gaclGrp.lastErr = 77;
  AclRuleEntry* r = rule(2001, 5);
  ASSERT_NE(r, nullptr);
  auto state = [&] {
    return std::make_tuple(gaclGrp.lastErr, r->lstIdx, r->ruleIdx, int(r->status),
                           dlist::empty(&r->valueList), dlist::empty(&r->actionList),
                           aclListEntryGet(2001)->ruleNum, gaclGrp.ruleNum[3].cur);
  };
  const auto want =
      std::make_tuple(0u, 2001u, 5u, int(ACL_RULE_STATUS_CREATED), true, true, 1u, 1u);
  EXPECT_EQ(state(), want);
  // The same number again is the same rule, counted once.
  EXPECT_EQ(aclRuleEntryAdd(2001, 5), r);
  EXPECT_EQ(state(), want);
  EXPECT_EQ(
      std::make_pair(aclRuleEntryGetByIndex(2001, 5), aclRuleEntryGet(aclListEntryGet(2001), 5)),
      std::make_pair(r, r));
}

// The references a deleted rule gives back are the rule table's tests' business.
TEST_F(RuleTest, DeletionFreesEntries) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  uint8_t v6[16] = {0x20, 1};
  ASSERT_EQ(aclRuleLongEntryAdd(r, RULE_BIT_SRCADDR, v6, 16), 0);
  ASSERT_EQ(aclShortActionEntryAdd(r, 76, ACL_ACTION_NO_SLOT, nullptr, 0), 0);
  ASSERT_EQ(aclRuleEntryDel(r), 0);
  EXPECT_EQ(std::make_tuple(aclRuleEntryGetByIndex(1, 1), aclListEntryGet(1)->ruleNum,
                            gaclGrp.ruleNum[0].cur, used(gaclGrp.rulePool),
                            used(gaclGrp.longRulePool), used(gaclGrp.shortActionPool)),
            std::make_tuple(nullptr, 0u, 0u, 0u, 0u, 0u));
  EXPECT_EQ(aclRuleEntryDel(nullptr), CMN_ERR_NOT_FOUND);
}

TEST_F(RuleTest, DeletingARuleWhoseListIsGoneStillFreesIt) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  // Take the rule out the way a departed list would leave it.
  avl_remove(&aclListEntryGet(1)->ruleTree, r);
  r->lstIdx = 999;
  EXPECT_EQ(aclRuleEntryDel(r), 0);
  EXPECT_EQ(used(gaclGrp.rulePool), 0u);
  EXPECT_EQ(aclListEntryGet(1)->ruleNum, 1u) << "only the owning list is counted down";
}

TEST_F(RuleTest, FreeNumbersFillTheLowestGap) {
  const auto freeOf = [](uint32_t lst) {
    uint32_t n = 0;
    const int32_t ret = aclRuleGetFree(lst, &n);
    return std::make_pair(ret, n);
  };
  EXPECT_EQ(freeOf(1).first, ACL_ERR_LIST_NOT_EXIST);
  list(1);
  EXPECT_EQ(freeOf(1), std::make_pair(0, 1u));
  for (uint32_t r : {1u, 2u, 4u}) rule(1, r);
  EXPECT_EQ(freeOf(1), std::make_pair(0, 3u));
  rule(1, 3);
  EXPECT_EQ(freeOf(1), std::make_pair(0, 5u));
  // Rules 1..126 leave 127; rules 1..127 leave nothing (128 is never handed out).
  list(1001);
  for (uint32_t r = 1; r <= 126; ++r) rule(1001, r);
  EXPECT_EQ(freeOf(1001), std::make_pair(0, 127u));
  rule(1001, 127);
  EXPECT_EQ(freeOf(1001).first, -1);
}

TEST_F(RuleTest, StatusCheckInBothBindingModes) {
  AclListEntry* l = list(1);
  for (uint32_t r = 1; r <= 3; ++r) rule(1, r)->status = ACL_RULE_STATUS_VALID;
  const auto check = [l] {
    const int32_t ret = aclRuleStatusCheck(l);
    return std::make_pair(ret, l->activeRuleNum);
  };
  EXPECT_EQ(check(), std::make_pair(0, 3u));
  aclRuleEntryGetByIndex(1, 2)->status = ACL_RULE_STATUS_CREATED;
  EXPECT_EQ(check(), std::make_pair(ACL_ERR_RULE_INVALID, 1u)) << "the walk stopped at rule 2";
  gaclGrp.dynamicBindEnable = 1;
  EXPECT_EQ(check(), std::make_pair(0, 2u));
  EXPECT_EQ(aclRuleEntryMove(1, 1, 2), 0);
  EXPECT_EQ(aclRuleEntryGetByIndex(1, 1)->ruleIdx, 1u);
}

TEST_F(RuleTest, GlobalRuleTable) {
  start({{"acl.maxgrulenum", "3"}});
  EXPECT_EQ(std::make_tuple(aclGruleGetEntry(0), aclGruleGetEntry(4), aclGruleAddEntry(0),
                            aclGruleDelEntry(4)),
            std::make_tuple(nullptr, nullptr, CMN_ERR_NOT_FOUND, CMN_ERR_NOT_FOUND));
  uint32_t n = 0;
  ASSERT_EQ(aclGruleGetFree(&n), 0);
  EXPECT_EQ(n, 1u);
  for (uint32_t g = 1; g <= 3; ++g) ASSERT_EQ(aclGruleAddEntry(g), 0);
  EXPECT_EQ(aclGruleGetEntry(2)->status, ACL_RULE_STATUS_CREATED);
  EXPECT_EQ(aclGruleGetFree(&n), CMN_ERR_NO_RESOURCE);
  aclGruleGetEntry(2)->refCnt = 1;
  EXPECT_EQ(aclGruleDelEntry(2), CMN_ERR_IN_USE);
  aclGruleGetEntry(2)->refCnt = 0;
  ASSERT_EQ(aclGruleDelEntry(2), 0);
  EXPECT_EQ(aclGruleGetEntry(2)->status, 0);
  ASSERT_EQ(aclGruleGetFree(&n), 0);
  EXPECT_EQ(n, 2u);
}

TEST(ActionAttach, AppendsAfterTheSecondItem) {
  std::array<uint8_t, 64> buf{};
  buf.fill(0xEE);
  // Two items from byte 36: two bytes, then three.
  const uint8_t items[] = {0, 2, 1, 2, 0, 3, 3, 4, 5};
  std::copy(std::begin(items), std::end(items), buf.begin() + 36);
  uint32_t len = 45;
  const uint8_t extra[] = {9, 8};
  aclActionAttach(buf.data(), &len, extra, 2);
  const std::vector<uint8_t> want = {0, 2, 1, 2, 0, 5, 3, 4, 5, 9, 8, 0xEE};
  EXPECT_EQ(len, 47u);
  EXPECT_EQ(std::vector<uint8_t>(buf.begin() + 36, buf.begin() + 48), want);
  aclActionAttach(nullptr, &len, extra, 2);
  aclActionAttach(buf.data(), nullptr, extra, 2);
  aclActionAttach(buf.data(), &len, nullptr, 2);
  EXPECT_EQ(len, 47u);
  EXPECT_EQ(std::vector<uint8_t>(buf.begin() + 36, buf.begin() + 48), want);
}

}  // namespace
}  // namespace storetest
