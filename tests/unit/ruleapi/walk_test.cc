// The rule walk: every rule of every list in order, or one list's rules with the filter bit, and
// a walk that goes on from a rule or a list deleted under it.
#include "unit/ruleapi/rule_fixture.h"

namespace {

using ruletest::Key;
using ruletest::RuleApiTest;

struct Pos {
  uint32_t lst, rule;
  bool operator==(const Pos&) const = default;
};

class RuleWalk : public RuleApiTest {
 protected:
  void SetUp() override {
    RuleApiTest::SetUp();
    ASSERT_EQ(createList(1), 0);
    ASSERT_EQ(createList(2001), 0);
    ASSERT_EQ(createList(3001), 0);  // no rules
    for (uint32_t r : {5u, 2u, 9u}) ASSERT_EQ(setValue(kList, r, ACL_RULE_CMD_STATUS, 2), 0);
    ASSERT_EQ(setValue(1, 3, ACL_RULE_CMD_STATUS, 2), 0);
    ASSERT_EQ(setValue(2001, 1, ACL_RULE_CMD_STATUS, 2), 0);
    ASSERT_EQ(setValue(2001, 4, ACL_RULE_CMD_STATUS, 2), 0);
  }
  static int32_t createList(uint32_t lst) { return test::callValue(aclLstSetApi, lst, 9, 2); }

  // The answer of a get-next from lst/rule and the position it wrote.
  static std::pair<int32_t, Pos> nextOf(uint32_t lst, uint32_t rule, uint32_t filter = 0) {
    Key k(lst, rule, filter), next(0, 0);
    const int32_t ret = aclRuleGetNext(k.addr(), next.addr(), 0);
    return {ret, {next.lst(), next.rule()}};
  }
  static std::vector<Pos> walk(uint32_t lst = 0, uint32_t filter = 0) {
    std::vector<Pos> out;
    Key k(lst, 0, filter);
    if (aclRuleGetFirst(k.addr(), 0, 0) != 0) return out;
    for (std::pair<int32_t, Pos> n{0, {k.lst(), k.rule()}}; n.first == 0;
         n = nextOf(n.second.lst, n.second.rule, filter)) {
      out.push_back(n.second);
    }
    EXPECT_EQ(nextOf(out.back().lst, out.back().rule, filter).first, -1);
    return out;
  }
};

TEST_F(RuleWalk, EveryRuleInListAndRuleOrder) {
  EXPECT_EQ(walk(),
            (std::vector<Pos>{{1, 3}, {1001, 2}, {1001, 5}, {1001, 9}, {2001, 1}, {2001, 4}}));
}

TEST_F(RuleWalk, TheFilterBitKeepsTheWalkInItsList) {
  EXPECT_EQ(walk(kList, ACL_RULE_FILTER_LIST), (std::vector<Pos>{{1001, 2}, {1001, 5}, {1001, 9}}));
  EXPECT_EQ(walk(2001, ACL_RULE_FILTER_LIST), (std::vector<Pos>{{2001, 1}, {2001, 4}}));
  EXPECT_TRUE(walk(3001, ACL_RULE_FILTER_LIST).empty());
  EXPECT_TRUE(walk(1500, ACL_RULE_FILTER_LIST).empty()) << "a list that does not exist";
  // Only the top bit filters; the rest of the word is ignored.
  EXPECT_EQ(walk(kList, 0x7FFFFFFF).size(), 6u);
  // The last rule of the filtered list ends the walk.
  EXPECT_EQ(nextOf(kList, 9, ACL_RULE_FILTER_LIST).first, -1);
  EXPECT_EQ(nextOf(kList, 9), std::make_pair(0, Pos{2001, 1}));
}

TEST_F(RuleWalk, GetNextGoesOnFromWhatHasGone) {
  ASSERT_EQ(remove(5), 0);
  EXPECT_EQ(nextOf(kList, 5), std::make_pair(0, Pos{1001, 9}));
  // A list that has gone, or was never there: the first rule of the next list.
  ASSERT_EQ(test::callValue(aclLstSetApi, 1, 9, 4), 0);
  EXPECT_EQ(nextOf(1, 3), std::make_pair(0, Pos{1001, 2}));
  EXPECT_EQ(nextOf(1500, 7), std::make_pair(0, Pos{2001, 1}));
  EXPECT_EQ(nextOf(2001, 4).first, -1);
}

TEST_F(RuleWalk, EmptyTablesAndMissingKeys) {
  for (uint32_t r : {2u, 5u, 9u}) ASSERT_EQ(remove(r), 0);
  for (uint32_t lst : {1u, 2001u}) ASSERT_EQ(test::callValue(aclLstSetApi, lst, 9, 4), 0);
  Key k(0, 0);
  EXPECT_EQ(aclRuleGetFirst(k.addr(), 0, 0), -1);
  EXPECT_EQ(aclRuleGetFirst(0, 0, 0), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclRuleGetNext(k.addr(), 0, 0), CMN_ERR_BAD_PARAM);
  // The filter word of the key is read, never written.
  Key filtered(kList, 0, ACL_RULE_FILTER_LIST);
  EXPECT_EQ(aclRuleGetFirst(filtered.addr(), 0, 0), -1);
  EXPECT_EQ(be::load32(filtered.bytes, 8), ACL_RULE_FILTER_LIST);
}

TEST_F(RuleWalk, FilterMatch) {
  Key open(kList, 0);
  Key filtered(kList, 0, ACL_RULE_FILTER_LIST);
  EXPECT_EQ(std::make_tuple(aclRuleFilterMatch(open.addr(), aclListEntryGet(1)),
                            aclRuleFilterMatch(filtered.addr(), aclListEntryGet(1)),
                            aclRuleFilterMatch(filtered.addr(), aclListEntryGet(kList))),
            std::make_tuple(1, 0, 1));
}

}  // namespace
