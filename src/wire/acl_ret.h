// Result codes of the command table. The values cross the process boundary and are exact:
// 0x03E8xxxx are the platform's common codes, 0x03EAxxxx the ACL module's own. Codes returned by
// the hardware layer or the binding pass through unchanged.
#pragma once

#include <cstdint>

constexpr int32_t ACL_RET_OK = 0;
// Unknown command id, an empty table slot, the end of a list or rule walk.
constexpr int32_t ACL_RET_UNKNOWN = -1;
// An interface's list index changed while its binding is switched on.
constexpr int32_t ACL_RET_IF_LIST_ACTIVE = 17;
// The interface's location is unknown.
constexpr int32_t ACL_RET_IF_NO_LOCATION = 19;
// Missing descriptor, data address or buffer; bad length of an address or MAC value; a switch on
// an interface without a list index.
constexpr int32_t ACL_RET_INVALID = 22;
// A counter could not be created.
constexpr int32_t ACL_RET_COUNTER_CREATE = 63;

constexpr int32_t CMN_ERR_NO_RESOURCE = 0x03E80001;
constexpr int32_t CMN_ERR_NOT_FOUND = 0x03E80002;
constexpr int32_t CMN_ERR_NAME_USED = 0x03E80003;
constexpr int32_t CMN_ERR_SYNC_FAILED = 0x03E80004;
constexpr int32_t CMN_ERR_IN_USE = 0x03E8000B;
constexpr int32_t CMN_ERR_BUFFER_SHORT = 0x03E8000D;
constexpr int32_t CMN_ERR_NOT_SUPPORTED = 0x03E80010;
constexpr int32_t CMN_ERR_NO_TABLE = 0x03E80016;
constexpr int32_t CMN_ERR_BAD_PARAM = 0x03E8001A;
// The platform cannot locate the interface (no system, slot or kind for it).
constexpr int32_t CMN_ERR_IF_LOCATE = 0x03E8002A;

constexpr int32_t ACL_ERR_READ_ONLY = 0x03EA0003;
// The list's type may take no more rules, or the list itself is full.
constexpr int32_t ACL_ERR_RULE_LIMIT = 0x03EA0004;
// A list without rules cannot be installed.
constexpr int32_t ACL_ERR_LIST_EMPTY = 0x03EA0005;
// A rule's counter could not be read to choose which statistics counters to fetch.
constexpr int32_t ACL_ERR_COUNTER_GET = 0x03EA0006;
constexpr int32_t ACL_ERR_STATS_NOT_EXIST = 0x03EA0007;
constexpr int32_t ACL_ERR_IFSTATS_NOT_EXIST = 0x03EA0009;
// A rule of the list is not valid, so the list may not be applied.
constexpr int32_t ACL_ERR_RULE_INVALID = 0x03EA000E;
constexpr int32_t ACL_ERR_SHARED_IN_USE = 0x03EA0039;
// Requested in-actions that contradict the rule's present ones.
constexpr int32_t ACL_ERR_ACTION_PERMIT_DENY = 0x03EA003D;
constexpr int32_t ACL_ERR_ACTION_REMARK = 0x03EA003E;
constexpr int32_t ACL_ERR_ACTION_OUTER_VLAN = 0x03EA003F;
constexpr int32_t ACL_ERR_ACTION_INNER_VLAN = 0x03EA0040;
constexpr int32_t ACL_ERR_LIST_NOT_EXIST = 0x03EA0041;
constexpr int32_t ACL_ERR_IF_NOT_EXIST = 0x03EA0042;
constexpr int32_t ACL_ERR_ACTION_FORWARD = 0x03EA0043;
constexpr int32_t ACL_ERR_MULTI_REDIRECT = 0x03EA0044;
constexpr int32_t ACL_ERR_ACTION_MIRROR = 0x03EA0045;
constexpr int32_t ACL_ERR_RULE_ACTIVE = 0x03EA0046;
// An Ethernet sub-interface may not bind lists while "acl.ethsubifenable" is off.
constexpr int32_t ACL_ERR_SUBIF_NOT_ALLOWED = 0x03EA004C;
// No slot record for the slot a binding reaches (or none could be made).
constexpr int32_t ACL_ERR_SLOT_NOT_EXIST = 0x03EA0047;
// The binding would pass a slot's rule capacity for its bind type.
constexpr int32_t ACL_ERR_SLOT_RULE_FULL = 0x03EA0048;
