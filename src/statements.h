// Statement ids, their SQL texts and the qualified names of the operations
// that run them.
#ifndef DATABASE_INTERFACE_SRC_STATEMENTS_H_
#define DATABASE_INTERFACE_SRC_STATEMENTS_H_

#include <cstddef>

namespace database_interface {

// Positions in CDatabase::m_dbVersionStmts; each names the operation that
// runs the statement.
enum class DbVersionStatementId : int {
  SelectDbVersion = 0,
  InsertDbVersion = 1,
  UpdateDbVersion = 2,
};
constexpr size_t kDbVersionStmtCount = 3;

// Positions in CDatabase::m_stmts, grouped by table; each names the one
// operation that runs the statement.
enum class StatementId : int {
  SelectMessageCollectKey = 0,
  InsertMessageCollectKey = 1,
  InsertStartRecode = 2,
  DeleteStartRecode = 3,
  DeleteAllStartRecode = 4,
  SelectStartRecode = 5,
  InsertCoreRecode = 6,
  SelectAllCoreRecode = 7,
  DeleteCoreRecode = 8,
  InsertInstanceInfo = 9,
  SelectInstanceInfoWithStartRecodeId = 10,
  UpdataInstanceSessionId = 11,
  DeleteInstanceInfo = 12,
  DeleteSessionCache = 13,
  InsertSessionCache = 14,
  SelectSessionCache = 15,
  DeleteSessionCacheWithKey = 16,
  DeleteAllSessionCache = 17,
};
constexpr size_t kStmtCount = 18;

// The settings every connection runs once its tables exist (in
// statements.cpp, with the reason for each).
extern const char* const kConnectionSettingsSql;

// SQL texts, in id order. The same text is prepared and quoted in log lines.
extern const char* const kDbVersionSqls[kDbVersionStmtCount];
extern const char* const kStmtSqls[kStmtCount];

// "database_interface::CDatabase::<operation>", in id order.
extern const char* const kDbVersionStmtNames[kDbVersionStmtCount];
extern const char* const kStmtNames[kStmtCount];

constexpr size_t Index(DbVersionStatementId id) { return static_cast<size_t>(id); }
constexpr size_t Index(StatementId id) { return static_cast<size_t>(id); }

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_STATEMENTS_H_
