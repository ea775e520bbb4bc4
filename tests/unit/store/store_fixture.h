// A started ACL group (with the meter and counter modules) over a fresh virtual device, and the
// helpers the store tests share.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "counter/counter.h"
#include "main/acl_group.h"
#include "meter/meter.h"
#include "platform/mirror.h"
#include "platform/options.h"
#include "platform/sil.h"
#include "platform/timerange.h"
#include "platform/vdev/model.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "support/run_dir.h"
#include "support/table_call.h"
#include "wire/be.h"

namespace storetest {

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override { start({}); }
  void TearDown() override { aclResetForTest(); }

  // Restarts everything with these acl. options.
  void start(const std::vector<std::pair<std::string, std::string>>& opts) {
    aclResetForTest();
    for (const auto& [k, v] : opts) plat::optSet(k, v);
    ASSERT_EQ(counterOptInit(), 0);
    ASSERT_EQ(meterOptInit(), 0);
    ASSERT_EQ(aclOptInit(), 0);
  }

  static AclListEntry* list(uint32_t lstIdx) {
    AclListEntry* l = aclListEntryAdd(lstIdx);
    EXPECT_NE(l, nullptr) << lstIdx;
    return l;
  }
  static AclRuleEntry* rule(uint32_t lstIdx, uint32_t ruleIdx) {
    AclRuleEntry* r = aclRuleEntryAdd(lstIdx, ruleIdx);
    EXPECT_NE(r, nullptr) << lstIdx << "/" << ruleIdx;
    return r;
  }
  static uint32_t used(SIL_POOL_ID pool) {
    SilMemPoolInfo info{};
    silMemPoolInfoGet(pool, &info);
    return info.used;
  }
  static uint32_t entries(SIL_POOL_ID pool) {
    SilMemPoolInfo info{};
    silMemPoolInfoGet(pool, &info);
    return info.entries;
  }
  // Announcements to group 56 as (event, list, rule).
  struct Event {
    uint32_t event, list, rule;
    bool operator==(const Event&) const = default;
  };
  static std::vector<Event> events() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    std::vector<Event> out;
    for (const auto& a : d.journal.announcements) {
      if (a.group != 56 || a.bytes.size() != 32) continue;
      out.push_back({be::load16(a.bytes, 4), be::load32(a.bytes, 24), be::load32(a.bytes, 28)});
    }
    return out;
  }
  static int32_t mirrorRefs(uint32_t group) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    return d.model.mirrors[group].refCounts[ACL_MODULE_NUM];
  }
  static int32_t timeRangeRefs(uint32_t id) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    return d.model.timeRanges[id].refCount;
  }
  static void validMeter(uint32_t idx) {
    ASSERT_EQ(test::callValue(meterSetApi, idx, 13, 2), 0);
    ASSERT_EQ(test::callValue(meterSetApi, idx, 13, 1), 0);
  }
  static void validCounter(uint32_t idx) {
    ASSERT_EQ(test::callValue(counterSetApi, idx, 3, 2), 0);
    ASSERT_EQ(test::callValue(counterSetApi, idx, 3, 1), 0);
  }

  test::TempRunDir runDir;
};

}  // namespace storetest
