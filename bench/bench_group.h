// The ACL group a benchmark runs on: a run directory of its own for the platform's sockets,
// and, when the benchmark returns by any path, the group stopped and the directory removed.
#pragma once
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "main/acl_group.h"
#include "platform/proc.h"

class BenchGroup {
 public:
  BenchGroup() {
    char tmpl[] = "/tmp/acl-bench-XXXXXX";
    if (::mkdtemp(tmpl) == nullptr) return;
    runDir_ = tmpl;
    plat::setRunDir(runDir_);
  }
  ~BenchGroup() {
    if (runDir_.empty()) return;
    aclResetForTest();
    std::error_code ec;
    std::filesystem::remove_all(runDir_, ec);
  }
  BenchGroup(const BenchGroup&) = delete;
  BenchGroup& operator=(const BenchGroup&) = delete;
  bool ok() const { return !runDir_.empty(); }

 private:
  std::string runDir_;
};
