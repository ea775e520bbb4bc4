// Destination IP tracking: the entries of next-hop addresses in use, the records that tie rules to
// them, the platform's neighbour query and detect list, and the propagation of neighbour reports
// to the rules that depend on an address.
#include "control/acl_dstip.h"

#include <array>
#include <cstddef>
#include <cstring>

#include "control/acl_nexthop.h"
#include "main/acl_group.h"
#include "main/acl_ip_str.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "store/acl_rule.h"
#include "wire/be.h"

namespace {

constexpr uint32_t kNbrQueryLen = 1024;
constexpr uint32_t kNbrQueryHeader = 5;  // vrfId, family code; the address and 4 zero bytes follow
constexpr uint32_t kNbrQueryTail = 4;
constexpr uint32_t kDetectListCmd = 6;
constexpr uint32_t kDetectHeader = 12;
constexpr uint8_t kDetectAdd = 1;
constexpr uint8_t kDetectRemove = 0;
constexpr uint8_t kDetectKind = 2;
constexpr uint32_t kAddrTextLen = 128;

AclDstIpEntry* entryOwner(SilDlNode* n) {
  return dlist::owner<AclDstIpEntry>(n, offsetof(AclDstIpEntry, node));
}
AclDstIpRuleEntry* recordOwner(SilDlNode* n) {
  return dlist::owner<AclDstIpRuleEntry>(n, offsetof(AclDstIpRuleEntry, node));
}
AclDstIpRuleEntry* linkOwner(SilDlNode* n) {
  return dlist::owner<AclDstIpRuleEntry>(n, offsetof(AclDstIpRuleEntry, entryNode));
}

// Family 1 is IPv4; the entry treats every other value as IPv6.
uint32_t addrLen(uint32_t family) {
  return family == ACL_DSTIP_FAMILY_V4 ? 4 : 16;
}
uint8_t familyCode(uint32_t family) {
  return family == ACL_DSTIP_FAMILY_V4 ? ACL_DSTIP_FAMILY_V4 : ACL_DSTIP_FAMILY_V6;
}

struct AddrText {
  std::array<char, kAddrTextLen> buf{};
  const char* text;
  explicit AddrText(const AclDstIpEntry* e)
      : text(aclIpTostr(e->destIp, familyCode(e->family), buf.data(), kAddrTextLen)) {}
};

// True when the platform knows the neighbour of the entry's address. A failing query counts as
// an unknown neighbour.
bool neighbourKnown(const AclDstIpEntry* e) {
  std::array<uint8_t, kNbrQueryLen> buf{};
  const uint32_t len = addrLen(e->family);
  be::store32(buf, 0, e->vrfId);
  be::store8(buf, 4, familyCode(e->family));
  std::memcpy(buf.data() + kNbrQueryHeader, e->destIp, len);
  const uint32_t reqLen = kNbrQueryHeader + len + kNbrQueryTail;
  ZorBufDesc req{buf.data(), reqLen};
  ZorBufDesc ans{buf.data(), kNbrQueryLen};
  if (zorIndexTrans(reinterpret_cast<uintptr_t>(&req), ZOR_TRANS_NEIGHBOUR, &ans) != 0) {
    return false;
  }
  return buf[reqLen] != 0;
}

// Adds the entry's address to the platform's detect list (so the platform keeps resolving it and
// reports changes) or removes it; the platform's result.
int32_t detectList(const AclDstIpEntry* e, uint8_t oper) {
  std::array<uint8_t, kDetectHeader + 16> rec{};
  const uint32_t len = addrLen(e->family);
  be::store8(rec, 0, oper);
  be::store8(rec, 1, familyCode(e->family));
  be::store8(rec, 2, kDetectKind);
  be::store32(rec, 4, e->vrfId);
  std::memcpy(rec.data() + kDetectHeader, e->destIp, len);
  ZorBufDesc desc{rec.data(), kDetectHeader + len};
  return hrdScalarSetApi(0, kDetectListCmd, &desc);
}

void logArpFind(const AclDstIpEntry* e, const char* addr) {
  if (e->macFindFlag == 1) {
    aclDebug(ACL_LOG_API,
             "ACL config [acl dst IP add] info =[vrfid = %d, family = %d,ipAddr = %s, ARP Find "
             "%d].\r\n",
             static_cast<int>(e->vrfId), e->family, addr, e->macFindFlag);
  } else {
    aclDebug(ACL_LOG_API,
             "ACL config [acl dst IP add] info =[vrfid = %d, family = %d,ipAddr = %s, ARP Find "
             "%d, will add detect list.].\r\n",
             static_cast<int>(e->vrfId), e->family, addr, e->macFindFlag);
  }
}

}  // namespace

AclDstIpEntry* aclDstIpEntryGet(uint32_t vrfId, const uint8_t* addr, uint32_t family) {
  if (addr == nullptr) return nullptr;
  SilDlNode* head = &gaclGrp.dstIpList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclDstIpEntry* e = entryOwner(n);
    if (e->vrfId == vrfId && e->family == family &&
        std::memcmp(e->destIp, addr, addrLen(family)) == 0) {
      return e;
    }
  }
  return nullptr;
}

AclDstIpEntry* aclDstIpEntryAdd(uint32_t vrfId, const uint8_t* addr, uint32_t family) {
  if (addr == nullptr) return nullptr;
  auto* e = static_cast<AclDstIpEntry*>(silMemPoolAlloc(gaclGrp.dstIpPool, nullptr));
  if (e == nullptr) return nullptr;
  std::memset(static_cast<void*>(e), 0, sizeof *e);
  std::memcpy(e->destIp, addr, addrLen(family));
  e->family = static_cast<uint8_t>(family);
  e->vrfId = vrfId;
  dlist::init(&e->ruleList);
  dlist::insertAfter(&gaclGrp.dstIpList, &e->node);

  const AddrText addrText(e);
  e->macFindFlag = neighbourKnown(e) ? 1 : 0;
  logArpFind(e, addrText.text);
  // Registered whether or not the neighbour is known: the platform then reports its changes.
  const int32_t ret = detectList(e, kDetectAdd);
  aclDebug(ACL_LOG_API,
           "ACL config [acl dst IP add] info =[vrfid = %d, family = %d,ipAddr = %s add detect "
           "list ret %d].\r\n",
           static_cast<int>(vrfId), e->family, addrText.text, static_cast<int>(ret));
  logArpFind(e, addrText.text);
  return e;
}

int32_t aclDstIpEntryDel(AclDstIpEntry* entry) {
  if (entry == nullptr) return 0;
  const AddrText addrText(entry);
  const int32_t ret = detectList(entry, kDetectRemove);
  aclDebug(ACL_LOG_API,
           "ACL config [acl dst IP del] info =[vrfid = %d, family = %d,ipAddr = %s add detect "
           "list ret %d].\r\n",
           static_cast<int>(entry->vrfId), entry->family, addrText.text, static_cast<int>(ret));
  // Records still linked to the entry would keep pointing into a freed one.
  while (!dlist::empty(&entry->ruleList)) dlist::unlink(entry->ruleList.next);
  dlist::unlink(&entry->node);
  std::memset(static_cast<void*>(entry), 0, sizeof *entry);
  silMemPoolFree(gaclGrp.dstIpPool, entry);
  return 0;
}

AclDstIpRuleEntry* aclDstIpRuleEntryGet(uint32_t lstIdx, uint32_t ruleIdx, uint32_t ordinal) {
  SilDlNode* head = &gaclGrp.dstIpRuleList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclDstIpRuleEntry* r = recordOwner(n);
    if (r->lstIdx == lstIdx && r->ruleIdx == ruleIdx && r->ordinal == ordinal) return r;
  }
  return nullptr;
}

AclDstIpRuleEntry* aclDstIpRuleEntryAdd(uint32_t lstIdx, uint32_t ruleIdx, uint32_t ordinal) {
  auto* r = static_cast<AclDstIpRuleEntry*>(silMemPoolAlloc(gaclGrp.dstIpRulePool, nullptr));
  if (r == nullptr) return nullptr;
  std::memset(static_cast<void*>(r), 0, sizeof *r);
  r->lstIdx = lstIdx;
  r->ruleIdx = ruleIdx;
  r->ordinal = ordinal;
  dlist::insertAfter(&gaclGrp.dstIpRuleList, &r->node);
  return r;
}

int32_t aclDstIpRuleEntryDel(AclDstIpRuleEntry* record) {
  if (record == nullptr) return 0;
  if (dlist::linked(&record->node)) dlist::unlink(&record->node);
  if (dlist::linked(&record->entryNode)) dlist::unlink(&record->entryNode);
  std::memset(static_cast<void*>(record), 0, sizeof *record);
  silMemPoolFree(gaclGrp.dstIpRulePool, record);
  return 0;
}

void aclDstIpRuleForget(uint32_t lstIdx, uint32_t ruleIdx) {
  SilDlNode* head = &gaclGrp.dstIpRuleList;
  if (head->next == nullptr) return;  // the group was never built
  bool freed = false;
  for (SilDlNode* n = head->next; n != head;) {
    SilDlNode* next = n->next;
    AclDstIpRuleEntry* r = recordOwner(n);
    if (r->lstIdx == lstIdx && r->ruleIdx == ruleIdx) {
      aclDstIpRuleEntryDel(r);
      freed = true;
    }
    n = next;
  }
  if (!freed) return;
  // An entry exists only for the rules that use it: one left without any is unregistered.
  SilDlNode* entries = &gaclGrp.dstIpList;
  for (SilDlNode* n = entries->next; n != entries;) {
    SilDlNode* next = n->next;
    AclDstIpEntry* e = entryOwner(n);
    if (dlist::empty(&e->ruleList)) aclDstIpEntryDel(e);
    n = next;
  }
}

int32_t aclRuleInDstIpLst(const AclDstIpRuleEntry* record, const AclDstIpEntry* entry) {
  if (record == nullptr || entry == nullptr) return -1;
  const SilDlNode* head = &entry->ruleList;
  for (const SilDlNode* n = head->next; n != head; n = n->next) {
    if (n == &record->entryNode) return 0;
  }
  return -1;
}

int32_t aclDstIpNbrChange(AclDstIpEntry* entry, uint32_t up) {
  if (entry == nullptr) return -1;
  const AddrText addrText(entry);
  aclDebug(ACL_LOG_GLOBAL,
           "ACL config [nexthop change] info =[ family = %d,ipAddr = %s, ARP find flag %d .].\r\n",
           entry->family, addrText.text, entry->macFindFlag);
  SilDlNode* head = &entry->ruleList;
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    const AclDstIpRuleEntry* rec = linkOwner(n);
    AclRuleEntry* rule = aclRuleEntryGetByIndex(rec->lstIdx, rec->ruleIdx);
    if (rule == nullptr) continue;
    if (up == 1) {
      // Never past the next-hop count: a report for a neighbour already counted changes nothing.
      if (rule->nhLearned < rule->nhNum) ++rule->nhLearned;
      if (rule->nhLearned == rule->nhNum) aclNextHopListAdd(rule->lstIdx);
    } else {
      if (rule->nhLearned == rule->nhNum) aclNextHopListRuleDel(rule->lstIdx, rule->ruleIdx);
      if (rule->nhLearned > 0) --rule->nhLearned;
    }
  }
  return 0;
}

int32_t aclNexthopStateHandle(uint32_t vrfId, const uint8_t* addr, uint32_t family,
                              uint32_t relearn) {
  AclDstIpEntry* e = aclDstIpEntryGet(vrfId, addr, family);
  if (e == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl nexthop state handle] error. (Reason=[get by arp entry NULL])\r\n");
    return -1;
  }
  const AddrText addrText(e);
  const uint8_t last = e->macFindFlag;
  if (neighbourKnown(e)) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL config [nexthop did state handle] info =[vrfid = %d, family = %d,ipAddr = %s, "
             "ARP Find,  last mac find state %d].\r\n",
             static_cast<int>(vrfId), e->family, addrText.text, last);
    if (last != 1) {
      e->macFindFlag = 1;
      aclDstIpNbrChange(e, 1);
    } else if (relearn != 0) {
      // The neighbour's data changed: every dependent rule leaves the hardware and comes back.
      e->macFindFlag = 0;
      aclDstIpNbrChange(e, 0);
      e->macFindFlag = 1;
      aclDstIpNbrChange(e, 1);
    }
  } else {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL config [nexthop did state handle] info =[vrfid = %d, family = %d,ipAddr = %s, "
             "ARP not Find, last mac find state %d .].\r\n",
             static_cast<int>(vrfId), e->family, addrText.text, last);
    if (last != 0) {
      e->macFindFlag = 0;
      aclDstIpNbrChange(e, 0);
    }
  }
  return 0;
}
