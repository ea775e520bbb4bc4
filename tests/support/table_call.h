// Calling table functions in process the way the command server does: value words are big-endian
// 4-byte buffers, descriptors are native {data, length} records.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "api/table_buf.h"
#include "wire/be.h"

namespace test {

using TableFn = int32_t (*)(uintptr_t, uintptr_t, uintptr_t);

// A value word: set with a number, read back after a Get.
struct Word {
  uint8_t bytes[4] = {};
  Word() = default;
  explicit Word(uint32_t v) { be::store32(bytes, v); }
  uintptr_t addr() { return reinterpret_cast<uintptr_t>(bytes); }
  uint32_t value() const { return be::load32(bytes); }
};

// A descriptor over an owned data area.
struct Desc {
  std::vector<uint8_t> data;
  wire::BufDesc desc{};
  explicit Desc(size_t capacity) : data(capacity) { desc = {data.data(), uint32_t(capacity)}; }
  explicit Desc(const std::string& text) : data(text.begin(), text.end()) {
    desc = {data.data(), uint32_t(data.size())};
  }
  uintptr_t addr() { return reinterpret_cast<uintptr_t>(&desc); }
  std::string text() const { return std::string(data.begin(), data.begin() + desc.len); }
};

// Set or Get of a value word; the value read back lands in out.
inline int32_t callValue(TableFn fn, uintptr_t key, uint32_t cmd, uint32_t in, uint32_t* out = nullptr) {
  Word w(in);
  const int32_t ret = fn(key, cmd, w.addr());
  if (out) *out = w.value();
  return ret;
}

}  // namespace test
