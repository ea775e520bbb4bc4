// The control socket: a Unix stream socket speaking JSON lines, one reply line per request line.
// One task serves every connection with poll, so a slow or silent client cannot hold up the
// others, and the task notices a stop request within one poll period.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/run_dir.h"
#include "platform/sil.h"
#include "platform/vdev/control.h"

namespace vdev {
namespace {

constexpr int kPollMs = 50;
constexpr size_t kMaxLine = 1 << 20;  // a longer request is refused and the client dropped
constexpr auto kIdleLimit = std::chrono::seconds(30);
constexpr uint32_t kLogTag = 0x3EA0000;

std::atomic<bool> gStop{false};
std::atomic<bool> gRunning{false};
int gListenFd = -1;

struct Client {
  int fd;
  std::string in;
  std::chrono::steady_clock::time_point lastSeen;
};

// Writes all of s; false when the client went away or stalled past the send timeout.
bool sendAll(int fd, const std::string& s) {
  size_t off = 0;
  while (off < s.size()) {
    const ssize_t n = ::send(fd, s.data() + off, s.size() - off, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    off += static_cast<size_t>(n);
  }
  return true;
}

// Reads what is there and answers every complete line; false when the client is to be dropped.
bool serveClient(Client& c) {
  char buf[65536];
  const ssize_t n = ::recv(c.fd, buf, sizeof buf, MSG_DONTWAIT);
  if (n == 0) return false;
  if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  c.lastSeen = std::chrono::steady_clock::now();
  c.in.append(buf, static_cast<size_t>(n));
  size_t nl;
  while ((nl = c.in.find('\n')) != std::string::npos) {
    std::string line = c.in.substr(0, nl);
    c.in.erase(0, nl + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    if (!sendAll(c.fd, handleRequestLine(line) + "\n")) return false;
  }
  if (c.in.size() > kMaxLine) {
    sendAll(c.fd, "{\"ok\":false,\"error\":\"request line too long\"}\n");
    return false;
  }
  return true;
}

void serverTask(uintptr_t, uintptr_t) {
  std::vector<Client> clients;
  while (!gStop.load() && !silTaskStopRequested()) {
    std::vector<pollfd> fds;
    fds.push_back({gListenFd, POLLIN, 0});
    for (auto& c : clients) fds.push_back({c.fd, POLLIN, 0});
    const int r = ::poll(fds.data(), fds.size(), kPollMs);
    if (r < 0 && errno != EINTR) break;
    if (r <= 0) {
      // Drop clients that have been silent too long.
      const auto now = std::chrono::steady_clock::now();
      std::erase_if(clients, [&](Client& c) {
        if (now - c.lastSeen < kIdleLimit) return false;
        ::close(c.fd);
        return true;
      });
      continue;
    }
    for (size_t i = fds.size() - 1; i >= 1; --i) {
      if (fds[i].revents == 0) continue;
      Client& c = clients[i - 1];
      if (!serveClient(c)) {
        ::close(c.fd);
        clients.erase(clients.begin() + static_cast<long>(i - 1));
      }
    }
    if (fds[0].revents & POLLIN) {
      const int fd = ::accept4(gListenFd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) {
        timeval tv{2, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
        clients.push_back({fd, {}, std::chrono::steady_clock::now()});
      }
    }
  }
  for (auto& c : clients) ::close(c.fd);
  ::close(gListenFd);
  gListenFd = -1;
  gRunning.store(false);
}

}  // namespace

int serverStart() {
  if (gRunning.load()) return 0;
  const std::string path = plat::runPath("acldev.socket");
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  // Only the owner may drive the device; a stale socket of ours is replaced, anything else
  // holding the name is refused.
  std::string error;
  if (!plat::bindSocketPath(fd, path, &error)) {
    loggingLogOutput(kLogTag, 3, 0, "vdev: %s\r\n", error.c_str());
    ::close(fd);
    return -1;
  }
  if (::listen(fd, 16) < 0) {
    loggingLogOutput(kLogTag, 3, 0, "vdev: cannot serve %s: %s\r\n", path.c_str(),
                     std::strerror(errno));
    ::unlink(path.c_str());
    ::close(fd);
    return -1;
  }
  gListenFd = fd;
  gStop.store(false);
  gRunning.store(true);
  uint64_t id = 0;
  if (silCreateTask("acldevtask", 100, 0, serverTask, 0, 0, &id) != 0) {
    gRunning.store(false);
    ::close(fd);
    gListenFd = -1;
    return -1;
  }
  return 0;
}

void serverStop() {
  if (!gRunning.load()) return;
  gStop.store(true);
  for (int i = 0; i < 200 && gRunning.load(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  gStop.store(false);
}

}  // namespace vdev
