#include "platform/vdev/locked.h"

namespace vdev {

Model modelCopy() {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  return d.model;
}

Journal journalCopy() {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  return d.journal;
}

void modelEdit(const std::function<void(Model&)>& fn) {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  fn(d.model);
}

}  // namespace vdev
