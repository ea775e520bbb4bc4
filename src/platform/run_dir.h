// The run directory and everything we create in it, made so that another local user cannot
// redirect our writes or take our socket names.
//
// The rules:
// - The run directory and every directory above it are real directories (the run directory
//   itself not a symbolic link; links above it are resolved once and the resolved path is used
//   from then on), owned by root or by us, and writable by group or others only with the sticky
//   bit set (as /tmp is). Missing directories are created 0700, and only under a directory that
//   passed these checks.
// - A private directory (the route bus) is a real directory owned by our effective user and
//   writable by nobody else; it is created 0700 when missing.
// - A name we take (a socket, a file we replace) is either absent or already of the kind we would
//   leave there and owned by us; anything else is a refusal that names the path and what holds it.
// - Sockets are bound in a fresh 0700 directory of random name, restricted to the owner there and
//   renamed into place, so the socket is never reachable with looser permissions and a file
//   planted under a predictable temporary name cannot stop us. Files are written under a random
//   name opened with O_CREAT|O_EXCL|O_NOFOLLOW and renamed into place, never through a link.
#pragma once

#include <sys/types.h>

#include <string>

namespace plat {

// Longest run directory path whose sockets (and their temporary names) still fit a Unix socket
// address.
size_t runDirMaxLen();

// Creates the run directory when missing, checks it and every directory above it, and makes its
// resolved path the run directory. false with a one-line reason (naming the path) otherwise.
bool runDirPrepare(const std::string& dir, std::string* error);

// Creates dir (0700) when missing and checks that it is a private directory of ours.
bool privateDirPrepare(const std::string& dir, std::string* error);

// Whether we may take path for a file of type (S_IFSOCK, S_IFREG): it is absent, or it is already
// such a file and ours (a leftover of an earlier run, to be replaced).
bool nameTakeable(const std::string& path, mode_t type, std::string* error);

// Binds the Unix socket fd to path, readable and writable by the owner only, replacing a stale
// socket of ours. On failure errno is set (EADDRINUSE when the name is held by something else).
bool bindSocketPath(int fd, const std::string& path, std::string* error);

// Replaces the contents of path (a regular file of ours, or absent) with text, mode 0600.
bool replaceFile(const std::string& path, const std::string& text, std::string* error);

}  // namespace plat
