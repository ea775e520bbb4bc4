#include "main/opt_read.h"

#include <cstdlib>
#include <cstring>

#include "platform/sil.h"

bool optText(const char* key, OptText& buf) {
  std::memset(buf, 0, sizeof buf);
  return silOptRead(0, key, 0, 0, 1, buf, sizeof buf - 1) > 0;
}

uint32_t optNumber(const char* text) {
  return static_cast<uint32_t>(std::strtoll(text, nullptr, 10));
}

bool optFirstIs(const char* text, char lower) {
  return text[0] == lower || text[0] == lower - ('a' - 'A');
}
