#include "services/acl_match.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "api/acl_lst_api.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "services/acl_match_compiled.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

namespace {

// The rule parameter record of the rule being tried: fresh on the stack for every rule, so a
// query never allocates and never sees what an earlier rule left behind.
using Rec = std::array<uint8_t, ACL_RULE_PARAM_LEN>;

constexpr uint32_t kDumpGuard = 0x20;  // the parameter-record dump has its own debug bit

uint8_t ipVer(const Rec& r) {
  return r[ACL_RP_ENCAP_LAYER_IPVER] & 0x3;
}
uint32_t word(const uint8_t* p) {
  return be::load32(p);
}
bool allZero(const uint8_t* p, size_t n) {
  return std::all_of(p, p + n, [](uint8_t b) { return b == 0; });
}
bool hasField(const AclRuleEntry* rule, uint32_t code) {
  return aclBitTest(rule->fieldBits, code);
}
bool hasAction(const AclRuleEntry* rule, uint32_t code) {
  return aclBitTest(rule->actionBits, code);
}
bool isPermitOrDeny(const AclRuleEntry* rule) {
  return hasAction(rule, RULE_ACTION_PERMIT) || hasAction(rule, RULE_ACTION_DENY);
}
// The top n bits set; every bit from 32 on.
uint32_t v4Mask(uint32_t n) {
  return n == 0 ? 0 : n >= 32 ? 0xFFFFFFFFu : 0xFFFFFFFFu << (32 - n);
}

AclRuleEntry* firstRule(AclListEntry* list) {
  return static_cast<AclRuleEntry*>(avl_first(&list->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* list, AclRuleEntry* rule) {
  return static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, rule));
}
AclRuleEntry* lastRule(AclListEntry* list) {
  return static_cast<AclRuleEntry*>(avl_last(&list->ruleTree));
}
AclRuleEntry* prevRule(AclListEntry* list, AclRuleEntry* rule) {
  return static_cast<AclRuleEntry*>(avl_prev(&list->ruleTree, rule));
}

int lst(uint32_t lstIdx) {
  return static_cast<int>(lstIdx);
}
int idx(const AclRuleEntry* rule) {
  return static_cast<int>(rule->ruleIdx);
}

// An address query (commands 10 to 13 and 15): family, address bytes and prefix length.
struct AddrQuery {
  uint32_t family = 0;
  const uint8_t* addr = nullptr;
  uint32_t prefixLen = 0;
};

// Which address of a rule is compared: the source (address match, NAT) or the destination
// (multicast).
struct AddrSide {
  uint32_t addrCode;
  uint32_t lenCode;
  uint32_t addrOff;
  uint32_t lenOff;
};
constexpr AddrSide kSrcSide{RULE_BIT_SRCADDR, RULE_BIT_SRCPREFIX, ACL_RP_SRC_ADDR,
                            ACL_RP_SRC_PREFIX_LEN};
constexpr AddrSide kDestSide{RULE_BIT_DSTADDR, RULE_BIT_DSTPREFIX, ACL_RP_DEST_ADDR,
                             ACL_RP_DEST_PREFIX_LEN};

// What an IPv4 comparison looked at, for its log line.
struct V4Trace {
  bool made = false;
  uint32_t mask = 0;
  uint32_t query = 0;  // masked
  uint32_t rule = 0;   // as stored
  uint32_t ruleMasked = 0;
};

// Whether the rule's address on side covers the query: the rule carries both the address and its
// prefix length, the query is at least as long a prefix, and both families agree with the rule's
// IP version. Every comparison is made under the rule's own prefix.
bool covers(const AclRuleEntry* rule, const Rec& rec, const AddrSide& side, const AddrQuery& q,
            V4Trace* trace) {
  if (!hasField(rule, side.addrCode) || !hasField(rule, side.lenCode)) return false;
  const uint32_t ruleLen = rec[side.lenOff];
  if (q.prefixLen < ruleLen) return false;
  const uint8_t* ruleAddr = rec.data() + side.addrOff;
  const uint8_t ver = ipVer(rec);
  if (ver == ACL_MATCH_FAMILY_IPV4 && q.prefixLen <= 32 && q.family == ACL_MATCH_FAMILY_IPV4) {
    trace->made = true;
    trace->mask = v4Mask(ruleLen);
    trace->query = word(q.addr) & trace->mask;
    trace->rule = word(ruleAddr);
    trace->ruleMasked = trace->rule & trace->mask;
    return trace->query == trace->ruleMasked;
  }
  if (ver == ACL_MATCH_FAMILY_IPV6 && q.prefixLen <= 128 && q.family == ACL_MATCH_FAMILY_IPV6) {
    return aclMatchPrefixEqual(q.addr, ruleAddr, ACL_MATCH_IPV6_LEN, ruleLen);
  }
  return false;
}

// Reads family, address and prefix length (fixedAfter more bytes may follow the address before
// the prefix length). False when the query is not exactly the family's length, or, when exact is
// false, shorter than it.
bool readAddrQuery(std::span<const uint8_t> q, uint32_t extraLen, bool exact, AddrQuery* out) {
  if (q.size() < 4) return false;
  out->family = be::load32(q, 0);
  const uint32_t alen = aclMatchAddrLen(out->family);
  const size_t need = 4 + alen + 4 + extraLen;
  if (exact ? q.size() != need : q.size() < need) return false;
  out->addr = q.data() + 4;
  out->prefixLen = be::load32(q, 4 + alen);
  return true;
}

// The rule walk of commands 10 and 11: the first rule that covers the query (or that matches
// everything) decides; nullptr when none does.
AclRuleEntry* srcAddrWalk(uint32_t lstIdx, const AddrQuery& q) {
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl match] error. (Reason=[filter-list %d entry is NULL])\r\n",
             lst(lstIdx));
    return nullptr;
  }
  Rec rec;
  for (AclRuleEntry* rule = firstRule(list); rule != nullptr; rule = nextRule(list, rule)) {
    aclMatchRuleExpand(rule, rec);
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl match] info=[filter %d/%d: self = %d matchRule.srcAddr = %#x,rule "
             "srcPrefixLen = %d,ipAddress = %#x, ipPrefixLen = %d]\n\r",
             lst(lstIdx), idx(rule), lst(lstIdx), word(rec.data() + ACL_RP_SRC_ADDR),
             rec[ACL_RP_SRC_PREFIX_LEN], word(q.addr), static_cast<int>(q.prefixLen));
    if (!hasField(rule, RULE_BIT_IPVER)) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl match] info=[filter %d/%d not an IP rule]\r\n",
               lst(lstIdx), idx(rule));
      continue;
    }
    aclDebug(ACL_LOG_GLOBAL, "ACL global [acl match] info=[filter %d/%d action = %x %x %x %x ]\r\n",
             lst(lstIdx), idx(rule), rule->actionBits[0], rule->actionBits[1], rule->actionBits[2],
             rule->actionBits[3]);
    // A rule without an address or prefix matches everything.
    if (allZero(rec.data() + ACL_RP_SRC_ADDR, ACL_MATCH_IPV6_LEN) &&
        rec[ACL_RP_SRC_PREFIX_LEN] == 0) {
      return rule;
    }
    V4Trace t;
    const bool hit = covers(rule, rec, kSrcSide, q, &t);
    if (t.made) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [acl match] info=[filter %d/%d ipAddress = %#x,ipv4Add = %#x,srcAddr = "
               "%#x, ruleAddr = %#x]\r\n",
               lst(lstIdx), idx(rule), t.mask, t.query, t.rule, t.ruleMasked);
    }
    if (hit) return rule;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl match] error. (Reason=[filter-list %d self = %d match ERROR])\r\n",
           lst(lstIdx), lst(lstIdx));
  return nullptr;
}

// Builds a query record in buf: family, then the fields as (bytes, length) pairs in order.
struct QueryBuilder {
  std::array<uint8_t, ACL_IPSEC_QUERY_LEN_V6> buf{};
  uint32_t len = 0;
  void u32(uint32_t v) {
    be::store32(buf, len, v);
    len += 4;
  }
  void u16(uint16_t v) {
    be::store16(buf, len, v);
    len += 2;
  }
  void addr(const uint8_t* a, uint32_t family) {
    const uint32_t n = aclMatchAddrLen(family);
    std::memcpy(buf.data() + len, a, n);
    len += n;
  }
  int32_t ask(uint32_t lstIdx, uint32_t cmd) {
    wire::BufDesc desc{buf.data(), len};
    return aclLstGetApi(lstIdx, cmd, reinterpret_cast<uintptr_t>(&desc));
  }
};

int32_t addrService(uint32_t lstIdx, uint32_t cmd, const uint8_t* address, uint32_t prefixLen,
                    uint32_t family) {
  if (address == nullptr) return CMN_ERR_BAD_PARAM;
  QueryBuilder b;
  b.u32(family);
  b.addr(address, family);
  b.u32(prefixLen);
  return b.ask(lstIdx, cmd);
}

}  // namespace

bool aclMatchPrefixEqual(const uint8_t* a, const uint8_t* b, uint32_t len, uint32_t prefixLen) {
  const uint32_t bits = std::min(prefixLen, len * 8);
  const uint32_t whole = bits / 8;
  if (std::memcmp(a, b, whole) != 0) return false;
  const uint32_t rest = bits % 8;
  if (rest == 0) return true;
  const auto mask = static_cast<uint8_t>(0xFF00u >> rest);
  return ((a[whole] ^ b[whole]) & mask) == 0;
}

void aclMatchRuleExpand(AclRuleEntry* rule, std::span<uint8_t, ACL_RULE_PARAM_LEN> rec) {
  // The expansion leaves the record alone for a rule without values; such a rule matches on
  // nothing but its bits and actions, so it must read as zero here.
  if (aclValueFirst(rule) == nullptr) {
    std::fill(rec.begin(), rec.end(), uint8_t{0});
    return;
  }
  aclRuleTrans(rule, rec);
}

int32_t _aclMatch(uint32_t lstIdx, std::span<const uint8_t> query) {
  AddrQuery q;
  if (!readAddrQuery(query, 0, true, &q)) return -1;
  if (const AclCompiledList* c = aclCompiledGet(lstIdx)) {
    const uint8_t verdict = aclCompiledAddrMatch(*c, q.family, q.addr, q.prefixLen);
    return verdict == ACL_MATCH_VERDICT_PERMIT ? 0 : -1;
  }
  const AclRuleEntry* rule = srcAddrWalk(lstIdx, q);
  return rule != nullptr && hasAction(rule, RULE_ACTION_PERMIT) ? 0 : -1;
}

int32_t _aclMatchEx(uint32_t lstIdx, std::span<uint8_t> query) {
  // The length is not held to the record's, but nothing is read or written past it.
  AddrQuery q;
  if (!readAddrQuery(query, 1, false, &q)) return -1;
  if (const AclCompiledList* c = aclCompiledGet(lstIdx)) {
    const uint8_t verdict = aclCompiledAddrMatch(*c, q.family, q.addr, q.prefixLen);
    if (verdict == 0) return -1;
    query[4 + aclMatchAddrLen(q.family) + 4] = verdict;
    return 0;
  }
  const AclRuleEntry* rule = srcAddrWalk(lstIdx, q);
  if (rule == nullptr) return -1;
  const uint8_t verdict = hasAction(rule, RULE_ACTION_PERMIT) ? ACL_MATCH_VERDICT_PERMIT
                          : hasAction(rule, RULE_ACTION_DENY) ? ACL_MATCH_VERDICT_DENY
                                                              : ACL_MATCH_VERDICT_NONE;
  query[4 + aclMatchAddrLen(q.family) + 4] = verdict;
  return 0;
}

int32_t _aclMulticastmatchEx(uint32_t lstIdx, std::span<const uint8_t> query) {
  AddrQuery q;
  if (!readAddrQuery(query, 0, true, &q)) return ACL_RET_INVALID;
  return _aclMulticastMatch(lstIdx, q.addr, q.prefixLen, q.family);
}

int32_t _aclMulticastMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen,
                           uint32_t family) {
  if (address == nullptr) return -1;
  if (const AclCompiledList* c = aclCompiledGet(lstIdx)) {
    return aclCompiledMulticastMatch(*c, family, address, prefixLen);
  }
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr) return -1;
  const AddrQuery q{family, address, prefixLen};
  Rec rec;
  for (AclRuleEntry* rule = firstRule(list); rule != nullptr; rule = nextRule(list, rule)) {
    aclMatchRuleExpand(rule, rec);
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl multicast match] info=[filter %d/%d destAddr = %#x,destPrefixLen = "
             "%d,ipAddress = %#x]\r\n",
             lst(lstIdx), idx(rule), word(rec.data() + ACL_RP_DEST_ADDR),
             rec[ACL_RP_DEST_PREFIX_LEN], word(address));
    if (!hasField(rule, RULE_BIT_IPVER) || !isPermitOrDeny(rule)) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [acl multicast match] info=[filter %d/%d is not an IP rule or action "
               "is wrong]\r\n",
               lst(lstIdx), idx(rule));
      continue;
    }
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl multicast match] info=[filter %d/%d action = %x %x %x %x ]\r\n",
             lst(lstIdx), idx(rule), rule->actionBits[0], rule->actionBits[1], rule->actionBits[2],
             rule->actionBits[3]);
    bool hit = allZero(rec.data() + ACL_RP_DEST_ADDR, ACL_MATCH_IPV6_LEN) &&
               rec[ACL_RP_DEST_PREFIX_LEN] == 0;
    if (!hit) {
      V4Trace t;
      hit = covers(rule, rec, kDestSide, q, &t);
      if (t.made) {
        aclDebug(ACL_LOG_GLOBAL,
                 "ACL global [acl multicast match] info=[filter %d/%d ipMask = %#x,ipv4Add = "
                 "%#x,destAddr = %#x, ruleDestAddr = %x]\r\n",
                 lst(lstIdx), idx(rule), t.mask, t.query, t.rule, t.ruleMasked);
      }
    }
    if (hit) return hasAction(rule, RULE_ACTION_PERMIT) ? 0 : -1;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl multicast match] error. (Reason=[filter-list %d self = %d match "
           "ERROR])\r\n",
           lst(lstIdx), lst(lstIdx));
  return -1;
}

int32_t _aclIpsecmatchEx(uint32_t lstIdx, std::span<const uint8_t> query) {
  if (query.size() < 4) return ACL_RET_INVALID;
  const uint32_t family = be::load32(query, 0);
  const uint32_t alen = aclMatchAddrLen(family);
  if (query.size() != 4 + 2 * alen + 12) return ACL_RET_INVALID;
  const uint32_t ports = 4 + 2 * alen;
  return _aclIpsecMatch(lstIdx, query.data() + 4, query.data() + 4 + alen, be::load16(query, ports),
                        be::load16(query, ports + 2), family, be::load32(query, ports + 4),
                        be::load32(query, ports + 8));
}

int32_t _aclIpsecMatch(uint32_t lstIdx, const uint8_t* srcAddr, const uint8_t* dstAddr,
                       uint16_t srcPort, uint16_t dstPort, uint32_t family, uint32_t protocol,
                       uint32_t mode) {
  if (srcAddr != nullptr && dstAddr != nullptr) {
    if (const AclCompiledList* c = aclCompiledGet(lstIdx)) {
      return aclCompiledIpsecMatch(*c, srcAddr, dstAddr, srcPort, dstPort, family, protocol, mode);
    }
  }
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr || srcAddr == nullptr || dstAddr == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl ipsec match] error. (Reason=[filter-list %d entry is NULL])\r\n",
             lst(lstIdx));
    return -1;
  }
  const uint32_t alen = aclMatchAddrLen(family);
  Rec rec;
  for (AclRuleEntry* rule = firstRule(list); rule != nullptr; rule = nextRule(list, rule)) {
    aclMatchRuleExpand(rule, rec);
    const uint8_t* ruleSrc = rec.data() + ACL_RP_SRC_ADDR;
    const uint8_t* ruleDst = rec.data() + ACL_RP_DEST_ADDR;
    const uint16_t ruleSrcPort = be::load16(rec, ACL_RP_SRC_PORT);
    const uint16_t ruleDstPort = be::load16(rec, ACL_RP_DEST_PORT);
    const uint16_t ruleProto = be::load16(rec, ACL_RP_PROTO_SUBTYPE);
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl ipsec match] info=[filter %d/%d matchRule.srcAddr = "
             "%#x,srcPrefixLen = %d,ipSrcAddress = %#x,matchRule.dstAddr = %#x,ipDstAddress = "
             "%#x]\r\n",
             lst(lstIdx), idx(rule), word(ruleSrc), rec[ACL_RP_SRC_PREFIX_LEN], word(srcAddr),
             word(ruleDst), word(dstAddr));
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl ipsec match] info=[filter %d/%d matchRule.srcPort = %d,srcPort = "
             "%d,matchRule.dstPort = %d,dstPort = %d.pGRule->protoSubType %d,protocol "
             "%d,matchRule.ipVer %d,ipType %d]\r\n",
             lst(lstIdx), idx(rule), ruleSrcPort, srcPort, ruleDstPort, dstPort, ruleProto,
             static_cast<int>(protocol), ipVer(rec), static_cast<int>(family));
    if (!hasField(rule, RULE_BIT_IPVER)) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [acl ipsec match] info=[filter %d/%d is not IP rule]\r\n", lst(lstIdx),
               idx(rule));
      continue;
    }
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl ipsec match] info=[filter %d/%d action = %x %x %x %x]\r\n",
             lst(lstIdx), idx(rule), rule->actionBits[0], rule->actionBits[1], rule->actionBits[2],
             rule->actionBits[3]);
    if ((family != ACL_MATCH_FAMILY_IPV4 && family != ACL_MATCH_FAMILY_IPV6) ||
        ipVer(rec) != family) {
      continue;
    }
    // Each rule address is compared under its own prefix length.
    const uint32_t srcLen = rec[ACL_RP_SRC_PREFIX_LEN];
    const uint32_t dstLen = rec[ACL_RP_DEST_PREFIX_LEN];
    bool addrOk = true;
    if (mode <= ACL_IPSEC_MODE_REVERSE) {
      const bool forward = aclMatchPrefixEqual(srcAddr, ruleSrc, alen, srcLen) &&
                           aclMatchPrefixEqual(dstAddr, ruleDst, alen, dstLen);
      const bool reverse = aclMatchPrefixEqual(srcAddr, ruleDst, alen, dstLen) &&
                           aclMatchPrefixEqual(dstAddr, ruleSrc, alen, srcLen);
      addrOk = mode == ACL_IPSEC_MODE_FORWARD   ? forward
               : mode == ACL_IPSEC_MODE_REVERSE ? reverse
                                                : forward || reverse;
    }
    if (!addrOk) continue;
    if (ruleSrcPort != 0 && ruleSrcPort != srcPort) continue;
    if (ruleDstPort != 0 && ruleDstPort != dstPort) continue;
    if (ruleProto != ACL_IPSEC_ANY_PROTOCOL && ruleProto != protocol) continue;
    if (family == ACL_MATCH_FAMILY_IPV4) {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl ipsec match] info=[filter %d/%d matched]\r\n",
               lst(lstIdx), idx(rule));
    } else {
      aclDebug(ACL_LOG_GLOBAL, "ACL global [acl ipsec match] info=[filter %d/%d (IP6) matched]\r\n",
               lst(lstIdx), idx(rule));
    }
    return 0;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl ipsec match] error. (Reason=[filter-list %d self = %d match "
           "ERROR])\r\n",
           lst(lstIdx), lst(lstIdx));
  return -1;
}

int32_t _aclNatmatchEx(uint32_t lstIdx, std::span<const uint8_t> query) {
  if (query.size() < 4) return ACL_RET_INVALID;
  const uint32_t family = be::load32(query, 0);
  const uint32_t alen = aclMatchAddrLen(family);
  if (query.size() != 4 + alen + 8) return ACL_RET_INVALID;
  return _aclNatMatch(lstIdx, be::load32(query, 4 + alen), query.data() + 4,
                      be::load32(query, 8 + alen), family);
}

int32_t _aclNatMatch(uint32_t lstIdx, uint32_t vrfId, const uint8_t* address, uint32_t prefixLen,
                     uint32_t family) {
  if (address != nullptr) {
    if (const AclCompiledList* c = aclCompiledGet(lstIdx)) {
      return aclCompiledNatMatch(*c, vrfId, family, address, prefixLen);
    }
  }
  AclListEntry* list = aclListEntryGet(lstIdx);
  if (list == nullptr || address == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl NAT match] error. (Reason=[filter-list %d entry is NULL])\r\n",
             lst(lstIdx));
    return -1;
  }
  const AddrQuery q{family, address, prefixLen};
  Rec rec;
  // The highest-numbered rule is tried first.
  for (AclRuleEntry* rule = lastRule(list); rule != nullptr; rule = prevRule(list, rule)) {
    aclMatchRuleExpand(rule, rec);
    const uint32_t ruleVrf = be::load32(rec, ACL_RP_VRF_ID);
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl NAT match] info=[filter %d/%d src IP = %#x, vrfId = %d,match "
             "ipAddress = %#x, vrfId = %d]\r\n",
             lst(lstIdx), idx(rule), word(rec.data() + ACL_RP_SRC_ADDR), static_cast<int>(ruleVrf),
             word(address), static_cast<int>(vrfId));
    if (!hasField(rule, RULE_BIT_IPVER) || !isPermitOrDeny(rule)) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [acl NAT match] info=[filter %d/%d is not an IP rule or action is "
               "ERROR]\r\n",
               lst(lstIdx), idx(rule));
      continue;
    }
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl NAT match] info=[filter %d/%d action = %x %x %x %x ]\r\n",
             lst(lstIdx), idx(rule), rule->actionBits[1], rule->actionBits[2], rule->actionBits[3],
             rule->actionBits[4]);
    if (ruleVrf != vrfId) continue;
    V4Trace t;
    const bool hit = covers(rule, rec, kSrcSide, q, &t);
    if (t.made) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL global [acl NAT match] info=[filter %d/%d ipAddressMask = %#x,ipv4Add = "
               "%#x,srcAddr = %#x, ruleAddr = %#x ]\r\n",
               lst(lstIdx), idx(rule), t.mask, t.query, t.rule, t.ruleMasked);
    }
    if (hit) return hasAction(rule, RULE_ACTION_PERMIT) ? 0 : -1;
  }
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [acl NAT match] error. (Reason=[filter-list %d self = %d match ERROR])\r\n",
           lst(lstIdx), lst(lstIdx));
  return -1;
}

int32_t aclMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen, uint32_t family) {
  return addrService(lstIdx, ACL_MATCH_CMD_ADDR, address, prefixLen, family);
}

int32_t aclMatchEx(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen, uint32_t family,
                   uint8_t* verdict) {
  if (address == nullptr || verdict == nullptr) return CMN_ERR_BAD_PARAM;
  QueryBuilder b;
  b.u32(family);
  b.addr(address, family);
  b.u32(prefixLen);
  const uint32_t verdictAt = b.len;
  b.buf[b.len++] = 0;
  const int32_t ret = b.ask(lstIdx, ACL_MATCH_CMD_ADDR_EX);
  if (ret == 0) *verdict = b.buf[verdictAt];
  return ret;
}

int32_t aclIgmpMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen, uint32_t family) {
  return addrService(lstIdx, ACL_MATCH_CMD_IGMP, address, prefixLen, family);
}

int32_t aclIgmpsnoopMatch(uint32_t lstIdx, const uint8_t* address, uint32_t prefixLen,
                          uint32_t family) {
  return addrService(lstIdx, ACL_MATCH_CMD_IGMPSNOOP, address, prefixLen, family);
}

int32_t aclIpsecMatch(uint32_t lstIdx, const uint8_t* srcAddr, const uint8_t* dstAddr,
                      uint16_t srcPort, uint16_t dstPort, uint32_t family, uint32_t protocol,
                      uint32_t mode) {
  if (srcAddr == nullptr || dstAddr == nullptr) return CMN_ERR_BAD_PARAM;
  QueryBuilder b;
  b.u32(family);
  b.addr(srcAddr, family);
  b.addr(dstAddr, family);
  b.u16(srcPort);
  b.u16(dstPort);
  b.u32(protocol);
  b.u32(mode);
  return b.ask(lstIdx, ACL_MATCH_CMD_IPSEC);
}

int32_t aclNatMatch(uint32_t lstIdx, uint32_t vrfId, const uint8_t* address, uint32_t prefixLen,
                    uint32_t family) {
  if (address == nullptr) return CMN_ERR_BAD_PARAM;
  QueryBuilder b;
  b.u32(family);
  b.addr(address, family);
  b.u32(vrfId);
  b.u32(prefixLen);
  return b.ask(lstIdx, ACL_MATCH_CMD_NAT);
}

void aclMatchInfoPritf(std::span<const uint8_t, ACL_RULE_PARAM_LEN> rec) {
  if ((gaclGrp.debugFlags & kDumpGuard) == 0) return;
  auto line = [](const char* fmt, auto... args) {
    aclDebugStyled(kDumpGuard, ACL_LOG_GLOBAL, ACL_LOG_STYLE_MORE, fmt, args...);
  };
  const auto u16 = [&](uint32_t off) { return static_cast<int>(be::load16(rec, off)); };
  const auto addr = [&](uint32_t off, int i) { return be::load32(rec, off + 4 * i); };
  const auto mac = [&](uint32_t off, int i) { return static_cast<unsigned>(rec[off + i]); };
  const uint8_t eli = rec[ACL_RP_ENCAP_LAYER_IPVER];
  const int ver = eli & 0x3;
  const int protoSubType = u16(ACL_RP_PROTO_SUBTYPE);
  const uint32_t flow = be::load32(rec, ACL_RP_FLOW);
  const uint8_t dot1p = rec[ACL_RP_DOT1P_FLAGS];

  aclDebugStyled(kDumpGuard, ACL_LOG_GLOBAL, ACL_LOG_STYLE_FIRST, "ACL match info\n\r");
  line("%s", "---------------------------------------\n\r");
  line("protoType=%x \n\r", u16(ACL_RP_PROTO_TYPE));
  line("protoSubType=%d \n\r", protoSubType);
  line("encapType=%d \n\r", eli >> 5);
  line("layerType=%d \n\r", (eli >> 2) & 0x7);
  line("ipVer=%d \n\r", ver);
  line("srcAddr=%08x:%08x:%08x:%08x\n\r", addr(ACL_RP_SRC_ADDR, 0), addr(ACL_RP_SRC_ADDR, 1),
       addr(ACL_RP_SRC_ADDR, 2), addr(ACL_RP_SRC_ADDR, 3));
  line("destAddr=%08x:%08x:%08x:%08x\n\r", addr(ACL_RP_DEST_ADDR, 0), addr(ACL_RP_DEST_ADDR, 1),
       addr(ACL_RP_DEST_ADDR, 2), addr(ACL_RP_DEST_ADDR, 3));
  line("tcpFsm=%d \n\r", rec[ACL_RP_TCP_FSM]);
  if (protoSubType == 1) {
    line("icmp type=%d \n\r", u16(ACL_RP_SRC_PORT));
  } else {
    line("srcPort=%d \n\r", u16(ACL_RP_SRC_PORT));
  }
  line("srcEndPort=%d \n\r", u16(ACL_RP_SRC_END_PORT));
  if (protoSubType == 1) {
    line("icmp code=%d \n\r", u16(ACL_RP_DEST_PORT));
  } else {
    line("destPort=%d \n\r", u16(ACL_RP_DEST_PORT));
  }
  line("destEndPort=%d \n\r", u16(ACL_RP_DEST_END_PORT));
  if (ver != 1) {
    line("trafficClass=%d \n\r", rec[ACL_RP_TOS_DSCP]);
    line("hopLimit=%d \n\r", rec[ACL_RP_HOP_LIMIT]);
    line("nextHeader=%d \n\r", static_cast<int>(flow >> 24));
    line("flowLabel=%d \n\r", static_cast<int>((flow >> 4) & 0xFFFFF));
  } else {
    line("tosDscp=%d \n\r", rec[ACL_RP_TOS_DSCP]);
    line("ipOptions=%d \n\r", rec[ACL_RP_HOP_LIMIT] >> 7);
    line("ipFrag=%d \n\r", dot1p & 0x1);
    line("ipTtl=%d \n\r", rec[ACL_RP_IP_TTL]);
  }
  line("srcMac=%02x:%02x:%02x:%02x:%02x:%02x\n\r", mac(ACL_RP_SRC_MAC, 0), mac(ACL_RP_SRC_MAC, 1),
       mac(ACL_RP_SRC_MAC, 2), mac(ACL_RP_SRC_MAC, 3), mac(ACL_RP_SRC_MAC, 4),
       mac(ACL_RP_SRC_MAC, 5));
  line("destMac=%02x:%02x:%02x:%02x:%02x:%02x\n\r", mac(ACL_RP_DEST_MAC, 0),
       mac(ACL_RP_DEST_MAC, 1), mac(ACL_RP_DEST_MAC, 2), mac(ACL_RP_DEST_MAC, 3),
       mac(ACL_RP_DEST_MAC, 4), mac(ACL_RP_DEST_MAC, 5));
  line("dtag=%d innerDot1p=%d outerDot1p=%d \n\r", dot1p >> 7, (dot1p >> 4) & 0x7,
       (dot1p >> 1) & 0x7);
  line("outerVid=%d outerEndVid = %d,innerVid=%d,innerEndVid = %d \n\r", u16(ACL_RP_OUTER_VID),
       u16(ACL_RP_OUTER_END_VID), u16(ACL_RP_INNER_VID), u16(ACL_RP_INNER_END_VID));
  line("ethType=%d \n\r", u16(ACL_RP_ETH_TYPE));
  aclDebugStyled(kDumpGuard, ACL_LOG_GLOBAL, ACL_LOG_STYLE_LAST,
                 "-------------------end--------------------\n\r");
}
