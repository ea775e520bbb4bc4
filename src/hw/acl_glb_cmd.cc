// The single hardware commands of the global and slot scopes. The global scope sends one rule
// record or TLV message with the global options record; the slot scope has no hardware command on
// this platform, so it only dumps what it would have sent.
#include <array>
#include <span>

#include "hw/acl_dev_trans.h"
#include "hw/acl_glb.h"

namespace {

std::span<const uint8_t> callerOptions(const uint8_t* target) {
  return target != nullptr ? std::span<const uint8_t>(target, ACL_HW_OPTIONS_LEN)
                           : std::span<const uint8_t>();
}

int32_t sendRecord(uint32_t cmd, const uint8_t* dev, const uint8_t* target) {
  if (dev == nullptr) return -1;
  aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> options{};
  aclHwOptionsFill(AclHwScope::Global, false, 0, ACL_DEV_RECORD_LEN, callerOptions(target),
                   options);
  return zorHwilCmdSetApi(0, cmd, dev, options.data());
}

}  // namespace

// The direction travels inside the record; the argument is kept for the callers' symmetry.
int32_t aclRuleGlbAdd(const uint8_t* dev, uint32_t /*dir*/, const uint8_t* target) {
  return sendRecord(HWIL_CMD_GLOBAL_ADD, dev, target);
}

int32_t aclRuleGlbDel(const uint8_t* dev, uint32_t /*dir*/, const uint8_t* target) {
  return sendRecord(HWIL_CMD_GLOBAL_DEL, dev, target);
}

int32_t aclRuleGlbUpdate(const ZorBufDesc* tlv, const uint8_t* target) {
  if (tlv == nullptr || tlv->data == nullptr) return -1;
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> options{};
  aclHwOptionsFill(AclHwScope::Global, true, 0, tlv->len, callerOptions(target), options);
  return zorHwilCmdSetApi(0, HWIL_CMD_GLOBAL_TLV, tlv, options.data());
}

int32_t aclRuleSlotAdd(const void* /*slotKey*/, const uint8_t* dev, uint32_t, uint32_t) {
  if (dev != nullptr) aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  return 0;
}

int32_t aclRuleSlotDel(const void* /*slotKey*/, const uint8_t* dev, uint32_t, uint32_t) {
  if (dev != nullptr) aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  return 0;
}

int32_t aclRuleSlotAddTlv(const void*, const ZorBufDesc*, uint32_t) {
  return 0;
}
int32_t aclRuleSlotDelTlv(const void*, const ZorBufDesc*, uint32_t) {
  return 0;
}
