// What several aclctl commands share: the tables' row-status values and record sizes, and how
// counters, bind kinds, directions and codes are written out. One definition each, so that every
// command shows a value the same way.
#pragma once

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <string>

#include <nlohmann/json.hpp>

#include "client/aclctl.h"
#include "hw/acl_bind_slot.h"

// Row-status values of the tables with rows (interfaces, GEM ports, lists).
inline constexpr uint32_t kRowCreate = 2;
inline constexpr uint32_t kRowDestroy = 4;
// The list table's row-status command.
inline constexpr uint32_t kLstCmdStatus = 9;
// A statistics index record and the answer of a statistics read.
inline constexpr size_t kStatsIndexLen = 28;
inline constexpr uint32_t kStatsAnswerLen = 64;
// The eight counters of a statistics answer, in its order.
inline constexpr const char* kCounterNames[] = {"p1", "b1", "p2", "b2", "p3", "b3", "p4", "b4"};
// List types by their code, and binding directions by theirs.
inline const char* const kListTypeNames[] = {"",     "l2", "ipv4", "ipv6", "hybrid",
                                             "mpls", "",   "",     "udf"};
inline const char* const kDirNames[] = {"in", "out", "vfp"};

inline std::string hex32(uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", v);
  return text;
}

inline std::string dirName(uint32_t dir) {
  return dir < std::size(kDirNames) ? kDirNames[dir] : std::to_string(dir);
}

inline std::string kindName(uint32_t kind) {
  if (kind == ACL_BIND_KIND_UNTYPED) return "untyped";
  if (aclBindKindIsVfp(kind)) {
    const uint32_t col = kind - ACL_BIND_KIND_VFP_L2;
    return std::string("vfp-") + kListTypeNames[col == 5 ? 8 : col + 1];
  }
  if (kind < std::size(kListTypeNames) && kListTypeNames[kind][0] != '\0') {
    return kListTypeNames[kind];
  }
  return std::to_string(kind);
}

// A command that succeeded: its text, or {"ret": 0} under --json.
inline void reportOk(const AclctlGlobals& g, const std::string& text) {
  if (g.json) {
    std::cout << nlohmann::ordered_json{{"ret", 0}}.dump() << std::endl;
  } else {
    std::cout << text << std::endl;
  }
}
