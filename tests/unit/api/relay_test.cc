// The relay helper: the options record byte for byte, the hardware command number, and the
// hardware layer's result handed back unchanged.
#include <gtest/gtest.h>

#include <array>

#include "api/acl_relay.h"
#include "platform/fault.h"
#include "platform/proc.h"
#include "platform/vdev/model.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

namespace {

class Relay : public ::testing::Test {
 protected:
  void SetUp() override { plat::resetForTest(); }
  void TearDown() override { plat::resetForTest(); }

  static vdev::Relay lastRelay() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    return d.journal.relays.empty() ? vdev::Relay{} : d.journal.relays.back();
  }
  // Every byte of the options record other than the mode word, key length and data length is 0.
  static void expectOptions(const std::vector<uint8_t>& rec, uint32_t word0, uint32_t keyLen,
                            uint32_t dataLen) {
    ASSERT_EQ(rec.size(), ACL_HW_OPTIONS_LEN);
    EXPECT_EQ(be::load32(rec, 0), word0);
    EXPECT_EQ(be::load32(rec, 4), keyLen);
    EXPECT_EQ(be::load32(rec, 16), dataLen);
    for (size_t i : {8u, 12u}) EXPECT_EQ(be::load32(rec, i), 0u) << i;
    for (size_t i = 20; i < ACL_HW_OPTIONS_LEN; ++i) EXPECT_EQ(rec[i], 0) << i;
  }
};

TEST_F(Relay, ValueKeyedSetCarriesKeyFlagAndValueWord) {
  uint8_t word[4];
  be::store32(word, 5);
  ASSERT_EQ(aclHwRelay(ACL_RELAY_LIST, ACL_MODE_SET, 2001, 6, reinterpret_cast<uintptr_t>(word)),
            0);
  const auto r = lastRelay();
  EXPECT_EQ(r.cmd, 0x06D98000u + 6);
  EXPECT_EQ(r.key, 2001u);
  expectOptions(r.options, 0x10000003, 4, 4);
  EXPECT_EQ(r.data, (std::vector<uint8_t>{0, 0, 0, 5}));
}

TEST_F(Relay, KeyRecordSyncWithDescriptorIsVariableLength) {
  std::array<uint8_t, 12> key{0, 0, 0x07, 0xD1, 0, 0, 0, 3, 0, 0, 0, 0};
  uint8_t text[5] = {'h', 'e', 'l', 'l', 'o'};
  wire::BufDesc desc{text, sizeof text};
  ASSERT_EQ(aclHwRelay(ACL_RELAY_RULE, ACL_MODE_SYNC, reinterpret_cast<uintptr_t>(key.data()), 40,
                       reinterpret_cast<uintptr_t>(&desc), AclRelayData::Desc),
            0);
  const auto r = lastRelay();
  EXPECT_EQ(r.cmd, 0x08CDC000u + 40);
  expectOptions(r.options, 0x80000001, 12, 5);
  EXPECT_EQ(r.keyBytes, std::vector<uint8_t>(key.begin(), key.end()));
  EXPECT_EQ(r.data, std::vector<uint8_t>(text, text + 5));
}

TEST_F(Relay, ScalarsAndStatisticsCarryNoKeyFlag) {
  uint8_t word[4] = {};
  aclHwRelay(ACL_RELAY_SCALAR, ACL_MODE_SET, 0, 5, reinterpret_cast<uintptr_t>(word));
  auto r = lastRelay();
  EXPECT_EQ(r.cmd, 0x00014005u);
  expectOptions(r.options, 3, 0, 4);
  std::array<uint8_t, 28> index{};
  aclHwRelay(ACL_RELAY_IF_STATS, ACL_MODE_SYNC, reinterpret_cast<uintptr_t>(index.data()), 6, 0);
  r = lastRelay();
  EXPECT_EQ(r.cmd, 0x0CB38006u);
  expectOptions(r.options, 1, 28, 4);
}

TEST_F(Relay, HardwareResultComesBackUnchanged) {
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x04020000u + 24, .result = 0x0BAD0001});
  uint8_t word[4] = {};
  // Another command of the family goes through.
  EXPECT_EQ(aclHwRelay(ACL_RELAY_IF, ACL_MODE_SET, 9, 25, reinterpret_cast<uintptr_t>(word)), 0);
  EXPECT_EQ(aclHwRelay(ACL_RELAY_IF, ACL_MODE_SET, 9, 24, reinterpret_cast<uintptr_t>(word)),
            0x0BAD0001);
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x04020000u + 24, .result = -1});
  EXPECT_EQ(aclHwRelay(ACL_RELAY_IF, ACL_MODE_SYNC, 9, 24, reinterpret_cast<uintptr_t>(word)), -1);
}

}  // namespace
