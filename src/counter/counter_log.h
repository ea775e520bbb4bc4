#pragma once

#include <cstdint>

// Counter messages, under the counter module's log id.
constexpr uint32_t COUNTER_LOG_TAG = 0x03EA0006;
// Written only while gCounterDbg is set.
void counterLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Written whatever gCounterDbg says.
void counterLogAlways(const char* format, ...) __attribute__((format(printf, 1, 2)));
