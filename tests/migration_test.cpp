// The version check run by Init, on files holding each kind of stored
// version, and foreign tables that make the schema or a statement fail.
#include <sqlite3.h>

#include <fstream>
#include <stdexcept>
#include <tuple>

#include "test_util.h"

namespace database_interface::test {

class MigrationTest : public StoreTest {
 protected:
  // A store with one row in each table (record ids 5), then `sql`.
  std::string Seeded(const std::string& sql) {
    return MakeStore("v" + std::to_string(m_files++) + ".db",
                     "INSERT INTO start_recode VALUES(5, 'v', 't', 1);"
                     "INSERT INTO core_recode VALUES(5, 'd', 'l', 5, 1);"
                     "INSERT INTO instance_info VALUES(5, 'n', 's', 1, 'p', 5, 1);"
                     "INSERT INTO session_cache VALUES(5, 'k', 'v', 1);"
                     "INSERT INTO message_collect_key VALUES('ak', 'sk');" +
                         sql);
  }
  // Each db_version row's "id,version", then the row count of every table.
  static std::string State(const std::string& path) {
    return Raw(path, "SELECT id || ',' || version FROM db_version") + " " +
           Raw(path,
               "SELECT (SELECT count(*) FROM start_recode) || (SELECT count(*) FROM "
               "core_recode) || (SELECT count(*) FROM instance_info) || (SELECT count(*) "
               "FROM session_cache) || (SELECT count(*) FROM message_collect_key)");
  }
  int m_files = 0;
};

TEST_F(MigrationTest, OlderOrEqualVersionsKeepRecordsAndNewerOnesEmptyTheirTables) {
  // The version stored (null: no row), then State() after Init.
  const std::pair<const char*, const char*> cases[] = {
      {nullptr, "2,1.24.0 11111"},          {"1.24.0", "1,1.24.0 11111"},
      {" 1.24.0", "1, 1.24.0 11111"},       {"+1.24.0.", "1,+1.24.0. 11111"},
      {"1.24.0abc", "1,1.24.0abc 11111"},   {"1.11.9", "1,1.24.0 11111"},
      {"1.12.0", "1,1.24.0 11111"},         {"1.20.3", "1,1.24.0 11111"},
      {"1.3.0", "1,1.24.0 11111"},          {"1.24.-1", "1,1.24.0 11111"},
      {"0.99.99", "1,1.24.0 11111"},        {"1.24.1", "1,1.24.0 00001"},
      {"1.100.0", "1,1.24.0 00001"},        {"2.0.0", "1,1.24.0 00001"},
      {"9.9.9", "1,1.24.0 00001"},          {"10.0.0", "1,1.24.0 00001"},
      {"1.24.2147483647", "1,1.24.0 00001"}};
  for (const auto& [stored, state_after] : cases) {
    SCOPED_TRACE(stored != nullptr ? stored : "no row");
    const std::string path =
        Seeded(stored != nullptr ? "UPDATE db_version SET version = '" + std::string(stored) + "'"
                                 : "DELETE FROM db_version");
    ASSERT_EQ(0, InitOn(path));
    EXPECT_EQ(state_after, State(path));
    // Dropping a table drops its sqlite_sequence entry: ids start again at 1.
    const bool emptied = std::string(state_after).find("00001") != std::string::npos;
    int id = 0;
    ASSERT_EQ(1, m_db->InsertStartRecode(id, "v", 1, "t", 1, 1));
    EXPECT_EQ(emptied ? 1 : 6, id);
  }
}

TEST_F(MigrationTest, UnreadableVersionFailsEveryInitAndChangesNothing) {
  enum Outcome { kLogged, kInvalid, kRange };
  const std::pair<std::string, Outcome> cases[] = {
      {"1.24", kLogged},          {"", kLogged},        {"1.24.0.1", kLogged},
      {"1.24.0.x", kLogged},      {"1.2%s%n", kLogged}, {"1.x.0", kInvalid},
      {"1..0", kInvalid},         {"1.24. ", kInvalid}, {"1.24.2147483648", kRange},
      {"99999999999.0.0", kRange}};
  for (const auto& [stored, outcome] : cases) {
    SCOPED_TRACE(stored);
    const std::string path = Seeded("UPDATE db_version SET version = '" + stored + "'");
    for (int attempt = 0; attempt < 2; ++attempt) {  // it fails the same way every time
      Lines lines;
      if (outcome == kRange) {
        EXPECT_THROW(InitOn(path), std::out_of_range);
      } else if (outcome == kInvalid) {
        EXPECT_THROW(InitOn(path), std::invalid_argument);
      } else {
        EXPECT_EQ(-1, InitOn(path));
        lines = CheckChain(
            "[database]database_interface::CDatabase::VersionCompare VersionSplit "
            "with version[" +
                stored + "] failed",
            "VersionCompare with[" + stored + "][1.24.0]");
      }
      EXPECT_EQ(lines, Take());
      EXPECT_EQ(-1, m_db->DeleteAllSessionCache());
    }
    EXPECT_EQ("1," + stored + " 11111", State(path));
  }
}

// Files that reach each failing step of Init: the exact chain it writes, and no
// descriptor of the file left behind. Then SelectSessionCache("k", 0, value)
// and its lines; an open store then takes a session entry.
TEST_F(MigrationTest, EachFailingStepOfInitWritesItsChainAndForeignTablesTheirLines) {
  const std::string newer =
      "; CREATE TABLE db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version VARCHAR(64) NOT "
      "NULL); INSERT INTO db_version(version) VALUES('1.24.1')";
  const std::string checked =
      "CREATE TABLE db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version VARCHAR(64) NOT "
      "NULL CHECK (version <> '1.24.0'))";
  const auto prepare = [](const char* op) { return PrepareChain(op, "SQL logic error"); };
  // A damaged file is never written to: the first statement that reads it fails.
  enum Setup { kSql, kLocked, kDamagedHeader, kDamagedVersionPage };
  // How the file is made, its SQL, whether Init opens it, and every line.
  const std::tuple<Setup, std::string, bool, Lines> cases[] = {
      {kLocked,
       "",
       false,
       {ExecLine("CreateTable", kSchemaSqls[0], "database is locked"),
        "[database]CreateTable failed"}},
      {kDamagedHeader,
       "",
       false,
       {ExecLine("CreateTable", kSchemaSqls[0], "file is not a database"),
        "[database]CreateTable failed"}},
      {kSql,
       "CREATE TABLE t(x); CREATE INDEX session_cache ON t(x)",
       false,
       {ExecLine("CreateTable", kSchemaSqls[5], "SQL logic error"),
        "[database]CreateTable failed"}},
      // A view, or a table of another shape, where one of the library's belongs
      // fails the first statement on it.
      {kSql, "CREATE TABLE db_version(a)", false, prepare("SelectDbVersion")},
      {kSql, "CREATE VIEW db_version AS SELECT 1 AS id, '1.24.0' AS version", false,
       prepare("SelectDbVersion")},
      {kSql,
       "CREATE VIEW message_collect_key AS SELECT 'a' AS message_access_key, 'b' AS "
       "message_access_secret_key",
       false, prepare("SelectMessageCollectKey")},
      {kSql, "CREATE VIEW session_cache AS SELECT 1 AS session_value", false,
       prepare("DeleteSessionCache")},
      {kDamagedVersionPage, "", false,
       CheckChain(StepLine("SelectDbVersion", "database disk image is malformed"),
                  "SelectDbVersion")},
      {kSql,
       "CREATE TABLE db_version(id INTEGER PRIMARY KEY, version); INSERT INTO db_version "
       "VALUES(1, NULL)",
       false,
       CheckChain(StepLine("SelectDbVersion", "datatype mismatch", "sqlite3_column_text"),
                  "SelectDbVersion")},
      {kSql, checked, false,
       CheckChain(StepLine("InsertDbVersion", "constraint failed"), "InsertDbVersion")},
      {kSql, checked + "; INSERT INTO db_version(version) VALUES('1.11.9')", false,
       CheckChain(StepLine("UpdateDbVersion", "constraint failed"), "UpdateDbVersion")},
      {kSql, "CREATE VIEW core_recode AS SELECT 1" + newer, false,
       CheckChain(ExecLine("ReCreateTable", kSchemaSqls[6], "SQL logic error"), "ReCreateTable")},
      // Record statements are compiled after the migration has replaced the table.
      {kSql, "CREATE TABLE session_cache(a)" + newer, true, {}},
      // CREATE TABLE IF NOT EXISTS keeps a table of another shape, NULLs and all.
      {kSql,
       "CREATE TABLE session_cache(id INTEGER PRIMARY KEY, session_key UNIQUE, session_value, "
       "expire_time); INSERT INTO session_cache VALUES(1, 'k', NULL, 9)",
       true,
       {StepLine("SelectSessionCache", "datatype mismatch", "sqlite3_column_text")}},
      // A trigger that would load code into the process is never run.
      {kSql,
       "CREATE TABLE session_cache(id INTEGER PRIMARY KEY, session_key UNIQUE, session_value, "
       "expire_time); CREATE TRIGGER planted AFTER INSERT ON session_cache BEGIN SELECT "
       "load_extension('planted'); END",
       true,
       {}}};
  for (const auto& [setup, sql, opens, lines] : cases) {
    SCOPED_TRACE(sql);
    std::string path = m_dir.File("f" + std::to_string(m_files++));
    const auto bytes = [&path] {
      std::ifstream in(path, std::ios::binary);
      return std::string(std::istreambuf_iterator<char>(in), {});
    };
    std::string damaged;
    if (setup == kDamagedHeader || setup == kDamagedVersionPage) {
      path = Seeded("");
      const int page = std::stoi(Raw(path, "PRAGMA page_size"));
      const int root = std::stoi(Raw(path,
                                     "SELECT rootpage FROM sqlite_master WHERE name = "
                                     "'db_version'"));
      std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
      if (setup == kDamagedHeader) file << std::string(16, '\xff');  // no magic text
      if (setup != kDamagedHeader) file.seekp(std::streamoff{root - 1} * page) << '\xff';
      file.close();
      damaged = bytes();
    }
    sqlite3* holder = nullptr;  // another connection, holding the file for its write
    if (setup == kLocked) {
      ASSERT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &holder));
      Raw(holder, "BEGIN EXCLUSIVE; CREATE TABLE t(x)");
    } else if (setup == kSql) {
      Raw(path, sql);
    }
    std::string value = "kept";
    EXPECT_EQ(opens ? 0 : -1, InitOn(path));
    sqlite3_close(holder);
    EXPECT_TRUE(opens || !HeldOpen(path)) << "a failed Init keeps the file open";
    EXPECT_TRUE(damaged.empty() || damaged == bytes());
    EXPECT_EQ(opens && lines.empty() ? 0 : -1, m_db->SelectSessionCache("k", 0, value));
    EXPECT_EQ("kept", value);
    EXPECT_EQ(lines, Take());
    EXPECT_EQ(opens ? 0 : -1, m_db->InsertSessionCache("k", "v", 1));
  }
}

}  // namespace database_interface::test
