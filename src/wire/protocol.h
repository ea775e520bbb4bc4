// The command protocol between clients and the command server: versioned, length-prefixed,
// big-endian frames over a local stream socket. docs/PROTOCOL.md describes the layout byte by byte.
//
// Every frame starts with a 12-byte header:
//   0  u16 magic 0xAC1D
//   2  u8  version (1)
//   3  u8  kind (1 request, 2 response)
//   4  u32 sequence (echoed in the response)
//   8  u32 body length (bytes after the header, at most kMaxBody)
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace wire {

constexpr uint16_t kMagic = 0xAC1D;
constexpr uint8_t kVersion = 1;
constexpr uint8_t kKindRequest = 1;
constexpr uint8_t kKindResponse = 2;
constexpr size_t kHeaderLen = 12;
constexpr size_t kRequestFixedLen = 32;   // request body before the key and data bytes
constexpr size_t kResponseFixedLen = 28;  // response body before the key and data bytes
constexpr uint32_t kMaxKeyLen = 64;
// The largest data area a request may carry or ask for (descriptor capacity, record length).
constexpr uint32_t kMaxDataLen = 64 * 1024;
constexpr uint32_t kMaxBody = kRequestFixedLen + kMaxKeyLen + kMaxDataLen;

// How the key travels: absent (the scalar families ignore it), as one value word, or as the
// big-endian bytes of a key record whose address the function receives.
enum class KeyShape : uint8_t { None = 0, Value = 1, Bytes = 2 };

// What the function's buffer argument points at.
//   None   a null pointer
//   Value  a big-endian 32-bit value word
//   Desc   a buffer descriptor {data address, length} over a data area of descCapacity bytes,
//          the first bytes of which are the request's data
//   Ptr    a native word holding the address of a record with the request's data (a null
//          address when the data is empty)
//   Raw    the record itself
enum class BufShape : uint8_t { None = 0, Value = 1, Desc = 2, Ptr = 3, Raw = 4 };
constexpr uint8_t kBufShapeCount = 5;

// Frame status of a response. Anything but Ok means the request never reached a table function.
enum class Status : uint32_t {
  Ok = 0,
  Malformed = 1,        // the frame's header or body does not have the protocol's form
  BadVersion = 2,       // a protocol version this server does not speak
  TooLarge = 3,         // the body length exceeds kMaxBody
  UnknownFunction = 4,  // no such function id in the table
  Schema = 5,           // key or payload does not fit what the function and command accept
  Internal = 6,         // the server could not serve it (out of memory)
};
std::string_view statusName(Status s);

struct FrameHeader {
  uint16_t magic = kMagic;
  uint8_t version = kVersion;
  uint8_t kind = kKindRequest;
  uint32_t seq = 0;
  uint32_t bodyLen = 0;
};

struct Request {
  uint32_t funcId = 0;
  uint32_t cmd = 0;
  KeyShape keyShape = KeyShape::None;
  BufShape bufShape = BufShape::None;
  uint32_t keyValue = 0;      // KeyShape::Value
  uint32_t bufValue = 0;      // BufShape::Value
  uint32_t descCapacity = 0;  // BufShape::Desc: size of the data area, at least data.size()
  std::vector<uint8_t> key;   // KeyShape::Bytes
  std::vector<uint8_t> data;  // Desc input bytes, Ptr or Raw record
};

struct Response {
  Status status = Status::Ok;
  int32_t result = 0;
  KeyShape keyShape = KeyShape::None;  // Bytes when a key area came back
  BufShape bufShape = BufShape::None;  // the request's buffer shape
  uint32_t bufValue = 0;               // the value word after the call
  uint32_t descLen = 0;                // the descriptor's length word after the call
  std::vector<uint8_t> key;
  std::vector<uint8_t> data;  // Desc: min(descLen, capacity) bytes; Ptr/Raw: the record
};

// The header of a frame whose first kHeaderLen bytes are hdr. Ok, Malformed (magic or kind),
// BadVersion or TooLarge; header is filled whenever the magic matched.
Status decodeHeader(std::span<const uint8_t> hdr, uint8_t expectKind, FrameHeader* header);

// A request body (the bytes after the header). Ok or Malformed: the shapes must be known, the
// fields that a shape does not use must be zero and the nested lengths must add up exactly.
Status decodeRequest(std::span<const uint8_t> body, Request* req);
Status decodeResponse(std::span<const uint8_t> body, Response* resp);

// Whole frames, header included.
std::vector<uint8_t> encodeRequest(uint32_t seq, const Request& req);
std::vector<uint8_t> encodeResponse(uint32_t seq, const Response& resp);
// A response that carries only a frame status.
std::vector<uint8_t> encodeStatus(uint32_t seq, Status status);

}  // namespace wire
