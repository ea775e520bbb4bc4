// The payload schema: what key and buffer each function id and command id accepts. The server
// answers a request that does not fit with Status::Schema, so a table function only ever sees
// keys of its family's width and buffers of the shapes and sizes listed here.
//
// The schema refuses only what would let a function read or write outside the memory the server
// set aside for the call: a descriptor command handed a value word or a record (it would take a
// data address from the client's bytes), a record command handed anything but a record. Every
// payload a function answers itself gets through: a missing buffer (a null pointer), a descriptor
// of any length from 0 (a null data address) up to kMaxDataLen, short or long, so the client hears
// the function's own code and not a protocol status.
//
// Each shape of function has a default rule; a command whose payload is known more exactly gets
// one row in kRows (schema.cc), which replaces the default for that function id and command.
#pragma once

#include <cstdint>
#include <span>

#include "wire/func_table.h"
#include "wire/protocol.h"

namespace wire {

constexpr uint8_t bufMask(BufShape s) {
  return static_cast<uint8_t>(1u << static_cast<uint8_t>(s));
}
constexpr uint8_t kAnyBuf = 0x1F;
// Records passed by address (Ptr, Raw) are at most this long unless a row says otherwise.
constexpr uint32_t kMaxRecordLen = 4096;

// The buffer a command accepts. For Desc the bounds apply to the data area's capacity, for Ptr and
// Raw to the record's length (a Ptr with no data carries a null record address, always accepted
// where Ptr is); Value and None have no length.
struct BufRule {
  uint8_t shapes;
  uint32_t minLen;
  uint32_t maxLen;
};

struct CmdSchema {
  uint32_t funcId;
  uint32_t cmd;
  BufRule buf;
};

// The rows that refine the defaults, for inspection and tests.
std::span<const CmdSchema> cmdSchemas();

// The buffer rule of funcId and cmd: its row, or the default for the function's shape.
BufRule bufRuleFor(uint32_t funcId, uint32_t cmd);

// Ok, UnknownFunction (id past the table) or Schema. The request must already have decoded.
Status checkRequest(const Request& req);

// Bytes the server sets aside for a Ptr or Raw record of dataLen bytes: never less than the
// longest record the command accepts, so a function that reads its record at full length stays
// inside memory the server owns even when the client sent a shorter one.
uint32_t recordAllocLen(uint32_t funcId, uint32_t cmd, uint32_t dataLen);

}  // namespace wire
