// aclctl policy: the traffic policies other modules put on a list's rules (filter, redirect,
// remark, mirror, statistic, limit, loopback), applied and removed by hand on one interface
// (interface set 34 to 40) or globally (scalar set 53 to 59); and aclctl if hqos / if pbr, the
// HQoS binding (interface set 18, 19) and the policy-based redirect (20, 21).
#include <algorithm>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_tables.h"
#include "client/rule_fields.h"
#include "client/table_session.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/be.h"
#include "wire/func_table.h"
#include "wire/protocol.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kReqLen = 56;
constexpr uint32_t kPbrLen = 80;

const char* const kOps[] = {"loopback", "redirect", "filter",   "remark",
                            "mirror",   "limit",    "statistic"};
const char* const kDirs[] = {"in", "out", "vfp"};

[[noreturn]] void usage(const std::string& text) {
  throw AclctlExit(kAclctlExitUsage, text);
}

uint32_t policyNumber(const std::string& text, const std::string& what) {
  const auto v = aclclient::parseNumber(text);
  if (!v) usage(what + " is a number, not '" + text + "'");
  return *v;
}

uint8_t policyDirCode(const std::string& dir) {
  for (uint8_t d = 0; d < std::size(kDirs); ++d) {
    if (dir == kDirs[d]) return d;
  }
  usage("direction is in, out or vfp, not '" + dir + "'");
}

std::vector<uint8_t> mac(const std::string& text, const std::string& what) {
  const auto m = aclclient::parseMac(text);
  if (!m) usage(what + " is a MAC address like 00:11:22:33:44:55, not '" + text + "'");
  return *m;
}

std::vector<uint8_t> ip(const std::string& text, size_t len) {
  const auto a = aclclient::parseIpAddress(text);
  if (!a || a->size() != len) {
    usage("'" + text + "' is not an " + (len == 4 ? "IPv4" : "IPv6") + " address");
  }
  return *a;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> out;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ',');) out.push_back(part);
  return out;
}

// An action code by name (permit, RULE_ACTION_DENY) or number.
uint32_t actionCode(const std::string& text) {
  if (const auto v = aclclient::parseNumber(text)) return *v;
  std::string want = text;
  std::transform(want.begin(), want.end(), want.begin(), ::toupper);
  if (want.rfind("RULE_ACTION_", 0) != 0) want = "RULE_ACTION_" + want;
  for (uint32_t c = 0; c < aclActionBitToStr.size(); ++c) {
    if (want == aclActionBitToStr[c]) return c;
  }
  usage("no action called '" + text + "'");
}

struct PolicyArgs {
  std::string op;
  std::optional<uint32_t> ifIndex;
  std::optional<std::string> gem;  // IFINDEX/ONU/GEMPORT
  bool global = false;
  uint32_t lst = 0;
  uint32_t rule = 0;
  std::string dir = "in";
  bool keep = false;
  // filter
  std::string action;
  // redirect
  std::string to;
  // remark
  std::optional<uint32_t> innerDot1p, outerDot1p, dscp, precedence, outerVid, innerVid;
  std::string daMac, saMac;
  // mirror
  uint32_t group = 0;
  // statistic
  uint32_t counterType = 0, counterColor = 0;
  // limit
  uint32_t meter = 0, outActions = 0;
  std::string outParam;
  // loopback
  bool macSwap = false, ipSwap = false;
};

// The operation's data at byte 16 of the request.
void fillData(const PolicyArgs& a, std::vector<uint8_t>& req) {
  std::span<uint8_t> d(req.data() + 16, kReqLen - 16);
  if (a.op == "filter") {
    be::store32(d, 0, a.action.empty() ? 0 : actionCode(a.action));
  } else if (a.op == "redirect") {
    if (a.to == "cpu") {
      d[0] = RULE_ACTION_OUTPUT_CPU;
    } else if (a.to.rfind("port:", 0) == 0) {
      d[0] = RULE_ACTION_OUTPUT_PORT;
      be::store32(d, 1, policyNumber(a.to.substr(5), "port"));
    } else if (a.to.rfind("nexthop:", 0) == 0) {
      d[0] = RULE_ACTION_OUTPUT_NEXTHOP;
      const auto addr = ip(a.to.substr(8), 4);
      std::copy(addr.begin(), addr.end(), d.begin() + 1);
    } else if (a.to.rfind("nexthop6:", 0) == 0) {
      d[0] = RULE_ACTION_IP6OUTPUT_NEXTHOP;
      const auto addr = ip(a.to.substr(9), 16);
      std::copy(addr.begin(), addr.end(), d.begin() + 1);
    } else if (auto code = aclclient::parseNumber(a.to)) {
      d[0] = static_cast<uint8_t>(*code);  // a raw code, for the refusals
    } else {
      usage("--to is cpu, port:N, nexthop:IPV4 or nexthop6:IPV6");
    }
  } else if (a.op == "remark") {
    std::span<uint8_t> bits = d.subspan(0, 8);
    if (a.innerDot1p || a.outerDot1p) {
      if (a.innerDot1p) aclBitSet(bits, RULE_ACTION_INNER_DOT1P);
      if (a.outerDot1p) aclBitSet(bits, RULE_ACTION_OUTER_DOT1P);
      d[8] = static_cast<uint8_t>(a.innerDot1p.value_or(a.outerDot1p.value_or(0)));
    }
    if (a.dscp) {
      aclBitSet(bits, RULE_ACTION_DSCP);
      d[9] = static_cast<uint8_t>(*a.dscp);
    }
    if (!a.daMac.empty()) {
      aclBitSet(bits, RULE_ACTION_DA_REWRITE);
      const auto m = mac(a.daMac, "--da-mac");
      std::copy(m.begin(), m.end(), d.begin() + 10);
    }
    if (a.precedence) {
      aclBitSet(bits, RULE_ACTION_PRECEDENCE);
      d[16] = static_cast<uint8_t>(*a.precedence);
    }
    if (a.outerVid) {
      aclBitSet(bits, RULE_ACTION_REPLACE_OVID);
      be::store16(d, 20, static_cast<uint16_t>(*a.outerVid));
    }
    if (a.innerVid) {
      aclBitSet(bits, RULE_ACTION_REPLACE_IVID);
      be::store16(d, 22, static_cast<uint16_t>(*a.innerVid));
    }
  } else if (a.op == "mirror") {
    be::store32(d, 0, a.group);
  } else if (a.op == "statistic") {
    d[0] = static_cast<uint8_t>(a.counterType);
    d[1] = static_cast<uint8_t>(a.counterColor);
  } else if (a.op == "limit") {
    be::store32(d, 0, a.meter);
    be::store16(d, 4, static_cast<uint16_t>(a.outActions));
    const auto words = a.outParam.empty() ? std::vector<std::string>() : split(a.outParam);
    if (words.size() > 6) usage("--out-param takes at most 6 words");
    for (size_t i = 0; i < words.size(); ++i)
      be::store32(d, 16 + 4 * i, policyNumber(words[i], "--out-param"));
  } else if (a.op == "loopback") {
    if (!a.saMac.empty()) {
      const auto m = mac(a.saMac, "--sa-mac");
      std::copy(m.begin(), m.end(), d.begin());
    }
    if (!a.daMac.empty()) {
      const auto m = mac(a.daMac, "--da-mac");
      std::copy(m.begin(), m.end(), d.begin() + 6);
    }
    d[12] = a.macSwap ? 1 : 0;
    d[13] = a.ipSwap ? 1 : 0;
  }
}

void runPolicy(const AclctlGlobals& g, const PolicyArgs& a, bool apply) {
  if ((a.global ? 1 : 0) + (a.ifIndex ? 1 : 0) + (a.gem ? 1 : 0) != 1) {
    usage("give --if IFINDEX, --gem IFINDEX/ONU/GEMPORT or --global");
  }
  const auto it = std::find(std::begin(kOps), std::end(kOps), a.op);
  if (it == std::end(kOps)) {
    usage("operation is filter, redirect, remark, mirror, statistic, limit or loopback, not '" +
          a.op + "'");
  }
  const auto opIdx = static_cast<uint32_t>(it - std::begin(kOps));
  std::vector<uint8_t> req(kReqLen, 0);
  be::store32(req, 0, a.lst);
  be::store32(req, 4, a.rule);
  req[8] = policyDirCode(a.dir);
  req[9] = apply ? 1 : 2;
  be::store32(req, 12, a.keep ? 1 : 0);
  fillData(a, req);

  wire::Request r;
  r.funcId = a.global ? wire::fid::aclScalarSetApi : wire::fid::aclIfSetApi;
  r.cmd = (a.global ? 53 : 34) + opIdx;
  r.keyShape = a.global ? wire::KeyShape::None : wire::KeyShape::Value;
  r.keyValue = a.ifIndex.value_or(0);
  if (a.gem) {
    r.funcId = wire::fid::aclGemPortSetApi;
    r.cmd = 14 + opIdx;
    r.keyShape = wire::KeyShape::Bytes;
    r.key = aclctlGemKey(*a.gem);
  }
  r.bufShape = wire::BufShape::Ptr;
  r.data = req;
  aclclient::TableSession s(g);
  const int32_t ret = s.call(r).result;
  const std::string where = a.global ? "globally"
                            : a.gem  ? "on GEM port " + *a.gem
                                     : "on interface " + std::to_string(*a.ifIndex);
  const std::string target =
      "list " + std::to_string(a.lst) + (a.rule != 0 ? " rule " + std::to_string(a.rule) : "");
  ordered_json out = {{"policy", a.op},
                      {"op", apply ? "apply" : "remove"},
                      {"list", a.lst},
                      {"rule", a.rule},
                      {"dir", a.dir}};
  if (a.ifIndex) out["ifIndex"] = *a.ifIndex;
  if (a.gem) out["gem"] = *a.gem;
  aclclient::reportResult(
      g,
      std::string(apply ? "apply " : "remove ") + a.op + " " + target + " " + a.dir + " " + where,
      ret, out);
}

void addPolicyVerb(CLI::App* cmd, AclctlGlobals& globals, bool apply) {
  auto a = std::make_shared<PolicyArgs>();
  auto* sub = cmd->add_subcommand(
      apply ? "apply" : "remove",
      apply ? "Apply a policy to a list's rules (every rule, or --rule)" : "Remove a policy");
  sub->add_option("operation", a->op,
                  "filter, redirect, remark, mirror, statistic, limit or loopback")
      ->required();
  sub->add_option("--if", a->ifIndex, "interface index");
  sub->add_option("--gem", a->gem, "GEM port IFINDEX/ONU/GEMPORT (acts on its PON interface)");
  sub->add_flag("--global", a->global, "the whole system");
  sub->add_option("--list", a->lst, "list number")->required();
  sub->add_option("--rule", a->rule, "one rule of the list (default: every rule)");
  sub->add_option("--dir", a->dir, "in, out or vfp (default in)");
  sub->add_flag("--keep-bind-list", a->keep, "leave the interface's bind-list entries alone");
  sub->add_option("--action", a->action,
                  "filter: action code or name (default: the rule's own permit or deny)");
  sub->add_option("--to", a->to, "redirect: cpu, port:N, nexthop:IPV4 or nexthop6:IPV6");
  sub->add_option("--inner-dot1p", a->innerDot1p, "remark: inner 802.1p");
  sub->add_option("--outer-dot1p", a->outerDot1p, "remark: outer 802.1p");
  sub->add_option("--dscp", a->dscp, "remark: DSCP");
  sub->add_option("--precedence", a->precedence, "remark: IP precedence");
  sub->add_option("--outer-vid", a->outerVid, "remark: outer VLAN id");
  sub->add_option("--inner-vid", a->innerVid, "remark: inner VLAN id");
  sub->add_option("--da-mac", a->daMac, "remark, loopback: destination MAC rewrite");
  sub->add_option("--sa-mac", a->saMac, "loopback: source MAC rewrite");
  sub->add_flag("--mac-swap", a->macSwap, "loopback: swap the MAC addresses");
  sub->add_flag("--ip-swap", a->ipSwap, "loopback: swap the IP addresses");
  sub->add_option("--group", a->group, "mirror: mirror group");
  sub->add_option("--counter-type", a->counterType, "statistic: counter type");
  sub->add_option("--counter-color", a->counterColor, "statistic: counter colour");
  sub->add_option("--meter", a->meter, "limit: meter id");
  sub->add_option("--out-actions", a->outActions, "limit: out-action bits (16-bit number)");
  sub->add_option("--out-param", a->outParam, "limit: up to 6 out-action parameter words, a,b,...");
  sub->callback([&globals, a, apply] { runPolicy(globals, *a, apply); });
}

// aclctl if hqos add|del IFINDEX DIR LIST HQOSID
struct HqosArgs {
  uint32_t ifIndex = 0, lst = 0, hqos = 0;
  std::string dir;
};

// aclctl if pbr add|del IFINDEX DIR LIST --to ...
struct PbrArgs {
  uint32_t ifIndex = 0, lst = 0, vrf = 0, precedence = 0;
  std::string dir, to;
};

std::vector<uint8_t> pbrRequest(const PbrArgs& a) {
  std::vector<uint8_t> req(kPbrLen, 0);
  be::store32(req, 0, a.ifIndex);
  be::store32(req, 4, a.lst);
  req[8] = policyDirCode(a.dir);
  be::store32(req, 12, a.vrf);
  // The precedence's first byte says whether it is used; the rest of its word is the VRF's.
  req[10] = static_cast<uint8_t>(a.precedence);
  const auto colon = a.to.find(':');
  const std::string kind = a.to.substr(0, colon);
  const std::string rest = colon == std::string::npos ? "" : a.to.substr(colon + 1);
  auto hops = [&](size_t len, size_t max) {
    const auto parts = split(rest);
    if (parts.empty() || parts.size() > max)
      usage("--to " + kind + " takes 1 to " + std::to_string(max) + " addresses");
    for (size_t i = 0; i < parts.size(); ++i) {
      const auto addr = ip(parts[i], len);
      std::copy(addr.begin(), addr.end(), req.begin() + 16 + static_cast<ptrdiff_t>(i * len));
    }
  };
  if (kind == "port") {
    req[9] = RULE_ACTION_OUTPUT_PORT;
    be::store32(req, 16, policyNumber(rest, "port"));
  } else if (kind == "nexthop") {
    req[9] = RULE_ACTION_OUTPUT_NEXTHOP;
    hops(4, 1);
  } else if (kind == "multihop") {
    req[9] = RULE_ACTION_OUTPUT_MULTIHOP;
    hops(4, 4);
  } else if (kind == "nexthop6") {
    req[9] = RULE_ACTION_IP6OUTPUT_NEXTHOP;
    hops(16, 1);
  } else if (kind == "multihop6") {
    req[9] = RULE_ACTION_IP6OUTPUT_MULTIHOP;
    hops(16, 4);
  } else {
    usage(
        "--to is port:N, nexthop:IPV4, multihop:IPV4[,...], nexthop6:IPV6 or multihop6:IPV6[,...]");
  }
  return req;
}

}  // namespace

void aclctlAddPolicyCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* cmd = app.add_subcommand(
      "policy",
      "Traffic policies on a list's rules, on an interface (--if), a GEM port's PON interface "
      "(--gem) or globally (--global)");
  cmd->require_subcommand(1);
  addPolicyVerb(cmd, globals, true);
  addPolicyVerb(cmd, globals, false);
}

void aclctlAddIfPolicyCommands(CLI::App& ifCmd, AclctlGlobals& globals) {
  auto* hqos = ifCmd.add_subcommand("hqos", "HQoS binding of a list: the rules carry an HQoS id");
  hqos->require_subcommand(1);
  for (const bool add : {true, false}) {
    auto a = std::make_shared<HqosArgs>();
    auto* sub = hqos->add_subcommand(add ? "add" : "del", add ? "Bind with an HQoS id" : "Unbind");
    sub->add_option("ifindex", a->ifIndex, "interface index")->required();
    sub->add_option("dir", a->dir, "in, out or vfp")->required();
    sub->add_option("list", a->lst, "list number")->required();
    sub->add_option("hqosid", a->hqos, "HQoS id");
    sub->callback([&globals, a, add] {
      wire::Request r;
      r.funcId = wire::fid::aclIfSetApi;
      r.cmd = add ? 18 : 19;
      r.keyShape = wire::KeyShape::Value;
      r.keyValue = a->ifIndex;
      r.bufShape = wire::BufShape::Ptr;
      r.data.assign(12, 0);
      be::store32(r.data, 0, a->lst);
      be::store32(r.data, 4, policyDirCode(a->dir));
      be::store32(r.data, 8, a->hqos);
      aclclient::TableSession s(globals);
      const int32_t ret = s.call(r).result;
      aclclient::reportResult(globals,
                              std::string("hqos ") + (add ? "add " : "del ") + "list " +
                                  std::to_string(a->lst) + " " + a->dir + " on interface " +
                                  std::to_string(a->ifIndex),
                              ret,
                              {{"hqos", add ? "add" : "del"},
                               {"ifIndex", a->ifIndex},
                               {"list", a->lst},
                               {"dir", a->dir},
                               {"hqosId", a->hqos}});
    });
  }

  auto* pbr = ifCmd.add_subcommand("pbr", "Policy-based redirect of a list's rules");
  pbr->require_subcommand(1);
  for (const bool add : {true, false}) {
    auto a = std::make_shared<PbrArgs>();
    auto* sub =
        pbr->add_subcommand(add ? "add" : "del", add ? "Redirect" : "Take the redirect off");
    sub->add_option("ifindex", a->ifIndex, "interface index")->required();
    sub->add_option("dir", a->dir, "in, out or vfp")->required();
    sub->add_option("list", a->lst, "list number")->required();
    sub->add_option(
           "--to", a->to,
           "port:N, nexthop:IPV4, multihop:IPV4[,...], nexthop6:IPV6, multihop6:IPV6[,...]")
        ->required();
    sub->add_option("--vrf", a->vrf, "VRF id (0: none)");
    sub->add_option("--precedence", a->precedence, "precedence value (0: none)");
    sub->callback([&globals, a, add] {
      wire::Request r;
      r.funcId = wire::fid::aclIfSetApi;
      r.cmd = add ? 20 : 21;
      r.keyShape = wire::KeyShape::Value;
      r.keyValue = a->ifIndex;
      r.bufShape = wire::BufShape::Desc;
      r.data = pbrRequest(*a);
      r.descCapacity = kPbrLen;
      aclclient::TableSession s(globals);
      const int32_t ret = s.call(r).result;
      aclclient::reportResult(globals,
                              std::string("pbr ") + (add ? "add " : "del ") + "list " +
                                  std::to_string(a->lst) + " " + a->dir + " on interface " +
                                  std::to_string(a->ifIndex) + " to " + a->to,
                              ret,
                              {{"pbr", add ? "add" : "del"},
                               {"ifIndex", a->ifIndex},
                               {"list", a->lst},
                               {"dir", a->dir},
                               {"to", a->to}});
    });
  }
}
