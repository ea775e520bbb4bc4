// Moving an interface's bind slot and unbinding a whole interface: hardware, the lists' refCnt,
// the slot ledger and the bind-list entries move together.
#include "control/acl_slot.h"
#include "main/acl_log.h"
#include "platform/logging.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

constexpr uint32_t kBindTypeIpv4In = 1;  // ingress x 6 + the IPv4 column
constexpr uint32_t kBindTypeL2Vfp = 12;  // pre-stage x 6 + the L2 column

class IfUpdateTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    // Port 201 sits on slot 2 of system 1.
    slot2 = aclSlotEntryGet(1, 2);
    if (slot2 == nullptr) slot2 = aclSlotEntryAdd(1, 2);
    ASSERT_NE(slot2, nullptr);
    rec = aclIfEntryAdd(kPort);
    ASSERT_NE(rec, nullptr);
  }
  uint32_t charged(uint32_t bindType) const { return slot2->curSubRuleNum[bindType]; }
  static bool entry(uint8_t kind, uint8_t dir, uint32_t lst) {
    return aclIfListGet(kPort, kind, dir, lst, 0) != nullptr;
  }

  AclSlotEntry* slot2 = nullptr;
  AclIfEntry* rec = nullptr;
};

TEST_F(IfUpdateTest, BindReplaceAndUnbindMoveEverythingTogether) {
  AclListEntry* a = listOf(1001, {1, 2});
  AclListEntry* b = listOf(1002, {5});
  uint32_t& slot = rec->slots.inIpv4Acl;
  ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1001, &slot), 0);
  EXPECT_EQ(slot, 1001u);
  EXPECT_EQ(a->refCnt, 1);
  EXPECT_TRUE(entry(ACL_BIND_KIND_IPV4, 0, 1001));
  EXPECT_EQ(charged(kBindTypeIpv4In), 2u);
  EXPECT_EQ(units(), expect({kPort}, 1001, {{1, 4097}, {2, 4098}}));

  // Replacing with itself takes the binding out and puts it back.
  ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1001, &slot), 0);
  EXPECT_EQ(a->refCnt, 1);
  EXPECT_EQ(charged(kBindTypeIpv4In), 2u);

  ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1002, &slot), 0);
  EXPECT_EQ(slot, 1002u);
  EXPECT_EQ(a->refCnt, 0);
  EXPECT_EQ(b->refCnt, 1);
  EXPECT_FALSE(entry(ACL_BIND_KIND_IPV4, 0, 1001));
  EXPECT_TRUE(entry(ACL_BIND_KIND_IPV4, 0, 1002));
  EXPECT_EQ(charged(kBindTypeIpv4In), 1u);
  EXPECT_EQ(units(), expect({kPort}, 1002, {{5, 4101}}));

  ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 0, &slot), 0);
  EXPECT_EQ(slot, 0u);
  EXPECT_EQ(b->refCnt, 0);
  EXPECT_FALSE(entry(ACL_BIND_KIND_IPV4, 0, 1002));
  EXPECT_EQ(charged(kBindTypeIpv4In), 0u);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(anomalyCount(), 0u);
}

TEST_F(IfUpdateTest, RefusedUpdatesChangeNothing) {
  AclListEntry* a = listOf(1001, {1, 2});
  listOf(1002, {1, 2, 3});
  listOf(1, {1});  // an L2 list
  uint32_t& slot = rec->slots.inIpv4Acl;
  ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1001, &slot), 0);
  slot2->maxSubRuleNum[kBindTypeIpv4In] = 2;  // 1002 needs one more than the slot has

  struct Case {
    const char* name;
    uint32_t newLst;
    int32_t want;
  };
  const Case cases[] = {
      {"missing list", 1999, ACL_ERR_LIST_NOT_EXIST},
      {"list of another type", 1, CMN_ERR_BAD_PARAM},
      {"slot full", 1002, ACL_ERR_SLOT_RULE_FULL},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, c.newLst, &slot), c.want);
    EXPECT_EQ(slot, 1001u);
    EXPECT_EQ(a->refCnt, 1);
    EXPECT_TRUE(entry(ACL_BIND_KIND_IPV4, 0, 1001));
    EXPECT_EQ(charged(kBindTypeIpv4In), 2u);
    EXPECT_EQ(units().size(), 2u);
  }
  uint32_t empty = 0;
  EXPECT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 0, &empty), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1001, nullptr), CMN_ERR_BAD_PARAM);

  // A new list the hardware refuses leaves the slot empty, the old binding already gone.
  slot2->maxSubRuleNum[kBindTypeIpv4In] = 1024;
  failOn(kPort, HWIL_CMD_IF_ADD, 1002, 3);
  EXPECT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1002, &slot), kHwFault);
  EXPECT_EQ(slot, 0u);
  EXPECT_EQ(a->refCnt, 0);
  EXPECT_EQ(aclListEntryGet(1002)->refCnt, 0);
  EXPECT_EQ(charged(kBindTypeIpv4In), 0u);
  EXPECT_TRUE(units().empty());
}

TEST_F(IfUpdateTest, InterfaceGoingAwayGivesUpEveryBinding) {
  AclListEntry* a = listOf(1001, {1});
  AclListEntry* b = listOf(1002, {1});
  AclListEntry* c = listOf(1003, {1});
  ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_BIND_KIND_IPV4, 0, 1001, &rec->slots.inIpv4Acl), 0);
  ASSERT_EQ(
      aclIfRuleUpdate(kPort, ACL_BIND_KIND_VFP_L2 + 1, ACL_DIR_VFP, 1002, &rec->slots.inIpv4VfpAcl),
      0);
  // The untyped ingress slot, switched on.
  ASSERT_EQ(aclIfAdd(kPort, 0, 0, c, 0, nullptr, ACL_BIND_KIND_UNTYPED), 0);
  ++c->refCnt;
  ASSERT_NE(aclIfListAdd(kPort, ACL_BIND_KIND_UNTYPED, 0, 1003, 0), nullptr);
  rec->slots.inAcl = 1003;
  rec->inCtrl = ACL_IF_CTRL_ON;
  ASSERT_GT(charged(kBindTypeIpv4In), 0u);

  failOn(kPort, HWIL_CMD_IF_DEL, 1001, 1);
  const uint64_t seq = plat::logLastSeq();
  EXPECT_EQ(aclIfDelEx(kPort), 0);
  std::vector<std::string> failed;
  for (const auto& l : plat::logRecent(seq)) {
    if (l.operational && l.tag == ACL_LOG_TAG_BASE + 13) failed.push_back(l.text);
  }
  EXPECT_EQ(failed, std::vector<std::string>{"Delete interface hardware acl failed. "
                                             "(ifName=[ge-1/2/1], list=[1001], rule=[0], "
                                             "dir=[in], ret=[65536153])"});
  for (const AclListEntry* l : {a, b, c}) EXPECT_EQ(l->refCnt, 0) << l->lstIdx;
  EXPECT_EQ(avl_numnodes(&gaclGrp.ifListTree), 0u);
  EXPECT_EQ(charged(kBindTypeIpv4In), 0u);
  EXPECT_EQ(charged(kBindTypeL2Vfp + 1), 0u);
  EXPECT_EQ(rec->inCtrl, ACL_IF_CTRL_OFF);
  EXPECT_EQ(rec->slots.inIpv4Acl, 1001u);                  // the caller deletes the record
  EXPECT_EQ(units(), expect({kPort}, 1001, {{1, 4097}}));  // the refused removal
  EXPECT_EQ(aclIfDelEx(202), ACL_ERR_IF_NOT_EXIST);
}

}  // namespace
}  // namespace iftest
