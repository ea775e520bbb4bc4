#include "client/line_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace aclclient {

namespace {

struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

bool lineExchange(const std::string& path, const std::string& line, int timeoutMs,
                  const std::function<ReplyState(const std::string&)>& complete,
                  const std::string& what, std::string* in, std::string* err) {
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
  in->clear();
  char buf[65536];
  for (;;) {
    switch (complete(*in)) {
      case ReplyState::Done:
        return true;
      case ReplyState::Bad:
        *err = "not a " + what + " reply from " + path;
        return false;
      case ReplyState::More:
        break;
    }
    pollfd p{s.fd, POLLIN, 0};
    if (::poll(&p, 1, remaining()) <= 0) {
      *err = "no reply from " + path + " in time";
      return false;
    }
    const ssize_t n = ::recv(s.fd, buf, sizeof buf, 0);
    if (n <= 0) {
      *err = "connection to " + path + " closed before the whole reply";
      return false;
    }
    in->append(buf, static_cast<size_t>(n));
  }
}

}  // namespace aclclient
