// The process shell's registry and socket: argument parsing and refusals, and a socket that only
// its owner reaches and that hangs up on a line it cannot hold.
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "client/shell_client.h"
#include "platform/proc.h"
#include "platform/proc_shell.h"
#include "platform/sil.h"
#include "support/run_dir.h"

namespace {

// Prints its arguments and the bytes of its data argument; answers the number of arguments.
int32_t echo(const plat::ShellArgs& a) {
  plat::shellPrintf("%ld %ld %ld|", static_cast<long>(a.word[0]), static_cast<long>(a.word[1]),
                    static_cast<long>(a.word[5]));
  for (uint8_t b : a.data) plat::shellPrintf("%02x", b);
  plat::shellPrintf("\r\n");
  return static_cast<int32_t>(a.count);
}

class ProcShell : public ::testing::Test {
 protected:
  void SetUp() override {
    plat::shellClearForTest();
    ASSERT_TRUE(plat::shellRegister("echo", {echo, 6, -1, "(a, b, c, d, e, f)"}));
    ASSERT_TRUE(plat::shellRegister("dump", {echo, 2, 1, "(n, hex)"}));
  }
  void TearDown() override {
    plat::stopAllTasksForTest();
    plat::shellClearForTest();
  }
};

// Unknown commands, too many arguments and the listing are answered end to end.
TEST_F(ProcShell, ParsesNumbersAndHexAndRefusesWhatTheCommandCannotTake) {
  const struct {
    const char* line;
    const char* head;  // status and result
    std::string text;
  } cases[] = {
      {"echo 1 0x10 0 0 0 4294967295", "ok 6", "1 16 4294967295|\r\n"},
      {"  echo\t7  ", "ok 1", "7 0 0|\r\n"},
      {"dump 3 0x00ff10", "ok 2", "3 0 0|00ff10\r\n"},
      {"echo 4294967296", "usage 0",
       "argument 1 of echo is not a decimal or 0x number of 32 bits: '4294967296'"},
      {"echo -1", "usage 0", "argument 1 of echo is not a decimal or 0x number of 32 bits: '-1'"},
      {"echo 0x", "usage 0", "argument 1 of echo is not a decimal or 0x number of 32 bits: '0x'"},
      {"dump 1 abc", "usage 0", "argument 2 of dump is hex bytes, not 'abc'"},
      {"dump 1 zz", "usage 0", "argument 2 of dump is hex bytes, not 'zz'"},
      {"", "usage 0", "no command given"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(plat::shellRunLine(c.line),
              std::string(c.head) + " " + std::to_string(c.text.size()) + "\n" + c.text)
        << c.line;
  }
  // A name is taken once, and a command cannot claim more arguments than the shell passes.
  EXPECT_FALSE(plat::shellRegister("echo", {echo, 0, -1, ""}));
  EXPECT_FALSE(plat::shellRegister("wide", {echo, 7, -1, ""}));
  EXPECT_FALSE(plat::shellRegister("two words", {echo, 0, -1, ""}));
}

TEST_F(ProcShell, SocketIsTheOwnersAndHangsUpOnALineTooLong) {
  test::TempRunDir dir;
  plat::setRunDir(dir.path());
  ASSERT_EQ(plat::shellServe(), 0);
  const std::string path = plat::shellSocketPath();
  ASSERT_EQ(path, dir.path() + "/aclshell.socket");
  struct stat st {};
  ASSERT_EQ(::lstat(path.c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  // A line past the limit is answered once, then the connection is closed.
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(fd, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
  ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  const std::string longLine(plat::kShellMaxLine + 100, 'a');
  ASSERT_EQ(::send(fd, longLine.data(), longLine.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(longLine.size()));
  std::string got;
  char buf[256];
  for (;;) {
    pollfd p{fd, POLLIN, 0};
    ASSERT_GT(::poll(&p, 1, 5000), 0) << got;
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) break;
    got.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  EXPECT_EQ(got, "error 0 21\nrequest line too long");
  // The server goes on serving others.
  aclclient::ShellReply reply;
  std::string err;
  ASSERT_TRUE(aclclient::shellRequest(path, {"echo"}, &reply, &err)) << err;
  EXPECT_EQ(reply.status, "ok");
  plat::setRunDir("/tmp");
}

}  // namespace
