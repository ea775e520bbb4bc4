// CPU defend installations: the CPU protection module has the rules of a filter-list installed for
// the whole system or for one slot, each marked with its application code and an action, and
// optionally rate limited, and removed again with the same arguments. Nothing of an installation
// is remembered (no bind slot, refCnt or statistics): the caller owns it.
//
// The functions without "Ex" and without a table shape run with aclMutex held by their caller.
#pragma once

#include <cstdint>

constexpr uint32_t ACL_CPUDEFEND_ARGS_LEN = 24;  // six big-endian words
constexpr uint16_t ACL_CPUDEFEND_APP = 187;      // the CPU protection application code

// The six arguments, in their transport order.
struct AclCpudefendArgs {
  uint32_t lstIdx;
  uint32_t action;  // action code given to every installed rule
  uint32_t cir;
  uint32_t cbs;
  uint32_t ebs;
  uint32_t carEnable;  // non-zero: also program the rate limit
};

// Global scope. Results: 0; ACL_ERR_LIST_NOT_EXIST; ACL_ERR_LIST_EMPTY; CMN_ERR_BAD_PARAM for an
// action code that has no in-action bit (64 and above); or the failing translation's or hardware
// call's code (a failed installation has removed what it installed).
int32_t _aclCpudefendGlobaladd(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                               uint32_t ebs, uint32_t carEnable);
int32_t _aclCpudefendGlobaldel(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                               uint32_t ebs, uint32_t carEnable);
// Removes the rules up to and including upToRule (0: all), from the last one down.
int32_t aclCpudefendGlobaldelpart(uint32_t lstIdx, uint32_t upToRule, uint32_t action, uint32_t cir,
                                  uint32_t cbs, uint32_t ebs, uint32_t carEnable);

// Slot scope. slotKey: the 8-byte big-endian slot key {sys, slot}.
int32_t _aclCpudefendSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                             uint32_t cbs, uint32_t ebs, uint32_t carEnable);
int32_t _aclCpudefendSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                             uint32_t cbs, uint32_t ebs, uint32_t carEnable);
int32_t aclCpudefendDelpart(const uint8_t* slotKey, uint32_t lstIdx, uint32_t upToRule,
                            uint32_t action, uint32_t cir, uint32_t cbs, uint32_t ebs,
                            uint32_t carEnable);

// Transport entries: buf is the address of a buffer descriptor over the 24-byte argument record.
// 22 when there is no descriptor or its length is not exactly 24; the slot forms answer a missing
// key with CMN_ERR_BAD_PARAM. Scalar set 22/23 and slot set 0/1 call these under aclMutex.
int32_t _aclCpudefendGlobaladdEx(uintptr_t buf);
int32_t _aclCpudefendGlobaldelEx(uintptr_t buf);
int32_t _aclCpudefendSlotaddEx(uintptr_t slotKey, uintptr_t buf);
int32_t _aclCpudefendSlotdelEx(uintptr_t slotKey, uintptr_t buf);

// In-process conveniences: pack the six words and go through the scalar table (key 0, command 22
// or 23) or the slot table (the slot key, command 0 or 1). They take aclMutex through the table
// functions, so the caller must not hold it.
int32_t aclCpudefendGlobaladd(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                              uint32_t ebs, uint32_t carEnable);
int32_t aclCpudefendGlobaldel(uint32_t lstIdx, uint32_t action, uint32_t cir, uint32_t cbs,
                              uint32_t ebs, uint32_t carEnable);
int32_t aclCpudefendSlotadd(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                            uint32_t cbs, uint32_t ebs, uint32_t carEnable);
int32_t aclCpudefendSlotdel(const uint8_t* slotKey, uint32_t lstIdx, uint32_t action, uint32_t cir,
                            uint32_t cbs, uint32_t ebs, uint32_t carEnable);
