// The default process logger: whole lines appended to one file.
#include "file_logger.h"

#include <chrono>
#include <ctime>

#include "platform.h"

namespace base {

CFileLogger::CFileLogger(std::string path) : m_path(std::move(path)) {}

CFileLogger::~CFileLogger() { Close(); }

int CFileLogger::SetLevel(const int& level) {
  m_level.store(level);
  return 0;
}

int CFileLogger::GetLevel() const { return m_level.load(); }

int CFileLogger::SetLogFile(const std::string& path) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_file != nullptr) std::fclose(m_file);
  m_file = nullptr;
  m_path = path;
  return 0;
}

std::string CFileLogger::GetLogFile() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_path;
}

int CFileLogger::Flush() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_file != nullptr && std::fflush(m_file) != 0 ? -1 : 0;
}

int CFileLogger::Close() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_file == nullptr) return 0;
  const int rc = std::fclose(m_file);
  m_file = nullptr;
  return rc == 0 ? 0 : -1;
}

std::FILE* CFileLogger::Destination() {
  if (m_file == nullptr && !m_path.empty()) m_file = platform::OpenForAppend(m_path);
  return m_file != nullptr ? m_file : stderr;
}

int CFileLogger::WriteMessage(const int& level, const int& tid, const char* message) {
  if (!IsLevelEnabled(level)) return 0;
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto millis =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  const std::tm local = platform::LocalTime(seconds);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);

  // One fprintf per line under the lock: lines never interleave.
  std::lock_guard<std::mutex> lock(m_mutex);
  std::FILE* out = Destination();
  const int rc = std::fprintf(out, "%s.%03d [%d] [%d] %s\n", stamp, static_cast<int>(millis), level,
                              tid, message != nullptr ? message : "");
  std::fflush(out);
  return rc < 0 ? -1 : 0;
}

int CFileLogger::WriteLog(const int& level, const int& tid, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int rc = VWriteLog(level, tid, format, args);
  va_end(args);
  return rc;
}

}  // namespace base
