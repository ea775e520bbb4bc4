// The GEM port table (75 to 81) and GEM port statistics table (82 to 86): the answer to each bad
// request, the record walk's filter, the failed local relay, and the clear-all of every record.
#include <array>
#include <optional>

#include "api/acl_gemport_api.h"
#include "control/acl_slot.h"
#include "diag/acl_audit.h"
#include "services/acl_traffic_policy.h"
#include "unit/hw/if_fixture.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace iftest {
namespace {

constexpr uint32_t kIpv4InCmd = 4;  // inIpv4Acl

// A buffer or key area as the table functions take it.
inline uintptr_t addr(const void* p) {
  return reinterpret_cast<uintptr_t>(p);
}

std::array<uint8_t, ACL_GEM_KEY_LEN> key(uint32_t ifIndex, uint16_t onu, uint16_t gem,
                                         uint32_t filter = 0) {
  std::array<uint8_t, ACL_GEM_KEY_LEN> k{};
  be::store32(k, 0, ifIndex);
  be::store16(k, 4, onu);
  be::store16(k, 6, gem);
  be::store32(k, 8, filter);
  return k;
}

int32_t set(uint16_t onu, uint16_t gem, uint32_t cmd, std::optional<uint32_t> v) {
  auto k = key(kPon, onu, gem);
  uint8_t word[4] = {};
  if (v) be::store32(word, *v);
  return aclGemPortSetApi(addr(k.data()), cmd, v ? addr(word) : 0);
}

std::optional<uint32_t> get(uint16_t onu, uint16_t gem, uint32_t cmd, int32_t* ret = nullptr) {
  auto k = key(kPon, onu, gem);
  uint8_t word[4] = {};
  const int32_t r = aclGemPortGetApi(addr(k.data()), cmd, addr(word));
  if (ret != nullptr) *ret = r;
  if (r != 0) return std::nullopt;
  return be::load32(word);
}

class GemApiTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    if (aclSlotEntryGet(1, 4) == nullptr) aclSlotEntryAdd(1, 4);
    listOf(1001, {1}, {2});
    ASSERT_EQ(set(5, 3, 1, 2), 0);
  }
};

TEST_F(GemApiTest, AnswersToEachRequest) {
  struct Case {
    const char* name;
    uint16_t onu, gem;
    uint32_t cmd;
    std::optional<uint32_t> value;
    int32_t want;
  };
  const Case cases[] = {
      {"command 0", 5, 3, 0, 1, ACL_RET_UNKNOWN},
      {"command past the table", 5, 3, 27, 1, ACL_RET_UNKNOWN},
      {"null buffer", 5, 3, kIpv4InCmd, std::nullopt, CMN_ERR_BAD_PARAM},
      {"missing record", 5, 4, kIpv4InCmd, 1001, ACL_ERR_IF_NOT_EXIST},
      {"unbind on a missing record", 5, 4, kIpv4InCmd, 0, 0},
      {"mark a missing record", 5, 4, 1, 3, ACL_ERR_IF_NOT_EXIST},
      {"destroy a missing record", 5, 4, 1, 4, 0},
      {"create with neither ONU nor GEM port", 0, 0, 1, 2, CMN_ERR_BAD_PARAM},
      {"pre-stage counting rule", 5, 3, 22, 1001, CMN_ERR_NOT_SUPPORTED},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(set(c.onu, c.gem, c.cmd, c.value), c.want);
    EXPECT_TRUE(units(2).empty());
    EXPECT_EQ(avl_numnodes(&gaclGrp.gemPortTree), 1u);
    EXPECT_EQ(aclListEntryGet(1001)->refCnt, 0);
  }
  int32_t ret = 0;
  EXPECT_EQ(get(5, 3, 14, &ret), std::nullopt);
  EXPECT_EQ(ret, CMN_ERR_NOT_SUPPORTED);
  EXPECT_EQ(get(5, 4, 1, &ret), std::nullopt);
  EXPECT_EQ(ret, ACL_ERR_IF_NOT_EXIST);
  EXPECT_EQ(get(5, 3, 1), 1u);
  // The last typed slot, outUdfAcl.
  listOf(5001, {1});
  EXPECT_EQ(set(5, 3, 13, 5001), 0);
  EXPECT_EQ(get(5, 3, 13), 5001u);
}

TEST_F(GemApiTest, DestroyKeepsABoundRecordAndAFailedLocalRelayPutsTheSlotBack) {
  ASSERT_EQ(set(5, 3, kIpv4InCmd, 1001), 0);
  EXPECT_EQ(get(5, 3, kIpv4InCmd), 1001u);
  EXPECT_EQ(set(5, 3, 1, 4), 0);
  EXPECT_NE(aclGemPortEntryGet(kPon, 5, 3), nullptr);

  plat::faultAdd({.call = "zorHwilCmdSyncApi", .cmd = 0x0CC94000 + kIpv4InCmd, .result = -1});
  EXPECT_EQ(set(5, 3, kIpv4InCmd, 0), CMN_ERR_SYNC_FAILED);
  EXPECT_EQ(get(5, 3, kIpv4InCmd), 1001u);
  EXPECT_EQ(units(2), expect({kPon}, 1001, {{1, 1}, {2, 2}}));
  EXPECT_EQ(aclListEntryGet(1001)->refCnt, 1);
}

TEST_F(GemApiTest, RecordWalkFollowsTheFilter) {
  ASSERT_EQ(set(5, 1, 1, 2), 0);
  ASSERT_EQ(set(6, 1, 1, 2), 0);
  struct Case {
    const char* name;
    uint16_t onu, gem;
    uint32_t filter;
    std::vector<std::pair<uint16_t, uint16_t>> want;
  };
  const Case cases[] = {
      {"no filter", 0, 0, 0, {{5, 1}, {5, 3}, {6, 1}}},
      {"ONU 5", 5, 0, 0x20000000, {{5, 1}, {5, 3}}},
      {"GEM port 1", 0, 1, 0x10000000, {{5, 1}, {6, 1}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto k = key(kPon, c.onu, c.gem, c.filter | 0x40000000);
    std::vector<std::pair<uint16_t, uint16_t>> got;
    auto next = k;
    for (int32_t r = aclGemPortGetFirst(addr(k.data()), 0, 0); r == 0;
         r = aclGemPortGetNext(addr(k.data()), addr(next.data()), 0)) {
      if (!got.empty()) k = next;
      got.emplace_back(be::load16(k, 4), be::load16(k, 6));
      if (got.size() > 5) break;
    }
    EXPECT_EQ(got, c.want);
  }
}

// The clear of every record the index names, 0 meaning any: a device that refuses the second
// clear shows how many records the call reached.
TEST_F(GemApiTest, ClearAllTakesZeroAsAny) {
  ASSERT_EQ(set(5, 3, kIpv4InCmd, 1001), 0);
  ASSERT_EQ(set(6, 1, 1, 2), 0);
  ASSERT_EQ(set(6, 1, kIpv4InCmd, 1001), 0);
  struct Case {
    const char* name;
    uint32_t ifIndex, onu;
    uint16_t gem;
    int32_t want;
  };
  const Case cases[] = {{"every record", 0, 0, 0, kHwFault},
                        {"one ONU", kPon, 6, 0, 0},
                        {"one GEM port of any ONU", 0, 0, 3, 0},
                        {"an ONU without records", kPon, 9, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    plat::faultClear();
    plat::faultAdd(
        {.call = "zorIfSetApi", .cmd = ZOR_IF_FIELD_STATS, .result = kHwFault, .skip = 1});
    std::array<uint8_t, ACL_GEM_STATS_INDEX_LEN> index{};
    be::store32(index, ACL_GEM_STATS_IF, c.ifIndex);
    be::store32(index, ACL_GEM_STATS_ONU, c.onu);
    be::store16(index, ACL_GEM_STATS_GEM, c.gem);
    uint8_t word[4] = {};
    EXPECT_EQ(aclGemPortStatsSetApi(addr(index.data()), 6, addr(word)), c.want);
  }
  // One record by its index; a record that is not there.
  std::array<uint8_t, ACL_GEM_STATS_INDEX_LEN> index{};
  be::store32(index, ACL_GEM_STATS_LST, 1001);
  be::store32(index, ACL_GEM_STATS_RULE, 2);
  be::store32(index, ACL_GEM_STATS_IF, kPon);
  be::store32(index, ACL_GEM_STATS_ONU, 6);
  be::store16(index, ACL_GEM_STATS_GEM, 1);
  uint8_t word[4] = {};
  plat::faultClear();
  EXPECT_EQ(aclGemPortStatsSetApi(addr(index.data()), 2, addr(word)), 0);
  be::store32(index, ACL_GEM_STATS_ONU, 7);
  EXPECT_EQ(aclGemPortStatsSetApi(addr(index.data()), 2, addr(word)), ACL_ERR_IFSTATS_NOT_EXIST);
}

// The traffic policies of a GEM port act on its PON interface: each command reaches its operation
// with the key's ifIndex, whether or not the GEM port has a record.
class GemPolicyTest : public IfTest {
 protected:
  static constexpr uint32_t kList = 1001;
  void SetUp() override {
    IfTest::SetUp();
    slotRoom(4);
  }
  // The set as the command server makes it: buf points at a word holding the record's address.
  static int32_t policy(uint16_t onu, uint16_t gem, uint32_t cmd, const uint8_t* record) {
    auto k = key(kPon, onu, gem);
    const auto word = addr(record);
    return aclGemPortSetApi(addr(k.data()), cmd, addr(&word));
  }
  static Bytes request(bool apply, const Bytes& data) {
    Bytes r(ACL_TRAFFIC_REQ_LEN, 0);
    be::store32(r.data(), kList);
    r[ACL_TRAFFIC_REQ_OP] = apply ? ACL_TRAFFIC_OP_APPLY : 2;
    std::copy(data.begin(), data.end(), r.begin() + ACL_TRAFFIC_REQ_DATA);
    return r;
  }
};

TEST_F(GemPolicyTest, EachCommandReachesItsOperationOnThePonInterface) {
  struct Case {
    const char* name;
    uint32_t cmd;
    Bytes data;
    Bytes want;
  };
  const Bytes remark = [] {
    Bytes d(24, 0);
    aclBitSet(std::span<uint8_t>(d.data(), 8), RULE_ACTION_DSCP);
    d[9] = 46;
    return d;
  }();
  const Case cases[] = {
      {"loopback", 14, {}, actionBits({RULE_ACTION_LOOPBACK})},
      {"redirect", 15, {RULE_ACTION_OUTPUT_CPU}, actionBits({RULE_ACTION_OUTPUT_CPU})},
      {"filter", 16, num(RULE_ACTION_DENY, 4), actionBits({RULE_ACTION_DENY})},
      {"remark", 17, remark, actionBits({RULE_ACTION_DSCP})},
      {"mirror", 18, num(3, 4), actionBits({RULE_ACTION_MIRROR_GROUP})},
      {"limit", 19, {}, {}},
      {"statistic", 20, {1, 2}, actionBits({RULE_ACTION_AWARE})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    slotRoom(4);
    // Only the filter takes valid rules; the others take rules still being made.
    AclListEntry* l = list(kList);
    for (uint32_t i = 1; i <= 2; ++i) {
      AclRuleEntry* r = rule(kList, i);
      r->status = c.cmd == 16 ? ACL_RULE_STATUS_VALID : ACL_RULE_STATUS_CREATED;
      action(r, RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT, {});
    }
    const Bytes apply = request(true, c.data);
    ASSERT_EQ(policy(5, 3, c.cmd, apply.data()), 0);
    EXPECT_EQ(units(), expect({kPon}, kList, {{1, 1}, {2, 2}}));
    EXPECT_TRUE(units(2).empty());
    // The limit without meter or out-actions sends the rule with no action of its own.
    EXPECT_EQ(inActionsOn(kPon, kList, 2), c.want.empty() ? Bytes(8, 0) : c.want);
    // What else the operation keeps (users, owners) is the traffic policy's own test.
    EXPECT_EQ(aclGemPortEntryGet(kPon, 5, 3), nullptr);
    const Bytes remove = request(false, c.data);
    ASSERT_EQ(policy(5, 3, c.cmd, remove.data()), 0);
    EXPECT_TRUE(units().empty());
    EXPECT_EQ(l->refCnt, 0);
  }
}

TEST_F(GemPolicyTest, MissingRecordAddressOrUnlocatedInterfaceChangesNothing) {
  listOf(kList, {1, 2});
  const Bytes apply = request(true, num(RULE_ACTION_DENY, 4));
  auto k = key(kPon, 5, 3);
  const auto keyAddr = addr(k.data());
  const uintptr_t nullWord = 0;
  EXPECT_EQ(aclGemPortSetApi(keyAddr, 16, 0), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclGemPortSetApi(keyAddr, 16, addr(&nullWord)), CMN_ERR_BAD_PARAM);
  auto nowhere = key(9999, 5, 3);
  const auto word = addr(apply.data());
  EXPECT_EQ(aclGemPortSetApi(addr(nowhere.data()), 16, addr(&word)), ACL_RET_IF_NO_LOCATION);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(aclListEntryGet(kList)->refCnt, 0);
  expectAuditClean();
}

}  // namespace
}  // namespace iftest
