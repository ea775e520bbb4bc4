#include "api/acl_slot_api.h"

#include "main/acl_group.h"
#include "services/acl_cpudefend.h"
#include "services/acl_nat.h"
#include "wire/acl_ret.h"

int32_t aclSlotSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _aclSlotSetApi(key, cmd, buf, 3);
}

int32_t aclSlotSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _aclSlotSetApi(key, cmd, buf, 1);
}

int32_t _aclSlotSetApi(uintptr_t key, uintptr_t cmdArg, uintptr_t buf, uint32_t /*mode*/) {
  const auto cmd = static_cast<uint32_t>(cmdArg);
  if (cmd > ACL_SLOT_CMD_NAT_DEL) return 0;
  // Before start-up no list exists to install.
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;
  AclLockGuard lock;
  switch (cmd) {
    case ACL_SLOT_CMD_CPUDEFEND_ADD:
      return _aclCpudefendSlotaddEx(key, buf);
    case ACL_SLOT_CMD_CPUDEFEND_DEL:
      return _aclCpudefendSlotdelEx(key, buf);
    case ACL_SLOT_CMD_NAT_ADD:
      return _aclNatSlotaddEx(key, buf);
    default:
      return _aclNatSlotdelEx(key, buf);
  }
}
