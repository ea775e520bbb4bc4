// One rule's translation and installation against copying the 508-byte rule record it becomes.
// The rule (IPv4, source 10.1.2.0/24, destination 198.51.100.7, TCP to port 80, permit) lives in a
// list made through the table functions. Copy: memcpy of a ready record. Translate: the record
// made from the stored rule. Install: translation and the install command on an interface, as a
// binding sends each rule, followed by the removal (translated and sent the same way) so the
// hardware table stays the same size; the counters count both, so per_rule is one of them. The
// translation keeps the rule's part of the record while nothing can have changed it: Translate and
// Install use the kept record (the lock is held throughout), TranslateFresh moves the store
// generation first, as every request does. DeviceCommand: Install's device commands alone. The
// ratios to the copy are printed at the end.
#include <stdlib.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_group.h"
#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "bound_lists.h"
#include "hw/acl_dev_trans.h"
#include "hw/acl_hw_options.h"
#include "hw/acl_if_internal.h"
#include "platform/hwil.h"
#include "platform/proc.h"
#include "rate_reporter.h"
#include "wire/acl_codes.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

namespace {

constexpr uint32_t kList = 3001;
constexpr uint32_t kRule = 5;
constexpr uint32_t kUnit = benchlists::kFirstUnit;

int32_t ruleSet(uint32_t cmd, uint32_t value) {
  std::array<uint8_t, ACL_RULE_KEY_LEN> key{};
  be::store32(key, 0, kList);
  be::store32(key, 4, kRule);
  uint8_t word[4];
  be::store32(word, value);
  return aclRuleSetApi(reinterpret_cast<uintptr_t>(key.data()), cmd,
                       reinterpret_cast<uintptr_t>(word));
}

int32_t ruleSetBytes(uint32_t cmd, std::vector<uint8_t> bytes) {
  std::array<uint8_t, ACL_RULE_KEY_LEN> key{};
  be::store32(key, 0, kList);
  be::store32(key, 4, kRule);
  wire::BufDesc d{bytes.data(), static_cast<uint32_t>(bytes.size())};
  return aclRuleSetApi(reinterpret_cast<uintptr_t>(key.data()), cmd,
                       reinterpret_cast<uintptr_t>(&d));
}

bool buildRule() {
  uint8_t word[4];
  be::store32(word, ACL_LST_STATUS_CREATE);
  if (aclLstSetApi(kList, ACL_LST_CMD_STATUS, reinterpret_cast<uintptr_t>(word)) != 0) return false;
  std::vector<uint8_t> permit(8, 0);
  aclBitSet(permit, RULE_ACTION_PERMIT);
  const int32_t rets[] = {
      ruleSet(ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_CREATE),
      ruleSet(7, 1),
      ruleSetBytes(ACL_RULE_CMD_SRCADDR, {10, 1, 2, 0}),
      ruleSet(9, 24),
      ruleSetBytes(ACL_RULE_CMD_DSTADDR, {198, 51, 100, 7}),
      ruleSet(ACL_RULE_CMD_PROTOSUBTYPE, 6),
      ruleSet(16, 80),
      ruleSetBytes(ACL_RULE_CMD_ACTION, permit),
      ruleSet(ACL_RULE_CMD_STATUS, ACL_RULE_STATUS_SET_VALID),
  };
  for (const int32_t ret : rets) {
    if (ret != 0) {
      std::fprintf(stderr, "bench_rule_install: rule set refused: 0x%08x\n", unsigned(ret));
      return false;
    }
  }
  return true;
}

void BM_RecordCopy(benchmark::State& state) {
  std::array<uint8_t, ACL_DEV_RECORD_LEN> src{}, dst{};
  {
    AclLockGuard lock;
    aclDevTrans(aclRuleEntryGetByIndex(kList, kRule), src.data(), 0, 0, 0, 1, 0, 0, 0);
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(src.data());
    std::memcpy(dst.data(), src.data(), src.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_RuleTranslate(benchmark::State& state) {
  AclLockGuard lock;
  const AclRuleEntry* rule = aclRuleEntryGetByIndex(kList, kRule);
  std::array<uint8_t, ACL_DEV_RECORD_LEN> dev{};
  for (auto _ : state) {
    const uint32_t ret = aclDevTrans(rule, dev.data(), 0, 0, 0, 1, 0, 0, 0);
    benchmark::DoNotOptimize(ret);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}

// The same translation with nothing kept: the store generation moves before each one, as it does
// at every request, so this is what a rule's first translation under one hold of the lock costs.
void BM_RuleTranslateFresh(benchmark::State& state) {
  AclLockGuard lock;
  const AclRuleEntry* rule = aclRuleEntryGetByIndex(kList, kRule);
  std::array<uint8_t, ACL_DEV_RECORD_LEN> dev{};
  for (auto _ : state) {
    aclStoreGenBump();
    const uint32_t ret = aclDevTrans(rule, dev.data(), 0, 0, 0, 1, 0, 0, 0);
    benchmark::DoNotOptimize(ret);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_RuleInstall(benchmark::State& state) {
  AclLockGuard lock;
  AclListEntry* list = aclListEntryGet(kList);
  const AclRuleEntry* rule = aclRuleEntryGetByIndex(kList, kRule);
  aclglb::Buffer buf(false);
  const aclif::Binding b = aclif::binding(kUnit, 0, 0, 0, 2);
  bool transFailed = false;
  for (auto _ : state) {
    if (aclif::sendRule(buf, rule, list, b, aclif::Send{false, nullptr}, &transFailed) != 0 ||
        aclif::sendRule(buf, rule, list, b, aclif::Send{true, nullptr}, &transFailed) != 0) {
      state.SkipWithError("the device refused the rule");
      break;
    }
  }
  // An install and a removal per iteration.
  state.SetItemsProcessed(2 * state.iterations());
}

// The device's part of Install alone: the same install and removal handed straight to the device
// with a ready record and options record, no translation, location lookup or call chain.
void BM_DeviceCommand(benchmark::State& state) {
  std::array<uint8_t, ACL_DEV_RECORD_LEN> rec{};
  {
    AclLockGuard lock;
    aclDevTrans(aclRuleEntryGetByIndex(kList, kRule), rec.data(), 0, 0, 0, 1, 0, 0, 0);
  }
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> options{};
  aclHwOptionsFill(AclHwScope::Unit, false, kUnit, ACL_DEV_RECORD_LEN, {}, options);
  for (auto _ : state) {
    if (zorHwilCmdSetApi(kUnit, HWIL_CMD_IF_ADD, rec.data(), options.data()) != 0 ||
        zorHwilCmdSetApi(kUnit, HWIL_CMD_IF_DEL, rec.data(), options.data()) != 0) {
      state.SkipWithError("the device refused the rule");
      break;
    }
  }
  state.SetItemsProcessed(2 * state.iterations());
}

BENCHMARK(BM_RecordCopy);
BENCHMARK(BM_RuleTranslate);
BENCHMARK(BM_RuleTranslateFresh);
BENCHMARK(BM_RuleInstall);
BENCHMARK(BM_DeviceCommand);

}  // namespace

int main(int argc, char** argv) {
  const BenchGroup group;
  if (!group.ok()) return 1;
  benchlists::addInterfaces(1);
  if (aclOptInit() != 0 || !buildRule()) {
    std::fprintf(stderr, "bench_rule_install: could not make the rule\n");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  RateReporter reporter("items_per_second");
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const auto rate = [&](const char* name) {
    const auto it = reporter.rates.find(name);
    return it == reporter.rates.end() ? 0.0 : it->second;
  };
  const double copy = rate("BM_RecordCopy");
  std::printf("\ntime per rule against one copy of the 508-byte record (%.1f ns):\n",
              copy > 0 ? 1e9 / copy : 0.0);
  for (const char* name :
       {"BM_RuleTranslate", "BM_RuleTranslateFresh", "BM_RuleInstall", "BM_DeviceCommand"}) {
    const double r = rate(name);
    if (r <= 0 || copy <= 0) continue;
    std::printf("  %-21s %10.1f ns = %8.2f copies\n", name, 1e9 / r, copy / r);
  }
  return 0;
}
