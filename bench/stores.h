// The four ways a benchmark runs the library's statements, each behind
// IDatabaseInterface so every call is one virtual call as a host makes it,
// and the opening of one on ":memory:" or on a fresh file.
#ifndef DATABASE_INTERFACE_BENCH_STORES_H_
#define DATABASE_INTERFACE_BENCH_STORES_H_

#include <memory>
#include <string>

#include "database_interface/database_interface.h"

struct sqlite3;

namespace database_interface::bench {

enum class Variant : int {
  kLib,         // the library, through IDatabaseInterface
  kRaw,         // the SQLite C API exactly as the library's execution pattern runs it
  kRawNoMutex,  // SQLite's own floor: no connection or statement lock, indices resolved once
  kSqliteCpp,   // SQLiteCpp as its users write it
};
constexpr int kVariantCount = 4;
const char* Name(Variant variant);

enum class Medium : int { kMemory, kFile };
const char* Name(Medium medium);

// One opened store. Closing (Uninit) and removing its file happen on
// destruction.
struct OpenStore {
  OpenStore() = default;
  ~OpenStore();
  OpenStore(const OpenStore&) = delete;
  OpenStore& operator=(const OpenStore&) = delete;

  std::shared_ptr<IDatabaseInterface> db;
  // The connection `db` opened, caught as SQLite opened it: the fixture loads
  // rows through it between calls, never while one runs.
  sqlite3* handle = nullptr;
  std::string path;
};

// Opens a fresh store: on ":memory:", or on a new file in the process's
// scratch directory (SQLite's default journal mode, nothing tuned). Aborts
// the benchmark on failure.
std::unique_ptr<OpenStore> Open(Variant variant, Medium medium);

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_STORES_H_
