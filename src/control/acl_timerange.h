// Time-range activation: re-programs the bound lists when a time range switches on or off.
#pragma once

#include <cstdint>
#include <span>

// body is the route message's body (its first word is the time range's id); state 1 = the range
// became active, 0 = inactive.
void aclTimerangeStateChangeProcess(std::span<const uint8_t> body, uint8_t state);
