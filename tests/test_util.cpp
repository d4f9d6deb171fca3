// Test support shared by every test executable.
#include "test_util.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace database_interface {
namespace test {

TempDir::TempDir() {
  std::string templ = (std::filesystem::temp_directory_path() / "dbi_test_XXXXXX").string();
  if (mkdtemp(templ.data()) == nullptr) std::abort();
  m_path = templ;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ec);
  std::filesystem::remove_all(m_path, ec);
}

std::string TempDir::File(const std::string& name) const { return m_path + "/" + name; }

int CapturingLogger::WriteLog(const int& level, const int& tid, const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
  va_end(args);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.push_back(Line{level, tid, std::move(text)});
  return 0;
}

std::vector<CapturingLogger::Line> CapturingLogger::lines() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_lines;
}

std::vector<std::string> CapturingLogger::texts() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  std::vector<std::string> out;
  out.reserve(m_lines.size());
  for (const Line& line : m_lines) out.push_back(line.text);
  return out;
}

void CapturingLogger::Clear() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.clear();
}

ScopedCapture::ScopedCapture()
    : m_logger(std::make_shared<CapturingLogger>()),
      m_previous(base::IBaseLogInterface::GetLogInstance(nullptr)) {
  base::IBaseLogInterface::GetLogInstance(m_logger);
}

ScopedCapture::~ScopedCapture() { base::IBaseLogInterface::GetLogInstance(m_previous); }

void StoreTest::SetUp() {
  m_capture = std::make_unique<ScopedCapture>();
  m_db_path = m_dir.File("test.db");
  m_db = IDatabaseInterface::CreateDatabaseInterface();
  ASSERT_EQ(0, m_db->Init(m_db_path.c_str()));
  ASSERT_TRUE(Logged().empty());
}

void StoreTest::TearDown() {
  if (m_db) m_db->Uninit();
  m_db.reset();
  m_capture.reset();
}

void StoreTest::Reopen() {
  m_db->Uninit();
  ASSERT_EQ(0, m_db->Init(m_db_path.c_str()));
}

sqlite3* StoreTest::RawOpen() const { return test::RawOpen(m_db_path); }

sqlite3* RawOpen(const std::string& path) {
  sqlite3* db = nullptr;
  const int rc =
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  EXPECT_EQ(SQLITE_OK, rc) << "raw open of " << path;
  return db;
}

void RawClose(sqlite3* db) { EXPECT_EQ(SQLITE_OK, sqlite3_close(db)); }

void RawExec(sqlite3* db, const std::string& sql) {
  char* error = nullptr;
  const int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error);
  EXPECT_EQ(SQLITE_OK, rc) << sql << ": " << (error != nullptr ? error : "");
  sqlite3_free(error);
}

void RawExec(const std::string& path, const std::string& sql) {
  sqlite3* db = RawOpen(path);
  RawExec(db, sql);
  RawClose(db);
}

std::vector<std::string> RawColumn(const std::string& path, const std::string& sql) {
  std::vector<std::string> out;
  sqlite3* db = RawOpen(path);
  sqlite3_stmt* stmt = nullptr;
  EXPECT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr)) << sql;
  while (stmt != nullptr && sqlite3_step(stmt) == SQLITE_ROW) {
    const unsigned char* text = sqlite3_column_text(stmt, 0);
    out.emplace_back(text != nullptr ? reinterpret_cast<const char*>(text) : "NULL");
  }
  sqlite3_finalize(stmt);
  RawClose(db);
  return out;
}

long long RawInt(const std::string& path, const std::string& sql) {
  const std::vector<std::string> column = RawColumn(path, sql);
  EXPECT_EQ(1u, column.size()) << sql;
  return column.empty() ? -1 : std::stoll(column[0]);
}

void MakeFileWithVersion(const std::string& path, const char* version) {
  sqlite3* db = RawOpen(path);
  RawExec(db,
          "CREATE TABLE db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version VARCHAR(64) NOT "
          "NULL);"
          "CREATE TABLE message_collect_key ( message_access_key TEXT NOT NULL, "
          "message_access_secret_key TEXT NOT NULL);"
          "CREATE TABLE core_recode (id INTEGER PRIMARY KEY AUTOINCREMENT, dump_file_path "
          "VARCHAR(256) NOT NULL, log_file_path VARCHAR(256) NOT NULL, start_recode_id INTEGER "
          "NOT NULL, create_time BIGINT NOT NULL, FOREIGN KEY (start_recode_id) REFERENCES "
          "start_recode(id) ON DELETE CASCADE);"
          "CREATE TABLE instance_info (id INTEGER PRIMARY KEY AUTOINCREMENT, instance_no "
          "VARCHAR(64) NOT NULL, session_id VARCHAR(256) NOT NULL, business_type int NOT NULL, "
          "protocol_type VARCHAR(64) NOT NULL, start_recode_id INTEGER NOT NULL, create_time "
          "BIGINT NOT NULL, FOREIGN KEY (start_recode_id) REFERENCES start_recode(id) ON DELETE "
          "CASCADE);"
          "CREATE TABLE start_recode ( id INTEGER PRIMARY KEY AUTOINCREMENT, sdk_version "
          "VARCHAR(64) NOT NULL, sdk_type VARCHAR(64) NOT NULL, start_time BIGINT NOT NULL);"
          "CREATE TABLE session_cache(id INTEGER PRIMARY KEY AUTOINCREMENT, session_key "
          "VARCHAR(256) NOT NULL UNIQUE, session_value VARCHAR(1024) NOT NULL, expire_time "
          "BIGINT NOT NULL);");
  if (version != nullptr) {
    sqlite3_stmt* stmt = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_prepare_v2(db, "INSERT INTO db_version (version) VALUES (?1)", -1,
                                            &stmt, nullptr));
    sqlite3_bind_text(stmt, 1, version, -1, SQLITE_TRANSIENT);
    EXPECT_EQ(SQLITE_DONE, sqlite3_step(stmt));
    sqlite3_finalize(stmt);
  }
  RawClose(db);
}

}  // namespace test
}  // namespace database_interface
