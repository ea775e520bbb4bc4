// Policy-based redirect: every rule of a list on an interface as a copy whose actions are a
// redirect (to a port or to IPv4 or IPv6 next hops), optionally with a VRF and a precedence. It
// always travels as a TLV message. The binding is one whole-list bind-list entry owned by PBR.
#include <arpa/inet.h>

#include <array>
#include <span>
#include <vector>

#include "api/acl_if_api.h"
#include "control/acl_slot.h"
#include "hw/acl_dev_trans.h"
#include "hw/acl_glb_internal.h"
#include "hw/acl_if.h"
#include "hw/acl_if_name.h"
#include "hw/acl_if_record.h"
#include "hw/acl_policy.h"
#include "main/acl_log.h"
#include "services/acl_rule_copy.h"
#include "store/acl_list.h"
#include "wire/acl_ret.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

namespace {

int num(uint32_t v) {
  return static_cast<int>(v);
}

struct Pbr {
  uint32_t ifIndex;
  uint32_t lstIdx;
  uint8_t dir;
  uint8_t code;
  std::span<const uint8_t> precedence;  // 4 bytes
  uint32_t vrf;
  std::span<const uint8_t> param;  // 64 bytes
};

Pbr readPbr(const uint8_t* req) {
  std::span<const uint8_t> r(req, ACL_PBR_REQ_LEN);
  return {be::load32(r, ACL_PBR_IF),
          be::load32(r, ACL_PBR_LST),
          r[ACL_PBR_DIR],
          r[ACL_PBR_CODE],
          r.subspan(ACL_PBR_PRECEDENCE, 4),
          be::load32(r, ACL_PBR_VRF),
          r.subspan(ACL_PBR_PARAM, 64)};
}

bool knownCode(uint8_t code) {
  return code == RULE_ACTION_OUTPUT_PORT || code == RULE_ACTION_OUTPUT_NEXTHOP ||
         code == RULE_ACTION_OUTPUT_MULTIHOP || code == RULE_ACTION_IP6OUTPUT_NEXTHOP ||
         code == RULE_ACTION_IP6OUTPUT_MULTIHOP;
}

// The redirect actions of one copy.
int32_t redirect(const Pbr& p, AclRuleCopy& c) {
  AclRuleEntry* r = c.rule();
  std::fill(std::begin(r->actionBits), std::end(r->actionBits), 0);
  c.field(RULE_BIT_ACTION);
  c.field(RULE_BIT_ACTIONPARAM);
  int32_t ret = 0;
  auto add = [&](uint8_t code, uint8_t slot, std::span<const uint8_t> v) {
    if (ret == 0) ret = c.action(code, slot, v);
  };
  if (p.vrf != 0) {
    std::array<uint8_t, 4> w{};
    be::store32(w.data(), p.vrf);
    add(RULE_ACTION_VRFID, 21, w);
  }
  switch (p.code) {
    case RULE_ACTION_OUTPUT_PORT:
      add(p.code, 11, p.param.subspan(0, 16));
      break;
    case RULE_ACTION_OUTPUT_NEXTHOP:
      add(p.code, 11, p.param.subspan(0, 4));
      break;
    case RULE_ACTION_OUTPUT_MULTIHOP:
      add(p.code, 11, p.param.subspan(0, 16));
      break;
    case RULE_ACTION_IP6OUTPUT_NEXTHOP:
      add(p.code, 23, p.param.subspan(0, 16));
      break;
    default:  // RULE_ACTION_IP6OUTPUT_MULTIHOP
      for (uint8_t n = 0; n < 4; ++n) {
        add(p.code, static_cast<uint8_t>(23 + 4 * n), p.param.subspan(16u * n, 16));
      }
      break;
  }
  if (p.precedence[0] != 0) add(RULE_ACTION_PRECEDENCE, 39, p.precedence);
  return ret;
}

// Builds the rule's copy with the redirect and sends it (oper 0 install, 1 remove).
int32_t sendRule(aclglb::Buffer& buf, const Pbr& p, const AclListEntry* list, AclRuleEntry* r,
                 uint8_t oper, bool* transFailed) {
  *transFailed = true;
  AclRuleCopy copy(r, r->priority);
  if (!copy.ok()) return CMN_ERR_NO_RESOURCE;
  if (const int32_t ret = redirect(p, copy); ret != 0) return ret;
  std::fill(buf.data(), buf.data() + buf.len(), 0);
  uint16_t len = 0;
  if (const uint32_t ret = aclDevTransNew(copy.rule(), p.dir, oper, 0, 0, r->priority, 0,
                                          list->activeRuleNum, 0, 0, 0, buf.data(), &len);
      ret != 0) {
    return static_cast<int32_t>(ret);
  }
  *transFailed = false;
  ZorBufDesc desc{buf.data(), len};
  return aclRuleIfHwilUpdateTlv(p.ifIndex, &desc, nullptr);
}

AclRuleEntry* firstRule(AclListEntry* l) {
  return static_cast<AclRuleEntry*>(avl_first(&l->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* l, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&l->ruleTree, r));
}

}  // namespace

int32_t aclPbrIfAdd(const uint8_t* req) {
  if (req == nullptr) return CMN_ERR_BAD_PARAM;
  const Pbr p = readPbr(req);
  if (p.dir > 2) return CMN_ERR_BAD_PARAM;
  const AclIfName name = aclIfName(p.ifIndex, kAclIfNameLenBind);
  const uint32_t type = aclListTypeGetByIndex(p.lstIdx);
  if (type == ACL_LIST_TYPE_NONE) return CMN_ERR_NOT_SUPPORTED;
  AclListEntry* list = aclListEntryGet(p.lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface %s [pbr redirect add] error. (Reason=[filter-list %d entry is "
             "NULL])\r\n",
             name.text, num(p.lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (list->ruleNum == 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface %s [pbr redirect add] error. (Reason=[filter-list %d rule num is "
             "0])\r\n",
             name.text, num(p.lstIdx));
    return ACL_ERR_LIST_EMPTY;
  }
  if (!knownCode(p.code)) return CMN_ERR_NOT_SUPPORTED;
  int32_t ret = aclIfListConflict(p.ifIndex, p.lstIdx, p.dir, ACL_BIND_OWNER_PBR);
  // The same redirect twice would count the binding twice under one entry.
  if (ret == 0 &&
      aclIfListGet(p.ifIndex, static_cast<uint8_t>(type), p.dir, p.lstIdx, 0) != nullptr) {
    ret = ACL_ERR_SHARED_IN_USE;
  }
  if (ret != 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface %s [pbr redirect add] error. (Reason=[filter-list %d binded])\r\n",
             name.text, num(p.lstIdx));
    return ret;
  }
  if (ret = aclSlotSubRuleNumCheck(p.ifIndex, 0, p.lstIdx, list->ruleNum, p.dir); ret != 0) {
    aclDebug(ACL_LOG_IF, "ACL interface %s [pbr redirect add] error. (Reason=[slot is full])\r\n",
             name.text);
    return ret;
  }
  aclglb::Buffer buf(true);
  if (!buf.ok()) {
    aclDebug(ACL_LOG_IF,
             "ACL interface %s [pbr redirect add] error. (Reason=[filter-list %d malloc pTlvBuffer "
             "error])\r\n",
             name.text, num(p.lstIdx));
    return CMN_ERR_NO_RESOURCE;
  }
  const uint32_t base = type == ACL_LIST_TYPE_HYBRID ? ACL_IF_PRIORITY_HYBRID : 0;
  std::vector<AclRuleEntry*> sent;
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    r->priority = static_cast<uint16_t>(r->ruleIdx + base);
    bool transFailed = false;
    ret = sendRule(buf, p, list, r, 0, &transFailed);
    if (!transFailed) sent.push_back(r);
    if (ret != 0) break;
  }
  if (ret != 0) {
    // Nothing of a refused redirect stays in the hardware: the binding is not recorded, so no
    // removal would ever find those rules again.
    for (auto it = sent.rbegin(); it != sent.rend(); ++it) {
      bool transFailed = false;
      sendRule(buf, p, list, *it, 1, &transFailed);
    }
    return ret;
  }
  ++list->refCnt;
  aclSlotSubRuleNumUpdate(p.ifIndex, p.lstIdx, list->ruleNum, p.dir, ACL_SLOT_OP_ADD);
  aclDebug(ACL_LOG_IF,
           "ACL interface %s [pbr redirect add] info=[self = %d dir = %d refCnt = %d OK].\r\n",
           name.text, num(p.lstIdx), p.dir, list->refCnt);
  if (AclIfListEntry* e = aclIfListAdd(p.ifIndex, static_cast<uint8_t>(type), p.dir, p.lstIdx, 0)) {
    e->bindOwner = ACL_BIND_OWNER_PBR;
  }
  return 0;
}

int32_t aclPbrIfDel(const uint8_t* req) {
  if (req == nullptr) return CMN_ERR_BAD_PARAM;
  const Pbr p = readPbr(req);
  if (p.dir > 2) return CMN_ERR_BAD_PARAM;
  const uint32_t type = aclListTypeGetByIndex(p.lstIdx);
  if (type == ACL_LIST_TYPE_NONE) return CMN_ERR_NOT_SUPPORTED;
  AclListEntry* list = aclListEntryGet(p.lstIdx);
  if (list == nullptr) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [pbr redirect del] error. (Reason=[filter-list %d entry is NULL])\r\n",
             num(p.lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (list->ruleNum == 0) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [pbr redirect del] error. (Reason=[filter-list %d rule num is 0])\r\n",
             num(p.lstIdx));
    return ACL_ERR_LIST_EMPTY;
  }
  AclIfListEntry* e = aclIfListGet(p.ifIndex, static_cast<uint8_t>(type), p.dir, p.lstIdx, 0);
  if (e == nullptr || e->bindOwner != ACL_BIND_OWNER_PBR) return 0;
  aclglb::Buffer buf(true);
  if (!buf.ok()) {
    aclDebug(ACL_LOG_IF,
             "ACL interface [pbr redirect del] error. (Reason=[filter-list %d malloc pTlvBuffer "
             "error])\r\n",
             num(p.lstIdx));
    return CMN_ERR_NO_RESOURCE;
  }
  // The removal's own results do not stop it: what the hardware no longer holds is gone anyway.
  int32_t trans = 0;
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) {
    bool transFailed = false;
    const int32_t ret = sendRule(buf, p, list, r, 1, &transFailed);
    trans = transFailed ? ret : 0;
  }
  if (trans != 0) return trans;
  if (list->refCnt > 0) --list->refCnt;
  aclSlotSubRuleNumUpdate(p.ifIndex, p.lstIdx, list->ruleNum, p.dir, ACL_SLOT_OP_DEL);
  aclDebug(ACL_LOG_IF,
           "ACL interface %s [pbr redirect del] info=[self = %d dir = %d refCnt = %d OK].\r\n",
           aclIfName(p.ifIndex, kAclIfNameLenBind).text, num(p.lstIdx), p.dir, list->refCnt);
  aclIfListDel(e);
  return 0;
}

namespace {

int32_t viaTable(uint32_t cmd, std::array<uint8_t, ACL_PBR_REQ_LEN>& req) {
  wire::BufDesc desc{req.data(), ACL_PBR_REQ_LEN};
  return aclIfSetApi(be::load32(req.data()), cmd, reinterpret_cast<uintptr_t>(&desc));
}

std::array<uint8_t, ACL_PBR_REQ_LEN> request(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir,
                                             uint8_t code) {
  std::array<uint8_t, ACL_PBR_REQ_LEN> req{};
  be::store32(req.data() + ACL_PBR_IF, ifIndex);
  be::store32(req.data() + ACL_PBR_LST, lstIdx);
  req[ACL_PBR_DIR] = static_cast<uint8_t>(dir);
  req[ACL_PBR_CODE] = code;
  return req;
}

}  // namespace

int32_t aclPbrRedirectPortTest(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t port) {
  auto req = request(ifIndex, lstIdx, dir, RULE_ACTION_OUTPUT_PORT);
  be::store32(req.data() + ACL_PBR_PARAM, port);
  return viaTable(ACL_IF_CMD_PBR_ADD, req);
}

int32_t aclPbrRedirectIpv4Test(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir, uint32_t add) {
  auto req = request(ifIndex, lstIdx, dir, RULE_ACTION_OUTPUT_MULTIHOP);
  be::store32(req.data() + ACL_PBR_VRF, 1);
  inet_pton(AF_INET, "1.2.3.4", req.data() + ACL_PBR_PARAM);
  inet_pton(AF_INET, "5.4.3.2", req.data() + ACL_PBR_PARAM + 4);
  return viaTable(add == 1 ? ACL_IF_CMD_PBR_ADD : ACL_IF_CMD_PBR_DEL, req);
}

int32_t aclPbrRedirectIpv6Test(uint32_t ifIndex, uint32_t lstIdx, uint32_t dir) {
  auto req = request(ifIndex, lstIdx, dir, RULE_ACTION_IP6OUTPUT_MULTIHOP);
  inet_pton(AF_INET6, "fe80::102", req.data() + ACL_PBR_PARAM);
  inet_pton(AF_INET6, "fe80::102", req.data() + ACL_PBR_PARAM + 16);
  return viaTable(ACL_IF_CMD_PBR_ADD, req);
}
