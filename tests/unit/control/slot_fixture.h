// A started ACL group over the built-in device, with helpers that bind and unbind the way the
// interface binding does around the slot ledger: check, then charge before the bind-list entry
// goes in; release before it comes out. Entries go in and out through the bind-list functions,
// which keep the ledger's index in step.
#pragma once

#include <gtest/gtest.h>

#include <mutex>

#include "control/acl_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "platform/ifmgr.h"
#include "platform/options.h"
#include "platform/vdev/model.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "support/device_lock.h"
#include "support/run_dir.h"
#include "wire/acl_ret.h"

namespace slottest {

constexpr uint8_t kIn = 0, kOut = 1, kVfp = 2;
constexpr uint32_t kIpv4In = 1, kIpv4Out = 7, kIpv4Vfp = 13;
// Built-in device: ports 201.. on slot 1/2, 301.. on 1/3, PON 401 on 1/4, aggregation 1001; the
// fixture adds the all-slot interface 3000.
constexpr uint32_t kAgg = 1001, kAllSlot = 3000, kPon = 401, kNowhere = 9999;

class SlotTest : public ::testing::Test {
 protected:
  void SetUp() override { start(); }
  void TearDown() override { aclResetForTest(); }

  void start(const char* maxSlotNum = nullptr) {
    aclResetForTest();
    if (maxSlotNum) plat::optSet("acl.maxslotnum", maxSlotNum);
    test::onDevice([&](vdev::Device& d) {
      d.model.interfaces[kAllSlot].index = kAllSlot;
      d.model.interfaces[kAllSlot].location[ZOR_LOC_SYS] = 1;
      d.model.interfaces[kAllSlot].location[ZOR_LOC_KIND] = ZOR_IF_KIND_ALLSLOT;
    });
    ASSERT_EQ(aclOptInit(), 0);
  }
  // List lstIdx with rules 1..n.
  static void list(uint32_t lstIdx, uint32_t n) {
    ASSERT_NE(aclListEntryAdd(lstIdx), nullptr);
    for (uint32_t r = 1; r <= n; ++r) ASSERT_NE(aclRuleEntryAdd(lstIdx, r), nullptr);
  }
  static AclSlotEntry* slot(uint32_t s) { return aclSlotEntryGetOrAdd(1, s); }
  static uint32_t cur(uint32_t s, uint32_t type) {
    const AclSlotEntry* e = aclSlotEntryGet(1, s);
    return e == nullptr ? 0xDEAD : e->curSubRuleNum[type];
  }

  static AclIfListEntry key(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir, uint32_t rule) {
    AclIfListEntry k{};
    k.ifIndex = ifIndex;
    k.listType = static_cast<uint8_t>(aclListTypeGetByIndex(lstIdx));
    k.dir = dir;
    k.lstIdx = lstIdx;
    k.ruleIdx = rule;
    return k;
  }
  static void entry(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir, uint32_t rule = 0) {
    const AclIfListEntry k = key(ifIndex, lstIdx, dir, rule);
    EXPECT_EQ(aclIfListGet(ifIndex, k.listType, dir, lstIdx, rule), nullptr);
    EXPECT_NE(aclIfListAdd(ifIndex, k.listType, dir, lstIdx, rule), nullptr);
  }
  static void gemEntry(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir) {
    EXPECT_EQ(aclGemPortListGet(ifIndex, 1, 1, 1, dir, lstIdx), nullptr);
    EXPECT_NE(aclGemPortListAdd(ifIndex, 1, 1, 1, dir, lstIdx), nullptr);
  }

  // A whole-list binding made and taken back as the interface binding does.
  static int32_t bind(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir) {
    const uint32_t n = aclListEntryGet(lstIdx)->ruleNum;
    if (int32_t ret = aclSlotSubRuleNumCheck(ifIndex, 0, lstIdx, n, dir)) return ret;
    if (int32_t ret = aclSlotSubRuleNumUpdate(ifIndex, lstIdx, n, dir, ACL_SLOT_OP_ADD)) return ret;
    entry(ifIndex, lstIdx, dir);
    return 0;
  }
  static int32_t unbind(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir) {
    const int32_t ret = aclSlotSubRuleNumUpdate(ifIndex, lstIdx, aclListEntryGet(lstIdx)->ruleNum,
                                                dir, ACL_SLOT_OP_DEL);
    const AclIfListEntry k = key(ifIndex, lstIdx, dir, 0);
    aclIfListDel(aclIfListGet(ifIndex, k.listType, dir, lstIdx, 0));
    return ret;
  }

  test::TempRunDir runDir;
};

}  // namespace slottest
