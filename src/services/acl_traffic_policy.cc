// The traffic-policy operations: the walk over the rules concerned, the actions each operation
// builds on a rule's copy, the undo of a partial application and the bind-list accounting.
#include "services/acl_traffic_policy.h"

#include <array>
#include <map>
#include <tuple>

#include "control/acl_slot.h"
#include "hw/acl_if_name.h"
#include "hw/acl_if_record.h"
#include "main/acl_group.h"
#include "main/acl_log.h"
#include "meter/meter.h"
#include "platform/ifmgr.h"
#include "services/acl_rule_copy.h"
#include "store/acl_action_param.h"
#include "store/acl_list.h"
#include "wire/acl_codes.h"
#include "wire/acl_ret.h"
#include "wire/be.h"

namespace {

int num(uint32_t v) {
  return static_cast<int>(v);
}

struct Request {
  uint32_t lstIdx;
  uint32_t ruleIdx;
  uint8_t dir;
  bool apply;
  uint32_t keep;
  std::span<const uint8_t> raw;  // the whole record, ACL_TRAFFIC_REQ_LEN bytes
};

Request readRequest(const uint8_t* req) {
  std::span<const uint8_t> r(req, ACL_TRAFFIC_REQ_LEN);
  return {be::load32(r, ACL_TRAFFIC_REQ_LST),
          be::load32(r, ACL_TRAFFIC_REQ_RULE),
          r[ACL_TRAFFIC_REQ_DIR],
          r[ACL_TRAFFIC_REQ_OP] == ACL_TRAFFIC_OP_APPLY,
          be::load32(r, ACL_TRAFFIC_REQ_KEEP),
          r};
}

struct OpInfo {
  const char* area;        // "filter", ...
  bool refusesValid;       // stops at a rule whose status is 1
  const char* conflictOp;  // the conflict line's operation
};

const OpInfo& info(AclTrafficOp op) {
  static const std::array<OpInfo, ACL_TRAFFIC_OP_NUM> kInfo = {{
      {"loopback", true, "traffic loopback add"},
      {"redirect", true, "traffic loopback add"},
      {"filter", false, "traffic loopback add"},
      {"remark", true, "traffic loopback add"},
      {"mirror", true, "traffic loopback add"},
      {"limit", true, "traffic limit add"},
      {"statistic", true, "traffic loopback add"},
  }};
  return kInfo[static_cast<size_t>(op) - 1];
}

bool allZero(std::span<const uint8_t> b) {
  for (uint8_t v : b) {
    if (v != 0) return false;
  }
  return true;
}

// What one rule's copy carries besides its actions.
struct Extras {
  AclTrafficCounter counter{};
  AclTrafficMeter meter{};
  bool hasCounter = false;
  bool hasMeter = false;
};

// The meter attributes of a limit policy; an attribute that cannot be read stays 0.
AclTrafficMeter meterRead(uint32_t meterId) {
  AclTrafficMeter m{};
  const std::array<std::pair<uint32_t, uint32_t*>, 8> attrs = {{{1, &m.meterType},
                                                                {2, &m.meterMode},
                                                                {3, &m.carType},
                                                                {4, &m.cir},
                                                                {6, &m.pir},
                                                                {7, &m.cbs},
                                                                {8, &m.ebs},
                                                                {9, &m.pbs}}};
  for (const auto& [attr, out] : attrs) {
    std::array<uint8_t, 4> word{};
    if (meterGetApi(meterId, attr, reinterpret_cast<uintptr_t>(word.data())) == 0) {
      *out = be::load32(word.data());
    }
  }
  return m;
}

// Gives the copy the operation's actions. 0, or the code that stops the walk.
int32_t buildActions(AclTrafficOp op, const Request& q, AclRuleEntry* stored, AclRuleCopy& c,
                     Extras* x) {
  const std::span<const uint8_t> d = q.raw.subspan(ACL_TRAFFIC_REQ_DATA);
  int32_t ret = 0;
  auto add = [&](uint8_t code, uint8_t slot, std::span<const uint8_t> p) {
    if (ret == 0) ret = c.action(code, slot, p);
  };
  auto add32 = [&](uint8_t code, uint8_t slot, uint32_t v) {
    if (ret == 0) ret = c.action32(code, slot, v);
  };
  switch (op) {
    case AclTrafficOp::Filter: {
      const uint32_t code = be::load32(d, 0);
      if (code != 0) {
        if (code >= 8 * ACL_ACTION_BITS_LEN) return CMN_ERR_BAD_PARAM;
        add(static_cast<uint8_t>(code), ACL_ACTION_NO_SLOT, {});
      } else if (aclBitTest(stored->actionBits, RULE_ACTION_PERMIT)) {
        add(RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT, {});
      } else if (aclBitTest(stored->actionBits, RULE_ACTION_DENY)) {
        add(RULE_ACTION_DENY, ACL_ACTION_NO_SLOT, {});
      } else {
        return ACL_ERR_FILTER_NO_ACTION;
      }
      break;
    }
    case AclTrafficOp::Redirect:
      switch (d[0]) {
        case RULE_ACTION_OUTPUT_CPU:
          add(RULE_ACTION_OUTPUT_CPU, ACL_ACTION_NO_SLOT, {});
          break;
        case RULE_ACTION_OUTPUT_PORT:
        case RULE_ACTION_OUTPUT_NEXTHOP:
          add(d[0], 11, d.subspan(1, 4));
          c.field(RULE_BIT_ACTIONPARAM);
          break;
        case RULE_ACTION_IP6OUTPUT_NEXTHOP:
          add(d[0], 23, d.subspan(1, 16));
          c.field(RULE_BIT_ACTIONPARAM);
          break;
        default:
          return CMN_ERR_NOT_SUPPORTED;
      }
      break;
    case AclTrafficOp::Remark: {
      const std::span<const uint8_t> chosen = d.subspan(0, ACL_ACTION_BITS_LEN);
      auto pick = [&](uint32_t code, auto fn) {
        if (!aclBitTest(chosen, code)) return;
        fn();
        c.field(RULE_BIT_ACTION);
        c.field(RULE_BIT_ACTIONPARAM);
      };
      pick(RULE_ACTION_INNER_DOT1P, [&] { add32(RULE_ACTION_INNER_DOT1P, 2, d[8]); });
      pick(RULE_ACTION_OUTER_DOT1P, [&] { add32(RULE_ACTION_OUTER_DOT1P, 40, d[8]); });
      pick(RULE_ACTION_DSCP, [&] { add32(RULE_ACTION_DSCP, 9, d[9]); });
      pick(RULE_ACTION_DA_REWRITE, [&] { add(RULE_ACTION_DA_REWRITE, 42, d.subspan(10, 6)); });
      pick(RULE_ACTION_PRECEDENCE, [&] { add32(RULE_ACTION_PRECEDENCE, 39, d[16]); });
      pick(RULE_ACTION_REPLACE_OVID,
           [&] { add32(RULE_ACTION_REPLACE_OVID, 5, be::load16(d, 20)); });
      pick(RULE_ACTION_REPLACE_IVID,
           [&] { add32(RULE_ACTION_REPLACE_IVID, 6, be::load16(d, 22)); });
      break;
    }
    case AclTrafficOp::Mirror:
      add32(RULE_ACTION_MIRROR_GROUP, 3, be::load32(d, 0));
      c.field(RULE_BIT_ACTIONPARAM);
      break;
    case AclTrafficOp::Statistic:
      c.actionBit(RULE_ACTION_AWARE);
      x->counter = {d[0], d[1]};
      x->hasCounter = true;
      break;
    case AclTrafficOp::Limit: {
      const uint32_t meterId = be::load32(d, 0);
      if (meterId != 0) {
        c.field(RULE_BIT_METERID);
        c.rule()->meterId = meterId;
        x->meter = meterRead(meterId);
        x->hasMeter = true;
      }
      const uint16_t outBits = be::load16(d, 4);
      if (outBits != 0) {
        AclRuleEntry* r = c.rule();
        be::store16(r->outActionBits, 0, outBits);
        c.field(RULE_BIT_OUTACTION);
        if ((outBits & 0x0FFF) != 0) c.field(RULE_BIT_OUTACTIONPARAM);  // bits 4..15
        if (ret == 0) ret = aclOutActionBit2Entry(r);
        if (ret == 0) ret = aclOutActionParam2Entry(r, d.subspan(16, 24));
      }
      break;
    }
    case AclTrafficOp::Loopback: {
      add(RULE_ACTION_LOOPBACK, ACL_ACTION_NO_SLOT, {});
      const std::span<const uint8_t> sa = d.subspan(0, 6), da = d.subspan(6, 6);
      if (!allZero(sa)) add(RULE_ACTION_SA_REWRITE, 7, sa);
      if (!allZero(da)) add(RULE_ACTION_DA_REWRITE, 42, da);
      if (d[12] == 1) add(RULE_ACTION_MAC_SWAP, ACL_ACTION_NO_SLOT, {});
      if (d[13] == 1) add(RULE_ACTION_IP_SWAP, ACL_ACTION_NO_SLOT, {});
      if (!allZero(sa) || !allZero(da)) c.field(RULE_BIT_ACTIONPARAM);
      break;
    }
  }
  // A statistic copy is told by its counter field, every other by its action field.
  c.field(op == AclTrafficOp::Statistic ? RULE_BIT_COUNTERID : RULE_BIT_ACTION);
  return ret;
}

// One policy: where it goes and how its lines read.
struct Scope {
  bool global;
  uint32_t ifIndex;
  uint32_t cls;
  const char* prefix;  // "ACL interface" or "ACL global"
};

// Builds the rule's copy and sends it (add or remove). 0, or the failure.
int32_t sendCopy(const Scope& s, AclTrafficOp op, const Request& q, const uint8_t* req,
                 AclListEntry* list, AclRuleEntry* r, bool add) {
  r->priority = static_cast<uint16_t>(r->ruleIdx);
  AclRuleCopy copy(r, static_cast<uint16_t>(r->ruleIdx));
  if (!copy.ok()) return CMN_ERR_NO_RESOURCE;
  Extras x;
  if (const int32_t ret = buildActions(op, q, r, copy, &x); ret != 0) return ret;
  const AclTrafficCounter* ctr = x.hasCounter ? &x.counter : nullptr;
  const AclTrafficMeter* mtr = x.hasMeter ? &x.meter : nullptr;
  if (s.global) {
    return add ? aclTrafficGlobalRuleAdd(req, list, copy.rule(), ctr, mtr, op)
               : aclTrafficGlobalRuleDel(req, list, copy.rule(), ctr, mtr, op);
  }
  return add ? aclTrafficIfRuleAdd(s.ifIndex, req, list, copy.rule(), ctr, mtr, op)
             : aclTrafficIfRuleDel(s.ifIndex, req, list, copy.rule(), ctr, mtr, op);
}

AclRuleEntry* firstRule(AclListEntry* l) {
  return static_cast<AclRuleEntry*>(avl_first(&l->ruleTree));
}
AclRuleEntry* nextRule(AclListEntry* l, AclRuleEntry* r) {
  return static_cast<AclRuleEntry*>(avl_next(&l->ruleTree, r));
}

// The global policies' rule copies in the global table, counted per (list, rule, dir).
// This book, like the other per-process books built on first use (HQoS holders, the slot index,
// the device's spare nodes), is never destroyed: a function-local static made after an exit
// handler was registered dies before that handler runs, and a reset from it (or a task thread
// still ending) would then walk a freed tree (found by the table-call fuzz campaign).
using GlobalKey = std::tuple<uint32_t, uint32_t, uint8_t>;
std::map<GlobalKey, uint32_t>& globalHeld() {
  static auto& held = *new std::map<GlobalKey, uint32_t>;  // never destroyed: see below
  return held;
}
void globalNote(const AclRuleEntry* r, uint8_t dir, bool add) {
  auto& held = globalHeld();
  const GlobalKey k{r->lstIdx, r->ruleIdx, dir};
  if (add) {
    ++held[k];
    return;
  }
  auto it = held.find(k);
  if (it != held.end() && --it->second == 0) held.erase(it);
}

int32_t run(const Scope& s, AclTrafficOp op, const uint8_t* req) {
  if (req == nullptr) return CMN_ERR_BAD_PARAM;
  const Request q = readRequest(req);
  // Directions are in, out and the ingress pre-stage; no table or ledger column has another.
  if (q.dir > 2) return CMN_ERR_BAD_PARAM;
  const char* area = info(op).area;
  if (!s.global) {
    if (aclListTypeGetByIndex(q.lstIdx) == ACL_LIST_TYPE_NONE) return CMN_ERR_NOT_SUPPORTED;
    std::array<uint8_t, 4 * ZOR_LOC_WORDS> location{};
    if (zorIndexTrans(s.ifIndex, ZOR_TRANS_LOCATION, location.data()) != 0) {
      aclDebug(s.cls, "%s [%s] error. (Reason=[unit %d get ERROR])\r\n", s.prefix, area,
               num(s.ifIndex));
      return ACL_RET_IF_NO_LOCATION;
    }
  }
  // The global limit names itself statistic in its lines, all but the last.
  const char* glbArea = s.global && op == AclTrafficOp::Limit ? "statistic" : area;
  AclListEntry* list = aclListEntryGet(q.lstIdx);
  if (list == nullptr) {
    aclDebug(s.cls, "%s [%s] error. (Reason=[filter-list %d entry is NULL])\r\n", s.prefix, glbArea,
             num(q.lstIdx));
    return ACL_ERR_LIST_NOT_EXIST;
  }
  if (list->ruleNum == 0) {
    aclDebug(s.cls, "%s [%s] error. (Reason=[filter-list %d rule num is ERROR])\r\n", s.prefix,
             glbArea, num(q.lstIdx));
    return ACL_ERR_LIST_EMPTY;
  }
  AclRuleEntry* only = nullptr;
  if (q.ruleIdx != 0) {
    only = aclRuleEntryGet(list, q.ruleIdx);
    if (only == nullptr) {
      aclDebug(s.cls, "%s [%s] error. (Reason=[filter %d/%u entry is NULL])\r\n", s.prefix, glbArea,
               num(q.lstIdx), q.ruleIdx);
      return CMN_ERR_NOT_FOUND;
    }
  }
  if (!s.global && q.apply) {
    if (const int32_t ret = aclIfListConflict(s.ifIndex, q.lstIdx, q.dir, ACL_BIND_OWNER_TRAFFIC);
        ret != 0) {
      aclDebug(s.cls, "%s %s [%s] error. (Reason=[filter-list %d binded])\r\n", s.prefix,
               aclIfName(s.ifIndex, kAclIfNameLenBind).text, info(op).conflictOp, num(q.lstIdx));
      return ret;
    }
    for (AclRuleEntry* r = only != nullptr ? only : firstRule(list); r != nullptr;
         r = only != nullptr ? nullptr : nextRule(list, r)) {
      if (const int32_t ret =
              aclSlotSubRuleNumCheckWithRule(s.ifIndex, q.lstIdx, r->ruleIdx, 1, q.dir);
          ret != 0) {
        return ret;
      }
    }
  }

  int32_t ret = 0;
  uint32_t failed = 0;
  for (AclRuleEntry* r = only != nullptr ? only : firstRule(list); r != nullptr;
       r = only != nullptr ? nullptr : nextRule(list, r)) {
    if (info(op).refusesValid && r->status == ACL_RULE_STATUS_VALID) {
      ret = ACL_ERR_TRAFFIC_RULE_VALID;
    } else {
      ret = sendCopy(s, op, q, req, list, r, q.apply);
    }
    if (ret != 0) {
      failed = r->ruleIdx;
      break;
    }
    if (s.global) globalNote(r, q.dir, q.apply);
  }
  const char* errArea = s.global ? area : glbArea;
  if (ret == 0) {
    if (!s.global) {
      aclTrafficAclIfListUpdate(s.ifIndex, static_cast<uint8_t>(aclListTypeGetByIndex(q.lstIdx)),
                                q.dir, q.lstIdx, q.ruleIdx, q.apply ? 1 : 0, list, q.keep);
    }
    aclDebug(s.cls, "%s [%s] info=[list = %d rule = %d dir = %d refCnt = %d OK].\r\n", s.prefix,
             glbArea, num(q.lstIdx), num(q.ruleIdx), q.dir, list->refCnt);
    return 0;
  }
  if (q.apply) {
    // Take out what this request put in, up to the rule that failed (whose own removal may find
    // nothing to remove).
    for (AclRuleEntry* r = only != nullptr ? only : firstRule(list);
         r != nullptr && r->ruleIdx <= failed; r = only != nullptr ? nullptr : nextRule(list, r)) {
      if (sendCopy(s, op, q, req, list, r, false) == 0 && s.global && r->ruleIdx != failed) {
        globalNote(r, q.dir, false);
      }
    }
  }
  aclDebug(s.cls, "%s [%s] info=[list = %d rule = %d dir = %d refCnt = %d errcode %x].\r\n",
           s.prefix, errArea, num(q.lstIdx), num(failed), q.dir, list->refCnt,
           static_cast<unsigned>(ret));
  return ret;
}

int32_t onIf(AclTrafficOp op, uint32_t ifIndex, const uint8_t* req) {
  return run(Scope{false, ifIndex, ACL_LOG_IF, "ACL interface"}, op, req);
}
int32_t onGlobal(AclTrafficOp op, const uint8_t* req) {
  return run(Scope{true, 0, ACL_LOG_GLOBAL, "ACL global"}, op, req);
}

// One bind-list entry of the accounting.
void entryApply(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                uint32_t ruleIdx) {
  AclIfListEntry* e = aclIfListGet(ifIndex, listType, dir, lstIdx, ruleIdx);
  if (e == nullptr) {
    aclSlotSubRuleNumUpdateWithRule(ifIndex, lstIdx, ruleIdx, 1, dir, ACL_SLOT_OP_ADD);
    e = aclIfListAdd(ifIndex, listType, dir, lstIdx, ruleIdx);
    if (e == nullptr) return;
  }
  e->bindOwner = ACL_BIND_OWNER_TRAFFIC;
  ++e->refcount;
}

void entryRemove(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                 uint32_t ruleIdx) {
  AclIfListEntry* e = aclIfListGet(ifIndex, listType, dir, lstIdx, ruleIdx);
  if (e == nullptr || e->bindOwner != ACL_BIND_OWNER_TRAFFIC) return;
  if (e->refcount > 0) --e->refcount;
  if (e->refcount >= 1) return;
  aclSlotSubRuleNumUpdateWithRule(ifIndex, lstIdx, ruleIdx, 1, dir, ACL_SLOT_OP_DEL);
  aclIfListDel(e);
}

}  // namespace

void aclTrafficAclIfListUpdate(uint32_t ifIndex, uint8_t listType, uint8_t dir, uint32_t lstIdx,
                               uint32_t ruleIdx, uint8_t op, AclListEntry* list,
                               uint32_t keepBindList) {
  if (keepBindList != 0 || list == nullptr) return;
  const bool apply = op == ACL_TRAFFIC_OP_APPLY;
  const int32_t n = ruleIdx != 0 ? 1 : static_cast<int32_t>(list->ruleNum);
  if (apply) {
    list->refCnt += n;
  } else {
    list->refCnt = list->refCnt > n ? list->refCnt - n : 0;
  }
  auto each = [&](uint32_t rule) {
    if (apply) {
      entryApply(ifIndex, listType, dir, lstIdx, rule);
    } else {
      entryRemove(ifIndex, listType, dir, lstIdx, rule);
    }
  };
  if (ruleIdx != 0) {
    each(ruleIdx);
    return;
  }
  for (AclRuleEntry* r = firstRule(list); r != nullptr; r = nextRule(list, r)) each(r->ruleIdx);
}

int32_t aclTrafficIfFilter(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Filter, ifIndex, req);
}
int32_t aclTrafficIfRedirect(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Redirect, ifIndex, req);
}
int32_t aclTrafficIfRemark(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Remark, ifIndex, req);
}
int32_t aclTrafficIfMirror(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Mirror, ifIndex, req);
}
int32_t aclTrafficIfStatistic(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Statistic, ifIndex, req);
}
int32_t aclTrafficIfLimit(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Limit, ifIndex, req);
}
int32_t aclTrafficIfLoopback(uint32_t ifIndex, const uint8_t* req) {
  return onIf(AclTrafficOp::Loopback, ifIndex, req);
}
int32_t aclTrafficGlobalFilter(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Filter, req);
}
int32_t aclTrafficGlobalRedirect(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Redirect, req);
}
int32_t aclTrafficGlobalRemark(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Remark, req);
}
int32_t aclTrafficGlobalMirror(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Mirror, req);
}
int32_t aclTrafficGlobalStatistic(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Statistic, req);
}
int32_t aclTrafficGlobalLimit(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Limit, req);
}
int32_t aclTrafficGlobalLoopback(const uint8_t* req) {
  return onGlobal(AclTrafficOp::Loopback, req);
}

int32_t aclTrafficGlobalByCmd(uint32_t scalarCmd, const void* record) {
  if (scalarCmd < 53 || scalarCmd > 59) return ACL_RET_UNKNOWN;
  return onGlobal(static_cast<AclTrafficOp>(scalarCmd - 52), static_cast<const uint8_t*>(record));
}

int32_t aclTrafficIfByCmd(uint32_t ifIndex, uint32_t ifCmd, const uint8_t* req) {
  if (ifCmd < 34 || ifCmd > 40) return ACL_RET_UNKNOWN;
  return onIf(static_cast<AclTrafficOp>(ifCmd - 33), ifIndex, req);
}

std::vector<AclTrafficGlobalRule> aclTrafficGlobalRules() {
  std::vector<AclTrafficGlobalRule> out;
  for (const auto& [k, n] : globalHeld()) {
    for (uint32_t i = 0; i < n; ++i)
      out.push_back({std::get<0>(k), std::get<1>(k), std::get<2>(k)});
  }
  return out;
}

void aclTrafficResetForTest() {
  globalHeld().clear();
}
