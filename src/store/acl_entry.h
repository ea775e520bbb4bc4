// The value and action entries of a rule. A rule keeps only what it uses: each matched field is
// a value entry in its valueList, each action an action entry in its actionList. Parameters of up
// to 4 bytes live in short entries, longer ones (up to 16) in long entries, each kind from its own
// pool; an entry always goes back to the pool its length selects. Every function here runs with
// aclMutex held by its caller.
#pragma once

#include <cstdint>
#include <span>

#include "main/acl_pools.h"
#include "platform/dlist.h"
#include "store/acl_rule.h"

constexpr uint32_t ACL_SHORT_VALUE_LEN = 4;
constexpr uint32_t ACL_LONG_VALUE_LEN = 16;

// The part every value entry starts with; the bytes follow in the short or long record.
struct AclValueEntry {
  SilDlNode link;
  uint8_t code;  // field code
  uint8_t len;   // bytes of value
};
struct AclShortValueEntry {
  AclValueEntry hdr;
  uint8_t value[ACL_SHORT_VALUE_LEN];
};
struct AclLongValueEntry {
  AclValueEntry hdr;
  uint8_t value[ACL_LONG_VALUE_LEN];
};

// The part every action entry starts with.
struct AclActionEntry {
  SilDlNode link;
  uint8_t code;  // action code; 64 and up are out-actions
  uint8_t len;   // bytes of parameter
  uint8_t slot;  // word of the parameter in its block; ACL_ACTION_NO_SLOT without one
};
struct AclShortActionEntry {
  AclActionEntry hdr;
  uint8_t value[ACL_SHORT_VALUE_LEN];
};
struct AclLongActionEntry {
  AclActionEntry hdr;
  uint8_t value[ACL_LONG_VALUE_LEN];
};

static_assert(sizeof(AclShortValueEntry) <= ACL_SHORT_ENTRY_SIZE);
static_assert(sizeof(AclShortActionEntry) <= ACL_SHORT_ENTRY_SIZE);
static_assert(sizeof(AclLongValueEntry) <= ACL_LONG_ENTRY_SIZE);
static_assert(sizeof(AclLongActionEntry) <= ACL_LONG_ENTRY_SIZE);

// The entry's bytes (len of them).
std::span<uint8_t> aclValueBytes(AclValueEntry* entry);
std::span<uint8_t> aclActionBytes(AclActionEntry* entry);
// The entry's bytes read as one big-endian number (the first 4 of a longer value).
uint32_t aclValueWord(const AclValueEntry* entry);
uint32_t aclActionValueWord(const AclActionEntry* entry);

// Value entries, kept in ascending field code (a new one goes after those of its code). 0, or
// CMN_ERR_NO_RESOURCE when the pool is empty, CMN_ERR_BAD_PARAM for no rule, no bytes or more
// than 16. Either call stores the value in the entry kind its length selects.
int32_t aclRuleShortEntryAdd(AclRuleEntry* rule, uint8_t code, const uint8_t* value, uint32_t len);
int32_t aclRuleLongEntryAdd(AclRuleEntry* rule, uint8_t code, const uint8_t* value, uint32_t len);
// Unlinks the entry, clears it and gives it back to the pool its length selects; 0.
int32_t aclRuleShortEntryDel(AclValueEntry* entry);
int32_t aclRuleLongEntryDel(AclValueEntry* entry);
// Deletes the first value entry of code; -1 when there is none.
int32_t aclRuleShortEntryDelByType(AclRuleEntry* rule, uint8_t code);
AclValueEntry* aclRuleValueEntryGet(AclRuleEntry* rule, uint8_t code);
// Copies the value of code into out (at most out.size() bytes) and its length into *len; -1 when
// the rule has none.
int32_t aclRuleValueGet(AclRuleEntry* rule, uint8_t code, std::span<uint8_t> out, uint32_t* len);

AclActionEntry* aclActionEntryGet(AclRuleEntry* rule, uint8_t code, uint8_t slot);
// Sorted inserts: ascending code, within a code ascending slot. A parameter of length 0 is kept
// with slot ACL_ACTION_NO_SLOT and no bytes. Results as for the value entries.
int32_t aclShortActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                               uint32_t len);
int32_t aclLongActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                              uint32_t len);
// The same with a choice: sorted 0 appends at the end of the list.
int32_t _aclShortActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot,
                                const uint8_t* param, uint32_t len, int sorted);
int32_t _aclLongActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                               uint32_t len, int sorted);
int32_t aclShortActionEntryDel(AclActionEntry* entry);
int32_t aclLongActionEntryDel(AclActionEntry* entry);
// Either of the two above: the pool is chosen by the entry's length.
int32_t aclActionEntryDel(AclActionEntry* entry);

// Delete every value entry / every in-action entry (code below 64) / every out-action entry
// (code 64 and up); 0.
int32_t aclRuleListDel(AclRuleEntry* rule);
int32_t aclActionListDel(AclRuleEntry* rule);
int32_t aclOutActionListDel(AclRuleEntry* rule);

// Walks: the first entry of a list and the one after entry, or nullptr at the end.
AclValueEntry* aclValueFirst(AclRuleEntry* rule);
AclValueEntry* aclValueNext(AclRuleEntry* rule, AclValueEntry* entry);
AclActionEntry* aclActionFirst(AclRuleEntry* rule);
AclActionEntry* aclActionNext(AclRuleEntry* rule, AclActionEntry* entry);
