// Taking a filter list (or one of its rules) out of the global scope: the removal walk from the
// highest rule down, next-hop release on the list's last binding, statistics records, and the
// hardware-only variants used while next hops come and go.
#include "hw/acl_glb.h"
#include "hw/acl_glb_internal.h"
#include "main/acl_log.h"
#include "wire/acl_ret.h"

using namespace aclglb;

namespace {

void listMissing(const char* op) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter-list entry is NULL])\r\n", op);
}

void bufferFailed(const char* op, uint32_t lstIdx, bool tlv) {
  if (tlv) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [%s] error. (Reason=[filter-list %d malloc pTlvBuffer error])\r\n", op,
             static_cast<int>(lstIdx));
  } else {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [%s] error. (Reason=[filter-list %d malloc dev error])\r\n", op,
             static_cast<int>(lstIdx));
  }
}

void transFailedLog(const char* op, const AclRuleEntry* r) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter %d/%u dev trans error])\r\n", op,
           static_cast<int>(r->lstIdx), r->ruleIdx);
}

void removeFailedLog(const char* op, const AclRuleEntry* r, uint32_t dir) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [%s] error. (Reason=[filter %d/%u delete error. (dir = %d)])\r\n", op,
           static_cast<int>(r->lstIdx), r->ruleIdx, static_cast<int>(dir));
}

void statsRelease(const char* op, const AclRuleEntry* r, uint32_t dir) {
  if (!hasAction(r, RULE_ACTION_AWARE) || statsDel(r, dir)) return;
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] error. (Reason=[filter %d/%u stats delete error.])\r\n",
           op, static_cast<int>(r->lstIdx), r->ruleIdx);
}

void selfLine(const char* op, const AclListEntry* list, uint32_t dir) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [%s] info=[self = %d dir = %d refCnt = %d OK].\r\n", op,
           static_cast<int>(list->lstIdx), static_cast<int>(dir), static_cast<int>(list->refCnt));
}

}  // namespace

namespace aclglb {

int32_t delpart(AclListEntry* list, uint32_t lastRuleIdx, uint32_t dir, const uint8_t* target,
                const DelpartMode& mode) {
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed(mode.op, list->lstIdx, buf.tlv());
    return -1;
  }
  const AclBindStats* rollbackOf = mode.rollbackOf;
  // A removal gives back the record of each rule it takes out; a rollback only those the install
  // created, and also for rules it passes over (a record may precede the time-range test).
  auto giveBack = [&](const AclRuleEntry* r) {
    if (rollbackOf != nullptr) rollbackOf->giveBackRule(r->lstIdx, r->ruleIdx, dir);
  };
  for (auto* r = static_cast<AclRuleEntry*>(avl_last(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_prev(&list->ruleTree, r))) {
    if (!statusValid(r) || (lastRuleIdx != 0 && r->ruleIdx > lastRuleIdx)) continue;
    const ParamBlock block = paramBlock(r);
    // A rule whose next hops were not all resolved never reached the hardware. This is decided
    // before the release, which leaves both counts at 0 on the last binding.
    const bool installed = nextHopsReady(r, block);
    // Installs register next hops before their time-range and VRF tests, so the release comes
    // before them too: a rule whose time range is off at its last unbinding would otherwise keep
    // its destination IP entries for ever.
    if (mode.releaseNextHops) {
      nextHopRelease(r, list->refCnt == mode.lastBindingRefCnt, block);
    }
    const bool failedRule = rollbackOf != nullptr && r->ruleIdx == lastRuleIdx;
    if ((failedRule && !mode.boundRuleSent) || timeRangeOff(r) || hasVrf(r)) {
      giveBack(r);
      continue;
    }
    if (!installed) {
      if (!mode.releaseNextHops) {
        aclDebug(ACL_LOG_GLOBAL,
                 "ACL interface [global hw del] info = [filter %d/%u arp not learn, continue.]\r\n",
                 static_cast<int>(r->lstIdx), r->ruleIdx);
      }
      giveBack(r);
      continue;
    }
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, dir, target, true, false, &transFailed);
    if (ret != 0) {
      if (transFailed) {
        transFailedLog(mode.op, r);
      } else {
        removeFailedLog(mode.op, r, dir);
      }
      // The rule whose install was refused is not counted in the hardware; the rules below it
      // stay installed and keep their records.
      if (failedRule) giveBack(r);
      return ret;
    }
    if (rollbackOf != nullptr) {
      giveBack(r);
    } else {
      statsRelease(mode.op, r, dir);
    }
  }
  selfLine(mode.op, list, dir);
  return 0;
}

}  // namespace aclglb

int32_t aclGlbDel(AclListEntry* list, uint32_t dir, const uint8_t* target) {
  return aclGlbDelpart(list, 0, dir, target);
}

int32_t aclGlbDelpart(AclListEntry* list, uint32_t lastRuleIdx, uint32_t dir,
                      const uint8_t* target) {
  if (list == nullptr) {
    listMissing("global del");
    return ACL_ERR_LIST_NOT_EXIST;
  }
  return delpart(list, lastRuleIdx, dir, target, DelpartMode{true, "global del"});
}

int32_t aclGlbHwDel(uint32_t lstIdx, uint32_t dir) {
  return aclGlbHwDelpart(lstIdx, 0, dir, nullptr);
}

int32_t aclGlbHwDelpart(uint32_t lstIdx, uint32_t lastRuleIdx, uint32_t dir,
                        const uint8_t* target) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [global hw del] error. (Reason=[filter-list %d entry is NULL])\r\n",
             static_cast<int>(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  return delpart(list, lastRuleIdx, dir, target, DelpartMode{false, "global hw del"});
}

int32_t aclGlbRuleDelOne(AclListEntry* list, AclRuleEntry* rule, uint32_t dir) {
  constexpr const char* kOp = "global rule del";
  if (list == nullptr) {
    listMissing(kOp);
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (rule == nullptr) return ACL_ERR_LIST_EMPTY;
  if (!statusValid(rule) || timeRangeOff(rule) || hasVrf(rule)) return -1;
  // One rule always goes as a record, whatever form the list installs take.
  Buffer buf(false);
  if (!buf.ok()) {
    bufferFailed("global del", list->lstIdx, false);
    return 12;
  }
  bool transFailed = false;
  const int32_t ret = sendRule(buf, rule, list, dir, nullptr, true, false, &transFailed);
  if (ret != 0) {
    if (transFailed) {
      transFailedLog(kOp, rule);
    } else {
      removeFailedLog(kOp, rule, dir);
    }
    return ret;
  }
  statsRelease(kOp, rule, dir);
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [global rule del] OK. (Info=[filter %d/%u delete OK. (dir = %d)])\r\n",
           static_cast<int>(rule->lstIdx), rule->ruleIdx, static_cast<int>(dir));
  selfLine(kOp, list, dir);
  return 0;
}

int32_t aclGlbHwDelone(uint32_t lstIdx, uint32_t ruleIdx, uint32_t dir) {
  constexpr const char* kOp = "global del";
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    listMissing(kOp);
    return ACL_ERR_LIST_NOT_EXIST;
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    bufferFailed(kOp, lstIdx, buf.tlv());
    return -1;
  }
  for (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r))) {
    if (r->ruleIdx != ruleIdx) continue;
    if (!statusValid(r) || timeRangeOff(r) || hasVrf(r)) break;
    bool transFailed = false;
    const int32_t ret = sendRule(buf, r, list, dir, nullptr, true, false, &transFailed);
    if (ret != 0) {
      if (transFailed) {
        transFailedLog(kOp, r);
      } else {
        removeFailedLog(kOp, r, dir);
      }
      return ret;
    }
    statsRelease(kOp, r, dir);
    break;
  }
  selfLine("global del one", list, dir);
  return 0;
}
