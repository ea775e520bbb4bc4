// aclctl audit: asks the daemon to check its bindings against everything that must follow from
// them (reference counts, bind-list entries, the slot ledger, the device's hardware tables). The
// command table has no function for it, so it goes over the device control socket, which the
// daemon serves in-process.
#include <iostream>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/dev_client.h"

void aclctlAddAuditCommand(CLI::App& app, AclctlGlobals& globals) {
  auto* audit = app.add_subcommand(
      "audit", "Check bindings, refCnt, bind-list entries, slot ledger and hardware tables");
  audit->callback([&globals] {
    nlohmann::json reply;
    std::string err;
    if (!aclclient::devRequest(aclclient::devSocketPath(globals.runDir), {{"op", "audit"}}, &reply,
                               &err)) {
      throw AclctlExit(kAclctlExitFailed, err);
    }
    if (!reply.value("ok", false) || !reply.contains("differences") ||
        !reply["differences"].is_array()) {
      throw AclctlExit(kAclctlExitFailed, reply.value("error", std::string("no audit answer")));
    }
    const nlohmann::json& diffs = reply["differences"];
    if (globals.json) {
      std::cout << nlohmann::json{{"clean", diffs.empty()}, {"differences", diffs}}.dump(2)
                << std::endl;
    } else if (diffs.empty()) {
      std::cout << "audit clean" << std::endl;
    } else {
      for (const auto& d : diffs) {
        std::cout << d.value("check", std::string("?")) << ": "
                  << d.value("text", std::string()) << std::endl;
      }
      std::cout << diffs.size() << " difference(s)" << std::endl;
    }
    if (!diffs.empty()) throw AclctlExit(kAclctlExitFailed, "the audit found differences");
  });
}
