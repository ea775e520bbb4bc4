// The virtual device's control requests (JSON objects with an "op"), shared by the socket server
// and in-process tests.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace vdev {

// Always answers with an object holding "ok"; on false, "error" says why.
nlohmann::json handleRequest(const nlohmann::json& request);
// One request line in, one reply line out (without the newline); malformed JSON gets an error.
std::string handleRequestLine(const std::string& line);

// The control socket server (acldev.socket in the run directory).
int serverStart();
void serverStop();

}  // namespace vdev
