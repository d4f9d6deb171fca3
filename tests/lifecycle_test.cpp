// Opening and closing an object: refused calls, failed opens, reuse.
#include <filesystem>

#include "test_util.h"

namespace database_interface::test {

using LifecycleTest = StoreTest;

// Every data operation answers -1 and writes no output.
void ExpectEveryOperationRefused(IDatabaseInterface& db) {
  Ops ops(db, "x");
  for (const Ops::Op& op : ops.ops) EXPECT_EQ(-1, op.call()) << op.name;
  EXPECT_TRUE(ops.Untouched());
}

TEST_F(LifecycleTest, RefusedCallsLogNothingAndChangeNothing) {
  auto fresh = IDatabaseInterface::CreateDatabaseInterface();
  fresh->Uninit();
  EXPECT_EQ(-1, fresh->Init(nullptr));
  ExpectEveryOperationRefused(*fresh);
  const std::string other = m_dir.File("other.db");
  EXPECT_EQ(-1, m_db->Init(other.c_str()));
  EXPECT_EQ(-1, m_db->Init(nullptr));
  EXPECT_FALSE(std::filesystem::exists(other));
  int id = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(id, "v", 1, "t", 1, 1));
  m_db->Uninit();
  m_db->Uninit();
  ExpectEveryOperationRefused(*m_db);
  // Opened again on another file, the object works on that file only.
  ASSERT_EQ(0, m_db->Init(other.c_str()));
  EXPECT_EQ(1, m_db->InsertStartRecode(id, "v", 1, "t", 1, 1));
  EXPECT_EQ("1 1", Raw(m_path, "SELECT count(*) FROM start_recode") + " " +
                       Raw(other, "SELECT count(*) FROM start_recode"));
  EXPECT_EQ("core_recode,db_version,instance_info,message_collect_key,session_cache,start_recode",
            Raw(other, "SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite%' ORDER BY 1"));
  EXPECT_EQ("1,1.24.0", Raw(other, "SELECT id || ',' || version FROM db_version"));
}

TEST_F(LifecycleTest, FailedInitLogsItsLineAndLeavesTheObjectReusable) {
  for (const std::string& path :
       {std::string(), m_dir.File("missing/test.db"), m_dir.path, m_dir.File("%s%n%p/x.db")}) {
    EXPECT_EQ(-1, InitOn(path));
    EXPECT_EQ(60, m_log->All().at(0).level);
    EXPECT_EQ(Lines{path.empty() ? "[database]Convert sqlite3 file path[] failed"
                                 : "[database]Open sqlite3 file[" + path +
                                       "] failed:unable to open database file"},
              Take());
    EXPECT_TRUE(path == m_dir.path || !std::filesystem::exists(path));
    ExpectEveryOperationRefused(*m_db);
    EXPECT_EQ(0, m_db->Init(m_path.c_str()));
  }
}

// ":memory:" is a store in memory: no file of that name is made in the current
// directory. Another path, in the platform's encoding of a `char*` path, names
// the file exactly, which has the defaults that the system's SQLite gave.
TEST_F(LifecycleTest, PathNamesAStoreInMemoryOrTheFileWithTheSystemSqlitesDefaults) {
  const std::filesystem::path cwd = std::filesystem::current_path();
  std::filesystem::current_path(m_dir.path);
  ASSERT_EQ(0, InitOn(":memory:"));
  Ops ops(*m_db, "m");
  for (const Ops::Op& op : ops.ops) EXPECT_EQ(op.result, op.call()) << op.name;
  m_db->Uninit();
  std::filesystem::current_path(cwd);
  EXPECT_TRUE(ops.ReadBack());
  EXPECT_FALSE(std::filesystem::exists(m_dir.File(":memory:")));

  const std::string utf8 = m_dir.File("caf\xc3\xa9.db");
  const std::string narrow = NarrowPath(utf8);
  ASSERT_FALSE(narrow.empty()) << "no \"\xc3\xa9\" in this code page";
  ASSERT_EQ(0, InitOn(narrow));
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::u8path(utf8)));
  // Rollback journal, synchronous FULL, 4096-byte pages, no auto-vacuum,
  // deleted content overwritten.
  EXPECT_EQ("delete,2,4096,0,1", Raw(utf8,
                                     "PRAGMA journal_mode; PRAGMA synchronous; PRAGMA page_size; "
                                     "PRAGMA auto_vacuum; PRAGMA secure_delete"));
}

}  // namespace database_interface::test
