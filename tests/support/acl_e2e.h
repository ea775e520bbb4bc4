// The fixture of the end-to-end tests: a daemon of its own per test, driven through aclctl.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/acl_process.h"

class AclE2eTest : public ::testing::Test {
 protected:
  void SetUp() override {
    acl_ = AclProcess::start();
    ASSERT_NE(acl_, nullptr);
  }
  // Runs aclctl, expects its exit status and returns what it printed, parsed (a discarded value
  // when the output is not JSON).
  nlohmann::json run(const std::vector<std::string>& args, int expectStatus = 0) {
    std::string out;
    EXPECT_EQ(acl_->aclctl(args, &out), expectStatus)
        << (args.empty() ? "" : args[0]) << " " << out;
    return nlohmann::json::parse(out, nullptr, false);
  }
  // The daemon's invariant audit agrees with everything it checks; otherwise the failure shows
  // each difference it named.
  void expectAuditClean() {
    std::string out;
    EXPECT_EQ(acl_->aclctl({"audit"}, &out), 0) << out;
    EXPECT_EQ(out, "audit clean\n");
  }
  // Every key of want is in got with want's value; got may hold more.
  static void expectFields(const nlohmann::json& got, const nlohmann::json& want) {
    for (const auto& [k, v] : want.items()) {
      EXPECT_EQ(got.contains(k) ? got[k] : nlohmann::json(), v) << k << " in " << got.dump();
    }
  }
  // The key of rule `rule` of list lst as `aclctl call` takes it.
  static std::string ruleKey(uint32_t lst, uint32_t rule) {
    char text[40];
    std::snprintf(text, sizeof text, "x:%08x%08x%08x", lst, rule, 0u);
    return text;
  }
  // IPv4 list lst with valid rules 1..count; the last follows time range tr when tr is not 0.
  void validRules(uint32_t lst, uint32_t count, uint32_t tr = 0) {
    ASSERT_EQ(run({"call", "aclLstSetApi", std::to_string(lst), "9", "u32:2"})["ret"], 0);
    for (uint32_t r = 1; r <= count; ++r) {
      ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(lst, r), "57", "u32:2"})["ret"], 0);
      ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(lst, r), "19", "u32:46"})["ret"], 0);
      if (r == count && tr != 0) {
        run({"rule", "attach", std::to_string(lst), std::to_string(r), "--time-range",
             std::to_string(tr)});
      }
      ASSERT_EQ(run({"call", "aclRuleSetApi", ruleKey(lst, r), "57", "u32:1"})["ret"], 0);
    }
  }
  // (rule -> priority) of list lst in one unit's hardware table.
  std::map<uint32_t, uint32_t> unitRules(uint32_t unit, uint32_t lst) {
    std::map<uint32_t, uint32_t> out;
    const nlohmann::json t = run({"dev", "hw", "--scope", "unit", "--unit", std::to_string(unit)});
    for (const auto& e : t["table"]["entries"]) {
      if (e["list"] == lst) out[e["rule"].get<uint32_t>()] = e["priority"].get<uint32_t>();
    }
    return out;
  }
  // The daemon learns its line cards from the device's replay after start-up.
  void slotsKnown() {
    for (int i = 0; i < 100; ++i) {
      if (run({"--json", "slot", "show"})["slots"].size() >= 4) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    FAIL() << "the line cards never arrived";
  }
  std::unique_ptr<AclProcess> acl_;
};
