#pragma once

#include <cstdint>

// Meter messages: written only while gMeterDebug is set, under the meter module's log id.
constexpr uint32_t METER_LOG_TAG = 0x03EA0007;
void meterLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
