// Entry points of the ONU events. GEM port binding is not built yet, so there is no GEM state to
// remove or re-apply: the events are logged and change nothing.
#include "hw/acl_gemport_event.h"

#include "main/acl_log.h"

int32_t aclOnuGemPortUnregister(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort) {
  aclDebug(
      ACL_LOG_GLOBAL,
      "ACL global [acl onu] info =[unregister if %u onu %u gem %u ignored: no GEM binding].\r\n",
      ifIndex, onuId, gemPort);
  return 0;
}

int32_t aclOnuGemPortUp(uint32_t ifIndex, uint16_t onuId) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl onu] info =[up if %u onu %u ignored: no GEM binding].\r\n", ifIndex,
           onuId);
  return 0;
}
