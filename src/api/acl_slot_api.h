// The slot table's set side (function ids 48 and 49): slot-scope CPU defend and NAT requests of
// other modules, keyed by the 8-byte big-endian slot key {sys, slot}.
#pragma once

#include <cstdint>

// Slot set command ids.
constexpr uint32_t ACL_SLOT_CMD_CPUDEFEND_ADD = 0;
constexpr uint32_t ACL_SLOT_CMD_CPUDEFEND_DEL = 1;
constexpr uint32_t ACL_SLOT_CMD_NAT_ADD = 2;
constexpr uint32_t ACL_SLOT_CMD_NAT_DEL = 3;

// key: address of the slot key; buf: address of a buffer descriptor over the request's argument
// record (24 bytes for CPU defend, 12 for NAT). Commands 0 to 3 answer what their service
// answers; any other command does nothing and answers 0.
int32_t aclSlotSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t aclSlotSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
// The body of both: mode 3 from a Set, 1 from a Sync. Nothing is relayed, so the mode is unused.
int32_t _aclSlotSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf, uint32_t mode);

// The slot resource table (function ids 71 to 73), keyed by the same slot key. The walk follows
// the slot records in (sys, slot) order and answers -1 at its end, for a null key address and
// for a current key that is not a record.
int32_t aclSlotResourceGetFirst(uintptr_t key, uintptr_t, uintptr_t);
int32_t aclSlotResourceGetNext(uintptr_t key, uintptr_t nextKey, uintptr_t);
// cmd 0: the card's hardware resource records (20 bytes each) into the descriptor buf, from the
// platform; cmd 1: the slot's ledger (wire::kSlotLedgerLen bytes). CMN_ERR_NOT_FOUND without a
// record, CMN_ERR_BAD_PARAM for a null key or buffer; any other cmd answers 0.
int32_t aclSlotResourceGetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);

// Exported for other modules that link them; they do nothing and answer 0.
int32_t aclResourceGetFirst(uintptr_t, uintptr_t, uintptr_t);
int32_t aclResourceGetNext(uintptr_t, uintptr_t, uintptr_t);
int32_t aclResourceGetApi(uintptr_t, uintptr_t, uintptr_t);
int32_t aclResourceSetApi(uintptr_t, uintptr_t, uintptr_t);
