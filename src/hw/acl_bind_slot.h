// Bind slots: the attachment points of a filter list, one per direction and list type, with the
// same twenty names at every scope. The global scope (the ACL group), interface records and GEM
// port records all hold one AclBindSlots; a GEM port never uses the two untyped slots.
//
// Every walk over the slots (unbinding an interface, next-hop re-programming, card
// synchronisation, the interface commands) goes through kAclBindSlots, in its order.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

struct AclBindSlots {
  uint32_t inAcl;  // untyped; bound only while the ingress switch is on
  uint32_t outAcl;
  uint32_t inL2Acl;
  uint32_t outL2Acl;
  uint32_t inIpv4Acl;
  uint32_t outIpv4Acl;
  uint32_t inIpv6Acl;
  uint32_t outIpv6Acl;
  uint32_t inHybridAcl;
  uint32_t outHybridAcl;
  uint32_t inMplsAcl;
  uint32_t outMplsAcl;
  uint32_t inUdfAcl;
  uint32_t outUdfAcl;
  uint32_t inL2VfpAcl;  // ingress pre-stage
  uint32_t inIpv4VfpAcl;
  uint32_t inIpv6VfpAcl;
  uint32_t inHybridVfpAcl;
  uint32_t inMplsVfpAcl;
  uint32_t inUdfVfpAcl;
};

// Bind kinds: the listType byte of a binding. 1 to 5 and 8 are the list types, 7 the untyped
// slots, 9 to 14 the pre-stage slots of the six list types.
constexpr uint8_t ACL_BIND_KIND_L2 = 1;
constexpr uint8_t ACL_BIND_KIND_IPV4 = 2;
constexpr uint8_t ACL_BIND_KIND_IPV6 = 3;
constexpr uint8_t ACL_BIND_KIND_HYBRID = 4;
constexpr uint8_t ACL_BIND_KIND_MPLS = 5;
constexpr uint8_t ACL_BIND_KIND_UNTYPED = 7;
constexpr uint8_t ACL_BIND_KIND_UDF = 8;
constexpr uint8_t ACL_BIND_KIND_VFP_L2 = 9;
constexpr uint8_t ACL_BIND_KIND_VFP_HYBRID = 12;
constexpr uint8_t ACL_BIND_KIND_VFP_UDF = 14;

// Pre-stage kinds match before VLAN processing, where the hardware keeps no counters.
constexpr bool aclBindKindIsVfp(uint32_t kind) {
  return kind >= ACL_BIND_KIND_VFP_L2 && kind <= ACL_BIND_KIND_VFP_UDF;
}
constexpr bool aclBindKindIsHybrid(uint32_t kind) {
  return kind == ACL_BIND_KIND_HYBRID || kind == ACL_BIND_KIND_VFP_HYBRID;
}

enum class AclSlotClass : uint8_t { Untyped, Typed, Vfp };

struct AclBindSlotDef {
  uint32_t AclBindSlots::*field;
  const char* name;
  AclSlotClass cls;
  uint8_t dir;       // 0 ingress, 1 egress, 2 ingress pre-stage
  uint8_t listType;  // the list type the slot accepts; 0 for the untyped slots (any)
  uint8_t kind;
  uint8_t ifCmd;    // interface command that sets the slot (the list index of an untyped slot)
  uint8_t ctrlCmd;  // untyped slots: the interface command of their switch; else 0
};

inline constexpr std::array<AclBindSlotDef, 20> kAclBindSlots = {{
    {&AclBindSlots::inAcl, "inAcl", AclSlotClass::Untyped, 0, 0, 7, 3, 2},
    {&AclBindSlots::outAcl, "outAcl", AclSlotClass::Untyped, 1, 0, 7, 4, 1},
    {&AclBindSlots::inL2Acl, "inL2Acl", AclSlotClass::Typed, 0, 1, 1, 22, 0},
    {&AclBindSlots::outL2Acl, "outL2Acl", AclSlotClass::Typed, 1, 1, 1, 23, 0},
    {&AclBindSlots::inIpv4Acl, "inIpv4Acl", AclSlotClass::Typed, 0, 2, 2, 24, 0},
    {&AclBindSlots::outIpv4Acl, "outIpv4Acl", AclSlotClass::Typed, 1, 2, 2, 25, 0},
    {&AclBindSlots::inIpv6Acl, "inIpv6Acl", AclSlotClass::Typed, 0, 3, 3, 26, 0},
    {&AclBindSlots::outIpv6Acl, "outIpv6Acl", AclSlotClass::Typed, 1, 3, 3, 27, 0},
    {&AclBindSlots::inHybridAcl, "inHybridAcl", AclSlotClass::Typed, 0, 4, 4, 28, 0},
    {&AclBindSlots::outHybridAcl, "outHybridAcl", AclSlotClass::Typed, 1, 4, 4, 29, 0},
    {&AclBindSlots::inMplsAcl, "inMplsAcl", AclSlotClass::Typed, 0, 5, 5, 30, 0},
    {&AclBindSlots::outMplsAcl, "outMplsAcl", AclSlotClass::Typed, 1, 5, 5, 31, 0},
    {&AclBindSlots::inUdfAcl, "inUdfAcl", AclSlotClass::Typed, 0, 8, 8, 32, 0},
    {&AclBindSlots::outUdfAcl, "outUdfAcl", AclSlotClass::Typed, 1, 8, 8, 33, 0},
    {&AclBindSlots::inL2VfpAcl, "inL2VfpAcl", AclSlotClass::Vfp, 2, 1, 9, 41, 0},
    {&AclBindSlots::inIpv4VfpAcl, "inIpv4VfpAcl", AclSlotClass::Vfp, 2, 2, 10, 42, 0},
    {&AclBindSlots::inIpv6VfpAcl, "inIpv6VfpAcl", AclSlotClass::Vfp, 2, 3, 11, 43, 0},
    {&AclBindSlots::inHybridVfpAcl, "inHybridVfpAcl", AclSlotClass::Vfp, 2, 4, 12, 44, 0},
    {&AclBindSlots::inMplsVfpAcl, "inMplsVfpAcl", AclSlotClass::Vfp, 2, 5, 13, 45, 0},
    {&AclBindSlots::inUdfVfpAcl, "inUdfVfpAcl", AclSlotClass::Vfp, 2, 8, 14, 46, 0},
}};
static_assert(sizeof(AclBindSlots) == kAclBindSlots.size() * sizeof(uint32_t));

// Every slot appears once; a typed slot binds with its list type as kind, a pre-stage slot with
// 9 + the column of its list type.
constexpr bool aclBindSlotTableSound() {
  for (size_t i = 0; i < kAclBindSlots.size(); ++i) {
    const AclBindSlotDef& s = kAclBindSlots[i];
    for (size_t j = i + 1; j < kAclBindSlots.size(); ++j) {
      if (kAclBindSlots[j].field == s.field || kAclBindSlots[j].ifCmd == s.ifCmd) return false;
    }
    switch (s.cls) {
      case AclSlotClass::Untyped:
        if (s.kind != ACL_BIND_KIND_UNTYPED || s.listType != 0 || s.dir > 1) return false;
        break;
      case AclSlotClass::Typed:
        if (s.kind != s.listType || s.dir > 1) return false;
        break;
      case AclSlotClass::Vfp: {
        const uint8_t column = s.listType == ACL_BIND_KIND_UDF ? 5 : s.listType - 1;
        if (s.kind != ACL_BIND_KIND_VFP_L2 + column || s.dir != 2) return false;
        break;
      }
    }
  }
  return true;
}
static_assert(aclBindSlotTableSound());

// Positions in kAclBindSlots.
constexpr size_t ACL_BIND_SLOT_FIRST_TYPED = 2;
constexpr size_t ACL_BIND_SLOT_FIRST_VFP = 14;

// The slot an interface command sets (the list index of an untyped slot for 3 and 4), or nullptr.
constexpr const AclBindSlotDef* aclBindSlotByIfCmd(uint32_t cmd) {
  for (const AclBindSlotDef& s : kAclBindSlots) {
    if (s.ifCmd == cmd) return &s;
  }
  return nullptr;
}
