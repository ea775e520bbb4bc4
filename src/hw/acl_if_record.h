// Interface records and interface bind-list entries: the records that hold, per interface, the
// list bound in each bind slot, and one entry per binding made. Callers hold aclMutex.
#pragma once

#include <cstdint>

#include "hw/acl_bind_slot.h"
#include "platform/avl.h"

struct AclIfEntry {
  avl_node_t node;  // ifTree, ordered by unit
  uint32_t unit;
  AclBindSlots slots;
  uint8_t inCtrl;  // 1 switched on, 2 off
  uint8_t outCtrl;
  uint16_t rowStatus;  // 1 active, 3 not in service
};

constexpr uint8_t ACL_IF_CTRL_ON = 1;
constexpr uint8_t ACL_IF_CTRL_OFF = 2;

// Who made a binding.
constexpr uint8_t ACL_BIND_OWNER_ACL = 0;
constexpr uint8_t ACL_BIND_OWNER_PBR = 1;
constexpr uint8_t ACL_BIND_OWNER_TRAFFIC = 2;

struct AclIfListEntry {
  avl_node_t node;  // ifListTree
  uint32_t ifIndex;
  uint8_t listType;  // bind kind
  uint8_t dir;
  uint8_t hwState;
  uint8_t bindOwner;  // ACL_BIND_OWNER_*
  uint8_t refcount;   // traffic-policy users of the entry
  uint32_t lstIdx;
  uint32_t ruleIdx;  // 0 for a whole-list binding
};

// ifTree: by interface index.
int aclIfCompare(const void* a, const void* b);
// ifListTree: lstIdx, ruleIdx, ifIndex, listType, dir; all bindings of a list are adjacent, and
// whole-list entries come first.
int aclIfListCmp(const void* a, const void* b);

// A new record for the interface, or nullptr with the reason in gaclGrp.lastErr (left alone when
// the interface manager keeps no record for it).
AclIfEntry* aclIfEntryAdd(uint32_t ifIndex);
AclIfEntry* aclIfEntryGet(uint32_t ifIndex);
// Unlinks the record, takes the module off the interface, clears and frees it.
int32_t aclIfEntryDel(AclIfEntry* entry);
int32_t aclDeleteIf(uint32_t ifIndex);

// Registers (on = 1) or deregisters the module as a protocol of the interface; the interface
// manager's result.
int32_t aclIfSetProtoState(uint32_t ifIndex, uint32_t on);
int32_t aclIfSetProtoIgnorestate(uint32_t ifIndex, uint32_t on);

// The entry with that key, created when missing; nullptr when the pool is exhausted.
AclIfListEntry* aclIfListAdd(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                             uint32_t ruleIdx);
AclIfListEntry* aclIfListGet(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                             uint32_t ruleIdx);
int32_t aclIfListDel(AclIfListEntry* entry);
// Whether the entry with that key exists or the pool can still make it. A binding asks before it
// does any work, so that a full pool refuses it rather than leaving a binding that no bind-list
// walk, slot recount or saved configuration can see.
bool aclIfListRoom(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                   uint32_t ruleIdx);

// ACL_ERR_SHARED_IN_USE when another owner has bound the list on the interface in that direction
// with the list's own type; CMN_ERR_NOT_SUPPORTED for a list number without a type.
int32_t aclIfListConflict(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint8_t owner);
// ACL_ERR_SUBIF_NOT_ALLOWED for an Ethernet sub-interface while they may not bind lists.
int32_t aclIfTypeCheck(uint32_t ifIndex);

// Moves one bind slot of the interface (slot: the address of that slot in its record) to newLst,
// 0 meaning unbind, with the hardware work, the list's refCnt, the slot charge and the bind-list
// entry. listType is the slot's bind kind.
int32_t aclIfRuleUpdate(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t newLst,
                        uint32_t* slot);

// The name of a protocol code of the platform's registry, "unknown" for codes without one.
const char* aclProtoNameGet(uint32_t proto);
