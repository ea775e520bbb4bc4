// Hardware forms of a traffic-policy classifier. The record takes its match from the rule
// parameter record (the expanded rule), so both IP versions share the TTL/hop-limit and TOS/class
// bytes and the version decides which meaning they carry.
#include "hw/acl_dev_traffic.h"

#include <algorithm>
#include <array>

#include "hw/acl_dev_attr.h"
#include "hw/acl_dev_trans.h"
#include "hw/acl_tlv_writer.h"
#include "main/acl_group.h"
#include "store/acl_entry.h"
#include "store/acl_rule.h"
#include "store/acl_rule_trans.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_dev_layout.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using namespace acldev;

constexpr uint8_t kIpv6 = 2;

void copyBytes(std::span<const uint8_t> from, uint32_t fromOff, std::span<uint8_t> to,
               uint32_t toOff, uint32_t n) {
  std::copy_n(from.begin() + fromOff, n, to.begin() + toOff);
}

// The match fields of the record from the parameter record.
void matchFromParam(std::span<const uint8_t> p, std::span<uint8_t> dev) {
  copyBytes(p, ACL_RP_PROTO_TYPE, dev, kProtoType, 2);
  copyBytes(p, ACL_RP_PROTO_SUBTYPE, dev, kProtoSubType, 2);
  copyBytes(p, ACL_RP_SRC_ADDR, dev, kSrcAddr, kAddrLen);
  copyBytes(p, ACL_RP_DEST_ADDR, dev, kDestAddr, kAddrLen);
  copyBytes(p, ACL_RP_SRC_STR_PREFIX, dev, kSrcStrPrefix, kAddrLen);
  copyBytes(p, ACL_RP_DST_STR_PREFIX, dev, kDestStrPrefix, kAddrLen);
  dev[kSrcPrefix] = p[ACL_RP_SRC_PREFIX_LEN];
  dev[kDestPrefix] = p[ACL_RP_DEST_PREFIX_LEN];
  const uint8_t packed = p[ACL_RP_ENCAP_LAYER_IPVER];
  dev[kEncapType] = static_cast<uint8_t>(packed >> 5);
  dev[kLayerType] = static_cast<uint8_t>((packed >> 2) & 0x7);
  const auto ipVer = static_cast<uint8_t>(packed & 0x3);
  dev[kIpVer] = ipVer;
  dev[kTcpFsm] = p[ACL_RP_TCP_FSM];
  copyBytes(p, ACL_RP_SRC_PORT, dev, kSrcPort, 2);
  copyBytes(p, ACL_RP_SRC_END_PORT, dev, kSrcEndPort, 2);
  copyBytes(p, ACL_RP_DEST_PORT, dev, kDestPort, 2);
  copyBytes(p, ACL_RP_DEST_END_PORT, dev, kDestEndPort, 2);

  const uint8_t flags = p[ACL_RP_DOT1P_FLAGS];
  const auto ipFrag = static_cast<uint8_t>(flags & 0x1);
  if (ipVer != kIpv6) {
    dev[kIpTtl] = p[ACL_RP_IP_TTL];
    dev[kTosDscp] = p[ACL_RP_TOS_DSCP];
    dev[kIpOptions] = static_cast<uint8_t>(p[ACL_RP_HOP_LIMIT] >> 7);
    dev[kIpFrag] = ipFrag;
  } else {
    dev[kIpTtl] = p[ACL_RP_HOP_LIMIT];
    dev[kTosDscp] = p[ACL_RP_TOS_DSCP];
    const uint32_t flow = be::load32(p, ACL_RP_FLOW);
    dev[kNextHeader] = static_cast<uint8_t>(flow >> 24);
    be::store32(dev, kFlowLabel, (flow >> 4) & 0xFFFFF);
  }
  dev[kFragFlag] = ipFrag;

  for (uint32_t i = 0; i < kUserDataCount; ++i) {
    const uint32_t off = ACL_RP_UDF_DATA1 + i * ACL_RP_UDF_DATA_LEN;
    be::store32(dev, kUserData + 4 * i, be::load32(p, off));
    be::store32(dev, kUserDataMask + 4 * i, be::load32(p, off + 4));
    be::store32(dev, kUserDataOffset + 4 * i, be::load32(p, off + 8));
  }
  copyBytes(p, ACL_RP_SRC_MAC, dev, kSrcMac, kMacLen);
  dev[kSrcMacPrefix] = p[ACL_RP_SRC_MAC_PREFIX_LEN];
  copyBytes(p, ACL_RP_DEST_MAC, dev, kDestMac, kMacLen);
  dev[kDstMacPrefix] = p[ACL_RP_DST_MAC_PREFIX_LEN];
  dev[kDtag] = static_cast<uint8_t>(flags >> 7);
  dev[kInnerDot1p] = static_cast<uint8_t>((flags >> 4) & 0x7);
  dev[kOuterDot1p] = static_cast<uint8_t>((flags >> 1) & 0x7);
  copyBytes(p, ACL_RP_SRC_MAC_STR_PREFIX, dev, kSrcMacStrPrefix, kMacLen);
  copyBytes(p, ACL_RP_DST_MAC_STR_PREFIX, dev, kDstMacStrPrefix, kMacLen);
  // Eight u16 fields in the same order in both records.
  copyBytes(p, ACL_RP_OUTER_VID, dev, kOuterVid, 16);
  copyBytes(p, ACL_RP_MPLS_EXP1, dev, kMplsExp, kMplsCount);
  copyBytes(p, ACL_RP_MPLS_LABEL1, dev, kMplsLabel, 4 * kMplsCount);
  dev[kVxlanFlag] = p[ACL_RP_VXLAN_FLAG];
  dev[kVxlanTag] = p[ACL_RP_VXLAN_OUTER_TAG];
  dev[kVxlanTransit] = p[ACL_RP_VXLAN_TRANSIT];
  dev[kVxlanBum] = p[ACL_RP_VXLAN_BUM];
  copyBytes(p, ACL_RP_VXLAN_VNI, dev, kVxlanVni, 4);
}

}  // namespace

uint32_t aclTrafficDevTrans(const AclTrafficPolicyRule* policy, const AclRuleEntry* classifier,
                            std::span<const uint8_t> param, uint8_t* devPtr, uint8_t counterShared,
                            uint8_t meterShared, uint16_t priority,
                            const AclTrafficCounter* counter, const AclTrafficMeter* meter) {
  if (policy == nullptr || classifier == nullptr || devPtr == nullptr ||
      param.size() < ACL_RULE_PARAM_LEN) {
    return CMN_ERR_BAD_PARAM;
  }
  std::span<uint8_t> dev(devPtr, kRecLen);
  std::fill(dev.begin(), dev.end(), 0);
  matchFromParam(param, dev);
  aclDevActionFill(classifier, dev);

  be::store32(dev, kLstIdx, policy->lstIdx);
  be::store8(dev, kDir, policy->dir);
  be::store8(dev, kActionType, policy->actionType);
  be::store8(dev, kActionEnable, policy->actionEnable);
  be::store32(dev, kRuleIdx, classifier->ruleIdx);
  be::store8(dev, kCounterShared, counterShared);
  be::store8(dev, kMeterShared, meterShared);
  be::store16(dev, kPriority, priority);

  const std::span<const uint8_t> fieldBits(classifier->fieldBits);
  if (aclBitTest(fieldBits, RULE_BIT_CARID)) be::store32(dev, kCir, classifier->meterId);
  if (aclBitTest(fieldBits, RULE_BIT_COUNTERID) && counter != nullptr) {
    dev[kCounterType] = counter->counterType;
    dev[kCounterColor] = counter->counterColor;
  }
  if (aclBitTest(fieldBits, RULE_BIT_METERID) && meter != nullptr) {
    dev[kMeterType] = static_cast<uint8_t>(meter->meterType);
    dev[kMeterMode] = static_cast<uint8_t>(meter->meterMode);
    dev[kCarType] = static_cast<uint8_t>(meter->carType);
    be::store32(dev, kCir, meter->cir);
    be::store32(dev, kPir, meter->pir);
    be::store32(dev, kCbs, meter->cbs);
    be::store32(dev, kEbs, meter->ebs);
    be::store32(dev, kPbs, meter->pbs);
  }
  return 0;
}

uint32_t aclTrafficDevTransTlv(const AclTrafficPolicyRule* policy, const AclRuleEntry* classifier,
                               uint8_t oper, uint8_t counterShared, uint8_t meterShared,
                               uint16_t priority, const AclTrafficCounter* counter,
                               const AclTrafficMeter* meter, uint8_t* buffer, uint16_t* length) {
  if (policy == nullptr || classifier == nullptr || buffer == nullptr || length == nullptr) {
    return CMN_ERR_BAD_PARAM;
  }
  std::array<uint8_t, ACL_TRAFFIC_TLV_MAX> scratch{};
  std::span<uint8_t> buf(scratch);
  auto* r = const_cast<AclRuleEntry*>(classifier);  // the store's walks take a mutable rule

  // No GEM attributes and no aggregation or active count: those bytes stay 0.
  buf[kTlvOper] = oper;
  buf[kTlvActionType] = policy->actionType;
  buf[kTlvActionEnable] = policy->actionEnable;
  buf[kTlvCounterShared] = counterShared;
  buf[kTlvMeterShared] = meterShared;
  buf[kTlvDir] = policy->dir;
  buf[kTlvLayerType] = classifier->layerType;
  be::store32(buf, kTlvLstIdx, classifier->lstIdx);
  be::store32(buf, kTlvRuleIdx, classifier->ruleIdx);
  be::store16(buf, kTlvPriority, priority);

  AclTlvWriter w(buf);
  w.beginSection();
  for (AclValueEntry* e = aclValueFirst(r); e != nullptr; e = aclValueNext(r, e)) {
    w.item(e->code, aclValueBytes(e));
  }
  const uint16_t ruleLen = w.endSection();
  w.beginSection();
  // The policy's own actions: no chunk of them is a second port set or next hop.
  for (AclActionEntry* a = aclActionFirst(r); a != nullptr; a = aclActionNext(r, a)) {
    w.item(a->code, aclActionBytes(a));
  }
  const std::span<const uint8_t> fieldBits(classifier->fieldBits);
  if (aclBitTest(fieldBits, RULE_BIT_CARID)) {
    w.item32(RULE_ACTION_CARTYPE, ACL_CAR_TYPE);
    w.item32(RULE_ACTION_METERTYPE, ACL_CAR_METER_TYPE);
    w.item32(RULE_ACTION_METERCIR, classifier->meterId);
  }
  if (aclBitTest(fieldBits, RULE_BIT_COUNTERID) && counter != nullptr) {
    w.item32(RULE_ACTION_COUNTERTYPE, counter->counterType);
    w.item32(RULE_ACTION_COUNTERCOLOR, counter->counterColor);
  }
  if (aclBitTest(fieldBits, RULE_BIT_METERID) && meter != nullptr) {
    w.item32(RULE_ACTION_CARTYPE, meter->carType);
    w.item32(RULE_ACTION_METERTYPE, meter->meterType);
    w.item32(RULE_ACTION_METERMODE, meter->meterMode);
    w.item32(RULE_ACTION_METERCIR, meter->cir);
    w.item32(RULE_ACTION_METERPIR, meter->pir);
    w.item32(RULE_ACTION_METERCBS, meter->cbs);
    w.item32(RULE_ACTION_METEREBS, meter->ebs);
    w.item32(RULE_ACTION_METERPBS, meter->pbs);
  }
  const uint16_t actionLen = w.endSection();
  if (w.overflow) return CMN_ERR_BUFFER_SHORT;

  const auto tlvBufferLen = static_cast<uint16_t>(ruleLen + actionLen);
  be::store16(buf, kTlvBufferLen, tlvBufferLen);
  *length = static_cast<uint16_t>(kTlvHeaderLen + tlvBufferLen);
  std::copy_n(scratch.begin(), *length, buffer);

  if ((gaclGrp.debugFlags & ACL_DEV_DEBUG_FLAG) != 0) {
    std::array<uint8_t, ACL_DEV_RECORD_LEN> dev{};
    aclDevTrans(classifier, dev.data(), policy->dir, counterShared, meterShared, priority, 0, 0, 0);
    aclDevPrintf(dev);
    aclTlvPrintf(buf, *length);
  }
  return 0;
}
