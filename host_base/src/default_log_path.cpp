// The host's default log directory.
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "base/base.h"

namespace base {

std::string IBaseLogInterface::GetDefaultLogPath() {
  // An explicit setting is returned untouched, separator or not.
  if (const char* configured = std::getenv("BASE_LOG_PATH")) return configured;

  std::filesystem::path dir;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state != '\0') {
    dir = std::filesystem::path(state) / "base" / "log";
  } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
    dir = std::filesystem::path(home) / ".local" / "state" / "base" / "log";
  } else {
    std::error_code ec;
    dir = std::filesystem::temp_directory_path(ec) / "base" / "log";
  }
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  std::string result = dir.string();
  if (result.empty() || result.back() != '/') result.push_back('/');
  return result;
}

}  // namespace base
