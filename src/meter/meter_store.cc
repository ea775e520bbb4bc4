// Meter module start-up, the meter records and their references.
#include <cstring>

#include "main/opt_read.h"
#include "meter/meter.h"
#include "meter/meter_log.h"
#include "wire/acl_ret.h"

MeterList gMeterList;
uint32_t gMeterDebug;

namespace {

constexpr uint32_t kDefaultMaxMeterNum = 256;
constexpr uint32_t kDefaultMaxProfileNum = 1024;
constexpr uint32_t kDefaultMinPps = 1;
constexpr uint32_t kDefaultMaxPps = 1000000;
constexpr uint32_t kDefaultMinBps = 16;
constexpr uint32_t kDefaultMaxBps = 256000000;
constexpr uint32_t kDefaultMinBurst = 128;
constexpr uint32_t kDefaultMaxBurst = 16777088;

// Attribute defaults of a new meter: meter_mode 1, CAR type 3, A10 5.
constexpr uint32_t kAttrDefaults[METER_ATTR_NUM] = {0, 1, 3, 0, 0, 0, 0, 0, 0, 5};

uint32_t orDefault(uint32_t v, uint32_t def) {
  return v != 0 ? v : def;
}

bool poolInit(SIL_POOL_ID* pool, const char* name, uint32_t count, uint32_t size,
              const char* failFormat) {
  if (silMemPoolInit(pool, name, count, size, 1) == 0) return true;
  meterLog(failFormat, static_cast<unsigned long>(uint64_t{count} * size), count,
           static_cast<unsigned long>(size));
  return false;
}

}  // namespace

int32_t meterOptInit() {
  OptText buf;
  if (optText("meter.enable", buf) && optFirstIs(buf, 'f')) return -1;
  static constexpr const char* kKeys[8] = {
      "meter.maxmeternum", "meter.maxmeteronunum", "meter.minppsrate",  "meter.maxppsrate",
      "meter.minbpsrate",  "meter.maxbpsrate",     "meter.minbpsburst", "meter.maxbpsburst"};
  uint32_t v[8] = {};
  for (int i = 0; i < 8; ++i) {
    if (optText(kKeys[i], buf)) v[i] = optNumber(buf);
  }
  return meterInit(v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7]);
}

int32_t meterInit(uint32_t maxMeterNum, uint32_t maxProfileNum, uint32_t minPps, uint32_t maxPps,
                  uint32_t minBps, uint32_t maxBps, uint32_t minBurst, uint32_t maxBurst) {
  meterDeinit();
  MeterList& m = gMeterList;
  m.maxMeterNum = orDefault(maxMeterNum, kDefaultMaxMeterNum);
  m.curMeterNum = m.maxMeterNum;
  m.maxProfileNum = orDefault(maxProfileNum, kDefaultMaxProfileNum);
  m.minPpsRate = orDefault(minPps, kDefaultMinPps);
  m.maxPpsRate = orDefault(maxPps, kDefaultMaxPps);
  m.minBpsRate = orDefault(minBps, kDefaultMinBps);
  m.maxBpsRate = orDefault(maxBps, kDefaultMaxBps);
  m.minBpsBurst = orDefault(minBurst, kDefaultMinBurst);
  m.maxBpsBurst = orDefault(maxBurst, kDefaultMaxBurst);
  if (!poolInit(&m.meterPool, "meter_rule", m.maxMeterNum, sizeof(MeterEntry),
                "meter list malloc %lu(%u,%lu) error") ||
      !poolInit(&m.profilePool, "meter_profile", m.maxProfileNum, sizeof(MeterProfileEntry),
                "meter profile malloc %lu(%u,%lu) error")) {
    meterDeinit();
    return -1;
  }
  return 0;
}

void meterDeinit() {
  if (gMeterList.meterPool) silMemPoolDestroy(&gMeterList.meterPool);
  if (gMeterList.profilePool) silMemPoolDestroy(&gMeterList.profilePool);
  gMeterList = MeterList{};
}

MeterEntry* meterEntryGet(uint32_t index) {
  if (index < 1 || index > gMeterList.curMeterNum) return nullptr;
  return static_cast<MeterEntry*>(silMemPoolId2Entry(gMeterList.meterPool, index - 1));
}

int32_t meterIsValid(uint32_t index) {
  const MeterEntry* e = meterEntryGet(index);
  return (e != nullptr && e->status == METER_STATUS_VALID) ? 0 : CMN_ERR_NOT_FOUND;
}

int32_t meterRefcount(uint32_t index, int32_t delta) {
  MeterEntry* e = meterEntryGet(index);
  if (e == nullptr || e->status != METER_STATUS_VALID) return CMN_ERR_NOT_FOUND;
  const int64_t n = int64_t{e->refCnt} + delta;
  e->refCnt = n < 0 ? 0 : (n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n));
  return 0;
}

int32_t meterGetRefcount(uint32_t index) {
  const MeterEntry* e = meterEntryGet(index);
  if (e == nullptr || e->status == METER_STATUS_FREE) return CMN_ERR_NOT_FOUND;
  return e->refCnt;
}

MeterEntry* meterEntryAdd(uint32_t index) {
  // Only usable indexes: a meter above curMeterNum could never be reached again.
  if (index < 1 || index > gMeterList.curMeterNum) return nullptr;
  auto* e = static_cast<MeterEntry*>(silMemPoolId2Entry(gMeterList.meterPool, index - 1));
  if (e == nullptr) return nullptr;
  std::memset(e, 0, sizeof *e);
  e->meterIdx = index;
  std::memcpy(e->attr, kAttrDefaults, sizeof e->attr);
  e->status = METER_STATUS_FREE;
  return e;
}

int32_t meterEntryDel(MeterEntry* e) {
  if (e == nullptr) return CMN_ERR_NOT_FOUND;
  if (e->refCnt > 0) return CMN_ERR_IN_USE;
  std::memset(e, 0, sizeof *e);
  return 0;
}

int32_t meterFreeIndexGet(uint32_t* index) {
  for (uint32_t i = 1; i <= gMeterList.curMeterNum; ++i) {
    const MeterEntry* e = meterEntryGet(i);
    if (e == nullptr || e->status == METER_STATUS_FREE) {
      *index = i;
      return 0;
    }
  }
  return CMN_ERR_NO_RESOURCE;
}

void meterResetForTest() {
  meterDeinit();
  gMeterDebug = 0;
}
