// Message-group send: change announcements to other processes.
#pragma once

#include <cstdint>

// Sends len bytes of msg to message group group. The virtual device keeps every announcement and
// puts it on the route bus.
int zorNetlinkSGrpSend(uint32_t group, uint32_t flags, const void* msg, uint32_t len);
