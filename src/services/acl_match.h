// The software match engine: other modules (management access filtering, multicast and IGMP
// snooping, IPsec, NAT) ask whether an address, or an address pair with ports and protocol, is
// permitted by a filter-list instead of programming hardware. Each question is a small big-endian
// query record handed over as its bytes and their length; the answer comes from walking the
// list's rules and comparing the fields of each rule's expanded parameter record.
//
// The matchers run with aclMutex held (list get commands 10 to 15 call them); the exported
// wrappers build a query and go through aclLstGetApi, so they take the lock like any API call.
#pragma once

#include <cstdint>
#include <span>

#include "store/acl_rule_trans.h"

// Query families: the address is 4 bytes for IPv4 and 16 bytes for anything else.
constexpr uint32_t ACL_MATCH_FAMILY_IPV4 = 1;
constexpr uint32_t ACL_MATCH_FAMILY_IPV6 = 2;
constexpr uint32_t ACL_MATCH_IPV4_LEN = 4;
constexpr uint32_t ACL_MATCH_IPV6_LEN = 16;

// List get commands of the match services.
constexpr uint32_t ACL_MATCH_CMD_ADDR = 10;
constexpr uint32_t ACL_MATCH_CMD_ADDR_EX = 11;
constexpr uint32_t ACL_MATCH_CMD_IGMP = 12;
constexpr uint32_t ACL_MATCH_CMD_IGMPSNOOP = 13;
constexpr uint32_t ACL_MATCH_CMD_IPSEC = 14;
constexpr uint32_t ACL_MATCH_CMD_NAT = 15;
constexpr uint32_t ACL_MATCH_CMD_CPUDEFEND = 16;

// Query record lengths by family (IPv4 / otherwise).
//   10, 12, 13: family u32, address, prefixLen u32
//   11:         the same and a verdict byte written back
//   14:         family u32, source, destination, srcPort u16, dstPort u16, protocol u32, mode u32
//   15:         family u32, address, vrfId u32, prefixLen u32
constexpr uint32_t ACL_MATCH_QUERY_LEN_V4 = 12;
constexpr uint32_t ACL_MATCH_QUERY_LEN_V6 = 24;
constexpr uint32_t ACL_MATCH_EX_QUERY_LEN_V4 = 13;
constexpr uint32_t ACL_MATCH_EX_QUERY_LEN_V6 = 25;
constexpr uint32_t ACL_IPSEC_QUERY_LEN_V4 = 24;
constexpr uint32_t ACL_IPSEC_QUERY_LEN_V6 = 48;
constexpr uint32_t ACL_NAT_QUERY_LEN_V4 = 16;
constexpr uint32_t ACL_NAT_QUERY_LEN_V6 = 28;

// IPsec directions: forward or reverse, forward only, reverse only; any other mode accepts the
// addresses without comparing them.
constexpr uint32_t ACL_IPSEC_MODE_BOTH = 0;
constexpr uint32_t ACL_IPSEC_MODE_FORWARD = 1;
constexpr uint32_t ACL_IPSEC_MODE_REVERSE = 2;
// A rule protocol that accepts every query protocol.
constexpr uint16_t ACL_IPSEC_ANY_PROTOCOL = 65535;

// Verdicts written back by command 11 and by the CPU-defend match: the action codes.
constexpr uint8_t ACL_MATCH_VERDICT_PERMIT = 2;
constexpr uint8_t ACL_MATCH_VERDICT_DENY = 3;
constexpr uint8_t ACL_MATCH_VERDICT_NONE = 11;

// The bytes one address of this family takes in a query.
constexpr uint32_t aclMatchAddrLen(uint32_t family) {
  return family == ACL_MATCH_FAMILY_IPV4 ? ACL_MATCH_IPV4_LEN : ACL_MATCH_IPV6_LEN;
}

// Command 10: 0 when the deciding rule permits, -1 otherwise (no list, no deciding rule, a query
// of the wrong length).
int32_t _aclMatch(uint32_t lstIdx, std::span<const uint8_t> query);
// Command 11: 0 with the deciding rule's verdict (2 permit, 3 deny, 11 neither) in the query's
// verdict byte, or -1. The length is not held to 13 or 25, but a query too short to hold its
// fields and the verdict byte is answered -1 without being read.
int32_t _aclMatchEx(uint32_t lstIdx, std::span<uint8_t> query);
// Commands 12 and 13: 22 for a query of the wrong length, else as _aclMulticastMatch.
int32_t _aclMulticastmatchEx(uint32_t lstIdx, std::span<const uint8_t> query);
// Against the rules' destination addresses: 0 when the deciding rule permits, else -1.
int32_t _aclMulticastMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen,
                           uint32_t family);
// Command 14: 22 for a query of the wrong length, else as _aclIpsecMatch.
int32_t _aclIpsecmatchEx(uint32_t lstIdx, std::span<const uint8_t> query);
// 0 when a rule accepts the addresses (in the mode's directions), ports and protocol, else -1.
int32_t _aclIpsecMatch(uint32_t lstIdx, const uint8_t* srcAddr, const uint8_t* dstAddr,
                       uint16_t srcPort, uint16_t dstPort, uint32_t family, uint32_t protocol,
                       uint32_t mode);
// Command 15: 22 for a query of the wrong length, else as _aclNatMatch.
int32_t _aclNatmatchEx(uint32_t lstIdx, std::span<const uint8_t> query);
// The highest-numbered rule of the VRF that covers the address decides: 0 permit, else -1.
int32_t _aclNatMatch(uint32_t lstIdx, uint32_t vrfId, const uint8_t* address, uint32_t prefixLen,
                     uint32_t family);

// The exported services: each builds its query and asks aclLstGetApi with its command, so the
// result may also be a list API code (ACL_ERR_LIST_NOT_EXIST). Addresses are big-endian bytes,
// 4 of them for family 1 and 16 otherwise; a missing address answers CMN_ERR_BAD_PARAM.
int32_t aclMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen, uint32_t family);
int32_t aclMatchEx(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen, uint32_t family,
                   uint8_t* verdict);
int32_t aclIgmpMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen, uint32_t family);
int32_t aclIgmpsnoopMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen,
                          uint32_t family);
int32_t aclIpsecMatch(uint32_t lstIdx, const uint8_t* srcAddr, const uint8_t* dstAddr,
                      uint16_t srcPort, uint16_t dstPort, uint32_t family, uint32_t protocol,
                      uint32_t mode);
int32_t aclNatMatch(uint32_t lstIdx, uint32_t vrfId, const uint8_t* address, uint32_t prefixLen,
                    uint32_t family);

// Dumps a rule parameter record when debugFlags has 0x20.
void aclMatchInfoPritf(std::span<const uint8_t, ACL_RULE_PARAM_LEN> rec);

// Shared with the CPU-defend match.
// Expands rule into rec as a fresh record: a rule without value entries reads as all zero.
void aclMatchRuleExpand(AclRuleEntry* rule, std::span<uint8_t, ACL_RULE_PARAM_LEN> rec);
// True when the first prefixLen bits (at most len * 8) of a and b are equal.
bool aclMatchPrefixEqual(const uint8_t* a, const uint8_t* b, uint32_t len, uint32_t prefixLen);
