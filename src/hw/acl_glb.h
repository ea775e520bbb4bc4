// Global and slot binding: installing the rules of a filter list into the hardware for the whole
// system (per direction and list type), and taking them out again. The bind slots themselves live
// in the ACL group; these functions only move rules. Callers hold aclMutex.
#pragma once

#include <cstdint>

#include "hw/acl_hw_options.h"
#include "platform/hwil.h"

struct AclListEntry;
struct AclRuleEntry;

constexpr uint32_t ACL_GLB_DIR_IN = 0;
constexpr uint32_t ACL_GLB_DIR_OUT = 1;
constexpr uint32_t ACL_GLB_DIR_VFP = 2;  // ingress pre-stage

// Bind type codes of a global slot: 0 for the generic inAcl/outAcl, else the list type.
constexpr uint32_t ACL_GLB_TYPE_GENERIC = 0;
constexpr uint32_t ACL_GLB_TYPE_HYBRID = 4;
constexpr uint16_t ACL_GLB_PRIORITY_BASE = 8192;
constexpr uint16_t ACL_GLB_PRIORITY_BASE_HYBRID = 9216;

// target: a 64-byte options record handed down by the caller (card synchronisation), or nullptr.
int32_t aclGlbAdd(AclListEntry* list, uint32_t dir, const uint8_t* target, uint32_t type);
int32_t aclGlbRuleAddOne(AclListEntry* list, AclRuleEntry* rule, uint32_t dir, uint32_t type);
int32_t aclGlbDel(AclListEntry* list, uint32_t dir, const uint8_t* target);
// lastRuleIdx 0 removes every rule; otherwise the rules up to and including that index.
int32_t aclGlbDelpart(AclListEntry* list, uint32_t lastRuleIdx, uint32_t dir,
                      const uint8_t* target);
int32_t aclGlbRuleDelOne(AclListEntry* list, AclRuleEntry* rule, uint32_t dir);

// Hardware-only variants used while next hops come and go: no next-hop registration.
int32_t aclGlbHwAdd(uint32_t lstIdx, uint32_t dir, uint32_t type);
int32_t aclGlbHwDel(uint32_t lstIdx, uint32_t dir);
int32_t aclGlbHwDelpart(uint32_t lstIdx, uint32_t lastRuleIdx, uint32_t dir,
                        const uint8_t* target);
int32_t aclGlbHwDelone(uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir);

// One hardware command each. dev: a translated 508-byte rule record (dumped before sending).
int32_t aclRuleGlbAdd(const uint8_t* dev, uint32_t dir, const uint8_t* target);
int32_t aclRuleGlbDel(const uint8_t* dev, uint32_t dir, const uint8_t* target);
// tlv: descriptor of a translated TLV buffer and its length.
int32_t aclRuleGlbUpdate(const ZorBufDesc* tlv, const uint8_t* target);

// Slot scope: the record is dumped, nothing reaches the hardware.
int32_t aclRuleSlotAdd(const void* slotKey, const uint8_t* dev, uint32_t unused1, uint32_t unused2);
int32_t aclRuleSlotDel(const void* slotKey, const uint8_t* dev, uint32_t unused1, uint32_t unused2);
int32_t aclRuleSlotAddTlv(const void* slotKey, const ZorBufDesc* tlv, uint32_t unused);
int32_t aclRuleSlotDelTlv(const void* slotKey, const ZorBufDesc* tlv, uint32_t unused);
