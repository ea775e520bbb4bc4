// The daemon's whole configuration as one JSON document, shared by aclctl save and aclctl load:
// the tables the document holds, and how each part reads back from a running daemon. The
// schema is described in docs/CONFIG.md.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "client/rule_client.h"

namespace aclclient {

// Bumped whenever a document of the old version would load differently.
constexpr int kConfigVersion = 1;

struct ConfigAttr {
  const char* key;
  uint32_t cmd;
};

// A value-keyed table of the document (meters, meter profiles, counters): its functions, status
// values and attributes.
struct ConfigTable {
  const char* section;  // "meters"
  const char* noun;     // "meter"
  uint32_t getFirst, getNext, getApi, setApi;
  uint32_t statusCmd;
  uint32_t createStatus, validStatus, deleteStatus;
  uint32_t nameCmd;  // 0: no name
  uint32_t nameMax;
  std::vector<ConfigAttr> attrs;
};
const std::vector<ConfigTable>& configTables();

// The list options kept in the document, by key and list command.
const std::vector<ConfigAttr>& configListOptions();

// The generic (untyped) slot of a direction at the global scope and on interfaces.
struct GenericSlot {
  const char* dir;                    // "in", "out"
  uint32_t scalarList, scalarSwitch;  // scalar commands
  uint32_t ifList, ifSwitch;          // interface commands
};
std::span<const GenericSlot> genericSlots();
// The twelve typed global slots: name and scalar command.
struct GlobalSlot {
  const char* name;
  uint32_t cmd;
  uint8_t listType;
};
std::span<const GlobalSlot> globalSlots();

// Interface switch values.
constexpr uint32_t kIfSwitchOn = 1;
constexpr uint32_t kIfSwitchOff = 2;

// The list type a list number carries (1 L2, 2 IPv4, 3 IPv6, 4 hybrid, 5 MPLS, 8 UDF), 0 for a
// number outside every range.
uint8_t listTypeOfIndex(uint32_t lst);
const char* listTypeText(uint8_t type);

// Readers: each part as it appears in the document.
nlohmann::ordered_json readTableEntry(TableSession& s, const ConfigTable& t, uint32_t index);
nlohmann::ordered_json readRule(RuleClient& c, RuleRef r);
nlohmann::ordered_json readList(RuleClient& c, uint32_t lst);
nlohmann::ordered_json readGlobal(TableSession& s);
nlohmann::ordered_json readInterface(TableSession& s, uint32_t ifIndex);
// The whole document, walked table by table.
nlohmann::ordered_json readConfig(RuleClient& c);

// Walks of the tables, by the document's section order.
std::vector<uint32_t> listIndexes(TableSession& s);
std::vector<uint32_t> interfaceIndexes(TableSession& s);

}  // namespace aclclient
