// aclctl rule ...: build, change and show the rules of filter lists by name, through the rule
// table (function ids 9 to 12).
#pragma once

#include "client/aclctl.h"

namespace CLI {
class App;
}

void aclctlAddRuleCommands(CLI::App& app, AclctlGlobals& globals);
