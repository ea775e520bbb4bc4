// The process shell from a terminal: aclctl shell calls the daemon's diagnostic commands by name
// and prints exactly what they wrote; aclctl show puts the friendly views side by side.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class ShellE2e : public AclScriptTest {
 protected:
  std::string shell(const std::vector<std::string>& args, int expectStatus = 0) {
    std::vector<std::string> all = {"shell"};
    all.insert(all.end(), args.begin(), args.end());
    std::string out;
    EXPECT_EQ(acl_->aclctl(all, &out), expectStatus) << out;
    return out;
  }
};

TEST_F(ShellE2e, HelpAndTheWholeShow) {
  EXPECT_EQ(shell({"aclHelp"}),
            "\n\r aclShow\n\r aclRuleShow\n\r aclRuleShowForList(listNum)\n\r"
            " aclSlotResourceShow(sys, slot, flag)\n\r aclSlotResourceShowAll\n\r"
            " aclDynamicBindSet(enable)\n\r aclRedirectMultiSet(enable)\n\r"
            " aclRuleSetVxlanParam(lstIdx, ruleIdx, vxlanFlag, vxlanTransit, vlanTag, "
            "vxlanVni)\n\r aclIfListShow(uint32_t listNum, uint32_t ifUnit)\n\r");
  validRules(2001, 1);
  validRules(1001, 1);
  script(R"(if create 201; if create 202; if create 203; if bind 201 in hybrid 2001
            if bind 202 out hybrid 2001; if bind 203 in ipv4 1001)");

  ASSERT_EQ(slotsKnown().size(), 4u);

  // One document with every view; the text form has a table per view.
  const json doc = run({"--json", "show"});
  EXPECT_EQ((std::vector{doc["lists"].size(), doc["rules"].size(), doc["interfaces"].size(),
                         doc["slots"].size()}),
            (std::vector<size_t>{2, 2, 3, 4}))
      << doc.dump();
  EXPECT_TRUE(doc["stats"].is_array());
  std::string text;
  ASSERT_EQ(acl_->aclctl({"show"}, &text), 0);
  for (const char* head : {"LISTS", "RULES", "BINDINGS", "SLOT LEDGER", "STATISTICS"}) {
    EXPECT_NE(text.find(std::string(head) + "\n"), std::string::npos) << head << "\n" << text;
  }
  EXPECT_NE(text.find("  IFINDEX  LIST  RULE  KIND    DIR  NOTE\n"), std::string::npos) << text;
  EXPECT_NE(text.find("      201  2001     0  hybrid  in\n"), std::string::npos) << text;
  expectAuditClean();
}

TEST_F(ShellE2e, ExitStatusesAndTheCommandListing) {
  const std::string listing = shell({});
  for (const char* name : {"aclIfListShow(listNum, ifUnit)\n", "aclHelp\n", "aclSlotShow\n",
                           "aclPktDbg(hexBytes, length)\n", "meterProfileInfoShow\n"}) {
    EXPECT_NE(listing.find(name), std::string::npos) << name;
  }
  EXPECT_EQ(shell({"noSuchCommand"}, 1), "");
  EXPECT_EQ(shell({"aclIfListShow", "1", "2", "3"}, 2), "");
  EXPECT_EQ(shell({"aclIfListShow", "ten"}, 2), "");
  // An unreachable daemon is a failure, not a usage error.
  const std::string cmd = std::string(ACL_BINARY_DIR) +
                          "/src/client/aclctl --run-dir /nonexistent shell aclHelp 2>/dev/null";
  const int status = std::system(cmd.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
