// The option store behind silOptRead: an options file of "key = value" lines and command-line
// overrides. An option that is in neither is absent.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plat {

// Reads an options file: "key = value" lines, '#' comment lines and blank lines. A line of any
// other form refuses the whole file, with error naming the file, the line and the problem; the
// store is then unchanged.
bool optLoadFile(const std::string& path, std::string* error);
// The same for text already read, error naming it as name.
bool optLoadText(std::string_view text, const std::string& name, std::string* error);
// "key=value" from the command line; false (with error) when it is not of that form.
bool optParseOverride(const std::string& text, std::string* error);
void optSet(const std::string& key, const std::string& value);
std::optional<std::string> optGet(const std::string& key);
void optClear();
std::vector<std::pair<std::string, std::string>> optAll();

}  // namespace plat
