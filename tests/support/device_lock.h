// The virtual device's model and journal read or changed under its lock, as every platform call
// takes it.
#pragma once

#include <mutex>

#include "platform/vdev/model.h"

namespace test {

// f(device) with the device's mutex held; what f returns.
template <typename F>
auto onDevice(F&& f) {
  vdev::Device& d = vdev::device();
  std::lock_guard lock(d.mutex);
  return f(d);
}

}  // namespace test
