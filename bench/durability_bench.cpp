// What durability costs per committed write on a real file: syncs of files and
// of their directory, and wall time, under each journal mode and synchronous
// setting that could keep an acknowledged write through a power cut, and for
// the library itself. A counting VFS over the default one sees every file
// sync; the unix VFS opens a directory only to sync it, so its openDirectory
// system call counts those.
//
//   database_interface_durability_bench [directory] [writes]
//
// The directory (default: the current one) must be on the disk to measure,
// not on tmpfs. The library's row needs a build on the system SQLite, which
// the library then shares with this program and its counting VFS.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "database_interface/database_interface.h"
#include "statements.h"

namespace {

using database_interface::IDatabaseInterface;
using database_interface::kStmtSqls;
using database_interface::StatementId;

constexpr int64_t kExpiry = 4102444800000;  // 2100-01-01, in milliseconds

struct Counts {
  long journal_syncs = 0;
  long db_syncs = 0;
  long dir_syncs = 0;
} g_counts;

sqlite3_vfs* g_real = nullptr;
sqlite3_vfs g_counting;
sqlite3_syscall_ptr g_open_directory = nullptr;
// Each kind of file (database, journal) and each table of methods the real
// VFS gives it (the unix VFS gives a journal one without locks) gets a copy
// with xSync counted. A copy's xSync finds the real one through the file,
// which keeps pointing at the copy.
struct CountedMethods {
  const sqlite3_io_methods* real = nullptr;
  bool journal = false;
  sqlite3_io_methods counted{};
};
std::vector<CountedMethods> g_methods(8);

int CountedSync(sqlite3_file* file, int flags) {
  for (const CountedMethods& m : g_methods) {
    if (&m.counted != file->pMethods) continue;
    ++(m.journal ? g_counts.journal_syncs : g_counts.db_syncs);
    return m.real->xSync(file, flags);
  }
  return SQLITE_IOERR_FSYNC;
}

int CountedOpenDirectory(const char* path, int* fd) {
  ++g_counts.dir_syncs;
  return reinterpret_cast<int (*)(const char*, int*)>(g_open_directory)(path, fd);
}

// The real VFS's file, its methods swapped for their counting copy.
int CountingOpen(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out) {
  const int rc = g_real->xOpen(g_real, name, file, flags, out);
  if (file->pMethods == nullptr) return rc;
  const bool journal = (flags & SQLITE_OPEN_MAIN_JOURNAL) != 0;
  for (CountedMethods& m : g_methods) {
    if (m.real == nullptr) {
      m = {file->pMethods, journal, *file->pMethods};
      m.counted.xSync = CountedSync;
    }
    if (m.real == file->pMethods && m.journal == journal) {
      file->pMethods = &m.counted;
      return rc;
    }
  }
  return rc;  // more kinds of file than slots: not counted
}

void InstallCountingVfs() {
  g_real = sqlite3_vfs_find(nullptr);
  g_counting = *g_real;
  g_counting.zName = "counting";
  g_counting.xOpen = CountingOpen;
  sqlite3_vfs_register(&g_counting, 1);
  g_open_directory = g_real->xGetSystemCall(g_real, "openDirectory");
  g_real->xSetSystemCall(g_real, "openDirectory",
                         reinterpret_cast<sqlite3_syscall_ptr>(CountedOpenDirectory));
}

struct Row {
  std::string settings;
  double journal_syncs, db_syncs, dir_syncs, median_ms, p25_ms, p75_ms, read_us;
};

// Runs `call` `times` times, each timed; exits on the first failure.
template <typename Call>
std::vector<double> Timed(const std::string& what, int times, Call call) {
  std::vector<double> us;
  for (int i = 0; i < times; ++i) {
    const auto start = std::chrono::steady_clock::now();
    if (!call(i)) {
      std::fprintf(stderr, "%s: call %d failed\n", what.c_str(), i);
      std::exit(1);
    }
    us.push_back(std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                     .count());
  }
  std::sort(us.begin(), us.end());
  return us;
}

// `writes` calls of `write`, each one committed write, then as many of
// `read`, each a read transaction of its own: in a rollback-journal file each
// one first looks for a hot journal, which costs more where a journal stays.
template <typename Write, typename Read>
Row Measure(const std::string& settings, int writes, Write write, Read read) {
  const Counts before = g_counts;
  const std::vector<double> us = Timed(settings, writes, write);
  const auto per_write = [&](long Counts::*count) {
    return static_cast<double>(g_counts.*count - before.*count) / writes;
  };
  const auto ms = [&](size_t percent) { return us[percent * (us.size() - 1) / 100] / 1000; };
  return {settings,
          per_write(&Counts::journal_syncs),
          per_write(&Counts::db_syncs),
          per_write(&Counts::dir_syncs),
          ms(50),
          ms(25),
          ms(75),
          Timed(settings, writes, read)[static_cast<size_t>(writes / 2)]};
}

// A store the library made, written by SQLite directly with the library's
// InsertSessionCache statement under the given settings.
Row MeasureSettings(const std::string& path, const char* journal_mode, const char* synchronous,
                    int writes) {
  const auto made = IDatabaseInterface::CreateDatabaseInterface();
  if (made->Init(path.c_str()) != 0) std::exit(1);
  made->Uninit();
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX, nullptr);
  const std::string pragmas = std::string("PRAGMA journal_mode = ") + journal_mode +
                              "; PRAGMA synchronous = " + synchronous + ";";
  sqlite3_exec(db, pragmas.c_str(), nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_stmt* select = nullptr;
  sqlite3_prepare_v2(db, kStmtSqls[Index(StatementId::InsertSessionCache)], -1, &insert, nullptr);
  sqlite3_prepare_v2(db, kStmtSqls[Index(StatementId::SelectSessionCache)], -1, &select, nullptr);
  const auto run = [](sqlite3_stmt* stmt, const std::string& key, int want) {
    sqlite3_bind_text(stmt, 1, key.c_str(), -1, SQLITE_STATIC);
    if (sqlite3_bind_parameter_count(stmt) == 3) sqlite3_bind_text(stmt, 2, "value", -1, nullptr);
    sqlite3_bind_int64(stmt, sqlite3_bind_parameter_count(stmt), want == SQLITE_DONE ? kExpiry : 0);
    const int rc = sqlite3_step(stmt);
    sqlite3_reset(stmt);
    return rc == want;
  };
  const Row row = Measure(
      std::string(journal_mode) + ", " + synchronous, writes,
      [&](int i) { return run(insert, "key" + std::to_string(i), SQLITE_DONE); },
      [&](int i) { return run(select, "key" + std::to_string(i), SQLITE_ROW); });
  sqlite3_finalize(insert);
  sqlite3_finalize(select);
  sqlite3_close(db);
  return row;
}

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  const fs::path dir = fs::path(argc > 1 ? argv[1] : ".") / "durability_bench";
  const int writes = argc > 2 ? std::stoi(argv[2]) : 300;
  fs::remove_all(dir);
  fs::create_directories(dir);
  InstallCountingVfs();

  std::vector<Row> rows;
  int file = 0;
  const auto next = [&] { return (dir / ("store" + std::to_string(file++))).string(); };
  for (const auto& [mode, sync] : {std::pair{"DELETE", "FULL"},
                                   {"DELETE", "EXTRA"},
                                   {"TRUNCATE", "FULL"},
                                   {"PERSIST", "FULL"}}) {
    rows.push_back(MeasureSettings(next(), mode, sync, writes));
  }
  if (DATABASE_INTERFACE_BENCH_SHARED_SQLITE) {
    const auto db = IDatabaseInterface::CreateDatabaseInterface();
    if (db->Init(next().c_str()) != 0) return 1;
    std::string value;
    rows.push_back(Measure(
        "the library (TRUNCATE, FULL)", writes,
        [&](int i) {
          return db->InsertSessionCache(("key" + std::to_string(i)).c_str(), "value", kExpiry) == 0;
        },
        [&](int i) {
          return db->SelectSessionCache(("key" + std::to_string(i)).c_str(), 0, value) == 1;
        }));
    db->Uninit();
  }
  fs::remove_all(dir);

  std::printf("%d committed InsertSessionCache writes each, in %s, SQLite %s\n\n", writes,
              fs::absolute(dir).parent_path().c_str(), sqlite3_libversion());
  std::printf(
      "| journal_mode, synchronous | journal syncs | database syncs | directory syncs | "
      "ms per write (IQR) | µs per read |\n");
  std::printf("|---|--:|--:|--:|--:|--:|\n");
  for (const Row& r : rows) {
    std::printf("| %s | %.2f | %.2f | %.2f | %.2f (%.2f–%.2f) | %.1f |\n", r.settings.c_str(),
                r.journal_syncs, r.db_syncs, r.dir_syncs, r.median_ms, r.p25_ms, r.p75_ms,
                r.read_us);
  }
  if (!DATABASE_INTERFACE_BENCH_SHARED_SQLITE) {
    std::printf(
        "\nThe library's own row needs a build on the system SQLite "
        "(-DDATABASE_INTERFACE_SYSTEM_SQLITE=ON), which it then shares with this "
        "program.\n");
  }
  return 0;
}
