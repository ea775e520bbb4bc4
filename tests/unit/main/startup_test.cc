#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "control/acl_slot.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/logging.h"
#include "platform/options.h"
#include "platform/rtbus.h"
#include "platform/sil.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

class StartupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    aclResetForTest();
    pools = silMemPoolLiveCount();
    sems = silSemLiveCount();
  }
  void TearDown() override { aclResetForTest(); }

  uint32_t poolEntries(SIL_POOL_ID pool) {
    SilMemPoolInfo info{};
    return silMemPoolInfoGet(pool, &info) ? info.entries : 0;
  }
  // Nothing of a group is left: no pools, semaphore or route socket, and every byte zero.
  void expectNothingLeft() {
    EXPECT_FALSE(aclStarted());
    EXPECT_EQ(silMemPoolLiveCount(), pools);
    EXPECT_EQ(silSemLiveCount(), sems);
    EXPECT_EQ(plat::routeSocketLiveCount(), 0u);
    const auto* bytes = reinterpret_cast<const uint8_t*>(&gaclGrp);
    for (size_t i = 0; i < sizeof gaclGrp; ++i) ASSERT_EQ(bytes[i], 0) << "group byte " << i;
  }

  test::TempRunDir runDir;
  uint32_t pools = 0, sems = 0;
};

TEST_F(StartupTest, DefaultsBuildTheWholeGroup) {
  ASSERT_EQ(aclOptInit(), 0);
  const AclGroup& g = gaclGrp;
  EXPECT_EQ(
      std::make_tuple(g.maxLstNum, g.maxLstRuleNum, g.maxGruleNum, g.maxIfNum, g.maxGemPortNum,
                      g.maxSlotNum, g.maxBlackListNum, g.carMin, g.carMax, g.debugFlags),
      std::make_tuple(64u, 128u, 1024u, 28u, 128u, 288u, 128u, 1000u, 1024000u, 0x100u));
  EXPECT_EQ(std::make_tuple(g.dynamicBindEnable, g.redirectMultiEnable), std::make_tuple(0, 0));
  EXPECT_EQ(std::make_tuple(poolEntries(g.ifListPool), poolEntries(g.shortRulePool),
                            poolEntries(g.shortActionPool), poolEntries(g.longRulePool),
                            poolEntries(g.gemPortListPool), poolEntries(g.dstIpPool)),
            std::make_tuple(28u * 128 * 18, 10240u, 10240u, 4096u, 128u * 18, 16u));
  for (const AclRuleNum& n : g.ruleNum)
    EXPECT_EQ(std::make_tuple(n.cur, n.max), std::make_tuple(0, 128));
  SilMemPoolInfo grule{};
  ASSERT_TRUE(silMemPoolInfoGet(g.grulePool, &grule));
  EXPECT_TRUE(grule.indexed);
  EXPECT_STREQ(grule.name, "acl_grule");
  EXPECT_EQ(silMemPoolLiveCount(), pools + 16);

  EXPECT_GT(g.sockFd, 0);
  EXPECT_TRUE(avl_is_empty(&g.listTree) && dlist::empty(&g.statsList) &&
              dlist::empty(&g.dstIpRuleList));
  // The own slot (system 1, slot 1 by default) has its ledger, at full capacity.
  AclSlotEntry* self = aclSlotEntryGet(zorSelfSysIndex(), zorSelfSlotIndex());
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(self->maxSubRuleNum[17], 1024u);
  EXPECT_EQ(dlist::count(&g.slotList), 1u);

  uint8_t v[4] = {};
  ASSERT_EQ(zorHwilScalarGet(0, 499, v, 0), 0);
  EXPECT_EQ(be::load32(v), 165u);
}

TEST_F(StartupTest, EnableFalseStartsNothing) {
  for (const char* off : {"False", "f", "FALSE"}) {
    plat::optSet("acl.enable", off);
    EXPECT_EQ(aclOptInit(), -1) << off;
    expectNothingLeft();
  }
  plat::optSet("acl.enable", "no");  // only a leading f switches it off
  EXPECT_EQ(aclOptInit(), 0);
}

// Numbers that are zero or not numbers keep their defaults; flags read their first letter.
TEST_F(StartupTest, OptionValuesAreReadOrKeepTheirDefaults) {
  auto num = [](uint32_t AclGroup::*f) { return [f] { return gaclGrp.*f; }; };
  auto flag = [](uint8_t AclGroup::*f) { return [f] { return uint32_t{gaclGrp.*f}; }; };
  const struct {
    const char* key;
    const char* value;
    std::function<uint32_t()> read;
    uint32_t expected;
  } cases[] = {
      {"acl.maxlstnum", "0", num(&AclGroup::maxLstNum), 64},
      {"acl.maxlstnum", "lots", num(&AclGroup::maxLstNum), 64},
      {"acl.maxlstnum", "", num(&AclGroup::maxLstNum), 64},
      {"acl.maxlstnum", "12abc", num(&AclGroup::maxLstNum), 12},
      {"acl.maxgrulenum", "2048", num(&AclGroup::maxGruleNum), 2048},
      {"acl.maxslotnum", "9", num(&AclGroup::maxSlotNum), 9},
      {"acl.carmax", "0x10", num(&AclGroup::carMax), 1024000},
      {"acl.carmin", " 77", num(&AclGroup::carMin), 77},
      {"acl.dynamicbindenable", "yes", flag(&AclGroup::dynamicBindEnable), 0},
      {"acl.dynamicbindenable", "True", flag(&AclGroup::dynamicBindEnable), 1},
      {"acl.dynamicbindenable", "t", flag(&AclGroup::dynamicBindEnable), 1},
      {"acl.multiredirectenable", "no", flag(&AclGroup::redirectMultiEnable), 1},
      {"acl.multiredirectenable", "false", flag(&AclGroup::redirectMultiEnable), 0},
      {"acl.multiredirectenable", "", flag(&AclGroup::redirectMultiEnable), 1},
      {"acl.tlvenable", "TRUE", flag(&AclGroup::tlvEnable), 1},
      {"acl.tlvenable", "1", flag(&AclGroup::tlvEnable), 0},
      {"acl.ethsubifenable", "true", flag(&AclGroup::ethSubIfEnable), 1},
  };
  for (const auto& c : cases) {
    aclResetForTest();
    plat::optSet(c.key, c.value);
    ASSERT_EQ(aclOptInit(), 0) << c.key << "=" << c.value;
    EXPECT_EQ(c.read(), c.expected) << c.key << "=" << c.value;
  }
}

TEST_F(StartupTest, PerTypeMaximaFollowTheListMaximum) {
  plat::optSet("acl.maxrulenum", "50");
  plat::optSet("acl.maxipv6rulenum", "9");
  ASSERT_EQ(aclOptInit(), 0);
  const uint16_t expected[6] = {50, 50, 9, 50, 50, 50};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(gaclGrp.ruleNum[i].max, expected[i]) << i;
  EXPECT_EQ(poolEntries(gaclGrp.ifListPool), 28u * 50 * 18);

  aclResetForTest();
  plat::optSet("acl.maxrulenum", "70000");  // kept as 16 bits: 70000 - 65536
  ASSERT_EQ(aclOptInit(), 0);
  EXPECT_EQ(gaclGrp.ruleNum[0].max, 70000 - 65536);
}

// Every creation step made to fail in turn: start-up answers -1 and leaves nothing behind. (A pool
// too large for 32 bits is refused end to end, the daemon staying up without its socket.)
TEST_F(StartupTest, EachFailingCreationStepLeavesNothing) {
  std::vector<plat::FaultRule> faults = {
      // clang-format off
      {.call = "silCreateMSem"}, {.call = "silTimerListInit"}, {.call = "zor_socket"},
      {.call = "zor_bind"}, {.call = "zor_setsockopt"},
      {.call = "silCreateTask", .name = "acltask"},
      {.call = "zor_setsockopt", .skip = 9},  // the module-number option after the nine groups
      // clang-format on
  };
  for (const char* pool :
       {"acl_list", "acl_grule", "acl_rule", "acl_if", "acl_stats", "acl_iflist", "acl_onuport",
        "acl_onuportlist", "acl_blacklist", "acl_slot", "acl_dstip", "acl_dstiprule",
        "acl_shortrule", "acl_longrule", "acl_shortaction", "acl_longaction"}) {
    faults.push_back({.call = "silMemPoolInit", .name = pool});
  }
  for (const auto& f : faults) {
    SCOPED_TRACE(f.call + " " + f.name + " skip " + std::to_string(f.skip));
    plat::faultClear();
    plat::faultAdd(f);
    EXPECT_EQ(aclOptInit(), -1);
    expectNothingLeft();
    EXPECT_TRUE(plat::faultList().empty()) << "the step was reached";
  }
  plat::faultClear();
  EXPECT_EQ(aclOptInit(), 0) << "a later start-up succeeds";
}

TEST_F(StartupTest, MutexFailureIsLoggedUnderTheStartupGuard) {
  plat::faultAdd({.call = "silCreateMSem"});
  const uint64_t before = plat::logLastSeq();
  EXPECT_EQ(aclOptInit(), -1);
  auto lines = plat::logRecent(before);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(std::tie(lines[0].text, lines[0].tag, lines[0].priority),
            std::tuple("ACL init error.(Reason=[create mutex error])", 0x3EA0005u, 7u));
}

}  // namespace
