// End-to-end harness: the real acl daemon in a fresh run directory of its own, driven through the
// client library and aclctl, stopped at the end. The run directory (with the daemon's log) is
// kept when the test failed, and its path printed.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

struct AclProcessOptions {
  std::vector<std::pair<std::string, std::string>> opts;  // --opt k=v
  std::string deviceFile;                                 // --device, when not empty
  std::vector<std::string> extraArgs;
};

class AclProcess {
 public:
  // Starts build/.../src/main/acl --run-dir <fresh temp dir> --log-file <run dir>/acl.log
  // [--device F] [--opt k=v ...] and waits until the command socket answers; nullptr (with the
  // log shown) if it does not.
  static std::unique_ptr<AclProcess> start(const AclProcessOptions& o = {});
  ~AclProcess();  // SIGTERM, then SIGKILL; removes the run dir unless the test failed
  AclProcess(const AclProcess&) = delete;
  AclProcess& operator=(const AclProcess&) = delete;

  const std::string& runDir() const { return runDir_; }
  std::string logText() const;  // the daemon's --log-file contents
  // Runs aclctl with --run-dir prepended; returns its exit status and fills out with its stdout.
  int aclctl(const std::vector<std::string>& args, std::string* out) const;
  pid_t pid() const { return pid_; }
  bool alive() const;

 private:
  AclProcess() = default;
  std::string runDir_;
  pid_t pid_ = -1;
  mutable bool reaped_ = false;
  mutable int exitStatus_ = 0;
};
