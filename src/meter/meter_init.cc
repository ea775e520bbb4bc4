#include "meter/meter.h"

// The meter tables and their options arrive with the meter module; until then the module has
// nothing to start.
int32_t meterOptInit() { return 0; }
