// Test support shared by every test program, and their main().
#include "test_util.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <filesystem>

namespace database_interface::test {
namespace {

bool g_child_started = false;

}  // namespace

const std::pair<const char*, const char*> kStatements[21] = {
    {"InsertMessageCollectKey",
     "INSERT INTO message_collect_key(message_access_key, message_access_secret_key) "
     "VALUES(:message_access_key, :message_access_secret_key)"},
    {"SelectMessageCollectKey",
     "SELECT message_access_key, message_access_secret_key FROM message_collect_key LIMIT 1"},
    {"InsertStartRecode",
     "INSERT INTO start_recode (sdk_version, sdk_type, start_time) VALUES(:sdk_version, "
     ":sdk_type, :start_time) RETURNING id"},
    {"SelectStartRecode",
     "SELECT sdk_version, sdk_type, start_time FROM start_recode WHERE id = :id LIMIT 1"},
    {"InsertCoreRecode",
     "INSERT INTO core_recode (dump_file_path, log_file_path, start_recode_id, create_time) "
     "VALUES(:dump_file_path, :log_file_path, :start_recode_id, :create_time) RETURNING id"},
    {"SelectAllCoreRecode",
     "SELECT id, dump_file_path, log_file_path, start_recode_id, create_time FROM core_recode"},
    {"DeleteCoreRecode", "DELETE FROM core_recode WHERE id = :id"},
    {"InsertInstanceInfo",
     "INSERT OR REPLACE INTO instance_info  (instance_no, session_id, business_type, "
     "protocol_type, start_recode_id, create_time) VALUES (:instance_no, :session_id, "
     ":business_type, :protocol_type, :start_recode_id, :create_time) RETURNING id"},
    {"UpdataInstanceSessionId", "UPDATE instance_info SET session_id = :session_id WHERE id = :id"},
    {"SelectInstanceInfoWithStartRecodeId",
     "SELECT id, instance_no, session_id, business_type, protocol_type, "
     "start_recode_id,create_time  FROM instance_info WHERE start_recode_id = :start_recode_id"},
    {"DeleteInstanceInfo", "DELETE FROM instance_info WHERE id = :id"},
    {"DeleteStartRecode", "DELETE FROM start_recode WHERE id = :id"},
    {"DeleteAllStartRecode", "DELETE FROM start_recode"},
    {"InsertSessionCache",
     "INSERT OR REPLACE INTO session_cache(session_key, session_value, expire_time) VALUES "
     "(:session_key, :session_value, :expire_time);"},
    {"SelectSessionCache",
     "SELECT session_value FROM session_cache WHERE session_key = :session_key AND expire_time > "
     ":expire_time;"},
    {"DeleteSessionCacheWithKey", "DELETE FROM session_cache WHERE session_key = :session_key;"},
    {"DeleteSessionCache", "DELETE FROM session_cache WHERE expire_time < :expire_time"},
    {"DeleteAllSessionCache", "DELETE FROM session_cache;"},
    // Then the version statements of Init.
    {"SelectDbVersion", "SELECT id, version from db_version LIMIT 1"},
    {"InsertDbVersion", "INSERT INTO db_version (version) VALUES (:version)"},
    {"UpdateDbVersion", "UPDATE db_version SET version = :version WHERE id = :id"}};

const char* const kSchemaSqls[7] = {
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
    "protocol_type VARCHAR(64) NOT NULL, start_recode_id INTEGER NOT NULL, create_time BIGINT "
    "NOT NULL, FOREIGN KEY (start_recode_id) REFERENCES start_recode(id) ON DELETE CASCADE);",
    "CREATE TABLE IF NOT EXISTS start_recode ( id INTEGER PRIMARY KEY AUTOINCREMENT, sdk_version "
    "VARCHAR(64) NOT NULL, sdk_type VARCHAR(64) NOT NULL, start_time BIGINT NOT NULL);",
    "CREATE TABLE IF NOT EXISTS session_cache(id INTEGER PRIMARY KEY AUTOINCREMENT, session_key "
    "VARCHAR(256) NOT NULL UNIQUE, session_value VARCHAR(1024) NOT NULL, expire_time BIGINT NOT "
    "NULL);",
    "DROP TABLE IF EXISTS core_recode;DROP TABLE IF EXISTS instance_info;DROP TABLE IF EXISTS "
    "start_recode;DROP TABLE IF EXISTS session_cache;"};

std::shared_ptr<LogCapture> LogCapture::Install() {
  auto capture = std::make_shared<LogCapture>();
  capture->m_previous = base::IBaseLogInterface::GetLogInstance(nullptr);
  base::IBaseLogInterface::GetLogInstance(capture);
  return capture;
}

void LogCapture::Uninstall() { base::IBaseLogInterface::GetLogInstance(m_previous); }

int LogCapture::WriteLog(const int& level, const int& tid, const char* format, ...) {
  va_list args, measure;
  va_start(args, format);
  va_copy(measure, args);
  std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, format, measure)), '\0');
  va_end(measure);
  std::vsnprintf(text.data(), text.size() + 1, format, args);
  va_end(args);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.push_back(Line{level, tid, std::move(text)});
  return 0;
}

std::vector<LogCapture::Line> LogCapture::All() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_lines;
}

Lines LogCapture::Take() {
  std::lock_guard<std::mutex> lock(m_mutex);
  Lines texts;
  for (const Line& line : m_lines) texts.push_back(line.text);
  m_lines.clear();
  return texts;
}

std::string Raw(sqlite3* db, const std::string& sql) {
  std::string rows;
  char* error = nullptr;
  const auto add = [](void* out, int, char** values, char**) {
    std::string& text = *static_cast<std::string*>(out);
    text += (text.empty() ? "" : ",") + std::string(values[0] != nullptr ? values[0] : "NULL");
    return 0;
  };
  EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql.c_str(), add, &rows, &error))
      << sql << ": " << (error != nullptr ? error : "");
  sqlite3_free(error);
  return rows;
}

std::string Raw(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  EXPECT_EQ(SQLITE_OK, sqlite3_open(path.c_str(), &db)) << path;
  std::string rows = Raw(db, sql);
  EXPECT_EQ(SQLITE_OK, sqlite3_close(db));
  return rows;
}

namespace {

// The SQL of the statement of operation `op`.
std::string Sql(const std::string& op) {
  const auto* it = std::find_if(std::begin(kStatements), std::end(kStatements),
                                [&](const auto& statement) { return op == statement.first; });
  return it != std::end(kStatements) ? it->second : "";
}

}  // namespace

std::string StepLine(const std::string& op, const std::string& error, const std::string& call) {
  return "[database]database_interface::CDatabase::" + op + " " + call + " with sql[" + Sql(op) +
         "] failed:" + error;
}

std::string ExecLine(const std::string& op, const std::string& sql, const std::string& error) {
  return "[database]database_interface::CDatabase::" + op + " sqlite3_exec with sql[" + sql +
         "] failed:" + error;
}

Lines PrepareChain(const std::string& op, const std::string& error) {
  return {"[database]prepare sql[" + Sql(op) + "] failed:" + error, "[database]InitStmt failed"};
}

Lines CheckChain(const std::string& line, const std::string& op) {
  return {line, "[database]" + op + " failed", "[database]CheckAndUpdateDb failed"};
}

void ChildStarted() { g_child_started = true; }

void StoreTest::SetUp() { ASSERT_EQ(0, m_db->Init(m_path.c_str())); }

void StoreTest::TearDown() {
  m_db->Uninit();
  EXPECT_FALSE(HeldOpen(m_path)) << "closed, yet the store is held open";
  EXPECT_EQ(Lines{}, Take());
  m_log->Uninstall();
}

int StoreTest::InitOn(const std::string& path) {
  m_db->Uninit();
  Take();
  return m_db->Init(path.c_str());
}

std::string StoreTest::MakeStore(const std::string& name, const std::string& sql) {
  EXPECT_EQ(0, InitOn(m_dir.File(name)));
  m_db->Uninit();
  Raw(m_dir.File(name), sql);
  return m_dir.File(name);
}

Ops::Ops(IDatabaseInterface& db, const std::string& text) {
  for (char field = 'A'; field <= 'L'; ++field) texts.push_back(text + field);
  const auto t = [this](char field) { return T(field).c_str(); };
  const auto size = [this](char field) { return static_cast<int>(T(field).size()); };
  core = CoreRecode(0, T('E'), T('F'), 0, 4711);
  instance = InstanceInfo(0, T('G'), T('H'), 4711, T('I'), 0, 4711);
  cores.reserve(64);  // room enough: appending allocates only the records' texts
  instances.reserve(64);
  const std::function<int()> calls[] = {
      [=, &db] { return db.InsertMessageCollectKey(t('A'), size('A'), t('B'), -1); },
      [&] { return db.SelectMessageCollectKey(key, secret); },
      [=, &db] { return db.InsertStartRecode(start, t('C'), -1, t('D'), size('D'), 4711); },
      [&] { return db.SelectStartRecode(start, version, type, time); },
      [&] { return core.start_recode_id = start, db.InsertCoreRecode(core); },
      [&] { return db.SelectAllCoreRecode(cores); },
      [&] { return db.DeleteCoreRecode(core.id); },
      [&] { return instance.start_recode_id = start, db.InsertInstanceInfo(instance); },
      [=, &db] { return db.UpdataInstanceSessionId(instance.id, t('J'), size('J')); },
      [&] { return db.SelectInstanceInfoWithStartRecodeId(start, instances); },
      [&] { return db.DeleteInstanceInfo(instance.id); },
      [&] { return db.DeleteStartRecode(start); },
      [&] { return db.DeleteAllStartRecode(); },
      [=, &db] { return db.InsertSessionCache(t('K'), t('L'), 4711); },
      [=, &db] { return db.SelectSessionCache(t('K'), 4710, value); },
      [=, &db] { return db.DeleteSessionCacheWithKey(t('K')); },
      [&] { return db.DeleteSessionCache(4712); },
      [&] { return db.DeleteAllSessionCache(); }};
  const int results[] = {0, 1, 1, 1, 1, 1, 0, 1, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0};
  for (size_t i = 0; i < std::size(calls); ++i) {
    ops.push_back({kStatements[i].first, results[i], calls[i]});
  }
}

bool Ops::Untouched() const {
  return key + secret + version + type + value == "keptkeptkeptkeptkept" && start == -3 &&
         time == 7 && core.id == 0 && instance.id == 0 && cores.empty() && instances.empty();
}

bool Ops::ReadBack() const {
  if (cores.empty() || instances.empty()) return false;
  const CoreRecode& c = cores.back();
  const InstanceInfo& i = instances.back();
  return key + secret + version + type + c.dump_file_path + c.log_file_path + i.instance_no +
                 i.session_id + i.protocol_type + value ==
             T('A') + T('B') + T('C') + T('D') + T('E') + T('F') + T('G') + T('J') + T('I') +
                 T('L') &&
         std::make_tuple(time, c.start_recode_id, c.create_time, i.business_type, i.start_recode_id,
                         i.create_time) ==
             std::make_tuple(int64_t{4711}, start, int64_t{4711}, 4711, start, int64_t{4711});
}

}  // namespace database_interface::test

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const int rc = RUN_ALL_TESTS();
  using database_interface::test::g_child_started;
  return rc == 0 && g_child_started ? database_interface::test::kChildPassed : rc;
}
