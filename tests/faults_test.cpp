// Faults under every call: a countdown (SQLite's test_syscall.c, test_malloc.c)
// fails call N of a shim VFS (vfstrace.c) or allocation N, alone or with all
// after it, for each N that Init and an Ops pass reach. A failed call is -1
// with its line; afterwards the file holds what the calls that worked stored.
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>

#include "test_util.h"

namespace database_interface::test {
namespace {

enum Point { kMalloc, kWrite, kSync, kRead, kLock, kFileSize, kNone };
struct Fault {
  const char* name;
  Point point;
  int code;  // what a failing disk call returns
  bool sticky;
  const char* version;  // of the file opened; null: a new file
};

// The armed countdown: call n at its point fails, and when sticky every later
// one; n == 0 disarms it.
struct {
  Fault fault{};
  int n = 0, calls = 0;
  bool fired = false;
} g_armed;

bool Fails(Point point) {
  if (g_armed.n == 0 || point != g_armed.fault.point) return false;
  g_armed.fired = g_armed.fired || ++g_armed.calls == g_armed.n;
  return g_armed.fired && (g_armed.fault.sticky || g_armed.calls == g_armed.n);
}

sqlite3_vfs* g_real = nullptr;
sqlite3_vfs g_shim;
sqlite3_mem_methods g_malloc;

// A shim file is a sqlite3_file followed by the real VFS's own file.
sqlite3_file* Real(sqlite3_file* file) { return file + 1; }

template <auto kMember, Point kPoint, typename... Args>
int Forward(sqlite3_file* f, Args... args) {
  return Fails(kPoint) ? g_armed.fault.code : (Real(f)->pMethods->*kMember)(Real(f), args...);
}

// Version 1: a rollback journal needs neither shared memory nor mmap. Syncs
// can fail but never reach the disk: thousands of runs cannot pay for them.
using M = sqlite3_io_methods;
const M kShimMethods = {1,
                        Forward<&M::xClose, kNone>,
                        Forward<&M::xRead, kRead>,
                        Forward<&M::xWrite, kWrite>,
                        Forward<&M::xTruncate, kNone>,
                        [](sqlite3_file*, int) { return Fails(kSync) ? g_armed.fault.code : 0; },
                        Forward<&M::xFileSize, kFileSize>,
                        Forward<&M::xLock, kLock>,
                        Forward<&M::xUnlock, kNone>,
                        Forward<&M::xCheckReservedLock, kNone>,
                        Forward<&M::xFileControl, kNone>,
                        Forward<&M::xSectorSize, kNone>,
                        Forward<&M::xDeviceCharacteristics, kNone>,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr,
                        nullptr};

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

class FaultTest : public StoreTest, public ::testing::WithParamInterface<Fault> {
 protected:
  // The allocator can change only while SQLite is shut down, before any
  // connection exists. Both shims stay in place, disarmed, between sweeps.
  static void SetUpTestSuite() {
    sqlite3_shutdown();
    ASSERT_EQ(SQLITE_OK, sqlite3_config(SQLITE_CONFIG_GETMALLOC, &g_malloc));
    sqlite3_mem_methods countdown = g_malloc;
    countdown.xMalloc = [](int size) { return Fails(kMalloc) ? nullptr : g_malloc.xMalloc(size); };
    countdown.xRealloc = [](void* p, int size) {
      return Fails(kMalloc) ? nullptr : g_malloc.xRealloc(p, size);
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_config(SQLITE_CONFIG_MALLOC, &countdown));
    ASSERT_EQ(SQLITE_OK, sqlite3_initialize());
    g_real = sqlite3_vfs_find(nullptr);
    g_shim = *g_real;  // its other methods, pAppData with them, stay the real VFS's
    g_shim.zName = "fault_shim";
    g_shim.szOsFile = static_cast<int>(sizeof(sqlite3_file)) + g_real->szOsFile;
    g_shim.xOpen = [](sqlite3_vfs*, const char* name, sqlite3_file* f, int flags, int* out) {
      const int rc = g_real->xOpen(g_real, name, Real(f), flags, out);
      f->pMethods = Real(f)->pMethods != nullptr ? &kShimMethods : nullptr;
      return rc;
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_vfs_register(&g_shim, 1));
  }
};

TEST_P(FaultTest, EveryFailedCallLogsItsLineAndTheFileKeepsWhatWorked) {
  const char* version = GetParam().version;
  const bool older = version != nullptr && version[0] == '1';  // it keeps its start record 5
  if (version != nullptr) {
    MakeStore("seed",
              "INSERT INTO start_recode VALUES(5, 'v', 't', 1); UPDATE db_version SET "
              "version = '" +
                  std::string(version) + "'");
  }
  const bool disk = GetParam().point != kMalloc;
  const std::string error = disk ? "disk I/O error" : "out of memory";
  const std::regex fault(".* failed:" +
                         (disk ? "(" + error + "|database or disk is full)" : error));
  for (int n = 1; n == 1 || (g_armed.fired && !HasFailure()); ++n) {
    SCOPED_TRACE("fault at call " + std::to_string(n));
    const std::string path = m_dir.File(std::to_string(n));
    if (version != nullptr) std::filesystem::copy_file(m_dir.File("seed"), path);
    g_armed = {GetParam(), n};
    const bool open = InitOn(path) == 0;
    const Lines chain = Take();
    const std::set<std::string> last = {
        "[database]Open sqlite3 file[" + path + "] failed:" + error,
        "[database]database_interface::CDatabase::Init sqlite3_exec with sql[PRAGMA foreign_keys "
        "= ON;] failed:out of memory",
        "[database]CreateTable failed", "[database]InitStmt failed",
        "[database]CheckAndUpdateDb failed"};
    EXPECT_TRUE(open ? chain.empty()
                     : !chain.empty() && std::regex_match(chain[0], fault) &&
                           last.count(chain.back()))
        << ::testing::PrintToString(chain);
    Ops ops(*m_db, "");
    bool ok[18] = {};
    // A read finds what the call it names stored, when that call worked.
    const std::map<size_t, size_t> source = {{1, 0}, {3, 2}, {5, 4}, {9, 7}, {14, 13}};
    for (size_t i = 0; open && i < ops.ops.size(); ++i) {
      if (i >= 3 && i <= 11 && !ok[2]) continue;  // they need the start record
      const int rc = ops.ops[i].call();
      const Lines lines = Take();
      ok[i] = rc == (source.count(i) && !ok[source.at(i)] ? 0 : ops.ops[i].result);
      const std::string op =
          "[database]database_interface::CDatabase::" + std::string(ops.ops[i].name);
      EXPECT_TRUE(rc == -1 ? lines.size() == 1 && std::regex_match(lines[0], fault) &&
                                 lines[0].rfind(op + " ", 0) == 0
                           : ok[i] && lines.empty())
          << op << " returned " << rc << ", logged " << ::testing::PrintToString(lines);
    }
    g_armed.n = 0;
    // Still open, the object serves the next call; opened again, so does it.
    EXPECT_EQ(open ? 0 : -1, m_db->InsertSessionCache("probe", "v", 1));
    ASSERT_EQ(0, InitOn(path));
    EXPECT_EQ(0, m_db->InsertSessionCache("probe", "v", 1));
    m_db->Uninit();
    // Integrity, version, then whether each row of the pass (and the session
    // id it updated) is there, and an older file's start record 5.
    const bool gone = ok[11] || ok[12], instance = ok[7] && !ok[10] && !gone;
    std::string state = "ok,1.24.0,";
    for (const bool row :
         {ok[0], ok[2] && !gone, ok[4] && !ok[6] && !gone, instance, instance && ok[8],
          ok[13] && !ok[15] && !ok[16] && !ok[17], older && !ok[12]}) {
      state += row ? "1" : "0";
    }
    EXPECT_EQ(state, Raw(path,
                         "PRAGMA integrity_check; SELECT version FROM db_version; SELECT "
                         "(SELECT count(*) FROM message_collect_key WHERE "
                         "message_access_key = 'A') || (SELECT count(*) FROM start_recode "
                         "WHERE sdk_version = 'C') || (SELECT count(*) FROM core_recode "
                         "WHERE dump_file_path = 'E') || (SELECT count(*) FROM "
                         "instance_info) || (SELECT count(*) FROM instance_info WHERE "
                         "session_id = 'J') || (SELECT count(*) FROM session_cache WHERE "
                         "session_key = 'K') || (SELECT count(*) FROM start_recode WHERE id "
                         "= 5)"));
    std::filesystem::remove(path);
  }
}

// Every disk fault on a new file, an older one to upgrade and a newer one to
// empty; allocations where most of them are, creating and upgrading a store.
std::vector<Fault> Faults() {
  std::vector<Fault> faults = {{"MallocAtNewFile", kMalloc, 0, false, nullptr},
                               {"MallocAtOlderFile", kMalloc, 0, false, "1.11.9"},
                               {"MallocFromOlderFile", kMalloc, 0, true, "1.11.9"}};
  for (const Fault& f : {Fault{"WriteAt", kWrite, SQLITE_IOERR_WRITE, false, nullptr},
                         Fault{"DiskFullFrom", kWrite, SQLITE_FULL, true, nullptr},
                         Fault{"SyncAt", kSync, SQLITE_IOERR_FSYNC, false, nullptr},
                         Fault{"SyncFrom", kSync, SQLITE_IOERR_FSYNC, true, nullptr},
                         Fault{"ReadAt", kRead, SQLITE_IOERR_READ, false, nullptr},
                         Fault{"LockAt", kLock, SQLITE_IOERR_LOCK, false, nullptr},
                         Fault{"FileSizeAt", kFileSize, SQLITE_IOERR_FSTAT, false, nullptr}}) {
    faults.push_back({f.name, f.point, f.code, f.sticky, nullptr});
    faults.push_back({f.name, f.point, f.code, f.sticky, "1.11.9"});
    faults.push_back({f.name, f.point, f.code, f.sticky, "2.0.0"});
  }
  return faults;
}

INSTANTIATE_TEST_SUITE_P(, FaultTest, ::testing::ValuesIn(Faults()), [](const auto& p) {
  const char* version = p.param.version;
  return std::string(p.param.name) + (p.param.point == kMalloc ? ""
                                      : !version               ? "NewFile"
                                      : version[0] == '1'      ? "OlderFile"
                                                               : "NewerFile");
});

}  // namespace
}  // namespace database_interface::test
