// The compiled match against the rule walk: random lists changed at random through the rule
// table, and random queries of every match service answered both ways. The walk answers when no
// match query holds the lock; the compiled form answers under a match query's own hold.
#include <random>

#include "main/acl_group.h"
#include "services/acl_cpudefend_match.h"
#include "services/acl_match.h"
#include "services/acl_match_compiled.h"
#include "unit/services/match_fixture.h"

namespace matchtest {
namespace {

constexpr uint32_t kHybrid = 2001;  // takes IPv4 and IPv6 rules

// Fewer queries where the build is not optimised (the debug and sanitizer presets), so the test
// stays within seconds there.
#ifdef NDEBUG
constexpr int kQueries = 1'000'000;
#else
constexpr int kQueries = 100'000;
#endif
constexpr int kQueriesPerChange = 50;

class CompiledMatchTest : public MatchTest {
 protected:
  std::mt19937 rng{20261125};

  uint32_t pick(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); }
  bool chance(uint32_t percent) { return pick(100) < percent; }

  // Addresses near a few bases, so that rules and queries meet often.
  Bytes address(bool six) {
    static const char* const kV4[] = {"10.0.0.0", "10.1.0.0", "192.168.1.0", "0.0.0.0"};
    static const char* const kV6[] = {"2001:db8::", "2001:db8:1::", "fe80::", "::"};
    Bytes a = six ? v6(kV6[pick(4)]) : v4(kV4[pick(4)]);
    if (chance(60)) a[a.size() - 1 - pick(2)] = static_cast<uint8_t>(pick(4));
    return a;
  }
  uint32_t port() {
    static const uint32_t kPorts[] = {0, 22, 80, 443};
    return kPorts[pick(4)];
  }

  // One random change of the list through the rule table: a new or rewritten rule, a field, an
  // action, a status, or a deletion. Refused sets are part of the game: both engines see the
  // same store.
  void change(uint32_t lst) {
    const uint32_t rule = 1 + pick(24);
    switch (pick(6)) {
      case 0:
        setValue(lst, rule, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_DELETE);
        return;
      case 1:
        setValue(lst, rule, ACL_RULE_CMD_STATUS,
                 chance(70) ? ACL_RULE_STATUS_SET_VALID : ACL_RULE_STATUS_SET_INVALID);
        return;
      case 2: {
        Bytes set(8, 0);
        const uint32_t kActions[] = {RULE_ACTION_PERMIT, RULE_ACTION_DENY, RULE_ACTION_CPU};
        aclBitSet(set, kActions[pick(3)]);
        setBytes(lst, rule, ACL_RULE_CMD_ACTION, set);
        return;
      }
      default:
        break;
    }
    setValue(lst, rule, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE);
    const uint32_t ver = chance(10) ? 0 : 1 + pick(2);
    if (ver != 0) setValue(lst, rule, 7, ver);
    const bool six = ver == 2;
    if (chance(80)) setBytes(lst, rule, ACL_RULE_CMD_SRCADDR, address(six));
    if (chance(80)) setValue(lst, rule, 9, pick(six ? 130 : 34));
    if (chance(50)) setBytes(lst, rule, ACL_RULE_CMD_DSTADDR, address(six));
    if (chance(50)) setValue(lst, rule, 12, pick(six ? 130 : 34));
    if (chance(30)) setValue(lst, rule, 14, port());
    if (chance(40)) setValue(lst, rule, 16, port());
    if (chance(15)) setValue(lst, rule, 17, 100 + pick(500));
    if (chance(40)) setValue(lst, rule, 6, chance(20) ? 65535 : 6 + 11 * pick(2));
    if (chance(30)) setValue(lst, rule, 62, pick(3));
    if (chance(15)) setValue(lst, rule, 18, pick(3));
    if (chance(15)) setValue(lst, rule, 30, pick(4));
    if (chance(10)) setValue(lst, rule, 51, pick(8));
    if (chance(10)) setValue(lst, rule, 29, pick(8));
    if (chance(10)) setValue(lst, rule, 33, chance(50) ? 0x0800 : 0x86DD);
    if (chance(70)) {
      Bytes set(8, 0);
      aclBitSet(set, chance(50) ? RULE_ACTION_PERMIT : RULE_ACTION_DENY);
      setBytes(lst, rule, ACL_RULE_CMD_ACTION, set);
    }
    if (chance(80)) setValue(lst, rule, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID);
  }

  // A parsed packet as the CPU-defend match sees it.
  std::array<uint8_t, ACL_RULE_PARAM_LEN> packet() {
    std::array<uint8_t, ACL_RULE_PARAM_LEN> p{};
    const bool six = chance(40);
    p[ACL_RP_ENCAP_LAYER_IPVER] = static_cast<uint8_t>(six ? 2 : 1);
    be::store16(p, ACL_RP_PROTO_TYPE, 0x0800);
    be::store16(p, ACL_RP_PROTO_SUBTYPE, static_cast<uint16_t>(chance(50) ? 6 : 17));
    const Bytes s = address(six), d = address(six);
    std::copy(s.begin(), s.end(), p.begin() + ACL_RP_SRC_ADDR);
    std::copy(d.begin(), d.end(), p.begin() + ACL_RP_DEST_ADDR);
    be::store16(p, ACL_RP_SRC_PORT, static_cast<uint16_t>(chance(20) ? pick(600) : port()));
    be::store16(p, ACL_RP_DEST_PORT, static_cast<uint16_t>(chance(20) ? pick(600) : port()));
    p[ACL_RP_TCP_FSM] = static_cast<uint8_t>(pick(3));
    p[ACL_RP_DOT1P_FLAGS] = static_cast<uint8_t>(pick(256));
    be::store16(p, ACL_RP_OUTER_VID, static_cast<uint16_t>(pick(8)));
    be::store16(p, ACL_RP_ETH_TYPE, static_cast<uint16_t>(chance(50) ? 0x0800 : 0x86DD));
    return p;
  }

  // Every service asked the same random question both ways; a difference fails with the query.
  void query(uint32_t lst, bool compiled) {
    const uint32_t family = chance(3) ? 3 : 1 + pick(2);
    const bool six = family != ACL_MATCH_FAMILY_IPV4;
    const Bytes a = address(six), b = address(six);
    const uint32_t len = chance(30) ? (six ? 128 : 32) : pick(six ? 131 : 35);
    const uint32_t vrf = pick(3);
    const uint32_t mode = pick(4);
    const auto sport = static_cast<uint16_t>(port()), dport = static_cast<uint16_t>(port());
    const uint32_t proto = chance(50) ? 6 : 17;
    const auto pkt = packet();
    struct Answer {
      int32_t addr, ex, mcast, ipsec, nat, cpu;
      uint8_t verdict, cpuVerdict;
      bool operator==(const Answer&) const = default;
    };
    auto ask = [&] {
      Answer r{};
      Bytes q = addrQuery(family, a, len);
      r.addr = _aclMatch(lst, q);
      q.push_back(0);
      r.ex = _aclMatchEx(lst, q);
      r.verdict = q.back();
      r.mcast = _aclMulticastMatch(lst, a.data(), len, family);
      r.ipsec = _aclIpsecMatch(lst, a.data(), b.data(), sport, dport, family, proto, mode);
      r.nat = _aclNatMatch(lst, vrf, a.data(), len, family);
      r.cpu = _aclCpuDefendMatch(lst, pkt, &r.cpuVerdict);
      return r;
    };
    const Answer exact = ask();
    Answer fast{};
    {
      AclQueryLockGuard hold;
      fast = ask();
      if (compiled) {
        ASSERT_GT(aclCompiledCount(), 0u) << "the compiled form did not answer";
      }
    }
    ASSERT_TRUE(exact == fast) << "family " << family << " len " << len << " vrf " << vrf
                               << " mode " << mode << ": addr " << exact.addr << "/" << fast.addr
                               << " ex " << exact.ex << "/" << fast.ex << " verdict "
                               << int(exact.verdict) << "/" << int(fast.verdict) << " mcast "
                               << exact.mcast << "/" << fast.mcast << " ipsec " << exact.ipsec
                               << "/" << fast.ipsec << " nat " << exact.nat << "/" << fast.nat
                               << " cpu " << exact.cpu << "/" << fast.cpu;
  }
};

TEST_F(CompiledMatchTest, AnswersAsTheRuleWalkOnRandomListsAndChanges) {
  createList(kHybrid);
  int hits = 0;
  for (int n = 0; n < kQueries / 6; n += kQueriesPerChange) {
    change(kHybrid);
    for (int i = 0; i < kQueriesPerChange; ++i) {
      ASSERT_NO_FATAL_FAILURE(query(kHybrid, true)) << "after " << n + i << " queries";
    }
    // The lists must decide now and then, or equal answers prove little.
    AclQueryLockGuard hold;
    const Bytes q = addrQuery(ACL_MATCH_FAMILY_IPV4, v4("10.0.0.1"), 32);
    if (_aclMatch(kHybrid, q) == 0) ++hits;
  }
  EXPECT_GT(hits, 0);
  // The list goes with its compiled form: the walk and the compiled form both find nothing.
  ASSERT_EQ(test::callValue(aclLstSetApi, kHybrid, 9, ACL_LST_STATUS_DELETE), 0);
  ASSERT_NO_FATAL_FAILURE(query(kHybrid, false));
}

}  // namespace
}  // namespace matchtest
