// Client of the virtual device's control socket: JSON lines, one reply per request.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "client/client_timeout.h"

namespace aclclient {

constexpr const char* kDevSocketName = "acldev.socket";

// The device socket inside runDir (default /tmp).
std::string devSocketPath(const std::string& runDir);

// Sends one request and reads its reply. False with err when nothing serves path, the deadline
// passes or the reply is not JSON; an error reply from the device is a reply.
bool devRequest(const std::string& path, const nlohmann::json& request, nlohmann::json* reply,
                std::string* err, int timeoutMs = defaultTimeoutMs());

}  // namespace aclclient
