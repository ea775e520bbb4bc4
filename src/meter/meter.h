// The meter module: meters and meter profiles that rules reference.
#pragma once

#include <cstdint>

// Reads the meter. options and starts the module; called by main before the ACL module.
int32_t meterOptInit();
