// Options files from arbitrary bytes, read as the daemon reads them at start: the text is loaded
// into the option store (through the loader optLoadFile hands a file's text to, so no file is
// written per input) and the acl. options are read from it through silOptRead. A refused file must
// leave the store as it was (here: one option set before); a loaded one must hold only keys of the
// accepted form, each readable back through silOptRead as a NUL-terminated text. The store is
// emptied after each input: an input leaves nothing behind, so a crash reproduces from its one
// input and libFuzzer finds no allocation outliving an input to scan the heap for.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "main/acl_group.h"
#include "main/opt_read.h"
#include "platform/options.h"
#include "platform/sil.h"

namespace {

// What a refusal must name, as it names the file it read.
const std::string kName = "fuzz.conf";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  plat::optClear();
  plat::optSet("fuzz.kept", "1");
  std::string error;
  if (!plat::optLoadText(text, kName, &error)) {
    if (error.rfind(kName + ":", 0) != 0) std::abort();
    const auto all = plat::optAll();
    if (all.size() != 1 || all[0].first != "fuzz.kept" || all[0].second != "1") std::abort();
    plat::optClear();
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
  if (plat::optParseOverride(std::string(text), &error)) {
    if (plat::optAll().empty()) std::abort();
  }
  plat::optClear();
  return 0;
}
