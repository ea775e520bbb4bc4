#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "platform/logging.h"
#include "platform/options.h"
#include "platform/sil.h"

namespace {

std::string writeTemp(const std::string& text) {
  char path[] = "/tmp/acl-opt-XXXXXX";
  const int fd = mkstemp(path);
  std::FILE* f = fdopen(fd, "w");
  std::fputs(text.c_str(), f);
  std::fclose(f);
  return path;
}

class OptionsTest : public ::testing::Test {
 protected:
  void TearDown() override {
    plat::optClear();
    for (auto& p : files) std::remove(p.c_str());
  }
  std::string file(const std::string& text) {
    files.push_back(writeTemp(text));
    return files.back();
  }
  std::vector<std::string> files;
};

TEST_F(OptionsTest, FileLinesCommentsBlanksAndOverrides) {
  std::string err;
  ASSERT_TRUE(plat::optLoadFile(file("# limits\n\n  acl.maxlstnum = 100  \nacl.enable=False\n"
                                     "acl.name = a = b\nempty =\n"),
                                &err))
      << err;
  ASSERT_TRUE(plat::optParseOverride("acl.maxlstnum=7", &err));
  // (key, answer: the text's size with its NUL, 0 when absent, text); "empty" is present with no
  // text.
  for (auto [key, ret, text] : {std::tuple{"acl.maxlstnum", 2, "7"},
                                {"acl.enable", 6, "False"},
                                {"acl.name", 6, "a = b"},
                                {"empty", 1, ""},
                                {"acl.absent", 0, ""}}) {
    char buf[128] = {};
    EXPECT_EQ(silOptRead(0, key, 0, 0, 1, buf, 127), ret) << key;
    EXPECT_STREQ(buf, text) << key;
  }
}

TEST_F(OptionsTest, ValueIsTruncatedToTheCallersRoom) {
  plat::optSet("k", std::string(300, 'x'));
  char buf[128];
  std::memset(buf, 0x55, sizeof buf);
  EXPECT_EQ(silOptRead(0, "k", 0, 0, 1, buf, 127), 128);
  EXPECT_EQ(std::string(buf).size(), 127u);
}

TEST_F(OptionsTest, MalformedFileIsRefusedWholeNamingTheLine) {
  plat::optSet("keep", "1");
  std::string err;
  const std::string path = file("a = 1\nthis line has no equals\n");
  EXPECT_FALSE(plat::optLoadFile(path, &err));
  EXPECT_NE(err.find(path + ":2:"), std::string::npos) << err;
  EXPECT_FALSE(plat::optGet("a").has_value()) << "nothing of a refused file is kept";
  EXPECT_EQ(plat::optGet("keep"), "1");
  EXPECT_FALSE(plat::optParseOverride("=5", &err));
  // A key with a NUL or control byte could never be asked for by name: the line is refused.
  EXPECT_FALSE(plat::optLoadFile(file(std::string("acl.max\0lstnum = 5\n", 19)), &err));
  EXPECT_FALSE(plat::optLoadFile(file("acl.\x01enable = false\n"), &err));
  EXPECT_FALSE(plat::optParseOverride(std::string("a\0b=1", 5), &err));
}

TEST_F(OptionsTest, TextIsSplitIntoLinesAsAFileIs) {
  struct Case {
    const char* name;
    std::string text;
    std::string b;      // the value of b when loaded
    const char* error;  // the start of the error after the name, or nullptr when loaded
  };
  const Case cases[] = {
      {"last line without its newline", "a = 1\nb = 2", "2", nullptr},
      {"CRLF line ends", "a = 1\r\nb = 2\r\n", "2", nullptr},
      {"a NUL inside a value", std::string("a = 1\nb = x\0y\n", 14), std::string("x\0y", 3),
       nullptr},
      {"blank and comment lines are counted", "\n# c\na = 1\nnope\n", "", ":4: expected"},
      {"a bad last line without its newline", "a = 1\nnope", "", ":2: expected"},
  };
  for (const Case& c : cases) {
    plat::optClear();
    std::string err;
    EXPECT_EQ(plat::optLoadText(c.text, "t.conf", &err), c.error == nullptr) << c.name << err;
    if (c.error != nullptr) {
      EXPECT_EQ(err.rfind(std::string("t.conf") + c.error, 0), 0u) << c.name << ": " << err;
      EXPECT_TRUE(plat::optAll().empty()) << c.name;
    } else {
      EXPECT_EQ(plat::optGet("a"), "1") << c.name;
      EXPECT_EQ(plat::optGet("b"), c.b) << c.name;
    }
  }
}

TEST(LoggingTest, EachCallIsOneLineInTheRingWithoutLineEnd) {
  plat::logRingClear();
  const uint64_t before = plat::logLastSeq();
  loggingDebugOutput(0x3EA0003, 7, 0, "ACL rule [%s] info=[%d].\r\n", "add", 5);
  loggingLogOutput(0x3EA000C, 5, 0, "plain");
  auto lines = plat::logRecent(before);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(std::make_tuple(lines[0].tag, lines[0].priority, lines[0].text, lines[0].operational,
                            lines[1].operational),
            std::make_tuple(0x3EA0003u, 7u, "ACL rule [add] info=[5].", false, true));
  EXPECT_EQ(plat::logRecent(lines[1].seq).size(), 0u);
}

TEST(LoggingTest, RingKeepsOnlyTheMostRecentLines) {
  plat::logRingClear();
  for (size_t i = 0; i < plat::kLogRingCapacity + 10; ++i) {
    loggingDebugOutput(1, 7, 0, "line %zu", i);
  }
  auto lines = plat::logRecent();
  ASSERT_EQ(lines.size(), plat::kLogRingCapacity);
  EXPECT_EQ(lines.front().text, "line 10");
}

TEST(LoggingTest, FileSinkWritesTagPriorityAndText) {
  const std::string path = writeTemp("");
  ASSERT_TRUE(plat::logSetSink(plat::LogSink::File, path));
  loggingDebugOutput(0x3EA0005, 7, 0, "hello %d", 1);
  plat::logSetSink(plat::LogSink::Stderr);
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  EXPECT_NE(line.find("0x03ea0005"), std::string::npos) << line;
  EXPECT_NE(line.find("hello 1"), std::string::npos) << line;
  EXPECT_FALSE(plat::logSetSink(plat::LogSink::File, "/nonexistent/dir/log"));
  std::remove(path.c_str());
}

}  // namespace
