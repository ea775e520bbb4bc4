// The counter table functions: scalars, the walk, get and set.
#include <algorithm>
#include <cstring>

#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "counter/counter.h"
#include "counter/counter_log.h"
#include "wire/acl_ret.h"

namespace {

constexpr uint32_t kScalarCurCounterNum = 3;

enum CounterCmd : uint32_t {
  kName = 1,
  kRefCnt = 2,
  kStatus = 3,
  kType = 4,
  kColor = 5,
  kFreeIndex = 6,
};

// Holds the counter lock for one table function.
class CounterLockGuard {
 public:
  CounterLockGuard() { counterLock(); }
  ~CounterLockGuard() { counterUnlock(); }
  CounterLockGuard(const CounterLockGuard&) = delete;
  CounterLockGuard& operator=(const CounterLockGuard&) = delete;
};

bool exists(const CounterEntry* e) {
  return e != nullptr && e->status != COUNTER_STATUS_FREE;
}

int32_t counterStatusSet(uint32_t index, CounterEntry* e, uint32_t value) {
  switch (value) {
    case 2:
    case 3:
      if (exists(e)) return 0;
      e = counterEntryAdd(index);
      if (e == nullptr) return ACL_RET_COUNTER_CREATE;
      e->status = COUNTER_STATUS_CREATED;
      return 0;
    case 1:
      if (!exists(e)) return CMN_ERR_NOT_FOUND;
      e->status = COUNTER_STATUS_VALID;
      return 0;
    case 4:
      if (!exists(e)) return 0;
      return counterEntryDel(e);
    default:
      return -1;
  }
}

int32_t walkFrom(uint32_t current, uintptr_t nextAddr, const char* op) {
  if (gcounterList.curCounterNum == 0) {
    counterLog("ACL config [COUNTER %s] error. (Reason=[counter list size is not valid])", op);
    return CMN_ERR_NO_TABLE;
  }
  if (nextAddr == 0) return CMN_ERR_BAD_PARAM;
  for (uint64_t i = uint64_t{current} + 1; i <= gcounterList.curCounterNum; ++i) {
    if (exists(counterEntryGet(static_cast<uint32_t>(i)))) {
      tblSetValue(nextAddr, static_cast<uint32_t>(i));
      return 0;
    }
  }
  return -1;
}

}  // namespace

int32_t counterScalarGetApi(uintptr_t /*key*/, uintptr_t cmd, uintptr_t buf) {
  if (buf == 0) return cmd == 4 ? CMN_ERR_BAD_PARAM : ACL_RET_INVALID;
  CounterLockGuard lock;
  switch (cmd) {
    case 1:
      tblSetValue(buf, gcounterList.counterNum);
      return 0;
    case 2: {
      wire::BufDesc* d = tblDesc(buf);
      if (d->data == nullptr) return ACL_RET_INVALID;
      tblDescPut(d, {reinterpret_cast<const uint8_t*>(COUNTER_VERSION_STRING),
                     std::strlen(COUNTER_VERSION_STRING)});
      return 0;
    }
    case 3:
      tblSetValue(buf, gcounterList.curCounterNum);
      return 0;
    case 4:
      return tblCapabilityPut(tblDesc(buf)) ? 0 : CMN_ERR_BAD_PARAM;
    default:
      return -1;
  }
}

int32_t counterScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _counterScalarSetApi(key, cmd, buf, ACL_MODE_SET);
}

int32_t counterScalarSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _counterScalarSetApi(key, cmd, buf, ACL_MODE_SYNC);
}

int32_t _counterScalarSetApi(uintptr_t /*key*/, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (cmd != kScalarCurCounterNum) return CMN_ERR_NOT_SUPPORTED;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  const uint32_t v = tblValue(buf);
  if (v > gcounterList.maxCounterNum) return -1;
  if (int32_t ret = aclHwRelay(ACL_RELAY_COUNTER_SCALAR, mode, 0, cmd, buf)) return ret;
  for (uint32_t i = v + 1; i <= gcounterList.curCounterNum; ++i) {
    const CounterEntry* e = counterEntryGet(i);
    if (e != nullptr && e->status == COUNTER_STATUS_VALID) return -1;
  }
  gcounterList.curCounterNum = v;
  return 0;
}

int32_t counterGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t) {
  CounterLockGuard lock;
  return walkFrom(0, indexAddr, "GET FIRST");
}

int32_t counterGetNext(uintptr_t index, uintptr_t nextAddr, uintptr_t) {
  CounterLockGuard lock;
  return walkFrom(static_cast<uint32_t>(index), nextAddr, "GET NEXT");
}

int32_t counterGetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  CounterLockGuard lock;
  const auto idx = static_cast<uint32_t>(index);
  counterLog("ACL config [COUNTER GET] info=[counterId=%d cmd %d].", idx, static_cast<int>(cmd));
  if (cmd == kFreeIndex) {
    uint32_t free = 0;
    if (int32_t ret = counterGetFree(&free)) return ret;
    tblSetValue(buf, free);
    return 0;
  }
  const CounterEntry* e = counterEntryGet(idx);
  if (!exists(e)) return CMN_ERR_NOT_FOUND;
  switch (cmd) {
    case kName: {
      wire::BufDesc* d = tblDesc(buf);
      if (d->data == nullptr) return ACL_RET_INVALID;
      // Never more than the client's data area holds.
      tblDescPut(d,
                 {reinterpret_cast<const uint8_t*>(e->name), strnlen(e->name, COUNTER_NAME_LEN)});
      return 0;
    }
    case kRefCnt:
      tblSetValue(buf, static_cast<uint32_t>(e->refCnt));
      return 0;
    case kStatus:
      tblSetValue(buf, e->status);
      return 0;
    case kType:
      tblSetValue(buf, e->counterType);
      return 0;
    case kColor:
      tblSetValue(buf, e->counterColor);
      return 0;
    default:
      return -1;
  }
}

int32_t counterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  return _counterSetApi(index, cmd, buf, ACL_MODE_SET);
}

int32_t counterSyncApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  return _counterSetApi(index, cmd, buf, ACL_MODE_SYNC);
}

int32_t _counterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  CounterLockGuard lock;
  const auto idx = static_cast<uint32_t>(index);
  CounterEntry* e = counterEntryGet(idx);
  if (!exists(e) && cmd != kStatus) {
    counterLog("ACL config [COUNTER SET] error. (Reason=[counterId=%d entry not exist])", idx);
    return CMN_ERR_NOT_FOUND;
  }
  if (cmd == kName) {
    wire::BufDesc* d = tblDesc(buf);
    if (d->data == nullptr) return ACL_RET_INVALID;
    d->len = std::min<uint32_t>(d->len, COUNTER_NAME_LEN - 1);
    if (int32_t ret = aclHwRelay(ACL_RELAY_COUNTER, mode, index, cmd, buf, AclRelayData::Desc)) {
      return ret;
    }
    counterLog("ACL config [COUNTER SET] info=[counterId=%d cmd=%d value=%d].", idx,
               static_cast<int>(cmd), d->len);
    std::memcpy(e->name, d->data, d->len);
    e->name[d->len] = '\0';
    return 0;
  }
  const uint32_t value = tblValue(buf);
  counterLog("ACL config [COUNTER SET] info=[counterId=%d cmd=%d value=%d].", idx,
             static_cast<int>(cmd), value);
  if (cmd < kRefCnt || cmd > kColor) return -1;
  if (int32_t ret = aclHwRelay(ACL_RELAY_COUNTER, mode, index, cmd, buf)) return ret;
  switch (cmd) {
    case kRefCnt:
      e->refCnt = static_cast<int32_t>(value);
      return 0;
    case kStatus:
      return counterStatusSet(idx, e, value);
    case kType:
      e->counterType = static_cast<uint8_t>(value);
      return 0;
    default:
      e->counterColor = static_cast<uint8_t>(value);
      return 0;
  }
}
