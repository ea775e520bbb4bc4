// Slot records in their sorted list, and the capacities each card reports for its slot.
#include "control/acl_slot.h"

#include <cstddef>
#include <cstring>

#include "main/acl_log.h"
#include "main/acl_pools.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"
#include "wire/acl_slot_names.h"
#include "wire/be.h"

static_assert(sizeof(AclSlotEntry) <= ACL_SLOT_ENTRY_SIZE, "slot record outgrew its pool entry");
static_assert(wire::kSlotBindTypes == ACL_BIND_TYPE_NUM);

namespace {

// The card's answer as the device's atoi reads it (leading blanks, a sign, digits), kept only when
// it is a positive 32-bit number: 0, a negative number, text or an overlong number leave the
// capacity the slot had.
bool capacityValue(const char* text, size_t len, uint32_t* out) {
  size_t i = 0;
  while (i < len && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < len && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  uint64_t v = 0;
  bool digits = false;
  for (; i < len && text[i] >= '0' && text[i] <= '9'; ++i) {
    digits = true;
    v = v * 10 + static_cast<uint64_t>(text[i] - '0');
    if (v > UINT32_MAX) return false;
  }
  if (!digits || negative || v == 0) return false;
  *out = static_cast<uint32_t>(v);
  return true;
}

}  // namespace

AclSlotEntry* aclSlotFromLinks(SilDlNode* n) {
  return dlist::owner<AclSlotEntry>(n, offsetof(AclSlotEntry, links));
}

AclSlotEntry* aclSlotFirst() {
  SilDlNode* head = &gaclGrp.slotList;
  if (head->next == nullptr || head->next == head) return nullptr;
  return aclSlotFromLinks(head->next);
}

AclSlotEntry* aclSlotNext(const AclSlotEntry* e) {
  SilDlNode* n = e->links.next;
  return n == &gaclGrp.slotList ? nullptr : aclSlotFromLinks(n);
}

AclSlotEntry* aclSlotEntryAdd(uint32_t sys, uint32_t slot) {
  auto* e = static_cast<AclSlotEntry*>(silMemPoolAlloc(gaclGrp.slotPool, nullptr));
  if (e == nullptr) return nullptr;
  std::memset(e, 0, sizeof *e);
  e->sys = sys;
  e->slot = slot;
  e->maxRuleNum = gaclGrp.maxGruleNum;
  for (uint32_t& m : e->maxSubRuleNum) m = gaclGrp.maxGruleNum;
  // After every record whose key is less than or equal to the new one.
  SilDlNode* head = &gaclGrp.slotList;
  SilDlNode* pos = head->next;
  for (; pos != head; pos = pos->next) {
    const AclSlotEntry* s = aclSlotFromLinks(pos);
    if (s->sys > sys || (s->sys == sys && s->slot > slot)) break;
  }
  dlist::insertBefore(pos, &e->links);
  return e;
}

AclSlotEntry* aclSlotEntryGet(uint32_t sys, uint32_t slot) {
  SilDlNode* head = &gaclGrp.slotList;
  if (head->next == nullptr) return nullptr;  // the group is not built
  for (SilDlNode* n = head->next; n != head; n = n->next) {
    AclSlotEntry* s = aclSlotFromLinks(n);
    if (s->sys == sys && s->slot == slot) return s;
  }
  return nullptr;
}

AclSlotEntry* aclSlotEntryGetOrAdd(uint32_t sys, uint32_t slot) {
  if (AclSlotEntry* e = aclSlotEntryGet(sys, slot)) return e;
  return aclSlotEntryAdd(sys, slot);
}

int32_t aclSlotEntryDel(AclSlotEntry* entry) {
  if (entry == nullptr) return 0;
  dlist::unlink(&entry->links);
  std::memset(entry, 0, sizeof *entry);
  silMemPoolFree(gaclGrp.slotPool, entry);
  return 0;
}

void aclSlotEntrySelfAdd() {
  const uint32_t sys = zorSelfSysIndex();
  const uint32_t slot = zorSelfSlotIndex();
  if (sys != 0 && slot != 0) aclSlotEntryAdd(sys, slot);
}

int32_t aclSlotMaxSubRuleNumUpdate(uint32_t sys, uint32_t slot, uint32_t cardType) {
  AclSlotEntry* e = aclSlotEntryGetOrAdd(sys, slot);
  if (e == nullptr) return ACL_ERR_SLOT_NOT_EXIST;
  uint8_t key[16] = {};
  be::store32(key, 0, sys);
  be::store32(key, 4, slot);
  be::store32(key, 12, cardType);
  for (uint32_t stage = 0; stage <= ACL_DIR_VFP; ++stage) {
    uint8_t buf[ACL_SLOT_OPT_BUF_LEN] = {};
    for (uint32_t i = 0; i < ACL_LIST_TYPE_COLUMNS; ++i) {
      const char* k = wire::kSlotBindTypeNames[stage * ACL_LIST_TYPE_COLUMNS + i].optionKey;
      std::memcpy(&buf[i * ACL_SLOT_OPT_ENTRY_LEN], k, std::strlen(k));
    }
    ZorBufDesc desc{buf, sizeof buf};
    const int ret = zorHwilCardGet(key, HWIL_CARD_OPTION_QUERY, &desc);
    aclDebug(ACL_LOG_GLOBAL, "acl get sys %d slot %d type %d param%d ret(0x%x).\r\n",
             static_cast<int>(sys), static_cast<int>(slot), static_cast<int>(cardType),
             static_cast<int>(stage), static_cast<unsigned>(ret));
    if (ret != 0) continue;
    for (uint32_t i = 0; i < ACL_LIST_TYPE_COLUMNS; ++i) {
      const uint8_t* entry = &buf[i * ACL_SLOT_OPT_ENTRY_LEN];
      // The card's texts are read only inside their fields, terminated or not.
      const char* k = reinterpret_cast<const char*>(entry);
      const char* v = reinterpret_cast<const char*>(entry + ACL_SLOT_OPT_VALUE_AT);
      const int kl = static_cast<int>(strnlen(k, ACL_SLOT_OPT_KEY_LEN));
      const size_t vl = strnlen(v, ACL_SLOT_OPT_VALUE_LEN_AT - ACL_SLOT_OPT_VALUE_AT);
      aclDebug(ACL_LOG_GLOBAL, "acl get key %.*s value is %.*s\r\n", kl, k, static_cast<int>(vl),
               v);
      const auto valueLen = static_cast<int32_t>(be::load32(entry + ACL_SLOT_OPT_VALUE_LEN_AT));
      uint32_t cap = 0;
      if (valueLen > 0 && capacityValue(v, vl, &cap)) {
        e->maxSubRuleNum[stage * ACL_LIST_TYPE_COLUMNS + i] = cap;
      }
    }
  }
  return 0;
}

bool aclSlotIfLocate(uint32_t ifIndex, AclSlotIfLoc* loc) {
  uint8_t words[ZOR_LOC_WORDS * 4] = {};
  if (zorIndexTrans(ifIndex, ZOR_TRANS_LOCATION, words) != 0) return false;
  loc->sys = be::load32(words + 4 * ZOR_LOC_SYS);
  loc->slot = be::load32(words + 4 * ZOR_LOC_SLOT);
  loc->kind = be::load32(words + 4 * ZOR_LOC_KIND);
  return true;
}
