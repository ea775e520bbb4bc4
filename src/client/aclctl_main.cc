// aclctl: the command-line client of the acl daemon.
#include <iostream>

#include <CLI/CLI.hpp>

#include "client/aclctl.h"
#include "client/aclctl_cmds.h"
#include "client/aclctl_list.h"
#include "client/aclctl_rule.h"
#include "client/aclctl_views.h"
#include "client/client_timeout.h"

int main(int argc, char** argv) {
  CLI::App app("Client of the acl daemon: raw command-table calls and device control");
  app.require_subcommand(1);
  AclctlGlobals globals;
  auto* runDir = app.add_option("--run-dir", globals.runDir,
                                "directory of the daemon's sockets (default /tmp)");
  app.add_option("--socket", globals.socket, "command socket path")->excludes(runDir);
  app.add_flag("--json", globals.json, "JSON output for the friendly commands");
  // Applied as soon as it is read, before any subcommand runs.
  app.add_option_function<int>(
         "--timeout", [](int seconds) { aclclient::setDefaultTimeoutMs(seconds * 1000); },
         "seconds to wait for each answer of the daemon or the device (default 5)")
      ->check(CLI::Range(1, 3600));

  aclctlAddCallCommand(app, globals);
  aclctlAddMeterCommands(app, globals);
  aclctlAddCounterCommands(app, globals);
  aclctlAddDevCommands(app, globals);
  aclctlAddListCommands(app, globals);
  aclctlAddRuleCommands(app, globals);
  aclctlAddGlobalCommands(app, globals);
  aclctlAddStatsCommands(app, globals);
  aclctlAddMatchCommands(app, globals);
  aclctlAddServiceCommands(app, globals);
  aclctlAddSlotCommands(app, globals);
  aclctlAddIfCommands(app, globals);
  aclctlAddGemCommands(app, globals);
  aclctlAddPolicyCommands(app, globals);
  aclctlAddAuditCommand(app, globals);
  aclctlAddSaveCommand(app, globals);
  aclctlAddLoadCommand(app, globals);
  aclctlAddBatchCommand(app, globals);
  aclctlAddShellCommand(app, globals);
  aclctlAddShowCommand(app, globals);

  try {
    app.parse(argc, argv);
  } catch (const AclctlExit& e) {
    std::cerr << "aclctl: " << e.what() << std::endl;
    return e.status;
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    // Help is not an error; every other parse failure is a usage error.
    return code == 0 ? kAclctlExitOk : kAclctlExitUsage;
  }
  return kAclctlExitOk;
}
