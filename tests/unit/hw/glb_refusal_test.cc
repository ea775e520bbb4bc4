// A global binding that runs out of statistics records is refused as a whole: CMN_ERR_NO_RESOURCE,
// and the hardware table, the records and the next-hop tracking as they were before it.
#include <functional>

#include "unit/hw/glb_fixture.h"

namespace glbtest {
namespace {

constexpr uint32_t kIn = ACL_GLB_DIR_IN, kOut = ACL_GLB_DIR_OUT;

class GlbRefusal : public GlbTest {
 protected:
  // Restarts with a small pool of rules and records: counted rules 1..4 of list 1001, rule 2 also
  // redirecting to a known next hop, and list 2001 installed so the table is not empty.
  void restart() {
    GlbTest::restart({{"acl.maxgrulenum", "16"}});
    ASSERT_EQ(aclGlbAdd(listOf(2001, {}, {1}), kIn, nullptr, 2), 0);
    listOf(1001, {}, {1, 2, 3, 4});
    nextHop(aclRuleEntryGetByIndex(1001, 2), "192.0.2.1");
  }
  // Takes statistics records until only room are left.
  static void leaveRoom(uint32_t room) {
    while (entries(gaclGrp.statsPool) - used(gaclGrp.statsPool) > room) aclStatsMalloc();
  }
  // What a refused binding must leave as it was: the whole global table, the records in use, the
  // next-hop tracking.
  static auto state() {
    auto& d = vdev::device();
    std::map<HwKey, Bytes> table;
    {
      std::lock_guard lock(d.mutex);
      auto it = d.journal.hw.find(vdev::ScopeKey{0, 0, 0, 0});
      if (it != d.journal.hw.end()) {
        for (const auto& [key, e] : it->second.entries) table[key] = e.data;
      }
    }
    return std::tuple(table, used(gaclGrp.statsPool), dlist::count(&gaclGrp.dstIpList),
                      aclRuleEntryGetByIndex(1001, 2)->nhNum, anomalyCount());
  }
};

TEST_F(GlbRefusal, BindingWithoutRoomForItsRecordsLeavesEverythingAsItWas) {
  AclListEntry* l = nullptr;
  struct Case {
    const char* name;
    uint32_t room;  // records left when the binding starts
    bool boundOut;  // the list already bound egress (refCnt 1): its next hops stay
    std::function<int32_t()> bind;
  };
  const Case cases[] = {
      {"room for two of four", 2, false, [&] { return aclGlbAdd(l, kIn, nullptr, 2); }},
      {"no room for the first", 0, false, [&] { return aclGlbAdd(l, kIn, nullptr, 2); }},
      {"bound the other way", 1, true, [&] { return aclGlbAdd(l, kIn, nullptr, 2); }},
      {"one rule", 0, false,
       [&] { return aclGlbRuleAddOne(l, aclRuleEntryGetByIndex(1001, 2), kIn, 2); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    l = aclListEntryGet(1001);
    if (c.boundOut) {
      ASSERT_EQ(aclGlbAdd(l, kOut, nullptr, 2), 0);
      l->refCnt = 1;
    }
    leaveRoom(c.room);
    const auto before = state();
    EXPECT_EQ(c.bind(), CMN_ERR_NO_RESOURCE);
    EXPECT_EQ(state(), before);
  }
}

// The hardware refuses a removal while the binding rolls back: the rollback stops there, the
// rules left in the hardware keep their records, those taken out give theirs back.
TEST_F(GlbRefusal, RollbackStoppedByARefusedRemoval) {
  restart();
  leaveRoom(3);
  const uint32_t before = used(gaclGrp.statsPool);
  failRule(HWIL_CMD_GLOBAL_DEL, 1001, 2);
  EXPECT_EQ(aclGlbAdd(aclListEntryGet(1001), kIn, nullptr, 2), CMN_ERR_NO_RESOURCE);
  EXPECT_EQ(global(),
            (HwView{{{1001, 1, kIn}, 8193}, {{1001, 2, kIn}, 8194}, {{2001, 1, kIn}, 8193}}));
  EXPECT_NE(aclStatsGetEntry({1001, 2, 0, kIn}), nullptr);
  EXPECT_EQ(aclStatsGetEntry({1001, 3, 0, kIn}), nullptr);
  EXPECT_EQ(used(gaclGrp.statsPool), before + 2);  // those of rules 1 and 2
  EXPECT_TRUE(strayRemovals().empty());
}

}  // namespace
}  // namespace glbtest
