// ONU events: when an ONU (or one GEM port of it) unregisters, its bindings leave the hardware
// and the books and its records go; when one comes up, every GEM port record's bindings are put
// into the hardware again.
#include "hw/acl_gemport_event.h"

#include <array>
#include <vector>

#include "hw/acl_gemport_record.h"
#include "hw/acl_if.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "wire/acl_ret.h"

int32_t aclOnuGemPortUnregister(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [acl onu] info =[unregister if %u onu %u gem %u].\r\n",
           ifIndex, onuId, gemPort);
  if (gaclGrp.gemPortTree.compar == nullptr) return ACL_ERR_IF_NOT_EXIST;
  // The matching records are collected first: deleting a record while stepping the tree from it
  // would lose the step.
  std::vector<AclGemPortEntry*> gone;
  for (auto* e = static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree)); e != nullptr;
       e = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e))) {
    if (e->unit == ifIndex && e->onuId == onuId && (gemPort == 0 || e->gemPort == gemPort)) {
      gone.push_back(e);
    }
  }
  if (gone.empty()) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [del gem port acl] error. (Reason=[if entry is NULL.])\r\n");
    return ACL_ERR_IF_NOT_EXIST;
  }
  for (AclGemPortEntry* e : gone) {
    aclGemPortDelEx(e->unit, e->onuId, e->gemPort);
    aclGemPortEntryDel(e);
  }
  return 0;
}

int32_t aclOnuGemPortUp(uint32_t /*ifIndex*/, uint16_t /*onuId*/) {
  if (gaclGrp.gemPortTree.compar == nullptr) return 0;
  int32_t last = 0;
  for (auto* e = static_cast<AclGemPortEntry*>(avl_first(&gaclGrp.gemPortTree)); e != nullptr;
       e = static_cast<AclGemPortEntry*>(avl_next(&gaclGrp.gemPortTree, e))) {
    std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
    if (zorIndexTrans(e->unit, ZOR_TRANS_LOCATION, location.data()) != 0) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl sync] error. (Reason = [no such interface])");
      return ACL_RET_IF_NO_LOCATION;
    }
    for (const AclBindSlotDef& s : kAclBindSlots) {
      const uint32_t lst = e->slots.*s.field;
      if (s.cls == AclSlotClass::Untyped || lst == 0) continue;
      last = aclIfHwAdd(e->unit, e->onuId, e->gemPort, lst, s.dir, nullptr, s.kind);
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl sync] info =[unit = %d, %s = %d,ret = %d].",
               static_cast<int>(e->unit), s.name, static_cast<int>(lst), static_cast<int>(last));
    }
  }
  return last;
}
