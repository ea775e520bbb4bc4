// Card synchronisation: a system or card that comes up has lost whatever the hardware held, so
// every binding is installed again, each command carrying the caller's target so that only the
// new system or card takes it. Failures are logged and passed over: one refused list must not keep
// the others off the new card. Only an interface that cannot be located, or an aggregation whose
// programming mode cannot be read, stops the walk, because everything after it would be guesswork.
#include "hw/acl_card_sync.h"

#include <array>

#include "hw/acl_agg_mode.h"
#include "hw/acl_bind_slot.h"
#include "hw/acl_gemport_record.h"
#include "hw/acl_glb.h"
#include "hw/acl_if.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "store/acl_list.h"
#include "wire/be.h"

namespace {

const char* dirText(uint32_t dir) {
  return dir == ACL_GLB_DIR_IN ? "in" : dir == ACL_GLB_DIR_OUT ? "out" : "vfp";
}

// The name a global pre-stage slot's sync line uses; nullptr for the one that writes none.
const char* glbLineName(const AclBindSlotDef& s) {
  if (s.field == &AclBindSlots::inL2VfpAcl) return "l2vfpAcl";
  if (s.field == &AclBindSlots::inUdfVfpAcl) return nullptr;
  return s.name;
}

int32_t syncGlobal(const uint8_t* options) {
  int32_t last = 0;
  for (const AclBindSlotDef& s : kAclBindSlots) {
    uint32_t lstIdx = gaclGrp.slots.*s.field;
    if (s.cls == AclSlotClass::Untyped) {
      // A generic slot is in the hardware only while its switch is on, and then with the list
      // the switch installed (the slot's index may have moved on without any hardware change).
      const bool in = s.dir == ACL_GLB_DIR_IN;
      if ((in ? gaclGrp.inCtrl : gaclGrp.outCtrl) != 1) continue;
      lstIdx = in ? gaclGrp.inCtrlList : gaclGrp.outCtrlList;
    }
    if (lstIdx == 0) continue;
    AclListEntry* list = aclListEntryGet(lstIdx);
    if (list == nullptr) continue;
    const uint32_t type = s.cls == AclSlotClass::Untyped ? ACL_GLB_TYPE_GENERIC : s.listType;
    last = aclGlbAdd(list, s.dir, options, type);
    if (const char* name = s.cls == AclSlotClass::Vfp ? glbLineName(s) : s.name) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl sync] info =[%s = %d,ret = %d].\r\n", name,
               static_cast<int>(lstIdx), last);
    }
    if (last != 0 && s.cls != AclSlotClass::Untyped) {
      aclOperLog("Add global hardware acl failed. (list=[%u], rule=[%u], dir=[%s], ret=[%u])\r\n",
                 lstIdx, 0u, dirText(s.dir), static_cast<uint32_t>(last));
    }
  }
  return last;
}

bool locate(uint32_t unit, uint32_t* kind) {
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(unit, ZOR_TRANS_LOCATION, location.data()) != 0) {
    aclDebug(ACL_LOG_GLOBAL, "ACL global [acl sync] error. (Reason = [no such interface])\r\n");
    return false;
  }
  *kind = be::load32(std::span<const uint8_t>(location), 4 * ZOR_LOC_KIND);
  return true;
}

// Installs every set slot of one interface or GEM port; untyped slots only while their switch is
// on (a GEM port has none). *last takes each install's result.
void syncSlots(uint32_t unit, uint16_t onuId, uint16_t gemPort, const AclBindSlots& slots,
               uint8_t inCtrl, uint8_t outCtrl, const uint8_t* options, int32_t* last) {
  for (const AclBindSlotDef& s : kAclBindSlots) {
    if (s.cls == AclSlotClass::Untyped &&
        (s.dir == ACL_GLB_DIR_IN ? inCtrl : outCtrl) != ACL_IF_CTRL_ON) {
      continue;
    }
    const uint32_t lstIdx = slots.*s.field;
    if (lstIdx == 0) continue;
    *last = aclIfHwAdd(unit, onuId, gemPort, lstIdx, s.dir, options, s.kind);
    aclDebug(ACL_LOG_GLOBAL, "ACL global [acl sync] info =[unit = %d, %s = %d,ret = %d].\r\n",
             static_cast<int>(unit), s.name, static_cast<int>(lstIdx), *last);
  }
}

}  // namespace

bool aclSyncTargetBuild(uint32_t sys, uint32_t slot, std::span<uint8_t, ACL_HW_OPTIONS_LEN> out) {
  std::fill(out.begin(), out.end(), 0);
  if (sys == 0 || sys > ACL_SYNC_MAX_SYS || slot > ACL_SYNC_MAX_SLOT) return false;
  // The slot bit set of system s lies at byte 24 + 4 * s; past the record for systems above 9.
  const uint32_t slotSetAt = ACL_SYNC_SCOPE_AT + 4 * sys;
  if (slot != 0 && slotSetAt + 4 > ACL_HW_OPTIONS_LEN) return false;
  const uint32_t sysBit = sys - 1;
  out[ACL_SYNC_SCOPE_AT] = slot == 0 ? ACL_SYNC_SCOPE_SYSTEM : ACL_SYNC_SCOPE_SLOT;
  out[ACL_SYNC_SYS_BITS_AT + sysBit / 8] |= static_cast<uint8_t>(0x80u >> (sysBit % 8));
  if (slot != 0) {
    const uint32_t slotBit = slot - 1;
    out[slotSetAt + slotBit / 8] |= static_cast<uint8_t>(0x80u >> (slotBit % 8));
  }
  return true;
}

int32_t aclCardSync(const uint8_t* options, uint32_t flag) {
  if (flag == 0) return 0;
  int32_t last = syncGlobal(options);

  for (auto* e = static_cast<AclIfEntry*>(avl_first(&gaclGrp.ifTree)); e != nullptr;
       e = static_cast<AclIfEntry*>(avl_next(&gaclGrp.ifTree, e))) {
    uint32_t kind = 0;
    if (!locate(e->unit, &kind)) return -1;
    if (kind == ZOR_IF_KIND_AGG) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl sync] info =[Sync Agg ACL aggUnit = %d].\r\n",
               static_cast<int>(e->unit));
      uint8_t mode = 0;
      if (aclAggModeGet(e->unit, HWIL_CMD_IF_ADD, &mode) != 0) return -1;
      // Members take their aggregation's rules when they come up themselves; only a mode that
      // programs the aggregation has something of its own on the new card.
      if ((mode & ACL_AGG_MODE_AGG) == 0) {
        aclDebug(ACL_LOG_GLOBAL,
                 "ACL global [acl sync] info =[Sync Agg ACL action = %d is not AGGonly].\r\n",
                 static_cast<int>(mode));
        continue;
      }
    }
    syncSlots(e->unit, 0, 0, e->slots, e->inCtrl, e->outCtrl, options, &last);
  }

  for (auto* g = static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree)); g != nullptr;
       g = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, g))) {
    uint32_t kind = 0;
    if (!locate(g->unit, &kind)) return -1;
    syncSlots(g->unit, g->onuId, g->gemPort, g->slots, 0, 0, options, &last);
  }
  return last;
}
