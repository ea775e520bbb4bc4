// A private run directory for one test: the platform's sockets go there, and it is removed with
// everything in it afterwards.
#pragma once

#include <string>

namespace test {

class TempRunDir {
 public:
  TempRunDir();
  ~TempRunDir();
  TempRunDir(const TempRunDir&) = delete;
  TempRunDir& operator=(const TempRunDir&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace test
