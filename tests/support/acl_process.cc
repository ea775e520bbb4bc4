#include "support/acl_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "client/cmd_client.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kStartTimeout = 10s;
constexpr auto kStopTimeout = 3s;

std::string daemonPath() {
  return std::string(ACL_BINARY_DIR) + "/src/main/acl";
}
std::string aclctlPath() {
  return std::string(ACL_BINARY_DIR) + "/src/client/aclctl";
}

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// fork + execv with stdout and stderr sent to the given descriptors (-1: inherited).
pid_t spawn(const std::vector<std::string>& argv, int outFd, int errFd) {
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (outFd >= 0) ::dup2(outFd, STDOUT_FILENO);
    if (errFd >= 0) ::dup2(errFd, STDERR_FILENO);
    ::execv(args[0], args.data());
    std::perror(args[0]);
    ::_exit(127);
  }
  return pid;
}

int statusOf(int wstatus) {
  if (WIFEXITED(wstatus)) return WEXITSTATUS(wstatus);
  if (WIFSIGNALED(wstatus)) return 128 + WTERMSIG(wstatus);
  return -1;
}

// The daemon serves once a request gets an answer, not merely once the socket file exists.
bool answers(const std::string& runDir) {
  std::string err;
  auto client = aclclient::CmdClient::connect(aclclient::cmdSocketPath(runDir, ""), &err, 1000);
  if (!client) return false;
  wire::Request req;
  req.funcId = 45;  // aclFreeIdxToIndex: takes no lock and touches nothing
  req.keyShape = wire::KeyShape::Value;
  req.bufShape = wire::BufShape::Value;
  wire::Response resp;
  return client->call(req, &resp, &err) && resp.status == wire::Status::Ok;
}

}  // namespace

std::unique_ptr<AclProcess> AclProcess::start(const AclProcessOptions& o) {
  std::unique_ptr<AclProcess> p(new AclProcess());
  std::string tmpl = (std::filesystem::temp_directory_path() / "acl-e2e.XXXXXX").string();
  if (::mkdtemp(tmpl.data()) == nullptr) {
    ADD_FAILURE() << "cannot create a run directory";
    return nullptr;
  }
  p->runDir_ = tmpl;
  std::vector<std::string> argv = {daemonPath(), "--run-dir", p->runDir_, "--log-file",
                                   p->runDir_ + "/acl.log"};
  if (!o.deviceFile.empty()) {
    argv.push_back("--device");
    argv.push_back(o.deviceFile);
  }
  for (const auto& [k, v] : o.opts) {
    argv.push_back("--opt");
    argv.push_back(k + "=" + v);
  }
  argv.insert(argv.end(), o.extraArgs.begin(), o.extraArgs.end());

  const std::string outPath = p->runDir_ + "/acl.stderr";
  const int outFd = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  p->pid_ = spawn(argv, outFd, outFd);
  if (outFd >= 0) ::close(outFd);
  if (p->pid_ < 0) {
    ADD_FAILURE() << "cannot start " << daemonPath();
    return nullptr;
  }
  const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
  while (std::chrono::steady_clock::now() < deadline && p->alive()) {
    if (answers(p->runDir_)) return p;
    std::this_thread::sleep_for(20ms);
  }
  ADD_FAILURE() << "acl did not start serving in " << p->runDir_
                << (p->alive() ? ""
                               : " (it exited with status " + std::to_string(p->exitStatus_) + ")")
                << "\n--- log ---\n"
                << p->logText() << "\n--- stdout/stderr ---\n"
                << readFile(outPath);
  return nullptr;  // the destructor stops it and keeps the directory
}

AclProcess::~AclProcess() {
  if (pid_ > 0 && alive()) {
    ::kill(pid_, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
    while (alive() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(10ms);
    }
    if (alive()) {
      ::kill(pid_, SIGKILL);
      int ws = 0;
      ::waitpid(pid_, &ws, 0);
      reaped_ = true;
    }
  }
  if (runDir_.empty()) return;
  if (::testing::Test::HasFailure()) {
    std::cerr << "acl run directory kept: " << runDir_ << std::endl;
  } else {
    std::error_code ec;
    std::filesystem::remove_all(runDir_, ec);
  }
}

std::string AclProcess::logText() const {
  return readFile(runDir_ + "/acl.log");
}

bool AclProcess::alive() const {
  if (reaped_ || pid_ <= 0) return false;
  int ws = 0;
  const pid_t r = ::waitpid(pid_, &ws, WNOHANG);
  if (r == pid_) {
    reaped_ = true;
    exitStatus_ = statusOf(ws);
    return false;
  }
  return r == 0;
}

int AclProcess::aclctl(const std::vector<std::string>& args, std::string* out) const {
  std::vector<std::string> argv = {aclctlPath(), "--run-dir", runDir_};
  argv.insert(argv.end(), args.begin(), args.end());
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return -1;
  const pid_t pid = spawn(argv, fds[1], -1);
  ::close(fds[1]);
  std::string text;
  char buf[4096];
  ssize_t n;
  while ((n = ::read(fds[0], buf, sizeof(buf))) > 0 || (n < 0 && errno == EINTR)) {
    if (n > 0) text.append(buf, static_cast<size_t>(n));
  }
  ::close(fds[0]);
  int ws = 0;
  if (pid < 0 || ::waitpid(pid, &ws, 0) != pid) return -1;
  if (out) *out = std::move(text);
  return statusOf(ws);
}
