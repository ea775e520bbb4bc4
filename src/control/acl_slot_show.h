// The slot ledger and the slots' hardware resource tables as the process shell prints them.
#pragma once

#include <cstdint>

// Every slot record with its 18 capacities and charges.
void aclSlotShow();
// The hardware resource records of one slot, under a header when flag is 1.
void aclSlotResourceShow(uint32_t sys, uint32_t slot, int32_t flag);
// The same for every slot record, one header.
void aclSlotResourceShowAll();
