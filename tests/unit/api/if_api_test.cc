// The interface table (14 to 20) and interface statistics table (26 to 30): the answer to each
// bad request and to each failed relay, with store, hardware tables and ledger as they were.
#include <cstring>
#include <functional>
#include <optional>

#include "api/acl_if_api.h"
#include "api/acl_stats_api.h"
#include "control/acl_slot.h"
#include "support/device_lock.h"
#include "support/table_call.h"
#include "unit/hw/if_fixture.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace iftest {
namespace {

constexpr uint32_t kRelayIf = 0x04020000;

// A buffer or key area as the table functions take it.
inline uintptr_t addr(const void* p) {
  return reinterpret_cast<uintptr_t>(p);
}
constexpr uint32_t kIpv4In = 24;
constexpr uint32_t kBindTypeIpv4In = 1;  // ingress x 6 + the IPv4 column

class IfApiTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    slotOfPorts();
  }
  // Ports 201 and 202 sit on slot 2 of system 1, whose ledger every typed binding charges.
  static AclSlotEntry* slotOfPorts() {
    AclSlotEntry* s = aclSlotEntryGet(1, 2);
    return s != nullptr ? s : aclSlotEntryAdd(1, 2);
  }
  static int32_t set(uint32_t ifIndex, uint32_t cmd, std::optional<uint32_t> v) {
    uint8_t word[4] = {};
    if (v) be::store32(word, *v);
    return aclIfSetApi(ifIndex, cmd, v ? addr(word) : 0);
  }
  static std::optional<uint32_t> get(uint32_t ifIndex, uint32_t cmd) {
    uint8_t word[4] = {};
    if (aclIfGetApi(ifIndex, cmd, addr(word)) != 0) return std::nullopt;
    return be::load32(word);
  }
  static void remote(uint32_t unit) {
    test::onDevice([&](vdev::Device& d) { d.model.interfaces[unit].location[ZOR_LOC_SYS] = 2; });
  }
  static uint32_t failRelay(uint32_t cmd, int32_t result) {
    return plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = kRelayIf + cmd, .result = result});
  }
  // The value words of every interface relay of command cmd, in order.
  static std::vector<uint32_t> relayed(uint32_t cmd) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    std::vector<uint32_t> out;
    for (const auto& r : d.journal.relays) {
      if (r.cmd == kRelayIf + cmd && r.data.size() >= 4) out.push_back(be::load32(r.data.data()));
    }
    return out;
  }
  static size_t entries() { return avl_numnodes(&gaclGrp.ifListTree); }
};

TEST_F(IfApiTest, RefusalsAndFailedRelaysLeaveStoreAndHardwareAsTheyWere) {
  struct Case {
    const char* name;
    std::function<void()> prep;  // after a record for 201 and lists 1001 (IPv4), 5 (L2) exist
    uint32_t ifIndex, cmd;
    std::optional<uint32_t> value;  // nullopt: a null buffer
    int32_t want;
    std::vector<uint32_t> relays;  // value words the device took for cmd, prep included
    bool bound = false;            // list 1001 on 201 in the end
  };
  const auto none = [] {};
  const auto switchedOn = [] {
    ASSERT_EQ(set(kPort, 3, 1001), 0);
    ASSERT_EQ(set(kPort, 2, 1), 0);
  };
  const auto bound = [] {
    ASSERT_EQ(set(kPort, kIpv4In, 1001), 0);
    failRelay(kIpv4In, kHwFault);
  };
  const auto listed = [] {
    ASSERT_EQ(set(kPort, 3, 1001), 0);
    failRelay(2, kHwFault);
  };
  const auto on = [=] {
    switchedOn();
    failRelay(2, kHwFault);
  };
  const auto remoteFails = [] {
    remote(kPort);
    failRelay(kIpv4In, -1);
  };
  // The remote system's slot ledger knows the port, whose hardware then refuses.
  const auto remoteRefuses = [](std::function<void()> fault) {
    return [fault] {
      remote(kPort);
      ASSERT_NE(aclSlotEntryAdd(2, 2), nullptr);
      fault();
    };
  };
  const auto rule1 = remoteRefuses([] { failOn(kPort, HWIL_CMD_IF_ADD, 1001, 1); });
  // -1 from the binding itself is not a relay failure: it stays -1.
  const auto minus1 = remoteRefuses(
      [] { plat::faultAdd({.call = "zorHwilCmdSetApi", .cmd = HWIL_CMD_IF_ADD, .unit = kPort}); });
  const auto relayFails = [] { failRelay(kIpv4In, -1); };
  constexpr uint32_t kIn = kIpv4In;
  const Case cases[] = {
      {"unknown command", none, kPort, 12, 1001, ACL_RET_UNKNOWN, {}},
      {"command 0", none, kPort, 0, 1, ACL_RET_UNKNOWN, {}},
      {"command past the table", none, kPort, 47, 1, ACL_RET_UNKNOWN, {}},
      {"unsupported command", none, kPort, 6, 1, CMN_ERR_NOT_SUPPORTED, {}},
      {"null buffer", none, kPort, kIn, std::nullopt, CMN_ERR_BAD_PARAM, {}},
      {"missing record", none, 202, kIn, 1001, ACL_ERR_IF_NOT_EXIST, {}},
      {"unbind on a missing record", none, 202, kIn, 0, 0, {}},
      {"switch on with no list index", none, kPort, 2, 1, ACL_RET_INVALID, {}},
      {"list index while on", switchedOn, kPort, 3, 5, ACL_RET_IF_LIST_ACTIVE, {1001}, true},
      {"unlocated interface", none, 999, 17, 2, ACL_RET_IF_NO_LOCATION, {2}},
      {"local relay fails after the bind", relayFails, kPort, kIn, 1001, CMN_ERR_SYNC_FAILED, {0}},
      {"local relay fails after the unbind", bound, kPort, kIn, 0, kHwFault, {1001, 1001}, true},
      {"local relay fails after a switch-on", listed, kPort, 2, 1, kHwFault, {}},
      {"local relay fails after a switch-off", on, kPort, 2, 2, kHwFault, {1}, true},
      {"remote relay fails", remoteFails, kPort, kIn, 1001, CMN_ERR_SYNC_FAILED, {0}},
      {"remote member refuses after the relay", rule1, kPort, kIn, 1001, kHwFault, {1001, 0}},
      {"remote install answers -1", minus1, kPort, kIn, 1001, ACL_RET_UNKNOWN, {1001, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    AclSlotEntry* slot2 = slotOfPorts();
    AclListEntry* l = listOf(1001, {1, 2});
    listOf(5, {1});
    ASSERT_EQ(set(kPort, 17, 2), 0);
    c.prep();
    const auto slotsBefore = aclIfEntryGet(kPort)->slots;
    const auto ctrlBefore = aclIfEntryGet(kPort)->inCtrl;
    EXPECT_EQ(set(c.ifIndex, c.cmd, c.value), c.want);
    EXPECT_EQ(relayed(c.cmd), c.relays);
    const AclIfEntry* rec = aclIfEntryGet(kPort);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(std::memcmp(&rec->slots, &slotsBefore, sizeof slotsBefore), 0);
    EXPECT_EQ(rec->inCtrl, ctrlBefore);
    EXPECT_EQ(aclIfEntryGet(202), nullptr);
    EXPECT_EQ(units(), c.bound ? expect({kPort}, 1001, {{1, 4097}, {2, 4098}}) : UnitView{});
    EXPECT_EQ(l->refCnt, c.bound ? 1 : 0);
    EXPECT_EQ(entries(), c.bound ? 1u : 0u);
    // Untyped bindings are not charged; the IPv4 ingress slot is.
    const bool typed = c.bound && c.cmd == kIpv4In;
    EXPECT_EQ(slot2->curSubRuleNum[kBindTypeIpv4In], typed ? 2u : 0u);
  }
}

TEST_F(IfApiTest, GetAnswersItsAttributesAndRefusesTheRest) {
  ASSERT_EQ(set(kPort, 17, 2), 0);
  listOf(1001, {1});
  ASSERT_EQ(set(kPort, kIpv4In, 1001), 0);
  EXPECT_EQ(get(kPort, kIpv4In), 1001u);
  EXPECT_EQ(get(kPort, 2), ACL_IF_CTRL_OFF);
  EXPECT_EQ(get(kPort, 17), 1u);
  uint8_t word[4] = {};
  const auto w = addr(word);
  EXPECT_EQ(aclIfGetApi(kPort, 5, w), CMN_ERR_NOT_SUPPORTED);
  EXPECT_EQ(aclIfGetApi(kPort, 19, w), CMN_ERR_NOT_SUPPORTED);
  EXPECT_EQ(aclIfGetApi(kPort, kIpv4In, 0), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclIfGetApi(202, kIpv4In, w), ACL_ERR_IF_NOT_EXIST);
}

// The walks see every binding and record in key order; the statistics clear-all with an
// interface clears that interface's records only, and every record with 0.
TEST_F(IfApiTest, WalksAndInterfaceStatistics) {
  for (uint32_t u : {202u, kPort}) ASSERT_EQ(set(u, 17, 2), 0);
  listOf(1001, {}, {1, 2});
  for (uint32_t u : {202u, kPort}) ASSERT_EQ(set(u, kIpv4In, 1001), 0);

  uint8_t word[4] = {}, next[4] = {};
  ASSERT_EQ(aclIfGetFirst(addr(word), 0, 0), 0);
  EXPECT_EQ(be::load32(word), kPort);
  ASSERT_EQ(aclIfGetNext(kPort, addr(next), 0), 0);
  EXPECT_EQ(be::load32(next), 202u);
  EXPECT_EQ(aclIfGetNext(202, addr(next), 0), -1);

  uint8_t key[ACL_IF_LST_KEY_LEN] = {}, nkey[ACL_IF_LST_KEY_LEN] = {};
  EXPECT_EQ(aclIfLstGetFirst(0, 0, 0), ACL_RET_INVALID);
  EXPECT_EQ(aclIfLstGetNext(addr(key), 0, 0), ACL_RET_INVALID);
  ASSERT_EQ(aclIfLstGetFirst(addr(key), 0, 0), 0);
  EXPECT_EQ(std::pair(be::load32(key + ACL_IF_LST_KEY_LST), be::load32(key + ACL_IF_LST_KEY_TYPE)),
            std::pair(1001u, uint32_t{ACL_BIND_KIND_IPV4}));
  std::vector<uint32_t> ifs = {be::load32(key + ACL_IF_LST_KEY_IF)};
  while (aclIfLstGetNext(addr(key), addr(nkey), 0) == 0) {
    ifs.push_back(be::load32(nkey + ACL_IF_LST_KEY_IF));
    std::memcpy(key, nkey, sizeof key);
  }
  EXPECT_EQ(ifs, (std::vector<uint32_t>{kPort, 202}));

  // Interface statistics: two rules on two interfaces, filtered by interface.
  uint8_t idx[ACL_STATS_INDEX_LEN] = {}, nidx[ACL_STATS_INDEX_LEN] = {};
  be::store32(idx + ACL_STATS_INDEX_IF, 202);
  idx[ACL_STATS_INDEX_FILTER] = 0x80u >> ACL_STATS_FILTER_IF;
  ASSERT_EQ(aclIfStatsGetFirst(addr(idx), 0, 0), 0);
  std::vector<std::pair<uint32_t, uint32_t>> walked = {
      {be::load32(idx + ACL_STATS_INDEX_RULE), be::load32(idx + ACL_STATS_INDEX_IF)}};
  while (aclIfStatsGetNext(addr(idx), addr(nidx), 0) == 0) {
    walked.push_back(
        {be::load32(nidx + ACL_STATS_INDEX_RULE), be::load32(nidx + ACL_STATS_INDEX_IF)});
    std::memcpy(idx, nidx, sizeof idx);
  }
  EXPECT_EQ(walked, (std::vector<std::pair<uint32_t, uint32_t>>{{1, 202}, {2, 202}}));

  test::Desc answer(ACL_STATS_ANSWER_LEN);
  // The record is found by its four keys; the rule's counter was never created, so the read
  // stops there.
  EXPECT_EQ(aclIfStatsGetApi(addr(idx), 1, answer.addr()), ACL_ERR_COUNTER_GET);
  be::store32(idx + ACL_STATS_INDEX_RULE, 9);
  EXPECT_EQ(aclIfStatsGetApi(addr(idx), 1, answer.addr()), ACL_ERR_IFSTATS_NOT_EXIST);
  EXPECT_EQ(aclIfStatsSetApi(addr(idx), 2, 0), ACL_ERR_IFSTATS_NOT_EXIST);
  EXPECT_EQ(aclIfStatsSetApi(addr(idx), 3, 0), ACL_RET_UNKNOWN);

  // Clear-all stops at the first refused clear; which records it reached tells the scope.
  const auto clears = [&](uint32_t ifIndex) {
    const uint32_t id = plat::faultAdd(
        {.call = "zorIfSetApi", .cmd = ZOR_IF_FIELD_STATS, .result = 0, .count = -1});
    be::store32(idx + ACL_STATS_INDEX_IF, ifIndex);
    EXPECT_EQ(aclIfStatsSetApi(addr(idx), 6, 0), 0);
    const uint32_t n = faultHits(id);
    plat::faultRemove(id);
    return n;
  };
  EXPECT_EQ((std::vector{clears(202), clears(0), clears(777)}), (std::vector<uint32_t>{2, 4, 0}));
}

}  // namespace
}  // namespace iftest
