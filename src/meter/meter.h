// The meter module: meters (rate limiters that rules reference by meter id) and meter profiles
// (per-ONU policing profiles). The process stores their attributes, relays every change to the
// hardware layer and counts references; the policing itself is the platform's.
//
// The module has no lock of its own: its table functions run in the command server task, and the
// reference changes and attribute reads of the ACL side reach it with the ACL lock held.
#pragma once

#include <cstdint>

#include "platform/sil.h"

constexpr uint32_t METER_ATTR_NUM = 10;
constexpr uint32_t METER_PROFILE_NAME_LEN = 20;
constexpr uint8_t METER_PROFILE_REF_MAX = 255;
constexpr const char* METER_VERSION_STRING = "METER_V7.00.00.00";

// Meter and profile status.
constexpr uint32_t METER_STATUS_FREE = 0;
constexpr uint32_t METER_STATUS_VALID = 1;
constexpr uint32_t METER_STATUS_CREATED = 3;

struct MeterEntry {
  uint32_t meterIdx;
  // By command 1..10: meter_type, meter_mode, CAR type, cir, A5, pir, cbs, ebs, pbs, A10.
  uint32_t attr[METER_ATTR_NUM];
  int32_t refCnt;
  uint32_t status;
  uint32_t reserved;
};
static_assert(sizeof(MeterEntry) == 56);

struct MeterProfileEntry {
  uint16_t id;
  uint8_t status;
  uint8_t refCnt;
  char name[METER_PROFILE_NAME_LEN];
  uint16_t nameLen;
  uint32_t uspolicycir;
  uint32_t uscbs;
  uint32_t usebs;
  uint32_t dspolicycir;
  uint32_t dspir;
  uint8_t usPolicingStatus;
  uint8_t dsPolicingStatus;
};
static_assert(sizeof(MeterProfileEntry) == 52);

struct MeterList {
  uint32_t maxMeterNum;
  uint32_t curMeterNum;
  uint32_t activeMeterNum;
  SIL_POOL_ID meterPool;  // "meter_rule", entry n is meter n + 1
  uint32_t minPpsRate;
  uint32_t maxPpsRate;
  uint32_t minBpsRate;
  uint32_t maxBpsRate;
  uint32_t minBpsBurst;
  uint32_t maxBpsBurst;
  uint32_t maxProfileNum;
  uint32_t profileNum;
  SIL_POOL_ID profilePool;  // "meter_profile", entry n is profile n + 1
};

extern MeterList gMeterList;
extern uint32_t gMeterDebug;

// Start-up.
int32_t meterOptInit();
int32_t meterInit(uint32_t maxMeterNum, uint32_t maxProfileNum, uint32_t minPps, uint32_t maxPps,
                  uint32_t minBps, uint32_t maxBps, uint32_t minBurst, uint32_t maxBurst);
void meterDeinit();

// Meters.
MeterEntry* meterEntryGet(uint32_t index);
int32_t meterIsValid(uint32_t index);
int32_t meterRefcount(uint32_t index, int32_t delta);
int32_t meterGetRefcount(uint32_t index);
MeterEntry* meterEntryAdd(uint32_t index);
int32_t meterEntryDel(MeterEntry* entry);
int32_t meterFreeIndexGet(uint32_t* index);

// Meter profiles.
MeterProfileEntry* meterProfileEntryGet(uint32_t index);
MeterProfileEntry* meterProfileEntryAdd(uint32_t index);
int32_t meterProfileEntryDel(MeterProfileEntry* entry);
int32_t meterProfileFreeIndexGet(uint32_t* index);
void meterProfileInfoShow();

// Command table functions (ids 50 to 62).
int32_t meterScalarGetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t meterScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t meterScalarSyncApi(uintptr_t key, uintptr_t cmd, uintptr_t buf);
int32_t _meterScalarSetApi(uintptr_t key, uintptr_t cmd, uintptr_t buf, uint32_t mode);
int32_t meterGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t);
int32_t meterGetNext(uintptr_t index, uintptr_t nextAddr, uintptr_t);
int32_t meterGetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t meterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t meterSyncApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t _meterSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf, uint32_t mode);
int32_t meterProfileGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t);
int32_t meterProfileGetNext(uintptr_t index, uintptr_t nextAddr, uintptr_t);
int32_t meterProfileGetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t meterProfileSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t meterProfileSyncApi(uintptr_t index, uintptr_t cmd, uintptr_t buf);
int32_t _meterProfileSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf, uint32_t mode);

// Tests only: back to the unstarted module.
void meterResetForTest();
