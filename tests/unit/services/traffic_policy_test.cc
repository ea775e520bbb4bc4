// Traffic policies on an interface and globally: what each operation puts in the hardware, the
// undo of a partial application, the bind-list accounting and the audit afterwards.
#include "control/acl_slot.h"
#include "diag/acl_audit.h"
#include "hw/acl_if_record.h"
#include "platform/logging.h"
#include "services/acl_traffic_policy.h"
#include "store/acl_entry.h"
#include "unit/hw/if_fixture.h"
#include "wire/acl_dev_layout.h"

namespace {

using namespace iftest;

constexpr uint32_t kList = 1001;

class TrafficPolicyTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    slotRoom(2);
  }
  void fresh(const std::vector<std::pair<std::string, std::string>>& opts = {}) {
    restart(opts);
    slotRoom(2);
  }
  // A request for every rule of kList (or one), inbound, apply or remove.
  static Bytes request(uint8_t op, uint32_t rule = 0, Bytes data = {}) {
    Bytes r(ACL_TRAFFIC_REQ_LEN, 0);
    be::store32(r.data(), kList);
    be::store32(r.data() + 4, rule);
    r[9] = op;
    std::copy(data.begin(), data.end(), r.begin() + ACL_TRAFFIC_REQ_DATA);
    return r;
  }
  // Rules 1..n of kList with the given status, each permitting.
  static AclListEntry* rules(uint32_t n, uint8_t status) {
    AclListEntry* l = list(kList);
    for (uint32_t i = 1; i <= n; ++i) {
      AclRuleEntry* r = rule(kList, i);
      r->status = status;
      action(r, RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT, {});
    }
    return l;
  }
};

// Each operation puts its own actions on the copies and leaves the stored rule's alone; removing
// it takes every copy and every entry out again. (A filter with its own deny: end to end.)
TEST_F(TrafficPolicyTest, EachOperationInstallsItsActionsAndRemovesThem) {
  struct Op {
    const char* name;
    int32_t (*fn)(uint32_t, const uint8_t*);
    Bytes data;
    Bytes want;
  };
  const Bytes remark = [] {
    Bytes d(24, 0);
    aclBitSet(std::span<uint8_t>(d.data(), 8), RULE_ACTION_DSCP);
    d[9] = 46;
    return d;
  }();
  const std::vector<Op> ops = {
      {"filter (rule's own)", aclTrafficIfFilter, {}, actionBits({RULE_ACTION_PERMIT})},
      {"redirect cpu",
       aclTrafficIfRedirect,
       {RULE_ACTION_OUTPUT_CPU},
       actionBits({RULE_ACTION_OUTPUT_CPU})},
      {"remark dscp", aclTrafficIfRemark, remark, actionBits({RULE_ACTION_DSCP})},
      {"mirror", aclTrafficIfMirror, num(3, 4), actionBits({RULE_ACTION_MIRROR_GROUP})},
      {"statistic", aclTrafficIfStatistic, {1, 2}, actionBits({RULE_ACTION_AWARE})},
      {"loopback swap",
       aclTrafficIfLoopback,
       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
       actionBits({RULE_ACTION_LOOPBACK, RULE_ACTION_MAC_SWAP})},
  };
  for (const Op& op : ops) {
    SCOPED_TRACE(op.name);
    fresh();
    // Filters take valid rules; the other operations take rules not made valid yet.
    const bool filter = op.fn == aclTrafficIfFilter;
    AclListEntry* l = rules(3, filter ? ACL_RULE_STATUS_VALID : ACL_RULE_STATUS_CREATED);
    const AclRuleEntry* two = aclRuleEntryGet(l, 2);
    const Bytes stored(two->actionBits, two->actionBits + 8);
    const int32_t refBefore = l->refCnt;

    const Bytes apply = request(ACL_TRAFFIC_OP_APPLY, 0, op.data);
    ASSERT_EQ(op.fn(kPort, apply.data()), 0);
    EXPECT_EQ(units(), expect({kPort}, kList, {{1, 1}, {2, 2}, {3, 3}}));
    EXPECT_EQ(inActionsOn(kPort, kList, 2), op.want);
    EXPECT_EQ(Bytes(aclRuleEntryGet(l, 2)->actionBits, aclRuleEntryGet(l, 2)->actionBits + 8),
              stored);
    EXPECT_EQ(l->refCnt, refBefore + 3);
    for (uint32_t r = 1; r <= 3; ++r) {
      const AclIfListEntry* e = aclIfListGet(kPort, ACL_LIST_TYPE_IPV4, 0, kList, r);
      ASSERT_NE(e, nullptr);
      EXPECT_EQ(std::make_tuple(e->bindOwner, e->refcount),
                std::make_tuple(ACL_BIND_OWNER_TRAFFIC, 1));
    }
    expectAuditClean();

    const Bytes remove = request(2, 0, op.data);
    ASSERT_EQ(op.fn(kPort, remove.data()), 0);
    EXPECT_EQ(std::make_tuple(units().size(), l->refCnt,
                              aclIfListGet(kPort, ACL_LIST_TYPE_IPV4, 0, kList, 1)),
              std::make_tuple(0u, refBefore, nullptr));
    expectAuditClean();
  }
}

// Refusals: what is answered, and that nothing of a refused request stays behind.
TEST_F(TrafficPolicyTest, RefusalsLeaveNothingBehind) {
  struct Case {
    const char* name;
    std::function<void(AclListEntry*)> setup;
    std::function<int32_t()> call;
    int32_t want;
  };
  const std::vector<Case> cases = {
      {"filter without permit or deny undoes rule 1",
       [](AclListEntry*) {
         AclRuleEntry* r = aclRuleEntryGetByIndex(kList, 2);
         aclActionEntryDel(aclActionEntryGet(r, RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT));
         aclBitClear(r->actionBits, RULE_ACTION_PERMIT);
       },
       [] { return aclTrafficIfFilter(kPort, request(1).data()); }, ACL_ERR_FILTER_NO_ACTION},
      {"redirect with code 8",
       [](AclListEntry*) {
         for (uint32_t r = 1; r <= 3; ++r) aclRuleEntryGetByIndex(kList, r)->status = 3;
       },
       [] {
         return aclTrafficIfRedirect(kPort, request(1, 0, {RULE_ACTION_OUTPUT_MULTIHOP}).data());
       },
       CMN_ERR_NOT_SUPPORTED},
      {"mirror of a valid rule", [](AclListEntry*) {},
       [] { return aclTrafficIfMirror(kPort, request(1, 0, num(1, 4)).data()); },
       ACL_ERR_TRAFFIC_RULE_VALID},
      {"VRF rule", [](AclListEntry*) { bit(aclRuleEntryGetByIndex(kList, 3), RULE_BIT_VRFID); },
       [] { return aclTrafficIfFilter(kPort, request(1).data()); }, -1},
      {"hardware refuses rule 2", [](AclListEntry*) { failOn(kPort, HWIL_CMD_IF_ADD, kList, 2); },
       [] { return aclTrafficIfFilter(kPort, request(1).data()); }, kHwFault},
      {"direction 7", [](AclListEntry*) {},
       [] {
         Bytes r = request(1);
         r[ACL_TRAFFIC_REQ_DIR] = 7;
         return aclTrafficIfFilter(kPort, r.data());
       },
       CMN_ERR_BAD_PARAM},
      {"no request", [](AclListEntry*) {}, [] { return aclTrafficIfFilter(kPort, nullptr); },
       CMN_ERR_BAD_PARAM},
      {"unknown interface", [](AclListEntry*) {},
       [] { return aclTrafficIfFilter(999, request(1).data()); }, ACL_RET_IF_NO_LOCATION},
      {"list bound by the ACL on the interface",
       [](AclListEntry*) {
         aclIfEntryAdd(kPort);
         aclIfEntryGet(kPort)->slots.inIpv4Acl = 0;
         ASSERT_EQ(aclIfRuleUpdate(kPort, ACL_LIST_TYPE_IPV4, 0, kList,
                                   &aclIfEntryGet(kPort)->slots.inIpv4Acl),
                   0);
       },
       [] { return aclTrafficIfFilter(kPort, request(1).data()); }, ACL_ERR_SHARED_IN_USE},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fresh();
    AclListEntry* l = rules(3, ACL_RULE_STATUS_VALID);
    c.setup(l);
    const UnitView before = units();
    const int32_t ref = l->refCnt;
    EXPECT_EQ(c.call(), c.want);
    EXPECT_EQ(
        std::make_tuple(units(), l->refCnt, aclIfListGet(kPort, ACL_LIST_TYPE_IPV4, 0, kList, 1)),
        std::make_tuple(before, ref, nullptr));
    expectAuditClean();
  }
}

// One rule applied twice by two users shares its entry; the second removal takes it away.
TEST_F(TrafficPolicyTest, OneRuleEntryCountsItsUsers) {
  AclListEntry* l = rules(2, ACL_RULE_STATUS_VALID);
  const Bytes one = request(1, 2);
  ASSERT_EQ(aclTrafficIfFilter(kPort, one.data()), 0);
  ASSERT_EQ(aclTrafficIfFilter(kPort, one.data()), 0);
  const AclIfListEntry* e = aclIfListGet(kPort, ACL_LIST_TYPE_IPV4, 0, kList, 2);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(std::make_tuple(e->refcount, l->refCnt), std::make_tuple(2, 2));
  const Bytes off = request(2, 2);
  ASSERT_EQ(aclTrafficIfFilter(kPort, off.data()), 0);
  EXPECT_EQ(aclIfListGet(kPort, ACL_LIST_TYPE_IPV4, 0, kList, 2)->refcount, 1);
  ASSERT_EQ(aclTrafficIfFilter(kPort, off.data()), 0);
  EXPECT_EQ(aclIfListGet(kPort, ACL_LIST_TYPE_IPV4, 0, kList, 2), nullptr);
  EXPECT_EQ(l->refCnt, 0);
}

// Global policies hold their copies in the global table with priority ruleIdx, in either form,
// and count nothing in refCnt; a refusal part-way takes the earlier rules out.
TEST_F(TrafficPolicyTest, GlobalPoliciesInBothForms) {
  for (const char* tlv : {"false", "true"}) {
    SCOPED_TRACE(tlv);
    fresh({{"acl.tlvenable", tlv}});
    AclListEntry* l = rules(3, ACL_RULE_STATUS_VALID);
    const Bytes apply = request(1);
    ASSERT_EQ(aclTrafficGlobalFilter(apply.data()), 0);
    EXPECT_EQ(global(), (HwView{{{kList, 1, 0}, 1}, {{kList, 2, 0}, 2}, {{kList, 3, 0}, 3}}));
    EXPECT_EQ(l->refCnt, 0);
    expectAuditClean();
    ASSERT_EQ(aclTrafficGlobalFilter(request(2).data()), 0);
    EXPECT_TRUE(global().empty());

    failRule(tlv[0] == 't' ? HWIL_CMD_GLOBAL_TLV : HWIL_CMD_GLOBAL_ADD, kList, 3);
    EXPECT_EQ(aclTrafficGlobalFilter(apply.data()), kHwFault);
    EXPECT_TRUE(global().empty());
    expectAuditClean();
  }
}

}  // namespace
