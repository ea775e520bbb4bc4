// The interface binding table (function ids 14 to 20).
#include "api/acl_if_api.h"

#include <array>
#include <span>

#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "hw/acl_bind_slot.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

int num(uint32_t v) {
  return static_cast<int>(v);
}

std::span<uint8_t, ACL_IF_LST_KEY_LEN> keyBytes(uintptr_t addr) {
  return std::span<uint8_t, ACL_IF_LST_KEY_LEN>(reinterpret_cast<uint8_t*>(addr),
                                                ACL_IF_LST_KEY_LEN);
}

void lstKeyStore(uintptr_t addr, const AclIfListEntry* e) {
  const auto out = keyBytes(addr);
  be::store32(out, ACL_IF_LST_KEY_LST, e->lstIdx);
  be::store32(out, ACL_IF_LST_KEY_DIR, e->dir);
  be::store32(out, ACL_IF_LST_KEY_IF, e->ifIndex);
  be::store32(out, ACL_IF_LST_KEY_TYPE, e->listType);
  be::store32(out, ACL_IF_LST_KEY_RULE, e->ruleIdx);
}

AclListEntry* liveList(uint32_t lstIdx) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  return list != nullptr && list->status != 0 ? list : nullptr;
}

// Commands that belong to the HQoS, policy-based redirect and traffic-policy families.
bool foreignCmd(uint32_t cmd) {
  return (cmd >= 18 && cmd <= 21) || (cmd >= 34 && cmd <= 40);
}
bool unknownCmd(uint32_t cmd) {
  return cmd == 0 || (cmd >= 9 && cmd <= 16) || cmd >= 47;
}

// One Set on one interface: where the relay goes in the order of the work, and what it undoes.
class IfSet {
 public:
  IfSet(uint32_t ifIndex, uint32_t cmd, uintptr_t buf, uint32_t mode)
      : ifIndex_(ifIndex), cmd_(cmd), buf_(buf), mode_(mode), value_(tblValue(buf)) {}

  int32_t run(AclIfEntry* rec);

 private:
  // The relay of a non-local interface, sent before the store is touched.
  int32_t relayFirst() {
    if (local_) return 0;
    relayed_ = true;
    const int32_t ret = aclHwRelay(ACL_RELAY_IF, mode_, ifIndex_, cmd_, buf_);
    if (ret == 0) return 0;
    aclDebug(ACL_LOG_API,
             "ACL config [if set api] error. (Reason=[None-local interface, sync the config "
             "error]");
    return ret == ACL_RET_UNKNOWN ? CMN_ERR_SYNC_FAILED : ret;
  }
  void undoRelay() {
    std::array<uint8_t, 4> prev{};
    be::store32(prev.data(), prev_);
    aclHwRelayData(ACL_RELAY_IF, mode_, ifIndex_, cmd_, prev.data(), false, 4);
  }
  int32_t dispatch(AclIfEntry* rec);
  int32_t doSwitch(AclIfEntry* rec);
  int32_t doListIndex(AclIfEntry* rec);
  int32_t doStatus(AclIfEntry* rec);
  int32_t doSlot(AclIfEntry* rec, const AclBindSlotDef& s);
  void reverseSwitch(AclIfEntry* rec);
  uint32_t previous(const AclIfEntry* rec) const;

  uint32_t ifIndex_;
  uint32_t cmd_;
  uintptr_t buf_;
  uint32_t mode_;
  uint32_t value_;
  uint32_t prev_ = 0;
  uint32_t unboundLst_ = 0;  // the list a switch-off took off, for its reversal
  bool local_ = true;
  bool relayed_ = false;
  bool changed_ = false;  // the switch did binding work that a failed relay must reverse
};

uint32_t IfSet::previous(const AclIfEntry* rec) const {
  if (rec == nullptr) return cmd_ == ACL_IF_CMD_ROW_STATUS ? ACL_IF_ROW_DESTROY : 0;
  switch (cmd_) {
    case ACL_IF_CMD_OUT_CTRL:
      return rec->outCtrl;
    case ACL_IF_CMD_IN_CTRL:
      return rec->inCtrl;
    case ACL_IF_CMD_ROW_STATUS:
      return rec->rowStatus;
    default:
      break;
  }
  const AclBindSlotDef* s = aclBindSlotByIfCmd(cmd_);
  return s != nullptr ? rec->slots.*s->field : 0;
}

int32_t IfSet::run(AclIfEntry* rec) {
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(ifIndex_, ZOR_TRANS_LOCATION, location.data()) != 0) {
    aclDebug(ACL_LOG_API,
             "ACL config [if set api] error. (Reason=[Failed to get interface phy num]");
    return ACL_RET_IF_NO_LOCATION;
  }
  const std::span<const uint8_t> loc(location);
  local_ = be::load32(loc, 4 * ZOR_LOC_SYS) == zorSelfSysIndex() ||
           be::load32(loc, 4 * ZOR_LOC_KIND) == ZOR_IF_KIND_AGG;
  prev_ = previous(rec);

  int32_t ret = dispatch(rec);
  if (!local_) {
    if (ret != 0 && relayed_) undoRelay();
    return ret;
  }
  if (ret != 0) return ret;
  ret = aclHwRelay(ACL_RELAY_IF, mode_, ifIndex_, cmd_, buf_);
  if (ret == 0) return 0;
  aclDebug(ACL_LOG_API,
           "ACL config [if set api] error. (Reason=[Local interface, sync the config "
           "error)");
  if (ret == ACL_RET_UNKNOWN) ret = CMN_ERR_SYNC_FAILED;
  AclIfEntry* now = aclIfEntryGet(ifIndex_);
  if (cmd_ == ACL_IF_CMD_OUT_CTRL || cmd_ == ACL_IF_CMD_IN_CTRL) {
    if (changed_ && now != nullptr) reverseSwitch(now);
  } else if (const AclBindSlotDef* s = aclBindSlotByIfCmd(cmd_);
             s != nullptr && s->cls != AclSlotClass::Untyped && now != nullptr) {
    undoRelay();
    uint32_t* slot = &(now->slots.*s->field);
    if (*slot != prev_) aclIfRuleUpdate(ifIndex_, s->kind, s->dir, prev_, slot);
  }
  return ret;
}

int32_t IfSet::dispatch(AclIfEntry* rec) {
  if (cmd_ == ACL_IF_CMD_OUT_CTRL || cmd_ == ACL_IF_CMD_IN_CTRL) return doSwitch(rec);
  if (cmd_ == ACL_IF_CMD_IN_ACL || cmd_ == ACL_IF_CMD_OUT_ACL) return doListIndex(rec);
  if (cmd_ == ACL_IF_CMD_ROW_STATUS) return doStatus(rec);
  if (cmd_ >= 5 && cmd_ <= 8) return CMN_ERR_NOT_SUPPORTED;
  const AclBindSlotDef* s = aclBindSlotByIfCmd(cmd_);
  if (s == nullptr) return ACL_RET_UNKNOWN;
  return doSlot(rec, *s);
}

int32_t IfSet::doSwitch(AclIfEntry* rec) {
  const bool in = cmd_ == ACL_IF_CMD_IN_CTRL;
  uint8_t& ctrl = in ? rec->inCtrl : rec->outCtrl;
  uint32_t& slot = in ? rec->slots.inAcl : rec->slots.outAcl;
  const auto dir = static_cast<uint8_t>(in ? ACL_DIR_INGRESS : ACL_DIR_EGRESS);
  if (value_ == ctrl) return 0;
  if (slot == 0) return ACL_RET_INVALID;
  AclListEntry* list = liveList(slot);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF, "error. (Reason=[filter-list %d entry is NULL])", num(slot));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (value_ == ACL_IF_CTRL_ON && !aclIfListRoom(ifIndex_, ACL_BIND_KIND_UNTYPED, dir, slot, 0)) {
    return CMN_ERR_NO_RESOURCE;
  }
  if (const int32_t ret = relayFirst(); ret != 0) return ret;
  if (value_ == ACL_IF_CTRL_ON) {
    if (const int32_t ret = aclIfAdd(ifIndex_, 0, 0, list, dir, nullptr, ACL_BIND_KIND_UNTYPED)) {
      return ret;
    }
    ++list->refCnt;
    if (AclIfListEntry* e = aclIfListAdd(ifIndex_, ACL_BIND_KIND_UNTYPED, dir, slot, 0)) {
      e->hwState = 0;
    }
    changed_ = true;
  } else if (ctrl == ACL_IF_CTRL_ON) {
    if (const int32_t ret = aclIfDel(ifIndex_, 0, 0, list, dir, nullptr, ACL_BIND_KIND_UNTYPED)) {
      return ret;
    }
    --list->refCnt;
    aclIfListDel(aclIfListGet(ifIndex_, ACL_BIND_KIND_UNTYPED, dir, slot, 0));
    unboundLst_ = slot;
    slot = 0;
    changed_ = true;
  }
  // A switch that was not on has nothing bound: any value other than 1 only records itself.
  ctrl = static_cast<uint8_t>(value_);
  return 0;
}

void IfSet::reverseSwitch(AclIfEntry* rec) {
  const bool in = cmd_ == ACL_IF_CMD_IN_CTRL;
  uint8_t& ctrl = in ? rec->inCtrl : rec->outCtrl;
  uint32_t& slot = in ? rec->slots.inAcl : rec->slots.outAcl;
  const auto dir = static_cast<uint8_t>(in ? ACL_DIR_INGRESS : ACL_DIR_EGRESS);
  if (value_ != ACL_IF_CTRL_ON) {
    if (rec->rowStatus != ACL_IF_ROW_ACTIVE) return;
    AclListEntry* list = liveList(unboundLst_);
    if (list == nullptr) return;
    if (aclIfAdd(ifIndex_, 0, 0, list, dir, nullptr, ACL_BIND_KIND_UNTYPED) == 0) ++list->refCnt;
    AclIfListEntry* e = aclIfListGet(ifIndex_, ACL_BIND_KIND_UNTYPED, dir, unboundLst_, 0);
    if (e == nullptr) e = aclIfListAdd(ifIndex_, ACL_BIND_KIND_UNTYPED, dir, unboundLst_, 0);
    if (e != nullptr) e->hwState = 0;
    slot = unboundLst_;
    ctrl = ACL_IF_CTRL_ON;
    return;
  }
  if (AclListEntry* list = liveList(slot)) {
    if (aclIfDel(ifIndex_, 0, 0, list, dir, nullptr, ACL_BIND_KIND_UNTYPED) == 0) --list->refCnt;
  }
  aclIfListDel(aclIfListGet(ifIndex_, ACL_BIND_KIND_UNTYPED, dir, slot, 0));
  ctrl = ACL_IF_CTRL_OFF;
}

int32_t IfSet::doListIndex(AclIfEntry* rec) {
  const bool in = cmd_ == ACL_IF_CMD_IN_ACL;
  uint32_t& slot = in ? rec->slots.inAcl : rec->slots.outAcl;
  if (value_ == slot) return 0;
  // The bound list cannot change under the hardware: switch off first.
  if ((in ? rec->inCtrl : rec->outCtrl) == ACL_IF_CTRL_ON) return ACL_RET_IF_LIST_ACTIVE;
  if (const int32_t ret = relayFirst(); ret != 0) return ret;
  slot = value_;
  return 0;
}

int32_t IfSet::doStatus(AclIfEntry* rec) {
  if (const int32_t ret = relayFirst(); ret != 0) return ret;
  if (value_ == ACL_IF_ROW_CREATE) {
    if (rec != nullptr) return 0;
    return aclIfEntryAdd(ifIndex_) != nullptr ? 0 : static_cast<int32_t>(gaclGrp.lastErr);
  }
  if (value_ != ACL_IF_ROW_ACTIVE && value_ != ACL_IF_ROW_NOT_IN_SERVICE &&
      value_ != ACL_IF_ROW_DESTROY) {
    return 0;
  }
  if (rec == nullptr) {
    aclDebug(ACL_LOG_API, "ACL config [if set api] error. (Reason =[if %d entry is NULL])",
             num(ifIndex_));
    return ACL_ERR_IF_NOT_EXIST;
  }
  if (value_ != ACL_IF_ROW_DESTROY) {
    rec->rowStatus = static_cast<uint16_t>(value_);
    return 0;
  }
  // A record with anything bound stays: deleting it would strand the bindings.
  for (const AclBindSlotDef& s : kAclBindSlots) {
    if (rec->slots.*s.field != 0) return 0;
  }
  return aclIfEntryDel(rec);
}

int32_t IfSet::doSlot(AclIfEntry* rec, const AclBindSlotDef& s) {
  uint32_t* slot = &(rec->slots.*s.field);
  if (value_ == *slot) return 0;
  const uint32_t prev = *slot;
  if (const int32_t ret = relayFirst(); ret != 0) return ret;
  const int32_t ret = aclIfRuleUpdate(ifIndex_, s.kind, s.dir, value_, slot);
  // The update may have taken the old list off before the new one failed: put it back.
  if (ret != 0 && *slot != prev) aclIfRuleUpdate(ifIndex_, s.kind, s.dir, prev, slot);
  return ret;
}

int32_t ifAttr(const AclIfEntry* rec, uint32_t cmd, uint32_t* v) {
  switch (cmd) {
    case ACL_IF_CMD_OUT_CTRL:
      *v = rec->outCtrl;
      return 0;
    case ACL_IF_CMD_IN_CTRL:
      *v = rec->inCtrl;
      return 0;
    case ACL_IF_CMD_ROW_STATUS:
      *v = rec->rowStatus;
      return 0;
    default:
      break;
  }
  const AclBindSlotDef* s = aclBindSlotByIfCmd(cmd);
  if (s == nullptr) return CMN_ERR_NOT_SUPPORTED;
  *v = rec->slots.*s->field;
  return 0;
}

}  // namespace

int32_t aclIfLstGetFirst(uintptr_t keyAddr, uintptr_t, uintptr_t) {
  if (keyAddr == 0) return ACL_RET_INVALID;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const auto* first = static_cast<const AclIfListEntry*>(avl_first(&gaclGrp.ifListTree));
  if (first == nullptr) return -1;
  lstKeyStore(keyAddr, first);
  return 0;
}

int32_t aclIfLstGetNext(uintptr_t keyAddr, uintptr_t nextAddr, uintptr_t) {
  if (keyAddr == 0 || nextAddr == 0) return ACL_RET_INVALID;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const auto in = keyBytes(keyAddr);
  AclIfListEntry key{};
  key.lstIdx = be::load32(in, ACL_IF_LST_KEY_LST);
  key.dir = static_cast<uint8_t>(be::load32(in, ACL_IF_LST_KEY_DIR));
  key.ifIndex = be::load32(in, ACL_IF_LST_KEY_IF);
  key.listType = static_cast<uint8_t>(be::load32(in, ACL_IF_LST_KEY_TYPE));
  key.ruleIdx = be::load32(in, ACL_IF_LST_KEY_RULE);
  aclDebug(ACL_LOG_IF,
           "ACL interface [if list get next] info=[input index :lstIdx=%d ruleIdx=%d dir=%d "
           "ifIdx=%d, listType=%d].",
           num(key.lstIdx), num(key.ruleIdx), key.dir, num(key.ifIndex), key.listType);
  avl_index_t where = 0;
  void* cur = avl_find(&gaclGrp.ifListTree, &key, &where);
  const auto* next = static_cast<const AclIfListEntry*>(
      cur != nullptr ? avl_next(&gaclGrp.ifListTree, cur)
                     : avl_nearest(&gaclGrp.ifListTree, where, AVL_AFTER));
  if (next == nullptr) return -1;
  lstKeyStore(nextAddr, next);
  return 0;
}

int32_t aclIfGetFirst(uintptr_t ifAddr, uintptr_t, uintptr_t) {
  if (ifAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  const auto* first = static_cast<const AclIfEntry*>(avl_first(&gaclGrp.ifTree));
  if (first == nullptr) return -1;
  tblSetValue(ifAddr, first->unit);
  return 0;
}

int32_t aclIfGetNext(uintptr_t ifIndex, uintptr_t nextAddr, uintptr_t) {
  if (nextAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  AclIfEntry key{};
  key.unit = static_cast<uint32_t>(ifIndex);
  avl_index_t where = 0;
  void* cur = avl_find(&gaclGrp.ifTree, &key, &where);
  const auto* next = static_cast<const AclIfEntry*>(
      cur != nullptr ? avl_next(&gaclGrp.ifTree, cur)
                     : avl_nearest(&gaclGrp.ifTree, where, AVL_AFTER));
  if (next == nullptr) return -1;
  tblSetValue(nextAddr, next->unit);
  return 0;
}

int32_t aclIfGetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf) {
  const auto ifIndex = static_cast<uint32_t>(key);
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (!aclStarted()) return ACL_ERR_IF_NOT_EXIST;
  AclLockGuard lock;
  aclDebug(ACL_LOG_API, "ACL config [ACL IF GET] info=[index:=%d cmd:=%d].", num(ifIndex),
           num(cmd));
  const AclIfEntry* rec = aclIfEntryGet(ifIndex);
  if (rec == nullptr) {
    aclDebug(ACL_LOG_API, "ACL config [ACL IF GET] error.(Reason=[if entry is NULL])  ");
    return ACL_ERR_IF_NOT_EXIST;
  }
  uint32_t v = 0;
  int32_t ret = ifAttr(rec, cmd, &v);
  if (ret == 0 && buf == 0) ret = CMN_ERR_BAD_PARAM;
  if (ret == 0) tblSetValue(buf, v);
  aclDebug(ACL_LOG_API, "ACL config [ACL IF GET] info=[ACL if get ret = %d]. ", ret);
  return ret;
}

int32_t aclIfSetApi(uintptr_t ifIndex, uintptr_t cmd, uintptr_t buf) {
  return _aclIfSetApi(ifIndex, cmd, buf, ACL_MODE_SET);
}

int32_t aclIfSyncApi(uintptr_t ifIndex, uintptr_t cmd, uintptr_t buf) {
  return _aclIfSetApi(ifIndex, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclIfSetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf, uint32_t mode) {
  const auto ifIndex = static_cast<uint32_t>(key);
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (!aclStarted()) return ACL_ERR_IF_NOT_EXIST;
  AclLockGuard lock;
  aclDebug(ACL_LOG_API, "ACL config [if set api] info=[index:=%d cmd:=%d]", num(ifIndex), num(cmd));
  if (unknownCmd(cmd)) return ACL_RET_UNKNOWN;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  // HQoS, policy-based redirect and the traffic policies need no interface record and are never
  // relayed.
  if (foreignCmd(cmd)) return aclIfPolicySet(ifIndex, cmd, buf);
  AclIfEntry* rec = aclIfEntryGet(ifIndex);
  if (rec == nullptr && cmd != ACL_IF_CMD_ROW_STATUS) {
    aclDebug(ACL_LOG_API, "ACL config [if set api] error. (Reason=[if %d entry is NULL])",
             num(ifIndex));
    // Taking a list off an interface that has no record leaves it as asked.
    return tblValue(buf) != 0 ? ACL_ERR_IF_NOT_EXIST : 0;
  }
  IfSet set(ifIndex, cmd, buf, mode);
  return set.run(rec);
}
