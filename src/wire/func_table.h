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
