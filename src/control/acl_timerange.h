// Time-range activation: re-programs the bound lists when a time range switches on or off.
// Callers hold aclMutex.
#pragma once

#include <cstdint>
#include <span>

struct AclListEntry;
struct AclRuleEntry;

// body is the route message's body (its first word is the time range's id); state 1 = the range
// became active, 0 = inactive.
void aclTimerangeStateChangeProcess(std::span<const uint8_t> body, uint8_t state);

// Takes the list off every binding, stores the new state in its rules that follow trid and
// installs it again everywhere. 0; -1 for no list or a list without rules.
int32_t aclDoTrForList(AclListEntry* list, uint32_t trid, uint32_t state);
// Adds the rule to (state 1) or removes it from (state 0) every binding of its list when it
// follows trid and its state changes. 0; -1 for no list, a list without rules or no rule.
int32_t aclDoTrForRule(AclListEntry* list, AclRuleEntry* rule, uint32_t trid, uint32_t state);

// Entry points of the time-range service that this module does not serve: they change nothing
// and answer CMN_ERR_NOT_SUPPORTED.
int32_t aclStartTr();
int32_t aclStopTr();
int32_t aclUnBindTr();
