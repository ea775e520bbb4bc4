// Loading, serving and resetting the virtual device.
#include "platform/vdev/vdev.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/vdev/control.h"
#include "platform/vdev/model_json.h"

namespace vdev {

namespace {

// "line L, column C" of a byte offset into text, for parse errors.
std::string lineColumn(const std::string& text, size_t byte) {
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
  std::stringstream ss;
  ss << in.rdbuf();
  const std::string text = ss.str();
  nlohmann::json j;
  try {
    j = nlohmann::json::parse(text);
  } catch (const nlohmann::json::parse_error& e) {
    std::string what = e.what();
    // nlohmann's text repeats the position; keep its last part, which says what was wrong.
    if (auto p = what.find(": syntax error"); p != std::string::npos) what = what.substr(p + 2);
    if (error) *error = path + ": " + lineColumn(text, e.byte) + ": " + what;
    return false;
  }
  Model m;
  std::string err;
  if (!modelFromJson(j, &m, &err)) {
    if (error) *error = path + ": " + err;
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
