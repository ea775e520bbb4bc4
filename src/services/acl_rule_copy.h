// A temporary copy of a stored rule that carries someone else's actions to the hardware (traffic
// policies, policy-based redirect): the match is the rule's, the actions are built on the copy, and
// the stored rule is never touched. The copy's entries come from the rule store's pools and go
// back when the copy ends. Callers hold aclMutex.
#pragma once

#include <cstdint>
#include <span>

#include "store/acl_entry.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"

class AclRuleCopy {
 public:
  // Copies the rule's list and rule numbers, field bits, layer type and value entries; the
  // actions start empty and the priority is the given one. ok() is false when an entry could not
  // be had (what was copied goes back at once).
  AclRuleCopy(AclRuleEntry* from, uint16_t priority);
  ~AclRuleCopy();
  AclRuleCopy(const AclRuleCopy&) = delete;
  AclRuleCopy& operator=(const AclRuleCopy&) = delete;

  bool ok() const { return ok_; }
  AclRuleEntry* rule() { return &r_; }

  void field(uint32_t bit) { aclBitSet(r_.fieldBits, bit); }
  void actionBit(uint32_t code) { aclBitSet(r_.actionBits, code); }
  // Sets the action's bit and adds its entry (no bytes: no parameter). 0, or the store's code.
  int32_t action(uint8_t code, uint8_t slot, std::span<const uint8_t> param);
  int32_t action32(uint8_t code, uint8_t slot, uint32_t value);

 private:
  AclRuleEntry r_{};
  bool ok_ = true;
};
