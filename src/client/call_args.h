// The raw call of any table function: how the words of aclctl's "call" command become a request,
// and how the answer is shown.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "wire/func_table.h"
#include "wire/protocol.h"

namespace aclclient {

// A function named by its table name or by its id (decimal or 0x-hex). An id past the table is
// accepted and sent as it is: the server answers it.
struct FuncRef {
  uint32_t id;
  const wire::FuncInfo* info;  // nullptr for an id past the table
};
std::optional<FuncRef> parseFunc(const std::string& text);

// Decimal or 0x-hex, the whole of text, fitting 32 bits.
std::optional<uint32_t> parseU32(const std::string& text);
std::optional<std::vector<uint8_t>> parseHex(const std::string& text);
std::string toHex(std::span<const uint8_t> bytes);

struct CallArgs {
  std::string key = "-";
  std::string cmd;  // empty: not given
  std::string buf = "-";
};

// Builds the request; false with err (a usage error) when the arguments do not suit the
// function's shape.
bool buildRequest(const FuncRef& func, const CallArgs& args, wire::Request* req, std::string* err);

// {"ret", "ret_hex", "key" when a key came back, "buf" when the request had a buffer}, in that
// order.
nlohmann::ordered_json responseJson(const wire::Response& resp);

// The text of "aclctl call --help": the argument forms and every function's shape.
std::string callShapesHelp();

}  // namespace aclclient
