// The interface binding table (function ids 14 to 20) and the interface statistics table (26 to
// 30). Every function takes the ACL lock for its whole body, after its null-address checks.
#pragma once

#include <cstdint>

// The 20-byte big-endian key of the bind-list walk.
constexpr uint32_t ACL_IF_LST_KEY_LEN = 20;
constexpr uint32_t ACL_IF_LST_KEY_LST = 0;
constexpr uint32_t ACL_IF_LST_KEY_DIR = 4;
constexpr uint32_t ACL_IF_LST_KEY_IF = 8;
constexpr uint32_t ACL_IF_LST_KEY_TYPE = 12;
constexpr uint32_t ACL_IF_LST_KEY_RULE = 16;

// Interface commands that are not bind slots (the slots are in kAclBindSlots by ifCmd).
constexpr uint32_t ACL_IF_CMD_OUT_CTRL = 1;
constexpr uint32_t ACL_IF_CMD_IN_CTRL = 2;
constexpr uint32_t ACL_IF_CMD_IN_ACL = 3;
constexpr uint32_t ACL_IF_CMD_OUT_ACL = 4;
constexpr uint32_t ACL_IF_CMD_ROW_STATUS = 17;
// Set only: HQoS (a word holding the address of three words), policy-based redirect (an 80-byte
// descriptor) and the traffic policies 34 loopback .. 40 statistic (a word holding a record's
// address).
constexpr uint32_t ACL_IF_CMD_HQOS_ADD = 18;
constexpr uint32_t ACL_IF_CMD_HQOS_DEL = 19;
constexpr uint32_t ACL_IF_CMD_PBR_ADD = 20;
constexpr uint32_t ACL_IF_CMD_PBR_DEL = 21;
constexpr uint32_t ACL_IF_CMD_TRAFFIC_FIRST = 34;
constexpr uint32_t ACL_IF_CMD_TRAFFIC_LAST = 40;

// rowStatus values a Set takes.
constexpr uint32_t ACL_IF_ROW_ACTIVE = 1;
constexpr uint32_t ACL_IF_ROW_CREATE = 2;
constexpr uint32_t ACL_IF_ROW_NOT_IN_SERVICE = 3;
constexpr uint32_t ACL_IF_ROW_DESTROY = 4;

// keyAddr: the walk key, filled with the first bind-list entry; -1 when there is none.
int32_t aclIfLstGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t);
// The entry after the current key (or after where it would be when it has gone); -1 at the end.
int32_t aclIfLstGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t);
// Interface records in ascending ifIndex, written as a big-endian u32; -1 at the end.
int32_t aclIfGetFirst(uintptr_t ifAddr, uintptr_t, uintptr_t);
int32_t aclIfGetNext(uintptr_t ifIndex, uintptr_t nextAddr, uintptr_t);
// One attribute of the interface record as a u32 value word.
int32_t aclIfGetApi(uintptr_t ifIndex, uintptr_t cmd, uintptr_t buf);
int32_t aclIfSetApi(uintptr_t ifIndex, uintptr_t cmd, uintptr_t buf);
int32_t aclIfSyncApi(uintptr_t ifIndex, uintptr_t cmd, uintptr_t buf);
// The body of both: switches, list indexes, record status and bind-slot updates, with the relay
// to the hardware layer ordered by whether the interface is on this system.
int32_t _aclIfSetApi(uintptr_t ifIndex, uintptr_t cmd, uintptr_t buf, uint32_t mode);
// Set commands 18 to 21 and 34 to 40 (HQoS, policy-based redirect, traffic policies), under the
// lock, with buf not null.
int32_t aclIfPolicySet(uint32_t ifIndex, uint32_t cmd, uintptr_t buf);

// Interface statistics: the 28-byte statistics index (api/acl_stats_api.h) with ifIndex and the
// ifIndex filter bit; cmd 1 reads, 2 clears one record, 6 clears every record of the index's
// interface (of every interface when its ifIndex is 0).
int32_t aclIfStatsGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t);
int32_t aclIfStatsGetNext(uintptr_t indexAddr, uintptr_t nextAddr, uintptr_t);
int32_t aclIfStatsGetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclIfStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclIfStatsSyncApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t _aclIfStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode);
