// The counter module: counters that rules reference.
#pragma once

#include <cstdint>

// Reads the counter. options and starts the module; called by main before the ACL module.
int32_t counterOptInit();
