// The fixture of the end-to-end tests: a daemon of its own per test, driven through aclctl.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/acl_process.h"

// Runs a shell command line; its exit status (-1 when it did not exit) and both streams.
inline int runCapturing(const std::string& cmd, std::string* text) {
  text->clear();
  FILE* f = ::popen((cmd + " 2>&1").c_str(), "r");
  if (f == nullptr) return -1;
  char buf[512];
  while (size_t n = std::fread(buf, 1, sizeof buf, f)) text->append(buf, n);
  const int st = ::pclose(f);
  return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

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
  // aclctl's exit status against daemon p (the test's own by default), and what it printed on
  // both streams: its refusals go to stderr.
  int said(const std::vector<std::string>& args, std::string* text, const AclProcess* p = nullptr) {
    std::string cmd = std::string(ACL_BINARY_DIR) + "/src/client/aclctl --run-dir " +
                      (p != nullptr ? p : acl_.get())->runDir();
    for (const auto& a : args) cmd += " " + a;
    return runCapturing(cmd, text);
  }
  // Polls until done() holds: the daemon acts on the device's messages shortly after they are sent.
  static bool within(const std::function<bool()>& done) {
    for (int i = 0; i < 100; ++i) {
      if (done()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return done();
  }
  // The daemon learns its line cards from the device's replay after start-up; the slots shown.
  nlohmann::json slotsKnown(size_t count = 4, const AclProcess* p = nullptr) {
    nlohmann::json slots;
    const auto known = [&] {
      std::string out;
      (p != nullptr ? p : acl_.get())->aclctl({"--json", "slot", "show"}, &out);
      const nlohmann::json j = nlohmann::json::parse(out, nullptr, false);
      if (j.is_object()) slots = j.value("slots", nlohmann::json::array());
      return slots.size() >= count;
    };
    EXPECT_TRUE(within(known)) << "the line cards never arrived";
    return slots;
  }
  std::unique_ptr<AclProcess> acl_;
};

inline std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}
