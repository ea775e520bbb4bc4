// Meter and counter attributes as the hardware forms carry them. A query that fails is not an
// error: the attribute is simply left out (or stays 0).
#pragma once

#include <cstdint>
#include <optional>

#include "counter/counter.h"
#include "meter/meter.h"
#include "wire/be.h"

// Meter attributes by their meterGetApi command.
constexpr uint32_t ACL_METER_ATTR_TYPE = 1;
constexpr uint32_t ACL_METER_ATTR_MODE = 2;
constexpr uint32_t ACL_METER_ATTR_CARTYPE = 3;
constexpr uint32_t ACL_METER_ATTR_CIR = 4;
constexpr uint32_t ACL_METER_ATTR_PIR = 6;
constexpr uint32_t ACL_METER_ATTR_CBS = 7;
constexpr uint32_t ACL_METER_ATTR_EBS = 8;
constexpr uint32_t ACL_METER_ATTR_PBS = 9;
// Counter attributes by their counterGetApi command.
constexpr uint32_t ACL_COUNTER_ATTR_TYPE = 4;
constexpr uint32_t ACL_COUNTER_ATTR_COLOR = 5;

// Item types of the appended CAR, meter and counter items of a TLV message.
constexpr uint8_t RULE_ACTION_CARTYPE = 65;
constexpr uint8_t RULE_ACTION_METERTYPE = 66;
constexpr uint8_t RULE_ACTION_METERMODE = 67;
constexpr uint8_t RULE_ACTION_METERCIR = 68;
constexpr uint8_t RULE_ACTION_METERCBS = 69;
constexpr uint8_t RULE_ACTION_METERPIR = 70;
constexpr uint8_t RULE_ACTION_METERPBS = 71;
constexpr uint8_t RULE_ACTION_METEREBS = 72;
constexpr uint8_t RULE_ACTION_COUNTERTYPE = 73;
constexpr uint8_t RULE_ACTION_COUNTERCOLOR = 74;

// A rule with RULE_BIT_CARID is programmed as this CAR type and meter type.
constexpr uint32_t ACL_CAR_TYPE = 3;
constexpr uint32_t ACL_CAR_METER_TYPE = 1;

inline std::optional<uint32_t> aclDevMeterAttr(uint32_t meterId, uint32_t attr) {
  uint8_t w[4] = {};
  if (meterGetApi(meterId, attr, reinterpret_cast<uintptr_t>(w)) != 0) return std::nullopt;
  return be::load32(w);
}

// Takes the counter module's lock, after the ACL lock the caller holds.
inline std::optional<uint32_t> aclDevCounterAttr(uint32_t counterId, uint32_t attr) {
  uint8_t w[4] = {};
  if (counterGetApi(counterId, attr, reinterpret_cast<uintptr_t>(w)) != 0) return std::nullopt;
  return be::load32(w);
}
