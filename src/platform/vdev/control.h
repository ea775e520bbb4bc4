// The virtual device's control requests (JSON objects with an "op"), shared by the socket server
// and in-process tests.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace vdev {

// Always answers with an object holding "ok"; on false, "error" says why.
nlohmann::json handleRequest(const nlohmann::json& request);
// One request line in, one reply line out (without the newline); malformed JSON gets an error.
std::string handleRequestLine(const std::string& line);

// Control ops served for the process above the platform (the ACL daemon's audit, for one), so the
// device socket can answer them without the platform knowing what they do. fn gets the whole
// request and answers like a built-in op; it runs on the socket task without the device's mutex,
// so it may take its own locks and then read the device. False when the name is taken (a built-in
// op or one registered before) or empty.
using ControlOp = std::function<nlohmann::json(const nlohmann::json&)>;
bool registerControlOp(const std::string& name, ControlOp fn);
void unregisterControlOp(const std::string& name);

// The control socket server (acldev.socket in the run directory).
int serverStart();
void serverStop();

}  // namespace vdev
