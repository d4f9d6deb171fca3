// What durability costs per committed write on a real file: syncs of files and
// of their directory, and wall time, under each journal mode and synchronous
// setting that could keep an acknowledged write through a power cut, and for
// the library itself, for a write that replaces by a unique key
// (InsertSessionCache) and one that appends with a new id (InsertStartRecode).
// A counting VFS over the default one sees every file sync; the unix VFS opens
// a directory only to sync it, so its openDirectory system call counts those.
//
//   database_interface_durability_bench [directory] [writes]
//
// The directory (default: the current one) must be on the disk to measure,
// not on tmpfs. The library's rows need a build on the system SQLite, which
// the library then shares with this program and its counting VFS.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "database_interface/database_interface.h"
#include "statements.h"

namespace {

using database_interface::IDatabaseInterface;
using database_interface::kConnectionSettingsSql;
using database_interface::kStmtSqls;
using database_interface::StatementId;

constexpr int64_t kExpiry = 4102444800000;  // 2100-01-01, in milliseconds

// A row measured on a store that failed to open, or under settings that
// failed to apply, would mislead: stop instead.
void Check(bool ok, const std::string& what) {
  if (ok) return;
  std::fprintf(stderr, "%s failed\n", what.c_str());
  std::exit(1);
}

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
    Check(call(i), what + ": call " + std::to_string(i));
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

// Binds to the parameter `name` where the statement has one. Texts are
// copied: the caller's are gone before the step.
void Bind(sqlite3_stmt* stmt, const char* name, const std::string& text) {
  const int index = sqlite3_bind_parameter_index(stmt, name);
  if (index > 0) sqlite3_bind_text(stmt, index, text.c_str(), -1, SQLITE_TRANSIENT);
}
void Bind(sqlite3_stmt* stmt, const char* name, int64_t value) {
  const int index = sqlite3_bind_parameter_index(stmt, name);
  if (index > 0) sqlite3_bind_int64(stmt, index, value);
}

std::string Key(int i) { return "key" + std::to_string(i); }

// One of the library's writes and the read that finds write i's row again, by
// SQLite directly with the library's statements (`bind` fills either) and
// through the library.
struct Workload {
  const char* name;
  StatementId write, read;
  int write_done;  // what a write's step gives: a row where it returns the new id
  void (*bind)(sqlite3_stmt* stmt, bool write, int i);
  bool (*lib_write)(IDatabaseInterface& db, int i);
  bool (*lib_read)(IDatabaseInterface& db, int i);
};

const Workload kWorkloads[] = {
    {"InsertSessionCache, read by SelectSessionCache", StatementId::InsertSessionCache,
     StatementId::SelectSessionCache, SQLITE_DONE,
     [](sqlite3_stmt* stmt, bool write, int i) {
       Bind(stmt, ":session_key", Key(i));
       Bind(stmt, ":session_value", "value");
       Bind(stmt, ":expire_time", write ? kExpiry : 0);
     },
     [](IDatabaseInterface& db, int i) {
       return db.InsertSessionCache(Key(i).c_str(), "value", kExpiry) == 0;
     },
     [](IDatabaseInterface& db, int i) {
       std::string value;
       return db.SelectSessionCache(Key(i).c_str(), 0, value) == 1;
     }},
    // A new store's first start record gets id 1.
    {"InsertStartRecode, read by SelectStartRecode", StatementId::InsertStartRecode,
     StatementId::SelectStartRecode, SQLITE_ROW,
     [](sqlite3_stmt* stmt, bool, int i) {
       Bind(stmt, ":sdk_version", "1.24.0");
       Bind(stmt, ":sdk_type", "desktop");
       Bind(stmt, ":start_time", kExpiry);
       Bind(stmt, ":id", int64_t{i} + 1);
     },
     [](IDatabaseInterface& db, int) {
       int id = 0;
       return db.InsertStartRecode(id, "1.24.0", -1, "desktop", -1, kExpiry) == 1;
     },
     [](IDatabaseInterface& db, int i) {
       std::string version, type;
       int64_t time = 0;
       return db.SelectStartRecode(i + 1, version, type, time) == 1;
     }},
};

// A store the library made, written by SQLite directly on the library's
// connection settings but for the journal mode and synchronous setting given.
Row MeasureSettings(const std::string& path, const Workload& workload, const char* journal_mode,
                    const char* synchronous, int writes) {
  const auto made = IDatabaseInterface::CreateDatabaseInterface();
  Check(made->Init(path.c_str()) == 0, "Init " + path);
  made->Uninit();
  const std::string settings = std::string("PRAGMA foreign_keys = ON; ") + kConnectionSettingsSql +
                               " PRAGMA journal_mode = " + journal_mode +
                               "; PRAGMA synchronous = " + synchronous + ";";
  sqlite3* db = nullptr;
  sqlite3_stmt* write = nullptr;
  sqlite3_stmt* read = nullptr;
  Check(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX,
                        nullptr) == SQLITE_OK,
        "opening " + path);
  Check(sqlite3_exec(db, settings.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK, settings);
  for (const auto& [id, stmt] : {std::pair{workload.write, &write}, {workload.read, &read}}) {
    Check(sqlite3_prepare_v2(db, kStmtSqls[Index(id)], -1, stmt, nullptr) == SQLITE_OK,
          kStmtSqls[Index(id)]);
  }
  // With RETURNING, the commit comes at the reset.
  const auto run = [&](sqlite3_stmt* stmt, bool is_write, int i, int want) {
    workload.bind(stmt, is_write, i);
    const int rc = sqlite3_step(stmt);
    return sqlite3_reset(stmt) == SQLITE_OK && rc == want;
  };
  const Row row = Measure(
      std::string(journal_mode) + ", " + synchronous, writes,
      [&](int i) { return run(write, true, i, workload.write_done); },
      [&](int i) { return run(read, false, i, SQLITE_ROW); });
  sqlite3_finalize(write);
  sqlite3_finalize(read);
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

  std::vector<std::vector<Row>> sections;
  int file = 0;
  const auto next = [&] { return (dir / ("store" + std::to_string(file++))).string(); };
  for (const Workload& workload : kWorkloads) {
    std::vector<Row>& rows = sections.emplace_back();
    for (const auto& [mode, sync] : {std::pair{"DELETE", "FULL"},
                                     {"DELETE", "EXTRA"},
                                     {"TRUNCATE", "FULL"},
                                     {"PERSIST", "FULL"}}) {
      rows.push_back(MeasureSettings(next(), workload, mode, sync, writes));
    }
    if (!DATABASE_INTERFACE_BENCH_SHARED_SQLITE) continue;
    const auto db = IDatabaseInterface::CreateDatabaseInterface();
    const std::string path = next();
    Check(db->Init(path.c_str()) == 0, "Init " + path);
    rows.push_back(Measure(
        "the library (TRUNCATE, FULL)", writes, [&](int i) { return workload.lib_write(*db, i); },
        [&](int i) { return workload.lib_read(*db, i); }));
    db->Uninit();
  }
  fs::remove_all(dir);

  std::printf("%d committed writes and reads each, in %s, SQLite %s\n\n", writes,
              fs::absolute(dir).parent_path().c_str(), sqlite3_libversion());
  std::printf(
      "| journal_mode, synchronous | journal syncs | database syncs | directory syncs | "
      "ms per write (IQR) | µs per read |\n");
  std::printf("|---|--:|--:|--:|--:|--:|\n");
  for (size_t s = 0; s < sections.size(); ++s) {
    std::printf("| **%s** | | | | | |\n", kWorkloads[s].name);
    for (const Row& r : sections[s]) {
      std::printf("| %s | %.2f | %.2f | %.2f | %.2f (%.2f–%.2f) | %.1f |\n", r.settings.c_str(),
                  r.journal_syncs, r.db_syncs, r.dir_syncs, r.median_ms, r.p25_ms, r.p75_ms,
                  r.read_us);
    }
  }
  if (!DATABASE_INTERFACE_BENCH_SHARED_SQLITE) {
    std::printf(
        "\nThe library's own rows need a build on the system SQLite "
        "(-DDATABASE_INTERFACE_SYSTEM_SQLITE=ON), which it then shares with this "
        "program.\n");
  }
  return 0;
}
