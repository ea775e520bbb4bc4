// The blacklist: entries, the deny copies in the global table with their slot target, the undo of
// a failed installation, and rules that follow a blacklisted list.
#include <array>

#include "control/acl_dynamic.h"
#include "services/acl_blacklist.h"
#include "unit/services/install_fixture.h"

namespace svctest {
namespace {

using namespace acldev;

class BlackListTest : public InstallTest {
 protected:
  static Bytes target(const vdev::HwEntry& e) {
    return Bytes(e.options.begin() + 24, e.options.end());
  }
};

TEST_F(BlackListTest, InstallsDenyCopiesAimedAtTheSlot) {
  start({});
  AclListEntry* l = validList(1001, {2, 7});
  ASSERT_EQ(aclBlackListAdd(1, 2, 1001), 0);
  auto table = globalTable();
  ASSERT_EQ(table.size(), 2u);
  for (auto& [k, e] : table) {
    const Bytes& d = e.data;
    const std::span<const uint8_t> action(d.data() + kAction, kActionLen);
    EXPECT_TRUE(aclBitTest(action, RULE_ACTION_DENY));
    EXPECT_FALSE(aclBitTest(action, RULE_ACTION_PERMIT));  // the rule's own actions are replaced
    EXPECT_TRUE(aclBitTest(std::span<const uint8_t>(d.data() + kBits, kBitsLen), RULE_BIT_ACTION));
    // The match fields, the rule count and the priority are the rule's.
    EXPECT_EQ(
        std::make_tuple(be::load16(d, kProtoSubType), be::load32(d, kActiveRuleNum), e.priority),
        std::make_tuple(uint16_t{6}, 2u, std::get<1>(k)));
    // Byte 24 = 2, system 1 is bit 0 of the system bitmap, slot 2 bit 1 of system 1's slots.
    Bytes want(40, 0);
    want[0] = 2;
    want[2] = 0x80;
    want[4] = 0x40;
    EXPECT_EQ(target(e), want);
  }
  EXPECT_EQ(l->refCnt, 1);
  // The stored rules keep their own actions.
  EXPECT_FALSE(aclBitTest(aclRuleEntryGetByIndex(1001, 2)->actionBits, RULE_ACTION_DENY));
  ASSERT_EQ(aclBlackListDel(1, 2, 1001), 0);
  EXPECT_EQ(l->refCnt, 0);
  EXPECT_EQ(aclBlackListDel(3, 3, 77), 0) << "removing what is not there";
}

TEST_F(BlackListTest, SystemOrSlotZeroSendsAnAllZeroTarget) {
  validList(1001, {1});
  ASSERT_EQ(aclBlackListAdd(0, 4, 1001), 0);
  ASSERT_EQ(globalTable().size(), 1u);
  EXPECT_EQ(target(globalTable().begin()->second), Bytes(40, 0));
  ASSERT_EQ(aclBlackListDel(0, 4, 1001), 0);
  ASSERT_EQ(aclBlackListAdd(2, 0, 1001), 0);
  EXPECT_EQ(target(globalTable().begin()->second), Bytes(40, 0));
  // The highest system and slot a target can name.
  std::array<uint8_t, 64> t{};
  aclBlackListTargetBuild(9, 32, t);
  // System 9 is bit 8; slot 32 bit 31 of system 9's bitmap.
  EXPECT_EQ(std::make_tuple(t[24], t[27], t[28 + 32 + 3]), std::make_tuple(2, 0x80, 0x01));
}

TEST_F(BlackListTest, RefusalsInstallNothing) {
  EXPECT_EQ(aclBlackListAdd(1, 2, 0), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclBlackListAdd(1, 2, 1001), ACL_ERR_LIST_NOT_EXIST);
  list(1001);
  EXPECT_EQ(aclBlackListAdd(1, 2, 1001), ACL_ERR_LIST_EMPTY);
  EXPECT_EQ(aclBlackListEntryGet(1, 2, 1001), nullptr);
  AclListEntry* l = validList(1002, {1});
  // A system or slot that no target can name is refused rather than aimed elsewhere.
  EXPECT_EQ(aclBlackListAdd(10, 1, 1002), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclBlackListAdd(1, 33, 1002), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(l->refCnt, 0);
  EXPECT_TRUE(globalTable().empty());
}

TEST_F(BlackListTest, FailedInstallationIsUndoneAndForgotten) {
  for (const char* tlv : {"false", "true"}) {
    SCOPED_TRACE(tlv);
    start({{"acl.tlvenable", tlv}});
    AclListEntry* l = validList(1001, {1, 2, 3});
    const uint32_t values = valuesInUse();
    failNth(1001, 2);
    EXPECT_EQ(aclBlackListAdd(1, 2, 1001), 0x0BAD);
    // Nothing installed, no entry, no reference; the deny copies went back.
    EXPECT_EQ(std::make_tuple(globalTable().size(), aclBlackListEntryGet(1, 2, 1001), l->refCnt,
                              valuesInUse(), used(gaclGrp.blackListPool)),
              std::make_tuple(0u, nullptr, 0, values, 0u));
    // A removal failing part-way keeps the blacklisting.
    ASSERT_EQ(aclBlackListAdd(1, 2, 1001), 0);
    failNth(1001, 2);
    EXPECT_EQ(aclBlackListDel(1, 2, 1001), 0x0BAD);
    EXPECT_TRUE(aclBlackListEntryGet(1, 2, 1001) != nullptr && l->refCnt == 1);
  }
}

TEST_F(BlackListTest, ARuleFollowsOnlyTheFirstBlacklistingOfItsList) {
  AclListEntry* l = validList(1001, {1});
  validList(1000, {1});
  ASSERT_EQ(aclBlackListAdd(1, 3, 1001), 0);
  ASSERT_EQ(aclBlackListAdd(1, 2, 1001), 0);
  ASSERT_EQ(aclBlackListAdd(1, 1, 1000), 0);  // another list, first in key order
  AclRuleEntry* r5 = validRule(1001, 5);
  ASSERT_EQ(aclBlackListDynamicRuleSet(l, r5, 1), 0);
  auto table = globalTable();
  ASSERT_EQ(table.count({1001, 5, 0}), 1u);
  const vdev::HwEntry& e = table.at({1001, 5, 0});
  // Aimed at slot 2 of system 1, the first key of list 1001.
  EXPECT_EQ(std::make_tuple(e.installs, int(e.options[28]), e.priority),
            std::make_tuple(1u, 0x40, 5u));
  ASSERT_EQ(aclBlackListDynamicRuleSet(l, r5, 0), 0);
  EXPECT_EQ(globalTable().count({1001, 5, 0}), 0u);
  // A list that is not blacklisted is left alone.
  AclListEntry* other = validList(1003, {1});
  const uint64_t seq = vdev::journalCopy().seq;
  EXPECT_EQ(aclBlackListDynamicRuleSet(other, aclRuleEntryGetByIndex(1003, 1), 1), 0);
  EXPECT_EQ(vdev::journalCopy().seq, seq);
  EXPECT_EQ(anomalies(), 0u);
}

TEST_F(BlackListTest, TheDynamicRuleSetServesTheBlacklistFirst) {
  start({{"acl.dynamicbindenable", "true"}});
  validList(1001, {1});
  ASSERT_EQ(aclBlackListAdd(1, 2, 1001), 0);
  validRule(1001, 4);
  EXPECT_EQ(aclDynamicRuleSet(1001, 4, ACL_DYNAMIC_RULE_ADD), 0u);
  EXPECT_EQ(globalTable().count({1001, 4, 0}), 1u);
  // A failing blacklist install stops the dynamic rule set with its code.
  failNth(1001, 1);
  EXPECT_EQ(aclDynamicRuleSet(1001, 1, ACL_DYNAMIC_RULE_ADD), 0x0BADu);
  EXPECT_EQ(aclDynamicRuleSet(1001, 4, ACL_DYNAMIC_RULE_DEL), 0u);
  EXPECT_EQ(globalTable().count({1001, 4, 0}), 0u);
  // Without dynamic binding nothing follows.
  start({});
  validList(1001, {1});
  ASSERT_EQ(aclBlackListAdd(1, 2, 1001), 0);
  validRule(1001, 4);
  EXPECT_EQ(aclDynamicRuleSet(1001, 4, ACL_DYNAMIC_RULE_ADD), 0u);
  EXPECT_EQ(globalTable().count({1001, 4, 0}), 0u);
}

}  // namespace
}  // namespace svctest
