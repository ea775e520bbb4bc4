// The option store: options file and command-line overrides, read through silOptRead.
#include "platform/options.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string_view>

#include "platform/sil.h"

namespace {

std::mutex gOptMutex;
std::map<std::string, std::string> gOptions;

// Views rather than copies: a line is copied only into the key and value it stores.
std::string_view trim(std::string_view s) {
  const auto b = s.find_first_not_of(" \t\r");
  if (b == std::string_view::npos) return {};
  const auto e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

// A key is read back by C callers through its NUL-terminated name, so a key holding a NUL or
// another control byte could never be asked for: such a line is refused rather than stored.
bool validKey(const std::string& key) {
  return !key.empty() && std::none_of(key.begin(), key.end(), [](char c) {
    const auto u = static_cast<unsigned char>(c);
    return c == ' ' || c == '\t' || c == '=' || c == '#' || u < 0x20 || u == 0x7F;
  });
}

// "key = value" into its two halves; false when the text has no '=' or no key.
bool splitAssignment(std::string_view text, std::string* key, std::string* value) {
  const auto eq = text.find('=');
  if (eq == std::string_view::npos) return false;
  *key = trim(text.substr(0, eq));
  *value = trim(text.substr(eq + 1));
  return validKey(*key);
}

}  // namespace

namespace plat {

bool optLoadFile(const std::string& path, std::string* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    if (error) *error = path + ": cannot open options file: " + std::strerror(errno);
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  return optLoadText(text.str(), path, error);
}

bool optLoadText(std::string_view text, const std::string& name, std::string* error) {
  std::map<std::string, std::string> read;
  unsigned lineNo = 0;
  // Lines as std::getline splits them: a last line without its newline is a line too.
  for (size_t at = 0; at < text.size(); ++lineNo) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string_view t = trim(text.substr(at, end - at));
    at = end + 1;
    if (t.empty() || t[0] == '#') continue;
    std::string key, value;
    if (!splitAssignment(t, &key, &value)) {
      if (error) {
        *error = name + ":" + std::to_string(lineNo + 1) + ": expected 'key = value', found '" +
                 std::string(t) + "'";
      }
      return false;
    }
    read[std::move(key)] = std::move(value);  // a key given twice keeps its last value
  }
  std::lock_guard lock(gOptMutex);
  for (auto& [k, v] : read) gOptions[k] = std::move(v);
  return true;
}

bool optParseOverride(const std::string& text, std::string* error) {
  std::string key, value;
  if (!splitAssignment(text, &key, &value)) {
    if (error) *error = "--opt expects key=value, not '" + text + "'";
    return false;
  }
  optSet(key, value);
  return true;
}

void optSet(const std::string& key, const std::string& value) {
  std::lock_guard lock(gOptMutex);
  gOptions[key] = value;
}

std::optional<std::string> optGet(const std::string& key) {
  std::lock_guard lock(gOptMutex);
  auto it = gOptions.find(key);
  if (it == gOptions.end()) return std::nullopt;
  return it->second;
}

void optClear() {
  std::lock_guard lock(gOptMutex);
  gOptions.clear();
}

std::vector<std::pair<std::string, std::string>> optAll() {
  std::lock_guard lock(gOptMutex);
  return {gOptions.begin(), gOptions.end()};
}

}  // namespace plat

int silOptRead(uint32_t /*module*/, const char* key, uint32_t, uint32_t, uint32_t, char* buf,
               uint32_t len) {
  if (key == nullptr || buf == nullptr) return 0;
  auto v = plat::optGet(key);
  if (!v) return 0;
  // len is the room for text; the NUL goes after it, as the callers pass sizeof(buf) - 1.
  const size_t n = std::min<size_t>(v->size(), len);
  std::memcpy(buf, v->data(), n);
  buf[n] = '\0';
  return static_cast<int>(n + 1);
}
