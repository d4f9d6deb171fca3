// Files that are no store, and hostile texts: nulls, odd lengths, NUL bytes,
// mebibyte values, SQL and printf metacharacters in every field.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "test_util.h"

namespace database_interface::test {
namespace {

const char* const kTableNames =
    "core_recode,db_version,instance_info,message_collect_key,session_cache,start_recode";
const char* const kTables =
    "SELECT group_concat(name) FROM (SELECT name FROM sqlite_master WHERE type = 'table' AND "
    "name != 'sqlite_sequence' ORDER BY name)";
const char* const kCoreInsertFailed =
    "[database]database_interface::CDatabase::InsertCoreRecode sqlite3_step with sql[INSERT INTO "
    "core_recode (dump_file_path, log_file_path, start_recode_id, create_time) "
    "VALUES(:dump_file_path, :log_file_path, :start_recode_id, :create_time) RETURNING id] "
    "failed:constraint failed";

std::string FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class BadInputTest : public StoreTest {
 protected:
  // Moves the fixture's object to `path` with an empty log; Init's result.
  int InitOn(const std::string& path) {
    m_db->Uninit();
    ClearLog();
    return m_db->Init(path.c_str());
  }
  // The object refuses data silently and opens a good file again.
  void ExpectClosedAndReusable() {
    ClearLog();
    EXPECT_EQ(-1, m_db->DeleteAllSessionCache());
    EXPECT_EQ(0, m_db->Init(m_db_path.c_str()));
    EXPECT_TRUE(Logged().empty());
  }
  // On a fresh file: stores texts[0..10] in the eleven text fields of the
  // five stores (lengths given both ways), reads each back through the
  // library and deletes the session entry by its key. The schema stays
  // intact and nothing is logged.
  void RoundTrip(const std::vector<std::string>& texts, std::vector<std::string>& read) {
    const std::string path = m_dir.File("round" + std::to_string(m_rounds++) + ".db");
    ASSERT_EQ(0, InitOn(path));
    const auto t = [&](size_t i) { return texts[i].c_str(); };
    const auto n = [&](size_t i) { return static_cast<int>(texts[i].size()); };
    int start = 0;
    ASSERT_EQ(0, m_db->InsertMessageCollectKey(t(0), n(0), t(1), -1));
    ASSERT_EQ(1, m_db->InsertStartRecode(start, t(2), n(2), t(3), -1, 1));
    CoreRecode core(0, texts[4], texts[5], start, 1);
    InstanceInfo instance(0, texts[6], "", 1, texts[7], start, 1);
    ASSERT_EQ(1, m_db->InsertCoreRecode(core));
    ASSERT_EQ(1, m_db->InsertInstanceInfo(instance));
    ASSERT_EQ(0, m_db->UpdataInstanceSessionId(instance.id, t(8), n(8)));
    ASSERT_EQ(0, m_db->InsertSessionCache(t(9), t(10), 100));
    read.assign(11, "");
    int64_t time = 0;
    std::vector<CoreRecode> cores;
    std::vector<InstanceInfo> instances;
    ASSERT_EQ(1, m_db->SelectMessageCollectKey(read[0], read[1]));
    ASSERT_EQ(1, m_db->SelectStartRecode(start, read[2], read[3], time));
    ASSERT_EQ(1, m_db->SelectAllCoreRecode(cores));
    ASSERT_EQ(1, m_db->SelectInstanceInfoWithStartRecodeId(start, instances));
    ASSERT_EQ(1, m_db->SelectSessionCache(t(9), 0, read[10]));
    read[4] = cores[0].dump_file_path, read[5] = cores[0].log_file_path;
    read[6] = instances[0].instance_no, read[7] = instances[0].protocol_type;
    read[8] = instances[0].session_id;
    read[9] = RawColumn(path, "SELECT session_key FROM session_cache").at(0);
    EXPECT_EQ(0, m_db->DeleteSessionCacheWithKey(t(9)));
    EXPECT_EQ(0, RawInt(path, "SELECT count(*) FROM session_cache"));
    EXPECT_EQ(std::vector<std::string>{kTableNames}, RawColumn(path, kTables));
    EXPECT_TRUE(Logged().empty());
  }
  int m_rounds = 0;
};

TEST_F(BadInputTest, FilesThatAreNoStoreFailInitWithTheirLinesAndAreLeftAsTheyWere) {
  const std::string random = m_dir.File("random.db"), dir = m_dir.File("dir.db");
  std::mt19937 rng(4711);
  std::string noise(4096, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  std::ofstream(random, std::ios::binary) << noise;
  std::filesystem::create_directory(dir);
  const std::string create =
      "[database]database_interface::CDatabase::CreateTable sqlite3_exec with sql[CREATE TABLE IF "
      "NOT EXISTS db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version VARCHAR(64) NOT NULL)] "
      "failed:";
  // The open is lazy: the first statement that reads the file fails.
  EXPECT_EQ(-1, InitOn(random));
  EXPECT_EQ(
      (std::vector<std::string>{create + "file is not a database", "[database]CreateTable failed"}),
      Logged());
  EXPECT_TRUE(FileBytes(random) == noise);
  ExpectClosedAndReusable();
  EXPECT_EQ(-1, InitOn(dir));
  EXPECT_EQ(std::vector<std::string>{"[database]Open sqlite3 file[" + dir +
                                     "] failed:unable to open database file"},
            Logged());
  EXPECT_TRUE(std::filesystem::is_empty(dir));
  ExpectClosedAndReusable();

  // No busy handler: a file held exclusively fails at once, and the next Init
  // opens it as soon as the lock is gone.
  ASSERT_EQ(0, m_db->InsertSessionCache("k", "v", 1));
  m_db->Uninit();
  sqlite3* holder = RawOpen();
  RawExec(holder, "BEGIN EXCLUSIVE; DELETE FROM session_cache;");
  EXPECT_EQ(-1, InitOn(m_db_path));
  EXPECT_EQ(
      (std::vector<std::string>{create + "database is locked", "[database]CreateTable failed"}),
      Logged());
  RawExec(holder, "ROLLBACK;");
  RawClose(holder);
  ExpectClosedAndReusable();
  EXPECT_EQ(1, RawInt(m_db_path, "SELECT count(*) FROM session_cache"));
}

TEST_F(BadInputTest, EmptyFileBecomesANewStore) {
  const std::string empty = m_dir.File("empty.db");
  std::ofstream{empty};
  ASSERT_EQ(0, InitOn(empty));
  EXPECT_EQ(std::vector<std::string>{kTableNames}, RawColumn(empty, kTables));
  EXPECT_EQ(std::vector<std::string>{"1.24.0"}, RawColumn(empty, "SELECT version FROM db_version"));
  EXPECT_TRUE(Logged().empty());
}

// Root ignores file permissions: run as root, the scenario runs in a forked
// child that has given root up.
TEST_F(BadInputTest, ReadOnlyFileOpensForReadingAndAWriteFailsWithItsLine) {
  ASSERT_EQ(0, m_db->InsertSessionCache("k", "v", 100));
  m_db->Uninit();
  ASSERT_EQ(0, chmod(m_db_path.c_str(), 0444));
  ASSERT_EQ(0, chmod(m_dir.path().c_str(), 0755));
  const std::vector<std::string> write_failed = {
      "[database]database_interface::CDatabase::DeleteAllSessionCache sqlite3_step with "
      "sql[DELETE FROM session_cache;] failed:attempt to write a readonly database"};
  auto reads_but_cannot_write = [&] {
    std::string value;
    const bool ok = m_db->Init(m_db_path.c_str()) == 0 &&
                    m_db->SelectSessionCache("k", 0, value) == 1 && value == "v" &&
                    m_db->DeleteAllSessionCache() == -1 && Logged() == write_failed;
    m_db->Uninit();
    return ok;
  };
  if (geteuid() != 0) {
    EXPECT_TRUE(reads_but_cannot_write());
  } else {
    EXPECT_EXIT(
        {
          const bool dropped = setgid(65534) == 0 && setuid(65534) == 0;
          std::_Exit(dropped && reads_but_cannot_write() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
  }
  EXPECT_EQ(1, RawInt(m_db_path, "SELECT count(*) FROM session_cache"));
}

TEST_F(BadInputTest, NullTextsAreRefusedSilentlyAndEveryNegativeLengthReadsToTheNul) {
  int start = -5;
  EXPECT_EQ(-1, m_db->InsertMessageCollectKey(nullptr, 1, "secret", 6));
  EXPECT_EQ(-1, m_db->InsertStartRecode(start, nullptr, 1, "type", 4, 1));
  EXPECT_EQ(-5, start);
  EXPECT_TRUE(Logged().empty());
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "v", 1, "t", 1, 1));
  InstanceInfo instance(0, "n", "s", 1, "p", start, 1);
  ASSERT_EQ(1, m_db->InsertInstanceInfo(instance));
  for (const int length : {-2, -4711, INT_MIN}) {
    int id = 0;
    EXPECT_EQ(0, m_db->InsertMessageCollectKey("key", length, "secret", length));
    EXPECT_EQ(1, m_db->InsertStartRecode(id, "version", length, "type", length, 1));
    EXPECT_EQ(0, m_db->UpdataInstanceSessionId(instance.id, "session", length));
  }
  EXPECT_EQ(std::vector<std::string>(3, "key|secret|version|type"),
            RawColumn(m_db_path,
                      "SELECT message_access_key || '|' || message_access_secret_key || '|' || "
                      "sdk_version || '|' || sdk_type FROM message_collect_key JOIN start_recode "
                      "ON start_recode.id = message_collect_key.rowid + 1"));
  EXPECT_EQ(std::vector<std::string>{"session"},
            RawColumn(m_db_path, "SELECT session_id FROM instance_info"));
  EXPECT_TRUE(Logged().empty());
}

TEST_F(BadInputTest, EmbeddedNulBytesAreStoredWholeAndReadBackUpToTheFirstNul) {
  const std::string nul("ab\0cd", 5);
  int start = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "v", -1, "t", -1, 1));
  CoreRecode core(0, "d", nul, start, 1);
  InstanceInfo instance(0, nul, nul, 1, nul, start, 1);
  ASSERT_EQ(1, m_db->InsertCoreRecode(core));
  ASSERT_EQ(1, m_db->InsertInstanceInfo(instance));
  ASSERT_EQ(0, m_db->InsertSessionCache("key\0ignored", "value\0ignored", 100));
  EXPECT_EQ(std::vector<std::string>{"6162006364|6162006364|6162006364|6162006364|key|value"},
            RawColumn(m_db_path,
                      "SELECT hex(log_file_path) || '|' || hex(instance_no) || '|' || "
                      "hex(session_id) || '|' || hex(protocol_type) || '|' || session_key || '|' "
                      "|| session_value FROM core_recode, instance_info, session_cache"));
  std::vector<CoreRecode> cores;
  std::vector<InstanceInfo> instances;
  ASSERT_EQ(1, m_db->SelectAllCoreRecode(cores));
  ASSERT_EQ(1, m_db->SelectInstanceInfoWithStartRecodeId(start, instances));
  EXPECT_EQ("ab|ab|ab|ab", cores[0].log_file_path + "|" + instances[0].instance_no + "|" +
                               instances[0].session_id + "|" + instances[0].protocol_type);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(BadInputTest, MebibyteTextsInEveryFieldAreStoredAndReadBackExactly) {
  std::vector<std::string> big;
  for (size_t seed = 0; seed < 11; ++seed) {
    std::string text(size_t{1} << 20, ' ');
    for (size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('!' + (i + seed) % 90);
    big.push_back(std::move(text));
  }
  std::vector<std::string> read;
  RoundTrip(big, read);
  for (size_t i = 0; i < big.size(); ++i) EXPECT_TRUE(read.at(i) == big[i]) << "field " << i;
}

TEST_F(BadInputTest, SqlAndFormatMetacharactersInEveryTextAreStoredVerbatim) {
  for (const char* text :
       {"'; DROP TABLE start_recode; --", "\"); DELETE FROM session_cache; --", "' OR '1'='1",
        "%s%n%x%%%", "[a] `b` \\c :id ?1 @p $v", "'' \"\" ''' x); CREATE TABLE evil(y); --"}) {
    SCOPED_TRACE(text);
    const std::vector<std::string> texts(11, text);
    std::vector<std::string> read;
    RoundTrip(texts, read);
    EXPECT_EQ(texts, read);
  }
}

// Only the path given to Init and a stored version are ever logged, and only
// as arguments: a directive in them is printed, never interpreted.
TEST_F(BadInputTest, FormatDirectivesReachTheLogOnlyAsArguments) {
  CoreRecode core(0, "%s%n%s%n", "%99999999s", 4711, 1);
  EXPECT_EQ(-1, m_db->InsertCoreRecode(core));
  EXPECT_EQ(std::vector<std::string>{kCoreInsertFailed}, Logged());
  const std::string path = m_dir.File("%s%n%p/x.db"), versioned = m_dir.File("v.db");
  EXPECT_EQ(-1, InitOn(path));
  EXPECT_EQ(std::vector<std::string>{"[database]Open sqlite3 file[" + path +
                                     "] failed:unable to open database file"},
            Logged());
  MakeFileWithVersion(versioned, "1.2%s%n");
  EXPECT_EQ(-1, InitOn(versioned));
  EXPECT_EQ((std::vector<std::string>{"[database]database_interface::CDatabase::VersionCompare "
                                      "VersionSplit with version[1.2%s%n] failed",
                                      "[database]VersionCompare with[1.2%s%n][1.24.0] failed",
                                      "[database]CheckAndUpdateDb failed"}),
            Logged());
  ExpectClosedAndReusable();
}

}  // namespace
}  // namespace database_interface::test
