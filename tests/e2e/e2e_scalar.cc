// The scalar table on the real daemon through the friendly "aclctl global", "limits", "version"
// and "debug" commands, and the audit naming hardware cleared behind the daemon's back.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class ScalarE2e : public AclScriptTest {
 protected:
  json globalEntries() { return run({"dev", "hw", "--scope", "global"})["table"]["entries"]; }
  json scalarSet(uint32_t cmd, uint32_t v) {
    return run({"call", "aclScalarSetApi", "-", std::to_string(cmd), "u32:" + std::to_string(v)});
  }
};

TEST_F(ScalarE2e, FriendlyGlobalCommands) {
  validRules(1001, 1);
  validRules(1002, 1);
  json r = run({"--json", "global", "bind", "in", "ipv4", "1001"});
  EXPECT_TRUE(r["ok"]);
  script("global set-generic out 1002; global switch out on");
  json shown = run({"--json", "global", "show"});
  expectFields(shown["generic"]["out"], {{"list", 1002}, {"on", true}});
  EXPECT_EQ(shown["generic"]["in"]["on"], false);
  ASSERT_EQ(shown["slots"].size(), 12u);
  expectFields(shown["slots"][2], {{"slot", "inIpv4Acl"}, {"list", 1001}});
  EXPECT_EQ(shown["slots"][3]["list"], 0);
  EXPECT_EQ(globalEntries().size(), 2u);

  // Refusals are shown by name and end aclctl with status 1.
  r = run({"--json", "global", "unbind", "in", "l2"}, 1);
  expectFields(r, {{"ret_hex", "0x03EA0041"}, {"ok", false}});
  run({"global", "bind", "in", "ipv4", "1500"}, 1);
  run({"global", "bind", "sideways", "ipv4", "1001"}, 2);
  script("global unbind in ipv4; global switch out off");
  EXPECT_TRUE(globalEntries().empty());

  json limits = run({"--json", "limits"});
  EXPECT_EQ(limits["cur_lists"], 2);
  EXPECT_EQ(limits["rules"]["ipv4"]["used"], 2);
  EXPECT_GT(limits["max_lists"].get<int>(), 0);
  EXPECT_EQ(run({"--json", "version"})["version"], "ACL_V7.00.02.00");

  json dbg = run({"--json", "debug", "set", "0x4"});
  EXPECT_EQ(dbg["debug_flags"].get<uint32_t>() & 0x4u, 0x4u);
  dbg = run({"--json", "debug", "clear", "0x4"});
  EXPECT_EQ(dbg["debug_flags"].get<uint32_t>() & 0x4u, 0u);
  run({"debug", "set", "lots"}, 2);
  expectAuditClean();
}

TEST_F(ScalarE2e, AuditNamesHardwareClearedBehindTheDaemonsBack) {
  validRules(1001, 2);
  ASSERT_EQ(scalarSet(28, 1001)["ret"], 0);  // inIpv4Acl
  expectAuditClean();
  run({"dev", "clear", "--what", "hw"});
  std::string out;
  EXPECT_EQ(acl_->aclctl({"audit"}, &out), 1);
  EXPECT_EQ(
      out,
      "hardware: global table lacks list 1001 rule 1 dir 0 (global inIpv4Acl, priority 8193)\n"
      "hardware: global table lacks list 1001 rule 2 dir 0 (global inIpv4Acl, priority 8194)\n"
      "2 difference(s)\n");
  json j = run({"--json", "audit"}, 1);
  EXPECT_EQ(j["clean"], false);
  ASSERT_EQ(j["differences"].size(), 2u);
  EXPECT_EQ(j["differences"][0]["check"], "hardware");
}

}  // namespace
