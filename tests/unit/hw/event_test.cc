// Route messages that change bindings, built byte by byte and handed to the walk as one read:
// interfaces removed, ports joining and leaving aggregations, cards and systems coming up,
// configuration resets and work-mode changes. Each scenario ends with the audit.
#include <cstring>

#include "api/acl_scalar_api.h"
#include "api/acl_scalar_bind.h"
#include "control/acl_slot.h"
#include "diag/acl_audit.h"
#include "hw/acl_card_sync.h"
#include "main/acl_rtmsg.h"
#include "platform/logging.h"
#include "support/device_lock.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

using Msg = std::vector<uint8_t>;
constexpr uint32_t kAllSlot = 3000;
constexpr uint32_t kSlotIpv4In = 1;  // ledger bind type of IPv4 ingress

// A message of type with body words from byte 24; at least 48 bytes.
Msg msg(uint16_t type, std::vector<uint32_t> words, size_t len = 48) {
  Msg m(std::max(len, 24 + 4 * words.size()), 0);
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  be::store16(m, 4, type);
  for (size_t i = 0; i < words.size(); ++i) be::store32(m, 24 + 4 * i, words[i]);
  return m;
}
// A link message (32 or 324) for ifIndex with attributes of u32 data words.
Msg link(uint16_t type, uint32_t ifIndex,
         std::vector<std::pair<uint16_t, std::vector<uint32_t>>> attrs) {
  Msg m = msg(type, {0, ifIndex});
  for (const auto& [t, data] : attrs) {
    const size_t at = m.size();
    m.resize(at + 4 + 4 * data.size());
    be::store16(m, at, static_cast<uint16_t>(4 + 4 * data.size()));
    be::store16(m, at + 2, t);
    for (size_t i = 0; i < data.size(); ++i) be::store32(m, at + 4 + 4 * i, data[i]);
  }
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  return m;
}

class EventTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    prepare();
  }
  // Lists 1001 (rules 1, 2) and 1002 (rule 3), the slot records and the all-slot interface.
  void prepare() {
    test::onDevice([&](vdev::Device& d) {
      auto& i = d.model.interfaces[kAllSlot];
      i.index = kAllSlot;
      i.location[ZOR_LOC_SYS] = 1;
      i.location[ZOR_LOC_KIND] = ZOR_IF_KIND_ALLSLOT;
    });
    listOf(1001, {1, 2});
    listOf(1002, {3});
    // The chassis is learned from slot messages, which these tests do not send.
    for (uint32_t slot : {2, 3, 4}) ASSERT_NE(aclSlotEntryGetOrAdd(1, slot), nullptr);
  }
  static void recv(const Msg& m) { EXPECT_EQ(aclRtMsgRecv(m), 0); }
  static AclIfEntry* bindIpv4(uint32_t unit, uint32_t lst) {
    AclIfEntry* e = aclIfEntryAdd(unit);
    EXPECT_NE(e, nullptr);
    EXPECT_EQ(aclIfRuleUpdate(unit, ACL_BIND_KIND_IPV4, 0, lst, &e->slots.inIpv4Acl), 0);
    return e;
  }
  static uint32_t ledger(uint32_t slot) {
    const AclSlotEntry* e = aclSlotEntryGet(1, slot);
    return e == nullptr ? 0xDEAD : e->curSubRuleNum[kSlotIpv4In];
  }
  static const vdev::HwEntry* hw(vdev::ScopeKey scope, uint32_t lst, uint32_t rule) {
    auto& t = vdev::device().journal.hw[scope];
    auto it = t.entries.find({lst, rule, 0});
    return it == t.entries.end() ? nullptr : &it->second;
  }
  static std::vector<uint32_t> ignoring(uint32_t unit) {
    return test::onDevice([&](vdev::Device& d) { return d.model.interfaces[unit].ignoring; });
  }
};

TEST_F(EventTest, InterfaceRemovedLosesBindingsRecordAndChargeWhateverCarriesIt) {
  bindIpv4(201, 1001);
  bindIpv4(202, 1001);
  ASSERT_EQ(units().size(), 4u);
  ASSERT_EQ(ledger(2), 2u);
  const UnitView before = units();
  // Messages that must change nothing (how lengths that lie are walked is the walk's own test):
  // cut short, an interface the daemon does not know, a type nobody handles, another attribute.
  for (const Msg& m : {msg(34, {0, 201}, 44), msg(34, {0, 999}), link(32, 999, {{52, {}}}),
                       msg(33, {0, 201}), link(32, 201, {{53, {}}})}) {
    recv(m);
    EXPECT_EQ(units(), before);
    EXPECT_NE(aclIfEntryGet(201), nullptr);
  }
  // A removal (34) and a link change carrying attribute 52 behind another attribute (32), in
  // one read.
  Msg both = msg(34, {0, 201}, 50);  // 2 bytes of padding follow
  both.resize(52);
  const Msg second = link(32, 202, {{53, {7}}, {52, {}}});
  both.insert(both.end(), second.begin(), second.end());
  recv(both);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(aclIfEntryGet(201), nullptr);
  EXPECT_EQ(aclIfEntryGet(202), nullptr);
  EXPECT_EQ(avl_numnodes(&gaclGrp.ifListTree), 0u);
  EXPECT_EQ(ledger(2), 0u);
  EXPECT_EQ(aclListEntryGet(1001)->refCnt, 0u);
  expectAuditClean();
}

TEST_F(EventTest, MemberJoiningAndLeavingTakesAndGivesUpTheAggregationsLists) {
  aggMode(1);
  bindIpv4(kAgg, 1001);
  ASSERT_EQ(units(), expect({203, 204, 303}, 1001, {{1, 4097}, {2, 4098}}));
  aggMembers({203, 204, 303, 205});
  recv(link(32, 205, {{66, {kAgg}}}));
  EXPECT_EQ(units(), expect({203, 204, 303, 205}, 1001, {{1, 4097}, {2, 4098}}));
  expectAuditClean();

  gaclGrp.debugFlags = 0x20;  // record dumps show the aggregation a member leaves
  const uint64_t from = plat::logLastSeq();
  aggMembers({203, 204, 303});
  recv(link(32, 205, {{67, {kAgg}}}));
  gaclGrp.debugFlags = 0;
  EXPECT_EQ(units(), expect({203, 204, 303}, 1001, {{1, 4097}, {2, 4098}}));
  size_t parentLines = 0;
  for (const auto& l : plat::logRecent(from)) {
    parentLines += l.text.find("aggIfIndex=1001(") != std::string::npos;
  }
  EXPECT_EQ(parentLines, 2u);
  expectAuditClean();

  // Where the aggregation does not program its members, or cannot say, or has no record.
  const struct {
    const char* what;
    uint8_t mode;
    bool failQuery;
    uint32_t agg;
    int32_t join;
  } cases[] = {{"mode 2", 2, false, kAgg, 0},
               {"mode query refused", 1, true, kAgg, -1},
               {"no aggregation record", 1, false, 1002, -1}};
  for (const auto& c : cases) {
    aggMode(c.mode);
    if (c.failQuery) plat::faultAdd({.call = "zorIfGetApi", .result = 5, .count = 2});
    EXPECT_EQ(aclPhyJoinAgg(c.agg, 205), c.join) << c.what;
    EXPECT_EQ(aclPhyQuitAgg(c.agg, 205), c.join) << c.what;
    EXPECT_EQ(units().count({205, 1001, 1, 0}), 0u) << c.what;
  }
  // A member that refuses stops the join with its code.
  aggMode(1);
  failOn(205, HWIL_CMD_IF_ADD, 1001, 1);
  EXPECT_EQ(aclPhyJoinAgg(kAgg, 205), kHwFault);
}

TEST_F(EventTest, CardComingUpGetsEveryBindingAddressedToItOnly) {
  uint32_t previous = 0;
  ASSERT_EQ(aclScalarSlotMove(ACL_SCALAR_GLB_SLOT_FIRST + 2, 1002, &previous), 0);
  AclIfEntry* port = bindIpv4(201, 1001);
  port->slots.inAcl = 1002;  // untyped, switch off: not in the hardware, not synchronised
  aggMode(1);
  bindIpv4(kAgg, 1002);
  const vdev::ScopeKey global{0, 0, 0, 0}, unit201{1, 201, 0, 0}, member{1, 203, 0, 0};
  // Sent again, addressed to the card (scope 2) or the system (scope 1); the bits of the target
  // are the sync target's own test.
  auto targeted = [](const vdev::HwEntry* e, uint8_t scope, uint32_t installs = 2) {
    return e != nullptr && e->installs == installs && e->options.size() > 24 &&
           e->options[24] == scope;
  };

  // A card of another system, a slot without a card, and a message cut short: nothing.
  for (const Msg& m : {msg(97, {2, 3, 0, 0}), msg(97, {1, 7, 0, 0}), msg(97, {1, 3}, 36)}) {
    recv(m);
    EXPECT_EQ(hw(global, 1002, 3)->installs, 1u);
  }
  recv(msg(97, {1, 3, 0, 0}));
  EXPECT_TRUE(targeted(hw(global, 1002, 3), 2));
  EXPECT_TRUE(targeted(hw(unit201, 1001, 1), 2));
  EXPECT_TRUE(targeted(hw(unit201, 1001, 2), 2));
  EXPECT_EQ(hw(unit201, 1002, 3), nullptr);
  // The aggregation programs only its members: nothing of its own goes to the new card.
  EXPECT_EQ(hw(member, 1002, 3)->installs, 1u);
  EXPECT_EQ(anomalyCount(), 0u);
  expectAuditClean();

  // A system coming up (117) gets the same, addressed to the system; an aggregation that
  // programs itself and its members takes part.
  aggMode(3);
  recv(msg(117, {2}));
  EXPECT_TRUE(targeted(hw(global, 1002, 3), 1, 3));
  EXPECT_TRUE(targeted(hw(vdev::ScopeKey{1, kAgg, 0, 0}, 1002, 3), 1, 1));
  EXPECT_TRUE(targeted(hw(member, 1002, 3), 1));
  // Our own system, and a system the platform says not to resynchronise, are left alone.
  recv(msg(117, {1}));
  test::onDevice([&](vdev::Device& d) { d.model.scalars[54] = 1; });
  recv(msg(117, {2}));
  EXPECT_EQ(hw(unit201, 1001, 1)->installs, 3u);

  // An interface the platform cannot locate stops the walk with -1.
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> target{};
  ASSERT_TRUE(aclSyncTargetBuild(1, 3, target));
  plat::faultAdd({.call = "zorIndexTrans", .result = 5, .count = 1});
  EXPECT_EQ(aclCardSync(target.data(), 1), -1);
  EXPECT_EQ(aclCardSync(target.data(), 0), 0);
}

TEST(SyncTargetTest, SystemsAndSlotsThatHaveNoBitAreRefused) {
  const struct {
    uint32_t sys, slot;
    bool ok;
    std::vector<std::pair<size_t, uint8_t>> bytes;  // the non-zero bytes
  } cases[] = {
      // clang-format off
      {1, 0, true, {{24, 1}, {26, 0x80}}}, {9, 0, true, {{24, 1}, {27, 0x80}}},
      {16, 0, true, {{24, 1}, {27, 0x01}}}, {2, 32, true, {{24, 2}, {26, 0x40}, {35, 0x01}}},
      {9, 1, true, {{24, 2}, {27, 0x80}, {60, 0x80}}}, {10, 1, false, {}}, {17, 0, false, {}},
      {0, 0, false, {}}, {1, 33, false, {}},
      // clang-format on
  };
  for (const auto& c : cases) {
    std::array<uint8_t, ACL_HW_OPTIONS_LEN> out;
    out.fill(0xEE);
    EXPECT_EQ(aclSyncTargetBuild(c.sys, c.slot, out), c.ok) << c.sys << "/" << c.slot;
    std::array<uint8_t, ACL_HW_OPTIONS_LEN> want{};
    for (auto [at, v] : c.bytes) want[at] = v;
    EXPECT_EQ(out, want) << c.sys << "/" << c.slot;
  }
}

TEST_F(EventTest, ConfigurationResetKeepsOrDropsTheInterfacesLists) {
  const struct {
    const char* what;
    uint32_t reason, flags;
    bool record;  // the interface has a record before
    bool ignoring;
    bool kept;
  } cases[] = {{"mlag", 1, 0, true, true, true},
               {"mlag without record", 1, 0, false, false, false},
               {"manual, kept by flag", 0, ACL_RESET_FLAG_KEEP, true, true, true},
               {"manual", 0, 0x01, true, false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    restart();
    prepare();
    if (c.record) bindIpv4(201, 1001);
    aclIfSetProtoIgnorestate(201, 0);
    recv(link(324, 201, {{75, {c.reason, 1, c.flags}}}));
    EXPECT_EQ(!ignoring(201).empty(), c.ignoring);
    EXPECT_EQ(aclIfEntryGet(201) != nullptr, c.kept);
    EXPECT_EQ(units().size(), c.kept ? 2u : 0u);
    expectAuditClean();
  }
  // An attribute too short for its three words is passed over.
  bindIpv4(201, 1001);
  recv(link(324, 201, {{75, {0, 1}}}));
  EXPECT_NE(aclIfEntryGet(201), nullptr);
}

TEST_F(EventTest, OnlyAnAllSlotInterfaceGoingToBridgeModeLosesItsLists) {
  bindIpv4(kAllSlot, 1001);
  bindIpv4(201, 1002);
  const UnitView both = units();
  EXPECT_EQ(aclIfWorkModeChange(kAllSlot, 1), 0);
  EXPECT_EQ(aclIfWorkModeChange(201, 0), 0);
  EXPECT_EQ(aclIfWorkModeChange(9999, 0), -1);
  EXPECT_EQ(units(), both);
  EXPECT_EQ(aclIfWorkModeChange(kAllSlot, 0), 0);
  EXPECT_EQ(aclIfEntryGet(kAllSlot), nullptr);
  EXPECT_EQ(units(), expect({201}, 1002, {{3, 4099}}));
  expectAuditClean();
}

TEST_F(EventTest, NeighbourReportsNameTheAddressTheyCarry) {
  gaclGrp.debugFlags = 0x01;
  Msg v4 = msg(305, {}, 48);
  const uint8_t a4[] = {10, 0, 0, 1};
  std::memcpy(&v4[24], a4, 4);
  v4[40] = 1;
  be::store32(v4, 44, 7);
  Msg v6 = msg(307, {}, 48);
  v6[24] = 0x20;
  v6[25] = 0x01;
  v6[39] = 0x05;
  v6[40] = 10;  // not IPv4: read as IPv6
  const uint64_t from = plat::logLastSeq();
  recv(v4);
  recv(v6);
  recv(msg(306, {}, 44));  // cut short: skipped
  gaclGrp.debugFlags = 0;
  std::vector<std::string> lines;
  for (const auto& l : plat::logRecent(from)) lines.push_back(l.text);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0],
            "ACL global [RT msg recv] info=[DID msg: type =305 family = 1vrfid 7, ip 10.0.0.1, "
            "ipFamily 1]. ");
  EXPECT_EQ(lines[2],
            "ACL global [RT msg recv] info=[DID msg: type =307 family = 10vrfid 0, ip 2001::5, "
            "ipFamily 2]. ");
  // No rule follows either address.
  EXPECT_NE(lines[1].find("get by arp entry NULL"), std::string::npos);
}

}  // namespace
}  // namespace iftest
