// Preparing, finalizing and running one statement.
#include "sql_stmt.h"

#include <algorithm>
#include <cstring>

#include "host/host_log.h"

namespace database_interface {

bool SqlStmt::Prepare(sqlite3* db, const char* sql) {
  std::lock_guard<std::mutex> lock(mutex);
  const int rc = sqlite3_prepare_v2(db, sql, static_cast<int>(std::strlen(sql)), &stmt, nullptr);
  if (rc != SQLITE_OK) {
    LogError("[database]prepare sql[%s] failed:%s", sql, sqlite3_errstr(rc));
    stmt = nullptr;
    return false;
  }
  param_count = std::min(sqlite3_bind_parameter_count(stmt), kMaxParams);
  for (int i = 1; i <= param_count; ++i)
    params[static_cast<size_t>(i)] = sqlite3_bind_parameter_name(stmt, i);
  return true;
}

void SqlStmt::Finalize() noexcept {
  std::lock_guard<std::mutex> lock(mutex);
  if (stmt == nullptr) return;
  sqlite3_finalize(stmt);
  stmt = nullptr;
  params.fill(nullptr);
  param_count = 0;
}

bool StmtScope::BindFailed(BindKind kind, const char* param, int rc) {
  // One literal format per kind, so the compiler checks each argument list.
  switch (kind) {
    case BindKind::kText:
      LogError("[database]%s sqlite3_bind_text with sql[%s] at[%s] failed:%s", m_name, m_sql, param,
               sqlite3_errstr(rc));
      break;
    case BindKind::kInt:
      LogError("[database]%s sqlite3_bind_int with sql[%s] at[%s] failed:%s", m_name, m_sql, param,
               sqlite3_errstr(rc));
      break;
    case BindKind::kInt64:
      LogError("[database]%s sqlite3_bind_int64 with sql[%s] at[%s] failed:%s", m_name, m_sql,
               param, sqlite3_errstr(rc));
      break;
  }
  return false;
}

StmtScope::Step StmtScope::StepFailed(int rc) {
  LogError("[database]%s sqlite3_step with sql[%s] failed:%s", m_name, m_sql, sqlite3_errstr(rc));
  return Step::kFailed;
}

const char* StmtScope::ColumnTextFailed(int column) {
  // The columns are NOT NULL, so no text means SQLite ran out of memory
  // converting it, unless a foreign table holds a real NULL.
  const int rc =
      sqlite3_column_type(m_stmt, column) == SQLITE_NULL ? SQLITE_MISMATCH : SQLITE_NOMEM;
  LogError("[database]%s sqlite3_column_text with sql[%s] failed:%s", m_name, m_sql,
           sqlite3_errstr(rc));
  return nullptr;
}

}  // namespace database_interface
