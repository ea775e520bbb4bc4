// The scalar table on the real daemon: a global bind slot installing and removing a list's rules
// (and restoring nothing when the hardware refuses one), the version string, and the friendly
// "aclctl global", "limits", "version" and "debug" commands.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class ScalarE2e : public AclE2eTest {
 protected:
  json globalEntries() { return run({"dev", "hw", "--scope", "global"})["table"]["entries"]; }
  json scalarSet(uint32_t cmd, uint32_t v) {
    return run({"call", "aclScalarSetApi", "-", std::to_string(cmd), "u32:" + std::to_string(v)});
  }
  uint32_t scalarGet(uint32_t cmd) {
    return run({"call", "aclScalarGetApi", "-", std::to_string(cmd), "u32:0"})["buf"]["u32"];
  }
};

TEST_F(ScalarE2e, GlobalSlotInstallsRemovesAndFailsCleanly) {
  validRules(1001, 2);
  EXPECT_EQ(scalarSet(28, 1001)["ret"], 0);
  json e = globalEntries();
  ASSERT_EQ(e.size(), 2u) << e.dump();
  EXPECT_EQ(e[0]["list"], 1001);
  EXPECT_EQ(e[0]["direction"], 0);
  EXPECT_EQ(e[0]["priority"], 8193);
  EXPECT_EQ(e[1]["direction"], 0);
  EXPECT_EQ(e[1]["priority"], 8194);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 1);

  EXPECT_EQ(scalarSet(28, 0)["ret"], 0);
  EXPECT_TRUE(globalEntries().empty());
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 0);

  // The hardware refuses the second rule: the set answers its code and nothing stays installed.
  run({"dev", "fault", "add", "--call", "zorHwilCmdSetApi", "--cmd", "217", "--list", "1001",
       "--rule", "2", "--result", "0x0ABC0001"});
  EXPECT_EQ(scalarSet(28, 1001)["ret_hex"], "0x0ABC0001");
  EXPECT_TRUE(globalEntries().empty());
  EXPECT_EQ(scalarGet(28), 0u);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 0);

  // The second relay after the failure carries the previous slot value, 0.
  const json relays = run({"dev", "relays"})["relays"];
  ASSERT_FALSE(relays.empty());
  EXPECT_EQ(relays.back()["cmd"], 0x0001401C);
  EXPECT_EQ(relays.back()["data"], "00000000");

  json v = run({"call", "aclScalarGetApi", "-", "21", "dlen:64"});
  EXPECT_EQ(v["ret"], 0);
  EXPECT_EQ(v["buf"]["len"], 15);
  EXPECT_EQ(v["buf"]["hex"], "41434c5f56372e30302e30322e3030");  // ACL_V7.00.02.00
  v = run({"call", "aclScalarGetApi", "-", "21", "dlen:4"});
  EXPECT_EQ(v["buf"]["len"], 4);
  EXPECT_EQ(v["buf"]["hex"], "41434c5f");
  // No buffer at all reaches the function, which answers it.
  v = run({"call", "aclScalarGetApi", "-", "21"});
  EXPECT_EQ(v["ret"], 22);
  EXPECT_FALSE(v.contains("buf"));
  EXPECT_TRUE(acl_->alive());
  expectAuditClean();
}

TEST_F(ScalarE2e, FriendlyGlobalCommands) {
  validRules(1001, 1);
  validRules(1002, 1);
  json r = run({"--json", "global", "bind", "in", "ipv4", "1001"});
  EXPECT_TRUE(r["ok"]);
  run({"global", "set-generic", "out", "1002"});
  run({"global", "switch", "out", "on"});
  json shown = run({"--json", "global", "show"});
  EXPECT_EQ(shown["generic"]["out"]["list"], 1002);
  EXPECT_EQ(shown["generic"]["out"]["on"], true);
  EXPECT_EQ(shown["generic"]["in"]["on"], false);
  ASSERT_EQ(shown["slots"].size(), 12u);
  EXPECT_EQ(shown["slots"][2]["slot"], "inIpv4Acl");
  EXPECT_EQ(shown["slots"][2]["list"], 1001);
  EXPECT_EQ(shown["slots"][3]["list"], 0);
  EXPECT_EQ(globalEntries().size(), 2u);

  // Refusals are shown by name and end aclctl with status 1.
  r = run({"--json", "global", "unbind", "in", "l2"}, 1);
  EXPECT_EQ(r["ret_hex"], "0x03EA0041");
  EXPECT_FALSE(r["ok"]);
  run({"global", "bind", "in", "ipv4", "1500"}, 1);
  run({"global", "bind", "sideways", "ipv4", "1001"}, 2);
  run({"global", "unbind", "in", "ipv4"});
  run({"global", "switch", "out", "off"});
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

// A daemon with room for four rules and four statistics records.
class SmallStatsPoolE2e : public ScalarE2e {
 protected:
  void SetUp() override {
    AclProcessOptions o;
    o.opts = {{"acl.maxgrulenum", "4"}};
    acl_ = AclProcess::start(o);
    ASSERT_NE(acl_, nullptr);
  }
  // The global table, each entry as it was installed (without the journal's sequence number).
  json table() {
    json t = run({"dev", "hw", "--scope", "global"})["table"];
    for (json& e : t["entries"]) e.erase("seq");
    return t;
  }
};

// A binding with too few statistics records left for its counted rules is refused with
// CMN_ERR_NO_RESOURCE and changes nothing: not the hardware, not the slot (a slot that was
// replacing a list has that list again), not what an unbinding answers afterwards.
TEST_F(SmallStatsPoolE2e, BindingTooBigForTheStatisticsPoolIsRefusedAndChangesNothing) {
  validRules(1001, 3);
  validRules(1002, 1);
  for (auto [lst, r] : {std::pair{1001, 1}, {1001, 2}, {1001, 3}, {1002, 1}}) {
    // Counted rules (action AWARE) take a record per binding direction.
    ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(lst, r), "57", "u32:3"})["ret"], 0);
    ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(lst, r), "53", "d:4000000000000000"})["ret"],
              0);
    ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(lst, r), "57", "u32:1"})["ret"], 0);
  }
  ASSERT_EQ(scalarSet(28, 1002)["ret"], 0);  // inIpv4Acl
  ASSERT_EQ(scalarSet(29, 1001)["ret"], 0);  // outIpv4Acl: the pool is full
  const json before = table();
  ASSERT_EQ(before["entries"].size(), 4u) << before.dump();

  EXPECT_EQ(scalarSet(30, 1001)["ret_hex"], "0x03E80001");  // CMN_ERR_NO_RESOURCE
  EXPECT_EQ(table(), before);
  EXPECT_EQ(scalarSet(30, 0)["ret_hex"], "0x03EA0041") << "unbound, as before";
  // Replacing 1002 frees one record, and 1001 needs three.
  EXPECT_EQ(scalarSet(28, 1001)["ret_hex"], "0x03E80001");
  EXPECT_EQ(table(), before);
  EXPECT_EQ(scalarGet(28), 1002u);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1001", "2", "u32:0"})["buf"]["u32"], 1);
  EXPECT_EQ(run({"call", "aclLstGetApi", "1002", "2", "u32:0"})["buf"]["u32"], 1);

  EXPECT_EQ(scalarSet(28, 0)["ret"], 0);
  EXPECT_EQ(table()["entries"].size(), 3u);
  EXPECT_TRUE(run({"dev", "anomalies"})["anomalies"].empty());
  expectAuditClean();
}

}  // namespace
