// Loading, serving and resetting the virtual device.
#include "platform/vdev/vdev.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/vdev/control.h"
#include "platform/vdev/json_text.h"
#include "platform/vdev/model_json.h"

namespace vdev {

namespace {

// A device file describes one chassis: a few hundred kilobytes at most. The bound keeps a wrong
// path (a log, a device node) from being read into memory whole.
constexpr size_t kMaxDeviceFileBytes = 16u << 20;

// "line L, column C" of a byte offset into text, for parse errors.
std::string lineColumn(std::string_view text, size_t byte) {
  size_t line = 1, col = 1;
  for (size_t i = 0; i + 1 < byte && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      col = 1;
    } else {
      ++col;
    }
  }
  return "line " + std::to_string(line) + ", column " + std::to_string(col);
}

void install(Model m) {
  Device& d = device();
  std::lock_guard lock(d.mutex);
  d.model = std::move(m);
  d.journal = Journal{};
}

}  // namespace

bool load(const std::string& path, std::string* error) {
  if (path.empty()) {
    install(builtinModel());
    return true;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    if (error) *error = path + ": cannot read: " + std::strerror(errno);
    return false;
  }
  std::string text;
  char chunk[65536];
  while (text.size() <= kMaxDeviceFileBytes && in.read(chunk, sizeof chunk).gcount() > 0) {
    text.append(chunk, static_cast<size_t>(in.gcount()));
  }
  if (in.bad()) {
    if (error) *error = path + ": cannot read: " + std::strerror(errno);
    return false;
  }
  if (text.size() > kMaxDeviceFileBytes) {
    if (error) {
      *error = path + ": larger than " + std::to_string(kMaxDeviceFileBytes >> 20) + " MiB";
    }
    return false;
  }
  return loadText(text, path, error);
}

bool loadText(std::string_view text, const std::string& name, std::string* error) {
  nlohmann::json j;
  JsonTextError bad;
  if (!parseJsonText(text, &j, &bad)) {
    std::string what = bad.what;
    // nlohmann's text repeats the position; keep its last part, which says what was wrong.
    if (auto p = what.find(": syntax error"); p != std::string::npos) what = what.substr(p + 2);
    if (error) {
      *error = name + ": " + (bad.byte != 0 ? lineColumn(text, bad.byte) + ": " : "") + what;
    }
    return false;
  }
  Model m;
  std::string err;
  if (!modelFromJson(j, &m, &err)) {
    if (error) *error = name + ": " + err;
    return false;
  }
  install(std::move(m));
  return true;
}

int serve() {
  return serverStart();
}

void resetForTest() {
  serverStop();
  plat::faultClear();
  plat::hwilResetForTest();
}

}  // namespace vdev

namespace plat {
void hwilResetForTest() {
  // In-process tests build the ledger they test: the chassis is replayed only where a test
  // switches it on.
  vdev::Model m = vdev::builtinModel();
  m.announce = false;
  vdev::install(std::move(m));
}
}  // namespace plat
