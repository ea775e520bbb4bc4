// The command server: one task owns a Unix stream socket and every client connection on it, and
// serves complete request frames one at a time. Sockets are non-blocking and multiplexed with
// poll, so a client that sends half a frame, or stops reading its answers, only ever holds up
// itself; a started frame or an unsent answer that stays unfinished past the deadline costs the
// client its connection. The task wakes at least every kPollMs to notice a stop request.
#include "platform/cmd_server.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/run_dir.h"
#include "platform/sil.h"
#include "wire/invoke.h"
#include "wire/protocol.h"
#include "wire/schema.h"

namespace {

// The server's limits, and what happens past each. A frame is at most wire::kHeaderLen +
// wire::kMaxBody bytes; a header announcing more is answered TooLarge and the connection closed.
// Connections at once. A newcomer past it closes the connection idle longest among those with
// nothing in progress (no partial frame, no unsent answer); when every one is busy it waits in
// the listen backlog until one finishes or meets its deadline.
constexpr size_t kMaxClients = 64;
// A frame whose first byte has arrived must be complete, and an answer wholly taken, within this;
// else the connection is closed.
constexpr uint64_t kDeadlineMs = 2000;
// A connection with nothing in progress is closed after this long.
constexpr uint64_t kIdleMs = 30 * 1000;
// After accept fails for want of descriptors or memory, the listening socket is left alone this
// long instead of being polled (and failing) again at once.
constexpr uint64_t kAcceptBackoffMs = 250;
constexpr int kPollMs = 50;
constexpr size_t kReadChunk = 16 * 1024;
constexpr uint32_t kLogTag = 0;
constexpr uint32_t kLogPri = 3;

struct Client {
  int fd = -1;
  std::vector<uint8_t> in;   // received, not yet consumed
  std::vector<uint8_t> out;  // answers not yet sent
  size_t outOff = 0;
  uint64_t inSince = 0;          // up-time of the first byte of the unfinished frame
  uint64_t outSince = 0;         // up-time the oldest unsent answer was queued
  uint64_t lastActive = 0;       // accepted, last byte received, or last answer taken
  bool closeAfterFlush = false;  // framing is lost: answer, then hang up
  bool eof = false;              // the client sent all it will; its frames are still answered
  bool dead = false;
};

// Start-up outcome of each socket path: empty while it is served, else why it is not.
std::mutex gStateMutex;
std::map<std::string, std::string> gState;

void setState(const std::string& path, const std::string& why) {
  std::lock_guard lock(gStateMutex);
  gState[path] = why;
}

struct Server {
  std::string path;
  int listenFd = -1;
  std::array<wire::TableFunc, wire::kFuncCount> funcs{};
  std::vector<Client> clients;
  uint64_t acceptRestUntil = 0;
  bool acceptFailing = false;

  ~Server() {
    for (auto& c : clients) ::close(c.fd);
    if (listenFd >= 0) {
      ::close(listenFd);
      ::unlink(path.c_str());
      setState(path, "the server stopped");
    }
  }
};

// Binds the socket privately and renames it into place (see bindSocketPath), so the socket is
// never reachable with looser permissions, a stale socket of ours is replaced in one step, and a
// name held by anything else is refused with the reason in why.
int openListener(const std::string& path, std::string* why) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) {
    *why = "cannot create a socket for " + path + ": " + std::strerror(errno);
  } else if (!plat::bindSocketPath(fd, path, why)) {
    // why says what holds the name or what failed
  } else if (::listen(fd, 64) != 0) {
    *why = "cannot listen on " + path + ": " + std::strerror(errno);
    ::unlink(path.c_str());  // the socket we just put there
  } else {
    return fd;
  }
  loggingLogOutput(kLogTag, kLogPri, 0, "command server: %s", why->c_str());
  if (fd >= 0) ::close(fd);
  return -1;
}

void queue(Client& c, std::vector<uint8_t> bytes, uint64_t now) {
  if (c.out.size() == c.outOff) {
    c.out.clear();
    c.outOff = 0;
    c.outSince = now;
  }
  c.out.insert(c.out.end(), bytes.begin(), bytes.end());
}

// Serves the first frame buffered for c, if it is complete. True when a frame was consumed.
bool serveOne(Server& s, Client& c, uint64_t now) {
  if (c.closeAfterFlush || c.in.size() < wire::kHeaderLen) return false;
  wire::FrameHeader hdr;
  const wire::Status hs = wire::decodeHeader(c.in, wire::kKindRequest, &hdr);
  if (hs != wire::Status::Ok) {
    // Without a trustworthy header the frame's end is unknown: answer and hang up.
    queue(c, wire::encodeStatus(hdr.magic == wire::kMagic ? hdr.seq : 0, hs), now);
    c.closeAfterFlush = true;
    c.in.clear();
    return true;
  }
  const size_t frameLen = wire::kHeaderLen + hdr.bodyLen;
  if (c.in.size() < frameLen) return false;

  const std::span<const uint8_t> body(c.in.data() + wire::kHeaderLen, hdr.bodyLen);
  wire::Request req;
  wire::Status st = wire::decodeRequest(body, &req);
  if (st == wire::Status::Ok) st = wire::checkRequest(req);
  if (st != wire::Status::Ok) {
    queue(c, wire::encodeStatus(hdr.seq, st), now);
  } else {
    try {
      queue(c, wire::encodeResponse(hdr.seq, wire::invoke(req, s.funcs[req.funcId])), now);
    } catch (const std::exception&) {
      // Out of memory for the request's buffers or its answer: the request failed, the server
      // did not.
      queue(c, wire::encodeStatus(hdr.seq, wire::Status::Internal), now);
    }
  }
  c.in.erase(c.in.begin(), c.in.begin() + static_cast<ptrdiff_t>(frameLen));
  c.inSince = c.in.empty() ? 0 : now;
  return true;
}

void readFrom(Client& c, uint64_t now) {
  std::array<uint8_t, kReadChunk> buf;
  // One frame's worth is the most worth holding; past that the kernel buffers the rest.
  while (c.in.size() < wire::kHeaderLen + wire::kMaxBody) {
    const ssize_t n = ::recv(c.fd, buf.data(), buf.size(), 0);
    if (n > 0) {
      if (c.in.empty()) c.inSince = now;
      c.in.insert(c.in.end(), buf.begin(), buf.begin() + n);
      c.lastActive = now;
      continue;
    }
    if (n == 0) {
      c.eof = true;
    } else if (errno == EINTR) {
      continue;
    } else if (errno != EAGAIN && errno != EWOULDBLOCK) {
      c.dead = true;
    }
    return;
  }
}

void writeTo(Client& c, uint64_t now) {
  while (c.outOff < c.out.size()) {
    const ssize_t n = ::send(c.fd, c.out.data() + c.outOff, c.out.size() - c.outOff, MSG_NOSIGNAL);
    if (n > 0) {
      // The deadline runs from when the answer was queued: taking it a byte at a time does not
      // keep a connection that others may be waiting for.
      c.outOff += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    c.dead = true;
    return;
  }
  c.out.clear();
  c.outOff = 0;
  c.lastActive = now;
  if (c.closeAfterFlush) c.dead = true;
}

bool pending(const Client& c) {
  return c.outOff < c.out.size();
}

// Something is under way: a frame begun or waiting, or an answer not yet taken.
bool busy(const Client& c) {
  return !c.in.empty() || pending(c) || c.closeAfterFlush;
}

// The connection idle longest among those with nothing in progress, or end().
std::vector<Client>::iterator idlest(Server& s) {
  auto best = s.clients.end();
  for (auto it = s.clients.begin(); it != s.clients.end(); ++it) {
    if (!busy(*it) && (best == s.clients.end() || it->lastActive < best->lastActive)) best = it;
  }
  return best;
}

bool roomForOneMore(Server& s) {
  return s.clients.size() < kMaxClients || idlest(s) != s.clients.end();
}

void acceptWaiting(Server& s, uint64_t now) {
  while (roomForOneMore(s)) {
    const int fd = ::accept4(s.listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
      if (errno == EINTR) continue;
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // The connection stays in the backlog; polling for it again at once would only fail
        // again, as fast as the task can loop.
        s.acceptRestUntil = now + kAcceptBackoffMs;
        if (!s.acceptFailing) {
          loggingLogOutput(kLogTag, kLogPri, 0, "command server: cannot accept a connection: %s",
                           std::strerror(errno));
        }
        s.acceptFailing = true;
      }
      return;
    }
    s.acceptFailing = false;
    if (s.clients.size() >= kMaxClients) {
      const auto victim = idlest(s);
      ::close(victim->fd);
      s.clients.erase(victim);
    }
    Client c;
    c.fd = fd;
    c.lastActive = now;
    s.clients.push_back(std::move(c));
  }
}

// A whole frame (or a header that will be answered as broken) waits in c's input.
bool frameReady(const Client& c) {
  if (c.closeAfterFlush || c.in.size() < wire::kHeaderLen) return false;
  wire::FrameHeader hdr;
  return wire::decodeHeader(c.in, wire::kKindRequest, &hdr) != wire::Status::Ok ||
         c.in.size() >= wire::kHeaderLen + hdr.bodyLen;
}

// One poll and what it found. fds[i + 1] belongs to clients[i]; connections accepted at the end
// are polled from the next round.
void serveRound(Server& s, std::vector<pollfd>& fds, bool& backlog) {
  fds.clear();
  const bool listen = silGetUpTime1ms() >= s.acceptRestUntil && roomForOneMore(s);
  fds.push_back({s.listenFd, static_cast<short>(listen ? POLLIN : 0), 0});
  for (const auto& c : s.clients) {
    short ev = 0;
    // A client is read only while its answers are taken and its buffer is short of a frame, so
    // one that sends without reading fills its own socket buffer, and poll never reports input
    // the task would leave where it is.
    if (pending(c)) {
      ev |= POLLOUT;
    } else if (!c.closeAfterFlush && !c.eof && c.in.size() < wire::kHeaderLen + wire::kMaxBody) {
      ev |= POLLIN;
    }
    fds.push_back({c.fd, ev, 0});
  }
  if (::poll(fds.data(), fds.size(), backlog ? 0 : kPollMs) < 0 && errno != EINTR) {
    loggingLogOutput(kLogTag, kLogPri, 0, "command server: poll: %s", std::strerror(errno));
    std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    return;
  }
  const uint64_t now = silGetUpTime1ms();
  backlog = false;
  for (size_t i = 0; i < s.clients.size(); ++i) {
    Client& c = s.clients[i];
    const short rev = fds[i + 1].revents;
    try {
      if (!c.eof && (rev & (POLLIN | POLLHUP | POLLERR))) readFrom(c, now);
      // One frame per client per round keeps a client with a burst of frames from starving the
      // rest; its answers must have gone out before the next frame is served.
      if (!c.dead && !pending(c) && serveOne(s, c, now)) writeTo(c, now);
      if (!c.dead && (rev & POLLOUT)) writeTo(c, now);
    } catch (const std::exception&) {
      c.dead = true;  // out of memory for this client's frames: it goes, the others stay
    }
    const bool ready = !c.dead && !pending(c) && frameReady(c);
    backlog = backlog || ready;
    // A client that has finished sending is done once everything it sent is answered.
    if (c.eof && !ready && !pending(c)) c.dead = true;
    const bool stalledIn = !c.in.empty() && now - c.inSince > kDeadlineMs;
    const bool stalledOut = pending(c) && now - c.outSince > kDeadlineMs;
    const bool idle = !busy(c) && now - c.lastActive > kIdleMs;
    if (stalledIn || stalledOut || idle) c.dead = true;
  }
  std::erase_if(s.clients, [](const Client& c) {
    if (c.dead) ::close(c.fd);
    return c.dead;
  });
  if (fds[0].revents & POLLIN) acceptWaiting(s, now);
}

void serverLoop(uintptr_t arg, uintptr_t /*unused*/) {
  std::unique_ptr<Server> s(reinterpret_cast<Server*>(arg));
  std::vector<pollfd> fds;
  bool backlog = false;  // complete frames still buffered: poll without waiting
  while (!silTaskStopRequested()) {
    try {
      serveRound(*s, fds, backlog);
    } catch (const std::exception&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
  }
}

}  // namespace

int icmProcTcpInit(const char* taskName, const char* sockPath, const IcmFuncEntry* table,
                   uint32_t entries) {
  if (taskName == nullptr || sockPath == nullptr || (table == nullptr && entries != 0)) return -1;
  auto s = std::make_unique<Server>();
  for (uint32_t i = 0; i < entries; ++i) {
    if (table[i].func != nullptr && table[i].funcId < wire::kFuncCount) {
      s->funcs[table[i].funcId] = table[i].func;
    }
  }
  s->path = plat::mapRunPath(sockPath);
  std::string why;
  s->listenFd = openListener(s->path, &why);
  if (s->listenFd < 0) {
    setState(s->path, why);
    return -1;
  }
  setState(s->path, "");
  if (silCreateTask(taskName, 0, 0, serverLoop, reinterpret_cast<uintptr_t>(s.get()), 0, nullptr) !=
      0) {
    s.reset();
    setState(plat::mapRunPath(sockPath), "cannot start the server task");
    return -1;
  }
  s.release();  // the task owns it now
  return 0;
}

bool icmProcTcpServing(const char* sockPath, std::string* why) {
  const std::string path = plat::mapRunPath(sockPath);
  std::lock_guard lock(gStateMutex);
  const auto it = gState.find(path);
  if (it != gState.end() && it->second.empty()) return true;
  if (why) *why = it == gState.end() ? "the server was not started" : it->second;
  return false;
}
