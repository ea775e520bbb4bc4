// Device-control lines from arbitrary bytes: every line gets exactly one reply line, which is
// strict JSON (valid UTF-8) with "ok", and no line can stop the process. A line the device took
// may have changed it (a loaded model, an armed fault): the device is reset after it, so every
// line meets the built-in device and a crash reproduces from its one input. A refused line
// changes nothing, so most lines need no reset, which would cost more than the line itself.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/vdev/control.h"
#include "platform/vdev/vdev.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool started = [] {
    vdev::resetForTest();
    return true;
  }();
  (void)started;
  const std::string line(reinterpret_cast<const char*>(data), size);
  const std::string reply = vdev::handleRequestLine(line);
  if (reply.find('\n') != std::string::npos) std::abort();
  const auto r = nlohmann::json::parse(reply, nullptr, /*allow_exceptions=*/false);
  if (!r.is_object() || !r.contains("ok") || !r.at("ok").is_boolean()) std::abort();
  if (r.at("ok") == false && !(r.contains("error") && r.at("error").is_string())) std::abort();
  if (r.at("ok") == true) vdev::resetForTest();
  return 0;
}
