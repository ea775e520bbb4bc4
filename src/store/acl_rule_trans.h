// The rule parameter record: the expanded, fixed-layout form of a rule that matching, display and
// policy code read. It is a big-endian byte layout of 304 bytes; the offsets below are its fields
// (natural alignment, bytes 232 to 303 reserved and zero).
#pragma once

#include <cstdint>
#include <span>

#include "store/acl_rule.h"

constexpr uint32_t ACL_RULE_PARAM_LEN = 304;

// Byte offsets of the fields.
constexpr uint32_t ACL_RP_FIELD_BITS = 0;  // 12 bytes, a copy of fieldBits
constexpr uint32_t ACL_RP_PROTO_TYPE = 12;
constexpr uint32_t ACL_RP_PROTO_SUBTYPE = 14;
constexpr uint32_t ACL_RP_SRC_ADDR = 16;   // 16 bytes; an IPv4 address fills the first 4
constexpr uint32_t ACL_RP_DEST_ADDR = 32;  // 16 bytes
constexpr uint32_t ACL_RP_SRC_PREFIX_LEN = 48;
constexpr uint32_t ACL_RP_DEST_PREFIX_LEN = 49;
constexpr uint32_t ACL_RP_SRC_STR_PREFIX = 50;     // 16 bytes
constexpr uint32_t ACL_RP_DST_STR_PREFIX = 66;     // 16 bytes
constexpr uint32_t ACL_RP_ENCAP_LAYER_IPVER = 82;  // encapType 7..5, layerType 4..2, ipVer 1..0
constexpr uint32_t ACL_RP_TCP_FSM = 83;
constexpr uint32_t ACL_RP_SRC_PORT = 84;
constexpr uint32_t ACL_RP_SRC_END_PORT = 86;
constexpr uint32_t ACL_RP_DEST_PORT = 88;
constexpr uint32_t ACL_RP_DEST_END_PORT = 90;
constexpr uint32_t ACL_RP_IP_TOTAL_LEN = 92;
constexpr uint32_t ACL_RP_TOS_DSCP = 96;
constexpr uint32_t ACL_RP_HOP_LIMIT = 97;  // its top bit is also aclIpOptions
constexpr uint32_t ACL_RP_IP_TTL = 98;
constexpr uint32_t ACL_RP_FLOW = 100;       // aclNextHeader in bits 31..24, aclFlowLabel in 23..4
constexpr uint32_t ACL_RP_UDF_DATA1 = 104;  // 4 x 12 bytes
constexpr uint32_t ACL_RP_UDF_DATA_LEN = 12;
constexpr uint32_t ACL_RP_SRC_MAC = 152;
constexpr uint32_t ACL_RP_SRC_MAC_PREFIX_LEN = 158;
constexpr uint32_t ACL_RP_DEST_MAC = 159;
constexpr uint32_t ACL_RP_DST_MAC_PREFIX_LEN = 165;
constexpr uint32_t ACL_RP_DOT1P_FLAGS = 166;  // dtag 7, innerDot1p 6..4, outerDot1p 3..1, ipFrag 0
constexpr uint32_t ACL_RP_SRC_MAC_STR_PREFIX = 167;
constexpr uint32_t ACL_RP_DST_MAC_STR_PREFIX = 173;
constexpr uint32_t ACL_RP_OUTER_VID = 180;
constexpr uint32_t ACL_RP_OUTER_END_VID = 182;
constexpr uint32_t ACL_RP_INNER_VID = 184;
constexpr uint32_t ACL_RP_INNER_END_VID = 186;
constexpr uint32_t ACL_RP_ETH_TYPE = 188;
constexpr uint32_t ACL_RP_APP = 190;
constexpr uint32_t ACL_RP_STATUS_BIT = 192;
constexpr uint32_t ACL_RP_STATUS_BIT_MASK = 194;
constexpr uint32_t ACL_RP_VRF_ID = 196;
constexpr uint32_t ACL_RP_MPLS_EXP1 = 200;    // 4 x u8
constexpr uint32_t ACL_RP_MPLS_LABEL1 = 204;  // 4 x u32
constexpr uint32_t ACL_RP_VXLAN_FLAG = 220;
constexpr uint32_t ACL_RP_VXLAN_OUTER_TAG = 221;
constexpr uint32_t ACL_RP_VXLAN_TRANSIT = 222;
constexpr uint32_t ACL_RP_VXLAN_BUM = 223;
constexpr uint32_t ACL_RP_VXLAN_VNI = 224;
constexpr uint32_t ACL_RP_FLAGS = 228;  // multicastGem bit 25, untagged bit 24
constexpr uint32_t ACL_RP_FLAG_MULTICAST_GEM = 1u << 25;
constexpr uint32_t ACL_RP_FLAG_UNTAGGED = 1u << 24;

// Expands the rule into out: 0, or -1 for no rule. A rule without value entries leaves out as it
// was.
int32_t aclRuleTrans(AclRuleEntry* rule, std::span<uint8_t, ACL_RULE_PARAM_LEN> out);
