// The debug dumps of both forms: written by the TLV translation only under debug bit 0x20, as one
// multi-line dump per form (style 26 first, 27 further lines with the bare tag, 25 last).
#include <algorithm>

#include "platform/logging.h"
#include "trans_fixture.h"

namespace transtest {
namespace {

class DumpTest : public TransTest {
 protected:
  std::vector<plat::LogLine> linesAfter(uint64_t seq) { return plat::logRecent(seq); }
  static std::vector<std::string> texts(const std::vector<plat::LogLine>& lines) {
    std::vector<std::string> out;
    for (const auto& l : lines) out.push_back(l.text);
    return out;
  }
  AclRuleEntry* ipv4Rule() {
    list(2001);
    AclRuleEntry* r = rule(2001, 4);
    r->layerType = 2;
    value(r, RULE_BIT_IPVER, num(1, 4));
    value(r, RULE_BIT_SRCADDR, num(0x0A000001, 4));
    value(r, RULE_BIT_SRCPORT, num(80, 4));
    value(r, RULE_BIT_SRCMAC, seq(0xA0, 6));
    action(r, RULE_ACTION_TOS, 0, num(5, 4));
    action(r, RULE_ACTION_OUTPUT_PORT, 11, seq(1, 16));
    return r;
  }
};

TEST_F(DumpTest, SilentWithoutBit0x20) {
  AclRuleEntry* r = ipv4Rule();
  gaclGrp.debugFlags = 0x100 | 0x1F;  // every other class on
  const uint64_t from = plat::logLastSeq();
  tlv(r);
  Bytes dev(ACL_DEV_RECORD_LEN);
  ASSERT_EQ(aclDevTrans(r, dev.data(), 0, 0, 0, 0, 0, 0, 0), 0u);
  aclDevPrintf(dev);
  EXPECT_TRUE(linesAfter(from).empty());
}

TEST_F(DumpTest, TlvTranslationDumpsTheRecordThenTheMessage) {
  AclRuleEntry* r = ipv4Rule();
  gaclGrp.debugFlags = 0x100 | 0x20;
  const uint64_t from = plat::logLastSeq();
  tlv(r);
  const auto lines = linesAfter(from);
  const auto text = texts(lines);

  // Two dumps, each opened with style 26 under class 4 and closed with style 25; a sample of the
  // lines between, separators and zero fields left out.
  std::vector<size_t> firsts, lasts;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].style == 26) firsts.push_back(i);
    if (lines[i].style == 25) lasts.push_back(i);
    if (lines[i].style == 27) {
      EXPECT_EQ(lines[i].tag, 0x3EA0000u) << i;
      EXPECT_EQ(lines[i].priority, 0u) << i;
    } else {
      EXPECT_EQ(lines[i].tag, 0x3EA0004u) << i;
      EXPECT_EQ(lines[i].priority, 7u) << i;
    }
  }
  ASSERT_EQ(firsts, (std::vector<size_t>{0, 63}));
  ASSERT_EQ(lasts, (std::vector<size_t>{62, lines.size() - 1}));
  EXPECT_EQ(text[0], "ACL hardware dev content");
  EXPECT_EQ(text[3], "lstIdx=2001 ruleIdx=4");
  EXPECT_EQ(text[6], "action=8 1 0 0 0 ");                         // actions 4 (port) and 15 (tos)
  EXPECT_EQ(text[7], "acl_dev->bits = 11 04 00 00 10 00 00 00 ");  // codes 3, 7, 13, 35
  EXPECT_EQ(text[15], "srcAddr=0a000001:00000000:00000000:00000000 srcPrefix=0 ");
  EXPECT_EQ(text[20], "srcPort=80 ");
  EXPECT_EQ(text[51], "0 0 0 16909060 84281096 151653132 219025168 0 ");

  EXPECT_EQ(text[63], "ACL hardware tlv content");
  EXPECT_EQ(text[74], "type=3,len=4,value=0-0-0-1-0-0-0-0-0-0-0-0-0-0-0-0");
  EXPECT_EQ(text[80], "actiontype=4,len=16,value=1-2-3-4-5-6-7-8-9-a-b-c-d-e-f-10");
  EXPECT_EQ(lines.size(), 83u);
}

TEST_F(DumpTest, LayerTypeAndIpVersionChooseTheLines) {
  gaclGrp.debugFlags = 0x20;
  Bytes dev(ACL_DEV_RECORD_LEN, 0);
  auto dump = [&] {
    const uint64_t from = plat::logLastSeq();
    aclDevPrintf(dev);
    return texts(linesAfter(from));
  };
  auto has = [](const std::vector<std::string>& t, const std::string& s) {
    return std::find(t.begin(), t.end(), s) != t.end();
  };
  auto t = dump();  // layer type 0: no end ports, no IP lines
  EXPECT_EQ(t.size(), 57u);
  EXPECT_FALSE(has(t, "srcEndPort=0 "));
  dev[71] = 5;  // IPv6 layer
  dev[72] = 2;
  dev[2] = 0, dev[3] = 1;  // ICMP
  dev[74] = 0, dev[75] = 128;
  dev[88] = 0x00, dev[89] = 0x0A, dev[90] = 0xBC, dev[91] = 0xDE;
  t = dump();
  EXPECT_EQ(t.size(), 63u);
  EXPECT_TRUE(has(t, "icmp type=128 "));
  EXPECT_TRUE(has(t, "icmp code=0 "));
  EXPECT_TRUE(has(t, "flowLabel=703710 "));
  EXPECT_FALSE(has(t, "tosDscp=0 "));

  // A TLV with nothing after its header stops at its length line, which closes the dump.
  Bytes msg(36, 0);
  const uint64_t from = plat::logLastSeq();
  aclTlvPrintf(msg, 36);
  const auto lines = linesAfter(from);
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines.back().text, "tlvBufferLen=0");
  EXPECT_EQ(lines.back().style, 25u);
  // Too short to hold a header, or a section length past the message: nothing read beyond it.
  const uint64_t from2 = plat::logLastSeq();
  aclTlvPrintf(msg, 20);
  EXPECT_TRUE(linesAfter(from2).empty());
  Bytes bad = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,   0, 0,   0, 0,
               0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 200, 0, 200, 9, 40};
  aclTlvPrintf(bad, uint32_t(bad.size()));
  const auto badLines = texts(linesAfter(from2));
  EXPECT_TRUE(has(badLines, "type=9,len=40,value=0-0-0-0-0-0-0-0-0-0-0-0-0-0-0-0"));
}

}  // namespace
}  // namespace transtest
