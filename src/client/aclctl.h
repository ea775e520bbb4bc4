// Shared state of the aclctl command line: the options every subcommand sees.
#pragma once

#include <string>

namespace CLI {
class App;
}

struct AclctlGlobals {
  std::string runDir;  // empty: the device default (/tmp)
  std::string socket;  // explicit command socket path; overrides runDir for the command table
  bool json = false;
};

// Adds the "dev" subcommands (virtual-device inspection and control) to app.
void aclctlAddDevCommands(CLI::App& app, AclctlGlobals& globals);
