#include "api/acl_scalar_api.h"

#include <array>
#include <atomic>
#include <cstring>
#include <span>

#include "api/acl_relay.h"
#include "api/acl_scalar_bind.h"
#include "api/table_buf.h"
#include "counter/counter.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "main/version.h"
#include "meter/meter.h"
#include "platform/sil.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

// Global rule records in use and valid. Read from the pool directly: the entry lookup writes a
// debug line per record, which would flood the log for one read.
uint32_t validGruleNum() {
  uint32_t n = 0;
  for (uint32_t idx = 0; idx < gaclGrp.maxGruleNum; ++idx) {
    const auto* g = static_cast<const AclGruleEntry*>(silMemPoolId2Entry(gaclGrp.grulePool, idx));
    if (g != nullptr && g->status == ACL_RULE_STATUS_VALID) ++n;
  }
  return n;
}

// The plain value of a get command, or nothing when cmd has none.
bool scalarValue(uint32_t cmd, uint32_t* v) {
  const AclGroup& g = gaclGrp;
  if (cmd >= ACL_SCALAR_GLB_SLOT_FIRST && cmd <= ACL_SCALAR_GLB_SLOT_LAST) {
    *v = aclScalarSlotGet(cmd);
    return true;
  }
  if (cmd >= ACL_SCALAR_RULE_NUM_FIRST && cmd <= ACL_SCALAR_RULE_NUM_LAST) {
    const AclRuleNum& pair = g.ruleNum[(cmd - ACL_SCALAR_RULE_NUM_FIRST) / 2];
    *v = (cmd - ACL_SCALAR_RULE_NUM_FIRST) % 2 == 0 ? pair.cur : pair.max;
    return true;
  }
  switch (cmd) {
    case ACL_SCALAR_MAX_LST_NUM:
      *v = g.maxLstNum;
      return true;
    case ACL_SCALAR_CUR_LST_NUM:
      *v = g.curLstNum;
      return true;
    case ACL_SCALAR_MAX_LST_RULE_NUM:
      *v = g.maxLstRuleNum;
      return true;
    case ACL_SCALAR_MAX_GRULE_NUM:
      *v = g.maxGruleNum;
      return true;
    case ACL_SCALAR_VALID_GRULE_NUM:
      *v = validGruleNum();
      return true;
    case ACL_SCALAR_VALUE5:
      *v = g.scalar5Value;
      return true;
    case ACL_SCALAR_IN_CTRL:
      *v = g.inCtrl;
      return true;
    case ACL_SCALAR_OUT_CTRL:
      *v = g.outCtrl;
      return true;
    case ACL_SCALAR_IN_ACL:
      *v = g.slots.inAcl;
      return true;
    case ACL_SCALAR_OUT_ACL:
      *v = g.slots.outAcl;
      return true;
    case ACL_SCALAR_DEBUG_SET:
      *v = g.debugFlags;
      return true;
    case ACL_SCALAR_REDIRECT_MULTI:
      *v = g.redirectMultiEnable;
      return true;
    case ACL_SCALAR_CAR_MIN:
      *v = g.carMin;
      return true;
    case ACL_SCALAR_CAR_MAX:
      *v = g.carMax;
      return true;
    default:
      return false;
  }
}

// NAMETOID: the data area holds a list index word and then the name; the index word is replaced
// by the number of the list that has that name.
int32_t nameToId(wire::BufDesc* desc) {
  if (desc == nullptr || desc->data == nullptr) return ACL_RET_INVALID;
  // Without room for the index word there is neither a name nor a place for the answer.
  if (desc->len < 4) return CMN_ERR_BUFFER_SHORT;
  std::span<uint8_t> area(static_cast<uint8_t*>(desc->data), desc->len);
  const uint32_t nameLen = desc->len - 4;
  const char* name = reinterpret_cast<const char*>(area.data() + 4);
  aclDebug(ACL_LOG_API, "ACL config [ACL GET] info=[IN pBuf = (id)%d (name)%.*s total len %d].\r\n",
           static_cast<int>(be::load32(area, 0)), static_cast<int>(nameLen), name,
           static_cast<int>(desc->len));
  const AclListEntry* list = aclListEntryGetByName(name, nameLen);
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  be::store32(area, 0, list->lstIdx);
  aclDebug(ACL_LOG_API, "ACL config [ACL GET] info=[NAMETOID: id %d].\r\n",
           static_cast<int>(list->lstIdx));
  return 0;
}

int32_t version(wire::BufDesc* desc) {
  if (desc == nullptr || desc->data == nullptr) return ACL_RET_INVALID;
  tblDescPut(desc, {reinterpret_cast<const uint8_t*>(ACL_VERSION_STRING),
                    std::strlen(ACL_VERSION_STRING)});
  return 0;
}

// Debug bits change without the lock: a word written whole, so a reader never sees half of it.
void debugChange(uint32_t cmd, uint32_t value) {
  std::atomic_ref<uint32_t> flags(gaclGrp.debugFlags);
  const uint32_t on = cmd == ACL_SCALAR_DEBUG_SET ? 1 : 0;
  if (on != 0) {
    flags.fetch_or(value);
  } else {
    flags.fetch_and(~value);
  }
  // One sibling module per request: the counter bit wins over the meter bit.
  if ((value & ACL_DEBUG_COUNTER) != 0) {
    std::atomic_ref<uint32_t>(gCounterDbg).store(on);
  } else if ((value & ACL_DEBUG_METER) != 0) {
    std::atomic_ref<uint32_t>(gMeterDebug).store(on);
  }
}

// What a set command ended with: its result, and the value of the second relay a failure sends.
struct SetOutcome {
  int32_t ret;
  uint32_t previous;
};

SetOutcome serviceCall(const AclScalarService& svc, uintptr_t buf) {
  if (svc.cmd >= ACL_SCALAR_CPUDEFEND_ADD && svc.cmd <= ACL_SCALAR_NAT_DEL) {
    return {svc.withBuf != nullptr ? svc.withBuf(buf) : CMN_ERR_NOT_SUPPORTED, 0};
  }
  // The buffer is a word holding the address of the operation's record. A missing record has
  // one answer whether or not the operation behind it is built.
  const uintptr_t record = *reinterpret_cast<const uintptr_t*>(buf);
  if (record == 0) return {CMN_ERR_BAD_PARAM, 0};
  if (svc.cmd == ACL_SCALAR_BLACKLIST_ADD || svc.cmd == ACL_SCALAR_BLACKLIST_DEL) {
    if (svc.withWords == nullptr) return {CMN_ERR_NOT_SUPPORTED, 0};
    const auto* w = reinterpret_cast<const uint8_t*>(record);
    return {svc.withWords(be::load32(w), be::load32(w + 4), be::load32(w + 8)), 0};
  }
  if (svc.withRecord == nullptr) return {CMN_ERR_NOT_SUPPORTED, 0};
  return {svc.withRecord(reinterpret_cast<const void*>(record)), 0};
}

SetOutcome scalarSet(uint32_t cmd, uintptr_t buf, uint32_t mode) {
  if (cmd >= ACL_SCALAR_GLB_SLOT_FIRST && cmd <= ACL_SCALAR_GLB_SLOT_LAST) {
    // The previous list goes back to the hardware layer only when the first relay took.
    if (int32_t ret = aclHwRelay(ACL_RELAY_SCALAR, mode, 0, cmd, buf)) return {ret, 0};
    uint32_t previous = 0;
    const int32_t ret = aclScalarSlotMove(cmd, tblValue(buf), &previous);
    return {ret, previous};
  }
  if (const AclScalarService* svc = aclScalarServiceFind(cmd)) return serviceCall(*svc, buf);
  switch (cmd) {
    case ACL_SCALAR_VALUE5:
    case ACL_SCALAR_IN_ACL:
    case ACL_SCALAR_OUT_ACL: {
      if (int32_t ret = aclHwRelay(ACL_RELAY_SCALAR, mode, 0, cmd, buf)) return {ret, 0};
      const uint32_t v = tblValue(buf);
      if (cmd == ACL_SCALAR_VALUE5) {
        gaclGrp.scalar5Value = v;
      } else if (cmd == ACL_SCALAR_IN_ACL) {
        gaclGrp.slots.inAcl = v;
      } else {
        gaclGrp.slots.outAcl = v;
      }
      return {0, 0};
    }
    case ACL_SCALAR_IN_CTRL:
    case ACL_SCALAR_OUT_CTRL:
      if (int32_t ret = aclHwRelay(ACL_RELAY_SCALAR, mode, 0, cmd, buf)) return {ret, 0};
      return {aclScalarCtrlSwitch(cmd, tblValue(buf)), 0};
    case 10:
    case 11:
    case 12:
    case 13:
      return {CMN_ERR_NOT_SUPPORTED, 0};
    default:
      return {-1, 0};
  }
}

}  // namespace

int32_t aclScalarGetApi(uintptr_t /*key*/, uintptr_t cmdArg, uintptr_t buf) {
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  aclDebug(ACL_LOG_API, "ACL config [ACL GET] info=[cmd:=%d].\r\n", static_cast<int>(cmd));
  switch (cmd) {
    case ACL_SCALAR_NAMETOID:
      return nameToId(tblDesc(buf));
    case ACL_SCALAR_VERSION:
      return version(tblDesc(buf));
    case ACL_SCALAR_CAPABILITY:
      return tblCapabilityPut(tblDesc(buf)) ? 0 : CMN_ERR_BAD_PARAM;
    case 14:
    case 15:
    case 16:
    case 17:
      return CMN_ERR_NOT_SUPPORTED;
    default:
      break;
  }
  uint32_t v = 0;
  if (!scalarValue(cmd, &v)) return -1;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  tblSetValue(buf, v);
  return 0;
}

int32_t aclScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _aclScalarSetApi(key, cmd, buf, ACL_MODE_SET);
}

int32_t aclScalarSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _aclScalarSetApi(key, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclScalarSetApi(uintptr_t /*key*/, uintptr_t cmdArg, uintptr_t buf, uint32_t mode) {
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  if (cmd == ACL_SCALAR_DEBUG_SET || cmd == ACL_SCALAR_DEBUG_CLEAR) {
    debugChange(cmd, tblValue(buf));
    return 0;
  }
  if (!aclStarted()) return -1;
  AclLockGuard lock;
  aclDebug(ACL_LOG_API, "ACL config [ACL SET] info=[cmd:=%d].\r\n", static_cast<int>(cmd));
  const SetOutcome out = cmd >= ACL_SCALAR_VALUE5 && cmd <= ACL_SCALAR_BLACKLIST_DEL
                             ? scalarSet(cmd, buf, mode)
                             : SetOutcome{-1, 0};
  if (out.ret != 0) {
    // Tell the hardware layer the command did not take: the same command once more, carrying the
    // value that stood before it (a bind slot's previous list) in place of the client's value.
    std::array<uint8_t, 4> word{};
    be::store32(word, 0, out.previous);
    aclHwRelayData(ACL_RELAY_SCALAR, mode, 0, cmd, word.data(), false, 4);
  }
  return out.ret;
}
