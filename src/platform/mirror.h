// Mirror-group reference counts kept by the platform for each module, served by the virtual device.
#pragma once

#include <cstdint>

// Adds delta to the module's references of the group; CMN_ERR_NOT_FOUND for an unknown group.
int mirrorRefCount(uint32_t group, uint32_t module, int32_t delta);
