// The software match services (list get 10 to 15): the deciding rule and its answer, the rule
// order, the families and prefix lengths, and the refusal of queries of the wrong length.
#include "unit/services/match_fixture.h"

#include "services/acl_match.h"

namespace matchtest {
namespace {

constexpr uint32_t V4 = ACL_MATCH_FAMILY_IPV4;
constexpr uint32_t V6 = ACL_MATCH_FAMILY_IPV6;
constexpr uint32_t kV6List = 3001;

TEST_F(MatchTest, AddressMatchTakesTheFirstCoveringRule) {
  add({.rule = 1, .src = v4("10.1.0.0"), .srcLen = 16, .actions = kPermit});
  add({.rule = 2, .src = v4("10.0.0.0"), .srcLen = 8, .actions = kDeny});
  add({.rule = 3, .src = v4("172.16.0.0"), .srcLen = 12, .actions = {RULE_ACTION_CPU}});

  EXPECT_EQ(ask(kList, 10, addrQuery(V4, v4("10.1.2.3"), 32)), 0);
  EXPECT_EQ(ask(kList, 10, addrQuery(V4, v4("10.2.0.1"), 32)), -1) << "rule 2 denies";
  EXPECT_EQ(ask(kList, 10, addrQuery(V4, v4("11.0.0.1"), 32)), -1) << "no rule covers it";
  // A query prefix shorter than the rule's skips the rule: /8 passes rule 1 by and rule 2 denies.
  EXPECT_EQ(ask(kList, 10, addrQuery(V4, v4("10.1.2.3"), 16)), 0);
  EXPECT_EQ(ask(kList, 10, addrQuery(V4, v4("10.1.2.3"), 8)), -1);

  // Command 11 answers 0 and writes the deciding rule's verdict into the last byte.
  struct Case {
    const char* addr;
    int32_t ret;
    uint8_t verdict;
  } cases[] = {{"10.1.2.3", 0, ACL_MATCH_VERDICT_PERMIT},
               {"10.200.0.1", 0, ACL_MATCH_VERDICT_DENY},
               {"172.17.0.1", 0, ACL_MATCH_VERDICT_NONE},
               {"192.168.0.1", -1, 0xEE}};
  for (const Case& c : cases) {
    Bytes q = addrQuery(V4, v4(c.addr), 32), back;
    q.push_back(0xEE);
    EXPECT_EQ(ask(kList, 11, q, &back), c.ret) << c.addr;
    EXPECT_EQ(back[12], c.verdict) << c.addr;
  }
}

TEST_F(MatchTest, RulesWithoutAnAddressOrIpVersion) {
  // Not an IP rule: skipped although it would cover everything.
  add({.rule = 1, .ipVer = 0, .actions = kDeny});
  // No address and no prefix: decides every query, of either family.
  add({.rule = 2, .actions = kPermit});
  add({.rule = 3, .src = v4("10.0.0.0"), .srcLen = 8, .actions = kDeny});
  EXPECT_EQ(ask(kList, 10, addrQuery(V4, v4("10.1.2.3"), 32)), 0);
  EXPECT_EQ(ask(kList, 10, addrQuery(V6, v6("2001:db8::1"), 128)), 0);

  // An address without its prefix field never covers a query.
  createList(1002);
  add({.lst = 1002, .rule = 1, .src = v4("10.0.0.0"), .actions = kPermit});
  EXPECT_EQ(ask(1002, 10, addrQuery(V4, v4("10.0.0.0"), 32)), -1);
  // An IPv6 query against IPv4 rules runs out of rules.
  createList(1003);
  add({.lst = 1003, .rule = 1, .src = v4("0.0.0.1"), .srcLen = 0, .actions = kPermit});
  EXPECT_EQ(ask(1003, 10, addrQuery(V4, v4("99.1.1.1"), 32)), 0) << "/0 covers every IPv4 query";
  EXPECT_EQ(ask(1003, 10, addrQuery(V6, v6("::1"), 128)), -1);
}

TEST_F(MatchTest, PrefixLengthsAtTheEdges) {
  // Per family: a bit past the prefix may differ, the last bit of the prefix may not.
  struct Family {
    uint32_t family, ipVer, lst, bits;
    const char* addr;
    std::vector<uint32_t> lens;
  };
  const Family families[] = {{V4, 1, 1100, 32, "192.0.2.129", {0, 1, 31, 32}},
                             {V6, 2, 3100, 128, "2001:db8:8000::8001", {0, 1, 31, 32, 127, 128}}};
  createList(kV6List);
  for (const Family& f : families) {
    uint32_t lst = f.lst;
    for (uint32_t len : f.lens) {
      createList(++lst);
      const Bytes base = f.family == V4 ? v4(f.addr) : v6(f.addr);
      add({.lst = lst, .ipVer = f.ipVer, .src = base, .srcLen = int(len), .actions = kPermit});
      Bytes in = base, out = base;
      if (len < f.bits) in.back() ^= 0x01;
      if (len > 0) out[(len - 1) / 8] ^= uint8_t(0x80 >> ((len - 1) % 8));
      EXPECT_EQ(ask(lst, 10, addrQuery(f.family, in, f.bits)), 0) << "/" << len;
      if (len > 0) {
        EXPECT_EQ(ask(lst, 10, addrQuery(f.family, out, f.bits)), -1) << "/" << len;
      }
      EXPECT_EQ(ask(lst, 10, addrQuery(f.family, in, f.bits + 1)), -1) << "too long";
    }
  }
  // The comparison itself, on bytes that differ right after the prefix.
  const uint8_t a[4] = {0xFF, 0xFF, 0xFF, 0xFE}, b[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_TRUE(aclMatchPrefixEqual(a, b, 4, 31));
  EXPECT_FALSE(aclMatchPrefixEqual(a, b, 4, 32));
  EXPECT_FALSE(aclMatchPrefixEqual(a, b, 4, 200)) << "a prefix past the address is all of it";
}

TEST_F(MatchTest, QueriesOfTheWrongLengthAreRefused) {
  add({.rule = 1, .actions = kPermit});
  Bytes q = addrQuery(V4, v4("10.0.0.1"), 32);
  ASSERT_EQ(ask(kList, 10, q), 0);
  Bytes longer = q;
  longer.push_back(0);
  EXPECT_EQ(ask(kList, 10, longer), -1);
  EXPECT_EQ(ask(kList, 10, Bytes(q.begin(), q.end() - 1)), -1);
  EXPECT_EQ(ask(kList, 10, {}), -1) << "no data at all";
  Bytes v6AsV4 = q;
  be::store32(v6AsV4, 0, V6);
  EXPECT_EQ(ask(kList, 10, v6AsV4), -1) << "family 2 needs 24 bytes";
  for (uint32_t cmd : {12u, 13u, 14u, 15u}) {
    EXPECT_EQ(ask(kList, cmd, longer), ACL_RET_INVALID) << cmd;
    EXPECT_EQ(ask(kList, cmd, {0, 0, 0}), ACL_RET_INVALID) << cmd;
  }
  // Command 11 takes a longer query (verdict after the prefix length), never a shorter one.
  Bytes back;
  longer.push_back(0x55);
  EXPECT_EQ(ask(kList, 11, longer, &back), 0);
  EXPECT_EQ(std::make_pair(back[12], back[13]),
            std::make_pair(ACL_MATCH_VERDICT_PERMIT, uint8_t{0x55}));
  EXPECT_EQ(ask(kList, 11, q), -1) << "no room for the verdict";
  // A null buffer is the list API's to answer; a missing list too.
  EXPECT_EQ(aclLstGetApi(kList, 10, 0), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(ask(1999, 10, q), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(_aclMatch(1999, q), -1);
}

TEST_F(MatchTest, MulticastComparesDestinationsOfPermitOrDenyRules) {
  // Neither permit nor deny: skipped even though it covers the group.
  add({.rule = 1, .dst = v4("239.1.0.0"), .dstLen = 16, .actions = {RULE_ACTION_CPU}});
  add({.rule = 2, .dst = v4("239.1.1.0"), .dstLen = 24, .actions = kDeny});
  add({.rule = 3, .dst = v4("224.0.0.0"), .dstLen = 4, .actions = kPermit});
  // Without a destination a rule decides every group: its source is not looked at.
  add({.rule = 4, .src = v4("10.0.0.0"), .srcLen = 8, .actions = kDeny});
  add({.rule = 5, .src = v4("10.0.0.0"), .srcLen = 8, .actions = kPermit});
  for (uint32_t cmd : {12u, 13u}) {
    EXPECT_EQ(ask(kList, cmd, addrQuery(V4, v4("239.1.2.3"), 32)), 0) << cmd;
    EXPECT_EQ(ask(kList, cmd, addrQuery(V4, v4("239.1.1.7"), 32)), -1) << cmd;
    EXPECT_EQ(ask(kList, cmd, addrQuery(V4, v4("10.1.1.1"), 32)), -1) << cmd;
  }
  const Bytes group = v4("239.1.2.3");
  EXPECT_EQ(aclIgmpMatch(kList, group.data(), 32, V4), 0);
  EXPECT_EQ(aclIgmpsnoopMatch(kList, group.data(), 32, V4), 0);
  EXPECT_EQ(_aclMulticastMatch(1999, group.data(), 32, V4), -1);
}

TEST_F(MatchTest, IpsecDirectionsPortsAndProtocol) {
  // 10/8 -> 20/8, any port, any protocol.
  const Bytes a = v4("10.1.1.1"), b = v4("20.1.1.1");
  add({.src = a, .srcLen = 8, .dst = b, .dstLen = 8, .values = {{6, 65535}}, .actions = kPermit});
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, b, a, 0, 0, 6, 2)), 0) << "reverse in mode 2";
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, b, a, 0, 0, 6, 1)), -1) << "not forward";
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, b, a, 0, 0, 6, 0)), 0);
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, a, b, 0, 0, 6, 1)), 0);
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, a, b, 0, 0, 6, 2)), -1);
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, a, a, 0, 0, 6, 0)), -1) << "neither direction";
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V4, a, a, 0, 0, 6, 7)), 0) << "other modes skip addresses";
  EXPECT_EQ(aclIpsecMatch(kList, a.data(), b.data(), 1, 2, V4, 17, 1), 0);
  EXPECT_EQ(ask(kList, 14, ipsecQuery(V6, v6("::1"), v6("::2"), 0, 0, 6, 7)), -1)
      << "the rule's IP version must be the query's";

  // Protocol 0 is not a wildcard; ports must equal unless the rule's is 0.
  createList(1002);
  add({.lst = 1002, .rule = 1, .values = {{6, 0}}, .actions = kPermit});
  add({.lst = 1002, .rule = 2, .values = {{6, 17}, {14, 500}, {16, 4500}}, .actions = kDeny});
  EXPECT_EQ(ask(1002, 14, ipsecQuery(V4, a, b, 1, 1, 6, 0)), -1);
  EXPECT_EQ(ask(1002, 14, ipsecQuery(V4, a, b, 1, 1, 0, 0)), 0);
  EXPECT_EQ(ask(1002, 14, ipsecQuery(V4, a, b, 500, 4500, 17, 0)), 0) << "whatever the action";
  EXPECT_EQ(ask(1002, 14, ipsecQuery(V4, a, b, 501, 4500, 17, 0)), -1);
  EXPECT_EQ(ask(1002, 14, ipsecQuery(V4, a, b, 500, 4501, 17, 0)), -1);

  // IPv6 rules in an IPv6 list.
  createList(kV6List);
  const Bytes net = v6("2001:db8::");
  add({.lst = kV6List,
       .ipVer = 2,
       .src = net,
       .srcLen = 32,
       .values = {{6, 65535}},
       .actions = kPermit});
  EXPECT_EQ(ask(kV6List, 14, ipsecQuery(V6, v6("2001:db8::5"), v6("fe80::1"), 0, 0, 6, 1)), 0);
  EXPECT_EQ(ask(kV6List, 14, ipsecQuery(V6, v6("2001:db9::5"), v6("fe80::1"), 0, 0, 6, 1)), -1);
}

TEST_F(MatchTest, NatTriesTheHighestRuleFirstWithinItsVrf) {
  const Bytes net10 = v4("10.0.0.0"), net10_1 = v4("10.1.0.0");
  add({.rule = 5, .src = net10, .srcLen = 8, .values = {{62, 3}}, .actions = kPermit});
  add({.rule = 9, .src = net10_1, .srcLen = 16, .values = {{62, 3}}, .actions = kDeny});
  // A catch-all rule does not decide NAT: it has no source address.
  add({.rule = 12, .values = {{62, 3}}, .actions = kDeny});
  EXPECT_EQ(ask(kList, 15, natQuery(V4, v4("10.1.2.3"), 3, 32)), -1) << "rule 9 decides";
  EXPECT_EQ(ask(kList, 15, natQuery(V4, v4("10.2.2.3"), 3, 32)), 0) << "only rule 5 covers it";
  EXPECT_EQ(ask(kList, 15, natQuery(V4, v4("10.2.2.3"), 4, 32)), -1) << "another VRF";
  const Bytes addr = v4("10.2.2.3");
  EXPECT_EQ(aclNatMatch(kList, 3, addr.data(), 32, V4), 0);
  EXPECT_EQ(aclNatMatch(kList, 3, nullptr, 32, V4), CMN_ERR_BAD_PARAM);
}

TEST_F(MatchTest, WrappersGoThroughTheListTable) {
  add({.rule = 1, .src = v4("10.0.0.0"), .srcLen = 8, .actions = kDeny});
  const Bytes in = v4("10.9.9.9"), out = v4("11.0.0.1");
  EXPECT_EQ(aclMatch(kList, in.data(), 32, V4), -1);
  // The verdict is left untouched without a deciding rule.
  for (auto [addr, ret, want] : {std::tuple{in, 0, ACL_MATCH_VERDICT_DENY}, {out, -1, 0x77}}) {
    uint8_t verdict = 0x77;
    EXPECT_EQ(aclMatchEx(kList, addr.data(), 32, V4, &verdict), ret);
    EXPECT_EQ(verdict, want);
  }
  EXPECT_EQ(aclMatch(1999, in.data(), 32, V4), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(aclMatch(kList, nullptr, 32, V4), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclMatchEx(kList, in.data(), 32, V4, nullptr), CMN_ERR_BAD_PARAM);
}

}  // namespace
}  // namespace matchtest
