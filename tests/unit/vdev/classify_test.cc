// Frames classified by the virtual device's hardware table against the software match engine's
// verdict for the same list, and the frame decoding and field comparisons the classifier relies
// on. The software engine answers source-address questions only, so the random lists compare
// what both can judge: IPv4 rules of source prefixes (with rules of no address among them),
// permit or deny; the frames vary everything else (tags, protocol, ports, destination) so that
// the hardware side must ignore what the rules do not name.
#include <gtest/gtest.h>

#include <mutex>
#include <random>
#include <tuple>

#include "hw/acl_glb.h"
#include "main/acl_group.h"
#include "platform/vdev/classify.h"
#include "platform/vdev/model.h"
#include "services/acl_match.h"
#include "store/acl_list.h"
#include "unit/services/match_fixture.h"

namespace {

using matchtest::Bytes;
using nlohmann::json;

// A frame of the given tags, IPv4 header and transport bytes.
Bytes frame(uint32_t tags, const Bytes& src, const Bytes& dst, uint8_t proto, uint16_t sport,
            uint16_t dport) {
  Bytes b = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
  for (uint32_t t = 0; t < tags; ++t) {
    const uint16_t tci = static_cast<uint16_t>((t + 3) << 13 | (100 + t));
    b.insert(b.end(), {0x81, 0x00, static_cast<uint8_t>(tci >> 8), static_cast<uint8_t>(tci)});
  }
  b.insert(b.end(), {0x08, 0x00, 0x45, 0x00, 0x00, 0x28, 0x00, 0x00, 0x00, 0x00, 64, proto, 0, 0});
  b.insert(b.end(), src.begin(), src.end());
  b.insert(b.end(), dst.begin(), dst.end());
  b.insert(b.end(), {static_cast<uint8_t>(sport >> 8), static_cast<uint8_t>(sport),
                     static_cast<uint8_t>(dport >> 8), static_cast<uint8_t>(dport)});
  return b;
}

vdev::Frame decoded(const Bytes& b) {
  vdev::Frame f;
  std::string err;
  EXPECT_TRUE(vdev::decodeFrame(b, &f, &err)) << err;
  return f;
}

TEST(ClassifyFrame, DecodesTagsAddressesAndTransport) {
  const Bytes src = {10, 1, 2, 3}, dst = {192, 0, 2, 9};
  const vdev::Frame two = decoded(frame(2, src, dst, 6, 1234, 80));
  EXPECT_EQ(
      std::make_tuple(two.tags, two.outerVid, two.outerPri, two.innerVid, two.ethType, two.ipVer,
                      two.src[3], two.dst[0], two.l4, two.srcPort, two.dstPort),
      std::make_tuple(2u, uint16_t{100}, uint8_t{3}, uint16_t{101}, uint16_t{0x0800}, uint8_t{1},
                      uint8_t{3}, uint8_t{192}, true, uint16_t{1234}, uint16_t{80}));

  const vdev::Frame icmp = decoded(frame(0, src, dst, 1, 0x0800, 0));
  EXPECT_EQ(std::make_pair(icmp.srcPort, icmp.dstPort), std::make_pair(uint16_t{8}, uint16_t{0}))
      << "ICMP type and code";
  // A frame cut inside the IPv4 header offers no IP fields; inside the ports, no ports.
  Bytes cut = frame(0, src, dst, 17, 1, 2);
  cut.resize(14 + 19);
  EXPECT_EQ(decoded(cut).ipVer, 0);
  cut = frame(0, src, dst, 17, 1, 2);
  cut.resize(cut.size() - 1);
  EXPECT_FALSE(decoded(cut).l4);
  // A later fragment carries no transport header.
  Bytes frag = frame(0, src, dst, 6, 1, 2);
  frag[14 + 7] = 0x10;
  EXPECT_FALSE(decoded(frag).l4);
  vdev::Frame f;
  std::string err;
  EXPECT_FALSE(vdev::decodeFrame(Bytes(13, 0), &f, &err));
  EXPECT_FALSE(err.empty());
}

TEST(ClassifyFrame, EntryFieldsCompareUnderPrefixesAndRanges) {
  const vdev::Frame f = decoded(frame(1, {10, 1, 2, 3}, {192, 0, 2, 9}, 6, 1234, 80));
  auto entry = [](std::initializer_list<std::pair<const char*, json>> fields) {
    json d = {{"fields", json::array()}};
    for (const auto& [n, v] : fields) d["fields"].push_back({{"name", n}, {"value", v}});
    return d;
  };
  using M = vdev::EntryMatch;
  struct Case {
    json entry;
    M want;
  } cases[] = {
      {entry({}), M::Match},
      {entry({{"RULE_BIT_IPVER", 1}, {"RULE_BIT_SRCADDR", "10.1.0.0"}, {"RULE_BIT_SRCPREFIX", 16}}),
       M::Match},
      {entry({{"RULE_BIT_SRCADDR", "10.1.0.0"}, {"RULE_BIT_SRCPREFIX", 24}}), M::NoMatch},
      {entry({{"RULE_BIT_SRCADDR", "10.1.2.3"}}), M::Match},
      {entry({{"RULE_BIT_DSTADDR", "192.0.2.0"}, {"RULE_BIT_DSTPREFIX", 25}}), M::Match},
      {entry({{"RULE_BIT_IPVER", 2}}), M::NoMatch},
      {entry({{"RULE_BIT_DSTPORT", 79}, {"RULE_BIT_DSTENDPORT", 81}}), M::Match},
      {entry({{"RULE_BIT_DSTPORT", 81}, {"RULE_BIT_DSTENDPORT", 90}}), M::NoMatch},
      {entry({{"RULE_BIT_SRCPORT", 1234}}), M::Match},
      {entry({{"RULE_BIT_PROTOSUBTYPE", 17}}), M::NoMatch},
      {entry({{"RULE_BIT_ICMPTYPE", 4}}), M::NoMatch},
      {entry({{"RULE_BIT_OUTVID", 100}, {"RULE_BIT_OUTPRI", 3}}), M::Match},
      {entry({{"RULE_BIT_INVID", 100}}), M::NoMatch},
      {entry({{"RULE_BIT_SRCMAC", "02:00:00:00:00:00"}, {"RULE_BIT_SRCMACPREFIX", 8}}), M::Match},
      {entry({{"RULE_BIT_DSTMAC", "00:11:22:33:44:56"}}), M::NoMatch},
      {entry({{"RULE_BIT_VXLANVNI", 5}}), M::Unjudged},
      {json{{"error", "short"}}, M::Unjudged},
  };
  for (const Case& c : cases) {
    std::string why;
    EXPECT_EQ(vdev::matchEntry(c.entry, f, &why), c.want) << c.entry.dump();
  }
}

// The verdict of a hardware classification: the action of the winning entry, or none.
uint8_t hwVerdict(const json& out) {
  const json& m = out.at("match");
  if (m.is_null()) return ACL_MATCH_VERDICT_NONE;
  for (const json& a : m.at("decoded").at("actions")) {
    if (a.at("name") == "RULE_ACTION_PERMIT") return ACL_MATCH_VERDICT_PERMIT;
    if (a.at("name") == "RULE_ACTION_DENY") return ACL_MATCH_VERDICT_DENY;
  }
  return 0xEE;
}

class ClassifyProperty : public matchtest::MatchTest {
 protected:
  // Random lists bound globally, frames classified by the device and asked of the software
  // engine; the verdicts are counted so the caller can see every kind was met.
  void run(uint32_t seed, uint32_t lists, uint32_t framesPerList, uint32_t counts[3]) {
    std::mt19937 rng(seed);
    auto pick = [&](uint32_t n) { return static_cast<uint32_t>(rng() % n); };
    // A few bases, so that the random prefixes overlap each other and the frames.
    const uint32_t bases[] = {0x0A000000, 0x0A010000, 0xC0A80000, 0xAC100000};
    for (uint32_t l = 0; l < lists; ++l) {
      const uint32_t lst = 1100 + l;
      createList(lst);
      uint32_t ruleIdx = 0;
      const uint32_t rules = 1 + pick(10);
      for (uint32_t r = 0; r < rules; ++r) {
        ruleIdx += 1 + pick(5);
        Rule rule{.lst = lst, .rule = ruleIdx};
        // One rule in twelve names no address: it covers every IPv4 frame.
        if (pick(12) != 0) {
          const uint32_t len = pick(33);
          uint32_t a = bases[pick(4)] | (rng() & 0xFFFF);
          a &= len == 0 ? 0 : ~0u << (32 - len);
          rule.src = {uint8_t(a >> 24), uint8_t(a >> 16), uint8_t(a >> 8), uint8_t(a)};
          rule.srcLen = static_cast<int>(len);
        }
        rule.actions = {pick(2) == 0 ? RULE_ACTION_PERMIT : RULE_ACTION_DENY};
        add(rule);
        if (HasFatalFailure()) return;
      }
      aclLock();
      const int32_t bound = aclGlbAdd(aclListEntryGet(lst), ACL_GLB_DIR_IN, nullptr, 2);
      aclUnlock();
      ASSERT_EQ(bound, 0) << "list " << lst;

      for (uint32_t n = 0; n < framesPerList; ++n) {
        const uint32_t s = bases[pick(4)] | (rng() & (pick(2) ? 0xFFFF : 0xFF));
        const Bytes src = {uint8_t(s >> 24), uint8_t(s >> 16), uint8_t(s >> 8), uint8_t(s)};
        const Bytes dst = {uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), uint8_t(rng())};
        const uint8_t protos[] = {1, 6, 17, 47};
        const Bytes bytes =
            frame(pick(3), src, dst, protos[pick(4)], uint16_t(rng()), uint16_t(rng()));
        json out;
        {
          vdev::Device& d = vdev::device();
          std::lock_guard lock(d.mutex);
          out = vdev::classifyFrame(d.journal, vdev::ScopeKey{}, 0, decoded(bytes));
        }
        ASSERT_TRUE(out.at("unjudged").empty()) << out.dump();
        uint8_t sw = 0xEE;
        const int32_t ret = aclMatchEx(lst, src.data(), 32, ACL_MATCH_FAMILY_IPV4, &sw);
        if (ret != 0) sw = ACL_MATCH_VERDICT_NONE;
        const uint8_t hw = hwVerdict(out);
        ASSERT_EQ(hw, sw) << "list " << lst << " frame " << n << ": " << out.dump();
        if (!out.at("match").is_null()) {
          ASSERT_EQ(out["match"]["list"], lst);
        }
        ++counts[hw == ACL_MATCH_VERDICT_PERMIT ? 0 : hw == ACL_MATCH_VERDICT_DENY ? 1 : 2];
      }
      aclLock();
      ASSERT_EQ(aclGlbDel(aclListEntryGet(lst), ACL_GLB_DIR_IN, nullptr), 0);
      aclUnlock();
    }
  }
};

TEST_F(ClassifyProperty, HardwareVerdictEqualsSoftwareVerdictInBothForms) {
  uint32_t counts[3] = {};
  run(20261125, 10, 500, counts);
  ASSERT_FALSE(HasFatalFailure());
  restart({{"acl.tlvenable", "t"}});
  run(4242, 10, 500, counts);
  ASSERT_FALSE(HasFatalFailure());
  // 10,000 frames: each verdict must have been met often enough to mean something.
  EXPECT_EQ(counts[0] + counts[1] + counts[2], 10000u);
  for (uint32_t c : counts) EXPECT_GT(c, 500u) << counts[0] << "/" << counts[1] << "/" << counts[2];
}

}  // namespace
