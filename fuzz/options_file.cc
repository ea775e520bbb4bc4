// Options files from arbitrary bytes, read as the daemon reads them at start: the file is loaded
// into the option store and the acl. options are read from it through silOptRead. A refused
// file must leave the store as it was (here: one option set before); a loaded one must hold only
// keys of the accepted form, each readable back through silOptRead as a NUL-terminated text.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "main/acl_group.h"
#include "main/opt_read.h"
#include "platform/options.h"
#include "platform/sil.h"
#include "scratch.h"

namespace {

const std::string& scratchPath() {
  static const std::string path = fuzzScratchPath("options", ".conf");
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool started = [] {
    std::atexit([] { ::unlink(scratchPath().c_str()); });
    return true;
  }();
  (void)started;
  const std::string& path = scratchPath();
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  plat::optClear();
  plat::optSet("fuzz.kept", "1");
  std::string error;
  if (!plat::optLoadFile(path, &error)) {
    if (error.rfind(path + ":", 0) != 0) std::abort();
    const auto all = plat::optAll();
    if (all.size() != 1 || all[0].first != "fuzz.kept" || all[0].second != "1") std::abort();
    return 0;
  }
  for (const auto& [key, value] : plat::optAll()) {
    if (key.empty() || key.find_first_of(" \t=#") != std::string::npos) std::abort();
    OptText buf;
    if (!optText(key.c_str(), buf)) std::abort();
    // The buffer keeps its last byte for the NUL whatever the value's length.
    if (buf[sizeof buf - 1] != '\0') std::abort();
    if (std::memcmp(buf, value.data(), std::min(value.size(), sizeof buf - 1)) != 0) std::abort();
  }
  aclOptParams params;
  const bool enabled = aclOptRead(&params);
  OptText enable;
  if (enabled == (optText("acl.enable", enable) && optFirstIs(enable, 'f'))) std::abort();
  // The same text as one command-line override is either refused or stored under a valid key.
  const std::string line(reinterpret_cast<const char*>(data), size);
  if (plat::optParseOverride(line, &error)) {
    if (plat::optAll().empty()) std::abort();
  }
  return 0;
}
