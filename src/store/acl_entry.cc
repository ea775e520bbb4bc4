#include "store/acl_entry.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "main/acl_group.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"

namespace {

bool isShort(uint32_t len) {
  return len <= ACL_SHORT_VALUE_LEN;
}

AclValueEntry* valueOf(SilDlNode* n) {
  return dlist::owner<AclValueEntry>(n, offsetof(AclValueEntry, link));
}
AclActionEntry* actionOf(SilDlNode* n) {
  return dlist::owner<AclActionEntry>(n, offsetof(AclActionEntry, link));
}

uint32_t bytesWord(std::span<const uint8_t> b) {
  uint32_t v = 0;
  for (size_t i = 0; i < b.size() && i < 4; ++i) v = (v << 8) | b[i];
  return v;
}

// Takes an entry of the kind len selects, clears it and gives it back.
template <typename Short, typename Long, typename Head>
void entryFree(Head* e, SIL_POOL_ID shortPool, SIL_POOL_ID longPool) {
  aclStoreGenBump();
  if (dlist::linked(&e->link)) dlist::unlink(&e->link);
  if (isShort(e->len)) {
    auto* s = reinterpret_cast<Short*>(e);
    std::memset(static_cast<void*>(s), 0, sizeof *s);
    silMemPoolFree(shortPool, s);
  } else {
    auto* l = reinterpret_cast<Long*>(e);
    std::memset(static_cast<void*>(l), 0, sizeof *l);
    silMemPoolFree(longPool, l);
  }
}

// A new entry of the kind len selects, with its bytes; nullptr when the pool is empty.
template <typename Short, typename Long, typename Head>
Head* entryAlloc(SIL_POOL_ID shortPool, SIL_POOL_ID longPool, const uint8_t* bytes, uint32_t len) {
  aclStoreGenBump();
  if (isShort(len)) {
    auto* s = static_cast<Short*>(silMemPoolAlloc(shortPool, nullptr));
    if (s == nullptr) return nullptr;
    if (len != 0) std::memcpy(s->value, bytes, len);
    s->hdr.len = static_cast<uint8_t>(len);
    return &s->hdr;
  }
  auto* l = static_cast<Long*>(silMemPoolAlloc(longPool, nullptr));
  if (l == nullptr) return nullptr;
  std::memcpy(l->value, bytes, len);
  l->hdr.len = static_cast<uint8_t>(len);
  return &l->hdr;
}

int32_t valueAdd(AclRuleEntry* rule, uint8_t code, const uint8_t* value, uint32_t len) {
  if (rule == nullptr || len > ACL_LONG_VALUE_LEN || (value == nullptr && len != 0)) {
    return CMN_ERR_BAD_PARAM;
  }
  AclValueEntry* e = entryAlloc<AclShortValueEntry, AclLongValueEntry, AclValueEntry>(
      gaclGrp.shortRulePool, gaclGrp.longRulePool, value, len);
  if (e == nullptr) return CMN_ERR_NO_RESOURCE;
  e->code = code;
  // After every entry of a lower or equal code.
  SilDlNode* pos = rule->valueList.next;
  while (pos != &rule->valueList && valueOf(pos)->code <= code) pos = pos->next;
  dlist::insertBefore(pos, &e->link);
  return 0;
}

int32_t actionAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                  uint32_t len, int sorted) {
  if (rule == nullptr || len > ACL_LONG_VALUE_LEN || (param == nullptr && len != 0)) {
    return CMN_ERR_BAD_PARAM;
  }
  AclActionEntry* e = entryAlloc<AclShortActionEntry, AclLongActionEntry, AclActionEntry>(
      gaclGrp.shortActionPool, gaclGrp.longActionPool, param, len);
  if (e == nullptr) return CMN_ERR_NO_RESOURCE;
  e->code = code;
  e->slot = len == 0 ? ACL_ACTION_NO_SLOT : slot;
  SilDlNode* pos = &rule->actionList;
  if (sorted != 0) {
    // Before the first entry of a higher code, or of this code and a higher slot.
    pos = rule->actionList.next;
    while (pos != &rule->actionList) {
      const AclActionEntry* x = actionOf(pos);
      if (x->code > e->code || (x->code == e->code && x->slot > e->slot)) break;
      pos = pos->next;
    }
  }
  dlist::insertBefore(pos, &e->link);
  return 0;
}

// Deletes the action entries whose code drop picks.
template <typename Pred>
void actionsDrop(AclRuleEntry* rule, Pred drop) {
  SilDlNode* n = rule->actionList.next;
  while (n != &rule->actionList) {
    SilDlNode* next = n->next;
    AclActionEntry* e = actionOf(n);
    if (drop(e->code)) aclActionEntryDel(e);
    n = next;
  }
}

}  // namespace

std::span<uint8_t> aclValueBytes(AclValueEntry* e) {
  if (isShort(e->len)) return {reinterpret_cast<AclShortValueEntry*>(e)->value, e->len};
  return {reinterpret_cast<AclLongValueEntry*>(e)->value, e->len};
}

std::span<uint8_t> aclActionBytes(AclActionEntry* e) {
  if (isShort(e->len)) return {reinterpret_cast<AclShortActionEntry*>(e)->value, e->len};
  return {reinterpret_cast<AclLongActionEntry*>(e)->value, e->len};
}

uint32_t aclValueWord(const AclValueEntry* e) {
  return bytesWord(aclValueBytes(const_cast<AclValueEntry*>(e)));
}

uint32_t aclActionValueWord(const AclActionEntry* e) {
  return bytesWord(aclActionBytes(const_cast<AclActionEntry*>(e)));
}

int32_t aclRuleShortEntryAdd(AclRuleEntry* rule, uint8_t code, const uint8_t* value, uint32_t len) {
  return valueAdd(rule, code, value, len);
}

int32_t aclRuleLongEntryAdd(AclRuleEntry* rule, uint8_t code, const uint8_t* value, uint32_t len) {
  return valueAdd(rule, code, value, len);
}

int32_t aclRuleShortEntryDel(AclValueEntry* entry) {
  if (entry == nullptr) return CMN_ERR_BAD_PARAM;
  entryFree<AclShortValueEntry, AclLongValueEntry>(entry, gaclGrp.shortRulePool,
                                                   gaclGrp.longRulePool);
  return 0;
}

int32_t aclRuleLongEntryDel(AclValueEntry* entry) {
  return aclRuleShortEntryDel(entry);
}

AclValueEntry* aclRuleValueEntryGet(AclRuleEntry* rule, uint8_t code) {
  if (rule == nullptr) return nullptr;
  for (AclValueEntry* e = aclValueFirst(rule); e != nullptr; e = aclValueNext(rule, e)) {
    if (e->code == code) return e;
  }
  return nullptr;
}

int32_t aclRuleShortEntryDelByType(AclRuleEntry* rule, uint8_t code) {
  AclValueEntry* e = aclRuleValueEntryGet(rule, code);
  if (e == nullptr) return -1;
  return aclRuleShortEntryDel(e);
}

int32_t aclRuleValueGet(AclRuleEntry* rule, uint8_t code, std::span<uint8_t> out, uint32_t* len) {
  AclValueEntry* e = aclRuleValueEntryGet(rule, code);
  if (e == nullptr) return -1;
  const auto bytes = aclValueBytes(e);
  std::copy_n(bytes.begin(), std::min(bytes.size(), out.size()), out.begin());
  if (len != nullptr) *len = e->len;
  return 0;
}

AclActionEntry* aclActionEntryGet(AclRuleEntry* rule, uint8_t code, uint8_t slot) {
  if (rule == nullptr) return nullptr;
  for (AclActionEntry* e = aclActionFirst(rule); e != nullptr; e = aclActionNext(rule, e)) {
    if (e->code == code && e->slot == slot) return e;
  }
  return nullptr;
}

int32_t aclShortActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                               uint32_t len) {
  return actionAdd(rule, code, slot, param, len, 1);
}

int32_t aclLongActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                              uint32_t len) {
  return actionAdd(rule, code, slot, param, len, 1);
}

int32_t _aclShortActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot,
                                const uint8_t* param, uint32_t len, int sorted) {
  return actionAdd(rule, code, slot, param, len, sorted);
}

int32_t _aclLongActionEntryAdd(AclRuleEntry* rule, uint8_t code, uint8_t slot, const uint8_t* param,
                               uint32_t len, int sorted) {
  return actionAdd(rule, code, slot, param, len, sorted);
}

int32_t aclActionEntryDel(AclActionEntry* entry) {
  if (entry == nullptr) return CMN_ERR_BAD_PARAM;
  entryFree<AclShortActionEntry, AclLongActionEntry>(entry, gaclGrp.shortActionPool,
                                                     gaclGrp.longActionPool);
  return 0;
}

int32_t aclShortActionEntryDel(AclActionEntry* entry) {
  return aclActionEntryDel(entry);
}
int32_t aclLongActionEntryDel(AclActionEntry* entry) {
  return aclActionEntryDel(entry);
}

int32_t aclRuleListDel(AclRuleEntry* rule) {
  if (rule == nullptr) return 0;
  while (!dlist::empty(&rule->valueList)) aclRuleShortEntryDel(valueOf(rule->valueList.next));
  return 0;
}

int32_t aclActionListDel(AclRuleEntry* rule) {
  if (rule != nullptr) actionsDrop(rule, [](uint8_t code) { return code < RULE_ACTION_MAX; });
  return 0;
}

int32_t aclOutActionListDel(AclRuleEntry* rule) {
  if (rule != nullptr) actionsDrop(rule, [](uint8_t code) { return code >= RULE_ACTION_MAX; });
  return 0;
}

AclValueEntry* aclValueFirst(AclRuleEntry* rule) {
  SilDlNode* n = rule->valueList.next;
  return n == &rule->valueList || n == nullptr ? nullptr : valueOf(n);
}

AclValueEntry* aclValueNext(AclRuleEntry* rule, AclValueEntry* e) {
  SilDlNode* n = e->link.next;
  return n == &rule->valueList ? nullptr : valueOf(n);
}

AclActionEntry* aclActionFirst(AclRuleEntry* rule) {
  SilDlNode* n = rule->actionList.next;
  return n == &rule->actionList || n == nullptr ? nullptr : actionOf(n);
}

AclActionEntry* aclActionNext(AclRuleEntry* rule, AclActionEntry* e) {
  SilDlNode* n = e->link.next;
  return n == &rule->actionList ? nullptr : actionOf(n);
}
