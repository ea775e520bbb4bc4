#include "store/acl_action_param.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "main/acl_group.h"
#include "store/acl_entry.h"
#include "wire/acl_bits.h"
#include "wire/acl_ret.h"

namespace {

constexpr uint32_t kChunkStep = 4;  // words between the entries of one split parameter
constexpr uint32_t kOutParamFirstBit = 4;
constexpr uint32_t kOutParamLastBit = 9;
constexpr uint32_t kOutPlainLastBit = 3;

// Overwrites the entry of code and slot with bytes, or adds one of the size bytes selects.
int32_t entryPut(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* bytes,
                 uint32_t len) {
  if (AclActionEntry* e = aclActionEntryGet(rule, code, slot)) {
    const auto dst = aclActionBytes(e);
    std::copy_n(bytes, std::min<size_t>(len, dst.size()), dst.begin());
    return 0;
  }
  return len <= ACL_SHORT_VALUE_LEN ? aclShortActionEntryAdd(rule, code, slot, bytes, len)
                                    : aclLongActionEntryAdd(rule, code, slot, bytes, len);
}

// Copies the entries picked by want into the block at their word, zeroing it first.
template <typename Pred>
void entriesToBlock(AclRuleEntry* rule, std::span<uint8_t> block, uint32_t blockLen, Pred want) {
  std::fill_n(block.begin(), blockLen, uint8_t{0});
  for (AclActionEntry* e = aclActionFirst(rule); e != nullptr; e = aclActionNext(rule, e)) {
    if (!want(e->code) || e->slot == ACL_ACTION_NO_SLOT || e->len == 0) continue;
    const uint32_t at = uint32_t{e->slot} * 4;
    // An entry that would reach past the block has no place in it.
    if (at + e->len > blockLen) continue;
    const auto bytes = aclActionBytes(e);
    std::copy(bytes.begin(), bytes.end(), block.begin() + at);
  }
}

}  // namespace

int32_t aclActionBit2Entry(AclRuleEntry* rule) {
  if (rule == nullptr) return CMN_ERR_BAD_PARAM;
  for (uint32_t code = 0; code < ACL_ACTION_BIT_NUM; ++code) {
    if (!aclBitTest(rule->actionBits, code) || aclBitTest(rule->oldActionBits, code)) continue;
    if (aclActionParamInfo(code).kind != AclActionKind::NoParam) continue;
    if (int32_t ret = aclShortActionEntryAdd(rule, static_cast<uint8_t>(code), ACL_ACTION_NO_SLOT,
                                             nullptr, 0)) {
      return ret;
    }
  }
  return 0;
}

int32_t aclActionParam2Entry(AclRuleEntry* rule, std::span<const uint8_t> block) {
  if (rule == nullptr || block.data() == nullptr) return CMN_ERR_BAD_PARAM;
  if (block.size() < ACL_ACTION_PARAM_LEN) return CMN_ERR_BUFFER_SHORT;
  std::array<uint8_t, ACL_ACTION_PARAM_LEN> current;
  aclActionEntry2Param(rule, current);
  int32_t ret = 0;
  for (uint32_t code = 0; code < ACL_ACTION_BIT_NUM; ++code) {
    const AclActionParamInfo info = aclActionParamInfo(code);
    if (info.kind != AclActionKind::Param || !aclBitTest(rule->actionBits, code)) continue;
    // Port sets and next-hop lists are split into chunks; only chunks that changed are touched.
    const bool chunked = info.slot == 11 || info.slot == 23;
    for (uint32_t k = 0; info.entryLen + 16 * k <= info.totalLen; ++k) {
      const uint32_t slot = info.slot + kChunkStep * k;
      const uint32_t at = slot * 4;
      if (chunked && std::memcmp(&block[at], &current[at], info.entryLen) == 0) continue;
      ret = entryPut(rule, static_cast<uint8_t>(code), static_cast<uint8_t>(slot), &block[at],
                     info.entryLen);
      if (ret != 0) return ret;
    }
  }
  return ret;
}

int32_t aclActionEntry2Param(AclRuleEntry* rule, std::span<uint8_t> block) {
  if (rule == nullptr || block.data() == nullptr) return CMN_ERR_BAD_PARAM;
  if (block.size() < ACL_ACTION_PARAM_LEN) return CMN_ERR_BUFFER_SHORT;
  entriesToBlock(rule, block, ACL_ACTION_PARAM_LEN,
                 [](uint8_t code) { return code < RULE_ACTION_MAX; });
  return 0;
}

uint8_t aclOutActionCode(uint32_t bit) {
  const uint32_t base = gaclGrp.tlvEnable == 1 ? ACL_OUT_ACTION_TLV_BASE : ACL_OUT_ACTION_BASE;
  return static_cast<uint8_t>(base + bit);
}

int32_t aclOutActionBit2Entry(AclRuleEntry* rule) {
  if (rule == nullptr) return CMN_ERR_BAD_PARAM;
  for (uint32_t bit = 0; bit <= kOutPlainLastBit; ++bit) {
    if (!aclBitTest(rule->outActionBits, bit) || aclBitTest(rule->oldOutActionBits, bit)) continue;
    if (int32_t ret =
            aclShortActionEntryAdd(rule, aclOutActionCode(bit), ACL_ACTION_NO_SLOT, nullptr, 0)) {
      return ret;
    }
  }
  return 0;
}

int32_t aclOutActionParam2Entry(AclRuleEntry* rule, std::span<const uint8_t> block) {
  if (rule == nullptr || block.data() == nullptr) return CMN_ERR_BAD_PARAM;
  if (block.size() < ACL_OUT_ACTION_PARAM_LEN) return CMN_ERR_BUFFER_SHORT;
  std::array<uint8_t, ACL_OUT_ACTION_PARAM_LEN> current;
  aclOutActionEntry2Param(rule, current);
  for (uint32_t bit = kOutParamFirstBit; bit <= kOutParamLastBit; ++bit) {
    if (!aclBitTest(rule->outActionBits, bit)) continue;
    const uint32_t slot = bit - kOutParamFirstBit;
    const uint32_t at = slot * 4;
    if (aclBitTest(rule->oldOutActionBits, bit) && std::memcmp(&block[at], &current[at], 4) == 0) {
      continue;
    }
    if (int32_t ret =
            entryPut(rule, aclOutActionCode(bit), static_cast<uint8_t>(slot), &block[at], 4)) {
      return ret;
    }
  }
  return 0;
}

int32_t aclOutActionEntry2Param(AclRuleEntry* rule, std::span<uint8_t> block) {
  if (rule == nullptr || block.data() == nullptr) return CMN_ERR_BAD_PARAM;
  if (block.size() < ACL_OUT_ACTION_PARAM_LEN) return CMN_ERR_BUFFER_SHORT;
  const bool tlv = gaclGrp.tlvEnable == 1;
  entriesToBlock(rule, block, ACL_OUT_ACTION_PARAM_LEN, [tlv](uint8_t code) {
    return tlv ? code >= ACL_OUT_ACTION_TLV_BASE && code <= ACL_OUT_ACTION_TLV_LAST
               : code >= RULE_ACTION_MAX;
  });
  return 0;
}
