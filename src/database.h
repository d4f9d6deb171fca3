// CDatabase, the one implementation of IDatabaseInterface: its connection,
// lifecycle state and statement tables.
#ifndef DATABASE_INTERFACE_SRC_DATABASE_H_
#define DATABASE_INTERFACE_SRC_DATABASE_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "database_interface/database_interface.h"
#include "sql_stmt.h"
#include "statements.h"

namespace database_interface {

// Values of CDatabase::m_state.
enum DbState : int {
  kClosed = 0,   // no connection; both tables empty; Init may start
  kOpening = 1,  // an Init is running
  kReady = 2,    // open, tables complete, schema current: data operations run
  kClosing = 3,  // an Uninit is running
};

// Only ever created by std::make_shared and owned through std::shared_ptr,
// whose control block destroys it as a CDatabase.
class CDatabase final : public IDatabaseInterface, public std::enable_shared_from_this<CDatabase> {
 public:
  CDatabase() = default;
  // Finalizes every statement still held; does not close the connection.
  ~CDatabase() = default;
  CDatabase(const CDatabase&) = delete;
  CDatabase& operator=(const CDatabase&) = delete;

  int Init(const char* path) override;
  void Uninit() override;
  int SelectMessageCollectKey(std::string& message_access_key,
                              std::string& message_access_secret_key) override;
  int InsertMessageCollectKey(const char* message_access_key, int message_access_key_len,
                              const char* message_access_secret_key,
                              int message_access_secret_key_len) override;
  int InsertStartRecode(int& id, const char* sdk_version, int sdk_version_len, const char* sdk_type,
                        int sdk_type_len, int64_t start_time) override;
  int SelectStartRecode(int id, std::string& sdk_version, std::string& sdk_type,
                        int64_t& start_time) override;
  int DeleteStartRecode(int id) override;
  int DeleteAllStartRecode() override;
  int InsertCoreRecode(CoreRecode& record) override;
  int SelectAllCoreRecode(std::vector<CoreRecode>& records) override;
  int DeleteCoreRecode(int id) override;
  int InsertInstanceInfo(InstanceInfo& record) override;
  int SelectInstanceInfoWithStartRecodeId(int start_recode_id,
                                          std::vector<InstanceInfo>& records) override;
  int UpdataInstanceSessionId(int id, const char* session_id, int session_id_len) override;
  int DeleteInstanceInfo(int id) override;
  int DeleteSessionCache(int64_t expire_time) override;
  int DeleteSessionCacheWithKey(const char* session_key) override;
  int InsertSessionCache(const char* session_key, const char* session_value,
                         int64_t expire_time) override;
  int SelectSessionCache(const char* session_key, int64_t expire_time,
                         std::string& session_value) override;
  int DeleteAllSessionCache() override;

 private:
  // The ready check every data operation makes first, without a lock.
  bool IsReady() const { return m_state.load() == kReady; }

  // A run of one statement, under its lock.
  StmtScope Run(StatementId id) {
    const size_t i = Index(id);
    return {m_stmts[i], kStmtNames[i], kStmtSqls[i]};
  }
  StmtScope Run(DbVersionStatementId id) {
    const size_t i = Index(id);
    return {m_dbVersionStmts[i], kDbVersionStmtNames[i], kDbVersionSqls[i]};
  }

  // Lifecycle.
  int OpenAndPrepare(const char* path);
  int FailInit();
  void CloseConnection();
  int InitStmt(SqlStmt* table, const char* const* sqls, size_t count);
  static void FinalizeStmts(SqlStmt* table, size_t count) noexcept;

  // Runs `sql` (one or more statements) with sqlite3_exec; on failure logs
  // the exec line naming `operation` and returns -1, otherwise 0.
  int ExecSql(const char* operation, const char* sql);

  // Schema and version migration; none makes the ready check.
  int CreateTable();
  int SelectDbVersion(int& id, std::string& version);
  int InsertDbVersion();
  int UpdateDbVersion(int id);
  static int VersionSplit(std::stringstream& stream, int& major, int& minor, int& patch);
  int VersionCompare(const char* oldDbVersion, const char* newDbVersion);
  int VersionChangeDb(const std::string& oldDbVersion);
  int ReCreateTable();
  int CheckAndUpdateDb();

  // Statement slots, fixed for the object's life so that a call racing with
  // Uninit or a second Init never touches freed memory. Each statement is
  // guarded by its own slot's mutex.
  std::array<SqlStmt, kDbVersionStmtCount> m_dbVersionStmts;
  std::array<SqlStmt, kStmtCount> m_stmts;
  std::atomic<int> m_state{kClosed};  // DbState; the only guard of the lifecycle
  sqlite3* m_db = nullptr;  // owned; written only by Init and Uninit while they hold m_state
};

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_DATABASE_H_
