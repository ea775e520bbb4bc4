// The pieces every interface binding path shares: the binding's priority, the translation and
// command of one rule (interface, aggregation or GEM port), and the statistics records of counted
// rules, shared per list or held per binding.
#include <cstring>
#include <span>

#include "hw/acl_bind_slot.h"
#include "hw/acl_if_internal.h"
#include "main/acl_log.h"
#include "stats/acl_gemport_stats.h"
#include "stats/acl_stats.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

uint16_t aclIfPriority(uint32_t kind, bool gemPort, uint32_t ruleIdx) {
  uint32_t base = aclBindKindIsHybrid(kind) ? ACL_IF_PRIORITY_HYBRID : 0;
  if (!gemPort) base += ACL_IF_PRIORITY_BASE;
  return static_cast<uint16_t>(base + ruleIdx);
}

namespace aclif {

Binding binding(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t dir, uint32_t kind) {
  return Binding{ifIndex, onuId, gemPort, dir, kind, aclIfName(ifIndex, kAclIfNameLenBind)};
}

int32_t sendRule(Buffer& buf, const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
                 const Send& how, bool* transFailed) {
  *transFailed = false;
  const auto dir8 = static_cast<uint8_t>(b.dir);
  const uint16_t priority = b.priority(r->ruleIdx);
  // A GEM binding's rules, one by one or as a list, always go to its GEM key: a single rule's
  // removal must reach the table the list's install filled.
  const bool toGem = b.gem();
  if (buf.tlv()) {
    std::memset(buf.data(), 0, buf.len());
    uint16_t len = 0;
    const uint32_t ret = aclDevTransNew(
        r, dir8, how.remove ? 1 : 0, list->counterShared, list->meterShared, priority,
        how.aggIfIndex, list->activeRuleNum, b.onuId, b.gemPort, 0, buf.data(), &len);
    if (ret != 0) {
      *transFailed = true;
      return static_cast<int32_t>(ret);
    }
    ZorBufDesc desc{buf.data(), len};
    return toGem ? aclRuleGemPortUpdate(b.ifIndex, b.onuId, b.gemPort, &desc, how.target)
                 : aclRuleIfHwilUpdateTlv(b.ifIndex, &desc, how.target);
  }
  // The translation clears the whole record itself; the kept record goes out as it is.
  const uint8_t* dev = aclDevTransView(
      r, buf.data(),
      AclDevWords{dir8, list->counterShared, list->meterShared, priority, b.onuId, b.gemPort, 0,
                  how.aggIfIndex, how.recordActiveNum ? list->activeRuleNum : 0});
  if (dev == nullptr) {
    *transFailed = true;
    return static_cast<int32_t>(CMN_ERR_BAD_PARAM);
  }
  if (toGem) {
    return how.remove ? aclRuleGemPortDel(b.ifIndex, b.onuId, b.gemPort, dev, b.dir, how.target)
                      : aclRuleGemPortAdd(b.ifIndex, b.onuId, b.gemPort, dev, b.dir, how.target);
  }
  return aclRuleIfHwilUpdate(b.ifIndex, how.remove ? HWIL_CMD_IF_DEL : HWIL_CMD_IF_ADD, dev, b.dir,
                             how.target);
}

namespace {

AclStatsIndex sharedIndex(const AclRuleEntry* r, const Binding& b) {
  return AclStatsIndex{r->lstIdx, r->ruleIdx, 0, static_cast<uint16_t>(b.dir)};
}
AclStatsIndex ifIndexKey(const AclRuleEntry* r, const Binding& b) {
  return AclStatsIndex{r->lstIdx, r->ruleIdx, b.ifIndex, static_cast<uint16_t>(b.dir)};
}
AclGemStatsIndex gemIndex(const AclRuleEntry* r, const Binding& b) {
  return AclGemStatsIndex{r->lstIdx, r->ruleIdx, b.ifIndex,
                          b.onuId,   b.gemPort,  static_cast<uint16_t>(b.dir)};
}

}  // namespace

bool statsTake(const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
               const AclBindStats& stats) {
  if (list->counterShared == 1) {
    if (AclStatsEntry* shared = aclStatsGetEntry(sharedIndex(r, b))) {
      ++shared->refCnt;
      return true;
    }
  }
  AclStatsEntry* s = aclStatsMalloc();
  if (s == nullptr) return false;
  s->lstIdx = r->lstIdx;
  s->ruleIdx = r->ruleIdx;
  s->dir = static_cast<int8_t>(b.dir);
  s->bindOp = stats.op();
  if (list->counterShared == 1) {
    s->refCnt = 1;
    aclStatsAdd(s);
  } else if (b.gem()) {
    s->ifIndex = b.ifIndex;
    s->gemUnit = b.ifIndex;
    s->onuId = b.onuId;
    s->gemPortId = b.gemPort;
    aclGemPortStatsEntryAdd(s);
  } else {
    s->ifIndex = b.ifIndex;
    aclIfStatsAdd(s);
  }
  // The key already had its record (the list is bound twice on this key): keep that one.
  if (s->inList == 0) aclStatsFree(s);
  return true;
}

void statsGiveBack(const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
                   const AclBindStats& stats) {
  if (list->counterShared == 1) {
    const AclStatsIndex index = sharedIndex(r, b);
    AclStatsEntry* s = aclStatsGetEntry(index);
    if (s == nullptr) return;
    if (s->bindOp != stats.op()) {
      if (s->refCnt > 0) --s->refCnt;
    } else if (aclStatsDel(index) == 0) {
      aclStatsFree(s);
    }
    return;
  }
  if (b.gem()) {
    const AclGemStatsIndex index = gemIndex(r, b);
    AclStatsEntry* s = aclGemPortStatsEntryGet(index);
    if (s != nullptr && s->bindOp == stats.op() && aclGemPortStatsEntryDel(index) == 0) {
      aclStatsFree(s);
    }
    return;
  }
  const AclStatsIndex index = ifIndexKey(r, b);
  AclStatsEntry* s = aclIfStatsGetEntry(index);
  if (s != nullptr && s->bindOp == stats.op() && aclIfStatsDel(index) == 0) aclStatsFree(s);
}

void statsGive(const AclRuleEntry* r, const AclListEntry* list, const Binding& b, const char* op) {
  const int lst = static_cast<int>(r->lstIdx);
  if (list->counterShared == 1) {
    const AclStatsIndex index = sharedIndex(r, b);
    AclStatsEntry* s = aclStatsGetEntry(index);
    if (s != nullptr && s->refCnt >= 2) {
      --s->refCnt;
      return;
    }
    if (s == nullptr || aclStatsDel(index) != 0) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [%s] error. (Reason=[filter %d/%u delete stats ERROR.])\r\n", op, lst,
               r->ruleIdx);
      return;
    }
    aclStatsFree(s);
    return;
  }
  if (b.gem()) {
    const AclGemStatsIndex index = gemIndex(r, b);
    AclStatsEntry* s = aclGemPortStatsEntryGet(index);
    if (s == nullptr || aclGemPortStatsEntryDel(index) != 0) {
      aclDebug(ACL_LOG_IF,
               "ACL onu [%s] error. (Reason=[filter %d/%u delete if(%s) onu(%u) gemport(%u) stats "
               "ERROR.])\r\n",
               op, lst, r->ruleIdx, b.name.text, static_cast<unsigned>(b.onuId),
               static_cast<unsigned>(b.gemPort));
      return;
    }
    aclStatsFree(s);
    return;
  }
  const AclStatsIndex index = ifIndexKey(r, b);
  AclStatsEntry* s = aclIfStatsGetEntry(index);
  if (s == nullptr || aclIfStatsDel(index) != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [%s] error. (Reason=[filter %d/%u delete if(%s) stats ERROR.])\r\n", op,
             lst, r->ruleIdx, b.name.text);
    return;
  }
  aclStatsFree(s);
}

uint32_t previousRuleIdx(AclListEntry* list, AclRuleEntry* r) {
  auto* prev = static_cast<AclRuleEntry*>(avl_prev(&list->ruleTree, r));
  return prev != nullptr ? prev->ruleIdx : 0;
}

void rollback(AclListEntry* list, uint32_t lastRuleIdx, uint32_t failingRuleIdx, const Binding& b,
              const uint8_t* target, const AclBindStats* stats) {
  if (lastRuleIdx == 0) return;
  // The list's refCnt does not count this binding yet: it is the last one when nothing else holds
  // the list. A hardware-only install names the interface as its own parent, as its removal does.
  const bool bookkeeping = stats != nullptr;
  DelMode mode{bookkeeping, 0, bookkeeping ? 0 : b.ifIndex, failingRuleIdx, stats};
  delWalk(list, lastRuleIdx, b, target, mode);
}

}  // namespace aclif
