// Safe creation and checking of the run directory and of the sockets and files we put in it.
#include "platform/run_dir.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>

#include "platform/proc.h"

namespace plat {
namespace {

constexpr size_t kSunPathMax = sizeof(sockaddr_un{}.sun_path) - 1;  // without the final NUL
// A socket is bound first as "<dir>/.aclXXXXXX/s".
constexpr char kBindDirPrefix[] = ".acl";
// The longest socket name below the run directory, counted with its temporary name.
constexpr size_t kLongestSocketTail = sizeof("/rtbus/.aclXXXXXX/s") - 1;

bool fail(std::string* error, const std::string& text, int err) {
  if (error) *error = text;
  errno = err;
  return false;
}

std::string kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "a directory";
    case S_IFREG:
      return "a regular file";
    case S_IFLNK:
      return "a symbolic link";
    case S_IFSOCK:
      return "a socket";
    case S_IFIFO:
      return "a FIFO";
    case S_IFCHR:
    case S_IFBLK:
      return "a device";
    default:
      return "a file of unknown kind";
  }
}

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

std::string uidText(uid_t uid) {
  return "uid " + std::to_string(uid);
}

// A directory on the way to (or being) the run directory: nobody but root and we may replace
// what is in it, or the checks below it would mean nothing.
bool dirSafe(const std::string& path, const struct stat& st, std::string* error) {
  if (S_ISLNK(st.st_mode)) return fail(error, path + " is a symbolic link", ELOOP);
  if (!S_ISDIR(st.st_mode)) {
    return fail(error, path + " is " + kindOf(st.st_mode) + ", not a directory", ENOTDIR);
  }
  if (st.st_uid != 0 && st.st_uid != geteuid()) {
    return fail(error,
                path + " belongs to " + uidText(st.st_uid) + ", neither root nor us (" +
                    uidText(geteuid()) + ")",
                EPERM);
  }
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (st.st_mode & S_ISVTX) == 0) {
    return fail(error,
                path + " is writable by group or others without the sticky bit (mode " +
                    modeText(st.st_mode) + ")",
                EPERM);
  }
  return true;
}

bool lstatDirSafe(const std::string& path, std::string* error) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) {
    return fail(error, "cannot check " + path + ": " + std::strerror(errno), errno);
  }
  return dirSafe(path, st, error);
}

// Hex text of n random bytes; empty when the kernel has none to give.
std::string randomHex(size_t n) {
  unsigned char bytes[16];
  if (n > sizeof bytes || getrandom(bytes, n, 0) != static_cast<ssize_t>(n)) return {};
  std::string text;
  for (size_t i = 0; i < n; ++i) {
    static constexpr char kDigits[] = "0123456789abcdef";
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

std::deque<std::string> splitPath(const std::string& path) {
  std::deque<std::string> parts;
  for (size_t pos = 0; pos < path.size();) {
    const size_t next = std::min(path.find('/', pos), path.size());
    const std::string part = path.substr(pos, next - pos);
    if (!part.empty() && part != ".") parts.push_back(part);
    pos = next + 1;
  }
  return parts;
}

bool writeAll(int fd, const std::string& text) {
  size_t off = 0;
  while (off < text.size()) {
    const ssize_t n = ::write(fd, text.data() + off, text.size() - off);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    off += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

size_t runDirMaxLen() {
  return kSunPathMax - kLongestSocketTail;
}

bool runDirPrepare(const std::string& given, std::string* error) {
  std::string dir = given.empty() ? "/tmp" : given;
  if (dir.front() != '/') {
    std::unique_ptr<char, decltype(&free)> cwd(getcwd(nullptr, 0), &free);
    if (!cwd) {
      return fail(error, std::string("cannot read the working directory: ") + std::strerror(errno),
                  errno);
    }
    dir = std::string(cwd.get()) + "/" + dir;
  }
  std::deque<std::string> todo = splitPath(dir);
  std::string why;
  auto unsafe = [&] { return fail(error, "unsafe run directory: " + why, EPERM); };

  // The path is resolved here, top down, and each directory checked as it is reached, so that
  // a directory is trusted only once the one holding it is; what remains once a name is missing
  // is created below the last directory checked.
  if (!lstatDirSafe("/", &why)) return unsafe();
  std::string resolved;  // checked so far; empty for the root
  int links = 0;
  while (!todo.empty()) {
    const std::string part = todo.front();
    if (part == "..") {
      resolved.resize(resolved.empty() ? 0 : resolved.rfind('/'));
      todo.pop_front();
      continue;
    }
    const std::string next = resolved + "/" + part;
    struct stat st {};
    if (::lstat(next.c_str(), &st) != 0) {
      if (errno == ENOENT) break;
      return fail(error,
                  "cannot use run directory " + given + ": " + next + ": " + std::strerror(errno),
                  errno);
    }
    if (S_ISLNK(st.st_mode)) {
      // The run directory itself is never a link. A link above it is followed only when root or
      // we made it: its owner can point it elsewhere at any time.
      if (todo.size() == 1) {
        why = next + " is a symbolic link";
        return unsafe();
      }
      if (st.st_uid != 0 && st.st_uid != geteuid()) {
        why = next + " is a symbolic link of " + uidText(st.st_uid) + ", neither root nor us";
        return unsafe();
      }
      char target[PATH_MAX];
      const ssize_t n = ::readlink(next.c_str(), target, sizeof target - 1);
      if (n < 0 || ++links > 40) {
        const int err = n < 0 ? errno : ELOOP;
        return fail(error,
                    "cannot use run directory " + given + ": " + next + ": " + std::strerror(err),
                    err);
      }
      target[n] = '\0';
      todo.pop_front();
      const std::deque<std::string> more = splitPath(target);
      todo.insert(todo.begin(), more.begin(), more.end());
      if (target[0] == '/') resolved.clear();
      continue;
    }
    if (!dirSafe(next, st, &why)) return unsafe();
    resolved = next;
    todo.pop_front();
  }

  std::string final = resolved;
  for (const std::string& part : todo) {
    if (part == "..") {
      return fail(error,
                  "cannot create run directory " + given + ": '..' below a missing directory",
                  ENOENT);
    }
    final += "/" + part;
  }
  if (final.empty()) final = "/";
  if (final.size() > runDirMaxLen()) {
    return fail(error,
                "run directory " + final + " is too long for its sockets (" +
                    std::to_string(final.size()) + " bytes, at most " +
                    std::to_string(runDirMaxLen()) + ")",
                ENAMETOOLONG);
  }
  for (const std::string& part : todo) {
    resolved += "/" + part;
    if (::mkdir(resolved.c_str(), 0700) != 0 && errno != EEXIST) {
      return fail(error, "cannot create run directory " + resolved + ": " + std::strerror(errno),
                  errno);
    }
    if (!lstatDirSafe(resolved, &why)) return unsafe();
  }
  setRunDir(final);
  return true;
}

bool privateDirPrepare(const std::string& dir, std::string* error) {
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
    return fail(error, "cannot create " + dir + ": " + std::strerror(errno), errno);
  }
  // Opened without following a link, then checked through the descriptor: what we check is what
  // we opened.
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    const int err = errno;
    struct stat st {};
    if ((err == ELOOP || err == ENOTDIR) && ::lstat(dir.c_str(), &st) == 0) {
      return fail(error, dir + " is " + kindOf(st.st_mode) + ", not a directory", err);
    }
    return fail(error, "cannot open " + dir + ": " + std::strerror(err), err);
  }
  struct stat st {};
  const bool statted = ::fstat(fd, &st) == 0;
  const int err = errno;
  ::close(fd);
  if (!statted) return fail(error, "cannot check " + dir + ": " + std::strerror(err), err);
  if (st.st_uid != geteuid()) {
    return fail(
        error,
        dir + " belongs to " + uidText(st.st_uid) + ", not to us (" + uidText(geteuid()) + ")",
        EPERM);
  }
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return fail(error, dir + " is writable by group or others (mode " + modeText(st.st_mode) + ")",
                EPERM);
  }
  return true;
}

bool nameTakeable(const std::string& path, mode_t type, std::string* error) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return true;
    return fail(error, "cannot check " + path + ": " + std::strerror(errno), errno);
  }
  if ((st.st_mode & S_IFMT) != type) {
    return fail(error,
                path + " is held by " + kindOf(st.st_mode) + ", not " + kindOf(type) + " of ours",
                EADDRINUSE);
  }
  if (st.st_uid != geteuid()) {
    return fail(error,
                path + " is held by " + kindOf(st.st_mode) + " of " + uidText(st.st_uid) +
                    ", not of ours (" + uidText(geteuid()) + ")",
                EADDRINUSE);
  }
  return true;
}

bool bindSocketPath(int fd, const std::string& path, std::string* error) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash);
  std::string tmpDir = dir + "/" + kBindDirPrefix + "XXXXXX";
  if (path.size() > kSunPathMax || tmpDir.size() + 2 > kSunPathMax) {
    return fail(error, "socket path too long: " + path, ENAMETOOLONG);
  }
  if (!nameTakeable(path, S_IFSOCK, error)) return false;
  if (::mkdtemp(tmpDir.data()) == nullptr) {
    return fail(error, "cannot create a directory in " + dir + ": " + std::strerror(errno), errno);
  }
  const std::string bound = tmpDir + "/s";
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  std::memcpy(sa.sun_path, bound.c_str(), bound.size() + 1);
  // Nobody else can enter the fresh directory, so the socket is private before it has its mode;
  // the rename then replaces a stale socket of ours in one step.
  const bool ok = ::bind(fd, reinterpret_cast<const sockaddr*>(&sa), sizeof sa) == 0 &&
                  ::chmod(bound.c_str(), 0600) == 0 && ::rename(bound.c_str(), path.c_str()) == 0;
  const int err = errno;
  if (!ok) ::unlink(bound.c_str());
  ::rmdir(tmpDir.c_str());
  if (!ok) return fail(error, "cannot bind " + path + ": " + std::strerror(err), err);
  return true;
}

bool replaceFile(const std::string& path, const std::string& text, std::string* error) {
  if (!nameTakeable(path, S_IFREG, error)) return false;
  std::string tmp;
  int fd = -1;
  for (int attempt = 0; attempt < 8 && fd < 0; ++attempt) {
    const std::string suffix = randomHex(6);
    if (suffix.empty()) break;
    tmp = path + "." + suffix;
    fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    return fail(error, "cannot create a file beside " + path + ": " + std::strerror(errno), errno);
  }
  const bool written = writeAll(fd, text);
  const int writeErr = errno;
  ::close(fd);
  if (!written || ::rename(tmp.c_str(), path.c_str()) != 0) {
    const int err = written ? errno : writeErr;
    ::unlink(tmp.c_str());
    return fail(error, "cannot write " + path + ": " + std::strerror(err), err);
  }
  return true;
}

}  // namespace plat
