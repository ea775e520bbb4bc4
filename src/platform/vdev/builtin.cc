// The built-in device: what `acl` runs on when no device file is given. A small chassis: system 1
// with the daemon's own control card in slot 1, two 12-port Ethernet line cards in slots 2 and 3,
// a PON card in slot 4, one aggregation over ports of both Ethernet cards, and a few neighbours,
// time ranges and mirror groups for the ACL features that refer to them.
#include <arpa/inet.h>

#include <string>

#include "platform/hwil.h"
#include "platform/ifmgr.h"
#include "platform/vdev/model.h"

namespace vdev {
namespace {

constexpr uint32_t kCardControl = 1;
constexpr uint32_t kCardEth = 2;
constexpr uint32_t kCardPon = 3;

// Capacities the line cards report for the option query, in the card's own decimal text.
void ethOptions(Card& c) {
  const char* dirs[] = {"in", "out", "vfp"};
  const char* types[] = {"l2", "ipv4", "ipv6", "hybrid", "mpls", "udf"};
  for (const char* d : dirs) {
    for (const char* t : types) {
      const bool vfp = std::string(d) == "vfp";
      c.options[std::string("acl.max") + t + d + "rulenumperslot"] = vfp ? "256" : "1024";
    }
  }
}

Card card(uint32_t type, const std::string& name) {
  Card c;
  c.type = type;
  c.name = name;
  // A card that is up and ready answers "not ready" with an error and "ready" with 0.
  c.properties[CARD_PROP_NOT_READY] = 1;
  c.properties[CARD_PROP_READY] = 0;
  if (type != kCardControl) ethOptions(c);
  return c;
}

Slot slot(uint32_t sys, uint32_t n, Card c) {
  Slot s;
  s.system = sys;
  s.slot = n;
  s.card = std::move(c);
  s.properties[SLOT_PROP_NOT_READY] = 1;
  s.properties[SLOT_PROP_READY] = 0;
  // Internal TCAM: rules per stage, and the meters and counters beside them.
  s.resources = {
      {0, 0, 0, 0, 512, 0, 16, 496},  {0, 0, 0, 1, 2048, 0, 64, 1984},
      {0, 0, 0, 2, 1024, 0, 32, 992}, {0, 0, 1, 3, 1024, 0, 0, 1024},
      {0, 0, 2, 3, 2048, 0, 0, 2048},
  };
  return s;
}

Interface iface(uint32_t index, const std::string& name, uint32_t sys, uint32_t sl, uint32_t port,
                uint32_t kind) {
  Interface i;
  i.index = index;
  i.name = name;
  i.location[ZOR_LOC_SYS] = sys;
  i.location[ZOR_LOC_SLOT] = sl;
  i.location[ZOR_LOC_PORT] = port;
  i.location[ZOR_LOC_KIND] = kind;
  return i;
}

Neighbour neighbour(uint32_t vrf, const char* text) {
  Neighbour n;
  n.vrf = vrf;
  if (inet_pton(AF_INET, text, n.addr.data()) == 1) {
    n.family = 1;
  } else {
    inet_pton(AF_INET6, text, n.addr.data());
    n.family = 2;
  }
  return n;
}

}  // namespace

Model builtinModel() {
  Model m;
  m.selfSys = 1;
  m.selfSlot = 1;
  m.systems = {1};
  m.slots[{1, 1}] = slot(1, 1, card(kCardControl, "MCU-1"));
  m.slots[{1, 2}] = slot(1, 2, card(kCardEth, "GE12-2"));
  m.slots[{1, 3}] = slot(1, 3, card(kCardEth, "GE12-3"));
  m.slots[{1, 4}] = slot(1, 4, card(kCardPon, "GPON8-4"));
  // Ports are numbered slot * 100 + port.
  for (uint32_t sl = 2; sl <= 3; ++sl) {
    for (uint32_t port = 1; port <= 12; ++port) {
      const uint32_t unit = sl * 100 + port;
      m.interfaces[unit] = iface(unit, "ge-1/" + std::to_string(sl) + "/" + std::to_string(port), 1,
                                 sl, port, ZOR_IF_KIND_ETH);
    }
  }
  m.interfaces[401] = iface(401, "gpon-1/4/1", 1, 4, 1, ZOR_IF_KIND_PON);
  Interface agg = iface(1001, "agg-1", 1, 0, 1, ZOR_IF_KIND_AGG);
  agg.members = {203, 204, 303};
  agg.defaultMode = 2;
  m.interfaces[1001] = agg;
  m.neighbours = {neighbour(0, "192.0.2.1"), neighbour(0, "192.0.2.2"),
                  neighbour(0, "2001:db8::1")};
  m.timeRanges[1] = {1, "working-hours", true, 0};
  m.timeRanges[2] = {2, "night", false, 0};
  for (uint32_t g = 1; g <= 4; ++g) m.mirrors[g] = {g, {}};
  // 46 and 55 tell that the hardware is ready for a resynchronisation; 54 that remote systems
  // are synchronised by their own daemon.
  m.scalars = {{46, 1}, {54, 0}, {55, 1}};
  return m;
}

Device& device() {
  static Device d{{}, builtinModel(), {}};
  return d;
}

}  // namespace vdev
