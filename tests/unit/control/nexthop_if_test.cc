// Next-hop re-programming over interface bindings: interfaces first, then the global scope, and
// the retry of a re-installation that stops halfway.
#include "control/acl_dstip.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

class NextHopIfTest : public IfTest {
 protected:
  // List 1001 bound on the interface in the slot, as a slot update leaves it.
  static void bindIf(uint32_t unit, uint32_t AclBindSlots::*slot, uint32_t kind, uint32_t dir) {
    AclIfEntry* e = aclIfEntryAdd(unit);
    ASSERT_NE(e, nullptr);
    AclListEntry* l = aclListEntryGet(1001);
    ASSERT_EQ(aclIfAdd(unit, 0, 0, l, dir, nullptr, kind), 0);
    e->slots.*slot = 1001;
    ++l->refCnt;
  }
  static int32_t report(const Bytes& addr) { return aclNexthopStateHandle(0, addr.data(), 1, 0); }
  static uint64_t unitSeq(uint32_t unit, uint32_t rule) {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    auto it = d.journal.hw.find(vdev::ScopeKey{1, unit, 0, 0});
    if (it == d.journal.hw.end()) return 0;
    auto e = it->second.entries.find({1001, rule, 0});
    return e == it->second.entries.end() ? 0 : e->second.seq;
  }
};

TEST_F(NextHopIfTest, ResolvedAndLostNextHopReachInterfacesFirst) {
  AclListEntry* l = listOf(1001, {1});
  nextHop(validRule(1001, 2), "198.51.100.1");
  bindIf(kPort, &AclBindSlots::inIpv4Acl, ACL_BIND_KIND_IPV4, 0);
  ASSERT_EQ(aclGlbAdd(l, 0, nullptr, 2), 0);
  gaclGrp.slots.inIpv4Acl = 1001;
  ++l->refCnt;
  // An untyped slot that holds the list while switched off takes no part.
  bindIf(202, &AclBindSlots::inAcl, ACL_BIND_KIND_UNTYPED, 0);
  EXPECT_EQ(units(), (UnitView{{{kPort, 1001, 1, 0}, 4097}, {{202, 1001, 1, 0}, 4097}}));

  const Bytes hop = ip4("198.51.100.1");
  neighbour(hop, true);
  ASSERT_EQ(report(hop), 0);
  EXPECT_EQ(units(), (UnitView{{{kPort, 1001, 1, 0}, 4097},
                               {{kPort, 1001, 2, 0}, 4098},
                               {{202, 1001, 1, 0}, 4097}}));
  EXPECT_EQ(global().count({1001, 2, 0}), 1u);
  EXPECT_LT(unitSeq(kPort, 2), installSeq(1001, 2, 0));

  neighbour(hop, false);
  ASSERT_EQ(report(hop), 0);
  EXPECT_EQ(units().count({kPort, 1001, 2, 0}), 0u);
  EXPECT_EQ(global().count({1001, 2, 0}), 0u);
}

// Three interfaces and a failure on the second: the first is back, the others stay out until the
// retry two seconds later installs all three.
TEST_F(NextHopIfTest, ReinstallStoppedHalfwayIsRetried) {
  AclListEntry* l = listOf(1001, {1, 2});
  for (uint32_t unit : {201u, 202u, 203u}) {
    bindIf(unit, &AclBindSlots::outL2Acl, ACL_BIND_KIND_L2, 1);
  }
  failOn(202, HWIL_CMD_IF_ADD, 1001, 2);
  EXPECT_EQ(aclNextHopListAdd(1001), kHwFault);
  EXPECT_EQ(units(), expect({201}, 1001, {{1, 4097}, {2, 4098}}, 1));
  ASSERT_TRUE(retryArmed(l));
  EXPECT_EQ(runTimers(ACL_NEXTHOP_RETRY_MS), 1);
  EXPECT_EQ(units(), expect({201, 202, 203}, 1001, {{1, 4097}, {2, 4098}}, 1));
  EXPECT_FALSE(retryArmed(l));
}

}  // namespace
}  // namespace iftest
