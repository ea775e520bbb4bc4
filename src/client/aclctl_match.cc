// aclctl match addr|multicast|ipsec|nat|packet: ask the daemon's software match services (list
// get commands 10 to 16) whether an address, an address pair or a received frame is permitted by
// a filter list, and show the verdict in words.
//
// "Not permitted" and "no rule matched" are answers: aclctl ends with 0 for them. Any other
// result (no such list, a refused query) ends it with 1 and the code on stderr.
#include <arpa/inet.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "client/aclctl_cmds.h"
#include "client/aclctl_common.h"
#include "client/call_args.h"
#include "client/table_session.h"
#include "wire/be.h"
#include "wire/func_table.h"

namespace {

using nlohmann::ordered_json;

constexpr uint32_t kCmdAddr = 10;
constexpr uint32_t kCmdAddrEx = 11;
constexpr uint32_t kCmdIgmp = 12;
constexpr uint32_t kCmdIgmpSnoop = 13;
constexpr uint32_t kCmdIpsec = 14;
constexpr uint32_t kCmdNat = 15;
constexpr uint32_t kCmdPacket = 16;

constexpr uint32_t kFamilyIpv4 = 1;
constexpr uint32_t kFamilyIpv6 = 2;

// The CPU-defend request: 128 frame bytes, then what the receive path knows, then the verdict.
constexpr size_t kFrameLen = 128;
constexpr size_t kPacketReqLen = 148;
constexpr size_t kVerdictAt = 146;

const char* verdictName(uint8_t v) {
  switch (v) {
    case 2:
      return "permit";
    case 3:
      return "deny";
    case 11:
      return "none";
    default:
      return "unknown";
  }
}

// A.B.C.D[/LEN] or an IPv6 address[/LEN]; the length defaults to the whole address.
struct Prefix {
  uint32_t family = kFamilyIpv4;
  std::vector<uint8_t> addr;
  uint32_t len = 0;
};

Prefix parsePrefix(const std::string& text, bool lengthAllowed = true) {
  const auto slash = text.find('/');
  const std::string host = text.substr(0, slash);
  Prefix p;
  uint8_t bytes[16] = {};
  if (inet_pton(AF_INET, host.c_str(), bytes) == 1) {
    p.family = kFamilyIpv4;
    p.addr.assign(bytes, bytes + 4);
  } else if (inet_pton(AF_INET6, host.c_str(), bytes) == 1) {
    p.family = kFamilyIpv6;
    p.addr.assign(bytes, bytes + 16);
  } else {
    throw AclctlExit(kAclctlExitUsage, "not an IPv4 or IPv6 address: " + text);
  }
  const uint32_t maxLen = static_cast<uint32_t>(p.addr.size() * 8);
  p.len = maxLen;
  if (slash != std::string::npos) {
    const auto len = aclclient::parseU32(text.substr(slash + 1));
    if (!lengthAllowed || !len || *len > maxLen) {
      throw AclctlExit(kAclctlExitUsage, "bad prefix length: " + text);
    }
    p.len = *len;
  }
  return p;
}

void put32(std::vector<uint8_t>& b, uint32_t v) {
  const size_t at = b.size();
  b.resize(at + 4);
  be::store32(b, at, v);
}
void put16(std::vector<uint8_t>& b, uint16_t v) {
  const size_t at = b.size();
  b.resize(at + 2);
  be::store16(b, at, v);
}

// One list get with the query in a descriptor; the daemon's result and the query as it came back.
struct Answer {
  int32_t ret = 0;
  std::vector<uint8_t> data;
};

Answer ask(const AclctlGlobals& g, uint32_t lstIdx, uint32_t cmd, const std::vector<uint8_t>& q) {
  aclclient::TableSession c(g);
  wire::Request req;
  req.funcId = wire::fid::aclLstGetApi;
  req.cmd = cmd;
  req.keyShape = wire::KeyShape::Value;
  req.keyValue = lstIdx;
  req.bufShape = wire::BufShape::Desc;
  req.descCapacity = static_cast<uint32_t>(q.size());
  req.data = q;
  const wire::Response resp = c.call(req);
  return {resp.result, resp.data};
}

// Shows the answer: 0 and -1 are verdicts, anything else a failure.
void report(const AclctlGlobals& g, uint32_t lstIdx, const std::string& query, int32_t ret,
            const char* yes, const char* no, std::optional<uint8_t> verdict = std::nullopt) {
  const bool answered = ret == 0 || ret == -1;
  if (g.json) {
    ordered_json j = {{"list", lstIdx}, {"query", query}, {"ret", ret}, {"ret_hex", hex32(ret)}};
    if (answered) j["matched"] = ret == 0;
    if (verdict) {
      j["verdict"] = verdictName(*verdict);
      j["verdict_code"] = *verdict;
    }
    std::cout << j.dump() << std::endl;
  } else if (answered) {
    std::cout << "list " << lstIdx << ": " << query << ": " << (ret == 0 ? yes : no);
    if (verdict) std::cout << " (" << verdictName(*verdict) << ")";
    std::cout << std::endl;
  }
  if (!answered) {
    throw AclctlExit(kAclctlExitFailed, "list " + std::to_string(lstIdx) + ": " + query + ": " +
                                            aclclient::retText(ret));
  }
}

std::vector<uint8_t> addrQuery(const Prefix& p) {
  std::vector<uint8_t> q;
  put32(q, p.family);
  q.insert(q.end(), p.addr.begin(), p.addr.end());
  put32(q, p.len);
  return q;
}

std::optional<uint32_t> protocolNumber(const std::string& text) {
  if (text == "tcp") return 6;
  if (text == "udp") return 17;
  if (text == "icmp") return 1;
  if (text == "icmpv6") return 58;
  if (text == "any") return 65535;
  return aclclient::parseU32(text);
}

// The frame's EtherType and the offset of its IP header, past up to two VLAN tags; the outer
// and inner VLAN ids and priorities of those tags.
struct FrameInfo {
  uint16_t ethType = 0;
  uint32_t l2len = 14;
  uint16_t outerVid = 0, innerVid = 0;
  uint8_t outerPri = 0, innerPri = 0;
};

FrameInfo frameInfo(const std::vector<uint8_t>& f) {
  FrameInfo i;
  if (f.size() < 14) return i;
  uint32_t at = 12;
  i.ethType = be::load16(f, at);
  for (int tag = 0; tag < 2 && (i.ethType == 0x8100 || i.ethType == 0x88A8) && at + 6 <= f.size();
       ++tag) {
    const uint16_t tci = be::load16(f, at + 2);
    if (tag == 0) {
      i.outerVid = tci & 0x0FFF;
      i.outerPri = static_cast<uint8_t>(tci >> 13);
    } else {
      i.innerVid = tci & 0x0FFF;
      i.innerPri = static_cast<uint8_t>(tci >> 13);
    }
    at += 4;
    i.ethType = be::load16(f, at);
  }
  i.l2len = at + 2;
  return i;
}

struct Args {
  uint32_t lstIdx = 0;
  std::string addr;
  std::string dst;
  bool verdict = false;
  bool snoop = false;
  std::string protocol = "0";
  uint16_t sport = 0;
  uint16_t dport = 0;
  std::string mode = "both";
  uint32_t vrf = 0;
  std::string frame;
  uint32_t inPort = 0;
  std::optional<uint32_t> l2len;
  std::string ethType;
  std::optional<uint32_t> vlan, innerVlan;
  std::optional<uint32_t> pri, innerPri;
};

void matchAddr(const AclctlGlobals& g, const Args& a) {
  const Prefix p = parsePrefix(a.addr);
  std::vector<uint8_t> q = addrQuery(p);
  if (!a.verdict) {
    report(g, a.lstIdx, a.addr, ask(g, a.lstIdx, kCmdAddr, q).ret, "permitted", "not permitted");
    return;
  }
  q.push_back(0);
  const Answer ans = ask(g, a.lstIdx, kCmdAddrEx, q);
  std::optional<uint8_t> v;
  if (ans.ret == 0 && ans.data.size() == q.size()) v = ans.data.back();
  report(g, a.lstIdx, a.addr, ans.ret, "matched", "no rule matched", v);
}

void matchMulticast(const AclctlGlobals& g, const Args& a) {
  const Prefix p = parsePrefix(a.addr);
  const Answer ans = ask(g, a.lstIdx, a.snoop ? kCmdIgmpSnoop : kCmdIgmp, addrQuery(p));
  report(g, a.lstIdx, a.addr, ans.ret, "permitted", "not permitted");
}

void matchIpsec(const AclctlGlobals& g, const Args& a) {
  const Prefix src = parsePrefix(a.addr, false);
  const Prefix dst = parsePrefix(a.dst, false);
  if (src.family != dst.family) {
    throw AclctlExit(kAclctlExitUsage, "source and destination must be of one family");
  }
  const auto proto = protocolNumber(a.protocol);
  if (!proto) throw AclctlExit(kAclctlExitUsage, "bad protocol: " + a.protocol);
  std::optional<uint32_t> mode;
  if (a.mode == "both")
    mode = 0;
  else if (a.mode == "forward")
    mode = 1;
  else if (a.mode == "reverse")
    mode = 2;
  else
    mode = aclclient::parseU32(a.mode);
  if (!mode) throw AclctlExit(kAclctlExitUsage, "bad mode: " + a.mode);
  std::vector<uint8_t> q;
  put32(q, src.family);
  q.insert(q.end(), src.addr.begin(), src.addr.end());
  q.insert(q.end(), dst.addr.begin(), dst.addr.end());
  put16(q, a.sport);
  put16(q, a.dport);
  put32(q, *proto);
  put32(q, *mode);
  const std::string query = a.addr + " -> " + a.dst;
  report(g, a.lstIdx, query, ask(g, a.lstIdx, kCmdIpsec, q).ret, "matched", "no rule matched");
}

void matchNat(const AclctlGlobals& g, const Args& a) {
  const Prefix p = parsePrefix(a.addr);
  std::vector<uint8_t> q;
  put32(q, p.family);
  q.insert(q.end(), p.addr.begin(), p.addr.end());
  put32(q, a.vrf);
  put32(q, p.len);
  report(g, a.lstIdx, a.addr + " vrf " + std::to_string(a.vrf), ask(g, a.lstIdx, kCmdNat, q).ret,
         "permitted", "not permitted");
}

void matchPacket(const AclctlGlobals& g, const Args& a) {
  std::string hex;
  for (char ch : a.frame) {
    if (ch != ':' && ch != ' ' && ch != '-') hex.push_back(ch);
  }
  auto frame = aclclient::parseHex(hex);
  if (!frame || frame->empty()) {
    throw AclctlExit(kAclctlExitUsage, "the frame must be hex bytes: " + a.frame);
  }
  // The receive path hands over at most the frame's first 128 bytes.
  if (frame->size() > kFrameLen) frame->resize(kFrameLen);
  const FrameInfo fi = frameInfo(*frame);
  uint32_t ethType = fi.ethType;
  if (!a.ethType.empty()) {
    const auto v = aclclient::parseU32(a.ethType);
    if (!v || *v > 0xFFFF) throw AclctlExit(kAclctlExitUsage, "bad EtherType: " + a.ethType);
    ethType = *v;
  }
  std::vector<uint8_t> q(*frame);
  q.resize(kFrameLen, 0);
  put32(q, a.l2len.value_or(fi.l2len));
  put32(q, a.inPort);
  put16(q, static_cast<uint16_t>(ethType));
  put16(q, static_cast<uint16_t>(a.innerVlan.value_or(fi.innerVid)));
  put16(q, static_cast<uint16_t>(a.vlan.value_or(fi.outerVid)));
  put16(q, 0);
  q.push_back(static_cast<uint8_t>(a.innerPri.value_or(fi.innerPri)));
  q.push_back(static_cast<uint8_t>(a.pri.value_or(fi.outerPri)));
  q.push_back(0);  // the verdict comes back here
  q.push_back(0);
  const Answer ans = ask(g, a.lstIdx, kCmdPacket, q);
  std::optional<uint8_t> v;
  if (ans.ret == 0 && ans.data.size() == kPacketReqLen) v = ans.data[kVerdictAt];
  report(g, a.lstIdx, "frame of " + std::to_string(frame->size()) + " bytes", ans.ret, "matched",
         "no rule matched", v);
}

}  // namespace

void aclctlAddMatchCommands(CLI::App& app, AclctlGlobals& globals) {
  auto* match = app.add_subcommand("match", "Ask a list's software match services for a verdict");
  match->require_subcommand(1);
  auto a = std::make_shared<Args>();

  auto* addr = match->add_subcommand("addr", "Is a source address permitted (get 10, or 11)");
  addr->add_option("LIST", a->lstIdx, "list number")->required();
  addr->add_option("ADDR", a->addr, "A.B.C.D[/LEN] or IPv6[/LEN]")->required();
  addr->add_flag("--verdict", a->verdict, "show the deciding rule's verdict (get 11)");
  addr->callback([&globals, a] { matchAddr(globals, *a); });

  auto* mc = match->add_subcommand("multicast", "Is a multicast group permitted (get 12 or 13)");
  mc->add_option("LIST", a->lstIdx, "list number")->required();
  mc->add_option("GROUP", a->addr, "group address[/LEN]")->required();
  mc->add_flag("--snoop", a->snoop, "ask as IGMP snooping (get 13)");
  mc->callback([&globals, a] { matchMulticast(globals, *a); });

  auto* ipsec = match->add_subcommand("ipsec", "Does a flow match an IPsec policy (get 14)");
  ipsec->add_option("LIST", a->lstIdx, "list number")->required();
  ipsec->add_option("SRC", a->addr, "source address")->required();
  ipsec->add_option("DST", a->dst, "destination address")->required();
  ipsec->add_option("--sport", a->sport, "source port");
  ipsec->add_option("--dport", a->dport, "destination port");
  ipsec->add_option("--protocol", a->protocol, "tcp, udp, icmp, icmpv6 or a number (default 0)");
  ipsec->add_option("--mode", a->mode, "both (default), forward, reverse or a number");
  ipsec->callback([&globals, a] { matchIpsec(globals, *a); });

  auto* nat = match->add_subcommand("nat", "Is an address permitted for NAT (get 15)");
  nat->add_option("LIST", a->lstIdx, "list number")->required();
  nat->add_option("ADDR", a->addr, "A.B.C.D[/LEN] or IPv6[/LEN]")->required();
  nat->add_option("--vrf", a->vrf, "VRF id (default 0)");
  nat->callback([&globals, a] { matchNat(globals, *a); });

  auto* pkt = match->add_subcommand("packet", "Match a received frame as CPU defend does (get 16)");
  pkt->add_option("LIST", a->lstIdx, "list number")->required();
  pkt->add_option("FRAME", a->frame, "the frame from its destination MAC on, in hex")->required();
  pkt->add_option("--in-port", a->inPort, "receiving interface (only logged)");
  pkt->add_option("--l2len", a->l2len, "offset of the IP header (default: after the VLAN tags)");
  pkt->add_option("--ethertype", a->ethType, "EtherType, e.g. 0x0800 (default: the frame's)");
  pkt->add_option("--pri", a->pri, "outer priority (default: the first tag's)")
      ->check(CLI::Range(0, 255));
  pkt->add_option("--inner-pri", a->innerPri, "inner priority (default: the second tag's)")
      ->check(CLI::Range(0, 255));
  pkt->add_option("--vlan", a->vlan, "outer VLAN id (default: the frame's first tag)")
      ->check(CLI::Range(0, 65535));
  pkt->add_option("--inner-vlan", a->innerVlan, "inner VLAN id (default: the second tag)")
      ->check(CLI::Range(0, 65535));
  pkt->callback([&globals, a] { matchPacket(globals, *a); });
}
