// The GEM port binding table (function ids 75 to 81): the GEM bind-list walk, the GEM port record
// walk, and the record status and bind slots of one GEM port, with the relay to the hardware
// layer ordered by whether the PON interface is on this system.
#include "api/acl_gemport_api.h"

#include <array>
#include <span>

#include "api/acl_if_api.h"
#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "hw/acl_bind_slot.h"
#include "hw/acl_gemport_record.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "services/acl_traffic_policy.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

int num(uint32_t v) {
  return static_cast<int>(v);
}

template <size_t N>
std::span<uint8_t, N> bytesAt(uintptr_t addr) {
  return std::span<uint8_t, N>(reinterpret_cast<uint8_t*>(addr), N);
}

struct GemKey {
  uint32_t ifIndex;
  uint16_t onuId;
  uint16_t gemPort;
  uint32_t filter;
};

GemKey keyLoad(uintptr_t addr) {
  const auto k = bytesAt<ACL_GEM_KEY_LEN>(addr);
  return {be::load32(k, ACL_GEM_KEY_IF), be::load16(k, ACL_GEM_KEY_ONU),
          be::load16(k, ACL_GEM_KEY_GEM), be::load32(k, ACL_GEM_KEY_FILTER)};
}

void keyStore(uintptr_t addr, const AclGemPortEntry* e) {
  const auto k = bytesAt<ACL_GEM_KEY_LEN>(addr);
  be::store32(k, ACL_GEM_KEY_IF, e->unit);
  be::store16(k, ACL_GEM_KEY_ONU, e->onuId);
  be::store16(k, ACL_GEM_KEY_GEM, e->gemPort);
}

bool filtered(uint32_t filter, uint32_t bit) {
  return (filter & (0x80000000u >> bit)) != 0;
}

bool passes(const AclGemPortEntry* e, const GemKey& k) {
  if (filtered(k.filter, ACL_GEM_FILTER_IF) && e->unit != k.ifIndex) return false;
  if (filtered(k.filter, ACL_GEM_FILTER_ONU) && e->onuId != k.onuId) return false;
  if (filtered(k.filter, ACL_GEM_FILTER_GEM) && e->gemPort != k.gemPort) return false;
  return true;
}

void lstKeyStore(uintptr_t addr, const AclGemPortListEntry* e) {
  const auto k = bytesAt<ACL_GEM_LST_KEY_LEN>(addr);
  be::store32(k, ACL_GEM_LST_KEY_LST, e->lstIdx);
  be::store32(k, ACL_GEM_LST_KEY_DIR, e->dir);
  be::store32(k, ACL_GEM_LST_KEY_IF, e->ifIndex);
  be::store16(k, ACL_GEM_LST_KEY_ONU, e->onuId);
  be::store16(k, ACL_GEM_LST_KEY_GEM, e->gemPort);
  be::store32(k, ACL_GEM_LST_KEY_TYPE, e->listType);
  be::store32(k, ACL_GEM_LST_KEY_TYPE + 4, 0);
}

// The bind slot a command names: 2 to 13 the typed slots, 21 to 26 the pre-stage ones.
const AclBindSlotDef* slotOf(uint32_t cmd) {
  if (cmd >= 2 && cmd <= 13) return &kAclBindSlots[cmd];
  if (cmd >= 21 && cmd <= ACL_GEM_CMD_LAST) {
    return &kAclBindSlots[ACL_BIND_SLOT_FIRST_VFP + (cmd - 21)];
  }
  return nullptr;
}

class GemSet {
 public:
  GemSet(uintptr_t keyAddr, const GemKey& k, uint32_t cmd, uintptr_t buf, uint32_t mode)
      : keyAddr_(keyAddr), k_(k), cmd_(cmd), buf_(buf), mode_(mode), value_(tblValue(buf)) {}

  int32_t run(AclGemPortEntry* rec) {
    std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
    if (zorIndexTrans(k_.ifIndex, ZOR_TRANS_LOCATION, location.data()) != 0) {
      aclDebug(ACL_LOG_API,
               "ACL config [onu set api] error. (Reason=[Failed to get interface phy num]");
      return ACL_RET_IF_NO_LOCATION;
    }
    const std::span<const uint8_t> loc(location);
    local_ = be::load32(loc, 4 * ZOR_LOC_SYS) == zorSelfSysIndex() ||
             be::load32(loc, 4 * ZOR_LOC_KIND) == ZOR_IF_KIND_AGG;
    const AclBindSlotDef* s = slotOf(cmd_);
    prev_ = previous(rec, s);
    if (!local_) {
      // The hardware layer of the interface's own system takes the change first; when it
      // refuses, nothing here changes.
      int32_t ret = aclHwRelay(ACL_RELAY_GEM_PORT, mode_, keyAddr_, cmd_, buf_);
      if (ret != 0) {
        aclDebug(ACL_LOG_API,
                 "ACL config [onu set api] error. (Reason=[None-local interface, sync the config "
                 "error]");
        undoRelay();
        return ret == ACL_RET_UNKNOWN ? CMN_ERR_SYNC_FAILED : ret;
      }
      return s != nullptr ? doSlot(rec, *s) : doStatus(rec);
    }
    int32_t ret = s != nullptr ? doSlot(rec, *s) : doStatus(rec);
    if (ret != 0) return ret;
    ret = aclHwRelay(ACL_RELAY_GEM_PORT, mode_, keyAddr_, cmd_, buf_);
    if (ret == 0) return 0;
    aclDebug(ACL_LOG_API,
             "ACL config [onu set api] error. (Reason=[Local interface, sync the config error)");
    if (ret == ACL_RET_UNKNOWN) ret = CMN_ERR_SYNC_FAILED;
    if (s != nullptr) {
      undoRelay();
      if (AclGemPortEntry* now = aclGemPortEntryGet(k_.ifIndex, k_.onuId, k_.gemPort)) {
        uint32_t* slot = &(now->slots.*s->field);
        if (*slot != prev_) {
          aclGemPortRuleUpdate(k_.ifIndex, k_.onuId, k_.gemPort, s->kind, s->dir, prev_, slot);
        }
      }
    }
    return ret;
  }

 private:
  uint32_t previous(const AclGemPortEntry* rec, const AclBindSlotDef* s) const {
    if (rec == nullptr) return s == nullptr ? ACL_IF_ROW_DESTROY : 0;
    return s != nullptr ? rec->slots.*s->field : rec->rowStatus;
  }
  void undoRelay() {
    std::array<uint8_t, 4> prev{};
    be::store32(prev.data(), prev_);
    aclHwRelayData(ACL_RELAY_GEM_PORT, mode_, keyAddr_, cmd_, prev.data(), false, 4);
  }

  int32_t doStatus(AclGemPortEntry* rec) {
    if (value_ == ACL_IF_ROW_CREATE) {
      if (rec != nullptr) return 0;
      // Without ONU and GEM port the key names the PON interface itself, which its own table
      // binds.
      if (k_.onuId == 0 && k_.gemPort == 0) return CMN_ERR_BAD_PARAM;
      return aclGemPortEntryAdd(k_.ifIndex, k_.onuId, k_.gemPort) != nullptr
                 ? 0
                 : static_cast<int32_t>(gaclGrp.lastErr);
    }
    if (value_ == ACL_IF_ROW_ACTIVE || value_ == ACL_IF_ROW_NOT_IN_SERVICE) {
      if (rec == nullptr) return ACL_ERR_IF_NOT_EXIST;
      rec->rowStatus = static_cast<uint16_t>(value_);
      return 0;
    }
    if (value_ != ACL_IF_ROW_DESTROY) return 0;
    if (rec == nullptr) {
      aclDebug(ACL_LOG_API, "ACL config [onu set api] error. (Reason =[if %d entry is NULL])",
               num(k_.ifIndex));
      return 0;
    }
    // A record with anything bound stays: deleting it would strand the bindings.
    for (const AclBindSlotDef& s : kAclBindSlots) {
      if (rec->slots.*s.field != 0) return 0;
    }
    return aclGemPortEntryDel(rec);
  }

  int32_t doSlot(AclGemPortEntry* rec, const AclBindSlotDef& s) {
    uint32_t* slot = &(rec->slots.*s.field);
    if (value_ == *slot) return 0;
    const uint32_t prev = *slot;
    const int32_t ret =
        aclGemPortRuleUpdate(k_.ifIndex, k_.onuId, k_.gemPort, s.kind, s.dir, value_, slot);
    // The update may have taken the old list off before the new one failed: put it back.
    if (ret != 0 && *slot != prev) {
      aclGemPortRuleUpdate(k_.ifIndex, k_.onuId, k_.gemPort, s.kind, s.dir, prev, slot);
    }
    return ret;
  }

  uintptr_t keyAddr_;
  GemKey k_;
  uint32_t cmd_;
  uintptr_t buf_;
  uint32_t mode_;
  uint32_t value_;
  uint32_t prev_ = 0;
  bool local_ = true;
};

// The traffic policies (14 to 20, in the order of the interface table's 34 to 40) act on the GEM
// port's PON interface: the operation is the interface one with the key's ifIndex, and needs no
// GEM port record. The buffer is a word holding the address of a record the command server owns;
// like the interface's, the command is not relayed, since that address means nothing elsewhere.
int32_t gemPolicySet(const GemKey& k, uint32_t cmd, uintptr_t buf) {
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(k.ifIndex, ZOR_TRANS_LOCATION, location.data()) != 0) {
    aclDebug(ACL_LOG_API,
             "ACL config [onu set api] error. (Reason=[Failed to get interface phy num]");
    return ACL_RET_IF_NO_LOCATION;
  }
  const auto* record = reinterpret_cast<const uint8_t*>(*reinterpret_cast<const uintptr_t*>(buf));
  if (record == nullptr) return CMN_ERR_BAD_PARAM;
  return aclTrafficIfByCmd(k.ifIndex, ACL_IF_CMD_TRAFFIC_FIRST + (cmd - ACL_GEM_CMD_FIRST_TRAFFIC),
                           record);
}

}  // namespace

int32_t aclGemPortLstGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t) {
  if (keyAddr == 0) return ACL_RET_INVALID;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const auto* first = static_cast<const AclGemPortListEntry*>(avl_first(&gaclGrp.gemPortListTree));
  if (first == nullptr) return -1;
  lstKeyStore(keyAddr, first);
  return 0;
}

int32_t aclGemPortLstGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t) {
  if (keyAddr == 0 || nextAddr == 0) return ACL_RET_INVALID;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const auto in = bytesAt<ACL_GEM_LST_KEY_LEN>(keyAddr);
  AclGemPortListEntry key{};
  key.lstIdx = be::load32(in, ACL_GEM_LST_KEY_LST);
  key.dir = static_cast<uint8_t>(be::load32(in, ACL_GEM_LST_KEY_DIR));
  key.ifIndex = be::load32(in, ACL_GEM_LST_KEY_IF);
  key.onuId = be::load16(in, ACL_GEM_LST_KEY_ONU);
  key.gemPort = be::load16(in, ACL_GEM_LST_KEY_GEM);
  key.listType = static_cast<uint8_t>(be::load32(in, ACL_GEM_LST_KEY_TYPE));
  aclDebug(ACL_LOG_IF,
           "ACL interface [onu port list get next] info=[input index :lstIdx=%d dir=%d ifIdx=%d, "
           "onuId=%d, gemPort=%d, listType=%d].",
           num(key.lstIdx), key.dir, num(key.ifIndex), key.onuId, key.gemPort, key.listType);
  avl_index_t where = 0;
  void* cur = avl_find(&gaclGrp.gemPortListTree, &key, &where);
  const auto* next = static_cast<const AclGemPortListEntry*>(
      cur != nullptr ? avl_next(&gaclGrp.gemPortListTree, cur)
                     : avl_nearest(&gaclGrp.gemPortListTree, where, AVL_AFTER));
  if (next == nullptr) return -1;
  lstKeyStore(nextAddr, next);
  return 0;
}

int32_t aclGemPortGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t) {
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const GemKey k = keyLoad(keyAddr);
  for (auto* e = static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree)); e != nullptr;
       e = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e))) {
    if (!passes(e, k)) continue;
    keyStore(keyAddr, e);
    return 0;
  }
  return -1;
}

int32_t aclGemPortGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t) {
  if (keyAddr == 0 || nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const GemKey k = keyLoad(keyAddr);
  AclGemPortEntry cur{};
  cur.unit = k.ifIndex;
  cur.onuId = k.onuId;
  cur.gemPort = k.gemPort;
  avl_index_t where = 0;
  void* found = avl_find(&gaclGrp.gemPortTree, &cur, &where);
  auto* e = static_cast<AclGemPortEntry*>(
      found != nullptr ? avl_next(&gaclGrp.gemPortTree, found)
                       : avl_nearest(&gaclGrp.gemPortTree, where, AVL_AFTER));
  for (; e != nullptr; e = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e))) {
    if (!passes(e, k)) continue;
    keyStore(nextAddr, e);
    be::store32(bytesAt<ACL_GEM_KEY_LEN>(nextAddr), ACL_GEM_KEY_FILTER, k.filter);
    return 0;
  }
  return -1;
}

int32_t aclGemPortGetApi(uintptr_t keyAddr, uintptr_t cmdArg, uintptr_t buf) {
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_IF_NOT_EXIST;
  AclLockGuard lock;
  const GemKey k = keyLoad(keyAddr);
  aclDebug(ACL_LOG_API, "ACL config [ACL ONU GET] info=[index:=%d cmd:=%d].", num(k.ifIndex),
           num(cmd));
  const AclGemPortEntry* rec = aclGemPortEntryGet(k.ifIndex, k.onuId, k.gemPort);
  if (rec == nullptr) {
    aclDebug(ACL_LOG_API, "ACL config [ACL ONU GET] error.(Reason=[if entry is NULL])  ");
    return ACL_ERR_IF_NOT_EXIST;
  }
  int32_t ret = 0;
  uint32_t v = 0;
  if (cmd == ACL_GEM_CMD_ROW_STATUS) {
    v = rec->rowStatus;
  } else if (const AclBindSlotDef* s = slotOf(cmd)) {
    v = rec->slots.*s->field;
  } else {
    ret = CMN_ERR_NOT_SUPPORTED;
  }
  if (ret == 0 && buf == 0) ret = CMN_ERR_BAD_PARAM;
  if (ret == 0) tblSetValue(buf, v);
  aclDebug(ACL_LOG_API, "ACL config [ACL ONU GET] info=[ACL if get ret = %d]. ", ret);
  return ret;
}

int32_t aclGemPortSetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclGemPortSetApi(keyAddr, cmd, buf, ACL_MODE_SET);
}

int32_t aclGemPortSyncApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclGemPortSetApi(keyAddr, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclGemPortSetApi(uintptr_t keyAddr, uintptr_t cmdArg, uintptr_t buf, uint32_t mode) {
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_IF_NOT_EXIST;
  AclLockGuard lock;
  const GemKey k = keyLoad(keyAddr);
  aclDebug(ACL_LOG_API, "ACL config [onu set api] info=[index:=%d cmd:=%d]", num(k.ifIndex),
           num(cmd));
  if (cmd == 0 || cmd > ACL_GEM_CMD_LAST) return ACL_RET_UNKNOWN;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  if (cmd >= ACL_GEM_CMD_FIRST_TRAFFIC && cmd <= ACL_GEM_CMD_LAST_TRAFFIC) {
    return gemPolicySet(k, cmd, buf);
  }
  AclGemPortEntry* rec = aclGemPortEntryGet(k.ifIndex, k.onuId, k.gemPort);
  if (rec == nullptr && cmd != ACL_GEM_CMD_ROW_STATUS) {
    aclDebug(ACL_LOG_API,
             "ACL config [onu set api] error. (Reason=[if %d onuid %d onuport %d entry is NULL])",
             num(k.ifIndex), k.onuId, k.gemPort);
    // Taking a list off a GEM port that has no record leaves it as asked.
    return tblValue(buf) != 0 ? ACL_ERR_IF_NOT_EXIST : 0;
  }
  GemSet set(keyAddr, k, cmd, buf, mode);
  return set.run(rec);
}
