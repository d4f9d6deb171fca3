// The bare SQLite C API running the library's statements, as the yardstick
// the library is measured against.
#ifndef DATABASE_INTERFACE_BENCH_RAW_STORE_H_
#define DATABASE_INTERFACE_BENCH_RAW_STORE_H_

#include <memory>

#include "database_interface/database_interface.h"

namespace database_interface::bench {

enum class RawLocking {
  // The library's execution pattern with nothing else: a connection in
  // SQLite's serialized mode, a std::mutex per statement, every parameter
  // index looked up by name on every call.
  kSerialized,
  // SQLite's own floor: a connection without its mutex, no statement lock,
  // parameter indices resolved once when the statement is prepared. Safe
  // from one thread only.
  kNone,
};

// A closed store. Init opens it on a path, makes it a copy of a database the
// library has just created, turns foreign keys on and prepares the library's
// SQL texts. Operations no benchmark runs return -1.
std::shared_ptr<IDatabaseInterface> MakeRawStore(RawLocking locking);

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_RAW_STORE_H_
