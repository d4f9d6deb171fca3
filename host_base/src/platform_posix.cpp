// base on POSIX systems: the kernel thread id, the XDG state directory, paths
// as bytes that must be UTF-8 already.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "base/base.h"
#include "platform.h"

namespace base {
namespace {

// Well-formed UTF-8 as Unicode defines it: no overlong forms, no surrogates,
// nothing above U+10FFFF.
bool IsValidUtf8(const unsigned char* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    const unsigned char c = s[i];
    size_t extra = 0;
    unsigned char lo = 0x80;
    unsigned char hi = 0xBF;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (n - i <= extra) return false;
    if (s[i + 1] < lo || s[i + 1] > hi) return false;
    for (size_t k = 2; k <= extra; ++k) {
      if (s[i + k] < 0x80 || s[i + k] > 0xBF) return false;
    }
    i += extra + 1;
  }
  return true;
}

}  // namespace

int GetTid() {
  // Cached per thread: the id of a thread never changes.
  thread_local const int tid = static_cast<int>(::syscall(SYS_gettid));
  return tid;
}

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
  // Every directory made here is its user's alone: the store in it holds
  // secrets. One that exists keeps the mode its owner gave it.
  std::filesystem::path made;
  for (const std::filesystem::path& part : dir) {
    made /= part;
    ::mkdir(made.c_str(), 0700);
  }
  std::string result = dir.string();
  if (result.empty() || result.back() != '/') result.push_back('/');
  return result;
}

std::string CPathUtil::ToUtf8Path(const char* path) {
  if (path == nullptr || *path == '\0') return std::string();
  const size_t length = std::strlen(path);
  if (!IsValidUtf8(reinterpret_cast<const unsigned char*>(path), length)) return std::string();
  return std::string(path, length);
}

namespace platform {

std::string DefaultLogFile() { return IBaseLogInterface::GetDefaultLogPath() + "base.log"; }

// A new log file is its user's alone, like the directory it is in.
std::FILE* OpenForAppend(const std::string& path) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  std::FILE* file = fd == -1 ? nullptr : ::fdopen(fd, "a");
  if (file == nullptr && fd != -1) ::close(fd);
  return file;
}

std::tm LocalTime(std::time_t seconds) {
  std::tm local{};
  localtime_r(&seconds, &local);
  return local;
}

}  // namespace platform
}  // namespace base
