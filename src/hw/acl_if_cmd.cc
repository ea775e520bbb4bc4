// The per-rule hardware commands of interface and GEM port bindings. A plain interface takes one
// command. An aggregation takes it where the interface manager says for that command: on the
// aggregation itself, on each member in the manager's order, or both; the member fan-out stops at
// the first member that refuses, and the caller's rollback takes the rule out again.
#include <algorithm>
#include <array>
#include <span>

#include "hw/acl_dev_trans.h"
#include "hw/acl_hw_options.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"
#include "main/acl_log.h"
#include "platform/ifmgr.h"
#include "wire/be.h"

namespace {

constexpr size_t kAggQueryLen = 20;
constexpr size_t kAggModeByte = 8;
constexpr uint8_t kModeMembers = 0x01;
constexpr uint8_t kModeAggregation = 0x02;
constexpr uint32_t kMemberBufLen = 512;  // room for the 128 members an aggregation may have
constexpr size_t kGemKeyLen = 12;

struct Command {
  uint32_t cmd;
  const void* data;  // a rule record, or the descriptor of a TLV message
  uint32_t dataLen;
  bool tlv;
  const uint8_t* target;
};

std::span<const uint8_t> callerOptions(const uint8_t* target) {
  return target != nullptr ? std::span<const uint8_t>(target, ACL_HW_OPTIONS_LEN)
                           : std::span<const uint8_t>();
}

const char* opName(uint32_t cmd) {
  return cmd == HWIL_CMD_IF_ADD ? "add" : "del";
}

// One command on one unit (the interface, the aggregation or a member), named in the trace.
int32_t sendToUnit(uint32_t unit, const Command& c) {
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> options{};
  aclHwOptionsFill(AclHwScope::Unit, c.tlv, unit, c.dataLen, callerOptions(c.target), options);
  const int32_t ret = zorHwilCmdSetApi(unit, c.cmd, c.data, options.data());
  // The name is a call into the interface manager: asked only when the line is written.
  if (!aclDebugOn(ACL_LOG_IF)) return ret;
  const AclIfName name = aclIfName(unit, kAclIfNameLenBind);
  if (c.tlv) {
    aclDebug(ACL_LOG_IF, "ACL interface %s update acl ret 0x%x.\r\n", name.text,
             static_cast<unsigned>(ret));
  } else {
    aclDebug(ACL_LOG_IF, "ACL interface %s %s acl ret 0x%x.\r\n", name.text, opName(c.cmd),
             static_cast<unsigned>(ret));
  }
  return ret;
}

// The members of an aggregation in the manager's order; the manager's code when it cannot say.
int32_t aggMembers(uint32_t aggUnit, std::array<uint8_t, kMemberBufLen>& buf, uint32_t* count) {
  ZorBufDesc pair{buf.data(), kMemberBufLen};
  const int32_t ret = zorEthAggIfGetApi(aggUnit, ZOR_AGG_MEMBERS, &pair);
  if (ret != 0) return ret;
  *count = std::min<uint32_t>(pair.len, kMemberBufLen) / 4;
  return 0;
}

int32_t sendOnInterface(uint32_t ifIndex, const Command& c) {
  std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
  if (const int32_t ret = zorIndexTrans(ifIndex, ZOR_TRANS_LOCATION, location.data()); ret != 0) {
    if (c.tlv) {
      aclDebug(ACL_LOG_WORKMODE,
               "ACL interface [update acl tlv] error. (Reason=[logic to phy error])\r\n");
    } else {
      aclDebug(ACL_LOG_WORKMODE, "ACL interface [%s acl] error. (Reason=[logic to phy error])\r\n",
               opName(c.cmd));
    }
    return ret;
  }
  const uint32_t kind = be::load32(std::span<const uint8_t>(location), 4 * ZOR_LOC_KIND);
  if (kind != ZOR_IF_KIND_AGG) return sendToUnit(ifIndex, c);

  std::array<uint8_t, kAggQueryLen> query{};
  be::store32(std::span<uint8_t>(query), 0, c.cmd);
  query[kAggModeByte] = 1;
  // A manager that cannot say where the command goes gets it on the aggregation.
  if (zorIfGetApi(ifIndex, ZOR_IF_FIELD_AGG_MODE, query.data()) != 0) return sendToUnit(ifIndex, c);
  const uint8_t mode = query[kAggModeByte];
  int32_t ret = 0;
  if ((mode & kModeAggregation) != 0) {
    ret = sendToUnit(ifIndex, c);
    // The members are not asked after the aggregation refused: their result would hide it.
    if (ret != 0) return ret;
  }
  if ((mode & kModeMembers) != 0) {
    std::array<uint8_t, kMemberBufLen> buf{};
    uint32_t count = 0;
    if (const int32_t got = aggMembers(ifIndex, buf, &count); got != 0) return got;
    for (uint32_t n = 0; n < count; ++n) {
      ret = sendToUnit(be::load32(std::span<const uint8_t>(buf), 4 * n), c);
      if (ret != 0) break;
    }
  }
  return ret;
}

int32_t sendOnGemPort(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, const Command& c) {
  std::array<uint8_t, kGemKeyLen> key{};
  std::span<uint8_t> k(key);
  be::store32(k, 0, ifIndex);
  be::store32(k, 4, onuId);
  be::store32(k, 8, gemPort);
  std::array<uint8_t, ACL_HW_OPTIONS_LEN> options{};
  aclHwOptionsFill(AclHwScope::GemPort, c.tlv, ifIndex, c.dataLen, callerOptions(c.target),
                   options);
  return zorHwilCmdSetApi(reinterpret_cast<uintptr_t>(key.data()), c.cmd, c.data, options.data());
}

}  // namespace

int32_t aclRuleIfHwilUpdate(uint32_t ifIndex, uint32_t cmd, const uint8_t* dev, uint32_t /*dir*/,
                            const uint8_t* target) {
  if (dev == nullptr) return -1;
  aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  return sendOnInterface(ifIndex, Command{cmd, dev, ACL_DEV_RECORD_LEN, false, target});
}

int32_t aclRuleIfHwilUpdateTlv(uint32_t ifIndex, const ZorBufDesc* tlv, const uint8_t* target) {
  if (tlv == nullptr || tlv->data == nullptr) return -1;
  return sendOnInterface(ifIndex, Command{HWIL_CMD_IF_TLV, tlv, tlv->len, true, target});
}

int32_t aclRuleGemPortAdd(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, const uint8_t* dev,
                          uint32_t /*dir*/, const uint8_t* target) {
  if (dev == nullptr) return -1;
  aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  return sendOnGemPort(ifIndex, onuId, gemPort,
                       Command{HWIL_CMD_GEM_ADD, dev, ACL_DEV_RECORD_LEN, false, target});
}

int32_t aclRuleGemPortDel(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort, const uint8_t* dev,
                          uint32_t /*dir*/, const uint8_t* target) {
  if (dev == nullptr) return -1;
  aclDevPrintf(std::span<const uint8_t>(dev, ACL_DEV_RECORD_LEN));
  return sendOnGemPort(ifIndex, onuId, gemPort,
                       Command{HWIL_CMD_GEM_DEL, dev, ACL_DEV_RECORD_LEN, false, target});
}

int32_t aclRuleGemPortUpdate(uint32_t ifIndex, uint16_t onuId, uint16_t gemPort,
                             const ZorBufDesc* tlv, const uint8_t* target) {
  if (tlv == nullptr || tlv->data == nullptr) return -1;
  return sendOnGemPort(ifIndex, onuId, gemPort,
                       Command{HWIL_CMD_GEM_TLV, tlv, tlv->len, true, target});
}
