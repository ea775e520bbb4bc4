// A started ACL group with lists of valid rules, and what the virtual device's global table and
// command log hold, for the CPU defend, blacklist and NAT installation tests.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "platform/fault.h"
#include "platform/vdev/locked.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "unit/store/store_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

namespace svctest {

using Bytes = std::vector<uint8_t>;
using HwKey = std::tuple<uint32_t, uint32_t, uint32_t>;  // list, rule, direction

class InstallTest : public storetest::StoreTest {
 protected:
  // A valid rule that matches IPv4 protocol 6 and permits.
  static AclRuleEntry* validRule(uint32_t lstIdx, uint32_t idx) {
    AclRuleEntry* r = rule(lstIdx, idx);
    if (r == nullptr) return nullptr;
    const uint8_t proto[] = {0x08, 0x00};
    const uint8_t sub[] = {0x00, 0x06};
    EXPECT_EQ(aclRuleShortEntryAdd(r, RULE_BIT_PROTOTYPE, proto, 2), 0);
    EXPECT_EQ(aclRuleShortEntryAdd(r, RULE_BIT_PROTOSUBTYPE, sub, 2), 0);
    aclBitSet(r->fieldBits, RULE_BIT_PROTOTYPE);
    aclBitSet(r->fieldBits, RULE_BIT_PROTOSUBTYPE);
    EXPECT_EQ(aclShortActionEntryAdd(r, RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT, nullptr, 0), 0);
    aclBitSet(r->actionBits, RULE_ACTION_PERMIT);
    r->status = ACL_RULE_STATUS_VALID;
    return r;
  }
  // A new list of such rules.
  static AclListEntry* validList(uint32_t lstIdx, const std::vector<uint32_t>& rules) {
    AclListEntry* l = list(lstIdx);
    for (uint32_t idx : rules) validRule(lstIdx, idx);
    return l;
  }

  // The global hardware table: (list, rule, direction) -> the bytes handed over.
  static std::map<HwKey, vdev::HwEntry> globalTable() {
    const vdev::Journal j = vdev::journalCopy();
    auto it = j.hw.find(vdev::ScopeKey{});
    if (it == j.hw.end()) return {};
    return {it->second.entries.begin(), it->second.entries.end()};
  }
  static size_t anomalies() { return vdev::journalCopy().anomalies.size(); }
  static std::vector<vdev::CommandLogEntry> commands(const char* call) {
    std::vector<vdev::CommandLogEntry> out;
    for (auto& c : vdev::journalCopy().commands) {
      if (c.call == call) out.push_back(c);
    }
    return out;
  }
  // The value-entry pools in use, to see that temporary entries went back.
  static uint32_t valuesInUse() {
    return used(gaclGrp.shortRulePool) + used(gaclGrp.longRulePool) +
           used(gaclGrp.shortActionPool) + used(gaclGrp.longActionPool);
  }
  // Fails the n-th (from 1) global rule command for this list.
  static void failNth(uint32_t lstIdx, uint32_t n, int32_t result = 0x0BAD) {
    plat::faultAdd({.call = "zorHwilCmdSetApi", .list = lstIdx, .result = result, .skip = n - 1});
  }

  // TLV helpers: the field items and the action items of a message.
  struct Item {
    uint8_t type;
    Bytes value;
    bool operator==(const Item&) const = default;
  };
  static std::vector<Item> items(const Bytes& tlv, bool actions) {
    std::vector<Item> out;
    uint32_t at = acldev::kTlvHeaderLen;
    if (actions) at += be::load16(tlv, at);
    const uint32_t end = at + be::load16(tlv, at);
    for (uint32_t p = at + 2; p + 2 <= end;) {
      const uint8_t len = tlv[p + 1];
      out.push_back({tlv[p], Bytes(tlv.begin() + p + 2, tlv.begin() + p + 2 + len)});
      p += 2 + len;
    }
    return out;
  }

  // fn called with the first len bytes of bytes in a descriptor, as the command server calls it.
  static int32_t exCall(int32_t (*fn)(uintptr_t), const Bytes& bytes, uint32_t len) {
    Bytes copy = bytes;
    wire::BufDesc d{copy.data(), len};
    return fn(reinterpret_cast<uintptr_t>(&d));
  }
  static std::array<uint8_t, 8> slotKey(uint32_t sys, uint32_t slot) {
    std::array<uint8_t, 8> k{};
    be::store32(k, 0, sys);
    be::store32(k, 4, slot);
    return k;
  }
};

}  // namespace svctest
