// Entry point of time-range activation. The re-programming walk is not built yet: the event task
// already hands the switch here, and it is logged so an operator sees that nothing was changed.
#include "control/acl_timerange.h"

#include "main/acl_log.h"
#include "wire/be.h"

void aclTimerangeStateChangeProcess(std::span<const uint8_t> body, uint8_t state) {
  if (body.size() < 4) return;
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl timerange] info =[trid %u state %u ignored: not re-programmed].\r\n",
           be::load32(body, 0), state);
}
