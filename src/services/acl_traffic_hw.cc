// The hardware steps of the traffic policies: one rule copy translated through the traffic-policy
// forms and sent to the interface or the global table. The buffer lives for one step.
#include <array>
#include <span>

#include "hw/acl_dev_trans.h"
#include "hw/acl_glb.h"
#include "hw/acl_glb_internal.h"
#include "hw/acl_if.h"
#include "main/acl_log.h"
#include "services/acl_traffic_policy.h"
#include "store/acl_rule_trans.h"
#include "wire/acl_bits.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"

namespace {

int num(uint32_t v) {
  return static_cast<int>(v);
}

struct Step {
  bool global;
  uint32_t ifIndex;
  bool add;
};

// The texts of one step. The global removal writes the add texts for a failed record translation
// and a failed send, as its callers' logs have always read.
struct Texts {
  const char* prefix;
  uint32_t cls;
  const char* allocOp;
  const char* transOp;     // TLV translation
  const char* recTransOp;  // record translation
  const char* sendOp;
};

Texts textsOf(const Step& s) {
  const char* op = s.add ? "traffic rule add" : "traffic rule del";
  if (!s.global) return {"ACL interface", ACL_LOG_IF, op, op, op, op};
  return {"ACL global", ACL_LOG_GLOBAL, op, op, "traffic rule add", "traffic rule add"};
}

int32_t step(const Step& s, const uint8_t* req, AclListEntry* list, AclRuleEntry* copy,
             const AclTrafficCounter* counter, const AclTrafficMeter* meter, AclTrafficOp op) {
  const Texts t = textsOf(s);
  const bool tlv = gaclGrp.tlvEnable == 1;
  aclglb::Buffer buf(tlv);
  if (!buf.ok()) {
    if (tlv) {
      aclDebug(t.cls, "%s [%s] error. (Reason=[filter %d/%u stats malloc ERROR])\r\n", t.prefix,
               t.allocOp, num(copy->lstIdx), copy->ruleIdx);
    } else {
      aclDebug(t.cls, "%s [%s] error. (Reason=[filter-list %d malloc dev error])\r\n", t.prefix,
               t.allocOp, num(copy->lstIdx));
    }
    return s.global ? ACL_TRAFFIC_GLOBAL_NO_BUFFER : CMN_ERR_NO_RESOURCE;
  }
  if (aclBitTest(copy->fieldBits, RULE_BIT_VRFID)) return ACL_RET_UNKNOWN;
  const uint8_t dir = req[ACL_TRAFFIC_REQ_DIR];
  // The action type is the operation; the enable byte says whether it goes in or comes out.
  const AclTrafficPolicyRule policy{list->lstIdx, dir, static_cast<uint8_t>(op),
                                    static_cast<uint8_t>(s.add ? 1 : 0)};
  int32_t ret = 0;
  if (tlv) {
    uint16_t len = 0;
    if (const uint32_t tr = aclTrafficDevTransTlv(&policy, copy, s.add ? 2 : 3, list->counterShared,
                                                  list->meterShared, copy->priority, counter, meter,
                                                  buf.data(), &len);
        tr != 0) {
      aclDebug(t.cls, "%s [%s] error. (Reason=[filter %d/%u dev trans error])\r\n", t.prefix,
               t.transOp, num(copy->lstIdx), copy->ruleIdx);
      return static_cast<int32_t>(tr);
    }
    ZorBufDesc desc{buf.data(), len};
    ret = s.global ? aclRuleGlbUpdate(&desc, nullptr)
                   : aclRuleIfHwilUpdateTlv(s.ifIndex, &desc, nullptr);
  } else {
    std::array<uint8_t, ACL_RULE_PARAM_LEN> param{};
    aclRuleTrans(copy, param);
    if (const uint32_t tr =
            aclTrafficDevTrans(&policy, copy, param, buf.data(), list->counterShared,
                               list->meterShared, copy->priority, counter, meter);
        tr != 0) {
      aclDebug(t.cls, "%s [%s] error. (Reason=[filter %d/%u dev trans error])\r\n", t.prefix,
               t.recTransOp, num(copy->lstIdx), copy->ruleIdx);
      return static_cast<int32_t>(tr);
    }
    buf.data()[acldev::kOper] = s.add ? 1 : 2;
    ret = s.global ? aclRuleGlbAdd(buf.data(), dir, nullptr)
                   : aclRuleIfHwilUpdate(s.ifIndex, s.add ? HWIL_CMD_IF_ADD : HWIL_CMD_IF_DEL,
                                         buf.data(), dir, nullptr);
  }
  if (ret != 0) {
    if (s.global) {
      aclDebug(t.cls, "%s [%s] error. (Reason=[filter %d/%u add error. (dir = %d)])\r\n", t.prefix,
               t.sendOp, num(copy->lstIdx), copy->ruleIdx, dir);
    } else {
      aclDebug(t.cls, "%s [%s] error. (Reason=[filter %d/%u add error. (dir = %d, unit = %d)])\r\n",
               t.prefix, t.sendOp, num(copy->lstIdx), copy->ruleIdx, dir, num(s.ifIndex));
    }
    return ret;
  }
  if (!s.global) {
    aclDebug(t.cls, "%s [%s] OK. (index=[%d/%u])\r\n", t.prefix, t.sendOp, num(copy->lstIdx),
             copy->ruleIdx);
  }
  return 0;
}

}  // namespace

int32_t aclTrafficIfRuleAdd(uint32_t ifIndex, const uint8_t* req, AclListEntry* list,
                            AclRuleEntry* copy, const AclTrafficCounter* counter,
                            const AclTrafficMeter* meter, AclTrafficOp op) {
  return step({false, ifIndex, true}, req, list, copy, counter, meter, op);
}
int32_t aclTrafficIfRuleDel(uint32_t ifIndex, const uint8_t* req, AclListEntry* list,
                            AclRuleEntry* copy, const AclTrafficCounter* counter,
                            const AclTrafficMeter* meter, AclTrafficOp op) {
  return step({false, ifIndex, false}, req, list, copy, counter, meter, op);
}
int32_t aclTrafficGlobalRuleAdd(const uint8_t* req, AclListEntry* list, AclRuleEntry* copy,
                                const AclTrafficCounter* counter, const AclTrafficMeter* meter,
                                AclTrafficOp op) {
  return step({true, 0, true}, req, list, copy, counter, meter, op);
}
int32_t aclTrafficGlobalRuleDel(const uint8_t* req, AclListEntry* list, AclRuleEntry* copy,
                                const AclTrafficCounter* counter, const AclTrafficMeter* meter,
                                AclTrafficOp op) {
  return step({true, 0, false}, req, list, copy, counter, meter, op);
}
