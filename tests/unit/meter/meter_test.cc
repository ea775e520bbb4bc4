#include <gtest/gtest.h>

#include <tuple>

#include "platform/fault.h"
#include "platform/options.h"
#include "support/table_call.h"
#include "unit/meter/meter_fixture.h"
#include "wire/acl_ret.h"

namespace {

using test::callValue;
using test::Desc;
using test::Word;

constexpr uint32_t kStatus = 13;

class MeterTest : public MeterTableTest<meterSetApi, meterGetApi> {
 protected:
  void makeValid(uint32_t idx) {
    ASSERT_EQ(set(idx, kStatus, 2), 0);
    ASSERT_EQ(set(idx, kStatus, 1), 0);
  }
};

TEST_F(MeterTest, DefaultsAndLimits) {
  EXPECT_EQ(std::make_tuple(gMeterList.maxMeterNum, gMeterList.curMeterNum,
                            gMeterList.maxProfileNum, gMeterList.maxBpsBurst),
            std::make_tuple(256u, 256u, 1024u, 16777088u));
  // Index 0 and one past the table are refused by get and set alike.
  for (uint32_t idx : {0u, 257u}) {
    int32_t ret = 0;
    get(idx, 1, &ret);
    EXPECT_EQ(ret, CMN_ERR_NOT_FOUND) << idx;
    EXPECT_EQ(set(idx, 1, 5), CMN_ERR_NOT_FOUND) << idx;
    EXPECT_EQ(set(idx, kStatus, 2), CMN_ERR_NO_RESOURCE) << idx;
  }
  makeValid(256);
  EXPECT_EQ(get(256, kStatus), 1u);
}

TEST_F(MeterTest, OptionsOverrideAndEnableOff) {
  meterResetForTest();
  plat::optSet("meter.maxmeternum", "8");
  plat::optSet("meter.minppsrate", "0");
  ASSERT_EQ(meterOptInit(), 0);
  EXPECT_EQ(std::make_pair(gMeterList.maxMeterNum, gMeterList.minPpsRate), std::make_pair(8u, 1u));
  meterResetForTest();
  plat::optSet("meter.enable", "false");
  EXPECT_EQ(meterOptInit(), -1);
  int32_t ret = 0;
  get(1, 1, &ret);
  EXPECT_EQ(ret, CMN_ERR_NOT_FOUND) << "an unstarted module has no meters";
}

TEST_F(MeterTest, StatusLifeCycleAndActiveCount) {
  int32_t ret = 0;
  EXPECT_EQ(get(0, 14), 1u) << "free index of an empty table";
  EXPECT_EQ(set(5, kStatus, 1), CMN_ERR_NOT_FOUND) << "valid before created";
  ASSERT_EQ(set(5, kStatus, 2), 0);
  // Status created, meter mode 1, CAR type 3, attribute 10 at 5.
  EXPECT_EQ(std::make_tuple(get(5, kStatus), get(5, 2), get(5, 3), get(5, 10)),
            std::make_tuple(3u, 1u, 3u, 5u));
  EXPECT_EQ(set(5, kStatus, 3), 0) << "creating again changes nothing";
  ASSERT_EQ(set(5, kStatus, 1), 0);
  EXPECT_EQ(set(5, kStatus, 1), 0);
  EXPECT_EQ(gMeterList.activeMeterNum, 1u) << "validating twice counts once";
  const std::vector<int32_t> sets{set(5, kStatus, 9), set(5, 4, 1000), set(5, 0, 1), set(5, 14, 1)};
  EXPECT_EQ(sets, (std::vector<int32_t>{-1, 0, -1, -1}));
  EXPECT_EQ(get(5, 4), 1000u);
  get(5, 12, &ret);
  EXPECT_EQ(ret, -1) << "no such get command";
  ASSERT_EQ(set(5, kStatus, 4), 0);
  get(5, kStatus, &ret);
  EXPECT_EQ(std::make_pair(gMeterList.activeMeterNum, ret), std::make_pair(0u, CMN_ERR_NOT_FOUND));
  EXPECT_EQ(set(5, kStatus, 4), 0) << "deleting a free meter is a no-op";
}

TEST_F(MeterTest, ReferencesBlockDeletionAndNeverGoNegative) {
  makeValid(3);
  EXPECT_EQ(meterRefcount(3, 3), 0);
  EXPECT_EQ(set(3, kStatus, 4), CMN_ERR_IN_USE);
  EXPECT_EQ(get(3, kStatus), 1u);
  // The table's own add may go below 0 (3 - 5); the reference helper never does.
  EXPECT_EQ(set(3, 12, static_cast<uint32_t>(-5)), 0);
  EXPECT_EQ(static_cast<int32_t>(get(3, 11)), -2);
  const std::vector<int32_t> answers{set(3, 11, 3), meterRefcount(3, -5), meterGetRefcount(3),
                                     set(3, kStatus, 4)};
  EXPECT_EQ(answers, (std::vector<int32_t>{0, 0, 0, 0}));
  // Only valid meters are referenced.
  ASSERT_EQ(set(4, kStatus, 2), 0);
  EXPECT_EQ(std::make_pair(meterRefcount(4, 1), meterIsValid(4)),
            std::make_pair(CMN_ERR_NOT_FOUND, CMN_ERR_NOT_FOUND));
}

TEST_F(MeterTest, CurMeterNumShrinksOnlyOverMetersThatAreNotValid) {
  makeValid(12);
  const std::vector<int32_t> answers{callValue(meterScalarSetApi, 0, 15, 10),
                                     callValue(meterScalarSetApi, 0, 15, 257),
                                     callValue(meterScalarSetApi, 0, 15, 12)};
  EXPECT_EQ(answers, (std::vector<int32_t>{-1, -1, 0}));
  uint32_t v = 0;
  EXPECT_EQ(callValue(meterScalarGetApi, 0, 15, 0, &v), 0);
  EXPECT_EQ(v, 12u);
  EXPECT_EQ(callValue(meterScalarSetApi, 0, 16, 1), CMN_ERR_NOT_SUPPORTED);
  int32_t ret = 0;
  get(13, 1, &ret);
  EXPECT_EQ(ret, CMN_ERR_NOT_FOUND) << "beyond curMeterNum";
}

TEST_F(MeterTest, FailedRelayChangesNothing) {
  makeValid(2);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x06DB8000 + 4, .result = 77});
  EXPECT_EQ(set(2, 4, 500), 77);
  EXPECT_EQ(get(2, 4), 0u);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x06DB8000 + kStatus, .result = 78});
  EXPECT_EQ(set(2, kStatus, 4), 78);
  EXPECT_EQ(get(2, kStatus), 1u);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x06DB8000 + 15, .result = 79});
  EXPECT_EQ(callValue(meterScalarSetApi, 0, 15, 100), 79);
  EXPECT_EQ(gMeterList.curMeterNum, 256u);
  // The reference add is not relayed at all.
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .count = -1});
  EXPECT_EQ(set(2, 12, 1), 0);
  plat::faultClear();
}

TEST_F(MeterTest, WalkVisitsExistingMetersInOrder) {
  Word w;
  EXPECT_EQ(meterGetFirst(w.addr(), 0, 0), -1);
  for (uint32_t i : {7u, 3u, 9u}) ASSERT_EQ(set(i, kStatus, 2), 0);
  std::vector<uint32_t> seen;
  for (int32_t r = meterGetFirst(w.addr(), 0, 0); r == 0;
       r = meterGetNext(w.value(), w.addr(), 0)) {
    seen.push_back(w.value());
  }
  EXPECT_EQ(seen, (std::vector<uint32_t>{3, 7, 9}));
  EXPECT_EQ(meterGetNext(4, w.addr(), 0), 0) << "from a key that is not there";
  EXPECT_EQ(w.value(), 7u);
  ASSERT_EQ(callValue(meterScalarSetApi, 0, 15, 0), 0);
  EXPECT_EQ(meterGetFirst(w.addr(), 0, 0), CMN_ERR_NOT_SUPPORTED);
}

TEST_F(MeterTest, CapabilityRecordKeepsTheSecondWord) {
  Desc cap(16);
  be::store32(cap.data, 4, 0xABCD);
  EXPECT_EQ(meterScalarGetApi(0, 25, cap.addr()), 0);
  // Three words, the second left as sent.
  EXPECT_EQ(std::vector<uint8_t>(cap.data.begin(), cap.data.begin() + cap.desc.len),
            (std::vector<uint8_t>{0, 0, 0, 1, 0, 0, 0xAB, 0xCD, 0, 0, 0, 2}));
  Desc tiny(8);
  EXPECT_EQ(meterScalarGetApi(0, 25, tiny.addr()), CMN_ERR_BAD_PARAM);
  wire::BufDesc nullData{nullptr, 32};
  EXPECT_EQ(meterScalarGetApi(0, 17, reinterpret_cast<uintptr_t>(&nullData)), 22);
  EXPECT_EQ(meterScalarGetApi(0, 15, 0), CMN_ERR_BAD_PARAM);
  uint32_t v = 0;
  EXPECT_EQ(callValue(meterScalarGetApi, 0, 24, 0, &v), 0);
  EXPECT_EQ(v, 16777088u);
  EXPECT_EQ(callValue(meterScalarGetApi, 0, 26, 0), -1);
}

}  // namespace
