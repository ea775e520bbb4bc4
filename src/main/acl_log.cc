#include "main/acl_log.h"

#include <cstdarg>
#include <cstdio>

#include "main/acl_group.h"
#include "platform/logging.h"

namespace {

void vout(uint32_t cls, uint32_t style, const char* format, va_list ap) {
  // Continuation lines of a dump carry the bare module tag and no priority.
  const bool more = style == ACL_LOG_STYLE_MORE;
  const uint32_t tag = more ? ACL_LOG_TAG_BASE : ACL_LOG_TAG_BASE + cls;
  const uint32_t pri = more ? 0 : (cls < gAclDebugPri.size() ? gAclDebugPri[cls] : 5);
  loggingDebugOutputV(tag, pri, style, format, ap);
}

}  // namespace

bool aclDebugOn(uint32_t cls) {
  const uint32_t guard = aclLogGuard(cls);
  return guard != 0 && (gaclGrp.debugFlags & guard) != 0;
}

void aclDebug(uint32_t cls, const char* format, ...) {
  if (!aclDebugOn(cls)) return;
  va_list ap;
  va_start(ap, format);
  vout(cls, ACL_LOG_STYLE_LINE, format, ap);
  va_end(ap);
}

void aclDebugStyled(uint32_t guard, uint32_t cls, uint32_t style, const char* format, ...) {
  if (guard == 0 || (gaclGrp.debugFlags & guard) == 0) return;
  va_list ap;
  va_start(ap, format);
  vout(cls, style, format, ap);
  va_end(ap);
}

namespace {

void operOut(uint32_t cls, const char* format, va_list ap) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, ap);
  const uint32_t pri = cls < gAclDebugPri.size() ? gAclDebugPri[cls] : 5;
  loggingLogOutput(ACL_LOG_TAG_BASE + cls, pri, 0, "%s", text);
}

}  // namespace

void aclOperLog(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  operOut(ACL_LOG_OPER, format, ap);
  va_end(ap);
}

void aclOperLogClass(uint32_t cls, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  operOut(cls, format, ap);
  va_end(ap);
}
