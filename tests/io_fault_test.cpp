// Disk faults under every call: a shim over the platform VFS, installed as
// SQLite's default, fails the N-th write, sync, read, lock or size query of a
// scenario, for every N the scenario reaches. Each -1 carries its
// operation's line (Init: its chain), and once the disk is healthy the file
// opens, passes integrity_check and holds every row a call reported written.
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <utility>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

enum Method { kNone = -1, kWrite, kSync, kRead, kLock, kFileSize };
constexpr const char* kMethodNames[] = {"xWrite", "xSync", "xRead", "xLock", "xFileSize"};

// The armed fault (SQLite's test_syscall.c countdown): the n-th call of
// `method` fails with `code`; when `sticky`, so does every later one.
struct Fault {
  Method method;
  int code;
  bool sticky;
  int n = 0;  // 0: disarmed
  int calls = 0;
  bool fired = false;
} g_fault{kNone, SQLITE_OK, false};

bool Fails(Method method) {
  if (g_fault.n == 0 || method != g_fault.method) return false;
  if (++g_fault.calls == g_fault.n) g_fault.fired = true;
  return g_fault.fired && (g_fault.sticky || g_fault.calls == g_fault.n);
}

// A shim file is a sqlite3_file followed by the platform's own file.
sqlite3_file* Real(sqlite3_file* file) { return file + 1; }

template <auto kMember, Method kMethod, typename... Args>
int Forward(sqlite3_file* f, Args... args) {
  return Fails(kMethod) ? g_fault.code : (Real(f)->pMethods->*kMember)(Real(f), args...);
}

// Version 1: no shared memory and no mmap, which a rollback journal never uses.
// Syncs are counted and can fail but are not forwarded: nothing here outlives
// the process's page cache, and thousands of runs cannot pay for real flushes.
sqlite3_io_methods ShimMethods() {
  using M = sqlite3_io_methods;
  M m{};
  m.iVersion = 1;
  m.xClose = Forward<&M::xClose, kNone>;
  m.xRead = Forward<&M::xRead, kRead>;
  m.xWrite = Forward<&M::xWrite, kWrite>;
  // Never called here: without auto-vacuum the file never shrinks, and the
  // journal is deleted, not truncated.
  m.xTruncate = Forward<&M::xTruncate, kNone>;
  m.xSync = [](sqlite3_file*, int) { return Fails(kSync) ? g_fault.code : SQLITE_OK; };
  m.xFileSize = Forward<&M::xFileSize, kFileSize>;
  m.xLock = Forward<&M::xLock, kLock>;
  m.xUnlock = Forward<&M::xUnlock, kNone>;
  m.xCheckReservedLock = Forward<&M::xCheckReservedLock, kNone>;
  m.xFileControl = Forward<&M::xFileControl, kNone>;
  m.xSectorSize = Forward<&M::xSectorSize, kNone>;
  m.xDeviceCharacteristics = Forward<&M::xDeviceCharacteristics, kNone>;
  return m;
}
const sqlite3_io_methods kShimMethods = ShimMethods();
sqlite3_vfs* g_real = nullptr;
sqlite3_vfs g_shim;

const std::regex kFault(".* failed:(disk I/O error|database or disk is full)");

class IoFaultTest : public StoreTest {
 protected:
  // The shim takes the platform VFS's place as the default, so the library's
  // own open finds it (SQLite's ext/misc/vfstrace.c).
  static void SetUpTestSuite() {
    g_real = sqlite3_vfs_find(nullptr);
    g_shim = *g_real;  // its other methods stay the platform's, pAppData with them
    g_shim.zName = "io_fault_shim";
    g_shim.szOsFile = static_cast<int>(sizeof(sqlite3_file)) + g_real->szOsFile;
    g_shim.xOpen = [](sqlite3_vfs*, const char* name, sqlite3_file* f, int flags, int* out) {
      const int rc = g_real->xOpen(g_real, name, Real(f), flags, out);
      f->pMethods = Real(f)->pMethods != nullptr ? &kShimMethods : nullptr;
      return rc;
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_vfs_register(&g_shim, 1));
  }
  static void TearDownTestSuite() { sqlite3_vfs_unregister(&g_shim); }
  void SetUp() override {
    StoreTest::SetUp();
    m_db->Uninit();
  }

  // Sweeps every fault over the scenario run on a new file (`version` null)
  // or on a copy of a file stored raw with `version`, start record 5 and key
  // pair "seed"; the migration keeps record 5 or empties its table.
  void Sweep(const char* version, bool keeps_records);
  // Init, then calls across the stores; m_rows gets what each success promises.
  void Scenario(const std::string& path);
  // -1 must come with exactly `op`'s step line, any other result with none.
  int Checked(const char* op, int rc) {
    const std::vector<std::string> lines = Logged();
    ClearLog();
    const std::string line =
        "[database]database_interface::CDatabase::" + std::string(op) + " sqlite3_step with sql[";
    EXPECT_TRUE(rc == -1 ? lines.size() == 1 && lines[0].rfind(line, 0) == 0 &&
                               std::regex_match(lines[0], kFault)
                         : lines.empty())
        << op << " returned " << rc << ", logged " << ::testing::PrintToString(lines);
    return rc;
  }
  void Row(const std::string& name, const std::string& from_where, int count) {
    m_rows[name] = {"SELECT count(*) FROM " + from_where, count};
  }

  std::map<std::string, std::pair<std::string, int>> m_rows;
};

void IoFaultTest::Scenario(const std::string& path) {
  const int init = m_db->Init(path.c_str());
  const std::vector<std::string> chain = Logged();
  ClearLog();
  if (init != 0) {
    const std::set<std::string> own = {
        "[database]Open sqlite3 file[" + path + "] failed:disk I/O error",
        "[database]CreateTable failed", "[database]InitStmt failed",
        "[database]CheckAndUpdateDb failed"};
    EXPECT_TRUE(!chain.empty() && std::regex_match(chain.front(), kFault) &&
                own.count(chain.back()) == 1)
        << ::testing::PrintToString(chain);
    return;
  }
  EXPECT_TRUE(chain.empty()) << chain[0];
  const auto id = [](int i) { return std::to_string(i); };
  int s1 = 0, s2 = 0;
  const bool s1_ok =
      Checked("InsertStartRecode", m_db->InsertStartRecode(s1, "v1", 2, "t", 1, 1)) == 1;
  if (s1_ok) Row("s1", "start_recode WHERE sdk_version = 'v1' AND id = " + id(s1), 1);
  const bool s2_ok =
      Checked("InsertStartRecode", m_db->InsertStartRecode(s2, "v2", 2, "t", 1, 1)) == 1;
  if (s2_ok) Row("s2", "start_recode WHERE sdk_version = 'v2' AND id = " + id(s2), 1);
  EXPECT_TRUE(!s1_ok || !s2_ok || s1 != s2) << "start id " << s1 << " handed out twice";
  CoreRecode core(0, "d", "l", s1, 1);
  const bool core_ok = s1_ok && Checked("InsertCoreRecode", m_db->InsertCoreRecode(core)) == 1;
  if (core_ok) Row("core", "core_recode WHERE id = " + id(core.id), 1);
  InstanceInfo instance(0, "n", "s", 1, "p", s1, 1);
  if (s1_ok && Checked("InsertInstanceInfo", m_db->InsertInstanceInfo(instance)) == 1) {
    Row("instance", "instance_info WHERE session_id = 's' AND id = " + id(instance.id), 1);
    const int updated = m_db->UpdataInstanceSessionId(instance.id, "u", 1);
    if (Checked("UpdataInstanceSessionId", updated) == 0) {
      Row("instance", "instance_info WHERE session_id = 'u' AND id = " + id(instance.id), 1);
    }
  }
  for (const std::string key : {"k1", "k2"}) {
    if (Checked("InsertSessionCache", m_db->InsertSessionCache(key.c_str(), key.c_str(), 9)) == 0) {
      Row(key, "session_cache WHERE session_value = '" + key + "'", 1);
    }
  }
  if (Checked("InsertMessageCollectKey", m_db->InsertMessageCollectKey("ak", 2, "sk", 2)) == 0) {
    Row("key", "message_collect_key WHERE message_access_key = 'ak'", 1);
  }
  std::string value;
  std::vector<InstanceInfo> instances;
  Checked("SelectSessionCache", m_db->SelectSessionCache("k2", 0, value));
  Checked("SelectInstanceInfoWithStartRecodeId",
          m_db->SelectInstanceInfoWithStartRecodeId(s1, instances));
  if (Checked("DeleteSessionCacheWithKey", m_db->DeleteSessionCacheWithKey("k1")) == 0) {
    Row("k1", "session_cache WHERE session_key = 'k1'", 0);
  }
  if (core_ok && Checked("DeleteCoreRecode", m_db->DeleteCoreRecode(core.id)) == 0) {
    Row("core", "core_recode WHERE id = " + id(core.id), 0);
  }
  if (s2_ok && Checked("DeleteStartRecode", m_db->DeleteStartRecode(s2)) == 0) {
    Row("s2", "start_recode WHERE id = " + id(s2), 0);
  }
}

void IoFaultTest::Sweep(const char* version, bool keeps_records) {
  const std::string seed = m_dir.File("seed.db");
  if (version != nullptr) {
    MakeFileWithVersion(seed, version);
    RawExec(seed,
            "INSERT INTO start_recode VALUES(5, 'v', 't', 1);"
            "INSERT INTO message_collect_key VALUES('seed', 'seed');");
  }
  const Fault faults[] = {{kWrite, SQLITE_IOERR_WRITE, false},   {kWrite, SQLITE_FULL, true},
                          {kSync, SQLITE_IOERR_FSYNC, false},    {kSync, SQLITE_IOERR_FSYNC, true},
                          {kRead, SQLITE_IOERR_READ, false},     {kLock, SQLITE_IOERR_LOCK, false},
                          {kFileSize, SQLITE_IOERR_FSTAT, false}};
  int injected = 0;
  std::string summary;
  for (const Fault& fault : faults) {
    const std::string name = std::string(kMethodNames[fault.method]) + " " +
                             sqlite3_errstr(fault.code) + (fault.sticky ? " from" : " at");
    int n = 1;
    for (;; ++n) {
      SCOPED_TRACE(name + " call " + std::to_string(n));
      const std::string path = m_dir.File("run.db");
      if (version != nullptr) std::filesystem::copy_file(seed, path);
      m_rows.clear();
      g_fault = fault;
      g_fault.n = n;
      Scenario(path);
      const bool fired = g_fault.fired;
      g_fault.n = 0;
      m_db->Uninit();
      ASSERT_EQ(0, m_db->Init(path.c_str()));
      m_db->Uninit();
      EXPECT_TRUE(Logged().empty()) << ::testing::PrintToString(Logged());
      if (version != nullptr) {
        Row("seed_start", "start_recode WHERE id = 5", keeps_records ? 1 : 0);
        Row("seed_key", "message_collect_key WHERE message_access_key = 'seed'", 1);
      }
      // One raw connection reads the whole state: integrity, version, rows.
      std::string sql =
          "SELECT (SELECT group_concat(integrity_check) FROM pragma_integrity_check) || ' ' || "
          "(SELECT group_concat(version) FROM db_version)";
      std::string expected = "ok 1.24.0";
      for (const auto& [row, check] : m_rows) {
        sql += " || ' " + row + "=' || (" + check.first + ")";
        expected += " " + row + "=" + std::to_string(check.second);
      }
      EXPECT_EQ(std::vector<std::string>{expected}, RawColumn(path, sql));
      std::filesystem::remove(path);
      if (HasFailure() || !fired) break;
    }
    injected += n - 1;
    summary += "\n  " + name + " calls 1 to " + std::to_string(n - 1);
  }
  RecordProperty("fault_points", injected);
  std::printf("%d I/O fault points injected:%s\n", injected, summary.c_str());
}

TEST_F(IoFaultTest, EveryFaultOnANewFileFailsCleanlyAndLosesNoAcknowledgedRow) {
  Sweep(nullptr, true);
}

TEST_F(IoFaultTest, EveryFaultWhileUpgradingAnOlderFileKeepsItsRecords) { Sweep("1.11.9", true); }

TEST_F(IoFaultTest, EveryFaultWhileEmptyingANewerFileEndsInACleanCurrentFile) {
  Sweep("2.0.0", false);
}

}  // namespace
}  // namespace test
}  // namespace database_interface
