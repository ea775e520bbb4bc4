// Route messages written straight onto the daemon's route socket, as any process on the bus
// may: one datagram holding a link message that removes one interface and a removal of another
// takes both out of the hardware, the bind tree and the slot ledger.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "support/acl_e2e.h"
#include "wire/be.h"

namespace {

using nlohmann::json;
using Bytes = std::vector<uint8_t>;

// Message of type for ifIndex (body word 1), 48 bytes, then attributes without data.
Bytes linkMsg(uint16_t type, uint32_t ifIndex, std::vector<uint16_t> attrs = {}) {
  Bytes m(48 + 4 * attrs.size(), 0);
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  be::store16(m, 4, type);
  be::store32(m, 28, ifIndex);
  for (size_t i = 0; i < attrs.size(); ++i) {
    be::store16(m, 48 + 4 * i, 4);
    be::store16(m, 50 + 4 * i, attrs[i]);
  }
  return m;
}

class EventE2e : public AclE2eTest {
 protected:
  void sendRoute(const Bytes& bytes) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    const std::string path = acl_->runDir() + "/rtbus/acl.sock";
    std::strncpy(a.sun_path, path.c_str(), sizeof a.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(
        ::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&a), sizeof a),
        static_cast<ssize_t>(bytes.size()));
    ::close(fd);
  }
  size_t unitEntries(uint32_t unit) {
    return run({"--json", "dev", "hw", "--scope", "unit", "--unit",
                std::to_string(unit)})["table"]["entries"]
        .size();
  }
  uint32_t charged(uint32_t slot) {
    uint32_t sum = 0;
    const json shown = run({"--json", "slot", "show"});
    for (const auto& s : shown["slots"]) {
      if (s["slot"] != slot) continue;
      for (const auto& t : s["types"]) sum += t["current"].get<uint32_t>();
    }
    return sum;
  }
  void bindTwoRuleList(uint32_t unit) {
    run({"if", "create", std::to_string(unit)});
    run({"if", "bind", std::to_string(unit), "in", "ipv4", "1001"});
  }
  template <typename Pred>
  bool eventually(Pred pred) {
    for (int i = 0; i < 200; ++i) {
      if (pred()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
};

TEST_F(EventE2e, InterfacesRemovedOverTheRouteBusLeaveNothingBehind) {
  ASSERT_TRUE(eventually([&] { return run({"--json", "slot", "show"})["slots"].size() >= 4; }));
  // List 1001 with valid IPv4 rules 1 and 2.
  ASSERT_EQ(run({"call", "aclLstSetApi", "1001", "9", "u32:2"})["ret"], 0);
  for (uint32_t r : {1u, 2u}) {
    char key[40];
    std::snprintf(key, sizeof key, "x:%08x%08x%08x", 1001u, r, 0u);
    ASSERT_EQ(run({"call", "aclRuleSetApi", key, "57", "u32:2"})["ret"], 0);
    ASSERT_EQ(run({"call", "aclRuleSetApi", key, "19", "u32:46"})["ret"], 0);
    ASSERT_EQ(run({"call", "aclRuleSetApi", key, "57", "u32:1"})["ret"], 0);
  }
  bindTwoRuleList(201);
  bindTwoRuleList(202);
  ASSERT_EQ(unitEntries(201), 2u);
  ASSERT_EQ(charged(2), 2u);

  // Both in one read: attribute 52 on 202, then a removal of 201.
  Bytes both = linkMsg(32, 202, {67, 52});
  const Bytes del = linkMsg(34, 201);
  both.insert(both.end(), del.begin(), del.end());
  sendRoute(both);
  ASSERT_TRUE(eventually([&] { return unitEntries(201) == 0 && unitEntries(202) == 0; }));
  EXPECT_TRUE(run({"--json", "if", "show"})["interfaces"].empty());
  EXPECT_EQ(charged(2), 0u);
  expectAuditClean();
}

}  // namespace
