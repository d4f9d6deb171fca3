// The library as the benchmarks run it: a shared object made of the
// library's own object files and the SQLite the library runs on, plus
// sqlite_copy.cpp compiled against that SQLite, so that the benchmark can
// load rows through the library's connection. Like libdatabase_interface.so
// it keeps its SQLite hidden; it exports only the entry point below.
#ifndef DATABASE_INTERFACE_BENCH_LIBRARY_PLUGIN_H_
#define DATABASE_INTERFACE_BENCH_LIBRARY_PLUGIN_H_

#include <memory>

#include "database_interface/database_interface.h"
#include "sqlite_copy.h"

namespace database_interface::bench {

struct LibraryPlugin {
  // IDatabaseInterface::CreateDatabaseInterface of the library in the plugin.
  std::shared_ptr<IDatabaseInterface> (*create)();
  // The SQLite that library runs on.
  const SqliteCopy* sqlite;
};

}  // namespace database_interface::bench

extern "C" const database_interface::bench::LibraryPlugin* database_interface_bench_library();

#endif  // DATABASE_INTERFACE_BENCH_LIBRARY_PLUGIN_H_
