// The shell's views of the ACL group, its lists and their rules: the help text, the group summary,
// the rule listing through the rule functions, and the rule parameter records and stored entries
// read straight from the store.
#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

#include "api/acl_lst_api.h"
#include "api/acl_rule_api.h"
#include "diag/acl_shell.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "platform/proc.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "store/acl_rule_trans.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

using plat::shellPrintf;

namespace {

constexpr int32_t kGetFailed = -1;

int i32(uint32_t v) {
  return static_cast<int>(v);
}

// --- the management functions, as the shell calls them ---

bool lstValue(uint32_t lstIdx, uint32_t cmd, uint32_t* out) {
  uint8_t word[4] = {};
  const int32_t ret = aclLstGetApi(lstIdx, cmd, reinterpret_cast<uintptr_t>(word));
  *out = be::load32(word, 0);
  return ret == 0;
}

struct RuleKey {
  std::array<uint8_t, ACL_RULE_KEY_LEN> bytes{};
  RuleKey(uint32_t lstIdx, uint32_t ruleIdx, uint32_t filter = 0) {
    be::store32(bytes, ACL_RULE_KEY_LST, lstIdx);
    be::store32(bytes, ACL_RULE_KEY_RULE, ruleIdx);
    be::store32(bytes, ACL_RULE_KEY_FILTER, filter);
  }
  uintptr_t addr() const { return reinterpret_cast<uintptr_t>(bytes.data()); }
  uint32_t lst() const { return be::load32(bytes, ACL_RULE_KEY_LST); }
  uint32_t rule() const { return be::load32(bytes, ACL_RULE_KEY_RULE); }
};

// A value get: its result, the word in *out.
int32_t ruleValue(const RuleKey& key, uint32_t cmd, uint32_t* out) {
  uint8_t word[4] = {};
  const int32_t ret = aclRuleGetApi(key.addr(), cmd, reinterpret_cast<uintptr_t>(word));
  *out = be::load32(word, 0);
  return ret;
}

// A descriptor get into area (zeroed first); the length answered in *len.
int32_t ruleBytes(const RuleKey& key, uint32_t cmd, std::span<uint8_t> area, uint32_t* len) {
  std::fill(area.begin(), area.end(), 0);
  wire::BufDesc d{area.data(), static_cast<uint32_t>(area.size())};
  const int32_t ret = aclRuleGetApi(key.addr(), cmd, reinterpret_cast<uintptr_t>(&d));
  *len = d.len;
  return ret;
}

void valueLine(const RuleKey& key, uint32_t cmd, const char* format) {
  uint32_t v = 0;
  if (ruleValue(key, cmd, &v) != kGetFailed) shellPrintf(format, i32(v));
}

void addrLine(const RuleKey& key, uint32_t cmd, const char* format) {
  std::array<uint8_t, 16> a;
  uint32_t len = 0;
  if (ruleBytes(key, cmd, a, &len) == kGetFailed) return;
  shellPrintf(format, be::load32(a, 0), be::load32(a, 4), be::load32(a, 8), be::load32(a, 12));
}

void maskLine(const RuleKey& key, uint32_t cmd, const char* format) {
  std::array<uint8_t, 16> a;
  uint32_t len = 0;
  if (ruleBytes(key, cmd, a, &len) == kGetFailed) return;
  shellPrintf(format, a[0], a[1], a[2], a[3]);
}

void macLine(const RuleKey& key, uint32_t cmd, const char* format) {
  std::array<uint8_t, 16> a;
  uint32_t len = 0;
  if (ruleBytes(key, cmd, a, &len) == kGetFailed) return;
  shellPrintf(format, a[0], a[1], a[2], a[3], a[4], a[5]);
}

// The lines of one rule after its status, each only where its get answers.
void ruleDetail(const RuleKey& key) {
  std::array<uint8_t, ACL_FIELD_BITS_LEN> bits;
  uint32_t len = 0;
  valueLine(key, 2, " tag=%d\r\n");
  const bool haveBits = ruleBytes(key, ACL_RULE_CMD_FIELD_BITS, bits, &len) != kGetFailed;
  if (haveBits) {
    shellPrintf(" filed=%02x-%02x-%02x-%02x-%02x-%02x-%02x-%02x\r\n", bits[0], bits[1], bits[2],
                bits[3], bits[4], bits[5], bits[6], bits[7]);
  }
  valueLine(key, 2, " tag=%d\r\n");
  valueLine(key, 3, " encap type=%d\r\n");
  valueLine(key, 4, " layer=%d\r\n");
  valueLine(key, 5, " proto=%d\r\n");
  valueLine(key, 6, " sub-proto=%d\r\n");
  valueLine(key, 7, " ip-ver=%d\r\n");
  addrLine(key, ACL_RULE_CMD_SRCADDR, " src-ip=0x%x 0x%x 0x%x 0x%x\r\n");
  maskLine(key, ACL_RULE_CMD_SRCSTRPREFIX, " src-ipmask=%d.%d.%d.%d\r\n");
  addrLine(key, ACL_RULE_CMD_DSTADDR, " dst-ip=0x%x 0x%x 0x%x 0x%x\r\n");
  maskLine(key, ACL_RULE_CMD_DSTSTRPREFIX, " dst-ipmask=%d.%d.%d.%d\r\n");
  valueLine(key, 14, " min-srcport=%d\r\n");
  valueLine(key, 15, " max-srcport=%d\r\n");
  valueLine(key, 16, " min-dstport=%d\r\n");
  valueLine(key, 17, " max-dtsport=%d\r\n");
  valueLine(key, 18, " tcp-fsm=%d\r\n");
  valueLine(key, 19, " ip-tos=%d\r\n");
  valueLine(key, 20, " ip-dscp=%d\r\n");
  valueLine(key, 21, " ip-ttl=%d\r\n");
  valueLine(key, 22, " ip-frag=%d\r\n");
  valueLine(key, 23, " ip-option=%d\r\n");
  valueLine(key, 86, " ip-totalLen=%d\r\n");
  valueLine(key, 28, " app type=%d\r\n");
  valueLine(key, 29, " provider-pri=%d\r\n");
  valueLine(key, 30, " provider-vid=%d\r\n");
  valueLine(key, 51, " max provider-vid =%d\r\n");
  valueLine(key, 31, " customer-pri=%d\r\n");
  valueLine(key, 32, " customer-vid=%d\r\n");
  valueLine(key, 52, " max customer-vid=%d\r\n");
  valueLine(key, 33, " eth type=%d\r\n");
  valueLine(key, ACL_RULE_CMD_MULTICASTGEM, " multicast-gem =%d\r\n");
  macLine(key, ACL_RULE_CMD_SRCMAC, " src-mac=%02x:%02x:%02x:%02x:%02x:%02x\r\n");
  macLine(key, ACL_RULE_CMD_SRCMACSTRPREFIX, " src mac-prefix=%02x:%02x:%02x:%02x:%02x:%02x\r\n");
  macLine(key, ACL_RULE_CMD_DSTMAC, " dst-mac=%02x:%02x:%02x:%02x:%02x:%02x\r\n");
  macLine(key, ACL_RULE_CMD_DSTMACSTRPREFIX, " dst mac-prefix=%02x:%02x:%02x:%02x:%02x:%02x\r\n");
  valueLine(key, ACL_RULE_CMD_CARID, " QoS CAR index=%d\r\n");
  valueLine(key, ACL_RULE_CMD_METERID, " QoS meter index=%d\r\n");
  valueLine(key, ACL_RULE_CMD_TRID, " timerange index=%d\r\n");
  valueLine(key, 46, " lookup=0x%x\r\n");
  valueLine(key, 47, " lookup mask=0x%x\r\n");
  if (haveBits && aclBitTest(bits, RULE_BIT_USERDEFINED)) {
    std::array<uint8_t, ACL_RULE_UDF_LEN> udf;
    if (ruleBytes(key, ACL_RULE_CMD_USERDEFINED, udf, &len) != kGetFailed) {
      for (uint32_t n = 0; n < ACL_RULE_UDF_NUM; ++n) {
        const uint32_t at = n * ACL_RULE_UDF_RECORD_LEN;
        shellPrintf(" userDef[%d].userData=%d\n\r", i32(n), i32(be::load32(udf, at)));
        shellPrintf(" userDef[%d].userDataMask=%d\n\r", i32(n), i32(be::load32(udf, at + 4)));
        shellPrintf(" userDef[%d].userDataOffset=%d\n\r", i32(n), i32(be::load32(udf, at + 8)));
      }
    }
  }
  valueLine(key, 76, " VXLAN flag=0x%x\r\n");
  valueLine(key, 79, " VXLAN transit=0x%x\r\n");
  valueLine(key, 78, " VXLAN TAG=0x%x\r\n");
  valueLine(key, 77, " VXLAN VNI=0x%x\r\n");
  if (haveBits && aclBitTest(bits, RULE_BIT_ACTION)) {
    std::array<uint8_t, ACL_ACTION_BITS_LEN> a;
    if (ruleBytes(key, ACL_RULE_CMD_ACTION, a, &len) != kGetFailed) {
      shellPrintf(" action =%x %x %x %x\r\n", a[0], a[1], a[2], a[3]);
    }
  }
  std::array<uint8_t, 256> params;
  if (haveBits && aclBitTest(bits, RULE_BIT_ACTIONPARAM) &&
      ruleBytes(key, ACL_RULE_CMD_ACTIONPARAM, params, &len) != kGetFailed) {
    shellPrintf("[aclTst]len = %d\r\n", i32(len));
    for (uint32_t w = 0; w + 4 <= len && w + 4 <= params.size(); w += 4) {
      shellPrintf(" act param[%d]=0x%x\r\n", i32(w / 4), be::load32(params, w));
    }
  }
  if (haveBits && aclBitTest(bits, RULE_BIT_OUTACTION)) {
    std::array<uint8_t, ACL_OUT_ACTION_BITS_LEN> a;
    if (ruleBytes(key, ACL_RULE_CMD_OUTACTION, a, &len) != kGetFailed) {
      shellPrintf(" out act=%x %x\r\n", a[0], a[1]);
    }
  }
  if (haveBits && aclBitTest(bits, RULE_BIT_OUTACTIONPARAM) &&
      ruleBytes(key, ACL_RULE_CMD_OUTACTIONPARAM, params, &len) != kGetFailed) {
    shellPrintf("[aclTst]len = %d\r\n", i32(len));
    for (uint32_t w = 0; w + 4 <= len && w + 4 <= params.size(); w += 4) {
      shellPrintf("out  act param[%d]=0x%x\r\n", i32(w / 4), be::load32(params, w));
    }
  }
}

void ruleWalk(uint32_t lstIdx, uint32_t filter) {
  RuleKey key(lstIdx, 0, filter);
  if (aclRuleGetFirst(key.addr(), 0, 0) != 0) return;
  for (;;) {
    shellPrintf("\n\r**********  acl %d rule %u  *********************\r\n", i32(key.lst()),
                key.rule());
    uint32_t status = 0;
    if (ruleValue(key, ACL_RULE_CMD_STATUS, &status) == 0) {
      shellPrintf(" status=%d\r\n", i32(status));
      if (status != 0) ruleDetail(key);
    }
    RuleKey next(0, 0, filter);
    if (aclRuleGetNext(key.addr(), next.addr(), 0) != 0) return;
    be::store32(next.bytes, ACL_RULE_KEY_FILTER, filter);
    key = next;
  }
}

// --- the store, read directly ---

AclListEntry* listFirst() {
  return static_cast<AclListEntry*>(avl_first(&gaclGrp.listTree));
}
AclListEntry* listNext(AclListEntry* l) {
  return static_cast<AclListEntry*>(avl_next(&gaclGrp.listTree, l));
}
AclRuleEntry* ruleFirst(AclListEntry* l) {
  return static_cast<AclRuleEntry*>(avl_first(&l->ruleTree));
}
AclRuleEntry* ruleNext(AclListEntry* l, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&l->ruleTree, r));
}

void paramRecordLines(std::span<const uint8_t, ACL_RULE_PARAM_LEN> p) {
  auto u8 = [&](uint32_t at) { return static_cast<unsigned>(p[at]); };
  auto u16 = [&](uint32_t at) { return static_cast<unsigned>(be::load16(p, at)); };
  auto u32 = [&](uint32_t at) { return static_cast<unsigned>(be::load32(p, at)); };
  auto mac = [&](const char* label, uint32_t at) {
    shellPrintf("%s=%x:%x:%x:%x:%x:%x\r\n", label, u8(at), u8(at + 1), u8(at + 2), u8(at + 3),
                u8(at + 4), u8(at + 5));
  };
  auto addr = [&](const char* label, uint32_t at) {
    shellPrintf("%s=%x:%x:%x:%x\r\n", label, u32(at), u32(at + 4), u32(at + 8), u32(at + 12));
  };
  const unsigned packed = u8(ACL_RP_ENCAP_LAYER_IPVER);
  const unsigned dot1p = u8(ACL_RP_DOT1P_FLAGS);
  const unsigned flow = u32(ACL_RP_FLOW);
  const unsigned flags = u32(ACL_RP_FLAGS);
  shellPrintf("protoType=%u\r\n", u16(ACL_RP_PROTO_TYPE));
  shellPrintf("protoSubType=%u\r\n", u16(ACL_RP_PROTO_SUBTYPE));
  mac("srcMac", ACL_RP_SRC_MAC);
  shellPrintf("srcMacPrefixLen=%u\r\n", u8(ACL_RP_SRC_MAC_PREFIX_LEN));
  mac("destMac", ACL_RP_DEST_MAC);
  shellPrintf("dstMacPrefixLen=%u\r\n", u8(ACL_RP_DST_MAC_PREFIX_LEN));
  addr("srcAddr", ACL_RP_SRC_ADDR);
  shellPrintf("srcPrefixLen=%u\r\n", u8(ACL_RP_SRC_PREFIX_LEN));
  addr("destAddr", ACL_RP_DEST_ADDR);
  shellPrintf("destPrefixLen=%u\r\n", u8(ACL_RP_DEST_PREFIX_LEN));
  shellPrintf("encapType=%u\r\n", packed >> 5);
  shellPrintf("layerType=%u\r\n", (packed >> 2) & 7);
  shellPrintf("ipVer=%u\r\n", packed & 3);
  shellPrintf("tcpFsm=%u\r\n", u8(ACL_RP_TCP_FSM));
  shellPrintf("srcPort=%u\r\n", u16(ACL_RP_SRC_PORT));
  shellPrintf("srcEndPort=%u\r\n", u16(ACL_RP_SRC_END_PORT));
  shellPrintf("destPort=%u\r\n", u16(ACL_RP_DEST_PORT));
  shellPrintf("destEndPort=%u\r\n", u16(ACL_RP_DEST_END_PORT));
  shellPrintf("aclTosDscp=%u\r\n", u8(ACL_RP_TOS_DSCP));
  shellPrintf("aclIpOptions=%u\r\n", u8(ACL_RP_HOP_LIMIT) >> 7);
  shellPrintf("aclIpTtl=%u\r\n", u8(ACL_RP_IP_TTL));
  shellPrintf("aclIpTotalLen=%u\r\n", u32(ACL_RP_IP_TOTAL_LEN));
  shellPrintf("aclTrafficClass=%u\r\n", u8(ACL_RP_TOS_DSCP));
  shellPrintf("aclHopLimit=%u\r\n", u8(ACL_RP_HOP_LIMIT));
  shellPrintf("aclNextHeader=%u\r\n", flow >> 24);
  shellPrintf("aclFlowLabel=%u\r\n", (flow >> 4) & 0xFFFFF);
  shellPrintf("innerDot1p=%u\r\n", (dot1p >> 4) & 7);
  shellPrintf("outerDot1p=%u\r\n", (dot1p >> 1) & 7);
  shellPrintf("ipFrag=%u\r\n", dot1p & 1);
  shellPrintf("outerVid=%u\r\n", u16(ACL_RP_OUTER_VID));
  shellPrintf("outerEndVid=%u\r\n", u16(ACL_RP_OUTER_END_VID));
  shellPrintf("innerVid=%u\r\n", u16(ACL_RP_INNER_VID));
  shellPrintf("innerEndVid=%u\r\n", u16(ACL_RP_INNER_END_VID));
  shellPrintf("ethType=%u\r\n", u16(ACL_RP_ETH_TYPE));
  shellPrintf("app=%u\r\n", u16(ACL_RP_APP));
  shellPrintf("statusBit=%u\r\n", u16(ACL_RP_STATUS_BIT));
  shellPrintf("statusBitMask=%u\r\n", u16(ACL_RP_STATUS_BIT_MASK));
  shellPrintf("vxlanFlag=%u\r\n", u8(ACL_RP_VXLAN_FLAG));
  shellPrintf("vxlanOuterTag=%u\r\n", u8(ACL_RP_VXLAN_OUTER_TAG));
  shellPrintf("vxlanTransit=%u\r\n", u8(ACL_RP_VXLAN_TRANSIT));
  shellPrintf("vxlanBum=%u\r\n", u8(ACL_RP_VXLAN_BUM));
  shellPrintf("vxlanVni=%u\r\n", u32(ACL_RP_VXLAN_VNI));
  shellPrintf("multicastGem=%u\r\n", (flags & ACL_RP_FLAG_MULTICAST_GEM) ? 1u : 0u);
  shellPrintf("untagged=%u\r\n", (flags & ACL_RP_FLAG_UNTAGGED) ? 1u : 0u);
}

// Field codes whose value is shown as four words: addresses, MACs and their string prefixes.
bool wideValue(uint32_t code) {
  switch (code) {
    case 7:
    case 9:
    case 10:
    case 12:
    case 35:
    case 37:
    case 38:
    case 40:
      return true;
    default:
      return false;
  }
}

// The field bit set into the debug log, 8 bytes a line, the first line headed.
void bitsDump(const AclRuleEntry* r) {
  char line[64];
  size_t at = 0;
  for (uint32_t i = 0; i < ACL_FIELD_BITS_LEN; ++i) {
    if (i % 8 == 0) at = 0;
    at += static_cast<size_t>(std::snprintf(
        line + at, sizeof line - at, i == 0 ? "rule->bits = %02x " : "%02x ", r->fieldBits[i]));
    if (i % 8 == 7 || i + 1 == ACL_FIELD_BITS_LEN) {
      aclDebugStyled(aclLogGuard(ACL_LOG_RULE), ACL_LOG_RULE, ACL_LOG_STYLE_MORE, "%s\r\n", line);
    }
  }
}

}  // namespace

void aclHelp() {
  shellPrintf("\n\r aclShow\n\r");
  shellPrintf(" aclRuleShow\n\r");
  shellPrintf(" aclRuleShowForList(listNum)\n\r");
  shellPrintf(" aclSlotResourceShow(sys, slot, flag)\n\r");
  shellPrintf(" aclSlotResourceShowAll\n\r");
  shellPrintf(" aclDynamicBindSet(enable)\n\r");
  shellPrintf(" aclRedirectMultiSet(enable)\n\r");
  shellPrintf(
      " aclRuleSetVxlanParam(lstIdx, ruleIdx, vxlanFlag, vxlanTransit, vlanTag, vxlanVni)\n\r");
  shellPrintf(" aclIfListShow(uint32_t listNum, uint32_t ifUnit)\n\r");
}

void aclShellCmd() {
  aclHelp();
}

void aclShow() {
  const AclGroup& g = gaclGrp;
  shellPrintf("\n\r ACL dynamic bind ENABLE: %d \n\r", g.dynamicBindEnable);
  shellPrintf(" ACL redirect multi port support: %d \n\r", g.redirectMultiEnable);
  shellPrintf(" ACL max lst num: %d \n\r", i32(g.maxLstNum));
  shellPrintf(" ACL cur lst num: %d \n\r", i32(g.curLstNum));
  shellPrintf(" ACL max rule num per list: %d \n\r", i32(g.maxLstRuleNum));
  shellPrintf(" ACL max gRule num: %d \n\r", i32(g.maxGruleNum));
  shellPrintf(" ACL max if num: %d \n\r", i32(g.maxIfNum));
  shellPrintf(" ACL max slot num: %d \n\r", i32(g.maxSlotNum));
  shellPrintf(" ACL car min: %d \n\r", i32(g.carMin));
  shellPrintf(" ACL car max: %d \n\r", i32(g.carMax));
  shellPrintf(" ACL in l2: %d \n\r", i32(g.slots.inL2Acl));
  shellPrintf(" ACL out l2: %d \n\r", i32(g.slots.outL2Acl));
  shellPrintf(" ACL in ipv4: %d \n\r", i32(g.slots.inIpv4Acl));
  shellPrintf(" ACL out ipv4: %d \n\r", i32(g.slots.outIpv4Acl));
  shellPrintf(" ACL in ipv6: %d \n\r", i32(g.slots.inIpv6Acl));
  shellPrintf(" ACL out ipv6: %d \n\r", i32(g.slots.outIpv6Acl));
  shellPrintf(" ACL in hybrid: %d \n\r", i32(g.slots.inHybridAcl));
  shellPrintf(" ACL out hybrid: %d \n\r", i32(g.slots.outHybridAcl));
  shellPrintf(" ACL in mpls: %d \n\r", i32(g.slots.inMplsAcl));
  shellPrintf(" ACL out mpls: %d \n\r", i32(g.slots.outMplsAcl));
  shellPrintf(" ACL in udf: %d \n\r", i32(g.slots.inUdfAcl));
  shellPrintf(" ACL out udf: %d \n\r", i32(g.slots.outUdfAcl));

  uint8_t key[4] = {};
  if (aclLstGetFirst(reinterpret_cast<uintptr_t>(key), 0, 0) != 0) return;
  for (;;) {
    const uint32_t lst = be::load32(key, 0);
    shellPrintf("\n\r-----------------acl--%d--begin-----------------\n\r", i32(lst));
    shellPrintf("acl %d:\r\n", i32(lst));
    uint32_t status = 0;
    lstValue(lst, ACL_LST_CMD_STATUS, &status);
    shellPrintf(" status=%d\r\n", i32(status));
    if (status != 0) {
      char name[128] = {};
      wire::BufDesc d{name, sizeof name - 1};
      aclLstGetApi(lst, ACL_LST_CMD_NAME, reinterpret_cast<uintptr_t>(&d));
      shellPrintf(" name=%.*s\r\n", static_cast<int>(std::min<uint32_t>(d.len, sizeof name - 1)),
                  name);
      uint32_t v = 0;
      lstValue(lst, ACL_LST_CMD_REFCNT, &v);
      shellPrintf(" ref count=%d\r\n", i32(v));
      lstValue(lst, ACL_LST_CMD_DYN_REFCNT, &v);
      shellPrintf(" dynamic bind ref count=%d\r\n", i32(v));
      lstValue(lst, ACL_LST_CMD_PRIORITY, &v);
      shellPrintf(" priority=%d\r\n", i32(v));
      lstValue(lst, ACL_LST_CMD_RULENUM, &v);
      shellPrintf(" rule-number=%d\r\n", i32(v));
      lstValue(lst, ACL_LST_CMD_MAXRULENUM, &v);
      shellPrintf(" support-number=%d\r\n", i32(v));
      shellPrintf("\n\r-----------------acl--%d--end------------------\n\r", i32(lst));
    }
    uint8_t next[4] = {};
    if (aclLstGetNext(lst, reinterpret_cast<uintptr_t>(next), 0) != 0) return;
    std::copy(std::begin(next), std::end(next), std::begin(key));
  }
}

void aclRuleShow() {
  ruleWalk(0, 0);
}

void aclRuleShowForList(uint32_t lstIdx) {
  ruleWalk(lstIdx, ACL_RULE_FILTER_LIST);
}

void aclListRuleShow(uint32_t lstIdx, uint32_t ruleIdx) {
  if (!aclStarted()) return;
  for (AclListEntry* l = listFirst(); l != nullptr; l = listNext(l)) {
    if (lstIdx != 0 && l->lstIdx != lstIdx) continue;
    shellPrintf("[ACL]%d begin status=%d-----------------------\r\n", i32(l->lstIdx), l->status);
    for (AclRuleEntry* r = ruleFirst(l); r != nullptr; r = ruleNext(l, r)) {
      if (ruleIdx != 0 && r->ruleIdx != ruleIdx) continue;
      shellPrintf("List %d, pRule->index=%d \r\n", i32(l->lstIdx), i32(r->ruleIdx));
      std::array<uint8_t, ACL_RULE_PARAM_LEN> p{};
      aclRuleTrans(r, p);
      paramRecordLines(p);
    }
    shellPrintf("[ACL]%d end-----------------------------------\r\n", i32(l->lstIdx));
  }
}

void aclListRuleShowAll() {
  if (!aclStarted()) return;
  for (AclListEntry* l = listFirst(); l != nullptr; l = listNext(l)) {
    shellPrintf("[ACL]%d begin status=%d-----------------------\r\n", i32(l->lstIdx), l->status);
    for (AclRuleEntry* r = ruleFirst(l); r != nullptr; r = ruleNext(l, r)) {
      shellPrintf("List %d, pNode->index=%d \r\n", i32(l->lstIdx), i32(r->ruleIdx));
      shellPrintf("status %u\t\n", r->status);
      shellPrintf("layerType %u\t\n", r->layerType);
      shellPrintf("trId %u\t\n", r->trIdx);
      shellPrintf("trAct %u\t\n", r->trActive);
      shellPrintf("multicastGem %u\t\n", r->multicastGem);
      shellPrintf("counterId %u\t\n", r->counterId);
      shellPrintf("meterId %u\t\n", r->meterId);
      bitsDump(r);
      for (AclValueEntry* v = aclValueFirst(r); v != nullptr; v = aclValueNext(r, v)) {
        if (wideValue(v->code)) {
          std::array<uint8_t, ACL_LONG_VALUE_LEN> w{};
          const auto bytes = aclValueBytes(v);
          std::copy_n(bytes.begin(), std::min(bytes.size(), w.size()), w.begin());
          shellPrintf("rule type[%s(%u)],len[%u],value[%u][%u][%u][%u]\r\n",
                      aclRuleBitName(v->code), v->code, v->len, be::load32(w, 0), be::load32(w, 4),
                      be::load32(w, 8), be::load32(w, 12));
        } else {
          shellPrintf("rule type[%s(%u)],len[%u],value[%u]\r\n", aclRuleBitName(v->code), v->code,
                      v->len, aclValueWord(v));
        }
      }
      for (AclActionEntry* a = aclActionFirst(r); a != nullptr; a = aclActionNext(r, a)) {
        shellPrintf("action type[%s(%u)],len[%u],value[%u]\r\n", aclActionBitName(a->code), a->code,
                    a->len, aclActionValueWord(a));
      }
    }
    shellPrintf("[ACL]%d end-----------------------------------\r\n", i32(l->lstIdx));
  }
}
