// The invariant audit over a global binding and an interface binding on an aggregation: clean
// while the daemon's own paths keep the structures in step (a refused binding included), and
// naming each kind of difference when one structure is changed behind their back.
#include "api/acl_scalar_api.h"
#include "api/acl_scalar_bind.h"
#include "control/acl_slot.h"
#include "control/acl_slot_index.h"
#include "diag/acl_audit.h"
#include "platform/fault.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

constexpr uint32_t kInIpv4Cmd = ACL_SCALAR_GLB_SLOT_FIRST + 2;  // the global inIpv4Acl
constexpr uint32_t kBindTypeIpv4In = 1;

std::string texts(const std::vector<AclAuditDiff>& diffs) {
  std::string out;
  for (const auto& d : diffs) out += d.check + ": " + d.text + "\n";
  return out;
}

class AuditTest : public IfTest {
 protected:
  // Global inIpv4Acl holds 1002; the aggregation's inIpv4Acl holds 1001, installed on its three
  // members (mode 1).
  void bindBoth() {
    listOf(1001, {1, 2});
    listOf(1002, {3, 4});
    aggMode(1);
    agg = aclIfEntryAdd(kAgg);
    ASSERT_NE(agg, nullptr);
    uint32_t previous = 0;
    ASSERT_EQ(aclScalarSlotMove(kInIpv4Cmd, 1002, &previous), 0);
    ASSERT_EQ(aclIfRuleUpdate(kAgg, ACL_BIND_KIND_IPV4, 0, 1001, &agg->slots.inIpv4Acl), 0);
    ASSERT_EQ(units().size(), 6u);
    ASSERT_EQ(global().size(), 2u);
  }
  static vdev::HwEntry* hwEntry(vdev::ScopeKey scope, uint32_t lst, uint32_t rule) {
    auto& t = vdev::device().journal.hw[scope];
    auto it = t.entries.find({lst, rule, 0});
    return it == t.entries.end() ? nullptr : &it->second;
  }

  static vdev::HwEntry stray(uint32_t lst, uint32_t rule, uint32_t priority) {
    vdev::HwEntry e;
    e.list = lst;
    e.rule = rule;
    e.priority = priority;
    return e;
  }

  AclIfEntry* agg = nullptr;
};

TEST_F(AuditTest, CleanThroughBindingRefusalAndUnbinding) {
  EXPECT_EQ(texts(aclAuditRun()), "");
  bindBoth();
  EXPECT_EQ(texts(aclAuditRun()), "");
  // The second member refuses rule 2 of a new list. A replacement takes the old list off first,
  // so the slot ends empty; the audit, which compares everything, proves that nothing half-done
  // stayed behind on any member, in the ledger or in the bind tree.
  listOf(1003, {1, 2});
  failOn(204, HWIL_CMD_IF_ADD, 1003, 2);
  EXPECT_EQ(aclIfRuleUpdate(kAgg, ACL_BIND_KIND_IPV4, 0, 1003, &agg->slots.inIpv4Acl), kHwFault);
  EXPECT_EQ(agg->slots.inIpv4Acl, 0u);
  EXPECT_EQ(texts(aclAuditRun()), "");
  uint32_t previous = 0;
  ASSERT_EQ(aclScalarSlotMove(kInIpv4Cmd, 0, &previous), 0);
  EXPECT_TRUE(units().empty());
  EXPECT_EQ(texts(aclAuditRun()), "");
}

TEST_F(AuditTest, NamesEachDifferenceMadeBehindTheDaemonsBack) {
  struct Case {
    const char* name;
    std::function<void(AclIfEntry*)> breakIt;
    std::vector<std::pair<std::string, std::string>> want;  // check, text
  };
  const vdev::ScopeKey member2{1, 204, 0, 0}, global0{0, 0, 0, 0};
  const std::vector<Case> cases = {
      {"hardware entry removed",
       [&](AclIfEntry*) { vdev::device().journal.hw[member2].entries.erase({1001, 2, 0}); },
       {{"hardware", "unit 204 lacks list 1001 rule 2 dir 0 (interface 1001 inIpv4Acl, priority "
                     "4098)"}}},
      {"hardware entry nobody bound",
       [&](AclIfEntry*) {
         vdev::device().journal.hw[global0].entries[{1002, 9, 0}] = stray(1002, 9, 8201);
       },
       {{"hardware", "global table holds list 1002 rule 9 dir 0 that no binding calls for"}}},
      {"hardware entry on the aggregation itself",
       [&](AclIfEntry*) {
         vdev::device().journal.hw[{1, kAgg, 0, 0}].entries[{1001, 1, 0}] = stray(1001, 1, 4097);
       },
       {{"hardware", "unit 1001 holds list 1001 rule 1 dir 0 that no binding calls for"}}},
      {"hardware priority",
       [&](AclIfEntry*) { hwEntry(global0, 1002, 3)->priority = 8192; },
       {{"hardware", "global table holds list 1002 rule 3 dir 0 with priority 8192, global "
                     "inIpv4Acl calls for 8195"}}},
      {"hardware form",
       [&](AclIfEntry*) { hwEntry({1, 303, 0, 0}, 1001, 1)->tlv = true; },
       {{"hardware", "unit 303 holds list 1001 rule 1 dir 0 as a TLV message, tlvEnable calls for "
                     "a rule record"}}},
      {"refCnt raised", [](AclIfEntry*) { ++aclListEntryGet(1001)->refCnt; },
       {{"refCnt", "list 1001 has refCnt 2, its bind slots hold it 1 time(s)"}}},
      {"refCnt of a global binding lost", [](AclIfEntry*) { --aclListEntryGet(1002)->refCnt; },
       {{"refCnt", "list 1002 has refCnt 0, its bind slots hold it 1 time(s)"}}},
      {"ledger count",
       [](AclIfEntry*) { aclSlotFirst()->curSubRuleNum[kBindTypeIpv4In] = 5; },
       {{"ledger", "slot 1/1 bind type 1 charges 5 rules, the bindings call for 2"}}},
      {"bind-list entry removed",
       [](AclIfEntry*) {
         aclIfListDel(aclIfListGet(kAgg, ACL_BIND_KIND_IPV4, 0, 1001, 0));
       },
       // The ledger is recounted from the bind tree, so it misses the binding too (the daemon's own
       // slot is the one record there is).
       {{"bindList", "interface 1001 holds list 1001 (kind 2, dir 0) without a bind-list entry"},
        {"ledger", "slot 1/1 bind type 1 charges 2 rules, the bindings call for 0"}}},
      {"interface no longer located",
       [](AclIfEntry*) {
         plat::faultAdd({.call = "zorIndexTrans", .unit = kAgg, .result = 5, .count = -1});
       },
       {{"ledgerIndex", "bind-list entry (interface 1001, kind 2, dir 0, list 1001, rule 0): the "
                        "slot index has it on every slot (from 1/0), the platform locates it "
                        "nowhere"}}},
      {"entry dropped from the slot index",
       [](AclIfEntry*) {
         aclSlotIndexIfDel(*aclIfListGet(kAgg, ACL_BIND_KIND_IPV4, 0, 1001, 0));
       },
       {{"ledgerIndex", "bind-list entry (interface 1001, kind 2, dir 0, list 1001, rule 0) is "
                        "missing from the slot index"}}},
      {"slot index entry nobody made",
       [](AclIfEntry*) {
         AclIfListEntry e{};
         e.ifIndex = 202;
         e.listType = ACL_BIND_KIND_IPV4;
         e.dir = 1;
         e.lstIdx = 1002;
         aclSlotIndexIfAdd(e);
       },
       {{"ledgerIndex", "the slot index holds bind-list entry (interface 202, kind 2, dir 1, list "
                        "1002, rule 0) on 1/2, which no bind tree has"}}},
      {"slot emptied behind its entry",
       [](AclIfEntry* a) { a->slots.inIpv4Acl = 0; },
       {{"refCnt", "list 1001 has refCnt 1, its bind slots hold it 0 time(s)"},
        {"bindList", "bind-list entry (interface 1001, kind 2, dir 0, list 1001) has no slot"},
        {"hardware", "unit 203 holds list 1001 rule 1 dir 0 that no binding calls for"},
        {"hardware", "unit 203 holds list 1001 rule 2 dir 0 that no binding calls for"},
        {"hardware", "unit 204 holds list 1001 rule 1 dir 0 that no binding calls for"},
        {"hardware", "unit 204 holds list 1001 rule 2 dir 0 that no binding calls for"},
        {"hardware", "unit 303 holds list 1001 rule 1 dir 0 that no binding calls for"},
        {"hardware", "unit 303 holds list 1001 rule 2 dir 0 that no binding calls for"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    bindBoth();
    ASSERT_EQ(texts(aclAuditRun()), "");
    {
      // Tests hold aclMutex, not the device's: changes to the tables take it like the daemon.
      std::unique_lock lock(vdev::device().mutex, std::defer_lock);
      if (std::string(c.name).starts_with("hardware")) lock.lock();
      c.breakIt(agg);
    }
    std::string want;
    for (const auto& [check, text] : c.want) want += check + ": " + text + "\n";
    EXPECT_EQ(texts(aclAuditRun()), want);
  }
}

}  // namespace
}  // namespace iftest
