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
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/run_dir.h"
#include "platform/sil.h"
#include "wire/invoke.h"
#include "wire/protocol.h"
#include "wire/schema.h"

namespace {

constexpr int kPollMs = 50;
constexpr uint64_t kDeadlineMs = 2000;  // to finish sending a frame, or to take an answer
constexpr size_t kMaxClients = 64;
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
    } catch (const std::bad_alloc&) {
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
      c.outOff += static_cast<size_t>(n);
      c.outSince = now;  // a reader that keeps taking bytes keeps its connection
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    c.dead = true;
    return;
  }
  c.out.clear();
  c.outOff = 0;
  if (c.closeAfterFlush) c.dead = true;
}

void acceptAll(Server& s) {
  for (;;) {
    const int fd = ::accept4(s.listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;
    if (s.clients.size() >= kMaxClients) {
      ::close(fd);
      continue;
    }
    Client c;
    c.fd = fd;
    s.clients.push_back(std::move(c));
  }
}

bool pending(const Client& c) {
  return c.outOff < c.out.size();
}

// A whole frame (or a header that will be answered as broken) waits in c's input.
bool frameReady(const Client& c) {
  if (c.closeAfterFlush || c.in.size() < wire::kHeaderLen) return false;
  wire::FrameHeader hdr;
  return wire::decodeHeader(c.in, wire::kKindRequest, &hdr) != wire::Status::Ok ||
         c.in.size() >= wire::kHeaderLen + hdr.bodyLen;
}

void serverLoop(uintptr_t arg, uintptr_t /*unused*/) {
  std::unique_ptr<Server> s(reinterpret_cast<Server*>(arg));
  std::vector<pollfd> fds;
  bool backlog = false;  // complete frames still buffered: poll without waiting
  while (!silTaskStopRequested()) {
    fds.clear();
    fds.push_back({s->listenFd, POLLIN, 0});
    for (const auto& c : s->clients) {
      short ev = 0;
      if (!c.closeAfterFlush && !c.eof) ev |= POLLIN;
      if (pending(c)) ev |= POLLOUT;
      fds.push_back({c.fd, ev, 0});
    }
    if (::poll(fds.data(), fds.size(), backlog ? 0 : kPollMs) < 0 && errno != EINTR) {
      loggingLogOutput(kLogTag, kLogPri, 0, "command server: poll: %s", std::strerror(errno));
    }
    const uint64_t now = silGetUpTime1ms();
    backlog = false;
    // fds[i + 1] belongs to clients[i]: clients accepted below are polled from the next round.
    const size_t polled = fds.size() - 1;
    if (fds[0].revents & POLLIN) acceptAll(*s);
    for (size_t i = 0; i < polled; ++i) {
      Client& c = s->clients[i];
      const short rev = fds[i + 1].revents;
      if (!c.eof && (rev & (POLLIN | POLLHUP | POLLERR))) readFrom(c, now);
      // One frame per client per round keeps a client with a burst of frames from starving the
      // rest; its answers must have gone out before the next frame is served.
      if (!c.dead && !pending(c) && serveOne(*s, c, now)) writeTo(c, now);
      if (!c.dead && (rev & POLLOUT)) writeTo(c, now);
      const bool ready = !c.dead && !pending(c) && frameReady(c);
      backlog = backlog || ready;
      // A client that has finished sending is done once everything it sent is answered.
      if (c.eof && !ready && !pending(c)) c.dead = true;
      const bool stalledIn = !c.in.empty() && now - c.inSince > kDeadlineMs;
      const bool stalledOut = pending(c) && now - c.outSince > kDeadlineMs;
      if (stalledIn || stalledOut) c.dead = true;
    }
    std::erase_if(s->clients, [](const Client& c) {
      if (c.dead) ::close(c.fd);
      return c.dead;
    });
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
