#include "api/acl_index_conv.h"

#include "store/acl_list.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

int32_t aclFreeIdxToIndex(uintptr_t freeIdx, uintptr_t indexAddr, uintptr_t /*unused*/) {
  if (indexAddr == 0) return CMN_ERR_BAD_PARAM;
  be::store32(reinterpret_cast<void*>(indexAddr), static_cast<uint32_t>(freeIdx));
  return ACL_RET_OK;
}

int32_t aclIndexToFreeIdx(uintptr_t index, uintptr_t freeIdxAddr, uintptr_t /*unused*/) {
  if (freeIdxAddr == 0) return CMN_ERR_BAD_PARAM;
  // Before start-up there is no list tree to search, and so no list.
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;
  const AclListEntry* list = aclListEntryGet(static_cast<uint32_t>(index));
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  be::store32(reinterpret_cast<void*>(freeIdxAddr), list->freeIdx);
  return ACL_RET_OK;
}
