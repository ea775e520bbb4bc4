// What the installations made for other modules (CPU defend, blacklist, NAT) share: which rules
// they leave out, the slot key they are aimed with, and appending items to a translated TLV
// message. Every function here runs with aclMutex held by its caller.
#pragma once

#include <cstdint>
#include <span>

#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/be.h"

constexpr uint32_t ACL_SLOT_KEY_LEN = 8;  // {sys u32, slot u32}, big-endian

struct AclSlotKey {
  uint32_t sys;
  uint32_t slot;
};

inline AclSlotKey aclSlotKeyRead(const uint8_t* key) {
  std::span<const uint8_t> k(key, ACL_SLOT_KEY_LEN);
  return {be::load32(k, 0), be::load32(k, 4)};
}

// The list an installation walks, with its failure line under the operation's tag: nullptr with
// *ret ACL_ERR_LIST_NOT_EXIST or ACL_ERR_LIST_EMPTY when the walk may not start.
AclListEntry* aclServiceListGet(const char* tag, uint32_t lstIdx, int32_t* ret);

// A rule whose time range is switched off, or that belongs to a VRF, is never handed to the
// hardware by these installations (neither installed nor removed).
inline bool aclServiceRuleSkipped(const AclRuleEntry* rule) {
  if (aclBitTest(rule->fieldBits, RULE_BIT_TRID) && rule->trIdx != 0 && rule->trActive == 0) {
    return true;
  }
  return aclBitTest(rule->fieldBits, RULE_BIT_VRFID);
}

// Appends items to the action section of the TLV message in buf (length bytes long), keeping the
// section's own length word, the header's tlvBufferLen and *length in step. False, with nothing
// written, when the items would not fit into buf or the message's sections do not add up.
bool aclServiceTlvAppend(std::span<uint8_t> buf, uint16_t* length, std::span<const uint8_t> items);
