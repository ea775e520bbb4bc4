// The command table the command server serves: 87 slots, the slot at position n carrying function
// id n. Empty slots carry id 0 and no function; a slot whose function is not built carries its id
// and no function. Both answer -1, as an unknown command id does.
#pragma once

#include "main/acl_group.h"
#include "platform/cmd_server.h"

extern const IcmFuncEntry gAclFuncMap[ACL_FUNC_MAP_ENTRIES];
