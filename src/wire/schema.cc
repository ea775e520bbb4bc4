#include "wire/schema.h"

#include <algorithm>
#include <array>

namespace wire {

namespace {

constexpr BufRule kDefaultBuf = {kAnyBuf, 0, kMaxRecordLen};

constexpr BufRule kValueOrNull = {bufMask(BufShape::Value) | bufMask(BufShape::None), 0, 0};
constexpr BufRule kDescOrNull = {bufMask(BufShape::Desc) | bufMask(BufShape::None), 0, kMaxDataLen};

// One row per command whose payload is fixed more exactly than its function's default.
constexpr std::array kRows = {
    // Statistics reads answer through a descriptor and read its data address without a check,
    // so nothing but a descriptor may reach them.
    CmdSchema{23, 1, {bufMask(BufShape::Desc), 0, kMaxDataLen}},
    CmdSchema{28, 1, {bufMask(BufShape::Desc), 0, kMaxDataLen}},
    CmdSchema{84, 1, {bufMask(BufShape::Desc), 0, kMaxDataLen}},
    // The slot resource read fills the caller's descriptor; a null buffer has its own answer.
    CmdSchema{73, 0, {bufMask(BufShape::Desc) | bufMask(BufShape::None), 0, kMaxDataLen}},
    // Lists: the name travels in a descriptor, every other command in a value word; a null
    // buffer has its own answer. Get commands 10 to 16 keep the default until they are built.
    CmdSchema{6, 1, kDescOrNull},
    CmdSchema{6, 2, kValueOrNull},
    CmdSchema{6, 3, kValueOrNull},
    CmdSchema{6, 4, kValueOrNull},
    CmdSchema{6, 5, kValueOrNull},
    CmdSchema{6, 6, kValueOrNull},
    CmdSchema{6, 7, kValueOrNull},
    CmdSchema{6, 8, kValueOrNull},
    CmdSchema{6, 9, kValueOrNull},
    CmdSchema{6, 17, kValueOrNull},
    CmdSchema{7, 1, kDescOrNull},
    CmdSchema{7, 2, kValueOrNull},
    CmdSchema{7, 3, kValueOrNull},
    CmdSchema{7, 4, kValueOrNull},
    CmdSchema{7, 5, kValueOrNull},
    CmdSchema{7, 6, kValueOrNull},
    CmdSchema{7, 7, kValueOrNull},
    CmdSchema{7, 8, kValueOrNull},
    CmdSchema{7, 9, kValueOrNull},
    CmdSchema{8, 1, kDescOrNull},
    CmdSchema{8, 2, kValueOrNull},
    CmdSchema{8, 3, kValueOrNull},
    CmdSchema{8, 4, kValueOrNull},
    CmdSchema{8, 5, kValueOrNull},
    CmdSchema{8, 6, kValueOrNull},
    CmdSchema{8, 7, kValueOrNull},
    CmdSchema{8, 8, kValueOrNull},
    CmdSchema{8, 9, kValueOrNull},
    // Rules: the field bits, addresses, MACs, user-defined data, action sets and parameters and
    // the translated forms travel in descriptors, which must be nothing else; every other command
    // reads or writes at most one word, which any buffer holds.
    CmdSchema{11, 0, kDescOrNull},
    CmdSchema{11, 8, kDescOrNull},
    CmdSchema{11, 10, kDescOrNull},
    CmdSchema{11, 11, kDescOrNull},
    CmdSchema{11, 13, kDescOrNull},
    CmdSchema{11, 34, kDescOrNull},
    CmdSchema{11, 36, kDescOrNull},
    CmdSchema{11, 37, kDescOrNull},
    CmdSchema{11, 39, kDescOrNull},
    CmdSchema{11, 48, kDescOrNull},
    CmdSchema{11, 53, kDescOrNull},
    CmdSchema{11, 54, kDescOrNull},
    CmdSchema{11, 55, kDescOrNull},
    CmdSchema{11, 56, kDescOrNull},
    CmdSchema{11, 75, kDescOrNull},  // hardware rule record
    CmdSchema{11, 87, kDescOrNull},  // TLV message
    CmdSchema{11, 88, kDescOrNull},  // rule record image
    CmdSchema{12, 8, kDescOrNull},
    CmdSchema{12, 10, kDescOrNull},
    CmdSchema{12, 11, kDescOrNull},
    CmdSchema{12, 13, kDescOrNull},
    CmdSchema{12, 34, kDescOrNull},
    CmdSchema{12, 36, kDescOrNull},
    CmdSchema{12, 37, kDescOrNull},
    CmdSchema{12, 39, kDescOrNull},
    CmdSchema{12, 48, kDescOrNull},
    CmdSchema{12, 53, kDescOrNull},
    CmdSchema{12, 54, kDescOrNull},
    CmdSchema{12, 55, kDescOrNull},
    CmdSchema{12, 56, kDescOrNull},
    CmdSchema{13, 8, kDescOrNull},
    CmdSchema{13, 10, kDescOrNull},
    CmdSchema{13, 11, kDescOrNull},
    CmdSchema{13, 13, kDescOrNull},
    CmdSchema{13, 34, kDescOrNull},
    CmdSchema{13, 36, kDescOrNull},
    CmdSchema{13, 37, kDescOrNull},
    CmdSchema{13, 39, kDescOrNull},
    CmdSchema{13, 48, kDescOrNull},
    CmdSchema{13, 53, kDescOrNull},
    CmdSchema{13, 54, kDescOrNull},
    CmdSchema{13, 55, kDescOrNull},
    CmdSchema{13, 56, kDescOrNull},
    // Meters and counters: the version strings, capability records, names and the whole profile
    // record travel in descriptors; a null buffer has its own answer.
    CmdSchema{50, 17, kDescOrNull},  // meter version
    CmdSchema{50, 25, kDescOrNull},  // meter capability record
    CmdSchema{60, 1, kDescOrNull},   // profile name
    CmdSchema{60, 10, kDescOrNull},  // whole profile record
    CmdSchema{61, 1, kDescOrNull},
    CmdSchema{62, 1, kDescOrNull},
    CmdSchema{63, 2, kDescOrNull},  // counter version
    CmdSchema{63, 4, kDescOrNull},  // counter capability record
    CmdSchema{68, 1, kDescOrNull},  // counter name
    CmdSchema{69, 1, kDescOrNull},
    CmdSchema{70, 1, kDescOrNull},
};

bool keyFits(const FuncInfo& f, const Request& req, bool walk) {
  switch (f.keyKind) {
    case KeyKind::None:
      return req.keyShape == KeyShape::None || req.keyShape == KeyShape::Value;
    case KeyKind::Value:
      // GetFirst fills a key area even for value-keyed tables.
      if (walk) return req.keyShape == KeyShape::Bytes && req.key.size() == f.keyWidth;
      return req.keyShape == KeyShape::Value;
    case KeyKind::Bytes:
      return req.keyShape == KeyShape::Bytes && req.key.size() == f.keyWidth;
  }
  return false;
}

bool bufFits(const BufRule& rule, const Request& req) {
  if ((rule.shapes & bufMask(req.bufShape)) == 0) return false;
  const auto len = static_cast<uint32_t>(req.data.size());
  switch (req.bufShape) {
    case BufShape::None:
    case BufShape::Value:
      return true;
    case BufShape::Desc:
      return req.descCapacity >= rule.minLen && req.descCapacity <= rule.maxLen;
    case BufShape::Ptr:
      return len == 0 || (len >= rule.minLen && len <= rule.maxLen);
    case BufShape::Raw:
      return len > 0 && len >= rule.minLen && len <= rule.maxLen;
  }
  return false;
}

}  // namespace

std::span<const CmdSchema> cmdSchemas() {
  return kRows;
}

BufRule bufRuleFor(uint32_t funcId, uint32_t cmd) {
  const auto it = std::find_if(kRows.begin(), kRows.end(), [&](const CmdSchema& r) {
    return r.funcId == funcId && r.cmd == cmd;
  });
  return it != kRows.end() ? it->buf : kDefaultBuf;
}

Status checkRequest(const Request& req) {
  if (req.funcId >= kFuncCount) return Status::UnknownFunction;
  const FuncInfo& f = funcInfo(req.funcId);
  switch (f.shape) {
    case FuncShape::Empty:
      // Answered -1 without a call, whatever it carries.
      return Status::Ok;
    case FuncShape::Get:
    case FuncShape::Set:
    case FuncShape::Sync:
      if (!keyFits(f, req, false) || !bufFits(bufRuleFor(req.funcId, req.cmd), req)) {
        return Status::Schema;
      }
      return Status::Ok;
    case FuncShape::GetFirst:
      if (req.cmd != 0 || !keyFits(f, req, true) || req.bufShape != BufShape::None) {
        return Status::Schema;
      }
      return Status::Ok;
    case FuncShape::GetNext:
      if (req.cmd != 0 || !keyFits(f, req, false) || req.bufShape != BufShape::None) {
        return Status::Schema;
      }
      return Status::Ok;
    case FuncShape::IndexConv:
      if (req.cmd != 0 || req.keyShape != KeyShape::Value || req.bufShape != BufShape::Value) {
        return Status::Schema;
      }
      return Status::Ok;
  }
  return Status::Schema;
}

uint32_t recordAllocLen(uint32_t funcId, uint32_t cmd, uint32_t dataLen) {
  return std::max(dataLen, bufRuleFor(funcId, cmd).maxLen);
}

}  // namespace wire
