// How the daemon learns the chassis: slot and card route messages and the capacities a card
// reports.
#include <vector>

#include "control/acl_slot_rtmsg.h"
#include "main/acl_task.h"
#include "platform/fault.h"
#include "platform/logging.h"
#include "support/device_lock.h"
#include "unit/control/slot_fixture.h"
#include "wire/be.h"

namespace slottest {
namespace {

std::vector<uint8_t> message(uint16_t type, std::vector<uint32_t> words, uint8_t kind = 0) {
  std::vector<uint8_t> m(24 + (type == ACL_RTM_CARD_UP || type == ACL_RTM_CARD_CHANGE ? 52 : 12));
  be::store32(m, 0, static_cast<uint32_t>(m.size()));
  be::store16(m, 4, type);
  for (size_t i = 0; i < words.size() && 28 + 4 * i <= m.size(); ++i) {
    be::store32(m, 24 + 4 * i, words[i]);
  }
  if (m.size() > 72) m[72] = kind;
  return m;
}

void setCardOption(uint32_t slot, const char* key, const char* value) {
  test::onDevice([&](vdev::Device& d) { d.model.slots[{1, slot}].card->options[key] = value; });
}

size_t cardUpCompletions() {
  auto& d = vdev::device();
  std::lock_guard lock(d.mutex);
  size_t n = 0;
  for (const auto& c : d.journal.commands) n += c.call == "zorCardUpPcsSet" && c.cmd == 165;
  return n;
}

TEST_F(SlotTest, CardOptionsSetCapacitiesOnlyWhenTheyArePositiveNumbers) {
  const struct {
    const char* value;
    uint32_t expected;
  } cases[] = {{"2", 2},   {"12abc", 12}, {" 7", 7},    {"0", 1024},
               {"", 1024}, {"abc", 1024}, {"-5", 1024}, {"99999999999", 1024}};
  for (const auto& c : cases) {
    slot(2)->maxSubRuleNum[kIpv4In] = 1024;
    setCardOption(2, "acl.maxipv4inrulenumperslot", c.value);
    EXPECT_EQ(aclSlotMaxSubRuleNumUpdate(1, 2, 2), 0);
    EXPECT_EQ(aclSlotEntryGet(1, 2)->maxSubRuleNum[kIpv4In], c.expected) << '"' << c.value << '"';
  }
  // The other stages come from their own query: the built-in line cards say 1024 and 256.
  const AclSlotEntry* s2 = aclSlotEntryGet(1, 2);
  EXPECT_EQ(std::pair(s2->maxSubRuleNum[kIpv4Out], s2->maxSubRuleNum[kIpv4Vfp]),
            std::pair(1024u, 256u));

  // A query the card refuses keeps what the slot had, and is told only in the debug log.
  gaclGrp.debugFlags = 0x101;
  setCardOption(2, "acl.maxipv4outrulenumperslot", "5");
  plat::faultAdd({.call = "zorHwilCardGet", .result = 0x1234, .count = 3});
  const uint64_t from = plat::logLastSeq();
  EXPECT_EQ(aclSlotMaxSubRuleNumUpdate(1, 2, 2), 0);
  EXPECT_EQ(aclSlotEntryGet(1, 2)->maxSubRuleNum[kIpv4Out], 1024u);
  const auto lines = plat::logRecent(from);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1].text, "acl get sys 1 slot 2 type 2 param1 ret(0x1234).");
  EXPECT_EQ(aclSlotMaxSubRuleNumUpdate(1, 2, 2), 0);
  // After the three failures: stage 0's query and six keys, stage 1's query, its L2 and IPv4 keys.
  EXPECT_EQ(plat::logRecent(from).at(3 + 7 + 2).text,
            "acl get key acl.maxipv4outrulenumperslot value is 5");
}

TEST_F(SlotTest, SlotAndCardMessagesKeepTheRecords) {
  setCardOption(2, "acl.maxipv4inrulenumperslot", "2");
  const struct {
    const char* what;
    std::vector<uint8_t> msg;
    uint32_t slot;
    bool exists;
    uint32_t ipv4In;  // capacity afterwards
    size_t completions;
  } steps[] = {
      {"slot up", message(ACL_RTM_SLOT_UP, {1, 3, 0}), 3, true, 1024, 0},
      {"slot removed", message(ACL_RTM_SLOT_DEL, {1, 3}), 3, false, 0, 0},
      {"slot ready", message(ACL_RTM_SLOT_READY, {1, 3, 0}), 3, true, 1024, 0},
      {"card not serving", message(ACL_RTM_CARD_UP, {1, 2, 0, 2}, 1), 2, true, 1024, 0},
      {"card down", message(ACL_RTM_CARD_CHANGE, {1, 2, 0, 2}, 2), 2, true, 1024, 0},
      {"card up", message(ACL_RTM_CARD_UP, {1, 2, 0, 2}), 2, true, 2, 1},
      {"card changed", message(ACL_RTM_CARD_CHANGE, {1, 2, 0, 2}, 1), 2, true, 2, 2},
  };
  for (const auto& s : steps) {
    EXPECT_EQ(aclRtMsgRecv(s.msg), 0);
    const AclSlotEntry* e = aclSlotEntryGet(1, s.slot);
    ASSERT_EQ(e != nullptr, s.exists) << s.what;
    if (e) {
      EXPECT_EQ(e->maxSubRuleNum[kIpv4In], s.ipv4In) << s.what;
    }
    EXPECT_EQ(cardUpCompletions(), s.completions) << s.what;
  }

  // A card of capacity 2 refuses a 3-rule list before anything is charged.
  list(1001, 3);
  EXPECT_EQ(aclSlotSubRuleNumCheck(201, 0, 1001, 3, kIn), ACL_ERR_SLOT_RULE_FULL);

  // Messages too short for their body are skipped whole.
  for (uint16_t type : {ACL_RTM_SLOT_UP, ACL_RTM_CARD_UP, ACL_RTM_SLOT_DEL}) {
    std::vector<uint8_t> cut = message(type, {1, 9, 0, 2});
    cut.resize(type == ACL_RTM_CARD_UP ? 72 : 28);
    be::store32(cut, 0, static_cast<uint32_t>(cut.size()));
    EXPECT_EQ(aclRtMsgRecv(cut), 0);
    EXPECT_EQ(aclSlotEntryGet(1, 9), nullptr) << type;
  }
  EXPECT_NE(aclSlotEntryGet(1, 3), nullptr);

  // A full pool keeps no record; the card operations answer that none can be had.
  start("1");  // room for the own slot only
  EXPECT_EQ(aclRtMsgRecv(message(ACL_RTM_SLOT_UP, {1, 3, 0})), 0);
  EXPECT_EQ(aclSlotEntryGet(1, 3), nullptr);
  EXPECT_EQ(aclSlotMaxSubRuleNumUpdate(1, 3, 2), ACL_ERR_SLOT_NOT_EXIST);
  EXPECT_EQ(aclSlotCurRuleNumSync(1, 3), ACL_ERR_SLOT_NOT_EXIST);
}

}  // namespace
}  // namespace slottest
