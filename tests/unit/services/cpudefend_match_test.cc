// The CPU-defend packet match (list get 16): the parse of the frame into a parameter record
// (fragments, IPv6, frames whose headers run past the 128 bytes carried), the rule tests and the
// verdict written back into the request.
#include "unit/services/match_fixture.h"

#include "services/acl_cpudefend_match.h"
#include "services/acl_match.h"

#include <tuple>

namespace matchtest {
namespace {

using Rec = std::array<uint8_t, ACL_RULE_PARAM_LEN>;

const Bytes kDmac = {0x00, 0x1b, 0x21, 0x00, 0x00, 0x01};
const Bytes kSmac = {0x00, 0x1b, 0x21, 0x3c, 0x4d, 0x5e};

Bytes ethernet(uint16_t ethType) {
  Bytes f = kDmac;
  append(f, kSmac);
  put16(f, ethType);
  return f;
}

// An IPv4 header with ihl words (options zero) and the given fragment word.
Bytes ipv4(uint8_t proto, const char* src, const char* dst, uint16_t frag = 0, uint8_t ihl = 5) {
  Bytes h(4u * ihl, 0);
  h[0] = static_cast<uint8_t>(0x40 | ihl);
  h[1] = 0xB8;  // DSCP 46
  be::store16(h, 6, frag);
  h[8] = 64;
  h[9] = proto;
  const Bytes s = v4(src), d = v4(dst);
  std::copy(s.begin(), s.end(), h.begin() + 12);
  std::copy(d.begin(), d.end(), h.begin() + 16);
  return h;
}

Bytes ipv6(uint8_t next, const char* src, const char* dst) {
  Bytes h(8, 0);
  be::store32(h, 0, 0x6A512345);  // traffic class 0xA5, flow label 0x12345
  h[6] = next;
  h[7] = 255;
  append(h, v6(src));
  append(h, v6(dst));
  return h;
}

Bytes tcp(uint16_t sport, uint16_t dport, uint8_t flags) {
  Bytes h(20, 0);
  be::store16(h, 0, sport);
  be::store16(h, 2, dport);
  h[12] = 0x50;
  h[13] = flags;
  return h;
}

Bytes udp(uint16_t sport, uint16_t dport) {
  Bytes h(8, 0);
  be::store16(h, 0, sport);
  be::store16(h, 2, dport);
  return h;
}

AclCpuDefendMeta meta(uint16_t ethType, uint32_t l2len = 14) {
  return {l2len, 7, ethType, 200, 100, 0xFD, 0xFE};
}

// The parse of frame (exactly its bytes).
Rec parse(const Bytes& frame, const AclCpuDefendMeta& m) {
  Rec rec;
  rec.fill(0xEE);
  aclCpuDefendPacketParse(frame, m, rec);
  return rec;
}

// The 148-byte request of a frame (cut or padded to 128 bytes).
Bytes request(Bytes frame, const AclCpuDefendMeta& m) {
  frame.resize(ACL_CPUDEFEND_FRAME_LEN, 0);
  put32(frame, m.l2len);
  put32(frame, m.ifUnit);
  put16(frame, m.ethType);
  put16(frame, m.innerVid);
  put16(frame, m.outerVid);
  put16(frame, 0);
  frame.push_back(m.innerPri);
  frame.push_back(m.outerPri);
  frame.push_back(0xEE);  // verdict
  frame.push_back(0);
  return frame;
}

Bytes tcpSyn(uint16_t dport) {
  Bytes f = ethernet(ACL_ETHTYPE_IPV4);
  append(f, ipv4(6, "192.0.2.1", "198.51.100.7"));
  append(f, tcp(40000, dport, 0x02));
  return f;
}

uint16_t u16(const Rec& r, uint32_t off) {
  return be::load16(r, off);
}
uint32_t u32(const Rec& r, uint32_t off) {
  return be::load32(r, off);
}

// The layer-3/4 view of a parse: IP version, fragment flag, protocol type and subtype, the first
// word of the source address, the ports and the TCP flags.
using L34 = std::array<uint32_t, 8>;
L34 l34(const Rec& r) {
  return {uint32_t(r[ACL_RP_ENCAP_LAYER_IPVER] & 3),
          uint32_t(r[ACL_RP_DOT1P_FLAGS] & 1),
          u16(r, ACL_RP_PROTO_TYPE),
          u16(r, ACL_RP_PROTO_SUBTYPE),
          u32(r, ACL_RP_SRC_ADDR),
          u16(r, ACL_RP_SRC_PORT),
          u16(r, ACL_RP_DEST_PORT),
          r[ACL_RP_TCP_FSM]};
}

TEST(CpuDefendParse, TcpOverIpv4) {
  const Rec r = parse(tcpSyn(80), meta(ACL_ETHTYPE_IPV4));
  EXPECT_TRUE(std::equal(kDmac.begin(), kDmac.end(), r.begin() + ACL_RP_DEST_MAC));
  EXPECT_TRUE(std::equal(kSmac.begin(), kSmac.end(), r.begin() + ACL_RP_SRC_MAC));
  EXPECT_EQ(l34(r), (L34{1, 0, 0x0800, 6, 0xC0000201u, 40000, 80, 0x02}));
  // (offset, width in bytes, value) of the other fields the SYN sets.
  const std::tuple<uint32_t, int, uint32_t> fields[] = {{ACL_RP_ETH_TYPE, 2, 0x0800},
                                                        {ACL_RP_OUTER_VID, 2, 100},
                                                        {ACL_RP_INNER_VID, 2, 200},
                                                        {ACL_RP_DOT1P_FLAGS, 1, 5 << 4 | 6 << 1},
                                                        {ACL_RP_ENCAP_LAYER_IPVER, 1, 1},
                                                        {ACL_RP_SRC_ADDR + 4, 4, 0},
                                                        {ACL_RP_DEST_ADDR, 4, 0xC6336407u},
                                                        {ACL_RP_TOS_DSCP, 1, 0xB8},
                                                        {ACL_RP_IP_TTL, 1, 64}};
  for (const auto& [off, width, want] : fields) {
    const uint32_t got = width == 1 ? r[off] : width == 2 ? u16(r, off) : u32(r, off);
    EXPECT_EQ(got, want) << "offset " << off;
  }
  EXPECT_EQ(r[300], 0) << "the record is cleared first";
}

TEST(CpuDefendParse, FragmentsOptionsAndIcmp) {
  // UDP 53 -> 5353 by fragment word; addresses are in every fragment, ports only in the first.
  const std::pair<uint16_t, L34> frags[] = {{0x2000, {1, 1, 0x0800, 17, 0x0A000001u, 53, 5353, 0}},
                                            {0x200C, {1, 1, 0x0800, 17, 0x0A000001u, 0, 0, 0}},
                                            {0x0001, {1, 1, 0x0800, 17, 0x0A000001u, 0, 0, 0}},
                                            {0x4000, {1, 1, 0x0800, 17, 0x0A000001u, 53, 5353, 0}},
                                            {0, {1, 0, 0x0800, 17, 0x0A000001u, 53, 5353, 0}}};
  for (const auto& [frag, want] : frags) {
    Bytes f = ethernet(ACL_ETHTYPE_IPV4);
    append(f, ipv4(17, "10.0.0.1", "10.0.0.2", frag));
    append(f, udp(53, 5353));
    EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV4))), want) << std::hex << frag;
  }
  // ICMP type and code stand in the ports.
  Bytes f = ethernet(ACL_ETHTYPE_IPV4);
  append(f, ipv4(1, "10.0.0.1", "10.0.0.2"));
  append(f, Bytes{8, 3, 0, 0});  // echo request, code 3
  EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV4))), (L34{1, 0, 0x0800, 1, 0x0A000001u, 8, 3, 0}));
  // Options move the layer-4 header: ihl 6 puts the ports 4 bytes later.
  f = ethernet(ACL_ETHTYPE_IPV4);
  append(f, ipv4(6, "10.0.0.1", "10.0.0.2", 0, 6));
  append(f, tcp(1, 2, 0x12));
  EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV4))), (L34{1, 0, 0x0800, 6, 0x0A000001u, 1, 2, 0x12}));
}

TEST(CpuDefendParse, Ipv6AndItsExtensionHeaders) {
  Bytes f = ethernet(ACL_ETHTYPE_IPV6);
  append(f, ipv6(17, "2001:db8::1", "2001:db8::2"));
  append(f, udp(546, 547));
  Rec r = parse(f, meta(ACL_ETHTYPE_IPV6));
  EXPECT_EQ(l34(r), (L34{2, 0, 0x0800, 17, 0x20010db8u, 546, 547, 0}));
  EXPECT_EQ(std::make_tuple(r[ACL_RP_TOS_DSCP], r[ACL_RP_HOP_LIMIT], u32(r, ACL_RP_FLOW),
                            u32(r, ACL_RP_SRC_ADDR + 12), u32(r, ACL_RP_DEST_ADDR + 12)),
            std::make_tuple(0xA5, 255, (17u << 24) | (0x12345u << 4), 1u, 2u));
  // Behind a hop-by-hop header the layer-4 fields are left empty.
  f = ethernet(ACL_ETHTYPE_IPV6);
  append(f, ipv6(0, "2001:db8::1", "2001:db8::2"));
  append(f, Bytes{17, 0, 0, 0, 0, 0, 0, 0});
  append(f, udp(546, 547));
  EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV6))), (L34{2, 0, 0x0800, 0, 0x20010db8u, 0, 0, 0}));
}

TEST(CpuDefendParse, NothingIsReadPastTheFrame) {
  // The IPv4 header would end at byte 130.
  Bytes f(ACL_CPUDEFEND_FRAME_LEN, 0x45);
  Rec r = parse(f, meta(ACL_ETHTYPE_IPV4, 110));
  EXPECT_EQ(l34(r), L34{});
  EXPECT_EQ(u16(r, ACL_RP_OUTER_VID), 100) << "the layer-2 fields are still there";
  // Offsets that wrap around.
  for (uint32_t l2len : {0xFFFFFFFFu, 0xFFFFFFECu, 129u, 128u}) {
    EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV4, l2len)))[0], 0) << l2len;
    EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV6, l2len)))[0], 0) << l2len;
  }
  // 60 bytes of IPv4 header at 60: the TCP ports at 120..123 are there, its flags (133) are not.
  f = Bytes(60, 0);
  append(f, ipv4(6, "10.0.0.1", "10.0.0.2", 0, 15));
  append(f, Bytes{0x01, 0xBB, 0x00, 0x50, 0, 0, 0, 0});
  ASSERT_EQ(f.size(), ACL_CPUDEFEND_FRAME_LEN);
  EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV4, 60))),
            (L34{1, 0, 0x0800, 6, 0x0A000001u, 443, 80, 0}));
  // An IPv6 header that just fits leaves no room for its UDP header.
  f = Bytes(88, 0);
  append(f, ipv6(17, "::1", "::2"));
  EXPECT_EQ(l34(parse(f, meta(ACL_ETHTYPE_IPV6, 88))), (L34{2, 0, 0x0800, 17, 0, 0, 0, 0}));
  // A frame shorter than its MAC addresses.
  r = parse(Bytes(8, 0xAB), meta(0x0806));
  EXPECT_EQ(r[ACL_RP_DEST_MAC + 5], 0xAB);
  EXPECT_EQ(r[ACL_RP_SRC_MAC], 0);
}

class CpuDefendMatch : public MatchTest {
 protected:
  // The answer of list get 16 for req and the verdict byte it left in the request.
  static std::pair<int32_t, uint8_t> verdict(uint32_t lst, const Bytes& req) {
    Bytes back;
    const int32_t ret = ask(lst, 16, req, &back);
    return {ret, back[ACL_CPUDEFEND_VERDICT]};
  }
  static Bytes syn(uint16_t dport) { return request(tcpSyn(dport), meta(ACL_ETHTYPE_IPV4)); }
};

// A SYN denied by its destination port is shown end to end; here the request's edges.
TEST_F(CpuDefendMatch, RequestLengthsAndNoMatch) {
  add({.rule = 1, .ipVer = 0, .values = {{16, 80}}, .actions = kDeny});
  EXPECT_EQ(verdict(kList, syn(81)), std::make_pair(-1, uint8_t{0xEE})) << "untouched: no match";
  Bytes req = syn(80);
  EXPECT_EQ(ask(kList, 16, Bytes(req.begin(), req.end() - 1)), CMN_ERR_BUFFER_SHORT);
  EXPECT_EQ(ask(kList, 16, {}), CMN_ERR_BAD_PARAM);
  wire::BufDesc noData{nullptr, ACL_CPUDEFEND_REQ_LEN};
  EXPECT_EQ(aclCpuDefendMatch(kList, &noData), CMN_ERR_BAD_PARAM);
  EXPECT_EQ(aclCpuDefendMatch(kList, nullptr), CMN_ERR_BAD_PARAM);
  req.resize(400, 0x11);  // a longer request is read as its first 148 bytes
  EXPECT_EQ(verdict(kList, req), std::make_pair(0, uint8_t{ACL_MATCH_VERDICT_DENY}));
}

TEST_F(CpuDefendMatch, VerdictsOfRulesWithoutFields) {
  // Only valid rules are tried; a rule without fields matches every packet.
  add({.rule = 1, .ipVer = 0, .actions = kDeny, .valid = false});
  add({.rule = 2, .ipVer = 0, .actions = {RULE_ACTION_CPU}});
  add({.rule = 3, .ipVer = 0, .actions = kPermit});
  EXPECT_EQ(verdict(kList, syn(22)), std::make_pair(0, uint8_t{ACL_MATCH_VERDICT_NONE}));
  ASSERT_EQ(setValue(kList, 2, ACL_RULE_CMD_STATUS, 4), 0);
  EXPECT_EQ(verdict(kList, syn(22)), std::make_pair(0, uint8_t{ACL_MATCH_VERDICT_PERMIT}));
  ASSERT_EQ(setValue(kList, 1, ACL_RULE_CMD_STATUS, 1), 0);
  EXPECT_EQ(verdict(kList, syn(22)), std::make_pair(0, uint8_t{ACL_MATCH_VERDICT_DENY}));

  Rec pkt{};
  EXPECT_EQ(_aclCpuDefendMatch(1999, pkt, nullptr), -1) << "no list";
}

TEST_F(CpuDefendMatch, FieldTests) {
  // Each rule fails on one field of the SYN (192.0.2.1:40000 -> 198.51.100.7:80, DSCP 46, TTL
  // 64, outer VLAN 100, inner 200); the last passes every test it makes.
  add({.rule = 1, .ipVer = 2, .actions = kDeny});
  add({.rule = 2, .src = v4("192.0.3.0"), .srcLen = 24, .actions = kDeny});
  add({.rule = 3, .dst = v4("198.51.100.8"), .actions = kDeny});
  add({.rule = 4, .values = {{14, 1000}, {15, 2000}}, .actions = kDeny});
  add({.rule = 5, .values = {{20, 10}}, .actions = kDeny});
  add({.rule = 6, .values = {{30, 101}, {51, 200}}, .actions = kDeny});
  add({.rule = 7, .values = {{21, 63}}, .actions = kDeny});
  add({.rule = 8, .values = {{33, 0x86DD}}, .actions = kDeny});
  const std::vector<std::pair<uint32_t, uint32_t>> all = {
      {6, 6},   {14, 32768}, {15, 65535}, {16, 80},  {18, 0x02},   {20, 46},
      {21, 64}, {30, 50},    {51, 150},   {32, 200}, {33, 0x0800}, {22, 0}};
  const Bytes src = v4("192.0.2.0"), dst = v4("198.51.100.7");
  add({.rule = 9, .src = src, .srcLen = 24, .dst = dst, .values = all, .actions = kPermit});
  EXPECT_EQ(verdict(kList, syn(80)), std::make_pair(0, uint8_t{ACL_MATCH_VERDICT_PERMIT}));

  // MACs by prefix length, and the rule's address all zero tests nothing.
  createList(1002);
  const Bytes smac = {0x00, 0x1b, 0x21, 0xFF, 0xFF, 0xFF};
  add({.lst = 1002, .rule = 1, .ipVer = 0, .actions = kDeny, .valid = false});
  ASSERT_EQ(setBytes(1002, 1, ACL_RULE_CMD_SRCMAC, smac), 0);
  ASSERT_EQ(setValue(1002, 1, 35, 25), 0);
  ASSERT_EQ(setValue(1002, 1, ACL_RULE_CMD_STATUS, 1), 0);
  EXPECT_EQ(ask(1002, 16, syn(80)), -1) << "bit 24 differs";
  ASSERT_EQ(setValue(1002, 1, ACL_RULE_CMD_STATUS, 3), 0);
  ASSERT_EQ(setValue(1002, 1, 35, 24), 0);
  ASSERT_EQ(setBytes(1002, 1, ACL_RULE_CMD_SRCADDR, v4("0.0.0.0")), 0);
  ASSERT_EQ(setValue(1002, 1, ACL_RULE_CMD_STATUS, 1), 0);
  EXPECT_EQ(verdict(1002, syn(80)), std::make_pair(0, uint8_t{ACL_MATCH_VERDICT_DENY}));
}

}  // namespace
}  // namespace matchtest
