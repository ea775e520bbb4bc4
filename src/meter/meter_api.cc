// The meter table functions: scalars, the meter walk, get and set.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "meter/meter.h"
#include "meter/meter_log.h"
#include "platform/logging.h"
#include "wire/acl_ret.h"

void meterLog(const char* format, ...) {
  if (gMeterDebug == 0) return;
  va_list ap;
  va_start(ap, format);
  loggingDebugOutputV(METER_LOG_TAG, 7, 0, format, ap);
  va_end(ap);
}

namespace {

constexpr uint32_t kScalarCurMeterNum = 15;
constexpr uint32_t kCmdRefCnt = 11;
constexpr uint32_t kCmdRefAdd = 12;
constexpr uint32_t kCmdStatus = 13;
constexpr uint32_t kCmdFreeIndex = 14;

int32_t meterStatusSet(uint32_t index, MeterEntry* e, uint32_t value) {
  const bool exists = e != nullptr && e->status != METER_STATUS_FREE;
  switch (value) {
    case 2:
    case 3:
      if (exists) return 0;
      e = meterEntryAdd(index);
      if (e == nullptr) return CMN_ERR_NO_RESOURCE;
      e->status = METER_STATUS_CREATED;
      return 0;
    case 1:
      if (!exists) return CMN_ERR_NOT_FOUND;
      if (e->status == METER_STATUS_VALID) return 0;
      e->status = METER_STATUS_VALID;
      ++gMeterList.activeMeterNum;
      return 0;
    case 4:
      if (!exists) return 0;
      if (int32_t ret = meterEntryDel(e)) return ret;
      // The device lowers the count for any deleted meter, valid or only created; it never goes
      // below 0.
      if (gMeterList.activeMeterNum > 0) --gMeterList.activeMeterNum;
      return 0;
    default:
      return -1;
  }
}

}  // namespace

int32_t meterScalarGetApi(uintptr_t /*key*/, uintptr_t cmd, uintptr_t buf) {
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  const MeterList& m = gMeterList;
  switch (cmd) {
    case 15:
      tblSetValue(buf, m.curMeterNum);
      return 0;
    case 16:
      tblSetValue(buf, m.activeMeterNum);
      return 0;
    case 17: {
      wire::BufDesc* d = tblDesc(buf);
      if (d->data == nullptr) return ACL_RET_INVALID;
      tblDescPut(d, {reinterpret_cast<const uint8_t*>(METER_VERSION_STRING),
                     std::strlen(METER_VERSION_STRING)});
      return 0;
    }
    case 18: {
      uint32_t idx = 0;
      tblSetValue(buf, meterProfileFreeIndexGet(&idx) == 0 ? idx : UINT32_MAX);
      return 0;
    }
    case 19:
      tblSetValue(buf, m.minPpsRate);
      return 0;
    case 20:
      tblSetValue(buf, m.maxPpsRate);
      return 0;
    case 21:
      tblSetValue(buf, m.minBpsRate);
      return 0;
    case 22:
      tblSetValue(buf, m.maxBpsRate);
      return 0;
    case 23:
      tblSetValue(buf, m.minBpsBurst);
      return 0;
    case 24:
      tblSetValue(buf, m.maxBpsBurst);
      return 0;
    case 25:
      return tblCapabilityPut(tblDesc(buf)) ? 0 : CMN_ERR_BAD_PARAM;
    default:
      return -1;
  }
}

int32_t meterScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _meterScalarSetApi(key, cmd, buf, ACL_MODE_SET);
}

int32_t meterScalarSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  return _meterScalarSetApi(key, cmd, buf, ACL_MODE_SYNC);
}

int32_t _meterScalarSetApi(uintptr_t /*key*/, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (cmd != kScalarCurMeterNum) return CMN_ERR_NOT_SUPPORTED;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  const uint32_t v = tblValue(buf);
  MeterList& m = gMeterList;
  if (v > m.maxMeterNum) return -1;
  if (int32_t ret = aclHwRelay(ACL_RELAY_METER_SCALAR, mode, 0, cmd, buf)) return ret;
  // Shrinking may only drop slots that hold no valid meter.
  for (uint32_t i = v + 1; i <= m.curMeterNum; ++i) {
    const MeterEntry* e = meterEntryGet(i);
    if (e == nullptr || e->status == METER_STATUS_VALID) return -1;
  }
  m.curMeterNum = v;
  return 0;
}

int32_t meterGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t) {
  if (gMeterList.curMeterNum == 0) return CMN_ERR_NOT_SUPPORTED;
  return meterGetNext(0, indexAddr, 0);
}

int32_t meterGetNext(uintptr_t index, uintptr_t nextAddr, uintptr_t) {
  if (nextAddr == 0) return CMN_ERR_BAD_PARAM;
  for (uint64_t i = uint64_t{static_cast<uint32_t>(index)} + 1; i <= gMeterList.curMeterNum; ++i) {
    const MeterEntry* e = meterEntryGet(static_cast<uint32_t>(i));
    if (e != nullptr && e->status != METER_STATUS_FREE) {
      tblSetValue(nextAddr, static_cast<uint32_t>(i));
      return 0;
    }
  }
  return -1;
}

int32_t meterGetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  const auto idx = static_cast<uint32_t>(index);
  if (cmd == kCmdFreeIndex) {
    uint32_t free = 0;
    if (int32_t ret = meterFreeIndexGet(&free)) return ret;
    tblSetValue(buf, free);
    meterLog("ACL config [METER GET] info=[index=%d cmd=%d value=%d].", idx, static_cast<int>(cmd),
             free);
    return 0;
  }
  const MeterEntry* e = meterEntryGet(idx);
  if (e == nullptr || e->status == METER_STATUS_FREE) {
    meterLog("ACL config [METER GET] error. (Reason=[index=%d meter not valid.])", idx);
    return CMN_ERR_NOT_FOUND;
  }
  uint32_t value;
  if (cmd >= 1 && cmd <= METER_ATTR_NUM) {
    value = e->attr[cmd - 1];
  } else if (cmd == kCmdRefCnt) {
    value = static_cast<uint32_t>(e->refCnt);
  } else if (cmd == kCmdStatus) {
    value = e->status;
  } else {
    return -1;
  }
  tblSetValue(buf, value);
  meterLog("ACL config [METER GET] info=[index=%d cmd=%d value=%d].", idx, static_cast<int>(cmd),
           value);
  return 0;
}

int32_t meterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  return _meterSetApi(index, cmd, buf, ACL_MODE_SET);
}

int32_t meterSyncApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  return _meterSetApi(index, cmd, buf, ACL_MODE_SYNC);
}

int32_t _meterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  const auto idx = static_cast<uint32_t>(index);
  MeterEntry* e = meterEntryGet(idx);
  // Every index from 1 to curMeterNum has a record; only one outside that range is missing.
  if (e == nullptr && cmd != kCmdStatus) return CMN_ERR_NOT_FOUND;
  const uint32_t value = tblValue(buf);
  meterLog("ACL config [METER SET] info=[index=%d cmd=%d value=%d].", idx, static_cast<int>(cmd),
           value);
  if (cmd == kCmdRefAdd) {
    e->refCnt = static_cast<int32_t>(static_cast<uint32_t>(e->refCnt) + value);
    return 0;
  }
  if (cmd == 0 || cmd > kCmdStatus) return -1;
  if (int32_t ret = aclHwRelay(ACL_RELAY_METER, mode, index, cmd, buf)) return ret;
  if (cmd <= METER_ATTR_NUM) {
    e->attr[cmd - 1] = value;
  } else if (cmd == kCmdRefCnt) {
    e->refCnt = static_cast<int32_t>(value);
  } else {
    return meterStatusSet(idx, e, value);
  }
  return 0;
}
