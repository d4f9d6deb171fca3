// The one way this library writes a log line: through the host's logger.
#ifndef DATABASE_INTERFACE_SRC_HOST_HOST_LOG_H_
#define DATABASE_INTERFACE_SRC_HOST_HOST_LOG_H_

// GCC and Clang check every call's arguments against its format.
#if defined(__GNUC__)
#define DATABASE_INTERFACE_PRINTF_FORMAT(format_index, first_arg) \
  __attribute__((format(printf, format_index, first_arg)))
#else
#define DATABASE_INTERFACE_PRINTF_FORMAT(format_index, first_arg)
#endif

namespace database_interface {

// Every line this library writes reports a failure, at the host's error level.
constexpr int kLogLevelError = 60;

// Writes one line at kLogLevelError through the host's process logger, on the
// calling thread. Every conversion in `format` must be "%s" and every argument
// a NUL-terminated string; at most four arguments.
void LogError(const char* format, ...) DATABASE_INTERFACE_PRINTF_FORMAT(1, 2);

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_HOST_HOST_LOG_H_
