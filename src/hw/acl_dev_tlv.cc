// The TLV message of a rule: a 36-byte header, the rule's field entries as items, then its action
// entries and the CAR, counter and meter items the hardware needs to program policing and counting.
#include <array>

#include "hw/acl_dev_attr.h"
#include "hw/acl_dev_trans.h"
#include "hw/acl_tlv_writer.h"
#include "main/acl_group.h"
#include "store/acl_entry.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using namespace acldev;

constexpr uint8_t RULE_ACTION_OUTPUT_PORT2 = 5;

// The second port chunk and the second to fourth IPv6 next hops travel under types of their own,
// so the hardware tells the chunks apart without their slots.
uint8_t itemType(const AclActionEntry* a) {
  if (a->code == RULE_ACTION_OUTPUT_PORT && a->slot == 15) return RULE_ACTION_OUTPUT_PORT2;
  if (a->code == RULE_ACTION_IP6OUTPUT_MULTIHOP) {
    switch (a->slot) {
      case 23:
        return RULE_ACTION_IP6OUTPUT_NEXTHOP;
      case 27:
        return RULE_ACTION_IP6OUTPUT_NEXTHOP + 1;
      case 31:
        return RULE_ACTION_IP6OUTPUT_NEXTHOP + 2;
      case 35:
        return RULE_ACTION_IP6OUTPUT_NEXTHOP + 3;
      default:
        break;
    }
  }
  return a->code;
}

// Meter attributes in the order the hardware reads them, with their item types.
struct MeterItem {
  uint32_t attr;
  uint8_t type;
};
constexpr std::array<MeterItem, 8> kMeterItems = {{
    {ACL_METER_ATTR_CARTYPE, RULE_ACTION_CARTYPE},
    {ACL_METER_ATTR_TYPE, RULE_ACTION_METERTYPE},
    {ACL_METER_ATTR_MODE, RULE_ACTION_METERMODE},
    {ACL_METER_ATTR_CIR, RULE_ACTION_METERCIR},
    {ACL_METER_ATTR_PIR, RULE_ACTION_METERPIR},
    {ACL_METER_ATTR_CBS, RULE_ACTION_METERCBS},
    {ACL_METER_ATTR_EBS, RULE_ACTION_METEREBS},
    {ACL_METER_ATTR_PBS, RULE_ACTION_METERPBS},
}};

}  // namespace

uint32_t aclDevTransNew(const AclRuleEntry* rule, uint8_t dir, uint8_t oper, uint8_t counterShared,
                        uint8_t meterShared, uint16_t priority, uint32_t aggIfIndex,
                        uint32_t activeRuleNum, uint16_t onuId, uint16_t gemPort,
                        uint32_t gemPortVp, uint8_t* buffer, uint16_t* length) {
  if (rule == nullptr || buffer == nullptr || length == nullptr) return CMN_ERR_BAD_PARAM;
  std::span<uint8_t> buf(buffer, kTlvBufLen);
  auto* r = const_cast<AclRuleEntry*>(rule);  // the store's walks take a mutable rule

  // Bytes 0, 2 and 3 belong to the traffic-policy path; the caller's buffer starts zeroed.
  be::store8(buf, kTlvOper, oper);
  be::store8(buf, kTlvCounterShared, counterShared);
  be::store8(buf, kTlvMeterShared, meterShared);
  be::store8(buf, kTlvDir, dir);
  be::store8(buf, kTlvLayerType, rule->layerType);
  be::store16(buf, kTlvOnuId, onuId);
  be::store16(buf, kTlvGemPort, gemPort);
  be::store32(buf, kTlvGemPortVp, rule->multicastGem != 0 ? 0xFFFFFFFFu : gemPortVp);
  be::store32(buf, kTlvLstIdx, rule->lstIdx);
  be::store32(buf, kTlvRuleIdx, rule->ruleIdx);
  be::store32(buf, kTlvAggIfIndex, aggIfIndex);
  be::store32(buf, kTlvActiveRuleNum, activeRuleNum);
  be::store16(buf, kTlvPriority, priority);

  AclTlvWriter w(buf);
  w.beginSection();
  for (AclValueEntry* e = aclValueFirst(r); e != nullptr; e = aclValueNext(r, e)) {
    w.item(e->code, aclValueBytes(e));
  }
  const uint16_t ruleLen = w.endSection();

  w.beginSection();
  for (AclActionEntry* a = aclActionFirst(r); a != nullptr; a = aclActionNext(r, a)) {
    w.item(itemType(a), aclActionBytes(a));
  }
  const std::span<const uint8_t> fieldBits(rule->fieldBits);
  if (aclBitTest(fieldBits, RULE_BIT_CARID)) {
    // A CAR is a meter of its own kind whose rate is the value the rule keeps in meterId.
    w.item32(RULE_ACTION_CARTYPE, ACL_CAR_TYPE);
    w.item32(RULE_ACTION_METERTYPE, ACL_CAR_METER_TYPE);
    w.item32(RULE_ACTION_METERCIR, rule->meterId);
  }
  if (aclBitTest(fieldBits, RULE_BIT_COUNTERID)) {
    if (auto v = aclDevCounterAttr(rule->counterId, ACL_COUNTER_ATTR_TYPE)) {
      w.item32(RULE_ACTION_COUNTERTYPE, *v);
    }
    if (auto v = aclDevCounterAttr(rule->counterId, ACL_COUNTER_ATTR_COLOR)) {
      w.item32(RULE_ACTION_COUNTERCOLOR, *v);
    }
  }
  if (aclBitTest(fieldBits, RULE_BIT_METERID)) {
    for (const MeterItem& m : kMeterItems) {
      if (auto v = aclDevMeterAttr(rule->meterId, m.attr)) w.item32(m.type, *v);
    }
  }
  const uint16_t actionLen = w.endSection();
  if (w.overflow) return CMN_ERR_BUFFER_SHORT;

  const auto tlvBufferLen = static_cast<uint16_t>(ruleLen + actionLen);
  be::store16(buf, kTlvBufferLen, tlvBufferLen);
  *length = static_cast<uint16_t>(kTlvHeaderLen + tlvBufferLen);

  if ((gaclGrp.debugFlags & ACL_DEV_DEBUG_FLAG) != 0) {
    std::array<uint8_t, ACL_DEV_RECORD_LEN> dev{};
    aclDevTrans(rule, dev.data(), dir, counterShared, meterShared, priority, onuId, gemPort,
                gemPortVp);
    aclDevPrintf(dev);
    aclTlvPrintf(buf, *length);
  }
  return 0;
}
