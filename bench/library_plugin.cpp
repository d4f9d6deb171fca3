// The entry point of the library's plugin, its only exported symbol
// (library_plugin.map).
#include "library_plugin.h"

extern "C" __attribute__((visibility("default"))) const database_interface::bench::LibraryPlugin*
database_interface_bench_library() {
  using database_interface::IDatabaseInterface;
  using database_interface::bench::LinkedSqlite;
  static const database_interface::bench::LibraryPlugin plugin = {
      &IDatabaseInterface::CreateDatabaseInterface, &LinkedSqlite()};
  return &plugin;
}
