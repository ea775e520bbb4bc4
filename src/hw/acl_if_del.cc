// Taking a filter list (or one of its rules) off an interface or GEM port: the removal walk from
// the highest rule down with statistics and next-hop release, and the hardware-only removals used
// while aggregations, cards and next hops change.
#include "hw/acl_gemport_record.h"
#include "hw/acl_if_internal.h"
#include "hw/acl_if_record.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

using namespace aclglb;

namespace {

constexpr uint32_t kLogHwDelFailed = 13;

int lst(uint32_t lstIdx) {
  return static_cast<int>(lstIdx);
}

// Buffer failure of a removal: -1 for the TLV buffer, 12 for the record.
int32_t bufferFailed(const char* op, uint32_t lstIdx, bool tlv) {
  if (tlv) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [%s] error. (Reason=[filter-list %d malloc pTlvBuffer error])\r\n", op,
             lst(lstIdx));
    return -1;
  }
  aclDebug(ACL_LOG_IF, "ACL interface [%s] error. (Reason=[filter-list %d malloc dev error])\r\n",
           op, lst(lstIdx));
  return 12;
}

// The binding's record must exist: the GEM port's, or the interface's unless the interface
// manager keeps none for it (flag word 13), in which case the removal goes on without one.
int32_t recordCheck(const aclif::Binding& b, const char* op) {
  if (b.gem()) {
    return aclGemPortEntryGet(b.ifIndex, b.onuId, b.gemPort) != nullptr ? 0 : ACL_ERR_IF_NOT_EXIST;
  }
  if (aclIfEntryGet(b.ifIndex) != nullptr) return 0;
  uint8_t word[4] = {};
  if (zorIfGetApi(b.ifIndex, ZOR_IF_FIELD_FLAGS13, word) == 0 && be::load32(word) == 1) return 0;
  aclDebug(ACL_LOG_IF, "ACL interface [%s] error. (Reason=[interface %d node get ERROR])\r\n", op,
           static_cast<int>(b.ifIndex));
  return ACL_ERR_IF_NOT_EXIST;
}

}  // namespace

namespace aclif {

const char* dirName(uint32_t dir) {
  switch (dir) {
    case 0:
      return "in";
    case 1:
      return "out";
    case 2:
      return "vfp";
    default:
      return "unkown";
  }
}

int32_t delWalk(AclListEntry* list, uint32_t lastRuleIdx, const Binding& b, const uint8_t* target,
                const DelMode& mode) {
  const char* op = mode.bookkeeping ? "del acl" : "delete from hw";
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) return bufferFailed(op, list->lstIdx, buf.tlv());
  const Send how{true, target, false, mode.aggIfIndex};
  for (auto* r = static_cast<AclRuleEntry*>(avl_last(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_prev(&list->ruleTree, r))) {
    if (!statusValid(r) || (lastRuleIdx != 0 && r->ruleIdx > lastRuleIdx)) continue;
    const ParamBlock block = paramBlock(r);
    // Decided before the release, which leaves both counts at 0 on the last binding.
    const bool installed = nextHopsReady(r, block);
    if (mode.bookkeeping) {
      nextHopRelease(r, list->refCnt == mode.lastBindingRefCnt, block, kNhIf);
    }
    if (timeRangeOff(r) || hasVrf(r)) continue;
    if (!installed) {
      if (!mode.bookkeeping) {
        aclDebug(ACL_LOG_IF,
                 "ACL interface [del acl] info = [filter %d/%u arp not learn, continue.]\r\n",
                 lst(r->lstIdx), r->ruleIdx);
      }
      continue;
    }
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, b, how, &transFailed);
    if (ret != 0) {
      if (transFailed) {
        aclDebug(ACL_LOG_IF,
                 "ACL interface [%s] error. (Reason=[filter %d/%u dev trans error])\r\n", op,
                 lst(r->lstIdx), r->ruleIdx);
      } else {
        aclDebug(ACL_LOG_IF,
                 "ACL interface [%s] error. (Reason=[filter %d/%u delete error. (dir = %d, "
                 "interface %s)])\r\n",
                 op, lst(r->lstIdx), r->ruleIdx, static_cast<int>(b.dir), b.name.text);
      }
      if (r->ruleIdx != mode.failingRuleIdx) return ret;
    }
    if (mode.bookkeeping) {
      if (hasAction(r, RULE_ACTION_AWARE)) {
        if (mode.rollbackOf != nullptr) {
          statsGiveBack(r, list, b, *mode.rollbackOf);
        } else {
          statsGive(r, list, b, op);
        }
      }
      if (ret == 0) {
        aclDebug(ACL_LOG_IF,
                 "ACL interface [del acl] . (Info=[filter %d/%u del ok. (dir = %d, interface "
                 "%s)])\r\n",
                 lst(r->lstIdx), r->ruleIdx, static_cast<int>(b.dir), b.name.text);
      }
    }
  }
  if (mode.bookkeeping) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [del acl] info=[interface %s, self = %d dir = %d refCnt = %d OK].\r\n",
             b.name.text, lst(list->lstIdx), static_cast<int>(b.dir),
             static_cast<int>(list->refCnt));
  } else {
    aclDebug(ACL_LOG_IF,
             "ACL interface [delete from hw] info = [filter %d (end rule %u) delete from hw for "
             "interface %s OK]\r\n",
             lst(list->lstIdx), lastRuleIdx, b.name.text);
  }
  return 0;
}

}  // namespace aclif

using namespace aclif;

int32_t aclIfDel(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                 uint32_t dir, const uint8_t* target, uint32_t kind) {
  return aclIfDelpart(ifIndex, onuId, gemPort, list, 0, dir, target, kind);
}

int32_t aclIfDelpart(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                     uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target, uint32_t kind) {
  if (list == nullptr) return CMN_ERR_BAD_PARAM;
  const Binding b = binding(ifIndex, onuId, gemPort, dir, kind);
  if (const int32_t ret = recordCheck(b, "del acl"); ret != 0) return ret;
  return delWalk(list, lastRuleIdx, b, target, DelMode{true, 1, 0});
}

int32_t aclIfRuleDelOne(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                        AclRuleEntry* rule, uint32_t dir, uint32_t kind) {
  constexpr const char* kOp = "del rule acl";
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [del rule acl] error. (Reason=[filter-list entry is NULL])\r\n");
    return ACL_ERR_LIST_NOT_EXIST;
  }
  const Binding b = binding(ifIndex, onuId, gemPort, dir, kind);
  if (const int32_t ret = recordCheck(b, kOp); ret != 0) return ret;
  if (rule == nullptr) return ACL_ERR_LIST_EMPTY;
  // A rule whose next hops are not all resolved never went in, so there is nothing to take out.
  if (!statusValid(rule) || hasVrf(rule) || !nextHopsReady(rule, paramBlock(rule))) return 0;
  if (timeRangeOff(rule)) return ACL_ERR_SHARED_IN_USE;
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) return bufferFailed(kOp, list->lstIdx, buf.tlv());
  bool transFailed = false;
  const int32_t ret = sendRule(buf, rule, list, b, Send{true, nullptr}, &transFailed);
  if (ret != 0) {
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [del rule acl] error. (Reason=[filter %d/%u dev trans error])\r\n",
               lst(rule->lstIdx), rule->ruleIdx);
    } else {
      aclDebug(ACL_LOG_IF,
               "ACL interface [del acl rule] error. (Reason=[filter %d/%u delete error. (dir = %d, "
               "interface %s)])\r\n",
               lst(rule->lstIdx), rule->ruleIdx, static_cast<int>(dir), b.name.text);
    }
    return ret;
  }
  if (hasAction(rule, RULE_ACTION_AWARE)) statsGive(rule, list, b, kOp);
  aclDebug(ACL_LOG_IF,
           "ACL interface [del rule acl] . (Info=[filter %d/%u del ok. (dir = %d, if = %s)])\r\n",
           lst(rule->lstIdx), rule->ruleIdx, static_cast<int>(dir), b.name.text);
  aclDebug(ACL_LOG_IF,
           "ACL interface [del rule acl] info=[self = %d dir = %d refCnt = %d ret %d].\r\n",
           lst(list->lstIdx), static_cast<int>(dir), static_cast<int>(list->refCnt), 0);
  return 0;
}

int32_t _aclIfHwDelpart(uint32_t ifIndex, uint32_t parentUnit, uint16_t onuId, uint16_t gemPort,
                        uint32_t lstIdx, uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target,
                        uint32_t kind) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [delete from hw] error. (Reason=[filter-list %d entry is NULL])\r\n",
             lst(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  return delWalk(list, lastRuleIdx, binding(ifIndex, onuId, gemPort, dir, kind), target,
                 DelMode{false, 1, parentUnit});
}

int32_t aclIfHwDelpart(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                       uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target, uint32_t kind) {
  return _aclIfHwDelpart(ifIndex, ifIndex, onuId, gemPort, lstIdx, lastRuleIdx, dir, target, kind);
}

int32_t aclIfHwDel(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                   uint32_t dir, uint32_t kind) {
  const int32_t ret = aclIfHwDelpart(ifIndex, onuId, gemPort, lstIdx, 0, dir, nullptr, kind);
  if (ret != 0) {
    aclOperLogClass(kLogHwDelFailed,
                    "Delete interface hardware acl failed. (ifName=[%s], list=[%u], rule=[%u], "
                    "dir=[%s], ret=[%u])\r\n",
                    aclIfName(ifIndex, kAclIfNameLen).text, lstIdx, 0u, dirName(dir),
                    static_cast<uint32_t>(ret));
  }
  return ret;
}

int32_t aclIfHwDelWithParentunit(uint32_t ifIndex, uint32_t parentUnit, uint32_t lstIdx,
                                 uint32_t dir, uint32_t kind) {
  return _aclIfHwDelpart(ifIndex, parentUnit, 0, 0, lstIdx, 0, dir, nullptr, kind);
}

int32_t aclIfHwDelone(uint32_t ifIndex, uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir,
                      uint32_t kind) {
  return aclGemPortHwDelone(ifIndex, 0, 0, lstIdx, ruleIdx, dir, kind);
}

int32_t aclGemPortHwDelone(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                           uint32_t ruleIdx, uint32_t dir, uint32_t kind) {
  constexpr const char* kOp = "delete rule from hw";
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [delete rule from hw] error. (Reason=[filter-list %d entry is "
             "NULL])\r\n",
             lst(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) return bufferFailed(kOp, lstIdx, buf.tlv());
  const Binding b = binding(ifIndex, onuId, gemPort, dir, kind);
  AclRuleEntry* r = aclRuleEntryGet(list, ruleIdx);
  if (r == nullptr || !statusValid(r) || timeRangeOff(r) || hasVrf(r)) return 0;
  bool transFailed = false;
  const int32_t ret = sendRule(buf, r, list, b, Send{true, nullptr}, &transFailed);
  if (ret != 0) {
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [delete rule from hw] error. (Reason=[filter %d/%u dev trans "
               "error])\r\n",
               lst(lstIdx), ruleIdx);
    } else {
      aclDebug(ACL_LOG_IF,
               "ACL interface [delete rule from hw] error. (Reason=[filter %d/%u delete error. "
               "(dir = %d, interface %s)])\r\n",
               lst(lstIdx), ruleIdx, static_cast<int>(dir), b.name.text);
    }
    return ret;
  }
  aclDebug(ACL_LOG_IF,
           "ACL interface [delete rule from hw] info = [filter %d/%u delete from hw for interface "
           "%s OK]\r\n",
           lst(lstIdx), ruleIdx, b.name.text);
  return 0;
}
