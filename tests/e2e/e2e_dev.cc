// The virtual device's control socket end to end: a running acl, driven with aclctl dev.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "support/acl_e2e.h"

namespace {

using nlohmann::json;

class E2eDev : public AclE2eTest {
 protected:
  // aclctl dev with args: its exit status expected, its JSON answer returned.
  json dev(std::vector<std::string> args, int status = 0) {
    args.insert(args.begin(), "dev");
    return run(args, status);
  }
};

TEST_F(E2eDev, InspectionCommandsAnswerInJson) {
  // What each answer holds is the device's own tests' business; here, that aclctl asks for it.
  EXPECT_EQ(dev({"hw", "--scope", "unit", "--unit", "201"})["table"]["unit"], 201);
  for (const char* what : {"show", "relays", "announcements", "anomalies", "commands", "log"}) {
    EXPECT_EQ(dev({what}).value("ok", false), true) << what;
  }
}

TEST_F(E2eDev, FaultsAreArmedListedAndCleared) {
  const std::vector<std::string> unit201 = {"fault",    "add",  "--call",  "zorHwilCmdSetApi",
                                            "--scope",  "unit", "--unit",  "201",
                                            "--result", "5",    "--count", "always"};
  const json add = dev(unit201);
  const json one = dev({"fault", "list"});
  ASSERT_EQ(one["faults"].size(), 1u);
  expectFields(one["faults"][0], {{"id", add["id"]}, {"unit", 201}, {"count", -1}, {"scope", 1}});
  // Negative results and numeric scopes are taken as given.
  dev({"fault", "add", "--cmd", "0x3E80191", "--scope", "2", "--result", "-1"});
  const json two = dev({"fault", "list"});
  ASSERT_EQ(two["faults"].size(), 2u);
  expectFields(two["faults"][1], {{"result", -1}, {"cmd", 0x3E80191}, {"scope", 2}});
  dev({"fault", "clear"});
  dev({"fault", "remove", "--id", dev(unit201)["id"].dump()});
  EXPECT_TRUE(dev({"fault"})["faults"].empty());  // alone, it lists
  // A fault the device cannot arm is refused, and the daemon goes on.
  EXPECT_FALSE(dev({"fault", "add", "--count", "never"}, 1).value("ok", true));
  EXPECT_TRUE(acl_->alive());
}

TEST_F(E2eDev, ModelChangesAndBadRequests) {
  dev({"if", "set", "--index", "213", "--name", "ge-1/2/13", "--system", "1", "--slot", "2",
       "--port", "13"});
  dev({"timerange", "set", "--id", "2", "--active", "true"});
  dev({"card", "set", "--system", "1", "--slot", "6", "--type", "2", "--option",
       "acl.maxl2inrulenumperslot=64"});
  const json model = dev({"show"})["model"];
  bool found = false;
  for (auto& i : model["interfaces"]) found = found || i["name"] == "ge-1/2/13";
  EXPECT_TRUE(found);
  EXPECT_EQ(model["timeRanges"][1]["active"], true);
  EXPECT_EQ(model["systems"][0]["slots"].back()["card"]["options"]["acl.maxl2inrulenumperslot"],
            "64");

  // A refused change is an error reply and exit 1 (which changes are refused: the device's tests).
  const json bad =
      dev({"if", "set", "--index", "214", "--name", "x", "--system", "1", "--slot", "9"}, 1);
  EXPECT_NE(bad.value("error", "").find("no slot 1/9"), std::string::npos) << bad.dump();
  EXPECT_FALSE(dev({"request", "{\"op\":\"launch\"}"}, 1).value("ok", true));
}

// Raw route messages reach the daemon's socket, and its event counters show them.
TEST_F(E2eDev, RawRouteMessagesAreCountedByTheDaemon) {
  auto events = [&] { return run({"--json", "limits"})["events"]; };
  // The chassis replay may still be arriving: wait until the counts settle.
  json before = events();
  for (int i = 0; i < 50; ++i) {
    usleep(100 * 1000);
    const json now = events();
    if (now == before) break;
    before = now;
  }
  ASSERT_TRUE(before.is_object()) << before.dump();

  dev({"send", "abc"}, 2);
  // A type nobody handles is read, walked and counted as handled.
  const std::string skipped = "00000018270f" + std::string(36, '0');
  EXPECT_EQ(dev({"send", skipped, "--group", "33"})["delivered"], 1) << "the daemon only";
  json after = events();
  for (int i = 0; i < 50 && after["rtMsgRecvCnt"] != before["rtMsgRecvCnt"].get<uint32_t>() + 1;
       ++i) {
    usleep(100 * 1000);
    after = events();
  }
  EXPECT_EQ(after["rtMsgRecvCnt"], before["rtMsgRecvCnt"].get<uint32_t>() + 1);
  EXPECT_EQ(after["rtMsgOkCnt"], before["rtMsgOkCnt"].get<uint32_t>() + 1);
  std::string text;
  EXPECT_EQ(acl_->aclctl({"limits"}, &text), 0);
  EXPECT_NE(text.find("route messages"), std::string::npos) << text;
}

TEST(E2eDevFile, InvalidDeviceFileEndsTheDaemonWithStatus2) {
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
