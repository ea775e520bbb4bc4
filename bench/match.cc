// The software match services against a plain linear reference measured in the same run: an
// address match (list get 10 through aclMatch) and a CPU-defend packet match (list get 16), on
// lists of 16, 128 and 4096 rules where only the last rule decides. The services answer from the
// compiled form of the list (built on the first query, kept while the store does not change); the
// reference walks an array of ready-made native records with the same comparisons, the floor any
// walk of every rule can reach. The table at the end gives the services' rate as a share of it:
// at 4096 rules a share above 1 means the compiled form skips rules that cannot match.
#include <arpa/inet.h>
#include <malloc.h>
#include <stdlib.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_group.h"
#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "main/acl_group.h"
#include "platform/options.h"
#include "platform/proc.h"
#include "services/acl_cpudefend_match.h"
#include "services/acl_match.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"
#include "wire/buf_desc.h"
#include "rate_reporter.h"

namespace {

// Lists of each size: the address lists and the port lists.
constexpr uint32_t kSizes[] = {16, 128, 4096};
constexpr uint32_t kAddrLists[] = {1016, 1128, 1496};
constexpr uint32_t kPortLists[] = {1216, 1328, 1896};

uint32_t listOf(const uint32_t (&lists)[3], int64_t n) {
  for (size_t i = 0; i < std::size(kSizes); ++i) {
    if (kSizes[i] == n) return lists[i];
  }
  return 0;
}
uint32_t addrList(int64_t n) {
  return listOf(kAddrLists, n);
}
uint32_t portList(int64_t n) {
  return listOf(kPortLists, n);
}

// Rule i of n: 10.(i >> 8).(i & 255).0/24 denied, the last 192.168.0.0/16 permitted.
uint32_t ruleAddr(uint32_t i, uint32_t n) {
  return i == n ? 0xC0A80000u : (10u << 24) | (i << 8);
}
uint32_t ruleLen(uint32_t i, uint32_t n) {
  return i == n ? 16 : 24;
}

// Reports a refused set and gives false.
bool ok(int32_t ret, uint32_t lst, uint32_t rule, uint32_t cmd) {
  if (ret != 0) std::fprintf(stderr, "rule %u/%u set %u: 0x%08x\n", lst, rule, cmd, unsigned(ret));
  return ret == 0;
}

int32_t ruleSet(uint32_t lst, uint32_t rule, uint32_t cmd, uint32_t value) {
  std::array<uint8_t, ACL_RULE_KEY_LEN> key{};
  be::store32(key, 0, lst);
  be::store32(key, 4, rule);
  uint8_t word[4];
  be::store32(word, value);
  return ok(aclRuleSetApi(reinterpret_cast<uintptr_t>(key.data()), cmd,
                          reinterpret_cast<uintptr_t>(word)),
            lst, rule, cmd)
             ? 0
             : -1;
}

int32_t ruleSetBytes(uint32_t lst, uint32_t rule, uint32_t cmd, std::vector<uint8_t> bytes) {
  std::array<uint8_t, ACL_RULE_KEY_LEN> key{};
  be::store32(key, 0, lst);
  be::store32(key, 4, rule);
  wire::BufDesc d{bytes.data(), static_cast<uint32_t>(bytes.size())};
  return ok(aclRuleSetApi(reinterpret_cast<uintptr_t>(key.data()), cmd,
                          reinterpret_cast<uintptr_t>(&d)),
            lst, rule, cmd)
             ? 0
             : -1;
}

std::vector<uint8_t> actionSet(uint32_t code) {
  std::vector<uint8_t> set(8, 0);
  aclBitSet(set, code);
  return set;
}

bool createList(uint32_t lst) {
  uint8_t word[4];
  be::store32(word, ACL_LST_STATUS_CREATE);
  return aclLstSetApi(lst, ACL_LST_CMD_STATUS, reinterpret_cast<uintptr_t>(word)) == 0;
}

// Rules 1..n-1 deny, rule n permits (ruleAddr).
bool buildAddrList(uint32_t lst, uint32_t n) {
  if (!createList(lst)) return false;
  for (uint32_t i = 1; i <= n; ++i) {
    const bool last = i == n;
    std::vector<uint8_t> bytes(4);
    be::store32(bytes, 0, ruleAddr(i, n));
    if (ruleSet(lst, i, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE) != 0 ||
        ruleSet(lst, i, 7, 1) != 0 || ruleSetBytes(lst, i, ACL_RULE_CMD_SRCADDR, bytes) != 0 ||
        ruleSet(lst, i, 9, ruleLen(i, n)) != 0 ||
        ruleSetBytes(lst, i, ACL_RULE_CMD_ACTION,
                     actionSet(last ? RULE_ACTION_PERMIT : RULE_ACTION_DENY)) != 0 ||
        ruleSet(lst, i, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID) != 0) {
      return false;
    }
  }
  return true;
}

// Rules 1..n-1 deny TCP to port 1000 + i, rule n permits TCP to port 80.
bool buildPortList(uint32_t lst, uint32_t n) {
  if (!createList(lst)) return false;
  for (uint32_t i = 1; i <= n; ++i) {
    const bool last = i == n;
    if (ruleSet(lst, i, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE) != 0 ||
        ruleSet(lst, i, 7, 1) != 0 || ruleSet(lst, i, 6, 6) != 0 ||
        ruleSet(lst, i, 16, last ? 80 : 1000 + i) != 0 ||
        ruleSetBytes(lst, i, ACL_RULE_CMD_ACTION,
                     actionSet(last ? RULE_ACTION_PERMIT : RULE_ACTION_DENY)) != 0 ||
        ruleSet(lst, i, ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID) != 0) {
      return false;
    }
  }
  return true;
}

// The reference: native records, compared in a plain loop.
struct RefAddrRule {
  uint32_t addr, mask;
  bool permit;
};
struct RefPortRule {
  uint8_t ipVer, proto;
  uint16_t dport;
  uint8_t verdict;
};

std::vector<RefAddrRule> refAddrRules(uint32_t n) {
  std::vector<RefAddrRule> v;
  for (uint32_t i = 1; i <= n; ++i) {
    v.push_back({ruleAddr(i, n), 0xFFFFFFFFu << (32 - ruleLen(i, n)), i == n});
  }
  return v;
}
std::vector<RefPortRule> refPortRules(uint32_t n) {
  std::vector<RefPortRule> v;
  for (uint32_t i = 1; i <= n; ++i) {
    const bool last = i == n;
    v.push_back(
        {1, 6, static_cast<uint16_t>(last ? 80 : 1000 + i), static_cast<uint8_t>(last ? 2 : 3)});
  }
  return v;
}

// 192.0.2.1:40000 -> 198.51.100.7:80, TCP SYN, as a 148-byte request.
std::vector<uint8_t> synRequest() {
  std::vector<uint8_t> r(ACL_CPUDEFEND_REQ_LEN, 0);
  const uint8_t frame[] = {0x00, 0x1b, 0x21, 0x00, 0x00, 0x01, 0x00, 0x1b, 0x21, 0x3c, 0x4d,
                           0x5e, 0x08, 0x00, 0x45, 0x00, 0x00, 0x28, 0x00, 0x00, 0x00, 0x00,
                           0x40, 0x06, 0x00, 0x00, 0xc0, 0x00, 0x02, 0x01, 0xc6, 0x33, 0x64,
                           0x07, 0x9c, 0x40, 0x00, 0x50, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                           0x00, 0x00, 0x50, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  std::memcpy(r.data(), frame, sizeof frame);
  be::store32(r, ACL_CPUDEFEND_L2LEN, 14);
  be::store16(r, ACL_CPUDEFEND_ETHTYPE, ACL_ETHTYPE_IPV4);
  return r;
}

void BM_AddrMatch(benchmark::State& state) {
  const uint32_t lst = addrList(state.range(0));
  const uint8_t addr[4] = {192, 168, 1, 1};
  for (auto _ : state) {
    const int32_t ret = aclMatch(lst, addr, 32, ACL_MATCH_FAMILY_IPV4);
    if (ret != 0) {
      state.SkipWithError("the last rule did not permit");
      break;
    }
    benchmark::DoNotOptimize(ret);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_AddrMatchReference(benchmark::State& state) {
  const std::vector<RefAddrRule> rules = refAddrRules(static_cast<uint32_t>(state.range(0)));
  const uint8_t addr[4] = {192, 168, 1, 1};
  for (auto _ : state) {
    benchmark::DoNotOptimize(addr);
    const uint32_t a = be::load32(addr);
    int32_t ret = -1;
    for (const RefAddrRule& r : rules) {
      if ((a & r.mask) == (r.addr & r.mask)) {
        ret = r.permit ? 0 : -1;
        break;
      }
    }
    benchmark::DoNotOptimize(ret);
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_PacketMatch(benchmark::State& state) {
  const uint32_t lst = portList(state.range(0));
  std::vector<uint8_t> req = synRequest();
  wire::BufDesc desc{req.data(), static_cast<uint32_t>(req.size())};
  for (auto _ : state) {
    const int32_t ret =
        aclLstGetApi(lst, ACL_MATCH_CMD_CPUDEFEND, reinterpret_cast<uintptr_t>(&desc));
    if (ret != 0 || req[ACL_CPUDEFEND_VERDICT] != ACL_MATCH_VERDICT_PERMIT) {
      state.SkipWithError("the last rule did not permit");
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_PacketMatchReference(benchmark::State& state) {
  const std::vector<RefPortRule> rules = refPortRules(static_cast<uint32_t>(state.range(0)));
  std::vector<uint8_t> req = synRequest();
  for (auto _ : state) {
    benchmark::DoNotOptimize(req.data());
    const uint32_t l2len = be::load32(req, ACL_CPUDEFEND_L2LEN);
    const uint8_t proto = req[l2len + 9];
    const uint32_t l4 = l2len + 4u * (req[l2len] & 0x0F);
    const uint16_t dport = be::load16(req, l4 + 2);
    int32_t ret = -1;
    for (const RefPortRule& r : rules) {
      if (r.ipVer == 1 && r.proto == proto && r.dport == dport) {
        req[ACL_CPUDEFEND_VERDICT] = r.verdict;
        ret = 0;
        break;
      }
    }
    benchmark::DoNotOptimize(ret);
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_AddrMatch)->Arg(16)->Arg(128)->Arg(4096);
BENCHMARK(BM_AddrMatchReference)->Arg(16)->Arg(128)->Arg(4096);
BENCHMARK(BM_PacketMatch)->Arg(16)->Arg(128)->Arg(4096);
BENCHMARK(BM_PacketMatchReference)->Arg(16)->Arg(128)->Arg(4096);

}  // namespace

int main(int argc, char** argv) {
  const BenchGroup group;
  if (!group.ok()) return 1;
  // Room for every list: 2 x (16 + 128 + 4096) IPv4 rules.
  plat::optSet("acl.maxrulenum", "9000");
  plat::optSet("acl.maxgrulenum", "9000");
  bool built = aclOptInit() == 0;
  for (size_t i = 0; built && i < std::size(kSizes); ++i) {
    built = buildAddrList(kAddrLists[i], kSizes[i]) && buildPortList(kPortLists[i], kSizes[i]);
  }
  if (!built) {
    std::fprintf(stderr, "bench_match: could not build the lists\n");
    return 1;
  }

  // The heap each compiled list takes: its first query builds it, and nothing changes the store
  // between these queries, so each stays.
  std::printf("heap of the compiled form (first query of each list):\n");
  for (size_t i = 0; i < std::size(kSizes); ++i) {
    const size_t before = mallinfo2().uordblks;
    const uint8_t addr[4] = {192, 168, 1, 1};
    aclMatch(kAddrLists[i], addr, 32, ACL_MATCH_FAMILY_IPV4);
    const size_t after = mallinfo2().uordblks;
    std::printf("  address list of %4u rules: %8zu bytes\n", kSizes[i], after - before);
  }

  benchmark::Initialize(&argc, argv);
  RateReporter reporter("items_per_second");
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\nmatches per second, compiled service / linear reference:\n");
  for (const auto& [name, rate] : reporter.rates) {
    if (name.find("Reference") != std::string::npos) continue;
    const auto slash = name.find('/');
    const std::string ref = name.substr(0, slash) + "Reference" + name.substr(slash);
    const auto r = reporter.rates.find(ref);
    if (r == reporter.rates.end() || r->second <= 0) continue;
    std::printf("  %-24s %12.0f / %12.0f = %.3f\n", name.c_str(), rate, r->second,
                rate / r->second);
  }

  return 0;
}
