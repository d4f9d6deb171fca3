// The default process logger: whole lines appended to one file.
#ifndef BASE_SRC_FILE_LOGGER_H_
#define BASE_SRC_FILE_LOGGER_H_

#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

#include "base/base.h"

namespace base {

// Writes "YYYY-MM-DD hh:mm:ss.mmm [level] [tid] message" lines. The file is
// opened on the first line written; when it cannot be opened, lines go to
// standard error instead, so nothing is lost silently.
class CFileLogger final : public IBaseLogInterface {
 public:
  explicit CFileLogger(std::string path);
  ~CFileLogger() override;

  int SetLevel(const int& level) override;
  int GetLevel() const override;
  int SetLogFile(const std::string& path) override;
  std::string GetLogFile() const override;
  int Flush() override;
  int WriteMessage(const int& level, const int& tid, const char* message) override;
  int Close() override;
  int WriteLog(const int& level, const int& tid, const char* format, ...) override
      BASE_PRINTF_FORMAT(4, 5);

 private:
  // Requires: m_mutex held.
  std::FILE* Destination();

  std::atomic<int> m_level{0};
  mutable std::mutex m_mutex;  // guards m_path and m_file; one line at a time
  std::string m_path;
  std::FILE* m_file = nullptr;
};

}  // namespace base

#endif  // BASE_SRC_FILE_LOGGER_H_
