// Device files from arbitrary bytes, through the loader `acl --device` uses: the text is written
// to a file and loaded. A refused file answers an error that names the file; a loaded one must
// write back (modelToJson) into a file that loads again to the same JSON, since `model.load`
// and the inspection requests rely on that round trip. The device is put back to the built-in
// model after each input, so a crash reproduces from its one input.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/vdev/model.h"
#include "platform/vdev/model_json.h"
#include "platform/vdev/vdev.h"
#include "scratch.h"

namespace {

const std::string& scratchPath() {
  static const std::string path = fuzzScratchPath("device", ".json");
  return path;
}

void writeFile(const std::string& path, const char* data, size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(data, static_cast<std::streamsize>(size));
}

nlohmann::json currentModel() {
  vdev::Device& d = vdev::device();
  std::lock_guard lock(d.mutex);
  return vdev::modelToJson(d.model);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool started = [] {
    vdev::resetForTest();
    std::atexit([] { ::unlink(scratchPath().c_str()); });
    return true;
  }();
  (void)started;
  const std::string& path = scratchPath();
  writeFile(path, reinterpret_cast<const char*>(data), size);
  std::string error;
  if (!vdev::load(path, &error)) {
    if (error.rfind(path + ": ", 0) != 0) std::abort();
    return 0;
  }
  const nlohmann::json first = currentModel();
  const std::string text = first.dump();
  writeFile(path, text.data(), text.size());
  error.clear();
  if (!vdev::load(path, &error)) std::abort();
  if (currentModel() != first) std::abort();
  vdev::resetForTest();
  return 0;
}
