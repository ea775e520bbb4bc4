// What the install and removal paths of the interface binding share: the binding a call names,
// the translation and command of one rule for it, its statistics records and the removal walk.
#pragma once

#include <cstdint>

#include "hw/acl_glb_internal.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"

namespace aclif {

using aclglb::Buffer;
using aclglb::ParamBlock;

// Next-hop messages of the interface paths.
inline constexpr aclglb::NhScope kNhIf{"interface", "add acl", ACL_LOG_IF};
inline constexpr aclglb::NhScope kNhIfRule{"interface", "add rule acl", ACL_LOG_IF};

// Direction as the operational log names it.
const char* dirName(uint32_t dir);

// One binding: the interface (or the GEM key behind it), the direction and the slot's kind.
struct Binding {
  uint32_t ifIndex;
  uint16_t onuId;
  uint16_t gemPort;
  uint32_t dir;
  uint32_t kind;
  AclIfName name;  // for messages

  bool gem() const { return onuId != 0 || gemPort != 0; }
  uint16_t priority(uint32_t ruleIdx) const { return aclIfPriority(kind, gem(), ruleIdx); }
};
Binding binding(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t dir, uint32_t kind);

// How one rule goes to the hardware.
struct Send {
  bool remove;
  const uint8_t* target;
  // Whole-list installs tell the record how many rules of the list are valid.
  bool recordActiveNum = false;
  // Hardware-only removals name the aggregation a member leaves (or the interface itself).
  uint32_t aggIfIndex = 0;
};
// Translates the rule into buf and sends it. *transFailed tells a translation failure from a
// refused command.
int32_t sendRule(Buffer& buf, const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
                 const Send& how, bool* transFailed);

// The statistics record of a counted rule for this binding: the list's shared record (its use
// count raised) when the list shares counters, else one of its own. A record the call creates is
// stamped with its operation. False when none can be had.
bool statsTake(const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
               const AclBindStats& stats);
// Gives the binding's use of its record back; op names the operation in the failure messages.
void statsGive(const AclRuleEntry* r, const AclListEntry* list, const Binding& b, const char* op);
// Undoes statsTake of the same operation: frees a record it created, lowers a use count it
// raised, and leaves a record that another binding of the same key made.
void statsGiveBack(const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
                   const AclBindStats& stats);

// The removal walk behind aclIfDelpart (with bookkeeping) and _aclIfHwDelpart (hardware only).
struct DelMode {
  bool bookkeeping;  // statistics and next-hop release
  // The list's refCnt when the binding being removed is its last: 1 when a made binding is
  // removed, 0 when an install that has not counted yet rolls back.
  int32_t lastBindingRefCnt;
  uint32_t aggIfIndex;  // hardware-only removals: the parent unit
  // A rollback's failing rule: the hardware may refuse to remove what it has just refused to take,
  // so its refusal does not stop the walk. 0 for none.
  uint32_t failingRuleIdx = 0;
  // Set when an install rolls back: the statistics its operation took go back.
  const AclBindStats* rollbackOf = nullptr;
};
int32_t delWalk(AclListEntry* list, uint32_t lastRuleIdx, const Binding& b, const uint8_t* target,
                const DelMode& mode);

// Takes out what a failing install of the whole list put in: the rules up to and including
// lastRuleIdx (nothing when it is 0). failingRuleIdx is the rule whose own install was refused,
// when it is among them (see DelMode). stats: the install's operation, whose statistics and
// next-hop registrations go back too; nullptr for a hardware-only install.
void rollback(AclListEntry* list, uint32_t lastRuleIdx, uint32_t failingRuleIdx, const Binding& b,
              const uint8_t* target, const AclBindStats* stats);

// The index of the rule before r in its list, or 0 when r is the first.
uint32_t previousRuleIdx(AclListEntry* list, AclRuleEntry* r);

}  // namespace aclif
