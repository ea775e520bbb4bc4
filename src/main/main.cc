// acl: the ACL manager daemon.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "counter/counter.h"
#include "diag/acl_audit.h"
#include "diag/acl_shell.h"
#include "main/acl_group.h"
#include "main/version.h"
#include "meter/meter.h"
#include "platform/cmd_server.h"
#include "platform/logging.h"
#include "platform/options.h"
#include "platform/proc.h"
#include "platform/rtbus.h"
#include "platform/run_dir.h"
#include "platform/vdev/vdev.h"

namespace {

constexpr int kExitUsage = 2;

int usageError(const std::string& message) {
  std::fprintf(stderr, "acl: %s (see acl --help)\n", message.c_str());
  return kExitUsage;
}

// A start-up refused for a reason other than the command line: one line, the same status.
int startError(const std::string& message) {
  std::fprintf(stderr, "acl: %s\n", message.c_str());
  return kExitUsage;
}

// The route bus must be a private directory of ours, and every name we will take in the run
// directory free or a leftover of ours, before anything is served: a start that fails half-way
// would leave some sockets served and others not.
bool runDirNamesFree(std::string* error) {
  const std::string bus = plat::busDir();
  if (!plat::privateDirPrepare(bus, error)) return false;
  const std::pair<std::string, mode_t> names[] = {
      {plat::mapRunPath(ACL_CMD_SOCKET), S_IFSOCK},
      {plat::runPath("acldev.socket"), S_IFSOCK},    // the device control socket
      {plat::runPath("aclshell.socket"), S_IFSOCK},  // the process shell
      {bus + "/acl.sock", S_IFSOCK},                 // our route socket, named after the process
      {bus + "/acl.groups", S_IFREG},                // and the groups it joined
  };
  for (const auto& [path, type] : names) {
    if (!plat::nameTakeable(path, type, error)) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "acl: the ACL manager. Owns every filter-list, rule, binding, meter, counter and statistic\n"
      "of the switch, serves the command table on a local socket, follows the platform's route\n"
      "messages and programs the switching hardware (here, the built-in virtual device).",
      "acl"};
  std::string optionsFile, runDir, deviceFile, logFile;
  std::vector<std::string> overrides;
  bool useSyslog = false;
  app.add_option("--options", optionsFile, "Options file: 'key = value' lines, '#' comments")
      ->option_text("FILE");
  app.add_option("--opt", overrides, "Set one option, overriding the options file (repeatable)")
      ->option_text("KEY=VALUE")
      ->allow_extra_args(false);
  app.add_option("--run-dir", runDir,
                 "Directory for the command socket, the device socket and the route bus "
                 "(default /tmp)")
      ->option_text("DIR");
  app.add_option("--device", deviceFile, "JSON device file (default: the built-in device)")
      ->option_text("FILE");
  app.add_option("--log-file", logFile, "Write log lines to FILE instead of stderr")
      ->option_text("FILE");
  app.add_flag("--syslog", useSyslog, "Write log lines to syslog instead of stderr");
  app.set_version_flag("--version", std::string("acl ") + ACL_VERSION_STRING);
  app.footer(
      "Options read at start-up include acl.enable, acl.maxlstnum, acl.maxrulenum,\n"
      "acl.maxgrulenum, acl.maxifnum, acl.maxgemportnum, acl.maxslotnum, acl.carmin, acl.carmax,\n"
      "acl.dynamicbindenable, acl.multiredirectenable, acl.tlvenable, acl.ethsubifenable and the\n"
      "per-type maxima acl.max{l2,ipv4,ipv6,hybrid,mpls,udf}rulenum. See README.md.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    return usageError(e.what());
  }
  if (!logFile.empty() && useSyslog) return usageError("--log-file and --syslog exclude each other");

  std::string error;
  if (!plat::runDirPrepare(runDir, &error)) return startError(error);
  if (!runDirNamesFree(&error)) return startError("unsafe run directory: " + error);
  if (!optionsFile.empty() && !plat::optLoadFile(optionsFile, &error)) return usageError(error);
  for (const std::string& o : overrides) {
    if (!plat::optParseOverride(o, &error)) return usageError(error);
  }
  if (!logFile.empty() && !plat::logSetSink(plat::LogSink::File, logFile)) {
    return usageError("cannot open log file " + logFile + ": " + std::strerror(errno));
  }
  if (useSyslog) plat::logSetSink(plat::LogSink::Syslog);
  if (!vdev::load(deviceFile, &error)) return usageError(error);
  if (vdev::serve() != 0) {
    std::fprintf(stderr, "acl: cannot serve the device control socket in %s\n",
                 plat::runDir().c_str());
    return 1;
  }

  silCatchSegFault();
  signal(SIGPIPE, SIG_IGN);
  patchSignalHandler();
  procShellInit("acl", 0, 0);
  aclShellRegister();
  counterOptInit();
  meterOptInit();
  // A start-up that failed or was switched off leaves the process alive and idle.
  // The command server's own failure does not fail the start-up, so it is asked separately.
  std::string why;
  if (aclOptInit() != 0) {
    std::fprintf(stderr, "acl: ACL service not started (switched off or start-up failed); idle\n");
  } else {
    aclAuditRegister();
    if (!icmProcTcpServing(ACL_CMD_SOCKET, &why)) {
      std::fprintf(stderr, "acl: %s not serving the command socket: %s; idle without it\n",
                   ACL_VERSION_STRING, why.c_str());
    } else {
      std::fprintf(stderr, "acl: %s serving %s\n", ACL_VERSION_STRING,
                   plat::mapRunPath(ACL_CMD_SOCKET).c_str());
    }
  }
  for (;;) sleep(10);
}
