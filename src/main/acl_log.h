// The ACL module's log convention. A debug line carries the tag 0x3EA0000 + its class and the
// class's priority, and is written only when the class's guard bit is set in gaclGrp.debugFlags.
// Class 12 is the operational log: always written, through loggingLogOutput.
#pragma once

#include <array>
#include <cstdint>

constexpr uint32_t ACL_LOG_TAG_BASE = 0x3EA0000;  // 1002 is the ACL module's log number

enum AclLogClass : uint32_t {
  ACL_LOG_GLOBAL = 0,     // global binding, notifications, acl sync, time ranges, event task
  ACL_LOG_IF = 1,         // interface and GEM port binding, aggregation
  ACL_LOG_STATS = 2,      // statistics
  ACL_LOG_RULE = 3,       // rule store
  ACL_LOG_DEV = 4,        // hardware record dumps
  ACL_LOG_API = 5,        // configuration API
  ACL_LOG_COUNTER = 6,    // counter module (its own flag)
  ACL_LOG_METER = 7,      // meter module (its own flag)
  ACL_LOG_WORKMODE = 8,   // work mode, per-interface hardware update, dynamic rule set
  ACL_LOG_OPER = 12,      // operational log
};

// Multi-line dump styles: first line, further lines, closing line.
constexpr uint32_t ACL_LOG_STYLE_LINE = 0;
constexpr uint32_t ACL_LOG_STYLE_FIRST = 26;
constexpr uint32_t ACL_LOG_STYLE_MORE = 27;
constexpr uint32_t ACL_LOG_STYLE_LAST = 25;

constexpr uint32_t ACL_DEBUG_STARTUP = 0x100;  // guard of the start-up error; set after start-up

// Priority of each class.
constexpr std::array<uint8_t, 17> gAclDebugPri = {7, 7, 7, 7, 7, 7, 7, 7, 5, 5, 5, 5, 5, 5, 5, 5, 5};

// The debugFlags bit that guards each class; 0 for classes with no bit of their own (the meter
// and counter modules guard with their own flags, the operational log is unguarded).
constexpr uint32_t aclLogGuard(uint32_t cls) {
  switch (cls) {
    case ACL_LOG_GLOBAL: return 0x01;
    case ACL_LOG_IF: return 0x02;
    case ACL_LOG_STATS: return 0x08;
    case ACL_LOG_RULE: return 0x10;
    case ACL_LOG_DEV: return 0x20;
    case ACL_LOG_API: return 0x04;
    case ACL_LOG_WORKMODE: return 0x02;
    default: return 0;
  }
}

// Whether a debug line of cls would be written now: for arguments that cost something to make
// (an interface name is a call into the interface manager), on paths that run once per rule.
bool aclDebugOn(uint32_t cls);
// A debug line of cls under its own guard bit.
void aclDebug(uint32_t cls, const char* format, ...) __attribute__((format(printf, 2, 3)));
// A debug line under an explicit guard and style (dumps, and the start-up error's 0x100 guard).
// Further lines of a dump (style 27) go out with tag 0x3EA0000 and priority 0.
void aclDebugStyled(uint32_t guard, uint32_t cls, uint32_t style, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
// The operational log (class 12): written whatever the flags say.
void aclOperLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
// A line of another class through the operational log, written whatever the flags say: the
// failures to program an interface (protocol registration 9 and 10, hardware 13 and 14).
void aclOperLogClass(uint32_t cls, const char* format, ...) __attribute__((format(printf, 2, 3)));
