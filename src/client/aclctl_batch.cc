// aclctl batch [FILE]: the raw calls of aclctl call, one a line, over one connection. For scripts
// that send many requests: one connect instead of one per call. Each line is
//   FUNC [KEY] [CMD] [BUF]
// as aclctl call takes them; blank lines and lines starting with # are skipped. Every call line
// is answered with one JSON line, the answer of aclctl call; a line that is not a call gets
// {"line": N, "error": "..."} and the batch goes on. aclctl batch exits 0 when every line was a
// call the daemon answered, 2 when some line was not a call, 1 when the daemon cannot be reached.
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/aclctl_cmds.h"
#include "client/call_args.h"
#include "client/cmd_client.h"

namespace {

using nlohmann::ordered_json;

// The words of one line; false with err when there are too many or none.
bool lineArgs(const std::string& line, std::string* func, aclclient::CallArgs* args,
              std::string* err) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string w; in >> w;) words.push_back(w);
  if (words.empty() || words.size() > 4) {
    *err = "expected FUNC [KEY] [CMD] [BUF]";
    return false;
  }
  *func = words[0];
  if (words.size() > 1) args->key = words[1];
  if (words.size() > 2) args->cmd = words[2];
  if (words.size() > 3) args->buf = words[3];
  return true;
}

int runBatch(const AclctlGlobals& globals, std::istream& in) {
  std::string err;
  auto client =
      aclclient::CmdClient::connect(aclclient::cmdSocketPath(globals.runDir, globals.socket), &err);
  if (!client) throw AclctlExit(kAclctlExitFailed, err);
  int status = kAclctlExitOk;
  size_t lineNo = 0;
  for (std::string line; std::getline(in, line);) {
    ++lineNo;
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    std::string funcText;
    aclclient::CallArgs args;
    wire::Request req;
    std::optional<aclclient::FuncRef> func;
    if (lineArgs(line, &funcText, &args, &err)) {
      func = aclclient::parseFunc(funcText);
      if (!func) err = "unknown function: " + funcText;
    }
    if (!func || !aclclient::buildRequest(*func, args, &req, &err)) {
      std::cout << ordered_json{{"line", lineNo}, {"error", err}}.dump() << "\n";
      status = kAclctlExitUsage;
      continue;
    }
    wire::Response resp;
    if (!client->call(req, &resp, &err)) {
      throw AclctlExit(kAclctlExitFailed, "line " + std::to_string(lineNo) + ": " + err);
    }
    if (resp.status != wire::Status::Ok) {
      std::cout << ordered_json{{"line", lineNo},
                                {"error", std::string("the daemon refused the request: ") +
                                              std::string(wire::statusName(resp.status))}}
                       .dump()
                << "\n";
      status = kAclctlExitUsage;
      continue;
    }
    std::cout << aclclient::responseJson(resp).dump() << "\n";
  }
  std::cout << std::flush;
  return status;
}

}  // namespace

void aclctlAddBatchCommand(CLI::App& app, AclctlGlobals& globals) {
  auto file = std::make_shared<std::string>("-");
  auto* batch = app.add_subcommand("batch",
                                   "Raw calls, one \"FUNC [KEY] [CMD] [BUF]\" a line, over one "
                                   "connection (see call --help)");
  batch->add_option("FILE", *file, "the calls (default: standard input)");
  batch->callback([&globals, file] {
    int status = kAclctlExitOk;
    if (*file == "-") {
      status = runBatch(globals, std::cin);
    } else {
      std::ifstream in(*file);
      if (!in) throw AclctlExit(kAclctlExitUsage, "cannot read " + *file);
      status = runBatch(globals, in);
    }
    if (status != kAclctlExitOk) throw AclctlExit(status, "some lines were not calls");
  });
}
