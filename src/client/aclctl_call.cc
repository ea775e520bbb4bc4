// aclctl call FUNC [KEY] [CMD] [BUF]: one raw call of a table function, answered as JSON.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/call_args.h"
#include "client/cmd_client.h"

namespace {

struct CallOptions {
  std::string func;
  aclclient::CallArgs args;
};

void runCall(const AclctlGlobals& globals, const CallOptions& o) {
  const auto func = aclclient::parseFunc(o.func);
  if (!func) throw AclctlExit(kAclctlExitUsage, "unknown function: " + o.func);
  wire::Request req;
  std::string err;
  if (!aclclient::buildRequest(*func, o.args, &req, &err)) {
    throw AclctlExit(kAclctlExitUsage, err);
  }
  const std::string path = aclclient::cmdSocketPath(globals.runDir, globals.socket);
  auto client = aclclient::CmdClient::connect(path, &err);
  wire::Response resp;
  if (!client || !client->call(req, &resp, &err)) throw AclctlExit(kAclctlExitFailed, err);
  if (resp.status != wire::Status::Ok) {
    throw AclctlExit(kAclctlExitFailed, "the daemon refused the request: " +
                                            std::string(wire::statusName(resp.status)));
  }
  std::cout << aclclient::responseJson(resp).dump() << std::endl;
}

}  // namespace

void aclctlAddCallCommand(CLI::App& app, AclctlGlobals& globals) {
  auto opts = std::make_shared<CallOptions>();
  auto* call = app.add_subcommand("call", "Call any command-table function by name or id");
  call->footer(aclclient::callShapesHelp());
  call->add_option("FUNC", opts->func, "function name or id")->required();
  call->add_option("KEY", opts->args.key, "key (see below)");
  call->add_option("CMD", opts->args.cmd, "command id");
  call->add_option("BUF", opts->args.buf, "buffer (see below)");
  call->callback([&globals, opts] { runCall(globals, *opts); });
}
