// The store the re-programming benchmarks work on: 1000 IPv4 lists of 8 valid rules, the first
// few bound in the global scope, the rest bound on interfaces of slot 1/2, three lists to an
// interface (its ingress, egress and pre-stage IPv4 slots: the bind-list pool, sized by interfaces
// times rules, must stay under the platform's 4 GiB per pool). Built straight on the store, as the
// table functions leave it, so that setting up 8000 rules takes no command round trips.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "hw/acl_bind_slot.h"
#include "hw/acl_glb.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "platform/ifmgr.h"
#include "platform/options.h"
#include "platform/vdev/calls.h"
#include "platform/vdev/model.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"

namespace benchlists {

constexpr uint32_t kLists = 1000;
constexpr uint32_t kRules = 8;
constexpr uint32_t kFirstList = 1001;  // IPv4 lists 1001..2000
constexpr uint32_t kFirstUnit = 5001;
constexpr uint32_t kListsPerUnit = 3;
constexpr uint32_t kSys = 1, kSlot = 2;

struct SlotUse {
  uint32_t AclBindSlots::*field;
  uint32_t dir, kind;
};
// The three IPv4 slots every scope fills in turn.
inline constexpr SlotUse kSlots[kListsPerUnit] = {{&AclBindSlots::inIpv4Acl, 0, 2},
                                                  {&AclBindSlots::outIpv4Acl, 1, 2},
                                                  {&AclBindSlots::inIpv4VfpAcl, 2, 10}};

struct Layout {
  uint32_t globals;  // lists bound in the global scope (at most 3, one per slot)
  uint32_t range;    // time range rule 8 of every list follows; 0 for none
};

inline uint32_t unitsFor(const Layout& l) {
  return (kLists - l.globals + kListsPerUnit - 1) / kListsPerUnit;
}

// The options the store needs room for these lists with; set before aclOptInit.
inline void setOptions() {
  plat::optSet("acl.maxlstnum", "1024");
  plat::optSet("acl.maxrulenum", "8000");
  plat::optSet("acl.maxgrulenum", "8192");
  plat::optSet("acl.maxifnum", "340");
}

// Interfaces the device does not have by default.
inline void addInterfaces(uint32_t units) {
  vdev::Device& d = vdev::device();
  std::lock_guard lock(d.mutex);
  for (uint32_t i = 0; i < units; ++i) {
    vdev::Interface& it = d.model.interfaces[kFirstUnit + i];
    it.index = kFirstUnit + i;
    it.name = "bench-" + std::to_string(i);
    it.location[ZOR_LOC_SYS] = kSys;
    it.location[ZOR_LOC_SLOT] = kSlot;
    it.location[ZOR_LOC_PORT] = i + 1;
    it.location[ZOR_LOC_KIND] = ZOR_IF_KIND_ETH;
  }
}

inline bool fail(const char* what, uint32_t n, uint32_t code) {
  std::fprintf(stderr, "bench: %s %u: 0x%08x\n", what, n, code);
  return false;
}

// Creates and binds every list; false (with a line on stderr) at the first refusal.
inline bool build(const Layout& layout) {
  addInterfaces(unitsFor(layout));
  AclLockGuard lock;
  for (uint32_t i = 0; i < kLists; ++i) {
    const uint32_t lst = kFirstList + i;
    AclListEntry* l = aclListEntryAdd(lst);
    if (l == nullptr) return fail("list", lst, gaclGrp.lastErr);
    for (uint32_t r = 1; r <= kRules; ++r) {
      AclRuleEntry* rule = aclRuleEntryAdd(lst, r);
      if (rule == nullptr) return fail("rule", lst, gaclGrp.lastErr);
      rule->status = ACL_RULE_STATUS_VALID;
      if (r == kRules && layout.range != 0) {
        aclBitSet(rule->fieldBits, RULE_BIT_TRID);
        rule->trIdx = layout.range;
        rule->trActive = 0;
      }
    }
    if (i < layout.globals) {
      const SlotUse& s = kSlots[i % kListsPerUnit];
      if (const int32_t ret = aclGlbAdd(l, s.dir, nullptr, 2); ret != 0) {
        return fail("global binding", lst, static_cast<uint32_t>(ret));
      }
      gaclGrp.slots.*s.field = lst;
      ++l->refCnt;
      continue;
    }
    const uint32_t n = i - layout.globals;
    const uint32_t unit = kFirstUnit + n / kListsPerUnit;
    const SlotUse& s = kSlots[n % kListsPerUnit];
    AclIfEntry* e = aclIfEntryAdd(unit);
    if (e == nullptr) return fail("interface record", unit, gaclGrp.lastErr);
    if (const int32_t ret = aclIfAdd(unit, 0, 0, l, s.dir, nullptr, s.kind); ret != 0) {
      return fail("binding", lst, static_cast<uint32_t>(ret));
    }
    e->slots.*s.field = lst;
    ++l->refCnt;
  }
  return true;
}

}  // namespace benchlists
