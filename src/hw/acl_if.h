// Interface binding: installing the rules of a filter list on one interface (or on one GEM port of
// an ONU behind a PON interface) and taking them out again, with the bookkeeping of statistics and
// next hops, or hardware-only; and the per-rule hardware commands, which an aggregation fans out
// to its members as the interface manager asks. Callers hold aclMutex.
//
// onuId and gemPort are both 0 for an interface binding; either non-zero makes it a GEM port
// binding. kind is the bind kind of the slot (hw/acl_bind_slot.h). target is the 64-byte options
// record an outer operation hands down (card synchronisation), or nullptr.
#pragma once

#include <cstdint>

#include "platform/hwil.h"

struct AclListEntry;
struct AclRuleEntry;

// Hardware priority of a rule: ruleIdx + 1024 for the hybrid kinds, + 4096 on an interface (not on
// a GEM port).
constexpr uint16_t ACL_IF_PRIORITY_BASE = 4096;
constexpr uint16_t ACL_IF_PRIORITY_HYBRID = 1024;
uint16_t aclIfPriority(uint32_t kind, bool gemPort, uint32_t ruleIdx);

// Result of a binding on an interface the platform cannot locate.
constexpr int32_t ACL_IF_ERR_NO_LOCATION = 19;

int32_t aclIfAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                 uint32_t dir, const uint8_t* target, uint32_t kind);
int32_t aclIfRuleAddOne(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                        AclRuleEntry* rule, uint32_t dir, uint32_t kind);
int32_t aclIfDel(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                 uint32_t dir, const uint8_t* target, uint32_t kind);
// lastRuleIdx 0 removes every rule; otherwise the rules up to and including that index.
int32_t aclIfDelpart(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                     uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target, uint32_t kind);
int32_t aclIfRuleDelOne(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                        AclRuleEntry* rule, uint32_t dir, uint32_t kind);
// Unbinds every bind slot of the interface (it is going away or changing work mode). The slot
// fields keep their values; the caller deletes the record.
int32_t aclIfDelEx(uint32_t ifIndex);

// Hardware-only variants (card synchronisation, aggregation changes, next-hop changes): they take
// the list by number, create no statistics and touch no next-hop registration.
int32_t aclIfHwAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                   uint32_t dir, const uint8_t* target, uint32_t kind);
int32_t aclIfHwDel(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                   uint32_t dir, uint32_t kind);
int32_t aclIfHwDelpart(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                       uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target, uint32_t kind);
// The whole list off a member, telling the hardware the aggregation it leaves (parentUnit).
int32_t aclIfHwDelWithParentunit(uint32_t ifIndex, uint32_t parentUnit, uint32_t lstIdx,
                                 uint32_t dir, uint32_t kind);
int32_t _aclIfHwDelpart(uint32_t ifIndex, uint32_t parentUnit, uint16_t onuId, uint16_t gemPort,
                        uint32_t lstIdx, uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target,
                        uint32_t kind);
int32_t aclIfHwDelone(uint32_t ifIndex, uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir,
                      uint32_t kind);
// The same for one rule bound to a GEM port (next-hop loss on a GEM binding).
int32_t aclGemPortHwDelone(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                           uint32_t ruleIdx, uint32_t dir, uint32_t kind);

// One rule command on the interface, or for an aggregation on the aggregation and/or each member
// as the interface manager's mode for the command says, stopping at the first member that fails.
// cmd: HWIL_CMD_IF_ADD or HWIL_CMD_IF_DEL with a 508-byte record; the TLV twin sends
// HWIL_CMD_IF_TLV with the descriptor of a TLV message.
int32_t aclRuleIfHwilUpdate(uint32_t ifIndex, uint32_t cmd, const uint8_t* dev, uint32_t dir,
                            const uint8_t* target);
int32_t aclRuleIfHwilUpdateTlv(uint32_t ifIndex, const ZorBufDesc* tlv, const uint8_t* target);

// One rule command for the GEM key (ifIndex, onuId, gemPort).
int32_t aclRuleGemPortAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, const uint8_t* dev,
                          uint32_t dir, const uint8_t* target);
int32_t aclRuleGemPortDel(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, const uint8_t* dev,
                          uint32_t dir, const uint8_t* target);
int32_t aclRuleGemPortUpdate(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort,
                             const ZorBufDesc* tlv, const uint8_t* target);
