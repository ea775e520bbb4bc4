// aclctl call against the real daemon: what ends it with which exit status. (The answers of the
// functions, the server's refusals and its stalled clients are tested against each part itself.)
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/acl_e2e.h"

namespace {

class CmdE2e : public AclE2eTest {};

TEST_F(CmdE2e, AnswersRefusalsAndUsageErrorsHaveTheirExitStatus) {
  // A result code, even a failing one, is an answer: exit 0.
  EXPECT_EQ(run({"call", "aclFreeIdxToIndex", "7"})["buf"]["u32"], 7);
  EXPECT_EQ(run({"call", "aclIndexToFreeIdx", "7"})["ret_hex"], "0x03EA0041");
  EXPECT_EQ(run({"call", "47"})["ret"], -1);
  std::string out;
  // An id past the table and a key of the wrong width: protocol statuses, exit 1.
  EXPECT_EQ(acl_->aclctl({"call", "99"}, &out), 1);
  EXPECT_EQ(acl_->aclctl({"call", "aclRuleGetApi", "x:0001", "0"}, &out), 1);
  EXPECT_TRUE(out.empty());
  // Arguments aclctl itself cannot make sense of: exit 2, nothing sent.
  EXPECT_EQ(acl_->aclctl({"call", "aclNoSuchApi"}, &out), 2);
  EXPECT_EQ(acl_->aclctl({"call", "aclLstSetApi", "1", "1", "u32:x"}, &out), 2);
  EXPECT_EQ(acl_->aclctl({"call", "--help"}, &out), 0);
  EXPECT_NE(out.find("aclGemPortStatsSyncApi"), std::string::npos);
  EXPECT_TRUE(acl_->alive());
}

}  // namespace
