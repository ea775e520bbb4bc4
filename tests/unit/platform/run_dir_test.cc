// The run directory and what we put in it, against directories another local user prepared:
// each situation is built in a fresh directory, and a refusal must name the problem and leave
// everything outside the run directory as it was. Another user's file is made with chown, so the
// cases that need one run only as root.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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

constexpr uid_t kOtherUid = 65534;

std::string makeTemp() {
  std::string tmpl = (fs::temp_directory_path() / "acl-rundir.XXXXXX").string();
  return ::mkdtemp(tmpl.data()) ? tmpl : std::string();
}

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// A socket file at path, left behind as a process that died would leave it.
void staleSocket(const std::string& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  std::strncpy(sa.sun_path, path.c_str(), sizeof sa.sun_path - 1);
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa), 0) << path;
  ::close(fd);
}

bool connects(const std::string& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  std::strncpy(sa.sun_path, path.c_str(), sizeof sa.sun_path - 1);
  const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
  ::close(fd);
  return ok;
}

mode_t modeOf(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 ? st.st_mode : 0;
}

// What a refused step logged since seq, as one text.
std::string logSince(uint64_t seq) {
  std::string text;
  for (const auto& line : plat::logRecent(seq)) text += line.text + "\n";
  return text;
}

// Each case gets a fresh private base directory to build its situation in, and an "outside"
// directory holding a file that nothing may change.
class RunDirFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    outside = makeTemp();
    ASSERT_FALSE(outside.empty());
    victim = outside + "/victim";
    std::ofstream(victim) << "keep";
  }
  void TearDown() override {
    plat::setRunDir("");
    fs::remove_all(outside);
  }
  void expectOutsideUntouched() {
    EXPECT_EQ(slurp(victim), "keep");
    EXPECT_EQ(std::distance(fs::directory_iterator(outside), fs::directory_iterator()), 1);
  }
  std::string outside, victim;
};

struct Situation {
  const char* name;
  bool needsRoot;  // builds another user's file with chown
  std::function<void(const std::string& base)> build;
  std::string runDir;      // relative to the base directory
  const char* refusal;     // a part of the error; nullptr when the directory is accepted
  const char* resolvedTo;  // the run directory then in use, relative to the base
  mode_t mode;             // its permission bits then, 0 for any
  const char* notCreated;  // relative to the base: must not exist afterwards
};

using RunDirTest = RunDirFixture;

TEST_F(RunDirTest, PreparedRunDirectoriesAreCheckedBeforeUse) {
  auto dirMode = [](const char* name, mode_t mode) {
    return [=](const std::string& b) {
      fs::create_directory(b + "/" + name);
      ::chmod((b + "/" + name).c_str(), mode);
    };
  };
  auto otherUsers = [](const char* name) {
    return [=](const std::string& b) {
      fs::create_directory(b + "/" + name);
      ASSERT_EQ(::chown((b + "/" + name).c_str(), kOtherUid, kOtherUid), 0);
    };
  };
  const Situation cases[] = {
      {"missing directories are created private", false, nullptr, "a/b", nullptr, "a/b", 0700,
       nullptr},
      {"our private directory", false, dirMode("d", 0700), "d", nullptr, "d", 0700, nullptr},
      {"sticky and world-writable, as /tmp", false, dirMode("d", 01777), "d", nullptr, "d", 01777,
       nullptr},
      {"a link above it is resolved once", false,
       [](const std::string& b) {
         fs::create_directory(b + "/real");
         fs::create_directory_symlink(b + "/real", b + "/alias");
       },
       "alias/run", nullptr, "real/run", 0700, nullptr},
      {"another user's link above it is not followed", true,
       [](const std::string& b) {
         fs::create_directory(b + "/real");
         fs::create_directory_symlink(b + "/real", b + "/alias");
         ASSERT_EQ(::lchown((b + "/alias").c_str(), kOtherUid, kOtherUid), 0);
       },
       "alias/run", "alias is a symbolic link of uid 65534", nullptr, 0, "real/run"},
      {"the run directory is a link", false,
       [&](const std::string& b) { fs::create_directory_symlink(outside, b + "/link"); }, "link",
       "link is a symbolic link", nullptr, 0, nullptr},
      {"a regular file", false, [](const std::string& b) { std::ofstream(b + "/f") << "x"; }, "f",
       "f is a regular file, not a directory", nullptr, 0, nullptr},
      {"a regular file above it", false,
       [](const std::string& b) { std::ofstream(b + "/f") << "x"; }, "f/run",
       "f is a regular file, not a directory", nullptr, 0, "f/run"},
      {"world-writable without the sticky bit", false, dirMode("d", 0777), "d",
       "d is writable by group or others without the sticky bit (mode 0777)", nullptr, 0, nullptr},
      {"group-writable without the sticky bit above it", false, dirMode("p", 0770), "p/run",
       "p is writable by group or others without the sticky bit", nullptr, 0, "p/run"},
      {"another user's directory", true, otherUsers("d"), "d", "d belongs to uid 65534", nullptr, 0,
       nullptr},
      {"another user's directory above it: nothing is created there", true, otherUsers("p"),
       "p/run", "p belongs to uid 65534", nullptr, 0, "p/run"},
      {"'..' below a missing directory", false, nullptr, "m/../x", "'..'", nullptr, 0, "m"},
      {"too long for a socket address", false, nullptr, std::string(120, 'x'), "too long", nullptr,
       0, nullptr},
  };
  for (const Situation& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsRoot && ::geteuid() != 0) {
      std::cout << "[ SKIPPED  ] needs root to chown: " << c.name << "\n";
      continue;
    }
    const std::string base = makeTemp();
    ASSERT_FALSE(base.empty());
    if (c.build) c.build(base);
    plat::setRunDir("/unchanged");
    std::string error;
    const bool ok = plat::runDirPrepare(base + "/" + c.runDir, &error);
    if (c.refusal == nullptr) {
      EXPECT_TRUE(ok) << error;
      EXPECT_EQ(plat::runDir(), base + "/" + c.resolvedTo);
      if (c.mode != 0) {
        EXPECT_EQ(modeOf(plat::runDir()) & 07777, c.mode);
      }
    } else {
      EXPECT_FALSE(ok);
      EXPECT_NE(error.find(c.refusal), std::string::npos) << error;
      EXPECT_EQ(plat::runDir(), "/unchanged") << "a refused directory is not used";
    }
    if (c.notCreated) {
      EXPECT_FALSE(fs::exists(base + "/" + c.notCreated));
    }
    fs::remove_all(base);
  }
  expectOutsideUntouched();
}

// The route bus through the calls the daemon makes: zor_bind creates or checks rtbus/, binds
// the socket and writes its groups listing.
using RouteBusDirTest = RunDirFixture;

TEST_F(RouteBusDirTest, HostileBusDirectoriesAndNamesAreRefused) {
  struct BusCase {
    const char* name;
    bool needsRoot;
    std::function<void(const std::string& bus)> build;
    const char* refusal;  // in the log line of the refused bind; nullptr when it binds
  };
  auto bus0700 = [](const std::string& bus) {
    fs::create_directory(bus);
    ::chmod(bus.c_str(), 0700);
  };
  const BusCase cases[] = {
      {"missing: created private", false, nullptr, nullptr},
      {"a stale socket of ours is replaced", false,
       [&](const std::string& bus) {
         bus0700(bus);
         staleSocket(bus + "/route.sock");
       },
       nullptr},
      {"linked to a directory outside", false,
       [&](const std::string& bus) { fs::create_directory_symlink(outside, bus); },
       "rtbus is a symbolic link, not a directory"},
      {"a regular file", false, [](const std::string& bus) { std::ofstream(bus) << "x"; },
       "rtbus is a regular file, not a directory"},
      {"group-writable", false,
       [](const std::string& bus) {
         fs::create_directory(bus);
         ::chmod(bus.c_str(), 0770);
       },
       "rtbus is writable by group or others (mode 0770)"},
      {"another user's", true,
       [](const std::string& bus) {
         fs::create_directory(bus);
         ::chmod(bus.c_str(), 0700);
         ASSERT_EQ(::chown(bus.c_str(), kOtherUid, kOtherUid), 0);
       },
       "rtbus belongs to uid 65534, not to us"},
      {"a link where the groups listing goes", false,
       [&](const std::string& bus) {
         bus0700(bus);
         fs::create_symlink(victim, bus + "/route.groups");
       },
       "route.groups is held by a symbolic link, not a regular file of ours"},
      {"a link where the socket goes", false,
       [&](const std::string& bus) {
         bus0700(bus);
         fs::create_symlink(victim, bus + "/route.sock");
       },
       "route.sock is held by a symbolic link, not a socket of ours"},
      {"a regular file where the socket goes", false,
       [&](const std::string& bus) {
         bus0700(bus);
         std::ofstream(bus + "/route.sock") << "x";
       },
       "route.sock is held by a regular file"},
      {"another user's socket where ours goes", true,
       [&](const std::string& bus) {
         bus0700(bus);
         staleSocket(bus + "/route.sock");
         ASSERT_EQ(::lchown((bus + "/route.sock").c_str(), kOtherUid, kOtherUid), 0);
       },
       "route.sock is held by a socket of uid 65534"},
  };
  for (const BusCase& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsRoot && ::geteuid() != 0) {
      std::cout << "[ SKIPPED  ] needs root to chown: " << c.name << "\n";
      continue;
    }
    const std::string run = makeTemp();
    ASSERT_FALSE(run.empty());
    plat::setRunDir(run);
    if (c.build) c.build(plat::busDir());
    const uint64_t seq = plat::logLastSeq();
    const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
    uint8_t addr[12] = {};
    be::store16(addr, 0, ZOR_AF_ROUTE);
    const int bound = zor_bind(fd, addr, sizeof addr);
    if (c.refusal == nullptr) {
      EXPECT_EQ(bound, 0) << logSince(seq);
      EXPECT_EQ(modeOf(plat::busDir()) & 0777, 0700u);
      EXPECT_EQ(modeOf(plat::busDir() + "/route.sock") & 0777, 0600u);
      uint8_t group[4];
      be::store32(group, 7);
      EXPECT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, group, 4), 0);
      EXPECT_EQ(slurp(plat::busDir() + "/route.groups"), "7\n");
      const uint8_t msg[24] = {0, 0, 0, 24};
      EXPECT_EQ(plat::busSend(7, msg), 1) << "the socket in place is the one we read";
    } else {
      EXPECT_EQ(bound, -1);
      EXPECT_NE(logSince(seq).find(c.refusal), std::string::npos) << logSince(seq);
      EXPECT_FALSE(fs::exists(plat::busDir() + "/route.groups") &&
                   !fs::is_symlink(plat::busDir() + "/route.groups"))
          << "no listing written";
    }
    zor_close(fd);
    fs::remove_all(run);
  }
  expectOutsideUntouched();
}

TEST_F(RouteBusDirTest, SendingSkipsABusThatIsNotOurs) {
  const std::string run = makeTemp();
  plat::setRunDir(run);
  const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
  uint8_t addr[12] = {};
  be::store16(addr, 0, ZOR_AF_ROUTE);
  ASSERT_EQ(zor_bind(fd, addr, sizeof addr), 0);
  uint8_t group[4];
  be::store32(group, 7);
  ASSERT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, group, 4), 0);
  const uint8_t msg[24] = {0, 0, 0, 24};
  ASSERT_EQ(plat::busSend(7, msg), 1);
  ::chmod(plat::busDir().c_str(), 0777);
  EXPECT_EQ(plat::busSend(7, msg), 0) << "others could have planted listeners";
  ::chmod(plat::busDir().c_str(), 0700);
  zor_close(fd);
  fs::remove_all(run);
}

// The command server's listener: whatever holds its name or its old temporary name.
using CmdListenerTest = RunDirFixture;

int32_t nothing(uintptr_t, uintptr_t, uintptr_t) {
  return 0;
}

TEST_F(CmdListenerTest, OnlyAFreeNameOrAStaleSocketOfOursIsServed) {
  const IcmFuncEntry table[] = {{6, nothing}};
  struct ListenCase {
    const char* name;
    bool needsRoot;
    std::function<void(const std::string& sock)> build;
    const char* refusal;  // why it is not served; nullptr when served
  };
  const ListenCase cases[] = {
      {"a free name", false, nullptr, nullptr},
      {"a stale socket of ours", false, [](const std::string& s) { staleSocket(s); }, nullptr},
      {"a directory planted under a predictable temporary name", false,
       [](const std::string& s) { fs::create_directory(s + ".new"); }, nullptr},
      {"a directory", false, [](const std::string& s) { fs::create_directory(s); },
       "aclcmd.socket is held by a directory, not a socket of ours"},
      {"a link to a file outside", false,
       [&](const std::string& s) { fs::create_symlink(victim, s); },
       "aclcmd.socket is held by a symbolic link"},
      {"another user's socket", true,
       [](const std::string& s) {
         staleSocket(s);
         ASSERT_EQ(::lchown(s.c_str(), kOtherUid, kOtherUid), 0);
       },
       "aclcmd.socket is held by a socket of uid 65534"},
  };
  for (const ListenCase& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsRoot && ::geteuid() != 0) {
      std::cout << "[ SKIPPED  ] needs root to chown: " << c.name << "\n";
      continue;
    }
    const std::string run = makeTemp();
    ASSERT_FALSE(run.empty());
    plat::setRunDir(run);
    const std::string sock = plat::mapRunPath("/tmp/aclcmd.socket");
    if (c.build) c.build(sock);
    const int started = icmProcTcpInit("listentest", "/tmp/aclcmd.socket", table, 1);
    std::string why;
    const bool serving = icmProcTcpServing("/tmp/aclcmd.socket", &why);
    if (c.refusal == nullptr) {
      EXPECT_EQ(started, 0);
      EXPECT_TRUE(serving) << why;
      EXPECT_TRUE(connects(sock));
      EXPECT_EQ(modeOf(sock) & 0777, 0600u);
    } else {
      EXPECT_EQ(started, -1);
      EXPECT_FALSE(serving);
      EXPECT_NE(why.find(c.refusal), std::string::npos) << why;
    }
    plat::stopAllTasksForTest();
    EXPECT_FALSE(icmProcTcpServing("/tmp/aclcmd.socket", &why))
        << "a stopped server is not serving";
    plat::resetForTest();
    fs::remove_all(run);
  }
  expectOutsideUntouched();
}

}  // namespace
