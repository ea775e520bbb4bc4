// Rules built through the rule table (addresses, prefixes, ports, actions) and the list get
// commands of the match services called the way the command server calls them.
#pragma once

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "api/acl_lst_api.h"
#include "unit/ruleapi/rule_fixture.h"

namespace matchtest {

using Bytes = std::vector<uint8_t>;

inline Bytes v4(const char* text) {
  Bytes b(4);
  EXPECT_EQ(inet_pton(AF_INET, text, b.data()), 1) << text;
  return b;
}
inline Bytes v6(const char* text) {
  Bytes b(16);
  EXPECT_EQ(inet_pton(AF_INET6, text, b.data()), 1) << text;
  return b;
}
inline void put32(Bytes& b, uint32_t v) {
  b.resize(b.size() + 4);
  be::store32(b, b.size() - 4, v);
}
inline void put16(Bytes& b, uint16_t v) {
  b.resize(b.size() + 2);
  be::store16(b, b.size() - 2, v);
}
inline void append(Bytes& b, const Bytes& more) {
  b.insert(b.end(), more.begin(), more.end());
}

// Query records.
inline Bytes addrQuery(uint32_t family, const Bytes& addr, uint32_t prefixLen) {
  Bytes q;
  put32(q, family);
  append(q, addr);
  put32(q, prefixLen);
  return q;
}
inline Bytes natQuery(uint32_t family, const Bytes& addr, uint32_t vrf, uint32_t prefixLen) {
  Bytes q;
  put32(q, family);
  append(q, addr);
  put32(q, vrf);
  put32(q, prefixLen);
  return q;
}
inline Bytes ipsecQuery(uint32_t family, const Bytes& src, const Bytes& dst, uint16_t sport,
                        uint16_t dport, uint32_t proto, uint32_t mode) {
  Bytes q;
  put32(q, family);
  append(q, src);
  append(q, dst);
  put16(q, sport);
  put16(q, dport);
  put32(q, proto);
  put32(q, mode);
  return q;
}

class MatchTest : public ruletest::RuleApiTest {
 protected:
  static inline const std::vector<uint32_t> kPermit{RULE_ACTION_PERMIT}, kDeny{RULE_ACTION_DENY};
  // A new rule: fields by (set command, value word) and optional source / destination prefixes.
  struct Rule {
    uint32_t lst = kList;
    uint32_t rule = 1;
    uint32_t ipVer = 1;  // 0: no IPVER field
    Bytes src{};
    int srcLen = -1;  // -1: no prefix field
    Bytes dst{};
    int dstLen = -1;
    std::vector<std::pair<uint32_t, uint32_t>> values{};
    std::vector<uint32_t> actions{};
    bool valid = true;
  };
  static void add(const Rule& r) {
    ASSERT_EQ(setValue(r.lst, r.rule, ACL_RULE_CMD_STATUS, 2), 0);
    if (r.ipVer != 0) {
      ASSERT_EQ(setValue(r.lst, r.rule, 7, r.ipVer), 0);
    }
    if (!r.src.empty()) {
      ASSERT_EQ(setBytes(r.lst, r.rule, ACL_RULE_CMD_SRCADDR, r.src), 0);
    }
    if (r.srcLen >= 0) {
      ASSERT_EQ(setValue(r.lst, r.rule, 9, uint32_t(r.srcLen)), 0);
    }
    if (!r.dst.empty()) {
      ASSERT_EQ(setBytes(r.lst, r.rule, ACL_RULE_CMD_DSTADDR, r.dst), 0);
    }
    if (r.dstLen >= 0) {
      ASSERT_EQ(setValue(r.lst, r.rule, 12, uint32_t(r.dstLen)), 0);
    }
    for (const auto& [cmd, v] : r.values) ASSERT_EQ(setValue(r.lst, r.rule, cmd, v), 0) << cmd;
    if (!r.actions.empty()) {
      Bytes set(8, 0);
      for (uint32_t a : r.actions) aclBitSet(set, a);
      ASSERT_EQ(setBytes(r.lst, r.rule, ACL_RULE_CMD_ACTION, set), 0);
    }
    if (r.valid) {
      ASSERT_EQ(setValue(r.lst, r.rule, ACL_RULE_CMD_STATUS, 1), 0);
    }
  }
  static void createList(uint32_t lst) { ASSERT_EQ(test::callValue(aclLstSetApi, lst, 9, 2), 0); }

  // List get cmd with the query in a descriptor; the query as the service left it in *back.
  static int32_t ask(uint32_t lst, uint32_t cmd, const Bytes& query, Bytes* back = nullptr) {
    Bytes copy = query;
    wire::BufDesc d{copy.empty() ? nullptr : copy.data(), static_cast<uint32_t>(copy.size())};
    const int32_t ret = aclLstGetApi(lst, cmd, reinterpret_cast<uintptr_t>(&d));
    if (back) *back = copy;
    return ret;
  }
};

}  // namespace matchtest
