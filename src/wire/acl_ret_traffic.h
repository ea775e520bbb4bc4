// Result codes of the traffic policies (beside wire/acl_ret.h, which every table includes).
#pragma once

#include <cstdint>

// A traffic policy other than a filter met a rule that is already valid.
constexpr int32_t ACL_ERR_TRAFFIC_RULE_VALID = 0x03EA0049;
// A filter policy without an action code met a rule that neither permits nor denies.
constexpr int32_t ACL_ERR_FILTER_NO_ACTION = 0x03EA004B;
