// The slot ledger against bindings made and taken back in the interface binding's order.
#include <cstring>

#include "control/acl_slot_dynamic.h"
#include "unit/control/slot_fixture.h"

namespace slottest {
namespace {

TEST_F(SlotTest, ListIsChargedOncePerSlotAndReleasedWithItsLastBinding) {
  list(1001, 3);
  slot(2);
  slot(3);
  // Two ports of slot 1/2 and one of 1/3.
  const struct {
    bool add;
    uint32_t port;
    uint32_t slot2, slot3;
  } steps[] = {
      {true, 201, 3, 0},  {true, 202, 3, 0},  {true, 301, 3, 3},
      {false, 201, 3, 3}, {false, 301, 3, 0}, {false, 202, 0, 0},
  };
  for (const auto& s : steps) {
    EXPECT_EQ(s.add ? bind(s.port, 1001, kIn) : unbind(s.port, 1001, kIn), 0) << s.port;
    EXPECT_EQ(std::pair(cur(2, kIpv4In), cur(3, kIpv4In)), std::pair(s.slot2, s.slot3))
        << (s.add ? "bind " : "unbind ") << s.port;
  }
  // Egress is a bind type of its own.
  EXPECT_EQ(bind(201, 1001, kOut), 0);
  EXPECT_EQ(std::pair(cur(2, kIpv4Out), cur(2, kIpv4In)), std::pair(3u, 0u));
}

TEST_F(SlotTest, AllSlotBindingsChargeEveryRecordAndRecordsThatComeLater) {
  list(1001, 2);
  list(1002, 5);
  slot(2);
  ASSERT_EQ(bind(kAgg, 1001, kIn), 0);
  ASSERT_EQ(bind(kAllSlot, 1001, kIn), 0);  // the list is already on every slot
  ASSERT_EQ(bind(201, 1002, kIn), 0);
  EXPECT_EQ(std::pair(cur(1, kIpv4In), cur(2, kIpv4In)), std::pair(2u, 2u + 5u));  // own slot, 1/2

  // A card coming up in slot 1/3 gets the all-slot lists, each once; 1002 is not all-slot.
  EXPECT_EQ(aclSlotCurRuleNumSync(1, 3), 0);
  EXPECT_EQ(cur(3, kIpv4In), 2u);

  // The first all-slot binding leaving keeps the charge; the second releases it everywhere.
  EXPECT_EQ(unbind(kAgg, 1001, kIn), 0);
  EXPECT_EQ(cur(3, kIpv4In), 2u);
  EXPECT_EQ(unbind(kAllSlot, 1001, kIn), 0);
  EXPECT_EQ((std::vector{cur(1, kIpv4In), cur(2, kIpv4In), cur(3, kIpv4In)}),
            (std::vector<uint32_t>{0, 5, 0}));

  // A binding whose interface cannot be located stops the recount.
  entry(kNowhere, 1001, kIn);
  EXPECT_EQ(aclSlotCurRuleNumSync(1, 3), CMN_ERR_IF_LOCATE);
}

TEST_F(SlotTest, CheckAnswersEachCaseBeforeAnythingIsCharged) {
  list(1001, 3);
  list(1002, 3);
  list(1003, 3);
  slot(2)->maxSubRuleNum[kIpv4In] = 4;
  slot(4)->maxSubRuleNum[kIpv4In] = 1;
  ASSERT_EQ(bind(201, 1001, kIn), 0);  // 3 of 4 used on 1/2
  gemEntry(kPon, 1003, kIn);           // 1003 already sits on the PON card
  const struct {
    const char* what;
    uint32_t ifIndex, oldCount, lstIdx, newCount;
    uint8_t dir;
    int32_t expected;
  } cases[] = {
      {"does not fit", 202, 0, 1002, 3, kIn, ACL_ERR_SLOT_RULE_FULL},
      {"fits with one left", 202, 2, 1002, 3, kIn, 0},
      {"a smaller replacement is never refused", 202, 9, 1002, 3, kIn, 0},
      {"the list is on the slot already", 202, 0, 1001, 3, kIn, 0},
      {"another direction has its own room", 202, 0, 1002, 3, kOut, 0},
      {"a GEM binding of the list on the slot", kPon, 0, 1003, 3, kIn, 0},
      {"a list type without a bind type", 202, 0, 7000, 99, kIn, 0},
      {"a direction without a bind type", 202, 0, 1002, 99, 3, 0},
      {"slot 1/3 has no record", 301, 0, 1002, 3, kIn, ACL_ERR_SLOT_NOT_EXIST},
      {"the interface cannot be located", kNowhere, 0, 1002, 3, kIn, CMN_ERR_IF_LOCATE},
      {"all-slot: the PON record is full", kAgg, 0, 1002, 3, kIn, ACL_ERR_SLOT_RULE_FULL},
      {"all-slot: the list is bound somewhere", kAgg, 0, 1001, 3, kIn, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(aclSlotSubRuleNumCheck(c.ifIndex, c.oldCount, c.lstIdx, c.newCount, c.dir),
              c.expected)
        << c.what;
  }
  EXPECT_EQ(std::pair(cur(2, kIpv4In), cur(4, kIpv4In)), std::pair(3u, 0u));
}

TEST_F(SlotTest, RefusedUpdatesLeaveTheLedgerAndUnbalancedReleasesWrap) {
  list(1001, 3);
  slot(2);
  const AclSlotEntry before = *aclSlotEntryGet(1, 2);
  EXPECT_EQ(aclSlotSubRuleNumUpdate(kNowhere, 1001, 3, kIn, ACL_SLOT_OP_ADD), CMN_ERR_IF_LOCATE);
  EXPECT_EQ(aclSlotSubRuleNumUpdate(301, 1001, 3, kIn, ACL_SLOT_OP_ADD), ACL_ERR_SLOT_NOT_EXIST);
  EXPECT_EQ(aclSlotSubRuleNumUpdateWithRule(kNowhere, 1001, 0, 3, kIn, ACL_SLOT_OP_ADD), -1);
  // Nothing is charged for a list type without a column, whatever the count.
  EXPECT_EQ(aclSlotSubRuleNumUpdate(201, 7000, 3, kIn, ACL_SLOT_OP_ADD), 0);
  EXPECT_EQ(aclSlotSubRuleNumUpdate(201, 1001, 3, 5, ACL_SLOT_OP_ADD), 0);
  const AclSlotEntry& after = *aclSlotEntryGet(1, 2);
  EXPECT_EQ(std::memcmp(before.curSubRuleNum, after.curSubRuleNum, sizeof before.curSubRuleNum), 0);

  // A release nobody charged is not clamped: the counter wraps, and the slot then refuses every
  // growth instead of wrapping back into room.
  EXPECT_EQ(aclSlotSubRuleNumUpdate(201, 1001, 3, kIn, ACL_SLOT_OP_DEL), 0);
  EXPECT_EQ(cur(2, kIpv4In), 0xFFFFFFFDu);
  EXPECT_EQ(aclSlotSubRuleNumCheck(202, 0, 1001, 3, kIn), ACL_ERR_SLOT_RULE_FULL);
}

TEST_F(SlotTest, SingleRuleBindingsAreTakenOverByTheWholeList) {
  list(1001, 4);
  slot(2)->maxSubRuleNum[kIpv4In] = 4;
  // Rules 1 and 2 bound alone on 1/2, as a traffic policy binds them.
  for (uint32_t r : {1u, 2u}) {
    ASSERT_EQ(aclSlotSubRuleNumUpdateWithRule(201, 1001, r, 1, kIn, ACL_SLOT_OP_ADD), 0);
    entry(201, 1001, kIn, r);
  }
  EXPECT_EQ(aclSlotSingleRuleNumGet(1, 2, 1001, kIn), 2u);
  EXPECT_EQ(aclSlotListRuleBindedCheck(1, 2, 1001, 2, kIn), 1);
  EXPECT_EQ(aclSlotListRuleBindedCheck(1, 3, 1001, 2, kIn), 0);
  // The whole list needs only the two rules not charged yet; a third single rule would not fit.
  EXPECT_EQ(aclSlotSubRuleNumCheckWithRule(203, 1001, 0, 4, kIn), 0);
  slot(2)->maxSubRuleNum[kIpv4In] = 2;
  EXPECT_EQ(aclSlotSubRuleNumCheckWithRule(202, 1001, 1, 1, kIn), 0);  // held already
  EXPECT_EQ(aclSlotSubRuleNumCheckWithRule(202, 1001, 3, 1, kIn), ACL_ERR_SLOT_RULE_FULL);
  EXPECT_EQ(aclSlotSubRuleNumUpdateWithRule(203, 1001, 0, 4, kIn, ACL_SLOT_OP_ADD), 0);
  EXPECT_EQ(cur(2, kIpv4In), 4u);
}

TEST_F(SlotTest, DynamicRulesAreCheckedInEveryDirectionButChargedOnlyInAndOut) {
  list(1001, 2);
  AclSlotEntry* s2 = slot(2);
  ASSERT_EQ(bind(201, 1001, kIn), 0);
  ASSERT_EQ(bind(202, 1001, kIn), 0);
  ASSERT_EQ(bind(203, 1001, kVfp), 0);
  EXPECT_EQ(cur(2, kIpv4Vfp), 2u);

  EXPECT_EQ(aclSlotSubRuleNumCheckDynamic(1001, 3), 0);
  EXPECT_EQ(aclSlotSubRuleNumUpdateDynamic(1001, 3, ACL_SLOT_DYNAMIC_ADD), 0);
  EXPECT_EQ(cur(2, kIpv4In), 3u);  // once for the slot, not per interface
  EXPECT_EQ(cur(2, kIpv4Vfp), 2u);

  // The pre-stage is full: the next rule is refused although nothing charges it there.
  s2->maxSubRuleNum[kIpv4Vfp] = 2;
  EXPECT_EQ(aclSlotSubRuleNumCheckDynamic(1001, 4), ACL_ERR_SLOT_RULE_FULL);
  s2->maxSubRuleNum[kIpv4Vfp] = 1024;
  // A binding on a slot without a record is refused.
  entry(301, 1001, kOut);
  EXPECT_EQ(aclSlotSubRuleNumCheckDynamic(1001, 4), ACL_ERR_SLOT_NOT_EXIST);

  EXPECT_EQ(aclSlotSubRuleNumUpdateDynamic(1001, 3, ACL_SLOT_DYNAMIC_DEL), 0);
  EXPECT_EQ(cur(2, kIpv4In), 2u);
}

// A GEM binding is released by the list's rule count at unbind, so the rules added to and removed
// from its list in between must move the PON slot too, or the release wraps the counter.
TEST_F(SlotTest, DynamicRulesMoveTheSlotOfAGemBinding) {
  list(1001, 2);
  AclSlotEntry* pon = slot(4);
  pon->curSubRuleNum[kIpv4In] = 2;  // what binding the list on the GEM port charged
  gemEntry(kPon, 1001, kIn);
  EXPECT_EQ(aclSlotSubRuleNumCheckDynamic(1001, 3), 0);
  EXPECT_EQ(aclSlotSubRuleNumUpdateDynamic(1001, 3, ACL_SLOT_DYNAMIC_ADD), 0);
  EXPECT_EQ(cur(4, kIpv4In), 3u);
  pon->maxSubRuleNum[kIpv4In] = 3;
  EXPECT_EQ(aclSlotSubRuleNumCheckDynamic(1001, 4), ACL_ERR_SLOT_RULE_FULL);
  EXPECT_EQ(aclSlotSubRuleNumUpdateDynamic(1001, 3, ACL_SLOT_DYNAMIC_DEL), 0);
  EXPECT_EQ(cur(4, kIpv4In), 2u);
}

}  // namespace
}  // namespace slottest
