// The control socket: a Unix stream socket speaking JSON lines, one reply line per request line.
// One task serves every connection with poll on non-blocking sockets, so a slow or silent client
// holds up only itself, and the task notices a stop request within one poll period. A client is
// read only while it has no reply waiting and no whole line unserved, so one that sends without
// reading its replies fills its own socket buffer, not the daemon's memory.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
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

// The server's limits, and what happens past each.
// Connections at once. A newcomer past it closes the connection idle longest among those with
// nothing in progress (no partial line, no unsent reply); when every one is busy it waits in
// the listen backlog until one finishes or meets a deadline.
constexpr size_t kMaxClients = 64;
// A request line; a longer one is answered with an error and the connection closed, since the
// end of the line cannot be found any more.
constexpr size_t kMaxLine = 1 << 20;
// A connection with nothing in progress is closed after this long.
constexpr uint64_t kIdleMs = 30 * 1000;
// A line that has begun must be complete, and a reply wholly taken, within this; else the
// connection is closed.
constexpr uint64_t kLineMs = 5 * 1000;
constexpr uint64_t kReplyMs = 5 * 1000;
// After accept fails for want of descriptors or memory, the listening socket is left alone this
// long instead of being polled (and failing) again at once.
constexpr uint64_t kAcceptBackoffMs = 250;
constexpr int kPollMs = 50;
constexpr size_t kReadChunk = 64 * 1024;
constexpr uint32_t kLogTag = 0x3EA0000;

std::atomic<bool> gStop{false};
std::atomic<bool> gRunning{false};
int gListenFd = -1;

struct Client {
  int fd = -1;
  std::string in;   // received, not yet served
  std::string out;  // replies not yet sent
  size_t outOff = 0;
  uint64_t lastActive = 0;  // accepted, last byte received, or last reply taken
  uint64_t lineSince = 0;   // first byte of the unfinished line
  uint64_t outSince = 0;    // the unsent reply was queued
  bool closeAfterFlush = false;
  bool eof = false;
  bool dead = false;
};

bool pending(const Client& c) {
  return c.outOff < c.out.size();
}
bool hasLine(const Client& c) {
  return c.in.find('\n') != std::string::npos;
}
// Something is under way: a line begun or waiting, or a reply not yet taken.
bool busy(const Client& c) {
  return !c.in.empty() || pending(c) || c.closeAfterFlush;
}

void readFrom(Client& c, uint64_t now) {
  char buf[kReadChunk];
  const ssize_t n = ::recv(c.fd, buf, sizeof buf, MSG_DONTWAIT);
  if (n == 0) {
    c.eof = true;
  } else if (n < 0) {
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) c.dead = true;
  } else {
    if (c.in.empty()) c.lineSince = now;
    c.in.append(buf, static_cast<size_t>(n));
    c.lastActive = now;
  }
}

void writeTo(Client& c, uint64_t now) {
  while (pending(c)) {
    const ssize_t n =
        ::send(c.fd, c.out.data() + c.outOff, c.out.size() - c.outOff, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n > 0) {
      c.outOff += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) c.dead = true;
      return;
    }
  }
  c.out.clear();
  c.outOff = 0;
  c.lastActive = now;
  if (c.closeAfterFlush) c.dead = true;
}

void queue(Client& c, std::string reply, uint64_t now) {
  c.out = std::move(reply);
  c.out.push_back('\n');
  c.outOff = 0;
  c.outSince = now;
}

// Answers the first whole line c has sent, if any; one per round keeps a client with a burst of
// lines from starving the rest.
void serveOne(Client& c, uint64_t now) {
  if (c.closeAfterFlush || pending(c)) return;
  size_t nl;
  while ((nl = c.in.find('\n')) != std::string::npos) {
    std::string line = c.in.substr(0, nl);
    c.in.erase(0, nl + 1);
    c.lineSince = now;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    queue(c, handleRequestLine(line), now);
    return;
  }
  if (c.in.size() > kMaxLine) {
    queue(c, R"({"ok":false,"error":"request line too long"})", now);
    c.closeAfterFlush = true;
    c.in.clear();
  }
}

void checkDeadlines(Client& c, uint64_t now) {
  const bool partial = !c.in.empty() && !hasLine(c);
  if (partial && now - c.lineSince > kLineMs) c.dead = true;
  if (pending(c) && now - c.outSince > kReplyMs) c.dead = true;
  if (!busy(c) && now - c.lastActive > kIdleMs) c.dead = true;
  // A client that has finished sending is done once every whole line it sent is answered.
  if (c.eof && !hasLine(c) && !pending(c)) c.dead = true;
}

struct Server {
  std::vector<Client> clients;
  uint64_t acceptRestUntil = 0;
  bool acceptFailing = false;

  ~Server() {
    for (auto& c : clients) ::close(c.fd);
  }

  // The connection idle longest among those with nothing in progress, or end().
  std::vector<Client>::iterator idlest() {
    auto best = clients.end();
    for (auto it = clients.begin(); it != clients.end(); ++it) {
      if (!busy(*it) && (best == clients.end() || it->lastActive < best->lastActive)) best = it;
    }
    return best;
  }

  bool roomForOneMore() { return clients.size() < kMaxClients || idlest() != clients.end(); }

  void acceptWaiting(uint64_t now) {
    while (roomForOneMore()) {
      const int fd = ::accept4(gListenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (fd < 0) {
        if (errno == EINTR) continue;
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
          acceptRestUntil = now + kAcceptBackoffMs;
          if (!acceptFailing) {
            loggingLogOutput(kLogTag, 3, 0, "vdev: cannot accept a connection: %s\r\n",
                             std::strerror(errno));
          }
          acceptFailing = true;
        }
        return;
      }
      acceptFailing = false;
      if (clients.size() >= kMaxClients) {
        const auto victim = idlest();
        ::close(victim->fd);
        clients.erase(victim);
      }
      Client c;
      c.fd = fd;
      c.lastActive = now;
      clients.push_back(std::move(c));
    }
  }

  // One poll and what it found.
  void round() {
    std::vector<pollfd> fds;
    const uint64_t before = silGetUpTime1ms();
    const bool listen = before >= acceptRestUntil && roomForOneMore();
    fds.push_back({gListenFd, static_cast<short>(listen ? POLLIN : 0), 0});
    bool backlog = false;  // a whole line waits to be served: poll without waiting
    for (const auto& c : clients) {
      short ev = 0;
      if (pending(c)) {
        ev |= POLLOUT;
      } else if (!c.eof && !c.closeAfterFlush && !hasLine(c)) {
        ev |= POLLIN;
      }
      backlog = backlog || (!pending(c) && !c.closeAfterFlush && hasLine(c));
      fds.push_back({c.fd, ev, 0});
    }
    if (::poll(fds.data(), fds.size(), backlog ? 0 : kPollMs) < 0 && errno != EINTR) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
      return;
    }
    const uint64_t now = silGetUpTime1ms();
    for (size_t i = 0; i < clients.size(); ++i) {
      Client& c = clients[i];
      const short rev = fds[i + 1].revents;
      try {
        if (rev & (POLLIN | POLLHUP | POLLERR)) readFrom(c, now);
        if (!c.dead) serveOne(c, now);
        if (!c.dead && pending(c)) writeTo(c, now);
        checkDeadlines(c, now);
      } catch (const std::exception&) {
        c.dead = true;  // out of memory for this client's lines: it goes, the others stay
      }
    }
    std::erase_if(clients, [](const Client& c) {
      if (c.dead) ::close(c.fd);
      return c.dead;
    });
    if (fds[0].revents & POLLIN) acceptWaiting(now);
  }
};

void serverTask(uintptr_t, uintptr_t) {
  // Accepting must never block the task: a client may give up between poll and accept.
  ::fcntl(gListenFd, F_SETFL, ::fcntl(gListenFd, F_GETFL) | O_NONBLOCK);
  {
    Server s;
    while (!gStop.load() && !silTaskStopRequested()) {
      try {
        s.round();
      } catch (const std::exception&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
      }
    }
  }
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
