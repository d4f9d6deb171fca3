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

struct Counts {
  long file_syncs = 0;
  long dir_syncs = 0;
} g_counts;

sqlite3_vfs* g_real = nullptr;
sqlite3_vfs g_counting;
sqlite3_syscall_ptr g_open_directory = nullptr;
// The unix VFS gives the database one table of methods and its journal
// another (no locks): each gets a copy with xSync counted. A copy's xSync
// finds the real one through the file, which keeps pointing at the copy.
struct CountedMethods {
  const sqlite3_io_methods* real = nullptr;
  sqlite3_io_methods counted{};
};
std::vector<CountedMethods> g_methods(4);

int CountedSync(sqlite3_file* file, int flags) {
  ++g_counts.file_syncs;
  for (const CountedMethods& m : g_methods) {
    if (&m.counted == file->pMethods) return m.real->xSync(file, flags);
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
  for (CountedMethods& m : g_methods) {
    if (m.real == nullptr) {
      m.real = file->pMethods;
      m.counted = *m.real;
      m.counted.xSync = CountedSync;
    }
    if (m.real == file->pMethods) {
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
  double file_syncs, dir_syncs, median_ms, p25_ms, p75_ms;
};

// Times `writes` calls of `write`, each one committed write.
template <typename Write>
Row Measure(const std::string& settings, int writes, Write write) {
  std::vector<double> ms;
  const Counts before = g_counts;
  for (int i = 0; i < writes; ++i) {
    const auto start = std::chrono::steady_clock::now();
    if (!write(i)) {
      std::fprintf(stderr, "%s: write %d failed\n", settings.c_str(), i);
      std::exit(1);
    }
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count());
  }
  std::sort(ms.begin(), ms.end());
  const auto at = [&](size_t percent) { return ms[percent * (ms.size() - 1) / 100]; };
  return {settings,
          static_cast<double>(g_counts.file_syncs - before.file_syncs) / writes,
          static_cast<double>(g_counts.dir_syncs - before.dir_syncs) / writes,
          at(50),
          at(25),
          at(75)};
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
  sqlite3_prepare_v2(db, kStmtSqls[Index(StatementId::InsertSessionCache)], -1, &insert, nullptr);
  const Row row = Measure(std::string(journal_mode) + ", " + synchronous, writes, [&](int i) {
    const std::string key = "key" + std::to_string(i);
    sqlite3_bind_text(insert, 1, key.c_str(), -1, SQLITE_STATIC);
    sqlite3_bind_text(insert, 2, "value", -1, SQLITE_STATIC);
    sqlite3_bind_int64(insert, 3, 4102444800000);
    const int rc = sqlite3_step(insert);
    sqlite3_reset(insert);
    return rc == SQLITE_DONE;
  });
  sqlite3_finalize(insert);
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
    rows.push_back(Measure("the library (TRUNCATE, FULL)", writes, [&](int i) {
      return db->InsertSessionCache(("key" + std::to_string(i)).c_str(), "value", 4102444800000) ==
             0;
    }));
    db->Uninit();
  }
  fs::remove_all(dir);

  std::printf("%d committed InsertSessionCache writes each, in %s, SQLite %s\n\n", writes,
              fs::absolute(dir).parent_path().c_str(), sqlite3_libversion());
  std::printf(
      "| journal_mode, synchronous | file syncs | directory syncs | ms per write (IQR) |\n");
  std::printf("|---|--:|--:|--:|\n");
  for (const Row& r : rows) {
    std::printf("| %s | %.2f | %.2f | %.2f (%.2f–%.2f) |\n", r.settings.c_str(), r.file_syncs,
                r.dir_syncs, r.median_ms, r.p25_ms, r.p75_ms);
  }
  if (!DATABASE_INTERFACE_BENCH_SHARED_SQLITE) {
    std::printf(
        "\nThe library's own row needs a build on the system SQLite "
        "(-DDATABASE_INTERFACE_SYSTEM_SQLITE=ON), which it then shares with this "
        "program.\n");
  }
  return 0;
}
