// One request, one reply over the device socket, each wait bounded by the deadline.
#include "client/dev_client.h"

#include "client/line_socket.h"

namespace aclclient {

std::string devSocketPath(const std::string& runDir) {
  return (runDir.empty() ? std::string("/tmp") : runDir) + "/" + kDevSocketName;
}

bool devRequest(const std::string& path, const nlohmann::json& request, nlohmann::json* reply,
                std::string* err, int timeoutMs) {
  std::string in;
  const auto lineEnded = [](const std::string& got) {
    return got.find('\n') == std::string::npos ? ReplyState::More : ReplyState::Done;
  };
  if (!lineExchange(path, request.dump() + "\n", timeoutMs, lineEnded, "device", &in, err)) {
    return false;
  }
  try {
    *reply = nlohmann::json::parse(in.substr(0, in.find('\n')));
  } catch (const nlohmann::json::exception& e) {  // also a number out of range
    *err = std::string("reply is not JSON: ") + e.what();
    return false;
  }
  return true;
}

}  // namespace aclclient
