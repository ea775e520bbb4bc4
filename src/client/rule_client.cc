#include "client/rule_client.h"

#include <array>
#include <cstdio>
#include <optional>

#include "client/aclctl_cmds.h"
#include "wire/acl_ret.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace aclclient {

namespace {

constexpr uint32_t kKeyLen = 12;
constexpr uint32_t kFilterList = 0x80000000;
constexpr uint32_t kScalarRedirectMulti = 38;

std::vector<uint8_t> keyBytes(uint32_t lst, uint32_t rule, uint32_t filter = 0) {
  std::vector<uint8_t> k(kKeyLen, 0);
  be::store32(k, 0, lst);
  be::store32(k, 4, rule);
  be::store32(k, 8, filter);
  return k;
}

wire::Request keyed(uint32_t funcId, RuleRef r, uint32_t cmd) {
  wire::Request req;
  req.funcId = funcId;
  req.cmd = cmd;
  req.keyShape = wire::KeyShape::Bytes;
  req.key = keyBytes(r.lst, r.rule);
  return req;
}

struct RuleRetName {
  int32_t code;
  const char* name;
};
constexpr RuleRetName kRuleRetNames[] = {
    {ACL_ERR_RULE_LIMIT, "ACL_ERR_RULE_LIMIT"},
    {ACL_ERR_RULE_INVALID, "ACL_ERR_RULE_INVALID"},
    {ACL_ERR_ACTION_PERMIT_DENY, "ACL_ERR_ACTION_PERMIT_DENY"},
    {ACL_ERR_ACTION_REMARK, "ACL_ERR_ACTION_REMARK"},
    {ACL_ERR_ACTION_OUTER_VLAN, "ACL_ERR_ACTION_OUTER_VLAN"},
    {ACL_ERR_ACTION_INNER_VLAN, "ACL_ERR_ACTION_INNER_VLAN"},
    {ACL_ERR_ACTION_FORWARD, "ACL_ERR_ACTION_FORWARD"},
    {ACL_ERR_ACTION_MIRROR, "ACL_ERR_ACTION_MIRROR"},
};

}  // namespace

std::string ruleRetText(int32_t ret) {
  for (const RuleRetName& r : kRuleRetNames) {
    if (r.code == ret) {
      char hex[16];
      std::snprintf(hex, sizeof hex, "0x%08X", static_cast<uint32_t>(ret));
      return std::string(r.name) + " (" + hex + ")";
    }
  }
  return retText(ret);
}

RuleClient::RuleClient(const AclctlGlobals& globals) : session_(globals) {}

ValueAnswer RuleClient::getValue(RuleRef r, uint32_t cmd) {
  wire::Request req = keyed(wire::fid::aclRuleGetApi, r, cmd);
  req.bufShape = wire::BufShape::Value;
  const wire::Response resp = session_.call(req);
  return {resp.result, resp.bufValue};
}

BytesAnswer RuleClient::getBytes(RuleRef r, uint32_t cmd, uint32_t capacity) {
  wire::Request req = keyed(wire::fid::aclRuleGetApi, r, cmd);
  req.bufShape = wire::BufShape::Desc;
  req.descCapacity = capacity;
  const wire::Response resp = session_.call(req);
  return {resp.result, resp.data};
}

int32_t RuleClient::setValue(RuleRef r, uint32_t cmd, uint32_t value) {
  wire::Request req = keyed(wire::fid::aclRuleSetApi, r, cmd);
  req.bufShape = wire::BufShape::Value;
  req.bufValue = value;
  return session_.call(req).result;
}

int32_t RuleClient::setBytes(RuleRef r, uint32_t cmd, const std::vector<uint8_t>& bytes) {
  wire::Request req = keyed(wire::fid::aclRuleSetApi, r, cmd);
  req.bufShape = wire::BufShape::Desc;
  req.data = bytes;
  req.descCapacity = static_cast<uint32_t>(bytes.size());
  return session_.call(req).result;
}

std::vector<RuleRef> RuleClient::walk(std::optional<uint32_t> lst) {
  const uint32_t filter = lst ? kFilterList : 0;
  std::vector<RuleRef> out;
  wire::Request first;
  first.funcId = wire::fid::aclRuleGetFirst;
  first.keyShape = wire::KeyShape::Bytes;
  first.key = keyBytes(lst.value_or(0), 0, filter);
  wire::Response resp = session_.call(first);
  while (resp.result == 0 && resp.key.size() == kKeyLen) {
    const RuleRef r{be::load32(resp.key, 0), be::load32(resp.key, 4)};
    // A walk that does not move forward would never end.
    if (!out.empty() &&
        (r.lst < out.back().lst || (r.lst == out.back().lst && r.rule <= out.back().rule))) {
      break;
    }
    out.push_back(r);
    wire::Request next;
    next.funcId = wire::fid::aclRuleGetNext;
    next.keyShape = wire::KeyShape::Bytes;
    next.key = keyBytes(r.lst, r.rule, filter);
    resp = session_.call(next);
  }
  if (resp.result != 0 && resp.result != -1) {
    throw AclctlExit(kAclctlExitFailed, "rule walk: " + ruleRetText(resp.result));
  }
  return out;
}

uint32_t RuleClient::freeRule(uint32_t lst) {
  uint32_t candidate = 1;
  for (const RuleRef& r : walk(lst)) {
    if (r.rule == candidate) {
      ++candidate;
    } else if (r.rule > candidate) {
      break;
    }
  }
  return candidate;
}

bool RuleClient::multiRedirect() {
  const ValueAnswer v = session_.getValue(wire::fid::aclScalarGetApi, 0, kScalarRedirectMulti);
  return v.ret == 0 && v.value == 1;
}

}  // namespace aclclient
