// The field and action codes of a rule as the hardware forms carry them: each field code's name
// and its place in the hardware rule record, each action code's name and where the record keeps
// its parameter. The translation writes by these places and the virtual device decodes by them,
// so the two cannot drift apart; the rule store's own name tables are checked against these.
#pragma once

#include <array>
#include <cstdint>

#include "wire/acl_dev_layout.h"

namespace acldev {

// How a field's value lands in the record.
enum class FieldKind : uint8_t {
  None,  // no place: reaches the hardware only through the bit set and the TLV items
  U8,    // the low bits of the value's number
  U16,
  U32,
  Bytes,  // as many bytes as the value holds, at most 16
  Mac,    // 6 bytes
  Udf,    // user-defined field number off: data, mask and offset words
};

struct FieldPlace {
  const char* name;
  FieldKind kind;
  uint16_t off;
  uint16_t off2;  // a second place of the same value (the fragment flag); 0 = none
};

// Codes 0..79; 79 and up have no place and no name.
constexpr uint32_t kFieldCodes = 80;
constexpr uint32_t kPlacedFieldCodes = 79;

constexpr std::array<FieldPlace, kFieldCodes> kFieldPlaces = [] {
  using K = FieldKind;
  return std::array<FieldPlace, kFieldCodes>{{
      {"RULE_BIT_DTAG", K::U8, kDtag, 0},
      {"RULE_BIT_ENCAPTYPE", K::U8, kEncapType, 0},
      {"RULE_BIT_LAYERTYPE", K::U8, kLayerType, 0},
      {"RULE_BIT_IPVER", K::U8, kIpVer, 0},
      {"RULE_BIT_ETHTYPE", K::U16, kEthType, 0},
      {"RULE_BIT_PROTOTYPE", K::U16, kProtoType, 0},
      {"RULE_BIT_PROTOSUBTYPE", K::U16, kProtoSubType, 0},
      {"RULE_BIT_SRCADDR", K::Bytes, kSrcAddr, 0},
      {"RULE_BIT_SRCPREFIX", K::U8, kSrcPrefix, 0},
      {"RULE_BIT_SRCSTRPREFIX", K::Bytes, kSrcStrPrefix, 0},
      {"RULE_BIT_DSTADDR", K::Bytes, kDestAddr, 0},
      {"RULE_BIT_DSTPREFIX", K::U8, kDestPrefix, 0},
      {"RULE_BIT_DSTSTRPREFIX", K::Bytes, kDestStrPrefix, 0},
      {"RULE_BIT_SRCPORT", K::U16, kSrcPort, 0},
      {"RULE_BIT_SRCENDPORT", K::U16, kSrcEndPort, 0},
      {"RULE_BIT_DSTPORT", K::U16, kDestPort, 0},
      {"RULE_BIT_DSTENDPORT", K::U16, kDestEndPort, 0},
      {"RULE_BIT_TCPFSM", K::U8, kTcpFsm, 0},
      {"RULE_BIT_IPTOS", K::U8, kTosDscp, 0},
      {"RULE_BIT_IPDSCP", K::U8, kTosDscp, 0},
      {"RULE_BIT_IPTTL", K::U8, kIpTtl, 0},
      {"RULE_BIT_IPFRAGMENT", K::U8, kIpFrag, kFragFlag},
      {"RULE_BIT_IPOPTIONS", K::U8, kIpOptions, 0},
      {"RULE_BIT_TRAFFICCLASS", K::U8, kTosDscp, 0},
      {"RULE_BIT_HOPLIMIT", K::U8, kIpTtl, 0},
      {"RULE_BIT_NEXTHEADER", K::U8, kNextHeader, 0},
      {"RULE_BIT_FLOWLABEL", K::U32, kFlowLabel, 0},
      {"RULE_BIT_APP", K::U16, kApp, 0},
      {"RULE_BIT_OUTPRI", K::U8, kOuterDot1p, 0},
      {"RULE_BIT_OUTVID", K::U16, kOuterVid, 0},
      {"RULE_BIT_OUTENDVID", K::U16, kOuterEndVid, 0},
      {"RULE_BIT_INPRI", K::U8, kInnerDot1p, 0},
      {"RULE_BIT_INVID", K::U16, kInnerVid, 0},
      {"RULE_BIT_INENDVID", K::U16, kInnerEndVid, 0},
      {"RULE_BIT_LLID", K::None, 0, 0},
      {"RULE_BIT_SRCMAC", K::Mac, kSrcMac, 0},
      {"RULE_BIT_SRCMACPREFIX", K::U8, kSrcMacPrefix, 0},
      {"RULE_BIT_SRCMACSTRPREFIX", K::Mac, kSrcMacStrPrefix, 0},
      {"RULE_BIT_DSTMAC", K::Mac, kDestMac, 0},
      {"RULE_BIT_DSTMACPREFIX", K::U8, kDstMacPrefix, 0},
      {"RULE_BIT_DSTMACSTRPREFIX", K::Mac, kDstMacStrPrefix, 0},
      {"RULE_BIT_CARID", K::None, 0, 0},
      {"RULE_BIT_METERID", K::None, 0, 0},
      {"RULE_BIT_COUNTERID", K::None, 0, 0},
      {"RULE_BIT_TRID", K::None, 0, 0},
      {"RULE_BIT_POSID", K::None, 0, 0},
      {"RULE_BIT_SRVID", K::None, 0, 0},
      {"RULE_BIT_LOOKUP", K::U16, kStatusBit, 0},
      {"RULE_BIT_LOOKUPMASK", K::U16, kStatusBitMask, 0},
      {"RULE_BIT_USERDEFINED", K::None, 0, 0},
      {"RULE_BIT_ICMPTYPE", K::U16, kSrcPort, 0},
      {"RULE_BIT_ICMPCODE", K::U16, kDestPort, 0},
      {"RULE_BIT_ACTION", K::None, 0, 0},
      {"RULE_BIT_ACTIONPARAM", K::None, 0, 0},
      {"RULE_BIT_OUTACTION", K::None, 0, 0},
      {"RULE_BIT_OUTACTIONPARAM", K::None, 0, 0},
      {"RULE_BIT_VRFID", K::None, 0, 0},
      {"RULE_BIT_MPLSEXP1", K::U8, kMplsExp + 0, 0},
      {"RULE_BIT_MPLSEXP2", K::U8, kMplsExp + 1, 0},
      {"RULE_BIT_MPLSEXP3", K::U8, kMplsExp + 2, 0},
      {"RULE_BIT_MPLSEXP4", K::U8, kMplsExp + 3, 0},
      {"RULE_BIT_MPLSLABEL1", K::U32, kMplsLabel + 0, 0},
      {"RULE_BIT_MPLSLABEL2", K::U32, kMplsLabel + 4, 0},
      {"RULE_BIT_MPLSLABEL3", K::U32, kMplsLabel + 8, 0},
      {"RULE_BIT_MPLSLABEL4", K::U32, kMplsLabel + 12, 0},
      {"RULE_BIT_IPPRECEDENCE", K::U8, kTosDscp, 0},
      {"RULE_BIT_VXLANFLAG", K::U8, kVxlanFlag, 0},
      {"RULE_BIT_VXLANVNI", K::U32, kVxlanVni, 0},
      {"RULE_BIT_VXLANTAG", K::U8, kVxlanTag, 0},
      {"RULE_BIT_VXLANTRANSIT", K::U8, kVxlanTransit, 0},
      {"RULE_BIT_INENDPRI", K::None, 0, 0},
      {"RULE_BIT_OUTENDPRI", K::None, 0, 0},
      {"RULE_BIT_VXLANBUM", K::U8, kVxlanBum, 0},
      {"RULE_BIT_USERDEFINEDDATA1", K::Udf, 0, 0},
      {"RULE_BIT_USERDEFINEDDATA2", K::Udf, 1, 0},
      {"RULE_BIT_USERDEFINEDDATA3", K::Udf, 2, 0},
      {"RULE_BIT_USERDEFINEDDATA4", K::Udf, 3, 0},
      {"RULE_BIT_MULTICASTGEM", K::None, 0, 0},
      {"RULE_BIT_UNTAGGED", K::U8, kUntagged, 0},
      {"", K::None, 0, 0},
  }};
}();

// Field codes the decoding of CAR, meter and counter attributes looks at.
constexpr uint32_t kFieldCarId = 41;
constexpr uint32_t kFieldMeterId = 42;
constexpr uint32_t kFieldCounterId = 43;

// Action codes by number: 0..63 in-actions, 64 and up out-actions and the TLV attribute items.
constexpr uint32_t kActionCodes = 85;
inline constexpr std::array<const char*, kActionCodes> kActionNames = {
    "RULE_ACTION_INVALID",
    "RULE_ACTION_AWARE",
    "RULE_ACTION_PERMIT",
    "RULE_ACTION_DENY",
    "RULE_ACTION_OUTPUT_PORT",
    "RULE_ACTION_OUTPUT_PORT2",
    "RULE_ACTION_OUTPUT_CPU",
    "RULE_ACTION_OUTPUT_NEXTHOP",
    "RULE_ACTION_OUTPUT_MULTIHOP",
    "RULE_ACTION_OUTER_DOT1P",
    "RULE_ACTION_INNER_DOT1P",
    "RULE_ACTION_NONE",
    "RULE_ACTION_CPU",
    "RULE_ACTION_COS",
    "RULE_ACTION_PRECEDENCE",
    "RULE_ACTION_TOS",
    "RULE_ACTION_MIRROR",
    "RULE_ACTION_MIRROR_CPU",
    "RULE_ACTION_MIRROR_GROUP",
    "RULE_ACTION_PRI2TOS",
    "RULE_ACTION_TOS2PRI",
    "RULE_ACTION_LOOPBACK",
    "RULE_ACTION_DA_REWRITE",
    "RULE_ACTION_SA_REWRITE",
    "RULE_ACTION_VID_REWRITE",
    "RULE_ACTION_INSERT_OVID",
    "RULE_ACTION_REPLACE_OVID",
    "RULE_ACTION_DELETE_OVID",
    "RULE_ACTION_INSERT_IVID",
    "RULE_ACTION_REPLACE_IVID",
    "RULE_ACTION_DELETE_IVID",
    "RULE_ACTION_VFP_INSERT_OVID",
    "RULE_ACTION_VFP_REPLACE_OVID",
    "RULE_ACTION_VFP_DELETE_OVID",
    "RULE_ACTION_VFP_INSERT_IVID",
    "RULE_ACTION_VFP_REPLACE_IVID",
    "RULE_ACTION_VFP_DELETE_IVID",
    "RULE_ACTION_VFP_DENY",
    "RULE_ACTION_DSCP",
    "RULE_ACTION_CPU_QUEUE",
    "RULE_ACTION_ISID",
    "RULE_ACTION_VRFID",
    "RULE_ACTION_HQOSID",
    "RULE_ACTION_MAC_SWAP",
    "RULE_ACTION_IP_SWAP",
    "RULE_ACTION_PORT_SWAP",
    "RULE_ACTION_IP6OUTPUT_NEXTHOP",
    "RULE_ACTION_IP6OUTPUT_NEXTHOP2",
    "RULE_ACTION_IP6OUTPUT_NEXTHOP3",
    "RULE_ACTION_IP6OUTPUT_NEXTHOP4",
    "RULE_ACTION_IP6OUTPUT_MULTIHOP",
    "RULE_ACTION_PRI2PRECEDENCE",
    "RULE_ACTION_PRECEDENCE2PRI",
    "RULE_ACTION_TPID",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "unknown",
    "RULE_ACTION_MAX",
    "RULE_ACTION_CARTYPE",
    "RULE_ACTION_METERTYPE",
    "RULE_ACTION_METERMODE",
    "RULE_ACTION_METERCIR",
    "RULE_ACTION_METERCBS",
    "RULE_ACTION_METERPIR",
    "RULE_ACTION_METERPBS",
    "RULE_ACTION_METEREBS",
    "RULE_ACTION_COUNTERTYPE",
    "RULE_ACTION_COUNTERCOLOR",
    "RULE_ACTION_OUTOPERMIT",
    "RULE_ACTION_OUTDROP",
    "RULE_ACTION_OUTRPDROP",
    "RULE_ACTION_OUTYPDROP",
    "RULE_ACTION_OUTRPDSCP",
    "RULE_ACTION_OUTYPDSCP",
    "RULE_ACTION_OUTRPDOT1P",
    "RULE_ACTION_OUTYPDOT1P",
    "RULE_ACTION_OUTRPCFI",
    "RULE_ACTION_OUTYPCFI",
};

// Where an in-action keeps its parameter in the record's 44 words: first word, bytes per chunk
// and bytes in all (chunks are 4 words apart). entryLen 0: no parameter.
struct ActionParam {
  uint8_t slot;
  uint8_t entryLen;
  uint8_t totalLen;
};
constexpr ActionParam actionParam(uint32_t code) {
  auto word = [](uint8_t slot) { return ActionParam{slot, 4, 4}; };
  switch (code) {
    case 1:
      return word(10);
    case 4:
      return {11, 16, 32};
    case 7:
      return word(11);
    case 8:
      return {11, 16, 16};
    case 9:
      return word(40);
    case 10:
      return word(2);
    case 13:
      return word(1);
    case 14:
      return word(39);
    case 15:
      return word(0);
    case 16:
    case 18:
      return word(3);
    case 22:
      return {42, 6, 6};
    case 23:
      return {7, 6, 6};
    case 24:
      return word(4);
    case 25:
    case 26:
    case 31:
    case 32:
      return word(5);
    case 28:
    case 29:
    case 34:
    case 35:
      return word(6);
    case 38:
      return word(9);
    case 39:
      return word(19);
    case 40:
      return word(20);
    case 41:
      return word(21);
    case 42:
      return word(22);
    case 46:
      return {23, 16, 16};
    case 50:
      return {23, 16, 64};
    case 53:
      return word(41);
    default:
      return {0, 0, 0};
  }
}

// TLV item types that stand for a further chunk of a multi-chunk action.
constexpr uint8_t kActionOutputPort = 4, kActionOutputPort2 = 5;
constexpr uint8_t kActionIp6NextHop = 46, kActionIp6MultiHop = 50;
// Out-action bit b travels as item type 75 + b.
constexpr uint32_t kOutActionTlvBase = 75;
constexpr uint32_t kOutActionParamFirstBit = 4;  // bits 4..9 take word bit - 4
constexpr uint32_t kOutActionParamLastBit = 9;

}  // namespace acldev
