// The command table as clients see it: function ids, names, call shapes and key widths. The ids
// are a contract with every client and stay fixed, gaps included. The server checks requests
// against these shapes; the functions themselves are registered by the daemon (api/acl_func_map).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace wire {

constexpr uint32_t kFuncCount = 87;

// Function ids by their table names, for callers that name the function they call (the table
// below checks each against its entry at build time).
namespace fid {
inline constexpr uint32_t aclScalarGetApi = 1;
inline constexpr uint32_t aclScalarSetApi = 2;
inline constexpr uint32_t aclScalarSyncApi = 3;
inline constexpr uint32_t aclLstGetFirst = 4;
inline constexpr uint32_t aclLstGetNext = 5;
inline constexpr uint32_t aclLstGetApi = 6;
inline constexpr uint32_t aclLstSetApi = 7;
inline constexpr uint32_t aclLstSyncApi = 8;
inline constexpr uint32_t aclRuleGetFirst = 9;
inline constexpr uint32_t aclRuleGetNext = 10;
inline constexpr uint32_t aclRuleGetApi = 11;
inline constexpr uint32_t aclRuleSetApi = 12;
inline constexpr uint32_t aclRuleSyncApi = 13;
inline constexpr uint32_t aclIfLstGetFirst = 14;
inline constexpr uint32_t aclIfLstGetNext = 15;
inline constexpr uint32_t aclIfGetFirst = 16;
inline constexpr uint32_t aclIfGetNext = 17;
inline constexpr uint32_t aclIfGetApi = 18;
inline constexpr uint32_t aclIfSetApi = 19;
inline constexpr uint32_t aclIfSyncApi = 20;
inline constexpr uint32_t aclStatsGetFirst = 21;
inline constexpr uint32_t aclStatsGetNext = 22;
inline constexpr uint32_t aclStatsGetApi = 23;
inline constexpr uint32_t aclStatsSetApi = 24;
inline constexpr uint32_t aclStatsSyncApi = 25;
inline constexpr uint32_t aclIfStatsGetFirst = 26;
inline constexpr uint32_t aclIfStatsGetNext = 27;
inline constexpr uint32_t aclIfStatsGetApi = 28;
inline constexpr uint32_t aclIfStatsSetApi = 29;
inline constexpr uint32_t aclIfStatsSyncApi = 30;
inline constexpr uint32_t aclFreeIdxToIndex = 45;
inline constexpr uint32_t aclIndexToFreeIdx = 46;
inline constexpr uint32_t aclSlotSetApi = 48;
inline constexpr uint32_t aclSlotSyncApi = 49;
inline constexpr uint32_t meterScalarGetApi = 50;
inline constexpr uint32_t meterScalarSetApi = 51;
inline constexpr uint32_t meterScalarSyncApi = 52;
inline constexpr uint32_t meterGetFirst = 53;
inline constexpr uint32_t meterGetNext = 54;
inline constexpr uint32_t meterGetApi = 55;
inline constexpr uint32_t meterSetApi = 56;
inline constexpr uint32_t meterSyncApi = 57;
inline constexpr uint32_t meterProfileGetFirst = 58;
inline constexpr uint32_t meterProfileGetNext = 59;
inline constexpr uint32_t meterProfileGetApi = 60;
inline constexpr uint32_t meterProfileSetApi = 61;
inline constexpr uint32_t meterProfileSyncApi = 62;
inline constexpr uint32_t counterScalarGetApi = 63;
inline constexpr uint32_t counterScalarSetApi = 64;
inline constexpr uint32_t counterScalarSyncApi = 65;
inline constexpr uint32_t counterGetFirst = 66;
inline constexpr uint32_t counterGetNext = 67;
inline constexpr uint32_t counterGetApi = 68;
inline constexpr uint32_t counterSetApi = 69;
inline constexpr uint32_t counterSyncApi = 70;
inline constexpr uint32_t aclSlotResourceGetFirst = 71;
inline constexpr uint32_t aclSlotResourceGetNext = 72;
inline constexpr uint32_t aclSlotResourceGetApi = 73;
inline constexpr uint32_t aclGemPortLstGetFirst = 75;
inline constexpr uint32_t aclGemPortLstGetNext = 76;
inline constexpr uint32_t aclGemPortGetFirst = 77;
inline constexpr uint32_t aclGemPortGetNext = 78;
inline constexpr uint32_t aclGemPortGetApi = 79;
inline constexpr uint32_t aclGemPortSetApi = 80;
inline constexpr uint32_t aclGemPortSyncApi = 81;
inline constexpr uint32_t aclGemPortStatsGetFirst = 82;
inline constexpr uint32_t aclGemPortStatsGetNext = 83;
inline constexpr uint32_t aclGemPortStatsGetApi = 84;
inline constexpr uint32_t aclGemPortStatsSetApi = 85;
inline constexpr uint32_t aclGemPortStatsSyncApi = 86;
}  // namespace fid

// How a function takes its three words.
//   Get, Set, Sync  (key, command id, buffer)
//   GetFirst        (address of a key area)
//   GetNext         (current key, address of the next key area)
//   IndexConv       (index, address of a value word)
enum class FuncShape : uint8_t { Empty, Get, Set, Sync, GetFirst, GetNext, IndexConv };

// How the family's key travels: ignored (scalars), one word by value, or a key record by address.
enum class KeyKind : uint8_t { None, Value, Bytes };

struct FuncInfo {
  uint32_t id;
  std::string_view name;  // empty for an empty slot
  FuncShape shape;
  KeyKind keyKind;
  uint8_t keyWidth;  // bytes of the key area: 4 for value-keyed tables, the record size otherwise
};

// The entry of id; an id at or past kFuncCount gives the empty entry of id 0.
const FuncInfo& funcInfo(uint32_t id);
// By name (exact), or nullptr.
const FuncInfo* funcByName(std::string_view name);
std::span<const FuncInfo> funcTable();
std::string_view shapeName(FuncShape shape);

}  // namespace wire
