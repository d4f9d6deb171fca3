// What base does differently on each system, behind one header:
// platform_posix.cpp or platform_windows.cpp, whichever the build chose, also
// defines GetTid, GetDefaultLogPath and ToUtf8Path of base/base.h.
#ifndef BASE_SRC_PLATFORM_H_
#define BASE_SRC_PLATFORM_H_

#include <cstdio>
#include <ctime>
#include <string>

namespace base {
namespace platform {

// The default logger's file: base.log in the default log directory, named
// the way the logger names files (see OpenForAppend).
std::string DefaultLogFile();

// Opens the file at `path` for appending, creating it when missing; null on
// failure. The path is bytes on POSIX systems and UTF-8 on Windows.
std::FILE* OpenForAppend(const std::string& path);

// The local calendar time of `seconds`, thread-safe.
std::tm LocalTime(std::time_t seconds);

}  // namespace platform
}  // namespace base

#endif  // BASE_SRC_PLATFORM_H_
