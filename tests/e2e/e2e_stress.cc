// acl_stress against a daemon of its own: a short run on a daemon that keeps its invariants
// passes, and one on a daemon whose hardware tables lost a binding's rules fails on the audit.
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "support/aclctl_script.h"

namespace {

class StressE2e : public AclScriptTest {
 protected:
  // Runs acl_stress for a second against the daemon; its exit status and what it printed. No
  // card or time-range events: their re-installs would repair the hardware the test takes away.
  int stress(std::string* out) {
    const std::string cmd = std::string(ACL_BINARY_DIR) +
                            "/src/client/stress/acl_stress --seconds 1 --audit-every 0.5 "
                            "--clients 2 --seed 7 --steps nbr,fault --pid " +
                            std::to_string(acl_->pid()) + " --run-dir " + acl_->runDir();
    FILE* p = ::popen(cmd.c_str(), "r");
    if (p == nullptr) return -1;
    std::array<char, 4096> buf;
    for (size_t n; (n = std::fread(buf.data(), 1, buf.size(), p)) > 0;) out->append(buf.data(), n);
    const int status = ::pclose(p);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

TEST_F(StressE2e, PassesOnAConsistentDaemonAndFailsOnAnAuditDifference) {
  slotsKnown();
  // A list of its own (outside the tool's lists) bound in the generic global slot, which the
  // tool never changes: a fixed point the audit must find in the hardware.
  validRules(1999, 2);
  script("global set-generic in 1999; global switch in on");
  const struct {
    const char* name;
    bool clearHardware;
    int status;
    const char* expect;
  } cases[] = {
      {"consistent", false, 0, "stress: PASS"},
      {"hardware tables cleared", true, 1, "FAIL audit"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.clearHardware) run({"dev", "clear", "--what", "hw"});
    std::string out;
    EXPECT_EQ(stress(&out), c.status) << out;
    EXPECT_NE(out.find(c.expect), std::string::npos) << out;
    EXPECT_NE(out.find("audits passed: "), std::string::npos) << out;
  }
  EXPECT_TRUE(acl_->alive());
}

}  // namespace
