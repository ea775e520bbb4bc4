// Conversion between a list number and the list's free index (function ids 45 and 46). Neither
// takes aclMutex: lists are created and deleted only by table functions, which all run in the
// command server's task, so no list can come or go while one of these runs there.
#pragma once

#include <cstdint>

// (freeIdx, address of a value word): writes freeIdx unchanged, 0.
int32_t aclFreeIdxToIndex(uintptr_t freeIdx, uintptr_t indexAddr, uintptr_t unused);
// (list number, address of a value word): writes the list's freeIdx, 0; ACL_ERR_LIST_NOT_EXIST
// when there is no such list.
int32_t aclIndexToFreeIdx(uintptr_t index, uintptr_t freeIdxAddr, uintptr_t unused);
