// The GEM port binding table (function ids 75 to 81) and the GEM port statistics table (82 to
// 86). Every function takes the ACL lock for its whole body, after its null-address checks.
#pragma once

#include <cstdint>

// The 12-byte big-endian GEM port key, also the relay key.
constexpr uint32_t ACL_GEM_KEY_LEN = 12;
constexpr uint32_t ACL_GEM_KEY_IF = 0;
constexpr uint32_t ACL_GEM_KEY_ONU = 4;     // u16
constexpr uint32_t ACL_GEM_KEY_GEM = 6;     // u16
constexpr uint32_t ACL_GEM_KEY_FILTER = 8;  // walk filter bits, MSB-first
constexpr uint32_t ACL_GEM_FILTER_IF = 1;
constexpr uint32_t ACL_GEM_FILTER_ONU = 2;
constexpr uint32_t ACL_GEM_FILTER_GEM = 3;

// The 24-byte big-endian key of the GEM bind-list walk.
constexpr uint32_t ACL_GEM_LST_KEY_LEN = 24;
constexpr uint32_t ACL_GEM_LST_KEY_LST = 0;
constexpr uint32_t ACL_GEM_LST_KEY_DIR = 4;
constexpr uint32_t ACL_GEM_LST_KEY_IF = 8;
constexpr uint32_t ACL_GEM_LST_KEY_ONU = 12;  // u16
constexpr uint32_t ACL_GEM_LST_KEY_GEM = 14;  // u16
constexpr uint32_t ACL_GEM_LST_KEY_TYPE = 16;

// The 28-byte big-endian GEM statistics index.
constexpr uint32_t ACL_GEM_STATS_INDEX_LEN = 28;
constexpr uint32_t ACL_GEM_STATS_LST = 0;
constexpr uint32_t ACL_GEM_STATS_RULE = 4;
constexpr uint32_t ACL_GEM_STATS_IF = 8;
constexpr uint32_t ACL_GEM_STATS_ONU = 12;
constexpr uint32_t ACL_GEM_STATS_GEM = 20;  // u16
constexpr uint32_t ACL_GEM_STATS_DIR = 22;  // u16
constexpr uint32_t ACL_GEM_STATS_FILTER = 24;
// Filter bits: lstIdx, ruleIdx, ifIndex, dir, ONU id, GEM port.
constexpr uint32_t ACL_GEM_STATS_FILTER_ONU = 4;
constexpr uint32_t ACL_GEM_STATS_FILTER_GEM = 5;

// Commands: 1 record status, 2 to 13 the typed slots, 21 to 26 the pre-stage slots; 14 to 20
// belong to traffic policies.
constexpr uint32_t ACL_GEM_CMD_ROW_STATUS = 1;
constexpr uint32_t ACL_GEM_CMD_FIRST_TRAFFIC = 14;
constexpr uint32_t ACL_GEM_CMD_LAST_TRAFFIC = 20;
constexpr uint32_t ACL_GEM_CMD_LAST = 26;

int32_t aclGemPortLstGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t);
int32_t aclGemPortLstGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t);
int32_t aclGemPortGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t);
int32_t aclGemPortGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t);
int32_t aclGemPortGetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclGemPortSetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclGemPortSyncApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf);
int32_t _aclGemPortSetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode);

int32_t aclGemPortStatsGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t);
int32_t aclGemPortStatsGetNext(uintptr_t indexAddr, uintptr_t nextAddr, uintptr_t);
int32_t aclGemPortStatsGetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclGemPortStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclGemPortStatsSyncApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf);
int32_t _aclGemPortStatsSetApi(uintptr_t indexAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode);
