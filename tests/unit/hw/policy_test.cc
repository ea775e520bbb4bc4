// HQoS binding and policy-based redirect on an interface: priorities, the HQoS id kept in the
// rules, owner conflicts, the redirect's next-hop items, and removals of what does not exist.
#include "api/acl_if_api.h"
#include "control/acl_slot.h"
#include "diag/acl_audit.h"
#include "hw/acl_policy.h"
#include "platform/logging.h"
#include "store/acl_entry.h"
#include "support/device_lock.h"
#include "unit/hw/if_fixture.h"
#include "wire/acl_dev_layout.h"

namespace {

using namespace iftest;

constexpr uint32_t kList = 1001;

class PolicyTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    slotRoom(2);
  }
  void fresh(const std::vector<std::pair<std::string, std::string>>& opts = {}) {
    restart(opts);
    slotRoom(2);
  }
  static Bytes pbr(uint32_t lst, uint8_t code, const Bytes& param, uint32_t vrf = 0) {
    Bytes r(ACL_PBR_REQ_LEN, 0);
    be::store32(r.data(), kPort);
    be::store32(r.data() + ACL_PBR_LST, lst);
    r[ACL_PBR_CODE] = code;
    be::store32(r.data() + ACL_PBR_VRF, vrf);
    std::copy(param.begin(), param.end(), r.begin() + ACL_PBR_PARAM);
    return r;
  }
  // The action items (type, length) of the TLV message the unit holds for one rule.
  static std::vector<std::pair<uint32_t, uint32_t>> tlvActions(uint32_t lst, uint32_t rule) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    const auto& t = d.journal.hw[vdev::ScopeKey{1, kPort, 0, 0}];
    auto it = t.entries.find({lst, rule, 0});
    std::vector<std::pair<uint32_t, uint32_t>> out;
    if (it == t.entries.end() || !it->second.tlv) return out;
    const Bytes& m = it->second.data;
    const uint32_t actionAt = acldev::kTlvHeaderLen + be::load16(m, acldev::kTlvHeaderLen);
    const uint32_t end = actionAt + be::load16(m, actionAt);
    // Items: a type byte, a length byte, the value.
    for (uint32_t at = actionAt + 2; at + 2 <= end && at + 2 <= m.size();) {
      const uint32_t type = m[at], len = m[at + 1];
      out.emplace_back(type, len);
      at += 2 + len;
    }
    return out;
  }
  // Hardware commands and relays sent so far.
  static uint64_t sentSoFar() {
    return test::onDevice([&](vdev::Device& d) { return d.journal.seq; });
  }
  static bool logged(const std::string& text) {
    for (const auto& l : plat::logRecent()) {
      if (l.text.find(text) != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(PolicyTest, HqosPrioritiesAndIdStayInTheRules) {
  AclListEntry* l = listOf(kList, {1, 2});
  ASSERT_EQ(_aclHqosIfAdd(kPort, kList, 0, 77), 0);
  EXPECT_EQ(units(), expect({kPort}, kList, {{1, 1}, {2, 2}}));
  EXPECT_EQ(l->refCnt, 1);
  expectAuditClean();
  ASSERT_EQ(_aclHqosIfDel(kPort, kList, 0, 77), 0);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(l->refCnt, 0);
  for (uint32_t r : {1u, 2u}) {
    AclRuleEntry* rule = aclRuleEntryGet(l, r);
    EXPECT_TRUE(aclBitTest(rule->actionBits, RULE_ACTION_HQOSID));
    AclActionEntry* a = aclActionEntryGet(rule, RULE_ACTION_HQOSID, 22);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(aclActionValueWord(a), 77u);
  }
  expectAuditClean();
}

// Counting rules keep one statistics record for every interface the list is on.
TEST_F(PolicyTest, HqosInterfacesShareOneStatisticsRecord) {
  listOf(kList, {}, {1});
  for (uint32_t p : {kPort, kPort + 1}) ASSERT_EQ(_aclHqosIfAdd(p, kList, 0, 7), 0);
  const AclStatsEntry* s = aclStatsGetEntry({kList, 1, 0, 0});
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->refCnt, 2u);
  ASSERT_EQ(_aclHqosIfDel(kPort, kList, 0, 7), 0);
  EXPECT_EQ(s->refCnt, 1u);
  ASSERT_EQ(_aclHqosIfDel(kPort + 1, kList, 0, 7), 0);
  EXPECT_EQ(aclStatsGetEntry({kList, 1, 0, 0}), nullptr);
  expectAuditClean();
}

TEST_F(PolicyTest, HqosRefusalsAndRollback) {
  struct Case {
    const char* name;
    std::function<void()> setup;
    uint32_t ifIndex;
    uint32_t lst;
    int32_t want;
  };
  const std::vector<Case> cases = {
      // clang-format off
      {"unknown interface", [] {}, 999, kList, ACL_RET_IF_NO_LOCATION},
      {"no list", [] {}, kPort, kList + 1, ACL_ERR_LIST_NOT_EXIST},
      {"hardware refuses rule 2", [] { failOn(kPort, HWIL_CMD_IF_ADD, kList, 2); }, kPort, kList,
       kHwFault},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fresh();
    listOf(kList, {1, 2});
    c.setup();
    EXPECT_EQ(_aclHqosIfAdd(c.ifIndex, c.lst, 0, 5), c.want);
    EXPECT_TRUE(units().empty());
    expectAuditClean();
  }
}

TEST_F(PolicyTest, PbrRefusedOnAListBoundByTheAcl) {
  gaclGrp.debugFlags |= 0x02;
  listOf(kList, {1});
  ASSERT_NE(aclIfEntryAdd(kPort), nullptr);
  ASSERT_EQ(
      aclIfRuleUpdate(kPort, ACL_LIST_TYPE_IPV4, 0, kList, &aclIfEntryGet(kPort)->slots.inIpv4Acl),
      0);
  const Bytes req = pbr(kList, RULE_ACTION_OUTPUT_NEXTHOP, ip4("10.0.0.1"));
  EXPECT_EQ(aclPbrIfAdd(req.data()), ACL_ERR_SHARED_IN_USE);
  EXPECT_TRUE(logged("[pbr redirect add] error. (Reason=[filter-list 1001 binded])"));
  expectAuditClean();
}

TEST_F(PolicyTest, PbrRedirectItemsAndRemoval) {
  const Bytes hop6 = [] {
    Bytes b;
    for (const char* a : {"fe80::1", "fe80::2", "fe80::3", "fe80::4"}) {
      const Bytes one = ip6(a);
      b.insert(b.end(), one.begin(), one.end());
    }
    return b;
  }();
  struct Case {
    const char* name;
    uint32_t lst;
    uint8_t code;
    Bytes param;
    std::vector<std::pair<uint32_t, uint32_t>> items;
    uint32_t priority;
  };
  const std::vector<Case> cases = {
      // clang-format off
      {"IPv6 multi-hop", 3001, RULE_ACTION_IP6OUTPUT_MULTIHOP, hop6,
       {{46, 16}, {47, 16}, {48, 16}, {49, 16}}, 1},
      {"IPv4 next hop, hybrid", 2001, RULE_ACTION_OUTPUT_NEXTHOP, ip4("10.0.0.1"), {{7, 4}}, 1025},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fresh();
    AclListEntry* l = listOf(c.lst, {1});
    const Bytes req = pbr(c.lst, c.code, c.param);
    ASSERT_EQ(aclPbrIfAdd(req.data()), 0);
    EXPECT_EQ(tlvActions(c.lst, 1), c.items);
    EXPECT_EQ(units(), expect({kPort}, c.lst, {{1, c.priority}}));
    EXPECT_EQ(l->refCnt, 1);
    // The stored rule keeps its own actions.
    EXPECT_FALSE(aclBitTest(aclRuleEntryGet(l, 1)->actionBits, c.code));
    expectAuditClean();
    ASSERT_EQ(aclPbrIfDel(req.data()), 0);
    EXPECT_TRUE(units().empty());
    EXPECT_EQ(l->refCnt, 0);
    expectAuditClean();
    // Once more: there is no such binding, nothing is sent.
    const uint64_t sent = sentSoFar();
    EXPECT_EQ(aclPbrIfDel(req.data()), 0);
    EXPECT_EQ(sentSoFar(), sent);
  }
}

// The interface table's payloads: HQoS and traffic policies by record address, PBR by an 80-byte
// descriptor; null and short ones answered before anything is touched.
TEST_F(PolicyTest, InterfaceSetPayloads) {
  listOf(kList, {1});
  aclUnlock();
  Bytes rec(ACL_PBR_REQ_LEN, 0);
  wire::BufDesc shortDesc{rec.data(), 40};
  wire::BufDesc noData{nullptr, 80};
  uintptr_t nullRecord = 0;
  EXPECT_EQ(aclIfSetApi(kPort, 20, reinterpret_cast<uintptr_t>(&shortDesc)), CMN_ERR_BUFFER_SHORT);
  EXPECT_EQ(aclIfSetApi(kPort, 21, reinterpret_cast<uintptr_t>(&noData)), CMN_ERR_BAD_PARAM);
  for (uint32_t cmd : {18u, 19u, 34u, 36u, 40u}) {
    EXPECT_EQ(aclIfSetApi(kPort, cmd, reinterpret_cast<uintptr_t>(&nullRecord)), CMN_ERR_BAD_PARAM)
        << cmd;
  }
  EXPECT_EQ(aclHqosIfAdd(kPort, kList, 0, 9), 0);
  EXPECT_EQ(aclHqosIfDel(kPort, kList, 0, 9), 0);
  EXPECT_EQ(aclPbrRedirectIpv4Test(kPort, kList, 0, 1), 0);
  EXPECT_EQ(aclPbrRedirectIpv4Test(kPort, kList, 0, 0), 0);
  aclLock();
  EXPECT_TRUE(units().empty());
  expectAuditClean();
}

}  // namespace
