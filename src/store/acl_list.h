// Filter lists: the list record, its numbering and types, creation and deletion, lookups in the
// ACL group's listTree, the per-type rule counts and the change announcements to other processes.
// Every function here runs with aclMutex held by its caller.
#pragma once

#include <cstdint>
#include <span>

#include "main/acl_group.h"
#include "main/acl_pools.h"
#include "platform/avl.h"
#include "platform/sil.h"

constexpr uint32_t ACL_LIST_NAME_LEN = 64;
constexpr uint32_t ACL_LIST_IDX_MAX = 6000;  // the highest list number that has a type

// List types, derived from the list number and never stored.
constexpr uint32_t ACL_LIST_TYPE_NONE = 0;
constexpr uint32_t ACL_LIST_TYPE_L2 = 1;
constexpr uint32_t ACL_LIST_TYPE_IPV4 = 2;
constexpr uint32_t ACL_LIST_TYPE_IPV6 = 3;
constexpr uint32_t ACL_LIST_TYPE_HYBRID = 4;
constexpr uint32_t ACL_LIST_TYPE_MPLS = 5;
constexpr uint32_t ACL_LIST_TYPE_UDF = 8;

// Directions of a binding.
constexpr uint32_t ACL_DIR_INGRESS = 0;
constexpr uint32_t ACL_DIR_EGRESS = 1;
constexpr uint32_t ACL_DIR_VFP = 2;  // the ingress VLAN pre-stage
constexpr int32_t ACL_BIND_TYPE_NONE = 18;

constexpr uint8_t ACL_LIST_STATUS_ACTIVE = 1;
constexpr uint8_t ACL_SHARED_DEFAULT = 2;  // counter and meter sharing mode of a new list

// Change announcements: 32-byte messages to message group 56.
constexpr uint32_t ACL_NOTIFY_GROUP = 56;
constexpr uint32_t ACL_NOTIFY_LEN = 32;
constexpr uint16_t ACL_NOTIFY_LIST_ADD = 247;
constexpr uint16_t ACL_NOTIFY_LIST_DEL = 248;
constexpr uint16_t ACL_NOTIFY_LIST_RULES = 249;  // a rule became valid or was deleted
constexpr uint16_t ACL_NOTIFY_RULE_VALID = 250;
constexpr uint16_t ACL_NOTIFY_RULE_INVALID = 251;  // invalid, reset or deleted

// One listPool entry, linked into gaclGrp.listTree by node.
struct AclListEntry {
  avl_node_t node;
  uint32_t lstIdx;   // list number, the tree's key
  uint32_t freeIdx;  // equal to lstIdx from creation on; reported by the index conversion
  char name[ACL_LIST_NAME_LEN];  // not NUL-terminated when all 64 bytes are used
  uint32_t nameLen;
  int32_t refCnt;  // bindings that use the list
  uint32_t ruleNum;
  avl_tree_t ruleTree;  // the list's rules by ruleIdx
  uint8_t priority;
  uint8_t lstAttr;
  uint8_t status : 4;  // 1 while the list exists
  uint8_t counterShared : 2;
  uint8_t meterShared : 2;
  SilTimer retryTimer;     // next-hop retry on gaclGrp.timerList
  uint32_t activeRuleNum;  // valid rules, as the last status check counted them
};
static_assert(sizeof(AclListEntry) <= ACL_LIST_ENTRY_SIZE);

// listTree's comparator: the signed difference of lstIdx, as -1, 0 or 1.
int aclListCompare(const void* a, const void* b);

// The list numbered lstIdx, or nullptr.
AclListEntry* aclListEntryGet(uint32_t lstIdx);
// 0 when the list exists, -1 otherwise.
int32_t aclLookupByIndex(uint32_t lstIdx);
// The first list, in number order, whose name is exactly these len bytes (case matters).
AclListEntry* aclListEntryGetByName(const char* name, uint32_t len);

// The list type of a list number: 1..1000 L2, 1001..2000 IPv4, 2001..3000 hybrid,
// 3001..4000 IPv6, 4001..5000 MPLS, 5001..6000 UDF, anything else none.
uint32_t aclListTypeGetByIndex(uint32_t lstIdx);
// The bind type of a list type and a direction: direction * 6 + the type's column, or 18.
int32_t aclBindType(uint32_t listType, uint32_t dir);
// The ruleNum pair of the ACL group that counts rules of lists of this number, or nullptr.
AclRuleNum* aclListRuleNumPair(uint32_t lstIdx);

// Creates list lstIdx (the caller has made sure it does not exist); nullptr when listPool is
// exhausted.
AclListEntry* aclListEntryAdd(uint32_t lstIdx);
// Deletes the list with all its rules: 0, CMN_ERR_NOT_FOUND for no list, or the time-range
// service's code when a rule could not leave its time range (the list then stays).
int32_t aclListEntryDel(AclListEntry* list);

// Adds delta (+1 or -1) to the count of the list's type; nothing for numbers without a type.
void aclListRuleCount(uint32_t lstIdx, int8_t delta);
// 0 when the list may take one more rule, ACL_ERR_RULE_LIMIT when not, -1 for list number 0.
int32_t aclListRuleCheck(const AclListEntry* list);
// The n-th rule in ruleIdx order gets priority base + n (n from 1), in 16-bit arithmetic.
void aclListRulePrioritySet(AclListEntry* list, uint16_t base);

// Change announcements; both always return 0.
int32_t aclListNotify(uint16_t event, uint32_t lstIdx);
int32_t aclRuleNotify(uint16_t event, uint32_t lstIdx, uint32_t ruleIdx);
// The 32-byte announcement message.
void aclNotifyMsgBuild(std::span<uint8_t, ACL_NOTIFY_LEN> msg, uint16_t event, uint32_t lstIdx,
                       uint32_t ruleIdx);
