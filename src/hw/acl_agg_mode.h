// An aggregation's programming mode for one hardware command, as the interface manager answers
// it: bit 1 asks for the command on the aggregation itself, bit 0 on each member port.
#pragma once

#include <cstdint>

constexpr uint8_t ACL_AGG_MODE_MEMBERS = 0x01;
constexpr uint8_t ACL_AGG_MODE_AGG = 0x02;

// *mode takes the mode of cmd on aggUnit; the interface manager's result.
int32_t aclAggModeGet(uint32_t aggUnit, uint32_t cmd, uint8_t* mode);
