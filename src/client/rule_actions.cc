#include "client/rule_actions.h"

#include <algorithm>

#include "client/rule_fields.h"
#include "wire/acl_bits.h"
#include "wire/acl_codes.h"
#include "wire/acl_rule_cmds.h"
#include "wire/be.h"

namespace aclclient {

namespace {

using P = ActionParam;

constexpr RuleActionName kActions[] = {
    {"permit", RULE_ACTION_PERMIT, P::None, "permit"},
    {"deny", RULE_ACTION_DENY, P::None, "deny"},
    {"count", RULE_ACTION_AWARE, P::Number, "count matches (statistics)"},
    {"redirect-port", RULE_ACTION_OUTPUT_PORT, P::Ports, "redirect to the ports N[,N...]"},
    {"redirect-cpu", RULE_ACTION_OUTPUT_CPU, P::None, "redirect to the CPU"},
    {"redirect-nexthop", RULE_ACTION_OUTPUT_NEXTHOP, P::Ipv4, "redirect to an IPv4 next hop"},
    {"redirect-nexthop6", RULE_ACTION_IP6OUTPUT_NEXTHOP, P::Ipv6, "redirect to an IPv6 next hop"},
    {"cpu", RULE_ACTION_CPU, P::None, "copy to the CPU"},
    {"cpu-queue", RULE_ACTION_CPU_QUEUE, P::Number, "CPU queue"},
    {"outer-dot1p", RULE_ACTION_OUTER_DOT1P, P::Number, "remark the outer 802.1p"},
    {"inner-dot1p", RULE_ACTION_INNER_DOT1P, P::Number, "remark the inner 802.1p"},
    {"cos", RULE_ACTION_COS, P::Number, "set the class of service"},
    {"precedence", RULE_ACTION_PRECEDENCE, P::Number, "remark the IP precedence"},
    {"tos", RULE_ACTION_TOS, P::Number, "remark the IP ToS"},
    {"dscp", RULE_ACTION_DSCP, P::Number, "remark the DSCP"},
    {"pri2tos", RULE_ACTION_PRI2TOS, P::None, "802.1p to ToS"},
    {"tos2pri", RULE_ACTION_TOS2PRI, P::None, "ToS to 802.1p"},
    {"pri2precedence", RULE_ACTION_PRI2PRECEDENCE, P::None, "802.1p to precedence"},
    {"precedence2pri", RULE_ACTION_PRECEDENCE2PRI, P::None, "precedence to 802.1p"},
    {"mirror", RULE_ACTION_MIRROR, P::Number, "mirror to a port"},
    {"mirror-cpu", RULE_ACTION_MIRROR_CPU, P::None, "mirror to the CPU"},
    {"mirror-group", RULE_ACTION_MIRROR_GROUP, P::Number, "mirror to a mirror group"},
    {"loopback", RULE_ACTION_LOOPBACK, P::None, "loop back"},
    {"da-rewrite", RULE_ACTION_DA_REWRITE, P::Mac, "rewrite the destination MAC"},
    {"sa-rewrite", RULE_ACTION_SA_REWRITE, P::Mac, "rewrite the source MAC"},
    {"vid-rewrite", RULE_ACTION_VID_REWRITE, P::Number, "rewrite the VLAN id"},
    {"insert-outer-vlan", RULE_ACTION_INSERT_OVID, P::Number, "push an outer VLAN"},
    {"replace-outer-vlan", RULE_ACTION_REPLACE_OVID, P::Number, "replace the outer VLAN"},
    {"delete-outer-vlan", RULE_ACTION_DELETE_OVID, P::None, "pop the outer VLAN"},
    {"insert-inner-vlan", RULE_ACTION_INSERT_IVID, P::Number, "push an inner VLAN"},
    {"replace-inner-vlan", RULE_ACTION_REPLACE_IVID, P::Number, "replace the inner VLAN"},
    {"delete-inner-vlan", RULE_ACTION_DELETE_IVID, P::None, "pop the inner VLAN"},
    {"vfp-insert-outer-vlan", RULE_ACTION_VFP_INSERT_OVID, P::Number, "pre-stage: push outer"},
    {"vfp-replace-outer-vlan", RULE_ACTION_VFP_REPLACE_OVID, P::Number, "pre-stage: replace outer"},
    {"vfp-delete-outer-vlan", RULE_ACTION_VFP_DELETE_OVID, P::None, "pre-stage: pop outer"},
    {"vfp-insert-inner-vlan", RULE_ACTION_VFP_INSERT_IVID, P::Number, "pre-stage: push inner"},
    {"vfp-replace-inner-vlan", RULE_ACTION_VFP_REPLACE_IVID, P::Number, "pre-stage: replace inner"},
    {"vfp-delete-inner-vlan", RULE_ACTION_VFP_DELETE_IVID, P::None, "pre-stage: pop inner"},
    {"vfp-deny", RULE_ACTION_VFP_DENY, P::None, "pre-stage: deny"},
    {"isid", RULE_ACTION_ISID, P::Number, "set the I-SID"},
    {"vrf", RULE_ACTION_VRFID, P::Number, "set the VRF"},
    {"hqos", RULE_ACTION_HQOSID, P::Number, "set the HQoS id"},
    {"mac-swap", RULE_ACTION_MAC_SWAP, P::None, "swap the MACs"},
    {"ip-swap", RULE_ACTION_IP_SWAP, P::None, "swap the IP addresses"},
    {"port-swap", RULE_ACTION_PORT_SWAP, P::None, "swap the ports"},
    {"tpid", RULE_ACTION_TPID, P::Number, "set the TPID"},
};

// Out-action bits (bit 0 is the remove-all marker).
constexpr RuleActionName kOutActions[] = {
    {"drop", 1, P::None, "drop"},
    {"red-drop", 2, P::None, "drop red packets"},
    {"yellow-drop", 3, P::None, "drop yellow packets"},
    {"red-dscp", 4, P::Number, "remark the DSCP of red packets"},
    {"yellow-dscp", 5, P::Number, "remark the DSCP of yellow packets"},
    {"red-dot1p", 6, P::Number, "remark the 802.1p of red packets"},
    {"yellow-dot1p", 7, P::Number, "remark the 802.1p of yellow packets"},
    {"red-cfi", 8, P::Number, "remark the CFI of red packets"},
    {"yellow-cfi", 9, P::Number, "remark the CFI of yellow packets"},
};
constexpr uint32_t kOutParamFirstBit = 4;
constexpr uint32_t kInBitsLen = 8;
constexpr uint32_t kOutBitsLen = 2;
constexpr uint32_t kPortWords = 8;

void item(std::vector<uint8_t>* items, uint32_t code, uint32_t v) {
  items->push_back(static_cast<uint8_t>(code));
  const size_t at = items->size();
  items->resize(at + 4);
  be::store32(*items, at, v);
}

void item16(std::vector<uint8_t>* items, uint32_t code, std::span<const uint8_t> bytes) {
  items->push_back(static_cast<uint8_t>(code));
  items->insert(items->end(), bytes.begin(), bytes.end());
}

// The parameter of one in-action as items from its first word, slot.
bool paramItems(const RuleActionName& a, uint32_t slot, std::string_view v,
                std::vector<uint8_t>* items, std::string* err) {
  const std::string what = std::string(a.name) + ": ";
  switch (a.param) {
    case P::None:
      return true;
    case P::Number: {
      const auto n = parseNumber(v);
      if (!n) return (*err = what + "not a number: " + std::string(v), false);
      item(items, slot, *n);
      return true;
    }
    case P::Ipv4: {
      const auto addr = parseIpAddress(v);
      if (!addr || addr->size() != 4) return (*err = what + "not an IPv4 address", false);
      item(items, slot, be::load32(*addr, 0));
      return true;
    }
    case P::Ipv6: {
      const auto addr = parseIpAddress(v);
      if (!addr || addr->size() != 16) return (*err = what + "not an IPv6 address", false);
      item16(items, slot, *addr);
      return true;
    }
    case P::Mac: {
      const auto mac = parseMac(v);
      if (!mac) return (*err = what + "not a MAC address", false);
      item(items, slot, be::load32(*mac, 0));
      item(items, slot + 1, static_cast<uint32_t>(be::load16(*mac, 4)) << 16);
      return true;
    }
    case P::Ports: {
      std::vector<uint8_t> set(kPortWords * 4, 0);
      for (std::string_view rest = v; !rest.empty();) {
        const auto [one, more] = splitAt(rest, ',');
        rest = more;
        const auto port = parseNumber(one);
        if (!port || *port >= kPortWords * 32) {
          return (*err = what + "ports are 0.." + std::to_string(kPortWords * 32 - 1), false);
        }
        aclBitSet(set, *port);
      }
      // The first word always; the others only when they name ports (multi-port redirect).
      for (uint32_t w = 0; w < kPortWords; ++w) {
        const uint32_t word = be::load32(set, w * 4);
        if (w == 0 || word != 0) item(items, slot + w, word);
      }
      return true;
    }
  }
  return false;
}

std::string paramText(const RuleActionName& a, std::span<const uint8_t> block, uint32_t slot) {
  const size_t at = size_t{slot} * 4;
  switch (a.param) {
    case P::None:
      return "";
    case P::Number:
      return at + 4 <= block.size() ? std::to_string(be::load32(block, at)) : "";
    case P::Ipv4:
      return at + 4 <= block.size() ? ipText(block.subspan(at, 4)) : "";
    case P::Ipv6:
      return at + 16 <= block.size() ? ipText(block.subspan(at, 16)) : "";
    case P::Mac:
      return at + 6 <= block.size() ? macText(block.subspan(at, 6)) : "";
    case P::Ports: {
      std::string text;
      if (at + kPortWords * 4 > block.size()) return text;
      const auto set = block.subspan(at, kPortWords * 4);
      for (uint32_t p = 0; p < kPortWords * 32; ++p) {
        if (!aclBitTest(set, p)) continue;
        if (!text.empty()) text += ",";
        text += std::to_string(p);
      }
      return text;
    }
  }
  return "";
}

const RuleActionName* byName(std::span<const RuleActionName> table, std::string_view name) {
  const auto it = std::find_if(table.begin(), table.end(),
                               [&](const RuleActionName& a) { return name == a.name; });
  return it != table.end() ? &*it : nullptr;
}

}  // namespace

std::span<const RuleActionName> ruleActionNames() {
  return kActions;
}

std::span<const RuleActionName> ruleOutActionNames() {
  return kOutActions;
}

ActionRequest clearActions(bool out) {
  ActionRequest req;
  req.bits.assign(out ? kOutBitsLen : kInBitsLen, 0);
  aclBitSet(req.bits, RULE_ACTION_INVALID);
  return req;
}

std::optional<ActionRequest> parseActions(std::span<const std::string> words, bool out,
                                          std::string* err) {
  ActionRequest req;
  req.bits.assign(out ? kOutBitsLen : kInBitsLen, 0);
  const auto table = out ? ruleOutActionNames() : ruleActionNames();
  for (const std::string& word : words) {
    const auto [name, value] = splitAt(word, '=');
    const RuleActionName* a = byName(table, name);
    if (a == nullptr) {
      *err = std::string(out ? "unknown out-action: " : "unknown action: ") + std::string(name);
      return std::nullopt;
    }
    if ((a->param == P::None) != value.empty()) {
      *err = a->param == P::None ? std::string(a->name) + " takes no value"
                                 : std::string(a->name) + ": expected " + a->name + "=VALUE";
      return std::nullopt;
    }
    aclBitSet(req.bits, a->bit);
    const uint32_t slot = out ? a->bit - kOutParamFirstBit : aclActionParamInfo(a->bit).slot;
    if (!paramItems(*a, slot, value, &req.params, err)) return std::nullopt;
  }
  return req;
}

nlohmann::ordered_json describeActions(RuleClient& c, RuleRef r, bool out) {
  const uint32_t bitsCmd = out ? ACL_RULE_CMD_OUTACTION : ACL_RULE_CMD_ACTION;
  const uint32_t paramCmd = out ? ACL_RULE_CMD_OUTACTIONPARAM : ACL_RULE_CMD_ACTIONPARAM;
  const uint32_t bitsLen = out ? kOutBitsLen : kInBitsLen;
  const BytesAnswer bits = c.getBytes(r, bitsCmd, bitsLen);
  const BytesAnswer block =
      c.getBytes(r, paramCmd, out ? ACL_OUT_ACTION_PARAM_LEN : ACL_ACTION_PARAM_LEN);
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  const auto table = out ? ruleOutActionNames() : ruleActionNames();
  const uint32_t count = out ? ACL_OUT_ACTION_BIT_NUM : ACL_ACTION_BIT_NUM;
  for (uint32_t bit = 1; bit < count; ++bit) {
    if (bits.ret != 0 || !aclBitTest(bits.data, bit)) continue;
    const auto it = std::find_if(table.begin(), table.end(),
                                 [&](const RuleActionName& a) { return a.bit == bit; });
    nlohmann::ordered_json one;
    if (it == table.end()) {
      one["name"] = out ? "out-" + std::to_string(bit) : std::string(aclActionBitName(bit));
    } else {
      one["name"] = it->name;
      const uint32_t slot = out ? bit - kOutParamFirstBit : aclActionParamInfo(bit).slot;
      const std::string v = block.ret == 0 ? paramText(*it, block.data, slot) : "";
      if (!v.empty()) one["value"] = v;
    }
    list.push_back(one);
  }
  return list;
}

}  // namespace aclclient
