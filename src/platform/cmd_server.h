// The platform command server: serves a table of functions on a local stream socket from a task
// of its own.
#pragma once

#include <cstdint>
#include <string>

// The uniform shape of a table function: three machine words in, a signed 32-bit result out.
using AclTableFunc = int32_t (*)(uintptr_t, uintptr_t, uintptr_t);

struct IcmFuncEntry {
  uint32_t funcId;
  AclTableFunc func;  // nullptr for an empty slot
};

// Starts the server task taskName on sockPath (mapped into the run directory) for the table.
// 0 when the task runs.
int icmProcTcpInit(const char* taskName, const char* sockPath, const IcmFuncEntry* table,
                   uint32_t entries);
// Whether this process serves sockPath (mapped into the run directory) now; when it does not, why
// says what stopped it.
bool icmProcTcpServing(const char* sockPath, std::string* why);
