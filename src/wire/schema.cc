#include "wire/schema.h"

#include <algorithm>
#include <array>

namespace wire {

namespace {

constexpr BufRule kDefaultBuf = {kAnyBuf, 0, kMaxRecordLen};

constexpr BufRule kValueOrNull = {bufMask(BufShape::Value) | bufMask(BufShape::None), 0, 0};
constexpr BufRule kDescOrNull = {bufMask(BufShape::Desc) | bufMask(BufShape::None), 0, kMaxDataLen};
// Scalar set commands whose buffer is a word holding a record's address; a null address has its
// own answer. The blacklist record is three words.
constexpr BufRule kPtrOrNull = {bufMask(BufShape::Ptr) | bufMask(BufShape::None), 0, kMaxRecordLen};
constexpr BufRule kBlackListRecord = {bufMask(BufShape::Ptr) | bufMask(BufShape::None), 12, 12};
// Interface HQoS (three words) and traffic-policy records by address: the server pads a shorter
// record with zeros to the full length, which is what the function reads.
constexpr BufRule kHqosRecord = {bufMask(BufShape::Ptr) | bufMask(BufShape::None), 0, 12};
constexpr BufRule kTrafficRecord = {bufMask(BufShape::Ptr) | bufMask(BufShape::None), 0, 64};

// One row per command whose payload is fixed more exactly than its function's default.
// A plain array: deducing a std::array from this many rows is past what some compilers allow.
constexpr CmdSchema kRows[] = {
    // Statistics reads answer through a descriptor whose data address they take as given; a
    // missing descriptor has no answer of its own, so nothing but a descriptor may reach them.
    CmdSchema{23, 1, {bufMask(BufShape::Desc), 0, kMaxDataLen}},
    CmdSchema{28, 1, {bufMask(BufShape::Desc), 0, kMaxDataLen}},
    CmdSchema{84, 1, {bufMask(BufShape::Desc), 0, kMaxDataLen}},
    // Rule statistics clears relay their buffer as a value word.
    CmdSchema{24, 2, kValueOrNull},
    CmdSchema{24, 6, kValueOrNull},
    CmdSchema{25, 2, kValueOrNull},
    CmdSchema{25, 6, kValueOrNull},
    // The slot resource reads (hardware records, ledger) fill the caller's descriptor; a null
    // buffer has its own answer.
    CmdSchema{73, 0, {bufMask(BufShape::Desc) | bufMask(BufShape::None), 0, kMaxDataLen}},
    CmdSchema{73, 1, {bufMask(BufShape::Desc) | bufMask(BufShape::None), 0, kMaxDataLen}},
    // Scalars: NAMETOID, version and capability answer through a descriptor, and answer a
    // missing one (22, 22, CMN_ERR_BAD_PARAM), so it reaches them as a null pointer; CPU defend
    // and NAT (22 to 25) are handed theirs as it came; traffic policy (53 to 59) and blacklist
    // (67, 68) take a word holding a record's address; every other set that changes state reads
    // one word.
    CmdSchema{1, 20, kDescOrNull},
    CmdSchema{1, 21, kDescOrNull},
    CmdSchema{1, 66, kDescOrNull},
    CmdSchema{2, 5, kValueOrNull},
    CmdSchema{2, 6, kValueOrNull},
    CmdSchema{2, 7, kValueOrNull},
    CmdSchema{2, 8, kValueOrNull},
    CmdSchema{2, 9, kValueOrNull},
    CmdSchema{2, 18, kValueOrNull},
    CmdSchema{2, 19, kValueOrNull},
    CmdSchema{2, 26, kValueOrNull},
    CmdSchema{2, 27, kValueOrNull},
    CmdSchema{2, 28, kValueOrNull},
    CmdSchema{2, 29, kValueOrNull},
    CmdSchema{2, 30, kValueOrNull},
    CmdSchema{2, 31, kValueOrNull},
    CmdSchema{2, 32, kValueOrNull},
    CmdSchema{2, 33, kValueOrNull},
    CmdSchema{2, 34, kValueOrNull},
    CmdSchema{2, 35, kValueOrNull},
    CmdSchema{2, 36, kValueOrNull},
    CmdSchema{2, 37, kValueOrNull},
    CmdSchema{2, 22, kDescOrNull},
    CmdSchema{2, 23, kDescOrNull},
    CmdSchema{2, 24, kDescOrNull},
    CmdSchema{2, 25, kDescOrNull},
    CmdSchema{2, 53, kPtrOrNull},
    CmdSchema{2, 54, kPtrOrNull},
    CmdSchema{2, 55, kPtrOrNull},
    CmdSchema{2, 56, kPtrOrNull},
    CmdSchema{2, 57, kPtrOrNull},
    CmdSchema{2, 58, kPtrOrNull},
    CmdSchema{2, 59, kPtrOrNull},
    CmdSchema{2, 67, kBlackListRecord},
    CmdSchema{2, 68, kBlackListRecord},
    CmdSchema{3, 5, kValueOrNull},
    CmdSchema{3, 6, kValueOrNull},
    CmdSchema{3, 7, kValueOrNull},
    CmdSchema{3, 8, kValueOrNull},
    CmdSchema{3, 9, kValueOrNull},
    CmdSchema{3, 18, kValueOrNull},
    CmdSchema{3, 19, kValueOrNull},
    CmdSchema{3, 26, kValueOrNull},
    CmdSchema{3, 27, kValueOrNull},
    CmdSchema{3, 28, kValueOrNull},
    CmdSchema{3, 29, kValueOrNull},
    CmdSchema{3, 30, kValueOrNull},
    CmdSchema{3, 31, kValueOrNull},
    CmdSchema{3, 32, kValueOrNull},
    CmdSchema{3, 33, kValueOrNull},
    CmdSchema{3, 34, kValueOrNull},
    CmdSchema{3, 35, kValueOrNull},
    CmdSchema{3, 36, kValueOrNull},
    CmdSchema{3, 37, kValueOrNull},
    CmdSchema{3, 22, kDescOrNull},
    CmdSchema{3, 23, kDescOrNull},
    CmdSchema{3, 24, kDescOrNull},
    CmdSchema{3, 25, kDescOrNull},
    CmdSchema{3, 53, kPtrOrNull},
    CmdSchema{3, 54, kPtrOrNull},
    CmdSchema{3, 55, kPtrOrNull},
    CmdSchema{3, 56, kPtrOrNull},
    CmdSchema{3, 57, kPtrOrNull},
    CmdSchema{3, 58, kPtrOrNull},
    CmdSchema{3, 59, kPtrOrNull},
    CmdSchema{3, 67, kBlackListRecord},
    CmdSchema{3, 68, kBlackListRecord},
    // Slot set: the CPU defend (0, 1) and NAT (2, 3) argument records travel in a descriptor; a
    // null buffer has its own answer (22).
    CmdSchema{48, 0, kDescOrNull},
    CmdSchema{48, 1, kDescOrNull},
    CmdSchema{48, 2, kDescOrNull},
    CmdSchema{48, 3, kDescOrNull},
    CmdSchema{49, 0, kDescOrNull},
    CmdSchema{49, 1, kDescOrNull},
    CmdSchema{49, 2, kDescOrNull},
    CmdSchema{49, 3, kDescOrNull},
    // Lists: the name travels in a descriptor, every other command in a value word; a null
    // buffer has its own answer. The match services (get 10 to 16) read their query, or the
    // CPU-defend request, through a descriptor and check its length themselves.
    CmdSchema{6, 1, kDescOrNull},
    CmdSchema{6, 2, kValueOrNull},
    CmdSchema{6, 3, kValueOrNull},
    CmdSchema{6, 4, kValueOrNull},
    CmdSchema{6, 5, kValueOrNull},
    CmdSchema{6, 6, kValueOrNull},
    CmdSchema{6, 7, kValueOrNull},
    CmdSchema{6, 8, kValueOrNull},
    CmdSchema{6, 9, kValueOrNull},
    CmdSchema{6, 10, kDescOrNull},
    CmdSchema{6, 11, kDescOrNull},
    CmdSchema{6, 12, kDescOrNull},
    CmdSchema{6, 13, kDescOrNull},
    CmdSchema{6, 14, kDescOrNull},
    CmdSchema{6, 15, kDescOrNull},
    CmdSchema{6, 16, kDescOrNull},
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
    // Interfaces: every attribute travels in a value word; a null buffer has its own answer.
    CmdSchema{18, 1, kValueOrNull}, CmdSchema{18, 2, kValueOrNull}, CmdSchema{18, 3, kValueOrNull},
    CmdSchema{18, 4, kValueOrNull}, CmdSchema{18, 17, kValueOrNull}, CmdSchema{18, 22, kValueOrNull},
    CmdSchema{18, 23, kValueOrNull}, CmdSchema{18, 24, kValueOrNull}, CmdSchema{18, 25, kValueOrNull},
    CmdSchema{18, 26, kValueOrNull}, CmdSchema{18, 27, kValueOrNull}, CmdSchema{18, 28, kValueOrNull},
    CmdSchema{18, 29, kValueOrNull}, CmdSchema{18, 30, kValueOrNull}, CmdSchema{18, 31, kValueOrNull},
    CmdSchema{18, 32, kValueOrNull}, CmdSchema{18, 33, kValueOrNull}, CmdSchema{18, 41, kValueOrNull},
    CmdSchema{18, 42, kValueOrNull}, CmdSchema{18, 43, kValueOrNull}, CmdSchema{18, 44, kValueOrNull},
    CmdSchema{18, 45, kValueOrNull}, CmdSchema{18, 46, kValueOrNull},
    CmdSchema{19, 1, kValueOrNull}, CmdSchema{19, 2, kValueOrNull}, CmdSchema{19, 3, kValueOrNull},
    CmdSchema{19, 4, kValueOrNull}, CmdSchema{19, 17, kValueOrNull}, CmdSchema{19, 22, kValueOrNull},
    CmdSchema{19, 23, kValueOrNull}, CmdSchema{19, 24, kValueOrNull}, CmdSchema{19, 25, kValueOrNull},
    CmdSchema{19, 26, kValueOrNull}, CmdSchema{19, 27, kValueOrNull}, CmdSchema{19, 28, kValueOrNull},
    CmdSchema{19, 29, kValueOrNull}, CmdSchema{19, 30, kValueOrNull}, CmdSchema{19, 31, kValueOrNull},
    CmdSchema{19, 32, kValueOrNull}, CmdSchema{19, 33, kValueOrNull}, CmdSchema{19, 41, kValueOrNull},
    CmdSchema{19, 42, kValueOrNull}, CmdSchema{19, 43, kValueOrNull}, CmdSchema{19, 44, kValueOrNull},
    CmdSchema{19, 45, kValueOrNull}, CmdSchema{19, 46, kValueOrNull},
    CmdSchema{20, 1, kValueOrNull}, CmdSchema{20, 2, kValueOrNull}, CmdSchema{20, 3, kValueOrNull},
    CmdSchema{20, 4, kValueOrNull}, CmdSchema{20, 17, kValueOrNull}, CmdSchema{20, 22, kValueOrNull},
    CmdSchema{20, 23, kValueOrNull}, CmdSchema{20, 24, kValueOrNull}, CmdSchema{20, 25, kValueOrNull},
    CmdSchema{20, 26, kValueOrNull}, CmdSchema{20, 27, kValueOrNull}, CmdSchema{20, 28, kValueOrNull},
    CmdSchema{20, 29, kValueOrNull}, CmdSchema{20, 30, kValueOrNull}, CmdSchema{20, 31, kValueOrNull},
    CmdSchema{20, 32, kValueOrNull}, CmdSchema{20, 33, kValueOrNull}, CmdSchema{20, 41, kValueOrNull},
    CmdSchema{20, 42, kValueOrNull}, CmdSchema{20, 43, kValueOrNull}, CmdSchema{20, 44, kValueOrNull},
    CmdSchema{20, 45, kValueOrNull}, CmdSchema{20, 46, kValueOrNull},
    // Interface HQoS (18, 19) and traffic policies (34 to 40) take a word holding a record's
    // address; policy-based redirect (20, 21) its 80-byte record in a descriptor, whose length the
    // function checks itself.
    CmdSchema{19, 18, kHqosRecord}, CmdSchema{19, 19, kHqosRecord},
    CmdSchema{19, 20, kDescOrNull}, CmdSchema{19, 21, kDescOrNull},
    CmdSchema{19, 34, kTrafficRecord}, CmdSchema{19, 35, kTrafficRecord},
    CmdSchema{19, 36, kTrafficRecord}, CmdSchema{19, 37, kTrafficRecord},
    CmdSchema{19, 38, kTrafficRecord}, CmdSchema{19, 39, kTrafficRecord},
    CmdSchema{19, 40, kTrafficRecord},
    CmdSchema{20, 18, kHqosRecord}, CmdSchema{20, 19, kHqosRecord},
    CmdSchema{20, 20, kDescOrNull}, CmdSchema{20, 21, kDescOrNull},
    CmdSchema{20, 34, kTrafficRecord}, CmdSchema{20, 35, kTrafficRecord},
    CmdSchema{20, 36, kTrafficRecord}, CmdSchema{20, 37, kTrafficRecord},
    CmdSchema{20, 38, kTrafficRecord}, CmdSchema{20, 39, kTrafficRecord},
    CmdSchema{20, 40, kTrafficRecord},
    // Interface statistics clears relay their buffer as a value word.
    CmdSchema{29, 2, kValueOrNull}, CmdSchema{29, 6, kValueOrNull},
    CmdSchema{30, 2, kValueOrNull}, CmdSchema{30, 6, kValueOrNull},
    // GEM ports: the record status and every bind slot travel in a value word.
    CmdSchema{79, 1, kValueOrNull}, CmdSchema{79, 2, kValueOrNull}, CmdSchema{79, 3, kValueOrNull}, CmdSchema{79, 4, kValueOrNull}, CmdSchema{79, 5, kValueOrNull}, CmdSchema{79, 6, kValueOrNull}, CmdSchema{79, 7, kValueOrNull},
    CmdSchema{79, 8, kValueOrNull}, CmdSchema{79, 9, kValueOrNull}, CmdSchema{79, 10, kValueOrNull}, CmdSchema{79, 11, kValueOrNull}, CmdSchema{79, 12, kValueOrNull}, CmdSchema{79, 13, kValueOrNull}, CmdSchema{79, 21, kValueOrNull},
    CmdSchema{79, 22, kValueOrNull}, CmdSchema{79, 23, kValueOrNull}, CmdSchema{79, 24, kValueOrNull}, CmdSchema{79, 25, kValueOrNull}, CmdSchema{79, 26, kValueOrNull},
    CmdSchema{80, 1, kValueOrNull}, CmdSchema{80, 2, kValueOrNull}, CmdSchema{80, 3, kValueOrNull}, CmdSchema{80, 4, kValueOrNull}, CmdSchema{80, 5, kValueOrNull}, CmdSchema{80, 6, kValueOrNull}, CmdSchema{80, 7, kValueOrNull},
    CmdSchema{80, 8, kValueOrNull}, CmdSchema{80, 9, kValueOrNull}, CmdSchema{80, 10, kValueOrNull}, CmdSchema{80, 11, kValueOrNull}, CmdSchema{80, 12, kValueOrNull}, CmdSchema{80, 13, kValueOrNull}, CmdSchema{80, 21, kValueOrNull},
    CmdSchema{80, 22, kValueOrNull}, CmdSchema{80, 23, kValueOrNull}, CmdSchema{80, 24, kValueOrNull}, CmdSchema{80, 25, kValueOrNull}, CmdSchema{80, 26, kValueOrNull},
    CmdSchema{81, 1, kValueOrNull}, CmdSchema{81, 2, kValueOrNull}, CmdSchema{81, 3, kValueOrNull}, CmdSchema{81, 4, kValueOrNull}, CmdSchema{81, 5, kValueOrNull}, CmdSchema{81, 6, kValueOrNull}, CmdSchema{81, 7, kValueOrNull},
    CmdSchema{81, 8, kValueOrNull}, CmdSchema{81, 9, kValueOrNull}, CmdSchema{81, 10, kValueOrNull}, CmdSchema{81, 11, kValueOrNull}, CmdSchema{81, 12, kValueOrNull}, CmdSchema{81, 13, kValueOrNull}, CmdSchema{81, 21, kValueOrNull},
    CmdSchema{81, 22, kValueOrNull}, CmdSchema{81, 23, kValueOrNull}, CmdSchema{81, 24, kValueOrNull}, CmdSchema{81, 25, kValueOrNull}, CmdSchema{81, 26, kValueOrNull},
    // GEM port traffic policies (14 to 20) take a word holding a record's address, as the
    // interface's do.
    CmdSchema{80, 14, kTrafficRecord}, CmdSchema{80, 15, kTrafficRecord},
    CmdSchema{80, 16, kTrafficRecord}, CmdSchema{80, 17, kTrafficRecord},
    CmdSchema{80, 18, kTrafficRecord}, CmdSchema{80, 19, kTrafficRecord},
    CmdSchema{80, 20, kTrafficRecord},
    CmdSchema{81, 14, kTrafficRecord}, CmdSchema{81, 15, kTrafficRecord},
    CmdSchema{81, 16, kTrafficRecord}, CmdSchema{81, 17, kTrafficRecord},
    CmdSchema{81, 18, kTrafficRecord}, CmdSchema{81, 19, kTrafficRecord},
    CmdSchema{81, 20, kTrafficRecord},
    // GEM port statistics clears relay their buffer as a value word.
    CmdSchema{85, 2, kValueOrNull}, CmdSchema{85, 6, kValueOrNull},
    CmdSchema{86, 2, kValueOrNull}, CmdSchema{86, 6, kValueOrNull},
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
  const auto it = std::find_if(std::begin(kRows), std::end(kRows), [&](const CmdSchema& r) {
    return r.funcId == funcId && r.cmd == cmd;
  });
  return it != std::end(kRows) ? it->buf : kDefaultBuf;
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
