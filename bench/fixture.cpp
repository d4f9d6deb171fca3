// The benchmark fixture: its arguments, and its rows written through SQLite.
#include "fixture.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>

#include "stores.h"

namespace database_interface::bench {
namespace {

constexpr size_t kPickCount = size_t{1} << 16;
constexpr size_t kAbsentCount = 1024;

// prefix, i in ten digits, suffix.
std::string Numbered(const char* prefix, uint32_t i, const char* suffix) {
  char text[96];
  std::snprintf(text, sizeof text, "%s%010u%s", prefix, i, suffix);
  return text;
}

std::vector<uint32_t> Shuffled(uint32_t first, uint32_t last, std::mt19937& rng) {
  std::vector<uint32_t> order(last - first);
  std::iota(order.begin(), order.end(), first);
  std::shuffle(order.begin(), order.end(), rng);
  return order;
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
  Text(stmt, 2, Numbered("instance-", row, ""));
  Text(stmt, 3, in.session_id);
  sqlite3_bind_int(stmt, 4, static_cast<int>(row % 3) + 1);
  Text(stmt, 5, "quic");
  sqlite3_bind_int64(stmt, 6, row / 10 + 1);
  sqlite3_bind_int64(stmt, 7, kNow + row);
}

void BindCore(sqlite3_stmt* stmt, const Inputs&, uint32_t row) {
  sqlite3_bind_int64(stmt, 1, int64_t{row} + 1);
  Text(stmt, 2, Numbered("/var/log/host/dump/", row, ".dmp"));
  Text(stmt, 3, Numbered("/var/log/host/log/", row, ".log"));
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

void Restore(sqlite3* db, const char* sql, BindRow bind, const Inputs& in,
             const std::vector<uint32_t>& order, size_t begin, size_t count) {
  MustExec(db, "BEGIN");
  PutRows(db, sql, bind, in, order.data() + begin, count);
  MustExec(db, "COMMIT");
}

}  // namespace

Inputs::Inputs(size_t rows_) : rows(rows_) {
  Require(rows >= 100 && rows % 10 == 0, "fixture rows: a multiple of 10, at least 100");
  const auto n = static_cast<uint32_t>(rows);
  session_keys.reserve(rows);
  for (uint32_t i = 0; i < n; ++i) session_keys.push_back(Numbered("session/", i, "/ticket"));
  for (uint32_t i = 0; i < kAbsentCount; ++i) {
    absent_keys.push_back(Numbered("absent/", i, "/ticket"));
  }
  for (size_t i = 0; i < 64; ++i) session_value.push_back(static_cast<char>('a' + i % 26));
  session_id = "6f1c2a9e-51d4-4c8b-9a2e-0d3b7e5f1a64";
  // A prime count, so that no stride of calls keeps finding its own value.
  for (uint32_t i = 0; i < 257; ++i) {
    new_session_ids.push_back(Numbered("6f1c2a9e-51d4-4c8b-9a2e-", i, "ab"));
  }

  std::mt19937 rng(static_cast<uint32_t>(20261123u + n));
  std::uniform_int_distribution<uint32_t> pick(0, n - 1);
  picks.resize(kPickCount);
  for (uint32_t& p : picks) p = pick(rng);
  session_order = Shuffled(0, n, rng);
  childless_start_order = Shuffled(n / 10, n, rng);
  instance_order = Shuffled(0, n, rng);
  core_order = Shuffled(0, n, rng);
}

sqlite3* LibraryImage() {
  static const std::unique_ptr<OpenStore> library = Open(Variant::kLib, Medium::kMemory);
  return library->handle;
}

void CopyDatabase(sqlite3* image, sqlite3* db) {
  sqlite3_backup* backup = sqlite3_backup_init(db, "main", image, "main");
  Require(backup != nullptr, "sqlite3_backup_init");
  Require(sqlite3_backup_step(backup, -1) == SQLITE_DONE, "sqlite3_backup_step");
  Require(sqlite3_backup_finish(backup) == SQLITE_OK, "sqlite3_backup_finish");
}

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

void RestoreSessions(sqlite3* db, const Inputs& in, size_t begin, size_t count) {
  Restore(db, kPutSessionSql, BindSession, in, in.session_order, begin, count);
}

void RestoreChildlessStarts(sqlite3* db, const Inputs& in, size_t begin, size_t count) {
  Restore(db, kPutStartSql, BindStart, in, in.childless_start_order, begin, count);
}

void RestoreInstances(sqlite3* db, const Inputs& in, size_t begin, size_t count) {
  Restore(db, kPutInstanceSql, BindInstance, in, in.instance_order, begin, count);
}

void RestoreCores(sqlite3* db, const Inputs& in, size_t begin, size_t count) {
  Restore(db, kPutCoreSql, BindCore, in, in.core_order, begin, count);
}

void MustExec(sqlite3* db, const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) == SQLITE_OK) return;
  std::fprintf(stderr, "bench: [%s] failed: %s\n", sql, message != nullptr ? message : "?");
  std::abort();
}

void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "bench: failed: %s\n", what);
  std::abort();
}

}  // namespace database_interface::bench
