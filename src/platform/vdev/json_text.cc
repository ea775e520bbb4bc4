#include "platform/vdev/json_text.h"

#include <cstring>
#include <new>

namespace vdev {

namespace {

// The 1-based offset of the first bracket that opens level kMaxJsonDepth + 1, or 0. Brackets
// inside strings do not count; the text need not be valid JSON (the parser judges that).
size_t tooDeepAt(std::string_view text) {
  // A text with no more opening brackets than the bound cannot nest past it, and most texts (a
  // control line, a small device file) have far fewer: they are counted with memchr, a word at
  // a time, and need no walk byte by byte.
  size_t opens = 0;
  for (const char bracket : {'[', '{'}) {
    const char* p = text.data();
    const char* const end = p + text.size();
    while (p < end && (p = static_cast<const char*>(std::memchr(p, bracket, end - p))) != nullptr) {
      ++opens;
      ++p;
    }
  }
  if (opens <= kMaxJsonDepth) return 0;
  size_t depth = 0;
  bool inString = false, escaped = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
      continue;
    }
    switch (c) {
      case '"':
        inString = true;
        break;
      case '[':
      case '{':
        if (++depth > kMaxJsonDepth) return i + 1;
        break;
      case ']':
      case '}':
        if (depth > 0) --depth;
        break;
      default:
        break;
    }
  }
  return 0;
}

// The parser's message quotes the input it last read, which may be any bytes: keep it ASCII so
// that the message is valid UTF-8 wherever it goes.
std::string asciiOnly(std::string what) {
  for (char& c : what) {
    if (static_cast<unsigned char>(c) >= 0x80) c = '?';
  }
  return what;
}

}  // namespace

bool parseJsonText(std::string_view text, nlohmann::json* out, JsonTextError* error) {
  if (const size_t at = tooDeepAt(text)) {
    *error = {"nesting deeper than " + std::to_string(kMaxJsonDepth) + " levels", at};
    return false;
  }
  try {
    *out = nlohmann::json::parse(text);
    return true;
  } catch (const nlohmann::json::parse_error& e) {
    *error = {asciiOnly(e.what()), e.byte};
  } catch (const nlohmann::json::exception& e) {
    // A number out of range, or anything else the parser refuses after reading it.
    *error = {asciiOnly(e.what()), 0};
  } catch (const std::bad_alloc&) {
    *error = {"out of memory", 0};
  }
  return false;
}

}  // namespace vdev
