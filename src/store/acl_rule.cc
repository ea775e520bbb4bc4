#include "store/acl_rule.h"

#include "control/acl_dstip.h"

#include <array>
#include <cstring>

#include "counter/counter.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "meter/meter.h"
#include "platform/mirror.h"
#include "platform/timerange.h"
#include "store/acl_entry.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

int aclRuleCompare(const void* a, const void* b) {
  const auto* ra = static_cast<const AclRuleEntry*>(a);
  const auto* rb = static_cast<const AclRuleEntry*>(b);
  const int32_t d = static_cast<int32_t>(ra->ruleIdx - rb->ruleIdx);
  return d < 0 ? -1 : (d > 0 ? 1 : 0);
}

AclRuleEntry* aclRuleEntryGet(AclListEntry* list, uint32_t ruleIdx) {
  if (list == nullptr || ruleIdx == 0) return nullptr;
  AclRuleEntry key{};
  key.ruleIdx = ruleIdx;
  return static_cast<AclRuleEntry*>(avl_find(&list->ruleTree, &key, nullptr));
}

AclRuleEntry* aclRuleEntryGetByIndex(uint32_t lstIdx, uint32_t ruleIdx) {
  if (ruleIdx == 0) return nullptr;
  return aclRuleEntryGet(aclListEntryGet(lstIdx), ruleIdx);
}

AclRuleEntry* aclRuleEntryAdd(uint32_t lstIdx, uint32_t ruleIdx) {
  if (ruleIdx == 0) return nullptr;
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_RULE,
             "ACL rule [rule add entry] error. (Reason=[rule get list entry %d fail])\r\n",
             static_cast<int>(lstIdx));
    gaclGrp.lastErr = static_cast<uint32_t>(ACL_ERR_LIST_NOT_EXIST);
    return nullptr;
  }
  gaclGrp.lastErr = static_cast<uint32_t>(aclListRuleCheck(list));
  if (gaclGrp.lastErr != 0) return nullptr;
  if (AclRuleEntry* existing = aclRuleEntryGet(list, ruleIdx)) {
    aclDebug(ACL_LOG_RULE, "ACL rule [rule add entry] error. (Reason=[rule entry %u exist])\r\n",
             ruleIdx);
    return existing;
  }
  auto* rule = static_cast<AclRuleEntry*>(silMemPoolAlloc(gaclGrp.rulePool, nullptr));
  if (rule == nullptr) {
    aclDebug(ACL_LOG_RULE, "ACL rule [rule add entry] error. (Reason=[malloc rule ERROR])\r\n");
    gaclGrp.lastErr = static_cast<uint32_t>(CMN_ERR_NO_RESOURCE);
    return nullptr;
  }
  aclStoreGenBump();
  rule->ruleIdx = ruleIdx;
  rule->lstIdx = lstIdx;
  avl_add(&list->ruleTree, rule);
  dlist::init(&rule->valueList);
  dlist::init(&rule->actionList);
  rule->status = ACL_RULE_STATUS_CREATED;
  ++list->ruleNum;
  aclListRuleCount(lstIdx, +1);
  return rule;
}

int32_t aclRuleEntryDel(AclRuleEntry* rule) {
  if (rule == nullptr) {
    aclDebug(ACL_LOG_RULE, "ACL rule [rule del entry] error. (Reason=[rule entry is NULL])\r\n");
    return CMN_ERR_NOT_FOUND;
  }
  if (rule->status == ACL_RULE_STATUS_FREE) {
    aclDebug(ACL_LOG_RULE, "ACL rule [rule del entry] error. (Reason=[rule status is 0])\r\n");
    return CMN_ERR_NOT_FOUND;
  }
  // The time range goes first: when it cannot be left, nothing else has been touched.
  if (aclBitTest(rule->fieldBits, RULE_BIT_TRID) && rule->trIdx != 0) {
    std::array<uint8_t, 4> release;
    be::store32(release, 0, static_cast<uint32_t>(-1));
    if (int ret = timerangeListSetApi(rule->trIdx, TIMERANGE_ATTR_REFCNT, release.data())) {
      aclDebug(ACL_LOG_RULE,
               "ACL rule [rule del entry] error. (Reason=[timerange unbind failed])\r\n");
      return ret;
    }
  }
  if (aclBitTest(rule->fieldBits, RULE_BIT_METERID)) meterRefcount(rule->meterId, -1);
  if (aclBitTest(rule->fieldBits, RULE_BIT_COUNTERID)) counterRefcount(rule->counterId, -1);
  if (aclBitTest(rule->actionBits, RULE_ACTION_MIRROR_GROUP)) {
    if (const AclActionEntry* m = aclActionEntryGet(rule, RULE_ACTION_MIRROR_GROUP, 3)) {
      mirrorRefCount(aclActionValueWord(m), ACL_MODULE_NUM, -1);
    }
  }
  if (AclListEntry* list = aclListEntryGet(rule->lstIdx)) {
    --list->ruleNum;
    aclListRuleCount(rule->lstIdx, -1);
    avl_remove(&list->ruleTree, rule);
  }
  aclGaclruleFree(rule);
  return 0;
}

void aclGaclruleFree(AclRuleEntry* rule) {
  if (rule == nullptr) return;
  aclStoreGenBump();
  // Next-hop tracking names rules by number; left behind, it would count for the next rule that
  // takes this number.
  aclDstIpRuleForget(rule->lstIdx, rule->ruleIdx);
  // A record that never had its heads made (a cleared one) has nothing to free.
  if (rule->valueList.next != nullptr) aclRuleListDel(rule);
  if (rule->actionList.next != nullptr) {
    aclActionListDel(rule);
    aclOutActionListDel(rule);
  }
  std::memset(static_cast<void*>(rule), 0, sizeof *rule);
  silMemPoolFree(gaclGrp.rulePool, rule);
}

int32_t aclRuleGetFree(uint32_t lstIdx, uint32_t* ruleIdx) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  uint32_t candidate = 1;
  for (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r))) {
    if (r->ruleIdx == candidate) {
      ++candidate;
    } else if (r->ruleIdx > candidate) {
      if (ruleIdx != nullptr) *ruleIdx = candidate;
      return 0;
    }
  }
  // maxLstRuleNum is the first number never handed out.
  if (candidate >= gaclGrp.maxLstRuleNum) return -1;
  if (ruleIdx != nullptr) *ruleIdx = candidate;
  return 0;
}

int32_t aclRuleStatusCheck(AclListEntry* list) {
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  list->activeRuleNum = 0;
  for (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r))) {
    if (r->status == ACL_RULE_STATUS_VALID) {
      ++list->activeRuleNum;
      continue;
    }
    aclDebug(ACL_LOG_RULE,
             "ACL rule [rule status check]. (Info=[rule(%d/%d) status is not valid])\r\n",
             static_cast<int>(list->lstIdx), static_cast<int>(r->ruleIdx));
    if (gaclGrp.dynamicBindEnable == 0) return ACL_ERR_RULE_INVALID;
  }
  aclDebug(ACL_LOG_RULE, "ACL rule [rule status check]. (Info=[list(%d) activeNum is %d])\r\n",
           static_cast<int>(list->lstIdx), static_cast<int>(list->activeRuleNum));
  return 0;
}

int32_t aclRuleEntryMove(uint32_t /*lstIdx*/, uint32_t /*ruleIdx*/, uint32_t /*value*/) {
  return 0;
}

int32_t aclGruleGetFree(uint32_t* gruleIdx) {
  for (uint32_t n = 1; n <= gaclGrp.maxGruleNum; ++n) {
    const auto* g = static_cast<const AclGruleEntry*>(silMemPoolId2Entry(gaclGrp.grulePool, n - 1));
    if (g == nullptr || g->status == 0) {
      if (gruleIdx != nullptr) *gruleIdx = n;
      return 0;
    }
  }
  return CMN_ERR_NO_RESOURCE;
}

AclGruleEntry* aclGruleGetEntry(uint32_t gruleIdx) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [global rule entry get] info = [idx:=%d].\r\n",
           static_cast<int>(gruleIdx));
  if (gruleIdx < 1 || gruleIdx > gaclGrp.maxGruleNum) return nullptr;
  return static_cast<AclGruleEntry*>(silMemPoolId2Entry(gaclGrp.grulePool, gruleIdx - 1));
}

int32_t aclGruleAddEntry(uint32_t gruleIdx) {
  AclGruleEntry* g = aclGruleGetEntry(gruleIdx);
  if (g == nullptr) return CMN_ERR_NOT_FOUND;
  g->refCnt = 0;
  g->status = ACL_RULE_STATUS_CREATED;
  return 0;
}

int32_t aclGruleDelEntry(uint32_t gruleIdx) {
  AclGruleEntry* g = aclGruleGetEntry(gruleIdx);
  if (g == nullptr) return CMN_ERR_NOT_FOUND;
  if (g->refCnt != 0) return CMN_ERR_IN_USE;
  std::memset(static_cast<void*>(g), 0, sizeof *g);
  return 0;
}

void aclActionAttach(uint8_t* buf, uint32_t* len, const uint8_t* bytes, uint32_t count) {
  if (buf == nullptr || len == nullptr || bytes == nullptr) return;
  constexpr size_t kItems = 36;
  // Only the two length fields and the bytes after the second item are touched; the caller's
  // buffer holds the whole record.
  std::span<uint8_t> head(buf, kItems + 2);
  const uint16_t first = be::load16(head, kItems);
  const size_t secondAt = kItems + 2 + first;
  std::span<uint8_t> second(buf + secondAt, 2);
  const uint16_t secondLen = be::load16(second, 0);
  std::memcpy(buf + secondAt + 2 + secondLen, bytes, count);
  be::store16(second, 0, static_cast<uint16_t>(secondLen + count));
  *len += count;
}
