// What the stress tool does to the virtual device while clients work: interfaces removed and put
// back, ports joining and leaving an aggregation, cards announced up, time ranges switched,
// neighbours learned and lost, and faults armed on hardware calls. Each step is one control
// request; the disturber remembers what it changed so that every step stays valid for the device
// and restore() can put the chassis back as it found it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace aclstress {

enum class DevStep {
  InterfaceToggle,
  AggregationMember,
  AggregationToggle,
  CardUp,
  TimeRange,
  Neighbour,
  Fault
};
inline constexpr size_t kDevStepKinds = 7;
const char* devStepName(DevStep s);
// The step kinds named by a comma-separated list of short names (iface, member, agg, card,
// timerange, nbr, fault; "all" for every kind); false with the unknown name in *bad.
bool parseDevSteps(const std::string& text, std::set<DevStep>* out, std::string* bad);

// The parts of a device model the disturber touches, read from the device's "show" reply.
struct ChassisPlan {
  std::map<uint32_t, nlohmann::json> ports;          // removed and put back (their model entries)
  nlohmann::json aggregation;                        // the aggregation's model entry; null: none
  std::vector<uint32_t> memberPool;                  // ports that join and leave it
  std::vector<std::pair<uint32_t, uint32_t>> cards;  // (system, slot) holding a card
  std::map<uint32_t, bool> timeRanges;               // id -> active
  std::set<std::string> neighbours;                  // VRF 0 addresses known at the start
  std::vector<std::string> extraNeighbours;          // addresses learned and lost
};

// Picks the ports to remove (the last two of each line card that are not aggregation members),
// the aggregation with its members plus one more port per card, the cards, time ranges and
// neighbours of model. Empty parts are skipped by the disturber.
ChassisPlan planFromModel(const nlohmann::json& model);

// Every interface whose bind slots a device step may change behind a client's back.
std::set<uint32_t> volatileInterfaces(const ChassisPlan& plan);

class DeviceDisturber {
 public:
  // Only the kinds in enabled are picked (all when empty).
  DeviceDisturber(ChassisPlan plan, uint32_t seed, std::set<DevStep> enabled = {});
  // The next request, picked at random; call done() with the device's reply before the next one.
  nlohmann::json next();
  // The same, of the event kinds only (everything but faults), or a fault only.
  nlohmann::json nextEvent();
  nlohmann::json nextFault();
  // Takes the reply of the last request: what it changed is remembered only when it was made.
  void done(const nlohmann::json& reply);
  // The requests that put back every interface, membership, time range and neighbour changed.
  std::vector<nlohmann::json> restore() const;
  const std::map<DevStep, uint64_t>& made() const { return made_; }

 private:
  nlohmann::json interfaceToggle();
  nlohmann::json memberToggle();
  nlohmann::json aggregationToggle();
  nlohmann::json cardUp();
  nlohmann::json timeRange();
  nlohmann::json neighbour();
  nlohmann::json fault();
  nlohmann::json aggregationEntry() const;
  nlohmann::json pick(bool events, bool faults);

  ChassisPlan plan_;
  std::mt19937 rng_;
  std::set<DevStep> enabled_;
  std::set<uint32_t> removedPorts_;
  std::set<uint32_t> members_;
  bool aggregationRemoved_ = false;
  std::map<uint32_t, bool> active_;
  std::set<std::string> known_;
  DevStep lastKind_ = DevStep::CardUp;
  std::function<void()> pending_;
  std::map<DevStep, uint64_t> made_;
};

}  // namespace aclstress
