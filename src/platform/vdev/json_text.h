// JSON text from outside the process (control lines, device files) into values, never throwing.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace vdev {

// Deepest nesting of arrays and objects accepted. The device file and every control request
// need fewer than ten levels; the bound keeps every recursive walk over a value (copy, compare,
// destroy, serialise) far from the end of the stack.
constexpr size_t kMaxJsonDepth = 64;

struct JsonTextError {
  std::string what;  // ASCII only, whatever bytes the input held
  size_t byte = 0;   // offset of the problem in the text (1-based, as the parser counts)
};

// Parses text as one JSON value. Nesting deeper than kMaxJsonDepth is refused before any value
// is built; a syntax error, invalid UTF-8 or a number out of range is an error, not an exception.
bool parseJsonText(std::string_view text, nlohmann::json* out, JsonTextError* error);

}  // namespace vdev
