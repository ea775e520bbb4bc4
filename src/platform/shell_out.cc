// The console of the process shell: diagnostics print here, and whoever runs a shell command
// collects its output with a capture on its own thread.
#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/proc.h"

namespace plat {

namespace {
thread_local std::string* gCapture = nullptr;
}  // namespace

void shellPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (gCapture == nullptr) {
    std::vprintf(format, args);
    va_end(args);
    return;
  }
  va_list again;
  va_copy(again, args);
  const int n = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (n > 0) {
    const size_t at = gCapture->size();
    gCapture->resize(at + static_cast<size_t>(n) + 1);
    std::vsnprintf(gCapture->data() + at, static_cast<size_t>(n) + 1, format, again);
    gCapture->resize(at + static_cast<size_t>(n));
  }
  va_end(again);
}

ShellCapture::ShellCapture() : previous_(gCapture) {
  gCapture = &text_;
}
ShellCapture::~ShellCapture() {
  gCapture = previous_;
}

}  // namespace plat
