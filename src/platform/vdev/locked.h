// Locked access to the virtual device for tests whose daemon tasks are running: copies taken under
// the device's mutex, and changes made under it.
#pragma once

#include <functional>

#include "platform/vdev/model.h"

namespace vdev {

Model modelCopy();
Journal journalCopy();
// Runs fn on the model with the device's mutex held.
void modelEdit(const std::function<void(Model&)>& fn);

}  // namespace vdev
