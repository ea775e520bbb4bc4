// NAT installations: one record per valid rule under the NAT module's command, the direction in
// the record only, the re-send of a failed installation, and the transport checks.
#include <array>

#include "api/acl_slot_api.h"
#include "services/acl_nat.h"
#include "unit/services/install_fixture.h"

namespace svctest {
namespace {

using namespace acldev;

constexpr uint32_t kNatAdd = 0x00B90001;
constexpr uint32_t kNatDel = 0x00B90002;

class NatTest : public InstallTest {
 protected:
  // (command, rule, dir) of every record the platform received through call.
  struct Sent {
    uint32_t cmd, rule, dir;
    bool operator==(const Sent&) const = default;
  };
  static std::vector<Sent> sent(const char* call) {
    std::vector<Sent> out;
    for (auto& c : commands(call)) {
      out.push_back({c.cmd, be::load32(c.data, kRuleIdx), c.data[kDir]});
    }
    return out;
  }
  static Bytes args(uint32_t lst, uint32_t cmd, uint32_t dir) {
    Bytes b(12);
    be::store32(b, 0, lst);
    be::store32(b, 4, cmd);
    be::store32(b, 8, dir);
    return b;
  }
};

TEST_F(NatTest, SendsValidRulesWithTheDirectionInTheRecord) {
  start({{"acl.dynamicbindenable", "true"}});
  validList(1001, {1, 2, 3, 4});
  aclRuleEntryGetByIndex(1001, 2)->status = ACL_RULE_STATUS_CREATED;
  aclBitSet(aclRuleEntryGetByIndex(1001, 4)->fieldBits, RULE_BIT_VRFID);
  ASSERT_EQ(_aclNatGlobaladd(1001, kNatAdd, 1), 0);
  EXPECT_EQ(sent("zorScalarSetApi"), (std::vector<Sent>{{kNatAdd, 1, 1}, {kNatAdd, 3, 1}}));
  ASSERT_EQ(_aclNatGlobaldel(1001, kNatDel, 1), 0);
  EXPECT_EQ(
      sent("zorScalarSetApi"),
      (std::vector<Sent>{{kNatAdd, 1, 1}, {kNatAdd, 3, 1}, {kNatDel, 1, 1}, {kNatDel, 3, 1}}));
  // Nothing goes through the rule tables, and the list gains no reference.
  EXPECT_EQ(std::make_pair(globalTable().size(), aclListEntryGet(1001)->refCnt),
            std::make_pair(0ul, 0));
  // The record is the rule's: priority = rule number, the list's fields.
  const auto cmds = commands("zorScalarSetApi");
  EXPECT_EQ(std::make_tuple(be::load16(cmds[0].data, kPriority), be::load32(cmds[0].data, kLstIdx),
                            be::load16(cmds[0].data, kProtoSubType)),
            std::make_tuple(uint16_t{1}, 1001u, uint16_t{6}));
}

TEST_F(NatTest, StatusCheckAndListChecksRefuse) {
  validList(1001, {1, 2});
  aclRuleEntryGetByIndex(1001, 2)->status = ACL_RULE_STATUS_CREATED;
  EXPECT_EQ(_aclNatGlobaladd(1001, kNatAdd, 0), ACL_ERR_RULE_INVALID);
  EXPECT_EQ(_aclNatGlobaladd(1009, kNatAdd, 0), ACL_ERR_LIST_NOT_EXIST);
  list(1002);
  EXPECT_EQ(_aclNatGlobaladd(1002, kNatAdd, 0), ACL_ERR_LIST_EMPTY);
  EXPECT_EQ(_aclNatGlobaldel(1002, kNatDel, 0), ACL_ERR_LIST_EMPTY);
  // Only three directions exist; the record could not carry another.
  validList(1003, {1});
  EXPECT_EQ(_aclNatGlobaladd(1003, kNatAdd, 3), CMN_ERR_BAD_PARAM);
  EXPECT_TRUE(commands("zorScalarSetApi").empty());
  EXPECT_EQ(aclNatIfadd(1, 2, 3, 4), 0);
  EXPECT_EQ(aclNatIfdel(0xFFFFFFFF, 0, 0, 0), 0);
}

TEST_F(NatTest, FailedInstallationResendsItsOwnCommand) {
  validList(1001, {1, 2, 5, 9});
  plat::faultAdd({.call = "zorScalarSetApi", .cmd = kNatAdd, .result = 0x0BAD, .skip = 2});
  EXPECT_EQ(_aclNatGlobaladd(1001, kNatAdd, 0), 0x0BAD);
  // Rules 1 and 2 went out, rule 5 failed; the undo walk sends 1, 2 and 5 again with the same
  // command and stops before 9.
  EXPECT_EQ(
      sent("zorScalarSetApi"),
      (std::vector<Sent>{
          {kNatAdd, 1, 0}, {kNatAdd, 2, 0}, {kNatAdd, 1, 0}, {kNatAdd, 2, 0}, {kNatAdd, 5, 0}}));
}

TEST_F(NatTest, SlotScopeUsesTheSlotCommand) {
  validList(1001, {1, 2, 3});
  auto key = slotKey(1, 2);
  ASSERT_EQ(_aclNatSlotadd(key.data(), 1001, kNatAdd, 2), 0);
  EXPECT_EQ(commands("zorHwilSlotSet")[0].key, (std::vector<uint32_t>{1, 2}));
  // A removal part-way stops at the first rule above the bound.
  ASSERT_EQ(aclNatSlotdelpart(key.data(), 1001, 2, kNatDel, 2, 0), 0);
  // The second record refused: the undo walk sends rules 1 and 2 again with the same command.
  plat::faultAdd({.call = "zorHwilSlotSet", .unit = 2, .result = 0x0BAD, .skip = 1});
  EXPECT_EQ(_aclNatSlotadd(key.data(), 1001, kNatAdd, 0), 0x0BAD);
  EXPECT_EQ(sent("zorHwilSlotSet"), (std::vector<Sent>{{kNatAdd, 1, 2},
                                                       {kNatAdd, 2, 2},
                                                       {kNatAdd, 3, 2},
                                                       {kNatDel, 1, 2},
                                                       {kNatDel, 2, 2},
                                                       {kNatAdd, 1, 0},
                                                       {kNatAdd, 1, 0},
                                                       {kNatAdd, 2, 0}}));
  // A slot the device does not have refuses the first record.
  auto missing = slotKey(1, 9);
  EXPECT_NE(_aclNatSlotadd(missing.data(), 1001, kNatAdd, 0), 0);
  EXPECT_EQ(sent("zorHwilSlotSet").size(), 8u);
}

TEST_F(NatTest, TransportTakesExactlyTwelveBytes) {
  validList(1001, {1});
  const Bytes a = args(1001, kNatAdd, 0);
  for (uint32_t len : {0u, 11u, 13u, 24u}) {
    EXPECT_EQ(exCall(_aclNatGlobaladdEx, a, len), 22) << len;
    EXPECT_EQ(exCall(_aclNatGlobaldelEx, a, len), 22) << len;
  }
  EXPECT_EQ(_aclNatGlobaladdEx(0), 22);
  EXPECT_TRUE(commands("zorScalarSetApi").empty());
  EXPECT_EQ(exCall(_aclNatGlobaladdEx, a, 12), 0);
  EXPECT_EQ(commands("zorScalarSetApi").size(), 1u);

  auto key = slotKey(1, 3);
  Bytes copy = a;
  wire::BufDesc d{copy.data(), 13};
  const auto k = reinterpret_cast<uintptr_t>(key.data());
  const auto b = reinterpret_cast<uintptr_t>(&d);
  EXPECT_EQ(aclSlotSetApi(k, ACL_SLOT_CMD_NAT_ADD, b), 22);
  EXPECT_EQ(aclSlotSyncApi(k, ACL_SLOT_CMD_NAT_DEL, b), 22);
  EXPECT_EQ(aclSlotSetApi(k, ACL_SLOT_CMD_NAT_ADD, 0), 22);
  EXPECT_TRUE(commands("zorHwilSlotSet").empty());
  d.len = 12;
  EXPECT_EQ(aclSlotSetApi(k, ACL_SLOT_CMD_NAT_ADD, b), 0);
  EXPECT_EQ(aclNatSlotdel(key.data(), 1001, kNatDel, 0), 0);
  EXPECT_EQ(sent("zorHwilSlotSet"), (std::vector<Sent>{{kNatAdd, 1, 0}, {kNatDel, 1, 0}}));
}

}  // namespace
}  // namespace svctest
