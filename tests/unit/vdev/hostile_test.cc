// Input the device must refuse with an answer instead of an exception: request lines, device
// files that once stopped the process, clients of the control socket that send garbage or stall,
// and a journal flooded with large entries.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "client/dev_client.h"
#include "platform/hwil.h"
#include "platform/logging.h"
#include "platform/proc.h"
#include "platform/sil.h"
#include "platform/vdev/control.h"
#include "platform/vdev/json_text.h"
#include "platform/vdev/model.h"
#include "platform/vdev/vdev.h"
#include "support/run_dir.h"

namespace {

using nlohmann::json;

std::string nested(size_t depth, const std::string& open = "[", const std::string& close = "]") {
  std::string s;
  for (size_t i = 0; i < depth; ++i) s += open;
  for (size_t i = 0; i < depth; ++i) s += close;
  return s;
}

class HostileInput : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override {
    plat::stopAllTasksForTest();
    vdev::resetForTest();
  }
};

TEST_F(HostileInput, EveryBadLineGetsOneErrorLineAndTheDeviceStays) {
  struct Case {
    const char* name;
    std::string line;
    const char* error;  // a part of the error text
  };
  const std::string deepModel = R"({"op":"model.load","model":)" + nested(70, "{\"a\":", "}") + "}";
  const Case cases[] = {
      {"invalid UTF-8 outside a string", "\xff\xfe{\"op\":\"show\"}", "not JSON"},
      {"invalid UTF-8 inside a string", "{\"op\":\"sh\xc3\x28ow\"}", "not JSON"},
      {"number overflow", R"({"op":"show","x":1e400})", "number overflow"},
      {"100,000 levels of arrays", nested(100000), "nesting deeper than 64 levels"},
      {"100,000 unclosed levels", std::string(100000, '['), "nesting deeper than 64 levels"},
      {"deep model for model.load", deepModel, "nesting deeper than 64 levels"},
      {"deepest accepted nesting", nested(vdev::kMaxJsonDepth), "a request is a JSON object"},
      {"one level past it", nested(vdev::kMaxJsonDepth + 1), "nesting deeper than 64 levels"},
      {"wrong type for a text field", R"({"op":"clear","what":5})", "bad request"},
      {"fraction where a number is due", R"({"op":"relays","since":1.5})", "non-negative"},
      {"op with a NUL and the last code point", "{\"op\":\"\\u0000\\udbff\\udfff\"}", "unknown op"},
  };
  for (const Case& c : cases) {
    const std::string reply = vdev::handleRequestLine(c.line);
    // The reply is strict JSON (parse throws otherwise) on one line.
    EXPECT_EQ(reply.find('\n'), std::string::npos) << c.name;
    const json r = json::parse(reply);
    EXPECT_EQ(r["ok"], false) << c.name;
    EXPECT_NE(r.value("error", "").find(c.error), std::string::npos) << c.name << ": " << reply;
  }
  EXPECT_EQ(zorSelfSlotIndex(), 1u);
  EXPECT_TRUE(json::parse(vdev::handleRequestLine(R"({"op":"show"})"))["ok"]);
}

TEST_F(HostileInput, DeviceFilesThatCannotBeReadAsJsonAreRefusedWithTheirPlace) {
  test::TempRunDir dir;
  struct Case {
    std::string text;
    const char* error;
  };
  const Case cases[] = {
      {nested(100000), ": line 1, column 65: nesting deeper than 64 levels"},
      {"{\n \"self\": 1e400}", "number overflow"},
      {"{\n\n \"self\": \"\xff\"}", ": line 3, column"},
      {"{\n  \"self\": {\"system\": 1,\n  \"slot\" 1}\n}\n", ": line 3, column 10: syntax error"},
  };
  for (const Case& c : cases) {
    const std::string path = dir.path() + "/device.json";
    std::ofstream(path) << c.text;
    std::string error;
    EXPECT_FALSE(vdev::load(path, &error));
    EXPECT_EQ(error.rfind(path + ": ", 0), 0u) << error;
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    EXPECT_EQ(error.find('\xff'), std::string::npos) << "input bytes quoted as they came";
  }
}

// The control socket: garbage gets an error line, a client stopped halfway through a line holds
// up nobody and is answered once its line is complete, unfinished lines and idle connections meet
// their deadlines, and the reset stops the server.
TEST_F(HostileInput, TheSocketAnswersGarbageAndSlowClientsHoldUpNobody) {
  test::TempRunDir dir;
  ASSERT_EQ(vdev::serve(), 0);
  const std::string path = dir.path() + "/acldev.socket";
  EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::others_all,
            std::filesystem::perms::none);
  auto open = [&](const char* send) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::strcpy(a.sun_path, path.c_str());
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    timeval tv{5, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    EXPECT_EQ(::write(fd, send, std::strlen(send)), ssize_t(std::strlen(send)));
    return fd;
  };
  auto readLine = [](int fd) {
    std::string line;
    char c;
    while (::read(fd, &c, 1) == 1 && c != '\n') line.push_back(c);
    return line;
  };
  const int garbage = open("\x01\x02 not json\n{\"op\": \"sh");
  EXPECT_FALSE(json::parse(readLine(garbage))["ok"]);
  const int idle = open(""), half = open("{\"op\":");
  loggingLogOutput(0x3EA0000, 3, 0, "vdev control test line %d\r\n", 42);
  json reply;
  std::string err;
  ASSERT_TRUE(aclclient::devRequest(path, {{"op", "log"}}, &reply, &err)) << err;
  bool seen = false;
  for (auto& l : reply["lines"]) seen = seen || l["text"] == "vdev control test line 42";
  EXPECT_TRUE(seen) << reply.dump();
  ASSERT_EQ(::write(garbage, "ow\"}\n", 5), 5);
  EXPECT_TRUE(json::parse(readLine(garbage))["ok"]);
  ::close(garbage);

  silUpTimeAdvanceForTest(6 * 1000);  // past the line deadline, short of the idle one
  char c;
  EXPECT_EQ(::read(half, &c, 1), 0) << "the unfinished line was kept";
  silUpTimeAdvanceForTest(30 * 1000);
  EXPECT_EQ(::read(idle, &c, 1), 0) << "the idle connection was kept";
  ::close(idle);
  ::close(half);
  EXPECT_TRUE(aclclient::devRequest(path, {{"op", "show"}}, &reply, &err)) << err;
  vdev::resetForTest();
  EXPECT_FALSE(aclclient::devRequest(path, {{"op", "show"}}, &reply, &err, 500));
}

vdev::Relay bigRelay(uint64_t seq) {
  vdev::Relay r;
  r.seq = seq;
  r.options.assign(64, 0);
  r.data.assign(4096, 0xAB);
  return r;
}

TEST(JournalLog, KeepsItsNewestEntriesWithinItsByteBound) {
  vdev::JournalLog<vdev::Relay> log;
  const size_t flood = 2 * vdev::kJournalBytes / vdev::entryBytes(bigRelay(0));
  for (uint64_t seq = 1; seq <= flood; ++seq) {
    log.push(bigRelay(seq));
    ASSERT_LE(log.bytes(), vdev::kJournalBytes) << "after " << seq;
  }
  EXPECT_GE(log.bytes(), vdev::kJournalBytes / 2) << "far more dropped than needed";
  EXPECT_EQ(log.back().seq, flood);
  // What is left is one unbroken run ending at the newest.
  EXPECT_EQ(log[0].seq, flood - log.size() + 1);
  size_t total = 0;
  for (const auto& r : log) total += vdev::entryBytes(r);
  EXPECT_EQ(total, log.bytes());
  log.clear();
  EXPECT_EQ(log.bytes(), 0u);
}

}  // namespace
