// Preparing, finalizing and running one statement.
#include "sql_stmt.h"

#include <climits>
#include <cstring>

#include "host/host_log.h"

namespace database_interface {

bool SqlStmt::Prepare(sqlite3* db, const char* sql) {
  std::lock_guard<std::mutex> lock(mutex);
  const int rc = sqlite3_prepare_v2(db, sql, static_cast<int>(std::strlen(sql)), &stmt, nullptr);
  if (rc == SQLITE_OK) return true;
  LogError("[database]prepare sql[%s] failed:%s", sql, sqlite3_errstr(rc));
  stmt = nullptr;
  return false;
}

void SqlStmt::Finalize() noexcept {
  std::lock_guard<std::mutex> lock(mutex);
  if (stmt == nullptr) return;
  sqlite3_finalize(stmt);
  stmt = nullptr;
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

bool StmtScope::BindText(const char* param, const char* text, int length) {
  if (m_stmt == nullptr) return false;
  const int rc = sqlite3_bind_text(m_stmt, sqlite3_bind_parameter_index(m_stmt, param), text,
                                   length, SQLITE_STATIC);
  return rc == SQLITE_OK || BindFailed(BindKind::kText, param, rc);
}

bool StmtScope::BindTextOfSize(const char* param, const char* text, size_t size) {
  // SQLite takes a text's length as an int: a longer text is refused rather
  // than silently cut.
  if (m_stmt == nullptr) return false;
  if (size > static_cast<size_t>(INT_MAX)) return BindFailed(BindKind::kText, param, SQLITE_TOOBIG);
  return BindText(param, text, static_cast<int>(size));
}

bool StmtScope::BindString(const char* param, const std::string& text) {
  return BindTextOfSize(param, text.data(), text.size());
}

bool StmtScope::BindCString(const char* param, const char* text) {
  return BindTextOfSize(param, text, std::strlen(text));
}

bool StmtScope::BindInt(const char* param, int value) {
  if (m_stmt == nullptr) return false;
  const int rc = sqlite3_bind_int(m_stmt, sqlite3_bind_parameter_index(m_stmt, param), value);
  return rc == SQLITE_OK || BindFailed(BindKind::kInt, param, rc);
}

bool StmtScope::BindInt64(const char* param, int64_t value) {
  if (m_stmt == nullptr) return false;
  const int rc = sqlite3_bind_int64(m_stmt, sqlite3_bind_parameter_index(m_stmt, param),
                                    static_cast<sqlite3_int64>(value));
  return rc == SQLITE_OK || BindFailed(BindKind::kInt64, param, rc);
}

StmtScope::Step StmtScope::Next() {
  if (m_stmt == nullptr) return Step::kFailed;
  const int rc = sqlite3_step(m_stmt);
  if (rc == SQLITE_ROW) return Step::kRow;
  if (rc == SQLITE_DONE) return Step::kDone;
  // No retry and no busy handler: SQLITE_BUSY fails the call like any code.
  LogError("[database]%s sqlite3_step with sql[%s] failed:%s", m_name, m_sql, sqlite3_errstr(rc));
  return Step::kFailed;
}

int StmtScope::Fetch() {
  switch (Next()) {
    case Step::kRow: return 1;
    case Step::kDone: return 0;
    case Step::kFailed: break;
  }
  return -1;
}

const char* StmtScope::ColumnText(int column) {
  const unsigned char* text = sqlite3_column_text(m_stmt, column);
  if (text != nullptr) return reinterpret_cast<const char*>(text);
  // The columns are NOT NULL, so no text means SQLite ran out of memory
  // converting it, unless a foreign table holds a real NULL.
  const int rc =
      sqlite3_column_type(m_stmt, column) == SQLITE_NULL ? SQLITE_MISMATCH : SQLITE_NOMEM;
  LogError("[database]%s sqlite3_column_text with sql[%s] failed:%s", m_name, m_sql,
           sqlite3_errstr(rc));
  return nullptr;
}

}  // namespace database_interface
