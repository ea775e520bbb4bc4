// The platform's debug and operational logs. One call writes one line: the tag in hex, the
// priority and the formatted text (trailing CR/LF removed). Lines go to the chosen sink and,
// always, into an in-memory ring of recent lines.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

void loggingDebugOutput(uint32_t tag, uint32_t priority, uint32_t style, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void loggingLogOutput(uint32_t tag, uint32_t priority, uint32_t style, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// The va_list form, for modules that wrap the debug output in helpers of their own.
void loggingDebugOutputV(uint32_t tag, uint32_t priority, uint32_t style, const char* format,
                         va_list ap);

namespace plat {

enum class LogSink { Stderr, File, Syslog };

// Where lines go besides the ring. Opening the file may fail: false, and the sink is unchanged.
bool logSetSink(LogSink sink, const std::string& path = {});

struct LogLine {
  uint64_t seq;  // increases by one per line, process-wide
  uint32_t tag;
  uint32_t priority;
  uint32_t style;
  bool operational;  // written with loggingLogOutput
  std::string text;
};

// The most recent lines (at most the ring's capacity), oldest first; with sinceSeq, only lines
// whose seq is greater.
std::vector<LogLine> logRecent(uint64_t sinceSeq = 0);
uint64_t logLastSeq();
void logRingClear();
constexpr size_t kLogRingCapacity = 4096;

}  // namespace plat
