// The stress tool's device disturber against the real virtual device: every step it picks is a
// request the device takes, each kind of step comes up, and its restore requests put the chassis
// back as it was. Also its book-keeping: the drain test and the verdict.
#include <gtest/gtest.h>

#include "client/stress_plan.h"
#include "client/stress_tally.h"
#include "platform/vdev/control.h"
#include "platform/vdev/vdev.h"

namespace {

using nlohmann::json;

// The parts of the model a disturber changes, as comparable JSON.
json chassisOf(const json& model) {
  json out = {{"interfaces", model["interfaces"]},
              {"timeRanges", json::array()},
              {"neighbours", model["neighbours"]}};
  for (const auto& a : model["aggregations"]) out["aggregations"].push_back(a);
  for (const auto& t : model["timeRanges"]) {
    out["timeRanges"].push_back({{"id", t["id"]}, {"active", t["active"]}});
  }
  // Entries come back in the order they were last added.
  for (const char* k : {"interfaces", "aggregations", "neighbours"}) {
    std::sort(out[k].begin(), out[k].end());
  }
  return out;
}

TEST(StressPlan, EveryStepIsTakenAndRestoreGivesTheChassisBack) {
  for (uint32_t seed : {1u, 7u, 12345u}) {
    SCOPED_TRACE(seed);
    vdev::resetForTest();
    const json before = vdev::handleRequest({{"op", "show"}})["model"];
    const aclstress::ChassisPlan plan = aclstress::planFromModel(before);
    aclstress::DeviceDisturber d(plan, seed);
    for (int n = 0; n < 600; ++n) {
      const json req = d.next();
      const json reply = vdev::handleRequest(req);
      ASSERT_TRUE(reply.value("ok", false)) << req.dump() << " -> " << reply.dump();
      d.done(reply);
    }
    EXPECT_EQ(d.made().size(), aclstress::kDevStepKinds);
    for (const json& req : d.restore()) {
      EXPECT_TRUE(vdev::handleRequest(req).value("ok", false)) << req.dump();
    }
    EXPECT_EQ(chassisOf(vdev::handleRequest({{"op", "show"}})["model"]), chassisOf(before));
    EXPECT_TRUE(vdev::handleRequest({{"op", "fault.list"}})["faults"].empty());
  }
  vdev::resetForTest();
}

TEST(StressPlan, StepNames) {
  using aclstress::DevStep;
  struct Case {
    const char* text;
    bool ok;
    std::set<DevStep> steps;
  };
  const Case cases[] = {
      // clang-format off
      {"fault", true, {DevStep::Fault}},
      {"iface,card", true, {DevStep::InterfaceToggle, DevStep::CardUp}},
      {"all", true, {}},  // every kind: checked by size below
      {"iface,", false, {}}, {"cards", false, {}}, {"", false, {}},
      // clang-format on
  };
  for (const Case& c : cases) {
    std::set<DevStep> got;
    std::string bad;
    EXPECT_EQ(aclstress::parseDevSteps(c.text, &got, &bad), c.ok) << c.text;
    if (std::string_view(c.text) == "all") {
      EXPECT_EQ(got.size(), aclstress::kDevStepKinds);
    } else if (c.ok) {
      EXPECT_EQ(got, c.steps) << c.text;
    }
  }
  // Faults alone or events alone: the disturber picks nothing else.
  vdev::resetForTest();
  const auto plan = aclstress::planFromModel(vdev::handleRequest({{"op", "show"}})["model"]);
  aclstress::DeviceDisturber d(plan, 3);
  for (int n = 0; n < 50; ++n) {
    EXPECT_EQ(d.nextFault()["op"], "fault.add");
    EXPECT_NE(d.nextEvent()["op"], "fault.add");
    d.done(json::object());  // refused: nothing remembered
  }
  EXPECT_TRUE(d.made().empty());
}

TEST(StressTally, SlotReadAfterASet) {
  using aclstress::SlotRead;
  using V = aclstress::SlotVerdict;
  constexpr int32_t kFault = 5, kNoRecord = 0x03EA0042;
  struct Case {
    const char* name;
    int32_t ret;
    uint32_t value;
    std::optional<SlotRead> before;
    SlotRead after;
    bool faults;
    V verdict;
  };
  const Case cases[] = {
      {"answered set holds the list", 0, 7, SlotRead{0, 3}, {0, 7}, true, V::Consistent},
      {"answered set holds another list", 0, 7, SlotRead{0, 3}, {0, 3}, true, V::Contradiction},
      {"answered set, record gone", 0, 7, std::nullopt, {kNoRecord, 0}, false, V::Contradiction},
      {"unbind of a missing record", 0, 0, std::nullopt, {kNoRecord, 0}, false, V::Consistent},
      {"refusal keeps the list", kFault, 7, SlotRead{0, 3}, {0, 3}, true, V::Consistent},
      {"refusal, nothing known before", kFault, 7, std::nullopt, {0, 9}, true, V::Consistent},
      {"refusal takes another list", kFault, 7, SlotRead{0, 3}, {0, 7}, true, V::Contradiction},
      {"refusal empties, faults armed", kFault, 7, SlotRead{0, 3}, {0, 0}, true, V::LeftEmpty},
      {"refusal empties, no faults", kFault, 7, SlotRead{0, 3}, {0, 0}, false, V::Contradiction},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(aclstress::judgeSlot(c.ret, c.value, c.before, c.after, c.faults), c.verdict)
        << c.name;
  }
}

TEST(StressTally, CountersSettled) {
  struct Case {
    std::vector<uint64_t> samples;
    size_t need;
    bool settled;
  };
  const Case cases[] = {
      {{}, 3, false},          {{5, 5}, 3, false},       {{5, 5, 5}, 3, true},
      {{1, 5, 5, 5}, 3, true}, {{5, 5, 5, 6}, 3, false}, {{5, 6, 5}, 3, false},
      {{5, 5, 5}, 0, false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(aclstress::countersSettled(c.samples, c.need), c.settled)
        << ::testing::PrintToString(c.samples) << " need " << c.need;
  }
}

TEST(StressTally, VerdictAndReport) {
  struct Case {
    const char* name;
    int refusals, failures, cleanAudits, dirtyAudits;
    bool passed;
  };
  const Case cases[] = {
      // clang-format off
      {"refusals only", 3, 0, 2, 0, true}, {"a failure", 0, 1, 2, 0, false},
      {"an audit with differences", 0, 0, 2, 1, false}, {"no audit at all", 0, 0, 0, 0, false},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    aclstress::Tally t;
    t.request(10);
    for (int k = 0; k < c.refusals; ++k) t.refusal("list create", 0x03E80001);
    t.refusal("list create", 0);  // an answer of 0 is no refusal
    for (int k = 0; k < c.failures; ++k) t.failure("client", "list 5 created, then reads -1");
    for (int k = 0; k < c.cleanAudits; ++k) t.audit(true);
    for (int k = 0; k < c.dirtyAudits; ++k) t.audit(false);
    const auto s = t.snapshot();
    EXPECT_EQ(aclstress::passed(s), c.passed);
    EXPECT_EQ(s.refusalTotal, static_cast<uint64_t>(c.refusals));
    aclstress::RunFigures f;
    f.seconds = 2;
    f.routeMessagesOk = 7;
    const auto lines = aclstress::reportLines(s, f);
    EXPECT_EQ(lines.front(), "requests: 10 in 2.0 s, 5 per second");
    EXPECT_NE(std::find(lines.begin(), lines.end(), "route messages handled: 7 (failed 0)"),
              lines.end());
    EXPECT_EQ(lines.back(), c.passed ? "stress: PASS" : "stress: FAIL");
  }
}

TEST(StressTally, KeepsTheFirstFailuresOfEachKindAndCountsTheRest) {
  aclstress::Tally t;
  for (size_t k = 0; k < aclstress::kKeptFailures + 5; ++k) t.failure("client", std::to_string(k));
  t.failure("audit", "hardware: unit 2 lacks list 5 rule 1");
  const auto s = t.snapshot();
  EXPECT_EQ(s.failureTotal, aclstress::kKeptFailures + 6);
  ASSERT_EQ(s.failures.at("client").size(), aclstress::kKeptFailures);
  EXPECT_EQ(s.failures.at("client").front(), "0");
  // Many failures of one kind never hide the first of another.
  const auto lines = aclstress::reportLines(s, {});
  for (const char* want :
       {"  FAIL audit: hardware: unit 2 lacks list 5 rule 1", "  (5 more client failures)"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), want), lines.end()) << want;
  }
}

}  // namespace
