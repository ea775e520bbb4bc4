// The two code vocabularies of a rule: field codes (what a rule matches, bits of fieldBits) and
// action codes (what it does; 0..63 in-actions, 64 and up out-actions), with their names and the
// places their parameters take in the parameter blocks the rule API exchanges.
#pragma once

#include <array>
#include <cstdint>

#include "wire/acl_dev_fields.h"

// Field codes.
constexpr uint32_t ACL_RULE_BIT_NUM = 96;  // bits of fieldBits; 80..95 are never used
constexpr uint32_t RULE_BIT_DTAG = 0;
constexpr uint32_t RULE_BIT_ENCAPTYPE = 1;
constexpr uint32_t RULE_BIT_LAYERTYPE = 2;
constexpr uint32_t RULE_BIT_IPVER = 3;
constexpr uint32_t RULE_BIT_ETHTYPE = 4;
constexpr uint32_t RULE_BIT_PROTOTYPE = 5;
constexpr uint32_t RULE_BIT_PROTOSUBTYPE = 6;
constexpr uint32_t RULE_BIT_SRCADDR = 7;
constexpr uint32_t RULE_BIT_SRCPREFIX = 8;
constexpr uint32_t RULE_BIT_SRCSTRPREFIX = 9;
constexpr uint32_t RULE_BIT_DSTADDR = 10;
constexpr uint32_t RULE_BIT_DSTPREFIX = 11;
constexpr uint32_t RULE_BIT_DSTSTRPREFIX = 12;
constexpr uint32_t RULE_BIT_SRCPORT = 13;
constexpr uint32_t RULE_BIT_SRCENDPORT = 14;
constexpr uint32_t RULE_BIT_DSTPORT = 15;
constexpr uint32_t RULE_BIT_DSTENDPORT = 16;
constexpr uint32_t RULE_BIT_TCPFSM = 17;
constexpr uint32_t RULE_BIT_IPTOS = 18;
constexpr uint32_t RULE_BIT_IPDSCP = 19;
constexpr uint32_t RULE_BIT_IPTTL = 20;
constexpr uint32_t RULE_BIT_IPFRAGMENT = 21;
constexpr uint32_t RULE_BIT_IPOPTIONS = 22;
constexpr uint32_t RULE_BIT_TRAFFICCLASS = 23;
constexpr uint32_t RULE_BIT_HOPLIMIT = 24;
constexpr uint32_t RULE_BIT_NEXTHEADER = 25;
constexpr uint32_t RULE_BIT_FLOWLABEL = 26;
constexpr uint32_t RULE_BIT_APP = 27;
constexpr uint32_t RULE_BIT_OUTPRI = 28;
constexpr uint32_t RULE_BIT_OUTVID = 29;
constexpr uint32_t RULE_BIT_OUTENDVID = 30;
constexpr uint32_t RULE_BIT_INPRI = 31;
constexpr uint32_t RULE_BIT_INVID = 32;
constexpr uint32_t RULE_BIT_INENDVID = 33;
constexpr uint32_t RULE_BIT_LLID = 34;
constexpr uint32_t RULE_BIT_SRCMAC = 35;
constexpr uint32_t RULE_BIT_SRCMACPREFIX = 36;
constexpr uint32_t RULE_BIT_SRCMACSTRPREFIX = 37;
constexpr uint32_t RULE_BIT_DSTMAC = 38;
constexpr uint32_t RULE_BIT_DSTMACPREFIX = 39;
constexpr uint32_t RULE_BIT_DSTMACSTRPREFIX = 40;
constexpr uint32_t RULE_BIT_CARID = 41;
constexpr uint32_t RULE_BIT_METERID = 42;
constexpr uint32_t RULE_BIT_COUNTERID = 43;
constexpr uint32_t RULE_BIT_TRID = 44;
constexpr uint32_t RULE_BIT_POSID = 45;
constexpr uint32_t RULE_BIT_SRVID = 46;
constexpr uint32_t RULE_BIT_LOOKUP = 47;
constexpr uint32_t RULE_BIT_LOOKUPMASK = 48;
constexpr uint32_t RULE_BIT_USERDEFINED = 49;
constexpr uint32_t RULE_BIT_ICMPTYPE = 50;
constexpr uint32_t RULE_BIT_ICMPCODE = 51;
constexpr uint32_t RULE_BIT_ACTION = 52;
constexpr uint32_t RULE_BIT_ACTIONPARAM = 53;
constexpr uint32_t RULE_BIT_OUTACTION = 54;
constexpr uint32_t RULE_BIT_OUTACTIONPARAM = 55;
constexpr uint32_t RULE_BIT_VRFID = 56;
constexpr uint32_t RULE_BIT_MPLSEXP1 = 57;    // .. RULE_BIT_MPLSEXP4 = 60
constexpr uint32_t RULE_BIT_MPLSLABEL1 = 61;  // .. RULE_BIT_MPLSLABEL4 = 64
constexpr uint32_t RULE_BIT_IPPRECEDENCE = 65;
constexpr uint32_t RULE_BIT_VXLANFLAG = 66;
constexpr uint32_t RULE_BIT_VXLANVNI = 67;
constexpr uint32_t RULE_BIT_VXLANTAG = 68;
constexpr uint32_t RULE_BIT_VXLANTRANSIT = 69;
constexpr uint32_t RULE_BIT_INENDPRI = 70;
constexpr uint32_t RULE_BIT_OUTENDPRI = 71;
constexpr uint32_t RULE_BIT_VXLANBUM = 72;
constexpr uint32_t RULE_BIT_USERDEFINEDDATA1 = 73;  // .. RULE_BIT_USERDEFINEDDATA4 = 76
constexpr uint32_t RULE_BIT_MULTICASTGEM = 77;
constexpr uint32_t RULE_BIT_UNTAGGED = 78;
constexpr uint32_t RULE_BIT_IPTOTALLEN = 79;  // has no name of its own

// Action codes: 0..63 in-actions (bits of actionBits), 64 and up out-actions.
constexpr uint32_t ACL_ACTION_BIT_NUM = 64;
constexpr uint32_t ACL_OUT_ACTION_BIT_NUM = 16;
constexpr uint32_t RULE_ACTION_INVALID = 0;  // in a bit set: remove every in-action
constexpr uint32_t RULE_ACTION_AWARE = 1;
constexpr uint32_t RULE_ACTION_PERMIT = 2;
constexpr uint32_t RULE_ACTION_DENY = 3;
constexpr uint32_t RULE_ACTION_OUTPUT_PORT = 4;
constexpr uint32_t RULE_ACTION_OUTPUT_CPU = 6;
constexpr uint32_t RULE_ACTION_OUTPUT_NEXTHOP = 7;
constexpr uint32_t RULE_ACTION_OUTPUT_MULTIHOP = 8;
constexpr uint32_t RULE_ACTION_OUTER_DOT1P = 9;
constexpr uint32_t RULE_ACTION_INNER_DOT1P = 10;
constexpr uint32_t RULE_ACTION_CPU = 12;
constexpr uint32_t RULE_ACTION_COS = 13;
constexpr uint32_t RULE_ACTION_PRECEDENCE = 14;
constexpr uint32_t RULE_ACTION_TOS = 15;
constexpr uint32_t RULE_ACTION_MIRROR = 16;
constexpr uint32_t RULE_ACTION_MIRROR_CPU = 17;
constexpr uint32_t RULE_ACTION_MIRROR_GROUP = 18;
constexpr uint32_t RULE_ACTION_PRI2TOS = 19;
constexpr uint32_t RULE_ACTION_TOS2PRI = 20;
constexpr uint32_t RULE_ACTION_LOOPBACK = 21;
constexpr uint32_t RULE_ACTION_DA_REWRITE = 22;
constexpr uint32_t RULE_ACTION_SA_REWRITE = 23;
constexpr uint32_t RULE_ACTION_VID_REWRITE = 24;
constexpr uint32_t RULE_ACTION_INSERT_OVID = 25;
constexpr uint32_t RULE_ACTION_REPLACE_OVID = 26;
constexpr uint32_t RULE_ACTION_DELETE_OVID = 27;
constexpr uint32_t RULE_ACTION_INSERT_IVID = 28;
constexpr uint32_t RULE_ACTION_REPLACE_IVID = 29;
constexpr uint32_t RULE_ACTION_DELETE_IVID = 30;
constexpr uint32_t RULE_ACTION_VFP_INSERT_OVID = 31;
constexpr uint32_t RULE_ACTION_VFP_REPLACE_OVID = 32;
constexpr uint32_t RULE_ACTION_VFP_DELETE_OVID = 33;
constexpr uint32_t RULE_ACTION_VFP_INSERT_IVID = 34;
constexpr uint32_t RULE_ACTION_VFP_REPLACE_IVID = 35;
constexpr uint32_t RULE_ACTION_VFP_DELETE_IVID = 36;
constexpr uint32_t RULE_ACTION_VFP_DENY = 37;
constexpr uint32_t RULE_ACTION_DSCP = 38;
constexpr uint32_t RULE_ACTION_CPU_QUEUE = 39;
constexpr uint32_t RULE_ACTION_ISID = 40;
constexpr uint32_t RULE_ACTION_VRFID = 41;
constexpr uint32_t RULE_ACTION_HQOSID = 42;
constexpr uint32_t RULE_ACTION_MAC_SWAP = 43;
constexpr uint32_t RULE_ACTION_IP_SWAP = 44;
constexpr uint32_t RULE_ACTION_PORT_SWAP = 45;
constexpr uint32_t RULE_ACTION_IP6OUTPUT_NEXTHOP = 46;
constexpr uint32_t RULE_ACTION_IP6OUTPUT_MULTIHOP = 50;
constexpr uint32_t RULE_ACTION_PRI2PRECEDENCE = 51;
constexpr uint32_t RULE_ACTION_PRECEDENCE2PRI = 52;
constexpr uint32_t RULE_ACTION_TPID = 53;
constexpr uint32_t RULE_ACTION_MAX = 64;  // the first out-action code
// An out-action bit b is kept as code 75 + b with TLV rules and 64 + b without.
constexpr uint32_t ACL_OUT_ACTION_TLV_BASE = 75;
constexpr uint32_t ACL_OUT_ACTION_BASE = 64;
constexpr uint32_t ACL_OUT_ACTION_TLV_LAST = 84;

// Parameter blocks: 44 words of in-action parameters, 6 words of out-action parameters.
constexpr uint32_t ACL_ACTION_PARAM_LEN = 176;
constexpr uint32_t ACL_OUT_ACTION_PARAM_LEN = 24;
constexpr uint8_t ACL_ACTION_NO_SLOT = 255;  // the entry carries no parameter

// Where an in-action keeps its parameter. A parameter longer than one entry is split into entries
// 16 bytes (4 words) apart.
enum class AclActionKind : uint8_t { Unused, NoParam, Param };
struct AclActionParamInfo {
  AclActionKind kind;
  uint8_t slot;      // first word of the parameter in the in-action block
  uint8_t entryLen;  // bytes of one entry
  uint8_t totalLen;  // bytes of the whole parameter
};

// The parameter places are the hardware record's, defined once with its layout.
constexpr AclActionParamInfo aclActionParamInfo(uint32_t code) {
  using K = AclActionKind;
  constexpr AclActionParamInfo unused{K::Unused, 0, 0, 0};
  constexpr AclActionParamInfo none{K::NoParam, ACL_ACTION_NO_SLOT, 0, 0};
  const acldev::ActionParam place = acldev::actionParam(code);
  if (place.entryLen != 0) return {K::Param, place.slot, place.entryLen, place.totalLen};
  switch (code) {
    case 2:
    case 3:
    case 6:
    case 12:
    case 17:
    case 19:
    case 20:
    case 21:
    case 27:
    case 30:
    case 33:
    case 36:
    case 37:
    case 43:
    case 44:
    case 45:
    case 51:
    case 52:
      return none;
    default:
      return unused;
  }
}

// Names of the field codes by code; codes without a name have an empty one.
inline constexpr std::array<const char*, ACL_RULE_BIT_NUM> aclRuleBitToStr = {
    "RULE_BIT_DTAG",
    "RULE_BIT_ENCAPTYPE",
    "RULE_BIT_LAYERTYPE",
    "RULE_BIT_IPVER",
    "RULE_BIT_ETHTYPE",
    "RULE_BIT_PROTOTYPE",
    "RULE_BIT_PROTOSUBTYPE",
    "RULE_BIT_SRCADDR",
    "RULE_BIT_SRCPREFIX",
    "RULE_BIT_SRCSTRPREFIX",
    "RULE_BIT_DSTADDR",
    "RULE_BIT_DSTPREFIX",
    "RULE_BIT_DSTSTRPREFIX",
    "RULE_BIT_SRCPORT",
    "RULE_BIT_SRCENDPORT",
    "RULE_BIT_DSTPORT",
    "RULE_BIT_DSTENDPORT",
    "RULE_BIT_TCPFSM",
    "RULE_BIT_IPTOS",
    "RULE_BIT_IPDSCP",
    "RULE_BIT_IPTTL",
    "RULE_BIT_IPFRAGMENT",
    "RULE_BIT_IPOPTIONS",
    "RULE_BIT_TRAFFICCLASS",
    "RULE_BIT_HOPLIMIT",
    "RULE_BIT_NEXTHEADER",
    "RULE_BIT_FLOWLABEL",
    "RULE_BIT_APP",
    "RULE_BIT_OUTPRI",
    "RULE_BIT_OUTVID",
    "RULE_BIT_OUTENDVID",
    "RULE_BIT_INPRI",
    "RULE_BIT_INVID",
    "RULE_BIT_INENDVID",
    "RULE_BIT_LLID",
    "RULE_BIT_SRCMAC",
    "RULE_BIT_SRCMACPREFIX",
    "RULE_BIT_SRCMACSTRPREFIX",
    "RULE_BIT_DSTMAC",
    "RULE_BIT_DSTMACPREFIX",
    "RULE_BIT_DSTMACSTRPREFIX",
    "RULE_BIT_CARID",
    "RULE_BIT_METERID",
    "RULE_BIT_COUNTERID",
    "RULE_BIT_TRID",
    "RULE_BIT_POSID",
    "RULE_BIT_SRVID",
    "RULE_BIT_LOOKUP",
    "RULE_BIT_LOOKUPMASK",
    "RULE_BIT_USERDEFINED",
    "RULE_BIT_ICMPTYPE",
    "RULE_BIT_ICMPCODE",
    "RULE_BIT_ACTION",
    "RULE_BIT_ACTIONPARAM",
    "RULE_BIT_OUTACTION",
    "RULE_BIT_OUTACTIONPARAM",
    "RULE_BIT_VRFID",
    "RULE_BIT_MPLSEXP1",
    "RULE_BIT_MPLSEXP2",
    "RULE_BIT_MPLSEXP3",
    "RULE_BIT_MPLSEXP4",
    "RULE_BIT_MPLSLABEL1",
    "RULE_BIT_MPLSLABEL2",
    "RULE_BIT_MPLSLABEL3",
    "RULE_BIT_MPLSLABEL4",
    "RULE_BIT_IPPRECEDENCE",
    "RULE_BIT_VXLANFLAG",
    "RULE_BIT_VXLANVNI",
    "RULE_BIT_VXLANTAG",
    "RULE_BIT_VXLANTRANSIT",
    "RULE_BIT_INENDPRI",
    "RULE_BIT_OUTENDPRI",
    "RULE_BIT_VXLANBUM",
    "RULE_BIT_USERDEFINEDDATA1",
    "RULE_BIT_USERDEFINEDDATA2",
    "RULE_BIT_USERDEFINEDDATA3",
    "RULE_BIT_USERDEFINEDDATA4",
    "RULE_BIT_MULTICASTGEM",
    "RULE_BIT_UNTAGGED",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    "",
    ""};

constexpr uint32_t ACL_ACTION_NAME_NUM = 85;  // RULE_ACTION_INVALID .. RULE_ACTION_OUTYPCFI

// Names of the action codes by code: the one table the hardware forms and their decoding use too.
inline constexpr const std::array<const char*, ACL_ACTION_NAME_NUM>& aclActionBitToStr =
    acldev::kActionNames;

// The name of a code, "" for a field code past the table, "unknown" for an action code past it.
constexpr const char* aclRuleBitName(uint32_t code) {
  return code < aclRuleBitToStr.size() ? aclRuleBitToStr[code] : "";
}
constexpr const char* aclActionBitName(uint32_t code) {
  return code < aclActionBitToStr.size() ? aclActionBitToStr[code] : "unknown";
}
