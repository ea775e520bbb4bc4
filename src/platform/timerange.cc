// The time-range service: each range's state and how many users registered on it.
#include "platform/timerange.h"

#include "platform/fault.h"
#include "platform/vdev/calls.h"
#include "wire/be.h"

using namespace vdev;

int timerangeListGetApi(uint32_t id, uint32_t attr, void* value) {
  if (auto f = plat::faultHit({.call = "timerangeListGetApi", .cmd = attr, .unit = id})) {
    return *f;
  }
  if (value == nullptr) return kErrBadParam;
  if (attr != TIMERANGE_ATTR_STATE) return kErrNotSupported;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto it = d.model.timeRanges.find(id);
  if (it == d.model.timeRanges.end()) return kErrNotFound;
  be::store32(value, it->second.active ? 1 : 0);
  return 0;
}

int timerangeListSetApi(uint32_t id, uint32_t attr, const void* value) {
  if (auto f = plat::faultHit({.call = "timerangeListSetApi", .cmd = attr, .unit = id})) {
    return *f;
  }
  if (value == nullptr) return kErrBadParam;
  if (attr != TIMERANGE_ATTR_REFCNT) return kErrNotSupported;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto it = d.model.timeRanges.find(id);
  if (it == d.model.timeRanges.end()) return kErrNotFound;
  const auto delta = static_cast<int32_t>(be::load32(value));
  it->second.refCount += delta;
  // More releases than registrations is a caller's bookkeeping fault: keep it visible.
  if (it->second.refCount < 0) {
    journalPush(d.journal.anomalies, Anomaly{nextSeq(d.journal),
                                             "timerangeListSetApi",
                                             "time range released more often than taken",
                                             attr,
                                             {},
                                             id,
                                             0,
                                             0});
  }
  return 0;
}
