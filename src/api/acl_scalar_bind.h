// The global binding moves behind scalar set commands 6, 7 and 26 to 37, after their relay: the
// generic in/out switches and the twelve typed global bind slots of the ACL group, with the list
// reference counts that go with them. Callers hold aclMutex.
#pragma once

#include <cstdint>

// Commands 6 (ingress) and 7 (egress): switch the generic binding of inAcl/outAcl on (v = 1) or
// off (any other value).
int32_t aclScalarCtrlSwitch(uint32_t cmd, uint32_t v);

// Commands 26 to 37: bind list v to the slot (0 unbinds). *previous receives the slot's index
// before the change, whatever the result.
int32_t aclScalarSlotMove(uint32_t cmd, uint32_t v, uint32_t* previous);

// The list index in the slot of command cmd (26 to 37).
uint32_t aclScalarSlotGet(uint32_t cmd);

// The list the generic binding of dir (0 ingress, 1 egress) installed when it was switched on;
// 0 while it is off.
uint32_t aclScalarCtrlList(uint32_t dir);
