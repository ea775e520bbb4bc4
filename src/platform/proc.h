// Process frame services: crash and signal handlers, the process shell registration, and the
// run-time paths of this process's sockets.
#pragma once

#include <cstdint>
#include <string>

void silCatchSegFault();
void patchSignalHandler();
// Registers the process with the platform shell and serves the shell's socket in the run
// directory (platform/proc_shell.h). The diagnostics register their commands afterwards.
int procShellInit(const char* processName, uint32_t r1, uint32_t r2);

namespace plat {

// Directory that holds the command socket, the virtual-device socket and the route bus. The
// device's default is /tmp.
void setRunDir(const std::string& dir);
const std::string& runDir();
// Paths inside the run directory.
std::string runPath(const std::string& name);
// The command socket path the daemon is built with is "/tmp/aclcmd.socket"; with another run
// directory, the same file name lives there instead.
std::string mapRunPath(const char* devicePath);

const std::string& processName();

// The process shell's commands and socket are in platform/proc_shell.h.

// What a shell command prints: to the capture active on the calling thread, else to stdout.
void shellPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Collects what shell commands print on this thread while it lives (the shell server and tests).
class ShellCapture {
 public:
  ShellCapture();
  ~ShellCapture();
  ShellCapture(const ShellCapture&) = delete;
  ShellCapture& operator=(const ShellCapture&) = delete;
  const std::string& text() const { return text_; }

 private:
  std::string text_;
  std::string* previous_;
};

// Stops every task created with silCreateTask and waits for them. Only the test teardown calls
// it: the daemon itself never stops.
void stopAllTasksForTest();
// Platform state back to how a new process finds it (options, log ring, faults, clock, buses).
void resetForTest();

}  // namespace plat
