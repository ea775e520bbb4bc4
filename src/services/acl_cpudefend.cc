// CPU defend installation and removal for the global and slot scopes. Each rule is translated with
// direction ingress, marked with the CPU protection application code, the requested action and,
// when asked, the rate limit, and sent on its own; a failed installation takes back what it sent.
#include "services/acl_cpudefend.h"

#include <array>
#include <optional>
#include <span>

#include "api/acl_scalar_api.h"
#include "api/acl_slot_api.h"
#include "hw/acl_dev_attr.h"
#include "hw/acl_dev_trans.h"
#include "hw/acl_glb.h"
#include "main/acl_log.h"
#include "services/acl_service_rule.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/buf_desc.h"

namespace {

// Out-action bit that switches the rate limit on in the record form.
constexpr uint32_t CPUDEFEND_OUT_ACTION_CAR = 3;
constexpr uint8_t CPUDEFEND_METER_TYPE = 1;
constexpr uint8_t CPUDEFEND_METER_MODE = 1;
// TLV items of the rate limit: a value-less item 78 and the meter words.
constexpr uint8_t CPUDEFEND_ITEM_CAR = 78;
constexpr uint32_t CPUDEFEND_ITEMS_MAX = 2 + 32;
// Value bytes of the temporary application entry in the TLV form.
constexpr uint32_t CPUDEFEND_APP_LEN_GLOBAL = 2;
constexpr uint32_t CPUDEFEND_APP_LEN_SLOT = 4;

using Buffer = std::array<uint8_t, ACL_DEV_TLV_BUF_LEN>;

struct Scope {
  const uint8_t* slotKey;  // nullptr: the whole system
  bool isSlot() const { return slotKey != nullptr; }
  const char* addTag() const { return isSlot() ? "CPUDEFEND slot add" : "CPUDEFEND global add"; }
  const char* delTag() const { return isSlot() ? "CPUDEFEND slot del" : "CPUDEFEND global del"; }
  AclSlotKey key() const { return isSlot() ? aclSlotKeyRead(slotKey) : AclSlotKey{0, 0}; }
};

enum class Step { Trans, Hw };
struct Outcome {
  int32_t ret;
  Step step;
};

// The application code as a field entry of its own, present only while one rule is translated and
// sent in the TLV form. A rule that already has an application entry keeps it: the temporary one
// goes after it and is the one taken away again.
class TempAppEntry {
 public:
  TempAppEntry(AclRuleEntry* rule, uint32_t len) {
    std::array<uint8_t, 4> value{};
    be::store16(value, len - 2, ACL_CPUDEFEND_APP);
    result_ = aclRuleShortEntryAdd(rule, RULE_BIT_APP, value.data(), len);
    if (result_ != 0) return;
    for (AclValueEntry* e = aclValueFirst(rule); e != nullptr; e = aclValueNext(rule, e)) {
      if (e->code == RULE_BIT_APP) entry_ = e;
    }
  }
  ~TempAppEntry() {
    if (entry_ != nullptr) aclRuleShortEntryDel(entry_);
  }
  TempAppEntry(const TempAppEntry&) = delete;
  TempAppEntry& operator=(const TempAppEntry&) = delete;
  int32_t result() const { return result_; }

 private:
  AclValueEntry* entry_ = nullptr;
  int32_t result_ = 0;
};

bool ruleCarriesAction(AclRuleEntry* rule, uint32_t action) {
  for (AclActionEntry* e = aclActionFirst(rule); e != nullptr; e = aclActionNext(rule, e)) {
    if (e->code == action) return true;
  }
  return false;
}

void markRecord(std::span<uint8_t> dev, const AclCpudefendArgs& a) {
  using namespace acldev;
  be::store16(dev, kApp, ACL_CPUDEFEND_APP);
  aclBitSet(dev.subspan(kAction, kActionLen), a.action);
  if (a.carEnable == 0) return;
  be::store32(dev, kCir, a.cir);
  be::store32(dev, kCbs, a.cbs);
  be::store32(dev, kEbs, a.ebs);
  be::store8(dev, kMeterType, CPUDEFEND_METER_TYPE);
  be::store8(dev, kMeterMode, CPUDEFEND_METER_MODE);
  aclBitSet(dev.subspan(kBits, kBitsLen), RULE_BIT_OUTACTION);
  aclBitSet(dev.subspan(kBits, kBitsLen), RULE_BIT_METERID);
  aclBitSet(dev.subspan(kOutAction, kOutActionLen), CPUDEFEND_OUT_ACTION_CAR);
}

// The action item (unless the rule has that action already) and the rate limit items.
uint32_t markItems(AclRuleEntry* rule, const AclCpudefendArgs& a,
                   std::span<uint8_t, CPUDEFEND_ITEMS_MAX> out) {
  uint32_t n = 0;
  if (!ruleCarriesAction(rule, a.action)) {
    out[n++] = static_cast<uint8_t>(a.action);
    out[n++] = 0;
  }
  if (a.carEnable == 0) return n;
  out[n++] = CPUDEFEND_ITEM_CAR;
  out[n++] = 0;
  const std::pair<uint8_t, uint32_t> words[] = {{RULE_ACTION_METERTYPE, CPUDEFEND_METER_TYPE},
                                                {RULE_ACTION_METERMODE, CPUDEFEND_METER_MODE},
                                                {RULE_ACTION_METERCIR, a.cir},
                                                {RULE_ACTION_METERCBS, a.cbs},
                                                {RULE_ACTION_METEREBS, a.ebs}};
  for (const auto& [type, value] : words) {
    out[n++] = type;
    out[n++] = 4;
    be::store32(out, n, value);
    n += 4;
  }
  return n;
}

// Translates one rule, marks it and installs (install) or removes it in the scope.
Outcome sendRule(const Scope& s, const AclListEntry* list, AclRuleEntry* rule,
                 const AclCpudefendArgs& a, bool install, Buffer& buf) {
  buf.fill(0);
  const uint8_t counterShared = list->counterShared;
  const uint8_t meterShared = list->meterShared;
  if (gaclGrp.tlvEnable == 0) {
    const auto ret = static_cast<int32_t>(aclDevTrans(
        rule, buf.data(), ACL_DIR_INGRESS, counterShared, meterShared, rule->priority, 0, 0, 0));
    if (ret != 0) return {ret, Step::Trans};
    markRecord(std::span<uint8_t>(buf.data(), ACL_DEV_RECORD_LEN), a);
    int32_t hw = 0;
    if (s.isSlot()) {
      hw = install ? aclRuleSlotAdd(s.slotKey, buf.data(), 0, 0)
                   : aclRuleSlotDel(s.slotKey, buf.data(), 0, 0);
    } else {
      hw = install ? aclRuleGlbAdd(buf.data(), ACL_DIR_INGRESS, nullptr)
                   : aclRuleGlbDel(buf.data(), ACL_DIR_INGRESS, nullptr);
    }
    return {hw, Step::Hw};
  }
  TempAppEntry app(rule, s.isSlot() ? CPUDEFEND_APP_LEN_SLOT : CPUDEFEND_APP_LEN_GLOBAL);
  if (app.result() != 0) return {app.result(), Step::Trans};
  uint16_t len = 0;
  const auto ret = static_cast<int32_t>(
      aclDevTransNew(rule, ACL_DIR_INGRESS, install ? 0 : 1, counterShared, meterShared,
                     rule->priority, 0, list->activeRuleNum, 0, 0, 0, buf.data(), &len));
  if (ret != 0) return {ret, Step::Trans};
  std::array<uint8_t, CPUDEFEND_ITEMS_MAX> items{};
  const uint32_t n = markItems(rule, a, items);
  if (!aclServiceTlvAppend(buf, &len, std::span<const uint8_t>(items.data(), n))) {
    return {CMN_ERR_BUFFER_SHORT, Step::Trans};
  }
  ZorBufDesc desc{buf.data(), len};
  // The TLV message says itself whether it installs or removes, so the slot scope sends both
  // with the same command, as the global scope does.
  const int32_t hw =
      s.isSlot() ? aclRuleSlotAddTlv(s.slotKey, &desc, 0) : aclRuleGlbUpdate(&desc, nullptr);
  return {hw, Step::Hw};
}

// The list checks both walks share; nullptr with *ret set when the walk may not start.
AclListEntry* listFor(const char* tag, const AclCpudefendArgs& a, int32_t* ret) {
  AclListEntry* list = aclServiceListGet(tag, a.lstIdx, ret);
  if (list == nullptr) return nullptr;
  // The action is marked as an in-action bit; a code without one cannot be installed.
  if (a.action >= ACL_ACTION_BIT_NUM) {
    *ret = CMN_ERR_BAD_PARAM;
    return nullptr;
  }
  return list;
}

int32_t removeRules(const Scope& s, const AclCpudefendArgs& a, uint32_t upToRule) {
  const char* tag = s.delTag();
  int32_t ret = 0;
  AclListEntry* list = listFor(tag, a, &ret);
  if (list == nullptr) return ret;
  Buffer buf{};
  const AclSlotKey k = s.key();
  for (auto* rule = static_cast<AclRuleEntry*>(avl_last(&list->ruleTree)); rule != nullptr;
       rule = static_cast<AclRuleEntry*>(avl_prev(&list->ruleTree, rule))) {
    if (upToRule != 0 && rule->ruleIdx > upToRule) continue;
    if (aclServiceRuleSkipped(rule)) continue;
    rule->priority = static_cast<uint16_t>(rule->ruleIdx);
    const Outcome o = sendRule(s, list, rule, a, false, buf);
    if (o.ret == 0) continue;
    if (o.step == Step::Trans) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter %d/%u dev trans error])\r\n",
               tag, static_cast<int>(list->lstIdx), rule->ruleIdx);
    } else if (s.isSlot()) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [CPUDEFEND slot del] error. (Reason=[filter %d/%u delete from slot "
               "%d/%d error. ])\r\n",
               static_cast<int>(list->lstIdx), rule->ruleIdx, static_cast<int>(k.sys),
               static_cast<int>(k.slot));
    } else {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [CPUDEFEND global del] error. (Reason=[filter %d/%u delete error. (dir "
               "= %d)])\r\n",
               static_cast<int>(list->lstIdx), rule->ruleIdx, 0);
    }
    return o.ret;
  }
  if (s.isSlot()) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [CPUDEFEND slot del] info=[self = %d dir = %d refCnt = %d OK].\r\n",
             static_cast<int>(list->lstIdx), 0, list->refCnt);
  } else {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [CPUDEFEND global del] info=[self = %d refCnt = %d OK].\r\n",
             static_cast<int>(list->lstIdx), list->refCnt);
  }
  return 0;
}

int32_t installRules(const Scope& s, const AclCpudefendArgs& a) {
  const char* tag = s.addTag();
  int32_t ret = 0;
  AclListEntry* list = listFor(tag, a, &ret);
  if (list == nullptr) return ret;
  Buffer buf{};
  const AclSlotKey k = s.key();
  for (auto* rule = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); rule != nullptr;
       rule = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, rule))) {
    if (aclServiceRuleSkipped(rule)) continue;
    rule->priority = static_cast<uint16_t>(rule->ruleIdx);
    const Outcome o = sendRule(s, list, rule, a, true, buf);
    if (o.ret == 0) continue;
    if (o.step == Step::Trans) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter %d/%u dev trans error])\r\n",
               tag, static_cast<int>(list->lstIdx), rule->ruleIdx);
    } else if (s.isSlot()) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [CPUDEFEND slot add] error. (Reason=[filter %d/%d add to slot %d/%d "
               "error. (dir = %d)])\r\n",
               static_cast<int>(list->lstIdx), static_cast<int>(rule->ruleIdx),
               static_cast<int>(k.sys), static_cast<int>(k.slot), 0);
    } else {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [CPUDEFEND global add] error. (Reason=[filter %d/%d add error. (dir = "
               "%d)])\r\n",
               static_cast<int>(list->lstIdx), static_cast<int>(rule->ruleIdx), 0);
    }
    // Take back what this call sent, the failing rule included (its removal is harmless when it
    // never arrived).
    removeRules(s, a, rule->ruleIdx);
    return o.ret;
  }
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] info=[self = %d refCnt = %d OK].\r\n", tag,
           static_cast<int>(list->lstIdx), list->refCnt);
  return 0;
}

std::optional<AclCpudefendArgs> readArgs(uintptr_t buf) {
  if (buf == 0) return std::nullopt;
  const auto* desc = reinterpret_cast<const wire::BufDesc*>(buf);
  if (desc->data == nullptr || desc->len != ACL_CPUDEFEND_ARGS_LEN) return std::nullopt;
  std::span<const uint8_t> w(static_cast<const uint8_t*>(desc->data), ACL_CPUDEFEND_ARGS_LEN);
  return AclCpudefendArgs{be::load32(w, 0),  be::load32(w, 4),  be::load32(w, 8),
                          be::load32(w, 12), be::load32(w, 16), be::load32(w, 20)};
}

using Packed = std::array<uint8_t, ACL_CPUDEFEND_ARGS_LEN>;
Packed pack(const AclCpudefendArgs& a) {
  Packed p{};
  const uint32_t words[] = {a.lstIdx, a.action, a.cir, a.cbs, a.ebs, a.carEnable};
  for (size_t i = 0; i < 6; ++i) be::store32(p, 4 * i, words[i]);
  return p;
}

int32_t viaScalar(uint32_t cmd, const AclCpudefendArgs& a) {
  Packed p = pack(a);
  wire::BufDesc desc{p.data(), ACL_CPUDEFEND_ARGS_LEN};
  return aclScalarSetApi(0, cmd, reinterpret_cast<uintptr_t>(&desc));
}

int32_t viaSlot(const uint8_t* slotKey, uint32_t cmd, const AclCpudefendArgs& a) {
  Packed p = pack(a);
  wire::BufDesc desc{p.data(), ACL_CPUDEFEND_ARGS_LEN};
  return aclSlotSetApi(reinterpret_cast<uintptr_t>(slotKey), cmd,
                       reinterpret_cast<uintptr_t>(&desc));
}

}  // namespace

int32_t _aclCpudefendGlobaladd(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                               uint32_t ebs, uint32_t carEnable) {
  return installRules({nullptr}, {lstIdx, action, cir, cbs, ebs, carEnable});
}

int32_t _aclCpudefendGlobaldel(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                               uint32_t ebs, uint32_t carEnable) {
  return aclCpudefendGlobaldelpart(lstIdx, 0, action, cir, cbs, ebs, carEnable);
}

int32_t aclCpudefendGlobaldelpart(uint32_t lstIdx, uint32_t upToRule, uint32_t action, uint32_t cir,
                                  uint32_t cbs, uint32_t ebs, uint32_t carEnable) {
  return removeRules({nullptr}, {lstIdx, action, cir, cbs, ebs, carEnable}, upToRule);
}

int32_t _aclCpudefendSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                             uint32_t cbs, uint32_t ebs, uint32_t carEnable) {
  if (slotKey == nullptr) return CMN_ERR_BAD_PARAM;
  return installRules({slotKey}, {lstIdx, action, cir, cbs, ebs, carEnable});
}

int32_t _aclCpudefendSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                             uint32_t cbs, uint32_t ebs, uint32_t carEnable) {
  return aclCpudefendDelpart(slotKey, lstIdx, 0, action, cir, cbs, ebs, carEnable);
}

int32_t aclCpudefendDelpart(const uint8_t* slotKey, uint32_t lstIdx, uint32_t upToRule,
                            uint32_t action, uint32_t cir, uint32_t cbs, uint32_t ebs,
                            uint32_t carEnable) {
  if (slotKey == nullptr) return CMN_ERR_BAD_PARAM;
  return removeRules({slotKey}, {lstIdx, action, cir, cbs, ebs, carEnable}, upToRule);
}

int32_t _aclCpudefendGlobaladdEx(uintptr_t buf) {
  const auto a = readArgs(buf);
  if (!a) return ACL_RET_INVALID;
  return _aclCpudefendGlobaladd(a->lstIdx, a->action, a->cir, a->cbs, a->ebs, a->carEnable);
}

int32_t _aclCpudefendGlobaldelEx(uintptr_t buf) {
  const auto a = readArgs(buf);
  if (!a) return ACL_RET_INVALID;
  return _aclCpudefendGlobaldel(a->lstIdx, a->action, a->cir, a->cbs, a->ebs, a->carEnable);
}

int32_t _aclCpudefendSlotaddEx(uintptr_t slotKey, uintptr_t buf) {
  const auto a = readArgs(buf);
  if (!a) return ACL_RET_INVALID;
  return _aclCpudefendSlotadd(reinterpret_cast<const uint8_t*>(slotKey), a->lstIdx, a->action,
                              a->cir, a->cbs, a->ebs, a->carEnable);
}

int32_t _aclCpudefendSlotdelEx(uintptr_t slotKey, uintptr_t buf) {
  const auto a = readArgs(buf);
  if (!a) return ACL_RET_INVALID;
  return _aclCpudefendSlotdel(reinterpret_cast<const uint8_t*>(slotKey), a->lstIdx, a->action,
                              a->cir, a->cbs, a->ebs, a->carEnable);
}

int32_t aclCpudefendGlobaladd(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                              uint32_t ebs, uint32_t carEnable) {
  return viaScalar(ACL_SCALAR_CPUDEFEND_ADD, {lstIdx, action, cir, cbs, ebs, carEnable});
}

int32_t aclCpudefendGlobaldel(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                              uint32_t ebs, uint32_t carEnable) {
  return viaScalar(ACL_SCALAR_CPUDEFEND_DEL, {lstIdx, action, cir, cbs, ebs, carEnable});
}

int32_t aclCpudefendSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                            uint32_t cbs, uint32_t ebs, uint32_t carEnable) {
  return viaSlot(slotKey, ACL_SLOT_CMD_CPUDEFEND_ADD, {lstIdx, action, cir, cbs, ebs, carEnable});
}

int32_t aclCpudefendSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                            uint32_t cbs, uint32_t ebs, uint32_t carEnable) {
  return viaSlot(slotKey, ACL_SLOT_CMD_CPUDEFEND_DEL, {lstIdx, action, cir, cbs, ebs, carEnable});
}
