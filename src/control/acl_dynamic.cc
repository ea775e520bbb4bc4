// The dynamic rule set: one rule of a bound list taken off (op 0) or put again (any other op) on
// every binding of its list, in ingress and egress (pre-stage bindings are not touched): the
// blacklist first, then every interface in interface order, every GEM port, the global scope;
// each record's slots in table order, each slot that holds the list on its own. The first refusal
// ends the walk; bindings already handled keep the new state, the others the old one.
#include "control/acl_dynamic.h"

#include "control/acl_bind_walk.h"
#include "hw/acl_glb.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"
#include "main/acl_log.h"
#include "services/acl_blacklist.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"

namespace {

// Ingress and egress slots in table order: the generic pair, then the twelve typed slots.
constexpr auto kDynamicPick = [](auto holds, auto visit) {
  for (size_t i = 0; i < ACL_BIND_SLOT_FIRST_VFP; ++i) {
    if (holds(kAclBindSlots[i]) && !visit(i)) return false;
  }
  return true;
};

// The list-type word of a slot's failure line ("L2 ", "IPV4 " ...; nothing for a generic slot).
const char* typeWord(const AclBindSlotDef& s) {
  if (s.cls == AclSlotClass::Untyped) return "";
  switch (s.listType) {
    case ACL_LIST_TYPE_L2:
      return "L2 ";
    case ACL_LIST_TYPE_IPV4:
      return "IPV4 ";
    case ACL_LIST_TYPE_IPV6:
      return "IPV6 ";
    case ACL_LIST_TYPE_HYBRID:
      return "HYBRID ";
    case ACL_LIST_TYPE_MPLS:
      return "MPLS ";
    default:
      return "UDF ";
  }
}

// The slot's install failure line. It tells the operator that the rule is now missing from this
// binding and was not put back, so it is written whatever the debug flags say.
void installFailed(const AclBindAt& b, uint32_t lstIdx, uint32_t ruleIdx) {
  const AclBindSlotDef& s = b.slot();
  const char* dir = s.dir == ACL_DIR_INGRESS ? "IN" : "OUT";
  const int lst = static_cast<int>(lstIdx);
  if (b.scope == AclBindScope::Global) {
    aclOperLogClass(ACL_LOG_WORKMODE,
                    "Filter %d/%u add to global %s%s direction ERROR. Need to delete related "
                    "filter manual.\r\n",
                    lst, ruleIdx, typeWord(s), dir);
    return;
  }
  aclOperLogClass(ACL_LOG_WORKMODE,
                  "Filter %d/%u add to interface %s %s%s direction ERROR. Need to delete related "
                  "filter manual.\r\n",
                  lst, ruleIdx, aclIfName(b.unit, kAclIfNameLen).text, typeWord(s), dir);
}

int32_t removeFrom(AclListEntry* list, AclRuleEntry* rule, const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  if (b.scope == AclBindScope::Global) return aclGlbRuleDelOne(list, rule, s.dir);
  return aclIfRuleDelOne(b.unit, b.onuId, b.gemPort, list, rule, s.dir, s.kind);
}

int32_t installOn(AclListEntry* list, AclRuleEntry* rule, const AclBindAt& b) {
  const AclBindSlotDef& s = b.slot();
  if (b.scope != AclBindScope::Global) {
    return aclIfRuleAddOne(b.unit, b.onuId, b.gemPort, list, rule, s.dir, s.kind);
  }
  const int32_t ret = aclGlbRuleAddOne(list, rule, s.dir, aclBindCode(b));
  aclDebug(ACL_LOG_GLOBAL, "ACL global [dynamic rule set] info =[add %s = %d].\r\n", s.name,
           static_cast<int>(list->lstIdx));
  return ret;
}

// Whether any binding can hold the rule: it is valid, its time range (if any) is on and it
// matches no VRF. The single-rule calls refuse the others (-1, ACL_ERR_SHARED_IN_USE) although
// there is nothing of them in the hardware; the time-range switch installs a rule when its range
// comes on.
bool bindable(const AclRuleEntry* r) {
  if (r->status != ACL_RULE_STATUS_VALID) return false;
  if (aclBitTest(r->fieldBits, RULE_BIT_VRFID)) return false;
  return !(aclBitTest(r->fieldBits, RULE_BIT_TRID) && r->trIdx != 0 && r->trActive == 0);
}

}  // namespace

uint32_t aclDynamicRuleSet(uint32_t lstIdx, uint32_t ruleIdx, uint32_t op) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl dynamic rule set] info =[acl dynamic rule set enter!].\r\n");
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr || list->ruleNum == 0) return static_cast<uint32_t>(-1);
  AclRuleEntry* rule = aclRuleEntryGet(list, ruleIdx);
  if (rule == nullptr) return static_cast<uint32_t>(-1);
  if (gaclGrp.dynamicBindEnable == 0) return 0;
  // The blacklist follows the list's rules before any binding does.
  if (const int32_t ret = aclBlackListDynamicRuleSet(list, rule, op)) {
    return static_cast<uint32_t>(ret);
  }
  int32_t ret = 0;
  if (bindable(rule)) {
    aclBindWalk(lstIdx, kDynamicPick, [&](const AclBindAt& b) {
      ret = removeFrom(list, rule, b);
      if (ret != 0 || op == ACL_DYNAMIC_RULE_DEL) return ret == 0;
      ret = installOn(list, rule, b);
      if (ret != 0) installFailed(b, lstIdx, ruleIdx);
      return ret == 0;
    });
    if (ret != 0) return static_cast<uint32_t>(ret);
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl dynamic rule set] info =[acl dynamic rule set end.].\r\n");
  return 0;
}
