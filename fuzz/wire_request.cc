// Request and response frames from arbitrary bytes: decoding never reads outside the input, a
// request that decodes re-encodes to the very same bytes, and a request that passes the schema is
// called through the server's invoke with a function that uses every byte its arguments promise.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "wire/be.h"
#include "wire/buf_desc.h"
#include "wire/func_table.h"
#include "wire/invoke.h"
#include "wire/protocol.h"
#include "wire/schema.h"

namespace {

const wire::Request* gReq = nullptr;

void touch(uintptr_t addr, size_t n) {
  auto* p = reinterpret_cast<uint8_t*>(addr);
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(p[i] + 1);
}

// Reads and writes every byte the schema lets a table function of this id and command rely on,
// and claims more descriptor length than it was given.
int32_t greedy(uintptr_t a1, uintptr_t a2, uintptr_t a3) {
  const auto& f = wire::funcInfo(gReq->funcId);
  const bool keyRecord = f.keyKind == wire::KeyKind::Bytes;
  switch (f.shape) {
    case wire::FuncShape::Empty:
      std::abort();  // never called
    case wire::FuncShape::GetFirst:
      touch(a1, f.keyWidth);
      return 0;
    case wire::FuncShape::GetNext:
      if (keyRecord) touch(a1, f.keyWidth);
      touch(a2, f.keyWidth);
      return 0;
    case wire::FuncShape::IndexConv:
      touch(a2, 4);
      return 0;
    case wire::FuncShape::Get:
    case wire::FuncShape::Set:
    case wire::FuncShape::Sync:
      break;
  }
  if (keyRecord) touch(a1, f.keyWidth);
  const uint32_t maxRecord = wire::bufRuleFor(gReq->funcId, gReq->cmd).maxLen;
  switch (gReq->bufShape) {
    case wire::BufShape::None:
      if (a3 != 0) std::abort();
      break;
    case wire::BufShape::Value:
      touch(a3, 4);
      break;
    case wire::BufShape::Desc: {
      auto* d = reinterpret_cast<wire::BufDesc*>(a3);
      touch(reinterpret_cast<uintptr_t>(d->data), d->len);
      d->len = d->len * 2 + 1;
      break;
    }
    case wire::BufShape::Ptr: {
      const uintptr_t rec = *reinterpret_cast<uintptr_t*>(a3);
      if (rec != 0) touch(rec, maxRecord);
      break;
    }
    case wire::BufShape::Raw:
      touch(a3, maxRecord);
      break;
  }
  return static_cast<int32_t>(a2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> in(data, size);
  wire::FrameHeader hdr;
  if (wire::decodeHeader(in, wire::kKindRequest, &hdr) != wire::Status::Ok) {
    wire::Response resp;
    if (size >= wire::kHeaderLen) (void)wire::decodeResponse(in.subspan(wire::kHeaderLen), &resp);
    return 0;
  }
  if (size < wire::kHeaderLen + hdr.bodyLen) return 0;
  const auto frame = in.first(wire::kHeaderLen + hdr.bodyLen);
  wire::Request req;
  if (wire::decodeRequest(frame.subspan(wire::kHeaderLen), &req) != wire::Status::Ok) return 0;

  // One request has one encoding.
  const auto again = wire::encodeRequest(hdr.seq, req);
  if (again.size() != frame.size() || std::memcmp(again.data(), frame.data(), frame.size()) != 0) {
    std::abort();
  }
  if (wire::checkRequest(req) != wire::Status::Ok) return 0;

  gReq = &req;
  const wire::Response resp = wire::invoke(req, greedy);
  const auto out = wire::encodeResponse(hdr.seq, resp);
  wire::Response back;
  if (wire::decodeResponse(std::span(out).subspan(wire::kHeaderLen), &back) != wire::Status::Ok) {
    std::abort();
  }
  return 0;
}
