// Installing a filter list (or one of its rules) on an interface or GEM port: the eligibility walk,
// the hardware priority, next-hop registration, statistics per binding, and what a failure leaves
// behind (a rollback of everything this call installed, or for a redirect rule the list's
// next-hop retry).
#include <array>

#include "control/acl_nexthop.h"
#include "hw/acl_if_internal.h"
#include "hw/acl_if_record.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "wire/acl_ret.h"

using namespace aclglb;
using namespace aclif;

namespace {

constexpr uint32_t kLogHwAddFailed = 14;

int lst(uint32_t lstIdx) {
  return static_cast<int>(lstIdx);
}

bool located(uint32_t ifIndex) {
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(ifIndex, ZOR_TRANS_LOCATION, location.data()) == 0) return true;
  aclDebug(ACL_LOG_IF, "ACL interface [add acl] error. (Reason=[interface %d get ERROR])\r\n",
           static_cast<int>(ifIndex));
  return false;
}

void bufferFailed(const char* op, uint32_t lstIdx, bool tlv) {
  if (tlv) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [%s] error. (Reason=[filter-list %d malloc pTlvBuffer error])\r\n", op,
             lst(lstIdx));
  } else {
    aclDebug(ACL_LOG_IF, "ACL interface [%s] error. (Reason=[filter-list %d malloc dev error])\r\n",
             op, lst(lstIdx));
  }
}

// A list without rules binds only when dynamic binding may fill it later.
bool emptyRefused(const AclListEntry* list) {
  return list->ruleNum == 0 && gaclGrp.dynamicBindEnable != 1;
}

void statsFailed(uint32_t lstIdx) {
  aclDebug(ACL_LOG_IF,
           "ACL interface [add rule acl] error. (Reason=[filter-list %d stats malloc ERROR])\r\n",
           lst(lstIdx));
}

const char* ownerName(uint8_t owner) {
  switch (owner) {
    case ACL_BIND_OWNER_PBR:
      return "pbr";
    case ACL_BIND_OWNER_TRAFFIC:
      return "trafficpolicy";
    default:
      return "acl";
  }
}

// A counted rule needs a statistics record for this binding; pre-stage bindings have no counters.
int32_t statsFor(const AclRuleEntry* r, const AclListEntry* list, const Binding& b,
                 const AclBindStats& stats) {
  if (!hasAction(r, RULE_ACTION_AWARE)) return 0;
  if (aclBindKindIsVfp(b.kind)) return CMN_ERR_NOT_SUPPORTED;
  if (!statsTake(r, list, b, stats)) {
    statsFailed(list->lstIdx);
    return CMN_ERR_NO_RESOURCE;
  }
  return 0;
}

AclRuleEntry* firstRule(AclListEntry* list) {
  return static_cast<AclRuleEntry*>(avl_first(&list->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* list, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r));
}

}  // namespace

int32_t aclIfAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                 uint32_t dir, const uint8_t* target, uint32_t kind) {
  if (!located(ifIndex)) return ACL_IF_ERR_NO_LOCATION;
  if (list == nullptr) return CMN_ERR_BAD_PARAM;
  if (emptyRefused(list)) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl] error. (Reason=[filter-list %d rule num is %d])\r\n",
             lst(list->lstIdx), static_cast<int>(list->ruleNum));
    return ACL_ERR_LIST_EMPTY;
  }
  if (const int32_t ret = aclRuleStatusCheck(list); ret != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl] error. (Reason=[filter-list %d rule status is ERROR])\r\n",
             lst(list->lstIdx));
    return ret;
  }
  const AclIfListEntry* entry =
      aclIfListGet(ifIndex, static_cast<uint8_t>(kind), static_cast<uint8_t>(dir), list->lstIdx, 0);
  if (entry != nullptr && entry->bindOwner != ACL_BIND_OWNER_ACL) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl] error. (Reason=[filter-list %d rule is binded by %s])\r\n",
             lst(list->lstIdx), ownerName(entry->bindOwner));
    return ACL_ERR_SHARED_IN_USE;
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed("add acl", list->lstIdx, buf.tlv());
    return -1;
  }

  const Binding b = binding(ifIndex, onuId, gemPort, dir, kind);
  const Send how{false, target, true};
  const AclBindStats stats;
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    if (!statusValid(r)) continue;
    r->priority = b.priority(r->ruleIdx);
    const ParamBlock block = paramBlock(r);
    if (nextHopRegister(r, block, kNhIf) != 0) {
      // What this rule registered before the refusal goes back with the rules before it.
      nextHopRelease(r, list->refCnt == 0, block, kNhIf);
      rollback(list, previousRuleIdx(list, r), 0, b, target, &stats);
      return CMN_ERR_NO_RESOURCE;
    }
    if (!nextHopsReady(r, block)) {
      nextHopNotReadyLog(r, block, kNhIf);
      continue;
    }
    if (timeRangeOff(r) || hasVrf(r)) continue;
    // Neither a refused counted rule nor one without a statistics record reaches the hardware:
    // the binding would count nothing while it says it does.
    if (const int32_t ret = statsFor(r, list, b, stats); ret != 0) {
      rollback(list, previousRuleIdx(list, r), 0, b, target, &stats);
      return ret;
    }
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, b, how, &transFailed);
    if (ret == 0) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl] . (Info=[filter %d/%u add ok. (dir = %d, interface "
               "%s)])\r\n",
               lst(r->lstIdx), r->ruleIdx, static_cast<int>(dir), b.name.text);
      continue;
    }
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl] error. (Reason=[filter %d/%u tlv trans error])\r\n",
               lst(r->lstIdx), r->ruleIdx);
    } else {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl] error. (Reason=[filter %d/%u add error. (dir = %d, "
               "interface %s)])\r\n",
               lst(r->lstIdx), r->ruleIdx, static_cast<int>(dir), b.name.text);
      if (hasNextHopAction(r)) {
        // Retried with the whole list once its next hops settle, instead of failing the binding.
        aclDebug(ACL_LOG_IF,
                 "ACL interface [add acl] error. (Info=[filter %d  add nexthop timer])\r\n",
                 lst(list->lstIdx));
        aclNextHopTimerRestart(list);
        continue;
      }
    }
    rollback(list, r->ruleIdx, r->ruleIdx, b, target, &stats);
    return ret;
  }
  aclDebug(ACL_LOG_IF, "ACL interface [add acl] info=[self = %d dir = %d refCnt = %d OK].\r\n",
           lst(list->lstIdx), static_cast<int>(dir), static_cast<int>(list->refCnt));
  return 0;
}

int32_t aclIfRuleAddOne(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, AclListEntry* list,
                        AclRuleEntry* rule, uint32_t dir, uint32_t kind) {
  if (!located(ifIndex)) return ACL_IF_ERR_NO_LOCATION;
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF, "ACL interface [add acl] error. (Reason=[filter-list entry is NULL])\r\n");
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (emptyRefused(list)) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl] error. (Reason=[filter-list %d rule num is %d])\r\n",
             lst(list->lstIdx), static_cast<int>(list->ruleNum));
    return ACL_ERR_LIST_EMPTY;
  }
  if (const int32_t ret = aclRuleStatusCheck(list); ret != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add rule acl] error. (Reason=[filter-list %d rule status is "
             "ERROR])\r\n",
             lst(list->lstIdx));
    return ret;
  }
  if (rule == nullptr || !statusValid(rule)) return ACL_ERR_LIST_EMPTY;
  const Binding b = binding(ifIndex, onuId, gemPort, dir, kind);
  rule->priority = b.priority(rule->ruleIdx);
  const ParamBlock block = paramBlock(rule);
  // A rule that held no next hop before holds only what this call registers; a refusal gives
  // that back. Otherwise the registrations belong to the list's bindings.
  const bool registersOwn = rule->nhNum == 0;
  const AclBindStats stats;
  const bool counted = hasAction(rule, RULE_ACTION_AWARE);
  auto giveBack = [&](bool statsTaken) {
    if (statsTaken && counted) statsGiveBack(rule, list, b, stats);
    if (registersOwn) nextHopRelease(rule, true, block, kNhIfRule);
  };
  if (const int32_t ret = nextHopRegister(rule, block, kNhIfRule); ret != 0) {
    giveBack(false);
    return ret;
  }
  if (!nextHopsReady(rule, block)) {
    nextHopNotReadyLog(rule, block, kNhIfRule);
    return -1;
  }
  if (timeRangeOff(rule)) return ACL_ERR_SHARED_IN_USE;
  if (hasVrf(rule)) return -1;
  if (const int32_t ret = statsFor(rule, list, b, stats); ret != 0) {
    giveBack(false);
    return ret;
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed("add rule acl", list->lstIdx, buf.tlv());
    giveBack(true);
    return -1;
  }
  bool transFailed = false;
  const int32_t ret = sendRule(buf, rule, list, b, Send{false, nullptr}, &transFailed);
  if (ret != 0) {
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add rule acl] error. (Reason=[filter %d/%u tlv trans error])\r\n",
               lst(rule->lstIdx), rule->ruleIdx);
    } else {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add rule acl] error. (Reason=[filter %d/%u add error. (dir = %d, if "
               "= %s)])\r\n",
               lst(rule->lstIdx), rule->ruleIdx, static_cast<int>(dir), b.name.text);
      // The retry puts the rule in with its list; until then it keeps what it holds.
      if (hasNextHopAction(rule)) {
        aclDebug(ACL_LOG_IF,
                 "ACL interface [add rule acl] error. (Info=[filter %d  add nexthop timer])\r\n",
                 lst(list->lstIdx));
        aclNextHopTimerRestart(list);
        return ret;
      }
    }
    giveBack(true);
    return ret;
  }
  aclDebug(ACL_LOG_IF,
           "ACL interface [add rule acl] . (Info=[filter %d/%u add ok. (dir = %d, if = %s)])\r\n",
           lst(rule->lstIdx), rule->ruleIdx, static_cast<int>(dir), b.name.text);
  aclDebug(ACL_LOG_IF,
           "ACL interface [add rule acl] info=[interface %s, self = %d dir = %d refCnt = %d "
           "OK].\r\n",
           b.name.text, lst(list->lstIdx), static_cast<int>(dir), static_cast<int>(list->refCnt));
  return 0;
}

int32_t aclIfHwAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, uint32_t lstIdx,
                   uint32_t dir, const uint8_t* target, uint32_t kind) {
  constexpr const char* kOp = "add acl to hw";
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl to hw] error. (Reason=[filter-list %d entry is NULL])\r\n",
             lst(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (emptyRefused(list)) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl to hw] error. (Reason=[filter-list %d rule num is ERROR])\r\n",
             lst(lstIdx));
    return ACL_ERR_LIST_EMPTY;
  }
  if (const int32_t ret = aclRuleStatusCheck(list); ret != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl to hw] error. (Reason=[filter-list %d status is ERROR])\r\n",
             lst(lstIdx));
    return ret;
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed(kOp, lstIdx, buf.tlv());
    return -1;
  }
  const Binding b = binding(ifIndex, onuId, gemPort, dir, kind);
  const Send how{false, target, true};
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [add acl to hw] info = [filter %d/%u status = %d,counterId =%d]\r\n",
             lst(r->lstIdx), r->ruleIdx, r->status, static_cast<int>(r->counterId));
    if (!statusValid(r)) continue;
    r->priority = b.priority(r->ruleIdx);
    if (!nextHopsReady(r, paramBlock(r))) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl] info = [filter %d/%u arp not learn, continue.]\r\n",
               lst(r->lstIdx), r->ruleIdx);
      continue;
    }
    if (timeRangeOff(r) || hasVrf(r)) continue;
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, b, how, &transFailed);
    if (ret == 0) continue;
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl to hw] error. (Reason=[filter %d/%u dev trans error])\r\n",
               lst(r->lstIdx), r->ruleIdx);
    } else {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl to hw] error. (Reason=[filter %d/%u add error. (dir = %d, "
               "interface %s)])\r\n",
               lst(r->lstIdx), r->ruleIdx, static_cast<int>(dir), b.name.text);
      aclOperLogClass(kLogHwAddFailed,
                      "Add interface hardware acl failed. (ifName=[%s], list=[%u], rule=[%u], "
                      "dir=[%s], ret=[%u])\r\n",
                      aclIfName(ifIndex, kAclIfNameLen).text, lstIdx, 0u, dirName(dir),
                      static_cast<uint32_t>(ret));
    }
    rollback(list, r->ruleIdx, r->ruleIdx, b, target, nullptr);
    return ret;
  }
  aclDebug(ACL_LOG_IF,
           "ACL interface [add acl to hw] info=[filter-list %d add to interface %s OK].\r\n",
           lst(lstIdx), b.name.text);
  return 0;
}
