#include "services/acl_blacklist_record.h"

#include "main/acl_pools.h"
#include "platform/keycmp.h"

int aclBlackListCmp(const void* a, const void* b) {
  const auto* x = static_cast<const AclBlackListEntry*>(a);
  const auto* y = static_cast<const AclBlackListEntry*>(b);
  return keycmp::compare(x->sys, y->sys, x->slot, y->slot, x->lstIdx, y->lstIdx);
}

static_assert(sizeof(AclBlackListEntry) <= ACL_BLACKLIST_ENTRY_SIZE,
              "blacklist entry outgrew its pool entry");
