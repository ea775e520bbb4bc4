// The run directory and what we put in it, against directories another local user prepared.
// Each situation is built by a shell line in a fresh directory beside an "outside" directory
// whose file nothing may change. Another user's files are made with chown, so those situations
// run only as root.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "platform/cmd_server.h"
#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/rtbus.h"
#include "platform/run_dir.h"
#include "wire/be.h"

namespace {

namespace fs = std::filesystem;

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

mode_t modeOf(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

size_t entriesBelow(const std::string& dir) {
  size_t n = 0;
  for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator();
       ++it) {
    ++n;
  }
  return n;
}

// A socket file at path, bound and closed: what a process that died leaves behind. connect
// tells whether a socket at path is listening.
bool socketAt(const std::string& path, bool doConnect) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  std::strncpy(sa.sun_path, path.c_str(), sizeof sa.sun_path - 1);
  auto* addr = reinterpret_cast<sockaddr*>(&sa);
  const bool ok = (doConnect ? ::connect(fd, addr, sizeof sa) : ::bind(fd, addr, sizeof sa)) == 0;
  ::close(fd);
  return ok;
}

int32_t nothing(uintptr_t, uintptr_t, uintptr_t) {
  return 0;
}

enum class Step { RunDir, RouteBind, CmdListen };

struct Situation {
  const char* what;
  Step step;
  const char* setup;    // shell line run in the base directory
  const char* stale;    // a stale socket of ours made there afterwards, relative to the base
  bool staleOfOther;    // and then given to another user
  const char* refusal;  // part of the reason; nullptr when accepted
};

TEST(RunDirTest, HostileSituationsAreRefusedAndNothingOutsideChanges) {
  const Situation cases[] = {
      {"missing directories are created private", Step::RunDir, "true", nullptr, false, nullptr},
      {"sticky and world-writable, as /tmp", Step::RunDir, "mkdir -m 1777 d", nullptr, false,
       nullptr},
      {"our link above it is resolved", Step::RunDir, "mkdir real && ln -s real d", nullptr, false,
       nullptr},
      {"another user's link above it", Step::RunDir,
       "mkdir real && ln -s real d && chown -h 65534 d", nullptr, false,
       "d is a symbolic link of uid 65534"},
      {"the run directory is a link", Step::RunDir, "mkdir d && ln -s ../outside d/run", nullptr,
       false, "d/run is a symbolic link"},
      {"a regular file", Step::RunDir, "mkdir d && touch d/run", nullptr, false,
       "d/run is a regular file, not a directory"},
      {"world-writable, not sticky", Step::RunDir, "mkdir -m 777 d", nullptr, false,
       "d is writable by group or others without the sticky bit (mode 0777)"},
      {"group-writable, not sticky", Step::RunDir, "mkdir -m 770 d", nullptr, false,
       "d is writable by group or others without the sticky bit (mode 0770)"},
      {"another user's directory", Step::RunDir, "mkdir d && chown 65534 d", nullptr, false,
       "d belongs to uid 65534, neither root nor us"},

      // (A bus linked outside the run directory is refused end to end.)
      {"bus created private", Step::RouteBind, "true", nullptr, false, nullptr},
      {"stale bus socket replaced", Step::RouteBind, "mkdir -m 700 run/rtbus",
       "run/rtbus/route.sock", false, nullptr},
      {"bus is a regular file", Step::RouteBind, "touch run/rtbus", nullptr, false,
       "rtbus is a regular file, not a directory"},
      {"bus group-writable", Step::RouteBind, "mkdir -m 770 run/rtbus", nullptr, false,
       "rtbus is writable by group or others (mode 0770)"},
      {"another user's bus", Step::RouteBind, "mkdir -m 700 run/rtbus && chown 65534 run/rtbus",
       nullptr, false, "rtbus belongs to uid 65534, not to us"},
      {"link where the groups go", Step::RouteBind,
       "mkdir -m 700 run/rtbus && ln -s ../../outside/victim run/rtbus/route.groups", nullptr,
       false, "route.groups is held by a symbolic link, not a regular file of ours"},
      {"regular file where the bus socket goes", Step::RouteBind,
       "mkdir -m 700 run/rtbus && touch run/rtbus/route.sock", nullptr, false,
       "route.sock is held by a regular file, not a socket of ours"},

      {"directory at the old temporary name", Step::CmdListen, "mkdir run/aclcmd.socket.new",
       nullptr, false, nullptr},
      {"stale command socket replaced", Step::CmdListen, "true", "run/aclcmd.socket", false,
       nullptr},
      {"directory at the command socket", Step::CmdListen, "mkdir run/aclcmd.socket", nullptr,
       false, "aclcmd.socket is held by a directory, not a socket of ours"},
      {"link at the command socket", Step::CmdListen, "ln -s ../outside/victim run/aclcmd.socket",
       nullptr, false, "aclcmd.socket is held by a symbolic link"},
      {"another user's command socket", Step::CmdListen, "true", "run/aclcmd.socket", true,
       "aclcmd.socket is held by a socket of uid 65534, not of ours"},
  };
  const IcmFuncEntry table[] = {{6, nothing}};
  for (const Situation& c : cases) {
    SCOPED_TRACE(c.what);
    if ((c.staleOfOther || std::strstr(c.setup, "chown")) && ::geteuid() != 0) {
      std::cout << "[ SKIPPED  ] needs root to chown: " << c.what << "\n";
      continue;
    }
    std::string base = (fs::temp_directory_path() / "acl-rundir.XXXXXX").string();
    ASSERT_NE(::mkdtemp(base.data()), nullptr);
    const std::string run = base + "/run";
    const std::string shell = "cd " + base + " && mkdir outside && echo keep > outside/victim" +
                              (c.step == Step::RunDir ? "" : " && mkdir -m 700 run") + " && " +
                              c.setup;
    ASSERT_EQ(std::system(shell.c_str()), 0) << shell;
    if (c.stale) {
      ASSERT_TRUE(socketAt(base + "/" + c.stale, false));
      if (c.staleOfOther) {
        ASSERT_EQ(::lchown((base + "/" + c.stale).c_str(), 65534, 65534), 0);
      }
    }
    const size_t entries = entriesBelow(base);
    plat::setRunDir(run);
    std::string why;
    bool ok = false;
    if (c.step == Step::RunDir) {
      plat::setRunDir("/unchanged");
      ok = plat::runDirPrepare(base + "/d/run", &why);
      if (ok) {
        EXPECT_EQ(plat::runDir(), fs::canonical(base + "/d/run").string());
        EXPECT_EQ(modeOf(plat::runDir()), 0700u);
      } else {
        EXPECT_EQ(plat::runDir(), "/unchanged") << "a refused directory is not used";
        EXPECT_EQ(entriesBelow(base), entries) << "nothing is created on a refusal";
      }
    } else if (c.step == Step::RouteBind) {
      const uint64_t seq = plat::logLastSeq();
      const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
      uint8_t addr[12] = {};
      be::store16(addr, 0, ZOR_AF_ROUTE);
      ok = zor_bind(fd, addr, sizeof addr) == 0;
      for (const auto& line : plat::logRecent(seq)) why += line.text;
      if (ok) {
        EXPECT_EQ(modeOf(plat::busDir()), 0700u);
        EXPECT_EQ(modeOf(plat::busDir() + "/route.sock"), 0600u);
        uint8_t group[4];
        be::store32(group, 7);
        EXPECT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, group, 4), 0);
        EXPECT_EQ(slurp(plat::busDir() + "/route.groups"), "7\n");
        const uint8_t msg[24] = {0, 0, 0, 24};
        EXPECT_EQ(plat::busSend(7, msg), 1) << "the socket in place is the one bound";
        ::chmod(plat::busDir().c_str(), 0777);
        EXPECT_EQ(plat::busSend(7, msg), 0) << "nothing is sent into a bus others can fill";
        ::chmod(plat::busDir().c_str(), 0700);
      }
      zor_close(fd);
    } else {
      const int started = icmProcTcpInit("listentest", "/tmp/aclcmd.socket", table, 1);
      ok = icmProcTcpServing("/tmp/aclcmd.socket", &why);
      EXPECT_EQ(started, ok ? 0 : -1);
      if (ok) {
        EXPECT_TRUE(socketAt(run + "/aclcmd.socket", true));
        EXPECT_EQ(modeOf(run + "/aclcmd.socket"), 0600u);
      }
      plat::stopAllTasksForTest();
      EXPECT_FALSE(icmProcTcpServing("/tmp/aclcmd.socket", nullptr)) << "stopped";
      plat::resetForTest();
    }
    EXPECT_EQ(ok, c.refusal == nullptr) << why;
    if (c.refusal) {
      EXPECT_NE(why.find(c.refusal), std::string::npos) << why;
    }
    EXPECT_EQ(slurp(base + "/outside/victim"), "keep\n");
    EXPECT_EQ(entriesBelow(base + "/outside"), 1u);
    plat::setRunDir("");
    fs::remove_all(base);
  }
}

}  // namespace
