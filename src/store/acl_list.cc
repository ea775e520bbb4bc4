#include "store/acl_list.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "counter/counter.h"
#include "main/acl_log.h"
#include "meter/meter.h"
#include "platform/mirror.h"
#include "platform/netlink.h"
#include "platform/timerange.h"
#include "store/acl_entry.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

// Column of a list type in ruleNum and in the bind types: L2, IPv4, IPv6, hybrid, MPLS, UDF.
int typeColumn(uint32_t listType) {
  switch (listType) {
    case ACL_LIST_TYPE_L2:
      return 0;
    case ACL_LIST_TYPE_IPV4:
      return 1;
    case ACL_LIST_TYPE_IPV6:
      return 2;
    case ACL_LIST_TYPE_HYBRID:
      return 3;
    case ACL_LIST_TYPE_MPLS:
      return 4;
    case ACL_LIST_TYPE_UDF:
      return 5;
    default:
      return -1;
  }
}

// What a rule holds outside the store, released ahead of the list's deletion. A released
// reference is also forgotten by the rule, so a deletion that stops at a time range and is
// repeated releases every reference exactly once.
int32_t listRuleRelease(AclRuleEntry* rule) {
  if (rule->meterId != 0) {
    meterRefcount(rule->meterId, -1);
    rule->meterId = 0;
    aclBitClear(rule->fieldBits, RULE_BIT_METERID);
    aclBitClear(rule->fieldBits, RULE_BIT_CARID);
  }
  if (rule->counterId != 0) {
    counterRefcount(rule->counterId, -1);
    rule->counterId = 0;
    aclBitClear(rule->fieldBits, RULE_BIT_COUNTERID);
  }
  if (aclBitTest(rule->actionBits, RULE_ACTION_MIRROR_GROUP)) {
    AclActionEntry* mirror = aclActionEntryGet(rule, RULE_ACTION_MIRROR_GROUP, 3);
    if (mirror != nullptr) {
      mirrorRefCount(aclActionValueWord(mirror), ACL_MODULE_NUM, -1);
      aclActionEntryDel(mirror);
    }
    aclBitClear(rule->actionBits, RULE_ACTION_MIRROR_GROUP);
  }
  if (aclBitTest(rule->fieldBits, RULE_BIT_TRID) && rule->trIdx != 0) {
    std::array<uint8_t, 4> release;
    be::store32(release, 0, static_cast<uint32_t>(-1));
    if (int ret = timerangeListSetApi(rule->trIdx, TIMERANGE_ATTR_REFCNT, release.data())) {
      return ret;
    }
    rule->trIdx = 0;
    rule->trActive = 0;
    aclBitClear(rule->fieldBits, RULE_BIT_TRID);
  }
  return 0;
}

}  // namespace

int aclListCompare(const void* a, const void* b) {
  const auto* la = static_cast<const AclListEntry*>(a);
  const auto* lb = static_cast<const AclListEntry*>(b);
  // The difference taken as a signed word, the order lists have always had in the tree.
  const int32_t d = static_cast<int32_t>(la->lstIdx - lb->lstIdx);
  return d < 0 ? -1 : (d > 0 ? 1 : 0);
}

AclListEntry* aclListEntryGet(uint32_t lstIdx) {
  // The tree compares whole records; only the key field of this one is read. The record is
  // cleared once per thread rather than on every lookup: the match services look a list up on
  // every query.
  thread_local AclListEntry key{};
  key.lstIdx = lstIdx;
  return static_cast<AclListEntry*>(avl_find(&gaclGrp.listTree, &key, nullptr));
}

int32_t aclLookupByIndex(uint32_t lstIdx) {
  return aclListEntryGet(lstIdx) != nullptr ? 0 : -1;
}

AclListEntry* aclListEntryGetByName(const char* name, uint32_t len) {
  if (name == nullptr && len != 0) return nullptr;
  for (auto* l = static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree)); l != nullptr;
       l = static_cast<AclListEntry*>(avl_next(&gaclGrp.listTree, l))) {
    if (l->nameLen == len && (len == 0 || std::memcmp(l->name, name, len) == 0)) return l;
  }
  return nullptr;
}

uint32_t aclListTypeGetByIndex(uint32_t lstIdx) {
  if (lstIdx == 0 || lstIdx > ACL_LIST_IDX_MAX) return ACL_LIST_TYPE_NONE;
  if (lstIdx <= 1000) return ACL_LIST_TYPE_L2;
  if (lstIdx <= 2000) return ACL_LIST_TYPE_IPV4;
  if (lstIdx <= 3000) return ACL_LIST_TYPE_HYBRID;
  if (lstIdx <= 4000) return ACL_LIST_TYPE_IPV6;
  if (lstIdx <= 5000) return ACL_LIST_TYPE_MPLS;
  return ACL_LIST_TYPE_UDF;
}

int32_t aclBindType(uint32_t listType, uint32_t dir) {
  const int col = typeColumn(listType);
  if (col < 0 || dir > ACL_DIR_VFP) return ACL_BIND_TYPE_NONE;
  return static_cast<int32_t>(dir * ACL_LIST_TYPE_COLUMNS) + col;
}

AclRuleNum* aclListRuleNumPair(uint32_t lstIdx) {
  const int col = typeColumn(aclListTypeGetByIndex(lstIdx));
  return col < 0 ? nullptr : &gaclGrp.ruleNum[col];
}

AclListEntry* aclListEntryAdd(uint32_t lstIdx) {
  auto* list = static_cast<AclListEntry*>(silMemPoolAlloc(gaclGrp.listPool, nullptr));
  if (list == nullptr) return nullptr;
  aclStoreGenBump();
  avl_create(&list->ruleTree, aclRuleCompare, sizeof(AclRuleEntry), offsetof(AclRuleEntry, node));
  list->lstIdx = lstIdx;
  list->freeIdx = lstIdx;
  list->priority = 0;
  const int n = std::snprintf(list->name, sizeof list->name, "acl%u", lstIdx);
  list->nameLen = static_cast<uint32_t>(n);
  list->refCnt = 0;
  list->ruleNum = 0;
  list->counterShared = ACL_SHARED_DEFAULT;
  list->meterShared = ACL_SHARED_DEFAULT;
  list->status = ACL_LIST_STATUS_ACTIVE;
  if (avl_add(&gaclGrp.listTree, list) != 0) {
    // Callers look the number up first; a duplicate is refused rather than linked twice.
    std::memset(static_cast<void*>(list), 0, sizeof *list);
    silMemPoolFree(gaclGrp.listPool, list);
    return nullptr;
  }
  ++gaclGrp.curLstNum;
  aclListNotify(ACL_NOTIFY_LIST_ADD, lstIdx);
  return list;
}

int32_t aclListEntryDel(AclListEntry* list) {
  if (list == nullptr) return CMN_ERR_NOT_FOUND;
  aclStoreGenBump();
  for (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r))) {
    if (int32_t ret = listRuleRelease(r)) return ret;
  }
  while (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree))) {
    avl_remove(&list->ruleTree, r);
    aclListRuleCount(list->lstIdx, -1);
    aclGaclruleFree(r);
  }
  const uint32_t lstIdx = list->lstIdx;
  list->nameLen = 0;
  std::memset(list->name, 0, sizeof list->name);
  list->refCnt = 0;
  list->ruleNum = 0;
  list->status = 0;
  aclListNotify(ACL_NOTIFY_LIST_DEL, lstIdx);
  avl_remove(&gaclGrp.listTree, list);
  // A retry timer still armed would fire into a freed record.
  if (list->retryTimer.list != nullptr) silTimerStop(list->retryTimer.list, &list->retryTimer);
  avl_destroy(&list->ruleTree);
  std::memset(static_cast<void*>(list), 0, sizeof *list);
  silMemPoolFree(gaclGrp.listPool, list);
  --gaclGrp.curLstNum;
  return 0;
}

void aclListRuleCount(uint32_t lstIdx, int8_t delta) {
  AclRuleNum* pair = aclListRuleNumPair(lstIdx);
  if (pair == nullptr) return;
  pair->cur = static_cast<uint16_t>(pair->cur + delta);
}

int32_t aclListRuleCheck(const AclListEntry* list) {
  if (list == nullptr || list->lstIdx == 0) return -1;
  const AclRuleNum* pair = aclListRuleNumPair(list->lstIdx);
  // A number without a type has a maximum of 0.
  if (pair == nullptr || pair->cur >= pair->max) return ACL_ERR_RULE_LIMIT;
  return list->ruleNum < pair->max ? 0 : ACL_ERR_RULE_LIMIT;
}

void aclListRulePrioritySet(AclListEntry* list, uint16_t base) {
  if (list == nullptr) return;
  uint16_t n = 0;
  for (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r))) {
    ++n;
    r->priority = static_cast<uint16_t>(base + n);
  }
}

void aclNotifyMsgBuild(std::span<uint8_t, ACL_NOTIFY_LEN> msg, uint16_t event, uint32_t lstIdx,
                       uint32_t ruleIdx) {
  std::fill(msg.begin(), msg.end(), uint8_t{0});
  be::store32(msg, 0, ACL_NOTIFY_LEN);
  be::store16(msg, 4, event);
  be::store32(msg, 24, lstIdx);
  be::store32(msg, 28, ruleIdx);
}

int32_t aclListNotify(uint16_t event, uint32_t lstIdx) {
  std::array<uint8_t, ACL_NOTIFY_LEN> msg;
  aclNotifyMsgBuild(msg, event, lstIdx, 0);
  const int ret = zorNetlinkSGrpSend(ACL_NOTIFY_GROUP, 0, msg.data(), ACL_NOTIFY_LEN);
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl notify] info =[ACL notify list %d event %d ret %d].\r\n",
           static_cast<int>(lstIdx), event, ret);
  return 0;
}

int32_t aclRuleNotify(uint16_t event, uint32_t lstIdx, uint32_t ruleIdx) {
  std::array<uint8_t, ACL_NOTIFY_LEN> msg;
  aclNotifyMsgBuild(msg, event, lstIdx, ruleIdx);
  const int ret = zorNetlinkSGrpSend(ACL_NOTIFY_GROUP, 0, msg.data(), ACL_NOTIFY_LEN);
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl notify] info =[ACL notify rule %d/%d event %d ret %d].\r\n",
           static_cast<int>(lstIdx), static_cast<int>(ruleIdx), event, ret);
  return 0;
}
