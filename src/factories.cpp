// The two factories and the first-use opening of the process-wide object.
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
  static std::once_flag opened;
  // Concurrent first callers wait here until the open and the purge are done.
  // An exception leaves the flag unset, so the next call tries again.
  std::call_once(opened, [] {
    const std::string path = base::IBaseLogInterface::GetDefaultLogPath() + kDbFileName;
    if (instance->Init(path.c_str()) == 0) {
      instance->DeleteSessionCache(NowMillisecondsSinceEpoch());
    }
  });
  return instance;
}

}  // namespace database_interface
