// Entry sizes reserved for the records of the ACL group's pools. Pools are sized once at start-up
// from these; each record checks beside its definition that it fits its entry, so a record that
// grows past its reservation fails to build instead of overrunning its neighbour.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_LIST_ENTRY_SIZE = 1024;
constexpr uint32_t ACL_GRULE_ENTRY_SIZE = 16;
constexpr uint32_t ACL_RULE_ENTRY_SIZE = 512;
constexpr uint32_t ACL_IF_ENTRY_SIZE = 128;
constexpr uint32_t ACL_STATS_ENTRY_SIZE = 160;  // three link pairs and eight u64 counters
constexpr uint32_t ACL_IFLIST_ENTRY_SIZE = 64;
constexpr uint32_t ACL_GEMPORT_ENTRY_SIZE = 128;
constexpr uint32_t ACL_GEMPORTLIST_ENTRY_SIZE = 64;
constexpr uint32_t ACL_BLACKLIST_ENTRY_SIZE = 64;
constexpr uint32_t ACL_SLOT_ENTRY_SIZE = 256;
constexpr uint32_t ACL_DSTIP_ENTRY_SIZE = 128;
constexpr uint32_t ACL_DSTIPRULE_ENTRY_SIZE = 64;
constexpr uint32_t ACL_SHORT_ENTRY_SIZE = 32;  // value or action of up to 4 bytes
constexpr uint32_t ACL_LONG_ENTRY_SIZE = 48;   // value or action of 5 to 16 bytes
