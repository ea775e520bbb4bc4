// aclctl save and load end to end: a saved configuration loads into a fresh daemon and saves back
// to the same document; loading it again changes nothing; a bad document is refused with its place
// and nothing applied; a load that fails half way is undone. And the README's tour, run line by
// line as it stands.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/aclctl_script.h"

namespace {

using nlohmann::json;

class ConfigE2e : public AclScriptTest {
 protected:
  std::string save(const AclProcess& p) {
    std::string out;
    EXPECT_EQ(p.aclctl({"save"}, &out), 0);
    return out;
  }
  std::string write(const std::string& name, const std::string& text) {
    const std::string path = acl_->runDir() + "/" + name;
    std::ofstream(path) << text;
    return path;
  }
  // A configuration touching every part of the document: aclctl commands, split at ";".
  void configure() {
    slotsKnown();
    const char* const objects[] = {
        "meter create 1; meter set 1 --cir 2048 --cbs 4096; meter valid 1",
        "meter profile create 7; meter profile set 7 --name gold --ds-pir 300",
        "counter create 12; counter valid 12; list create 1001 --name web",
        "rule create 1001 1; rule set 1001 1 src=10.1.0.0/16 protocol=tcp dport=8000-8080",
        "rule action 1001 1 deny count=12; rule attach 1001 1 --meter 1 --counter 12",
        "rule valid 1001 1; rule create 1001 5; rule set 1001 5 dst=192.168.0.0/255.255.0.0",
        "rule valid 1001 5; list create 3001; rule create 3001 2",
        "rule set 3001 2 src=2001:db8::/32; rule action 3001 2 permit; rule valid 3001 2",
        "list create 1002; rule create 1002 1; rule action 1002 1 permit; rule valid 1002 1",
        "list create 1004; rule create 1004 1",
        "rule set 1004 1 smac=00:11:22:33:44:55/ff:ff:ff:00:00:00 vlan=10-20",
        "global bind in ipv4 1002; if create 201; if bind 201 in ipv4 1001; if bind 201 out 3001",
    };
    for (const char* object : objects) script(object);
  }
};

TEST_F(ConfigE2e, SavedConfigurationLoadsIntoAFreshDaemonAndSavesBackTheSame) {
  configure();
  const std::string a = save(*acl_);
  const json doc = json::parse(a);
  ASSERT_EQ(doc["version"], 1);
  ASSERT_EQ(doc["lists"].size(), 4u);
  const std::string file = write("a.json", a);

  auto fresh = AclProcess::start();
  ASSERT_NE(fresh, nullptr);
  slotsKnown(4, fresh.get());
  std::string out;
  ASSERT_EQ(said({"load", file}, &out, fresh.get()), 0) << out;
  EXPECT_EQ(out, "load: 13 created, 1 changed, 0 unchanged, 0 failed\n");
  EXPECT_EQ(save(*fresh), a);
  EXPECT_EQ(fresh->aclctl({"audit"}, &out), 0) << out;

  // The second load finds everything in place and sends no change: the relay log stays put.
  const json before = json::parse(save(*fresh));
  std::string relays;
  fresh->aclctl({"dev", "relays"}, &relays);
  const auto last = json::parse(relays)["last"];
  ASSERT_EQ(said({"load", file}, &out, fresh.get()), 0) << out;
  EXPECT_EQ(out, "load: 0 created, 0 changed, 14 unchanged, 0 failed\n");
  fresh->aclctl({"dev", "relays", "--since", last.dump()}, &relays);
  EXPECT_TRUE(json::parse(relays)["relays"].empty()) << relays;
  EXPECT_EQ(json::parse(save(*fresh)), before);
}

TEST_F(ConfigE2e, ABadDocumentIsRefusedWithItsPlaceAndNothingApplied) {
  configure();
  const std::string before = save(*acl_);
  // Each case: a change to a valid document, the place the refusal names, a word of the problem.
  struct Case {
    const char* name;
    const char* patch;  // JSON patch
    const char* place;
    const char* problem;
  };
  // clang-format off
  const Case cases[] = {
      {"binding to a missing list",
       R"([{"op":"add","path":"/interfaces/0/slots/inIpv4Acl","value":1500}])",
       "/interfaces/0/slots/inIpv4Acl", "list 1500 does not exist"},
      {"list type against the slot",
       R"([{"op":"add","path":"/global/slots/inL2Acl","value":1001}])", "/global/slots/inL2Acl",
       "takes l2 lists"},
      {"unknown field", R"([{"op":"add","path":"/lists/0/rules/0/fields/colour","value":"red"}])",
       "/lists/0/rules/0/fields/colour", "unknown field"},
      {"meter that does not exist", R"([{"op":"add","path":"/lists/0/rules/0/meter","value":9}])",
       "/lists/0/rules/0/meter", "meter 9 does not exist"},
      {"bound list would change", R"([{"op":"replace","path":"/lists/0/name","value":"other"}])",
       "/lists/0", "bound in the daemon"},
      {"unknown key", R"([{"op":"add","path":"/gem_ports","value":[]}])", "/gem_ports",
       "not saved yet"},
      {"version", R"([{"op":"replace","path":"/version","value":2}])", "/version", "version 1"},
  };
  // clang-format on
  // A new list, so the rest of a refused document would be a change if anything were applied.
  json base = json::parse(before);
  base["lists"].push_back({{"list", 1500 + 1}, {"rules", json::array()}});
  for (const Case& c : cases) {
    const std::string file = write("bad.json", base.patch(json::parse(c.patch)).dump());
    std::string out;
    EXPECT_EQ(said({"load", file}, &out), 1) << c.name;
    EXPECT_NE(out.find(std::string("refused at ") + c.place + ": "), std::string::npos)
        << c.name << ": " << out;
    EXPECT_NE(out.find(c.problem), std::string::npos) << c.name << ": " << out;
    EXPECT_EQ(save(*acl_), before) << c.name;
  }
}

TEST_F(ConfigE2e, ALoadThatFailsHalfWayIsUndone) {
  configure();
  const std::string before = save(*acl_);
  // A new meter, a new list with a rule that uses it, the interface's slot and the global slot
  // rebound.
  json doc = json::parse(before);
  doc["meters"].push_back({{"index", 2}, {"cir", 1000}});
  doc["lists"].push_back(
      {{"list", 1003},
       {"rules", {{{"rule", 1}, {"fields", {{"dst", "10.9.0.0/16"}}}, {"meter", 2}}}}});
  doc["interfaces"][0]["slots"] = {{"inIpv4Acl", 1003}};
  doc["global"]["slots"] = {{"inIpv4Acl", 1001}};
  const std::string file = write("doc.json", doc.dump());
  // Faults: the hardware refuses the new list's install, or a relay fails while a rule is built.
  for (const std::string fault : {"--call zorHwilCmdSetApi --list 1003 --result 5 --count always",
                                  "--call zorHwilCmdSyncApi --skip 6 --result 5 --count once"}) {
    SCOPED_TRACE(fault);
    script("dev fault add " + fault);
    says({"load", file}, 1, {"undone, nothing applied"});
    script("dev fault clear");
    EXPECT_EQ(save(*acl_), before);
    expectAuditClean();
  }
  // Without the fault the same document loads whole.
  std::string out;
  EXPECT_EQ(said({"load", file}, &out), 0) << out;
  EXPECT_EQ(json::parse(save(*acl_))["interfaces"][0]["slots"], doc["interfaces"][0]["slots"]);
  expectAuditClean();
}

TEST_F(ConfigE2e, BatchAnswersEachCallLineAndNamesTheLinesThatAreNot) {
  const std::string file = write("calls.txt",
                                 "# a list and its status\n"
                                 "aclLstSetApi 1005 9 u32:2\n"
                                 "\n"
                                 "aclLstGetApi 1005 9 u32:0\n"
                                 "noSuchApi 1\n"
                                 "aclLstGetApi 1005 9 u32:0 extra\n");
  std::string out;
  EXPECT_EQ(said({"batch", file}, &out), 2);
  std::vector<json> lines;
  std::istringstream in(out);
  for (std::string l; std::getline(in, l);) {
    if (l.rfind("aclctl: ", 0) != 0) lines.push_back(json::parse(l, nullptr, false));
  }
  ASSERT_EQ(lines.size(), 4u) << out;
  EXPECT_EQ(lines[0]["ret"], 0);
  EXPECT_EQ(lines[1]["buf"]["u32"], 1) << "the list made by the line before exists";
  EXPECT_EQ(lines[2]["line"], 5);
  EXPECT_EQ(lines[3]["line"], 6);
}

// The tour of the README, as it stands: every line must succeed, against a run directory and
// build of the test's own.
TEST(ReadmeTour, EveryLineRuns) {
  const std::string readme = slurp(std::string(ACL_SOURCE_DIR) + "/README.md");
  const auto heading = readme.find("## A five-minute tour");
  ASSERT_NE(heading, std::string::npos);
  const auto start = readme.find("```sh\n", heading);
  const auto end = readme.find("```\n", start + 6);
  ASSERT_NE(start, std::string::npos);
  ASSERT_NE(end, std::string::npos);
  std::string tour = readme.substr(start + 6, end - start - 6);
  ASSERT_GT(tour.size(), 100u);

  char tmpl[] = "/tmp/acl-tour-test-XXXXXX";
  ASSERT_NE(::mkdtemp(tmpl), nullptr);
  const std::string dir = tmpl;
  auto replaceAll = [&](const std::string& from, const std::string& to) {
    for (size_t at = tour.find(from); at != std::string::npos;
         at = tour.find(from, at + to.size())) {
      tour.replace(at, from.size(), to);
    }
  };
  replaceAll("/tmp/acl-tour", dir + "/run");
  replaceAll("./build/default/", std::string(ACL_BINARY_DIR) + "/");
  // Each line on its own, stopping at the first that fails and naming it.
  std::string script = "cd " + std::string(ACL_SOURCE_DIR) + "\n";
  std::istringstream lines(tour);
  int n = 0;
  for (std::string line; std::getline(lines, line);) {
    ++n;
    if (line.empty() || line[0] == '#') continue;
    script += line + "\nst=$?; if [ $st -ne 0 ]; then echo \"tour line " + std::to_string(n) +
              " failed ($st)\"; kill %1 2>/dev/null; exit 1; fi\n";
  }
  std::ofstream(dir + "/tour.sh") << script;
  std::string out;
  FILE* f = ::popen(("bash " + dir + "/tour.sh 2>&1").c_str(), "r");
  ASSERT_NE(f, nullptr);
  char buf[512];
  while (size_t k = std::fread(buf, 1, sizeof buf, f)) out.append(buf, k);
  const int st = ::pclose(f);
  EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 0) << out;
  EXPECT_NE(out.find("audit clean"), std::string::npos) << out;
  const json saved = json::parse(slurp(dir + "/run/acl-config.json"), nullptr, false);
  EXPECT_FALSE(saved.is_discarded()) << out;
  EXPECT_EQ(saved["interfaces"][0]["slots"]["inIpv4Acl"], 1001) << out;
  std::system(("rm -rf " + dir).c_str());
}

}  // namespace
