#include "client/table_session.h"

#include <cstdio>
#include <stdexcept>

#include "client/aclctl_cmds.h"
#include "wire/acl_ret.h"
#include "wire/acl_ret_traffic.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace aclclient {

namespace {

struct RetName {
  int32_t code;
  const char* name;
};

constexpr RetName kRetNames[] = {
    {ACL_RET_IF_LIST_ACTIVE, "interface binding switched on"},
    {ACL_RET_IF_NO_LOCATION, "interface location unknown"},
    {ACL_RET_INVALID, "invalid argument"},
    {ACL_RET_COUNTER_CREATE, "counter could not be created"},
    {CMN_ERR_NO_RESOURCE, "CMN_ERR_NO_RESOURCE"},
    {CMN_ERR_NOT_FOUND, "CMN_ERR_NOT_FOUND"},
    {CMN_ERR_NAME_USED, "CMN_ERR_NAME_USED"},
    {CMN_ERR_SYNC_FAILED, "CMN_ERR_SYNC_FAILED"},
    {CMN_ERR_IN_USE, "CMN_ERR_IN_USE"},
    {CMN_ERR_BUFFER_SHORT, "CMN_ERR_BUFFER_SHORT"},
    {CMN_ERR_NOT_SUPPORTED, "CMN_ERR_NOT_SUPPORTED"},
    {CMN_ERR_NO_TABLE, "CMN_ERR_NO_TABLE"},
    {CMN_ERR_BAD_PARAM, "CMN_ERR_BAD_PARAM"},
    {ACL_ERR_READ_ONLY, "ACL_ERR_READ_ONLY"},
    {ACL_ERR_STATS_NOT_EXIST, "ACL_ERR_STATS_NOT_EXIST"},
    {ACL_ERR_IFSTATS_NOT_EXIST, "ACL_ERR_IFSTATS_NOT_EXIST"},
    {ACL_ERR_SHARED_IN_USE, "ACL_ERR_SHARED_IN_USE"},
    {ACL_ERR_TRAFFIC_RULE_VALID, "ACL_ERR_TRAFFIC_RULE_VALID"},
    {ACL_ERR_FILTER_NO_ACTION, "ACL_ERR_FILTER_NO_ACTION"},
    {ACL_ERR_LIST_NOT_EXIST, "ACL_ERR_LIST_NOT_EXIST"},
    {ACL_ERR_IF_NOT_EXIST, "ACL_ERR_IF_NOT_EXIST"},
    {ACL_ERR_MULTI_REDIRECT, "ACL_ERR_MULTI_REDIRECT"},
    {ACL_ERR_RULE_ACTIVE, "ACL_ERR_RULE_ACTIVE"},
    {ACL_ERR_SLOT_NOT_EXIST, "ACL_ERR_SLOT_NOT_EXIST"},
    {ACL_ERR_SLOT_RULE_FULL, "ACL_ERR_SLOT_RULE_FULL"},
    {CMN_ERR_IF_LOCATE, "CMN_ERR_IF_LOCATE"},
};

}  // namespace

std::string retText(int32_t ret) {
  if (ret == 0) return "ok";
  if (ret == -1) return "-1 (refused, or no such entry)";
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08X", static_cast<uint32_t>(ret));
  for (const RetName& r : kRetNames) {
    if (r.code == ret) return std::string(r.name) + " (" + hex + ")";
  }
  return hex;
}

std::pair<uint32_t, uint32_t> parseSlotKey(const std::string& text, const std::string& what) {
  const auto slash = text.find('/');
  try {
    if (slash == std::string::npos) throw std::invalid_argument("no slash");
    size_t n1 = 0, n2 = 0;
    const std::string a = text.substr(0, slash), b = text.substr(slash + 1);
    const unsigned long sys = std::stoul(a, &n1, 0), slot = std::stoul(b, &n2, 0);
    if (n1 != a.size() || n2 != b.size() || a.empty() || b.empty() || a[0] == '-' || b[0] == '-' ||
        sys > 0xFFFFFFFFul || slot > 0xFFFFFFFFul) {
      throw std::invalid_argument("not numbers");
    }
    return {static_cast<uint32_t>(sys), static_cast<uint32_t>(slot)};
  } catch (const std::exception&) {
    throw AclctlExit(kAclctlExitUsage, what + " takes SYS/SLOT, e.g. 1/2: " + text);
  }
}

TableSession::TableSession(const AclctlGlobals& globals) {
  std::string err;
  client_ = CmdClient::connect(cmdSocketPath(globals.runDir, globals.socket), &err);
  if (!client_) throw AclctlExit(kAclctlExitFailed, err);
}

wire::Response TableSession::call(const wire::Request& req) {
  wire::Response resp;
  std::string err;
  if (!client_->call(req, &resp, &err)) throw AclctlExit(kAclctlExitFailed, err);
  if (resp.status != wire::Status::Ok) {
    throw AclctlExit(kAclctlExitFailed, "the daemon refused the request: " +
                                            std::string(wire::statusName(resp.status)));
  }
  return resp;
}

namespace {

wire::Request keyed(uint32_t funcId, uint32_t key, uint32_t cmd) {
  wire::Request req;
  req.funcId = funcId;
  req.cmd = cmd;
  const wire::FuncInfo& f = wire::funcInfo(funcId);
  req.keyShape = f.keyKind == wire::KeyKind::None ? wire::KeyShape::None : wire::KeyShape::Value;
  req.keyValue = key;
  return req;
}

}  // namespace

ValueAnswer TableSession::getValue(uint32_t funcId, uint32_t key, uint32_t cmd) {
  wire::Request req = keyed(funcId, key, cmd);
  req.bufShape = wire::BufShape::Value;
  const wire::Response resp = call(req);
  return {resp.result, resp.bufValue};
}

int32_t TableSession::setValue(uint32_t funcId, uint32_t key, uint32_t cmd, uint32_t value) {
  wire::Request req = keyed(funcId, key, cmd);
  req.bufShape = wire::BufShape::Value;
  req.bufValue = value;
  return call(req).result;
}

BytesAnswer TableSession::getBytes(uint32_t funcId, uint32_t key, uint32_t cmd, uint32_t capacity) {
  wire::Request req = keyed(funcId, key, cmd);
  req.bufShape = wire::BufShape::Desc;
  req.descCapacity = capacity;
  wire::Response resp = call(req);
  return {resp.result, std::move(resp.data)};
}

int32_t TableSession::setBytes(uint32_t funcId, uint32_t key, uint32_t cmd,
                               const std::vector<uint8_t>& bytes) {
  wire::Request req = keyed(funcId, key, cmd);
  req.bufShape = wire::BufShape::Desc;
  req.data = bytes;
  req.descCapacity = static_cast<uint32_t>(bytes.size());
  return call(req).result;
}

std::vector<uint32_t> TableSession::walk(uint32_t firstFuncId, uint32_t nextFuncId) {
  std::vector<uint32_t> keys;
  wire::Request first;
  first.funcId = firstFuncId;
  first.keyShape = wire::KeyShape::Bytes;
  first.key.assign(4, 0);
  wire::Response resp = call(first);
  while (resp.result == 0 && resp.key.size() == 4) {
    const uint32_t k = be::load32(resp.key, 0);
    // A table that answers the same key twice would walk for ever.
    if (!keys.empty() && k <= keys.back()) break;
    keys.push_back(k);
    wire::Request next;
    next.funcId = nextFuncId;
    next.keyShape = wire::KeyShape::Value;
    next.keyValue = k;
    resp = call(next);
  }
  return keys;
}

}  // namespace aclclient
