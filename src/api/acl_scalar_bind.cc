#include "api/acl_scalar_bind.h"

#include <array>

#include "api/acl_scalar_api.h"
#include "hw/acl_glb.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"

namespace {

// The typed global bind slots, in command order from ACL_SCALAR_GLB_SLOT_FIRST.
constexpr size_t kGlbSlotCount = ACL_SCALAR_GLB_SLOT_LAST - ACL_SCALAR_GLB_SLOT_FIRST + 1;
static_assert(ACL_BIND_SLOT_FIRST_TYPED + kGlbSlotCount == ACL_BIND_SLOT_FIRST_VFP);

const AclBindSlotDef& glbSlot(uint32_t cmd) {
  return kAclBindSlots[ACL_BIND_SLOT_FIRST_TYPED + (cmd - ACL_SCALAR_GLB_SLOT_FIRST)];
}

// The generic in/out binding of commands 6 and 7.
struct GlbCtrl {
  uint8_t AclGroup::*ctrl;
  uint32_t AclBindSlots::*list;
  uint32_t AclGroup::*installed;  // the list the switch installed
  uint32_t dir;
  const char* duplicated;
};

constexpr std::array<GlbCtrl, 2> kGlbCtrls = {{
    {&AclGroup::inCtrl, &AclBindSlots::inAcl, &AclGroup::inCtrlList, ACL_DIR_INGRESS,
     "ACL config [ACL SET] error. (Reason=[In ctrl operation duplicated])\r\n"},
    {&AclGroup::outCtrl, &AclBindSlots::outAcl, &AclGroup::outCtrlList, ACL_DIR_EGRESS,
     "ACL config [ACL LIST SET] error. (Reason=[Out ctrl operation duplicated])\r\n"},
}};

AclListEntry* listFind(uint32_t lstIdx) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  // A list whose status fell to 0 is on its way out: it counts as absent.
  return list != nullptr && list->status != 0 ? list : nullptr;
}

}  // namespace

uint32_t aclScalarSlotGet(uint32_t cmd) {
  if (cmd < ACL_SCALAR_GLB_SLOT_FIRST || cmd > ACL_SCALAR_GLB_SLOT_LAST) return 0;
  return gaclGrp.slots.*glbSlot(cmd).field;
}

uint32_t aclScalarCtrlList(uint32_t dir) {
  if (dir >= kGlbCtrls.size() || gaclGrp.*kGlbCtrls[dir].ctrl != 1) return 0;
  return gaclGrp.*kGlbCtrls[dir].installed;
}

int32_t aclScalarCtrlSwitch(uint32_t cmd, uint32_t v) {
  const size_t which = cmd - ACL_SCALAR_IN_CTRL;
  if (which >= kGlbCtrls.size()) return -1;
  const GlbCtrl& c = kGlbCtrls[which];
  uint8_t& state = gaclGrp.*c.ctrl;
  const bool on = v == 1;
  // Every value but 1 means off, so "off while off" is the duplicate whatever number says it;
  // comparing raw numbers would take out a binding that was never made.
  if (on == (state == 1)) {
    aclDebug(ACL_LOG_API, "%s", c.duplicated);
    return 0;
  }
  const uint32_t lstIdx = on ? gaclGrp.slots.*c.list : gaclGrp.*c.installed;
  AclListEntry* list = listFind(lstIdx);
  if (list == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  if (on) {
    if (int32_t ret = aclGlbAdd(list, c.dir, nullptr, ACL_GLB_TYPE_GENERIC)) return ret;
    ++list->refCnt;
    gaclGrp.*c.installed = lstIdx;
    state = 1;
    return 0;
  }
  if (int32_t ret = aclGlbDel(list, c.dir, nullptr)) return ret;
  --list->refCnt;
  gaclGrp.*c.installed = 0;
  // The state is a byte: a value that does not fit would read back as another one (even as on),
  // so it is kept only when it fits.
  state = v <= 0xFF ? static_cast<uint8_t>(v) : 0;
  return 0;
}

int32_t aclScalarSlotMove(uint32_t cmd, uint32_t v, uint32_t* previous) {
  *previous = 0;
  if (cmd < ACL_SCALAR_GLB_SLOT_FIRST || cmd > ACL_SCALAR_GLB_SLOT_LAST) return -1;
  const AclBindSlotDef& s = glbSlot(cmd);
  uint32_t& slot = gaclGrp.slots.*s.field;
  const uint32_t prevIdx = slot;
  *previous = prevIdx;
  if (v == 0) {
    // Unbinding an empty slot names no list at all, not list 0.
    AclListEntry* prev = prevIdx != 0 ? listFind(prevIdx) : nullptr;
    if (prev == nullptr) return ACL_ERR_LIST_NOT_EXIST;
    if (int32_t ret = aclGlbDel(prev, s.dir, nullptr)) return ret;
    --prev->refCnt;
    slot = 0;
    return 0;
  }
  if (v == prevIdx) return 0;
  // The new list is looked up before the old binding goes, so a request naming no list leaves
  // the slot as it was.
  AclListEntry* next = listFind(v);
  if (next == nullptr) return ACL_ERR_LIST_NOT_EXIST;
  AclListEntry* prev = nullptr;
  if (prevIdx != 0) {
    prev = listFind(prevIdx);
    if (prev == nullptr) return ACL_ERR_LIST_NOT_EXIST;
    // A refused removal does not stop the change. The list then keeps its reference for the rules
    // still installed, and is not installed a second time if the new list fails.
    if (aclGlbDel(prev, s.dir, nullptr) == 0) {
      --prev->refCnt;
      slot = 0;
    } else {
      prev = nullptr;
    }
  }
  const int32_t ret = aclGlbAdd(next, s.dir, nullptr, s.listType);
  if (ret == 0) {
    ++next->refCnt;
    slot = v;
    return 0;
  }
  if (prev != nullptr && aclGlbAdd(prev, s.dir, nullptr, s.listType) == 0) {
    ++prev->refCnt;
    slot = prevIdx;
  }
  return ret;
}
