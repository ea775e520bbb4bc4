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
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

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

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

class StartupE2e : public ::testing::Test {
 protected:
  test::TempRunDir dir;
};

TEST_F(StartupE2e, BadArgumentsExitTwoWithOneLine) {
  const std::vector<std::vector<std::string>> bad = {
      {"--no-such-flag"},
      {"--opt", "novalue"},
      {"--options", "/nonexistent/acl.conf"},
      {"--log-file", "/nonexistent/dir/acl.log"},
      {"--run-dir"},
  };
  for (const auto& args : bad) {
    Spawned s = spawnAcl(args, dir.path());
    EXPECT_EQ(waitExit(s.pid, 5000), 2) << args[0];
    const std::string err = slurp(s.errPath);
    EXPECT_EQ(err.rfind("acl: ", 0), 0u) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  }
}

TEST_F(StartupE2e, MalformedOptionsFileNamesTheLine) {
  const std::string conf = dir.path() + "/acl.conf";
  std::ofstream(conf) << "acl.maxlstnum = 10\nnot an option\n";
  Spawned s = spawnAcl({"--options", conf}, dir.path());
  EXPECT_EQ(waitExit(s.pid, 5000), 2);
  EXPECT_NE(slurp(s.errPath).find(conf + ":2:"), std::string::npos) << slurp(s.errPath);
}

TEST_F(StartupE2e, VersionAndHelp) {
  Spawned v = spawnAcl({"--version"}, dir.path());
  EXPECT_EQ(waitExit(v.pid, 5000), 0);
  EXPECT_NE(slurp(v.errPath).find("ACL_V7.00.02.00"), std::string::npos);
  Spawned h = spawnAcl({"--help"}, dir.path());
  EXPECT_EQ(waitExit(h.pid, 5000), 0);
  const std::string help = slurp(h.errPath);
  for (const char* opt :
       {"--options", "--opt", "--run-dir", "--device", "--log-file", "--syslog"}) {
    EXPECT_NE(help.find(opt), std::string::npos) << opt;
  }
}

TEST_F(StartupE2e, ServiceSwitchedOffStaysAliveWithoutCommandSocket) {
  const std::string run = dir.path() + "/run";
  Spawned s = spawnAcl({"--run-dir", run, "--opt", "acl.enable=False"}, dir.path());
  EXPECT_EQ(waitExit(s.pid, 1000), -1) << slurp(s.errPath);
  EXPECT_FALSE(exists(run + "/aclcmd.socket"));
  EXPECT_FALSE(exists(run + "/rtbus/acl.sock"));
  kill(s.pid, SIGKILL);
  waitpid(s.pid, nullptr, 0);
}

TEST_F(StartupE2e, FailedStartupStaysAliveIdle) {
  const std::string run = dir.path() + "/run";
  // A bind-list pool past 32 bits of entries cannot be made.
  Spawned s =
      spawnAcl({"--run-dir", run, "--opt", "acl.maxifnum=100000", "--opt", "acl.maxrulenum=100000"},
               dir.path());
  EXPECT_EQ(waitExit(s.pid, 1000), -1);
  EXPECT_FALSE(exists(run + "/aclcmd.socket"));
  EXPECT_NE(slurp(s.errPath).find("not started"), std::string::npos) << slurp(s.errPath);
  kill(s.pid, SIGKILL);
  waitpid(s.pid, nullptr, 0);
}

// Another local user prepared the route bus in the run directory: acl refuses before serving
// anything, with one line naming the problem, and the file the planted link points at stays as
// it was.
TEST_F(StartupE2e, HostileRouteBusIsRefusedWithOneLine) {
  struct Hostile {
    const char* name;
    bool needsRoot;  // makes another user's directory with chown
    void (*build)(const std::string& bus, const std::string& outside);
    const char* problem;
  };
  const Hostile cases[] = {
      {"linked to a directory outside", false,
       [](const std::string& bus, const std::string& outside) {
         ASSERT_EQ(::symlink(outside.c_str(), bus.c_str()), 0);
       },
       "rtbus is a symbolic link"},
      {"another user's", true,
       [](const std::string& bus, const std::string&) {
         ASSERT_EQ(::mkdir(bus.c_str(), 0755), 0);
         ASSERT_EQ(::chown(bus.c_str(), 65534, 65534), 0);
       },
       "rtbus belongs to uid 65534"},
  };
  const std::string outside = dir.path() + "/outside";
  ASSERT_EQ(::mkdir(outside.c_str(), 0700), 0);
  std::ofstream(outside + "/acl.groups") << "keep\n";
  int n = 0;
  for (const Hostile& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.needsRoot && ::geteuid() != 0) {
      std::cout << "[ SKIPPED  ] needs root to chown: " << c.name << "\n";
      continue;
    }
    const std::string caseDir = dir.path() + "/case" + std::to_string(n++);
    const std::string run = caseDir + "/run";
    ASSERT_EQ(::mkdir(caseDir.c_str(), 0700), 0);
    ASSERT_EQ(::mkdir(run.c_str(), 0700), 0);
    c.build(run + "/rtbus", outside);
    Spawned s = spawnAcl({"--run-dir", run}, caseDir);
    EXPECT_EQ(waitExit(s.pid, 5000), 2);
    const std::string err = slurp(s.errPath);
    EXPECT_EQ(err.rfind("acl: unsafe run directory: " + run + "/" + c.problem, 0), 0u) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_FALSE(exists(run + "/aclcmd.socket"));
    EXPECT_FALSE(exists(run + "/acldev.socket"));
  }
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
