#include "wire/protocol.h"

#include <algorithm>

#include "wire/be.h"

namespace wire {

std::string_view statusName(Status s) {
  switch (s) {
    case Status::Ok:
      return "ok";
    case Status::Malformed:
      return "malformed frame";
    case Status::BadVersion:
      return "unsupported protocol version";
    case Status::TooLarge:
      return "frame too large";
    case Status::UnknownFunction:
      return "unknown function id";
    case Status::Schema:
      return "payload does not fit the function's schema";
    case Status::Internal:
      return "server could not serve the request";
  }
  return "unknown status";
}

Status decodeHeader(std::span<const uint8_t> hdr, uint8_t expectKind, FrameHeader* header) {
  if (hdr.size() < kHeaderLen) return Status::Malformed;
  header->magic = be::load16(hdr, 0);
  if (header->magic != kMagic) return Status::Malformed;
  header->version = be::load8(hdr, 2);
  header->kind = be::load8(hdr, 3);
  header->seq = be::load32(hdr, 4);
  header->bodyLen = be::load32(hdr, 8);
  if (header->version != kVersion) return Status::BadVersion;
  if (header->kind != expectKind) return Status::Malformed;
  if (header->bodyLen > kMaxBody) return Status::TooLarge;
  return Status::Ok;
}

namespace {

bool shapesKnown(uint8_t keyShape, uint8_t bufShape) {
  return keyShape <= static_cast<uint8_t>(KeyShape::Bytes) && bufShape < kBufShapeCount;
}

// The fields a shape does not use must be zero, so that one request has exactly one encoding.
bool keyFieldsFit(KeyShape shape, uint32_t keyValue, uint32_t keyLen) {
  switch (shape) {
    case KeyShape::None:
      return keyValue == 0 && keyLen == 0;
    case KeyShape::Value:
      return keyLen == 0;
    case KeyShape::Bytes:
      return keyValue == 0 && keyLen > 0 && keyLen <= kMaxKeyLen;
  }
  return false;
}

bool bufFieldsFit(BufShape shape, uint32_t bufValue, uint32_t capacity, uint32_t dataLen) {
  switch (shape) {
    case BufShape::None:
      return bufValue == 0 && capacity == 0 && dataLen == 0;
    case BufShape::Value:
      return capacity == 0 && dataLen == 0;
    case BufShape::Desc:
      return bufValue == 0 && capacity <= kMaxDataLen && dataLen <= capacity;
    case BufShape::Ptr:
    case BufShape::Raw:
      return bufValue == 0 && capacity == 0 && dataLen <= kMaxDataLen;
  }
  return false;
}

void putHeader(std::span<uint8_t> out, uint8_t kind, uint32_t seq, uint32_t bodyLen) {
  be::store16(out, 0, kMagic);
  be::store8(out, 2, kVersion);
  be::store8(out, 3, kind);
  be::store32(out, 4, seq);
  be::store32(out, 8, bodyLen);
}

}  // namespace

Status decodeRequest(std::span<const uint8_t> body, Request* req) {
  if (body.size() < kRequestFixedLen) return Status::Malformed;
  const uint8_t keyShape = be::load8(body, 8);
  const uint8_t bufShape = be::load8(body, 9);
  if (!shapesKnown(keyShape, bufShape) || be::load16(body, 10) != 0) return Status::Malformed;
  req->funcId = be::load32(body, 0);
  req->cmd = be::load32(body, 4);
  req->keyShape = static_cast<KeyShape>(keyShape);
  req->bufShape = static_cast<BufShape>(bufShape);
  req->keyValue = be::load32(body, 12);
  req->bufValue = be::load32(body, 16);
  req->descCapacity = be::load32(body, 20);
  const uint32_t keyLen = be::load32(body, 24);
  const uint32_t dataLen = be::load32(body, 28);
  if (!keyFieldsFit(req->keyShape, req->keyValue, keyLen) ||
      !bufFieldsFit(req->bufShape, req->bufValue, req->descCapacity, dataLen)) {
    return Status::Malformed;
  }
  // Both lengths are bounded above, so the sum cannot wrap.
  if (uint64_t{kRequestFixedLen} + keyLen + dataLen != body.size()) return Status::Malformed;
  const auto keyBytes = body.subspan(kRequestFixedLen, keyLen);
  const auto dataBytes = body.subspan(kRequestFixedLen + keyLen, dataLen);
  req->key.assign(keyBytes.begin(), keyBytes.end());
  req->data.assign(dataBytes.begin(), dataBytes.end());
  return Status::Ok;
}

Status decodeResponse(std::span<const uint8_t> body, Response* resp) {
  if (body.size() < kResponseFixedLen) return Status::Malformed;
  const uint8_t keyShape = be::load8(body, 8);
  const uint8_t bufShape = be::load8(body, 9);
  if (!shapesKnown(keyShape, bufShape) || be::load16(body, 10) != 0) return Status::Malformed;
  const uint32_t status = be::load32(body, 0);
  if (status > static_cast<uint32_t>(Status::Internal)) return Status::Malformed;
  resp->status = static_cast<Status>(status);
  resp->result = static_cast<int32_t>(be::load32(body, 4));
  resp->keyShape = static_cast<KeyShape>(keyShape);
  resp->bufShape = static_cast<BufShape>(bufShape);
  resp->bufValue = be::load32(body, 12);
  resp->descLen = be::load32(body, 16);
  const uint32_t keyLen = be::load32(body, 20);
  const uint32_t dataLen = be::load32(body, 24);
  if (keyLen > kMaxKeyLen || dataLen > kMaxDataLen) return Status::Malformed;
  if (uint64_t{kResponseFixedLen} + keyLen + dataLen != body.size()) return Status::Malformed;
  const auto keyBytes = body.subspan(kResponseFixedLen, keyLen);
  const auto dataBytes = body.subspan(kResponseFixedLen + keyLen, dataLen);
  resp->key.assign(keyBytes.begin(), keyBytes.end());
  resp->data.assign(dataBytes.begin(), dataBytes.end());
  return Status::Ok;
}

std::vector<uint8_t> encodeRequest(uint32_t seq, const Request& req) {
  const size_t bodyLen = kRequestFixedLen + req.key.size() + req.data.size();
  std::vector<uint8_t> out(kHeaderLen + bodyLen);
  std::span<uint8_t> all(out);
  putHeader(all, kKindRequest, seq, static_cast<uint32_t>(bodyLen));
  auto body = all.subspan(kHeaderLen);
  be::store32(body, 0, req.funcId);
  be::store32(body, 4, req.cmd);
  be::store8(body, 8, static_cast<uint8_t>(req.keyShape));
  be::store8(body, 9, static_cast<uint8_t>(req.bufShape));
  be::store16(body, 10, 0);
  be::store32(body, 12, req.keyValue);
  be::store32(body, 16, req.bufValue);
  be::store32(body, 20, req.descCapacity);
  be::store32(body, 24, static_cast<uint32_t>(req.key.size()));
  be::store32(body, 28, static_cast<uint32_t>(req.data.size()));
  std::copy(req.key.begin(), req.key.end(), body.begin() + kRequestFixedLen);
  std::copy(req.data.begin(), req.data.end(),
            body.begin() + static_cast<ptrdiff_t>(kRequestFixedLen + req.key.size()));
  return out;
}

std::vector<uint8_t> encodeResponse(uint32_t seq, const Response& resp) {
  const size_t bodyLen = kResponseFixedLen + resp.key.size() + resp.data.size();
  std::vector<uint8_t> out(kHeaderLen + bodyLen);
  std::span<uint8_t> all(out);
  putHeader(all, kKindResponse, seq, static_cast<uint32_t>(bodyLen));
  auto body = all.subspan(kHeaderLen);
  be::store32(body, 0, static_cast<uint32_t>(resp.status));
  be::store32(body, 4, static_cast<uint32_t>(resp.result));
  be::store8(body, 8, static_cast<uint8_t>(resp.keyShape));
  be::store8(body, 9, static_cast<uint8_t>(resp.bufShape));
  be::store16(body, 10, 0);
  be::store32(body, 12, resp.bufValue);
  be::store32(body, 16, resp.descLen);
  be::store32(body, 20, static_cast<uint32_t>(resp.key.size()));
  be::store32(body, 24, static_cast<uint32_t>(resp.data.size()));
  std::copy(resp.key.begin(), resp.key.end(), body.begin() + kResponseFixedLen);
  std::copy(resp.data.begin(), resp.data.end(),
            body.begin() + static_cast<ptrdiff_t>(kResponseFixedLen + resp.key.size()));
  return out;
}

std::vector<uint8_t> encodeStatus(uint32_t seq, Status status) {
  Response resp;
  resp.status = status;
  resp.result = -1;
  return encodeResponse(seq, resp);
}

}  // namespace wire
