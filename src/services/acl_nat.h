// NAT installations: the NAT module has every valid rule of a filter-list translated into a
// hardware rule record and handed to the platform under a command of its own choosing, for the
// whole system or for one slot; the same walk with its removal command takes them away. Nothing of
// an installation is remembered (no bind slot, refCnt or statistics): the caller owns it.
//
// The functions without "Ex" and without a table shape run with aclMutex held by their caller.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_NAT_ARGS_LEN = 12;  // three big-endian words: list, NAT command, direction

// Global scope. Results: 0; ACL_ERR_LIST_NOT_EXIST; ACL_ERR_LIST_EMPTY; the rule status check's
// code (installation only); CMN_ERR_BAD_PARAM for a direction other than 0, 1 or 2; the
// translation's or the platform's code. A failed installation re-sends, with its own command, the
// rules it had sent, the failing one included.
int32_t _aclNatGlobaladd(uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
int32_t _aclNatGlobaldel(uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
// Sends natCmd for the valid rules up to and including upToRule (0: all); lastWord is the last
// word of the platform request.
int32_t aclNatGlobaldelpart(uint32_t lstIdx, uint32_t upToRule, uint32_t natCmd, uint32_t dir,
                            uint32_t lastWord);

// Slot scope. slotKey: the 8-byte big-endian slot key {sys, slot}.
int32_t _aclNatSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
int32_t _aclNatSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
int32_t aclNatSlotdelpart(const uint8_t* slotKey, uint32_t lstIdx, uint32_t upToRule,
                          uint32_t natCmd, uint32_t dir, uint32_t last);

// One record to the platform: the global scope through the platform scalar set, the slot scope
// through the slot command.
int32_t aclNatGlbHwset(const uint8_t* dev, uint32_t natCmd, uint32_t lastWord);
int32_t aclNatSlotHwset(const uint8_t* slotKey, uint32_t natCmd, const uint8_t* dev,
                        uint32_t options);

// Transport entries: buf is the address of a buffer descriptor over the 12-byte argument record.
// 22 when there is no descriptor or its length is not exactly 12; the slot forms answer a missing
// key with CMN_ERR_BAD_PARAM. Scalar set 24/25 and slot set 2/3 call these under aclMutex.
int32_t _aclNatGlobaladdEx(uintptr_t buf);
int32_t _aclNatGlobaldelEx(uintptr_t buf);
int32_t _aclNatSlotaddEx(uintptr_t slotKey, uintptr_t buf);
int32_t _aclNatSlotdelEx(uintptr_t slotKey, uintptr_t buf);

// In-process conveniences through the scalar table (key 0, command 24 or 25) or the slot table
// (the slot key, command 2 or 3); the caller must not hold aclMutex.
int32_t aclNatGlobaladd(uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
int32_t aclNatGlobaldel(uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
int32_t aclNatSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir);
int32_t aclNatSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t natCmd, uint32_t dir);

// Interface-scope NAT installations are not made by this process: they accept anything and do
// nothing.
int32_t aclNatIfadd(uint32_t a1, uint32_t a2, uint32_t a3, uint32_t a4);
int32_t aclNatIfdel(uint32_t a1, uint32_t a2, uint32_t a3, uint32_t a4);
