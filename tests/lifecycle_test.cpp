// Opening and closing an object: refused calls, failed opens, reuse, and two
// threads racing to open one object.
#include <filesystem>
#include <future>
#include <set>
#include <thread>
#include <tuple>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

using LifecycleTest = StoreTest;

// Every data operation answers -1 and leaves its outputs as they were.
void ExpectEveryOperationRefused(IDatabaseInterface& db) {
  std::string a = "a", b = "b";
  int id = 7;
  int64_t t = 9;
  CoreRecode core(3, "d", "l", 1, 2);
  InstanceInfo info(4, "n", "s", 1, "p", 1, 2);
  std::vector<CoreRecode> cores(1);
  std::vector<InstanceInfo> infos(1);
  const int results[] = {db.SelectMessageCollectKey(a, b),
                         db.InsertMessageCollectKey("k", 1, "s", 1),
                         db.InsertStartRecode(id, "v", 1, "t", 1, 1),
                         db.SelectStartRecode(1, a, b, t),
                         db.DeleteStartRecode(1),
                         db.DeleteAllStartRecode(),
                         db.InsertCoreRecode(core),
                         db.SelectAllCoreRecode(cores),
                         db.DeleteCoreRecode(1),
                         db.InsertInstanceInfo(info),
                         db.SelectInstanceInfoWithStartRecodeId(1, infos),
                         db.UpdataInstanceSessionId(1, "s", 1),
                         db.DeleteInstanceInfo(1),
                         db.DeleteSessionCache(1),
                         db.DeleteSessionCacheWithKey("k"),
                         db.InsertSessionCache("k", "v", 1),
                         db.SelectSessionCache("k", 0, a),
                         db.DeleteAllSessionCache()};
  for (size_t i = 0; i < std::size(results); ++i) EXPECT_EQ(-1, results[i]) << "operation " << i;
  EXPECT_EQ(std::make_tuple("a", "b", 7, int64_t{9}, 3, 4, 1u, 1u),
            std::make_tuple(a, b, id, t, core.id, info.id, cores.size(), infos.size()));
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
  EXPECT_EQ(1, RawInt(m_db_path, "SELECT count(*) FROM start_recode"));

  // Opened again on another file, the object works on that file only.
  ASSERT_EQ(0, m_db->Init(other.c_str()));
  EXPECT_EQ(1, m_db->InsertStartRecode(id, "v", 1, "t", 1, 1));
  EXPECT_EQ(1, id);
  EXPECT_EQ(1, RawInt(other, "SELECT count(*) FROM start_recode"));
  EXPECT_EQ(1, RawInt(m_db_path, "SELECT count(*) FROM start_recode"));
  EXPECT_TRUE(Logged().empty());
}

TEST_F(LifecycleTest, FailedInitLogsOneLineAndLeavesTheObjectReusable) {
  const std::string missing = m_dir.File("missing/test.db");
  const std::string bad_utf8 = m_dir.File("\xff\xfe.db");
  const std::pair<std::string, std::string> cases[] = {
      {missing, "[database]Open sqlite3 file[" + missing + "] failed:unable to open database file"},
      {bad_utf8, "[database]Convert sqlite3 file path[" + bad_utf8 + "] failed"},
      {"", "[database]Convert sqlite3 file path[] failed"}};
  for (const auto& [path, line] : cases) {
    SCOPED_TRACE(path);
    auto db = IDatabaseInterface::CreateDatabaseInterface();
    ClearLog();
    EXPECT_EQ(-1, db->Init(path.c_str()));
    EXPECT_EQ(std::vector<std::string>{line}, Logged());
    EXPECT_EQ(60, m_capture->logger().lines().at(0).level);
    EXPECT_FALSE(std::filesystem::exists(path));
    ClearLog();
    ExpectEveryOperationRefused(*db);
    EXPECT_EQ(0, db->Init(m_dir.File("good.db").c_str()));
    db->Uninit();
    EXPECT_TRUE(Logged().empty());
  }
}

TEST_F(LifecycleTest, ConcurrentInitAdmitsExactlyOneCaller) {
  for (int round = 0; round < 20; ++round) {
    auto db = IDatabaseInterface::CreateDatabaseInterface();
    const std::string paths[] = {m_dir.File(std::to_string(round) + "a.db"),
                                 m_dir.File(std::to_string(round) + "b.db")};
    std::promise<void> go;
    std::shared_future<void> gate = go.get_future().share();
    int results[2] = {};
    auto init = [&](int i) {
      gate.wait();
      results[i] = db->Init(paths[i].c_str());
    };
    std::thread first(init, 0), second(init, 1);
    go.set_value();
    first.join();
    second.join();
    ASSERT_EQ(std::multiset<int>({-1, 0}), std::multiset<int>(results, results + 2));
    // The refused caller never opened its file.
    EXPECT_EQ(results[0] == 0, std::filesystem::exists(paths[0]));
    EXPECT_EQ(results[1] == 0, std::filesystem::exists(paths[1]));
    EXPECT_EQ(0, db->InsertSessionCache("k", "v", 1));
    db->Uninit();
  }
  EXPECT_TRUE(Logged().empty());
}

TEST_F(LifecycleTest, NewFileHoldsSixTablesAndOneVersionRow) {
  Reopen();
  EXPECT_EQ((std::vector<std::string>{"core_recode", "db_version", "instance_info",
                                      "message_collect_key", "session_cache", "start_recode"}),
            RawColumn(m_db_path,
                      "SELECT name FROM sqlite_master WHERE type = 'table' AND name != "
                      "'sqlite_sequence' ORDER BY name"));
  EXPECT_EQ(std::vector<std::string>{"1,1.24.0"},
            RawColumn(m_db_path, "SELECT id || ',' || version FROM db_version"));
  EXPECT_TRUE(Logged().empty());
}

}  // namespace
}  // namespace test
}  // namespace database_interface
