// A global binding that runs out of statistics records is refused as a whole: CMN_ERR_NO_RESOURCE,
// and the hardware table, the records and the next-hop tracking as they were before it.
#include <utility>

#include "unit/hw/glb_fixture.h"

namespace glbtest {
namespace {

constexpr uint32_t kIn = ACL_GLB_DIR_IN, kOut = ACL_GLB_DIR_OUT;
constexpr uint32_t kPool = 16;  // acl.maxgrulenum: rules and statistics records

// The whole global table: what each entry was installed with.
using Table = std::map<HwKey, std::pair<uint32_t, Bytes>>;

// What a refused binding must leave as it was.
struct Snapshot {
  Table table;
  uint32_t statsUsed;
  size_t dstIps;
  uint8_t nhNum;
  int32_t refCnt;
  size_t anomalies;
  bool operator==(const Snapshot&) const = default;
};

class GlbRefusal : public GlbTest {
 protected:
  void SetUp() override {
    GlbTest::SetUp();
    aclUnlock();
    start({{"acl.maxgrulenum", std::to_string(kPool)}});
    aclLock();
  }

  static Table table() {
    auto& d = vdev::device();
    std::lock_guard lock(d.mutex);
    Table out;
    auto it = d.journal.hw.find(vdev::ScopeKey{0, 0, 0, 0});
    if (it == d.journal.hw.end()) return out;
    for (const auto& [key, e] : it->second.entries) out[key] = {e.priority, e.data};
    return out;
  }
  Snapshot snapshot(uint32_t lstIdx, uint32_t redirectRule) {
    return {table(),
            used(gaclGrp.statsPool),
            dlist::count(&gaclGrp.dstIpList),
            aclRuleEntryGetByIndex(lstIdx, redirectRule)->nhNum,
            aclListEntryGet(lstIdx)->refCnt,
            anomalyCount()};
  }
  // Takes statistics records until only room are left.
  void leaveRoom(uint32_t room) {
    while (entries(gaclGrp.statsPool) - used(gaclGrp.statsPool) > room) {
      AclStatsEntry* s = aclStatsMalloc();
      ASSERT_NE(s, nullptr);
      held_.push_back(s);
    }
  }
  void releaseRoom() {
    for (AclStatsEntry* s : held_) aclStatsFree(s);
    held_.clear();
  }
  // Counted rules 1..n of a list, rule 2 also redirecting to a known next hop.
  static AclListEntry* countedList(uint32_t lstIdx, uint32_t n) {
    AclListEntry* l = list(lstIdx);
    for (uint32_t r = 1; r <= n; ++r) counted(validRule(lstIdx, r));
    nextHop(aclRuleEntryGetByIndex(lstIdx, 2), "192.0.2.1");
    return l;
  }

  std::vector<AclStatsEntry*> held_;
};

TEST_F(GlbRefusal, BindingWithoutRoomForItsRecordsLeavesEverythingAsItWas) {
  struct Case {
    const char* name;
    uint32_t room;       // records left when the binding starts
    bool boundOtherWay;  // the list already bound in the other direction
    bool tlv;
  };
  const Case cases[] = {
      {"room for two of four", 2, false, false},
      {"no room for the first", 0, false, false},
      {"TLV messages", 3, false, true},
      {"already bound the other way, keeps its next hops", 1, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    aclUnlock();
    start({{"acl.maxgrulenum", std::to_string(kPool)}});
    aclLock();
    gaclGrp.tlvEnable = c.tlv ? 1 : 0;
    // Another list in the hardware, so the table compared is not empty.
    AclListEntry* other = list(2001);
    counted(validRule(2001, 1));
    ASSERT_EQ(aclGlbAdd(other, kIn, nullptr, 2), 0);
    AclListEntry* l = countedList(1001, 4);
    if (c.boundOtherWay) {
      ASSERT_EQ(aclGlbAdd(l, kOut, nullptr, 2), 0);
      l->refCnt = 1;
    }
    leaveRoom(c.room);
    const Snapshot before = snapshot(1001, 2);

    EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), CMN_ERR_NO_RESOURCE);
    EXPECT_EQ(snapshot(1001, 2), before);
    EXPECT_TRUE(strayRemovals().empty());

    // Nothing of the refused binding is in the way once there is room.
    releaseRoom();
    ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
    EXPECT_EQ(anomalyCount(), 0u);
    for (uint32_t r = 1; r <= 4; ++r) {
      EXPECT_EQ(global().count({1001, r, kIn}), 1u) << r;
      EXPECT_NE(aclStatsGetEntry({1001, r, 0, kIn}), nullptr) << r;
    }
  }
}

// Binding a list a second time in one direction shares the records the first binding made, so it
// needs none: a full pool does not refuse it.
TEST_F(GlbRefusal, SecondBindingInOneDirectionNeedsNoRecords) {
  AclListEntry* l = countedList(1001, 3);
  ASSERT_EQ(aclGlbAdd(l, kIn, nullptr, 2), 0);
  l->refCnt = 1;
  leaveRoom(0);
  const uint32_t before = used(gaclGrp.statsPool);
  const uint64_t lastInstall = installSeq(1001, 3, kIn);
  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 0), 0);
  EXPECT_EQ(used(gaclGrp.statsPool), before);
  EXPECT_GT(installSeq(1001, 3, kIn), lastInstall) << "every rule went in again";
}

// The hardware refuses a removal while the binding rolls back: the rollback stops there. What
// stays in the hardware keeps its record; what came out gives its record back.
TEST_F(GlbRefusal, RollbackStoppedByARefusedRemovalKeepsTheRecordsOfWhatStays) {
  AclListEntry* l = countedList(1001, 4);
  const uint32_t before = used(gaclGrp.statsPool);
  leaveRoom(3);
  const uint32_t held = used(gaclGrp.statsPool) - before;
  failRule(HWIL_CMD_GLOBAL_DEL, 1001, 2);

  EXPECT_EQ(aclGlbAdd(l, kIn, nullptr, 2), CMN_ERR_NO_RESOURCE);
  EXPECT_EQ(global(), (HwView{{{1001, 1, kIn}, 8193}, {{1001, 2, kIn}, 8194}}));
  EXPECT_NE(aclStatsGetEntry({1001, 1, 0, kIn}), nullptr);
  EXPECT_NE(aclStatsGetEntry({1001, 2, 0, kIn}), nullptr);
  EXPECT_EQ(aclStatsGetEntry({1001, 3, 0, kIn}), nullptr);
  EXPECT_EQ(used(gaclGrp.statsPool), before + held + 2);
  EXPECT_TRUE(strayRemovals().empty());
}

// A single rule that cannot have its record is not installed and gives back the next hops it
// registered for itself.
TEST_F(GlbRefusal, SingleRuleWithoutRoomRegistersNothing) {
  AclListEntry* l = countedList(1001, 2);
  AclRuleEntry* r = aclRuleEntryGetByIndex(1001, 2);
  leaveRoom(0);
  const uint32_t before = used(gaclGrp.statsPool);
  EXPECT_EQ(aclGlbRuleAddOne(l, r, kIn, 2), CMN_ERR_NO_RESOURCE);
  EXPECT_TRUE(global().empty());
  EXPECT_EQ(used(gaclGrp.statsPool), before);
  EXPECT_EQ(r->nhNum, 0);
  EXPECT_EQ(dlist::count(&gaclGrp.dstIpList), 0u);
}

}  // namespace
}  // namespace glbtest
