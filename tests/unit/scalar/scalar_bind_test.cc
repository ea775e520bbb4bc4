// The global bindings of the scalar table: the twelve typed bind slots and the generic in/out
// switches, against what the virtual device's global table holds, the lists' reference counts
// and the second relay after a failure.
#include <gtest/gtest.h>

#include <vector>

#include "api/acl_scalar_bind.h"
#include "main/acl_group.h"
#include "unit/scalar/scalar_fixture.h"

namespace {

using scalartest::HwRule;
using scalartest::ScalarTest;

class ScalarBind : public ScalarTest {
 protected:
  // Fails the hardware install (record command 217) of one rule, once.
  static void failInstall(uint32_t lst, uint32_t rule, int32_t result) {
    plat::faultAdd(
        {.call = "zorHwilCmdSetApi", .cmd = 217, .list = lst, .rule = rule, .result = result});
  }
  static std::vector<uint8_t> word(uint32_t v) {
    std::vector<uint8_t> w(4);
    be::store32(w, 0, v);
    return w;
  }
};

// Installing and removing a slot's rules, and a refused install without a previous list, are
// covered end to end; here the repeat.
TEST_F(ScalarBind, TheSameListAgainIsOnlyRelayed) {
  makeList(1001, {1, 2});
  ASSERT_EQ(set(28, 1001), 0);
  const size_t relaysBefore = relays().size();
  ASSERT_EQ(set(28, 1001), 0);
  EXPECT_EQ(relays().size(), relaysBefore + 1);
  EXPECT_EQ(refCnt(1001), 1);
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{1001, 1, 0, 8193}, {1001, 2, 0, 8194}}));
  EXPECT_EQ(anomalies(), 0u);
}

TEST_F(ScalarBind, SlotsCarryTheirDirectionAndHybridPriorities) {
  makeList(2001, {3});
  makeList(7, {1});
  ASSERT_EQ(set(33, 2001), 0);  // outHybridAcl
  ASSERT_EQ(set(26, 7), 0);     // inL2Acl
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{7, 1, 0, 8193}, {2001, 3, 1, 9216 + 3}}));
  EXPECT_EQ(gaclGrp.slots.outHybridAcl, 2001u);
  EXPECT_EQ(gaclGrp.slots.inL2Acl, 7u);
}

TEST_F(ScalarBind, UnbindingAnEmptySlotNamesNoList) {
  makeList(0, {});  // list 0 may exist; an empty slot still does not name it
  EXPECT_EQ(set(26, 0), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(refCnt(0), 0);
  const auto r = relays();
  ASSERT_GE(r.size(), 2u);
  EXPECT_EQ(r[r.size() - 2].cmd, 0x0001401Au);
  EXPECT_EQ(r.back().cmd, 0x0001401Au);
  EXPECT_EQ(r.back().data, word(0));
}

TEST_F(ScalarBind, MovingToAnotherListReplacesTheRules) {
  makeList(1001, {1, 2});
  makeList(1002, {5});
  ASSERT_EQ(set(28, 1001), 0);
  ASSERT_EQ(set(28, 1002), 0);
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{1002, 5, 0, 8197}}));
  EXPECT_EQ(refCnt(1001), 0);
  EXPECT_EQ(refCnt(1002), 1);
  // A list that does not exist leaves the slot as it was.
  EXPECT_EQ(set(28, 1500), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(get(28), 1002u);
  EXPECT_EQ(refCnt(1002), 1);
  EXPECT_EQ(globalHw().size(), 1u);
  EXPECT_EQ(relays().back().data, word(1002)) << "the second relay names the previous list";
  // A bound list may not be deleted.
  EXPECT_NE(test::callValue(aclLstSetApi, 1002, 9, 4), 0);
  EXPECT_EQ(refCnt(1002), 1);
}

TEST_F(ScalarBind, FailedInstallRestoresThePreviousList) {
  makeList(1001, {1, 2});
  makeList(1002, {1, 2, 3});
  ASSERT_EQ(set(28, 1001), 0);
  failInstall(1002, 2, 0x0ABC0001);
  EXPECT_EQ(set(28, 1002), 0x0ABC0001);
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{1001, 1, 0, 8193}, {1001, 2, 0, 8194}}));
  EXPECT_EQ(refCnt(1001), 1);
  EXPECT_EQ(refCnt(1002), 0);
  EXPECT_EQ(get(28), 1001u);
  const auto r = relays();
  EXPECT_EQ(r.back().cmd, 0x0001401Cu);
  EXPECT_EQ(r.back().data, word(1001));
}

TEST_F(ScalarBind, RefusedFirstRelayIsFollowedByZeroNotThePreviousList) {
  makeList(1001, {1});
  makeList(1002, {1});
  ASSERT_EQ(set(28, 1001), 0);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x0001401Cu, .result = 0x03E80004});
  EXPECT_EQ(set(28, 1002), 0x03E80004);
  EXPECT_EQ(get(28), 1001u);
  EXPECT_EQ(relays().back().data, word(0));
}

TEST_F(ScalarBind, GenericSwitchBindsTheListThatWasSwitchedOn) {
  makeList(1001, {1, 2});
  makeList(3001, {4});
  ASSERT_EQ(set(8, 1001), 0);
  ASSERT_EQ(set(6, 1), 0);
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{1001, 1, 0, 8193}, {1001, 2, 0, 8194}}));
  EXPECT_EQ(refCnt(1001), 1);
  EXPECT_EQ(get(6), 1u);
  EXPECT_EQ(aclScalarCtrlList(0), 1001u);

  // On while on: nothing more is bound.
  ASSERT_EQ(set(6, 1), 0);
  EXPECT_EQ(refCnt(1001), 1);
  EXPECT_EQ(globalHw().size(), 2u);

  // A new index while on changes no hardware; off takes out what was installed.
  ASSERT_EQ(set(8, 3001), 0);
  EXPECT_EQ(globalHw().size(), 2u);
  ASSERT_EQ(set(6, 0), 0);
  EXPECT_TRUE(globalHw().empty());
  EXPECT_EQ(refCnt(1001), 0);
  EXPECT_EQ(refCnt(3001), 0);
  EXPECT_EQ(get(6), 0u);
  // Off while off, whatever number says off.
  ASSERT_EQ(set(6, 2), 0);
  EXPECT_EQ(get(6), 0u);
  EXPECT_EQ(anomalies(), 0u);

  // On again follows the new index.
  ASSERT_EQ(set(6, 1), 0);
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{3001, 4, 0, 8196}}));
  EXPECT_EQ(refCnt(3001), 1);
}

TEST_F(ScalarBind, GenericSwitchFailures) {
  ASSERT_EQ(set(9, 1500), 0);
  EXPECT_EQ(set(7, 1), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(get(7), 0u);
  makeList(1500, {1});
  failInstall(1500, 1, 0x0ABC0003);
  EXPECT_EQ(set(7, 1), 0x0ABC0003);
  EXPECT_EQ(get(7), 0u);
  EXPECT_EQ(refCnt(1500), 0);
  EXPECT_TRUE(globalHw().empty());
  EXPECT_EQ(relays().back().data, word(0));
  ASSERT_EQ(set(7, 1), 0);
  EXPECT_EQ(globalHw(), (std::vector<HwRule>{{1500, 1, 1, 8193}}));
}

}  // namespace
