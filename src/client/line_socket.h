// One request line out, one reply in, over a local stream socket, every wait bounded by one
// deadline: what the device and process-shell clients share.
#pragma once

#include <functional>
#include <string>

namespace aclclient {

// What the reply read so far amounts to.
enum class ReplyState { More, Done, Bad };

// Connects to the socket at path, sends line whole, then reads into *in until complete(*in)
// answers Done. False with err when nothing serves path, the deadline passes, the peer closes
// first, or complete answers Bad (err then says the reply is not a `what` reply).
bool lineExchange(const std::string& path, const std::string& line, int timeoutMs,
                  const std::function<ReplyState(const std::string&)>& complete,
                  const std::string& what, std::string* in, std::string* err);

}  // namespace aclclient
