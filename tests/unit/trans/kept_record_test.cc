// The translation keeps the rule's part of the record and patches each binding's words into a
// copy. A rule changed after a translation, in any way, must translate as a fresh translation
// does: a record kept past a change would put another rule into the hardware.
#include <functional>

#include "store/acl_entry.h"
#include "trans_fixture.h"

namespace transtest {
namespace {

struct Bind {
  uint8_t dir, counterShared, meterShared;
  uint16_t priority, onuId, gemPort;
  uint32_t gemPortVp;
};
constexpr Bind kFirst{0, 0, 0, 4097, 0, 0, 0};
constexpr Bind kSecond{1, 1, 1, 4200, 7, 3, 9};

Bytes trans(const AclRuleEntry* r, const Bind& b) {
  Bytes dev(ACL_DEV_RECORD_LEN, 0xEE);
  EXPECT_EQ(aclDevTrans(r, dev.data(), b.dir, b.counterShared, b.meterShared, b.priority, b.onuId,
                        b.gemPort, b.gemPortVp),
            0u);
  return dev;
}

// A translation nothing kept can answer: the store generation moves first.
Bytes fresh(const AclRuleEntry* r, const Bind& b) {
  aclStoreGenBump();
  return trans(r, b);
}

class KeptRecordTest : public TransTest {
 protected:
  // IPv4 source 10.1.2.0/24 to port 80, permit, with a CAR.
  static AclRuleEntry* base(uint32_t lstIdx) {
    list(lstIdx);
    AclRuleEntry* r = rule(lstIdx, 5);
    value(r, RULE_BIT_SRCADDR, {10, 1, 2, 0});
    value(r, RULE_BIT_SRCPREFIX, num(24, 4));
    value(r, RULE_BIT_DSTPORT, num(80, 4));
    action(r, RULE_ACTION_PERMIT, ACL_ACTION_NO_SLOT, {});
    r->meterId = 1000;
    bit(r, RULE_BIT_CARID);
    return r;
  }
  static void dropValue(AclRuleEntry* r, uint32_t code) {
    ASSERT_EQ(aclRuleShortEntryDel(aclRuleValueEntryGet(r, static_cast<uint8_t>(code))), 0);
    aclBitClear(r->fieldBits, code);
  }
};

TEST_F(KeptRecordTest, EveryChangeAfterATranslationShowsInTheNext) {
  using Step = std::function<AclRuleEntry*(AclRuleEntry*)>;
  const auto same = [](auto f) {
    return Step([f](AclRuleEntry* r) {
      f(r);
      return r;
    });
  };
  const auto withMeter = [](AclRuleEntry* r) {
    meter(3, {1, 2, 5, 1000, 0, 2000, 3000, 4000, 5000});
    r->meterId = 3;
    bit(r, RULE_BIT_METERID);
  };
  const auto withCounter = [](AclRuleEntry* r) {
    counter(7, 2, 4);
    r->counterId = 7;
    bit(r, RULE_BIT_COUNTERID);
  };
  struct Case {
    const char* what;
    Step change;
    std::function<void(AclRuleEntry*)> prepare = [](AclRuleEntry*) {};
  };
  const Case cases[] = {
      {"value added", same([](auto r) {
         value(r, RULE_BIT_DSTADDR, {198, 51, 100, 7});
       })},
      {"value removed", same([](auto r) { dropValue(r, RULE_BIT_DSTPORT); })},
      {"field bit alone", same([](auto r) { bit(r, RULE_BIT_IPFRAGMENT); })},
      {"in-action added", same([](auto r) { action(r, RULE_ACTION_TOS, 0, num(0x2E, 4)); })},
      {"in-action bit alone", same([](auto r) { aclBitSet(r->actionBits, RULE_ACTION_DENY); })},
      {"out-action added", same([](auto r) { action(r, 68, 0, num(0x22, 4)); })},
      {"out-action bit alone", same([](auto r) { aclBitSet(r->outActionBits, 1); })},
      {"layer type", same([](auto r) { r->layerType = 3; })},
      {"multicast GEM", same([](auto r) { r->multicastGem = 1; })},
      {"CAR value", same([](auto r) { r->meterId = 64000; })},
      {"meter attribute", same([](auto) { test::callValue(meterSetApi, 3, 4, 7777); }), withMeter},
      {"counter attribute", same([](auto) { test::callValue(counterSetApi, 7, 4, 1); }),
       withCounter},
      {"rule deleted and made again in its place",
       [](AclRuleEntry* r) {
         const uint32_t lstIdx = r->lstIdx;
         EXPECT_EQ(aclRuleEntryDel(r), 0);
         AclRuleEntry* again = rule(lstIdx, 5);
         value(again, RULE_BIT_DSTPORT, num(22, 4));
         return again;
       }},
  };
  uint32_t lstIdx = 3001;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    AclRuleEntry* r = base(lstIdx++);
    c.prepare(r);
    trans(r, kFirst);
    // The kept record with another binding's words is the fresh record of that binding.
    const Bytes unchanged = trans(r, kSecond);
    ASSERT_EQ(unchanged, fresh(r, kSecond));
    trans(r, kFirst);

    r = c.change(r);
    const Bytes got = trans(r, kSecond);
    const Bytes want = fresh(r, kSecond);
    EXPECT_EQ(got, want) << diff(got, want);
    EXPECT_NE(want, unchanged);  // the change is one the record shows
  }
}

}  // namespace
}  // namespace transtest
