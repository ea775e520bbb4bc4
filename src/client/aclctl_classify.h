// aclctl dev classify (aclctl_classify.cc), added under the dev subcommand by aclctl_dev.cc.
#pragma once

#include "client/aclctl.h"

void aclctlAddDevClassify(CLI::App* dev, AclctlGlobals& globals);
