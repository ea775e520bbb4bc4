// Debug and operational logs. Every line goes into a ring of recent lines (read by tests and by
// the device's control socket) and to one sink: stderr, a file or syslog.
#include "platform/logging.h"

#include <syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <mutex>

namespace {

struct LogState {
  std::mutex mutex;
  std::deque<plat::LogLine> ring;
  uint64_t seq = 0;
  plat::LogSink sink = plat::LogSink::Stderr;
  FILE* file = nullptr;
};

LogState& state() {
  static LogState s;
  return s;
}

int syslogLevel(uint32_t priority) {
  // Device priorities follow syslog's numbering: 5 notice, 7 debug.
  return priority <= 7 ? static_cast<int>(priority) : LOG_DEBUG;
}

void emit(uint32_t tag, uint32_t priority, uint32_t style, bool operational, const char* format,
          va_list ap) {
  char text[1024];
  if (format == nullptr) format = "";
  int n = std::vsnprintf(text, sizeof text, format, ap);
  if (n < 0) n = 0;
  size_t len = std::min(static_cast<size_t>(n), sizeof text - 1);
  // Messages end in "\r\n" on the device console; one call is one line here.
  while (len > 0 && (text[len - 1] == '\n' || text[len - 1] == '\r')) --len;
  text[len] = '\0';

  LogState& s = state();
  std::lock_guard lock(s.mutex);
  plat::LogLine line{++s.seq, tag, priority, style, operational, std::string(text, len)};
  switch (s.sink) {
    case plat::LogSink::Stderr:
      std::fprintf(stderr, "%s 0x%08x p%u: %s\n", operational ? "log" : "dbg", tag, priority, text);
      break;
    case plat::LogSink::File:
      std::fprintf(s.file, "%s 0x%08x p%u: %s\n", operational ? "log" : "dbg", tag, priority, text);
      std::fflush(s.file);
      break;
    case plat::LogSink::Syslog:
      syslog(syslogLevel(priority), "0x%08x %s", tag, text);
      break;
  }
  s.ring.push_back(std::move(line));
  if (s.ring.size() > plat::kLogRingCapacity) s.ring.pop_front();
}

}  // namespace

void loggingDebugOutput(uint32_t tag, uint32_t priority, uint32_t style, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  emit(tag, priority, style, false, format, ap);
  va_end(ap);
}

void loggingDebugOutputV(uint32_t tag, uint32_t priority, uint32_t style, const char* format,
                         va_list ap) {
  emit(tag, priority, style, false, format, ap);
}

void loggingLogOutput(uint32_t tag, uint32_t priority, uint32_t style, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  emit(tag, priority, style, true, format, ap);
  va_end(ap);
}

namespace plat {

bool logSetSink(LogSink sink, const std::string& path) {
  LogState& s = state();
  FILE* f = nullptr;
  if (sink == LogSink::File) {
    f = std::fopen(path.c_str(), "a");
    if (f == nullptr) return false;
  }
  std::lock_guard lock(s.mutex);
  if (s.file) std::fclose(s.file);
  s.file = f;
  if (sink == LogSink::Syslog) openlog("acl", LOG_PID | LOG_NDELAY, LOG_DAEMON);
  s.sink = sink;
  return true;
}

std::vector<LogLine> logRecent(uint64_t sinceSeq) {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  std::vector<LogLine> out;
  for (const auto& l : s.ring) {
    if (l.seq > sinceSeq) out.push_back(l);
  }
  return out;
}

uint64_t logLastSeq() {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  return s.seq;
}

void logRingClear() {
  LogState& s = state();
  std::lock_guard lock(s.mutex);
  s.ring.clear();
}

}  // namespace plat
