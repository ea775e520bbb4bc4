// The hardware tables per scope, their anomalies, the relay log and the fault modes.
#include <gtest/gtest.h>

#include <array>
#include <tuple>
#include <vector>

#include "platform/fault.h"
#include "platform/hwil.h"
#include "platform/vdev/model.h"
#include "platform/vdev/vdev.h"
#include "wire/be.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes record(uint32_t list, uint32_t rule, uint8_t dir, uint16_t prio) {
  Bytes b(508, 0);
  be::store8(b, 467, dir);
  be::store32(b, 476, list);
  be::store32(b, 480, rule);
  be::store16(b, 484, prio);
  be::store8(b, 144, 0xAA);  // a field byte, to see the raw record kept as handed over
  return b;
}

// A TLV message with empty rule and action sections: 36 + 4 bytes.
Bytes tlv(uint32_t list, uint32_t rule, uint8_t dir, uint8_t oper) {
  Bytes b(40, 0);
  be::store8(b, 1, oper);
  be::store8(b, 6, dir);
  be::store32(b, 16, list);
  be::store32(b, 20, rule);
  be::store16(b, 32, static_cast<uint16_t>(rule));
  be::store16(b, 34, 4);
  be::store16(b, 36, 2);
  be::store16(b, 38, 2);
  return b;
}

Bytes options(uint32_t word0, uint32_t unit = 0) {
  Bytes o(64, 0);
  be::store32(o, 0, word0);
  be::store32(o, 12, unit);
  be::store32(o, 16, 508);
  return o;
}

std::array<uint8_t, 12> gemKey(uint32_t onu, uint32_t gem) {
  std::array<uint8_t, 12> k{};
  be::store32(k, 0, 401);
  be::store32(k, 4, onu);
  be::store32(k, 8, gem);
  return k;
}

class HwTablesTest : public ::testing::Test {
 protected:
  void SetUp() override { vdev::resetForTest(); }
  void TearDown() override { vdev::resetForTest(); }

  static const vdev::HwTable* table(vdev::ScopeKey k) {
    auto& hw = vdev::device().journal.hw;
    auto it = hw.find(k);
    return it == hw.end() ? nullptr : &it->second;
  }
  static size_t entries(vdev::ScopeKey k) {
    const auto* t = table(k);
    return t ? t->entries.size() : 0;
  }
  using Sizes = std::vector<size_t>;
  static Sizes sizes(std::initializer_list<vdev::ScopeKey> keys) {
    Sizes out;
    for (const auto& k : keys) out.push_back(entries(k));
    return out;
  }
  static const std::vector<vdev::Anomaly>& anomalies() { return vdev::device().journal.anomalies; }
  int add(uintptr_t index, uint32_t cmd, const Bytes& rec) {
    const Bytes o = options(0);
    return zorHwilCmdSetApi(index, cmd, rec.data(), o.data());
  }
  int tlvCmd(uintptr_t index, uint32_t cmd, Bytes msg) {
    ZorBufDesc d{msg.data(), static_cast<uint32_t>(msg.size())};
    const Bytes o = options(0x80000000u);
    return zorHwilCmdSetApi(index, cmd, &d, o.data());
  }
};

const vdev::ScopeKey kGlobal{0, 0, 0, 0};

TEST_F(HwTablesTest, EachScopeKeepsItsOwnRules) {
  const Bytes o = options(0x10000000u, 201);
  const Bytes r = record(1001, 5, 0, 4101);
  ASSERT_EQ(zorHwilCmdSetApi(0, HWIL_CMD_GLOBAL_ADD, r.data(), o.data()), 0);
  ASSERT_EQ(zorHwilCmdSetApi(201, HWIL_CMD_IF_ADD, r.data(), o.data()), 0);
  ASSERT_EQ(add(202, HWIL_CMD_IF_ADD, record(1001, 6, 1, 4102)), 0);
  auto key = gemKey(7, 3);
  ASSERT_EQ(add(reinterpret_cast<uintptr_t>(key.data()), HWIL_CMD_GEM_ADD, r), 0);
  const auto scopes = {kGlobal, vdev::ScopeKey{1, 201, 0, 0}, vdev::ScopeKey{1, 202, 0, 0},
                       vdev::ScopeKey{2, 401, 7, 3}};
  EXPECT_EQ(sizes(scopes), (Sizes{1, 1, 1, 1}));
  // The target (options) travels with the entry.
  const auto& e = table({1, 201, 0, 0})->entries.begin()->second;
  EXPECT_EQ(std::make_tuple(e.list, e.rule, e.dir, e.priority, e.data, e.options),
            std::make_tuple(1001u, 5u, 0u, 4101u, r, o));
  // Removing from one unit leaves the same rule elsewhere.
  ASSERT_EQ(add(201, HWIL_CMD_IF_DEL, r), 0);
  EXPECT_EQ(sizes(scopes), (Sizes{1, 0, 1, 1}));
  EXPECT_TRUE(anomalies().empty());
}

TEST_F(HwTablesTest, SecondInstallAndMissingRemoveAreAnomalies) {
  const Bytes r = record(7, 1, 0, 4097);
  ASSERT_EQ(add(0, HWIL_CMD_GLOBAL_ADD, r), 0);
  ASSERT_EQ(add(0, HWIL_CMD_GLOBAL_ADD, r), 0);
  ASSERT_EQ(anomalies().size(), 1u);
  EXPECT_EQ(std::make_tuple(anomalies()[0].what, anomalies()[0].list,
                            table(kGlobal)->entries.begin()->second.installs),
            std::make_tuple("install of an entry already in hardware", 7u, 2u));

  // The same rule in the other direction is another entry.
  ASSERT_EQ(add(0, HWIL_CMD_GLOBAL_ADD, record(7, 1, 1, 4097)), 0);
  EXPECT_EQ(entries(kGlobal), 2u);
  EXPECT_EQ(anomalies().size(), 1u);

  ASSERT_EQ(add(0, HWIL_CMD_GLOBAL_DEL, r), 0);
  ASSERT_EQ(add(0, HWIL_CMD_GLOBAL_DEL, r), 0);
  ASSERT_EQ(anomalies().size(), 2u);
  EXPECT_EQ(std::make_pair(anomalies()[1].what, entries(kGlobal)),
            std::make_pair(std::string("removal of an entry not in hardware"), size_t{1}));

  // A card synchronisation names its target cards: reaching a new card is not a double install.
  Bytes o = options(0);
  be::store8(o, 24, 2);
  be::store8(o, 26, 0x80);
  const Bytes r2 = record(7, 1, 1, 4097);
  ASSERT_EQ(zorHwilCmdSetApi(0, HWIL_CMD_GLOBAL_ADD, r2.data(), o.data()), 0);
  EXPECT_EQ(anomalies().size(), 2u);
}

TEST_F(HwTablesTest, TlvCommandsInstallAndRemoveByOper) {
  ASSERT_EQ(tlvCmd(0, HWIL_CMD_GLOBAL_TLV, tlv(2001, 3, 1, 0)), 0);
  ASSERT_EQ(entries(kGlobal), 1u);
  const auto& e = table(kGlobal)->entries.begin()->second;
  EXPECT_EQ(std::make_tuple(e.tlv, e.data.size(), e.dir, e.priority),
            std::make_tuple(true, 40u, 1u, 3u));
  // The traffic-policy path installs with 2 and removes with 3.
  const auto scopes = {kGlobal, vdev::ScopeKey{1, 305, 0, 0}};
  ASSERT_EQ(tlvCmd(305, HWIL_CMD_IF_TLV, tlv(2001, 4, 0, 2)), 0);
  EXPECT_EQ(sizes(scopes), (Sizes{1, 1}));
  ASSERT_EQ(tlvCmd(305, HWIL_CMD_IF_TLV, tlv(2001, 4, 0, 3)), 0);
  ASSERT_EQ(tlvCmd(0, HWIL_CMD_GLOBAL_TLV, tlv(2001, 3, 1, 1)), 0);
  EXPECT_EQ(sizes(scopes), (Sizes{0, 0}));
  EXPECT_TRUE(anomalies().empty());
}

// Removed entries and emptied tables are reused for later installs: what a removed entry held
// (its TLV message, its options, its install count, its scope) must not show in the next one.
TEST_F(HwTablesTest, AnInstallAfterRemovalsKeepsNothingOfTheRemovedEntries) {
  for (const uint8_t oper : {0, 0, 1})
    ASSERT_EQ(tlvCmd(305, HWIL_CMD_IF_TLV, tlv(2001, 4, 1, oper)), 0);
  // Enough rules come and go in the next table that their slots are handed to new rules.
  for (uint32_t rule = 1; rule <= 200; ++rule)
    ASSERT_EQ(tlvCmd(306, HWIL_CMD_IF_TLV, tlv(2002, rule, 1, 0)), 0);
  for (uint32_t rule = 1; rule <= 200; ++rule)
    ASSERT_EQ(tlvCmd(306, HWIL_CMD_IF_TLV, tlv(2002, rule, 1, 1)), 0);
  const Bytes r = record(3001, 9, 0, 4105);
  ASSERT_EQ(zorHwilCmdSetApi(306, HWIL_CMD_IF_ADD, r.data(), nullptr), 0);
  EXPECT_EQ(table({1, 305, 0, 0}), nullptr);
  ASSERT_EQ(entries({1, 306, 0, 0}), 1u);
  const auto& [key, e] = *table({1, 306, 0, 0})->entries.begin();
  EXPECT_EQ(key, std::make_tuple(3001u, 9u, 0u));
  EXPECT_EQ(std::make_tuple(e.list, e.rule, e.dir, e.priority, e.tlv, e.cmd, e.installs, e.data,
                            e.options.size(), anomalies().size()),  // only the TLV's 2nd install
            std::make_tuple(3001u, 9u, 0u, 4105u, false, HWIL_CMD_IF_ADD, 1u, r, 0u, 1u));
}

TEST_F(HwTablesTest, MalformedCommandsChangeNothing) {
  const Bytes o = options(0);
  Bytes bad = tlv(1, 1, 0, 0);
  be::store16(bad, 34, 9);  // says 9 bytes follow the header, but 4 do
  EXPECT_EQ(tlvCmd(0, HWIL_CMD_GLOBAL_TLV, bad), 0x03E8001A);
  EXPECT_EQ(tlvCmd(0, HWIL_CMD_GLOBAL_TLV, Bytes(20, 0)), 0x03E8001A);  // shorter than a header
  Bytes oper = tlv(1, 1, 0, 7);
  EXPECT_EQ(tlvCmd(0, HWIL_CMD_GLOBAL_TLV, oper), 0x03E8001A);
  EXPECT_EQ(zorHwilCmdSetApi(0, HWIL_CMD_GLOBAL_ADD, nullptr, o.data()), 0x03E8001A);
  EXPECT_EQ(add(0, HWIL_CMD_GEM_ADD, record(1, 1, 0, 1)), 0x03E8001A);  // no GEM key
  EXPECT_EQ(add(0, 12345, record(1, 1, 0, 1)), 0x03E80010);
  EXPECT_TRUE(vdev::device().journal.hw.empty());
  EXPECT_TRUE(anomalies().empty());
}

TEST_F(HwTablesTest, RelayLogKeepsKeyCommandOptionsAndData) {
  Bytes o(64, 0);
  be::store32(o, 0, 0x10000003);
  be::store32(o, 4, 4);
  be::store32(o, 16, 4);
  uint8_t word[4];
  be::store32(word, 77);
  ASSERT_EQ(zorHwilCmdSyncApi(2001, 0x06D98000 + 3, word, o.data()), 0);

  // A rule key by address and a variable-length value by descriptor.
  uint8_t key[12] = {0, 0, 0x07, 0xD1, 0, 0, 0, 5, 0, 0, 0, 0};
  Bytes name = {'w', 'e', 'b'};
  ZorBufDesc d{name.data(), 3};
  Bytes o2(64, 0);
  be::store32(o2, 0, 0x80000001);
  be::store32(o2, 4, 12);
  be::store32(o2, 16, 3);
  ASSERT_EQ(zorHwilCmdSyncApi(reinterpret_cast<uintptr_t>(key), 0x08CDC000 + 9, &d, o2.data()), 0);

  const auto& relays = vdev::device().journal.relays;
  ASSERT_EQ(relays.size(), 2u);
  EXPECT_EQ(std::make_tuple(relays[0].key, relays[0].cmd, relays[0].options, relays[0].data,
                            relays[1].keyBytes, relays[1].data),
            std::make_tuple(2001u, 0x06D98003u, o, Bytes{0, 0, 0, 77}, Bytes(key, key + 12), name));
  EXPECT_LT(relays[0].seq, relays[1].seq);
  EXPECT_EQ(zorHwilCmdSyncApi(1, 2, word, nullptr), 0x03E8001A);
  EXPECT_EQ(relays.size(), 2u);
}

TEST_F(HwTablesTest, RelayFaultsAimAtTheKeysListRuleOrInterface) {
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .list = 2001, .rule = 5, .result = 3, .count = -1});
  plat::faultAdd({.call = "zorHwilCmdSyncApi", .unit = 202, .result = 4, .count = -1});
  Bytes o(64, 0);
  be::store32(o, 4, 12);
  uint8_t w[4] = {};
  uint8_t rule5[12] = {0, 0, 0x07, 0xD1, 0, 0, 0, 5};
  uint8_t rule6[12] = {0, 0, 0x07, 0xD1, 0, 0, 0, 6};
  EXPECT_EQ(zorHwilCmdSyncApi(reinterpret_cast<uintptr_t>(rule5), 0x08CDC000 + 2, w, o.data()), 3);
  EXPECT_EQ(zorHwilCmdSyncApi(reinterpret_cast<uintptr_t>(rule6), 0x08CDC000 + 2, w, o.data()), 0);
  be::store32(o, 4, 4);
  EXPECT_EQ(zorHwilCmdSyncApi(202, 0x04020000 + 24, w, o.data()), 4);
  EXPECT_EQ(zorHwilCmdSyncApi(201, 0x04020000 + 24, w, o.data()), 0);
  EXPECT_EQ(zorHwilCmdSyncApi(202, 0x06D98000 + 3, w, o.data()), 0);  // list 202, not unit 202
  EXPECT_EQ(vdev::device().journal.relays.size(), 3u);
}

TEST_F(HwTablesTest, FaultAlwaysOnlyForItsListRuleAndScope) {
  plat::faultAdd(
      {.call = "zorHwilCmdSetApi", .scope = 1, .list = 1001, .rule = 2, .result = 7, .count = -1});
  for (int i = 0; i < 3; ++i) EXPECT_EQ(add(201, HWIL_CMD_IF_ADD, record(1001, 2, 0, 1)), 7);
  EXPECT_EQ(add(201, HWIL_CMD_IF_ADD, record(1001, 3, 0, 1)), 0);    // another rule
  EXPECT_EQ(add(0, HWIL_CMD_GLOBAL_ADD, record(1001, 2, 0, 1)), 0);  // another scope
  EXPECT_EQ(entries({1, 201, 0, 0}), 1u) << "a failed call leaves the hardware as it was";
  // A fault for a unit, then one for any call of one command.
  plat::faultClear();
  plat::faultAdd({.call = "zorHwilCmdSetApi", .unit = 202, .result = 9, .count = -1});
  plat::faultAdd({.cmd = HWIL_CMD_IF_DEL, .result = 11, .count = -1});
  const Bytes r = record(5, 5, 0, 1);
  EXPECT_EQ((std::tuple{add(202, HWIL_CMD_IF_ADD, r), add(203, HWIL_CMD_IF_ADD, r),
                        add(203, HWIL_CMD_IF_DEL, r), entries({1, 203, 0, 0})}),
            std::make_tuple(9, 0, 11, 1u));
}

TEST_F(HwTablesTest, GemFaultAimsAtOneOnuAndGemPort) {
  const Bytes r = record(1001, 5, 0, 4101);
  plat::faultAdd(
      {.call = "zorHwilCmdSetApi", .unit = 401, .onu = 7, .gem = 3, .result = 9, .count = -1});
  // Another GEM port, another ONU, the target.
  for (auto [onu, gem, want] : {std::tuple{7u, 4u, 0}, {8u, 3u, 0}, {7u, 3u, 9}}) {
    auto key = gemKey(onu, gem);
    EXPECT_EQ(add(reinterpret_cast<uintptr_t>(key.data()), HWIL_CMD_GEM_ADD, r), want) << onu;
  }
  EXPECT_EQ(entries({2, 401, 7, 3}), 0u);
  // The unit scope of the same interface has no ONU, so the rule does not reach it.
  EXPECT_EQ(add(401, HWIL_CMD_IF_ADD, r), 0);
  plat::faultClear();
}

}  // namespace
