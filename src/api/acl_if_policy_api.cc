// The interface set commands that reach HQoS, policy-based redirect and the traffic policies.
// Their buffers were shaped by the command server: a word holding the address of a record the
// server owns (HQoS, traffic policies), or a descriptor of the server's own data area (redirect);
// a client's bytes are never taken for an address.
#include <array>

#include "api/acl_if_api.h"
#include "api/table_buf.h"
#include "hw/acl_policy.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "services/acl_traffic_policy.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

int32_t aclIfPolicySet(uint32_t ifIndex, uint32_t cmd, uintptr_t buf) {
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (zorIndexTrans(ifIndex, ZOR_TRANS_LOCATION, location.data()) != 0) {
    aclDebug(ACL_LOG_API,
             "ACL config [if set api] error. (Reason=[Failed to get interface phy num]");
    return ACL_RET_IF_NO_LOCATION;
  }
  if (cmd == ACL_IF_CMD_PBR_ADD || cmd == ACL_IF_CMD_PBR_DEL) {
    const wire::BufDesc* desc = tblDesc(buf);
    if (desc->data == nullptr) return CMN_ERR_BAD_PARAM;
    if (desc->len < ACL_PBR_REQ_LEN) return CMN_ERR_BUFFER_SHORT;
    const auto* req = static_cast<const uint8_t*>(desc->data);
    return cmd == ACL_IF_CMD_PBR_ADD ? aclPbrIfAdd(req) : aclPbrIfDel(req);
  }
  const auto* record = reinterpret_cast<const uint8_t*>(*reinterpret_cast<const uintptr_t*>(buf));
  if (record == nullptr) return CMN_ERR_BAD_PARAM;
  if (cmd == ACL_IF_CMD_HQOS_ADD || cmd == ACL_IF_CMD_HQOS_DEL) {
    const uint32_t lst = be::load32(record), dir = be::load32(record + 4);
    const uint32_t id = be::load32(record + 8);
    return cmd == ACL_IF_CMD_HQOS_ADD ? _aclHqosIfAdd(ifIndex, lst, dir, id)
                                      : _aclHqosIfDel(ifIndex, lst, dir, id);
  }
  return aclTrafficIfByCmd(ifIndex, cmd, record);
}
