// Conversions between a rule's action entries and the fixed-layout parameter blocks the rule API
// exchanges: the 176-byte (44-word) in-action block and the 24-byte (6-word) out-action block.
// Every function here runs with aclMutex held by its caller.
#pragma once

#include <cstdint>
#include <span>

#include "store/acl_rule.h"
#include "wire/acl_codes.h"

// Adds a parameterless entry for every in-action newly set (in actionBits, not in oldActionBits)
// that takes no parameter; stops at the first failure and returns it.
int32_t aclActionBit2Entry(AclRuleEntry* rule);
// Brings the rule's in-action parameter entries to block: every parameter of a set action is
// overwritten or added, chunk by chunk; an unchanged chunk of a port set or next-hop list is left
// alone (so an all-zero chunk creates nothing). CMN_ERR_BAD_PARAM without rule or block,
// CMN_ERR_BUFFER_SHORT for a block below 176 bytes; else the last result, stopping at the first
// failure.
int32_t aclActionParam2Entry(AclRuleEntry* rule, std::span<const uint8_t> block);
// Writes the in-action block of the rule's entries: CMN_ERR_BAD_PARAM without rule or block,
// CMN_ERR_BUFFER_SHORT for a block below 176 bytes.
int32_t aclActionEntry2Param(AclRuleEntry* rule, std::span<uint8_t> block);

// The code an out-action bit is kept under: 75 + bit with TLV rules, 64 + bit without.
uint8_t aclOutActionCode(uint32_t bit);
// Out-action bits 0..3 newly set get a parameterless entry.
int32_t aclOutActionBit2Entry(AclRuleEntry* rule);
// Out-action bits 4..9 take the word bit - 4 of the 24-byte block.
int32_t aclOutActionParam2Entry(AclRuleEntry* rule, std::span<const uint8_t> block);
// CMN_ERR_BUFFER_SHORT for a block below 24 bytes.
int32_t aclOutActionEntry2Param(AclRuleEntry* rule, std::span<uint8_t> block);
