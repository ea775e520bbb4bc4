// Counter module start-up, the counter records and their references.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "counter/counter.h"
#include "counter/counter_log.h"
#include "main/opt_read.h"
#include "platform/logging.h"
#include "wire/acl_ret.h"

CounterList gcounterList;
uint32_t gCounterDbg;

void counterLogAlways(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  loggingDebugOutputV(COUNTER_LOG_TAG, 7, 0, format, ap);
  va_end(ap);
}

void counterLog(const char* format, ...) {
  if (gCounterDbg == 0) return;
  va_list ap;
  va_start(ap, format);
  loggingDebugOutputV(COUNTER_LOG_TAG, 7, 0, format, ap);
  va_end(ap);
}

namespace {

void counterDeinit() {
  if (gcounterList.counterPool) silMemPoolDestroy(&gcounterList.counterPool);
  if (gcounterList.counterMutex) silDeleteSem(gcounterList.counterMutex);
  gcounterList = CounterList{};
}

}  // namespace

int32_t counterOptInit() {
  OptText buf;
  if (optText("counter.enable", buf) && optFirstIs(buf, 'f')) return -1;
  uint32_t max = 0;
  if (optText("counter.maxcounternum", buf)) max = optNumber(buf);
  return counterInit(max);
}

int32_t counterInit(uint32_t maxCounterNum) {
  counterDeinit();
  if (maxCounterNum > COUNTER_MAX_NUM) {
    // Start-up runs before anyone can switch counter debugging on, and an operator who asked for
    // too big a table must learn why the module is missing, so this one is always written.
    counterLogAlways("counter list is too big");
    return -1;
  }
  const uint32_t max = maxCounterNum != 0 ? maxCounterNum : COUNTER_MAX_NUM;
  gcounterList.counterMutex = silCreateMSem(13);
  if (gcounterList.counterMutex == 0) {
    counterLog("create mutex error.");
    counterDeinit();
    return -1;
  }
  if (silMemPoolInit(&gcounterList.counterPool, "counter", max, sizeof(CounterEntry), 1) != 0) {
    counterLog("counter list malloc size %lu(%u,%lu) error",
               static_cast<unsigned long>(uint64_t{max} * sizeof(CounterEntry)), max,
               static_cast<unsigned long>(sizeof(CounterEntry)));
    counterDeinit();
    return -1;
  }
  gcounterList.counterNum = 0;
  gcounterList.maxCounterNum = max;
  gcounterList.curCounterNum = max;
  return 0;
}

int counterLock() {
  return silTakeSem(gcounterList.counterMutex, SIL_WAIT_FOREVER);
}
int counterUnlock() {
  return silGiveSem(gcounterList.counterMutex);
}

CounterEntry* counterEntryGet(uint32_t index) {
  if (index < 1 || index > gcounterList.curCounterNum) return nullptr;
  return static_cast<CounterEntry*>(silMemPoolId2Entry(gcounterList.counterPool, index - 1));
}

int32_t counterGetFree(uint32_t* index) {
  if (gcounterList.curCounterNum == 0) return ACL_RET_INVALID;
  for (uint32_t i = 1; i <= gcounterList.curCounterNum; ++i) {
    const CounterEntry* e = counterEntryGet(i);
    if (e == nullptr || e->status == COUNTER_STATUS_FREE) {
      *index = i;
      return 0;
    }
  }
  return CMN_ERR_NO_RESOURCE;
}

int32_t counterIsValid(uint32_t index) {
  const CounterEntry* e = counterEntryGet(index);
  if (e == nullptr) {
    counterLog("ACL config [COUNTER ENTRY VALID] error. (Reason=[counterId=%d entry not exist]",
               index);
    return CMN_ERR_NOT_FOUND;
  }
  if (e->status != COUNTER_STATUS_VALID) {
    counterLog(
        "ACL config [COUNTER ENTRY VALID] error. (Reason=[counterId=%d entry status is not valid]",
        index);
    return CMN_ERR_NOT_FOUND;
  }
  return 0;
}

int32_t counterRefcount(uint32_t index, int32_t delta) {
  CounterEntry* e = counterEntryGet(index);
  if (e == nullptr) {
    counterLog("ACL config [COUNTER REFCOUNT] error. (Reason=[counterId=%d entry not exist]",
               index);
    return -1;
  }
  if (e->status != COUNTER_STATUS_VALID) {
    counterLog(
        "ACL config [COUNTER REFCOUNT] error. (Reason=[counterId=%d entry status is not valid]",
        index);
    return -1;
  }
  const int64_t n = int64_t{e->refCnt} + delta;
  e->refCnt = n < 0 ? 0 : (n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n));
  return 0;
}

int32_t counterGetRefcount(uint32_t index) {
  const CounterEntry* e = counterEntryGet(index);
  if (e == nullptr) {
    counterLog("ACL config [COUNTER GET REFCOUNT] error. (Reason=[counterId=%d entry is not exit]",
               index);
    return -1;
  }
  if (e->status == COUNTER_STATUS_FREE) {
    counterLog("ACL config [COUNTER GET REFCOUNT] error. (Reason=[counterId=%d status not valid]",
               index);
    return -1;
  }
  return e->refCnt;
}

CounterEntry* counterEntryAdd(uint32_t index) {
  CounterEntry* e = counterEntryGet(index);
  if (e == nullptr) {
    counterLog("ACL config [COUNTER ADD ENTRY] error. (Reason=[counterId=%d entry is not exit]",
               index);
    return nullptr;
  }
  std::memset(e, 0, sizeof *e);
  e->counterIdx = static_cast<uint16_t>(index);
  e->counterColor = COUNTER_DEFAULT_COLOR;
  std::snprintf(e->name, sizeof e->name, "counter%u", index);
  ++gcounterList.counterNum;
  return e;
}

int32_t counterEntryDel(CounterEntry* e) {
  if (e == nullptr) {
    counterLog("ACL config [COUNTER DEL ENTRY] error. (Reason=[counter entry is not exit])");
    return CMN_ERR_NOT_FOUND;
  }
  if (e->refCnt >= 1) {
    counterLog("ACL config [COUNTER DEL ENTRY] error. (Reason=[counter refcount is not zero])");
    return CMN_ERR_IN_USE;
  }
  std::memset(e, 0, sizeof *e);
  if (gcounterList.counterNum > 0) --gcounterList.counterNum;
  return 0;
}

void counterResetForTest() {
  counterDeinit();
  gCounterDbg = 0;
}
