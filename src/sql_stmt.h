// SqlStmt, one prepared statement with its lock, and StmtScope, the single
// way a statement is run: lock, bind by name, step, read, reset, unlock.
#ifndef DATABASE_INTERFACE_SRC_SQL_STMT_H_
#define DATABASE_INTERFACE_SRC_SQL_STMT_H_

#include <sqlite3.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

  // The most parameters any of the library's statements has.
  static constexpr int kMaxParams = 6;

  // Prepares `sql` on `db` and notes its parameter names. On failure logs one
  // line, leaves `stmt` null and returns false. Requires: an empty slot.
  bool Prepare(sqlite3* db, const char* sql);
  // Finalizes the statement, if any; the slot is empty afterwards.
  void Finalize() noexcept;

  std::mutex mutex;              // serialises every use of the fields below
  sqlite3_stmt* stmt = nullptr;  // guarded by `mutex`
  // Parameter names by index (1-based, colon included), owned by `stmt`:
  // binds find their index here instead of searching the statement.
  std::array<const char*, kMaxParams + 1> params{};
  int param_count = 0;
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
      : m_lock(entry.mutex), m_entry(entry), m_stmt(entry.stmt), m_name(name), m_sql(sql) {}
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
  bool BindText(const char* param, const char* text, int length) {  // length as given
    if (m_stmt == nullptr) return false;
    const int rc = sqlite3_bind_text(m_stmt, ParamIndex(param), text, length, SQLITE_STATIC);
    return rc == SQLITE_OK || BindFailed(BindKind::kText, param, rc);
  }
  bool BindString(const char* param, const std::string& text) {  // its size()
    return BindTextOfSize(param, text.data(), text.size());
  }
  bool BindCString(const char* param, const char* text) {  // up to its NUL
    return BindTextOfSize(param, text, std::strlen(text));
  }
  bool BindInt(const char* param, int value) {
    if (m_stmt == nullptr) return false;
    const int rc = sqlite3_bind_int(m_stmt, ParamIndex(param), value);
    return rc == SQLITE_OK || BindFailed(BindKind::kInt, param, rc);
  }
  bool BindInt64(const char* param, int64_t value) {
    if (m_stmt == nullptr) return false;
    const int rc = sqlite3_bind_int64(m_stmt, ParamIndex(param), value);
    return rc == SQLITE_OK || BindFailed(BindKind::kInt64, param, rc);
  }

  // Steps once; logs any code but SQLITE_ROW and SQLITE_DONE. No retry and no
  // busy handler: SQLITE_BUSY fails the call like any other code.
  Step Next() {
    if (m_stmt == nullptr) return Step::kFailed;
    const int rc = sqlite3_step(m_stmt);
    if (rc == SQLITE_ROW) return Step::kRow;
    if (rc == SQLITE_DONE) return Step::kDone;
    return StepFailed(rc);
  }
  // For statements that yield no row: 0 on ROW or DONE, -1 on failure.
  int Exec() { return Next() == Step::kFailed ? -1 : 0; }
  // For single-row statements: 1 on a row (read it now), 0 on none, -1.
  int Fetch() {
    const Step step = Next();
    return step == Step::kRow ? 1 : step == Step::kDone ? 0 : -1;
  }
  // For an INSERT ... RETURNING id: 1 with `id` set once the row is
  // committed, 0 when no row came back, -1 on failure; `id` is written only on
  // 1. The insert makes its change in the first step but commits only when
  // the statement completes: completing it here, not in the reset, reports a
  // failed commit instead of acknowledging a row that was rolled back.
  int FetchInsertedId(int& id) {
    const int rc = Fetch();
    if (rc != 1) return rc;
    const int new_id = ColumnInt(0);
    Step step;
    while ((step = Next()) == Step::kRow) {
    }
    if (step != Step::kDone) return -1;
    id = new_id;
    return 1;
  }

  // Column readers. Requires: the last Next() gave kRow.
  int ColumnInt(int column) { return sqlite3_column_int(m_stmt, column); }
  int64_t ColumnInt64(int column) { return sqlite3_column_int64(m_stmt, column); }
  // The column's text, or null after logging when SQLite yields none (a NULL
  // value, or SQLite out of memory).
  const char* ColumnText(int column) {
    const unsigned char* text = sqlite3_column_text(m_stmt, column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : ColumnTextFailed(column);
  }

 private:
  enum class BindKind { kText, kInt, kInt64 };

  // Operations bind in the order their parameters appear, so the next index
  // is tried first; the name is always checked, and searched for if another.
  int ParamIndex(const char* param) {
    int index = m_next_param;
    // Null past the noted names, and for a "?" parameter, which has none.
    const char* noted =
        index <= m_entry.param_count ? m_entry.params[static_cast<size_t>(index)] : nullptr;
    if (noted == nullptr || std::strcmp(noted, param) != 0) {
      index = sqlite3_bind_parameter_index(m_stmt, param);
    }
    m_next_param = index + 1;
    return index;
  }
  bool BindTextOfSize(const char* param, const char* text, size_t size) {
    // SQLite takes a text's length as an int: a longer text is refused rather
    // than silently cut.
    if (m_stmt != nullptr && size > static_cast<size_t>(INT_MAX)) {
      return BindFailed(BindKind::kText, param, SQLITE_TOOBIG);
    }
    return BindText(param, text, static_cast<int>(size));
  }
  // The failure paths log their line; kept out of line, off the fast path.
  bool BindFailed(BindKind kind, const char* param, int rc);
  Step StepFailed(int rc);
  const char* ColumnTextFailed(int column);

  std::lock_guard<std::mutex> m_lock;
  const SqlStmt& m_entry;
  sqlite3_stmt* const m_stmt;
  const char* const m_name;
  const char* const m_sql;
  int m_next_param = 1;
};

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_SQL_STMT_H_
