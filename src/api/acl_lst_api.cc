#include "api/acl_lst_api.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "services/acl_cpudefend_match.h"
#include "services/acl_match.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"

namespace {

AclListEntry* listFind(uint32_t lstIdx) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  // A list whose status fell to 0 is on its way out: it counts as absent.
  return list != nullptr && list->status != 0 ? list : nullptr;
}

int32_t listName(const AclListEntry* list, uintptr_t buf) {
  wire::BufDesc* desc = tblDesc(buf);
  if (desc->data == nullptr && desc->len != 0) return ACL_RET_INVALID;
  const uint32_t len = std::min(desc->len, list->nameLen);
  if (len != 0) std::memcpy(desc->data, list->name, len);
  desc->len = len;
  return 0;
}

// The match services take the query record as the descriptor's bytes. A descriptor without a data
// area is an empty query: the address services refuse it by its length, the CPU-defend match as
// missing data.
int32_t listMatch(uint32_t lstIdx, uint32_t cmd, uintptr_t buf) {
  wire::BufDesc* desc = tblDesc(buf);
  const std::span<uint8_t> query(static_cast<uint8_t*>(desc->data),
                                 desc->data != nullptr ? desc->len : 0);
  switch (cmd) {
    case ACL_MATCH_CMD_ADDR:
      return _aclMatch(lstIdx, query);
    case ACL_MATCH_CMD_ADDR_EX:
      return _aclMatchEx(lstIdx, query);
    case ACL_MATCH_CMD_IGMP:
    case ACL_MATCH_CMD_IGMPSNOOP:
      return _aclMulticastmatchEx(lstIdx, query);
    case ACL_MATCH_CMD_IPSEC:
      return _aclIpsecmatchEx(lstIdx, query);
    case ACL_MATCH_CMD_NAT:
      return _aclNatmatchEx(lstIdx, query);
    default:
      return aclCpuDefendMatch(lstIdx, desc);
  }
}

int32_t listValue(const AclListEntry* list, uint32_t cmd, uintptr_t buf) {
  uint32_t v = 0;
  switch (cmd) {
    case ACL_LST_CMD_REFCNT:
      v = static_cast<uint32_t>(list->refCnt);
      break;
    case ACL_LST_CMD_PRIORITY:
      v = list->priority;
      break;
    case ACL_LST_CMD_RULENUM:
      v = list->ruleNum;
      break;
    case ACL_LST_CMD_MAXRULENUM:
      v = gaclGrp.maxLstRuleNum;
      break;
    case ACL_LST_CMD_ATTR:
      v = list->lstAttr;
      break;
    case ACL_LST_CMD_COUNTER_SHARED:
      v = list->counterShared;
      break;
    case ACL_LST_CMD_METER_SHARED:
      v = list->meterShared;
      break;
    case ACL_LST_CMD_STATUS:
      v = list->status;
      break;
    case ACL_LST_CMD_DYN_REFCNT:
      v = gaclGrp.dynamicBindEnable != 0 ? 0 : static_cast<uint32_t>(list->refCnt);
      break;
    default:
      return -1;
  }
  tblSetValue(buf, v);
  return 0;
}

// Rename: a name another list has is refused, the list's own name is accepted as it is. Names
// are compared as they will be stored (at most 64 characters), so no two lists share one.
int32_t listRename(AclListEntry* list, uintptr_t key, uintptr_t buf, uint32_t mode) {
  const wire::BufDesc* desc = tblDesc(buf);
  if (desc->data == nullptr && desc->len != 0) return ACL_RET_INVALID;
  const uint32_t len = std::min(desc->len, ACL_LIST_NAME_LEN);
  const auto* name = static_cast<const char*>(desc->data);
  if (const AclListEntry* owner = aclListEntryGetByName(name, len)) {
    return owner == list ? 0 : CMN_ERR_NAME_USED;
  }
  if (int32_t ret =
          aclHwRelay(ACL_RELAY_LIST, mode, key, ACL_LST_CMD_NAME, buf, AclRelayData::Desc)) {
    return ret;
  }
  std::memset(list->name, 0, sizeof list->name);
  if (len != 0) std::memcpy(list->name, name, len);
  list->nameLen = len;
  return 0;
}

int32_t listShared(AclListEntry* list, uint32_t cmd, uint32_t value) {
  if (list->refCnt == 0) {
    if (cmd == ACL_LST_CMD_COUNTER_SHARED) {
      list->counterShared = value & 3;
    } else {
      list->meterShared = value & 3;
    }
    return 0;
  }
  if (cmd == ACL_LST_CMD_COUNTER_SHARED) {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL LIST SET] error. (Reason=[acl counter share can not modify(%d)])\r\n",
             static_cast<int>(list->lstIdx));
  } else {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL LIST SET] error. (Reason=[acl meter share can not modify(%d)])\r\n",
             static_cast<int>(list->lstIdx));
  }
  return ACL_ERR_SHARED_IN_USE;
}

int32_t listStatus(AclListEntry* list, uint32_t lstIdx, uint32_t value) {
  if (value == ACL_LST_STATUS_CREATE) {
    if (list != nullptr) return 0;
    return aclListEntryAdd(lstIdx) != nullptr ? 0 : CMN_ERR_NO_RESOURCE;
  }
  if (value == ACL_LST_STATUS_DELETE) {
    if (list == nullptr) return 0;
    if (list->refCnt != 0) {
      aclDebug(ACL_LOG_API,
               "ACL config [ACL LIST SET] error. (Reason=[filter list can not be delete(%d)])\r\n",
               static_cast<int>(lstIdx));
      return ACL_ERR_SHARED_IN_USE;
    }
    return aclListEntryDel(list);
  }
  return 0;
}

}  // namespace

int32_t aclLstGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t) {
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const auto* first = static_cast<const AclListEntry*>(avl_first(&gaclGrp.listTree));
  if (first == nullptr) return -1;
  tblSetValue(keyAddr, first->lstIdx);
  return 0;
}

int32_t aclLstGetNext(uintptr_t lstIdx, uintptr_t nextAddr, uintptr_t) {
  if (nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  AclListEntry key{};
  key.lstIdx = static_cast<uint32_t>(lstIdx);
  avl_index_t where = 0;
  void* cur = avl_find(&gaclGrp.listTree, &key, &where);
  // A current list that has gone resumes at the nearest greater number.
  const auto* next = static_cast<const AclListEntry*>(
      cur != nullptr ? avl_next(&gaclGrp.listTree, cur)
                     : avl_nearest(&gaclGrp.listTree, where, AVL_AFTER));
  if (next == nullptr) return -1;
  tblSetValue(nextAddr, next->lstIdx);
  return 0;
}

int32_t aclLstGetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf) {
  const auto lstIdx = static_cast<uint32_t>(key);
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;
  // Every list get only reads, the match services included: the compiled rules stay.
  AclQueryLockGuard lock;
  aclDebug(ACL_LOG_API, "ACL config [ACL LIST GET] info=[index:=%d cmd:=%d].\r\n",
           static_cast<int>(lstIdx), static_cast<int>(cmd));
  const AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL LIST GET] error. (Reason=[acl entry is not exist(%d)])\r\n",
             static_cast<int>(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (list->status == 0) return ACL_ERR_LIST_NOT_EXIST;
  if (cmd == 0 || cmd > ACL_LST_CMD_DYN_REFCNT) return -1;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  if (cmd == ACL_LST_CMD_NAME) return listName(list, buf);
  if (cmd >= ACL_LST_CMD_MATCH_FIRST && cmd <= ACL_LST_CMD_MATCH_LAST) {
    return listMatch(lstIdx, cmd, buf);
  }
  return listValue(list, cmd, buf);
}

int32_t aclLstSetApi(uintptr_t lstIdx, uintptr_t cmd, uintptr_t buf) {
  return _aclLstSetApi(lstIdx, cmd, buf, ACL_MODE_SET);
}

int32_t aclLstSyncApi(uintptr_t lstIdx, uintptr_t cmd, uintptr_t buf) {
  return _aclLstSetApi(lstIdx, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclLstSetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf, uint32_t mode) {
  const auto lstIdx = static_cast<uint32_t>(key);
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;
  AclLockGuard lock;
  AclListEntry* list = listFind(lstIdx);
  aclDebug(ACL_LOG_API, "ACL config [ACL LIST SET] info=[ index:=%d cmd:=%d].\r\n",
           static_cast<int>(lstIdx), static_cast<int>(cmd));
  if (list == nullptr && cmd != ACL_LST_CMD_STATUS) {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL LIST SET] error. (Reason=[acl entry is not exist(%d)])\r\n",
             static_cast<int>(lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  // A bound list keeps its configuration unless dynamic binding may re-apply it; a client may
  // still account its own use of the list.
  if (list != nullptr && list->refCnt > 0 && gaclGrp.dynamicBindEnable == 0 &&
      cmd != ACL_LST_CMD_REFCNT) {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL LIST SET] error. (Reason=[acl entry can not modify(%d)])\r\n",
             static_cast<int>(lstIdx));
    return CMN_ERR_IN_USE;
  }
  if (cmd == ACL_LST_CMD_RULENUM || cmd == ACL_LST_CMD_MAXRULENUM) return ACL_ERR_READ_ONLY;
  if (cmd == 0 || cmd > ACL_LST_CMD_STATUS) return -1;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  if (cmd == ACL_LST_CMD_NAME) return listRename(list, key, buf, mode);

  if (int32_t ret = aclHwRelay(ACL_RELAY_LIST, mode, key, cmd, buf)) return ret;
  const uint32_t value = tblValue(buf);
  switch (cmd) {
    case ACL_LST_CMD_REFCNT:
      list->refCnt = static_cast<int32_t>(static_cast<uint32_t>(list->refCnt) + value);
      return 0;
    case ACL_LST_CMD_PRIORITY:
      list->priority = static_cast<uint8_t>(value);
      return 0;
    case ACL_LST_CMD_ATTR:
      list->lstAttr = static_cast<uint8_t>(value);
      return 0;
    case ACL_LST_CMD_COUNTER_SHARED:
    case ACL_LST_CMD_METER_SHARED:
      return listShared(list, cmd, value);
    default:
      return listStatus(list, lstIdx, value);
  }
}
