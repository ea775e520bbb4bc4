// A started ACL group over a fresh virtual device, with the rule table called the way the command
// server calls it: a 12-byte big-endian key, value words and descriptors.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "api/acl_scalar_api.h"
#include "platform/fault.h"
#include "platform/hwil.h"
#include "support/table_call.h"
#include "unit/store/store_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace ruletest {

using Bytes = std::vector<uint8_t>;

// A rule key area.
struct Key {
  std::array<uint8_t, ACL_RULE_KEY_LEN> bytes{};
  Key(uint32_t lst, uint32_t rule, uint32_t filter = 0) {
    be::store32(bytes, 0, lst);
    be::store32(bytes, 4, rule);
    be::store32(bytes, 8, filter);
  }
  uintptr_t addr() { return reinterpret_cast<uintptr_t>(bytes.data()); }
  uint32_t lst() const { return be::load32(bytes, 0); }
  uint32_t rule() const { return be::load32(bytes, 4); }
};

class RuleApiTest : public storetest::StoreTest {
 protected:
  static constexpr uint32_t kList = 1001;

  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_EQ(test::callValue(aclLstSetApi, kList, 9, 2), 0);
  }

  // Restarts with these options and list kList created again.
  void restart(const std::vector<std::pair<std::string, std::string>>& opts) {
    start(opts);
    ASSERT_EQ(test::callValue(aclLstSetApi, kList, 9, 2), 0);
  }

  // kList bound on the global inIpv4Acl (scalar set 28), as an operator binds it; with dynamic
  // binding a rule made valid then reaches the global table.
  static void bindGlobally(bool bind = true) {
    ASSERT_EQ(test::callValue(aclScalarSetApi, 0, 28, bind ? kList : 0), 0);
  }
  // Fails the global hardware command cmd (HWIL_CMD_GLOBAL_ADD or _DEL) for rule of kList.
  static void failGlobal(uint32_t cmd, uint32_t rule, int32_t result, int32_t count = 1) {
    plat::faultAdd({.call = "zorHwilCmdSetApi",
                    .cmd = cmd,
                    .list = kList,
                    .rule = rule,
                    .result = result,
                    .count = count});
  }
  static bool inGlobalTable(uint32_t rule) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    auto it = d.journal.hw.find(vdev::ScopeKey{0, 0, 0, 0});
    return it != d.journal.hw.end() && it->second.entries.contains({kList, rule, 0});
  }

  static int32_t setValue(uint32_t lst, uint32_t rule, uint32_t cmd, uint32_t v) {
    Key k(lst, rule);
    return test::callValue(aclRuleSetApi, k.addr(), cmd, v);
  }
  static int32_t set(uint32_t rule, uint32_t cmd, uint32_t v) {
    return setValue(kList, rule, cmd, v);
  }
  static int32_t setBytes(uint32_t lst, uint32_t rule, uint32_t cmd, const Bytes& bytes) {
    Key k(lst, rule);
    Bytes copy = bytes;
    wire::BufDesc d{copy.empty() ? nullptr : copy.data(), static_cast<uint32_t>(copy.size())};
    return aclRuleSetApi(k.addr(), cmd, reinterpret_cast<uintptr_t>(&d));
  }
  static int32_t setDesc(uint32_t rule, uint32_t cmd, const Bytes& bytes) {
    return setBytes(kList, rule, cmd, bytes);
  }
  // The value a get answers, with its result in *ret.
  static uint32_t getValue(uint32_t lst, uint32_t rule, uint32_t cmd, int32_t* ret = nullptr) {
    Key k(lst, rule);
    uint32_t out = 0xEEEEEEEE;
    const int32_t r = test::callValue(aclRuleGetApi, k.addr(), cmd, 0xEEEEEEEE, &out);
    if (ret) *ret = r;
    return out;
  }
  static uint32_t get(uint32_t rule, uint32_t cmd, int32_t* ret = nullptr) {
    return getValue(kList, rule, cmd, ret);
  }
  // What a get writes through a descriptor of cap bytes (up to the length it wrote back).
  static Bytes getDesc(uint32_t rule, uint32_t cmd, uint32_t cap = 512, int32_t* ret = nullptr) {
    Key k(kList, rule);
    test::Desc d(cap);
    std::fill(d.data.begin(), d.data.end(), uint8_t{0xEE});
    const int32_t r = aclRuleGetApi(k.addr(), cmd, d.addr());
    if (ret) *ret = r;
    return Bytes(d.data.begin(), d.data.begin() + std::min<size_t>(d.desc.len, cap));
  }

  static int32_t create(uint32_t rule) { return set(rule, ACL_RULE_CMD_STATUS, 2); }
  static int32_t makeValid(uint32_t rule) { return set(rule, ACL_RULE_CMD_STATUS, 1); }
  static int32_t makeInvalid(uint32_t rule) { return set(rule, ACL_RULE_CMD_STATUS, 3); }
  static int32_t remove(uint32_t rule) { return set(rule, ACL_RULE_CMD_STATUS, 4); }

  static AclRuleEntry* record(uint32_t rule) { return aclRuleEntryGetByIndex(kList, rule); }
  static bool fieldBit(uint32_t rule, uint32_t code) {
    const AclRuleEntry* r = record(rule);
    return r != nullptr && aclBitTest(r->fieldBits, code);
  }

  // An 8-byte in-action set or a 2-byte out-action set of these bits.
  static Bytes bits(std::initializer_list<uint32_t> codes, size_t len = 8) {
    Bytes b(len, 0);
    for (uint32_t c : codes) aclBitSet(b, c);
    return b;
  }
  // One in-action parameter item: code and a 4-byte value.
  static Bytes item(uint8_t code, uint32_t v) {
    Bytes b{code, 0, 0, 0, 0};
    be::store32(std::span<uint8_t>(b).subspan(1), 0, v);
    return b;
  }

  static size_t relayCount() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    return d.journal.relays.size();
  }
  static vdev::Relay lastRelay() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    return d.journal.relays.empty() ? vdev::Relay{} : d.journal.relays.back();
  }
  // Anomalies of the reference services (mirror groups, time ranges). A rule made valid on a
  // bound list is removed before it is installed, which the hardware files as the removal of an
  // entry it did not hold; those are not counted here.
  static size_t anomalies() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    size_t n = 0;
    for (const auto& a : d.journal.anomalies) n += a.call != "zorHwilCmdSetApi" ? 1 : 0;
    return n;
  }
  static int32_t meterRefs(uint32_t idx) { return meterGetRefcount(idx); }
  static int32_t counterRefs(uint32_t idx) { return counterGetRefcount(idx); }
  // The action entries the rule holds, in- and out-actions.
  static size_t actionEntries(uint32_t rule) {
    size_t n = 0;
    AclRuleEntry* r = record(rule);
    for (AclActionEntry* e = aclActionFirst(r); e != nullptr; e = aclActionNext(r, e)) ++n;
    return n;
  }
};

}  // namespace ruletest
