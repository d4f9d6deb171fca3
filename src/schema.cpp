// The file's schema, its recorded version and the migration between versions.
#include <string>
#include <utility>
#include <vector>

#include "database.h"
#include "host/host_log.h"

namespace database_interface {
namespace {

// The library's schema version: the only version it ever writes.
constexpr const char* kDbVersion = "1.24.0";
constexpr int kDbVersionLen = 6;

constexpr const char* kCreateTableSqls[] = {
    "CREATE TABLE IF NOT EXISTS db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version "
    "VARCHAR(64) NOT NULL)",
    "CREATE TABLE IF NOT EXISTS message_collect_key ( message_access_key TEXT NOT NULL, "
    "message_access_secret_key TEXT NOT NULL);",
    "CREATE TABLE IF NOT EXISTS core_recode (id INTEGER PRIMARY KEY AUTOINCREMENT, "
    "dump_file_path VARCHAR(256) NOT NULL, log_file_path VARCHAR(256) NOT NULL, start_recode_id "
    "INTEGER NOT NULL, create_time BIGINT NOT NULL, FOREIGN KEY (start_recode_id) REFERENCES "
    "start_recode(id) ON DELETE CASCADE);",
    "CREATE TABLE IF NOT EXISTS instance_info (id INTEGER PRIMARY KEY AUTOINCREMENT, instance_no "
    "VARCHAR(64) NOT NULL, session_id VARCHAR(256) NOT NULL, business_type int NOT NULL, "
    "protocol_type VARCHAR(64) NOT NULL, start_recode_id INTEGER NOT NULL, create_time BIGINT NOT "
    "NULL, FOREIGN KEY (start_recode_id) REFERENCES start_recode(id) ON DELETE CASCADE);",
    "CREATE TABLE IF NOT EXISTS start_recode ( id INTEGER PRIMARY KEY AUTOINCREMENT, sdk_version "
    "VARCHAR(64) NOT NULL, sdk_type VARCHAR(64) NOT NULL, start_time BIGINT NOT NULL);",
    "CREATE TABLE IF NOT EXISTS session_cache(id INTEGER PRIMARY KEY AUTOINCREMENT, session_key "
    "VARCHAR(256) NOT NULL UNIQUE, session_value VARCHAR(1024) NOT NULL, expire_time BIGINT NOT "
    "NULL);",
};

// Child tables before their parent. db_version and message_collect_key are
// never dropped.
constexpr const char* kDropTableSql =
    "DROP TABLE IF EXISTS core_recode;DROP TABLE IF EXISTS instance_info;DROP TABLE IF EXISTS "
    "start_recode;DROP TABLE IF EXISTS session_cache;";

// (version, SQL): a file whose stored version is older than the entry's
// version needs the entry's SQL.
const std::vector<std::pair<std::string, std::string>> kVersionChangeSqls = {
    {"1.12.0", kCreateTableSqls[5]},
};

}  // namespace

int CDatabase::CreateTable() {
  for (const char* sql : kCreateTableSqls) {
    // IF NOT EXISTS: an existing table is left as it is, columns included.
    if (ExecSql("database_interface::CDatabase::CreateTable", sql) != 0) return -1;
  }
  return 0;
}

int CDatabase::SelectDbVersion(int& id, std::string& version) {
  StmtScope scope = Run(DbVersionStatementId::SelectDbVersion);
  const int rc = scope.Fetch();
  if (rc != 1) return rc;
  const char* text = scope.ColumnText(1);
  if (text == nullptr) return -1;
  id = scope.ColumnInt(0);
  version = text;
  return 1;
}

int CDatabase::InsertDbVersion() {
  StmtScope scope = Run(DbVersionStatementId::InsertDbVersion);
  if (!scope.BindText(":version", kDbVersion, kDbVersionLen)) return -1;
  return scope.Exec();
}

int CDatabase::UpdateDbVersion(int id) {
  StmtScope scope = Run(DbVersionStatementId::UpdateDbVersion);
  if (!scope.BindText(":version", kDbVersion, kDbVersionLen) || !scope.BindInt(":id", id)) {
    return -1;
  }
  return scope.Exec();
}

// std::stoi throws std::invalid_argument or std::out_of_range for a part that
// is not an int; nothing here catches it.
int CDatabase::VersionSplit(std::stringstream& stream, int& major, int& minor, int& patch) {
  int* const outputs[] = {&major, &minor, &patch};
  int parts = 0;
  std::string part;
  while (std::getline(stream, part, '.')) {
    if (parts < 3) *outputs[parts] = std::stoi(part);
    ++parts;
  }
  return parts == 3 ? 0 : -1;
}

int CDatabase::VersionCompare(const char* oldDbVersion, const char* newDbVersion) {
  std::stringstream old_stream{std::string(oldDbVersion)};
  std::stringstream new_stream{std::string(newDbVersion)};
  int old_parts[3] = {};
  int new_parts[3] = {};
  if (VersionSplit(old_stream, old_parts[0], old_parts[1], old_parts[2]) != 0) {
    LogError("[database]%s VersionSplit with version[%s] failed",
             "database_interface::CDatabase::VersionCompare", oldDbVersion);
    return -1;
  }
  if (VersionSplit(new_stream, new_parts[0], new_parts[1], new_parts[2]) != 0) {
    LogError("[database]%s VersionSplit with version[%s] failed",
             "database_interface::CDatabase::VersionCompare", newDbVersion);
    return -1;
  }
  for (int i = 0; i < 3; ++i) {
    if (old_parts[i] < new_parts[i]) return 1;
    if (old_parts[i] > new_parts[i]) return 2;
  }
  return 0;
}

int CDatabase::VersionChangeDb(const std::string& oldDbVersion) {
  for (const auto& [version, sql] : kVersionChangeSqls) {
    const int c = VersionCompare(oldDbVersion.c_str(), version.c_str());
    if (c == -1) {
      LogError("[database]%s VersionCompare with oldDbVersion[%s] newDbVersion[%s] failed",
               "database_interface::CDatabase::VersionChangeDb", oldDbVersion.c_str(),
               version.c_str());
      return -1;
    }
    if (c == 1 && ExecSql("database_interface::CDatabase::VersionChangeDb", sql.c_str()) != 0) {
      return -1;
    }
  }
  return 0;
}

int CDatabase::ReCreateTable() {
  // Dropping a table also drops its sqlite_sequence entry: ids restart at 1.
  if (ExecSql("database_interface::CDatabase::ReCreateTable", kDropTableSql) != 0) return -1;
  return CreateTable();
}

// Each step commits by itself and can be repeated: a run cut short leaves
// the stored version as it was, so the next Init takes the same branch.
int CDatabase::CheckAndUpdateDb() {
  int id = 0;
  std::string version;
  const int selected = SelectDbVersion(id, version);
  if (selected == -1) {
    LogError("[database]SelectDbVersion failed");
    return -1;
  }
  if (selected == 0) {
    if (InsertDbVersion() == -1) {
      LogError("[database]InsertDbVersion failed");
      return -1;
    }
    return 0;
  }
  switch (VersionCompare(version.c_str(), kDbVersion)) {
    case 0: return 0;
    case 1:
      if (VersionChangeDb(version) == -1) {
        LogError("[database]VersionChangeDb failed");
        return -1;
      }
      break;
    case 2:
      if (ReCreateTable() == -1) {
        LogError("[database]ReCreateTable failed");
        return -1;
      }
      break;
    default:
      LogError("[database]VersionCompare with[%s][%s] failed", version.c_str(), kDbVersion);
      return -1;
  }
  if (UpdateDbVersion(id) == -1) {
    LogError("[database]UpdateDbVersion failed");
    return -1;
  }
  return 0;
}

}  // namespace database_interface
