// Client side of the command protocol: one connection to the command socket, requests sent and
// answered in turn, every wait bounded by a deadline.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "client/client_timeout.h"
#include "wire/protocol.h"

namespace aclclient {

constexpr const char* kCmdSocketName = "aclcmd.socket";
constexpr const char* kDefaultRunDir = "/tmp";

// The command socket: socket when given, else the socket's name inside runDir (default /tmp).
std::string cmdSocketPath(const std::string& runDir, const std::string& socket);

class CmdClient {
 public:
  // nullptr with err set when nothing serves path.
  static std::unique_ptr<CmdClient> connect(const std::string& path, std::string* err,
                                            int timeoutMs = defaultTimeoutMs());
  ~CmdClient();
  CmdClient(const CmdClient&) = delete;
  CmdClient& operator=(const CmdClient&) = delete;

  // Sends req and waits for its answer. False with err when the connection fails, the deadline
  // passes or the answer is not a well-formed response to this request; a protocol status is an
  // answer (resp->status).
  bool call(const wire::Request& req, wire::Response* resp, std::string* err);

  // For tests and benchmarks: raw bytes each way, and one answer frame.
  bool sendBytes(std::span<const uint8_t> bytes, std::string* err);
  bool receiveBytes(std::span<uint8_t> out, std::string* err);
  bool readResponse(uint32_t* seq, wire::Response* resp, std::string* err);
  // Tells the server nothing more will be sent; answers still arrive.
  void finishSending();

 private:
  CmdClient(int fd, int timeoutMs) : fd_(fd), timeoutMs_(timeoutMs) {}
  int fd_;
  int timeoutMs_;
  uint32_t seq_ = 1;
};

}  // namespace aclclient
