// The file each input of a file-reading target is written to before it is loaded. A memory file
// system is used when there is one: on a disk /tmp, the kernel's writes took half of each input.
#pragma once

#include <unistd.h>

#include <string>

inline std::string fuzzScratchPath(const char* name, const char* suffix) {
  const char* dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dir) + "/acl_fuzz_" + name + "_" + std::to_string(::getpid()) + suffix;
}
