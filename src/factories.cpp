// The two factories and the first-use opening of the process-wide object.
#include <atomic>
#include <chrono>
#include <mutex>

#include "base/base.h"
#include "database.h"

namespace database_interface {
namespace {

constexpr const char* kDbFileName = "qzdata";

int64_t NowMillisecondsSinceEpoch() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

std::shared_ptr<IDatabaseInterface> IDatabaseInterface::CreateDatabaseInterface() {
  return std::make_shared<CDatabase>();
}

std::shared_ptr<IDatabaseInterface> IDatabaseInterface::GetDbInstance() {
  static const std::shared_ptr<IDatabaseInterface> instance = std::make_shared<CDatabase>();
  // Exactly once, with concurrent first callers waiting until the open and
  // the purge are done; an exception leaves it not done, so the next call
  // tries again. A flag under a mutex rather than std::call_once: with some
  // thread libraries (MinGW's winpthreads, ThreadSanitizer's interceptor) a
  // call_once whose function threw blocks every later call for good.
  static std::atomic<bool> opened{false};
  if (!opened.load(std::memory_order_acquire)) {
    static std::mutex opening;
    const std::lock_guard<std::mutex> lock(opening);
    if (!opened.load(std::memory_order_relaxed)) {
      const std::string path = base::IBaseLogInterface::GetDefaultLogPath() + kDbFileName;
      if (instance->Init(path.c_str()) == 0) {
        instance->DeleteSessionCache(NowMillisecondsSinceEpoch());
      }
      opened.store(true, std::memory_order_release);
    }
  }
  return instance;
}

}  // namespace database_interface
