// Installing a filter list (or one of its rules) into the global scope: the eligibility walk, the
// hardware priority, next-hop registration, statistics records, and what a failure leaves behind
// (a rollback, or for a redirect rule the list's next-hop retry).
#include "hw/acl_glb.h"

#include "control/acl_nexthop.h"
#include "hw/acl_glb_internal.h"
#include "main/acl_log.h"
#include "wire/acl_ret.h"

using namespace aclglb;

namespace {

int lst(const AclListEntry* list) {
  return static_cast<int>(list->lstIdx);
}

void selfLine(const AclListEntry* list, uint32_t dir) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [global add] info=[self = %d dir = %d refCnt = %d OK].\r\n",
           lst(list), static_cast<int>(dir), static_cast<int>(list->refCnt));
}

void bufferFailed(const AclListEntry* list, bool tlv) {
  if (tlv) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global add] error. (Reason=[filter-list %d malloc pTlvBuffer error])\r\n",
             lst(list));
  } else {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global add] error. (Reason=[filter-list %d malloc dev error])\r\n",
             lst(list));
  }
}

constexpr const char* kStatsFailed =
    "ACL global [global add] error. (Reason=[filter-list %d malloc stats entry error])\r\n";

void transFailedLog(const AclRuleEntry* r) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [global add] error. (Reason=[filter %d/%u dev trans error])\r\n",
           static_cast<int>(r->lstIdx), r->ruleIdx);
}

void installFailedLog(const AclRuleEntry* r, uint32_t dir) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [global add] error. (Reason=[filter %d/%u global add error (dir=%d)])\r\n",
           static_cast<int>(r->lstIdx), r->ruleIdx, static_cast<int>(dir));
}

// A redirect rule that the hardware refused is retried with the whole list once its next hops
// are settled, instead of failing the binding.
void armNextHopRetry(AclListEntry* list) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [global add] error. (Info=[filter %d  add nexthop timer])\r\n", lst(list));
  aclNextHopTimerRestart(list);
}

// Checks shared by the list installs: the list exists and has rules (or dynamic binding may
// fill it later), and its rules are all usable.
int32_t listChecks(AclListEntry* list) {
  if (list->ruleNum == 0 && gaclGrp.dynamicBindEnable != 1) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global add] error. (Reason=[filter-list %d ruleNum is error])\r\n",
             lst(list));
    return ACL_ERR_LIST_EMPTY;
  }
  return aclRuleStatusCheck(list);
}

// Takes out what this install put in, from the failing rule down (the failing rule itself only
// when it was sent), with the statistics records the install created. The list's refCnt does
// not count this binding yet, so it is the last one (and gives back its next-hop registrations)
// when no other binding holds the list.
void rollback(AclListEntry* list, const AclRuleEntry* failed, bool sent, uint32_t dir,
              const uint8_t* target, const AclBindStats& stats) {
  delpart(list, failed->ruleIdx, dir, target, DelpartMode{true, "global del", 0, &stats, sent});
}

// The hardware-only install's rollback: the next-hop registrations are not its own.
void hwRollback(AclListEntry* list, const AclRuleEntry* failed, bool sent, uint32_t dir,
                const AclBindStats& stats) {
  delpart(list, failed->ruleIdx, dir, nullptr, DelpartMode{false, "global del", 1, &stats, sent});
}

AclRuleEntry* firstRule(AclListEntry* list) {
  return static_cast<AclRuleEntry*>(avl_first(&list->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* list, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r));
}

}  // namespace

int32_t aclGlbAdd(AclListEntry* list, uint32_t dir, const uint8_t* target, uint32_t type) {
  if (list == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global add] error. (Reason=[filter-list entry is NULL])\r\n");
    return ACL_ERR_LIST_NOT_EXIST;
  }
  const int32_t checked = listChecks(list);
  if (checked != 0) return checked;
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed(list, buf.tlv());
    return -1;
  }

  const AclBindStats stats;
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    if (!statusValid(r)) continue;
    r->priority = priorityFor(type, r->ruleIdx);
    const ParamBlock block = paramBlock(r);
    // Next hops are registered before the time-range and VRF tests, so a rule that is off now is
    // already tracked when it comes on.
    if (nextHopRegister(r, block) != 0) {
      rollback(list, r, false, dir, target, stats);
      return CMN_ERR_NO_RESOURCE;
    }
    if (!nextHopsReady(r, block)) {
      nextHopNotReadyLog(r, block);
      continue;
    }
    if (timeRangeOff(r) || hasVrf(r)) continue;
    if (hasAction(r, RULE_ACTION_AWARE) && !stats.takeRule(r->lstIdx, r->ruleIdx, dir)) {
      return stats.refuse(ACL_LOG_GLOBAL, kStatsFailed, list->lstIdx,
                          [&] { rollback(list, r, false, dir, target, stats); });
    }
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, dir, target, false, true, &transFailed);
    if (ret == 0) continue;
    if (transFailed) {
      transFailedLog(r);
    } else {
      installFailedLog(r, dir);
      if (hasNextHopAction(r)) {
        armNextHopRetry(list);
        continue;
      }
    }
    rollback(list, r, !transFailed, dir, target, stats);
    return ret;
  }
  selfLine(list, dir);
  return 0;
}

int32_t aclGlbRuleAddOne(AclListEntry* list, AclRuleEntry* rule, uint32_t dir, uint32_t type) {
  if (list == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global add] error. (Reason=[filter-list entry is NULL])\r\n");
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (rule == nullptr) return ACL_ERR_LIST_EMPTY;
  if (!statusValid(rule)) return -1;
  rule->priority = priorityFor(type, rule->ruleIdx);
  const ParamBlock block = paramBlock(rule);
  // A rule that held no next hop before holds only what this call registers; a refusal gives
  // that back. Otherwise the registrations belong to the list's bindings.
  const bool registersOwn = rule->nhNum == 0;
  auto releaseOwn = [&] {
    if (registersOwn) nextHopRelease(rule, true, block);
  };
  if (const int32_t ret = nextHopRegister(rule, block); ret != 0) {
    releaseOwn();
    return ret;
  }
  if (!nextHopsReady(rule, block)) {
    nextHopNotReadyLog(rule, block);
    return -1;
  }
  if (timeRangeOff(rule) || hasVrf(rule)) return -1;
  const AclBindStats stats;
  if (hasAction(rule, RULE_ACTION_AWARE) && !stats.takeRule(rule->lstIdx, rule->ruleIdx, dir)) {
    return stats.refuse(ACL_LOG_GLOBAL, kStatsFailed, list->lstIdx, releaseOwn);
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed(list, buf.tlv());
    stats.giveBackRule(rule->lstIdx, rule->ruleIdx, dir);
    releaseOwn();
    return -1;
  }
  bool transFailed = false;
  // A single rule's record leaves activeRuleNum 0; the TLV message carries it.
  const int32_t ret = sendRule(buf, rule, list, dir, nullptr, false, false, &transFailed);
  if (ret != 0) {
    if (transFailed) {
      transFailedLog(rule);
    } else {
      installFailedLog(rule, dir);
      // The retry puts the rule in with its list; until then it keeps what it holds.
      if (hasNextHopAction(rule)) {
        armNextHopRetry(list);
        return ret;
      }
    }
    stats.giveBackRule(rule->lstIdx, rule->ruleIdx, dir);
    releaseOwn();
    return ret;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [global add] OK. (Info=[filter %d/%u global add OK. (dir=%d)])\r\n",
           static_cast<int>(rule->lstIdx), rule->ruleIdx, static_cast<int>(dir));
  selfLine(list, dir);
  return 0;
}

int32_t aclGlbHwAdd(uint32_t lstIdx, uint32_t dir, uint32_t type) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global add] error. (Reason=[filter-list %d entry is NULL])\r\n",
             static_cast<int>(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  const int32_t checked = listChecks(list);
  if (checked != 0) return checked;
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed(list, buf.tlv());
    return -1;
  }
  // Only the hardware is touched: the next-hop registrations stay as the bindings made them, also
  // when a failure rolls the list back.
  const AclBindStats stats;
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    if (!statusValid(r)) continue;
    r->priority = priorityFor(type, r->ruleIdx);
    const ParamBlock block = paramBlock(r);
    if (!nextHopsReady(r, block)) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [add acl] info = [filter %d/%u arp not learn, continue.]\r\n",
               static_cast<int>(r->lstIdx), r->ruleIdx);
      continue;
    }
    if (hasAction(r, RULE_ACTION_AWARE) && !stats.takeRule(r->lstIdx, r->ruleIdx, dir)) {
      return stats.refuse(ACL_LOG_GLOBAL, kStatsFailed, list->lstIdx,
                          [&] { hwRollback(list, r, false, dir, stats); });
    }
    if (timeRangeOff(r) || hasVrf(r)) continue;
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, dir, nullptr, false, true, &transFailed);
    if (ret == 0) continue;
    if (transFailed) {
      transFailedLog(r);
    } else {
      installFailedLog(r, dir);
    }
    hwRollback(list, r, !transFailed, dir, stats);
    return ret;
  }
  selfLine(list, dir);
  return 0;
}
