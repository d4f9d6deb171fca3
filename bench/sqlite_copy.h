// One copy of SQLite as the benchmark reaches it: opening a store while
// catching the connection it opens, loading the fixture, putting rows back.
// Compiled twice: into the benchmark programs against the system's SQLite,
// and into the library's plugin (library_plugin.h) against the library's,
// which is another copy unless the library was built on the system's. A
// connection of one copy is only ever handed to the functions of the same
// copy.
#ifndef DATABASE_INTERFACE_BENCH_SQLITE_COPY_H_
#define DATABASE_INTERFACE_BENCH_SQLITE_COPY_H_

#include <cstddef>

#include "database_interface/database_interface.h"
#include "fixture.h"

struct sqlite3;

namespace database_interface::bench {

// The functions of one copy, for code compiled against another: its
// connections pass through as opaque pointers.
struct SqliteCopy {
  // sqlite3_libversion of the copy: two tables reach the same copy exactly
  // when this is the same function.
  const char* (*version)();
  // Opens `db` on `path` (Init) and returns the connection it opened in this
  // copy, caught as SQLite opened it. Null when Init failed or opened no
  // connection in this copy.
  void* (*open)(IDatabaseInterface& db, const char* path);
  // LoadFixture and Restore below.
  void (*load_fixture)(void* connection, const Inputs& in);
  void (*restore)(void* connection, const Inputs& in, Rows rows, size_t begin, size_t count);
};

// The copy this file is compiled against and linked with.
const SqliteCopy& LinkedSqlite();

// Loads the whole fixture into an empty store, in one transaction.
void LoadFixture(sqlite3* db, const Inputs& in);
// Puts back rows that a block of calls deleted: rows order[begin, begin+count)
// of their table, as the fixture made them, in one transaction.
void Restore(sqlite3* db, const Inputs& in, Rows rows, size_t begin, size_t count);
// Makes `db` a page-for-page copy of `image`.
void CopyDatabase(sqlite3* image, sqlite3* db);
// Runs `sql` on `db`; aborts the benchmark with SQLite's message on failure.
void MustExec(sqlite3* db, const char* sql);

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_SQLITE_COPY_H_
