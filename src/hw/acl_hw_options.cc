// Options record of the rule commands. Words 4 and 8 tell the hardware layer the kind of target
// (4/2 a unit, 16/5 a GEM port); the caller's target bytes only mean something for the global and
// unit scopes, where card synchronisation aims a command at one card.
#include "hw/acl_hw_options.h"

#include <algorithm>

#include "wire/acl_dev_layout.h"
#include "wire/be.h"

namespace {

using namespace acldev;

constexpr uint32_t kUnitWord1 = 4, kUnitWord2 = 2;
constexpr uint32_t kGemWord1 = 16, kGemWord2 = 5;
// The target bytes copied from the caller's record: 24, 26, 27 and 28..63 (25 is not a target).
constexpr uint32_t kTargetBytes[] = {24, 26, 27};

}  // namespace

void aclHwOptionsFill(AclHwScope scope, bool tlv, uint32_t unit, uint32_t dataLen,
                      std::span<const uint8_t> caller, std::span<uint8_t, ACL_HW_OPTIONS_LEN> out) {
  std::fill(out.begin(), out.end(), 0);
  const bool hasCaller = caller.size() >= kOptLen;
  uint32_t mode = hasCaller ? be::load32(caller, kOptMode) : 0;
  if (tlv) mode |= kOptTlvMode;
  switch (scope) {
    case AclHwScope::Global:
      break;
    case AclHwScope::Unit:
      mode |= kOptUnitMode;
      be::store32(out, kOptWord1, kUnitWord1);
      be::store32(out, kOptWord2, kUnitWord2);
      be::store32(out, kOptUnit, unit);
      break;
    case AclHwScope::GemPort:
      be::store32(out, kOptWord1, kGemWord1);
      be::store32(out, kOptWord2, kGemWord2);
      be::store32(out, kOptUnit, unit);
      break;
  }
  be::store32(out, kOptMode, mode);
  be::store32(out, kOptDataLen, dataLen);
  if (hasCaller && scope != AclHwScope::GemPort) {
    for (uint32_t b : kTargetBytes) out[b] = caller[b];
    std::copy(caller.begin() + kOptTarget, caller.begin() + kOptLen, out.begin() + kOptTarget);
  }
}
