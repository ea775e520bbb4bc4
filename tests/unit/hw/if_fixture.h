// Interface binding against the virtual device's per-unit and per-GEM-key hardware tables: the
// built-in chassis has Ethernet ports 201..212 and 301..312, the aggregation 1001 over 203, 204
// and 303, and the PON interface 401.
#pragma once

#include <set>

#include "control/acl_slot.h"
#include "diag/acl_audit.h"
#include "hw/acl_bind_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "platform/ifmgr.h"
#include "stats/acl_gemport_stats.h"
#include "support/device_lock.h"
#include "unit/hw/glb_fixture.h"
#include "wire/acl_bits.h"
#include "wire/acl_dev_layout.h"

namespace iftest {

using namespace glbtest;

constexpr uint32_t kAgg = 1001;
constexpr uint32_t kPort = 201;
constexpr uint32_t kPon = 401;

// (unit, list, rule, dir) -> priority, over every unit table.
using UnitKey = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>;
using UnitView = std::map<UnitKey, uint32_t>;

class IfTest : public GlbTest {
 protected:
  // Slot `slot` of system 1 known to the ledger, with room for every bind type.
  static void slotRoom(uint32_t slot) {
    AclSlotEntry* s = aclSlotEntryGet(1, slot);
    if (s == nullptr) s = aclSlotEntryAdd(1, slot);
    ASSERT_NE(s, nullptr);
    for (uint32_t& m : s->maxSubRuleNum) m = 1024;
  }
  // The in-action bit set a unit's table holds for one inbound rule; empty when it holds none.
  static Bytes inActionsOn(uint32_t unit, uint32_t lst, uint32_t rule) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    const auto& t = d.journal.hw[vdev::ScopeKey{1, unit, 0, 0}];
    auto it = t.entries.find({lst, rule, 0});
    if (it == t.entries.end()) return {};
    const Bytes& dev = it->second.data;
    return Bytes(dev.begin() + acldev::kAction, dev.begin() + acldev::kAction + 8);
  }
  static Bytes actionBits(std::initializer_list<uint32_t> codes) {
    Bytes b(8, 0);
    for (uint32_t c : codes) aclBitSet(b, c);
    return b;
  }
  static void expectAuditClean() {
    for (const AclAuditDiff& d : aclAuditRun()) ADD_FAILURE() << d.check << ": " << d.text;
  }
  static UnitView units(uint32_t scope = 1) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    UnitView out;
    for (const auto& [key, table] : d.journal.hw) {
      if (key.scope != scope) continue;
      for (const auto& [k, e] : table.entries) {
        out[{key.unit, std::get<0>(k), std::get<1>(k), std::get<2>(k)}] = e.priority;
      }
    }
    return out;
  }
  // What every unit of `on` should hold: each rule with its priority, in direction dir.
  static UnitView expect(std::initializer_list<uint32_t> on, uint32_t lst,
                         std::initializer_list<std::pair<uint32_t, uint32_t>> rulePrio,
                         uint32_t dir = 0) {
    UnitView out;
    for (uint32_t u : on) {
      for (auto [r, p] : rulePrio) out[{u, lst, r, dir}] = p;
    }
    return out;
  }
  // The aggregation's programming mode for every rule command (bit 1 itself, bit 0 members).
  static void aggMode(uint8_t mode) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    vdev::Interface& agg = d.model.interfaces[kAgg];
    for (uint32_t cmd : {HWIL_CMD_IF_ADD, HWIL_CMD_IF_DEL, HWIL_CMD_IF_TLV}) agg.modes[cmd] = mode;
  }
  static void aggMembers(std::vector<uint32_t> members) {
    test::onDevice([&](vdev::Device& d) { d.model.interfaces[kAgg].members = std::move(members); });
  }
  static void ifFlags(uint32_t unit, uint32_t flags10, uint32_t flags13) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    d.model.interfaces[unit].flags10 = flags10;
    d.model.interfaces[unit].flags13 = flags13;
  }
  static std::vector<uint32_t> protocols(uint32_t unit) {
    return test::onDevice([&](vdev::Device& d) { return d.model.interfaces[unit].protocols; });
  }
  // Fails (or, with count -1, watches) one rule command on one unit.
  static uint32_t failOn(uint32_t unit, uint32_t cmd, uint32_t lst, uint32_t rule,
                         int32_t count = 1) {
    return plat::faultAdd({.call = "zorHwilCmdSetApi",
                           .cmd = cmd,
                           .unit = unit,
                           .list = lst,
                           .rule = rule,
                           .result = kHwFault,
                           .count = count});
  }
  static uint32_t statsCount(SilDlNode* head) { return static_cast<uint32_t>(dlist::count(head)); }
};

}  // namespace iftest
