// The process shell: the commands an operator calls by name with a few numeric arguments, and the
// local socket that serves them to a terminal (aclctl shell).
//
// Request: one line, the command name and its arguments separated by blanks; each argument is a
// decimal or 0x number of at most 32 bits, or, where the command reads bytes from an address, the
// bytes themselves in hex. A line holding only "?" asks for the registered commands.
// Reply: a header line "<status> <result> <length>\n", then exactly length bytes: what the
// command printed (status "ok", result its return value), or the reason of a refusal (status
// "unknown" for a name nobody registered, "usage" for arguments it cannot take, "error").
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plat {

// The most arguments a command takes.
constexpr size_t kShellMaxArgs = 6;
// A request line, its newline included; past it the connection is answered and closed.
constexpr size_t kShellMaxLine = 4096;

struct ShellArgs {
  std::array<intptr_t, kShellMaxArgs> word{};  // numbers by position; 0 where none was given
  size_t count = 0;                            // arguments given
  std::vector<uint8_t> data;                   // the bytes of the data argument, if any
};

using ShellFunc = int32_t (*)(const ShellArgs&);

struct ShellCommandInfo {
  ShellFunc fn = nullptr;
  uint8_t arity = 0;       // arguments it takes
  int8_t dataArg = -1;     // position of the argument given as hex bytes, -1 for none
  const char* usage = "";  // its arguments as the help shows them, e.g. "(listNum, ifUnit)"
};

// false when the name is taken or the entry is unusable.
bool shellRegister(const std::string& name, const ShellCommandInfo& info);
std::optional<ShellCommandInfo> shellLookup(const std::string& name);
// Name and entry of every registered command, by name.
std::vector<std::pair<std::string, ShellCommandInfo>> shellCommands();

// The reply to one request line (without its newline): parses it, runs the command with its
// output captured and frames the answer.
std::string shellRunLine(std::string_view line);

// The socket's file name in the run directory: the process name followed by "shell.socket".
std::string shellSocketPath();
// Starts the shell server task on shellSocketPath(); 0 when it serves (also when it already did).
int shellServe();

// Tests only: forget every registered command.
void shellClearForTest();

}  // namespace plat
