// The command server in-process: a table of test functions served on a socket in a temporary run
// directory, driven through the client library and raw bytes.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "client/cmd_client.h"
#include "platform/cmd_server.h"
#include "platform/proc.h"
#include "platform/sil.h"
#include "wire/be.h"

namespace {

std::atomic<int> gCalls{0};

// Function id 6 (a value-keyed Get): answers key + 1 in the value word. What each request shape
// hands a function, and empty slots, are the invoke tests' business.
int32_t fakeGet(uintptr_t key, uintptr_t, uintptr_t buf) {
  ++gCalls;
  be::store32(reinterpret_cast<void*>(buf), static_cast<uint32_t>(key) + 1);
  return 0;
}

const IcmFuncEntry kTable[] = {{0, nullptr}, {6, fakeGet}, {7, nullptr}};

wire::Request getReq(uint32_t key) {
  wire::Request r;
  r.funcId = 6;
  r.cmd = 2;
  r.keyShape = wire::KeyShape::Value;
  r.keyValue = key;
  r.bufShape = wire::BufShape::Value;
  return r;
}

class CmdServer : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string tmpl = (std::filesystem::temp_directory_path() / "cmdsrv.XXXXXX").string();
    ASSERT_NE(::mkdtemp(tmpl.data()), nullptr);
    dir_ = tmpl;
    plat::setRunDir(dir_);
    path_ = aclclient::cmdSocketPath(dir_, "");
    gCalls = 0;
  }
  void TearDown() override {
    plat::stopAllTasksForTest();
    plat::resetForTest();
    plat::setRunDir("/tmp");
    std::filesystem::remove_all(dir_);
  }

  void start() { ASSERT_EQ(icmProcTcpInit("cmdtest", "/tmp/aclcmd.socket", kTable, 3), 0); }
  std::unique_ptr<aclclient::CmdClient> connect(int timeoutMs = 5000) {
    std::string err;
    auto c = aclclient::CmdClient::connect(path_, &err, timeoutMs);
    EXPECT_NE(c, nullptr) << err;
    return c;
  }
  // A fresh client's call of fakeGet(key); the answer's value word, or 0 on any failure.
  uint32_t callOnce(uint32_t key) {
    auto c = connect();
    wire::Response resp;
    std::string err;
    if (!c || !c->call(getReq(key), &resp, &err) || resp.status != wire::Status::Ok) return 0;
    return resp.bufValue;
  }

  // Whether the server has hung up on c: its next read finds the connection closed.
  static bool closed(aclclient::CmdClient& c) {
    wire::Response resp;
    uint32_t seq = 0;
    std::string err;
    return !c.readResponse(&seq, &resp, &err) && err == "the server closed the connection";
  }
  // n Get frames in one buffer: sequence numbers from seq0, keys key0, key0 + step, ...
  static std::vector<uint8_t> burst(uint32_t n, uint32_t seq0, uint32_t step) {
    std::vector<uint8_t> out;
    for (uint32_t i = 0; i < n; ++i) {
      const auto f = wire::encodeRequest(seq0 + i, getReq(i * step));
      out.insert(out.end(), f.begin(), f.end());
    }
    return out;
  }

  std::string dir_, path_;
};

TEST_F(CmdServer, RefusedRequestsGetAStatusAndNeverReachTheFunction) {
  start();
  auto c = connect();
  wire::Response resp;
  std::string err;
  auto unknown = getReq(1);
  unknown.funcId = 87;
  ASSERT_TRUE(c->call(unknown, &resp, &err)) << err;
  EXPECT_EQ(resp.status, wire::Status::UnknownFunction);
  auto misfit = getReq(1);
  misfit.keyShape = wire::KeyShape::Bytes;  // a value-keyed table given a key record
  misfit.keyValue = 0;
  misfit.key = {0, 0, 0, 1};
  ASSERT_TRUE(c->call(misfit, &resp, &err)) << err;
  EXPECT_EQ(resp.status, wire::Status::Schema);
  // A body whose lengths do not add up: the header is sound, so the connection stays usable.
  auto frame = wire::encodeRequest(9, getReq(1));
  frame.push_back(0);
  be::store32(frame, 8, be::load32(frame, 8) + 1);
  ASSERT_TRUE(c->sendBytes(frame, &err)) << err;
  uint32_t seq = 0;
  ASSERT_TRUE(c->readResponse(&seq, &resp, &err)) << err;
  EXPECT_EQ(seq, 9u);
  EXPECT_EQ(resp.status, wire::Status::Malformed);
  ASSERT_TRUE(c->call(getReq(5), &resp, &err)) << err;
  EXPECT_EQ(resp.bufValue, 6u);
  EXPECT_EQ(gCalls, 1);
}

TEST_F(CmdServer, BrokenHeadersAreAnsweredAndTheConnectionClosed) {
  start();
  struct Case {
    size_t offset;
    uint8_t value;
    wire::Status expect;
  };
  for (const Case& k : {Case{0, 0x00, wire::Status::Malformed},   // magic
                        Case{2, 0x07, wire::Status::BadVersion},  // version
                        Case{3, wire::kKindResponse, wire::Status::Malformed},
                        Case{8, 0x7F, wire::Status::TooLarge}}) {  // body length
    auto c = connect();
    auto frame = wire::encodeRequest(3, getReq(1));
    frame[k.offset] = k.value;
    std::string err;
    ASSERT_TRUE(c->sendBytes(frame, &err)) << err;
    wire::Response resp;
    uint32_t seq = 0;
    ASSERT_TRUE(c->readResponse(&seq, &resp, &err)) << err;
    EXPECT_EQ(resp.status, k.expect) << k.offset;
    EXPECT_TRUE(closed(*c)) << "connection left open, case " << k.offset;
  }
  EXPECT_EQ(gCalls, 0);
  EXPECT_EQ(callOnce(1), 2u);
}

TEST_F(CmdServer, ABurstIsAnsweredInOrderEvenAfterTheClientStopsSending) {
  start();
  auto c = connect();
  std::string err;
  ASSERT_TRUE(c->sendBytes(burst(5, 100, 10), &err)) << err;
  c->finishSending();
  wire::Response resp;
  uint32_t seq = 0;
  for (uint32_t i = 0; i < 5; ++i) {
    ASSERT_TRUE(c->readResponse(&seq, &resp, &err)) << err;
    EXPECT_EQ(seq, 100 + i);
    EXPECT_EQ(resp.bufValue, i * 10 + 1);
  }
  EXPECT_TRUE(closed(*c)) << "then the server hangs up";
}

TEST_F(CmdServer, HalfAFrameStallsOnlyItsSenderUntilItsDeadline) {
  start();
  auto silent = connect();
  const auto frame = wire::encodeRequest(1, getReq(1));
  std::string err;
  ASSERT_TRUE(silent->sendBytes(std::span(frame).first(frame.size() / 2), &err)) << err;
  // Past the deadline the silent client loses its connection (others are served meanwhile: the
  // end-to-end tests show that).
  silUpTimeAdvanceForTest(60 * 1000);
  EXPECT_TRUE(closed(*silent));
  EXPECT_EQ(callOnce(9), 10u);
  EXPECT_EQ(gCalls, 1);
}

TEST_F(CmdServer, AtTheCapTheLongestIdleConnectionMakesRoomAndIdleOnesExpire) {
  start();
  std::vector<std::unique_ptr<aclclient::CmdClient>> held;
  wire::Response resp;
  std::string err;
  for (uint32_t i = 0; i < 64; ++i) {
    held.push_back(connect());
    ASSERT_TRUE(held.back()->call(getReq(i), &resp, &err)) << i << ": " << err;
    silUpTimeAdvanceForTest(1);  // each a different time of last activity
  }
  ASSERT_TRUE(held[0]->call(getReq(0), &resp, &err)) << err;  // the first is active again
  silUpTimeAdvanceForTest(1);
  EXPECT_EQ(callOnce(100), 101u);
  EXPECT_TRUE(closed(*held[1])) << "the longest idle was kept";
  for (size_t i : {0u, 2u, 63u}) EXPECT_TRUE(held[i]->call(getReq(7), &resp, &err)) << i << err;
  // Idle past the deadline, every connection goes.
  silUpTimeAdvanceForTest(31 * 1000);
  EXPECT_TRUE(closed(*held[5]));
}

TEST_F(CmdServer, WhenEveryConnectionIsBusyANewcomerWaitsForADeadline) {
  start();
  const auto frame = wire::encodeRequest(1, getReq(1));
  std::vector<std::unique_ptr<aclclient::CmdClient>> half;
  std::string err;
  wire::Response resp;
  for (int i = 0; i < 64; ++i) {
    half.push_back(connect());
    // A call first makes sure the server has taken the connection.
    ASSERT_TRUE(half.back()->call(getReq(1), &resp, &err)) << err;
    ASSERT_TRUE(half.back()->sendBytes(std::span(frame).first(5), &err)) << err;
  }
  std::atomic<uint32_t> answer{0};
  std::thread newcomer([&] { answer = callOnce(41); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(answer, 0u) << "served past the cap while every connection was busy";
  silUpTimeAdvanceForTest(3000);  // the half frames meet their deadline
  newcomer.join();
  EXPECT_EQ(answer, 42u) << "refused instead of waiting";
}

TEST_F(CmdServer, AClientThatNeverReadsItsAnswersHoldsUpOnlyItself) {
  start();
  auto slow = connect();
  // Far more answers than the socket buffers hold.
  constexpr int kFrames = 5000;
  const std::vector<uint8_t> frames = burst(kFrames, 0, 1);
  std::thread sender([&] {
    std::string err;
    slow->sendBytes(frames, &err);  // blocks once the server stops reading, until dropped
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  for (uint32_t k = 0; k < 3; ++k) EXPECT_EQ(callOnce(k), k + 1);
  silUpTimeAdvanceForTest(3000);  // its answer is not taken in time
  sender.join();
  EXPECT_LT(gCalls, kFrames + 3);
  EXPECT_EQ(callOnce(9), 10u);
}

}  // namespace
