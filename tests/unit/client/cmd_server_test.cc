// The command server in-process: a table of test functions served on a socket in a temporary run
// directory, driven through the client library and raw bytes.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "client/cmd_client.h"
#include "platform/cmd_server.h"
#include "platform/proc.h"
#include "platform/sil.h"
#include "wire/be.h"
#include "wire/buf_desc.h"

namespace {

std::atomic<int> gCalls{0};

// Function id 6 (a value-keyed Get, whose schema takes a descriptor for cmd 1 and a value word for
// cmd 2): cmd 2 answers key + 1 in the value word, cmd 1 writes the key's decimal text into the
// descriptor.
int32_t fakeGet(uintptr_t key, uintptr_t cmd, uintptr_t buf) {
  ++gCalls;
  if (buf == 0) return 22;
  if (cmd == 2) {
    be::store32(reinterpret_cast<void*>(buf), static_cast<uint32_t>(key) + 1);
    return 0;
  }
  if (cmd == 1) {
    auto* d = reinterpret_cast<wire::BufDesc*>(buf);
    const std::string text = std::to_string(key);
    if (d->len < text.size()) return 0x03E8000D;
    std::copy(text.begin(), text.end(), static_cast<char*>(d->data));
    d->len = static_cast<uint32_t>(text.size());
    return 0;
  }
  return -1;
}

const IcmFuncEntry kTable[] = {{0, nullptr}, {6, fakeGet}, {7, nullptr}};

wire::Request getReq(uint32_t key, uint32_t cmd = 2) {
  wire::Request r;
  r.funcId = 6;
  r.cmd = cmd;
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
  // A fresh client's call of fakeGet(key, 2); the answer's value word, or 0 on any failure.
  uint32_t callOnce(uint32_t key) {
    auto c = connect();
    wire::Response resp;
    std::string err;
    if (!c || !c->call(getReq(key), &resp, &err) || resp.status != wire::Status::Ok) return 0;
    return resp.bufValue;
  }

  std::string dir_, path_;
};

TEST_F(CmdServer, ServesTheTableOnARestrictedSocket) {
  start();
  struct stat st {};
  ASSERT_EQ(::stat(path_.c_str(), &st), 0);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(callOnce(41), 42u);

  auto c = connect();
  wire::Response resp;
  std::string err;
  // Descriptor answer, clamped by the function.
  auto d = getReq(2001, 1);
  d.bufShape = wire::BufShape::Desc;
  d.descCapacity = 16;
  ASSERT_TRUE(c->call(d, &resp, &err)) << err;
  EXPECT_EQ(resp.result, 0);
  EXPECT_EQ(resp.descLen, 4u);
  EXPECT_EQ(std::string(resp.data.begin(), resp.data.end()), "2001");
  // An id without a function, and an empty slot, answer -1 without a call.
  auto unbuilt = getReq(1);
  unbuilt.funcId = 7;
  ASSERT_TRUE(c->call(unbuilt, &resp, &err)) << err;
  EXPECT_EQ(resp.status, wire::Status::Ok);
  EXPECT_EQ(resp.result, -1);
  unbuilt.funcId = 47;
  ASSERT_TRUE(c->call(unbuilt, &resp, &err)) << err;
  EXPECT_EQ(resp.result, -1);
  EXPECT_EQ(gCalls, 2);
}

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
    EXPECT_FALSE(c->readResponse(&seq, &resp, &err)) << "connection left open, case " << k.offset;
  }
  EXPECT_EQ(gCalls, 0);
  EXPECT_EQ(callOnce(1), 2u);
}

TEST_F(CmdServer, BurstOfFramesIsAnsweredInOrder) {
  start();
  auto c = connect();
  std::vector<uint8_t> burst;
  for (uint32_t i = 0; i < 5; ++i) {
    const auto f = wire::encodeRequest(100 + i, getReq(i * 10));
    burst.insert(burst.end(), f.begin(), f.end());
  }
  std::string err;
  ASSERT_TRUE(c->sendBytes(burst, &err)) << err;
  for (uint32_t i = 0; i < 5; ++i) {
    wire::Response resp;
    uint32_t seq = 0;
    ASSERT_TRUE(c->readResponse(&seq, &resp, &err)) << err;
    EXPECT_EQ(seq, 100 + i);
    EXPECT_EQ(resp.bufValue, i * 10 + 1);
  }
}

TEST_F(CmdServer, ClientThatStopsSendingStillGetsEveryAnswer) {
  start();
  auto c = connect();
  std::vector<uint8_t> two = wire::encodeRequest(1, getReq(10));
  const auto second = wire::encodeRequest(2, getReq(20));
  two.insert(two.end(), second.begin(), second.end());
  std::string err;
  ASSERT_TRUE(c->sendBytes(two, &err)) << err;
  c->finishSending();
  for (uint32_t seqWanted : {1u, 2u}) {
    wire::Response resp;
    uint32_t seq = 0;
    ASSERT_TRUE(c->readResponse(&seq, &resp, &err)) << err;
    EXPECT_EQ(seq, seqWanted);
    EXPECT_EQ(resp.bufValue, seqWanted * 10 + 1);
  }
  // Then the server hangs up.
  wire::Response resp;
  uint32_t seq = 0;
  EXPECT_FALSE(c->readResponse(&seq, &resp, &err));
  EXPECT_EQ(err, "the server closed the connection");
}

TEST_F(CmdServer, ManyClientsAtOnceEachGetTheirOwnAnswers) {
  start();
  constexpr int kThreads = 6;
  constexpr uint32_t kCalls = 150;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::string err;
      auto c = aclclient::CmdClient::connect(path_, &err);
      if (!c) {
        wrong += kCalls;
        return;
      }
      for (uint32_t i = 0; i < kCalls; ++i) {
        const uint32_t key = static_cast<uint32_t>(t) * 100000 + i;
        wire::Response resp;
        if (!c->call(getReq(key), &resp, &err) || resp.bufValue != key + 1) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(gCalls, kThreads * static_cast<int>(kCalls));
}

TEST_F(CmdServer, HalfAFrameStallsOnlyItsSenderUntilItsDeadline) {
  start();
  auto silent = connect();
  const auto frame = wire::encodeRequest(1, getReq(1));
  std::string err;
  ASSERT_TRUE(silent->sendBytes(std::span(frame).first(frame.size() / 2), &err)) << err;
  // Others are served while the half frame waits.
  for (uint32_t k = 0; k < 3; ++k) EXPECT_EQ(callOnce(k), k + 1);
  // Past the deadline the silent client loses its connection.
  silUpTimeAdvanceForTest(60 * 1000);
  wire::Response resp;
  uint32_t seq = 0;
  EXPECT_FALSE(silent->readResponse(&seq, &resp, &err));
  EXPECT_EQ(err, "the server closed the connection");
  EXPECT_EQ(callOnce(9), 10u);
  EXPECT_EQ(gCalls, 4);
}

TEST_F(CmdServer, ClientsThatVanishOrSendNoiseLeaveTheServerServing) {
  start();
  std::mt19937 rng(1234);
  for (int round = 0; round < 20; ++round) {
    auto c = connect();
    std::vector<uint8_t> noise(std::uniform_int_distribution<size_t>(1, 3000)(rng));
    for (auto& b : noise) b = static_cast<uint8_t>(rng());
    if (round % 4 == 0) {
      // Sometimes a valid header whose body never arrives in full.
      const auto f = wire::encodeRequest(1, getReq(1));
      noise.assign(f.begin(), f.begin() + wire::kHeaderLen + 4);
    }
    std::string err;
    c->sendBytes(noise, &err);
    // Gone without waiting for any answer.
  }
  {
    // A whole request, then gone before the answer.
    auto c = connect();
    std::string err;
    ASSERT_TRUE(c->sendBytes(wire::encodeRequest(1, getReq(1)), &err));
  }
  EXPECT_EQ(callOnce(99), 100u);
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
  uint32_t seq = 0;
  EXPECT_FALSE(held[1]->readResponse(&seq, &resp, &err)) << "the longest idle was kept";
  EXPECT_EQ(err, "the server closed the connection");
  for (size_t i : {0u, 2u, 63u}) EXPECT_TRUE(held[i]->call(getReq(7), &resp, &err)) << i << err;
  // Idle past the deadline, every connection goes.
  silUpTimeAdvanceForTest(31 * 1000);
  EXPECT_FALSE(held[5]->readResponse(&seq, &resp, &err));
  EXPECT_EQ(err, "the server closed the connection");
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
  std::vector<uint8_t> burst;
  for (uint32_t i = 0; i < kFrames; ++i) {
    const auto f = wire::encodeRequest(i, getReq(i));
    burst.insert(burst.end(), f.begin(), f.end());
  }
  std::thread sender([&] {
    std::string err;
    slow->sendBytes(burst, &err);  // blocks once the server stops reading, until dropped
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  for (uint32_t k = 0; k < 3; ++k) EXPECT_EQ(callOnce(k), k + 1);
  silUpTimeAdvanceForTest(3000);  // its answer is not taken in time
  sender.join();
  EXPECT_LT(gCalls, kFrames + 3);
  EXPECT_EQ(callOnce(9), 10u);
}

}  // namespace
