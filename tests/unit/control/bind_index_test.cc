// The bindings of every list gathered in one walk of the records give each list what the walk of
// that list alone gives it, in the same order, for either kind of pick.
#include "control/acl_bind_walk.h"
#include "unit/control/rebind_fixture.h"

namespace rebindtest {
namespace {

using Visit = std::tuple<AclBindScope, uint32_t, uint16_t, uint16_t, size_t>;

std::vector<Visit> asVisits(std::span<const AclBindAt> at) {
  std::vector<Visit> out;
  for (const AclBindAt& b : at) out.emplace_back(b.scope, b.unit, b.onuId, b.gemPort, b.slotPos);
  return out;
}

// Every slot that holds the list, in table order.
constexpr auto kEveryPick = [](auto holds, auto visit) {
  for (size_t i = 0; i < kAclBindSlots.size(); ++i) {
    if (holds(kAclBindSlots[i]) && !visit(i)) return false;
  }
  return true;
};
// Per direction, the first slot that holds it only.
constexpr auto kFirstPick = [](auto holds, auto visit) {
  for (uint8_t dir = 0; dir <= ACL_DIR_VFP; ++dir) {
    for (size_t i = 0; i < kAclBindSlots.size(); ++i) {
      if (kAclBindSlots[i].dir != dir || !holds(kAclBindSlots[i])) continue;
      if (!visit(i)) return false;
      break;
    }
  }
  return true;
};

template <typename Pick>
void expectSameAsTheWalk(Pick pick, const char* name) {
  SCOPED_TRACE(name);
  const AclBindIndex index(pick);
  for (uint32_t lst = 1001; lst <= 1006; ++lst) {
    std::vector<AclBindAt> walked;
    aclBindWalk(lst, pick, [&](const AclBindAt& b) {
      walked.push_back(b);
      return true;
    });
    EXPECT_EQ(asVisits(index.of(lst)), asVisits(walked)) << "list " << lst;
  }
}

TEST_F(RebindTest, BindIndexGivesEachListWhatItsOwnWalkGives) {
  for (uint32_t lst = 1001; lst <= 1005; ++lst) listOf(lst, {1});
  // Records in an order other than their keys', the same list twice on one record, untyped
  // slots with their switch on and off, the GEM scope and the global scope (its untyped slots
  // count the list their switch installed, not the slot's own index).
  struct Slot {
    uint32_t unit;
    uint32_t AclBindSlots::*field;
    uint32_t lst;
  };
  const Slot kIfSlots[] = {
      {203, &AclBindSlots::inIpv4Acl, 1001}, {201, &AclBindSlots::outIpv4Acl, 1001},
      {201, &AclBindSlots::inIpv4Acl, 1002}, {201, &AclBindSlots::inIpv4VfpAcl, 1001},
      {202, &AclBindSlots::inAcl, 1003},     {202, &AclBindSlots::outAcl, 1004},
      {202, &AclBindSlots::inL2Acl, 1003},   {203, &AclBindSlots::outIpv6Acl, 1001},
  };
  for (const Slot& s : kIfSlots) {
    AclIfEntry* e = aclIfEntryAdd(s.unit);
    ASSERT_NE(e, nullptr);
    e->slots.*s.field = s.lst;
  }
  aclIfEntryGet(202)->inCtrl = ACL_IF_CTRL_ON;  // outAcl's switch stays off: 1004 is not there
  bindGem(1002);
  gaclGrp.slots.inIpv4Acl = 1001;
  gaclGrp.slots.outAcl = 1005;  // its switch is off
  gaclGrp.inCtrl = 1;
  gaclGrp.inCtrlList = 1003;
  expectSameAsTheWalk(kEveryPick, "every slot");
  expectSameAsTheWalk(kFirstPick, "first slot per direction");
  // The case the walk itself must get right for the comparison to mean anything.
  EXPECT_EQ(AclBindIndex(kEveryPick).of(1001).size(), 5u);
  EXPECT_TRUE(AclBindIndex(kEveryPick).of(1004).empty());
}

}  // namespace
}  // namespace rebindtest
