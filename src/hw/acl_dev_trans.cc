// The 508-byte hardware rule record of a rule. Every field has a fixed place; a field the rule does
// not use stays 0, so the record is cleared first and only the rule's entries are written. The
// part that depends on the rule alone is kept per rule and reused while the rule cannot have
// changed.
#include "hw/acl_dev_trans.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "hw/acl_dev_attr.h"
#include "main/acl_group.h"
#include "store/acl_entry.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_dev_fields.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using namespace acldev;

using Kind = FieldKind;

constexpr bool sameName(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return *a == *b;
}

// The places the record is written by are the ones the device decodes by; their field names must
// be the store's.
constexpr bool tablesAgree() {
  for (uint32_t c = 0; c < kFieldCodes; ++c) {
    if (!sameName(kFieldPlaces[c].name, aclRuleBitToStr[c])) return false;
  }
  return true;
}
static_assert(tablesAgree(), "hardware field names differ from the rule store's");

AclRuleEntry* mut(const AclRuleEntry* rule) {
  // The store's walks take a mutable rule; translation only reads it.
  return const_cast<AclRuleEntry*>(rule);
}

void storeField(std::span<uint8_t> dev, AclValueEntry* e) {
  if (e->code >= kPlacedFieldCodes) return;
  const FieldPlace& p = kFieldPlaces[e->code];
  // Each kind reads the value the one way it needs.
  switch (p.kind) {
    case Kind::None:
      return;
    case Kind::U8: {
      const auto word = static_cast<uint8_t>(aclValueWord(e));
      be::store8(dev, p.off, word);
      if (p.off2 != 0) be::store8(dev, p.off2, word);
      return;
    }
    case Kind::U16:
      be::store16(dev, p.off, static_cast<uint16_t>(aclValueWord(e)));
      return;
    case Kind::U32:
      be::store32(dev, p.off, aclValueWord(e));
      return;
    case Kind::Bytes: {
      const auto bytes = aclValueBytes(e);
      std::copy_n(bytes.begin(), std::min<size_t>(bytes.size(), kAddrLen), dev.begin() + p.off);
      return;
    }
    case Kind::Mac: {
      const auto bytes = aclValueBytes(e);
      std::copy_n(bytes.begin(), std::min<size_t>(bytes.size(), kMacLen), dev.begin() + p.off);
      return;
    }
    case Kind::Udf: {
      // Data, mask and offset: three big-endian words; missing bytes read as 0.
      const auto bytes = aclValueBytes(e);
      std::array<uint8_t, 12> w{};
      std::copy_n(bytes.begin(), std::min(bytes.size(), w.size()), w.begin());
      be::store32(dev, kUserData + 4 * p.off, be::load32(w, 0));
      be::store32(dev, kUserDataMask + 4 * p.off, be::load32(w, 4));
      be::store32(dev, kUserDataOffset + 4 * p.off, be::load32(w, 8));
      be::store8(dev, kUserDataNum, kUserDataCount);
      return;
    }
  }
}

}  // namespace

void aclDevActionFill(const AclRuleEntry* rule, std::span<uint8_t> dev) {
  AclRuleEntry* r = mut(rule);
  for (AclActionEntry* a = aclActionFirst(r); a != nullptr; a = aclActionNext(r, a)) {
    const auto bytes = aclActionBytes(a);
    if (a->code < RULE_ACTION_MAX) {
      // The store keeps every parameter inside the 44 words; an entry that would reach past
      // them (or has no slot) carries nothing the record can hold.
      if (a->slot == ACL_ACTION_NO_SLOT || a->slot * 4u + bytes.size() > kActionParamWords * 4) {
        continue;
      }
      std::copy(bytes.begin(), bytes.end(), dev.begin() + kActionParam + a->slot * 4u);
    } else if (a->slot < kOutActionParamWords) {
      be::store32(dev, kOutActionParam + a->slot * 4u, aclActionValueWord(a));
    }
  }
  std::copy_n(rule->fieldBits, kBitsLen, dev.begin() + kBits);
  std::copy_n(rule->actionBits, kActionLen, dev.begin() + kAction);
  std::copy_n(rule->outActionBits, kOutActionLen, dev.begin() + kOutAction);
}

namespace {

// Everything of the record that depends on the rule alone: the fields, the actions, and the meter
// and counter attributes.
void ruleFill(const AclRuleEntry* rule, std::span<uint8_t> dev) {
  std::fill(dev.begin(), dev.end(), 0);
  AclRuleEntry* r = mut(rule);
  for (AclValueEntry* e = aclValueFirst(r); e != nullptr; e = aclValueNext(r, e))
    storeField(dev, e);
  aclDevActionFill(rule, dev);

  const std::span<const uint8_t> fieldBits(rule->fieldBits);
  if (aclBitTest(fieldBits, RULE_BIT_CARID)) be::store32(dev, kCir, rule->meterId);
  if (aclBitTest(fieldBits, RULE_BIT_COUNTERID)) {
    if (auto v = aclDevCounterAttr(rule->counterId, ACL_COUNTER_ATTR_TYPE)) {
      be::store8(dev, kCounterType, static_cast<uint8_t>(*v));
    }
    if (auto v = aclDevCounterAttr(rule->counterId, ACL_COUNTER_ATTR_COLOR)) {
      be::store8(dev, kCounterColor, static_cast<uint8_t>(*v));
    }
  }
  if (aclBitTest(fieldBits, RULE_BIT_METERID)) {
    struct Word {
      uint32_t attr, off;
    };
    for (const Word w : {Word{ACL_METER_ATTR_CIR, kCir}, Word{ACL_METER_ATTR_PIR, kPir},
                         Word{ACL_METER_ATTR_CBS, kCbs}, Word{ACL_METER_ATTR_EBS, kEbs},
                         Word{ACL_METER_ATTR_PBS, kPbs}}) {
      if (auto v = aclDevMeterAttr(rule->meterId, w.attr)) be::store32(dev, w.off, *v);
    }
    for (const Word w :
         {Word{ACL_METER_ATTR_TYPE, kMeterType}, Word{ACL_METER_ATTR_MODE, kMeterMode},
          Word{ACL_METER_ATTR_CARTYPE, kCarType}}) {
      if (auto v = aclDevMeterAttr(rule->meterId, w.attr)) {
        be::store8(dev, w.off, static_cast<uint8_t>(*v));
      }
    }
  }
}

// The rule's own words the translation reads. With the store generation (which moves whenever an
// entry of any rule is added or freed, a rule made or deleted, and at every aclLock) they decide
// whether a kept record is still the rule's. A kept head is compared with the rule in place: a
// head built on the stack and compared at once would stall on its own narrow stores.
struct RuleHead {
  const AclRuleEntry* rule = nullptr;
  uint64_t gen = 0;
  uint32_t lstIdx = 0, ruleIdx = 0, meterId = 0, counterId = 0;
  std::array<uint8_t, sizeof AclRuleEntry::fieldBits> fieldBits{};
  std::array<uint8_t, sizeof AclRuleEntry::actionBits> actionBits{};
  std::array<uint8_t, sizeof AclRuleEntry::outActionBits> outActionBits{};
  uint8_t layerType = 0, multicastGem = 0;
};

RuleHead headOf(const AclRuleEntry* rule) {
  RuleHead h;
  h.rule = rule;
  h.gen = aclStoreGen();
  h.lstIdx = rule->lstIdx;
  h.ruleIdx = rule->ruleIdx;
  h.meterId = rule->meterId;
  h.counterId = rule->counterId;
  std::memcpy(h.fieldBits.data(), rule->fieldBits, h.fieldBits.size());
  std::memcpy(h.actionBits.data(), rule->actionBits, h.actionBits.size());
  std::memcpy(h.outActionBits.data(), rule->outActionBits, h.outActionBits.size());
  h.layerType = rule->layerType;
  h.multicastGem = rule->multicastGem;
  return h;
}

// Whether the N bytes at a and b are the same, in word loads: the bit sets are a few bytes long,
// and a memcmp call for each cost more than the rest of the head check.
template <size_t N>
bool sameBytes(const uint8_t* a, const uint8_t* b) {
  bool same = true;
  size_t i = 0;
  for (; i + 8 <= N; i += 8) {
    uint64_t x, y;
    std::memcpy(&x, a + i, 8);
    std::memcpy(&y, b + i, 8);
    same &= x == y;
  }
  for (; i + 4 <= N; i += 4) {
    uint32_t x, y;
    std::memcpy(&x, a + i, 4);
    std::memcpy(&y, b + i, 4);
    same &= x == y;
  }
  for (; i < N; ++i) same &= a[i] == b[i];
  return same;
}

template <size_t N>
bool sameBytes(const std::array<uint8_t, N>& a, const uint8_t (&b)[N]) {
  return sameBytes<N>(a.data(), b);
}

bool headIs(const RuleHead& h, const AclRuleEntry* rule) {
  return h.rule == rule && h.gen == aclStoreGen() && h.lstIdx == rule->lstIdx &&
         h.ruleIdx == rule->ruleIdx && h.meterId == rule->meterId &&
         h.counterId == rule->counterId && sameBytes(h.fieldBits, rule->fieldBits) &&
         sameBytes(h.actionBits, rule->actionBits) &&
         sameBytes(h.outActionBits, rule->outActionBits) && h.layerType == rule->layerType &&
         h.multicastGem == rule->multicastGem;
}

// Records already made, by rule: a list installed on many bindings under one hold of the lock
// (card synchronisation, a time-range switch) translates each rule once and patches the
// binding's words into a copy. Meter and counter attributes belong to other modules, which move
// no generation: a rule that reads them is translated every time. Callers hold the ACL lock.
struct KeptRecord {
  RuleHead head;
  std::array<uint8_t, kRecLen> rec;
};
constexpr size_t kKeptRecords = 32;  // the hash below takes the top 5 bits
std::array<KeptRecord, kKeptRecords> gKept{};

KeptRecord& keptSlot(const AclRuleEntry* rule) {
  // Rules sit at a fixed stride in their pool: a multiplicative hash spreads them over the slots.
  const auto p = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(rule));
  return gKept[(p * 0x9E3779B97F4A7C15ull) >> 59];
}

bool readsOtherModules(const AclRuleEntry* rule) {
  const std::span<const uint8_t> fieldBits(rule->fieldBits);
  return aclBitTest(fieldBits, RULE_BIT_COUNTERID) || aclBitTest(fieldBits, RULE_BIT_METERID);
}

// The fill leaves the aggregation and active-rule words 0, so a kept record holds in them only
// what the last view wrote, which every view writes again.
constexpr uint32_t placeLen(const FieldPlace& p) {
  switch (p.kind) {
    case Kind::U8:
      return 1;
    case Kind::U16:
      return 2;
    case Kind::U32:
      return 4;
    case Kind::Bytes:
      return kAddrLen;
    case Kind::Mac:
      return kMacLen;
    default:
      return 0;  // Udf writes the user-data words, None nothing
  }
}
constexpr bool clearOfViewWords(uint32_t off, uint32_t len) {
  return off + len <= kAggIfIndex || off >= kActiveRuleNum + 4;
}
constexpr bool fillLeavesViewWords() {
  for (uint32_t c = 0; c < kPlacedFieldCodes; ++c) {
    const FieldPlace& p = kFieldPlaces[c];
    if (!clearOfViewWords(p.off, placeLen(p))) return false;
    if (p.off2 != 0 && !clearOfViewWords(p.off2, 1)) return false;
  }
  return clearOfViewWords(kUserData, kUserDataOffset + 4 * kUserDataCount - kUserData) &&
         clearOfViewWords(kActionParam,
                          kOutActionParam + 4 * kOutActionParamWords - kActionParam) &&
         clearOfViewWords(kCir, kCarType + 1 - kCir);
}
static_assert(fillLeavesViewWords(), "a rule field overlaps the aggregation or active-rule word");

// The binding's words, and the rule's identity, written last over whatever the fill left.
void writeBindingWords(const AclRuleEntry* rule, std::span<uint8_t> dev, const AclDevWords& w) {
  be::store32(dev, kLstIdx, rule->lstIdx);
  be::store32(dev, kRuleIdx, rule->ruleIdx);
  be::store8(dev, kDir, w.dir);
  be::store8(dev, kCounterShared, w.counterShared);
  be::store8(dev, kMeterShared, w.meterShared);
  be::store16(dev, kPriority, w.priority);
  be::store8(dev, kLayerType, rule->layerType);
  be::store16(dev, kOnuId, w.onuId);
  be::store16(dev, kGemPort, w.gemPort);
  // A multicast GEM rule reaches every GEM port of the ONU.
  be::store32(dev, kGemPortVp, rule->multicastGem != 0 ? 0xFFFFFFFFu : w.gemPortVp);
}

}  // namespace

const uint8_t* aclDevTransView(const AclRuleEntry* rule, uint8_t* scratch, const AclDevWords& w) {
  if (rule == nullptr || scratch == nullptr) return nullptr;
  std::span<uint8_t> dev(scratch, kRecLen);
  if (readsOtherModules(rule)) {
    ruleFill(rule, dev);
  } else {
    // The kept record itself: every word written below is written at every translation, so what
    // the last one left there never shows.
    KeptRecord& kept = keptSlot(rule);
    if (!headIs(kept.head, rule)) {
      ruleFill(rule, kept.rec);
      kept.head = headOf(rule);
    }
    dev = kept.rec;
  }
  writeBindingWords(rule, dev, w);
  be::store32(dev, kAggIfIndex, w.aggIfIndex);
  be::store32(dev, kActiveRuleNum, w.activeRuleNum);
  return dev.data();
}

uint32_t aclDevTrans(const AclRuleEntry* rule, uint8_t* devPtr, uint8_t dir, uint8_t counterShared,
                     uint8_t meterShared, uint16_t priority, uint16_t onuId, uint16_t gemPort,
                     uint32_t gemPortVp) {
  if (rule == nullptr || devPtr == nullptr) return CMN_ERR_BAD_PARAM;
  // The view with the aggregation and active-rule words 0, as the fill leaves them, copied out
  // when it is the kept record rather than devPtr itself.
  const uint8_t* view = aclDevTransView(
      rule, devPtr,
      AclDevWords{dir, counterShared, meterShared, priority, onuId, gemPort, gemPortVp});
  if (view != devPtr) std::copy(view, view + kRecLen, devPtr);
  return 0;
}
