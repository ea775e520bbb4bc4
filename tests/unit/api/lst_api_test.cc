// The filter-list table (function ids 4 to 8): every get and set command, the walk, the relay
// before the change, and the answers to missing lists and buffers.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "api/acl_lst_api.h"
#include "main/acl_group.h"
#include "platform/fault.h"
#include "platform/options.h"
#include "platform/proc.h"
#include "platform/vdev/model.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "support/device_lock.h"
#include "support/run_dir.h"
#include "support/table_call.h"
#include "wire/acl_ret.h"

namespace {

using test::callValue;
using test::Desc;
using test::Word;

class LstApi : public ::testing::Test {
 protected:
  void SetUp() override {
    aclResetForTest();
    ASSERT_EQ(aclOptInit(), 0);
  }
  void TearDown() override { aclResetForTest(); }

  static int32_t set(uint32_t idx, uint32_t cmd, uint32_t v) {
    return callValue(aclLstSetApi, idx, cmd, v);
  }
  static uint32_t get(uint32_t idx, uint32_t cmd, int32_t* ret = nullptr) {
    uint32_t out = 0xEEEEEEEE;
    const int32_t r = callValue(aclLstGetApi, idx, cmd, 0xEEEEEEEE, &out);
    if (ret) *ret = r;
    return out;
  }
  static int32_t create(uint32_t idx) {
    return set(idx, ACL_LST_CMD_STATUS, ACL_LST_STATUS_CREATE);
  }
  static int32_t rename(uint32_t idx, const std::string& name) {
    Desc d(name);
    return aclLstSetApi(idx, ACL_LST_CMD_NAME, d.addr());
  }
  static std::string name(uint32_t idx, size_t cap = 80, int32_t* ret = nullptr) {
    Desc d(cap);
    const int32_t r = aclLstGetApi(idx, ACL_LST_CMD_NAME, d.addr());
    if (ret) *ret = r;
    return d.text();
  }
  static std::vector<vdev::Relay> relays() {
    return test::onDevice([&](vdev::Device& d) { return d.journal.relays; });
  }
  static std::vector<uint32_t> walk() {
    std::vector<uint32_t> out;
    Word w;
    if (aclLstGetFirst(w.addr(), 0, 0) != 0) return out;
    out.push_back(w.value());
    Word next;
    while (aclLstGetNext(out.back(), next.addr(), 0) == 0) out.push_back(next.value());
    return out;
  }

  test::TempRunDir runDir;
};

TEST_F(LstApi, CreateReadBackAndDelete) {
  ASSERT_EQ(create(2001), 0);
  EXPECT_EQ(name(2001), "acl2001");
  const std::pair<uint32_t, uint32_t> kFresh[] = {
      {ACL_LST_CMD_REFCNT, 0},         {ACL_LST_CMD_PRIORITY, 0},    {ACL_LST_CMD_RULENUM, 0},
      {ACL_LST_CMD_MAXRULENUM, 128},   {ACL_LST_CMD_ATTR, 0},        {ACL_LST_CMD_STATUS, 1},
      {ACL_LST_CMD_COUNTER_SHARED, 2}, {ACL_LST_CMD_METER_SHARED, 2}};
  for (auto [cmd, v] : kFresh) EXPECT_EQ(get(2001, cmd), v) << cmd;
  // Creating it again changes nothing.
  ASSERT_EQ(set(2001, ACL_LST_CMD_PRIORITY, 0x1207), 0);
  EXPECT_EQ(create(2001), 0);
  EXPECT_EQ(get(2001, ACL_LST_CMD_PRIORITY), 7u);
  EXPECT_EQ(gaclGrp.curLstNum, 1u);

  ASSERT_EQ(set(2001, ACL_LST_CMD_STATUS, ACL_LST_STATUS_DELETE), 0);
  int32_t ret = 0;
  get(2001, ACL_LST_CMD_STATUS, &ret);
  EXPECT_EQ(ret, ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(set(2001, ACL_LST_CMD_STATUS, ACL_LST_STATUS_DELETE), 0) << "a missing list";
  EXPECT_EQ(set(2001, ACL_LST_CMD_STATUS, 7), 0) << "other values only relay";
  EXPECT_EQ(aclListEntryGet(2001), nullptr);
}

TEST_F(LstApi, RelayPrecedesEveryChange) {
  // The relay record itself is the relay helper's test.
  ASSERT_EQ(create(1001), 0);
  auto r = relays();
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(r[0].cmd, 0x06D98000u + 9);

  // Sync relays with mode 1.
  test::Word w(3);
  ASSERT_EQ(aclLstSyncApi(1001, ACL_LST_CMD_ATTR, w.addr()), 0);
  EXPECT_EQ(be::load32(relays().back().options, 0), 0x10000001u);
  EXPECT_EQ(get(1001, ACL_LST_CMD_ATTR), 3u);

  // A name relays its descriptor.
  ASSERT_EQ(rename(1001, "web"), 0);
  r = relays();
  EXPECT_EQ(r.back().cmd, 0x06D98001u);
  EXPECT_EQ(be::load32(r.back().options, 0), 0x90000003u);
  EXPECT_EQ(be::load32(r.back().options, 16), 3u);
  EXPECT_EQ(r.back().data, (std::vector<uint8_t>{'w', 'e', 'b'}));

  // A refused relay changes nothing and its code comes back.
  for (uint32_t cmd : {1u, 2u, 3u, 6u, 7u, 8u, 9u}) {
    plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x06D98000u + cmd, .result = 0x3E80004});
  }
  EXPECT_EQ(rename(1001, "other"), 0x3E80004);
  EXPECT_EQ(name(1001), "web");
  // Each command with a new value, and the value the list keeps.
  const std::tuple<uint32_t, uint32_t, uint32_t> kKept[] = {
      {ACL_LST_CMD_REFCNT, 1, 0},       {ACL_LST_CMD_PRIORITY, 9, 0},
      {ACL_LST_CMD_ATTR, 9, 3},         {ACL_LST_CMD_COUNTER_SHARED, 1, 2},
      {ACL_LST_CMD_METER_SHARED, 1, 2}, {ACL_LST_CMD_STATUS, 4, 1}};
  for (auto [cmd, v, kept] : kKept) {
    EXPECT_EQ(set(1001, cmd, v), 0x3E80004) << cmd;
    EXPECT_EQ(get(1001, cmd), kept) << cmd;
  }
  EXPECT_EQ(gaclGrp.curLstNum, 1u);
}

TEST_F(LstApi, NamesAreUniqueAndClamped) {
  ASSERT_EQ(create(1), 0);
  ASSERT_EQ(create(2), 0);
  const size_t before = relays().size();
  EXPECT_EQ(rename(1, "acl1"), 0);
  EXPECT_EQ(relays().size(), before) << "its own name: no relay";
  EXPECT_EQ(rename(1, "acl2"), CMN_ERR_NAME_USED);
  EXPECT_EQ(name(1), "acl1");
  EXPECT_EQ(rename(1, "Acl2"), 0) << "names are case-sensitive";
  const std::string long70(70, 'x');
  ASSERT_EQ(rename(2, long70), 0);
  EXPECT_EQ(name(2), std::string(64, 'x'));
  // The same long name for another list is the name list 2 already has.
  EXPECT_EQ(rename(1, long70), CMN_ERR_NAME_USED);
  EXPECT_EQ(name(2, 3), "xxx");
  int32_t ret = 0;
  EXPECT_EQ(name(1, 0, &ret), "");
  EXPECT_EQ(ret, 0);
  // Descriptors without data are answered, never followed.
  wire::BufDesc bad{nullptr, 5};
  EXPECT_EQ(aclLstGetApi(1, 1, reinterpret_cast<uintptr_t>(&bad)), ACL_RET_INVALID);
  EXPECT_EQ(aclLstSetApi(1, 1, reinterpret_cast<uintptr_t>(&bad)), ACL_RET_INVALID);
  EXPECT_EQ(name(1), "Acl2");
}

TEST_F(LstApi, BoundListsRefuseChangesUnlessDynamicBinding) {
  ASSERT_EQ(create(5), 0);
  ASSERT_EQ(set(5, ACL_LST_CMD_REFCNT, 1), 0);
  EXPECT_EQ(set(5, ACL_LST_CMD_PRIORITY, 3), CMN_ERR_IN_USE);
  EXPECT_EQ(rename(5, "x"), CMN_ERR_IN_USE);
  EXPECT_EQ(set(5, ACL_LST_CMD_STATUS, ACL_LST_STATUS_DELETE), CMN_ERR_IN_USE);
  EXPECT_EQ(get(5, ACL_LST_CMD_DYN_REFCNT), 1u);
  // Set 2 stays open: a module accounts its own use.
  EXPECT_EQ(set(5, ACL_LST_CMD_REFCNT, static_cast<uint32_t>(-1)), 0);
  EXPECT_EQ(get(5, ACL_LST_CMD_REFCNT), 0u);
  ASSERT_EQ(set(5, ACL_LST_CMD_REFCNT, 1), 0);

  gaclGrp.dynamicBindEnable = 1;
  EXPECT_EQ(set(5, ACL_LST_CMD_PRIORITY, 3), 0);
  EXPECT_EQ(get(5, ACL_LST_CMD_DYN_REFCNT), 0u);
  const size_t before = relays().size();
  EXPECT_EQ(set(5, ACL_LST_CMD_COUNTER_SHARED, 1), ACL_ERR_SHARED_IN_USE);
  EXPECT_EQ(set(5, ACL_LST_CMD_METER_SHARED, 1), ACL_ERR_SHARED_IN_USE);
  EXPECT_EQ(set(5, ACL_LST_CMD_STATUS, ACL_LST_STATUS_DELETE), ACL_ERR_SHARED_IN_USE);
  EXPECT_EQ(relays().size(), before + 3) << "relayed before the refusal";
  EXPECT_EQ(get(5, ACL_LST_CMD_COUNTER_SHARED), 2u);
  EXPECT_NE(aclListEntryGet(5), nullptr);

  ASSERT_EQ(set(5, ACL_LST_CMD_REFCNT, static_cast<uint32_t>(-1)), 0);
  EXPECT_EQ(set(5, ACL_LST_CMD_COUNTER_SHARED, 7), 0);
  EXPECT_EQ(get(5, ACL_LST_CMD_COUNTER_SHARED), 3u);
  EXPECT_EQ(set(5, ACL_LST_CMD_METER_SHARED, 4), 0);
  EXPECT_EQ(get(5, ACL_LST_CMD_METER_SHARED), 0u);
}

TEST_F(LstApi, CommandIdsAndCodes) {
  int32_t ret = 0;
  // A missing list.
  get(7, 1, &ret);
  EXPECT_EQ(ret, ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(set(7, ACL_LST_CMD_PRIORITY, 1), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(set(7, 99, 1), ACL_ERR_LIST_NOT_EXIST);
  ASSERT_EQ(create(7), 0);
  ASSERT_NE(aclRuleEntryAdd(7, 1), nullptr);
  EXPECT_EQ(get(7, ACL_LST_CMD_RULENUM), 1u);
  // Read-only attributes, unknown commands, the match services' commands.
  EXPECT_EQ(set(7, ACL_LST_CMD_RULENUM, 5), ACL_ERR_READ_ONLY);
  EXPECT_EQ(set(7, ACL_LST_CMD_MAXRULENUM, 5), ACL_ERR_READ_ONLY);
  for (uint32_t cmd : {0u, 10u, 16u, 17u, 18u, 1000u}) EXPECT_EQ(set(7, cmd, 1), -1) << cmd;
  for (uint32_t cmd : {0u, 18u, 0xFFFFFFFFu}) {
    EXPECT_EQ(get(7, cmd, &ret), 0xEEEEEEEEu);
    EXPECT_EQ(ret, -1) << cmd;
  }
  // The match services take a descriptor; an empty one is refused by each in its own words.
  const int32_t emptyQuery[] = {-1, -1, 22, 22, 22, 22, CMN_ERR_BAD_PARAM};
  for (uint32_t cmd = 10; cmd <= 16; ++cmd) {
    Desc empty(0);
    EXPECT_EQ(aclLstGetApi(7, cmd, empty.addr()), emptyQuery[cmd - 10]) << cmd;
  }
  // Null buffers get an answer.
  EXPECT_EQ((std::vector{aclLstGetApi(7, 2, 0), aclLstSetApi(7, 3, 0), aclLstSetApi(7, 1, 0),
                         aclLstSetApi(8, 9, 0), aclLstGetFirst(0, 0, 0), aclLstGetNext(7, 0, 0)}),
            std::vector<int32_t>(6, CMN_ERR_BAD_PARAM));
  EXPECT_EQ(aclListEntryGet(8), nullptr);
  // Deleting a list with rules frees them.
  ASSERT_EQ(set(7, ACL_LST_CMD_STATUS, ACL_LST_STATUS_DELETE), 0);
  EXPECT_EQ(gaclGrp.ruleNum[0].cur, 0u);
}

TEST_F(LstApi, WalkFollowsNumberOrderAndResumesAfterADeletedKey) {
  Word w;
  EXPECT_EQ(aclLstGetFirst(w.addr(), 0, 0), -1);
  for (uint32_t idx : {3001u, 5u, 2001u, 1001u, 6000u}) ASSERT_EQ(create(idx), 0);
  EXPECT_EQ(walk(), (std::vector<uint32_t>{5, 1001, 2001, 3001, 6000}));
  ASSERT_EQ(set(2001, 9, 4), 0);
  Word next;
  ASSERT_EQ(aclLstGetNext(2001, next.addr(), 0), 0);
  EXPECT_EQ(next.value(), 3001u) << "the next greater number, not the first";
  ASSERT_EQ(aclLstGetNext(0, next.addr(), 0), 0);
  EXPECT_EQ(next.value(), 5u);
  EXPECT_EQ(aclLstGetNext(6000, next.addr(), 0), -1);
  EXPECT_EQ(aclLstGetNext(7000, next.addr(), 0), -1);
}

TEST(LstApiUnstarted, AnswersWithoutAGroup) {
  aclResetForTest();
  Word w;
  EXPECT_EQ(aclLstGetFirst(w.addr(), 0, 0), -1);
  EXPECT_EQ(aclLstGetNext(1, w.addr(), 0), -1);
  EXPECT_EQ(aclLstGetApi(1, 1, w.addr()), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(aclLstSetApi(1, 9, w.addr()), ACL_ERR_LIST_NOT_EXIST);
}

}  // namespace
