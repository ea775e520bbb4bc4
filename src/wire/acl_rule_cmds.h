// The rule table's command ids (function ids 11 to 13) and what each one carries: the field code a
// command stores or reads, how its payload travels, and the shift applied to the few values kept
// in their wire position. The set and get tables are data, shared by the daemon and by aclctl.
#pragma once

#include <cstdint>

#include "wire/acl_codes.h"

// Command ids with a logic of their own (the plain fields are in the tables below).
constexpr uint32_t ACL_RULE_CMD_FIELD_BITS = 0;  // get: fieldBits
constexpr uint32_t ACL_RULE_CMD_LAYERTYPE = 4;
constexpr uint32_t ACL_RULE_CMD_PROTOTYPE = 5;
constexpr uint32_t ACL_RULE_CMD_PROTOSUBTYPE = 6;
constexpr uint32_t ACL_RULE_CMD_SRCADDR = 8;
constexpr uint32_t ACL_RULE_CMD_SRCSTRPREFIX = 10;
constexpr uint32_t ACL_RULE_CMD_DSTADDR = 11;
constexpr uint32_t ACL_RULE_CMD_DSTSTRPREFIX = 13;
constexpr uint32_t ACL_RULE_CMD_SRCMAC = 34;
constexpr uint32_t ACL_RULE_CMD_SRCMACSTRPREFIX = 36;
constexpr uint32_t ACL_RULE_CMD_DSTMAC = 37;
constexpr uint32_t ACL_RULE_CMD_DSTMACSTRPREFIX = 39;
constexpr uint32_t ACL_RULE_CMD_CARID = 40;
constexpr uint32_t ACL_RULE_CMD_METERID = 41;
constexpr uint32_t ACL_RULE_CMD_COUNTERID = 42;
constexpr uint32_t ACL_RULE_CMD_TRID = 43;
constexpr uint32_t ACL_RULE_CMD_USERDEFINED = 48;
constexpr uint32_t ACL_RULE_CMD_ACTION = 53;
constexpr uint32_t ACL_RULE_CMD_ACTIONPARAM = 54;
constexpr uint32_t ACL_RULE_CMD_OUTACTION = 55;
constexpr uint32_t ACL_RULE_CMD_OUTACTIONPARAM = 56;
constexpr uint32_t ACL_RULE_CMD_STATUS = 57;
constexpr uint32_t ACL_RULE_CMD_MOVE = 58;
constexpr uint32_t ACL_RULE_CMD_RESERVED = 60;    // set: -1, even for a rule that does not exist
constexpr uint32_t ACL_RULE_CMD_DEV_RECORD = 75;  // get: the hardware rule record
constexpr uint32_t ACL_RULE_CMD_MULTICASTGEM = 84;
constexpr uint32_t ACL_RULE_CMD_TLV = 87;         // get: the TLV message
constexpr uint32_t ACL_RULE_CMD_RULE_IMAGE = 88;  // get: the rule record's image

// Values of set 57.
constexpr uint32_t ACL_RULE_STATUS_SET_VALID = 1;
constexpr uint32_t ACL_RULE_STATUS_SET_CREATE = 2;
constexpr uint32_t ACL_RULE_STATUS_SET_INVALID = 3;
constexpr uint32_t ACL_RULE_STATUS_SET_DELETE = 4;

// The value of the CAR, meter, counter and time-range commands that detaches.
constexpr uint32_t ACL_RULE_DETACH = 0xFFFFFFFF;

// Sizes of the descriptor payloads.
constexpr uint32_t ACL_RULE_IPV4_LEN = 4;
constexpr uint32_t ACL_RULE_IPV6_LEN = 16;
constexpr uint32_t ACL_RULE_MAC_LEN = 6;
constexpr uint32_t ACL_RULE_UDF_NUM = 4;
constexpr uint32_t ACL_RULE_UDF_RECORD_LEN = 12;  // {userData, userDataMask, userDataOffset}
constexpr uint32_t ACL_RULE_UDF_LEN = ACL_RULE_UDF_NUM * ACL_RULE_UDF_RECORD_LEN;
constexpr uint32_t ACL_RULE_OUT_PARAM_ITEM_LEN = 5;  // code byte and a 4-byte value

// Get 88: the rule record as a big-endian image without its links (at most 304 bytes are ever
// answered, and never more than the image holds).
constexpr uint32_t ACL_RULE_IMAGE_MAX = 304;
constexpr uint32_t ACL_RULE_IMAGE_LST = 0;                   // u32
constexpr uint32_t ACL_RULE_IMAGE_RULE = 4;                  // u32
constexpr uint32_t ACL_RULE_IMAGE_FIELD_BITS = 8;            // 12 bytes
constexpr uint32_t ACL_RULE_IMAGE_OLD_ACTION_BITS = 20;      // 8 bytes
constexpr uint32_t ACL_RULE_IMAGE_ACTION_BITS = 28;          // 8 bytes
constexpr uint32_t ACL_RULE_IMAGE_OLD_OUT_ACTION_BITS = 36;  // 2 bytes
constexpr uint32_t ACL_RULE_IMAGE_OUT_ACTION_BITS = 38;      // 2 bytes
constexpr uint32_t ACL_RULE_IMAGE_LAYER_TYPE = 40;           // u8
constexpr uint32_t ACL_RULE_IMAGE_MULTICAST_GEM = 41;        // u8
constexpr uint32_t ACL_RULE_IMAGE_STATUS = 42;               // u8
constexpr uint32_t ACL_RULE_IMAGE_TR_ACTIVE = 43;            // u8
constexpr uint32_t ACL_RULE_IMAGE_COUNTER_ID = 44;           // u32
constexpr uint32_t ACL_RULE_IMAGE_METER_ID = 48;             // u32
constexpr uint32_t ACL_RULE_IMAGE_TR_IDX = 52;               // u16
constexpr uint32_t ACL_RULE_IMAGE_PRIORITY = 54;             // u16
constexpr uint32_t ACL_RULE_IMAGE_LEN = 56;
static_assert(ACL_RULE_IMAGE_LEN <= ACL_RULE_IMAGE_MAX);

// How a command's payload travels and where it lands.
enum class AclRuleCmdKind : uint8_t {
  Unknown,         // answered -1
  Value,           // u32: a 4-byte value entry of code, stored shifted left by shift
  LayerType,       // u32: the rule's layerType (low 8 bits), field bit 2
  MulticastGem,    // u32: the rule's multicastGem as 0 or 1, field bit 77
  Addr,            // descriptor of 4 or 16 bytes, checked before the relay
  AddrLate,        // the same, with its length checked after the relay (source address)
  Mac,             // descriptor of 6 bytes; get answers 6 bytes
  MacMask,         // descriptor of 6 bytes; get answers the stored bytes
  UserDefined,     // descriptor of four 12-byte records
  Action,          // descriptor: 8-byte in-action bit set
  ActionParam,     // descriptor: in-action parameter items
  OutAction,       // descriptor: 2-byte out-action bit set
  OutActionParam,  // descriptor: out-action parameter items
  CarId,           // u32 (get: the shared CAR/meter word)
  MeterId,         // u32 (get: the shared CAR/meter word)
  CounterId,       // u32
  TimeRange,       // u32
  Status,          // u32
  Move,            // u32, set only
  FieldBits,       // get only: descriptor, fieldBits
  DevRecord,       // get only: descriptor, the hardware rule record
  Tlv,             // get only: descriptor, the TLV message
  RuleImage,       // get only: descriptor, the rule record's image
};

struct AclRuleCmd {
  AclRuleCmdKind kind;
  uint8_t code;   // field code (Value, Addr, Mac, ...); unused otherwise
  uint8_t shift;  // Value only
};

// clang-format off
// The plain value commands, shared by set and get.
constexpr AclRuleCmd aclRuleValueCmd(uint32_t cmd) {
  using K = AclRuleCmdKind;
  auto v = [](uint32_t code, uint8_t shift = 0) {
    return AclRuleCmd{K::Value, static_cast<uint8_t>(code), shift};
  };
  switch (cmd) {
    case 2: return v(RULE_BIT_DTAG);
    case 3: return v(RULE_BIT_ENCAPTYPE);
    case 5: return v(RULE_BIT_PROTOTYPE);
    case 6: return v(RULE_BIT_PROTOSUBTYPE);
    case 7: return v(RULE_BIT_IPVER);
    case 9: return v(RULE_BIT_SRCPREFIX);
    case 12: return v(RULE_BIT_DSTPREFIX);
    case 14: return v(RULE_BIT_SRCPORT);
    case 15: return v(RULE_BIT_SRCENDPORT);
    case 16: return v(RULE_BIT_DSTPORT);
    case 17: return v(RULE_BIT_DSTENDPORT);
    case 18: return v(RULE_BIT_TCPFSM);
    case 19: return v(RULE_BIT_IPTOS, 1);
    case 20: return v(RULE_BIT_IPDSCP, 2);
    case 21: return v(RULE_BIT_IPTTL);
    case 22: return v(RULE_BIT_IPFRAGMENT);
    case 23: return v(RULE_BIT_IPOPTIONS);
    case 24: return v(RULE_BIT_TRAFFICCLASS);
    case 25: return v(RULE_BIT_HOPLIMIT);
    case 26: return v(RULE_BIT_NEXTHEADER);
    case 27: return v(RULE_BIT_FLOWLABEL);
    case 28: return v(RULE_BIT_APP);
    case 29: return v(RULE_BIT_OUTPRI);
    case 30: return v(RULE_BIT_OUTVID);
    case 31: return v(RULE_BIT_INPRI);
    case 32: return v(RULE_BIT_INVID);
    case 33: return v(RULE_BIT_ETHTYPE);
    case 35: return v(RULE_BIT_SRCMACPREFIX);
    case 38: return v(RULE_BIT_DSTMACPREFIX);
    case 45: return v(RULE_BIT_SRVID);
    case 46: return v(RULE_BIT_LOOKUP);
    case 47: return v(RULE_BIT_LOOKUPMASK);
    case 49: return v(RULE_BIT_ICMPTYPE);
    case 50: return v(RULE_BIT_ICMPCODE);
    case 51: return v(RULE_BIT_OUTENDVID);
    case 52: return v(RULE_BIT_INENDVID);
    case 62: return v(RULE_BIT_VRFID);
    case 63: case 64: case 65: case 66: return v(RULE_BIT_MPLSEXP1 + (cmd - 63));
    case 67: case 68: case 69: case 70: return v(RULE_BIT_MPLSLABEL1 + (cmd - 67));
    case 71: return v(RULE_BIT_INENDPRI);
    case 72: return v(RULE_BIT_OUTENDPRI);
    case 74: return v(RULE_BIT_IPPRECEDENCE, 5);
    case 76: return v(RULE_BIT_VXLANFLAG);
    case 77: return v(RULE_BIT_VXLANVNI);
    case 78: return v(RULE_BIT_VXLANTAG);
    case 79: return v(RULE_BIT_VXLANTRANSIT);
    case 80: return v(RULE_BIT_VXLANBUM);
    case 85: return v(RULE_BIT_UNTAGGED);
    case 86: return v(RULE_BIT_IPTOTALLEN);
    default: return {K::Unknown, 0, 0};
  }
}

// The set table (aclRuleSetApi, aclRuleSyncApi).
constexpr AclRuleCmd aclRuleSetCmd(uint32_t cmd) {
  using K = AclRuleCmdKind;
  auto d = [](K kind, uint32_t code = 0) { return AclRuleCmd{kind, static_cast<uint8_t>(code), 0}; };
  switch (cmd) {
    case ACL_RULE_CMD_LAYERTYPE: return d(K::LayerType, RULE_BIT_LAYERTYPE);
    case ACL_RULE_CMD_MULTICASTGEM: return d(K::MulticastGem, RULE_BIT_MULTICASTGEM);
    case ACL_RULE_CMD_SRCADDR: return d(K::AddrLate, RULE_BIT_SRCADDR);
    case ACL_RULE_CMD_SRCSTRPREFIX: return d(K::Addr, RULE_BIT_SRCSTRPREFIX);
    case ACL_RULE_CMD_DSTADDR: return d(K::Addr, RULE_BIT_DSTADDR);
    case ACL_RULE_CMD_DSTSTRPREFIX: return d(K::Addr, RULE_BIT_DSTSTRPREFIX);
    case ACL_RULE_CMD_SRCMAC: return d(K::Mac, RULE_BIT_SRCMAC);
    case ACL_RULE_CMD_SRCMACSTRPREFIX: return d(K::MacMask, RULE_BIT_SRCMACSTRPREFIX);
    case ACL_RULE_CMD_DSTMAC: return d(K::Mac, RULE_BIT_DSTMAC);
    case ACL_RULE_CMD_DSTMACSTRPREFIX: return d(K::MacMask, RULE_BIT_DSTMACSTRPREFIX);
    case ACL_RULE_CMD_USERDEFINED: return d(K::UserDefined, RULE_BIT_USERDEFINED);
    case ACL_RULE_CMD_ACTION: return d(K::Action, RULE_BIT_ACTION);
    case ACL_RULE_CMD_ACTIONPARAM: return d(K::ActionParam, RULE_BIT_ACTIONPARAM);
    case ACL_RULE_CMD_OUTACTION: return d(K::OutAction, RULE_BIT_OUTACTION);
    case ACL_RULE_CMD_OUTACTIONPARAM: return d(K::OutActionParam, RULE_BIT_OUTACTIONPARAM);
    case ACL_RULE_CMD_CARID: return d(K::CarId, RULE_BIT_CARID);
    case ACL_RULE_CMD_METERID: return d(K::MeterId, RULE_BIT_METERID);
    case ACL_RULE_CMD_COUNTERID: return d(K::CounterId, RULE_BIT_COUNTERID);
    case ACL_RULE_CMD_TRID: return d(K::TimeRange, RULE_BIT_TRID);
    case ACL_RULE_CMD_STATUS: return d(K::Status);
    case ACL_RULE_CMD_MOVE: return d(K::Move);
    default: return aclRuleValueCmd(cmd);
  }
}

// The get table (aclRuleGetApi).
constexpr AclRuleCmd aclRuleGetCmd(uint32_t cmd) {
  using K = AclRuleCmdKind;
  switch (cmd) {
    case ACL_RULE_CMD_FIELD_BITS: return {K::FieldBits, 0, 0};
    case ACL_RULE_CMD_DEV_RECORD: return {K::DevRecord, 0, 0};
    case ACL_RULE_CMD_TLV: return {K::Tlv, 0, 0};
    case ACL_RULE_CMD_RULE_IMAGE: return {K::RuleImage, 0, 0};
    case ACL_RULE_CMD_MOVE: return {K::Unknown, 0, 0};
    default: return aclRuleSetCmd(cmd);
  }
}

// clang-format on

// True for the commands whose payload is a buffer descriptor rather than a value word.
constexpr bool aclRuleCmdIsDesc(AclRuleCmdKind kind) {
  using K = AclRuleCmdKind;
  switch (kind) {
    case K::Addr:
    case K::AddrLate:
    case K::Mac:
    case K::MacMask:
    case K::UserDefined:
    case K::Action:
    case K::ActionParam:
    case K::OutAction:
    case K::OutActionParam:
    case K::FieldBits:
    case K::DevRecord:
    case K::Tlv:
    case K::RuleImage:
      return true;
    default:
      return false;
  }
}

// In-action parameter items (set 54): a code byte, then 4 bytes, or 16 for the IPv6 next hops.
constexpr uint32_t ACL_RULE_PARAM_CODE_MAX = 43;
constexpr uint32_t aclRuleParamItemLen(uint32_t code) {
  return code == 23 || code == 27 || code == 31 || code == 35 ? 16 : 4;
}
// Parameter codes of the second to eighth word of the port set: multi-port redirect.
constexpr bool aclRuleParamIsMultiPort(uint32_t code) {
  return code >= 12 && code <= 18;
}
constexpr uint32_t ACL_RULE_PARAM_MIRROR = 3;  // the word of the mirror group
constexpr uint32_t ACL_RULE_OUT_PARAM_CODE_MAX = 5;
