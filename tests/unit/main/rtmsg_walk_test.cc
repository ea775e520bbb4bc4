// The select wait of the event task and the attribute walk of link messages.
#include <gtest/gtest.h>

#include <vector>

#include "main/acl_rtmsg.h"
#include "main/acl_task.h"

namespace {

TEST(TaskWaitTest, NextTimerSplitsIntoSecondsAndMicroseconds) {
  const struct {
    int32_t ms;
    long sec, usec;
  } cases[] = {{-1, 5, 0},       {-3, 5, 0},        {0, 0, 0},
               {999, 0, 999000}, {2500, 2, 500000}, {60000, 60, 0}};
  for (const auto& c : cases) {
    const timeval w = aclTaskWait(c.ms);
    EXPECT_EQ(w.tv_sec, c.sec) << c.ms;
    EXPECT_EQ(w.tv_usec, c.usec) << c.ms;
  }
}

struct Attr {
  uint16_t len, type;
  size_t room;  // bytes it occupies in the message (its padded length, or less at the end)
};

// A 48-byte message head followed by the attributes, each given its room.
std::vector<uint8_t> withAttrs(const std::vector<Attr>& attrs) {
  std::vector<uint8_t> m(48, 0);
  for (const Attr& a : attrs) {
    const size_t at = m.size();
    m.resize(at + a.room, 0xAA);
    if (a.room >= 2) be::store16(m, at, a.len);
    if (a.room >= 4) be::store16(m, at + 2, a.type);
  }
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  return m;
}

TEST(RouteAttrWalkTest, TakesAttributesWhileTheirLengthsFit) {
  const struct {
    const char* what;
    std::vector<Attr> attrs;
    std::vector<std::pair<uint16_t, size_t>> seen;  // type, attribute bytes handed over
  } cases[] = {
      {"padded and aligned", {{8, 66, 8}, {5, 52, 8}, {4, 67, 4}}, {{66, 8}, {52, 5}, {67, 4}}},
      {"last one unpadded", {{8, 66, 8}, {6, 75, 6}}, {{66, 8}, {75, 6}}},
      {"length below its head", {{8, 66, 8}, {3, 52, 8}, {8, 67, 8}}, {{66, 8}}},
      {"length past the message", {{8, 66, 8}, {16, 52, 8}}, {{66, 8}}},
      {"fewer than 4 bytes left", {{8, 66, 8}, {8, 52, 3}}, {{66, 8}}},
      {"zero length", {{0, 66, 8}}, {}},
      {"no attributes", {}, {}},
  };
  for (const auto& c : cases) {
    const auto m = withAttrs(c.attrs);
    std::vector<std::pair<uint16_t, size_t>> seen;
    aclRtAttrWalk(m, [&](uint16_t type, std::span<const uint8_t> a) {
      // Every attribute handed over lies inside the message.
      EXPECT_GE(a.data(), m.data() + 48);
      EXPECT_LE(a.data() + a.size(), m.data() + m.size());
      seen.emplace_back(type, a.size());
    });
    EXPECT_EQ(seen, c.seen) << c.what;
  }
  // A message shorter than the run's start has none.
  size_t calls = 0;
  aclRtAttrWalk(std::vector<uint8_t>(40, 8), [&](uint16_t, std::span<const uint8_t>) { ++calls; });
  EXPECT_EQ(calls, 0u);
}

}  // namespace
