// Aggregation membership and work mode. An aggregation that programs its members (mode bit 0)
// holds its rules on every member port, so a port that joins must take them and a port that
// leaves must give them up, telling the hardware which aggregation it leaves. An all-slot
// interface switched to bridging is no longer an ACL attachment point at all.
#include <array>
#include <span>

#include "hw/acl_agg_mode.h"
#include "hw/acl_bind_slot.h"
#include "hw/acl_card_sync.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"
#include "hw/acl_if_record.h"
#include "main/acl_log.h"
#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "wire/be.h"

namespace {

constexpr size_t kAggQueryLen = 20;
constexpr size_t kAggModeByte = 8;

// How each slot is named in the join and leave failures, in kAclBindSlots order.
constexpr std::array<const char*, kAclBindSlots.size()> kSlotLabel = {
    "in",          "out",         "in l2",         "out l2",      "in Ipv4",
    "out Ipv4",    "in Ipv6",     "out Ipv6",      "in Hybrid",   "out Hybrid",
    "in Mpls",     "out Mpls",    "in udf",        "out udf",     "in l2 vfp",
    "in ipv4 vfp", "in ipv6 vfp", "in hybrid vfp", "in Mpls vfp", "in udf vfp"};
constexpr size_t kMplsVfpSlot = 18;
static_assert(kAclBindSlots[kMplsVfpSlot].field == &AclBindSlots::inMplsVfpAcl);

struct AggOp {
  const char* name;  // "join" or "quit"
  const char* verb;  // "add" or "del"
  uint32_t cmd;      // the hardware command whose mode decides
};
constexpr AggOp kJoin{"join", "add", HWIL_CMD_IF_ADD};
constexpr AggOp kQuit{"quit", "del", HWIL_CMD_IF_DEL};

const char* slotLabel(const AggOp& op, size_t i) {
  return (&op == &kQuit && i == kMplsVfpSlot) ? "in mpls vfp" : kSlotLabel[i];
}

// Shared by join and leave: the record, the mode, then every bound slot on the member, stopping
// at the first that fails.
template <typename Apply>
int32_t memberChange(const AggOp& op, uint32_t aggUnit, uint32_t member, Apply&& apply) {
  aclDebug(ACL_LOG_IF, "ACL interface [phy %s AG] info=[%s unit = %d,aggUnit = %d].\r\n", op.name,
           op.name, static_cast<int>(member), static_cast<int>(aggUnit));
  const AclIfEntry* agg = aclIfEntryGet(aggUnit);
  if (agg == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [phy %s AG] error. (Reason=[aggUnit = %d, if entry is NULL])\r\n",
             op.name, static_cast<int>(aggUnit));
    return -1;
  }
  uint8_t mode = 0;
  if (aclAggModeGet(aggUnit, op.cmd, &mode) != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [phy %s AG] error. (Reason=[aggUnit = %d do not support ACL %s])\r\n",
             op.name, static_cast<int>(aggUnit), op.verb);
    return -1;
  }
  // An aggregation that keeps its rules on itself has nothing on its members to change.
  if ((mode & ACL_AGG_MODE_MEMBERS) == 0) {
    aclDebug(ACL_LOG_IF, "ACL interface [phy %s AG] info=[%s action = %d is not phyonly.].\r\n",
             op.name, op.name, static_cast<int>(mode));
    return 0;
  }
  for (size_t i = 0; i < kAclBindSlots.size(); ++i) {
    const AclBindSlotDef& s = kAclBindSlots[i];
    if (s.cls == AclSlotClass::Untyped &&
        (s.dir == 0 ? agg->inCtrl : agg->outCtrl) != ACL_IF_CTRL_ON) {
      continue;
    }
    const uint32_t lstIdx = agg->slots.*s.field;
    if (lstIdx == 0) continue;
    if (const int32_t ret = apply(s, lstIdx); ret != 0) {
      aclDebug(ACL_LOG_IF,
               "ACL interface [phy %s AG] error. (Reason=[unit = %d %s %s filter %d error])\r\n",
               op.name, static_cast<int>(member), op.verb, slotLabel(op, i),
               static_cast<int>(lstIdx));
      return ret;
    }
  }
  return 0;
}

}  // namespace

int32_t aclAggModeGet(uint32_t aggUnit, uint32_t cmd, uint8_t* mode) {
  std::array<uint8_t, kAggQueryLen> query{};
  be::store32(std::span<uint8_t>(query), 0, cmd);
  const int32_t ret = zorIfGetApi(aggUnit, ZOR_IF_FIELD_AGG_MODE, query.data());
  *mode = ret == 0 ? query[kAggModeByte] : 0;
  return ret;
}

int32_t aclPhyJoinAgg(uint32_t aggUnit, uint32_t member) {
  return memberChange(kJoin, aggUnit, member, [&](const AclBindSlotDef& s, uint32_t lstIdx) {
    return aclIfHwAdd(member, 0, 0, lstIdx, s.dir, nullptr, s.kind);
  });
}

int32_t aclPhyQuitAgg(uint32_t aggUnit, uint32_t member) {
  return memberChange(kQuit, aggUnit, member, [&](const AclBindSlotDef& s, uint32_t lstIdx) {
    return aclIfHwDelWithParentunit(member, aggUnit, lstIdx, s.dir, s.kind);
  });
}

int32_t aclIfWorkModeChange(uint32_t ifIndex, uint32_t mode) {
  aclDebug(ACL_LOG_WORKMODE, "ACL interface %s change mode to %s. \r\n",
           aclIfName(ifIndex, kAclIfNameLen).text,
           mode == 0   ? "bridge"
           : mode == 1 ? "route"
                       : "unknown");
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(ifIndex, ZOR_TRANS_LOCATION, location.data()) != 0) {
    aclDebug(ACL_LOG_WORKMODE, "get phy info failed in workmode change process\r\n");
    return -1;
  }
  const uint32_t kind = be::load32(std::span<const uint8_t>(location), 4 * ZOR_LOC_KIND);
  if (kind == ZOR_IF_KIND_ALLSLOT && mode == 0 && aclIfDelEx(ifIndex) == 0) aclDeleteIf(ifIndex);
  return 0;
}
