// Text form of a next-hop or neighbour address for the log lines that name one.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_IP_STR_MIN = 64;  // smallest buffer the text is written into

// The dotted (family 1) or colon (family 2) form of addr written into buf. "NULL" for no address,
// an empty text when buf is missing or smaller than ACL_IP_STR_MIN, "Unknown" for any other
// family. addr holds 4 bytes for family 1 and 16 for family 2.
const char* aclIpTostr(const uint8_t* addr, uint32_t family, char* buf, uint32_t size);
