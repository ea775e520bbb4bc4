// The process shell's registry and its socket. One task serves every connection with poll over
// non-blocking sockets, as the other local servers do: a client that sends half a line or stops
// reading its reply only holds up itself, and the limits below bound what any one can take.
#include "platform/proc_shell.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/run_dir.h"
#include "platform/sil.h"

namespace plat {
namespace {

// Connections at once; a newcomer past it closes the connection idle longest with nothing in
// progress, else waits in the backlog.
constexpr size_t kMaxClients = 16;
// A line whose first byte has come must be complete, and a reply wholly taken, within this.
constexpr uint64_t kLineMs = 5 * 1000;
constexpr uint64_t kReplyMs = 5 * 1000;
// A connection with nothing in progress is closed after this long.
constexpr uint64_t kIdleMs = 30 * 1000;
constexpr uint64_t kAcceptBackoffMs = 250;
constexpr int kPollMs = 50;
constexpr uint32_t kLogTag = 0;
constexpr uint32_t kLogPri = 3;

std::mutex gMutex;
std::map<std::string, ShellCommandInfo> gCommands;
std::atomic<bool> gServing{false};

std::string frame(std::string_view status, int32_t result, std::string_view text) {
  std::string out(status);
  out += ' ';
  out += std::to_string(result);
  out += ' ';
  out += std::to_string(text.size());
  out += '\n';
  out += text;
  return out;
}

std::vector<std::string_view> tokens(std::string_view line) {
  std::vector<std::string_view> out;
  size_t at = 0;
  while (at < line.size()) {
    while (at < line.size() && (line[at] == ' ' || line[at] == '\t')) ++at;
    const size_t from = at;
    while (at < line.size() && line[at] != ' ' && line[at] != '\t') ++at;
    if (at > from) out.push_back(line.substr(from, at - from));
  }
  return out;
}

// A decimal or 0x number of at most 32 bits.
bool parseNumber(std::string_view t, uint32_t* out) {
  int base = 10;
  if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
    base = 16;
    t.remove_prefix(2);
  }
  if (t.empty()) return false;
  uint64_t v = 0;
  for (const char ch : t) {
    int d;
    if (ch >= '0' && ch <= '9') {
      d = ch - '0';
    } else if (base == 16 && ch >= 'a' && ch <= 'f') {
      d = ch - 'a' + 10;
    } else if (base == 16 && ch >= 'A' && ch <= 'F') {
      d = ch - 'A' + 10;
    } else {
      return false;
    }
    v = v * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
    if (v > 0xFFFFFFFFu) return false;
  }
  *out = static_cast<uint32_t>(v);
  return true;
}

int hexDigit(char ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
  if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
  return -1;
}

bool parseHex(std::string_view t, std::vector<uint8_t>* out) {
  if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) t.remove_prefix(2);
  if (t.empty() || t.size() % 2 != 0) return false;
  out->clear();
  for (size_t i = 0; i < t.size(); i += 2) {
    const int hi = hexDigit(t[i]);
    const int lo = hexDigit(t[i + 1]);
    if (hi < 0 || lo < 0) return false;
    out->push_back(static_cast<uint8_t>(hi << 4 | lo));
  }
  return true;
}

std::string listing() {
  std::string text;
  for (const auto& [name, info] : shellCommands()) {
    text += name;
    text += info.usage;
    text += '\n';
  }
  return text;
}

// --- the server ---

struct Client {
  int fd = -1;
  std::string in;
  std::string out;
  size_t outOff = 0;
  uint64_t lastActive = 0;
  uint64_t lineSince = 0;
  uint64_t outSince = 0;
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
bool busy(const Client& c) {
  return !c.in.empty() || pending(c) || c.closeAfterFlush;
}

void readFrom(Client& c, uint64_t now) {
  char buf[kShellMaxLine];
  // Never more than one line's worth waits unserved; the kernel keeps the rest.
  const size_t room = kShellMaxLine + 1 - std::min(c.in.size(), kShellMaxLine);
  const ssize_t n = ::recv(c.fd, buf, std::min(room, sizeof buf), MSG_DONTWAIT);
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
  c.outOff = 0;
  c.outSince = now;
}

// Answers the first whole line, one per round, so a client with a burst cannot starve the rest.
void serveOne(Client& c, uint64_t now) {
  if (c.closeAfterFlush || pending(c)) return;
  const size_t nl = c.in.find('\n');
  if (nl != std::string::npos && nl < kShellMaxLine) {
    std::string line = c.in.substr(0, nl);
    c.in.erase(0, nl + 1);
    c.lineSince = now;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    queue(c, shellRunLine(line), now);
    return;
  }
  if (c.in.size() >= kShellMaxLine) {
    // The end of the line can no longer be found: answer and hang up.
    queue(c, frame("error", 0, "request line too long"), now);
    c.closeAfterFlush = true;
    c.in.clear();
  }
}

void checkDeadlines(Client& c, uint64_t now) {
  if (!c.in.empty() && !hasLine(c) && now - c.lineSince > kLineMs) c.dead = true;
  if (pending(c) && now - c.outSince > kReplyMs) c.dead = true;
  if (!busy(c) && now - c.lastActive > kIdleMs) c.dead = true;
  if (c.eof && !hasLine(c) && !pending(c)) c.dead = true;
}

struct Server {
  int listenFd = -1;
  std::string path;
  std::vector<Client> clients;
  uint64_t acceptRestUntil = 0;
  bool acceptFailing = false;

  ~Server() {
    for (auto& c : clients) ::close(c.fd);
    if (listenFd >= 0) {
      ::close(listenFd);
      ::unlink(path.c_str());
    }
  }

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
      const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (fd < 0) {
        if (errno == EINTR) continue;
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
          acceptRestUntil = now + kAcceptBackoffMs;
          if (!acceptFailing) {
            loggingLogOutput(kLogTag, kLogPri, 0, "process shell: cannot accept: %s",
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

  void round() {
    std::vector<pollfd> fds;
    const bool listen = silGetUpTime1ms() >= acceptRestUntil && roomForOneMore();
    fds.push_back({listenFd, static_cast<short>(listen ? POLLIN : 0), 0});
    bool backlog = false;
    for (const auto& c : clients) {
      short ev = 0;
      if (pending(c)) {
        ev |= POLLOUT;
      } else if (!c.eof && !c.closeAfterFlush && !hasLine(c) && c.in.size() < kShellMaxLine) {
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
        c.dead = true;
      }
    }
    std::erase_if(clients, [](const Client& c) {
      if (c.dead) ::close(c.fd);
      return c.dead;
    });
    if (fds[0].revents & POLLIN) acceptWaiting(now);
  }
};

void serverTask(uintptr_t arg, uintptr_t) {
  std::unique_ptr<Server> s(reinterpret_cast<Server*>(arg));
  while (!silTaskStopRequested()) {
    try {
      s->round();
    } catch (const std::exception&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
    }
  }
  s.reset();
  gServing.store(false);
}

}  // namespace

bool shellRegister(const std::string& name, const ShellCommandInfo& info) {
  if (name.empty() || info.fn == nullptr || info.arity > kShellMaxArgs ||
      info.dataArg >= static_cast<int>(info.arity) || name.find_first_of(" \t\n\r") != name.npos) {
    return false;
  }
  std::lock_guard lock(gMutex);
  return gCommands.emplace(name, info).second;
}

std::optional<ShellCommandInfo> shellLookup(const std::string& name) {
  std::lock_guard lock(gMutex);
  const auto it = gCommands.find(name);
  if (it == gCommands.end()) return std::nullopt;
  return it->second;
}

std::vector<std::pair<std::string, ShellCommandInfo>> shellCommands() {
  std::lock_guard lock(gMutex);
  return {gCommands.begin(), gCommands.end()};
}

void shellClearForTest() {
  std::lock_guard lock(gMutex);
  gCommands.clear();
}

std::string shellRunLine(std::string_view line) {
  const auto tok = tokens(line);
  if (tok.empty()) return frame("usage", 0, "no command given");
  if (tok.size() == 1 && tok[0] == "?") return frame("ok", 0, listing());
  const std::string name(tok[0]);
  const auto info = shellLookup(name);
  if (!info) return frame("unknown", 0, "no such command: " + name);
  const size_t given = tok.size() - 1;
  if (given > info->arity) {
    return frame("usage", 0,
                 name + " takes at most " + std::to_string(info->arity) + " argument" +
                     (info->arity == 1 ? "" : "s") + ": " + name + info->usage);
  }
  ShellArgs args;
  args.count = given;
  for (size_t i = 0; i < given; ++i) {
    const std::string_view t = tok[i + 1];
    if (static_cast<int>(i) == info->dataArg) {
      if (!parseHex(t, &args.data)) {
        return frame("usage", 0,
                     "argument " + std::to_string(i + 1) + " of " + name + " is hex bytes, not '" +
                         std::string(t.substr(0, 64)) + "'");
      }
      continue;
    }
    uint32_t v = 0;
    if (!parseNumber(t, &v)) {
      return frame("usage", 0,
                   "argument " + std::to_string(i + 1) + " of " + name +
                       " is not a decimal or 0x number of 32 bits: '" +
                       std::string(t.substr(0, 64)) + "'");
    }
    args.word[i] = static_cast<intptr_t>(v);
  }
  try {
    ShellCapture capture;
    const int32_t result = info->fn(args);
    return frame("ok", result, capture.text());
  } catch (const std::exception& e) {
    return frame("error", 0, std::string(name) + " failed: " + e.what());
  }
}

std::string shellSocketPath() {
  return runPath((processName().empty() ? std::string("acl") : processName()) + "shell.socket");
}

int shellServe() {
  if (gServing.load()) return 0;
  auto s = std::make_unique<Server>();
  s->path = shellSocketPath();
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  // Only the owner may call the commands: they change flags and print every table.
  std::string error;
  if (!bindSocketPath(fd, s->path, &error)) {
    loggingLogOutput(kLogTag, kLogPri, 0, "process shell: %s", error.c_str());
    ::close(fd);
    return -1;
  }
  if (::listen(fd, 16) < 0) {
    loggingLogOutput(kLogTag, kLogPri, 0, "process shell: cannot listen on %s: %s", s->path.c_str(),
                     std::strerror(errno));
    ::unlink(s->path.c_str());
    ::close(fd);
    return -1;
  }
  s->listenFd = fd;
  gServing.store(true);
  if (silCreateTask("aclshelltask", 0, 0, serverTask, reinterpret_cast<uintptr_t>(s.get()), 0,
                    nullptr) != 0) {
    gServing.store(false);
    return -1;  // s closes and unlinks the socket
  }
  s.release();  // the task owns it now
  return 0;
}

}  // namespace plat
