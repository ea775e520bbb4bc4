// Mirror-group reference counts, per group and module.
#include "platform/mirror.h"

#include "platform/fault.h"
#include "platform/vdev/calls.h"

using namespace vdev;

int mirrorRefCount(uint32_t group, uint32_t module, int32_t delta) {
  if (auto f = plat::faultHit({.call = "mirrorRefCount", .unit = group})) return *f;
  Device& d = device();
  std::lock_guard lock(d.mutex);
  auto it = d.model.mirrors.find(group);
  if (it == d.model.mirrors.end()) return kErrNotFound;
  int32_t& n = it->second.refCounts[module];
  n += delta;
  if (n < 0) {
    journalPush(d.journal.anomalies, Anomaly{nextSeq(d.journal),
                                             "mirrorRefCount",
                                             "mirror group released more often than taken",
                                             module,
                                             {},
                                             group,
                                             0,
                                             0});
  }
  return 0;
}
