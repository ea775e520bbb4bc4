// The check made before a rule is given further in-actions: do the requested actions contradict
// the ones it has, and does the hardware support the request. Both run with aclMutex held.
#pragma once

#include <cstdint>

// current and requested: 8-byte in-action bit sets. 0, CMN_ERR_BAD_PARAM for a missing set, or
// the code of the first contradiction found.
int32_t aclRuleActionConflictCheck(const uint8_t* current, const uint8_t* requested);

// Asks the platform (scalar query 554) whether the hardware supports len bytes at data; its
// answer, 0 when supported.
int32_t actRuleActionHwSupportCheck(const void* data, uint16_t len);
