// CPU defend installations: what reaches the global table (marking, rate limit, both forms), the
// undo of a failed installation, the rules left out, and the transport checks.
#include <array>
#include <set>
#include <tuple>

#include "api/acl_slot_api.h"
#include "services/acl_cpudefend.h"
#include "unit/services/install_fixture.h"

namespace svctest {
namespace {

using namespace acldev;

class CpudefendTest : public InstallTest {
 protected:
  static std::set<HwKey> keys() {
    std::set<HwKey> out;
    for (auto& [k, e] : globalTable()) out.insert(k);
    return out;
  }
  static Bytes args(uint32_t lst, uint32_t action, uint32_t cir = 0, uint32_t cbs = 0,
                    uint32_t ebs = 0, uint32_t car = 0) {
    Bytes b(24);
    const uint32_t w[] = {lst, action, cir, cbs, ebs, car};
    for (size_t i = 0; i < 6; ++i) be::store32(b, 4 * i, w[i]);
    return b;
  }
};

TEST_F(CpudefendTest, RecordFormCarriesAppActionAndRateLimit) {
  validList(1001, {1, 5, 9});
  ASSERT_EQ(_aclCpudefendGlobaladd(1001, RULE_ACTION_DENY, 1000, 2000, 3000, 1), 0);
  auto table = globalTable();
  ASSERT_EQ(table.size(), 3u);
  for (auto& [k, e] : table) {
    const auto& [lst, ruleIdx, dir] = k;
    ASSERT_FALSE(e.tlv);
    const Bytes& d = e.data;
    // A CPU defend rule ranks by its own number; the rule's own action stays beside the deny.
    const std::span<const uint8_t> action(d.data() + kAction, kActionLen),
        bits(d.data() + kBits, kBitsLen), out(d.data() + kOutAction, kOutActionLen);
    EXPECT_EQ(std::make_tuple(dir, e.priority, be::load16(d, kApp), be::load32(d, kCir),
                              be::load32(d, kCbs), be::load32(d, kEbs), int(d[kMeterType]),
                              int(d[kMeterMode])),
              std::make_tuple(0u, ruleIdx, 187u, 1000u, 2000u, 3000u, 1, 1));
    EXPECT_TRUE(aclBitTest(action, RULE_ACTION_DENY) && aclBitTest(action, RULE_ACTION_PERMIT));
    EXPECT_TRUE(aclBitTest(bits, RULE_BIT_OUTACTION) && aclBitTest(bits, RULE_BIT_METERID) &&
                aclBitTest(out, 3));
  }
  // Removal with the same arguments takes every rule away again, without anomalies.
  ASSERT_EQ(_aclCpudefendGlobaldel(1001, RULE_ACTION_DENY, 1000, 2000, 3000, 1), 0);
  // The caller owns the installation: the list gains no reference.
  EXPECT_EQ(std::make_tuple(globalTable().size(), anomalies(), aclListEntryGet(1001)->refCnt),
            std::make_tuple(0u, 0u, 0));

  // Without CAR enable no rate limit is programmed.
  ASSERT_EQ(_aclCpudefendGlobaladd(1001, RULE_ACTION_DENY, 1000, 2000, 3000, 0), 0);
  const Bytes d = globalTable().begin()->second.data;
  EXPECT_EQ(std::make_tuple(be::load32(d, kCir), int(d[kMeterType]),
                            aclBitTest(std::span(d).subspan(kBits, kBitsLen), RULE_BIT_METERID)),
            std::make_tuple(0u, 0, false));
}

TEST_F(CpudefendTest, TlvFormAppendsItemsAndDropsTheTemporaryApp) {
  start({{"acl.tlvenable", "true"}});
  validList(1001, {1, 2});
  AclRuleEntry* r2 = aclRuleEntryGetByIndex(1001, 2);
  const uint8_t deny[] = {0};
  ASSERT_EQ(aclShortActionEntryAdd(r2, RULE_ACTION_DENY, ACL_ACTION_NO_SLOT, deny, 0), 0);
  const uint32_t before = valuesInUse();

  ASSERT_EQ(_aclCpudefendGlobaladd(1001, RULE_ACTION_DENY, 7, 8, 9, 1), 0);
  auto table = globalTable();
  ASSERT_EQ(table.size(), 2u);
  const std::vector<Item> car = {{78, {}},           {66, {0, 0, 0, 1}}, {67, {0, 0, 0, 1}},
                                 {68, {0, 0, 0, 7}}, {69, {0, 0, 0, 8}}, {72, {0, 0, 0, 9}}};
  for (auto& [k, e] : table) {
    ASSERT_TRUE(e.tlv);
    const auto fields = items(e.data, false);
    EXPECT_NE(std::find(fields.begin(), fields.end(), Item{27, {0x00, 0xBB}}), fields.end());
    const auto acts = items(e.data, true);
    // Rule 2's deny is its own (no second deny item); rule 1's is appended.
    std::vector<Item> want = {{RULE_ACTION_PERMIT, {}}, {RULE_ACTION_DENY, {}}};
    want.insert(want.end(), car.begin(), car.end());
    EXPECT_EQ(acts, want) << "rule " << std::get<1>(k);
    // The header's total covers the appended items.
    EXPECT_EQ(kTlvHeaderLen + be::load16(e.data, kTlvBufferLen), e.data.size());
  }
  // The application entry existed only while each rule was sent.
  EXPECT_EQ(aclRuleValueEntryGet(r2, RULE_BIT_APP), nullptr);
  EXPECT_EQ(valuesInUse(), before);

  ASSERT_EQ(_aclCpudefendGlobaldel(1001, RULE_ACTION_DENY, 7, 8, 9, 1), 0);
  EXPECT_EQ(std::make_tuple(globalTable().size(), anomalies(), valuesInUse()),
            std::make_tuple(0u, 0u, before));
}

TEST_F(CpudefendTest, FailureOnTheThirdRuleLeavesTheTableAsItWas) {
  for (const char* tlv : {"false", "true"}) {
    SCOPED_TRACE(tlv);
    start({{"acl.tlvenable", tlv}});
    validList(1500, {3});
    ASSERT_EQ(_aclCpudefendGlobaladd(1500, RULE_ACTION_PERMIT, 0, 0, 0, 0), 0);
    validList(1001, {1, 2, 4, 8});
    const auto before = keys();
    const uint32_t values = valuesInUse();
    failNth(1001, 3);
    EXPECT_EQ(_aclCpudefendGlobaladd(1001, RULE_ACTION_DENY, 1, 2, 3, 1), 0x0BAD);
    EXPECT_EQ(std::make_pair(keys(), valuesInUse()), std::make_pair(before, values));
    // Only the failing rule's own removal finds nothing to remove.
    const auto j = vdev::journalCopy();
    ASSERT_EQ(j.anomalies.size(), 1u);
    EXPECT_EQ(j.anomalies[0].rule, 4u);
  }
}

TEST_F(CpudefendTest, RulesOffOrInAVrfAreNeitherInstalledNorRemoved) {
  validList(1001, {1, 2, 3});
  AclRuleEntry* off = aclRuleEntryGetByIndex(1001, 1);
  aclBitSet(off->fieldBits, RULE_BIT_TRID);
  off->trIdx = 4;
  off->trActive = 0;
  aclBitSet(aclRuleEntryGetByIndex(1001, 3)->fieldBits, RULE_BIT_VRFID);
  ASSERT_EQ(_aclCpudefendGlobaladd(1001, RULE_ACTION_DENY, 0, 0, 0, 0), 0);
  EXPECT_EQ(keys(), (std::set<HwKey>{{1001, 2, 0}}));
  ASSERT_EQ(_aclCpudefendGlobaldel(1001, RULE_ACTION_DENY, 0, 0, 0, 0), 0);
  EXPECT_EQ(std::make_pair(globalTable().size(), anomalies()), std::make_pair(0ul, 0ul));
  // An active time range is installed.
  off->trActive = 1;
  ASSERT_EQ(_aclCpudefendGlobaladd(1001, RULE_ACTION_DENY, 0, 0, 0, 0), 0);
  EXPECT_EQ(globalTable().size(), 2u);
}

TEST_F(CpudefendTest, RefusalsChangeNothing) {
  EXPECT_EQ(_aclCpudefendGlobaladd(1001, 3, 0, 0, 0, 0), ACL_ERR_LIST_NOT_EXIST);
  list(1001);
  EXPECT_EQ(_aclCpudefendGlobaladd(1001, 3, 0, 0, 0, 0), ACL_ERR_LIST_EMPTY);
  EXPECT_EQ(_aclCpudefendGlobaldel(1001, 3, 0, 0, 0, 0), ACL_ERR_LIST_EMPTY);
  validList(1002, {1});
  EXPECT_EQ(_aclCpudefendGlobaladd(1002, 64, 0, 0, 0, 0), CMN_ERR_BAD_PARAM);
  const auto key = slotKey(1, 2);
  EXPECT_EQ(_aclCpudefendSlotadd(key.data(), 1003, 3, 0, 0, 0, 0), ACL_ERR_LIST_NOT_EXIST);
  EXPECT_EQ(_aclCpudefendSlotadd(nullptr, 1002, 3, 0, 0, 0, 0), CMN_ERR_BAD_PARAM);
  EXPECT_TRUE(globalTable().empty());
}

TEST_F(CpudefendTest, TransportTakesExactlyTwentyFourBytes) {
  validList(1001, {1});
  const Bytes a = args(1001, RULE_ACTION_DENY);
  for (uint32_t len : {0u, 20u, 23u, 25u}) {
    EXPECT_EQ(exCall(_aclCpudefendGlobaladdEx, a, len), 22) << len;
    EXPECT_EQ(exCall(_aclCpudefendGlobaldelEx, a, len), 22) << len;
  }
  EXPECT_EQ(_aclCpudefendGlobaladdEx(0), 22);
  wire::BufDesc noData{nullptr, 24};
  EXPECT_EQ(_aclCpudefendGlobaladdEx(reinterpret_cast<uintptr_t>(&noData)), 22);
  EXPECT_TRUE(globalTable().empty());
  EXPECT_EQ(exCall(_aclCpudefendGlobaladdEx, a, 24), 0);
  EXPECT_EQ(globalTable().size(), 1u);
  EXPECT_EQ(exCall(_aclCpudefendGlobaldelEx, a, 24), 0);
  EXPECT_TRUE(globalTable().empty());

  // The slot table hands the same record on, under its own lock.
  auto key = slotKey(1, 2);
  Bytes copy = a;
  wire::BufDesc d{copy.data(), 23};
  const auto k = reinterpret_cast<uintptr_t>(key.data());
  const auto b = reinterpret_cast<uintptr_t>(&d);
  EXPECT_EQ(aclSlotSetApi(k, ACL_SLOT_CMD_CPUDEFEND_ADD, b), 22);
  EXPECT_EQ(aclSlotSyncApi(k, ACL_SLOT_CMD_CPUDEFEND_DEL, b), 22);
  d.len = 24;
  EXPECT_EQ(aclSlotSetApi(k, ACL_SLOT_CMD_CPUDEFEND_ADD, b), 0);
  EXPECT_EQ(aclSlotSetApi(k, ACL_SLOT_CMD_CPUDEFEND_DEL, b), 0);
  EXPECT_EQ(aclSlotSetApi(0, ACL_SLOT_CMD_CPUDEFEND_ADD, b), CMN_ERR_BAD_PARAM);
  // Any other command is accepted and does nothing.
  EXPECT_EQ(aclSlotSetApi(k, 9, 0), 0);
  // The slot scope has no hardware command of its own: nothing reaches the global table.
  EXPECT_TRUE(globalTable().empty());
}

}  // namespace
}  // namespace svctest
