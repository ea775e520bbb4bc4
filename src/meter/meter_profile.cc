// Meter profiles: per-ONU policing profiles, stored, relayed and reference-counted.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "api/acl_relay.h"
#include "api/table_buf.h"
#include "meter/meter.h"
#include "platform/proc.h"
#include "wire/acl_ret.h"

namespace {

constexpr uint32_t kProfileRecordLen = 48;

enum ProfileCmd : uint32_t {
  kStatus = 0,
  kName = 1,
  kRef = 2,
  kUsPolicyCir = 3,
  kUsCbs = 4,
  kUsEbs = 5,
  kDsPolicyCir = 6,
  kDsPir = 7,
  kUsPolicing = 8,
  kDsPolicing = 9,
  kRecord = 10,
};

uint32_t* profileWord(MeterProfileEntry* p, uint32_t cmd) {
  switch (cmd) {
    case kUsPolicyCir:
      return &p->uspolicycir;
    case kUsCbs:
      return &p->uscbs;
    case kUsEbs:
      return &p->usebs;
    case kDsPolicyCir:
      return &p->dspolicycir;
    case kDsPir:
      return &p->dspir;
    default:
      return nullptr;
  }
}

MeterProfileEntry* profileSlot(uint32_t index) {
  if (index < 1 || index > gMeterList.maxProfileNum) return nullptr;
  return static_cast<MeterProfileEntry*>(silMemPoolId2Entry(gMeterList.profilePool, index - 1));
}

int32_t profileStatusSet(uint32_t index, MeterProfileEntry* p, uint32_t value) {
  switch (value) {
    case 2:
      return meterProfileEntryAdd(index) != nullptr ? 0 : -1;
    case 1:
    case 3:
      if (p == nullptr) return -1;
      p->status = static_cast<uint8_t>(value);
      return 0;
    case 4:
      if (p == nullptr || p->refCnt != 0) return -1;
      return meterProfileEntryDel(p);
    default:
      return -1;
  }
}

void putRecord(const MeterProfileEntry* p, wire::BufDesc* d) {
  std::span<uint8_t> r(static_cast<uint8_t*>(d->data), kProfileRecordLen);
  be::store8(r, 0, p->status);
  be::store8(r, 1, p->refCnt);
  std::memcpy(r.data() + 2, p->name, METER_PROFILE_NAME_LEN);
  be::store16(r, 22, p->nameLen);
  be::store32(r, 24, p->uspolicycir);
  be::store32(r, 28, p->uscbs);
  be::store32(r, 32, p->usebs);
  be::store32(r, 36, p->dspolicycir);
  be::store32(r, 40, p->dspir);
  be::store8(r, 44, p->usPolicingStatus);
  be::store8(r, 45, p->dsPolicingStatus);
  d->len = kProfileRecordLen;
}

}  // namespace

MeterProfileEntry* meterProfileEntryGet(uint32_t index) {
  MeterProfileEntry* p = profileSlot(index);
  return (p != nullptr && p->status != METER_STATUS_FREE) ? p : nullptr;
}

MeterProfileEntry* meterProfileEntryAdd(uint32_t index) {
  MeterProfileEntry* p = profileSlot(index);
  if (p == nullptr || p->status != METER_STATUS_FREE) return nullptr;
  std::memset(p, 0, sizeof *p);
  p->id = static_cast<uint16_t>(index);
  p->status = METER_STATUS_CREATED;
  char name[32];
  const int n = std::snprintf(name, sizeof name, "meteronu-%d", static_cast<int>(index));
  p->nameLen = static_cast<uint16_t>(std::min<int>(n, METER_PROFILE_NAME_LEN));
  std::memcpy(p->name, name, p->nameLen);
  ++gMeterList.profileNum;
  return p;
}

int32_t meterProfileEntryDel(MeterProfileEntry* p) {
  if (p == nullptr) return -1;
  std::memset(p, 0, sizeof *p);
  if (gMeterList.profileNum > 0) --gMeterList.profileNum;
  return 0;
}

int32_t meterProfileFreeIndexGet(uint32_t* index) {
  for (uint32_t i = 1; i <= gMeterList.maxProfileNum; ++i) {
    if (meterProfileEntryGet(i) == nullptr && profileSlot(i) != nullptr) {
      *index = i;
      return 0;
    }
  }
  return -1;
}

void meterProfileInfoShow() {
  for (uint32_t i = 1; i <= gMeterList.maxProfileNum; ++i) {
    const MeterProfileEntry* p = meterProfileEntryGet(i);
    if (p == nullptr) continue;
    char name[METER_PROFILE_NAME_LEN + 1] = {};
    std::memcpy(name, p->name, std::min<uint32_t>(p->nameLen, METER_PROFILE_NAME_LEN));
    plat::shellPrintf("\n\r ====================%s======================", name);
    plat::shellPrintf("\n\r id = %d,status = %d,refCnt = %d,len = %d,uspolicycir = %d,uscbs = %d",
                      p->id, p->status, p->refCnt, p->nameLen, p->uspolicycir, p->uscbs);
    plat::shellPrintf(
        "\n\r usebs = %d,dspolicycir = %d,dspir = %d,usPolicingStatus = %d,dsPolicingStatus = %d",
        p->usebs, p->dspolicycir, p->dspir, p->usPolicingStatus, p->dsPolicingStatus);
  }
}

int32_t meterProfileGetFirst(uintptr_t indexAddr, uintptr_t, uintptr_t) {
  return meterProfileGetNext(0, indexAddr, 0);
}

int32_t meterProfileGetNext(uintptr_t index, uintptr_t nextAddr, uintptr_t) {
  if (nextAddr == 0) return -1;
  for (uint64_t i = uint64_t{static_cast<uint32_t>(index)} + 1; i <= gMeterList.maxProfileNum;
       ++i) {
    if (const MeterProfileEntry* p = meterProfileEntryGet(static_cast<uint32_t>(i))) {
      tblSetValue(nextAddr, p->id);
      return 0;
    }
  }
  return -1;
}

int32_t meterProfileGetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  if (buf == 0 || cmd > kRecord) return -1;
  MeterProfileEntry* p = meterProfileEntryGet(static_cast<uint32_t>(index));
  if (p == nullptr) return -1;
  switch (cmd) {
    case kStatus:
      tblSetValue(buf, p->status);
      return 0;
    case kName: {
      wire::BufDesc* d = tblDesc(buf);
      if (d->data == nullptr) return ACL_RET_INVALID;
      tblDescPut(d, {reinterpret_cast<const uint8_t*>(p->name), p->nameLen});
      return 0;
    }
    case kRef:
      tblSetValue(buf, p->refCnt);
      return 0;
    case kUsPolicing:
      tblSetValue(buf, p->usPolicingStatus);
      return 0;
    case kDsPolicing:
      tblSetValue(buf, p->dsPolicingStatus);
      return 0;
    case kRecord: {
      wire::BufDesc* d = tblDesc(buf);
      if (d->data == nullptr) return ACL_RET_INVALID;
      // The record is written whole; a data area that cannot hold it is refused.
      if (d->len < kProfileRecordLen) return CMN_ERR_BUFFER_SHORT;
      putRecord(p, d);
      return 0;
    }
    default:
      tblSetValue(buf, *profileWord(p, static_cast<uint32_t>(cmd)));
      return 0;
  }
}

int32_t meterProfileSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  return _meterProfileSetApi(index, cmd, buf, ACL_MODE_SET);
}

int32_t meterProfileSyncApi(uintptr_t index, uintptr_t cmd, uintptr_t buf) {
  return _meterProfileSetApi(index, cmd, buf, ACL_MODE_SYNC);
}

int32_t _meterProfileSetApi(uintptr_t index, uintptr_t cmd, uintptr_t buf, uint32_t mode) {
  if (buf == 0) return -1;
  const auto idx = static_cast<uint32_t>(index);
  MeterProfileEntry* p = meterProfileEntryGet(idx);
  if (p == nullptr && cmd != kStatus) return -1;
  if (p != nullptr && p->refCnt != 0 && cmd != kRef) return -1;

  const bool isName = cmd == kName;
  const int32_t relay = aclHwRelay(ACL_RELAY_METER_PROFILE, mode, index, cmd, buf,
                                   isName ? AclRelayData::Desc : AclRelayData::Value);
  // Only a refusal of -1 stops a profile change; any other answer becomes the result.
  if (relay == -1) return -1;

  int32_t ret;
  if (cmd == kStatus) {
    ret = profileStatusSet(idx, p, tblValue(buf));
  } else if (isName) {
    const wire::BufDesc* d = tblDesc(buf);
    if (d->data == nullptr) return ACL_RET_INVALID;
    p->nameLen = static_cast<uint16_t>(std::min<uint32_t>(d->len, METER_PROFILE_NAME_LEN));
    std::memcpy(p->name, d->data, p->nameLen);
    ret = 0;
  } else if (cmd == kRef) {
    if (p->status != METER_STATUS_VALID) return -1;
    if (tblValue(buf) != 0) {
      if (p->refCnt < METER_PROFILE_REF_MAX) ++p->refCnt;
    } else if (p->refCnt > 0) {
      --p->refCnt;
    }
    ret = 0;
  } else if (uint32_t* word = profileWord(p, static_cast<uint32_t>(cmd))) {
    *word = tblValue(buf);
    ret = 0;
  } else if (cmd == kUsPolicing || cmd == kDsPolicing) {
    (cmd == kUsPolicing ? p->usPolicingStatus : p->dsPolicingStatus) =
        static_cast<uint8_t>(tblValue(buf));
    ret = 0;
  } else {
    return -1;
  }
  return ret != 0 ? ret : relay;
}
