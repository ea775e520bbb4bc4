// The filter-list table (function ids 4 to 8): walk, read, configure, create and delete lists.
// Every function takes the ACL lock for its whole body.
#pragma once

#include <cstdint>

// List attributes by command id.
constexpr uint32_t ACL_LST_CMD_NAME = 1;
constexpr uint32_t ACL_LST_CMD_REFCNT = 2;
constexpr uint32_t ACL_LST_CMD_PRIORITY = 3;
constexpr uint32_t ACL_LST_CMD_RULENUM = 4;
constexpr uint32_t ACL_LST_CMD_MAXRULENUM = 5;
constexpr uint32_t ACL_LST_CMD_ATTR = 6;
constexpr uint32_t ACL_LST_CMD_COUNTER_SHARED = 7;
constexpr uint32_t ACL_LST_CMD_METER_SHARED = 8;
constexpr uint32_t ACL_LST_CMD_STATUS = 9;
constexpr uint32_t ACL_LST_CMD_MATCH_FIRST = 10;  // 10..16: match services
constexpr uint32_t ACL_LST_CMD_MATCH_LAST = 16;
constexpr uint32_t ACL_LST_CMD_DYN_REFCNT = 17;

// Values of set 9.
constexpr uint32_t ACL_LST_STATUS_CREATE = 2;
constexpr uint32_t ACL_LST_STATUS_DELETE = 4;

// keyAddr: a 4-byte area that takes the smallest list number (big-endian); -1 when no list
// exists.
int32_t aclLstGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t);
// The list after lstIdx in number order, also when lstIdx itself is gone; -1 at the end.
int32_t aclLstGetNext(uintptr_t lstIdx, uintptr_t nextAddr, uintptr_t);
int32_t aclLstGetApi(uintptr_t lstIdx, uintptr_t cmd, uintptr_t buf);
int32_t aclLstSetApi(uintptr_t lstIdx, uintptr_t cmd, uintptr_t buf);
int32_t aclLstSyncApi(uintptr_t lstIdx, uintptr_t cmd, uintptr_t buf);
// The body of both: mode 3 from a Set, 1 from a Sync; it only reaches the hardware layer.
int32_t _aclLstSetApi(uintptr_t lstIdx, uintptr_t cmd, uintptr_t buf, uint32_t mode);
