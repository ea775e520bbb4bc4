// Interface records, bind-list entries and the protocol names.
#include "main/acl_log.h"
#include "platform/logging.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

constexpr uint32_t kSubIf = 0x400;

// Operational lines of one log class written since seq.
std::vector<std::string> operLines(uint64_t seq, uint32_t cls) {
  std::vector<std::string> out;
  for (const auto& l : plat::logRecent(seq)) {
    if (l.operational && l.tag == ACL_LOG_TAG_BASE + cls) out.push_back(l.text);
  }
  return out;
}

TEST_F(IfTest, RecordCreationFollowsTheInterfaceManager) {
  struct Case {
    const char* name;
    uint32_t flags10, flags13;
    uint8_t subIfEnable;
    bool made;
    uint32_t lastErr;
  };
  const Case cases[] = {
      // clang-format off
      {"plain port", 0, 0, 0, true, 0}, {"manager keeps none", 0, 1, 0, false, 0x55},
      {"sub-interface refused", kSubIf, 0, 0, false, uint32_t(ACL_ERR_SUBIF_NOT_ALLOWED)},
      {"sub-interface allowed", kSubIf, 0, 1, true, 0x55},
      {"other flag words", 0x3FF, 2, 0, true, 0x55},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    restart();
    ifFlags(kPort, c.flags10, c.flags13);
    gaclGrp.ethSubIfEnable = c.subIfEnable;
    gaclGrp.lastErr = 0x55;
    AclIfEntry* e = aclIfEntryAdd(kPort);
    EXPECT_EQ(e != nullptr, c.made);
    EXPECT_EQ(aclIfEntryGet(kPort), e);
    if (!c.made) {
      EXPECT_EQ(gaclGrp.lastErr, c.lastErr);
      EXPECT_TRUE(protocols(kPort).empty());
      continue;
    }
    EXPECT_EQ(e->inCtrl, ACL_IF_CTRL_OFF);
    EXPECT_EQ(e->outCtrl, ACL_IF_CTRL_OFF);
    EXPECT_EQ(e->rowStatus, 1);
    EXPECT_EQ(protocols(kPort), std::vector<uint32_t>{ACL_MODULE_NUM});
    EXPECT_EQ(aclIfEntryAdd(kPort), e);  // a second creation keeps the record
    EXPECT_EQ(aclDeleteIf(kPort), 0);
    EXPECT_EQ(aclIfEntryGet(kPort), nullptr);
    EXPECT_TRUE(protocols(kPort).empty());
    EXPECT_EQ(used(gaclGrp.ifPool), 0u);
  }
}

TEST_F(IfTest, FailedRegistrationIsLoggedAndTheRecordKept) {
  // A failed registration is logged and the record is still made.
  plat::faultAdd({.call = "zorIfSetApi", .cmd = ZOR_IF_PROTO_ENABLE});
  uint64_t seq = plat::logLastSeq();
  ASSERT_NE(aclIfEntryAdd(kPort), nullptr);
  EXPECT_EQ(
      operLines(seq, 9),
      std::vector<std::string>{
          "The interface enable protocol error.(ifName=[ge-1/2/1], proto=[acl], type=[state])"});
  plat::faultAdd({.call = "zorIfSetApi", .cmd = ZOR_IF_PROTO_DISABLE});
  seq = plat::logLastSeq();
  EXPECT_EQ(aclDeleteIf(kPort), 0);
  EXPECT_EQ(operLines(seq, 10).size(), 1u);
  EXPECT_EQ(aclIfEntryGet(kPort), nullptr);
}

TEST_F(IfTest, BindListEntriesKeepTheirOrder) {
  struct Key {
    uint32_t ifIndex;
    uint8_t type, dir;
    uint32_t lst, rule;
  };
  // Inserted out of order; the tree keeps list, rule, interface, type, direction.
  const Key inserted[] = {{202, 2, 0, 1001, 0}, {201, 2, 1, 1001, 0}, {201, 2, 0, 1001, 5},
                          {201, 7, 0, 1001, 0}, {201, 2, 0, 1001, 0}, {101, 1, 0, 7, 0},
                          {201, 2, 0, 1001, 0}};
  const uint32_t before = used(gaclGrp.ifListPool);
  for (const Key& k : inserted)
    ASSERT_NE(aclIfListAdd(k.ifIndex, k.type, k.dir, k.lst, k.rule), nullptr);
  EXPECT_EQ(used(gaclGrp.ifListPool), before + 6);  // the repeated key made no second entry
  std::vector<std::tuple<uint32_t, uint32_t, uint32_t, int, int>> walk;
  for (auto* e = static_cast<AclIfListEntry*>(avl_first(&gaclGrp.ifListTree)); e != nullptr;
       e = static_cast<AclIfListEntry*>(avl_next(&gaclGrp.ifListTree, e))) {
    walk.emplace_back(e->lstIdx, e->ruleIdx, e->ifIndex, e->listType, e->dir);
  }
  using W = decltype(walk)::value_type;
  EXPECT_EQ(walk, (std::vector<W>{{7, 0, 101, 1, 0},
                                  {1001, 0, 201, 2, 0},
                                  {1001, 0, 201, 2, 1},
                                  {1001, 0, 201, 7, 0},
                                  {1001, 0, 202, 2, 0},
                                  {1001, 5, 201, 2, 0}}));
  AclIfListEntry* e = aclIfListGet(201, 7, 0, 1001, 0);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(aclIfListDel(e), 0);
  EXPECT_EQ(aclIfListGet(201, 7, 0, 1001, 0), nullptr);
  EXPECT_EQ(used(gaclGrp.ifListPool), before + 5);
}

TEST_F(IfTest, ProtocolNames) {
  const std::pair<uint32_t, const char*> cases[] = {
      {0, "dot1x"},       {165, "acl"},           {70, "unknown"},  {400, "unknown"},
      {384, "max-proto"}, {317, "trafficpolicy"}, {383, "unknown"}, {0xFFFFFFFF, "unknown"},
  };
  for (auto [code, name] : cases) EXPECT_STREQ(aclProtoNameGet(code), name) << code;
}

}  // namespace
}  // namespace iftest
