// One request, one reply over the device socket, each wait bounded by the deadline.
#include "client/dev_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace aclclient {

std::string devSocketPath(const std::string& runDir) {
  return (runDir.empty() ? std::string("/tmp") : runDir) + "/" + kDevSocketName;
}

namespace {

struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

bool devRequest(const std::string& path, const nlohmann::json& request, nlohmann::json* reply,
                std::string* err, int timeoutMs) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) {
    *err = "socket path too long: " + path;
    return false;
  }
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  Fd s{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  if (s.fd < 0 || ::connect(s.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    *err = "cannot connect to " + path + ": " + std::strerror(errno);
    return false;
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  auto remaining = [&] {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<int64_t>(0, left.count()));
  };
  const std::string line = request.dump() + "\n";
  size_t off = 0;
  while (off < line.size()) {
    pollfd p{s.fd, POLLOUT, 0};
    if (::poll(&p, 1, remaining()) <= 0) {
      *err = "timed out sending to " + path;
      return false;
    }
    const ssize_t n = ::send(s.fd, line.data() + off, line.size() - off, MSG_NOSIGNAL);
    if (n <= 0) {
      *err = "cannot send to " + path + ": " + std::strerror(errno);
      return false;
    }
    off += static_cast<size_t>(n);
  }
  std::string in;
  char buf[65536];
  while (in.find('\n') == std::string::npos) {
    pollfd p{s.fd, POLLIN, 0};
    if (::poll(&p, 1, remaining()) <= 0) {
      *err = "no reply from " + path + " in time";
      return false;
    }
    const ssize_t n = ::recv(s.fd, buf, sizeof buf, 0);
    if (n <= 0) {
      *err = "connection to " + path + " closed before the reply";
      return false;
    }
    in.append(buf, static_cast<size_t>(n));
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
