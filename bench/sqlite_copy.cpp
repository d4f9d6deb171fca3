// The fixture's rows written through the SQLite this file is compiled
// against, and the catching of the connections that copy opens.
#include "sqlite_copy.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <numeric>
#include <vector>

namespace database_interface::bench {
namespace {

// The last connection this copy of SQLite opened on this thread. SQLite runs
// every automatic extension inside sqlite3_open_v2, on the opening thread, so
// right after a store's Init this is the store's own connection, the
// library's included, without the library having to hand it out.
thread_local sqlite3* t_opened = nullptr;

int CatchConnection(sqlite3* db, char**, const sqlite3_api_routines*) {
  t_opened = db;
  return SQLITE_OK;
}

void* OpenCatching(IDatabaseInterface& db, const char* path) {
  static std::once_flag once;
  std::call_once(once, [] {
    // SQLite declares its entry points as void(*)(void) and calls them with
    // the extension signature.
    Require(sqlite3_auto_extension(reinterpret_cast<void (*)()>(&CatchConnection)) == SQLITE_OK,
            "sqlite3_auto_extension");
  });
  t_opened = nullptr;
  if (db.Init(path) != 0) return nullptr;
  return t_opened;
}

using BindRow = void (*)(sqlite3_stmt* stmt, const Inputs& in, uint32_t row);

void Text(sqlite3_stmt* stmt, int index, const std::string& text) {
  sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

void BindSession(sqlite3_stmt* stmt, const Inputs& in, uint32_t row) {
  Text(stmt, 1, in.session_keys[row]);
  Text(stmt, 2, in.session_value);
  sqlite3_bind_int64(stmt, 3, kFarFuture);
}

void BindStart(sqlite3_stmt* stmt, const Inputs&, uint32_t row) {
  sqlite3_bind_int64(stmt, 1, int64_t{row} + 1);
  Text(stmt, 2, "1.24.0");
  Text(stmt, 3, "desktop");
  sqlite3_bind_int64(stmt, 4, kNow + row);
}

void BindInstance(sqlite3_stmt* stmt, const Inputs& in, uint32_t row) {
  sqlite3_bind_int64(stmt, 1, int64_t{row} + 1);
  Text(stmt, 2, Inputs::InstanceNo(row));
  Text(stmt, 3, in.session_id);
  sqlite3_bind_int(stmt, 4, static_cast<int>(row % 3) + 1);
  Text(stmt, 5, "quic");
  sqlite3_bind_int64(stmt, 6, row / 10 + 1);
  sqlite3_bind_int64(stmt, 7, kNow + row);
}

void BindCore(sqlite3_stmt* stmt, const Inputs&, uint32_t row) {
  sqlite3_bind_int64(stmt, 1, int64_t{row} + 1);
  Text(stmt, 2, Inputs::DumpFilePath(row));
  Text(stmt, 3, Inputs::LogFilePath(row));
  sqlite3_bind_int64(stmt, 4, row / 10 + 1);
  sqlite3_bind_int64(stmt, 5, kNow + row);
}

constexpr const char* kPutSessionSql =
    "INSERT INTO session_cache(session_key, session_value, expire_time) VALUES(?1, ?2, ?3)";
constexpr const char* kPutStartSql =
    "INSERT INTO start_recode(id, sdk_version, sdk_type, start_time) VALUES(?1, ?2, ?3, ?4)";
constexpr const char* kPutInstanceSql =
    "INSERT INTO instance_info(id, instance_no, session_id, business_type, protocol_type, "
    "start_recode_id, create_time) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)";
constexpr const char* kPutCoreSql =
    "INSERT INTO core_recode(id, dump_file_path, log_file_path, start_recode_id, create_time) "
    "VALUES(?1, ?2, ?3, ?4, ?5)";

// Inserts rows[0, count) of one table. Requires: a transaction is open.
void PutRows(sqlite3* db, const char* sql, BindRow bind, const Inputs& in, const uint32_t* rows,
             size_t count) {
  sqlite3_stmt* stmt = nullptr;
  Require(sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK, sql);
  for (size_t i = 0; i < count; ++i) {
    bind(stmt, in, rows[i]);
    Require(sqlite3_step(stmt) == SQLITE_DONE, sql);
    sqlite3_reset(stmt);
  }
  sqlite3_finalize(stmt);
}

// How the rows of a table are put back, and in which order calls delete them.
struct PutTable {
  const char* sql;
  BindRow bind;
  std::vector<uint32_t> Inputs::*order;
};

PutTable PutTableOf(Rows rows) {
  switch (rows) {
    case Rows::kSessions: return {kPutSessionSql, BindSession, &Inputs::session_order};
    case Rows::kChildlessStarts: return {kPutStartSql, BindStart, &Inputs::childless_start_order};
    case Rows::kInstances: return {kPutInstanceSql, BindInstance, &Inputs::instance_order};
    case Rows::kCores: return {kPutCoreSql, BindCore, &Inputs::core_order};
  }
  Require(false, "no such rows");
  std::abort();
}

const SqliteCopy kLinked = {
    &sqlite3_libversion,
    &OpenCatching,
    [](void* connection, const Inputs& in) { LoadFixture(static_cast<sqlite3*>(connection), in); },
    [](void* connection, const Inputs& in, Rows rows, size_t begin, size_t count) {
      Restore(static_cast<sqlite3*>(connection), in, rows, begin, count);
    },
};

}  // namespace

const SqliteCopy& LinkedSqlite() { return kLinked; }

void LoadFixture(sqlite3* db, const Inputs& in) {
  std::vector<uint32_t> all(in.rows);
  std::iota(all.begin(), all.end(), 0u);
  MustExec(db, "BEGIN");
  PutRows(db, kPutStartSql, BindStart, in, all.data(), all.size());
  PutRows(db, kPutInstanceSql, BindInstance, in, all.data(), all.size());
  PutRows(db, kPutCoreSql, BindCore, in, all.data(), all.size());
  PutRows(db, kPutSessionSql, BindSession, in, all.data(), all.size());
  MustExec(db,
           "INSERT INTO message_collect_key(message_access_key, message_access_secret_key) "
           "VALUES('AKIDz8krbsJ5yKBZQpn74WFkmLPx3EXAMPLE', "
           "'Gu5t9xGARNpq86cd98joQYCN3EXAMPLEsecretKEY')");
  MustExec(db, "COMMIT");
}

void Restore(sqlite3* db, const Inputs& in, Rows rows, size_t begin, size_t count) {
  const PutTable put = PutTableOf(rows);
  const std::vector<uint32_t>& order = in.*put.order;
  Require(begin + count <= order.size(), "rows to restore");
  MustExec(db, "BEGIN");
  PutRows(db, put.sql, put.bind, in, order.data() + begin, count);
  MustExec(db, "COMMIT");
}

void CopyDatabase(sqlite3* image, sqlite3* db) {
  sqlite3_backup* backup = sqlite3_backup_init(db, "main", image, "main");
  Require(backup != nullptr, "sqlite3_backup_init");
  Require(sqlite3_backup_step(backup, -1) == SQLITE_DONE, "sqlite3_backup_step");
  Require(sqlite3_backup_finish(backup) == SQLITE_OK, "sqlite3_backup_finish");
}

void MustExec(sqlite3* db, const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) == SQLITE_OK) return;
  std::fprintf(stderr, "bench: [%s] failed: %s\n", sql, message != nullptr ? message : "?");
  std::abort();
}

}  // namespace database_interface::bench
