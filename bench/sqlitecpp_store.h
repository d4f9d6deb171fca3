// SQLiteCpp running the library's statements, as the wrapper a host would
// otherwise reach for.
#ifndef DATABASE_INTERFACE_BENCH_SQLITECPP_STORE_H_
#define DATABASE_INTERFACE_BENCH_SQLITECPP_STORE_H_

#include <memory>

#include "database_interface/database_interface.h"

namespace database_interface::bench {

// A closed store. Init opens it on a path, makes it a copy of a database the
// library has just created, turns foreign keys on and prepares the library's
// SQL texts. Written as SQLiteCpp's users write it: one reused
// SQLite::Statement per operation, bind(":name", value), executeStep or exec,
// getColumn(i).getString(), reset. Operations no benchmark runs return -1.
std::shared_ptr<IDatabaseInterface> MakeSqliteCppStore();

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_SQLITECPP_STORE_H_
