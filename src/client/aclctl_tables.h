// Shared plumbing of the friendly commands over value-keyed tables (meters, meter profiles,
// counters): attributes described once as rows, set from options, shown as text or JSON.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "client/aclctl.h"
#include "client/table_session.h"

namespace CLI {
class App;
}

namespace aclclient {

// One numeric attribute of a table entry: its option name, JSON key and get/set command.
struct TableAttr {
  const char* option;  // "--cir"
  const char* key;     // "cir"
  uint32_t cmd;
  const char* help;
};

// The function ids and commands of one value-keyed table family.
struct TableFamily {
  const char* noun;  // "meter"
  uint32_t getFirst, getNext, getApi, setApi;
  uint32_t statusCmd;      // status get/set command
  // The lowest free index, for create without one.
  std::function<ValueAnswer(TableSession&)> freeIndex;
  uint32_t createStatus;   // status value that creates
  uint32_t validStatus;
  uint32_t deleteStatus;
  std::vector<TableAttr> attrs;
  // Text attributes read and set through descriptors (names), by command.
  std::optional<TableAttr> name;
  // Extra per-entry fields for show, beyond the attributes.
  std::function<void(TableSession&, uint32_t, nlohmann::ordered_json&)> extra;
};

// Adds create, set, valid, delete and show under parent for family.
void addTableCommands(CLI::App& parent, AclctlGlobals& globals, const TableFamily& family);

// Prints ok/failed for one operation and fails aclctl (exit 1) when ret is not 0.
void reportResult(const AclctlGlobals& globals, const std::string& what, int32_t ret,
                  nlohmann::ordered_json extra = nlohmann::ordered_json::object());

std::string statusName(uint32_t status);

}  // namespace aclclient
