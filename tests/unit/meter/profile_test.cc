#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "platform/fault.h"
#include "support/table_call.h"
#include "unit/meter/meter_fixture.h"
#include "wire/acl_ret.h"

namespace {

using test::callValue;
using test::Desc;
using test::Word;

using ProfileTest = MeterTableTest<meterProfileSetApi, meterProfileGetApi>;

TEST_F(ProfileTest, CreatedWithDefaultNameAndWholeRecord) {
  ASSERT_EQ(set(7, 0, 2), 0);
  EXPECT_EQ(gMeterList.profileNum, 1u);
  Desc name(32);
  ASSERT_EQ(meterProfileGetApi(7, 1, name.addr()), 0);
  EXPECT_EQ(name.text(), "meteronu-7");
  ASSERT_EQ(set(7, 3, 1000), 0);
  ASSERT_EQ(set(7, 8, 0x1FF), 0);
  Desc rec(48);
  rec.data[46] = 0xEE;  // bytes 46 and 47 are left as they were
  ASSERT_EQ(meterProfileGetApi(7, 10, rec.addr()), 0);
  // Length, status, name, name length, attribute 3, policing status (its low 8 bits) and the
  // bytes 46 and 47 left as they were.
  EXPECT_EQ(std::make_tuple(rec.desc.len, int(rec.data[0]),
                            std::string(rec.data.begin() + 2, rec.data.begin() + 12),
                            int(be::load16(rec.data, 22)), be::load32(rec.data, 24),
                            int(rec.data[44]), int(rec.data[46])),
            std::make_tuple(48u, 3, std::string("meteronu-7"), 10, 1000u, 0xFF, 0xEE));
  Desc shortRec(40);
  EXPECT_EQ(meterProfileGetApi(7, 10, shortRec.addr()), CMN_ERR_BUFFER_SHORT);
  Word free;
  EXPECT_EQ(meterScalarGetApi(0, 18, free.addr()), 0);
  EXPECT_EQ(free.value(), 1u);
}

TEST_F(ProfileTest, NameIsCutToTwentyBytes) {
  ASSERT_EQ(set(1, 0, 2), 0);
  Desc name(std::string("a-very-long-profile-name-indeed"));
  ASSERT_EQ(meterProfileSetApi(1, 1, name.addr()), 0);
  Desc back(64);
  ASSERT_EQ(meterProfileGetApi(1, 1, back.addr()), 0);
  EXPECT_EQ(back.text(), "a-very-long-profile-");
}

TEST_F(ProfileTest, ReferencesCeilingAndWhatAReferencedProfileAccepts) {
  ASSERT_EQ(set(2, 0, 2), 0);
  EXPECT_EQ(set(2, 2, 1), -1) << "only a valid profile is referenced";
  ASSERT_EQ(set(2, 0, 1), 0);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(set(2, 2, 1), 0);
  EXPECT_EQ(get(2, 2), 255u);
  EXPECT_EQ(set(2, 3, 5), -1) << "a referenced profile takes only reference changes";
  EXPECT_EQ(set(2, 0, 4), -1);
  for (int i = 0; i < 255; ++i) ASSERT_EQ(set(2, 2, 0), 0);
  EXPECT_EQ(set(2, 2, 0), 0);
  EXPECT_EQ(get(2, 2), 0u) << "never below 0";
  EXPECT_EQ(set(2, 0, 4), 0);
  int32_t ret = 0;
  get(2, 0, &ret);
  EXPECT_EQ(ret, -1);
  EXPECT_EQ(gMeterList.profileNum, 0u);
}

TEST_F(ProfileTest, MissingProfilesAndBadCommands) {
  const std::vector<int32_t> answers{set(3, 3, 1), set(3, 0, 1), set(3, 0, 4),
                                     set(3, 0, 9), set(0, 0, 2), set(1025, 0, 2)};
  EXPECT_EQ(answers, std::vector<int32_t>(answers.size(), -1));
  ASSERT_EQ(set(3, 0, 2), 0);
  EXPECT_EQ(set(3, 0, 2), -1) << "already exists";
  EXPECT_EQ(set(3, 11, 1), -1);
  int32_t ret = 0;
  get(3, 11, &ret);
  EXPECT_EQ(ret, -1);
  EXPECT_EQ(meterProfileSetApi(3, 3, 0), -1);
  Word w;
  EXPECT_EQ(meterProfileGetFirst(w.addr(), 0, 0), 0);
  EXPECT_EQ(w.value(), 3u);
  EXPECT_EQ(std::make_pair(meterProfileGetNext(3, w.addr(), 0), meterProfileGetFirst(0, 0, 0)),
            std::make_pair(-1, -1));
}

TEST_F(ProfileTest, OnlyARelayAnswerOfMinusOneStopsTheChange) {
  ASSERT_EQ(set(4, 0, 2), 0);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x0733C000 + 3, .result = 9});
  EXPECT_EQ(set(4, 3, 600), 9) << "the relay's answer is the result";
  EXPECT_EQ(get(4, 3), 600u) << "and the change was made";
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x0733C000 + 3, .result = -1});
  EXPECT_EQ(set(4, 3, 700), -1);
  EXPECT_EQ(get(4, 3), 600u);
}

}  // namespace
