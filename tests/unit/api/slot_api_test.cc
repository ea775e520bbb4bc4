// The slot resource table (71 to 73) and the shell printers built on it.
#include "api/acl_slot_api.h"
#include "control/acl_slot_show.h"
#include "platform/proc.h"
#include "support/device_lock.h"
#include "support/table_call.h"
#include "unit/control/slot_fixture.h"
#include "wire/acl_slot_names.h"
#include "wire/be.h"

namespace slottest {
namespace {

struct Key {
  uint8_t bytes[8] = {};
  Key(uint32_t sys, uint32_t slot) {
    be::store32(bytes, 0, sys);
    be::store32(bytes, 4, slot);
  }
  uintptr_t addr() { return reinterpret_cast<uintptr_t>(bytes); }
  std::pair<uint32_t, uint32_t> value() const {
    return {be::load32(bytes, 0), be::load32(bytes, 4)};
  }
};

using SlotApiTest = SlotTest;

TEST_F(SlotApiTest, WalkFollowsSysThenSlotAndGoesOnOnlyFromARecord) {
  for (auto [sys, sl] : {std::pair{2u, 1u}, {1u, 3u}, {1u, 2u}}) aclSlotEntryAdd(sys, sl);
  Key k(0, 0), next(0, 0);
  ASSERT_EQ(aclSlotResourceGetFirst(k.addr(), 0, 0), 0);
  std::vector<std::pair<uint32_t, uint32_t>> walked = {k.value()};
  for (; aclSlotResourceGetNext(k.addr(), next.addr(), 0) == 0; k = next) {
    walked.push_back(next.value());
  }
  EXPECT_EQ(walked, (std::vector<std::pair<uint32_t, uint32_t>>{{1, 1}, {1, 2}, {1, 3}, {2, 1}}));
  Key between(1, 4);  // sorts between 1/3 and 2/1, but is no record
  EXPECT_EQ(aclSlotResourceGetNext(between.addr(), next.addr(), 0), -1);
  EXPECT_EQ(aclSlotResourceGetFirst(0, 0, 0), -1);
}

TEST_F(SlotApiTest, GetReadsTheCardsRecordsOrTheLedgerAndThePrintersShowThem) {
  list(1001, 3);
  slot(2);
  ASSERT_EQ(bind(201, 1001, kIn), 0);
  Key k(1, 2), missing(1, 3);
  test::Desc records(wire::kSlotResourceReadLen), ledger(wire::kSlotLedgerLen),
      shortLedger(wire::kSlotLedgerLen - 1);
  ASSERT_EQ(aclSlotResourceGetApi(k.addr(), 0, records.addr()), 0);
  EXPECT_EQ(records.desc.len, 5 * wire::kSlotResourceRecordLen);  // the built-in slot's five
  ASSERT_EQ(aclSlotResourceGetApi(k.addr(), 1, ledger.addr()), 0);
  const size_t ipv4In = wire::kSlotLedgerTypes + kIpv4In * wire::kSlotLedgerTypeLen;
  EXPECT_EQ(be::load32(ledger.data, ipv4In), 3u);
  EXPECT_EQ(be::load32(ledger.data, ipv4In + 4), 1024u);
  const struct {
    uintptr_t key, cmd, buf;
    int32_t expected;
  } refusals[] = {{missing.addr(), 0, records.addr(), CMN_ERR_NOT_FOUND},
                  {0, 0, records.addr(), CMN_ERR_BAD_PARAM},
                  {k.addr(), 0, 0, CMN_ERR_BAD_PARAM},
                  {k.addr(), 1, shortLedger.addr(), CMN_ERR_BUFFER_SHORT},
                  {k.addr(), 7, 0, 0}};
  for (const auto& r : refusals) {
    EXPECT_EQ(aclSlotResourceGetApi(r.key, r.cmd, r.buf), r.expected) << r.cmd;
  }

  test::onDevice([&](vdev::Device& d) {
    d.model.slots[{1, 2}].resources.resize(2);
    d.model.slots[{1, 1}].resources.clear();
  });
  plat::ShellCapture out;
  aclSlotShow();
  EXPECT_NE(out.text().find("slot:2\r\n"), std::string::npos);
  EXPECT_NE(out.text().find("acl.maxipv4inrulenumperslot:curRuleNum:3,maxRuleNum:1024\r\n"),
            std::string::npos);
  // The own slot answers no record, so its header stands alone; 1/2 follows without one.
  const size_t from = out.text().size();
  aclSlotResourceShowAll();
  aclSlotResourceShow(1, 9, 1);
  EXPECT_EQ(out.text().substr(from),
            "\n\rSys   Slot  Chip  TCAM      Resource  Stage       Total Used  Reserve Free  \n\r" +
                std::string(73, '-') +
                "\n\r"
                "1     2     0     INTERNAL  RULE      PREINGRESS  512   0     16      496   \n\r"
                "1     2     0     INTERNAL  RULE      INGRESS     2048  0     64      1984  \n\r"
                "\n\r Get acl slot resource ERROR!\n\r");
}

}  // namespace
}  // namespace slottest
