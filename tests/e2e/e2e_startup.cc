// The acl process as an operator starts it: command-line errors, the idle process when the ACL
// service is off, and the sockets a started daemon serves.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/acl_e2e.h"
#include "support/acl_process.h"
#include "support/run_dir.h"

namespace {

// Runs acl with args (words without spaces), killed if it still runs after `seconds`; its exit
// status (137 when killed) and what it printed on both streams.
int runAcl(const std::vector<std::string>& args, std::string* out, int seconds = 5) {
  std::string cmd = "timeout -s KILL " + std::to_string(seconds) + " " +
                    std::string(ACL_BINARY_DIR) + "/src/main/acl";
  for (const auto& a : args) cmd += " " + a;
  return runCapturing(cmd, out);
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
      // clang-format off
      {{"--no-such-flag"}, 2, {"acl: "}}, {{"--opt", "novalue"}, 2, {"acl: "}},
      {{"--options", "/nonexistent/acl.conf"}, 2, {"acl: "}}, {{"--run-dir"}, 2, {"acl: "}},
      {{"--log-file", "/nonexistent/dir/acl.log"}, 2, {"acl: "}},
      {{"--options", conf}, 2, {"acl: ", conf + ":2:"}}, {{"--version"}, 0, {"ACL_V7.00.02.00"}},
      {{"--help"}, 0, {"--options", "--opt", "--run-dir", "--device", "--log-file", "--syslog"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    std::string err;
    EXPECT_EQ(runAcl(c.args, &err), c.status) << c.args[0];
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
    std::string out;
    EXPECT_EQ(runAcl(args, &out, 1), 137) << "not alive after a second: " << out;
    EXPECT_FALSE(exists(run + "/aclcmd.socket"));
    if (c.says[0] == '\0') {
      EXPECT_FALSE(exists(run + "/rtbus/acl.sock")) << "switched off";
    }
    EXPECT_NE(out.find(c.says), std::string::npos) << out;
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
  std::string err;
  EXPECT_EQ(runAcl({"--run-dir", run}, &err), 2);
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
