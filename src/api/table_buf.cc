#include "api/table_buf.h"

#include <algorithm>
#include <cstring>

void tblDescPut(wire::BufDesc* desc, std::span<const uint8_t> bytes) {
  const uint32_t n = std::min<uint32_t>(desc->len, static_cast<uint32_t>(bytes.size()));
  if (n > 0) std::memcpy(desc->data, bytes.data(), n);
  desc->len = n;
}

bool tblCapabilityPut(wire::BufDesc* desc) {
  if (desc == nullptr || desc->data == nullptr || desc->len < 12) return false;
  desc->len = 12;
  std::span<uint8_t> rec(static_cast<uint8_t*>(desc->data), 12);
  be::store32(rec, 0, 1);
  be::store32(rec, 8, 2);
  return true;
}
