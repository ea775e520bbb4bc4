// Request round trips through the command server, against a bare echo server over the same socket
// kind in the same run: one client, and several at once. The echo is the floor a command server
// on this socket can reach; the ratio printed at the end is the server's share of it.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "api/acl_func_map.h"
#include "client/cmd_client.h"
#include "platform/cmd_server.h"
#include "platform/proc.h"
#include "platform/sil.h"
#include "rate_reporter.h"

namespace {

std::string gRunDir;
std::string gCmdPath;
std::string gEchoPath;
std::atomic<bool> gEchoStop{false};

// One thread, poll over every connection, each byte written back as it arrives: the same
// multiplexing as the command server with none of the protocol.
void echoServer(int listenFd) {
  std::vector<pollfd> fds{{listenFd, POLLIN, 0}};
  char buf[16384];
  while (!gEchoStop) {
    if (::poll(fds.data(), fds.size(), 50) <= 0) continue;
    for (size_t i = fds.size(); i-- > 1;) {
      if (fds[i].revents == 0) continue;
      const ssize_t n = ::recv(fds[i].fd, buf, sizeof buf, 0);
      if (n <= 0 || ::send(fds[i].fd, buf, static_cast<size_t>(n), MSG_NOSIGNAL) != n) {
        ::close(fds[i].fd);
        fds.erase(fds.begin() + static_cast<ptrdiff_t>(i));
      }
    }
    if (fds[0].revents & POLLIN) {
      const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0) fds.push_back({fd, POLLIN, 0});
    }
  }
  for (auto& p : fds) ::close(p.fd);
}

int listenOn(const std::string& path) {
  sockaddr_un sa{};
  sa.sun_family = AF_UNIX;
  std::strncpy(sa.sun_path, path.c_str(), sizeof(sa.sun_path) - 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::bind(fd, reinterpret_cast<const sockaddr*>(&sa), sizeof sa) != 0 ||
      ::listen(fd, 64) != 0) {
    return -1;
  }
  return fd;
}

wire::Request conversionRequest(uint32_t index) {
  wire::Request r;
  r.funcId = 45;  // aclFreeIdxToIndex: the lightest function in the table
  r.keyShape = wire::KeyShape::Value;
  r.keyValue = index;
  r.bufShape = wire::BufShape::Value;
  return r;
}

void BM_CommandServer(benchmark::State& state) {
  std::string err;
  auto client = aclclient::CmdClient::connect(gCmdPath, &err);
  if (!client) {
    state.SkipWithError(err.c_str());
    return;
  }
  wire::Response resp;
  uint32_t i = 0;
  for (auto _ : state) {
    if (!client->call(conversionRequest(i++), &resp, &err) || resp.result != 0) {
      state.SkipWithError(err.c_str());
      break;
    }
  }
  state.counters["req_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_Echo(benchmark::State& state) {
  std::string err;
  auto client = aclclient::CmdClient::connect(gEchoPath, &err);
  if (!client) {
    state.SkipWithError(err.c_str());
    return;
  }
  // The same bytes as a request, and the same number back as the command server's answer.
  const auto frame = wire::encodeRequest(1, conversionRequest(0));
  wire::Response answer;
  answer.bufShape = wire::BufShape::Value;
  const size_t answerLen = wire::encodeResponse(1, answer).size();
  std::vector<uint8_t> pad(answerLen > frame.size() ? answerLen - frame.size() : 0, 0);
  std::vector<uint8_t> back(frame.size() + pad.size());
  for (auto _ : state) {
    if (!client->sendBytes(frame, &err) || (!pad.empty() && !client->sendBytes(pad, &err)) ||
        !client->receiveBytes(back, &err)) {
      state.SkipWithError(err.c_str());
      break;
    }
  }
  state.counters["req_per_s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_Echo)->UseRealTime()->ThreadRange(1, 4);
BENCHMARK(BM_CommandServer)->UseRealTime()->ThreadRange(1, 4);

}  // namespace

int main(int argc, char** argv) {
  char tmpl[] = "/tmp/acl-bench-XXXXXX";
  if (::mkdtemp(tmpl) == nullptr) return 1;
  gRunDir = tmpl;
  plat::setRunDir(gRunDir);
  gCmdPath = aclclient::cmdSocketPath(gRunDir, "");
  gEchoPath = gRunDir + "/echo.socket";
  if (icmProcTcpInit("aclcmdtask", "/tmp/aclcmd.socket", gAclFuncMap, 87) != 0) return 1;
  const int echoFd = listenOn(gEchoPath);
  if (echoFd < 0) return 1;
  std::thread echo(echoServer, echoFd);

  benchmark::Initialize(&argc, argv);
  RateReporter reporter("req_per_s");
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\nrequests per second, command server / echo:\n");
  for (const auto& [name, rate] : reporter.rates) {
    if (name.rfind("BM_CommandServer", 0) != 0) continue;
    const std::string echoName = "BM_Echo" + name.substr(std::strlen("BM_CommandServer"));
    const auto e = reporter.rates.find(echoName);
    if (e == reporter.rates.end() || e->second <= 0) continue;
    std::printf("  %-40s %10.0f / %10.0f = %.2f\n", name.c_str(), rate, e->second,
                rate / e->second);
  }

  gEchoStop = true;
  echo.join();
  ::close(echoFd);
  plat::stopAllTasksForTest();
  std::filesystem::remove_all(gRunDir);
  return 0;
}
