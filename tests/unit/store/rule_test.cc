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
  EXPECT_EQ(aclRuleEntryGetByIndex(2001, 5), r);
  EXPECT_EQ(aclRuleEntryGet(aclListEntryGet(2001), 5), r);
}

// The references a deleted rule gives back are the rule table's tests' business.
TEST_F(RuleTest, DeletionFreesEntries) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  uint8_t v6[16] = {0x20, 1};
  ASSERT_EQ(aclRuleLongEntryAdd(r, RULE_BIT_SRCADDR, v6, 16), 0);
  ASSERT_EQ(aclShortActionEntryAdd(r, 76, ACL_ACTION_NO_SLOT, nullptr, 0), 0);
  ASSERT_EQ(aclRuleEntryDel(r), 0);
  EXPECT_EQ(aclRuleEntryGetByIndex(1, 1), nullptr);
  EXPECT_EQ(aclListEntryGet(1)->ruleNum, 0u);
  EXPECT_EQ(gaclGrp.ruleNum[0].cur, 0u);
  for (SIL_POOL_ID p : {gaclGrp.rulePool, gaclGrp.longRulePool, gaclGrp.shortActionPool}) {
    EXPECT_EQ(used(p), 0u);
  }
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
  uint32_t n = 0;
  EXPECT_EQ(aclRuleGetFree(1, &n), ACL_ERR_LIST_NOT_EXIST);
  list(1);
  ASSERT_EQ(aclRuleGetFree(1, &n), 0);
  EXPECT_EQ(n, 1u);
  for (uint32_t r : {1u, 2u, 4u}) rule(1, r);
  ASSERT_EQ(aclRuleGetFree(1, &n), 0);
  EXPECT_EQ(n, 3u);
  rule(1, 3);
  ASSERT_EQ(aclRuleGetFree(1, &n), 0);
  EXPECT_EQ(n, 5u);
  // Rules 1..126 leave 127; rules 1..127 leave nothing (128 is never handed out).
  list(1001);
  for (uint32_t r = 1; r <= 126; ++r) rule(1001, r);
  ASSERT_EQ(aclRuleGetFree(1001, &n), 0);
  EXPECT_EQ(n, 127u);
  rule(1001, 127);
  EXPECT_EQ(aclRuleGetFree(1001, &n), -1);
}

TEST_F(RuleTest, StatusCheckInBothBindingModes) {
  AclListEntry* l = list(1);
  for (uint32_t r = 1; r <= 3; ++r) rule(1, r)->status = ACL_RULE_STATUS_VALID;
  EXPECT_EQ(aclRuleStatusCheck(l), 0);
  EXPECT_EQ(l->activeRuleNum, 3u);
  aclRuleEntryGetByIndex(1, 2)->status = ACL_RULE_STATUS_CREATED;
  EXPECT_EQ(aclRuleStatusCheck(l), ACL_ERR_RULE_INVALID);
  EXPECT_EQ(l->activeRuleNum, 1u) << "the walk stopped at rule 2";
  gaclGrp.dynamicBindEnable = 1;
  EXPECT_EQ(aclRuleStatusCheck(l), 0);
  EXPECT_EQ(l->activeRuleNum, 2u);
  EXPECT_EQ(aclRuleEntryMove(1, 1, 2), 0);
  EXPECT_EQ(aclRuleEntryGetByIndex(1, 1)->ruleIdx, 1u);
}

TEST_F(RuleTest, GlobalRuleTable) {
  start({{"acl.maxgrulenum", "3"}});
  EXPECT_EQ(aclGruleGetEntry(0), nullptr);
  EXPECT_EQ(aclGruleGetEntry(4), nullptr);
  EXPECT_EQ(aclGruleAddEntry(0), CMN_ERR_NOT_FOUND);
  EXPECT_EQ(aclGruleDelEntry(4), CMN_ERR_NOT_FOUND);
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
  std::span<uint8_t> b(buf);
  be::store16(b, 36, 2);  // first item: 2 bytes
  b[38] = 1;
  b[39] = 2;
  be::store16(b, 40, 3);  // second item: 3 bytes
  b[42] = 3;
  b[43] = 4;
  b[44] = 5;
  uint32_t len = 45;
  const uint8_t extra[] = {9, 8};
  aclActionAttach(buf.data(), &len, extra, 2);
  EXPECT_EQ(len, 47u);
  EXPECT_EQ(be::load16(b, 36), 2u);
  EXPECT_EQ(be::load16(b, 40), 5u);
  EXPECT_EQ(buf[45], 9);
  EXPECT_EQ(buf[46], 8);
  EXPECT_EQ(buf[47], 0xEE);
  aclActionAttach(nullptr, &len, extra, 2);
  aclActionAttach(buf.data(), nullptr, extra, 2);
  aclActionAttach(buf.data(), &len, nullptr, 2);
  EXPECT_EQ(len, 47u);
  EXPECT_EQ(be::load16(b, 40), 5u);
}

}  // namespace
}  // namespace storetest
