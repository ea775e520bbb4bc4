// The route bus: a directory of Unix datagram sockets. A socket bound on the bus is
// "<process>.sock" (the daemon's is rtbus/acl.sock), and the message groups it joined are listed
// beside it in "<process>.groups", one number per line. A sender reads each listing and sends a
// message only to the sockets that joined its group, so a receiver sees exactly its groups, and a
// test may also write raw messages straight to a socket.
#include "platform/rtbus.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <sstream>

#include "platform/fault.h"
#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/run_dir.h"
#include "platform/sil.h"
#include "platform/vdev/announce.h"
#include "wire/be.h"

namespace {

struct RouteSocket {
  std::string path;  // empty until bound
  std::set<uint32_t> groups;
  uint32_t module = 0;
};

std::mutex gBusMutex;
std::map<int, RouteSocket> gSockets;
int gWakeFd = -1;
std::atomic<uint64_t> gDropped{0};

// One datagram to the socket at sa, never waiting: a full receiver loses it (and it is counted).
bool sendNoWait(int out, std::span<const uint8_t> message, const sockaddr_un& sa) {
  const ssize_t n = sendto(out, message.data(), message.size(), MSG_DONTWAIT,
                           reinterpret_cast<const sockaddr*>(&sa), sizeof sa);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS)) ++gDropped;
  return n == static_cast<ssize_t>(message.size());
}

constexpr size_t kMaxGroupsFile = 64 * 1024;  // far more than every group there is

std::string groupsPath(const std::string& sockPath) {
  return sockPath.substr(0, sockPath.size() - 5) + ".groups";  // ".sock" -> ".groups"
}

bool writeGroups(const RouteSocket& s) {
  std::string text;
  for (uint32_t g : s.groups) text += std::to_string(g) + "\n";
  std::string error;
  if (plat::replaceFile(groupsPath(s.path), text, &error)) return true;
  loggingLogOutput(0, 3, 0, "route bus: %s", error.c_str());
  return false;
}

// The groups listed beside socket sockName of the bus directory dirFd. Only a regular file is
// read, and only so much of it: a missing or odd listing joins nothing.
std::set<uint32_t> readGroups(int dirFd, const std::string& sockName) {
  std::set<uint32_t> groups;
  const int fd =
      ::openat(dirFd, groupsPath(sockName).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return groups;
  struct stat st {};
  std::string text;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    char buf[4096];
    ssize_t n;
    while (text.size() < kMaxGroupsFile && (n = ::read(fd, buf, sizeof buf)) > 0) {
      text.append(buf, static_cast<size_t>(n));
    }
  }
  ::close(fd);
  std::istringstream in(text);
  uint32_t g;
  while (in >> g) groups.insert(g);
  return groups;
}

bool fillAddr(const std::string& path, sockaddr_un* addr) {
  if (path.size() >= sizeof addr->sun_path) return false;
  std::memset(addr, 0, sizeof *addr);
  addr->sun_family = AF_UNIX;
  std::memcpy(addr->sun_path, path.c_str(), path.size() + 1);
  return true;
}

int failWith(int err) {
  errno = err;
  return -1;
}

int wakeFd() {
  std::lock_guard lock(gBusMutex);
  if (gWakeFd < 0) gWakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  return gWakeFd;
}

}  // namespace

int zor_socket(int family, int type, int /*protocol*/) {
  if (plat::faultHit({.call = "zor_socket"})) return failWith(ENOMEM);
  if (family != ZOR_AF_ROUTE || type != ZOR_SOCK_DGRAM) return failWith(EAFNOSUPPORT);
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  std::lock_guard lock(gBusMutex);
  gSockets[fd] = RouteSocket{};
  return fd;
}

int zor_bind(int fd, const void* addr, uint32_t addrLen) {
  if (plat::faultHit({.call = "zor_bind"})) return failWith(EADDRINUSE);
  if (addr == nullptr || addrLen < 12) return failWith(EINVAL);
  const std::span<const uint8_t> a(static_cast<const uint8_t*>(addr), addrLen);
  if (be::load16(a, 0) != ZOR_AF_ROUTE) return failWith(EAFNOSUPPORT);

  std::lock_guard lock(gBusMutex);
  auto it = gSockets.find(fd);
  if (it == gSockets.end()) return failWith(EBADF);
  if (!it->second.path.empty()) return failWith(EINVAL);
  const std::string dir = plat::busDir();
  std::string error;
  if (!plat::privateDirPrepare(dir, &error)) {
    const int err = errno;
    loggingLogOutput(0, 3, 0, "route bus: %s", error.c_str());
    return failWith(err);
  }
  const std::string base = plat::processName().empty() ? "route" : plat::processName();
  std::string path = dir + "/" + base + ".sock";
  for (const auto& [otherFd, other] : gSockets) {
    if (other.path == path) path = dir + "/" + base + "-" + std::to_string(fd) + ".sock";
  }
  // The listing beside the socket is checked first, so that a refused one leaves no socket.
  if (!plat::nameTakeable(groupsPath(path), S_IFREG, &error) ||
      !plat::bindSocketPath(fd, path, &error)) {
    const int err = errno;
    loggingLogOutput(0, 3, 0, "route bus: %s", error.c_str());
    return failWith(err);
  }
  it->second.path = path;
  if (!writeGroups(it->second)) return failWith(EIO);
  return 0;
}

int zor_setsockopt(int fd, int level, int option, const void* value, uint32_t valueLen) {
  if (plat::faultHit({.call = "zor_setsockopt", .cmd = static_cast<uint32_t>(option)})) {
    return failWith(EINVAL);
  }
  if (value == nullptr || valueLen != 4) return failWith(EINVAL);
  const uint32_t v = be::load32(value);
  std::string joinedPath;
  {
    std::lock_guard lock(gBusMutex);
    auto it = gSockets.find(fd);
    if (it == gSockets.end()) return failWith(EBADF);
    if (level == ZOR_SOL_SOCKET && option == ZOR_SO_MODULE) {
      it->second.module = v;
      return 0;
    }
    if (level != ZOR_SOL_ROUTE || option != ZOR_ROUTE_ADD_GROUP) return failWith(ENOPROTOOPT);
    const bool added = it->second.groups.insert(v).second;
    if (!it->second.path.empty() && !writeGroups(it->second)) return failWith(EIO);
    if (added) joinedPath = it->second.path;
  }
  // The platform tells a module that registers for a group what that group has announced so far.
  if (!joinedPath.empty()) vdev::routeGroupJoined(joinedPath, v);
  return 0;
}

int zor_select(int nfds, fd_set* readfds, fd_set* writefds, fd_set* exceptfds,
               struct timeval* timeout) {
  const int wake = wakeFd();
  fd_set rd;
  FD_ZERO(&rd);
  if (readfds) rd = *readfds;
  if (wake >= 0 && wake < FD_SETSIZE) FD_SET(wake, &rd);
  const int n = select(std::max(nfds, wake + 1), &rd, writefds, exceptfds, timeout);
  if (n < 0) return n;
  if (wake >= 0 && FD_ISSET(wake, &rd)) {
    FD_CLR(wake, &rd);
    if (silTaskStopRequested()) {
      if (readfds) FD_ZERO(readfds);
      if (writefds) FD_ZERO(writefds);
      if (exceptfds) FD_ZERO(exceptfds);
      return 0;
    }
  }
  if (readfds) *readfds = rd;
  int ready = 0;
  for (int fd = 0; fd < nfds; ++fd) {
    ready += (readfds && FD_ISSET(fd, readfds)) + (writefds && FD_ISSET(fd, writefds)) +
             (exceptfds && FD_ISSET(fd, exceptfds));
  }
  return ready;
}

int zor_recv(int fd, void* buf, size_t len, int flags) {
  if (plat::faultHit({.call = "zor_recv"})) return failWith(EIO);
  return static_cast<int>(recv(fd, buf, len, flags));
}

int zor_close(int fd) {
  std::string path;
  {
    std::lock_guard lock(gBusMutex);
    auto it = gSockets.find(fd);
    if (it != gSockets.end()) {
      path = it->second.path;
      gSockets.erase(it);
    }
  }
  if (!path.empty()) {
    unlink(path.c_str());
    unlink(groupsPath(path).c_str());
  }
  return close(fd);
}

namespace plat {

std::string busDir() { return runPath("rtbus"); }

bool busSendTo(const std::string& sockPath, std::span<const uint8_t> message) {
  sockaddr_un sa;
  if (!fillAddr(sockPath, &sa)) return false;
  const int out = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (out < 0) return false;
  const bool sent = sendNoWait(out, message, sa);
  close(out);
  return sent;
}

int busSend(uint32_t group, std::span<const uint8_t> message) {
  const int dirFd = ::open(busDir().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (dirFd < 0) return 0;
  // Our messages go only to a bus that is ours: sockets others could plant there would read them.
  struct stat st {};
  DIR* d = nullptr;
  if (::fstat(dirFd, &st) != 0 || st.st_uid != geteuid() || (st.st_mode & (S_IWGRP | S_IWOTH)) ||
      (d = ::fdopendir(dirFd)) == nullptr) {
    ::close(dirFd);
    return 0;
  }
  const std::string dir = busDir();
  const int out = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  int delivered = 0;
  while (dirent* e = readdir(d)) {
    const std::string name = e->d_name;
    if (name.size() <= 5 || name.compare(name.size() - 5, 5, ".sock") != 0) continue;
    struct stat ss {};
    if (::fstatat(dirFd, name.c_str(), &ss, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISSOCK(ss.st_mode)) {
      continue;
    }
    if (!readGroups(dirFd, name).contains(group)) continue;
    const std::string path = dir + "/" + name;
    sockaddr_un sa;
    if (out < 0 || !fillAddr(path, &sa)) continue;
    // A listener that is gone or not reading loses the message; the sender never waits for it.
    if (sendNoWait(out, message, sa)) ++delivered;
  }
  closedir(d);  // and dirFd with it
  if (out >= 0) close(out);
  return delivered;
}

uint64_t busDropCount() { return gDropped.load(); }

std::string ownRouteSocketPath() {
  std::lock_guard lock(gBusMutex);
  for (const auto& [fd, s] : gSockets) {
    if (!s.path.empty()) return s.path;
  }
  return {};
}

uint32_t routeSocketLiveCount() {
  std::lock_guard lock(gBusMutex);
  return static_cast<uint32_t>(gSockets.size());
}

void wakeSelectsForStop() {
  const int fd = wakeFd();
  if (fd >= 0) {
    const uint64_t one = 1;
    (void)!write(fd, &one, sizeof one);
  }
}

void wakeDrain() {
  const int fd = wakeFd();
  uint64_t v;
  if (fd >= 0) (void)!read(fd, &v, sizeof v);
}

}  // namespace plat
