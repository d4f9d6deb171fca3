// Default operations of IBaseLogInterface and the process logger registry.
#include <cstdio>
#include <mutex>
#include <vector>

#include "base/base.h"
#include "file_logger.h"
#include "platform.h"

namespace base {

IBaseLogInterface::~IBaseLogInterface() = default;

int IBaseLogInterface::SetLevel(const int& /*level*/) { return -1; }

int IBaseLogInterface::GetLevel() const { return 0; }

bool IBaseLogInterface::IsLevelEnabled(const int& level) const { return level >= GetLevel(); }

int IBaseLogInterface::SetLogFile(const std::string& /*path*/) { return -1; }

std::string IBaseLogInterface::GetLogFile() const { return std::string(); }

int IBaseLogInterface::Flush() { return 0; }

int IBaseLogInterface::WriteMessage(const int& level, const int& tid, const char* message) {
  return WriteLog(level, tid, "%s", message != nullptr ? message : "");
}

int IBaseLogInterface::VWriteLog(const int& level, const int& tid, const char* format,
                                 va_list args) {
  if (format == nullptr) return -1;
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  if (length < 0) return -1;
  std::vector<char> buffer(static_cast<size_t>(length) + 1);
  std::vsnprintf(buffer.data(), buffer.size(), format, args);
  return WriteMessage(level, tid, buffer.data());
}

int IBaseLogInterface::Close() { return 0; }

std::shared_ptr<IBaseLogInterface> IBaseLogInterface::GetLogInstance(
    std::shared_ptr<IBaseLogInterface> logger) {
  static std::mutex mutex;
  static std::shared_ptr<IBaseLogInterface> instance;
  std::lock_guard<std::mutex> lock(mutex);
  if (logger) {
    instance = std::move(logger);
  } else if (!instance) {
    instance = std::make_shared<CFileLogger>(platform::DefaultLogFile());
  }
  return instance;
}

}  // namespace base
