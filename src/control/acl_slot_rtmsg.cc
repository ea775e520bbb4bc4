#include "control/acl_slot_rtmsg.h"

#include "control/acl_slot.h"
#include "main/acl_log.h"
#include "main/acl_task.h"
#include "platform/hwil.h"
#include "wire/be.h"

namespace {

// The message's body when the message is long enough to hold bodyLen bytes of it; a message cut
// short is skipped whole rather than read past its end.
std::span<const uint8_t> body(std::span<const uint8_t> msg, uint32_t bodyLen) {
  if (msg.size() < ACL_RTMSG_HDR_LEN + bodyLen) return {};
  return msg.subspan(ACL_RTMSG_HDR_LEN);
}

}  // namespace

void aclRtCardMsgProcess(uint16_t type, std::span<const uint8_t> msg) {
  const auto b = body(msg, ACL_RTM_CARD_BODY_LEN);
  if (b.empty()) return;
  const uint32_t sys = be::load32(b, 0);
  const uint32_t slot = be::load32(b, 4);
  const uint32_t cardType = be::load32(b, 12);
  const uint8_t kind = b[ACL_RTM_CARD_KIND_AT];
  aclSlotEntryGetOrAdd(sys, slot);
  // These two announce a card that is not (or no longer) serving: its slot is known, nothing more.
  if ((type == ACL_RTM_CARD_UP && kind == 1) || (type == ACL_RTM_CARD_CHANGE && kind == 2)) return;
  aclSlotMaxSubRuleNumUpdate(sys, slot, cardType);
  aclSlotCurRuleNumSync(sys, slot);
  // The location handed back is the message's own four words.
  zorCardUpPcsSet(b.data(), ACL_MODULE_NUM);
}

void aclRtSlotDelMsgProcess(std::span<const uint8_t> msg) {
  const auto b = body(msg, ACL_RTM_SLOT_DEL_BODY_LEN);
  if (b.empty()) return;
  aclSlotEntryDel(aclSlotEntryGet(be::load32(b, 0), be::load32(b, 4)));
}

void aclRtSlotMsgProcess(uint16_t /*type*/, std::span<const uint8_t> msg) {
  const auto b = body(msg, ACL_RTM_SLOT_BODY_LEN);
  if (b.empty()) return;
  if (aclSlotEntryGetOrAdd(be::load32(b, 0), be::load32(b, 4)) == nullptr) {
    aclDebug(ACL_LOG_GLOBAL,
             "ACL global [SLOT RTM message process error]. Reason=[Create slot entry list "
             "error!]. \r\n");
  }
  // Re-installing the slot's bindings is the resynchronisation's, which the dispatch runs next.
}
