#include "client/cmd_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

namespace aclclient {

namespace {

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace

std::string cmdSocketPath(const std::string& runDir, const std::string& socket) {
  if (!socket.empty()) return socket;
  return (runDir.empty() ? std::string(kDefaultRunDir) : runDir) + "/" + kCmdSocketName;
}

std::unique_ptr<CmdClient> CmdClient::connect(const std::string& path, std::string* err,
                                              int timeoutMs) {
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  if (path.size() >= sizeof(sa.sun_path)) {
    *err = "socket path too long: " + path;
    return nullptr;
  }
  std::memcpy(sa.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *err = std::string("socket: ") + std::strerror(errno);
    return nullptr;
  }
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&sa), sizeof(sa)) != 0) {
    *err = "cannot reach " + path + ": " + std::strerror(errno);
    ::close(fd);
    return nullptr;
  }
  return std::unique_ptr<CmdClient>(new CmdClient(fd, timeoutMs));
}

CmdClient::~CmdClient() {
  ::close(fd_);
}

void CmdClient::finishSending() {
  ::shutdown(fd_, SHUT_WR);
}

bool CmdClient::sendBytes(std::span<const uint8_t> bytes, std::string* err) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs_);
  size_t off = 0;
  while (off < bytes.size()) {
    const ssize_t n =
        ::send(fd_, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      off += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      pollfd p{fd_, POLLOUT, 0};
      if (::poll(&p, 1, msLeft(deadline)) <= 0) {
        *err = "timed out sending the request";
        return false;
      }
      continue;
    }
    *err = std::string("send: ") + std::strerror(errno);
    return false;
  }
  return true;
}

bool CmdClient::receiveBytes(std::span<uint8_t> bytes, std::string* err) {
  uint8_t* out = bytes.data();
  const size_t len = bytes.size();
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs_);
  size_t off = 0;
  while (off < len) {
    pollfd p{fd_, POLLIN, 0};
    const int r = ::poll(&p, 1, msLeft(deadline));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      *err = "timed out waiting for the answer";
      return false;
    }
    const ssize_t n = ::recv(fd_, out + off, len - off, 0);
    if (n > 0) {
      off += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    *err =
        n == 0 ? "the server closed the connection" : std::string("recv: ") + std::strerror(errno);
    return false;
  }
  return true;
}

bool CmdClient::readResponse(uint32_t* seq, wire::Response* resp, std::string* err) {
  std::vector<uint8_t> hdrBytes(wire::kHeaderLen);
  if (!receiveBytes(hdrBytes, err)) return false;
  wire::FrameHeader hdr;
  if (wire::decodeHeader(hdrBytes, wire::kKindResponse, &hdr) != wire::Status::Ok) {
    *err = "the server's answer is not a response frame";
    return false;
  }
  std::vector<uint8_t> body(hdr.bodyLen);
  if (!receiveBytes(body, err)) return false;
  if (wire::decodeResponse(body, resp) != wire::Status::Ok) {
    *err = "the server's answer is malformed";
    return false;
  }
  *seq = hdr.seq;
  return true;
}

bool CmdClient::call(const wire::Request& req, wire::Response* resp, std::string* err) {
  const uint32_t seq = seq_++;
  if (!sendBytes(wire::encodeRequest(seq, req), err)) return false;
  uint32_t gotSeq = 0;
  if (!readResponse(&gotSeq, resp, err)) return false;
  // A frame the server could not read at all is answered under sequence 0.
  if (gotSeq != seq && !(gotSeq == 0 && resp->status != wire::Status::Ok)) {
    *err = "the answer belongs to another request";
    return false;
  }
  return true;
}

}  // namespace aclclient
