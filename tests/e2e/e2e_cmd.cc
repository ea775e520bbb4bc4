// The real daemon's command socket, through aclctl and the client library.
#include <sys/socket.h>

#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "client/cmd_client.h"
#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

json callJson(const AclProcess& acl, const std::vector<std::string>& args, int* status) {
  std::string out;
  *status = acl.aclctl(args, &out);
  return json::parse(out, nullptr, false);
}

class CmdE2e : public AclE2eTest {};

TEST_F(CmdE2e, AclctlCallsTheIndexConversionAndEmptySlots) {
  int status = -1;
  auto j = callJson(*acl_, {"call", "aclFreeIdxToIndex", "7"}, &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(j["ret"], 0);
  EXPECT_EQ(j["buf"]["u32"], 7);

  j = callJson(*acl_, {"call", "aclIndexToFreeIdx", "7"}, &status);
  EXPECT_EQ(status, 0) << "a result code is an answer";
  EXPECT_EQ(j["ret_hex"], "0x03EA0041");

  j = callJson(*acl_, {"call", "47"}, &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(j["ret"], -1);

  // A function whose slot is not built yet answers like an empty one, by name or id.
  j = callJson(*acl_, {"call", "aclIfGetFirst"}, &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(j["ret"], -1);
}

TEST_F(CmdE2e, RefusedRequestsAndUsageErrorsHaveTheirExitStatus) {
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

TEST_F(CmdE2e, SilentHalfFrameDoesNotHoldUpOtherClients) {
  const std::string path = aclclient::cmdSocketPath(acl_->runDir(), "");
  std::string err;
  auto silent = aclclient::CmdClient::connect(path, &err);
  ASSERT_NE(silent, nullptr) << err;
  wire::Request req;
  req.funcId = 45;
  req.keyShape = wire::KeyShape::Value;
  req.bufShape = wire::BufShape::Value;
  const auto frame = wire::encodeRequest(1, req);
  ASSERT_TRUE(silent->sendBytes(std::span(frame).first(7), &err));

  std::vector<std::thread> threads;
  std::atomic<int> ok{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::string e;
      auto c = aclclient::CmdClient::connect(path, &e);
      for (uint32_t i = 0; c && i < 50; ++i) {
        wire::Request r = req;
        r.keyValue = static_cast<uint32_t>(t) * 1000 + i;
        wire::Response resp;
        if (c->call(r, &resp, &e) && resp.bufValue == r.keyValue) ++ok;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(ok, 200);
}

}  // namespace
