// Local clients that mean harm, or behave as if they did: noise on every socket of the run
// directory, connections that never speak, a full descriptor table and a flooded relay log. The
// daemon must stay up, answer, and not spin. (Each request line that once stopped the device is
// the device's own test.)
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "client/cmd_client.h"
#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

// A connected socket of the given type, or -1.
int connectTo(const std::string& path, int type) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) return -1;
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  // A daemon that stops reading must not hang the test.
  timeval tv{2, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// Descriptors closed at the end of the scope.
struct Fds {
  std::vector<int> fds;
  ~Fds() {
    for (int fd : fds) ::close(fd);
  }
};

// The process's user plus system CPU time in seconds.
double cpuSeconds(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::istringstream rest(stat.substr(stat.rfind(')') + 2));
  std::vector<std::string> f((std::istream_iterator<std::string>(rest)),
                             std::istream_iterator<std::string>());
  if (f.size() < 13) return -1;
  // Fields from the state on: utime and stime are the 12th and 13th.
  return double(std::stoull(f[11]) + std::stoull(f[12])) / double(sysconf(_SC_CLK_TCK));
}

// CPU the daemon burns over a second of doing nothing asked of it.
double idleCpu(pid_t pid) {
  const double before = cpuSeconds(pid);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  return cpuSeconds(pid) - before;
}

class HostileE2e : public AclE2eTest {
 protected:
  std::string path(const std::string& name) const { return acl_->runDir() + "/" + name; }
  void expectAnswering() {
    ASSERT_TRUE(acl_->alive());
    EXPECT_TRUE(run({"--json", "version"}).contains("version"));
    EXPECT_TRUE(run({"dev", "show"}).value("ok", false));
  }
};

TEST_F(HostileE2e, NoiseOnEverySocketLeavesItAnswering) {
  std::mt19937 rng(20240611);
  std::uniform_int_distribution<size_t> length(1, 70000);
  const std::pair<const char*, int> targets[] = {{"aclcmd.socket", SOCK_STREAM},
                                                 {"acldev.socket", SOCK_STREAM},
                                                 {"rtbus/acl.sock", SOCK_DGRAM}};
  for (const auto& [name, type] : targets) {
    for (int round = 0; round < 40; ++round) {
      std::vector<uint8_t> noise(length(rng));
      for (auto& b : noise) b = static_cast<uint8_t>(rng());
      if (type == SOCK_STREAM && round % 3 == 0 && noise.size() >= 2) {
        noise[0] = 0xAC;  // a plausible frame magic, so the noise reaches the later checks
        noise[1] = 0x1D;
      }
      const int fd = connectTo(path(name), type);
      ASSERT_GE(fd, 0) << name << " round " << round;
      // The daemon may hang up at the first bad frame: a short write is its right.
      (void)!::send(fd, noise.data(), noise.size(), MSG_NOSIGNAL);
      ::close(fd);
    }
  }
  {
    const int fd = connectTo(path("rtbus/acl.sock"), SOCK_DGRAM);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::send(fd, "", 0, 0), 0) << "an empty datagram";
    ::close(fd);
  }
  expectAnswering();
}

TEST_F(HostileE2e, SilentConnectionsDoNotLockOthersOutOfTheCommandSocket) {
  Fds silent;
  for (int i = 0; i < 64; ++i) {
    silent.fds.push_back(connectTo(path("aclcmd.socket"), SOCK_STREAM));
    ASSERT_GE(silent.fds.back(), 0) << i;
  }
  expectAnswering();
  EXPECT_TRUE(run({"--json", "version"}).contains("version")) << "and again";
}

TEST_F(HostileE2e, ThousandsOfIdleDeviceConnectionsNeitherStopNorSpinIt) {
  constexpr rlim_t kConnections = 2000;
  rlimit lim{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &lim), 0);
  if (lim.rlim_max != RLIM_INFINITY && lim.rlim_max < kConnections + 100) {
    GTEST_SKIP() << "descriptor hard limit " << lim.rlim_max << " is below " << kConnections;
  }
  const rlimit saved = lim;
  lim.rlim_cur = lim.rlim_max;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lim), 0);
  {
    Fds idle;
    for (rlim_t i = 0; i < kConnections; ++i) {
      idle.fds.push_back(connectTo(path("acldev.socket"), SOCK_STREAM));
      ASSERT_GE(idle.fds.back(), 0) << "connection " << i << ": " << std::strerror(errno);
    }
    expectAnswering();
    EXPECT_LT(idleCpu(acl_->pid()), 0.5);
  }
  ::setrlimit(RLIMIT_NOFILE, &saved);
}

TEST_F(HostileE2e, AFullDescriptorTableNeitherStopsNorSpinsIt) {
  // The daemon may open no descriptor more: every accept fails while clients wait.
  const std::string fdDir = "/proc/" + std::to_string(acl_->pid()) + "/fd";
  const auto open = std::distance(std::filesystem::directory_iterator(fdDir),
                                  std::filesystem::directory_iterator());
  rlimit full{rlim_t(open), 0}, saved{};
  ASSERT_EQ(::prlimit(acl_->pid(), RLIMIT_NOFILE, nullptr, &saved), 0);
  full.rlim_max = saved.rlim_max;
  ASSERT_EQ(::prlimit(acl_->pid(), RLIMIT_NOFILE, &full, nullptr), 0);
  Fds waiting;
  for (const char* name : {"aclcmd.socket", "acldev.socket"}) {
    for (int i = 0; i < 3; ++i) waiting.fds.push_back(connectTo(path(name), SOCK_STREAM));
  }
  EXPECT_LT(idleCpu(acl_->pid()), 0.5);
  ASSERT_EQ(::prlimit(acl_->pid(), RLIMIT_NOFILE, &saved, nullptr), 0);
  expectAnswering();
  EXPECT_NE(acl_->logText().find("cannot accept a connection"), std::string::npos);
}

TEST_F(HostileE2e, AFloodedRelayLogIsListedWholeByAclctl) {
  run({"list", "create", "1"});
  std::string err;
  auto client = aclclient::CmdClient::connect(path("aclcmd.socket"), &err);
  ASSERT_NE(client, nullptr) << err;
  // Renames with 4 KiB names: about three pages of relays.
  constexpr int kRenames = 1100;
  for (int i = 0; i < kRenames; ++i) {
    wire::Request rename;
    rename.funcId = 7;  // aclLstSetApi
    rename.cmd = 1;     // the name
    rename.keyShape = wire::KeyShape::Value;
    rename.keyValue = 1;
    rename.bufShape = wire::BufShape::Desc;
    const std::string name = std::to_string(i) + std::string(4096, 'n');
    rename.data.assign(name.begin(), name.end());
    rename.descCapacity = static_cast<uint32_t>(name.size());
    wire::Response resp;
    ASSERT_TRUE(client->call(rename, &resp, &err)) << err;
    ASSERT_EQ(resp.result, 0) << i;
  }
  // Three pages of about 1.5 MB each: a sanitizer build needs more than the default wait.
  const json relays = run({"--timeout", "120", "dev", "relays"});
  ASSERT_TRUE(relays["relays"].is_array());
  EXPECT_FALSE(relays.contains("more"));
  ASSERT_GE(relays["relays"].size(), size_t{kRenames});
  uint64_t prev = 0;
  for (const auto& r : relays["relays"]) {
    ASSERT_GT(r["seq"].get<uint64_t>(), prev);
    prev = r["seq"];
  }
  EXPECT_GE(relays["last"].get<uint64_t>(), prev);
}

}  // namespace
