// Interface names for messages, as the interface manager gives them.
#pragma once

#include <cstdint>

// Room for the longest name the messages print and its terminator.
constexpr uint32_t kAclIfNameLen = 64;
// Binding messages ask for at most 63 bytes.
constexpr uint32_t kAclIfNameLenBind = 63;

struct AclIfName {
  char text[kAclIfNameLen];
};

// The name of the unit, cut to len - 1 characters; empty when the manager does not know it.
AclIfName aclIfName(uint32_t unit, uint32_t len);
