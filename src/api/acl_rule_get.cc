// The rule get (aclRuleGetApi): every command of the get table, read from the rule record and its
// value and action entries. Values are widened to a u32 word; descriptor answers are clamped to
// the caller's length, which is written back.
#include <algorithm>
#include <array>

#include "api/acl_rule_api.h"
#include "api/acl_rule_internal.h"
#include "api/table_buf.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "store/acl_action_param.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using K = AclRuleCmdKind;

// Protocol type and subtype read 65535 when the rule has none.
constexpr uint32_t kNoProtoType = 65535;

// Copies bytes into the descriptor, clamped to its length; an area that is missing cannot take
// them.
int32_t put(wire::BufDesc* d, std::span<const uint8_t> bytes) {
  if (d->data == nullptr && d->len != 0 && !bytes.empty()) return CMN_ERR_BAD_PARAM;
  tblDescPut(d, bytes);
  return 0;
}

int32_t putNothing(wire::BufDesc* d) {
  d->len = 0;
  return 0;
}

uint32_t valueOf(AclRuleEntry* rule, uint32_t cmd, const AclRuleCmd& info) {
  switch (info.kind) {
    case K::LayerType:
      return rule->layerType;
    case K::MulticastGem:
      return rule->multicastGem;
    case K::CarId:
    case K::MeterId:
      return rule->meterId;
    case K::CounterId:
      return rule->counterId;
    case K::TimeRange:
      return rule->trIdx;
    case K::Status:
      return rule->status;
    default:
      break;
  }
  const AclValueEntry* e = aclRuleValueEntryGet(rule, info.code);
  if (e == nullptr) {
    return cmd == ACL_RULE_CMD_PROTOTYPE || cmd == ACL_RULE_CMD_PROTOSUBTYPE ? kNoProtoType : 0;
  }
  return aclValueWord(e) >> info.shift;
}

int32_t storedBytes(AclRuleEntry* rule, uint8_t code, wire::BufDesc* d) {
  AclValueEntry* e = aclRuleValueEntryGet(rule, code);
  if (e == nullptr) return putNothing(d);
  return put(d, aclValueBytes(e));
}

// The MAC itself is always answered in full: zero when the rule matches none.
int32_t mac(AclRuleEntry* rule, uint8_t code, wire::BufDesc* d) {
  std::array<uint8_t, ACL_RULE_MAC_LEN> bytes{};
  if (AclValueEntry* e = aclRuleValueEntryGet(rule, code)) {
    const auto v = aclValueBytes(e);
    std::copy_n(v.begin(), std::min(v.size(), bytes.size()), bytes.begin());
  }
  return put(d, bytes);
}

int32_t userDefined(AclRuleEntry* rule, wire::BufDesc* d) {
  if (!aclBitTest(rule->fieldBits, RULE_BIT_USERDEFINED)) return putNothing(d);
  std::array<uint8_t, ACL_RULE_UDF_LEN> bytes{};
  for (uint32_t n = 0; n < ACL_RULE_UDF_NUM; ++n) {
    AclValueEntry* e =
        aclRuleValueEntryGet(rule, static_cast<uint8_t>(RULE_BIT_USERDEFINEDDATA1 + n));
    if (e == nullptr) continue;
    const auto v = aclValueBytes(e);
    std::copy_n(v.begin(), std::min<size_t>(v.size(), ACL_RULE_UDF_RECORD_LEN),
                bytes.begin() + n * ACL_RULE_UDF_RECORD_LEN);
  }
  return put(d, bytes);
}

int32_t actionParams(AclRuleEntry* rule, wire::BufDesc* d) {
  if (!aclBitTest(rule->fieldBits, RULE_BIT_ACTIONPARAM)) return putNothing(d);
  std::array<uint8_t, ACL_ACTION_PARAM_LEN> block;
  aclActionEntry2Param(rule, block);
  return put(d, block);
}

int32_t outActionParams(AclRuleEntry* rule, wire::BufDesc* d) {
  if (!aclBitTest(rule->fieldBits, RULE_BIT_OUTACTIONPARAM)) return putNothing(d);
  std::array<uint8_t, ACL_OUT_ACTION_PARAM_LEN> block;
  aclOutActionEntry2Param(rule, block);
  return put(d, block);
}

// The rule record as a big-endian image, without its links.
int32_t ruleImage(const AclRuleEntry* rule, wire::BufDesc* d) {
  std::array<uint8_t, ACL_RULE_IMAGE_LEN> img{};
  be::store32(img, ACL_RULE_IMAGE_LST, rule->lstIdx);
  be::store32(img, ACL_RULE_IMAGE_RULE, rule->ruleIdx);
  std::copy(std::begin(rule->fieldBits), std::end(rule->fieldBits),
            img.begin() + ACL_RULE_IMAGE_FIELD_BITS);
  std::copy(std::begin(rule->oldActionBits), std::end(rule->oldActionBits),
            img.begin() + ACL_RULE_IMAGE_OLD_ACTION_BITS);
  std::copy(std::begin(rule->actionBits), std::end(rule->actionBits),
            img.begin() + ACL_RULE_IMAGE_ACTION_BITS);
  std::copy(std::begin(rule->oldOutActionBits), std::end(rule->oldOutActionBits),
            img.begin() + ACL_RULE_IMAGE_OLD_OUT_ACTION_BITS);
  std::copy(std::begin(rule->outActionBits), std::end(rule->outActionBits),
            img.begin() + ACL_RULE_IMAGE_OUT_ACTION_BITS);
  be::store8(img, ACL_RULE_IMAGE_LAYER_TYPE, rule->layerType);
  be::store8(img, ACL_RULE_IMAGE_MULTICAST_GEM, rule->multicastGem);
  be::store8(img, ACL_RULE_IMAGE_STATUS, rule->status);
  be::store8(img, ACL_RULE_IMAGE_TR_ACTIVE, rule->trActive);
  be::store32(img, ACL_RULE_IMAGE_COUNTER_ID, rule->counterId);
  be::store32(img, ACL_RULE_IMAGE_METER_ID, rule->meterId);
  be::store16(img, ACL_RULE_IMAGE_TR_IDX, rule->trIdx);
  be::store16(img, ACL_RULE_IMAGE_PRIORITY, rule->priority);
  return put(d, img);
}

int32_t answer(AclListEntry* list, AclRuleEntry* rule, uint32_t cmd, uintptr_t buf) {
  const AclRuleCmd info = aclRuleGetCmd(cmd);
  if (info.kind == K::Unknown) return ACL_RET_UNKNOWN;
  if (buf == 0) return CMN_ERR_BAD_PARAM;
  if (!aclRuleCmdIsDesc(info.kind)) {
    tblSetValue(buf, valueOf(rule, cmd, info));
    return 0;
  }
  wire::BufDesc* d = tblDesc(buf);
  switch (info.kind) {
    case K::FieldBits:
      return put(d, rule->fieldBits);
    case K::Addr:
    case K::AddrLate:
    case K::MacMask:
      return storedBytes(rule, info.code, d);
    case K::Mac:
      return mac(rule, info.code, d);
    case K::UserDefined:
      return userDefined(rule, d);
    case K::Action:
      return aclBitTest(rule->fieldBits, RULE_BIT_ACTION) ? put(d, rule->actionBits)
                                                          : putNothing(d);
    case K::ActionParam:
      return actionParams(rule, d);
    case K::OutAction:
      return aclBitTest(rule->fieldBits, RULE_BIT_OUTACTION) ? put(d, rule->outActionBits)
                                                             : putNothing(d);
    case K::OutActionParam:
      return outActionParams(rule, d);
    case K::DevRecord:
      return aclRuleGetDevRecord(rule, d);
    case K::Tlv:
      return aclRuleGetTlv(list, rule, d);
    case K::RuleImage:
      return ruleImage(rule, d);
    default:
      return ACL_RET_UNKNOWN;
  }
}

}  // namespace

int32_t aclRuleGetApi(uintptr_t keyAddr, uintptr_t cmdArg, uintptr_t buf) {
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;
  const AclRuleKey k = aclRuleKeyLoad(keyAddr);
  const auto cmd = static_cast<uint32_t>(cmdArg);
  AclLockGuard lock;
  aclDebug(ACL_LOG_API, "ACL config [ACL Rule GET] info=[index %d/%u].\r\n",
           static_cast<int>(k.lstIdx), k.ruleIdx);
  AclListEntry* list = aclListEntryGet(k.lstIdx);
  if (list == nullptr || list->status == 0) {
    aclDebug(ACL_LOG_API, "ACL config [ACL Rule GET] error. (Reason=[acl entry is null(%d)])\r\n",
             static_cast<int>(k.lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  AclRuleEntry* rule = aclRuleEntryGet(list, k.ruleIdx);
  if (rule == nullptr) return CMN_ERR_NOT_FOUND;
  if (rule->status == ACL_RULE_STATUS_FREE) {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL Rule GET] error. (Reason=[rule entry is not exist(%u)])\r\n",
             k.ruleIdx);
    return CMN_ERR_NOT_FOUND;
  }
  const int32_t ret = answer(list, rule, cmd, buf);
  aclDebug(ACL_LOG_API, "ACL config [ACL Rule GET] info=[index=%d /%u cmd=%d ret=%d]. \r\n",
           static_cast<int>(k.lstIdx), k.ruleIdx, static_cast<int>(cmd), ret);
  return ret;
}
