#include "services/acl_cpudefend_match.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "main/acl_log.h"
#include "services/acl_match.h"
#include "services/acl_match_compiled.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using Rec = std::array<uint8_t, ACL_RULE_PARAM_LEN>;
using RecView = std::span<const uint8_t, ACL_RULE_PARAM_LEN>;

constexpr uint8_t kProtoIcmp = 1;
constexpr uint8_t kProtoTcp = 6;
constexpr uint8_t kProtoUdp = 17;
constexpr uint8_t kProtoIcmp6 = 58;
constexpr uint32_t kIpv4HeaderLen = 20;
constexpr uint32_t kIpv6HeaderLen = 40;
constexpr uint32_t kIpAddrLen = 16;  // addresses of the parameter record
constexpr uint32_t kMacLen = 6;

// True when n bytes at off lie inside the frame (off may be any 64-bit sum).
bool fits(std::span<const uint8_t> frame, uint64_t off, uint64_t n) {
  return off <= frame.size() && n <= frame.size() - off;
}

void putBits8(std::span<uint8_t> rec, uint32_t off, uint32_t shift, uint32_t width, uint32_t v) {
  const uint32_t mask = ((1u << width) - 1) << shift;
  rec[off] = static_cast<uint8_t>((rec[off] & ~mask) | ((v << shift) & mask));
}

// The layer-4 header at off: ports of TCP and UDP (and the TCP flags), type and code of ICMP.
void parseL4(std::span<const uint8_t> frame, uint64_t off, uint8_t proto, bool icmp,
             std::span<uint8_t> rec) {
  if (icmp) {
    if (!fits(frame, off, 2)) return;
    be::store16(rec, ACL_RP_SRC_PORT, frame[off]);
    be::store16(rec, ACL_RP_DEST_PORT, frame[off + 1]);
    return;
  }
  if (proto != kProtoTcp && proto != kProtoUdp) return;
  if (!fits(frame, off, 4)) return;
  be::store16(rec, ACL_RP_SRC_PORT, be::load16(frame, off));
  be::store16(rec, ACL_RP_DEST_PORT, be::load16(frame, off + 2));
  if (proto == kProtoTcp && fits(frame, off + 13, 1)) rec[ACL_RP_TCP_FSM] = frame[off + 13];
}

void parseIpv4(std::span<const uint8_t> frame, uint64_t l2len, std::span<uint8_t> rec) {
  if (!fits(frame, l2len, kIpv4HeaderLen)) return;
  const auto h = frame.subspan(l2len, kIpv4HeaderLen);
  std::copy_n(h.begin() + 12, 4, rec.begin() + ACL_RP_SRC_ADDR);
  std::copy_n(h.begin() + 16, 4, rec.begin() + ACL_RP_DEST_ADDR);
  rec[ACL_RP_IP_TTL] = h[8];
  rec[ACL_RP_TOS_DSCP] = h[1];
  be::store16(rec, ACL_RP_PROTO_TYPE, ACL_ETHTYPE_IPV4);
  be::store16(rec, ACL_RP_PROTO_SUBTYPE, h[9]);
  putBits8(rec, ACL_RP_ENCAP_LAYER_IPVER, 0, 2, 1);
  // Any flag counts, don't-fragment alone too; only a first fragment carries the ports.
  const uint16_t frag = be::load16(h, 6);
  putBits8(rec, ACL_RP_DOT1P_FLAGS, 0, 1, frag != 0 ? 1 : 0);
  if ((frag & 0x1FFF) != 0) return;
  const uint64_t l4 = l2len + 4u * (h[0] & 0x0F);
  parseL4(frame, l4, h[9], h[9] == kProtoIcmp, rec);
}

void parseIpv6(std::span<const uint8_t> frame, uint64_t l2len, std::span<uint8_t> rec) {
  if (!fits(frame, l2len, kIpv6HeaderLen)) return;
  const auto h = frame.subspan(l2len, kIpv6HeaderLen);
  const uint32_t first = be::load32(h, 0);
  const uint8_t next = h[6];
  be::store16(rec, ACL_RP_PROTO_TYPE, ACL_ETHTYPE_IPV4);  // ipVer tells the two apart
  putBits8(rec, ACL_RP_ENCAP_LAYER_IPVER, 0, 2, 2);
  be::store16(rec, ACL_RP_PROTO_SUBTYPE, next);
  rec[ACL_RP_TOS_DSCP] = static_cast<uint8_t>(first >> 20);
  rec[ACL_RP_HOP_LIMIT] = h[7];
  be::store32(rec, ACL_RP_FLOW, (uint32_t{next} << 24) | ((first & 0xFFFFF) << 4));
  std::copy_n(h.begin() + 8, kIpAddrLen, rec.begin() + ACL_RP_SRC_ADDR);
  std::copy_n(h.begin() + 24, kIpAddrLen, rec.begin() + ACL_RP_DEST_ADDR);
  // Extension headers are not walked: behind one, the layer-4 fields stay 0.
  if (next == kProtoUdp || next == kProtoTcp || next == kProtoIcmp6) {
    parseL4(frame, l2len + kIpv6HeaderLen, next, next == kProtoIcmp6, rec);
  }
}

// The rule tests, each on the packet's record p and the rule's record r.
class RuleTest {
 public:
  RuleTest(const AclRuleEntry* rule, RecView p, RecView r) : rule_(rule), p_(p), r_(r) {}

  bool has(uint32_t code) const { return aclBitTest(rule_->fieldBits, code); }
  unsigned idx() const { return rule_->ruleIdx; }

  // A field compared whole; logs fmt (rule, packet, rule value) on a difference.
  bool equal(uint32_t code, uint32_t pv, uint32_t rv, const char* fmt) const {
    if (!has(code) || pv == rv) return true;
    aclDebug(ACL_LOG_GLOBAL, fmt, idx(), static_cast<int>(pv), static_cast<int>(rv));
    return false;
  }
  bool equal8(uint32_t code, uint32_t off, const char* fmt) const {
    return equal(code, p_[off], r_[off], fmt);
  }
  bool equal16(uint32_t code, uint32_t off, const char* fmt) const {
    return equal(code, be::load16(p_, off), be::load16(r_, off), fmt);
  }
  bool equalBits(uint32_t code, uint32_t off, uint32_t shift, uint32_t width,
                 const char* fmt) const {
    const uint32_t mask = (1u << width) - 1;
    return equal(code, (p_[off] >> shift) & mask, (r_[off] >> shift) & mask, fmt);
  }

  // A 16-bit value within [start, end] when the end code is set, else equal to start.
  bool range(uint32_t code, uint32_t endCode, uint32_t off, uint32_t endOff, const char* fmtRange,
             const char* fmtEqual) const {
    if (!has(code)) return true;
    const uint32_t v = be::load16(p_, off);
    const uint32_t lo = be::load16(r_, off);
    if (has(endCode)) {
      const uint32_t hi = be::load16(r_, endOff);
      if (v >= lo && v <= hi) return true;
      aclDebug(ACL_LOG_GLOBAL, fmtRange, idx(), static_cast<int>(v), static_cast<int>(lo),
               static_cast<int>(hi));
      return false;
    }
    return equal(code, v, lo, fmtEqual);
  }

  struct Masked {
    uint32_t code, prefixCode, strCode;  // the value, its prefix length, its address-form mask
    uint32_t off, prefixOff, strOff;
    uint32_t len;
    const char* fmtPrefix;
    const char* fmtStr;
    const char* fmtPlain;
  };
  // An address or MAC: the first prefix-length bits, or the packet's bytes ANDed with the rule's
  // value against the rule's mask field, or every byte.
  bool masked(const Masked& m) const {
    const uint8_t* pv = p_.data() + m.off;
    const uint8_t* rv = r_.data() + m.off;
    const char* fmt = m.fmtPlain;
    bool ok = false;
    if (has(m.prefixCode)) {
      fmt = m.fmtPrefix;
      ok = aclMatchPrefixEqual(pv, rv, m.len, r_[m.prefixOff]);
    } else if (has(m.strCode)) {
      fmt = m.fmtStr;
      const uint8_t* sv = r_.data() + m.strOff;
      ok = true;
      for (uint32_t i = 0; i < m.len; ++i) ok = ok && (pv[i] & rv[i]) == sv[i];
    } else {
      ok = std::memcmp(pv, rv, m.len) == 0;
    }
    if (!ok) logMasked(m.len, fmt, pv, rv);
    return ok;
  }
  bool address(const Masked& m) const {
    if (!has(m.code)) return true;
    // A rule address of all zero bytes stands for any address.
    const uint8_t* rv = r_.data() + m.off;
    if (std::all_of(rv, rv + m.len, [](uint8_t b) { return b == 0; })) return true;
    return masked(m);
  }
  bool mac(const Masked& m) const { return !has(m.code) || masked(m); }

 private:
  void logMasked(uint32_t len, const char* fmt, const uint8_t* pv, const uint8_t* rv) const {
    if (len == kIpAddrLen) {
      aclDebug(ACL_LOG_GLOBAL, fmt, idx(), be::load32(pv), be::load32(pv + 4), be::load32(pv + 8),
               be::load32(pv + 12), be::load32(rv), be::load32(rv + 4), be::load32(rv + 8),
               be::load32(rv + 12));
    } else {
      aclDebug(ACL_LOG_GLOBAL, fmt, idx(), pv[0], pv[1], pv[2], pv[3], pv[4], pv[5], rv[0], rv[1],
               rv[2], rv[3], rv[4], rv[5]);
    }
  }

  const AclRuleEntry* rule_;
  RecView p_;
  RecView r_;
};

const RuleTest::Masked kSrcAddr{RULE_BIT_SRCADDR,
                                RULE_BIT_SRCPREFIX,
                                RULE_BIT_SRCSTRPREFIX,
                                ACL_RP_SRC_ADDR,
                                ACL_RP_SRC_PREFIX_LEN,
                                ACL_RP_SRC_STR_PREFIX,
                                kIpAddrLen,
                                "rule %u srcAddr no match prefix. %08x:%08x:%08x:%08x : "
                                "%08x:%08x:%08x:%08x\r\n",
                                "rule %u srcAddr no match strprefix. %08x:%08x:%08x:%08x : "
                                "%08x:%08x:%08x:%08x\r\n",
                                "rule %u srcAddr no match. %08x:%08x:%08x:%08x : "
                                "%08x:%08x:%08x:%08x\r\n"};
const RuleTest::Masked kDestAddr{RULE_BIT_DSTADDR,
                                 RULE_BIT_DSTPREFIX,
                                 RULE_BIT_DSTSTRPREFIX,
                                 ACL_RP_DEST_ADDR,
                                 ACL_RP_DEST_PREFIX_LEN,
                                 ACL_RP_DST_STR_PREFIX,
                                 kIpAddrLen,
                                 "rule %u destAddr no match prefix. %08x:%08x:%08x:%08x : "
                                 "%08x:%08x:%08x:%08x\r\n",
                                 "rule %u destAddr no match strprefix. %08x:%08x:%08x:%08x : "
                                 "%08x:%08x:%08x:%08x\r\n",
                                 "rule %u destAddr no match. %08x:%08x:%08x:%08x : "
                                 "%08x:%08x:%08x:%08x\r\n"};
const RuleTest::Masked kSrcMac{RULE_BIT_SRCMAC,
                               RULE_BIT_SRCMACPREFIX,
                               RULE_BIT_SRCMACSTRPREFIX,
                               ACL_RP_SRC_MAC,
                               ACL_RP_SRC_MAC_PREFIX_LEN,
                               ACL_RP_SRC_MAC_STR_PREFIX,
                               kMacLen,
                               "rule %u srcMac no match prefix. %02x:%02x:%02x:%02x:%02x:%02x : "
                               "%02x:%02x:%02x:%02x:%02x:%02x\r\n",
                               "rule %u srcMac no match strprefix. %02x:%02x:%02x:%02x:%02x:%02x "
                               ": %02x:%02x:%02x:%02x:%02x:%02x\r\n",
                               "rule %u srcMac no match. %02x:%02x:%02x:%02x:%02x:%02x : "
                               "%02x:%02x:%02x:%02x:%02x:%02x\r\n"};
const RuleTest::Masked kDestMac{RULE_BIT_DSTMAC,
                                RULE_BIT_DSTMACPREFIX,
                                RULE_BIT_DSTMACSTRPREFIX,
                                ACL_RP_DEST_MAC,
                                ACL_RP_DST_MAC_PREFIX_LEN,
                                ACL_RP_DST_MAC_STR_PREFIX,
                                kMacLen,
                                "rule %u destMac no match prefix. %02x:%02x:%02x:%02x:%02x:%02x "
                                ": %02x:%02x:%02x:%02x:%02x:%02x\r\n",
                                "rule %u destMac no match strprefix. "
                                "%02x:%02x:%02x:%02x:%02x:%02x : %02x:%02x:%02x:%02x:%02x:%02x\r\n",
                                "rule %u destMac no match. %02x:%02x:%02x:%02x:%02x:%02x : "
                                "%02x:%02x:%02x:%02x:%02x:%02x\r\n"};

// Every test of a rule in its order; false at the first that fails (its line written).
bool ruleAccepts(const RuleTest& t, RecView p, RecView r) {
  const uint32_t pFlow = be::load32(p, ACL_RP_FLOW) >> 24;
  const uint32_t rFlow = be::load32(r, ACL_RP_FLOW) >> 24;
  return t.equal16(RULE_BIT_PROTOTYPE, ACL_RP_PROTO_TYPE,
                   "rule %u protoType no match. %d:%d\r\n") &&
         t.equal16(RULE_BIT_PROTOSUBTYPE, ACL_RP_PROTO_SUBTYPE,
                   "rule %u protoSubType no match. %d:%d\r\n") &&
         t.equalBits(RULE_BIT_IPVER, ACL_RP_ENCAP_LAYER_IPVER, 0, 2,
                     "rule %u ipVer no match. %d:%d\r\n") &&
         t.address(kSrcAddr) && t.address(kDestAddr) &&
         t.range(RULE_BIT_SRCPORT, RULE_BIT_SRCENDPORT, ACL_RP_SRC_PORT, ACL_RP_SRC_END_PORT,
                 "rule %u srcPort range no match. %d:%d-%d\r\n",
                 "rule %u srcPort no match. %d:%d\r\n") &&
         t.range(RULE_BIT_DSTPORT, RULE_BIT_DSTENDPORT, ACL_RP_DEST_PORT, ACL_RP_DEST_END_PORT,
                 "rule %u destPort range no match. %d:%d-%d\r\n",
                 "rule %u destPort no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_TCPFSM, ACL_RP_TCP_FSM, "rule %u tcpFsm no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_IPTOS, ACL_RP_TOS_DSCP, "rule %u tos no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_IPDSCP, ACL_RP_TOS_DSCP, "rule %u dscp no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_IPPRECEDENCE, ACL_RP_TOS_DSCP,
                  "rule %u precedence no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_IPTTL, ACL_RP_IP_TTL, "rule %u aclIpTtl no match. %d:%d\r\n") &&
         t.equalBits(RULE_BIT_IPFRAGMENT, ACL_RP_DOT1P_FLAGS, 0, 1,
                     "rule %u ipFrag no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_TRAFFICCLASS, ACL_RP_TOS_DSCP,
                  "rule %u aclTrafficClass no match. %d:%d\r\n") &&
         t.equal8(RULE_BIT_HOPLIMIT, ACL_RP_HOP_LIMIT, "rule %u aclHopLimit no match. %d:%d\r\n") &&
         t.equal(RULE_BIT_NEXTHEADER, pFlow, rFlow, "rule %u aclNextHeader no match. %d:%d\r\n") &&
         t.equalBits(RULE_BIT_OUTPRI, ACL_RP_DOT1P_FLAGS, 1, 3,
                     "rule %u outerDot1p no match. %d:%d\r\n") &&
         t.range(RULE_BIT_OUTVID, RULE_BIT_OUTENDVID, ACL_RP_OUTER_VID, ACL_RP_OUTER_END_VID,
                 "rule %u outerVid range no match. %d:%d-%d\r\n",
                 "rule %u outerVid no match. %d:%d\r\n") &&
         t.equalBits(RULE_BIT_INPRI, ACL_RP_DOT1P_FLAGS, 4, 3,
                     "rule %u innerDot1p no match. %d:%d\r\n") &&
         t.range(RULE_BIT_INVID, RULE_BIT_INENDVID, ACL_RP_INNER_VID, ACL_RP_INNER_END_VID,
                 "rule %u innerVid range no match. %d:%d-%d\r\n",
                 "rule %u innerVid no match. %d:%d\r\n") &&
         t.equal16(RULE_BIT_ETHTYPE, ACL_RP_ETH_TYPE, "rule %u ethType no match. %d:%d\r\n") &&
         t.mac(kSrcMac) && t.mac(kDestMac) &&
         t.equal16(RULE_BIT_ICMPTYPE, ACL_RP_SRC_PORT, "rule %u icmptype no match. %d:%d\r\n") &&
         t.equal16(RULE_BIT_ICMPCODE, ACL_RP_DEST_PORT, "rule %u icmpcode no match. %d:%d\r\n");
}

}  // namespace

AclCpuDefendMeta aclCpuDefendMetaRead(std::span<const uint8_t> req) {
  AclCpuDefendMeta m{};
  if (req.size() < ACL_CPUDEFEND_REQ_LEN) return m;
  m.l2len = be::load32(req, ACL_CPUDEFEND_L2LEN);
  m.ifUnit = be::load32(req, ACL_CPUDEFEND_IFUNIT);
  m.ethType = be::load16(req, ACL_CPUDEFEND_ETHTYPE);
  m.innerVid = be::load16(req, ACL_CPUDEFEND_INNER_VID);
  m.outerVid = be::load16(req, ACL_CPUDEFEND_OUTER_VID);
  m.innerPri = req[ACL_CPUDEFEND_INNER_PRI];
  m.outerPri = req[ACL_CPUDEFEND_OUTER_PRI];
  return m;
}

void aclCpuDefendPacketParse(std::span<const uint8_t> frame, const AclCpuDefendMeta& meta,
                             std::span<uint8_t, ACL_RULE_PARAM_LEN> rec) {
  std::fill(rec.begin(), rec.end(), uint8_t{0});
  if (fits(frame, 0, kMacLen)) std::copy_n(frame.begin(), kMacLen, rec.begin() + ACL_RP_DEST_MAC);
  if (fits(frame, kMacLen, kMacLen)) {
    std::copy_n(frame.begin() + kMacLen, kMacLen, rec.begin() + ACL_RP_SRC_MAC);
  }
  be::store16(rec, ACL_RP_ETH_TYPE, meta.ethType);
  be::store16(rec, ACL_RP_OUTER_VID, meta.outerVid);
  be::store16(rec, ACL_RP_INNER_VID, meta.innerVid);
  putBits8(rec, ACL_RP_DOT1P_FLAGS, 1, 3, meta.outerPri & 0x7);
  putBits8(rec, ACL_RP_DOT1P_FLAGS, 4, 3, meta.innerPri & 0x7);
  if (meta.ethType == ACL_ETHTYPE_IPV4) {
    parseIpv4(frame, meta.l2len, rec);
  } else if (meta.ethType == ACL_ETHTYPE_IPV6) {
    parseIpv6(frame, meta.l2len, rec);
  }
}

int32_t aclCpuDefendMatch(uint32_t lstIdx, const wire::BufDesc* desc) {
  if (desc == nullptr || desc->data == nullptr) return CMN_ERR_BAD_PARAM;
  if (desc->len < ACL_CPUDEFEND_REQ_LEN) return CMN_ERR_BUFFER_SHORT;
  const std::span<uint8_t> req(static_cast<uint8_t*>(desc->data), ACL_CPUDEFEND_REQ_LEN);
  const AclCpuDefendMeta meta = aclCpuDefendMetaRead(req);
  aclDebug(ACL_LOG_GLOBAL,
           "cpudefend acl match. list = %u, l2len = %u, ifUnit = %u, ethType = %u, innerVid = %u, "
           "innerPri = %u, outerVid = %u, outerPri = %u\r\n",
           lstIdx, meta.l2len, meta.ifUnit, unsigned{meta.ethType}, unsigned{meta.innerVid},
           unsigned{meta.innerPri}, unsigned{meta.outerVid}, unsigned{meta.outerPri});
  Rec pkt;
  aclCpuDefendPacketParse(req.first(ACL_CPUDEFEND_FRAME_LEN), meta, pkt);
  aclMatchInfoPritf(pkt);
  uint8_t& verdict = req[ACL_CPUDEFEND_VERDICT];
  const int32_t ret = _aclCpuDefendMatch(lstIdx, pkt, &verdict);
  aclDebug(ACL_LOG_GLOBAL, "cpudefend acl match. list = %u, ret = 0x%x, action = %u\r\n", lstIdx,
           static_cast<unsigned>(ret), unsigned{verdict});
  return ret;
}

int32_t _aclCpuDefendMatch(uint32_t lstIdx, std::span<const uint8_t, ACL_RULE_PARAM_LEN> pkt,
                           uint8_t* verdict) {
  if (const AclCompiledList* c = aclCompiledGet(lstIdx)) {
    return aclCompiledCpuDefendMatch(*c, pkt, verdict);
  }
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) return -1;
  Rec rec;
  for (auto* rule = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); rule != nullptr;
       rule = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, rule))) {
    if (rule->status != ACL_RULE_STATUS_VALID) continue;
    aclMatchRuleExpand(rule, rec);
    if (!ruleAccepts(RuleTest(rule, pkt, rec), pkt, rec)) continue;
    const uint8_t v = aclBitTest(rule->actionBits, RULE_ACTION_DENY)     ? ACL_MATCH_VERDICT_DENY
                      : aclBitTest(rule->actionBits, RULE_ACTION_PERMIT) ? ACL_MATCH_VERDICT_PERMIT
                                                                         : ACL_MATCH_VERDICT_NONE;
    if (verdict != nullptr) *verdict = v;
    return 0;
  }
  return -1;
}
