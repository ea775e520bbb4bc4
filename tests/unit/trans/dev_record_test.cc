// The 508-byte hardware rule record, checked byte by byte against offsets written out here (not
// taken from the layout header), so a wrong offset or width in the layout fails too.
#include <tuple>

#include "trans_fixture.h"

namespace transtest {
namespace {

using Record = Bytes;

void put(Record& r, size_t off, const Bytes& b) {
  std::copy(b.begin(), b.end(), r.begin() + off);
}

Record devOf(const AclRuleEntry* rule, uint8_t dir = 0, uint8_t counterShared = 0,
             uint8_t meterShared = 0, uint16_t priority = 0, uint16_t onuId = 0,
             uint16_t gemPort = 0, uint32_t gemPortVp = 0) {
  Record dev(ACL_DEV_RECORD_LEN, 0xEE);  // garbage: the translation must clear it
  EXPECT_EQ(aclDevTrans(rule, dev.data(), dir, counterShared, meterShared, priority, onuId, gemPort,
                        gemPortVp),
            0u);
  return dev;
}

class DevRecordTest : public TransTest {};

TEST_F(DevRecordTest, EveryFieldKindLandsAtItsOffsetWithItsWidth) {
  list(3001);
  AclRuleEntry* r = rule(3001, 7);
  r->layerType = 2;
  // (code, word) pairs. The rule's own layer type 2 wins over its field; the subtype is cut to
  // 0x0002 and the hop limit to 0xFE; an IPv4 destination fills 4 bytes only; LLID and total
  // length have no place in the record.
  const uint32_t words[] = {RULE_BIT_DTAG,         1,          RULE_BIT_ENCAPTYPE,    2,
                            RULE_BIT_LAYERTYPE,    3,          RULE_BIT_IPVER,        2,
                            RULE_BIT_ETHTYPE,      0x86DD,     RULE_BIT_PROTOTYPE,    0x1234,
                            RULE_BIT_PROTOSUBTYPE, 0x00010002, RULE_BIT_SRCPREFIX,    64,
                            RULE_BIT_DSTADDR,      0x0A010203, RULE_BIT_DSTPREFIX,    24,
                            RULE_BIT_SRCPORT,      80,         RULE_BIT_SRCENDPORT,   90,
                            RULE_BIT_DSTPORT,      0x1F90,     RULE_BIT_DSTENDPORT,   0xABCD,
                            RULE_BIT_TCPFSM,       0x12,       RULE_BIT_IPDSCP,       46,
                            RULE_BIT_IPFRAGMENT,   1,          RULE_BIT_IPOPTIONS,    1,
                            RULE_BIT_HOPLIMIT,     0x1FE,      RULE_BIT_NEXTHEADER,   6,
                            RULE_BIT_FLOWLABEL,    0xABCDE,    RULE_BIT_APP,          0x0102,
                            RULE_BIT_OUTPRI,       5,          RULE_BIT_OUTVID,       100,
                            RULE_BIT_OUTENDVID,    200,        RULE_BIT_INPRI,        3,
                            RULE_BIT_INVID,        300,        RULE_BIT_INENDVID,     400,
                            RULE_BIT_LLID,         0x77,       RULE_BIT_SRCMACPREFIX, 48,
                            RULE_BIT_DSTMACPREFIX, 40,         RULE_BIT_LOOKUP,       0x55,
                            RULE_BIT_LOOKUPMASK,   0xFF,       RULE_BIT_VXLANFLAG,    8,
                            RULE_BIT_VXLANVNI,     0x123456,   RULE_BIT_VXLANTAG,     1,
                            RULE_BIT_VXLANTRANSIT, 2,          RULE_BIT_VXLANBUM,     3,
                            RULE_BIT_UNTAGGED,     1,          RULE_BIT_IPTOTALLEN,   1500};
  for (size_t i = 0; i < std::size(words); i += 2) value(r, words[i], num(words[i + 1], 4));
  for (uint32_t i = 0; i < 4; ++i) {
    value(r, RULE_BIT_MPLSEXP1 + i, num(i + 1, 4));
    value(r, RULE_BIT_MPLSLABEL1 + i, num(0x10000 + i, 4));
  }
  // (code, first byte, length) of byte runs.
  const std::tuple<uint32_t, uint8_t, size_t> runs[] = {{RULE_BIT_SRCADDR, 0x20, 16},
                                                        {RULE_BIT_SRCSTRPREFIX, 0x40, 16},
                                                        {RULE_BIT_DSTSTRPREFIX, 0x60, 8},
                                                        {RULE_BIT_SRCMAC, 0xA0, 6},
                                                        {RULE_BIT_SRCMACSTRPREFIX, 0xB0, 6},
                                                        {RULE_BIT_DSTMAC, 0xC0, 6},
                                                        {RULE_BIT_DSTMACSTRPREFIX, 0xD0, 6},
                                                        {RULE_BIT_USERDEFINEDDATA1, 0x01, 12},
                                                        {RULE_BIT_USERDEFINEDDATA1 + 2, 0x81, 12}};
  for (const auto& [code, first, n] : runs) value(r, code, seq(first, n));
  meter(3, {1, 2, 5, 1000, 0, 2000, 3000, 4000, 5000});
  counter(7, 2, 4);
  r->meterId = 3;
  bit(r, RULE_BIT_METERID);
  r->counterId = 7;
  bit(r, RULE_BIT_COUNTERID);
  action(r, RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT, {});
  action(r, RULE_ACTION_OUTPUT_PORT, 11, seq(0x11, 16));
  action(r, RULE_ACTION_OUTPUT_PORT, 15, seq(0x31, 16));
  action(r, RULE_ACTION_SA_REWRITE, 7, seq(0xE0, 6));
  action(r, RULE_ACTION_TOS, 0, num(0x2E, 4));
  action(r, 65, ACL_ACTION_NO_SLOT, {});  // out-action bit 1 (drop) without a parameter
  action(r, 68, 0, num(0x22, 4));         // out-action bit 4 with its word 0
  aclBitSet(r->outActionBits, 1);
  aclBitSet(r->outActionBits, 4);

  const Record dev = devOf(r, 1, 1, 0, 0x1007, 0x0203, 0x0405, 0x0A0B0C0D);

  Record want(508, 0);
  put(want, 0, {0x12, 0x34});
  put(want, 2, {0x00, 0x02});
  put(want, 20, {10, 1, 2, 3});
  put(want, 68, {64, 24, 2, 2, 2, 0x12});  // prefixes, encap, layer, ipVer, tcpFsm
  put(want, 74, {0, 80, 0, 90, 0x1F, 0x90, 0xAB, 0xCD});
  put(want, 82, {0xFE, 46, 1, 1});  // hop limit, DSCP, options, fragment
  put(want, 88, {0x00, 0x0A, 0xBC, 0xDE});
  put(want, 92, {6, 1, 4, 0});  // next header, fragFlag, userDataNum, operators
  // (offset, first byte, length) of the byte runs: addresses, user data, MACs, actions.
  const std::tuple<size_t, uint8_t, size_t> wantRuns[] = {
      {4, 0x20, 16},           {36, 0x40, 16},         {52, 0x60, 8},
      {96, 0x01, 4},           {112, 0x05, 4},         {128, 0x09, 4},
      {104, 0x81, 4},          {120, 0x85, 4},         {136, 0x89, 4},
      {144, 0xA0, 6},          {151, 0xC0, 6},         {162, 0xB0, 6},
      {168, 0xD0, 6},          {232 + 7 * 4, 0xE0, 6}, {232 + 11 * 4, 0x11, 16},
      {232 + 15 * 4, 0x31, 16}};
  for (const auto& [off, first, n] : wantRuns) put(want, off, seq(first, n));
  put(want, 150, {48});
  put(want, 157, {40, 1, 3, 5});  // dst MAC prefix, dtag, inner and outer dot1p
  put(want, 174, {0,    100,  0, 200,  0x01, 0x2C, 0x01, 0x90, 0x86, 0xDD,
                  0x01, 0x02, 0, 0x55, 0,    0xFF, 1,    2,    3,    4});
  for (uint8_t i = 0; i < 4; ++i) put(want, 196 + 4 * i, {0, 1, 0, i});
  put(want, 212, Bytes(r->fieldBits, r->fieldBits + 12));
  put(want, 224, Bytes(r->actionBits, r->actionBits + 8));
  // (offset, word) pairs: the TOS parameter, out-action word 4, the meter attributes, the list,
  // the rule and the VXLAN VNI.
  const uint32_t wantWords[] = {232, 0x2E, 412, 0x22, 440, 1000, 444, 2000, 448, 3000,
                                452, 4000, 456, 5000, 476, 3001, 480, 7,    496, 0x123456};
  for (size_t i = 0; i < std::size(wantWords); i += 2)
    put(want, wantWords[i], num(wantWords[i + 1], 4));
  put(want, 408, {0x48, 0x00});
  put(want, 436, {1, 2, 4, 0});  // counterShared, counter type and colour, meterShared
  put(want, 460, {1, 2, 5});
  put(want, 466, {0, 1, 0x02, 0x03, 0x04, 0x05, 0x0A, 0x0B, 0x0C, 0x0D});
  put(want, 484, {0x10, 0x07});
  put(want, 500, {8, 1, 2, 3, 1});
  EXPECT_EQ(diff(dev, want), "");

  // The bit sets really are the rule's: spot-check what the store set.
  EXPECT_TRUE(aclBitTest(std::span<const uint8_t>(dev).subspan(212, 12), RULE_BIT_IPTOTALLEN));
  EXPECT_TRUE(aclBitTest(std::span<const uint8_t>(dev).subspan(224, 8), RULE_ACTION_PERMIT));
}

TEST_F(DevRecordTest, SharedPlacesTakeTheLastEntryAndIpv4FieldsReuseThem) {
  list(2001);
  AclRuleEntry* r = rule(2001, 1);
  value(r, RULE_BIT_SRCPORT, num(1000, 4));
  value(r, RULE_BIT_IPTOS, num(4, 4));
  value(r, RULE_BIT_IPTTL, num(0x140, 4));
  value(r, RULE_BIT_ICMPTYPE, num(8, 4));  // after SRCPORT in code order: it wins
  value(r, RULE_BIT_ICMPCODE, num(3, 4));
  value(r, RULE_BIT_IPPRECEDENCE, num(7, 4));  // after IPTOS
  const Record dev = devOf(r);
  EXPECT_EQ(dev[74] * 256 + dev[75], 8);
  EXPECT_EQ(dev[78] * 256 + dev[79], 3);
  EXPECT_EQ(dev[82], 0x40);
  EXPECT_EQ(dev[83], 7);
}

TEST_F(DevRecordTest, CarCounterAndMeterAttributesPresentAndMissing) {
  list(2001);
  // CAR: cir is the CAR value, no meter type, no other meter word.
  AclRuleEntry* car = rule(2001, 1);
  car->meterId = 64000;
  bit(car, RULE_BIT_CARID);
  Record dev = devOf(car);
  EXPECT_EQ(diff(Record(dev.begin() + 436, dev.begin() + 466),
                 [] {
                   Record w(30, 0);
                   put(w, 4, num(64000, 4));
                   return w;
                 }()),
            "");

  // A meter and a counter that do not exist: the attribute fields stay 0.
  AclRuleEntry* gone = rule(2001, 2);
  gone->meterId = 9;
  gone->counterId = 9;
  bit(gone, RULE_BIT_METERID);
  bit(gone, RULE_BIT_COUNTERID);
  dev = devOf(gone, 0, 1, 1);
  EXPECT_EQ(diff(Record(dev.begin() + 436, dev.begin() + 466),
                 [] {
                   Record w(30, 0);
                   w[0] = 1;  // counterShared
                   w[3] = 1;  // meterShared
                   return w;
                 }()),
            "");

  // Ids held without their field bits are not looked at.
  meter(4, {1, 1, 1, 1, 1, 1, 1, 1, 1});
  counter(5, 1, 1);
  AclRuleEntry* noBits = rule(2001, 3);
  noBits->meterId = 4;
  noBits->counterId = 5;
  dev = devOf(noBits);
  EXPECT_EQ(diff(Record(dev.begin() + 436, dev.begin() + 466), Record(30, 0)), "");
}

TEST_F(DevRecordTest, MulticastGemOverridesTheCallersGemPortVp) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  Record dev = devOf(r, 0, 0, 0, 0, 1, 2, 0x1234);
  EXPECT_EQ(Bytes(dev.begin() + 472, dev.begin() + 476), num(0x1234, 4));
  r->multicastGem = 1;
  dev = devOf(r, 0, 0, 0, 0, 1, 2, 0x1234);
  EXPECT_EQ(Bytes(dev.begin() + 472, dev.begin() + 476), num(0xFFFFFFFF, 4));
  EXPECT_EQ(Bytes(dev.begin() + 468, dev.begin() + 472), Bytes({0, 1, 0, 2}));
}

TEST_F(DevRecordTest, MissingRuleOrRecordIsRefusedAndWritesNothing) {
  list(1);
  AclRuleEntry* r = rule(1, 1);
  Record dev(508, 0xEE);
  EXPECT_EQ(aclDevTrans(nullptr, dev.data(), 0, 0, 0, 0, 0, 0, 0), uint32_t(CMN_ERR_BAD_PARAM));
  EXPECT_EQ(dev, Record(508, 0xEE));
  EXPECT_EQ(aclDevTrans(r, nullptr, 0, 0, 0, 0, 0, 0, 0), uint32_t(CMN_ERR_BAD_PARAM));
}

}  // namespace
}  // namespace transtest
