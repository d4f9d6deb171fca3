// SqlStmt, one prepared statement with its lock, and StmtScope, the single
// way a statement is run: lock, bind by name, step, read, reset, unlock.
#ifndef DATABASE_INTERFACE_SRC_SQL_STMT_H_
#define DATABASE_INTERFACE_SRC_SQL_STMT_H_

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

namespace database_interface {

// One statement slot of a CDatabase. The slot lives as long as the object;
// the statement in it is prepared by Init and finalized by Uninit, both under
// `mutex`, so a call that takes the lock sees either a usable statement or
// none, never a finalized one.
struct SqlStmt {
  SqlStmt() = default;
  ~SqlStmt() { Finalize(); }
  SqlStmt(const SqlStmt&) = delete;
  SqlStmt& operator=(const SqlStmt&) = delete;

  // Prepares `sql` on `db`. On failure logs one line, leaves `stmt` null and
  // returns false. Requires: no statement in the slot.
  bool Prepare(sqlite3* db, const char* sql);
  // Finalizes the statement, if any; the slot is empty afterwards.
  void Finalize() noexcept;

  std::mutex mutex;              // serialises every use of `stmt`
  sqlite3_stmt* stmt = nullptr;  // guarded by `mutex`
};

// One run of a statement, from lock to reset. Every failing call writes its
// one log line, naming the operation, the SQL text and the parameter, never a
// bound value. The destructor resets the statement on every path, exceptions
// included, so no read transaction is left open and no bound text outlives
// the caller's memory.
//
// A slot found empty under the lock means the object was closed after the
// caller's ready check: every call then fails without a log line, like the
// ready check itself.
//
// Requires: `name` and `sql` outlive the scope.
class StmtScope {
 public:
  enum class Step { kRow, kDone, kFailed };

  StmtScope(SqlStmt& entry, const char* name, const char* sql)
      : m_lock(entry.mutex), m_stmt(entry.stmt), m_name(name), m_sql(sql) {}
  // The reset runs in the body, the lock is released when the member is
  // destroyed afterwards: reset always happens under the lock.
  ~StmtScope() {
    if (m_stmt != nullptr) sqlite3_reset(m_stmt);
  }
  StmtScope(const StmtScope&) = delete;
  StmtScope& operator=(const StmtScope&) = delete;

  // Binds by parameter name (colon included). Texts are bound without a copy:
  // sound because the step and the reset both happen before the scope ends,
  // while the caller's text is still alive. Each returns false after logging.
  bool BindText(const char* param, const char* text, int length);  // length as given
  bool BindString(const char* param, const std::string& text);     // its size()
  bool BindCString(const char* param, const char* text);           // up to its NUL
  bool BindInt(const char* param, int value);
  bool BindInt64(const char* param, int64_t value);

  // Steps once; logs any code but SQLITE_ROW and SQLITE_DONE.
  Step Next();
  // For statements that yield no row: 0 on ROW or DONE, -1 on failure.
  int Exec() { return Next() == Step::kFailed ? -1 : 0; }
  // For single-row statements: 1 on a row (read it now), 0 on none, -1.
  int Fetch();

  // Column readers. Requires: the last Next() gave kRow.
  int ColumnInt(int column) { return sqlite3_column_int(m_stmt, column); }
  int64_t ColumnInt64(int column) { return sqlite3_column_int64(m_stmt, column); }
  // The column's text, or null after logging when SQLite yields none (a NULL
  // value, or SQLite out of memory).
  const char* ColumnText(int column);

 private:
  bool BindTextOfSize(const char* param, const char* text, size_t size);
  enum class BindKind { kText, kInt, kInt64 };
  bool BindFailed(BindKind kind, const char* param, int rc);

  std::lock_guard<std::mutex> m_lock;
  sqlite3_stmt* const m_stmt;
  const char* const m_name;
  const char* const m_sql;
};

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_SQL_STMT_H_
