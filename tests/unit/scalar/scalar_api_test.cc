// The scalar table apart from the bindings: limits and state, the descriptor commands (NAMETOID,
// version, capability), the debug switches, the relays and their second relay after a failure,
// the service commands and the answers to missing buffers.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>

#include "counter/counter.h"
#include "main/acl_group.h"
#include "meter/meter.h"
#include "platform/logging.h"
#include "unit/scalar/scalar_fixture.h"

namespace {

using scalartest::ScalarTest;
using test::Desc;

class ScalarApi : public ScalarTest {};

TEST_F(ScalarApi, LimitsAndCountsFollowTheGroup) {
  // Lists, list maximum, rule maximum, global rules, valid global rules (none after start-up).
  EXPECT_EQ((std::vector{get(0), get(1), get(2), get(3), get(4)}),
            (std::vector{gaclGrp.maxLstNum, 0u, gaclGrp.maxLstRuleNum, gaclGrp.maxGruleNum, 0u}));
  makeList(1001, {1, 2});
  makeList(7, {3});
  EXPECT_EQ(get(1), 2u);
  // In use / maximum per type: L2 41/42, IPv4 43/44, ... UDF 51/52.
  EXPECT_EQ((std::vector{get(41), get(43), get(44), get(45), get(52)}),
            (std::vector<uint32_t>{1, 2, gaclGrp.ruleNum[1].max, 0, gaclGrp.ruleNum[5].max}));

  // Only valid global rules count, not taken ones.
  ASSERT_EQ(aclGruleAddEntry(2), 0);
  EXPECT_EQ(get(4), 0u);
  aclGruleGetEntry(2)->status = 1;
  aclGruleGetEntry(gaclGrp.maxGruleNum)->status = 1;
  EXPECT_EQ(get(4), 2u);

  EXPECT_EQ((std::vector{get(38), get(39), get(40), get(18)}),
            (std::vector<uint32_t>{gaclGrp.redirectMultiEnable, gaclGrp.carMin, gaclGrp.carMax,
                                   gaclGrp.debugFlags}));
}

TEST_F(ScalarApi, GetsWithoutAnswerAndWithoutBuffer) {
  int32_t ret = 0;
  for (uint32_t cmd : {10u, 13u, 19u, 22u, 25u, 53u, 59u, 60u, 65u, 67u, 68u, 1000u}) {
    get(cmd, &ret);
    EXPECT_EQ(ret, -1) << cmd;
  }
  for (uint32_t cmd = 14; cmd <= 17; ++cmd) {
    get(cmd, &ret);
    EXPECT_EQ(ret, CMN_ERR_NOT_SUPPORTED) << cmd;
  }
  // A value command with no buffer is answered, not written through.
  EXPECT_EQ(
      (std::vector{aclScalarGetApi(0, 0, 0), aclScalarGetApi(0, 28, 0), aclScalarGetApi(0, 20, 0),
                   aclScalarGetApi(0, 21, 0), aclScalarGetApi(0, 66, 0)}),
      (std::vector<int32_t>{CMN_ERR_BAD_PARAM, CMN_ERR_BAD_PARAM, ACL_RET_INVALID, ACL_RET_INVALID,
                            CMN_ERR_BAD_PARAM}));
  wire::BufDesc noData{nullptr, 16};
  EXPECT_EQ(aclScalarGetApi(0, 20, reinterpret_cast<uintptr_t>(&noData)), ACL_RET_INVALID);
  EXPECT_EQ(aclScalarGetApi(0, 21, reinterpret_cast<uintptr_t>(&noData)), ACL_RET_INVALID);
  EXPECT_EQ(aclScalarGetApi(0, 66, reinterpret_cast<uintptr_t>(&noData)), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(noData.len, 16u);
}

// The version text and its cut to a short area are checked end to end; here what lies past it.
TEST_F(ScalarApi, VersionIsNeverLongerThanItself) {
  Desc wide(64);
  ASSERT_EQ(aclScalarGetApi(0, 21, wide.addr()), 0);
  EXPECT_EQ(wide.desc.len, 15u);
  EXPECT_EQ(wide.data[15], 0) << "no terminating zero or anything else past 15 bytes";
  Desc exact(15);
  ASSERT_EQ(aclScalarGetApi(0, 21, exact.addr()), 0);
  EXPECT_EQ(exact.desc.len, 15u);
}

TEST_F(ScalarApi, NameToIdFindsTheListByItsWholeName) {
  makeList(12, {});
  makeList(1001, {});
  auto lookup = [](const std::string& name, uint32_t* id) {
    std::string area(4, '\0');
    area += name;
    Desc d(area);
    be::store32(d.data.data(), 0xABCD);
    const int32_t ret = aclScalarGetApi(0, 20, d.addr());
    *id = be::load32(d.data.data());
    EXPECT_EQ(d.desc.len, area.size()) << "the length stays";
    return ret;
  };
  uint32_t id = 0;
  EXPECT_EQ(lookup("acl12", &id), 0);
  EXPECT_EQ(id, 12u);
  EXPECT_EQ(lookup("acl1", &id), ACL_ERR_LIST_NOT_EXIST) << "a prefix is not the name";
  EXPECT_EQ(id, 0xABCDu) << "nothing written when not found";
  EXPECT_EQ(lookup("ACL12", &id), ACL_ERR_LIST_NOT_EXIST);
  Desc web(std::string("web"));
  ASSERT_EQ(aclLstSetApi(1001, 1, web.addr()), 0);
  EXPECT_EQ(lookup("web", &id), 0);
  EXPECT_EQ(id, 1001u);
  Desc shortArea(3);
  EXPECT_EQ(aclScalarGetApi(0, 20, shortArea.addr()), CMN_ERR_BUFFER_SHORT);

  // With the API debug bit the lookup is logged before and after.
  ASSERT_EQ(set(18, 0x4), 0);
  const uint64_t since = plat::logLastSeq();
  EXPECT_EQ(lookup("web", &id), 0);
  std::string text;
  for (const auto& l : plat::logRecent(since)) text += l.text + "\n";
  EXPECT_NE(text.find("ACL config [ACL GET] info=[cmd:=20]."), std::string::npos) << text;
  EXPECT_NE(text.find("info=[IN pBuf = (id)43981 (name)web total len 7]."), std::string::npos)
      << text;
  EXPECT_NE(text.find("info=[NAMETOID: id 1001]."), std::string::npos) << text;
}

TEST_F(ScalarApi, CapabilityRecordKeepsTheSecondWord) {
  Desc d(16);
  be::store32(d.data.data() + 4, 0x12345678);
  be::store32(d.data.data() + 12, 0x99);
  ASSERT_EQ(aclScalarGetApi(0, 66, d.addr()), 0);
  EXPECT_EQ(d.desc.len, 12u);
  EXPECT_EQ((std::vector{be::load32(d.data, 0), be::load32(d.data, 4), be::load32(d.data, 8),
                         be::load32(d.data, 12)}),
            (std::vector<uint32_t>{1, 0x12345678, 2, 0x99}));
  Desc shortRec(11);
  EXPECT_EQ(aclScalarGetApi(0, 66, shortRec.addr()), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(shortRec.desc.len, 11u);
}

TEST_F(ScalarApi, NullBufferIsRefusedForEverySetCommandBeforeAnything) {
  const uint32_t flags = gaclGrp.debugFlags;
  const size_t before = relays().size();
  for (uint32_t cmd = 0; cmd <= 70; ++cmd) {
    EXPECT_EQ(aclScalarSetApi(0, cmd, 0), CMN_ERR_BAD_PARAM) << cmd;
    EXPECT_EQ(aclScalarSyncApi(0, cmd, 0), CMN_ERR_BAD_PARAM) << cmd;
  }
  EXPECT_EQ(relays().size(), before) << "not even the relay after a failure";
  EXPECT_EQ(gaclGrp.debugFlags, flags);
}

TEST_F(ScalarApi, DebugBitsSwitchOneSiblingModuleAndNeverRelay) {
  gCounterDbg = 0;
  gMeterDebug = 0;
  const uint32_t start = gaclGrp.debugFlags;
  ASSERT_EQ(set(18, 0xC0), 0);
  EXPECT_EQ(gaclGrp.debugFlags, start | 0xC0);
  EXPECT_EQ(gCounterDbg, 1u);
  EXPECT_EQ(gMeterDebug, 0u) << "the counter bit wins";
  ASSERT_EQ(set(18, 0x80), 0);
  EXPECT_EQ(gMeterDebug, 1u);
  ASSERT_EQ(set(19, 0x40), 0);
  EXPECT_EQ(gCounterDbg, 0u);
  EXPECT_EQ(gMeterDebug, 1u);
  EXPECT_EQ(gaclGrp.debugFlags, start | 0x80);
  ASSERT_EQ(test::callValue(aclScalarSyncApi, 0, 19, 0x84), 0);
  EXPECT_EQ(gMeterDebug, 0u);
  EXPECT_EQ(gaclGrp.debugFlags, start & ~0x84u);
  EXPECT_EQ(get(18), start & ~0x84u);
  EXPECT_TRUE(relays().empty());
}

TEST_F(ScalarApi, DebugBitsChangeWhileAnotherTaskHoldsTheLock) {
  std::promise<void> locked;
  std::promise<void> release;
  std::thread holder([&] {
    aclLock();
    locked.set_value();
    release.get_future().wait();
    aclUnlock();
  });
  locked.get_future().wait();
  auto done = std::async(std::launch::async, [] { return set(18, 0x20); });
  const bool finished = done.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  release.set_value();
  holder.join();
  ASSERT_TRUE(finished) << "set 18 waited for the ACL lock";
  EXPECT_EQ(done.get(), 0);
  EXPECT_NE(gaclGrp.debugFlags & 0x20, 0u);
}

TEST_F(ScalarApi, ValueCommandsRelayFirstWithTheirMode) {
  ASSERT_EQ(set(5, 77), 0);
  EXPECT_EQ(get(5), 77u);
  auto r = relays();
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(r[0].cmd, 0x00014005u);
  EXPECT_EQ(r[0].key, 0u);
  EXPECT_EQ(r[0].data, (std::vector<uint8_t>{0, 0, 0, 77}));
  EXPECT_EQ(be::load32(r[0].options, 0), 3u);
  EXPECT_EQ(be::load32(r[0].options, 4), 0u);
  EXPECT_EQ(be::load32(r[0].options, 16), 4u);

  ASSERT_EQ(test::callValue(aclScalarSyncApi, 0, 8, 1001), 0);
  EXPECT_EQ(get(8), 1001u);
  EXPECT_EQ(get(6), 0u) << "storing the index switches nothing";
  ASSERT_EQ(set(9, 2001), 0);
  EXPECT_EQ(get(9), 2001u);
  r = relays();
  ASSERT_EQ(r.size(), 3u);
  EXPECT_EQ(r[1].cmd, 0x00014008u);
  EXPECT_EQ(be::load32(r[1].options, 0), 1u);
  EXPECT_EQ(r[2].cmd, 0x00014009u);
  EXPECT_TRUE(globalHw().empty());
}

TEST_F(ScalarApi, RefusedRelayChangesNothingAndIsFollowedByZero) {
  ASSERT_EQ(set(5, 1), 0);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x00014005u, .result = 0x03E80004});
  EXPECT_EQ(set(5, 9), 0x03E80004);
  EXPECT_EQ(get(5), 1u);
  const auto r = relays();
  ASSERT_EQ(r.size(), 2u) << "the refused relay is not logged, the second one is";
  EXPECT_EQ(r[1].cmd, 0x00014005u);
  EXPECT_EQ(r[1].data, (std::vector<uint8_t>{0, 0, 0, 0}));
  EXPECT_EQ(be::load32(r[1].options, 0), 3u);
}

TEST_F(ScalarApi, EveryRefusalUnderTheLockSendsTheSecondRelay) {
  struct Case {
    uint32_t cmd;
    int32_t ret;
  };
  for (const Case c : {Case{0, -1}, Case{4, -1}, Case{10, CMN_ERR_NOT_SUPPORTED},
                       Case{13, CMN_ERR_NOT_SUPPORTED}, Case{14, -1}, Case{20, -1}, Case{21, -1},
                       Case{38, -1}, Case{52, -1}, Case{60, -1}, Case{66, -1}, Case{69, -1}}) {
    const size_t before = relays().size();
    EXPECT_EQ(set(c.cmd, 5), c.ret) << c.cmd;
    const auto r = relays();
    ASSERT_EQ(r.size(), before + 1) << c.cmd;
    EXPECT_EQ(r.back().cmd, 0x00014000u + c.cmd);
    EXPECT_EQ(r.back().data, (std::vector<uint8_t>{0, 0, 0, 0})) << c.cmd;
  }
}

TEST_F(ScalarApi, ServiceCommandsReachTheirServiceOrAnswerNotSupported) {
  // 22 to 25 hand their descriptor on as it came: CPU defend and NAT refuse a 5-byte one.
  for (uint32_t cmd : {22u, 23u, 24u, 25u}) {
    const AclScalarService* svc = aclScalarServiceFind(cmd);
    ASSERT_NE(svc, nullptr) << cmd;
    Desc d(5);
    EXPECT_EQ(aclScalarSetApi(0, cmd, d.addr()),
              svc->withBuf != nullptr ? ACL_RET_INVALID : CMN_ERR_NOT_SUPPORTED)
        << cmd;
  }
  // 53 to 59 and 67/68 carry a word holding a record's address; the blacklist record's three
  // words (system, slot, list) name a list that does not exist.
  std::array<uint8_t, 12> record{};
  be::store32(record, 8, 1500);
  uintptr_t word = reinterpret_cast<uintptr_t>(record.data());
  const uintptr_t buf = reinterpret_cast<uintptr_t>(&word);
  // Adding it fails on the list (the third word); deleting an entry that is not there is fine.
  for (const auto& [cmd, built] : {std::pair{67u, ACL_ERR_LIST_NOT_EXIST}, std::pair{68u, 0}}) {
    const AclScalarService* svc = aclScalarServiceFind(cmd);
    ASSERT_NE(svc, nullptr) << cmd;
    EXPECT_EQ(aclScalarSetApi(0, cmd, buf),
              svc->withWords != nullptr ? built : CMN_ERR_NOT_SUPPORTED)
        << cmd;
  }
  for (uint32_t cmd = 53; cmd <= 59; ++cmd) {
    const AclScalarService* svc = aclScalarServiceFind(cmd);
    ASSERT_NE(svc, nullptr) << cmd;
    if (svc->withRecord == nullptr) {
      EXPECT_EQ(aclScalarSetApi(0, cmd, buf), CMN_ERR_NOT_SUPPORTED) << cmd;
    }
  }
  // A word holding no address is refused before any blacklist work.
  uintptr_t none = 0;
  EXPECT_EQ(aclScalarSetApi(0, 67, reinterpret_cast<uintptr_t>(&none)), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclScalarSetApi(0, 68, reinterpret_cast<uintptr_t>(&none)), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclScalarServiceFind(26), nullptr);
  EXPECT_EQ(aclScalarServiceFind(60), nullptr);
}

TEST_F(ScalarApi, BeforeStartUpOnlyTheDebugBitsAnswer) {
  aclResetForTest();
  test::Word w(0x10);
  EXPECT_EQ(aclScalarGetApi(0, 0, w.addr()), -1);
  EXPECT_EQ(aclScalarSetApi(0, 5, w.addr()), -1);
  EXPECT_EQ(aclScalarSetApi(0, 18, w.addr()), 0);
  EXPECT_EQ(aclScalarSetApi(0, 19, w.addr()), 0);
}

}  // namespace
