// The device on the route bus: the chassis replayed to a socket that joins the chassis group, the
// exact messages each model change sends to the members of its group, raw sends, and a receiver
// that never reads holding nobody up.
#include <gtest/gtest.h>
#include <sys/select.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/rtbus.h"
#include "platform/vdev/announce.h"
#include "platform/vdev/control.h"
#include "platform/vdev/vdev.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

using nlohmann::json;

// (type, sys, slot, card type, kind) of a chassis message received.
using Msg = std::tuple<uint16_t, uint32_t, uint32_t, uint32_t, uint8_t>;

std::string hex(const uint8_t* p, size_t n) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += kDigits[p[i] >> 4];
    s += kDigits[p[i] & 15];
  }
  return s;
}

class AnnounceTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override {
    for (int fd : fds_) zor_close(fd);
    vdev::resetForTest();
  }
  int joined(uint32_t group, bool announce = true) {
    vdev::device().model.announce = announce;  // no other task uses the device here
    const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
    uint8_t addr[12] = {}, v[4];
    be::store16(addr, 0, ZOR_AF_ROUTE);
    be::store32(v, group);
    EXPECT_EQ(zor_bind(fd, addr, sizeof addr), 0);
    EXPECT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, v, 4), 0);
    fds_.push_back(fd);
    return fd;
  }
  // Every read waiting on fd, as the daemon would receive it. The device sends before its request
  // returns, so whatever was sent is already queued.
  static std::vector<std::vector<uint8_t>> reads(int fd) {
    std::vector<std::vector<uint8_t>> out;
    std::vector<uint8_t> b(70000);
    for (fd_set rd;;) {
      FD_ZERO(&rd);
      FD_SET(fd, &rd);
      timeval tv{0, 0};
      if (zor_select(fd + 1, &rd, nullptr, nullptr, &tv) != 1) return out;
      const int n = zor_recv(fd, b.data(), b.size(), 0);
      if (n < 0) return out;
      out.emplace_back(b.begin(), b.begin() + n);
    }
  }
  // The messages of every read waiting on fd, each in hex, split on the 4-byte-aligned lengths.
  static std::vector<std::string> messages(int fd) {
    std::vector<std::string> seen;
    for (const auto& r : reads(fd)) {
      for (size_t at = 0; at + 24 <= r.size() && be::load32(r, at) >= 24;
           at += (be::load32(r, at) + 3) & ~3u) {
        seen.push_back(hex(r.data() + at, std::min<size_t>(be::load32(r, at), r.size() - at)));
      }
    }
    return seen;
  }
  static std::vector<Msg> chassis(int fd) {
    std::vector<Msg> seen;
    for (const auto& r : reads(fd)) {
      EXPECT_LE(r.size(), vdev::kRouteReadMax);
      for (size_t at = 0; at + 24 <= r.size(); at += (be::load32(r, at) + 3) & ~3u) {
        const bool card = be::load16(r, at + 4) == vdev::kMsgCardUp;
        seen.emplace_back(be::load16(r, at + 4), be::load32(r, at + 24), be::load32(r, at + 28),
                          card ? be::load32(r, at + 36) : 0, card ? r[at + 72] : 0);
      }
    }
    return seen;
  }

  test::TempRunDir runDir;
  std::vector<int> fds_;
};

// The replay of the built-in chassis is what a daemon learns its line cards from, end to end.
TEST_F(AnnounceTest, JoiningTheChassisGroupReplaysEveryCard) {
  EXPECT_EQ(chassis(joined(vdev::kChassisGroup)).size(), 8u);
  EXPECT_TRUE(chassis(joined(1)).empty()) << "another group hears nothing";

  // A chassis too large for one read is spread over several, none cut.
  for (uint32_t s = 1; s <= 60; ++s)
    vdev::device().model.slots[{2, s}].card = vdev::Card{2, "", {}, {}};
  const std::vector<Msg> all = chassis(joined(vdev::kChassisGroup));
  EXPECT_EQ(all.size(), 2u * (4 + 60));
  EXPECT_EQ(all.back(), (Msg{101, 2, 60, 2, 0}));

  EXPECT_TRUE(chassis(joined(vdev::kChassisGroup, false)).empty()) << "switched off";
}

// Header: length, type, 18 zero bytes.
std::string head(const char* len, const char* type) {
  return std::string(len) + type + std::string(36, '0');
}
const std::string z4 = "00000000";

// The built-in device: aggregation 1001 of ports 203, 204 and 303; neighbours 192.0.2.1,
// 192.0.2.2 and 2001:db8::1 in VRF 0; time range 1 active, 2 not; cards in slots 1/1 to 1/4.
TEST_F(AnnounceTest, EachModelChangeSendsExactlyItsMessagesToItsGroup) {
  const std::string rm201 = head("00000030", "0022") + z4 + "000000c9" + std::string(32, '0');
  const auto leave = [](const char* unit) {
    return head("00000038", "0020") + z4 + unit + std::string(32, '0') + "00080043000003e9";
  };
  const std::string card5 =
      head("0000004c", "0065") + "00000001" + "00000005" + z4 + "00000009" + std::string(72, '0');
  auto nbr = [](const char* type, const std::string& addr32, const char* fam, const char* vrf) {
    return head("00000030", type) + addr32 + fam + "000000" + vrf;
  };
  struct Case {
    const char* name;
    const char* request;  // JSON
    uint32_t group;       // where the messages go, in order
    std::vector<std::string> messages;
  };
  const auto msgs = [](auto... m) { return std::vector<std::string>{m...}; };
  const std::vector<Case> cases = {
      {"port removed", R"({"op":"interface.remove","index":201})", 1, msgs(rm201)},
      {"member removed leaves first", R"({"op":"interface.remove","index":203})", 1,
       msgs(leave("000000cb"), head("00000030", "0022") + z4 + "000000cb" + std::string(32, '0'))},
      {"aggregation removed: every member leaves", R"({"op":"interface.remove","index":1001})", 1,
       msgs(leave("000000cb"), leave("000000cc"), leave("0000012f"),
            head("00000030", "0022") + z4 + "000003e9" + std::string(32, '0'))},
      {"port joins",
       R"({"op":"aggregation.set","aggregation":{"index":1001,"members":[203,204,303,205]}})", 1,
       msgs(head("00000038", "0020") + z4 + "000000cd" + std::string(32, '0') +
            "00080042000003e9")},
      {"port leaves",
       R"({"op":"aggregation.set","aggregation":{"index":1001,"members":[204,303]}})", 1,
       msgs(leave("000000cb"))},
      {"configuration reset",
       R"({"op":"interface.reset","index":201,"reason":1,"operation":1,"flags":33554432})", 1,
       msgs(head("00000040", "0144") + z4 + "000000c9" + std::string(32, '0') +
            "0010004b000000010000000102000000")},
      {"card inserted", R"({"op":"card.set","system":1,"slot":5,"card":{"type":9}})", 33,
       msgs(head("00000024", "006c") + "00000001" + "00000005" + z4, card5)},
      {"card pulled", R"({"op":"card.set","system":1,"slot":2})", 33,
       msgs(head("00000020", "0067") + "00000001" + "00000002")},
      {"card up", R"({"op":"card.up","system":1,"slot":3})", 33,
       msgs(head("00000028", "0061") + "00000001" + "00000003" + z4 + "00000002")},
      {"slot up", R"({"op":"slot.up","system":1,"slot":4})", 33,
       msgs(head("00000024", "006c") + "00000001" + "00000004" + z4)},
      {"system up", R"({"op":"system.up","system":1})", 33,
       msgs(head("0000001c", "0075") + "00000001")},
      {"neighbour learned", R"({"op":"neighbour.add","vrf":2,"address":"198.51.100.7"})", 3,
       msgs(nbr("0131", "c6336407" + std::string(24, '0'), "01", "00000002"))},
      {"neighbour learned again", R"({"op":"neighbour.add","address":"192.0.2.1"})", 3,
       msgs(nbr("0133", "c0000201" + std::string(24, '0'), "01", z4.c_str()))},
      {"neighbour lost", R"({"op":"neighbour.remove","address":"2001:db8::1"})", 3,
       msgs(nbr("0132", "20010db8000000000000000000000001", "02", z4.c_str()))},
      {"time range on", R"({"op":"timerange.set","id":2,"active":true})", 85,
       msgs(head("0000001c", "018c") + "00000002")},
      {"time range off", R"({"op":"timerange.set","id":1,"active":false})", 85,
       msgs(head("0000001c", "018d") + "00000001")},
      {"active time range removed", R"({"op":"timerange.remove","id":1})", 85,
       msgs(head("0000001c", "018d") + "00000001")},
      {"new inactive time range", R"({"op":"timerange.set","id":7,"active":false})", 0, msgs()},
      {"seated card changed", R"({"op":"card.set","system":1,"slot":2,"card":{"name":"x"}})", 0,
       msgs()},
      {"scalar set", R"({"op":"scalar.set","id":46,"value":0})", 0, msgs()},
      {"whole model loaded", R"({"op":"model.load","model":{}})", 0, msgs()},
  };
  const uint32_t groups[] = {1, 3, 33, 85, 100};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    vdev::resetForTest();
    std::map<uint32_t, int> fd;
    for (uint32_t g : groups) fd[g] = joined(g);
    reads(fd[33]);  // the chassis replay
    json req = json::parse(c.request);
    if (req["op"] == "model.load") {
      req["model"] = vdev::handleRequest({{"op", "show"}})["model"];
      req["model"]["timeRanges"] = json::array();
    }
    const json reply = vdev::handleRequest(req);
    EXPECT_TRUE(reply.value("ok", false)) << reply.dump();
    for (uint32_t g : groups) {
      EXPECT_EQ(messages(fd[g]), g == c.group ? c.messages : std::vector<std::string>{})
          << "group " << g;
    }
  }
}

TEST_F(AnnounceTest, RefusedOrSilencedEventsSendNothing) {
  const std::vector<std::pair<json, std::string>> refused = {
      {{{"op", "card.up"}, {"system", 1}, {"slot", 9}}, "no card in slot 1/9"},
      {{{"op", "card.up"}, {"system", 1}, {"slot", 10}}, "no slot 1/10"},
      {{{"op", "slot.up"}, {"system", 2}, {"slot", 1}}, "no slot 2/1"},
      {{{"op", "system.up"}, {"system", 3}}, "no system 3"},
      {{{"op", "interface.reset"}, {"index", 77}}, "no interface 77"},
      {{{"op", "interface.remove"}, {"index", 77}}, "no interface 77"},
      {{{"op", "neighbour.remove"}, {"address", "10.9.9.9"}}, "no neighbour 10.9.9.9 in vrf 0"},
  };
  const int link = joined(1), chassisFd = joined(33), nbr = joined(3);
  reads(chassisFd);
  vdev::Slot& empty = vdev::device().model.slots[{1, 9}];  // no card in it
  empty.system = 1;
  empty.slot = 9;
  for (const auto& [req, error] : refused) {
    const json reply = vdev::handleRequest(req);
    EXPECT_FALSE(reply.value("ok", true)) << req.dump();
    EXPECT_EQ(reply.value("error", std::string()), error);
  }
  // With announcements off, changes are made and events answered, and nothing is sent.
  vdev::device().model.announce = false;
  EXPECT_EQ(vdev::handleRequest({{"op", "card.up"}, {"system", 1}, {"slot", 2}}),
            json({{"ok", true}, {"messages", 0}}));
  EXPECT_EQ(vdev::handleRequest({{"op", "interface.remove"}, {"index", 203}}),
            json({{"ok", true}}));
  EXPECT_EQ(vdev::handleRequest({{"op", "neighbour.add"}, {"address", "192.0.2.9"}}),
            json({{"ok", true}}));
  EXPECT_TRUE(messages(link).empty());
  EXPECT_TRUE(messages(chassisFd).empty());
  EXPECT_TRUE(messages(nbr).empty());
}

TEST_F(AnnounceTest, RawSendsGoAsOneDatagramAndBadHexIsRefused) {
  const int own = joined(100);  // the process's first route socket: where a send goes by default
  const int other = joined(100);
  const std::string msg = head("0000001e", "0022") + "0102030405060000";
  json reply = vdev::handleRequest({{"op", "route.send"}, {"hex", msg}});
  EXPECT_EQ(reply, (json{{"ok", true}, {"delivered", 1}}));
  EXPECT_EQ(reads(own), (std::vector<std::vector<uint8_t>>{{0, 0, 0, 0x1e, 0, 0x22, 0, 0, 0, 0, 0,
                                                            0, 0, 0, 0,    0, 0,    0, 0, 0, 0, 0,
                                                            0, 0, 1, 2,    3, 4,    5, 6, 0, 0}}));
  EXPECT_TRUE(reads(other).empty());
  reply = vdev::handleRequest({{"op", "route.send"}, {"hex", "ABcd"}, {"group", 100}});
  EXPECT_EQ(reply, (json{{"ok", true}, {"group", 100}, {"delivered", 2}}));
  EXPECT_EQ(reads(own), (std::vector<std::vector<uint8_t>>{{0xab, 0xcd}}));
  EXPECT_EQ(reads(other), (std::vector<std::vector<uint8_t>>{{0xab, 0xcd}}));

  const std::vector<std::pair<json, std::string>> bad = {
      {json(), "\"hex\" must be a string of hex digits"},
      {12, "\"hex\" must be a string of hex digits"},
      {"", "\"hex\" must hold an even number of hex digits, at least two"},
      {"abc", "\"hex\" must hold an even number of hex digits, at least two"},
      {"00zz", "\"hex\": \"zz\" at byte 1 is not a hex byte"},
      {std::string(2 * 65537, '0'), "\"hex\" holds more than 65536 bytes"},
  };
  for (const auto& [h, error] : bad) {
    json req = {{"op", "route.send"}};
    if (!h.is_null()) req["hex"] = h;
    EXPECT_EQ(vdev::handleRequest(req), (json{{"ok", false}, {"error", error}})) << req.dump();
  }
  EXPECT_TRUE(reads(own).empty());
}

TEST_F(AnnounceTest, AReceiverThatNeverReadsLosesMessagesAndHoldsNobodyUp) {
  const int full = joined(vdev::kTimeRangeGroup);
  const uint64_t droppedBefore = plat::busDropCount();
  constexpr int kSwitches = 200;
  for (int i = 0; i < kSwitches; ++i) {
    ASSERT_EQ(vdev::handleRequest({{"op", "timerange.set"}, {"id", 2}, {"active", i % 2 == 0}}),
              json({{"ok", true}}));
  }
  const uint64_t dropped = plat::busDropCount() - droppedBefore;
  EXPECT_GT(dropped, 0u);
  // Everything was either queued or counted as lost, and what was queued arrives whole.
  const std::vector<std::string> got = messages(full);
  EXPECT_EQ(got.size() + dropped, static_cast<size_t>(kSwitches));
  EXPECT_EQ(got.front(), head("0000001c", "018c") + "00000002");
  EXPECT_EQ(vdev::handleRequest({{"op", "show"}})["routeDropped"], plat::busDropCount());
}

}  // namespace
