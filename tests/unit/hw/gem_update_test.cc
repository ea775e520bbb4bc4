// GEM port binding: a slot update moves hardware, refCnt, the slot ledger and the GEM bind list
// together; an ONU that unregisters takes all of it away; counted rules keep one statistics
// record per GEM port.
#include "control/acl_slot.h"
#include "diag/acl_audit.h"
#include "hw/acl_gemport_event.h"
#include "support/device_lock.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

constexpr uint32_t kBindTypeIpv4In = 1;  // ingress x 6 + the IPv4 column

class GemTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    // The PON interface 401 sits on slot 4 of system 1.
    slot4 = aclSlotEntryGet(1, 4);
    if (slot4 == nullptr) slot4 = aclSlotEntryAdd(1, 4);
    ASSERT_NE(slot4, nullptr);
  }
  // The record of GEM port kPon/onu/gem, made if need be, with lst bound in inIpv4Acl.
  static AclGemPortEntry* bound(uint16_t onu, uint16_t gem, uint32_t lst) {
    AclGemPortEntry* rec = aclGemPortEntryGet(kPon, onu, gem);
    if (rec == nullptr) rec = aclGemPortEntryAdd(kPon, onu, gem);
    EXPECT_NE(rec, nullptr);
    if (rec == nullptr) return nullptr;
    EXPECT_EQ(
        aclGemPortRuleUpdate(kPon, onu, gem, ACL_BIND_KIND_IPV4, 0, lst, &rec->slots.inIpv4Acl), 0);
    return rec;
  }
  static uint32_t gemEntries() {
    return static_cast<uint32_t>(avl_numnodes(&gaclGrp.gemPortListTree));
  }
  AclSlotEntry* slot4 = nullptr;
};

TEST_F(GemTest, RefusedUpdatesChangeNothing) {
  listOf(1001, {1});
  listOf(1, {1});  // an L2 list
  AclGemPortEntry* rec = aclGemPortEntryAdd(kPon, 5, 3);
  ASSERT_NE(rec, nullptr);
  uint32_t unbound = 0;
  struct Case {
    const char* name;
    uint16_t onu, gem;
    uint8_t kind;
    uint32_t lst;
    uint32_t* slot;
    int32_t want;
  } cases[] = {
      {"missing list", 5, 3, ACL_BIND_KIND_IPV4, 1999, &rec->slots.inIpv4Acl,
       ACL_ERR_LIST_NOT_EXIST},
      {"unbind an empty slot", 5, 3, ACL_BIND_KIND_IPV4, 0, &rec->slots.inIpv4Acl,
       ACL_ERR_LIST_NOT_EXIST},
      {"list of another type", 5, 3, ACL_BIND_KIND_IPV4, 1, &rec->slots.inIpv4Acl,
       CMN_ERR_BAD_PARAM},
      {"untyped kind", 5, 3, ACL_BIND_KIND_UNTYPED, 1001, &rec->slots.inAcl, CMN_ERR_BAD_PARAM},
      {"no ONU and no GEM port", 0, 0, ACL_BIND_KIND_IPV4, 1001, &unbound, CMN_ERR_BAD_PARAM},
      {"no slot", 5, 3, ACL_BIND_KIND_IPV4, 1001, nullptr, CMN_ERR_BAD_PARAM},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(aclGemPortRuleUpdate(kPon, c.onu, c.gem, c.kind, 0, c.lst, c.slot), c.want);
    EXPECT_EQ(gemEntries(), 0u);
    EXPECT_TRUE(units(2).empty() && units(1).empty());
    EXPECT_EQ(aclListEntryGet(1001)->refCnt, 0);
  }
  expectAuditClean();
}

TEST_F(GemTest, UnregisterTakesEveryGemPortOfTheOnuOrOne) {
  AclListEntry* l = listOf(1001, {1, 2});
  AclListEntry* v = listOf(1, {4});
  for (uint16_t gem : {3, 4}) {
    AclGemPortEntry* rec = bound(5, gem, 1001);
    ASSERT_NE(rec, nullptr);
    // The pre-stage slot unbinds with direction 2 and its own kind.
    ASSERT_EQ(
        aclGemPortRuleUpdate(kPon, 5, gem, ACL_BIND_KIND_VFP_L2, 2, 1, &rec->slots.inL2VfpAcl), 0);
  }
  bound(6, 3, 1001);
  EXPECT_EQ(l->refCnt, 3);
  expectAuditClean();

  // A GEM port without a record: nothing moves.
  const UnitView before = units(2);
  EXPECT_EQ(aclOnuGemPortUnregister(kPon, 5, 9), ACL_ERR_IF_NOT_EXIST);
  EXPECT_EQ(aclOnuGemPortUnregister(kPon, 7, 0), ACL_ERR_IF_NOT_EXIST);
  EXPECT_EQ(aclGemPortDelEx(kPon, 7, 1), ACL_ERR_IF_NOT_EXIST);
  EXPECT_EQ(units(2), before);
  EXPECT_EQ(l->refCnt, 3);
  EXPECT_EQ(gemEntries(), 5u);

  ASSERT_EQ(aclOnuGemPortUnregister(kPon, 5, 4), 0);
  EXPECT_EQ(aclGemPortEntryGet(kPon, 5, 4), nullptr);
  EXPECT_NE(aclGemPortEntryGet(kPon, 5, 3), nullptr);
  EXPECT_EQ(std::pair(l->refCnt, v->refCnt), std::pair(2, 1));
  expectAuditClean();

  ASSERT_EQ(aclOnuGemPortUnregister(kPon, 5, 0), 0);
  EXPECT_EQ(aclGemPortEntryGet(kPon, 5, 3), nullptr);
  EXPECT_EQ(std::pair(l->refCnt, v->refCnt), std::pair(1, 0));
  EXPECT_EQ(gemEntries(), 1u);
  EXPECT_EQ(units(2), expect({kPon}, 1001, {{1, 1}, {2, 2}}));  // ONU 6's binding only
  EXPECT_EQ(slot4->curSubRuleNum[kBindTypeIpv4In], 2u);
  EXPECT_EQ(anomalyCount(), 0u);
  expectAuditClean();
}

// A binding the hardware refuses to give up is still given up in the books when its ONU goes.
TEST_F(GemTest, UnregisterGivesUpWhatTheHardwareKeeps) {
  AclListEntry* l = listOf(1001, {1});
  ASSERT_NE(bound(5, 3, 1001), nullptr);
  plat::faultAdd({.call = "zorHwilCmdSetApi", .cmd = HWIL_CMD_GEM_DEL, .result = kHwFault});
  ASSERT_EQ(aclOnuGemPortUnregister(kPon, 5, 0), 0);
  EXPECT_EQ(aclGemPortEntryGet(kPon, 5, 3), nullptr);
  EXPECT_EQ(l->refCnt, 0);
  EXPECT_EQ(gemEntries(), 0u);
  EXPECT_EQ(slot4->curSubRuleNum[kBindTypeIpv4In], 0u);
}

TEST_F(GemTest, CountedRuleOnTwoGemPortsKeepsTwoRecordsInGemPortOrder) {
  listOf(1001, {}, {1});
  for (uint16_t gem : {7, 2}) ASSERT_NE(bound(5, gem, 1001), nullptr);
  std::vector<uint32_t> order;
  SilDlNode* head = &gaclGrp.gemPortStatsList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    order.push_back(dlist::owner<AclStatsEntry>(n, offsetof(AclStatsEntry, gemNode))->gemPortId);
  }
  EXPECT_EQ(order, (std::vector<uint32_t>{2, 7}));
  EXPECT_EQ(statsCount(&gaclGrp.ifStatsList), 0u);
  ASSERT_EQ(aclOnuGemPortUnregister(kPon, 5, 0), 0);
  EXPECT_EQ(statsCount(head), 0u);
  EXPECT_EQ(used(gaclGrp.statsPool), 0u);
}

// An ONU that comes up gets every GEM port record's bindings back into the hardware.
TEST_F(GemTest, OnuUpReinstallsEveryRecord) {
  listOf(1001, {1});
  ASSERT_NE(bound(5, 3, 1001), nullptr);
  test::onDevice([&](vdev::Device& d) {
    d.journal.hw.clear();  // the ONU was reset and lost its rules
  });
  ASSERT_EQ(aclOnuGemPortUp(kPon, 5), 0);
  EXPECT_EQ(units(2), expect({kPon}, 1001, {{1, 1}}));
  expectAuditClean();
}

}  // namespace
}  // namespace iftest
