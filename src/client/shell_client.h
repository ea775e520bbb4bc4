// Client of the daemon's process-shell socket: one request line, one framed reply.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace aclclient {

constexpr const char* kShellSocketName = "aclshell.socket";

// The shell socket inside runDir (default /tmp).
std::string shellSocketPath(const std::string& runDir);

struct ShellReply {
  std::string status;  // "ok", "unknown", "usage" or "error"
  int32_t result = 0;  // the command's return value (status "ok")
  std::string text;    // what the command printed, or the reason of a refusal
};

// Sends words joined by single spaces as one line and reads the reply. False with err when
// nothing serves path, the deadline passes or the reply is not a shell reply.
bool shellRequest(const std::string& path, const std::vector<std::string>& words, ShellReply* reply,
                  std::string* err, int timeoutMs = 10000);

}  // namespace aclclient
