// aclctl list ...: create, delete, rename and show filter lists through the list table.
#pragma once

#include "client/aclctl.h"

namespace CLI {
class App;
}

void aclctlAddListCommands(CLI::App& app, AclctlGlobals& globals);
