// A started ACL group over a fresh virtual device, with the scalar table called the way the
// command server calls it, and readers of what the device kept (relays, global hardware table).
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "api/acl_scalar_api.h"
#include "platform/fault.h"
#include "platform/vdev/model.h"
#include "support/device_lock.h"
#include "support/table_call.h"
#include "unit/store/store_fixture.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace scalartest {

struct HwRule {
  uint32_t list, rule, dir, priority;
  bool operator==(const HwRule&) const = default;
};

class ScalarTest : public storetest::StoreTest {
 protected:
  static int32_t set(uint32_t cmd, uint32_t v) {
    return test::callValue(aclScalarSetApi, 0, cmd, v);
  }
  static uint32_t get(uint32_t cmd, int32_t* ret = nullptr) {
    uint32_t out = 0xEEEEEEEE;
    const int32_t r = test::callValue(aclScalarGetApi, 0, cmd, 0xEEEEEEEE, &out);
    if (ret) *ret = r;
    return out;
  }

  static std::vector<vdev::Relay> relays() {
    return test::onDevice([&](vdev::Device& d) { return d.journal.relays; });
  }
  // The global hardware table in list, rule, direction order.
  static std::vector<HwRule> globalHw() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    std::vector<HwRule> out;
    for (const auto& [scope, table] : d.journal.hw) {
      if (scope.scope != 0) continue;
      for (const auto& [k, e] : table.entries) out.push_back({e.list, e.rule, e.dir, e.priority});
    }
    return out;
  }
  static size_t anomalies() {
    return test::onDevice([&](vdev::Device& d) { return d.journal.anomalies.size(); });
  }

  // A list with valid rules (each matching one ToS value).
  static void makeList(uint32_t lstIdx, std::vector<uint32_t> rules) {
    ASSERT_EQ(test::callValue(aclLstSetApi, lstIdx, 9, 2), 0);
    for (uint32_t r : rules) {
      std::array<uint8_t, 12> key{};
      be::store32(key, 0, lstIdx);
      be::store32(key, 4, r);
      const auto k = reinterpret_cast<uintptr_t>(key.data());
      ASSERT_EQ(test::callValue(aclRuleSetApi, k, 57, 2), 0) << lstIdx << "/" << r;
      ASSERT_EQ(test::callValue(aclRuleSetApi, k, 19, 8 + r), 0);
      ASSERT_EQ(test::callValue(aclRuleSetApi, k, 57, 1), 0);
    }
  }
  static int32_t refCnt(uint32_t lstIdx) {
    uint32_t v = 0;
    EXPECT_EQ(test::callValue(aclLstGetApi, lstIdx, 2, 0, &v), 0) << lstIdx;
    return static_cast<int32_t>(v);
  }
};

}  // namespace scalartest
