// The platform's time-range service, served by the virtual device.
#pragma once

#include <cstdint>

constexpr uint32_t TIMERANGE_ATTR_REFCNT = 4;  // set: a big-endian i32 added to the users
constexpr uint32_t TIMERANGE_ATTR_STATE = 11;  // get: big-endian u32, 1 active, 0 inactive

int timerangeListGetApi(uint32_t id, uint32_t attr, void* value);
int timerangeListSetApi(uint32_t id, uint32_t attr, const void* value);
