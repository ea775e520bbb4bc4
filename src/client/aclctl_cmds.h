// The command families of aclctl. Each family adds its subcommands in a file of its own
// (aclctl_<family>.cc); aclctl_main.cc calls every adder once.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "client/aclctl.h"

namespace CLI {
class App;
}

// Exit statuses: 0 the daemon answered (a result code is data), 1 the daemon could not be reached
// or answered with a protocol status, 2 a usage error.
constexpr int kAclctlExitOk = 0;
constexpr int kAclctlExitFailed = 1;
constexpr int kAclctlExitUsage = 2;

// Thrown by a subcommand to end aclctl with a message on stderr and an exit status.
struct AclctlExit : std::runtime_error {
  AclctlExit(int status, const std::string& message)
      : std::runtime_error(message), status(status) {}
  int status;
};

// "call": the raw call of any table function.
void aclctlAddCallCommand(CLI::App& app, AclctlGlobals& globals);
// "meter", "meter profile" and "counter": create, set, valid, delete, show.
void aclctlAddMeterCommands(CLI::App& app, AclctlGlobals& globals);
void aclctlAddCounterCommands(CLI::App& app, AclctlGlobals& globals);
// "global", "limits", "version" and "debug": the scalar table.
void aclctlAddGlobalCommands(CLI::App& app, AclctlGlobals& globals);
// "stats": read and clear the counters of counted rules.
void aclctlAddStatsCommands(CLI::App& app, AclctlGlobals& globals);
// "match": ask a list's software match services (addresses, IPsec, NAT, CPU-defend frames).
void aclctlAddMatchCommands(CLI::App& app, AclctlGlobals& globals);
// "cpudefend", "nat" and "blacklist": the installations made for other modules.
void aclctlAddServiceCommands(CLI::App& app, AclctlGlobals& globals);
// "audit": the daemon's invariant audit.
void aclctlAddAuditCommand(CLI::App& app, AclctlGlobals& globals);
// "slot": the slot ledger and the cards' hardware resources.
void aclctlAddSlotCommands(CLI::App& app, AclctlGlobals& globals);
// "if": interface records, binding lists on their slots, interface statistics.
void aclctlAddIfCommands(CLI::App& app, AclctlGlobals& globals);
// "save" and "load": the whole configuration as one JSON document; "batch": raw calls from a file.
void aclctlAddSaveCommand(CLI::App& app, AclctlGlobals& globals);
void aclctlAddLoadCommand(CLI::App& app, AclctlGlobals& globals);
void aclctlAddBatchCommand(CLI::App& app, AclctlGlobals& globals);

// "gem": GEM port records of ONUs, binding lists on their slots, GEM port statistics.
void aclctlAddGemCommands(CLI::App& app, AclctlGlobals& globals);
// The 12-byte GEM port table key of IFINDEX/ONU/GEMPORT; a usage error when it does not read.
std::vector<uint8_t> aclctlGemKey(const std::string& text);
// "if hqos" and "if pbr" under the "if" command.
void aclctlAddIfPolicyCommands(CLI::App& ifCmd, AclctlGlobals& globals);
// "policy": traffic policies applied and removed on an interface or globally.
void aclctlAddPolicyCommands(CLI::App& app, AclctlGlobals& globals);
