// What the fuzz targets share: a check that aborts, a logger keeping every line.
#ifndef DATABASE_INTERFACE_FUZZ_FUZZ_UTIL_H_
#define DATABASE_INTERFACE_FUZZ_FUZZ_UTIL_H_

#include <sqlite3.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/base.h"
#include "database_interface/database_interface.h"

namespace database_interface::fuzz {

[[noreturn]] inline void Fail(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
  std::abort();
}
#define CHECK(condition) \
  ((condition) ? void() : database_interface::fuzz::Fail(#condition, __FILE__, __LINE__))

class Logger final : public base::IBaseLogInterface {
 public:
  BASE_PRINTF_FORMAT(4, 5)
  int WriteLog(const int& /*level*/, const int& /*tid*/, const char* format, ...) override {
    va_list args;
    va_start(args, format);
    char line[2048];
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    lines.emplace_back(line);
    return 0;
  }
  std::vector<std::string> Take() { return std::exchange(lines, {}); }
  std::vector<std::string> lines;
};

// The process logger, installed before main, so before any line. SQLite is
// configured first: no lookaside or bulk page-cache blocks, so that
// AddressSanitizer sees SQLite's objects one by one.
inline Logger* const g_logger = [] {
  CHECK(sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) == SQLITE_OK);
  CHECK(sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0) == SQLITE_OK);
  static const std::shared_ptr<Logger> logger = std::make_shared<Logger>();
  return static_cast<Logger*>(base::IBaseLogInterface::GetLogInstance(logger).get());
}();

}  // namespace database_interface::fuzz

#endif  // DATABASE_INTERFACE_FUZZ_FUZZ_UTIL_H_
