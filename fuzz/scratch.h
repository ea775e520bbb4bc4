// The file each input of a file-reading target is written to before it is loaded: in TMPDIR when
// it is set (campaigns give each worker a scratch directory they remove after it), else in a
// memory file system when there is one: on a disk /tmp, the kernel's writes took half of each
// input. libFuzzer ends a run without the exit handlers that would remove the file.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>

inline std::string fuzzScratchPath(const char* name, const char* suffix) {
  const char* tmp = std::getenv("TMPDIR");
  const std::string dir = tmp != nullptr && *tmp != '\0'    ? tmp
                          : ::access("/dev/shm", W_OK) == 0 ? "/dev/shm"
                                                            : "/tmp";
  return dir + "/acl_fuzz_" + name + "_" + std::to_string(::getpid()) + suffix;
}
