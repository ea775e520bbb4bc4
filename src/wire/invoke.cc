#include "wire/invoke.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "wire/be.h"
#include "wire/buf_desc.h"
#include "wire/func_table.h"
#include "wire/schema.h"

namespace wire {

namespace {

uintptr_t addr(void* p) {
  return reinterpret_cast<uintptr_t>(p);
}

// Every area a function receives is an allocation of its own, exactly as large as the shape
// promises: a function that reads or writes past it (a value word taken for a descriptor, say)
// lands outside any object, where the address sanitizer of the test builds stops it, instead of
// in a neighbouring member of the same frame.

// A big-endian value word.
struct ValueWord {
  explicit ValueWord(uint32_t v) : bytes(4) { be::store32(bytes.data(), v); }
  uint32_t get() const { return be::load32(bytes.data()); }
  uintptr_t arg() { return addr(bytes.data()); }
  std::vector<uint8_t> bytes;
};

// The buffer argument of a Get, Set or Sync and what came back through it.
struct BufArea {
  explicit BufArea(const Request& req) : shape(req.bufShape) {
    switch (shape) {
      case BufShape::None:
        break;
      case BufShape::Value:
        value = std::make_unique<ValueWord>(req.bufValue);
        break;
      case BufShape::Desc:
        // Capacity 0 is a descriptor without a data address.
        area.assign(req.descCapacity, 0);
        std::copy(req.data.begin(), req.data.end(), area.begin());
        desc = std::make_unique<BufDesc>(
            BufDesc{area.empty() ? nullptr : area.data(), req.descCapacity});
        break;
      case BufShape::Ptr:
      case BufShape::Raw:
        // Padded to the longest record the command accepts; a pointer without a record holds a
        // null address.
        area.assign(recordAllocLen(req.funcId, req.cmd, static_cast<uint32_t>(req.data.size())), 0);
        std::copy(req.data.begin(), req.data.end(), area.begin());
        dataLen = req.data.size();
        recordAddr = std::make_unique<uintptr_t>(req.data.empty() ? 0 : addr(area.data()));
        break;
    }
  }

  uintptr_t arg() {
    switch (shape) {
      case BufShape::None:
        return 0;
      case BufShape::Value:
        return value->arg();
      case BufShape::Desc:
        return addr(desc.get());
      case BufShape::Ptr:
        return addr(recordAddr.get());
      case BufShape::Raw:
        return addr(area.data());
    }
    return 0;
  }

  void collect(Response* resp) const {
    resp->bufShape = shape;
    switch (shape) {
      case BufShape::None:
        break;
      case BufShape::Value:
        resp->bufValue = value->get();
        break;
      case BufShape::Desc: {
        // The length word is the function's to write; only the area we own goes back.
        resp->descLen = desc->len;
        const size_t n = std::min<size_t>(desc->len, area.size());
        resp->data.assign(area.begin(), area.begin() + static_cast<ptrdiff_t>(n));
        break;
      }
      case BufShape::Ptr:
      case BufShape::Raw:
        resp->data.assign(area.begin(), area.begin() + static_cast<ptrdiff_t>(dataLen));
        break;
    }
  }

  BufShape shape;
  std::unique_ptr<ValueWord> value;
  std::vector<uint8_t> area;
  std::unique_ptr<BufDesc> desc;
  std::unique_ptr<uintptr_t> recordAddr;
  size_t dataLen = 0;
};

}  // namespace

Response invoke(const Request& req, TableFunc fn) {
  Response resp;
  const FuncInfo& f = funcInfo(req.funcId);
  if (fn == nullptr || f.shape == FuncShape::Empty) {
    resp.result = -1;
    return resp;
  }
  std::vector<uint8_t> key(req.key);
  const uintptr_t keyArg = req.keyShape == KeyShape::Bytes ? addr(key.data()) : req.keyValue;

  switch (f.shape) {
    case FuncShape::Empty:
      break;
    case FuncShape::GetFirst:
      resp.result = fn(keyArg, 0, 0);
      resp.keyShape = KeyShape::Bytes;
      resp.key = std::move(key);
      break;
    case FuncShape::GetNext: {
      std::vector<uint8_t> next(f.keyWidth, 0);
      resp.result = fn(keyArg, addr(next.data()), 0);
      resp.keyShape = KeyShape::Bytes;
      resp.key = std::move(next);
      break;
    }
    case FuncShape::IndexConv: {
      ValueWord word(req.bufValue);
      resp.result = fn(req.keyValue, word.arg(), 0);
      resp.bufShape = BufShape::Value;
      resp.bufValue = word.get();
      break;
    }
    case FuncShape::Get:
    case FuncShape::Set:
    case FuncShape::Sync: {
      BufArea buf(req);
      resp.result = fn(keyArg, req.cmd, buf.arg());
      buf.collect(&resp);
      if (req.keyShape == KeyShape::Bytes) {
        resp.keyShape = KeyShape::Bytes;
        resp.key = std::move(key);
      }
      break;
    }
  }
  return resp;
}

}  // namespace wire
