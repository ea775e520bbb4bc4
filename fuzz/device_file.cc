// Device files from arbitrary bytes, through the loader `acl --device` uses, given the text a
// file read would hand it (vdev::loadText), so no file is written per input. A refused file
// answers an error that names the file; a loaded one must write back (modelToJson) into a text
// that loads again to the same JSON, since `model.load` and the inspection requests rely on that
// round trip. The device is put back to the built-in model after each input, so a crash
// reproduces from its one input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/vdev/model.h"
#include "platform/vdev/model_json.h"
#include "platform/vdev/vdev.h"

namespace {

// What a refusal must name, as it names the file it read.
const std::string kName = "fuzz.json";

nlohmann::json currentModel() {
  vdev::Device& d = vdev::device();
  std::lock_guard lock(d.mutex);
  return vdev::modelToJson(d.model);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool started = [] {
    vdev::resetForTest();
    return true;
  }();
  (void)started;
  std::string error;
  if (!vdev::loadText(std::string_view(reinterpret_cast<const char*>(data), size), kName, &error)) {
    if (error.rfind(kName + ": ", 0) != 0) std::abort();
    return 0;
  }
  const nlohmann::json first = currentModel();
  error.clear();
  if (!vdev::loadText(first.dump(), kName, &error)) std::abort();
  if (currentModel() != first) std::abort();
  vdev::resetForTest();
  return 0;
}
