// The fixture of the end-to-end tests: a daemon of its own per test, driven through aclctl.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <string>
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
    EXPECT_EQ(acl_->aclctl(args, &out), expectStatus) << (args.empty() ? "" : args[0]) << " "
                                                       << out;
    return nlohmann::json::parse(out, nullptr, false);
  }
  // The daemon's invariant audit agrees with everything it checks; otherwise the failure shows
  // each difference it named.
  void expectAuditClean() {
    std::string out;
    EXPECT_EQ(acl_->aclctl({"audit"}, &out), 0) << out;
    EXPECT_EQ(out, "audit clean\n");
  }
  std::unique_ptr<AclProcess> acl_;
};
