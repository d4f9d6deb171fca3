// SQLite out of memory under every call: a countdown allocator installed with
// SQLITE_CONFIG_MALLOC (SQLite's test_malloc.c) fails the N-th allocation of a
// scenario, alone or with every one after it, for every N the scenario
// reaches. Each failure is -1 with "out of memory" in its line, nothing leaks
// (the sanitizer build checks), and the same object works once memory is back.
#include <sqlite3.h>

#include <cstdio>
#include <regex>
#include <set>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

sqlite3_mem_methods g_default;  // SQLite's own allocator, which does the work
struct Countdown {
  int n = 0;  // 0: disarmed
  bool sticky = false;
  int calls = 0;
  bool fired = false;
} g_countdown;

bool Fails() {
  if (g_countdown.n == 0) return false;
  if (++g_countdown.calls == g_countdown.n) g_countdown.fired = true;
  return g_countdown.fired && (g_countdown.sticky || g_countdown.calls == g_countdown.n);
}

const std::regex kOutOfMemory("\\[database\\].* failed:out of memory");

class MallocFaultTest : public ::testing::Test {
 protected:
  // The allocator can change only while SQLite is shut down, before any
  // connection exists; this executable runs nothing else.
  static void SetUpTestSuite() {
    sqlite3_shutdown();
    ASSERT_EQ(SQLITE_OK, sqlite3_config(SQLITE_CONFIG_GETMALLOC, &g_default));
    sqlite3_mem_methods countdown = g_default;
    countdown.xMalloc = [](int size) { return Fails() ? nullptr : g_default.xMalloc(size); };
    countdown.xRealloc = [](void* p, int size) {
      return Fails() ? nullptr : g_default.xRealloc(p, size);
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_config(SQLITE_CONFIG_MALLOC, &countdown));
    ASSERT_EQ(SQLITE_OK, sqlite3_initialize());
  }
  static void TearDownTestSuite() {
    sqlite3_shutdown();
    sqlite3_config(SQLITE_CONFIG_MALLOC, &g_default);
  }
  void TearDown() override { m_db->Uninit(); }

  // Runs the scenario on `path` once per N until it runs clean; returns the
  // fault points.
  int Sweep(const std::string& path, bool sticky);
  // Init, then calls on every store; returns whether the object is open.
  bool Scenario(const std::string& path);
  // -1 must come with one line of `op` naming the lack of memory; any other
  // result with none.
  int Checked(const char* op, int rc) {
    const std::vector<std::string> lines = m_capture.texts();
    m_capture.Clear();
    const std::string prefix = "[database]database_interface::CDatabase::" + std::string(op) + " ";
    EXPECT_TRUE(rc == -1 ? lines.size() == 1 && lines[0].rfind(prefix, 0) == 0 &&
                               std::regex_match(lines[0], kOutOfMemory)
                         : lines.empty())
        << op << " returned " << rc << ", logged " << ::testing::PrintToString(lines);
    return rc;
  }

  TempDir m_dir;
  ScopedCapture m_capture;
  std::shared_ptr<IDatabaseInterface> m_db = IDatabaseInterface::CreateDatabaseInterface();
};

bool MallocFaultTest::Scenario(const std::string& path) {
  const int init = m_db->Init(path.c_str());
  const std::vector<std::string> chain = m_capture.texts();
  m_capture.Clear();
  if (init != 0) {
    const std::set<std::string> own = {
        "[database]Open sqlite3 file[" + path + "] failed:out of memory",
        "[database]database_interface::CDatabase::Init sqlite3_exec with sql[PRAGMA "
        "foreign_keys = ON;] failed:out of memory",
        "[database]CreateTable failed", "[database]InitStmt failed",
        "[database]CheckAndUpdateDb failed"};
    EXPECT_TRUE(!chain.empty() && std::regex_match(chain.front(), kOutOfMemory) &&
                own.count(chain.back()) == 1)
        << ::testing::PrintToString(chain);
    return false;
  }
  EXPECT_TRUE(chain.empty()) << ::testing::PrintToString(chain);
  int id = 0;
  int64_t time = 0;
  std::string a, b;
  if (Checked("InsertStartRecode", m_db->InsertStartRecode(id, "1.0", 3, "sdk", 3, 7)) == 1) {
    Checked("SelectStartRecode", m_db->SelectStartRecode(id, a, b, time));
    CoreRecode core(0, "dump", "log", id, 7);
    std::vector<CoreRecode> cores;
    Checked("InsertCoreRecode", m_db->InsertCoreRecode(core));
    Checked("SelectAllCoreRecode", m_db->SelectAllCoreRecode(cores));
    InstanceInfo instance(0, "no", "session", 1, "tcp", id, 7);
    std::vector<InstanceInfo> instances;
    Checked("InsertInstanceInfo", m_db->InsertInstanceInfo(instance));
    Checked("UpdataInstanceSessionId", m_db->UpdataInstanceSessionId(instance.id, "other", 5));
    Checked("SelectInstanceInfoWithStartRecodeId",
            m_db->SelectInstanceInfoWithStartRecodeId(id, instances));
    Checked("DeleteStartRecode", m_db->DeleteStartRecode(id));
  }
  Checked("InsertSessionCache", m_db->InsertSessionCache("key", "value", 9));
  Checked("SelectSessionCache", m_db->SelectSessionCache("key", 0, a));
  Checked("DeleteSessionCacheWithKey", m_db->DeleteSessionCacheWithKey("key"));
  Checked("InsertMessageCollectKey", m_db->InsertMessageCollectKey("ak", 2, "sk", 2));
  Checked("SelectMessageCollectKey", m_db->SelectMessageCollectKey(a, b));
  return true;
}

int MallocFaultTest::Sweep(const std::string& path, bool sticky) {
  int n = 1;
  for (;; ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n) + (sticky ? " and after" : ""));
    g_countdown = Countdown{n, sticky};
    const bool open = Scenario(path);
    const bool fired = g_countdown.fired;
    g_countdown.n = 0;
    // Still open, the object serves the next call; open again, it works too.
    if (open) {
      EXPECT_EQ(0, m_db->InsertMessageCollectKey("probe", 5, "probe", 5));
    }
    m_db->Uninit();
    std::string value;
    EXPECT_EQ(0, m_db->Init(path.c_str()));
    EXPECT_EQ(0, m_db->InsertSessionCache("probe", "value", 9));
    EXPECT_EQ(1, m_db->SelectSessionCache("probe", 0, value));
    m_db->Uninit();
    EXPECT_TRUE(m_capture.texts().empty()) << ::testing::PrintToString(m_capture.texts());
    if (HasFailure() || !fired) break;
  }
  std::printf("%d allocation fault points%s\n", n - 1, sticky ? ", failing every later one" : "");
  return n - 1;
}

TEST_F(MallocFaultTest, EachFailedAllocationFailsOneCallWithOutOfMemory) {
  RecordProperty("fault_points", Sweep(m_dir.File("store.db"), false));
}

TEST_F(MallocFaultTest, AllocationsFailingForGoodFailCallsCleanlyUntilMemoryIsBack) {
  RecordProperty("fault_points", Sweep(m_dir.File("store.db"), true));
}

// A new store each run, in memory: the schema is created and versioned anew.
TEST_F(MallocFaultTest, EachFailedAllocationWhileCreatingAStoreFailsInitCleanly) {
  RecordProperty("fault_points", Sweep(":memory:", false));
}

}  // namespace
}  // namespace test
}  // namespace database_interface
