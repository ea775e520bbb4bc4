#include "support/run_dir.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

#include "platform/proc.h"

namespace test {

TempRunDir::TempRunDir() {
  char tmpl[] = "/tmp/acl-test-XXXXXX";
  if (mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
  plat::setRunDir(path_);
}

TempRunDir::~TempRunDir() {
  plat::setRunDir("");
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

}  // namespace test
