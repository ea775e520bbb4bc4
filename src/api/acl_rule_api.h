// The rule table (function ids 9 to 13): walk the rules of every list, read them command by
// command, and build, activate, deactivate, move and delete them. Every table function takes the
// ACL lock for its whole body; the two translation entry points for other modules take it through
// aclRuleGetApi.
#pragma once

#include <cstdint>

#include "wire/acl_rule_cmds.h"

// The rule key: 12 big-endian bytes passed by address (also the key of the relay).
constexpr uint32_t ACL_RULE_KEY_LEN = 12;
constexpr uint32_t ACL_RULE_KEY_LST = 0;
constexpr uint32_t ACL_RULE_KEY_RULE = 4;
constexpr uint32_t ACL_RULE_KEY_FILTER = 8;
// Walk filter: with this bit of the filter word set, GetFirst and GetNext stay inside lstIdx.
constexpr uint32_t ACL_RULE_FILTER_LIST = 0x80000000;

struct AclListEntry;

// keyAddr: a rule key whose first two words take the first rule's list and rule number (the
// filter word is read, not written). 0, or -1 when no rule passes the filter.
int32_t aclRuleGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t);
// The rule after the current key's, also when that rule or its list is gone; the candidate must
// pass the current key's filter. -1 at the end.
int32_t aclRuleGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t);
// 1 when the key's filter bit is clear or list is the key's list, else 0.
int32_t aclRuleFilterMatch(uintptr_t keyAddr, const AclListEntry* list);

int32_t aclRuleGetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclRuleSetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf);
int32_t aclRuleSyncApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf);
// The body of both: mode 3 from a Set, 1 from a Sync; it only reaches the hardware layer.
int32_t _aclRuleSetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf, uint32_t mode);

// For other modules: the rule's 508-byte hardware record into data (get 75 with a 508-byte
// descriptor), and its TLV message into the descriptor at descAddr (get 87).
int32_t aclRuleDevTrans(uintptr_t keyAddr, uintptr_t data);
int32_t aclRuleDevTransTlv(uintptr_t keyAddr, uintptr_t descAddr);
