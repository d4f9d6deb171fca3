// The session cache: CDatabase members on session_cache.
#include "database.h"

namespace database_interface {

int CDatabase::DeleteSessionCache(int64_t expire_time) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::DeleteSessionCache);
  if (!scope.BindInt64(":expire_time", expire_time)) return -1;
  return scope.Exec();
}

int CDatabase::DeleteSessionCacheWithKey(const char* session_key) {
  if (!IsReady() || session_key == nullptr) return -1;
  StmtScope scope = Run(StatementId::DeleteSessionCacheWithKey);
  if (!scope.BindCString(":session_key", session_key)) return -1;
  return scope.Exec();
}

int CDatabase::InsertSessionCache(const char* session_key, const char* session_value,
                                  int64_t expire_time) {
  if (!IsReady() || session_key == nullptr || session_value == nullptr) return -1;
  StmtScope scope = Run(StatementId::InsertSessionCache);
  // REPLACE on the unique key: the last write for a key wins.
  if (!scope.BindCString(":session_key", session_key) ||
      !scope.BindCString(":session_value", session_value) ||
      !scope.BindInt64(":expire_time", expire_time)) {
    return -1;
  }
  return scope.Exec();
}

int CDatabase::SelectSessionCache(const char* session_key, int64_t expire_time,
                                  std::string& session_value) {
  if (!IsReady() || session_key == nullptr) return -1;
  StmtScope scope = Run(StatementId::SelectSessionCache);
  if (!scope.BindCString(":session_key", session_key) ||
      !scope.BindInt64(":expire_time", expire_time)) {
    return -1;
  }
  int count = 0;
  StmtScope::Step step;
  while ((step = scope.Next()) == StmtScope::Step::kRow) {
    const char* value = scope.ColumnText(0);
    if (value == nullptr) return -1;
    session_value = value;
    ++count;
  }
  return step == StmtScope::Step::kDone ? count : -1;
}

int CDatabase::DeleteAllSessionCache() {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::DeleteAllSessionCache);
  return scope.Exec();
}

}  // namespace database_interface
