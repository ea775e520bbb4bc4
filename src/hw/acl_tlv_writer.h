// Writing the sections of a TLV message: a section is a 16-bit length that counts itself followed
// by items of a type byte, a length byte and that many value bytes, packed with no padding. A
// writer never writes past its buffer; an item that would not fit marks the message as failed.
#pragma once

#include <cstdint>
#include <span>

#include "wire/acl_dev_layout.h"
#include "wire/be.h"

struct AclTlvWriter {
  std::span<uint8_t> buf;
  uint32_t pos = acldev::kTlvHeaderLen;
  uint32_t sectionStart = 0;
  bool overflow = false;

  explicit AclTlvWriter(std::span<uint8_t> b) : buf(b) {}

  bool room(uint32_t n) const { return pos + n <= buf.size(); }

  // Reserves the section's length word; endSection fills it in.
  void beginSection() {
    sectionStart = pos;
    if (!room(acldev::kTlvSectionLenLen)) {
      overflow = true;
      return;
    }
    pos += acldev::kTlvSectionLenLen;
  }
  // Returns the section length (its own word included). be::store16 writes byte by byte, so an
  // odd offset is fine.
  uint16_t endSection() {
    const auto len = static_cast<uint16_t>(pos - sectionStart);
    if (!overflow) be::store16(buf, sectionStart, len);
    return len;
  }

  void item(uint8_t type, std::span<const uint8_t> value) {
    const auto n = static_cast<uint32_t>(value.size());
    if (overflow || n > 0xFF || !room(acldev::kTlvItemHeaderLen + n)) {
      overflow = true;
      return;
    }
    buf[pos] = type;
    buf[pos + 1] = static_cast<uint8_t>(n);
    for (uint32_t i = 0; i < n; ++i) buf[pos + 2 + i] = value[i];
    pos += acldev::kTlvItemHeaderLen + n;
  }
  void item32(uint8_t type, uint32_t value) {
    uint8_t w[4];
    be::store32(w, 0, value);
    item(type, w);
  }
};
