// Blacklist entries, their deny copies and their installation through the global rule commands.
#include "services/acl_blacklist.h"

#include <array>
#include <cstring>

#include "hw/acl_dev_trans.h"
#include "hw/acl_glb.h"
#include "hw/acl_hw_options.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

static_assert(ACL_BLACKLIST_TARGET_LEN == ACL_HW_OPTIONS_LEN);

namespace {

// Options record bytes of a slot target.
constexpr uint32_t TARGET_MODE = 24;
constexpr uint8_t TARGET_MODE_SLOT = 2;
constexpr uint32_t TARGET_SYS_BITS = 26;   // 16-bit system bitmap
constexpr uint32_t TARGET_SLOT_BITS = 28;  // one 32-bit slot bitmap per system
constexpr uint32_t TARGET_SLOT_BITS_LEN = 4;

// The rule as the blacklist installs it: the rule's match fields and a plain deny. The entries it
// takes from the value and action pools go back when it goes out of scope.
class DenyCopy {
 public:
  explicit DenyCopy(AclRuleEntry* src) {
    std::memset(&rule_, 0, sizeof rule_);
    dlist::init(&rule_.valueList);
    dlist::init(&rule_.actionList);
    rule_.lstIdx = src->lstIdx;
    rule_.ruleIdx = src->ruleIdx;
    rule_.priority = src->priority;
    rule_.layerType = src->layerType;
    std::memcpy(rule_.fieldBits, src->fieldBits, sizeof rule_.fieldBits);
    rule_.status = ACL_RULE_STATUS_VALID;
    for (AclValueEntry* e = aclValueFirst(src); e != nullptr; e = aclValueNext(src, e)) {
      const auto v = aclValueBytes(e);
      result_ = v.size() <= ACL_SHORT_VALUE_LEN
                    ? aclRuleShortEntryAdd(&rule_, e->code, v.data(), e->len)
                    : aclRuleLongEntryAdd(&rule_, e->code, v.data(), e->len);
      if (result_ != 0) return;
    }
    result_ = aclShortActionEntryAdd(&rule_, RULE_ACTION_DENY, ACL_ACTION_NO_SLOT, nullptr, 0);
    aclBitSet(rule_.actionBits, RULE_ACTION_DENY);
    aclBitSet(rule_.fieldBits, RULE_BIT_ACTION);
  }
  ~DenyCopy() {
    aclRuleListDel(&rule_);
    aclActionListDel(&rule_);
    aclOutActionListDel(&rule_);
  }
  DenyCopy(const DenyCopy&) = delete;
  DenyCopy& operator=(const DenyCopy&) = delete;

  AclRuleEntry* get() { return &rule_; }
  int32_t result() const { return result_; }

 private:
  AclRuleEntry rule_;
  int32_t result_ = 0;
};

AclRuleEntry* firstRule(AclListEntry* list) {
  return static_cast<AclRuleEntry*>(avl_first(&list->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* list, AclRuleEntry* rule) {
  return static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, rule));
}

int32_t copyAndInstall(AclListEntry* list, AclRuleEntry* rule, const uint8_t* target) {
  DenyCopy copy(rule);
  if (copy.result() != 0) return copy.result();
  return aclBlackListRuleHwAdd(list, copy.get(), target);
}

int32_t copyAndRemove(AclListEntry* list, AclRuleEntry* rule, const uint8_t* target) {
  DenyCopy copy(rule);
  if (copy.result() != 0) return copy.result();
  return aclBlackListRuleHwDel(list, copy.get(), target);
}

void logResult(bool add, const AclListEntry* list, uint32_t ruleIdx, int32_t ret) {
  aclDebug(ACL_LOG_GLOBAL,
           add ? "ACL Cpudefend black list add info=[list = %d rule = %d dir = %d refCnt = %d "
                 "errcode %x].\r\n"
               : "ACL Cpudefend black list del info=[list = %d rule = %d dir = %d refCnt = %d "
                 "errcode %x].\r\n",
           static_cast<int>(list->lstIdx), static_cast<int>(ruleIdx), 0, list->refCnt,
           static_cast<unsigned>(ret));
}

int32_t delChecks(AclListEntry* list) {
  if (list == nullptr) return CMN_ERR_BAD_PARAM;
  if (list->ruleNum == 0) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL Cpudefend black list del error. (Reason=[filter-list %d rule num is ERROR])\r\n",
             static_cast<int>(list->lstIdx));
    return ACL_ERR_LIST_EMPTY;
  }
  return 0;
}

bool targetInRange(uint32_t sys, uint32_t slot) {
  return sys <= ACL_BLACKLIST_SYS_MAX && slot <= ACL_BLACKLIST_SLOT_MAX;
}

}  // namespace

void aclBlackListTargetBuild(uint32_t sys, uint32_t slot,
                             std::span<uint8_t, ACL_BLACKLIST_TARGET_LEN> target) {
  std::fill(target.begin(), target.end(), 0);
  if (sys == 0 || slot == 0 || !targetInRange(sys, slot)) return;
  target[TARGET_MODE] = TARGET_MODE_SLOT;
  aclBitSet(target.subspan(TARGET_SYS_BITS, 2), sys - 1);
  aclBitSet(
      target.subspan(TARGET_SLOT_BITS + TARGET_SLOT_BITS_LEN * (sys - 1), TARGET_SLOT_BITS_LEN),
      slot - 1);
}

AclBlackListEntry* aclBlackListEntryGet(uint32_t sys, uint32_t slot, uint32_t lstIdx) {
  AclBlackListEntry key{};
  key.sys = sys;
  key.slot = slot;
  key.lstIdx = lstIdx;
  return static_cast<AclBlackListEntry*>(avl_find(&gaclGrp.blackListTree, &key, nullptr));
}

AclBlackListEntry* aclBlackListEntryAdd(uint32_t sys, uint32_t slot, uint32_t lstIdx) {
  if (aclBlackListEntryGet(sys, slot, lstIdx) != nullptr) return nullptr;
  auto* e = static_cast<AclBlackListEntry*>(silMemPoolAlloc(gaclGrp.blackListPool, nullptr));
  if (e == nullptr) return nullptr;
  std::memset(e, 0, sizeof *e);
  e->sys = sys;
  e->slot = slot;
  e->lstIdx = lstIdx;
  avl_add(&gaclGrp.blackListTree, e);
  return e;
}

int32_t aclBlackListEntryDel(AclBlackListEntry* entry) {
  if (entry == nullptr) return 0;
  avl_remove(&gaclGrp.blackListTree, entry);
  std::memset(entry, 0, sizeof *entry);
  silMemPoolFree(gaclGrp.blackListPool, entry);
  return 0;
}

int32_t aclBlackListRuleHwAdd(AclListEntry* list, AclRuleEntry* copy, const uint8_t* target) {
  if (list == nullptr || copy == nullptr) return CMN_ERR_BAD_PARAM;
  std::array<uint8_t, ACL_DEV_TLV_BUF_LEN> buf{};
  int32_t ret = 0;
  if (gaclGrp.tlvEnable == 0) {
    ret = static_cast<int32_t>(aclDevTrans(copy, buf.data(), ACL_DIR_INGRESS, list->counterShared,
                                           list->meterShared, copy->priority, 0, 0, 0));
    if (ret != 0) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL Cpudefend black list add error. (Reason=[dev trans error])\r\n");
      return ret;
    }
    be::store32(buf, acldev::kActiveRuleNum, list->ruleNum);
    ret = aclRuleGlbAdd(buf.data(), ACL_DIR_INGRESS, target);
  } else {
    uint16_t len = 0;
    ret = static_cast<int32_t>(aclDevTransNew(copy, ACL_DIR_INGRESS, 0, list->counterShared,
                                              list->meterShared, copy->priority, 0, list->ruleNum,
                                              0, 0, 0, buf.data(), &len));
    if (ret != 0) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL Cpudefend black list add error. (Reason=[dev trans error])\r\n");
      return ret;
    }
    ZorBufDesc desc{buf.data(), len};
    ret = aclRuleGlbUpdate(&desc, target);
  }
  if (ret != 0)
    aclDebug(ACL_LOG_GLOBAL, "ACL Cpudefend black list add error. (Reason=[hw error])\r\n");
  return ret;
}

int32_t aclBlackListRuleHwDel(AclListEntry* list, AclRuleEntry* copy, const uint8_t* target) {
  if (list == nullptr || copy == nullptr) return CMN_ERR_BAD_PARAM;
  std::array<uint8_t, ACL_DEV_TLV_BUF_LEN> buf{};
  int32_t ret = 0;
  if (gaclGrp.tlvEnable == 0) {
    ret = static_cast<int32_t>(aclDevTrans(copy, buf.data(), ACL_DIR_INGRESS, list->counterShared,
                                           list->meterShared, copy->priority, 0, 0, 0));
    if (ret != 0) return ret;
    be::store32(buf, acldev::kActiveRuleNum, list->ruleNum);
    ret = aclRuleGlbDel(buf.data(), ACL_DIR_INGRESS, target);
  } else {
    uint16_t len = 0;
    ret = static_cast<int32_t>(aclDevTransNew(copy, ACL_DIR_INGRESS, 1, list->counterShared,
                                              list->meterShared, copy->priority, 0, list->ruleNum,
                                              0, 0, 0, buf.data(), &len));
    if (ret != 0) return ret;
    ZorBufDesc desc{buf.data(), len};
    ret = aclRuleGlbUpdate(&desc, target);
  }
  if (ret != 0)
    aclDebug(ACL_LOG_GLOBAL, "ACL Cpudefend black list del error. (Reason=[hw error])\r\n");
  return ret;
}

int32_t _aclBlackListAdd(AclListEntry* list, const uint8_t* target) {
  if (list == nullptr) return CMN_ERR_BAD_PARAM;
  if (list->ruleNum == 0) return ACL_ERR_LIST_EMPTY;
  for (AclRuleEntry* rule = firstRule(list); rule != nullptr; rule = nextRule(list, rule)) {
    rule->priority = static_cast<uint16_t>(rule->ruleIdx);
    const int32_t ret = copyAndInstall(list, rule, target);
    if (ret == 0) continue;
    // Take back every rule up to the failing one; a removal that fails changes nothing more.
    for (AclRuleEntry* r = firstRule(list); r != nullptr && r->ruleIdx <= rule->ruleIdx;
         r = nextRule(list, r)) {
      copyAndRemove(list, r, target);
    }
    logResult(true, list, rule->ruleIdx, ret);
    return ret;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL Cpudefend black list add info=[list = %d rule = %d dir = %d refCnt = %d OK].\r\n",
           static_cast<int>(list->lstIdx), 0, 0, list->refCnt);
  return 0;
}

int32_t _aclBlackListDel(AclListEntry* list, const uint8_t* target) {
  if (const int32_t ret = delChecks(list)) return ret;
  for (AclRuleEntry* rule = firstRule(list); rule != nullptr; rule = nextRule(list, rule)) {
    const int32_t ret = copyAndRemove(list, rule, target);
    if (ret == 0) continue;
    logResult(false, list, rule->ruleIdx, ret);
    return ret;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL Cpudefend black list del info=[list = %d rule = %d dir = %d refCnt = %d OK].\r\n",
           static_cast<int>(list->lstIdx), 0, 0, list->refCnt);
  return 0;
}

int32_t _aclBlackListAddOne(AclListEntry* list, AclRuleEntry* rule, const uint8_t* target) {
  if (list == nullptr || rule == nullptr) return CMN_ERR_BAD_PARAM;
  if (list->ruleNum == 0) return ACL_ERR_LIST_EMPTY;
  rule->priority = static_cast<uint16_t>(rule->ruleIdx);
  const int32_t ret = copyAndInstall(list, rule, target);
  logResult(true, list, rule->ruleIdx, ret);
  return ret;
}

int32_t _aclBlackListDelOne(AclListEntry* list, AclRuleEntry* rule, const uint8_t* target) {
  if (rule == nullptr) return CMN_ERR_BAD_PARAM;
  if (const int32_t ret = delChecks(list)) return ret;
  const int32_t ret = copyAndRemove(list, rule, target);
  logResult(false, list, rule->ruleIdx, ret);
  return ret;
}

int32_t aclBlackListAdd(uint32_t sys, uint32_t slot, uint32_t lstIdx) {
  aclDebug(ACL_LOG_GLOBAL, "ACL Cpudefend black list add. (system=[%d], slot=[%d], list=[%d])\r\n",
           static_cast<int>(sys), static_cast<int>(slot), static_cast<int>(lstIdx));
  if (lstIdx == 0 || !targetInRange(sys, slot)) return CMN_ERR_BAD_PARAM;
  std::array<uint8_t, ACL_BLACKLIST_TARGET_LEN> target{};
  aclBlackListTargetBuild(sys, slot, target);
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  if (aclBlackListEntryGet(sys, slot, lstIdx) != nullptr) return 0;
  AclBlackListEntry* entry = aclBlackListEntryAdd(sys, slot, lstIdx);
  if (entry == nullptr) return CMN_ERR_NO_RESOURCE;
  const int32_t ret = _aclBlackListAdd(list, target.data());
  if (ret == 0) {
    ++list->refCnt;
  } else {
    aclBlackListEntryDel(entry);
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL Cpudefend black list add. (system=[%d], slot=[%d], list=[%d], ret=[%d])\r\n",
           static_cast<int>(sys), static_cast<int>(slot), static_cast<int>(lstIdx), ret);
  return ret;
}

int32_t aclBlackListDel(uint32_t sys, uint32_t slot, uint32_t lstIdx) {
  aclDebug(ACL_LOG_GLOBAL, "ACL Cpudefend black list del. (system=[%d], slot=[%d], list=[%d])\r\n",
           static_cast<int>(sys), static_cast<int>(slot), static_cast<int>(lstIdx));
  std::array<uint8_t, ACL_BLACKLIST_TARGET_LEN> target{};
  aclBlackListTargetBuild(sys, slot, target);
  AclBlackListEntry* entry = aclBlackListEntryGet(sys, slot, lstIdx);
  if (entry == nullptr) return 0;
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  const int32_t ret = _aclBlackListDel(list, target.data());
  if (ret == 0) {
    --list->refCnt;
    aclBlackListEntryDel(entry);
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL Cpudefend black list del. (system=[%d], slot=[%d], list=[%d], ret=[%d])\r\n",
           static_cast<int>(sys), static_cast<int>(slot), static_cast<int>(lstIdx), ret);
  return ret;
}

int32_t aclBlackListDynamicRuleSet(AclListEntry* list, AclRuleEntry* rule, uint32_t op) {
  if (list == nullptr) return 0;
  for (auto* e = static_cast<AclBlackListEntry*>(avl_first(&gaclGrp.blackListTree)); e != nullptr;
       e = static_cast<AclBlackListEntry*>(avl_next(&gaclGrp.blackListTree, e))) {
    if (e->lstIdx != list->lstIdx) continue;
    std::array<uint8_t, ACL_BLACKLIST_TARGET_LEN> target{};
    aclBlackListTargetBuild(e->sys, e->slot, target);
    // Only the first blacklisting of the list follows its rules.
    return op != 0 ? _aclBlackListAddOne(list, rule, target.data())
                   : _aclBlackListDelOne(list, rule, target.data());
  }
  return 0;
}
