// Every record pool of the daemon filled in turn, through the command socket or the device's
// events, with small pools through options: the request that finds its pool empty gets its
// defined refusal, and leaves everything stored before it as it was (same configuration, same
// hardware tables, same GEM ports, blacklist and slot ledger, audit clean, daemon alive).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "support/aclctl_script.h"

namespace {

using ::testing::HasSubstr;

using nlohmann::json;

class PoolsE2e : public AclScriptTest {
 protected:
  void SetUp() override {}  // each row starts a daemon with its own pool sizes

 public:
  using AclE2eTest::ruleKey;
  using AclE2eTest::run;
  using AclE2eTest::validRules;
  using AclScriptTest::script;
  // Raw calls over one connection, each of which must answer 0.
  void batch(const std::vector<std::string>& calls) {
    const std::string path = acl_->runDir() + "/calls.txt";
    {
      std::ofstream f(path);
      for (const std::string& c : calls) f << c << "\n";
    }
    std::string out;
    ASSERT_EQ(acl_->aclctl({"batch", path}, &out), 0) << out;
    std::istringstream answers(out);
    size_t n = 0;
    for (std::string line; std::getline(answers, line); ++n) {
      EXPECT_EQ(json::parse(line, nullptr, false)["ret"], 0) << line;
    }
    EXPECT_EQ(n, calls.size());
  }
  // A list of count valid rules, each with the given actions and, with hop, a redirect of
  // rule r to next hop 10.0.0.hop(r).
  void ruleList(uint32_t lst, uint32_t count, const std::string& actions,
                const std::function<uint32_t(uint32_t)>& hop = {}) {
    script("list create " + std::to_string(lst));
    for (uint32_t r = 1; r <= count; ++r) {
      const std::string rule = std::to_string(lst) + " " + std::to_string(r);
      const std::string redirect = hop ? " redirect-nexthop=10.0.0." + std::to_string(hop(r)) : "";
      script("rule create " + rule + "; rule action " + rule + " " + actions + redirect +
             "; rule valid " + rule);
    }
  }
  // What a refused request must not change: the saved configuration, every hardware table,
  // the GEM port records, the blacklist and the slot ledger, one text per view.
  std::vector<std::string> stored() {
    std::vector<std::string> all;
    for (const auto& view : kViews) {
      std::string out;
      EXPECT_EQ(acl_->aclctl(view, &out), 0) << view[0];
      all.push_back(out);
    }
    return all;
  }
  static inline const std::vector<std::vector<std::string>> kViews = {
      {"save"},
      {"dev", "hw"},
      {"--json", "gem", "show"},
      {"--json", "slot", "show"},
      {"shell", "aclBlackListShow"}};
};

const std::string kGem4014 = "x:0000019100050004" + std::string(8, '0');  // GEM port 401/5/4

// The first line where two texts part, from each.
std::string firstDifference(const std::string& a, const std::string& b) {
  std::istringstream x(a), y(b);
  std::string l, m;
  while (true) {
    const bool more = static_cast<bool>(std::getline(x, l));
    const bool moreB = static_cast<bool>(std::getline(y, m));
    if (!more && !moreB) return "";
    if (!more || !moreB || l != m) return "before: " + l + "\nafter:  " + m;
  }
}

// One pool: the options that make it small, how it is filled, the request that finds it empty
// and what that request must answer (its code, and a line the daemon writes, if any).
struct PoolRow {
  const char* pool;
  std::vector<std::pair<std::string, std::string>> opts;
  std::function<void(PoolsE2e&)> fill;
  std::vector<std::string> refused;  // an `aclctl call` whose answer is JSON with "ret"
  std::string said = "";             // expected in the log (debug bit 0x2 on) or on the console
  uint32_t ret = 0x03E80001;         // the pool is empty
  size_t slots = 4;                  // slot records once the device's cards are known
};

// List lst made by aclctl list and rule commands, with one rule and the rule command `rest`
// (VERB ARGS) applied to it.
void oneRule(PoolsE2e& t, const std::string& lst, const std::string& verb,
             const std::string& args) {
  t.script("list create " + lst + "; rule create " + lst + " 1; rule " + verb + " " + lst + " 1 " +
           args);
}
// Lists 1001 (count rules) and 1002 (one rule) redirecting to next hops, 1001 bound to 201.
void nextHopsBound(PoolsE2e& t, uint32_t count, const std::function<uint32_t(uint32_t)>& hop,
                   uint32_t hop1002) {
  t.ruleList(1001, count, "", hop);
  t.ruleList(1002, 1, "", [=](uint32_t) { return hop1002; });
  t.script("if create 201; if create 202; if bind 201 in ipv4 1001");
}

// The 18 typed and pre-stage slots of interface 201, one list of each type.
void everyTypedSlot(PoolsE2e& t) {
  const std::pair<const char*, const char*> types[] = {{"1", "l2"},        {"1001", "ipv4"},
                                                       {"2001", "hybrid"}, {"3001", "ipv6"},
                                                       {"4001", "mpls"},   {"5001", "udf"}};
  t.script("if create 201");
  for (const auto& [lst, type] : types) {
    t.ruleList(std::stoul(lst), 1, "permit");
    for (const std::string dir : {"in", "out", "vfp"}) {
      t.script("if bind 201 " + dir + " " + type + " " + lst);
    }
  }
  t.script("call aclIfSetApi 201 3 u32:1001");  // inAcl, not switched on yet
}

// Pools that no request can fill, so that have no row:
//  - "acl_grule": the global rule records exist from start-up (index-addressed) and no command,
//    event or binding takes or frees one; only the diagnostics read them.
//  - "acl_onuportlist": it holds acl.maxgemportnum x 18 entries, and a GEM port record has
//    exactly 18 bind slots with one entry each, while there are at most acl.maxgemportnum
//    records: the record pool ("acl_onuport") runs out first, always.
// clang-format off
const PoolRow kRows[] = {
    {"acl_list", {{"acl.maxlstnum", "2"}},
     [](PoolsE2e& t) { t.script("list create 1001; list create 1002"); },
     {"call", "aclLstSetApi", "1003", "9", "u32:2"}},
    // The per-type maximum (128 by default) is far above the pool, so the pool refuses first.
    {"acl_rule", {{"acl.maxgrulenum", "3"}}, [](PoolsE2e& t) { t.validRules(1001, 3); },
     {"call", "aclRuleSetApi", PoolsE2e::ruleKey(1001, 4), "57", "u32:2"}},
    {"acl_if", {{"acl.maxifnum", "1"}}, [](PoolsE2e& t) { t.script("if create 201"); },
     {"call", "aclIfSetApi", "202", "17", "u32:2"}},
    // Counted rules take one record per rule and interface; the binding that finds none is
    // taken back whole.
    {"acl_stats", {{"acl.maxgrulenum", "2"}},
     [](PoolsE2e& t) {
       t.ruleList(1001, 2, "count=1 permit");
       t.script("if create 201; if create 202; if bind 201 in ipv4 1001");
     },
     {"call", "aclIfSetApi", "202", "24", "u32:1001"}, "ACL stats list is FULL!!"},
    // 1 interface x 1 rule x 18 entries: the 18 typed slots fill it, the untyped switch finds
    // it empty.
    {"acl_iflist", {{"acl.maxifnum", "1"}, {"acl.maxrulenum", "1"}}, everyTypedSlot,
     {"call", "aclIfSetApi", "201", "2", "u32:1"}},
    {"acl_onuport", {{"acl.maxgemportnum", "1"}},
     [](PoolsE2e& t) { t.script("gem create 401/5/3"); },
     {"call", "aclGemPortSetApi", kGem4014, "1", "u32:2"}},
    // Always 128 entries: four systems of 32 slots.
    {"acl_blacklist", {},
     [](PoolsE2e& t) {
       t.validRules(1001, 1);
       std::vector<std::string> calls;
       for (uint32_t sys = 1; sys <= 4; ++sys) {
         for (uint32_t slot = 1; slot <= 32; ++slot) {
           char words[40];
           std::snprintf(words, sizeof words, "p:%08x%08x%08x", sys, slot, 1001u);
           calls.push_back(std::string("aclScalarSetApi - 67 ") + words);  // blacklist add
         }
       }
       t.batch(calls);
     },
     {"--json", "blacklist", "add", "5", "1", "1001"}},
    // Filled by the device: the own slot and the first line card take both records, the cards
    // of slots 3 and 4 announced after them find none.
    {"acl_slot", {{"acl.maxslotnum", "2"}},
     [](PoolsE2e& t) { t.validRules(1001, 1); t.script("if create 301"); },
     {"call", "aclIfSetApi", "301", "24", "u32:1001"}, "", 0x03EA0047, 2},
    // Always 16 of each: 16 rules with 16 distinct next hops fill both; a 17th address finds no
    // destination-IP entry, a 17th rule of a known address no destination-IP rule record.
    {"acl_dstip", {}, [](PoolsE2e& t) { nextHopsBound(t, 16, [](uint32_t r) { return r; }, 17); },
     {"call", "aclIfSetApi", "202", "24", "u32:1002"}, "filter 1002/1 destIp entry is NULL."},
    {"acl_dstiprule", {}, [](PoolsE2e& t) { nextHopsBound(t, 16, [](uint32_t) { return 1u; }, 1); },
     {"call", "aclIfSetApi", "202", "24", "u32:1002"}, "filter 1002/1 destIpRule entry is NULL."},
    // One rule of 10 short values (ranges take two), then an ICMP type.
    {"acl_shortrule", {{"acl.maxgrulenum", "1"}},
     [](PoolsE2e& t) {
       oneRule(t, "1001", "set", "sport=1-2 dport=3-4 protocol=tcp tos=1 ttl=3 ip-version=4 "
                                 "fragment=1 ip-options=1");
     },
     {"call", "aclRuleSetApi", PoolsE2e::ruleKey(1001, 1), "49", "u32:8"}},
    // Four long values (two IPv6 addresses, two MACs), then an IPv6 source mask.
    {"acl_longrule", {{"acl.maxgrulenum", "1"}},
     [](PoolsE2e& t) {
       oneRule(t, "3001", "set", "src=2001:db8::1 dst=2001:db8::2 smac=00:11:22:33:44:55 "
                                 "dmac=00:11:22:33:44:66");
     },
     {"call", "aclRuleSetApi", PoolsE2e::ruleKey(3001, 1), "10",
      "d:ffffffffffffffff0000000000000000"}},
    // Ten short actions (four without a parameter, six with one), then the IP swap.
    {"acl_shortaction", {{"acl.maxgrulenum", "1"}},
     [](PoolsE2e& t) {
       oneRule(t, "1001", "action", "permit cpu-queue=1 outer-dot1p=1 inner-dot1p=2 cos=3 dscp=4 "
                                    "mirror-cpu loopback cpu vid-rewrite=5");
     },
     {"call", "aclRuleSetApi", PoolsE2e::ruleKey(1001, 1), "53", "d:0000000000080000"}},
    // Two MAC rewrites and two IPv6 next hops of a multi-hop redirect, then a third next hop.
    {"acl_longaction", {{"acl.maxgrulenum", "1"}},
     [](PoolsE2e& t) {
       const std::string key = PoolsE2e::ruleKey(1001, 1);
       oneRule(t, "1001", "action", "da-rewrite=00:00:00:00:00:01 sa-rewrite=00:00:00:00:00:02");
       EXPECT_EQ(t.run({"call", "aclRuleSetApi", key, "53", "d:0000000000002000"})["ret"], 0);
       EXPECT_EQ(t.run({"call", "aclRuleSetApi", key, "54", "d:1720010db8000000000000000000000001"
                        "1b20010db8000000000000000000000002"})["ret"], 0);
     },
     {"call", "aclRuleSetApi", PoolsE2e::ruleKey(1001, 1), "54",
      "d:1f20010db8000000000000000000000003"}},
};
// clang-format on

TEST_F(PoolsE2e, EachPoolRefusesWhenEmptyAndKeepsWhatItHolds) {
  for (const PoolRow& row : kRows) {
    SCOPED_TRACE(row.pool);
    AclProcessOptions o;
    o.opts = row.opts;
    acl_ = AclProcess::start(o);
    ASSERT_NE(acl_, nullptr);
    run({"debug", "set", "0x2"});
    slotsKnown(row.slots);  // as many line cards as the slot pool holds
    row.fill(*this);
    expectAuditClean();
    const std::vector<std::string> before = stored();

    std::string out;
    acl_->aclctl(row.refused, &out);
    const json answer = json::parse(out, nullptr, false);
    ASSERT_TRUE(answer.is_object()) << out;
    EXPECT_EQ(answer["ret"], row.ret) << out;
    if (!row.said.empty()) {
      EXPECT_THAT((acl_->logText() + slurp(acl_->runDir() + "/acl.stderr")), HasSubstr(row.said))
          << row.said;
    }
    EXPECT_TRUE(acl_->alive());
    EXPECT_EQ(run({"--json", "slot", "show"})["slots"].size(), row.slots);
    const std::vector<std::string> after = stored();
    for (size_t v = 0; v < kViews.size(); ++v) {
      EXPECT_TRUE(after[v] == before[v]) << "changed: " << kViews[v].back() << "\n"
                                         << firstDifference(before[v], after[v]);
    }
    expectAuditClean();
    acl_.reset();
  }
}

}  // namespace
