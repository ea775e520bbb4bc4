// One request, one reply over the process-shell socket, each wait bounded by the deadline.
#include "client/shell_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>

namespace aclclient {

namespace {

// A reply longer than this is not one our daemon sends.
constexpr size_t kMaxReply = size_t{256} << 20;

struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

// "<status> <result> <length>" into reply and *len.
bool parseHeader(const std::string& line, ShellReply* reply, size_t* len) {
  const size_t a = line.find(' ');
  const size_t b = a == std::string::npos ? a : line.find(' ', a + 1);
  if (b == std::string::npos) return false;
  reply->status = line.substr(0, a);
  const char* p = line.data();
  const auto r1 = std::from_chars(p + a + 1, p + b, reply->result);
  const auto r2 = std::from_chars(p + b + 1, p + line.size(), *len);
  return r1.ec == std::errc() && r1.ptr == p + b && r2.ec == std::errc() &&
         r2.ptr == p + line.size() && *len <= kMaxReply;
}

}  // namespace

std::string shellSocketPath(const std::string& runDir) {
  return (runDir.empty() ? std::string("/tmp") : runDir) + "/" + kShellSocketName;
}

bool shellRequest(const std::string& path, const std::vector<std::string>& words, ShellReply* reply,
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
  std::string line;
  for (const auto& w : words) line += (line.empty() ? "" : " ") + w;
  line += '\n';
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
  size_t headerEnd = std::string::npos;
  size_t len = 0;
  char buf[65536];
  for (;;) {
    if (headerEnd == std::string::npos && (headerEnd = in.find('\n')) != std::string::npos) {
      if (!parseHeader(in.substr(0, headerEnd), reply, &len)) {
        *err = "not a shell reply from " + path;
        return false;
      }
    }
    if (headerEnd != std::string::npos && in.size() - headerEnd - 1 >= len) break;
    if (headerEnd == std::string::npos && in.size() > 128) {
      *err = "not a shell reply from " + path;
      return false;
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
    in.append(buf, static_cast<size_t>(n));
  }
  reply->text = in.substr(headerEnd + 1, len);
  return true;
}

}  // namespace aclclient
