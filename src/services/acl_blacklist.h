// The blacklist: the CPU protection module puts a filter-list on the blacklist of one slot (or of
// the whole system). Every rule of the list is then installed through the global rule commands,
// aimed at that slot, with its actions replaced by a plain deny. Each (sys, slot, list) is
// remembered in blackListTree so that it is installed once, can be removed, and so that rules
// added to or removed from the list later follow it.
//
// Everything here runs with aclMutex held by the caller (the scalar table or the dynamic rule set).
#pragma once

#include <cstdint>
#include <span>

#include "services/acl_blacklist_record.h"

struct AclListEntry;
struct AclRuleEntry;

// The highest system and slot a target can name: the system bitmap has 16 bits, but the options
// record holds slot bitmaps for 9 systems; a slot bitmap has 32 bits.
constexpr uint32_t ACL_BLACKLIST_SYS_MAX = 9;
constexpr uint32_t ACL_BLACKLIST_SLOT_MAX = 32;
// The target is a hardware-layer options record.
constexpr uint32_t ACL_BLACKLIST_TARGET_LEN = 64;

// Scalar set 67 and 68. Results of the add: 0 (also when already blacklisted); CMN_ERR_BAD_PARAM
// for list index 0 or a system or slot no target can name; ACL_ERR_LIST_NOT_EXIST;
// CMN_ERR_NO_RESOURCE when the entry pool is exhausted; or the installation's code. The delete
// answers 0 also when no such blacklisting exists.
int32_t aclBlackListAdd(uint32_t sys, uint32_t slot, uint32_t lstIdx);
int32_t aclBlackListDel(uint32_t sys, uint32_t slot, uint32_t lstIdx);

// Called by the dynamic rule set before any binding is touched: op non-zero installs rule for the
// first blacklisting of list in key order, 0 removes it. 0 when the list is not blacklisted.
int32_t aclBlackListDynamicRuleSet(AclListEntry* list, AclRuleEntry* rule, uint32_t op);

AclBlackListEntry* aclBlackListEntryGet(uint32_t sys, uint32_t slot, uint32_t lstIdx);
// A new, linked entry; nullptr when the pool is exhausted or the key is already there.
AclBlackListEntry* aclBlackListEntryAdd(uint32_t sys, uint32_t slot, uint32_t lstIdx);
int32_t aclBlackListEntryDel(AclBlackListEntry* entry);

// The options record aimed at (sys, slot): all zero unless both are non-zero and within range.
void aclBlackListTargetBuild(uint32_t sys, uint32_t slot,
                             std::span<uint8_t, ACL_BLACKLIST_TARGET_LEN> target);

// Whole list and single rule, with the target above. 0 or a code.
int32_t _aclBlackListAdd(AclListEntry* list, const uint8_t* target);
int32_t _aclBlackListDel(AclListEntry* list, const uint8_t* target);
int32_t _aclBlackListAddOne(AclListEntry* list, AclRuleEntry* rule, const uint8_t* target);
int32_t _aclBlackListDelOne(AclListEntry* list, AclRuleEntry* rule, const uint8_t* target);

// One deny copy to or from the hardware: 0, or the translation's or hardware call's code.
int32_t aclBlackListRuleHwAdd(AclListEntry* list, AclRuleEntry* copy, const uint8_t* target);
int32_t aclBlackListRuleHwDel(AclListEntry* list, AclRuleEntry* copy, const uint8_t* target);
