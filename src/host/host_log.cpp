// Adapter to the host's logger: thread id, logger instance, WriteLog.
#include "host/host_log.h"

#include <cstdarg>
#include <memory>

#include "base/base.h"

namespace database_interface {
namespace {

constexpr int kMaxLogArgs = 4;

// Number of "%s" conversions in `format` ("%%" is a literal percent sign).
int CountStringConversions(const char* format) {
  int count = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (p[0] != '%') continue;
    if (p[1] == 's') ++count;
    if (p[1] != '\0') ++p;
  }
  return count;
}

}  // namespace

void LogError(const char* format, ...) {
  // WriteLog is variadic, so a va_list cannot be handed on: the arguments,
  // all strings (the format attribute checks them at every call site), are
  // collected and passed by count.
  const char* args[kMaxLogArgs] = {};
  const int count = CountStringConversions(format);
  if (count > kMaxLogArgs) return;
  va_list list;
  va_start(list, format);
  for (int i = 0; i < count; ++i) args[i] = va_arg(list, const char*);
  va_end(list);

  const int tid = base::GetTid();
  const int level = kLogLevelError;
  const std::shared_ptr<base::IBaseLogInterface> logger =
      base::IBaseLogInterface::GetLogInstance(nullptr);
#if defined(__GNUC__)
#pragma GCC diagnostic push
  // The formats are the library's own literals, checked where LogError is called.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
#endif
  switch (count) {
    case 0: logger->WriteLog(level, tid, format); break;
    case 1: logger->WriteLog(level, tid, format, args[0]); break;
    case 2: logger->WriteLog(level, tid, format, args[0], args[1]); break;
    case 3: logger->WriteLog(level, tid, format, args[0], args[1], args[2]); break;
    default: logger->WriteLog(level, tid, format, args[0], args[1], args[2], args[3]); break;
  }
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

}  // namespace database_interface
