// The rule set (aclRuleSetApi, aclRuleSyncApi): the checks every command passes in their order,
// the dispatch, and the field commands (plain values, addresses, MACs, user-defined data). The
// commands with references, actions and the status have their own units.
#include <array>

#include "api/acl_relay.h"
#include "api/acl_rule_api.h"
#include "api/acl_rule_internal.h"
#include "api/table_buf.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "store/acl_entry.h"
#include "store/acl_list.h"
#include "store/acl_rule.h"
#include "wire/acl_bits.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

using K = AclRuleCmdKind;

bool addrLenOk(uint32_t len) {
  return len == ACL_RULE_IPV4_LEN || len == ACL_RULE_IPV6_LEN;
}

std::span<const uint8_t> descBytes(const wire::BufDesc* d) {
  return {static_cast<const uint8_t*>(d->data), d->len};
}

// The last value entry of code (a new one goes after those of its code), or nullptr.
AclValueEntry* lastValueOf(AclRuleEntry* rule, uint8_t code) {
  AclValueEntry* last = nullptr;
  for (AclValueEntry* e = aclValueFirst(rule); e != nullptr; e = aclValueNext(rule, e)) {
    if (e->code == code) last = e;
  }
  return last;
}

// Plain values: relay, store, set the field bit.
int32_t setValue(AclRuleSetCtx& c) {
  if (int32_t ret = aclRuleRelay(c)) return ret;
  AclRuleEntry* rule = c.rule;
  const uint32_t v = aclRuleSetValue(c);
  switch (c.info.kind) {
    case K::LayerType:
      rule->layerType = static_cast<uint8_t>(v);
      break;
    case K::MulticastGem:
      rule->multicastGem = v != 0 ? 1 : 0;
      break;
    default: {
      std::array<uint8_t, 4> bytes;
      be::store32(bytes, 0, v << c.info.shift);
      if (int32_t ret = aclRuleValuePut(rule, c.info.code, bytes)) return ret;
      break;
    }
  }
  aclBitSet(rule->fieldBits, c.info.code);
  return 0;
}

// Addresses and address-form masks: 4 or 16 bytes. The source address alone is checked after the
// relay.
int32_t setAddr(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  const bool ok = d->data != nullptr && addrLenOk(d->len);
  if (!ok && c.info.kind == K::Addr) return ACL_RET_INVALID;
  if (int32_t ret = aclRuleRelay(c)) return ret;
  if (!ok) return ACL_RET_INVALID;
  if (int32_t ret = aclRuleValuePut(c.rule, c.info.code, descBytes(d))) return ret;
  aclBitSet(c.rule->fieldBits, c.info.code);
  return 0;
}

// MAC addresses and MAC-form masks: exactly 6 bytes.
int32_t setMac(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  if (d->data == nullptr || d->len != ACL_RULE_MAC_LEN) return ACL_RET_INVALID;
  if (int32_t ret = aclRuleRelay(c)) return ret;
  if (int32_t ret = aclRuleValuePut(c.rule, c.info.code, descBytes(d))) return ret;
  aclBitSet(c.rule->fieldBits, c.info.code);
  return 0;
}

// User-defined data: four {userData, userDataMask, userDataOffset} records, kept as the 12-byte
// values of RULE_BIT_USERDEFINEDDATA1..4 under field bit RULE_BIT_USERDEFINED. A descriptor too
// short for the four records is refused before the relay rather than read past its end.
int32_t setUserDefined(AclRuleSetCtx& c) {
  const wire::BufDesc* d = aclRuleSetDesc(c);
  if (d->data == nullptr || d->len < ACL_RULE_UDF_LEN) return ACL_RET_INVALID;
  if (int32_t ret = aclRuleRelay(c)) return ret;
  const auto bytes = descBytes(d);
  std::array<AclRuleValueItem, ACL_RULE_UDF_NUM> records;
  for (uint32_t n = 0; n < ACL_RULE_UDF_NUM; ++n) {
    records[n] = {static_cast<uint8_t>(RULE_BIT_USERDEFINEDDATA1 + n),
                  bytes.subspan(n * ACL_RULE_UDF_RECORD_LEN, ACL_RULE_UDF_RECORD_LEN)};
  }
  // The four records go in together or not at all.
  if (int32_t ret = aclRuleValuesPut(c.rule, records)) return ret;
  aclBitSet(c.rule->fieldBits, RULE_BIT_USERDEFINED);
  return 0;
}

int32_t dispatch(AclRuleSetCtx& c) {
  switch (c.info.kind) {
    case K::Value:
    case K::LayerType:
    case K::MulticastGem:
      return setValue(c);
    case K::Addr:
    case K::AddrLate:
      return setAddr(c);
    case K::Mac:
    case K::MacMask:
      return setMac(c);
    case K::UserDefined:
      return setUserDefined(c);
    case K::Action:
      return aclRuleSetAction(c);
    case K::ActionParam:
      return aclRuleSetActionParam(c);
    case K::OutAction:
      return aclRuleSetOutAction(c);
    case K::OutActionParam:
      return aclRuleSetOutActionParam(c);
    case K::CarId:
      return aclRuleSetCarId(c);
    case K::MeterId:
      return aclRuleSetMeterId(c);
    case K::CounterId:
      return aclRuleSetCounterId(c);
    case K::TimeRange:
      return aclRuleSetTimeRange(c);
    case K::Status:
      return aclRuleSetStatus(c);
    case K::Move:
      return aclRuleSetMove(c);
    default:
      return ACL_RET_UNKNOWN;
  }
}

}  // namespace

AclRuleKey aclRuleKeyLoad(uintptr_t keyAddr) {
  std::span<const uint8_t> key(reinterpret_cast<const uint8_t*>(keyAddr), ACL_RULE_KEY_LEN);
  return {be::load32(key, ACL_RULE_KEY_LST), be::load32(key, ACL_RULE_KEY_RULE),
          be::load32(key, ACL_RULE_KEY_FILTER)};
}

int32_t aclRuleRelay(const AclRuleSetCtx& c) {
  const AclRelayData data =
      aclRuleCmdIsDesc(c.info.kind) ? AclRelayData::Desc : AclRelayData::Value;
  return aclHwRelay(ACL_RELAY_RULE, c.mode, c.key, c.cmd, c.buf, data);
}

uint32_t aclRuleSetValue(const AclRuleSetCtx& c) {
  return tblValue(c.buf);
}

wire::BufDesc* aclRuleSetDesc(const AclRuleSetCtx& c) {
  return tblDesc(c.buf);
}

int32_t aclRuleValuesPut(AclRuleEntry* rule, std::span<const AclRuleValueItem> items) {
  if (items.size() > ACL_RULE_VALUES_PUT_MAX) return CMN_ERR_BAD_PARAM;
  // First every entry a new or changed length needs (it goes after the old one of its code);
  // when one cannot be had, those already had go back and the rule is as it was.
  std::array<bool, ACL_RULE_VALUES_PUT_MAX> inPlace{};
  for (size_t i = 0; i < items.size(); ++i) {
    const AclRuleValueItem& it = items[i];
    const AclValueEntry* e = aclRuleValueEntryGet(rule, it.code);
    inPlace[i] = e != nullptr && e->len == it.bytes.size();
    if (inPlace[i]) continue;
    const auto len = static_cast<uint32_t>(it.bytes.size());
    const int32_t ret = len <= ACL_SHORT_VALUE_LEN
                            ? aclRuleShortEntryAdd(rule, it.code, it.bytes.data(), len)
                            : aclRuleLongEntryAdd(rule, it.code, it.bytes.data(), len);
    if (ret != 0) {
      for (size_t j = 0; j < i; ++j) {
        if (!inPlace[j]) aclRuleLongEntryDel(lastValueOf(rule, items[j].code));
      }
      return ret;
    }
  }
  // Then nothing can fail: overwrite in place, or let the new entry replace the old ones.
  for (size_t i = 0; i < items.size(); ++i) {
    const AclRuleValueItem& it = items[i];
    if (inPlace[i]) {
      const auto dst = aclValueBytes(aclRuleValueEntryGet(rule, it.code));
      std::copy(it.bytes.begin(), it.bytes.end(), dst.begin());
      continue;
    }
    AclValueEntry* fresh = lastValueOf(rule, it.code);
    while (AclValueEntry* e = aclRuleValueEntryGet(rule, it.code)) {
      if (e == fresh) break;
      aclRuleLongEntryDel(e);
    }
  }
  return 0;
}

int32_t aclRuleValuePut(AclRuleEntry* rule, uint8_t code, std::span<const uint8_t> bytes) {
  const AclRuleValueItem item{code, bytes};
  return aclRuleValuesPut(rule, {&item, 1});
}

void aclRuleValueDrop(AclRuleEntry* rule, uint8_t code) {
  // Either delete function gives the entry back to the pool its length selects.
  while (AclValueEntry* e = aclRuleValueEntryGet(rule, code)) aclRuleLongEntryDel(e);
}

int32_t aclRuleSetApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclRuleSetApi(keyAddr, cmd, buf, ACL_MODE_SET);
}

int32_t aclRuleSyncApi(uintptr_t keyAddr, uintptr_t cmd, uintptr_t buf) {
  return _aclRuleSetApi(keyAddr, cmd, buf, ACL_MODE_SYNC);
}

int32_t _aclRuleSetApi(uintptr_t keyAddr, uintptr_t cmdArg, uintptr_t buf, uint32_t mode) {
  if (keyAddr == 0) return CMN_ERR_BAD_PARAM;
  AclRuleSetCtx c{};
  c.key = keyAddr;
  c.cmd = static_cast<uint32_t>(cmdArg);
  c.buf = buf;
  c.mode = mode;
  c.k = aclRuleKeyLoad(keyAddr);
  c.info = aclRuleSetCmd(c.cmd);
  aclDebug(ACL_LOG_API, "ACL config [ACL Rule SET] info=[index=%d/%u cmd=%d]. \r\n",
           static_cast<int>(c.k.lstIdx), c.k.ruleIdx, static_cast<int>(c.cmd));
  if (buf == 0) return ACL_RET_INVALID;
  if (!aclStarted()) return ACL_ERR_LIST_NOT_EXIST;

  AclLockGuard lock;
  c.list = aclListEntryGet(c.k.lstIdx);
  if (c.list == nullptr || c.list->status == 0) {
    aclDebug(ACL_LOG_API, "ACL config [ACL Rule SET] error. (Reason=[acl entry null(%d)])\r\n",
             static_cast<int>(c.k.lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (c.list->refCnt >= 1 && gaclGrp.dynamicBindEnable == 0) {
    aclDebug(ACL_LOG_API,
             "ACL config [ACL Rule SET] error. (Reason=[acl entry can not modify(%d)])\r\n",
             static_cast<int>(c.k.lstIdx));
    return CMN_ERR_IN_USE;
  }
  c.rule = aclRuleEntryGet(c.list, c.k.ruleIdx);
  if (c.rule == nullptr) {
    // Only the status command goes on to create or delete; command 60 goes on to its -1.
    if (c.info.kind != K::Status && c.cmd != ACL_RULE_CMD_RESERVED) return CMN_ERR_NOT_FOUND;
  } else if (c.rule->status == ACL_RULE_STATUS_VALID && c.info.kind != K::Status &&
             c.info.kind != K::TimeRange) {
    // A valid rule is changed by making it invalid, changing it and making it valid again.
    return ACL_ERR_RULE_ACTIVE;
  }

  const int32_t ret = dispatch(c);
  aclDebug(ACL_LOG_API, "ACL config [ACL Rule SET] info=[index=%d/%u cmd=%d ret=%d]. \r\n",
           static_cast<int>(c.k.lstIdx), c.k.ruleIdx, static_cast<int>(c.cmd), ret);
  return ret;
}
