#include "client/stress_plan.h"

#include <algorithm>
#include <iterator>

namespace aclstress {

using nlohmann::json;

namespace {

constexpr uint32_t kKindPort = 1;

// How often each step comes, out of the sum. Faults and interface changes dominate: they are
// where rollback and clean-up paths run.
struct StepWeight {
  DevStep step;
  uint32_t weight;
};
constexpr StepWeight kWeights[] = {
    {DevStep::InterfaceToggle, 6}, {DevStep::AggregationMember, 5}, {DevStep::AggregationToggle, 1},
    {DevStep::CardUp, 2},          {DevStep::TimeRange, 4},         {DevStep::Neighbour, 3},
    {DevStep::Fault, 6},
};

// Faults are armed on the rule install commands (global, unit and GEM scope, record form): a
// failed install is undone by the path that made it, so the store and the hardware must agree
// again afterwards. A failed removal is not undone by design (the removal paths go on, and the
// dynamic rule set leaves a half-applied change to the operator), and neither is a failure inside
// an event (card synchronisation and time-range re-installs go on past it): the audit would
// report those as the drift they are, so the stress run does not provoke them.
constexpr uint32_t kInstallCmds[] = {217, 65536398, 212992037};
constexpr int32_t kFaultResults[] = {-1, 0x03E80010, 5};

uint32_t u32(const json& j, const char* key) {
  return j.contains(key) && j.at(key).is_number_unsigned() ? j.at(key).get<uint32_t>() : 0;
}

}  // namespace

const char* devStepName(DevStep s) {
  switch (s) {
    case DevStep::InterfaceToggle:
      return "interface removed/re-added";
    case DevStep::AggregationMember:
      return "port joined/left aggregation";
    case DevStep::AggregationToggle:
      return "aggregation removed/re-added";
    case DevStep::CardUp:
      return "card up";
    case DevStep::TimeRange:
      return "time range switched";
    case DevStep::Neighbour:
      return "neighbour learned/lost";
    case DevStep::Fault:
      return "fault armed";
  }
  return "?";
}

bool parseDevSteps(const std::string& text, std::set<DevStep>* out, std::string* bad) {
  static constexpr std::pair<const char*, DevStep> kNames[] = {
      {"iface", DevStep::InterfaceToggle}, {"member", DevStep::AggregationMember},
      {"agg", DevStep::AggregationToggle}, {"card", DevStep::CardUp},
      {"timerange", DevStep::TimeRange},   {"nbr", DevStep::Neighbour},
      {"fault", DevStep::Fault},
  };
  out->clear();
  size_t pos = 0;
  while (pos <= text.size()) {
    const size_t comma = std::min(text.find(',', pos), text.size());
    const std::string name = text.substr(pos, comma - pos);
    bool known = false;
    for (const auto& [n, step] : kNames) {
      if (name == n || name == "all") {
        out->insert(step);
        known = true;
      }
    }
    if (!known) {
      *bad = name;
      return false;
    }
    pos = comma + 1;
  }
  return true;
}

ChassisPlan planFromModel(const json& model) {
  ChassisPlan p;
  std::set<uint32_t> members;
  if (model.contains("aggregations") && model["aggregations"].is_array() &&
      !model["aggregations"].empty()) {
    p.aggregation = model["aggregations"][0];
    for (const auto& m : p.aggregation.value("members", json::array())) {
      if (m.is_number_unsigned()) members.insert(m.get<uint32_t>());
    }
    p.memberPool.assign(members.begin(), members.end());
  }
  // Ports per (system, slot), in index order.
  std::map<std::pair<uint32_t, uint32_t>, std::map<uint32_t, json>> bySlot;
  for (const auto& i : model.value("interfaces", json::array())) {
    if (u32(i, "kind") != kKindPort && i.contains("kind")) continue;
    if (members.count(u32(i, "index")) != 0) continue;
    bySlot[{u32(i, "system"), u32(i, "slot")}][u32(i, "index")] = i;
  }
  for (const auto& [where, ports] : bySlot) {
    size_t k = 0;
    for (const auto& [index, entry] : ports) {
      if (k + 2 >= ports.size()) p.ports[index] = entry;
      if (k + 3 == ports.size() && !p.aggregation.is_null()) p.memberPool.push_back(index);
      ++k;
    }
  }
  for (const auto& s : model.value("systems", json::array())) {
    for (const auto& sl : s.value("slots", json::array())) {
      if (sl.contains("card")) p.cards.push_back({u32(s, "index"), u32(sl, "slot")});
    }
  }
  for (const auto& t : model.value("timeRanges", json::array())) {
    p.timeRanges[u32(t, "id")] = t.value("active", false);
  }
  for (const auto& n : model.value("neighbours", json::array())) {
    if (u32(n, "vrf") == 0 && n.contains("address")) p.neighbours.insert(n["address"]);
  }
  p.extraNeighbours = {"192.0.2.77", "2001:db8::77"};
  return p;
}

std::set<uint32_t> volatileInterfaces(const ChassisPlan& plan) {
  std::set<uint32_t> v;
  for (const auto& [index, entry] : plan.ports) v.insert(index);
  v.insert(plan.memberPool.begin(), plan.memberPool.end());
  if (!plan.aggregation.is_null()) v.insert(u32(plan.aggregation, "index"));
  return v;
}

DeviceDisturber::DeviceDisturber(ChassisPlan plan, uint32_t seed, std::set<DevStep> enabled)
    : plan_(std::move(plan)),
      rng_(seed),
      enabled_(std::move(enabled)),
      active_(plan_.timeRanges),
      known_(plan_.neighbours) {
  for (const auto& m : plan_.aggregation.value("members", json::array())) {
    members_.insert(m.get<uint32_t>());
  }
}

json DeviceDisturber::next() {
  return pick(true, true);
}
json DeviceDisturber::nextEvent() {
  return pick(true, false);
}
json DeviceDisturber::nextFault() {
  return pick(false, true);
}

json DeviceDisturber::pick(bool events, bool faults) {
  uint32_t total = 0;
  for (const auto& w : kWeights) total += w.weight;
  if (enabled_.empty()) {
    for (const auto& w : kWeights) enabled_.insert(w.step);
  }
  // A kind with nothing to work on (no aggregation, no time ranges) gives way to the next draw.
  for (;;) {
    uint32_t draw = std::uniform_int_distribution<uint32_t>(0, total - 1)(rng_);
    DevStep step = kWeights[0].step;
    for (const auto& w : kWeights) {
      if (draw < w.weight) {
        step = w.step;
        break;
      }
      draw -= w.weight;
    }
    json req;
    if (enabled_.count(step) == 0 || (step == DevStep::Fault ? !faults : !events)) continue;
    switch (step) {
      case DevStep::InterfaceToggle:
        req = interfaceToggle();
        break;
      case DevStep::AggregationMember:
        req = memberToggle();
        break;
      case DevStep::AggregationToggle:
        req = aggregationToggle();
        break;
      case DevStep::CardUp:
        req = cardUp();
        break;
      case DevStep::TimeRange:
        req = timeRange();
        break;
      case DevStep::Neighbour:
        req = neighbour();
        break;
      case DevStep::Fault:
        req = fault();
        break;
    }
    if (!req.is_null()) {
      lastKind_ = step;
      return req;
    }
  }
}

void DeviceDisturber::done(const json& reply) {
  const bool ok = reply.is_object() && reply.value("ok", false);
  if (ok) {
    if (pending_) pending_();
    ++made_[lastKind_];
  }
  pending_ = nullptr;
}

json DeviceDisturber::interfaceToggle() {
  if (plan_.ports.empty()) return nullptr;
  auto it = plan_.ports.begin();
  std::advance(it, std::uniform_int_distribution<size_t>(0, plan_.ports.size() - 1)(rng_));
  const uint32_t index = it->first;
  if (removedPorts_.count(index) != 0) {
    pending_ = [this, index] { removedPorts_.erase(index); };
    return {{"op", "interface.set"}, {"interface", it->second}};
  }
  pending_ = [this, index] { removedPorts_.insert(index); };
  return {{"op", "interface.remove"}, {"index", index}};
}

json DeviceDisturber::aggregationEntry() const {
  json e = plan_.aggregation;
  e["members"] = json(std::vector<uint32_t>(members_.begin(), members_.end()));
  return e;
}

json DeviceDisturber::memberToggle() {
  if (plan_.aggregation.is_null() || aggregationRemoved_ || plan_.memberPool.empty()) {
    return nullptr;
  }
  const uint32_t port =
      plan_.memberPool[std::uniform_int_distribution<size_t>(0, plan_.memberPool.size() - 1)(rng_)];
  std::set<uint32_t> after = members_;
  if (after.count(port) != 0) {
    if (after.size() == 1) return nullptr;  // keep one member: an empty aggregation says nothing
    after.erase(port);
  } else {
    after.insert(port);
  }
  pending_ = [this, after] { members_ = after; };
  json e = {{"index", plan_.aggregation["index"]},
            {"members", std::vector<uint32_t>(after.begin(), after.end())}};
  return {{"op", "aggregation.set"}, {"aggregation", e}};
}

json DeviceDisturber::aggregationToggle() {
  if (plan_.aggregation.is_null()) return nullptr;
  if (aggregationRemoved_) {
    pending_ = [this] { aggregationRemoved_ = false; };
    return {{"op", "aggregation.set"}, {"aggregation", aggregationEntry()}};
  }
  pending_ = [this] { aggregationRemoved_ = true; };
  return {{"op", "interface.remove"}, {"index", plan_.aggregation["index"]}};
}

json DeviceDisturber::cardUp() {
  if (plan_.cards.empty()) return nullptr;
  const auto& [sys, slot] =
      plan_.cards[std::uniform_int_distribution<size_t>(0, plan_.cards.size() - 1)(rng_)];
  return {{"op", "card.up"}, {"system", sys}, {"slot", slot}};
}

json DeviceDisturber::timeRange() {
  if (active_.empty()) return nullptr;
  auto it = active_.begin();
  std::advance(it, std::uniform_int_distribution<size_t>(0, active_.size() - 1)(rng_));
  const uint32_t id = it->first;
  const bool on = !it->second;
  pending_ = [this, id, on] { active_[id] = on; };
  return {{"op", "timerange.set"}, {"id", id}, {"active", on}};
}

json DeviceDisturber::neighbour() {
  std::vector<std::string> all(plan_.neighbours.begin(), plan_.neighbours.end());
  all.insert(all.end(), plan_.extraNeighbours.begin(), plan_.extraNeighbours.end());
  if (all.empty()) return nullptr;
  const std::string addr = all[std::uniform_int_distribution<size_t>(0, all.size() - 1)(rng_)];
  // A known neighbour is lost or learned again; an unknown one is learned.
  const bool remove = known_.count(addr) != 0 && (rng_() & 1) != 0;
  if (remove) {
    pending_ = [this, addr] { known_.erase(addr); };
    return {{"op", "neighbour.remove"}, {"vrf", 0}, {"address", addr}};
  }
  pending_ = [this, addr] { known_.insert(addr); };
  return {{"op", "neighbour.add"}, {"vrf", 0}, {"address", addr}};
}

json DeviceDisturber::fault() {
  const uint32_t cmd =
      kInstallCmds[std::uniform_int_distribution<size_t>(0, std::size(kInstallCmds) - 1)(rng_)];
  const int32_t result =
      kFaultResults[std::uniform_int_distribution<size_t>(0, std::size(kFaultResults) - 1)(rng_)];
  return {{"op", "fault.add"},
          {"call", "zorHwilCmdSetApi"},
          {"cmd", cmd},
          {"result", result},
          {"skip", std::uniform_int_distribution<uint32_t>(0, 20)(rng_)},
          {"count", "once"}};
}

std::vector<json> DeviceDisturber::restore() const {
  std::vector<json> out = {{{"op", "fault.clear"}}};
  for (uint32_t index : removedPorts_) {
    out.push_back({{"op", "interface.set"}, {"interface", plan_.ports.at(index)}});
  }
  if (!plan_.aggregation.is_null()) {
    json e = plan_.aggregation;
    if (!aggregationRemoved_) e = {{"index", e["index"]}, {"members", e["members"]}};
    out.push_back({{"op", "aggregation.set"}, {"aggregation", e}});
  }
  for (const auto& [id, on] : active_) {
    if (plan_.timeRanges.at(id) != on) {
      out.push_back({{"op", "timerange.set"}, {"id", id}, {"active", plan_.timeRanges.at(id)}});
    }
  }
  for (const std::string& addr : plan_.neighbours) {
    if (known_.count(addr) == 0) {
      out.push_back({{"op", "neighbour.add"}, {"vrf", 0}, {"address", addr}});
    }
  }
  for (const std::string& addr : known_) {
    if (plan_.neighbours.count(addr) == 0) {
      out.push_back({{"op", "neighbour.remove"}, {"vrf", 0}, {"address", addr}});
    }
  }
  return out;
}

}  // namespace aclstress
