// The process-shell commands in-process, called through the registry the way the shell socket
// calls them, with their output checked byte for byte where it is fixed.
#include <string>
#include <vector>

#include "diag/acl_shell.h"
#include "main/acl_log.h"
#include "platform/logging.h"
#include "platform/proc_shell.h"
#include "unit/hw/if_fixture.h"

namespace iftest {
namespace {

class ShellTest : public IfTest {
 protected:
  void SetUp() override {
    IfTest::SetUp();
    aclShellRegister();
  }
  // What the command printed; fails the test when the shell did not run it.
  static std::string run(const std::string& line) {
    const std::string reply = plat::shellRunLine(line);
    const size_t nl = reply.find('\n');
    EXPECT_EQ(reply.rfind("ok ", 0), 0u) << line << ": " << reply;
    return nl == std::string::npos ? "" : reply.substr(nl + 1);
  }
  static std::vector<std::string> logSince(uint64_t seq) {
    std::vector<std::string> out;
    for (const auto& l : plat::logRecent(seq)) out.push_back(l.text);
    return out;
  }
  static void gemEntry(uint32_t ifIndex, uint16_t onu, uint16_t gem, uint32_t lst) {
    AclGemPortListEntry* e = aclGemPortListAdd(ifIndex, onu, gem, ACL_BIND_KIND_IPV4, 0, lst);
    ASSERT_NE(e, nullptr);
    e->hwState = 1;
  }
};

// The help text itself is checked end to end; here its framing and its second name.
TEST_F(ShellTest, HelpAnswersUnderBothNames) {
  const std::string help = run("aclHelp");
  ASSERT_NE(help.find(" aclIfListShow(uint32_t listNum, uint32_t ifUnit)\n\r"), std::string::npos);
  EXPECT_EQ(plat::shellRunLine("aclHelp"), "ok 0 " + std::to_string(help.size()) + "\n" + help);
  EXPECT_EQ(run("aclShellCmd"), help);
}

TEST_F(ShellTest, IfListShowCountsEveryEntryAndPrintsThoseThatPassBothFilters) {
  ASSERT_NE(aclIfListAdd(201, ACL_BIND_KIND_HYBRID, 0, 2001, 0), nullptr);
  ASSERT_NE(aclIfListAdd(202, ACL_BIND_KIND_HYBRID, 1, 2001, 0), nullptr);
  ASSERT_NE(aclIfListAdd(201, ACL_BIND_KIND_IPV4, 0, 1001, 0), nullptr);
  const std::string total = "\n\r Total num 3 \n\r";
  const std::string e1001 =
      "\n\r list 1001 rule 0 ifIndex 201 type 2 dir 0 hwState 0 refcount 0\n\r";
  const std::string e2001a =
      "\n\r list 2001 rule 0 ifIndex 201 type 4 dir 0 hwState 0 refcount 0\n\r";
  const std::string e2001b =
      "\n\r list 2001 rule 0 ifIndex 202 type 4 dir 1 hwState 0 refcount 0\n\r";
  const struct {
    const char* line;
    std::string want;
  } cases[] = {{"aclIfListShow", total + e1001 + e2001a + e2001b},
               {"aclIfListShow 0 0", total + e1001 + e2001a + e2001b},
               {"aclIfListShow 2001 0", total + e2001a + e2001b},
               {"aclIfListShow 0 201", total + e1001 + e2001a},
               {"aclIfListShow 0x7d1 202", total + e2001b},
               {"aclIfListShow 3001 0", total}};
  for (const auto& c : cases) EXPECT_EQ(run(c.line), c.want) << c.line;
}

TEST_F(ShellTest, GemportListShowFiltersByEachKey) {
  gemEntry(401, 5, 1, 1001);
  gemEntry(402, 5, 2, 1001);
  gemEntry(401, 6, 1, 1001);
  gemEntry(401, 5, 1, 1002);
  auto line = [](uint32_t lst, uint32_t ifIndex, uint32_t onu, uint32_t gem) {
    return "\n\r list " + std::to_string(lst) + " ifIndex " + std::to_string(ifIndex) + " onuid " +
           std::to_string(onu) + " gemPort " + std::to_string(gem) + " type 2 dir 0 hwState 1\n\r";
  };
  const std::string total = "\n\r Total num 4 \n\r";
  const struct {
    const char* line;
    std::string want;
  } cases[] = {
      {"aclGemportListShow 0 5 0 0",
       total + line(1001, 401, 5, 1) + line(1001, 402, 5, 2) + line(1002, 401, 5, 1)},
      {"aclGemportListShow 401 5 0 0", total + line(1001, 401, 5, 1) + line(1002, 401, 5, 1)},
      {"aclGemportListShow 0 0 2 0", total + line(1001, 402, 5, 2)},
      {"aclGemportListShow 0 5 0 1002", total + line(1002, 401, 5, 1)},
      {"aclGemportListShow 0 7 0 0", total},
  };
  for (const auto& c : cases) EXPECT_EQ(run(c.line), c.want) << c.line;
}

TEST_F(ShellTest, ShowPrintsOnlyTheHeadOfAListWhoseStatusIsZero) {
  listOf(1001, {1});
  list(1002)->status = 0;
  const std::string out = run("aclShow");
  EXPECT_EQ(out.rfind("\n\r ACL dynamic bind ENABLE: 0 \n\r", 0), 0u) << out;
  EXPECT_NE(out.find(" ACL max lst num: 64 \n\r"), std::string::npos) << out;
  const std::string l1001 =
      "\n\r-----------------acl--1001--begin-----------------\n\racl 1001:\r\n status=1\r\n";
  const size_t at = out.find(l1001);
  ASSERT_NE(at, std::string::npos) << out;
  EXPECT_NE(out.find("\n\r-----------------acl--1001--end------------------\n\r", at),
            std::string::npos);
  // The last list prints its head and nothing more.
  const std::string l1002 =
      "\n\r-----------------acl--1002--begin-----------------\n\racl 1002:\r\n status=0\r\n";
  ASSERT_GE(out.size(), l1002.size());
  EXPECT_EQ(out.substr(out.size() - l1002.size()), l1002) << out;
}

TEST_F(ShellTest, VxlanParamPrintsEachRefusedSetAndAlwaysTheClosingLine) {
  listOf(1001, {1});
  rule(1001, 2);  // created, not valid yet
  const std::string closing1 = "\n\r Set rule 1001/1 vxlan parameters.\n\r";
  const struct {
    const char* line;
    std::string want;
  } cases[] = {
      // A valid rule refuses every change.
      {"aclRuleSetVxlanParam 1001 1 1 2 3 4",
       " rule 1001/1 status=1\r\n"
       " rule 1001/1 set vxlanFlag error vxlanFlag=1\r\n"
       " rule 1001/1 set vxlanTransit error vxlanTransit=2\r\n"
       " rule 1001/1 set vlanTag error vlanTag=3\r\n"
       " rule 1001/1 set vxlanVni error vxlanVni=4\r\n" +
           closing1},
      {"aclRuleSetVxlanParam 1001 2 1 2 3 4",
       " rule 1001/2 status=3\r\n\n\r Set rule 1001/2 vxlan parameters.\n\r"},
      // No such rule: no status line, every set refused.
      {"aclRuleSetVxlanParam 1001 9 0 0 0 7",
       " rule 1001/9 set vxlanFlag error vxlanFlag=0\r\n"
       " rule 1001/9 set vxlanTransit error vxlanTransit=0\r\n"
       " rule 1001/9 set vlanTag error vlanTag=0\r\n"
       " rule 1001/9 set vxlanVni error vxlanVni=7\r\n"
       "\n\r Set rule 1001/9 vxlan parameters.\n\r"},
  };
  for (const auto& c : cases) EXPECT_EQ(run(c.line), c.want) << c.line;
  // The sets that were taken are in the rule.
  EXPECT_NE(run("aclRuleShowForList 1001").find(" VXLAN VNI=0x4\r\n"), std::string::npos);
}

TEST_F(ShellTest, PktDbgDumpsSixteenBytesALineOnlyUnderItsDebugBit) {
  const std::string hex = "000102030405060708090a0b0c0d0e0f10111213";
  const struct {
    uint32_t flags;
    std::vector<std::string> want;
  } cases[] = {
      {0x100, {}},
      {0x104,
       {"ACL config communicate packet content", "---------------------------------------",
        "00 01 02 03 04 05 06 07   08 09 0a 0b 0c 0d 0e 0f   ", "10 11 12 13 ",
        "-------------------end--------------------"}},
  };
  for (const auto& c : cases) {
    aclDebugSet(c.flags);
    const uint64_t seq = plat::logLastSeq();
    run("aclPktDbg " + hex + " 20");
    EXPECT_EQ(logSince(seq), c.want) << c.flags;
  }
  // The length never reaches past the bytes given, and a short run sets off its first eight.
  const uint64_t seq = plat::logLastSeq();
  run("aclPktDbg 000102030405060708090a 300");
  const auto lines = logSince(seq);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[2], "00 01 02 03 04 05 06 07    08 09 0a ");
}

TEST_F(ShellTest, DebugAndModeSettersTakeTheirWord) {
  for (const uint32_t flags : {0xFFFFFFFFu, 0u}) {
    EXPECT_EQ(plat::shellRunLine("aclDebugSet " + std::to_string(flags)), "ok 0 0\n");
    EXPECT_EQ(gaclGrp.debugFlags, flags);
  }
  // The mode setters keep the low byte and answer it.
  EXPECT_EQ(plat::shellRunLine("aclDynamicBindSet 0x101"), "ok 1 0\n");
  EXPECT_EQ(gaclGrp.dynamicBindEnable, 1);
  EXPECT_EQ(plat::shellRunLine("aclRedirectMultiSet 0x200"), "ok 0 0\n");
  EXPECT_EQ(gaclGrp.redirectMultiEnable, 0);
}

}  // namespace
}  // namespace iftest
