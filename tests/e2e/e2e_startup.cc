// The acl process as an operator starts it: command-line errors, the idle process when the ACL
// service is off, and the sockets a started daemon serves.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/acl_e2e.h"
#include "support/acl_process.h"
#include "support/run_dir.h"

extern char** environ;

namespace {

const std::string kAcl = std::string(ACL_BINARY_DIR) + "/src/main/acl";

struct Spawned {
  pid_t pid = -1;
  std::string errPath;
};

// Starts acl with args, its stderr in a file of dir.
Spawned spawnAcl(const std::vector<std::string>& args, const std::string& dir) {
  Spawned s;
  s.errPath = dir + "/stderr.txt";
  std::vector<std::string> all = {kAcl};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : all) argv.push_back(a.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_addopen(&fa, 2, s.errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&fa, 1, s.errPath.c_str(), O_WRONLY | O_APPEND, 0600);
  EXPECT_EQ(posix_spawn(&s.pid, kAcl.c_str(), &fa, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&fa);
  return s;
}

// The exit status, or -1 when the process is still running after ms.
int waitExit(pid_t pid, int ms) {
  for (int i = 0; i < ms / 10; ++i) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return -1;
}

bool exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

class StartupE2e : public ::testing::Test {
 protected:
  test::TempRunDir dir;
};

// Each case: the arguments, the exit status, and what the one line (or the help) must hold.
TEST_F(StartupE2e, BadArgumentsExitTwoWithOneLineAndVersionAndHelpExitZero) {
  const std::string conf = dir.path() + "/acl.conf";
  std::ofstream(conf) << "acl.maxlstnum = 10\nnot an option\n";
  const struct {
    std::vector<std::string> args;
    int status;
    std::vector<std::string> says;
  } cases[] = {
      {{"--no-such-flag"}, 2, {"acl: "}},
      {{"--opt", "novalue"}, 2, {"acl: "}},
      {{"--options", "/nonexistent/acl.conf"}, 2, {"acl: "}},
      {{"--log-file", "/nonexistent/dir/acl.log"}, 2, {"acl: "}},
      {{"--run-dir"}, 2, {"acl: "}},
      {{"--options", conf}, 2, {"acl: ", conf + ":2:"}},
      {{"--version"}, 0, {"ACL_V7.00.02.00"}},
      {{"--help"}, 0, {"--options", "--opt", "--run-dir", "--device", "--log-file", "--syslog"}},
  };
  for (const auto& c : cases) {
    Spawned s = spawnAcl(c.args, dir.path());
    EXPECT_EQ(waitExit(s.pid, 5000), c.status) << c.args[0];
    const std::string err = slurp(s.errPath);
    for (const auto& w : c.says) EXPECT_NE(err.find(w), std::string::npos) << w << " in " << err;
    if (c.status == 2) {
      EXPECT_EQ(err.rfind("acl: ", 0), 0u) << err;
      EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    }
  }
}

// Switched off, or unable to make its pools (a bind-list pool past 32 bits of entries), the
// daemon stays alive and idle without a command socket.
TEST_F(StartupE2e, SwitchedOffOrFailedStartupStaysAliveIdle) {
  const struct {
    std::vector<std::string> opts;
    const char* says;
  } cases[] = {
      {{"acl.enable=False"}, ""},
      {{"acl.maxifnum=100000", "acl.maxrulenum=100000"}, "not started"},
  };
  int n = 0;
  for (const auto& c : cases) {
    const std::string run = dir.path() + "/run" + std::to_string(n++);
    std::vector<std::string> args = {"--run-dir", run};
    for (const auto& o : c.opts) args.insert(args.end(), {"--opt", o});
    Spawned s = spawnAcl(args, dir.path());
    EXPECT_EQ(waitExit(s.pid, 1000), -1) << slurp(s.errPath);
    EXPECT_FALSE(exists(run + "/aclcmd.socket"));
    if (c.says[0] == '\0') {
      EXPECT_FALSE(exists(run + "/rtbus/acl.sock")) << "switched off";
    }
    EXPECT_NE(slurp(s.errPath).find(c.says), std::string::npos) << slurp(s.errPath);
    kill(s.pid, SIGKILL);
    waitpid(s.pid, nullptr, 0);
  }
}

// Another local user prepared the route bus in the run directory (here: linked it outside; the
// run-directory unit tests name every other refusal): acl refuses before serving anything, with one
// line naming the problem, and the file the planted link points at stays as it was.
TEST_F(StartupE2e, HostileRouteBusIsRefusedWithOneLine) {
  const std::string outside = dir.path() + "/outside", run = dir.path() + "/run";
  ASSERT_EQ(::mkdir(outside.c_str(), 0700), 0);
  ASSERT_EQ(::mkdir(run.c_str(), 0700), 0);
  std::ofstream(outside + "/acl.groups") << "keep\n";
  ASSERT_EQ(::symlink(outside.c_str(), (run + "/rtbus").c_str()), 0);
  Spawned s = spawnAcl({"--run-dir", run}, dir.path());
  EXPECT_EQ(waitExit(s.pid, 5000), 2);
  const std::string err = slurp(s.errPath);
  EXPECT_EQ(err.rfind("acl: unsafe run directory: " + run + "/rtbus is a symbolic link", 0), 0u)
      << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  EXPECT_FALSE(exists(run + "/aclcmd.socket"));
  EXPECT_FALSE(exists(run + "/acldev.socket"));
  EXPECT_EQ(slurp(outside + "/acl.groups"), "keep\n");
  EXPECT_FALSE(exists(outside + "/acl.sock"));
}

TEST(StartupServingE2e, StartedDaemonServesItsSocketsInTheRunDirectory) {
  auto acl = AclProcess::start();
  ASSERT_NE(acl, nullptr);
  EXPECT_TRUE(exists(acl->runDir() + "/aclcmd.socket"));
  EXPECT_TRUE(exists(acl->runDir() + "/rtbus/acl.sock"));
  const std::string groups = slurp(acl->runDir() + "/rtbus/acl.groups");
  for (const char* g : {"1\n", "3\n", "33\n", "34\n", "35\n", "77\n", "85\n", "100\n", "105\n"}) {
    EXPECT_NE(groups.find(g), std::string::npos) << g;
  }
  struct stat st {};
  ASSERT_EQ(stat((acl->runDir() + "/aclcmd.socket").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 077, 0u) << "only the owner may connect";
  EXPECT_TRUE(acl->alive());
}

}  // namespace
