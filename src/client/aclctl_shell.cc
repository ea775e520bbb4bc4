// aclctl shell: calls a process-shell command of the daemon by name and prints exactly what it
// printed, byte for byte. Without a command it lists the commands with their arguments.
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_views.h"
#include "client/shell_client.h"

namespace {

// The most arguments any command takes; the daemon checks each command's own count.
constexpr size_t kMaxArgs = 6;

struct ShellOpts {
  std::string command;
  std::vector<std::string> args;
};

}  // namespace

void aclctlAddShellCommand(CLI::App& app, AclctlGlobals& globals) {
  auto opts = std::make_shared<ShellOpts>();
  auto* shell = app.add_subcommand(
      "shell",
      "Call a process-shell command (aclHelp, aclShow, aclIfListShow ...) with decimal or 0x "
      "arguments and print what it printed; without a command, list them. aclPktDbg, aclDevPrintf "
      "and aclTlvPrintf take their bytes as a hex argument");
  shell->add_option("command", opts->command, "command name");
  shell->add_option("args", opts->args,
                    "its arguments: decimal or 0x numbers (hex bytes where "
                    "the command reads memory)");
  shell->callback([opts, &globals] {
    if (opts->args.size() > kMaxArgs) {
      throw AclctlExit(kAclctlExitUsage, "a shell command takes at most 6 arguments");
    }
    std::vector<std::string> words;
    if (opts->command.empty()) {
      words.push_back("?");
    } else {
      words.push_back(opts->command);
      words.insert(words.end(), opts->args.begin(), opts->args.end());
    }
    aclclient::ShellReply reply;
    std::string err;
    if (!aclclient::shellRequest(aclclient::shellSocketPath(globals.runDir), words, &reply, &err)) {
      throw AclctlExit(kAclctlExitFailed, err);
    }
    if (reply.status == "ok") {
      std::fwrite(reply.text.data(), 1, reply.text.size(), stdout);
      std::fflush(stdout);
      return;
    }
    throw AclctlExit(reply.status == "usage" ? kAclctlExitUsage : kAclctlExitFailed, reply.text);
  });
}
