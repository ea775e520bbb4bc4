#include "store/acl_rule_trans.h"

#include <algorithm>

#include "store/acl_entry.h"
#include "wire/acl_codes.h"
#include "wire/be.h"

namespace {

enum class Place : uint8_t { None, U8, U16, U32, Bytes, Bits8, Bits32, Untagged };

// Where a field code's value lands. Bits8 and Bits32 take the value's low width bits at shift in
// the byte or the word at offset; Bytes copies up to size bytes.
struct FieldPlace {
  Place place;
  uint16_t offset;
  uint8_t size;  // Bytes: field size; Bits: shift
  uint8_t width;
};

constexpr FieldPlace kNone{Place::None, 0, 0, 0};
constexpr FieldPlace u8(uint32_t off) {
  return {Place::U8, uint16_t(off), 1, 0};
}
constexpr FieldPlace u16(uint32_t off) {
  return {Place::U16, uint16_t(off), 2, 0};
}
constexpr FieldPlace u32(uint32_t off) {
  return {Place::U32, uint16_t(off), 4, 0};
}
constexpr FieldPlace bytes(uint32_t off, uint32_t n) {
  return {Place::Bytes, uint16_t(off), uint8_t(n), 0};
}
constexpr FieldPlace bits8(uint32_t off, uint32_t shift, uint32_t width) {
  return {Place::Bits8, uint16_t(off), uint8_t(shift), uint8_t(width)};
}
constexpr FieldPlace bits32(uint32_t off, uint32_t shift, uint32_t width) {
  return {Place::Bits32, uint16_t(off), uint8_t(shift), uint8_t(width)};
}

// Codes kept in the rule record (layer type, meter, counter, time range, multicast GEM), the
// action codes and those the record has no place for land nowhere.
constexpr FieldPlace fieldPlace(uint32_t code) {
  switch (code) {
    case RULE_BIT_DTAG:
      return bits8(ACL_RP_DOT1P_FLAGS, 7, 1);
    case RULE_BIT_ENCAPTYPE:
      return bits8(ACL_RP_ENCAP_LAYER_IPVER, 5, 3);
    case RULE_BIT_IPVER:
      return bits8(ACL_RP_ENCAP_LAYER_IPVER, 0, 2);
    case RULE_BIT_ETHTYPE:
      return u16(ACL_RP_ETH_TYPE);
    case RULE_BIT_PROTOTYPE:
      return u16(ACL_RP_PROTO_TYPE);
    case RULE_BIT_PROTOSUBTYPE:
      return u16(ACL_RP_PROTO_SUBTYPE);
    case RULE_BIT_SRCADDR:
      return bytes(ACL_RP_SRC_ADDR, 16);
    case RULE_BIT_SRCPREFIX:
      return u8(ACL_RP_SRC_PREFIX_LEN);
    case RULE_BIT_SRCSTRPREFIX:
      return bytes(ACL_RP_SRC_STR_PREFIX, 16);
    case RULE_BIT_DSTADDR:
      return bytes(ACL_RP_DEST_ADDR, 16);
    case RULE_BIT_DSTPREFIX:
      return u8(ACL_RP_DEST_PREFIX_LEN);
    case RULE_BIT_DSTSTRPREFIX:
      return bytes(ACL_RP_DST_STR_PREFIX, 16);
    case RULE_BIT_SRCPORT:
    case RULE_BIT_ICMPTYPE:
      return u16(ACL_RP_SRC_PORT);
    case RULE_BIT_SRCENDPORT:
      return u16(ACL_RP_SRC_END_PORT);
    case RULE_BIT_DSTPORT:
    case RULE_BIT_ICMPCODE:
      return u16(ACL_RP_DEST_PORT);
    case RULE_BIT_DSTENDPORT:
      return u16(ACL_RP_DEST_END_PORT);
    case RULE_BIT_TCPFSM:
      return u8(ACL_RP_TCP_FSM);
    case RULE_BIT_IPTOS:
    case RULE_BIT_IPDSCP:
    case RULE_BIT_TRAFFICCLASS:
    case RULE_BIT_IPPRECEDENCE:
      return u8(ACL_RP_TOS_DSCP);
    case RULE_BIT_IPTTL:
      return u8(ACL_RP_IP_TTL);
    case RULE_BIT_IPFRAGMENT:
      return bits8(ACL_RP_DOT1P_FLAGS, 0, 1);
    case RULE_BIT_IPOPTIONS:
      return bits8(ACL_RP_HOP_LIMIT, 7, 1);
    case RULE_BIT_HOPLIMIT:
      return u8(ACL_RP_HOP_LIMIT);
    case RULE_BIT_NEXTHEADER:
      return bits32(ACL_RP_FLOW, 24, 8);
    case RULE_BIT_FLOWLABEL:
      return bits32(ACL_RP_FLOW, 4, 20);
    case RULE_BIT_APP:
      return u16(ACL_RP_APP);
    case RULE_BIT_OUTPRI:
      return bits8(ACL_RP_DOT1P_FLAGS, 1, 3);
    case RULE_BIT_OUTVID:
      return u16(ACL_RP_OUTER_VID);
    case RULE_BIT_OUTENDVID:
      return u16(ACL_RP_OUTER_END_VID);
    case RULE_BIT_INPRI:
      return bits8(ACL_RP_DOT1P_FLAGS, 4, 3);
    case RULE_BIT_INVID:
      return u16(ACL_RP_INNER_VID);
    case RULE_BIT_INENDVID:
      return u16(ACL_RP_INNER_END_VID);
    case RULE_BIT_SRCMAC:
      return bytes(ACL_RP_SRC_MAC, 6);
    case RULE_BIT_SRCMACPREFIX:
      return u8(ACL_RP_SRC_MAC_PREFIX_LEN);
    case RULE_BIT_SRCMACSTRPREFIX:
      return bytes(ACL_RP_SRC_MAC_STR_PREFIX, 6);
    case RULE_BIT_DSTMAC:
      return bytes(ACL_RP_DEST_MAC, 6);
    case RULE_BIT_DSTMACPREFIX:
      return u8(ACL_RP_DST_MAC_PREFIX_LEN);
    case RULE_BIT_DSTMACSTRPREFIX:
      return bytes(ACL_RP_DST_MAC_STR_PREFIX, 6);
    case RULE_BIT_LOOKUP:
      return u16(ACL_RP_STATUS_BIT);
    case RULE_BIT_LOOKUPMASK:
      return u16(ACL_RP_STATUS_BIT_MASK);
    case RULE_BIT_VRFID:
      return u32(ACL_RP_VRF_ID);
    case 57:
    case 58:
    case 59:
    case 60:
      return u8(ACL_RP_MPLS_EXP1 + (code - 57));
    case 61:
    case 62:
    case 63:
    case 64:
      return u32(ACL_RP_MPLS_LABEL1 + 4 * (code - 61));
    case RULE_BIT_VXLANFLAG:
      return u8(ACL_RP_VXLAN_FLAG);
    case RULE_BIT_VXLANVNI:
      return u32(ACL_RP_VXLAN_VNI);
    case RULE_BIT_VXLANTAG:
      return u8(ACL_RP_VXLAN_OUTER_TAG);
    case RULE_BIT_VXLANTRANSIT:
      return u8(ACL_RP_VXLAN_TRANSIT);
    case RULE_BIT_VXLANBUM:
      return u8(ACL_RP_VXLAN_BUM);
    case 73:
    case 74:
    case 75:
    case 76:
      return bytes(ACL_RP_UDF_DATA1 + ACL_RP_UDF_DATA_LEN * (code - 73), ACL_RP_UDF_DATA_LEN);
    case RULE_BIT_UNTAGGED:
      return {Place::Untagged, ACL_RP_FLAGS, 0, 0};
    case RULE_BIT_IPTOTALLEN:
      return u32(ACL_RP_IP_TOTAL_LEN);
    default:
      return kNone;
  }
}

void putBits8(std::span<uint8_t> rec, uint32_t off, uint32_t shift, uint32_t width, uint32_t v) {
  const uint32_t mask = ((1u << width) - 1) << shift;
  rec[off] = static_cast<uint8_t>((rec[off] & ~mask) | ((v << shift) & mask));
}

void putBits32(std::span<uint8_t> rec, uint32_t off, uint32_t shift, uint32_t width, uint32_t v) {
  const uint32_t mask = ((1u << width) - 1) << shift;
  be::store32(rec, off, (be::load32(rec, off) & ~mask) | ((v << shift) & mask));
}

void putValue(std::span<uint8_t> rec, AclValueEntry* e) {
  const FieldPlace p = fieldPlace(e->code);
  const uint32_t v = aclValueWord(e);
  switch (p.place) {
    case Place::None:
      return;
    case Place::U8:
      be::store8(rec, p.offset, static_cast<uint8_t>(v));
      return;
    case Place::U16:
      be::store16(rec, p.offset, static_cast<uint16_t>(v));
      return;
    case Place::U32:
      be::store32(rec, p.offset, v);
      return;
    case Place::Bytes: {
      const auto b = aclValueBytes(e);
      std::copy_n(b.begin(), std::min<size_t>(b.size(), p.size), rec.begin() + p.offset);
      return;
    }
    case Place::Bits8:
      putBits8(rec, p.offset, p.size, p.width, v);
      return;
    case Place::Bits32:
      putBits32(rec, p.offset, p.size, p.width, v);
      return;
    case Place::Untagged:
      putBits32(rec, p.offset, 24, 1, v > 0 ? 1 : 0);
      return;
  }
}

}  // namespace

int32_t aclRuleTrans(AclRuleEntry* rule, std::span<uint8_t, ACL_RULE_PARAM_LEN> out) {
  if (rule == nullptr) return -1;
  if (aclValueFirst(rule) == nullptr) return 0;
  std::fill(out.begin(), out.end(), uint8_t{0});
  std::copy(std::begin(rule->fieldBits), std::end(rule->fieldBits),
            out.begin() + ACL_RP_FIELD_BITS);
  putBits8(out, ACL_RP_ENCAP_LAYER_IPVER, 2, 3, rule->layerType);
  putBits32(out, ACL_RP_FLAGS, 25, 1, rule->multicastGem != 0 ? 1 : 0);
  for (AclValueEntry* e = aclValueFirst(rule); e != nullptr; e = aclValueNext(rule, e)) {
    putValue(out, e);
  }
  return 0;
}
