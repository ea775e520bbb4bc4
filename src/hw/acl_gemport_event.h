// ONU events: an ONU or one of its GEM ports went away or came up.
#pragma once

#include <cstdint>

// Removes the hardware state and record of every GEM port of (ifIndex, onuId), or only gemPort
// when it is not 0; ACL_ERR_IF_NOT_EXIST, with nothing changed, when no record matches.
int32_t aclOnuGemPortUnregister(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort);
// Re-applies every bind slot of every GEM port record (the arguments are not used).
int32_t aclOnuGemPortUp(uint32_t ifIndex, uint16_t onuId);
