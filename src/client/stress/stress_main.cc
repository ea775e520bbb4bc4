// acl_stress: clients working the command table while the virtual device changes under them and
// fails hardware calls, with the daemon's invariant audit and a version request every few
// seconds and at the end. Exits 0 only when every audit was clean and nothing failed.
//
// Audits are taken with the device quiet: the device thread pauses, the armed faults are cleared
// and the route messages already sent are left to drain, so that the audit compares the daemon
// with a device whose news it has had. The clients keep working through the audit.
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/cmd_client.h"
#include "client/dev_client.h"
#include "client/stress/stress_run.h"
#include "client/stress_plan.h"
#include "wire/func_table.h"

namespace {

using aclstress::Shared;
using nlohmann::json;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kCmdVersion = 21;
constexpr uint32_t kVersionCapacity = 64;
constexpr int kAuditTimeoutMs = 30000;
constexpr size_t kSettledSamples = 4;
constexpr int kSettleStepMs = 100;
constexpr int kSettleMaxMs = 10000;

struct Options {
  std::string runDir;
  double seconds = 10;
  uint32_t clients = 8;
  double auditEvery = 5;
  uint32_t seed = 0;
  int deadlineMs = 2000;
  int deviceIntervalMs = 10;
  std::string steps = "all";
  pid_t pid = 0;
};

bool devCall(const Shared& sh, const json& req, json* reply, std::string* err,
             int timeoutMs = 5000) {
  if (!aclclient::devRequest(aclclient::devSocketPath(sh.globals.runDir), req, reply, err,
                             timeoutMs)) {
    return false;
  }
  if (!reply->value("ok", false)) {
    *err = reply->value("error", std::string("error reply"));
    return false;
  }
  return true;
}

// The daemon's event counters; false (with err) when it does not answer them.
bool eventCounters(const Shared& sh, uint64_t* received, uint64_t* ok, uint64_t* failed,
                   std::string* err) {
  json r;
  if (!devCall(sh, {{"op", "events"}}, &r, err)) return false;
  *received = r.value("rtMsgRecvCnt", 0ull);
  *ok = r.value("rtMsgOkCnt", 0ull);
  *failed = r.value("rtMsgErrCnt", 0ull);
  return true;
}

// Waits, with the device quiet, until the daemon has read every route message sent to it; a
// failure when it does not answer or keeps receiving.
void settleRouteMessages(Shared& sh, const std::string& when) {
  std::vector<uint64_t> samples;
  std::string err;
  for (int waited = 0; !aclstress::countersSettled(samples, kSettledSamples);
       waited += kSettleStepMs) {
    uint64_t recv = 0, ok = 0, failed = 0;
    if (!eventCounters(sh, &recv, &ok, &failed, &err)) {
      sh.tally.failure("daemon", when + " event counters: " + err);
      return;
    }
    if (waited > kSettleMaxMs) {
      sh.tally.failure("daemon", when + ": route messages still arriving after " +
                                     std::to_string(kSettleMaxMs) + " ms of a quiet device");
      return;
    }
    samples.push_back(recv);
    std::this_thread::sleep_for(std::chrono::milliseconds(kSettleStepMs));
  }
}

// The device thread, paused on request. It alternates between events (kEventSteps of them) and
// faults: once the daemon has handled the events, faults are armed (kFaultSteps) while the
// clients work, then cleared, so that no fault lands inside an event's handling.
class DeviceThread {
 public:
  DeviceThread(Shared& sh, aclstress::ChassisPlan plan, uint32_t seed, int intervalMs,
               std::set<aclstress::DevStep> steps)
      : sh_(sh), intervalMs_(intervalMs) {
    faults_ = steps.count(aclstress::DevStep::Fault) != 0;
    events_ = steps.size() > (faults_ ? 1u : 0u);
    dist_ = std::make_unique<aclstress::DeviceDisturber>(std::move(plan), seed, std::move(steps));
  }

  void run() {
    while (!sh_.stop.load()) {
      for (int n = 0; events_ && n < kEventSteps && !sh_.stop.load(); ++n) {
        pausePoint();
        step(dist_->nextEvent());
      }
      if (!faults_ || sh_.stop.load()) continue;
      pausePoint();
      settleRouteMessages(sh_, "before faults");
      for (int n = 0; n < kFaultSteps && !sh_.stop.load(); ++n) {
        pausePoint();
        step(dist_->nextFault());
      }
      json r;
      std::string err;
      if (!devCall(sh_, {{"op", "fault.clear"}}, &r, &err)) {
        sh_.tally.failure("device", "fault.clear: " + err);
      }
    }
    std::lock_guard<std::mutex> l(mu_);
    paused_ = true;
    cv_.notify_all();
  }
  void pause() {
    std::unique_lock<std::mutex> l(mu_);
    pauseWanted_ = true;
    cv_.wait(l, [this] { return paused_; });
  }
  void resume() {
    std::lock_guard<std::mutex> l(mu_);
    pauseWanted_ = false;
    cv_.notify_all();
  }
  // Only while paused or stopped.
  const aclstress::DeviceDisturber& disturber() const { return *dist_; }
  uint64_t refusedSteps() const { return refusedSteps_; }

 private:
  static constexpr int kEventSteps = 40;
  static constexpr int kFaultSteps = 40;

  void pausePoint() {
    std::unique_lock<std::mutex> l(mu_);
    if (!pauseWanted_) return;
    paused_ = true;
    cv_.notify_all();
    cv_.wait(l, [this] { return !pauseWanted_; });
    paused_ = false;
  }

  void step(const json& req) {
    const std::string path = aclclient::devSocketPath(sh_.globals.runDir);
    json reply;
    std::string err;
    // An interface going away or coming back changes under its scope lock, so that no client
    // is between its check and its binding.
    const std::string op = req.value("op", std::string());
    const json* entry = op == "interface.set"     ? &req["interface"]
                        : op == "aggregation.set" ? &req["aggregation"]
                                                  : nullptr;
    uint32_t index = 0;
    if (op == "interface.remove") index = req.value("index", 0u);
    // A whole entry puts an interface back; a members change names only index and members.
    if (entry != nullptr && entry->contains("name")) index = entry->value("index", 0u);
    std::unique_lock<std::mutex> scope;
    if (index != 0) {
      scope = std::unique_lock<std::mutex>(sh_.lockOf("if/" + std::to_string(index)));
    }
    const bool sent = aclclient::devRequest(path, req, &reply, &err);
    if (sent && index != 0 && reply.value("ok", false)) {
      std::lock_guard<std::mutex> l(sh_.absentMu);
      if (op == "interface.remove") {
        sh_.absent.insert(index);
      } else {
        sh_.absent.erase(index);
      }
    }
    if (scope.owns_lock()) scope.unlock();
    if (!sent) {
      sh_.tally.failure("device", op + ": " + err);
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      return;
    }
    dist_->done(reply);
    if (!reply.value("ok", false)) ++refusedSteps_;
    std::this_thread::sleep_for(std::chrono::milliseconds(intervalMs_));
  }

  Shared& sh_;
  std::unique_ptr<aclstress::DeviceDisturber> dist_;
  int intervalMs_;
  bool faults_ = false, events_ = false;
  std::mutex mu_;
  std::condition_variable cv_;
  bool pauseWanted_ = false;
  bool paused_ = false;
  uint64_t refusedSteps_ = 0;
};

// The daemon answers a version request within the deadline, on a connection of its own.
void checkVersion(Shared& sh, int deadlineMs) {
  std::string err;
  const auto start = Clock::now();
  auto c = aclclient::CmdClient::connect(
      aclclient::cmdSocketPath(sh.globals.runDir, sh.globals.socket), &err, deadlineMs);
  wire::Request req;
  req.funcId = wire::fid::aclScalarGetApi;
  req.cmd = kCmdVersion;
  req.bufShape = wire::BufShape::Desc;
  req.descCapacity = kVersionCapacity;
  wire::Response resp;
  if (!c || !c->call(req, &resp, &err)) {
    sh.tally.failure("version", "no answer: " + err);
    return;
  }
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  if (resp.status != wire::Status::Ok || resp.result != 0 || resp.data.empty()) {
    sh.tally.failure("version", "answered status " + std::string(wire::statusName(resp.status)) +
                                    " result " + std::to_string(resp.result));
  } else if (ms > deadlineMs) {
    sh.tally.failure("version", "answered after " + std::to_string(ms) + " ms");
  }
}

// Quiet device, drained messages, then the audit and the version request.
void auditNow(Shared& sh, DeviceThread& dev, const Options& o, const char* when) {
  dev.pause();
  json r;
  std::string err;
  if (!devCall(sh, {{"op", "fault.clear"}}, &r, &err)) {
    sh.tally.failure("device", std::string(when) + " fault.clear: " + err);
  }
  settleRouteMessages(sh, when);
  if (!devCall(sh, {{"op", "audit"}}, &r, &err, kAuditTimeoutMs) || !r.contains("differences") ||
      !r["differences"].is_array()) {
    sh.tally.failure("audit", std::string(when) + ": " + (err.empty() ? r.dump() : err));
    sh.tally.audit(false);
  } else {
    const json& d = r["differences"];
    sh.tally.audit(d.empty());
    for (size_t k = 0; k < d.size() && k < 5; ++k) {
      sh.tally.failure("audit", std::string(when) + ": " + d[k].value("check", std::string("?")) +
                                    ": " + d[k].value("text", std::string()));
    }
    if (d.size() > 5) {
      sh.tally.failure(
          "audit", std::string(when) + ": " + std::to_string(d.size() - 5) + " more differences");
    }
  }
  checkVersion(sh, o.deadlineMs);
  if (o.pid > 0 && ::kill(o.pid, 0) != 0) {
    sh.tally.failure("daemon",
                     std::string(when) + ": process " + std::to_string(o.pid) + " is gone");
  }
  dev.resume();
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  CLI::App app{"acl_stress: clients, device events and faults against a running acl, audited"};
  app.add_option("--run-dir", o.runDir, "the daemon's run directory")->required();
  app.add_option("--seconds", o.seconds, "how long the clients work")
      ->check(CLI::Range(0.1, 86400.0));
  app.add_option("--clients", o.clients, "client threads")->check(CLI::Range(1, 64));
  app.add_option("--audit-every", o.auditEvery, "seconds between audits")
      ->check(CLI::Range(0.1, 3600.0));
  app.add_option("--seed", o.seed, "random seed (0: from the clock)");
  app.add_option("--deadline-ms", o.deadlineMs, "deadline of the version request")
      ->check(CLI::Range(1, 60000));
  app.add_option("--device-interval-ms", o.deviceIntervalMs, "pause between device steps")
      ->check(CLI::Range(0, 10000));
  app.add_option("--steps", o.steps,
                 "device steps: all, or some of iface,member,agg,card,timerange,nbr,fault");
  app.add_option("--pid", o.pid, "the daemon's process id, to check it is alive");
  CLI11_PARSE(app, argc, argv);
  std::set<aclstress::DevStep> steps;
  std::string bad;
  if (!aclstress::parseDevSteps(o.steps, &steps, &bad)) {
    std::cerr << "acl_stress: unknown device step '" << bad << "'" << std::endl;
    return 2;
  }
  if (o.seed == 0) o.seed = static_cast<uint32_t>(Clock::now().time_since_epoch().count());

  Shared sh;
  sh.globals.runDir = o.runDir;
  json shown;
  std::string err;
  if (!devCall(sh, {{"op", "show"}}, &shown, &err)) {
    std::cerr << "acl_stress: the device does not answer: " << err << std::endl;
    return 1;
  }
  const json& model = shown["model"];
  aclstress::ChassisPlan plan = aclstress::planFromModel(model);
  sh.faults = steps.count(aclstress::DevStep::Fault) != 0;
  sh.volatileIfs = aclstress::volatileInterfaces(plan);
  for (const char* section : {"interfaces", "aggregations"}) {
    for (const auto& i : model.value(section, json::array())) {
      const uint32_t kind = i.value("kind", 1u), index = i.value("index", 0u);
      if (kind == 4 && sh.ponInterface == 0) sh.ponInterface = index;
      if (kind == 1 || kind == 2) sh.interfaces.push_back(index);
    }
  }
  std::printf("acl_stress: %.0f s, %u clients, audit every %.1f s, seed %u, run dir %s\n",
              o.seconds, o.clients, o.auditEvery, o.seed, o.runDir.c_str());
  std::fflush(stdout);

  DeviceThread dev(sh, plan, o.seed ^ 0x5eed, o.deviceIntervalMs, steps);
  std::thread devThread([&] { dev.run(); });
  std::vector<std::thread> clients;
  for (uint32_t id = 0; id < o.clients; ++id) {
    clients.emplace_back([&sh, id, seed = o.seed + id] { aclstress::runClient(sh, id, seed); });
  }

  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(o.seconds);
  auto nextAudit = start + std::chrono::duration<double>(o.auditEvery);
  while (Clock::now() < end) {
    std::this_thread::sleep_until(std::min(end, nextAudit));
    if (Clock::now() >= end) break;
    auditNow(sh, dev, o, "periodic");
    nextAudit = Clock::now() + std::chrono::duration<double>(o.auditEvery);
    // Every client gave up: the daemon stopped answering; nothing more to learn.
    if (sh.tally.snapshot().failureTotal > 0 && o.pid > 0 && ::kill(o.pid, 0) != 0) break;
  }
  sh.stop = true;
  for (auto& t : clients) t.join();
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  devThread.join();

  auditNow(sh, dev, o, "final");
  aclstress::RunFigures f;
  f.seconds = seconds;
  uint64_t recv = 0;
  if (!eventCounters(sh, &recv, &f.routeMessagesOk, &f.routeMessagesFailed, &err)) {
    sh.tally.failure("daemon", "event counters at the end: " + err);
  }
  for (const auto& [step, n] : dev.disturber().made()) f.deviceSteps[devStepName(step)] = n;
  if (dev.refusedSteps() > 0) f.deviceSteps["refused by the device"] = dev.refusedSteps();
  // Put the chassis back as found, so the daemon can be inspected after the run.
  for (const json& req : dev.disturber().restore()) {
    json r;
    if (!devCall(sh, req, &r, &err)) std::cerr << "restore " << req.dump() << ": " << err << "\n";
  }

  const aclstress::Tally::Snapshot snap = sh.tally.snapshot();
  for (const std::string& line : aclstress::reportLines(snap, f)) std::printf("%s\n", line.c_str());
  return aclstress::passed(snap) ? 0 : 1;
}
