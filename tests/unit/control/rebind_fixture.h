// Lists bound on interfaces, a GEM port and the global scope the way the binding paths leave
// them, rules that follow the device's time ranges (built-in: 1 active, 2 inactive), switches of
// a range as the event task hands them over, and the invariant audit.
#pragma once

#include "api/acl_scalar_api.h"
#include "api/acl_scalar_bind.h"
#include "control/acl_dynamic.h"
#include "control/acl_slot.h"
#include "control/acl_timerange.h"
#include "diag/acl_audit.h"
#include "main/acl_log.h"
#include "platform/logging.h"
#include "support/device_lock.h"
#include "unit/hw/if_fixture.h"

namespace rebindtest {

using namespace iftest;

constexpr uint32_t kRangeOn = 1;
constexpr uint32_t kRangeOff = 2;
constexpr uint16_t kOnu = 3, kGem = 9;
constexpr uint32_t kIpv4 = ACL_BIND_KIND_IPV4;
constexpr uint32_t kGlbInIpv4 = ACL_SCALAR_GLB_SLOT_FIRST + 2;

// (scope, unit, list, rule, dir) of every entry in every table, with the sequence number of the
// command that put it there.
using AnyKey = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t>;
using SeqView = std::map<AnyKey, uint64_t>;

class RebindTest : public IfTest {
 protected:
  static bool rangeActive(uint32_t tr) {
    return test::onDevice([&](vdev::Device& d) { return d.model.timeRanges[tr].active; });
  }
  // The rule follows the range, with the state the service gives it now.
  static AclRuleEntry* follow(AclRuleEntry* r, uint32_t tr) {
    aclBitSet(r->fieldBits, RULE_BIT_TRID);
    r->trIdx = static_cast<uint16_t>(tr);
    r->trActive = rangeActive(tr) ? 1 : 0;
    return r;
  }
  // The range switches in the service and the switch reaches the daemon (message 396 or 397).
  static void switchRange(uint32_t tr, bool active) {
    test::onDevice([&](vdev::Device& d) { d.model.timeRanges[tr].active = active; });
    const Bytes body = num(tr, 4);
    aclTimerangeStateChangeProcess(body, active ? 1 : 0);
  }
  // A typed interface slot bound as the interface commands do; ports sit on slot unit / 100 of
  // system 1, whose record the card would have made.
  static void bindIf(uint32_t unit, uint32_t AclBindSlots::*slot, uint32_t lst) {
    if (aclSlotEntryGet(1, unit / 100) == nullptr) {
      ASSERT_NE(aclSlotEntryAdd(1, unit / 100), nullptr);
    }
    AclIfEntry* e = aclIfEntryAdd(unit);
    ASSERT_NE(e, nullptr);
    const AclBindSlotDef* def = nullptr;
    for (const AclBindSlotDef& s : kAclBindSlots) {
      if (s.field == slot) def = &s;
    }
    ASSERT_EQ(aclIfRuleUpdate(unit, def->kind, def->dir, lst, &(e->slots.*slot)), 0);
  }
  static void bindGlobal(uint32_t cmd, uint32_t lst) {
    uint32_t previous = 0;
    ASSERT_EQ(aclScalarSlotMove(cmd, lst, &previous), 0);
  }
  // The GEM port kPon/kOnu/kGem with lst in its outIpv4Acl, record and entry as the GEM port
  // binding makes them.
  static void bindGem(uint32_t lst) {
    auto* rec = static_cast<AclGemPortEntry*>(silMemPoolAlloc(gaclGrp.gemPortPool, nullptr));
    ASSERT_NE(rec, nullptr);
    *rec = AclGemPortEntry{};
    rec->unit = kPon;
    rec->onuId = kOnu;
    rec->gemPort = kGem;
    ASSERT_EQ(avl_add(&gaclGrp.gemPortTree, rec), 0);
    AclListEntry* l = aclListEntryGet(lst);
    ASSERT_EQ(aclIfAdd(kPon, kOnu, kGem, l, ACL_DIR_EGRESS, nullptr, kIpv4), 0);
    rec->slots.outIpv4Acl = lst;
    ++l->refCnt;
    ASSERT_EQ(aclGemPortListGet(kPon, kOnu, kGem, kIpv4, ACL_DIR_EGRESS, lst), nullptr);
    ASSERT_NE(aclGemPortListAdd(kPon, kOnu, kGem, kIpv4, ACL_DIR_EGRESS, lst), nullptr);
  }
  static SeqView seqs() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    SeqView out;
    for (const auto& [key, table] : d.journal.hw) {
      for (const auto& [k, e] : table.entries) {
        out[{key.scope, key.unit, std::get<0>(k), std::get<1>(k), std::get<2>(k)}] = e.seq;
      }
    }
    return out;
  }
  // Whether (list, rule) is in the table of scope/unit in dir.
  static bool holds(uint32_t scope, uint32_t unit, uint32_t lst, uint32_t rule, uint32_t dir) {
    return seqs().contains({scope, unit, lst, rule, dir});
  }
  static std::string audit() {
    std::string out;
    for (const auto& d : aclAuditRun()) out += d.check + ": " + d.text + "\n";
    return out;
  }
  // The operational lines written since seq.
  static std::string operSince(uint64_t seq) {
    std::string out;
    for (const auto& l : plat::logRecent(seq)) {
      if (l.operational) out += std::to_string(l.tag - ACL_LOG_TAG_BASE) + " " + l.text + "\n";
    }
    return out;
  }
};

}  // namespace rebindtest
