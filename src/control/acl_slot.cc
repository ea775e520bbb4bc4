#include "control/acl_slot.h"

#include <cstddef>
#include <cstring>

#include "main/acl_pools.h"
#include "platform/hwil.h"

static_assert(sizeof(AclSlotEntry) <= ACL_SLOT_ENTRY_SIZE, "slot record outgrew its pool entry");

AclSlotEntry* aclSlotFromLinks(SilDlNode* n) {
  return dlist::owner<AclSlotEntry>(n, offsetof(AclSlotEntry, links));
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
