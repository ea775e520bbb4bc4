// HQoS binding: every valid rule of a list on an interface, with an HQoS id action written into
// the rule itself (it stays after the unbinding). Counting rules share one rule statistics record
// per (list, rule, direction) with a use count, which the removal gives back.
#include <array>
#include <map>
#include <tuple>
#include <vector>

#include "api/acl_if_api.h"
#include "hw/acl_dev_trans.h"
#include "hw/acl_glb_internal.h"
#include "hw/acl_if.h"
#include "hw/acl_policy.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "stats/acl_stats.h"
#include "store/acl_entry.h"
#include "wire/acl_bits.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

using aclglb::Buffer;

namespace {

int num(uint32_t v) {
  return static_cast<int>(v);
}

constexpr uint8_t kHqosSlot = 22;

using Key = std::tuple<uint32_t, uint32_t, uint8_t>;
std::map<Key, uint32_t>& held() {
  static auto& h = *new std::map<Key, uint32_t>;  // never destroyed, as the other books
  return h;
}

AclStatsIndex statsKey(const AclRuleEntry* r, uint32_t dir) {
  return AclStatsIndex{r->lstIdx, r->ruleIdx, 0, static_cast<uint16_t>(dir)};
}

bool statsTake(const AclRuleEntry* r, uint32_t dir) {
  if (AclStatsEntry* s = aclStatsGetEntry(statsKey(r, dir))) {
    ++s->refCnt;
    return true;
  }
  AclStatsEntry* s = aclStatsMalloc();
  if (s == nullptr) return false;
  s->lstIdx = r->lstIdx;
  s->ruleIdx = r->ruleIdx;
  s->dir = static_cast<int8_t>(dir);
  s->refCnt = 1;
  aclStatsAdd(s);
  if (s->inList == 0) aclStatsFree(s);
  return true;
}

void statsGive(const AclRuleEntry* r, uint32_t dir) {
  const AclStatsIndex k = statsKey(r, dir);
  AclStatsEntry* s = aclStatsGetEntry(k);
  if (s == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos del] error. (Reason=[filter %d/%u stats delete ERROR])\r\n",
             num(r->lstIdx), r->ruleIdx);
    return;
  }
  if (s->refCnt >= 2) {
    --s->refCnt;
    return;
  }
  if (aclStatsDel(k) == 0) aclStatsFree(s);
}

bool counts(const AclRuleEntry* r) {
  return aclBitTest(r->actionBits, RULE_ACTION_AWARE);
}

// Translates the rule and sends it to the interface.
int32_t send(Buffer& buf, AclRuleEntry* r, const AclListEntry* list, uint32_t ifIndex, uint32_t dir,
             bool remove, bool* transFailed) {
  *transFailed = false;
  std::fill(buf.data(), buf.data() + buf.len(), 0);
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
    return aclRuleIfHwilUpdateTlv(ifIndex, &desc, nullptr);
  }
  const uint32_t ret = aclDevTrans(r, buf.data(), dir8, list->counterShared, list->meterShared,
                                   r->priority, 0, 0, 0);
  if (ret != 0) {
    *transFailed = true;
    return static_cast<int32_t>(ret);
  }
  return aclRuleIfHwilUpdate(ifIndex, remove ? HWIL_CMD_IF_DEL : HWIL_CMD_IF_ADD, buf.data(), dir,
                             nullptr);
}

bool installable(const AclRuleEntry* r) {
  return r->status == ACL_RULE_STATUS_VALID && !aclBitTest(r->fieldBits, RULE_BIT_VRFID);
}

AclRuleEntry* firstRule(AclListEntry* l) {
  return static_cast<AclRuleEntry*>(avl_first(&l->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* l, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&l->ruleTree, r));
}

// Takes out what a failed add put in: the rules it installed and the statistics it took.
void undo(Buffer& buf, AclListEntry* list, uint32_t ifIndex, uint32_t dir,
          const std::vector<AclRuleEntry*>& installed, const std::vector<AclRuleEntry*>& counted) {
  for (auto it = installed.rbegin(); it != installed.rend(); ++it) {
    bool transFailed = false;
    send(buf, *it, list, ifIndex, dir, true, &transFailed);
  }
  for (AclRuleEntry* r : counted) statsGive(r, dir);
}

}  // namespace

int32_t _aclHqosIfAdd(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId) {
  if (dir > 2) return CMN_ERR_BAD_PARAM;
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(ifIndex, ZOR_TRANS_LOCATION, location.data()) != 0) {
    aclDebug(ACL_LOG_IF, "ACL interface [hqos add] error. (Reason=[unit %d get ERROR])\r\n",
             num(ifIndex));
    return ACL_RET_IF_NO_LOCATION;
  }
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos add] error. (Reason=[filter-list %d entry is NULL])\r\n",
             num(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (list->ruleNum == 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos add] error. (Reason=[filter-list %d rule num is ERROR])\r\n",
             num(lstIdx));
    return ACL_ERR_LIST_EMPTY;
  }
  if (const int32_t ret = aclRuleStatusCheck(list); ret != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos add] error. (Reason=[filter-list %d status is ERROR])\r\n",
             num(lstIdx));
    return ret;
  }
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos add] error. (Reason=[filter-list %d malloc dev error])\r\n",
             num(lstIdx));
    return ACL_RET_UNKNOWN;
  }
  std::vector<AclRuleEntry*> installed, counted;
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    if (r->status != ACL_RULE_STATUS_VALID) continue;
    r->priority = static_cast<uint16_t>(r->ruleIdx);
    if (AclActionEntry* old = aclActionEntryGet(r, RULE_ACTION_HQOSID, kHqosSlot)) {
      aclActionEntryDel(old);
    }
    aclBitSet(r->actionBits, RULE_ACTION_HQOSID);
    std::array<uint8_t, 4> id{};
    be::store32(id.data(), hqosId);
    if (const int32_t ret =
            aclShortActionEntryAdd(r, RULE_ACTION_HQOSID, kHqosSlot, id.data(), id.size());
        ret != 0) {
      undo(buf, list, ifIndex, dir, installed, counted);
      return ret;
    }
    if (aclBitTest(r->fieldBits, RULE_BIT_VRFID)) continue;
    if (counts(r)) {
      if (!statsTake(r, dir)) {
        aclDebug(ACL_LOG_IF,
                 "ACL interface [hqos add] error. (Reason=[filter %d/%u stats malloc ERROR])\r\n",
                 num(r->lstIdx), r->ruleIdx);
        undo(buf, list, ifIndex, dir, installed, counted);
        return CMN_ERR_NO_RESOURCE;
      }
      counted.push_back(r);
    }
    bool transFailed = false;
    const int32_t ret = send(buf, r, list, ifIndex, dir, false, &transFailed);
    if (ret == 0) {
      installed.push_back(r);
      continue;
    }
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [hqos add] error. (Reason=[filter %d/%u dev trans error])\r\n",
               num(r->lstIdx), r->ruleIdx);
    } else {
      aclDebug(ACL_LOG_IF,
               "ACL interface [hqos add] error. (Reason=[filter %d/%u add error. (dir = %d, unit = "
               "%d)])\r\n",
               num(r->lstIdx), r->ruleIdx, num(dir), num(ifIndex));
      // The refused rule may be half there.
      installed.push_back(r);
    }
    undo(buf, list, ifIndex, dir, installed, counted);
    return ret;
  }
  ++list->refCnt;
  ++held()[{ifIndex, lstIdx, static_cast<uint8_t>(dir)}];
  aclDebug(ACL_LOG_IF, "ACL interface [hqos add] info=[self = %d dir = %d refCnt = %d OK].\r\n",
           num(lstIdx), num(dir), list->refCnt);
  return 0;
}

int32_t _aclHqosIfDel(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t /*hqosId*/) {
  if (dir > 2) return CMN_ERR_BAD_PARAM;
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos del] error. (Reason=[filter-list %d entry is NULL])\r\n",
             num(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (list->ruleNum == 0) return 0;
  Buffer buf(gaclGrp.tlvEnable == 1);
  if (!buf.ok()) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [hqos del] error. (Reason=[filter-list %d malloc dev error])\r\n",
             num(lstIdx));
    return ACL_RET_UNKNOWN;
  }
  for (auto* r = static_cast<AclRuleEntry*>(avl_last(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_prev(&list->ruleTree, r))) {
    if (!installable(r)) continue;
    bool transFailed = false;
    const int32_t ret = send(buf, r, list, ifIndex, dir, true, &transFailed);
    if (transFailed) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [hqos del] error. (Reason=[filter %d/%u dev trans error])\r\n",
               num(r->lstIdx), r->ruleIdx);
      return ret;
    }
    if (ret != 0) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [hqos del] error. (Reason=[filter %d/%u add error. (dir = %d, unit = "
               "%d)])\r\n",
               num(r->lstIdx), r->ruleIdx, num(dir), num(ifIndex));
      return ret;
    }
    if (counts(r)) statsGive(r, dir);
  }
  if (list->refCnt > 0) --list->refCnt;
  auto& h = held();
  auto it = h.find({ifIndex, lstIdx, static_cast<uint8_t>(dir)});
  if (it != h.end() && --it->second == 0) h.erase(it);
  aclDebug(ACL_LOG_IF, "ACL interface [hqos del] info=[self = %d dir = %d refCnt = %d OK].\r\n",
           num(lstIdx), num(dir), list->refCnt);
  return 0;
}

namespace {

int32_t viaTable(uint32_t cmd, uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId) {
  std::array<uint8_t, ACL_HQOS_REQ_LEN> words{};
  be::store32(words.data(), lstIdx);
  be::store32(words.data() + 4, dir);
  be::store32(words.data() + 8, hqosId);
  uintptr_t record = reinterpret_cast<uintptr_t>(words.data());
  return aclIfSetApi(ifIndex, cmd, reinterpret_cast<uintptr_t>(&record));
}

}  // namespace

int32_t aclHqosIfAdd(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId) {
  return viaTable(ACL_IF_CMD_HQOS_ADD, ifIndex, lstIdx, dir, hqosId);
}
int32_t aclHqosIfDel(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t hqosId) {
  return viaTable(ACL_IF_CMD_HQOS_DEL, ifIndex, lstIdx, dir, hqosId);
}

std::vector<AclHqosBinding> aclHqosBindings() {
  std::vector<AclHqosBinding> out;
  for (const auto& [k, n] : held()) {
    for (uint32_t i = 0; i < n; ++i)
      out.push_back({std::get<0>(k), std::get<1>(k), std::get<2>(k)});
  }
  return out;
}

void aclHqosResetForTest() {
  held().clear();
}
