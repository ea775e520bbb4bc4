// Dispatch of route messages: each type goes to the subsystem that owns what it changes. A body
// is read only when the message holds it; a message too short for its body is skipped whole, and a
// type without a handler is skipped as well.
#include "main/acl_rtmsg.h"

#include <array>

#include "control/acl_dstip.h"
#include "control/acl_slot_rtmsg.h"
#include "control/acl_timerange.h"
#include "hw/acl_card_sync.h"
#include "hw/acl_gemport_event.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_ip_str.h"
#include "main/acl_log.h"
#include "platform/hwil.h"

namespace {

// Body sizes of the fixed-body types.
constexpr uint32_t kLinkBodyMin = 24;      // 32, 34, 324: what the handlers insist on
constexpr uint32_t kLocationBodyLen = 16;  // 97: system, slot and two more words
constexpr uint32_t kSlotBodyLen = 12;      // 108, 112: system, slot, one more word
constexpr uint32_t kSysBodyLen = 4;        // 117
constexpr uint32_t kNhBodyLen = 24;        // 305 to 307
constexpr uint32_t kNhFamilyAt = 16;
constexpr uint32_t kNhVrfAt = 20;
constexpr uint32_t kOnuBodyLen = 8;   // 382, 383, 387: interface, ONU
constexpr uint32_t kGemBodyLen = 12;  // 386: interface, ONU, GEM port
constexpr uint32_t kIfIndexAt = 4;    // interface index of 32, 34, 324 in the body

// Card and slot properties of the readiness tests: "not ready" must be refused, "ready" answered.
constexpr uint32_t kCardNotReady = 0x02EE002A;
constexpr uint32_t kCardReady = 0x02EE002B;
constexpr uint32_t kSlotNotReady = 0x01F4002B;
constexpr uint32_t kSlotReady = 0x01F40032;

// Hardware scalars of the readiness tests.
constexpr uint32_t kScalarSyncA = 55;
constexpr uint32_t kScalarSyncB = 46;
constexpr uint32_t kScalarNoSysSync = 54;

std::span<const uint8_t> body(std::span<const uint8_t> msg, uint32_t bodyLen) {
  if (msg.size() < ACL_RTMSG_HDR_LEN + bodyLen) return {};
  return msg.subspan(ACL_RTMSG_HDR_LEN);
}

// True only when the scalar could be read; *value takes it.
bool hwScalar(uint32_t id, uint32_t* value) {
  std::array<uint8_t, 4> v{};
  if (zorHwilScalarGet(0, id, v.data(), 0) != 0) return false;
  *value = be::load32(std::span<const uint8_t>(v), 0);
  return true;
}

// The platform lets a module resynchronise only while scalar 55 or 46 says so.
bool resyncAllowed() {
  uint32_t v = 0;
  return (hwScalar(kScalarSyncA, &v) && v != 0) || (hwScalar(kScalarSyncB, &v) && v != 0);
}

// A card is ready when it no longer answers "not ready" and answers "ready".
bool cardReady(const uint8_t* location) {
  return zorHwilCardGet(location, kCardNotReady, nullptr) != 0 &&
         zorHwilCardGet(location, kCardReady, nullptr) == 0;
}

int32_t resync(uint32_t sys, uint32_t slot) {
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> target{};
  if (!aclSyncTargetBuild(sys, slot, target)) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [acl sync] error. (Reason = [sys %u slot %u cannot be addressed])\r\n",
             sys, slot);
    return -1;
  }
  return aclCardSync(target.data(), 1);
}

// The card-ready test of a card location (four words) of this system.
bool cardUpChecks(std::span<const uint8_t> location) {
  return be::load32(location, 0) == zorSelfSysIndex() && cardReady(location.data()) &&
         resyncAllowed();
}

void removeIfState(uint32_t ifIndex) {
  if (aclIfDelEx(ifIndex) == 0) aclDeleteIf(ifIndex);
}

uint32_t linkIfIndex(std::span<const uint8_t> msg) {
  return be::load32(msg, ACL_RTMSG_HDR_LEN + kIfIndexAt);
}

// The attribute's data as a u32 at word n, when the attribute holds it.
bool attrWord(std::span<const uint8_t> attr, uint32_t n, uint32_t* value) {
  const size_t at = ACL_RTA_HDR_LEN + 4 * n;
  if (attr.size() < at + 4) return false;
  *value = be::load32(attr, at);
  return true;
}

void nextHopReport(uint16_t type, std::span<const uint8_t> msg) {
  const auto b = body(msg, kNhBodyLen);
  if (b.empty()) return;
  const uint8_t rawFamily = b[kNhFamilyAt];
  // Anything but IPv4 is read as the 16 bytes of an IPv6 address.
  const uint32_t family = rawFamily == 1 ? 1 : 2;
  const uint32_t vrf = be::load32(b, kNhVrfAt);
  std::array<char, ACL_IP_STR_MIN> text{};
  aclDebug(ACL_LOG_GLOBAL,
           "ACL global [RT msg recv] info=[DID msg: type =%d family = %dvrfid %d, ip %s, "
           "ipFamily %d]. ",
           type, rawFamily, static_cast<int>(vrf),
           aclIpTostr(b.data(), family, text.data(), static_cast<uint32_t>(text.size())),
           static_cast<int>(family));
  aclNexthopStateHandle(vrf, b.data(), family, type == ACL_RTM_NH_RELEARN ? 1 : 0);
}

void onuEvent(uint16_t type, std::span<const uint8_t> msg) {
  const auto b = body(msg, type == ACL_RTM_GEM_DEL ? kGemBodyLen : kOnuBodyLen);
  if (b.empty()) return;
  const uint32_t ifIndex = be::load32(b, 0);
  const uint32_t onu = be::load32(b, 4);
  if (type == ACL_RTM_ONU_UP || type == ACL_RTM_GEM_UP) {
    aclOnuGemPortUp(ifIndex, static_cast<uint16_t>(onu));
    return;
  }
  const uint32_t gem = type == ACL_RTM_GEM_DEL ? be::load32(b, 8) : 0;
  // GEM keys are 16-bit: a wider number names no record, and cut short it would name another.
  if (onu > 0xFFFF || gem > 0xFFFF) return;
  aclOnuGemPortUnregister(ifIndex, static_cast<uint16_t>(onu), static_cast<uint16_t>(gem));
}

void timeRangeSwitch(uint16_t type, std::span<const uint8_t> msg) {
  const auto b = body(msg, 4);
  if (b.empty()) return;
  aclTimerangeStateChangeProcess(b, type == ACL_RTM_TIMERANGE_ON ? 1 : 0);
}

// One configuration reset (attribute 75) of ifIndex.
void resetConfig(uint32_t ifIndex, uint32_t reason, uint32_t op, uint32_t flags) {
  aclDebug(ACL_LOG_GLOBAL,
           "ACL config [ACL RTM PROCESS] info=[process reset config intf(%s) reset reason %s op "
           "%s.]. ",
           aclIfName(ifIndex, kAclIfNameLen).text, reason == 1 ? "mlag" : "manual",
           op == 1 ? "reset all" : "reset default");
  if (reason == 1) {
    // An MLAG reset keeps the interface's lists: it is only told to ignore the reset.
    if (aclIfEntryGet(ifIndex) != nullptr && aclIfSetProtoIgnorestate(ifIndex, 1) != 0) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL config [ACL RTM PROCESS error] Reason=[set ignore enable fail.]. ");
    }
    return;
  }
  if ((flags & ACL_RESET_FLAG_KEEP) != 0) {
    if (aclIfSetProtoIgnorestate(ifIndex, 1) != 0) {
      aclDebug(ACL_LOG_GLOBAL,
               "ACL config [ACL RTM PROCESS MANUAL reset conf error] Reason=[set ignore enable "
               "fail.]. ");
    }
    return;
  }
  if (aclIfSetProtoIgnorestate(ifIndex, 0) != 0) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL config [ACL RTM PROCESS MANUAL reset conf error] Reason=[set ignore disable "
             "fail.]. ");
  }
  removeIfState(ifIndex);
}

}  // namespace

void aclNewLinkProcess(std::span<const uint8_t> msg, uint32_t len) {
  if (len < kLinkBodyMin || msg.size() < ACL_RTMSG_HDR_LEN + kLinkBodyMin) return;
  const uint32_t ifIndex = linkIfIndex(msg);
  aclRtAttrWalk(msg, [&](uint16_t type, std::span<const uint8_t> attr) {
    uint32_t agg = 0;
    switch (type) {
      case ACL_RTA_IF_DEL:
        removeIfState(ifIndex);
        break;
      case ACL_RTA_AGG_JOIN:
        if (attrWord(attr, 0, &agg)) aclPhyJoinAgg(agg, ifIndex);
        break;
      case ACL_RTA_AGG_QUIT:
        if (attrWord(attr, 0, &agg)) aclPhyQuitAgg(agg, ifIndex);
        break;
      default:
        break;
    }
  });
}

void aclDelLinkProcess(std::span<const uint8_t> msg, uint32_t len) {
  if (len < kLinkBodyMin || msg.size() < ACL_RTMSG_HDR_LEN + kLinkBodyMin) return;
  removeIfState(linkIfIndex(msg));
}

void aclResetConfigProcess(std::span<const uint8_t> msg, uint32_t len) {
  if (len < kLinkBodyMin || msg.size() < ACL_RTMSG_HDR_LEN + kLinkBodyMin) return;
  const uint32_t ifIndex = linkIfIndex(msg);
  aclRtAttrWalk(msg, [&](uint16_t type, std::span<const uint8_t> attr) {
    uint32_t reason = 0, op = 0, flags = 0;
    if (type != ACL_RTA_RESET_CONFIG || !attrWord(attr, 0, &reason) || !attrWord(attr, 1, &op) ||
        !attrWord(attr, 2, &flags)) {
      return;
    }
    resetConfig(ifIndex, reason, op, flags);
  });
}

void aclRtCardReadyProcess(std::span<const uint8_t> msg) {
  const auto b = body(msg, kLocationBodyLen);
  if (b.empty()) return;
  const auto location = b.first(kLocationBodyLen);
  if (!cardUpChecks(location)) return;
  resync(be::load32(location, 0), be::load32(location, 4));
  zorCardUpPcsSet(location.data(), ACL_MODULE_NUM);
}

void aclRtSlotResyncProcess(std::span<const uint8_t> msg) {
  const auto b = body(msg, kSlotBodyLen);
  if (b.empty()) return;
  const uint32_t sys = be::load32(b, 0);
  if (sys != zorSelfSysIndex()) return;
  // The slot query's location: the message's three words and a zero word.
  std::array<uint8_t, kLocationBodyLen> location{};
  std::copy(b.begin(), b.begin() + kSlotBodyLen, location.begin());
  if (zorHwilSlotGet(location.data(), kSlotNotReady, nullptr) == 0 ||
      zorHwilSlotGet(location.data(), kSlotReady, nullptr) != 0 || !resyncAllowed()) {
    return;
  }
  resync(sys, be::load32(b, 4));
}

void aclRtSysUpProcess(std::span<const uint8_t> msg) {
  const auto b = body(msg, kSysBodyLen);
  if (b.empty()) return;
  const uint32_t sys = be::load32(b, 0);
  uint32_t noSync = 1;
  if (sys == zorSelfSysIndex() || !hwScalar(kScalarNoSysSync, &noSync) || noSync != 0) return;
  resync(sys, 0);
}

int32_t aclTestCardUp(uint32_t slot) {
  std::array<uint8_t, kLocationBodyLen> location{};
  be::store32(std::span<uint8_t>(location), 0, 1);
  be::store32(std::span<uint8_t>(location), 4, slot);
  if (!cardUpChecks(location)) return -1;
  return resync(1, slot);
}

void aclRtMsgDispatch(uint16_t type, std::span<const uint8_t> msg, uint32_t /*remaining*/) {
  // The link handlers count from their own message, never into the next one of the read.
  const uint32_t len = static_cast<uint32_t>(msg.size()) - ACL_RTMSG_HDR_LEN;
  switch (type) {
    case ACL_RTM_NEWLINK:
      aclNewLinkProcess(msg, len);
      break;
    case ACL_RTM_DELLINK:
      aclDelLinkProcess(msg, len);
      break;
    case ACL_RTM_CARD_READY:
      aclRtCardReadyProcess(msg);
      break;
    case ACL_RTM_CARD_UP:
    case ACL_RTM_CARD_CHANGE:
      aclRtCardMsgProcess(type, msg);
      break;
    case ACL_RTM_SLOT_DEL:
      aclRtSlotDelMsgProcess(msg);
      break;
    case ACL_RTM_SLOT_UP:
    case ACL_RTM_SLOT_READY:
      aclRtSlotMsgProcess(type, msg);
      aclRtSlotResyncProcess(msg);
      break;
    case ACL_RTM_SYS_UP:
      aclRtSysUpProcess(msg);
      break;
    case ACL_RTM_NH_LEARN:
    case ACL_RTM_NH_LOSE:
    case ACL_RTM_NH_RELEARN:
      nextHopReport(type, msg);
      break;
    case ACL_RTM_RESET_CONFIG:
      aclResetConfigProcess(msg, len);
      break;
    case ACL_RTM_ONU_DEL:
    case ACL_RTM_ONU_UP:
    case ACL_RTM_GEM_DEL:
    case ACL_RTM_GEM_UP:
      onuEvent(type, msg);
      break;
    case ACL_RTM_TIMERANGE_ON:
    case ACL_RTM_TIMERANGE_OFF:
      timeRangeSwitch(type, msg);
      break;
    default:
      break;
  }
}
