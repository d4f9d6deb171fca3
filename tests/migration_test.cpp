// The version check run by Init: files built with raw SQLite in each stored
// version, and foreign tables that make the schema or a statement fail.
#include <stdexcept>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

class MigrationTest : public StoreTest {
 protected:
  // A new file with the six tables, one row in each (record ids 5) and a
  // db_version row holding `version` (none for null).
  std::string SeededFile(const char* version) {
    const std::string path = m_dir.File("v" + std::to_string(m_files++) + ".db");
    MakeFileWithVersion(path, version);
    RawExec(path,
            "INSERT INTO start_recode VALUES(5, 'v', 't', 1);"
            "INSERT INTO core_recode VALUES(5, 'd', 'l', 5, 1);"
            "INSERT INTO instance_info VALUES(5, 'n', 's', 1, 'p', 5, 1);"
            "INSERT INTO session_cache VALUES(5, 'k', 'v', 1);"
            "INSERT INTO message_collect_key VALUES('ak', 'sk');");
    return path;
  }
  // Moves the fixture's object to `path`, with an empty log.
  int InitOn(const std::string& path) {
    m_db->Uninit();
    ClearLog();
    return m_db->Init(path.c_str());
  }
  // The db_version rows as "id,version", and the row counts of start_recode,
  // core_recode, instance_info, session_cache and message_collect_key.
  static std::vector<std::string> State(const std::string& path) {
    auto state = RawColumn(path, "SELECT id || ',' || version FROM db_version");
    state.push_back(RawColumn(path,
                              "SELECT (SELECT count(*) FROM start_recode) || (SELECT count(*) "
                              "FROM core_recode) || (SELECT count(*) FROM instance_info) || "
                              "(SELECT count(*) FROM session_cache) || (SELECT count(*) FROM "
                              "message_collect_key)")[0]);
    return state;
  }
  int m_files = 0;
};

TEST_F(MigrationTest, VersionCheckKeepsOrEmptiesRecordTables) {
  const struct {
    const char* stored;
    const char* row_after;
    bool emptied;
  } cases[] = {{nullptr, "1,1.24.0", false},    {"1.24.0", "1,1.24.0", false},
               {" 1.24.0", "1, 1.24.0", false}, {"1.24.0abc", "1,1.24.0abc", false},
               {"1.11.9", "1,1.24.0", false},   {"1.12.0", "1,1.24.0", false},
               {"1.20.3", "1,1.24.0", false},   {"1.3.0", "1,1.24.0", false},
               {"1.24.-1", "1,1.24.0", false},  {"0.99.99", "1,1.24.0", false},
               {"1.24.1", "1,1.24.0", true},    {"1.100.0", "1,1.24.0", true},
               {"2.0.0", "1,1.24.0", true},     {"9.9.9", "1,1.24.0", true},
               {"10.0.0", "1,1.24.0", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.stored != nullptr ? c.stored : "no row");
    const std::string path = SeededFile(c.stored);
    ASSERT_EQ(0, InitOn(path));
    EXPECT_TRUE(Logged().empty());
    EXPECT_EQ((std::vector<std::string>{c.row_after, c.emptied ? "00001" : "11111"}), State(path));
    // Dropping a table drops its sqlite_sequence entry: ids start again at 1.
    EXPECT_EQ(c.emptied ? 0 : 4,
              RawInt(path, "SELECT count(*) FROM sqlite_sequence WHERE name != 'db_version'"));
    int id = 0;
    ASSERT_EQ(1, m_db->InsertStartRecode(id, "v", 1, "t", 1, 1));
    EXPECT_EQ(c.emptied ? 1 : 6, id);
  }
}

TEST_F(MigrationTest, UnreadableVersionFailsEveryInitAndChangesNothing) {
  enum Outcome { kLogged, kInvalidArgument, kOutOfRange };
  const struct {
    const char* stored;
    Outcome outcome;
  } cases[] = {{"1.24", kLogged},
               {"", kLogged},
               {"1.24.0.1", kLogged},
               {"1.24.0.x", kLogged},
               {"1.x.0", kInvalidArgument},
               {"1..0", kInvalidArgument},
               {"99999999999.0.0", kOutOfRange}};
  for (const auto& [text, outcome] : cases) {
    const std::string stored = text;
    SCOPED_TRACE(stored);
    const std::string path = SeededFile(text);
    for (int attempt = 0; attempt < 2; ++attempt) {
      std::vector<std::string> lines;
      if (outcome == kOutOfRange) {
        EXPECT_THROW(InitOn(path), std::out_of_range);
      } else if (outcome == kInvalidArgument) {
        EXPECT_THROW(InitOn(path), std::invalid_argument);
      } else {
        EXPECT_EQ(-1, InitOn(path));
        lines = {
            "[database]database_interface::CDatabase::VersionCompare VersionSplit with version[" +
                stored + "] failed",
            "[database]VersionCompare with[" + stored + "][1.24.0] failed",
            "[database]CheckAndUpdateDb failed"};
      }
      EXPECT_EQ(lines, Logged());
      EXPECT_EQ(-1, m_db->DeleteAllSessionCache());
    }
    EXPECT_EQ((std::vector<std::string>{"1," + stored, "11111"}), State(path));
    EXPECT_EQ(0, InitOn(m_db_path));
    EXPECT_TRUE(Logged().empty());
  }
}

// A failed prepare of `sql`, then Init's own line.
std::vector<std::string> PrepareFailed(const std::string& sql) {
  return {"[database]prepare sql[" + sql + "] failed:SQL logic error", "[database]InitStmt failed"};
}

TEST_F(MigrationTest, ForeignTableFailsInitWithItsChainOfLines) {
  const std::string version_table =
      "; CREATE TABLE db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version VARCHAR(64) NOT "
      "NULL); INSERT INTO db_version(version) VALUES('1.24.1')";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"CREATE TABLE db_version(a)", PrepareFailed("SELECT id, version from db_version LIMIT 1")},
      {"CREATE TABLE session_cache(a)",
       PrepareFailed("DELETE FROM session_cache WHERE expire_time < :expire_time")},
      // Record statements are compiled after the migration has replaced the table.
      {"CREATE TABLE session_cache(a)" + version_table, {}},
      {"CREATE TABLE t(x); CREATE INDEX session_cache ON t(x)",
       {"[database]database_interface::CDatabase::CreateTable sqlite3_exec with sql[CREATE "
        "TABLE IF NOT EXISTS session_cache(id INTEGER PRIMARY KEY AUTOINCREMENT, session_key "
        "VARCHAR(256) NOT NULL UNIQUE, session_value VARCHAR(1024) NOT NULL, expire_time BIGINT "
        "NOT NULL);] failed:SQL logic error",
        "[database]CreateTable failed"}},
      {"CREATE VIEW core_recode AS SELECT 1" + version_table,
       {"[database]database_interface::CDatabase::ReCreateTable sqlite3_exec with sql[DROP "
        "TABLE IF EXISTS core_recode;DROP TABLE IF EXISTS instance_info;DROP TABLE IF EXISTS "
        "start_recode;DROP TABLE IF EXISTS session_cache;] failed:SQL logic error",
        "[database]ReCreateTable failed", "[database]CheckAndUpdateDb failed"}}};
  for (const auto& [setup, lines] : cases) {
    SCOPED_TRACE(setup);
    const std::string path = m_dir.File("f" + std::to_string(m_files++) + ".db");
    RawExec(path, setup);
    EXPECT_EQ(lines.empty() ? 0 : -1, InitOn(path));
    EXPECT_EQ(lines, Logged());
    EXPECT_EQ(lines.empty() ? 0 : -1, m_db->DeleteAllSessionCache());
    EXPECT_EQ(0, InitOn(m_db_path));
    EXPECT_TRUE(Logged().empty());
  }
}

}  // namespace
}  // namespace test
}  // namespace database_interface
