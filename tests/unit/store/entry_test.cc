// Value and action entries: the pool each length selects, the order of the lists, the sorted and
// unsorted inserts, and each pool running out in turn.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "store_fixture.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace storetest {
namespace {

using EntryTest = StoreTest;

std::vector<uint32_t> valueCodes(AclRuleEntry* r) {
  std::vector<uint32_t> out;
  for (AclValueEntry* e = aclValueFirst(r); e != nullptr; e = aclValueNext(r, e)) {
    out.push_back(e->code);
  }
  return out;
}

std::vector<std::pair<uint32_t, uint32_t>> actions(AclRuleEntry* r) {
  std::vector<std::pair<uint32_t, uint32_t>> out;
  for (AclActionEntry* e = aclActionFirst(r); e != nullptr; e = aclActionNext(r, e)) {
    out.emplace_back(e->code, e->slot);
  }
  return out;
}

TEST_F(EntryTest, ValuesGoToThePoolTheirLengthSelects) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  const uint8_t word[4] = {0, 0, 0x08, 0x00};
  const uint8_t mac[6] = {0, 1, 2, 3, 4, 5};
  ASSERT_EQ(aclRuleShortEntryAdd(r, RULE_BIT_ETHTYPE, word, 4), 0);
  ASSERT_EQ(aclRuleLongEntryAdd(r, RULE_BIT_SRCMAC, mac, 6), 0);
  // Either call stores by length, so every entry goes back to the pool it came from.
  ASSERT_EQ(aclRuleLongEntryAdd(r, RULE_BIT_IPTTL, word, 4), 0);
  ASSERT_EQ(aclRuleShortEntryAdd(r, RULE_BIT_DSTMAC, mac, 6), 0);
  EXPECT_EQ(std::make_pair(used(gaclGrp.shortRulePool), used(gaclGrp.longRulePool)),
            std::make_pair(2u, 2u));

  uint8_t out[16] = {};
  uint32_t len = 0;
  ASSERT_EQ(aclRuleValueGet(r, RULE_BIT_SRCMAC, out, &len), 0);
  EXPECT_EQ(len, 6u);
  EXPECT_EQ(std::vector<uint8_t>(out, out + 6), std::vector<uint8_t>(mac, mac + 6));
  EXPECT_EQ(aclRuleValueGet(r, RULE_BIT_SRCPORT, out, &len), -1);
  EXPECT_EQ(aclValueWord(aclRuleValueEntryGet(r, RULE_BIT_ETHTYPE)), 0x800u);

  EXPECT_EQ(aclRuleShortEntryDelByType(r, RULE_BIT_ETHTYPE), 0);
  EXPECT_EQ(aclRuleShortEntryDelByType(r, RULE_BIT_ETHTYPE), -1);
  EXPECT_EQ(aclRuleLongEntryDel(aclRuleValueEntryGet(r, RULE_BIT_SRCMAC)), 0);
  EXPECT_EQ(std::make_pair(used(gaclGrp.shortRulePool), used(gaclGrp.longRulePool)),
            std::make_pair(1u, 1u));
}

TEST_F(EntryTest, BadValuesAreRefusedWithoutTakingAnEntry) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  uint8_t big[17] = {};
  EXPECT_EQ(aclRuleLongEntryAdd(r, RULE_BIT_SRCADDR, big, 17), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclRuleShortEntryAdd(r, RULE_BIT_SRCPORT, nullptr, 2), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclRuleShortEntryAdd(nullptr, RULE_BIT_SRCPORT, big, 2), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclLongActionEntryAdd(r, 4, 11, big, 17), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(used(gaclGrp.shortRulePool) + used(gaclGrp.longRulePool), 0u);
  EXPECT_EQ(used(gaclGrp.shortActionPool) + used(gaclGrp.longActionPool), 0u);
}

TEST_F(EntryTest, ValueListStaysInCodeOrderWithEqualCodesInArrivalOrder) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  for (uint8_t code : {13, 4, 35, 4, 0, 79}) {
    const uint8_t v[4] = {0, 0, 0, code};
    ASSERT_EQ(aclRuleShortEntryAdd(r, code, v, 4), 0);
  }
  EXPECT_EQ(valueCodes(r), (std::vector<uint32_t>{0, 4, 4, 13, 35, 79}));
  // Of the two code-4 entries the first is the earlier one.
  AclValueEntry* first4 = aclRuleValueEntryGet(r, 4);
  EXPECT_EQ(aclValueNext(r, first4)->code, 4u);
  EXPECT_EQ(aclValueBytes(first4)[3], 4);
}

TEST_F(EntryTest, SortedAndUnsortedActionInserts) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  const uint8_t p[16] = {1};
  ASSERT_EQ(aclLongActionEntryAdd(r, 4, 15, p, 16), 0);
  ASSERT_EQ(aclShortActionEntryAdd(r, 38, 9, p, 4), 0);
  ASSERT_EQ(aclLongActionEntryAdd(r, 4, 11, p, 16), 0);
  ASSERT_EQ(aclShortActionEntryAdd(r, 2, 0, nullptr, 0), 0);
  ASSERT_EQ(aclShortActionEntryAdd(r, 76, ACL_ACTION_NO_SLOT, nullptr, 0), 0);
  EXPECT_EQ(actions(r), (std::vector<std::pair<uint32_t, uint32_t>>{
                            {2, 255}, {4, 11}, {4, 15}, {38, 9}, {76, 255}}))
      << "a parameterless entry always has slot 255";
  ASSERT_EQ(_aclShortActionEntryAdd(r, 1, 10, p, 4, 0), 0);
  EXPECT_EQ(actions(r).back(), (std::pair<uint32_t, uint32_t>{1, 10})) << "appended";
  EXPECT_EQ(aclActionEntryGet(r, 4, 15), aclActionNext(r, aclActionEntryGet(r, 4, 11)));
  EXPECT_EQ(aclActionEntryGet(r, 4, 19), nullptr);
  EXPECT_EQ(used(gaclGrp.longActionPool), 2u);
  EXPECT_EQ(used(gaclGrp.shortActionPool), 4u);

  aclOutActionListDel(r);
  EXPECT_EQ(actions(r).size(), 5u);
  aclActionListDel(r);
  EXPECT_TRUE(dlist::empty(&r->actionList));
  EXPECT_EQ(used(gaclGrp.longActionPool) + used(gaclGrp.shortActionPool), 0u);
}

}  // namespace
}  // namespace storetest
