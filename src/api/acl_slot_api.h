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
