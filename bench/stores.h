// The four ways a benchmark runs the library's statements, each behind
// IDatabaseInterface so every call is one virtual call as a host makes it,
// and the opening of one on ":memory:" or on a fresh file.
#ifndef DATABASE_INTERFACE_BENCH_STORES_H_
#define DATABASE_INTERFACE_BENCH_STORES_H_

#include <cstddef>
#include <memory>
#include <string>

#include "database_interface/database_interface.h"
#include "fixture.h"
#include "sqlite_copy.h"

struct sqlite3;

namespace database_interface::bench {

enum class Variant : int {
  kLib,         // the library, through IDatabaseInterface, on the SQLite it runs on
  kRaw,         // the SQLite C API exactly as the library's execution pattern runs it
  kRawNoMutex,  // SQLite's own floor: no connection or statement lock, indices resolved once
  kSqliteCpp,   // SQLiteCpp as its users write it
};
constexpr int kVariantCount = 4;
const char* Name(Variant variant);

// The SQLite a variant runs on: for the library, the one it was built with
// (its own, or the system's); for the others, the system's, as their users
// link it.
const SqliteCopy& SqliteOf(Variant variant);
// Whether the library runs on a copy of SQLite of its own.
bool LibraryHasItsOwnSqlite();

enum class Medium : int { kMemory, kFile };
const char* Name(Medium medium);

// One opened store. Closing (Uninit) and removing its file happen on
// destruction.
struct OpenStore {
  OpenStore() = default;
  ~OpenStore();
  OpenStore(const OpenStore&) = delete;
  OpenStore& operator=(const OpenStore&) = delete;

  // Load the fixture into the empty store, or put back rows calls deleted
  // (sqlite_copy.h), through the store's own connection. Between calls,
  // never while one runs.
  void LoadFixture(const Inputs& in) const { sqlite->load_fixture(connection, in); }
  void Restore(Rows rows, const Inputs& in, size_t begin, size_t count) const {
    sqlite->restore(connection, in, rows, begin, count);
  }

  std::shared_ptr<IDatabaseInterface> db;
  // The connection `db` opened, and the copy of SQLite it belongs to.
  void* connection = nullptr;
  const SqliteCopy* sqlite = nullptr;
  std::string path;
};

// Opens a fresh store: on ":memory:", or on a new file in the process's
// scratch directory (every variant with the library's connection settings). Aborts
// the benchmark on failure.
std::unique_ptr<OpenStore> Open(Variant variant, Medium medium);

// A database the library has just created, as a connection of the system's
// SQLite open on ":memory:" for the rest of the process; the stores that are
// not the library start as copies of it.
sqlite3* LibraryImage();

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_STORES_H_
