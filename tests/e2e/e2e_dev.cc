// The virtual device's control socket end to end: a running acl, driven with aclctl dev.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "support/acl_process.h"

namespace {

using nlohmann::json;

// Runs aclctl dev, expects its exit status and parses its JSON output.
json dev(const AclProcess& p, std::vector<std::string> args, int status = 0) {
  args.insert(args.begin(), "dev");
  std::string out;
  EXPECT_EQ(p.aclctl(args, &out), status) << args[1] << ": " << out;
  const json j = json::parse(out, nullptr, false);
  EXPECT_FALSE(j.is_discarded()) << "not JSON from aclctl: " << out;
  return j.is_discarded() ? json::object() : j;
}

TEST(E2eDev, InspectionCommandsAnswerInJson) {
  auto p = AclProcess::start();
  ASSERT_TRUE(p);
  // What each answer holds is the device's own tests' business; here, that aclctl asks for it.
  EXPECT_EQ(dev(*p, {"hw", "--scope", "unit", "--unit", "201"})["table"]["unit"], 201);
  for (const char* what : {"show", "relays", "announcements", "anomalies", "commands", "log"}) {
    const json j = dev(*p, {what});
    EXPECT_TRUE(j.value("ok", false)) << what << ": " << j.dump();
  }
}

TEST(E2eDev, FaultsAreArmedListedAndCleared) {
  auto p = AclProcess::start();
  ASSERT_TRUE(p);
  const json add = dev(*p, {"fault", "add", "--call", "zorHwilCmdSetApi", "--scope", "unit",
                            "--unit", "201", "--result", "5", "--count", "always"});
  const json list = dev(*p, {"fault", "list"});
  ASSERT_EQ(list["faults"].size(), 1u);
  EXPECT_EQ(list["faults"][0]["id"], add["id"]);
  EXPECT_EQ(list["faults"][0]["unit"], 201);
  EXPECT_EQ(list["faults"][0]["count"], -1);
  EXPECT_EQ(list["faults"][0]["scope"], 1);
  // Negative results and numeric scopes are taken as given.
  const json neg =
      dev(*p, {"fault", "add", "--cmd", "0x3E80191", "--scope", "2", "--result", "-1"});
  const json two = dev(*p, {"fault", "list"});
  ASSERT_EQ(two["faults"].size(), 2u);
  EXPECT_EQ(two["faults"][1]["result"], -1);
  EXPECT_EQ(two["faults"][1]["cmd"], 0x3E80191);
  EXPECT_EQ(two["faults"][1]["scope"], 2);
  dev(*p, {"fault", "clear"});
  const json again = dev(*p, {"fault", "add", "--call", "zorHwilCmdSetApi", "--scope", "unit",
                              "--unit", "201", "--result", "5", "--count", "always"});
  dev(*p, {"fault", "remove", "--id", again["id"].dump()});
  EXPECT_TRUE(dev(*p, {"fault"})["faults"].empty());  // alone, it lists
  // A fault the device cannot arm is refused, and the daemon goes on.
  const json bad = dev(*p, {"fault", "add", "--count", "never"}, 1);
  EXPECT_FALSE(bad.value("ok", true));
  EXPECT_TRUE(p->alive());
}

TEST(E2eDev, ModelChangesAndBadRequests) {
  auto p = AclProcess::start();
  ASSERT_TRUE(p);
  dev(*p, {"if", "set", "--index", "213", "--name", "ge-1/2/13", "--system", "1", "--slot", "2",
           "--port", "13"});
  dev(*p, {"timerange", "set", "--id", "2", "--active", "true"});
  dev(*p, {"card", "set", "--system", "1", "--slot", "6", "--type", "2", "--option",
           "acl.maxl2inrulenumperslot=64"});
  const json show = dev(*p, {"show"});
  bool found = false;
  for (auto& i : show["model"]["interfaces"]) found = found || i["name"] == "ge-1/2/13";
  EXPECT_TRUE(found);
  EXPECT_EQ(show["model"]["timeRanges"][1]["active"], true);
  EXPECT_EQ(
      show["model"]["systems"][0]["slots"].back()["card"]["options"]["acl.maxl2inrulenumperslot"],
      "64");

  // A refused change is an error reply and exit 1 (which changes are refused: the device's tests).
  const json bad =
      dev(*p, {"if", "set", "--index", "214", "--name", "x", "--system", "1", "--slot", "9"}, 1);
  EXPECT_NE(bad.value("error", "").find("no slot 1/9"), std::string::npos) << bad.dump();
  EXPECT_FALSE(dev(*p, {"request", "{\"op\":\"launch\"}"}, 1).value("ok", true));
}

// Raw route messages reach the daemon's socket, and its event counters show them.
TEST(E2eDev, RawRouteMessagesAreCountedByTheDaemon) {
  auto p = AclProcess::start();
  ASSERT_TRUE(p);
  auto events = [&] {
    std::string out;
    EXPECT_EQ(p->aclctl({"--json", "limits"}, &out), 0) << out;
    return json::parse(out, nullptr, false)["events"];
  };
  // The chassis replay may still be arriving: wait until the counts settle.
  json before = events();
  for (int i = 0; i < 50; ++i) {
    usleep(100 * 1000);
    const json now = events();
    if (now == before) break;
    before = now;
  }
  ASSERT_TRUE(before.is_object()) << before.dump();

  std::string out;
  EXPECT_EQ(p->aclctl({"dev", "send", "abc"}, &out), 2);
  // A type nobody handles is read, walked and counted as handled.
  const std::string skipped = "00000018270f" + std::string(36, '0');
  EXPECT_EQ(dev(*p, {"send", skipped, "--group", "33"})["delivered"], 1) << "the daemon only";
  json after = events();
  for (int i = 0; i < 50 && after["rtMsgRecvCnt"] != before["rtMsgRecvCnt"].get<uint32_t>() + 1;
       ++i) {
    usleep(100 * 1000);
    after = events();
  }
  EXPECT_EQ(after["rtMsgRecvCnt"], before["rtMsgRecvCnt"].get<uint32_t>() + 1);
  EXPECT_EQ(after["rtMsgOkCnt"], before["rtMsgOkCnt"].get<uint32_t>() + 1);
  std::string text;
  EXPECT_EQ(p->aclctl({"limits"}, &text), 0);
  EXPECT_NE(text.find("route messages"), std::string::npos) << text;
}

TEST(E2eDev, InvalidDeviceFileEndsTheDaemonWithStatus2) {
  const auto dir = std::filesystem::temp_directory_path() / ("e2e-dev-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  const std::string file = (dir / "device.json").string();
  std::ofstream(file) << R"({"self": {"system": 1, "slot": 1}, "systems": [{"index": 1,
    "slots": [{"slot": 1}]}], "interfaces": [{"index": 5, "name": "p", "system": 1, "slot": 4}]})";
  const std::string cmd = std::string(ACL_BINARY_DIR) + "/src/main/acl --run-dir " + dir.string() +
                          " --device " + file + " 2>" + (dir / "err").string();
  const int status = std::system(cmd.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 2);
  std::ifstream in(dir / "err");
  const std::string err((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_NE(err.find(file + ": interfaces[0].slot: no slot 1/4"), std::string::npos) << err;
  std::filesystem::remove_all(dir);
}

}  // namespace
