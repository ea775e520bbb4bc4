// Card synchronisation, aggregation membership and work mode: bringing the hardware back in line
// with the bindings the process holds when a system or card comes up, when a port joins or leaves
// an aggregation, and when an interface changes to bridging. Nothing here changes what is bound,
// only what is programmed. Callers hold aclMutex.
#pragma once

#include <cstdint>
#include <span>

#include "hw/acl_hw_options.h"

// Scope byte of a resynchronisation target (options record byte 24).
constexpr uint8_t ACL_SYNC_SCOPE_SYSTEM = 1;
constexpr uint8_t ACL_SYNC_SCOPE_SLOT = 2;
constexpr uint32_t ACL_SYNC_SCOPE_AT = 24;
constexpr uint32_t ACL_SYNC_SYS_BITS_AT = 26;  // 16-bit system bit set
constexpr uint32_t ACL_SYNC_MAX_SYS = 16;
constexpr uint32_t ACL_SYNC_MAX_SLOT = 32;

// Fills out (cleared first) with the target of a whole system (slot 0) or of one slot of it.
// False, with out all zero, when the system or slot has no bit in the record: a record aimed at
// nobody would reach every card.
bool aclSyncTargetBuild(uint32_t sys, uint32_t slot, std::span<uint8_t, ACL_HW_OPTIONS_LEN> out);

// Re-installs every global, interface and GEM port binding with options as the caller's record of
// each command. flag 0 does nothing. The result of the last install (0 when none was made), or
// -1 at the first interface or GEM port that cannot be located or aggregation whose mode cannot
// be read.
int32_t aclCardSync(const uint8_t* options, uint32_t flag);

// member joined / left the aggregation aggUnit: the aggregation's bindings are installed on /
// removed from the member when the aggregation programs its members. 0, -1 or the failing
// install's (removal's) code.
int32_t aclPhyJoinAgg(uint32_t aggUnit, uint32_t member);
int32_t aclPhyQuitAgg(uint32_t aggUnit, uint32_t member);

// mode 0 bridge, 1 route. An all-slot interface going to bridge mode loses its bindings and its
// record. 0, or -1 when the interface cannot be located.
int32_t aclIfWorkModeChange(uint32_t ifIndex, uint32_t mode);
