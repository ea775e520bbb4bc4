// A started ACL group over the built-in device, with helpers that bind and unbind the way the
// interface binding does around the slot ledger: check, then charge before the bind-list entry
// goes in; release before it comes out. The entries are inserted into the bind trees directly.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <mutex>

#include "control/acl_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "platform/ifmgr.h"
#include "platform/options.h"
#include "platform/sil.h"
#include "platform/vdev/model.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "support/run_dir.h"
#include "wire/acl_ret.h"

namespace slottest {

constexpr uint8_t kIn = 0, kOut = 1, kVfp = 2;
constexpr uint32_t kIpv4In = 1, kIpv4Out = 7, kIpv4Vfp = 13;
// Built-in device: ports 201.. on slot 1/2, 301.. on 1/3, PON 401 on 1/4, aggregation 1001.
constexpr uint32_t kAgg = 1001, kAllSlot = 3000, kPon = 401, kNowhere = 9999;

class SlotTest : public ::testing::Test {
 protected:
  void SetUp() override { start(); }
  void TearDown() override { aclResetForTest(); }

  void start(const char* maxSlotNum = nullptr) {
    aclResetForTest();
    if (maxSlotNum) plat::optSet("acl.maxslotnum", maxSlotNum);
    addInterface(kAllSlot, 1, 0, ZOR_IF_KIND_ALLSLOT);
    ASSERT_EQ(aclOptInit(), 0);
  }

  static void addInterface(uint32_t index, uint32_t sys, uint32_t slot, uint32_t kind) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    vdev::Interface i;
    i.index = index;
    i.name = "if" + std::to_string(index);
    i.location[ZOR_LOC_SYS] = sys;
    i.location[ZOR_LOC_SLOT] = slot;
    i.location[ZOR_LOC_KIND] = kind;
    d.model.interfaces[index] = i;
  }

  // List lstIdx with rules 1..n.
  static AclListEntry* list(uint32_t lstIdx, uint32_t n) {
    AclListEntry* l = aclListEntryAdd(lstIdx);
    EXPECT_NE(l, nullptr);
    for (uint32_t r = 1; r <= n; ++r) EXPECT_NE(aclRuleEntryAdd(lstIdx, r), nullptr);
    return l;
  }
  static AclSlotEntry* slot(uint32_t s) {
    AclSlotEntry* e = aclSlotEntryGetOrAdd(1, s);
    EXPECT_NE(e, nullptr);
    return e;
  }
  static uint32_t cur(uint32_t s, uint32_t type) {
    const AclSlotEntry* e = aclSlotEntryGet(1, s);
    return e == nullptr ? 0xDEAD : e->curSubRuleNum[type];
  }

  static AclIfListEntry* entry(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir, uint32_t rule = 0) {
    auto* e = static_cast<AclIfListEntry*>(silMemPoolAlloc(gaclGrp.ifListPool, nullptr));
    std::memset(e, 0, sizeof *e);
    e->ifIndex = ifIndex;
    e->listType = static_cast<uint8_t>(aclListTypeGetByIndex(lstIdx));
    e->dir = dir;
    e->lstIdx = lstIdx;
    e->ruleIdx = rule;
    EXPECT_EQ(avl_add(&gaclGrp.ifListTree, e), 0);
    return e;
  }
  static void removeEntry(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir, uint32_t rule = 0) {
    AclIfListEntry key{};
    key.ifIndex = ifIndex;
    key.listType = static_cast<uint8_t>(aclListTypeGetByIndex(lstIdx));
    key.dir = dir;
    key.lstIdx = lstIdx;
    key.ruleIdx = rule;
    void* e = avl_find(&gaclGrp.ifListTree, &key, nullptr);
    ASSERT_NE(e, nullptr);
    avl_remove(&gaclGrp.ifListTree, e);
    silMemPoolFree(gaclGrp.ifListPool, e);
  }
  static void gemEntry(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir) {
    auto* e = static_cast<AclGemPortListEntry*>(silMemPoolAlloc(gaclGrp.gemPortListPool, nullptr));
    std::memset(e, 0, sizeof *e);
    e->ifIndex = ifIndex;
    e->onuId = 1;
    e->gemPort = 1;
    e->lstIdx = lstIdx;
    e->dir = dir;
    ASSERT_EQ(avl_add(&gaclGrp.gemPortListTree, e), 0);
  }

  // A whole-list binding as the interface binding makes it.
  static int32_t bind(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir) {
    const uint32_t n = aclListEntryGet(lstIdx)->ruleNum;
    if (int32_t ret = aclSlotSubRuleNumCheck(ifIndex, 0, lstIdx, n, dir)) return ret;
    if (int32_t ret = aclSlotSubRuleNumUpdate(ifIndex, lstIdx, n, dir, ACL_SLOT_OP_ADD)) return ret;
    entry(ifIndex, lstIdx, dir);
    return 0;
  }
  static int32_t unbind(uint32_t ifIndex, uint32_t lstIdx, uint8_t dir) {
    const uint32_t n = aclListEntryGet(lstIdx)->ruleNum;
    const int32_t ret = aclSlotSubRuleNumUpdate(ifIndex, lstIdx, n, dir, ACL_SLOT_OP_DEL);
    removeEntry(ifIndex, lstIdx, dir);
    return ret;
  }

  test::TempRunDir runDir;
};

}  // namespace slottest
