// Debug dumps of the two hardware forms, one log line per field group, so an operator can compare
// what the daemon handed to the hardware with the rule as configured. Class 4 under its guard bit:
// the first line opens the dump (style 26), the last closes it (style 25).
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "hw/acl_dev_trans.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "wire/acl_dev_layout.h"
#include "wire/be.h"

namespace {

using namespace acldev;

// A further line of the dump.
void more(const char* format, ...) __attribute__((format(printf, 1, 2)));
void more(const char* format, ...) {
  char text[512];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(text, sizeof text, format, ap);
  va_end(ap);
  aclDebugStyled(ACL_DEV_DEBUG_FLAG, ACL_LOG_DEV, ACL_LOG_STYLE_MORE, "%s", text);
}

void first(const char* text) {
  aclDebugStyled(ACL_DEV_DEBUG_FLAG, ACL_LOG_DEV, ACL_LOG_STYLE_FIRST, "%s", text);
}
void last(const char* text) {
  aclDebugStyled(ACL_DEV_DEBUG_FLAG, ACL_LOG_DEV, ACL_LOG_STYLE_LAST, "%s", text);
}
void moreText(const std::string& text) {
  more("%s", text.c_str());
}

bool enabled() {
  return (gaclGrp.debugFlags & ACL_DEV_DEBUG_FLAG) != 0;
}

constexpr const char* kDashes = "---------------------------------------\n\r";
constexpr const char* kEnd = "-------------------end--------------------\n\r";

int i32(uint32_t v) {
  return static_cast<int>(v);
}

// Words of a parameter block, eight to a line.
void wordLines(std::span<const uint8_t> dev, uint32_t off, uint32_t words) {
  std::string line;
  for (uint32_t i = 0; i < words; ++i) {
    char w[16];
    std::snprintf(w, sizeof w, "%d ", i32(be::load32(dev, off + 4 * i)));
    line += w;
    if ((i + 1) % 8 == 0 || i + 1 == words) {
      moreText(line + "\r\n");
      line.clear();
    }
  }
}

void addrLine(const char* format, std::span<const uint8_t> dev, uint32_t off, uint32_t prefix) {
  more(format, be::load32(dev, off), be::load32(dev, off + 4), be::load32(dev, off + 8),
       be::load32(dev, off + 12), dev[prefix]);
}

void strPrefixLine(const char* format, std::span<const uint8_t> dev, uint32_t off) {
  const auto b = dev.subspan(off, kAddrLen);
  more(format, b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12],
       b[13], b[14], b[15]);
}

void macLine(const char* format, std::span<const uint8_t> dev, uint32_t off) {
  const auto b = dev.subspan(off, kMacLen);
  more(format, b[0], b[1], b[2], b[3], b[4], b[5]);
}

void macPrefixLine(const char* format, std::span<const uint8_t> dev, uint32_t off, uint32_t pfx) {
  const auto b = dev.subspan(off, kMacLen);
  more(format, b[0], b[1], b[2], b[3], b[4], b[5], dev[pfx]);
}

void actionLine(std::span<const uint8_t> dev) {
  const auto a = dev.subspan(kAction, kActionLen);
  more("action=%x %x %x %x %x \r\n", a[0], a[1], a[2], a[3], a[4]);
}

void cirLine(std::span<const uint8_t> dev) {
  more("cir = %d ,pir = %d,cbs = %d,ebs = %d,pbs = %d \n\r", i32(be::load32(dev, kCir)),
       i32(be::load32(dev, kPir)), i32(be::load32(dev, kCbs)), i32(be::load32(dev, kEbs)),
       i32(be::load32(dev, kPbs)));
}

// One item line: 16 value bytes, zero beyond the item and beyond the message.
void itemLine(const char* format, std::span<const uint8_t> msg, uint32_t pos) {
  const uint8_t type = msg[pos];
  const uint8_t len = pos + 1 < msg.size() ? msg[pos + 1] : 0;
  std::array<uint8_t, 16> v{};
  for (uint32_t i = 0; i < v.size() && i < len && pos + 2 + i < msg.size(); ++i) {
    v[i] = msg[pos + 2 + i];
  }
  more(format, type, len, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8], v[9], v[10], v[11],
       v[12], v[13], v[14], v[15]);
}

// The items of a section that starts at pos, within its own length and the message.
uint32_t sectionItems(const char* format, std::span<const uint8_t> msg, uint32_t pos,
                      uint32_t sectionLen) {
  const uint32_t end = std::min<uint32_t>(pos + sectionLen, static_cast<uint32_t>(msg.size()));
  uint32_t p = pos + kTlvSectionLenLen;
  while (p < end) {
    itemLine(format, msg, p);
    const uint32_t len = p + 1 < msg.size() ? msg[p + 1] : 0;
    p += kTlvItemHeaderLen + len;
  }
  return end;
}

}  // namespace

void aclDevPrintf(std::span<const uint8_t> dev) {
  if (!enabled() || dev.size() < kRecLen) return;
  first("ACL hardware dev content\n\r");
  more("%s", kDashes);
  more("onuId=%d gemPort=%d gemPortVp=%d\n\r", be::load16(dev, kOnuId), be::load16(dev, kGemPort),
       i32(be::load32(dev, kGemPortVp)));
  more("lstIdx=%d ruleIdx=%d\n\r", i32(be::load32(dev, kLstIdx)), i32(be::load32(dev, kRuleIdx)));
  more("dir=%d,counterShared = %d,meterShared = %d,priority=%d \n\r", dev[kDir],
       dev[kCounterShared], dev[kMeterShared], be::load16(dev, kPriority));
  more("aggIfIndex=%d(Only useful for phy quit agg)\n\r", i32(be::load32(dev, kAggIfIndex)));
  actionLine(dev);
  for (const auto& [from, to] : {std::pair<uint32_t, uint32_t>{0, 8}, {8, 12}}) {
    char head[32];
    std::snprintf(head, sizeof head, "acl_dev->bits = %02x ", dev[kBits + from]);
    std::string line = head;
    for (uint32_t i = from + 1; i < to; ++i) {
      char b[8];
      std::snprintf(b, sizeof b, "%02x ", dev[kBits + i]);
      line += b;
    }
    moreText(line + "\n\r");
  }
  const uint16_t protoSubType = be::load16(dev, kProtoSubType);
  const uint8_t layerType = dev[kLayerType];
  const uint8_t ipVer = dev[kIpVer];
  const bool ports = layerType == 2 || layerType == 5;
  more("protoType=%x \n\r", be::load16(dev, kProtoType));
  more("protoSubType=%d \n\r", protoSubType);
  more("encapType=%d \n\r", dev[kEncapType]);
  more("layerType=%d \n\r", layerType);
  more("ipVer=%d \n\r", ipVer);
  cirLine(dev);
  addrLine("srcAddr=%08x:%08x:%08x:%08x srcPrefix=%d \n\r", dev, kSrcAddr, kSrcPrefix);
  strPrefixLine(
      "srcStrPrefix = "
      "%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x\n\r",
      dev, kSrcStrPrefix);
  addrLine("destAddr=%08x:%08x:%08x:%08x destPrefix=%d\n\r", dev, kDestAddr, kDestPrefix);
  strPrefixLine(
      "destStrPrefix = "
      "%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x\n\r",
      dev, kDestStrPrefix);
  more("tcpFsm=%d \n\r", dev[kTcpFsm]);
  if (protoSubType == 1) {
    more("icmp type=%d \n\r", be::load16(dev, kSrcPort));
  } else {
    more("srcPort=%d \n\r", be::load16(dev, kSrcPort));
  }
  if (ports) more("srcEndPort=%d \n\r", be::load16(dev, kSrcEndPort));
  if (protoSubType == 1) {
    more("icmp code=%d \n\r", be::load16(dev, kDestPort));
  } else {
    more("destPort=%d \n\r", be::load16(dev, kDestPort));
  }
  if (ports) {
    more("destEndPort=%d \n\r", be::load16(dev, kDestEndPort));
    if (ipVer == 1) {
      more("tosDscp=%d \n\r", dev[kTosDscp]);
      more("ipOptions=%d \n\r", dev[kIpOptions]);
      more("ipFrag=%d \n\r", dev[kIpFrag]);
      more("ipTtl=%d \n\r", dev[kIpTtl]);
    } else {
      more("trafficClass=%d \n\r", dev[kTosDscp]);
      more("hopLimit=%d \n\r", dev[kIpTtl]);
      more("nextHeader=%d \n\r", dev[kNextHeader]);
      more("flowLabel=%d \n\r", i32(be::load32(dev, kFlowLabel)));
    }
  }
  more("userDataNum=%d \n\r", dev[kUserDataNum]);
  for (uint32_t i = 0; i < kUserDataCount; ++i) {
    more("userData%u=0x%08x:0x%08x:%d \n\r", i + 1, be::load32(dev, kUserData + 4 * i),
         be::load32(dev, kUserDataMask + 4 * i), i32(be::load32(dev, kUserDataOffset + 4 * i)));
  }
  more("operators=%d \n\r", dev[kOperators]);
  macPrefixLine("srcMac=%02x:%02x:%02x:%02x:%02x:%02x  srcMacPrefix=%d \n\r", dev, kSrcMac,
                kSrcMacPrefix);
  macLine("srcMacStrPrefix=%02x:%02x:%02x:%02x:%02x:%02x \n\r", dev, kSrcMacStrPrefix);
  macPrefixLine("destMac=%02x:%02x:%02x:%02x:%02x:%02x  dstMacPrefix=%d \n\r", dev, kDestMac,
                kDstMacPrefix);
  macLine("dstMacStrPrefix=%02x:%02x:%02x:%02x:%02x:%02x \n\r", dev, kDstMacStrPrefix);
  more("dtag=%d innerDot1p=%d outerDot1p=%d \n\r", dev[kDtag], dev[kInnerDot1p], dev[kOuterDot1p]);
  more("outerVid=%d outerEndVid = %d,innerVid=%d,innerEndVid = %d \n\r", be::load16(dev, kOuterVid),
       be::load16(dev, kOuterEndVid), be::load16(dev, kInnerVid), be::load16(dev, kInnerEndVid));
  more("ethType=%d \n\r", be::load16(dev, kEthType));
  more("app=%d \n\r", be::load16(dev, kApp));
  more("statusBit=%d \n\r", be::load16(dev, kStatusBit));
  more("statusBitMask=%d \n\r", be::load16(dev, kStatusBitMask));
  more("counter_type = %d,counter_color = %d \n\r", dev[kCounterType], dev[kCounterColor]);
  more("meter_type = %d ,meter_mode= %d \n\r", dev[kMeterType], dev[kMeterMode]);
  cirLine(dev);
  more("app=%d \n\r", be::load16(dev, kApp));
  actionLine(dev);
  more("%s", "actionparam=\r\n");
  wordLines(dev, kActionParam, kActionParamWords);
  more("outAction=%x %x \r\n", dev[kOutAction], dev[kOutAction + 1]);
  more("%s", "outactionparam=\r\n");
  wordLines(dev, kOutActionParam, kOutActionParamWords);
  more("priority=%d \r\n", be::load16(dev, kPriority));
  more("statusBit=%d statusBitMask=%d \n\r", be::load16(dev, kStatusBit),
       be::load16(dev, kStatusBitMask));
  more("vxlanFlag = %d ,vxlanVni = %d, vxlanTransit = %d, vxlanTag = %d, vxlanBum = %d \n\r",
       dev[kVxlanFlag], i32(be::load32(dev, kVxlanVni)), dev[kVxlanTransit], dev[kVxlanTag],
       dev[kVxlanBum]);
  last(kEnd);
}

void aclTlvPrintf(std::span<const uint8_t> buffer, uint32_t length) {
  if (!enabled()) return;
  const auto msg = buffer.first(std::min<size_t>(buffer.size(), length));
  if (msg.size() < kTlvHeaderLen) return;
  first("ACL hardware tlv content\n\r");
  more("%s", kDashes);
  more("onuId=%d gemPort=%d gemPortVp=%d\n\r", be::load16(msg, kTlvOnuId),
       be::load16(msg, kTlvGemPort), i32(be::load32(msg, kTlvGemPortVp)));
  more("lstIdx=%d ruleIdx=%d\n\r", i32(be::load32(msg, kTlvLstIdx)),
       i32(be::load32(msg, kTlvRuleIdx)));
  more("dir=%d,counterShared = %d,meterShared = %d,priority=%d \n\r", msg[kTlvDir],
       msg[kTlvCounterShared], msg[kTlvMeterShared], be::load16(msg, kTlvPriority));
  more("aggIfIndex=%d(Only useful for phy quit agg)\n\r", i32(be::load32(msg, kTlvAggIfIndex)));
  more("activeRuleNum=%d\n\r", i32(be::load32(msg, kTlvActiveRuleNum)));
  more("operators=%d,oper=%d,actionType=%d,actionEnable=%d\n\r", msg[kTlvOperators], msg[kTlvOper],
       msg[kTlvActionType], msg[kTlvActionEnable]);
  const uint16_t tlvBufferLen = be::load16(msg, kTlvBufferLen);
  if (tlvBufferLen == 0) {
    // Nothing follows the header: this line closes the dump.
    aclDebugStyled(ACL_DEV_DEBUG_FLAG, ACL_LOG_DEV, ACL_LOG_STYLE_LAST, "tlvBufferLen=%d\n\r",
                   tlvBufferLen);
    return;
  }
  more("tlvBufferLen=%d\n\r", tlvBufferLen);
  more("%s", "-------------------rule--------------------\n\r");
  uint32_t pos = kTlvHeaderLen;
  const uint16_t ruleLen = pos + 2 <= msg.size() ? be::load16(msg, pos) : 0;
  more("ruleLen = %d\n\r", ruleLen);
  pos = sectionItems("type=%d,len=%d,value=%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x\n\r",
                     msg, pos, ruleLen);
  more("%s", "-------------------action--------------------\n\r");
  const uint16_t actionLen = pos + 2 <= msg.size() ? be::load16(msg, pos) : 0;
  more("actionLen = %d\n\r", actionLen);
  sectionItems("actiontype=%d,len=%d,value=%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x-%x\n\r",
               msg, pos, actionLen);
  last(kEnd);
}
