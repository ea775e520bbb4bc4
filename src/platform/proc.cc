// Process frame: crash and signal handlers, the process shell, the run directory.
#include "platform/proc.h"

#include <execinfo.h>
#include <signal.h>
#include <unistd.h>

#include <cstring>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/logging.h"
#include "platform/options.h"
#include "platform/proc_shell.h"
#include "platform/sil.h"
#include "platform/vdev/vdev.h"

namespace {

std::string gRunDir = "/tmp";
std::string gProcessName;

// Writes the fault and a backtrace to stderr with async-signal-safe calls, then dies of the same
// signal so the exit status tells what happened.
void crashHandler(int sig) {
  const char* what = strsignal(sig);
  (void)!write(STDERR_FILENO, "acl: fatal signal: ", 19);
  (void)!write(STDERR_FILENO, what, std::strlen(what));
  (void)!write(STDERR_FILENO, "\n", 1);
  void* frames[64];
  const int n = backtrace(frames, 64);
  backtrace_symbols_fd(frames, n, STDERR_FILENO);
  signal(sig, SIG_DFL);
  raise(sig);
}

void installCrash(int sig) {
  struct sigaction sa {};
  sa.sa_handler = crashHandler;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESETHAND;
  sigaction(sig, &sa, nullptr);
}

}  // namespace

void silCatchSegFault() {
  installCrash(SIGSEGV);
  installCrash(SIGBUS);
}

void patchSignalHandler() {
  installCrash(SIGFPE);
  installCrash(SIGILL);
  installCrash(SIGABRT);
}

int procShellInit(const char* processName, uint32_t /*r1*/, uint32_t /*r2*/) {
  gProcessName = processName ? processName : "";
  return plat::shellServe();
}

namespace plat {

void clockResetForTest();  // sil_mem.cc

void setRunDir(const std::string& dir) {
  gRunDir = dir.empty() ? "/tmp" : dir;
  while (gRunDir.size() > 1 && gRunDir.back() == '/') gRunDir.pop_back();
}

const std::string& runDir() { return gRunDir; }

std::string runPath(const std::string& name) { return gRunDir + "/" + name; }

std::string mapRunPath(const char* devicePath) {
  std::string p = devicePath ? devicePath : "";
  const auto slash = p.rfind('/');
  return runPath(slash == std::string::npos ? p : p.substr(slash + 1));
}

const std::string& processName() { return gProcessName; }

void resetForTest() {
  optClear();
  logRingClear();
  faultClear();
  clockResetForTest();
  hwilResetForTest();
  vdev::resetForTest();
}

}  // namespace plat
