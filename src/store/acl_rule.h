// Rules: the numbered entries of a filter list, kept in the list's ruleTree, and the separate,
// index-addressed table of global rules. Every function here runs with aclMutex held by its
// caller.
#pragma once

#include <cstdint>
#include <span>

#include "main/acl_pools.h"
#include "platform/avl.h"
#include "platform/dlist.h"
#include "store/acl_list.h"

constexpr uint8_t ACL_RULE_STATUS_FREE = 0;
constexpr uint8_t ACL_RULE_STATUS_VALID = 1;
constexpr uint8_t ACL_RULE_STATUS_CREATED = 3;

constexpr uint32_t ACL_FIELD_BITS_LEN = 12;
constexpr uint32_t ACL_ACTION_BITS_LEN = 8;
constexpr uint32_t ACL_OUT_ACTION_BITS_LEN = 2;

struct AclDstIpEntry;
constexpr uint32_t ACL_RULE_NEXTHOP_MAX = 4;

// One rulePool entry, linked into its list's ruleTree by node. A freed record is all zero, so a
// new rule starts all zero apart from what creation sets.
struct AclRuleEntry {
  avl_node_t node;
  uint32_t lstIdx;
  uint32_t ruleIdx;  // 1 or more; the tree's key
  uint8_t fieldBits[ACL_FIELD_BITS_LEN];
  uint8_t oldActionBits[ACL_ACTION_BITS_LEN];  // in-actions before the latest change
  uint8_t actionBits[ACL_ACTION_BITS_LEN];
  uint8_t oldOutActionBits[ACL_OUT_ACTION_BITS_LEN];
  uint8_t outActionBits[ACL_OUT_ACTION_BITS_LEN];
  uint8_t layerType;     // value of RULE_BIT_LAYERTYPE
  uint8_t multicastGem;  // value of RULE_BIT_MULTICASTGEM, 0 or 1
  uint32_t counterId;    // 0 = none
  uint32_t meterId;      // meter or CAR id, 0 = none
  uint8_t status;        // 3 created, 1 valid, 0 only in a freed record
  uint16_t trIdx;        // time range, 0 = none
  uint8_t trActive;      // 1 while the time range is active
  uint16_t priority;     // handed to the hardware translation
  // Next hops of a redirect rule, tracked by destination IP entry; the rule is in the hardware
  // exactly while every one of them is resolved (nhLearned == nhNum).
  AclDstIpEntry* nhRef[ACL_RULE_NEXTHOP_MAX];
  uint8_t nhNum;      // "nexthop"
  uint8_t nhLearned;  // "arp learned"
  SilDlNode valueList;   // value entries in ascending field code
  SilDlNode actionList;  // in-action and out-action entries
};
static_assert(sizeof(AclRuleEntry) <= ACL_RULE_ENTRY_SIZE, "rule record outgrew its pool entry");

// One grulePool entry; global rule n is entry n - 1.
struct AclGruleEntry {
  uint8_t status;  // 0 free, 3 taken, 1 valid
  uint32_t refCnt;
};
static_assert(sizeof(AclGruleEntry) <= ACL_GRULE_ENTRY_SIZE, "global rule outgrew its pool entry");

// A list's ruleTree comparator: the signed difference of ruleIdx, as -1, 0 or 1.
int aclRuleCompare(const void* a, const void* b);

// The rule, or nullptr with the reason in gaclGrp.lastErr (left alone for rule number 0). An
// existing rule of that number is returned as it is.
AclRuleEntry* aclRuleEntryAdd(uint32_t lstIdx, uint32_t ruleIdx);
// Releases the rule's references (time range first: its failure keeps the rule whole), takes it
// out of its list and frees it with its entries.
int32_t aclRuleEntryDel(AclRuleEntry* rule);
AclRuleEntry* aclRuleEntryGetByIndex(uint32_t lstIdx, uint32_t ruleIdx);
AclRuleEntry* aclRuleEntryGet(AclListEntry* list, uint32_t ruleIdx);
// The lowest rule number the list does not use: 0, ACL_ERR_LIST_NOT_EXIST, or -1 when full.
int32_t aclRuleGetFree(uint32_t lstIdx, uint32_t* ruleIdx);
// Recounts activeRuleNum; ACL_ERR_RULE_INVALID for a rule that is not valid unless dynamic
// binding is on.
int32_t aclRuleStatusCheck(AclListEntry* list);
// Moving rules is accepted and changes nothing.
int32_t aclRuleEntryMove(uint32_t lstIdx = 0, uint32_t ruleIdx = 0, uint32_t value = 0);
// Frees the rule's value and action entries, clears the record and gives it back to rulePool.
// The rule must already be out of its tree.
void aclGaclruleFree(AclRuleEntry* rule);

// Global rules, numbered 1..maxGruleNum.
int32_t aclGruleGetFree(uint32_t* gruleIdx);
AclGruleEntry* aclGruleGetEntry(uint32_t gruleIdx);
int32_t aclGruleAddEntry(uint32_t gruleIdx);
int32_t aclGruleDelEntry(uint32_t gruleIdx);

// Appends count bytes to the action section of a hardware rule buffer: the buffer holds from byte
// 36 two items of a 16-bit big-endian length and that many bytes. The bytes go after the second
// item, whose length and the total length *len both grow by count. buf must be able to take them.
void aclActionAttach(uint8_t* buf, uint32_t* len, const uint8_t* bytes, uint32_t count);
