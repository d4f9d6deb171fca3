// CDatabase lifecycle: Init, its failure path, Uninit and InitStmt.
#include "database.h"

#include "base/base.h"
#include "host/host_log.h"
#include "private_file.h"

namespace database_interface {
namespace {

constexpr int kOpenFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
constexpr const char* kForeignKeysSql = "PRAGMA foreign_keys = ON;";

// What the file, which someone else may have written, may do. The library
// uses no trigger or view of its own (its cascades are foreign keys), so
// those the file holds are never run; no SQL, the file's own schema included,
// may switch the safeguards against a corrupt file off; and should a trigger
// or view be run after all, it calls no function that is not innocuous.
struct DbConfig {
  int op;
  const char* name;
  int value;
};
constexpr DbConfig kDbConfigs[] = {
    {SQLITE_DBCONFIG_ENABLE_TRIGGER, "SQLITE_DBCONFIG_ENABLE_TRIGGER", 0},
    {SQLITE_DBCONFIG_ENABLE_VIEW, "SQLITE_DBCONFIG_ENABLE_VIEW", 0},
    {SQLITE_DBCONFIG_DEFENSIVE, "SQLITE_DBCONFIG_DEFENSIVE", 1},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, "SQLITE_DBCONFIG_TRUSTED_SCHEMA", 0},
};

}  // namespace

int CDatabase::Init(const char* path) {
  if (path == nullptr) return -1;
  int expected = kClosed;
  if (!m_state.compare_exchange_strong(expected, kOpening)) return -1;
  try {
    if (OpenAndPrepare(path) != 0) return FailInit();
  } catch (...) {
    // An exception (a stored version that is not a number, an allocation
    // failure) must not leave the object stuck in kOpening with its
    // connection open: restore kClosed, then let it pass on unchanged.
    FailInit();
    throw;
  }
  m_state.exchange(kReady);
  return 0;
}

int CDatabase::OpenAndPrepare(const char* path) {
  const std::string utf8 = base::CPathUtil::ToUtf8Path(path);
  if (utf8.empty()) {
    LogError("[database]Convert sqlite3 file path[%s] failed", path);
    return -1;
  }
  const bool created = CreatePrivateFile(utf8);
  // SQLite hands back a handle even when the open fails (unless it runs out
  // of memory); the failure path closes it.
  int rc = sqlite3_open_v2(utf8.c_str(), &m_db, kOpenFlags, nullptr);
  if (rc != SQLITE_OK) {
    if (created) RemovePrivateFile(utf8);
    LogError("[database]Open sqlite3 file[%s] failed:%s", utf8.c_str(), sqlite3_errstr(rc));
    return -1;
  }
  for (const DbConfig& config : kDbConfigs) {
    rc = sqlite3_db_config(m_db, config.op, config.value, nullptr);
    if (rc != SQLITE_OK) {
      LogError("[database]%s sqlite3_db_config with op[%s] failed:%s",
               "database_interface::CDatabase::Init", config.name, sqlite3_errstr(rc));
      return -1;
    }
  }
  // Foreign keys are on before any table is created or written, so the
  // cascades from start_recode hold for every row.
  if (ExecSql("database_interface::CDatabase::Init", kForeignKeysSql) != 0) return -1;
  if (CreateTable() != 0) {
    LogError("[database]CreateTable failed");
    return -1;
  }
  // The settings come only now. journal_mode and synchronous read the schema
  // first, so run earlier they would be the first statement to meet a file
  // that is no database or is locked, and fail Init with their own line
  // instead of CreateTable's. Here the schema is already read and they touch
  // nothing of the file. Durability loses nothing by the wait: CreateTable's
  // commits run under SQLite's defaults, a power cut can at worst roll one of
  // them back, every CREATE text is idempotent and runs again at the next
  // Init, and no call has been acknowledged yet. Every commit from the
  // version row on runs under the settings.
  if (ExecSql("database_interface::CDatabase::Init", kConnectionSettingsSql) != 0) return -1;
  if (InitStmt(m_dbVersionStmts.data(), kDbVersionSqls, kDbVersionStmtCount) != 0) {
    LogError("[database]InitStmt failed");
    return -1;
  }
  if (CheckAndUpdateDb() != 0) {
    LogError("[database]CheckAndUpdateDb failed");
    return -1;
  }
  // The record statements are compiled only now: the migration may have
  // dropped and recreated their tables.
  if (InitStmt(m_stmts.data(), kStmtSqls, kStmtCount) != 0) {
    LogError("[database]InitStmt failed");
    return -1;
  }
  return 0;
}

int CDatabase::ExecSql(const char* operation, const char* sql) {
  const int rc = sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr);
  if (rc == SQLITE_OK) return 0;
  LogError("[database]%s sqlite3_exec with sql[%s] failed:%s", operation, sql, sqlite3_errstr(rc));
  return -1;
}

void CDatabase::CloseConnection() {
  if (m_db == nullptr) return;
  // sqlite3_close_v2 accepts a connection whose statements are not finalized
  // yet and completes the close when the last one is.
  const int rc = sqlite3_close_v2(m_db);
  if (rc != SQLITE_OK) LogError("[database]Close sqlite3 failed:%s", sqlite3_errstr(rc));
  m_db = nullptr;
}

int CDatabase::FailInit() {
  CloseConnection();
  FinalizeStmts(m_dbVersionStmts.data(), kDbVersionStmtCount);
  FinalizeStmts(m_stmts.data(), kStmtCount);
  m_state.exchange(kClosed);
  return -1;
}

void CDatabase::Uninit() {
  int expected = kReady;
  if (!m_state.compare_exchange_strong(expected, kClosing)) return;
  // A call that passed its ready check before the exchange either finishes
  // first (Finalize waits for its lock) or finds its slot empty and fails.
  FinalizeStmts(m_dbVersionStmts.data(), kDbVersionStmtCount);
  FinalizeStmts(m_stmts.data(), kStmtCount);
  CloseConnection();
  m_state.exchange(kClosed);
}

int CDatabase::InitStmt(SqlStmt* table, const char* const* sqls, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (!table[i].Prepare(m_db, sqls[i])) {
      // The table is all or nothing: the statements before it are finalized.
      FinalizeStmts(table, i);
      return -1;
    }
  }
  return 0;
}

void CDatabase::FinalizeStmts(SqlStmt* table, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i) table[i].Finalize();
}

}  // namespace database_interface
