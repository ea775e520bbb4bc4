// Time-range activation. The binding code installs only rules whose time range is active, so a
// switch of a range re-programs what is bound: without dynamic binding every bound list with rules
// is taken off every binding and put back with the new state (which re-installs exactly the rules
// now in force); with dynamic binding only the rules of that range whose state changes are added
// or removed, one by one.
//
// Failures of single binding calls are written to the operational log and do not stop the walk:
// the state is stored all the same, so a binding whose re-install failed stays without its rules
// until the next change of that list or range.
#include "control/acl_timerange.h"

#include <array>
#include <span>
#include <vector>

#include "control/acl_bind_walk.h"
#include "hw/acl_glb.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"
#include "main/acl_log.h"
#include "platform/sil.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

// Classes of the failure lines, one per scope and operation.
constexpr uint32_t kLogGlbDel = 11, kLogGlbAdd = 12, kLogIfDel = 13, kLogIfAdd = 14;
constexpr uint32_t kLogGemDel = 15, kLogGemAdd = 16;

int id(uint32_t v) {
  return static_cast<int>(v);
}

const char* dirText(uint32_t dir) {
  switch (dir) {
    case ACL_DIR_INGRESS:
      return "in";
    case ACL_DIR_EGRESS:
      return "out";
    default:
      return "vfp";
  }
}

// Per direction: the generic slot (while it counts), then the first typed slot holding the list
// (a list has one type), then the same for egress and the pre-stage.
constexpr auto kTrPick = [](auto holds, auto visit) {
  for (uint8_t dir = 0; dir <= ACL_DIR_VFP; ++dir) {
    for (size_t i = 0; i < ACL_BIND_SLOT_FIRST_TYPED; ++i) {
      if (kAclBindSlots[i].dir == dir && holds(kAclBindSlots[i]) && !visit(i)) return false;
    }
    for (size_t i = ACL_BIND_SLOT_FIRST_TYPED; i < kAclBindSlots.size(); ++i) {
      const AclBindSlotDef& s = kAclBindSlots[i];
      if (s.dir != dir || !holds(s)) continue;
      if (!visit(i)) return false;
      break;
    }
  }
  return true;
};

// The short label of a typed slot in the per-rule global traces ("in l2", "out Ipv4", ...).
const char* typedLabel(size_t pos) {
  static constexpr std::array<const char*, 12> kLabels = {
      "in l2",     "out l2",     "in Ipv4", "out Ipv4", "in Ipv6", "out Ipv6",
      "in Hybrid", "out Hybrid", "in Mpls", "out Mpls", "in udf",  "out udf"};
  return kLabels[pos - ACL_BIND_SLOT_FIRST_TYPED];
}

void failed(bool add, const AclBindAt& b, uint32_t lstIdx, uint32_t ruleIdx, int32_t ret,
            bool perRule) {
  const uint32_t dir = b.slot().dir;
  const auto r = static_cast<uint32_t>(ret);
  switch (b.scope) {
    case AclBindScope::If: {
      const AclIfName name = aclIfName(b.unit, kAclIfNameLen);
      if (add) {
        aclOperLogClass(kLogIfAdd,
                        "Add interface hardware acl failed. (ifName=[%s], list=[%u], rule=[%u], "
                        "dir=[%s], ret=[%u])\r\n",
                        name.text, lstIdx, ruleIdx, dirText(dir), r);
      } else if (perRule) {
        aclOperLogClass(kLogIfDel,
                        "Del interface hardware acl failed. (ifName=[%s], list=[%u], rule=[%u], "
                        "dir=[%s], ret=[%u])\r\n",
                        name.text, lstIdx, ruleIdx, dirText(dir), r);
      } else {
        aclOperLogClass(kLogIfDel,
                        "Delete interface hardware acl failed. (ifName=[%s], list=[%u], "
                        "rule=[%u], dir=[%s], ret=[%u])\r\n",
                        name.text, lstIdx, ruleIdx, dirText(dir), r);
      }
      return;
    }
    case AclBindScope::Gem: {
      const AclIfName name = aclIfName(b.unit, kAclIfNameLen);
      aclOperLogClass(add ? kLogGemAdd : kLogGemDel,
                      "%s gemport hardware acl failed. (ifName=[%s], onuId=[%d], gemport=[%d], "
                      "list=[%u], rule=[%u], dir=[%s], ret=[%u])\r\n",
                      add ? "Add" : "Delete", name.text, id(b.onuId), id(b.gemPort), lstIdx,
                      ruleIdx, dirText(dir), r);
      return;
    }
    case AclBindScope::Global:
      aclOperLogClass(add ? kLogGlbAdd : kLogGlbDel,
                      "%s global hardware acl failed. (list=[%u], rule=[%u], dir=[%s], "
                      "ret=[%u])\r\n",
                      add ? "Add" : "Delete", lstIdx, ruleIdx, dirText(dir), r);
      return;
  }
}

// Whole-list traces: every removal, and the installs of typed slots on an interface (ingress) and
// on the global scope (egress, pre-stage).
void listTrace(bool add, const AclBindAt& b, uint32_t lstIdx) {
  const AclBindSlotDef& s = b.slot();
  const int lst = id(lstIdx);
  switch (b.scope) {
    case AclBindScope::If:
      if (!aclDebugOn(ACL_LOG_GLOBAL)) return;  // spares the interface name
      if (!add) {
        aclDebug(ACL_LOG_GLOBAL, "ACL if [acl do tr] info = [del interface %s %s Acl %d ].\r\n",
                 aclIfName(b.unit, kAclIfNameLen).text, dirText(s.dir), lst);
      } else if (s.dir == ACL_DIR_INGRESS && s.cls != AclSlotClass::Untyped) {
        aclDebug(ACL_LOG_GLOBAL, "ACL if [acl do tr] info = [add interface %s in Acl %d ].\r\n",
                 aclIfName(b.unit, kAclIfNameLen).text, lst);
      }
      return;
    case AclBindScope::Gem:
      if (!add)
        aclDebug(ACL_LOG_GLOBAL, "ACL if [acl do tr] info =[del %s Acl = %d ].\r\n", dirText(s.dir),
                 lst);
      return;
    case AclBindScope::Global:
      if (!add) {
        if (s.dir == ACL_DIR_EGRESS) {
          aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del out Acl = %d]. \r\n", lst);
        } else {
          aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del %s Acl = %d ].\r\n",
                   dirText(s.dir), lst);
        }
      } else if (s.cls != AclSlotClass::Untyped && s.dir == ACL_DIR_EGRESS) {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[add out Acl = %d]. \r\n", lst);
      } else if (s.dir == ACL_DIR_VFP) {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[add vfp Acl = %d ].\r\n", lst);
      }
      return;
  }
}

// Per-rule traces: the global scope only, each naming the list index the slot holds.
void ruleTrace(bool add, const AclBindAt& b, uint32_t lstIdx) {
  if (b.scope != AclBindScope::Global) return;
  const AclBindSlotDef& s = b.slot();
  const int lst = id(lstIdx);
  const bool out = s.dir == ACL_DIR_EGRESS;
  switch (s.cls) {
    case AclSlotClass::Untyped:
      if (add) {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[add %s = %d].\r\n", s.name, lst);
      } else if (out) {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del outAcl = %d]. \r\n", lst);
      } else {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del inAcl = %d ].\r\n", lst);
      }
      return;
    case AclSlotClass::Typed:
      if (add) {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[add %s Acl = %d].\r\n",
                 typedLabel(b.slotPos), lst);
      } else if (out) {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del %s Acl = %d]. \r\n",
                 typedLabel(b.slotPos), lst);
      } else {
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del %s Acl = %d ].\r\n",
                 typedLabel(b.slotPos), lst);
      }
      return;
    case AclSlotClass::Vfp:
      if (!add)
        aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[del in vfp Acl = %d]. \r\n", lst);
      return;
  }
}

int32_t listDel(AclListEntry* list, const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  if (b.scope == AclBindScope::Global) return aclGlbDel(list, s.dir, nullptr);
  return aclIfDel(b.unit, b.onuId, b.gemPort, list, s.dir, nullptr, s.kind);
}
int32_t listAdd(AclListEntry* list, const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  if (b.scope == AclBindScope::Global) return aclGlbAdd(list, s.dir, nullptr, aclBindCode(b));
  return aclIfAdd(b.unit, b.onuId, b.gemPort, list, s.dir, nullptr, s.kind);
}

// The list's bindings in the order a switch visits them.
std::vector<AclBindAt> bindingsOf(uint32_t lstIdx) {
  std::vector<AclBindAt> at;
  aclBindWalk(lstIdx, kTrPick, [&](const AclBindAt& b) {
    at.push_back(b);
    return true;
  });
  return at;
}

// One pass over every binding of the list, removing (add false) or installing it whole.
void listPass(AclListEntry* list, bool add, std::span<const AclBindAt> binds) {
  for (const AclBindAt& b : binds) {
    const int32_t ret = add ? listAdd(list, b) : listDel(list, b);
    listTrace(add, b, list->lstIdx);
    if (ret != 0) failed(add, b, list->lstIdx, 0, ret, false);
  }
}

int32_t ruleDel(AclListEntry* list, AclRuleEntry* rule, const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  if (b.scope == AclBindScope::Global) return aclGlbRuleDelOne(list, rule, s.dir);
  return aclIfRuleDelOne(b.unit, b.onuId, b.gemPort, list, rule, s.dir, s.kind);
}
int32_t ruleAdd(AclListEntry* list, AclRuleEntry* rule, const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  if (b.scope == AclBindScope::Global) {
    return aclGlbRuleAddOne(list, rule, s.dir, aclBindCode(b));
  }
  return aclIfRuleAddOne(b.unit, b.onuId, b.gemPort, list, rule, s.dir, s.kind);
}

void rulePass(AclListEntry* list, AclRuleEntry* rule, bool add, std::span<const AclBindAt> binds) {
  for (const AclBindAt& b : binds) {
    const int32_t ret = add ? ruleAdd(list, rule, b) : ruleDel(list, rule, b);
    ruleTrace(add, b, list->lstIdx);
    if (ret != 0) failed(add, b, list->lstIdx, rule->ruleIdx, ret, true);
  }
}

// A rule that is not valid, or that matches a VRF, is never on a binding whatever its time range
// says: the single-rule calls would only refuse it, which is no failure to report.
bool onBindings(const AclRuleEntry* r) {
  return r->status == ACL_RULE_STATUS_VALID && !aclBitTest(r->fieldBits, RULE_BIT_VRFID);
}

bool follows(const AclRuleEntry* r, uint32_t trid) {
  return aclBitTest(r->fieldBits, RULE_BIT_TRID) && r->trIdx != 0 && r->trIdx == trid;
}

void enterLine(uint32_t state) {
  aclDebug(ACL_LOG_GLOBAL, "ACL global [acl do tr] info =[acl Do Tr enter, type is %d!].\r\n",
           id(state));
}

AclRuleEntry* firstRule(AclListEntry* list) {
  return static_cast<AclRuleEntry*>(avl_first(&list->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* list, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r));
}

// The switch of one list or rule over bindings the caller has gathered.
int32_t doTrForList(AclListEntry* list, uint32_t trid, uint32_t state,
                    std::span<const AclBindAt> binds) {
  enterLine(state);
  if (list == nullptr || list->ruleNum == 0) return -1;
  // The removal still sees the old state, so it takes out exactly what is installed.
  listPass(list, false, binds);
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    if (follows(r, trid)) r->trActive = state != 0 ? 1 : 0;
  }
  listPass(list, true, binds);
  return 0;
}

int32_t doTrForRule(AclListEntry* list, AclRuleEntry* rule, uint32_t trid, uint32_t state,
                    std::span<const AclBindAt> binds) {
  enterLine(state);
  if (list == nullptr || list->ruleNum == 0 || rule == nullptr) return -1;
  const uint8_t active = state != 0 ? 1 : 0;
  if (!follows(rule, trid) || rule->trActive == active) return 0;
  if (active != 0) {
    rule->trActive = 1;
    if (onBindings(rule)) rulePass(list, rule, true, binds);
  } else {
    if (onBindings(rule)) rulePass(list, rule, false, binds);
    rule->trActive = 0;
  }
  return 0;
}

}  // namespace

int32_t aclDoTrForList(AclListEntry* list, uint32_t trid, uint32_t state) {
  return doTrForList(list, trid, state,
                     list != nullptr ? bindingsOf(list->lstIdx) : std::vector<AclBindAt>());
}

int32_t aclDoTrForRule(AclListEntry* list, AclRuleEntry* rule, uint32_t trid, uint32_t state) {
  return doTrForRule(list, rule, trid, state,
                     list != nullptr ? bindingsOf(list->lstIdx) : std::vector<AclBindAt>());
}

int32_t aclStartTr() {
  return CMN_ERR_NOT_SUPPORTED;
}
int32_t aclStopTr() {
  return CMN_ERR_NOT_SUPPORTED;
}
int32_t aclUnBindTr() {
  return CMN_ERR_NOT_SUPPORTED;
}

void aclTimerangeStateChangeProcess(std::span<const uint8_t> body, uint8_t state) {
  // A message without the range's id names nothing to switch.
  if (body.size() < 4) return;
  const uint32_t trid = be::load32(body, 0);
  aclDebug(ACL_LOG_GLOBAL, "recv timerange notify. (trid=[%d], state=[%d])\r\n", id(trid),
           static_cast<int>(state));
  aclDebug(ACL_LOG_GLOBAL, "timerange start time %d\r\n", static_cast<int>(silGetUpTime1ms()));
  const bool perRule = gaclGrp.dynamicBindEnable != 0;
  if (gaclGrp.listTree.compar != nullptr) {
    // One walk of the records for every list, instead of one per list (or per rule).
    const AclBindIndex index(kTrPick);
    for (auto* l = static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree)); l != nullptr;
         l = static_cast<AclListEntry*>(avl_next(&gaclGrp.listTree, l))) {
      const std::span<const AclBindAt> binds = index.of(l->lstIdx);
      if (!perRule) {
        doTrForList(l, trid, state, binds);
        continue;
      }
      for (AclRuleEntry* r = firstRule(l); r != nullptr; r = nextRule(l, r)) {
        doTrForRule(l, r, trid, state, binds);
      }
    }
  }
  aclDebug(ACL_LOG_GLOBAL, "timerange end time %d\r\n", static_cast<int>(silGetUpTime1ms()));
}
