// The CPU-defend packet match: the CPU protection module hands over one packet that reached the
// device's processor, with what the receive path already knows of it, and asks which rule of a
// filter-list it matches and with which verdict (list get command 16). The packet is parsed into
// a rule parameter record, which each valid rule's expanded record is tested against field by
// field. Runs with aclMutex held.
#pragma once

#include <cstdint>
#include <span>

#include "store/acl_rule_trans.h"
#include "wire/buf_desc.h"

// The request (big-endian, at least 148 bytes): the first 128 bytes of the frame, then what the
// receive path learned about it, and the verdict byte written back.
constexpr uint32_t ACL_CPUDEFEND_REQ_LEN = 148;
constexpr uint32_t ACL_CPUDEFEND_FRAME_LEN = 128;
constexpr uint32_t ACL_CPUDEFEND_L2LEN = 128;      // u32: offset of the IP header in the frame
constexpr uint32_t ACL_CPUDEFEND_IFUNIT = 132;     // u32: receiving interface, only logged
constexpr uint32_t ACL_CPUDEFEND_ETHTYPE = 136;    // u16
constexpr uint32_t ACL_CPUDEFEND_INNER_VID = 138;  // u16
constexpr uint32_t ACL_CPUDEFEND_OUTER_VID = 140;  // u16
constexpr uint32_t ACL_CPUDEFEND_INNER_PRI = 144;  // u8
constexpr uint32_t ACL_CPUDEFEND_OUTER_PRI = 145;  // u8
constexpr uint32_t ACL_CPUDEFEND_VERDICT = 146;    // u8: 3 deny, 2 permit, 11 neither

constexpr uint16_t ACL_ETHTYPE_IPV4 = 0x0800;
constexpr uint16_t ACL_ETHTYPE_IPV6 = 0x86DD;

// What the receive path tells about the frame (the request's bytes 128 to 145).
struct AclCpuDefendMeta {
  uint32_t l2len;
  uint32_t ifUnit;
  uint16_t ethType;
  uint16_t innerVid;
  uint16_t outerVid;
  uint8_t innerPri;
  uint8_t outerPri;
};

// Reads the metadata of a request of at least ACL_CPUDEFEND_REQ_LEN bytes.
AclCpuDefendMeta aclCpuDefendMetaRead(std::span<const uint8_t> req);

// Fills rec (cleared first) with the packet's fields: MACs, VLANs and priorities, and, for IPv4
// and IPv6, the IP header and the TCP, UDP or ICMP header behind it. Only bytes inside frame are
// ever read: a header that does not fit whole is left out (layer-4 ports and the TCP flags byte
// each need only their own bytes).
void aclCpuDefendPacketParse(std::span<const uint8_t> frame, const AclCpuDefendMeta& meta,
                             std::span<uint8_t, ACL_RULE_PARAM_LEN> rec);

// List get command 16: 0 when a rule matched (its verdict written into the request), -1 when none
// did, CMN_ERR_BAD_PARAM without a descriptor or data, CMN_ERR_BUFFER_SHORT below 148 bytes.
int32_t aclCpuDefendMatch(uint32_t lstIdx, const wire::BufDesc* desc);

// Tests the packet's record against every valid rule of the list in rule order; the first rule
// that passes writes its verdict (deny before permit, 11 for neither) and gives 0. -1 for no list
// or no matching rule.
int32_t _aclCpuDefendMatch(uint32_t lstIdx, std::span<const uint8_t, ACL_RULE_PARAM_LEN> pkt,
                           uint8_t* verdict);
