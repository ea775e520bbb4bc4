#include "hw/acl_if_record.h"

#include "main/acl_pools.h"
#include "platform/keycmp.h"

int aclIfCompare(const void* a, const void* b) {
  const auto* x = static_cast<const AclIfEntry*>(a);
  const auto* y = static_cast<const AclIfEntry*>(b);
  return keycmp::compare(x->unit, y->unit);
}

int aclIfListCmp(const void* a, const void* b) {
  const auto* x = static_cast<const AclIfListEntry*>(a);
  const auto* y = static_cast<const AclIfListEntry*>(b);
  return keycmp::compare(x->lstIdx, y->lstIdx, x->ruleIdx, y->ruleIdx, x->ifIndex, y->ifIndex,
                         x->listType, y->listType, x->dir, y->dir);
}

static_assert(sizeof(AclIfEntry) <= ACL_IF_ENTRY_SIZE, "interface record outgrew its pool entry");
static_assert(sizeof(AclIfListEntry) <= ACL_IFLIST_ENTRY_SIZE,
              "bind-list entry outgrew its pool entry");
