#include "services/acl_match_compiled.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "main/acl_group.h"
#include "main/acl_log.h"
#include "services/acl_match.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/be.h"

namespace {

using Rec = std::array<uint8_t, ACL_RULE_PARAM_LEN>;
constexpr uint32_t kNone = std::numeric_limits<uint32_t>::max();
constexpr uint32_t kAddrLen = 16;

uint64_t mix(uint64_t h, uint64_t x) {
  h = (h ^ x) * 0x9E3779B97F4A7C15ull;
  return h ^ (h >> 29);
}

uint32_t v4Mask(uint32_t n) {
  return n == 0 ? 0 : n >= 32 ? 0xFFFFFFFFu : 0xFFFFFFFFu << (32 - n);
}
uint64_t load64(const uint8_t* p) {
  return be::load64(std::span<const uint8_t>(p, 8), 0);
}
uint64_t topBits64(uint32_t n) {
  return n == 0 ? 0 : n >= 64 ? ~uint64_t{0} : ~uint64_t{0} << (64 - n);
}

// An IPv6 address as two big-endian halves, the key of the IPv6 tuples.
struct V6Key {
  uint64_t hi, lo;
  uint32_t vrf;
  bool operator==(const V6Key&) const = default;
};
struct V6KeyHash {
  size_t operator()(const V6Key& k) const { return mix(mix(mix(0, k.hi), k.lo), k.vrf); }
};

// Tuple space over address prefixes: one hash table per prefix length, from the masked address
// (and VRF) to the first rule, in walk order, that covers every address under that key. A query
// looks up each length its own prefix may use, its address masked the same way, and takes the
// first rule found; the tables are tried in the order of their first rule, so a table that cannot
// beat the rule already found is not looked at.
class PrefixIndex {
 public:
  // A rule that matches every query at walk position pos.
  void addAny(uint32_t pos) { any_ = std::min(any_, pos); }
  void addV4(uint32_t pos, uint32_t vrf, uint32_t len, const uint8_t* addr) {
    if (len > 32) return;  // no IPv4 query can be that long a prefix
    V4Tuple& t = v4Build_[len];
    t.len = len;
    t.mask = v4Mask(len);
    t.minPos = std::min(t.minPos, pos);
    const uint64_t key = (uint64_t{vrf} << 32) | (be::load32(addr) & t.mask);
    t.best.try_emplace(key, pos);  // positions arrive in walk order: the first stays
  }
  void addV6(uint32_t pos, uint32_t vrf, uint32_t len, const uint8_t* addr) {
    if (len > 128) return;
    V6Tuple& t = v6Build_[len];
    t.len = len;
    t.hiMask = topBits64(len);
    t.loMask = topBits64(len > 64 ? len - 64 : 0);
    t.minPos = std::min(t.minPos, pos);
    t.best.try_emplace(V6Key{load64(addr) & t.hiMask, load64(addr + 8) & t.loMask, vrf}, pos);
  }
  void seal() {
    for (auto& [len, t] : v4Build_) v4_.push_back(std::move(t));
    for (auto& [len, t] : v6Build_) v6_.push_back(std::move(t));
    v4Build_.clear();
    v6Build_.clear();
    auto byFirst = [](const auto& a, const auto& b) { return a.minPos < b.minPos; };
    std::sort(v4_.begin(), v4_.end(), byFirst);
    std::sort(v6_.begin(), v6_.end(), byFirst);
  }

  // The first walk position whose rule covers the query, or kNone.
  uint32_t find(uint32_t family, uint32_t vrf, const uint8_t* addr, uint32_t prefixLen) const {
    uint32_t best = any_;
    if (family == ACL_MATCH_FAMILY_IPV4 && prefixLen <= 32) {
      const uint32_t a = be::load32(addr);
      for (const V4Tuple& t : v4_) {
        if (t.minPos >= best) break;
        if (prefixLen < t.len) continue;
        const auto it = t.best.find((uint64_t{vrf} << 32) | (a & t.mask));
        if (it != t.best.end()) best = std::min(best, it->second);
      }
    } else if (family == ACL_MATCH_FAMILY_IPV6 && prefixLen <= 128) {
      const uint64_t hi = load64(addr);
      const uint64_t lo = load64(addr + 8);
      for (const V6Tuple& t : v6_) {
        if (t.minPos >= best) break;
        if (prefixLen < t.len) continue;
        const auto it = t.best.find(V6Key{hi & t.hiMask, lo & t.loMask, vrf});
        if (it != t.best.end()) best = std::min(best, it->second);
      }
    }
    return best;
  }

 private:
  struct V4Tuple {
    uint32_t len = 0;
    uint32_t mask = 0;
    uint32_t minPos = kNone;
    std::unordered_map<uint64_t, uint32_t> best;
  };
  struct V6Tuple {
    uint32_t len = 0;
    uint64_t hiMask = 0, loMask = 0;
    uint32_t minPos = kNone;
    std::unordered_map<V6Key, uint32_t, V6KeyHash> best;
  };
  uint32_t any_ = kNone;
  std::vector<V4Tuple> v4_;
  std::vector<V6Tuple> v6_;
  std::map<uint32_t, V4Tuple> v4Build_;
  std::map<uint32_t, V6Tuple> v6Build_;
};

// One address of a rule as the address matchers read it.
struct Side {
  bool present = false;  // the rule carries both the address and its prefix length
  bool zero = false;     // address of 16 zero bytes and prefix length 0: matches everything
  uint8_t len = 0;
  const uint8_t* addr = nullptr;  // into the record being compiled
};

Side sideOf(const AclRuleEntry* rule, const Rec& rec, uint32_t addrCode, uint32_t lenCode,
            uint32_t addrOff, uint32_t lenOff) {
  Side s;
  s.present = aclBitTest(rule->fieldBits, addrCode) && aclBitTest(rule->fieldBits, lenCode);
  s.len = rec[lenOff];
  s.addr = rec.data() + addrOff;
  s.zero = s.len == 0 && std::all_of(s.addr, s.addr + kAddrLen, [](uint8_t b) { return b == 0; });
  return s;
}

// Files a rule's address into idx the way covers() compares it.
void indexSide(PrefixIndex& idx, uint32_t pos, uint8_t ver, uint32_t vrf, const Side& s) {
  if (!s.present) return;
  if (ver == ACL_MATCH_FAMILY_IPV4) idx.addV4(pos, vrf, s.len, s.addr);
  if (ver == ACL_MATCH_FAMILY_IPV6) idx.addV6(pos, vrf, s.len, s.addr);
}

// An IPsec rule: every rule with an IP version, in order, with its decoded fields.
struct IpsecRule {
  uint8_t ver;
  uint8_t srcLen, dstLen;
  uint16_t srcPort, dstPort, proto;
  std::array<uint8_t, kAddrLen> src, dst;
};

// A CPU-defend rule: its whole-field tests folded into one mask and value over the packet record
// bytes any rule of the list looks at (gathered into 64-bit words), plus its range tests.
struct Range {
  uint16_t off;
  uint16_t lo, hi;
};
struct PktRule {
  uint8_t verdict;
  uint32_t rangeBegin, rangeEnd;
};

// Masks and values of one rule over the whole record, while compiling.
struct RecMask {
  Rec mask{};
  Rec val{};
  bool never = false;  // a test no packet can pass
  std::vector<Range> ranges;

  void set(uint32_t off, uint8_t m, uint8_t v) {
    mask[off] |= m;
    val[off] = static_cast<uint8_t>((val[off] & ~m) | (v & m));
  }
  void bytes(uint32_t off, uint32_t n, const Rec& r) {
    for (uint32_t i = 0; i < n; ++i) set(off + i, 0xFF, r[off + i]);
  }
};

bool has(const AclRuleEntry* rule, uint32_t code) {
  return aclBitTest(rule->fieldBits, code);
}

// The tests of the CPU-defend match (ruleAccepts) as masks, values and ranges.
RecMask packetTests(const AclRuleEntry* rule, const Rec& r) {
  RecMask m;
  auto equal8 = [&](uint32_t code, uint32_t off) {
    if (has(rule, code)) m.bytes(off, 1, r);
  };
  auto equal16 = [&](uint32_t code, uint32_t off) {
    if (has(rule, code)) m.bytes(off, 2, r);
  };
  auto bits = [&](uint32_t code, uint32_t off, uint32_t shift, uint32_t width) {
    if (!has(rule, code)) return;
    const auto mk = static_cast<uint8_t>(((1u << width) - 1) << shift);
    m.set(off, mk, r[off]);
  };
  auto range = [&](uint32_t code, uint32_t endCode, uint32_t off, uint32_t endOff) {
    if (!has(rule, code)) return;
    if (has(rule, endCode)) {
      m.ranges.push_back({static_cast<uint16_t>(off), be::load16(r, off), be::load16(r, endOff)});
    } else {
      m.bytes(off, 2, r);
    }
  };
  auto masked = [&](uint32_t prefixCode, uint32_t strCode, uint32_t off, uint32_t prefixOff,
                    uint32_t strOff, uint32_t len) {
    if (has(rule, prefixCode)) {
      const uint32_t n = std::min<uint32_t>(r[prefixOff], len * 8);
      for (uint32_t i = 0; i < len; ++i) {
        const uint32_t bitsHere = n >= (i + 1) * 8 ? 8 : n > i * 8 ? n - i * 8 : 0;
        const auto mk = static_cast<uint8_t>(0xFF00u >> bitsHere);
        m.set(off + i, mk, r[off + i]);
      }
    } else if (has(rule, strCode)) {
      for (uint32_t i = 0; i < len; ++i) {
        const uint8_t rv = r[off + i];
        const uint8_t sv = r[strOff + i];
        if ((sv & ~rv) != 0) m.never = true;  // (packet & rule) can never have that bit
        m.set(off + i, rv, sv);
      }
    } else {
      m.bytes(off, len, r);
    }
  };
  auto address = [&](uint32_t code, uint32_t prefixCode, uint32_t strCode, uint32_t off,
                     uint32_t prefixOff, uint32_t strOff) {
    if (!has(rule, code)) return;
    if (std::all_of(r.begin() + off, r.begin() + off + kAddrLen,
                    [](uint8_t b) { return b == 0; })) {
      return;  // any address
    }
    masked(prefixCode, strCode, off, prefixOff, strOff, kAddrLen);
  };
  auto mac = [&](uint32_t code, uint32_t prefixCode, uint32_t strCode, uint32_t off,
                 uint32_t prefixOff, uint32_t strOff) {
    if (has(rule, code)) masked(prefixCode, strCode, off, prefixOff, strOff, 6);
  };

  equal16(RULE_BIT_PROTOTYPE, ACL_RP_PROTO_TYPE);
  equal16(RULE_BIT_PROTOSUBTYPE, ACL_RP_PROTO_SUBTYPE);
  bits(RULE_BIT_IPVER, ACL_RP_ENCAP_LAYER_IPVER, 0, 2);
  address(RULE_BIT_SRCADDR, RULE_BIT_SRCPREFIX, RULE_BIT_SRCSTRPREFIX, ACL_RP_SRC_ADDR,
          ACL_RP_SRC_PREFIX_LEN, ACL_RP_SRC_STR_PREFIX);
  address(RULE_BIT_DSTADDR, RULE_BIT_DSTPREFIX, RULE_BIT_DSTSTRPREFIX, ACL_RP_DEST_ADDR,
          ACL_RP_DEST_PREFIX_LEN, ACL_RP_DST_STR_PREFIX);
  range(RULE_BIT_SRCPORT, RULE_BIT_SRCENDPORT, ACL_RP_SRC_PORT, ACL_RP_SRC_END_PORT);
  range(RULE_BIT_DSTPORT, RULE_BIT_DSTENDPORT, ACL_RP_DEST_PORT, ACL_RP_DEST_END_PORT);
  equal8(RULE_BIT_TCPFSM, ACL_RP_TCP_FSM);
  equal8(RULE_BIT_IPTOS, ACL_RP_TOS_DSCP);
  equal8(RULE_BIT_IPDSCP, ACL_RP_TOS_DSCP);
  equal8(RULE_BIT_IPPRECEDENCE, ACL_RP_TOS_DSCP);
  equal8(RULE_BIT_IPTTL, ACL_RP_IP_TTL);
  bits(RULE_BIT_IPFRAGMENT, ACL_RP_DOT1P_FLAGS, 0, 1);
  equal8(RULE_BIT_TRAFFICCLASS, ACL_RP_TOS_DSCP);
  equal8(RULE_BIT_HOPLIMIT, ACL_RP_HOP_LIMIT);
  equal8(RULE_BIT_NEXTHEADER, ACL_RP_FLOW);  // the top byte of the flow word
  bits(RULE_BIT_OUTPRI, ACL_RP_DOT1P_FLAGS, 1, 3);
  range(RULE_BIT_OUTVID, RULE_BIT_OUTENDVID, ACL_RP_OUTER_VID, ACL_RP_OUTER_END_VID);
  bits(RULE_BIT_INPRI, ACL_RP_DOT1P_FLAGS, 4, 3);
  range(RULE_BIT_INVID, RULE_BIT_INENDVID, ACL_RP_INNER_VID, ACL_RP_INNER_END_VID);
  equal16(RULE_BIT_ETHTYPE, ACL_RP_ETH_TYPE);
  mac(RULE_BIT_SRCMAC, RULE_BIT_SRCMACPREFIX, RULE_BIT_SRCMACSTRPREFIX, ACL_RP_SRC_MAC,
      ACL_RP_SRC_MAC_PREFIX_LEN, ACL_RP_SRC_MAC_STR_PREFIX);
  mac(RULE_BIT_DSTMAC, RULE_BIT_DSTMACPREFIX, RULE_BIT_DSTMACSTRPREFIX, ACL_RP_DEST_MAC,
      ACL_RP_DST_MAC_PREFIX_LEN, ACL_RP_DST_MAC_STR_PREFIX);
  equal16(RULE_BIT_ICMPTYPE, ACL_RP_SRC_PORT);
  equal16(RULE_BIT_ICMPCODE, ACL_RP_DEST_PORT);
  return m;
}

uint8_t permitFirst(const AclRuleEntry* rule) {
  return aclBitTest(rule->actionBits, RULE_ACTION_PERMIT) ? ACL_MATCH_VERDICT_PERMIT
         : aclBitTest(rule->actionBits, RULE_ACTION_DENY) ? ACL_MATCH_VERDICT_DENY
                                                          : ACL_MATCH_VERDICT_NONE;
}
uint8_t denyFirst(const AclRuleEntry* rule) {
  return aclBitTest(rule->actionBits, RULE_ACTION_DENY)     ? ACL_MATCH_VERDICT_DENY
         : aclBitTest(rule->actionBits, RULE_ACTION_PERMIT) ? ACL_MATCH_VERDICT_PERMIT
                                                            : ACL_MATCH_VERDICT_NONE;
}

}  // namespace

class AclCompiledList {
 public:
  explicit AclCompiledList(AclListEntry* list);

  // Address matchers: the walk position found and the verdict at each position.
  PrefixIndex addr, mcast, nat;
  std::vector<uint8_t> addrVerdict, mcastVerdict, natVerdict;
  std::vector<IpsecRule> ipsec;

  // CPU-defend packet match.
  std::vector<uint16_t> gather;  // record offsets gathered into the key, 8 to a word
  uint32_t words = 0;
  std::vector<uint64_t> pktMask, pktVal;  // words per rule
  std::vector<PktRule> pkt;
  std::vector<Range> ranges;
  struct Tuple {
    std::vector<uint64_t> mask;
    uint32_t minPos = kNone;
    std::unordered_map<uint64_t, std::vector<uint32_t>> buckets;  // by the hash of the value
  };
  std::vector<Tuple> tuples;

  uint64_t keyHash(const uint64_t* key, const uint64_t* mask) const {
    uint64_t h = 0;
    for (uint32_t w = 0; w < words; ++w) h = mix(h, key[w] & mask[w]);
    return h;
  }

 private:
  void addPacketRule(const AclRuleEntry* rule, const RecMask& m);
  void sealPackets(const std::vector<RecMask>& masks);
};

AclCompiledList::AclCompiledList(AclListEntry* list) {
  Rec rec;
  std::vector<AclRuleEntry*> rules;
  for (auto* r = static_cast<AclRuleEntry*>(avl_first(&list->ruleTree)); r != nullptr;
       r = static_cast<AclRuleEntry*>(avl_next(&list->ruleTree, r))) {
    rules.push_back(r);
  }
  std::vector<RecMask> packetMasks;
  std::vector<const AclRuleEntry*> packetRules;
  struct NatRule {
    uint8_t verdict, ver;
    bool present;
    uint8_t len;
    uint32_t vrf;
    std::array<uint8_t, kAddrLen> addr;
  };
  std::vector<NatRule> natRules;
  const auto n = static_cast<uint32_t>(rules.size());
  for (uint32_t i = 0; i < n; ++i) {
    AclRuleEntry* rule = rules[i];
    aclMatchRuleExpand(rule, rec);
    const bool ip = has(rule, RULE_BIT_IPVER);
    const bool pd = aclBitTest(rule->actionBits, RULE_ACTION_PERMIT) ||
                    aclBitTest(rule->actionBits, RULE_ACTION_DENY);
    const uint8_t ver = rec[ACL_RP_ENCAP_LAYER_IPVER] & 0x3;
    const Side src = sideOf(rule, rec, RULE_BIT_SRCADDR, RULE_BIT_SRCPREFIX, ACL_RP_SRC_ADDR,
                            ACL_RP_SRC_PREFIX_LEN);
    const Side dst = sideOf(rule, rec, RULE_BIT_DSTADDR, RULE_BIT_DSTPREFIX, ACL_RP_DEST_ADDR,
                            ACL_RP_DEST_PREFIX_LEN);
    if (ip) {
      const auto pos = static_cast<uint32_t>(addrVerdict.size());
      addrVerdict.push_back(permitFirst(rule));
      if (src.zero) {
        addr.addAny(pos);
      } else {
        indexSide(addr, pos, ver, 0, src);
      }
      IpsecRule ir{ver,
                   rec[ACL_RP_SRC_PREFIX_LEN],
                   rec[ACL_RP_DEST_PREFIX_LEN],
                   be::load16(rec, ACL_RP_SRC_PORT),
                   be::load16(rec, ACL_RP_DEST_PORT),
                   be::load16(rec, ACL_RP_PROTO_SUBTYPE),
                   {},
                   {}};
      std::copy_n(src.addr, kAddrLen, ir.src.begin());
      std::copy_n(dst.addr, kAddrLen, ir.dst.begin());
      ipsec.push_back(ir);
    }
    if (ip && pd) {
      NatRule nr{permitFirst(rule), ver, src.present, src.len, be::load32(rec, ACL_RP_VRF_ID), {}};
      std::copy_n(src.addr, kAddrLen, nr.addr.begin());
      natRules.push_back(nr);
      const auto pos = static_cast<uint32_t>(mcastVerdict.size());
      mcastVerdict.push_back(permitFirst(rule));
      if (dst.zero) {
        mcast.addAny(pos);
      } else {
        indexSide(mcast, pos, ver, 0, dst);
      }
    }
    if (rule->status == ACL_RULE_STATUS_VALID) {
      RecMask m = packetTests(rule, rec);
      if (!m.never) {
        packetMasks.push_back(std::move(m));
        packetRules.push_back(rule);
      }
    }
  }
  // NAT walks from the highest-numbered rule down.
  for (size_t i = natRules.size(); i-- > 0;) {
    const NatRule& r = natRules[i];
    const auto pos = static_cast<uint32_t>(natVerdict.size());
    natVerdict.push_back(r.verdict);
    const Side src{r.present, false, r.len, r.addr.data()};
    indexSide(nat, pos, r.ver, r.vrf, src);
  }
  addr.seal();
  mcast.seal();
  nat.seal();

  // The bytes any packet rule looks at become the key.
  std::array<bool, ACL_RULE_PARAM_LEN> used{};
  for (const RecMask& m : packetMasks) {
    for (uint32_t b = 0; b < ACL_RULE_PARAM_LEN; ++b) used[b] = used[b] || m.mask[b] != 0;
  }
  for (uint32_t b = 0; b < ACL_RULE_PARAM_LEN; ++b) {
    if (used[b]) gather.push_back(static_cast<uint16_t>(b));
  }
  words = std::max<uint32_t>(1, static_cast<uint32_t>((gather.size() + 7) / 8));
  for (size_t i = 0; i < packetMasks.size(); ++i) {
    pkt.push_back({denyFirst(packetRules[i]), 0, 0});
    addPacketRule(packetRules[i], packetMasks[i]);
  }
  sealPackets(packetMasks);
}

void AclCompiledList::addPacketRule(const AclRuleEntry* /*rule*/, const RecMask& m) {
  PktRule& p = pkt.back();
  p.rangeBegin = static_cast<uint32_t>(ranges.size());
  ranges.insert(ranges.end(), m.ranges.begin(), m.ranges.end());
  p.rangeEnd = static_cast<uint32_t>(ranges.size());
  const size_t base = pktMask.size();
  pktMask.resize(base + words, 0);
  pktVal.resize(base + words, 0);
  for (size_t i = 0; i < gather.size(); ++i) {
    const uint32_t shift = 8 * (i % 8);
    pktMask[base + i / 8] |= uint64_t{m.mask[gather[i]]} << shift;
    pktVal[base + i / 8] |= uint64_t{m.val[gather[i]]} << shift;
  }
}

void AclCompiledList::sealPackets(const std::vector<RecMask>& /*masks*/) {
  std::map<std::vector<uint64_t>, uint32_t> byMask;
  for (uint32_t pos = 0; pos < pkt.size(); ++pos) {
    const uint64_t* mk = pktMask.data() + size_t{pos} * words;
    std::vector<uint64_t> key(mk, mk + words);
    auto [it, added] = byMask.try_emplace(key, static_cast<uint32_t>(tuples.size()));
    if (added) tuples.push_back({key, pos, {}});
    Tuple& t = tuples[it->second];
    t.buckets[keyHash(pktVal.data() + size_t{pos} * words, mk)].push_back(pos);
  }
  std::sort(tuples.begin(), tuples.end(),
            [](const Tuple& a, const Tuple& b) { return a.minPos < b.minPos; });
}

namespace {

struct Cache {
  uint64_t gen = 0;
  std::unordered_map<uint32_t, std::unique_ptr<AclCompiledList>> lists;
  uint32_t lastIdx = 0;
  const AclCompiledList* last = nullptr;
};
Cache& cache() {
  static Cache c;
  return c;
}

}  // namespace

const AclCompiledList* aclCompiledGet(uint32_t lstIdx) {
  if (!aclQueryHold()) return nullptr;
  if ((gaclGrp.debugFlags & aclLogGuard(ACL_LOG_GLOBAL)) != 0) return nullptr;
  Cache& c = cache();
  const uint64_t gen = aclStoreGen();
  if (c.gen != gen) {
    // Something may have changed: every compiled list goes, those of deleted lists with them.
    c.lists.clear();
    c.last = nullptr;
    c.gen = gen;
  }
  if (c.last != nullptr && c.lastIdx == lstIdx) return c.last;
  auto it = c.lists.find(lstIdx);
  if (it == c.lists.end()) {
    AclListEntry* list = aclListEntryGet(lstIdx);
    if (list == nullptr) return nullptr;
    it = c.lists.emplace(lstIdx, std::make_unique<AclCompiledList>(list)).first;
  }
  c.lastIdx = lstIdx;
  c.last = it->second.get();
  return c.last;
}

size_t aclCompiledCount() {
  Cache& c = cache();
  return c.gen == aclStoreGen() ? c.lists.size() : 0;
}

uint8_t aclCompiledAddrMatch(const AclCompiledList& c, uint32_t family, const uint8_t* addr,
                             uint32_t prefixLen) {
  const uint32_t pos = c.addr.find(family, 0, addr, prefixLen);
  return pos == kNone ? 0 : c.addrVerdict[pos];
}

int32_t aclCompiledMulticastMatch(const AclCompiledList& c, uint32_t family, const uint8_t* addr,
                                  uint32_t prefixLen) {
  const uint32_t pos = c.mcast.find(family, 0, addr, prefixLen);
  return pos != kNone && c.mcastVerdict[pos] == ACL_MATCH_VERDICT_PERMIT ? 0 : -1;
}

int32_t aclCompiledNatMatch(const AclCompiledList& c, uint32_t vrfId, uint32_t family,
                            const uint8_t* addr, uint32_t prefixLen) {
  const uint32_t pos = c.nat.find(family, vrfId, addr, prefixLen);
  return pos != kNone && c.natVerdict[pos] == ACL_MATCH_VERDICT_PERMIT ? 0 : -1;
}

int32_t aclCompiledIpsecMatch(const AclCompiledList& c, const uint8_t* srcAddr,
                              const uint8_t* dstAddr, uint16_t srcPort, uint16_t dstPort,
                              uint32_t family, uint32_t protocol, uint32_t mode) {
  if (family != ACL_MATCH_FAMILY_IPV4 && family != ACL_MATCH_FAMILY_IPV6) return -1;
  const uint32_t alen = aclMatchAddrLen(family);
  for (const IpsecRule& r : c.ipsec) {
    if (r.ver != family) continue;
    if (mode <= ACL_IPSEC_MODE_REVERSE) {
      auto forward = [&] {
        return aclMatchPrefixEqual(srcAddr, r.src.data(), alen, r.srcLen) &&
               aclMatchPrefixEqual(dstAddr, r.dst.data(), alen, r.dstLen);
      };
      auto reverse = [&] {
        return aclMatchPrefixEqual(srcAddr, r.dst.data(), alen, r.dstLen) &&
               aclMatchPrefixEqual(dstAddr, r.src.data(), alen, r.srcLen);
      };
      const bool ok = mode == ACL_IPSEC_MODE_FORWARD   ? forward()
                      : mode == ACL_IPSEC_MODE_REVERSE ? reverse()
                                                       : forward() || reverse();
      if (!ok) continue;
    }
    if (r.srcPort != 0 && r.srcPort != srcPort) continue;
    if (r.dstPort != 0 && r.dstPort != dstPort) continue;
    if (r.proto != ACL_IPSEC_ANY_PROTOCOL && r.proto != protocol) continue;
    return 0;
  }
  return -1;
}

int32_t aclCompiledCpuDefendMatch(const AclCompiledList& c,
                                  std::span<const uint8_t, ACL_RULE_PARAM_LEN> pkt,
                                  uint8_t* verdict) {
  if (c.pkt.empty()) return -1;
  // The packet's bytes that some rule looks at, packed as the rules' masks are.
  constexpr uint32_t kStackWords = 16;
  std::array<uint64_t, kStackWords> small{};
  std::vector<uint64_t> big;
  uint64_t* key = small.data();
  if (c.words > kStackWords) {
    big.assign(c.words, 0);
    key = big.data();
  }
  for (size_t i = 0; i < c.gather.size(); ++i) {
    key[i / 8] |= uint64_t{pkt[c.gather[i]]} << (8 * (i % 8));
  }
  uint32_t best = kNone;
  for (const AclCompiledList::Tuple& t : c.tuples) {
    if (t.minPos >= best) break;
    const auto it = t.buckets.find(c.keyHash(key, t.mask.data()));
    if (it == t.buckets.end()) continue;
    for (const uint32_t pos : it->second) {
      if (pos >= best) break;
      const uint64_t* mk = c.pktMask.data() + size_t{pos} * c.words;
      const uint64_t* val = c.pktVal.data() + size_t{pos} * c.words;
      bool ok = true;
      for (uint32_t w = 0; ok && w < c.words; ++w) ok = (key[w] & mk[w]) == val[w];
      const PktRule& r = c.pkt[pos];
      for (uint32_t i = r.rangeBegin; ok && i < r.rangeEnd; ++i) {
        const uint16_t v = be::load16(pkt, c.ranges[i].off);
        ok = v >= c.ranges[i].lo && v <= c.ranges[i].hi;
      }
      if (ok) {
        best = pos;
        break;
      }
    }
  }
  if (best == kNone) return -1;
  if (verdict != nullptr) *verdict = c.pkt[best].verdict;
  return 0;
}
