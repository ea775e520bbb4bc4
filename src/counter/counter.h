// The counter module: named counters that rules reference by counter id. The process stores their
// attributes, relays every change to the hardware layer and counts references; the counting
// itself is the platform's.
//
// Lock order: the counter table functions (but the scalar set) take counterMutex for their whole
// body. counterGetApi is also called by the ACL side with the ACL lock held, so the ACL lock is
// always taken first. No counter function takes the ACL lock.
#pragma once

#include <cstdint>

#include "platform/sil.h"

constexpr uint32_t COUNTER_NAME_LEN = 64;
constexpr uint32_t COUNTER_MAX_NUM = 65535;  // 65536 or more is refused
constexpr uint8_t COUNTER_DEFAULT_COLOR = 4;
constexpr const char* COUNTER_VERSION_STRING = "COUNTER_V7.00.00.00";

constexpr uint32_t COUNTER_STATUS_FREE = 0;
constexpr uint32_t COUNTER_STATUS_VALID = 1;
constexpr uint32_t COUNTER_STATUS_CREATED = 3;

struct CounterEntry {
  char name[COUNTER_NAME_LEN];  // zero-terminated
  uint16_t counterIdx;
  uint8_t counterType;
  uint8_t counterColor;
  int32_t refCnt;
  uint32_t status;
};
static_assert(sizeof(CounterEntry) == 76);

struct CounterList {
  uint32_t maxCounterNum;
  uint32_t curCounterNum;
  uint32_t counterNum;
  SIL_SEM_ID counterMutex;
  SIL_POOL_ID counterPool;  // "counter", entry n is counter n + 1
};

extern CounterList gcounterList;
extern uint32_t gCounterDbg;

int32_t counterOptInit();
int32_t counterInit(uint32_t maxCounterNum);
int counterLock();
int counterUnlock();

CounterEntry* counterEntryGet(uint32_t index);
int32_t counterGetFree(uint32_t* index);
int32_t counterIsValid(uint32_t index);
int32_t counterRefcount(uint32_t index, int32_t delta);
int32_t counterGetRefcount(uint32_t index);
CounterEntry* counterEntryAdd(uint32_t index);
int32_t counterEntryDel(CounterEntry* entry);

// Command table functions (ids 63 to 70).
int32_t counterScalarGetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t counterScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t counterScalarSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t _counterScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf, uint32_t mode);
int32_t counterGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t);
int32_t counterGetNext(uintptr_t index, uintptr_t nextAddr, uintptr_t);
int32_t counterGetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t counterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t counterSyncApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t _counterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf, uint32_t mode);

// Tests only: back to the unstarted module.
void counterResetForTest();
