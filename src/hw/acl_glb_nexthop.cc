// The shared pieces of the global binding: eligibility of a rule, its translation and command, its
// statistics record, and the next-hop registration of redirect rules with the destination IP
// tracking.
#include <cstring>
#include <span>

#include "control/acl_dstip.h"
#include "hw/acl_glb.h"
#include "hw/acl_glb_internal.h"
#include "main/acl_log.h"
#include "stats/acl_stats.h"
#include "store/acl_action_param.h"
#include "wire/acl_bits.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace aclglb {

namespace {

constexpr uint32_t kVrfWord = 21;

// A redirect-to-next-hop action: where its next hops sit in the parameter words and what the
// binding says about them.
struct NextHopAction {
  uint32_t code;
  uint32_t family;
  uint32_t firstWord;
  uint32_t wordStep;  // words from one next hop to the next
  uint32_t maxHops;
  bool multi;
  const char* entryMissing;   // destination IP entry could not be had
  const char* hopNotLearned;  // per unresolved next hop (multi-hop only)
  const char* notLearned;     // the rule is skipped
  const char* releaseState;   // on removal, per next hop
};

constexpr NextHopAction kNextHopActions[] = {
    {RULE_ACTION_OUTPUT_NEXTHOP, ACL_DSTIP_FAMILY_V4, 11, 1, 1, false,
     "ACL %s [%s] error. (Reason=[filter %d/%u destIp entry is NULL.])\r\n", nullptr,
     "ACL %s [%s] info = [filter %d/%u arp not learn, continue.]\r\n",
     "ACL %s [del acl] info=[nexthop IP entry macFindFlag = %d].\r\n"},
    {RULE_ACTION_IP6OUTPUT_NEXTHOP, ACL_DSTIP_FAMILY_V6, 23, 4, 1, false,
     "ACL %s [%s] error. (Reason=[filter %d/%u destIp ipv6 entry is NULL.])\r\n", nullptr,
     "ACL %s [%s] info = [filter %d/%u arp not learn]\r\n",
     "ACL %s [del acl] info=[nexthop IP6 entry macFindFlag = %d].\r\n"},
    {RULE_ACTION_OUTPUT_MULTIHOP, ACL_DSTIP_FAMILY_V4, 11, 1, 4, true,
     "ACL %s [%s] error. (Reason=[filter %d/%u one destIp entry is NULL.])\r\n",
     "ACL %s [%s] info = [filter %d/%u one IP arp not learn]\r\n",
     "ACL %s [%s] info = [filter %d/%u multi-nexthop arp not learned. nexthop %d, arp "
     "learned %d.]\r\n",
     "ACL %s [del acl] info=[IP entry macFindFlag = %d].\r\n"},
    {RULE_ACTION_IP6OUTPUT_MULTIHOP, ACL_DSTIP_FAMILY_V6, 23, 4, 4, true,
     "ACL %s [%s] error. (Reason=[filter %d/%u one destIp6 entry is NULL.])\r\n",
     "ACL %s [%s] info = [filter %d/%u one IP6 arp not learn]\r\n",
     "ACL %s [%s] info = [filter %d/%u multi-nexthop arp6 not learned. nexthop %d, arp "
     "learned %d.]\r\n",
     "ACL %s [del acl] info=[IP entry macFindFlag = %d].\r\n"},
};

const uint8_t* hopAddr(const ParamBlock& block, const NextHopAction& a, uint32_t hop) {
  return block.data() + 4 * (a.firstWord + hop * a.wordStep);
}

// A multi-hop list ends at the first next hop whose first word is zero.
bool hopPresent(const ParamBlock& block, const NextHopAction& a, uint32_t hop) {
  return !a.multi ||
         be::load32(std::span<const uint8_t>(block), 4 * (a.firstWord + hop * a.wordStep)) != 0;
}

uint32_t vrfOf(const ParamBlock& block) {
  return be::load32(std::span<const uint8_t>(block), 4 * kVrfWord);
}

int ruleArgs(const AclRuleEntry* r) {
  return static_cast<int>(r->lstIdx);
}

}  // namespace

bool timeRangeOff(const AclRuleEntry* r) {
  return aclBitTest(r->fieldBits, RULE_BIT_TRID) && r->trIdx != 0 && r->trActive == 0;
}

bool hasVrf(const AclRuleEntry* r) {
  return aclBitTest(r->fieldBits, RULE_BIT_VRFID);
}

bool hasAction(const AclRuleEntry* r, uint32_t code) {
  return aclBitTest(r->actionBits, code);
}

bool hasNextHopAction(const AclRuleEntry* r) {
  for (const NextHopAction& a : kNextHopActions) {
    if (hasAction(r, a.code)) return true;
  }
  return false;
}

uint16_t priorityFor(uint32_t type, uint32_t ruleIdx) {
  const uint16_t base =
      type == ACL_GLB_TYPE_HYBRID ? ACL_GLB_PRIORITY_BASE_HYBRID : ACL_GLB_PRIORITY_BASE;
  return static_cast<uint16_t>(base + ruleIdx);
}

ParamBlock paramBlock(AclRuleEntry* r) {
  ParamBlock block{};
  aclActionEntry2Param(r, block);
  return block;
}

bool nextHopsReady(const AclRuleEntry* r, const ParamBlock& block) {
  if (r->nhLearned != r->nhNum) return false;
  for (const NextHopAction& a : kNextHopActions) {
    if (a.multi && hasAction(r, a.code) && !hopPresent(block, a, 0)) return false;
  }
  return true;
}

int32_t nextHopRegister(AclRuleEntry* r, const ParamBlock& block, const NhScope& scope) {
  const uint32_t vrf = vrfOf(block);
  for (const NextHopAction& a : kNextHopActions) {
    if (!hasAction(r, a.code)) continue;
    for (uint32_t hop = 0; hop < a.maxHops && hopPresent(block, a, hop); ++hop) {
      const uint32_t ordinal = hop + 1;
      const uint8_t* addr = hopAddr(block, a, hop);
      AclDstIpEntry* entry = aclDstIpEntryGet(vrf, addr, a.family);
      const bool created = entry == nullptr;
      if (created) entry = aclDstIpEntryAdd(vrf, addr, a.family);
      if (entry == nullptr) {
        aclDebug(scope.cls, a.entryMissing, scope.area, scope.addOp, ruleArgs(r), r->ruleIdx);
        return CMN_ERR_NO_RESOURCE;
      }
      AclDstIpRuleEntry* rec = aclDstIpRuleEntryGet(r->lstIdx, r->ruleIdx, ordinal);
      if (rec == nullptr) rec = aclDstIpRuleEntryAdd(r->lstIdx, r->ruleIdx, ordinal);
      if (rec == nullptr) {
        if (a.multi) {
          aclDebug(ACL_LOG_IF,
                   "ACL %s [%s] error. (Reason=[filter %d/%u ip %d destIpRule entry is "
                   "NULL.])\r\n",
                   scope.area, scope.addOp, ruleArgs(r), r->ruleIdx, static_cast<int>(ordinal));
        } else {
          aclDebug(ACL_LOG_IF,
                   "ACL %s [%s] error. (Reason=[filter %d/%u destIpRule entry is "
                   "NULL.])\r\n",
                   scope.area, scope.addOp, ruleArgs(r), r->ruleIdx);
        }
        // An entry made for this next hop alone would be tracked for nobody.
        if (created && dlist::empty(&entry->ruleList)) aclDstIpEntryDel(entry);
        return CMN_ERR_NO_RESOURCE;
      }
      if (aclRuleInDstIpLst(rec, entry) == 0) continue;
      // A record already tied to another address (two redirect actions on one rule sharing an
      // ordinal) is left where it is rather than linked into two lists.
      if (dlist::linked(&rec->entryNode)) {
        if (created && dlist::empty(&entry->ruleList)) aclDstIpEntryDel(entry);
        continue;
      }
      dlist::pushBack(&entry->ruleList, &rec->entryNode);
      r->nhRef[hop] = entry;
      r->nhNum = a.multi ? static_cast<uint8_t>(r->nhNum + 1) : 1;
      if (entry->macFindFlag == 1) ++r->nhLearned;
    }
  }
  return 0;
}

void nextHopNotReadyLog(const AclRuleEntry* r, const ParamBlock& block, const NhScope& scope) {
  const uint32_t vrf = vrfOf(block);
  for (const NextHopAction& a : kNextHopActions) {
    if (!hasAction(r, a.code)) continue;
    if (a.multi) {
      for (uint32_t hop = 0; hop < a.maxHops && hopPresent(block, a, hop); ++hop) {
        const AclDstIpEntry* e = aclDstIpEntryGet(vrf, hopAddr(block, a, hop), a.family);
        if (e == nullptr || e->macFindFlag != 1) {
          aclDebug(scope.cls, a.hopNotLearned, scope.area, scope.addOp, ruleArgs(r), r->ruleIdx);
        }
      }
      aclDebug(scope.cls, a.notLearned, scope.area, scope.addOp, ruleArgs(r), r->ruleIdx, r->nhNum,
               r->nhLearned);
    } else {
      aclDebug(scope.cls, a.notLearned, scope.area, scope.addOp, ruleArgs(r), r->ruleIdx);
    }
  }
}

void nextHopRelease(AclRuleEntry* r, bool lastBinding, const ParamBlock& block,
                    const NhScope& scope) {
  const uint32_t vrf = vrfOf(block);
  for (const NextHopAction& a : kNextHopActions) {
    if (!hasAction(r, a.code)) continue;
    for (uint32_t hop = 0; hop < a.maxHops && hopPresent(block, a, hop); ++hop) {
      AclDstIpEntry* entry = aclDstIpEntryGet(vrf, hopAddr(block, a, hop), a.family);
      if (entry == nullptr) continue;
      aclDebug(scope.cls, a.releaseState, scope.area, entry->macFindFlag);
      // Other bindings of the list still need the next hops tracked.
      if (!lastBinding) continue;
      AclDstIpRuleEntry* rec = aclDstIpRuleEntryGet(r->lstIdx, r->ruleIdx, hop + 1);
      // Only what this rule registered is given back, so the counts never go below what it holds.
      if (rec == nullptr || aclRuleInDstIpLst(rec, entry) != 0) continue;
      dlist::unlink(&rec->entryNode);
      aclDstIpRuleEntryDel(rec);
      r->nhRef[hop] = nullptr;
      if (r->nhNum > 0) --r->nhNum;
      if (entry->macFindFlag == 1 && r->nhLearned > 0) --r->nhLearned;
      if (dlist::empty(&entry->ruleList)) aclDstIpEntryDel(entry);
    }
  }
}

bool statsDel(const AclRuleEntry* r, uint32_t dir) {
  const AclStatsIndex index{r->lstIdx, r->ruleIdx, 0, static_cast<uint16_t>(dir)};
  AclStatsEntry* s = aclStatsGetEntry(index);
  if (s == nullptr || aclStatsDel(index) != 0) return false;
  aclStatsFree(s);
  return true;
}

int32_t sendRule(Buffer& buf, AclRuleEntry* r, const AclListEntry* list, uint32_t dir,
                 const uint8_t* target, bool remove, bool recordActiveNum, bool* transFailed) {
  *transFailed = false;
  std::memset(buf.data(), 0, buf.len());
  const auto dir8 = static_cast<uint8_t>(dir);
  if (buf.tlv()) {
    uint16_t len = 0;
    const uint32_t ret =
        aclDevTransNew(r, dir8, remove ? 1 : 0, list->counterShared, list->meterShared, r->priority,
                       0, list->activeRuleNum, 0, 0, 0, buf.data(), &len);
    if (ret != 0) {
      *transFailed = true;
      return static_cast<int32_t>(ret);
    }
    ZorBufDesc desc{buf.data(), len};
    return aclRuleGlbUpdate(&desc, target);
  }
  const uint32_t ret = aclDevTrans(r, buf.data(), dir8, list->counterShared, list->meterShared,
                                   r->priority, 0, 0, 0);
  if (ret != 0) {
    *transFailed = true;
    return static_cast<int32_t>(ret);
  }
  if (recordActiveNum) {
    be::store32(std::span<uint8_t>(buf.data(), buf.len()), acldev::kActiveRuleNum,
                list->activeRuleNum);
  }
  return remove ? aclRuleGlbDel(buf.data(), dir, target) : aclRuleGlbAdd(buf.data(), dir, target);
}

}  // namespace aclglb
