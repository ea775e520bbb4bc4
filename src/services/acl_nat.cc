// NAT installation and removal for the global and slot scopes. Every valid rule that is not left
// out is translated into the record form with the caller's direction and sent under the NAT
// module's command; whether that command installs or removes is the NAT module's business.
#include "services/acl_nat.h"

#include <array>
#include <optional>
#include <span>

#include "api/acl_scalar_api.h"
#include "api/acl_slot_api.h"
#include "hw/acl_dev_trans.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "services/acl_service_rule.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/buf_desc.h"

namespace {

using Record = std::array<uint8_t, ACL_DEV_RECORD_LEN>;

// The request descriptor's flag: the data is a record the platform reads.
constexpr uint16_t NAT_REQ_FLAG = 1;

struct Scope {
  const uint8_t* slotKey;  // nullptr: the whole system
  bool isSlot() const { return slotKey != nullptr; }
  const char* addTag() const { return isSlot() ? "NAT slot add" : "global NAT add"; }
  const char* delTag() const { return isSlot() ? "NAT slot del" : "global NAT del"; }
};

struct NatArgs {
  uint32_t lstIdx;
  uint32_t natCmd;
  uint32_t dir;
};

int32_t sendRecord(const Scope& s, const Record& dev, uint32_t natCmd, uint32_t last) {
  return s.isSlot() ? aclNatSlotHwset(s.slotKey, natCmd, dev.data(), last)
                    : aclNatGlbHwset(dev.data(), natCmd, last);
}

AclListEntry* listFor(const char* tag, const NatArgs& a, int32_t* ret) {
  // The direction reaches the platform only as the record's one-byte dir; anything but the three
  // directions would arrive as another one.
  if (a.dir > ACL_DIR_VFP) {
    *ret = CMN_ERR_BAD_PARAM;
    return nullptr;
  }
  AclListEntry* list = aclServiceListGet(tag, a.lstIdx, ret);
  if (list == nullptr) return nullptr;
  return list;
}

int32_t translate(AclRuleEntry* rule, const AclListEntry* list, uint32_t dir, Record& dev) {
  rule->priority = static_cast<uint16_t>(rule->ruleIdx);
  return static_cast<int32_t>(aclDevTrans(rule, dev.data(), static_cast<uint8_t>(dir),
                                          list->counterShared, list->meterShared, rule->priority, 0,
                                          0, 0));
}

int32_t removeRules(const Scope& s, const NatArgs& a, uint32_t upToRule, uint32_t last) {
  const char* tag = s.delTag();
  int32_t ret = 0;
  AclListEntry* list = listFor(tag, a, &ret);
  if (list == nullptr) return ret;
  Record dev{};
  for (auto* rule = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); rule != nullptr;
       rule = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, rule))) {
    if (rule->status != ACL_RULE_STATUS_VALID) continue;
    if (upToRule != 0 && rule->ruleIdx > upToRule) break;
    if (aclServiceRuleSkipped(rule)) continue;
    if ((ret = translate(rule, list, a.dir, dev)) != 0) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter %d/%d dev trans error])\r\n",
               tag, static_cast<int>(list->lstIdx), static_cast<int>(rule->ruleIdx));
      return ret;
    }
    if ((ret = sendRecord(s, dev, a.natCmd, last)) != 0) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [%s] error. (Reason=[filter %d/%u delete error. (dir = %d)])\r\n", tag,
               static_cast<int>(list->lstIdx), rule->ruleIdx, static_cast<int>(a.dir));
      return ret;
    }
  }
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] info=[self = %d dir = %d refCnt = %d OK].\r\n", tag,
           static_cast<int>(list->lstIdx), static_cast<int>(a.dir), list->refCnt);
  return 0;
}

int32_t installRules(const Scope& s, const NatArgs& a) {
  const char* tag = s.addTag();
  int32_t ret = 0;
  AclListEntry* list = listFor(tag, a, &ret);
  if (list == nullptr) return ret;
  if ((ret = aclRuleStatusCheck(list)) != 0) return ret;
  Record dev{};
  for (auto* rule = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); rule != nullptr;
       rule = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, rule))) {
    if (rule->status != ACL_RULE_STATUS_VALID) continue;
    if (aclServiceRuleSkipped(rule)) continue;
    if ((ret = translate(rule, list, a.dir, dev)) != 0) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter %d/%d dev trans error])\r\n",
               tag, static_cast<int>(list->lstIdx), static_cast<int>(rule->ruleIdx));
    } else if ((ret = sendRecord(s, dev, a.natCmd, 0)) != 0) {
      std::span<const uint8_t> d(dev);
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [%s] error. (Reason=[filter %d/%d add error. (dir = %d)])\r\n", tag,
               static_cast<int>(be::load32(d, acldev::kLstIdx)),
               static_cast<int>(be::load32(d, acldev::kRuleIdx)),
               static_cast<int>(be::load8(d, acldev::kDir)));
    }
    if (ret != 0) {
      // The NAT module gave one command for installing; the undo walk sends it again for every
      // rule up to the failing one and leaves the rest to the NAT module.
      removeRules(s, a, rule->ruleIdx, 0);
      return ret;
    }
  }
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] info=[self = %d dir = %d refCnt = %d OK].\r\n", tag,
           static_cast<int>(list->lstIdx), static_cast<int>(a.dir), list->refCnt);
  return 0;
}

std::optional<NatArgs> readArgs(uintptr_t buf) {
  if (buf == 0) return std::nullopt;
  const auto* desc = reinterpret_cast<const wire::BufDesc*>(buf);
  if (desc->data == nullptr || desc->len != ACL_NAT_ARGS_LEN) return std::nullopt;
  std::span<const uint8_t> w(static_cast<const uint8_t*>(desc->data), ACL_NAT_ARGS_LEN);
  return NatArgs{be::load32(w, 0), be::load32(w, 4), be::load32(w, 8)};
}

using Packed = std::array<uint8_t, ACL_NAT_ARGS_LEN>;
Packed pack(uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  Packed p{};
  be::store32(p, 0, lstIdx);
  be::store32(p, 4, natCmd);
  be::store32(p, 8, dir);
  return p;
}

}  // namespace

int32_t aclNatGlbHwset(const uint8_t* dev, uint32_t natCmd, uint32_t lastWord) {
  if (dev == nullptr) return CMN_ERR_BAD_PARAM;
  aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  ZorScalarReq req{natCmd, const_cast<uint8_t*>(dev), NAT_REQ_FLAG, 0, 0, lastWord};
  return zorScalarSetApi(0, 0, &req);
}

int32_t aclNatSlotHwset(const uint8_t* slotKey, uint32_t natCmd, const uint8_t* dev,
                        uint32_t options) {
  if (dev == nullptr || slotKey == nullptr) return CMN_ERR_BAD_PARAM;
  aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  return zorHwilSlotSet(slotKey, natCmd, dev, options);
}

int32_t _aclNatGlobaladd(uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  return installRules({nullptr}, {lstIdx, natCmd, dir});
}

int32_t _aclNatGlobaldel(uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  return aclNatGlobaldelpart(lstIdx, 0, natCmd, dir, 0);
}

int32_t aclNatGlobaldelpart(uint32_t lstIdx, uint32_t upToRule, uint32_t natCmd, uint32_t dir,
                            uint32_t lastWord) {
  return removeRules({nullptr}, {lstIdx, natCmd, dir}, upToRule, lastWord);
}

int32_t _aclNatSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  if (slotKey == nullptr) return CMN_ERR_BAD_PARAM;
  return installRules({slotKey}, {lstIdx, natCmd, dir});
}

int32_t _aclNatSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  return aclNatSlotdelpart(slotKey, lstIdx, 0, natCmd, dir, 0);
}

int32_t aclNatSlotdelpart(const uint8_t* slotKey, uint32_t lstIdx, uint32_t upToRule,
                          uint32_t natCmd, uint32_t dir, uint32_t last) {
  if (slotKey == nullptr) return CMN_ERR_BAD_PARAM;
  return removeRules({slotKey}, {lstIdx, natCmd, dir}, upToRule, last);
}

int32_t _aclNatGlobaladdEx(uintptr_t buf) {
  const auto a = readArgs(buf);
  return a ? _aclNatGlobaladd(a->lstIdx, a->natCmd, a->dir) : ACL_RET_INVALID;
}

int32_t _aclNatGlobaldelEx(uintptr_t buf) {
  const auto a = readArgs(buf);
  return a ? _aclNatGlobaldel(a->lstIdx, a->natCmd, a->dir) : ACL_RET_INVALID;
}

int32_t _aclNatSlotaddEx(uintptr_t slotKey, uintptr_t buf) {
  const auto a = readArgs(buf);
  if (!a) return ACL_RET_INVALID;
  return _aclNatSlotadd(reinterpret_cast<const uint8_t*>(slotKey), a->lstIdx, a->natCmd, a->dir);
}

int32_t _aclNatSlotdelEx(uintptr_t slotKey, uintptr_t buf) {
  const auto a = readArgs(buf);
  if (!a) return ACL_RET_INVALID;
  return _aclNatSlotdel(reinterpret_cast<const uint8_t*>(slotKey), a->lstIdx, a->natCmd, a->dir);
}

int32_t aclNatGlobaladd(uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  Packed p = pack(lstIdx, natCmd, dir);
  wire::BufDesc desc{p.data(), ACL_NAT_ARGS_LEN};
  return aclScalarSetApi(0, ACL_SCALAR_NAT_ADD, reinterpret_cast<uintptr_t>(&desc));
}

int32_t aclNatGlobaldel(uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  Packed p = pack(lstIdx, natCmd, dir);
  wire::BufDesc desc{p.data(), ACL_NAT_ARGS_LEN};
  return aclScalarSetApi(0, ACL_SCALAR_NAT_DEL, reinterpret_cast<uintptr_t>(&desc));
}

int32_t aclNatSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  Packed p = pack(lstIdx, natCmd, dir);
  wire::BufDesc desc{p.data(), ACL_NAT_ARGS_LEN};
  return aclSlotSetApi(reinterpret_cast<uintptr_t>(slotKey), ACL_SLOT_CMD_NAT_ADD,
                       reinterpret_cast<uintptr_t>(&desc));
}

int32_t aclNatSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir) {
  Packed p = pack(lstIdx, natCmd, dir);
  wire::BufDesc desc{p.data(), ACL_NAT_ARGS_LEN};
  return aclSlotSetApi(reinterpret_cast<uintptr_t>(slotKey), ACL_SLOT_CMD_NAT_DEL,
                       reinterpret_cast<uintptr_t>(&desc));
}

int32_t aclNatIfadd(uint32_t, uint32_t, uint32_t, uint32_t) {
  return 0;
}
int32_t aclNatIfdel(uint32_t, uint32_t, uint32_t, uint32_t) {
  return 0;
}
