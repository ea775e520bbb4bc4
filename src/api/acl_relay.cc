#include "api/acl_relay.h"

#include <algorithm>
#include <array>

#include "platform/hwil.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

void aclHwOptionsFill(std::span<uint8_t, ACL_HW_OPTIONS_LEN> rec, const AclRelayFamily& family,
                      uint32_t mode, bool varLen, uint32_t dataLen) {
  std::fill(rec.begin(), rec.end(), uint8_t{0});
  uint32_t word0 = mode;
  if (family.keyByValue) word0 |= ACL_HW_OPT_KEY_BY_VALUE;
  if (varLen) word0 |= ACL_HW_OPT_VAR_LEN;
  be::store32(rec, 0, word0);
  be::store32(rec, 4, family.keyLen);
  be::store32(rec, 16, dataLen);
}

int32_t aclHwRelayData(const AclRelayFamily& family, uint32_t mode, uintptr_t key, uint32_t cmd,
                       const void* data, bool varLen, uint32_t dataLen) {
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> options;
  aclHwOptionsFill(options, family, mode, varLen, dataLen);
  return zorHwilCmdSyncApi(key, family.base + cmd, data, options.data());
}

int32_t aclHwRelay(const AclRelayFamily& family, uint32_t mode, uintptr_t key, uint32_t cmd,
                   uintptr_t buf, AclRelayData data) {
  const void* addr = reinterpret_cast<const void*>(buf);
  if (data == AclRelayData::Desc) {
    // A missing descriptor relays as empty; the family's own checks answer it afterwards.
    const auto* desc = static_cast<const wire::BufDesc*>(addr);
    return aclHwRelayData(family, mode, key, cmd, addr, true, desc ? desc->len : 0);
  }
  return aclHwRelayData(family, mode, key, cmd, addr, false, 4);
}
