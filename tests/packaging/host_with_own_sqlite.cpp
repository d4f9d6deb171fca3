// A host that links the library and a SQLite of its own (the system's), each
// on its own file in one process: both work, and the host's sqlite3_* calls
// reach its own SQLite, not the copy compiled into the library.
#include <sqlite3.h>

#include <cstdio>
#include <string>

#include "database_interface/database_interface.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  auto store = database_interface::IDatabaseInterface::CreateDatabaseInterface();
  if (store->Init(argv[1]) != 0 || store->InsertSessionCache("key", "library", 2) != 0) return 1;

  sqlite3* own = nullptr;
  const bool own_ok =
      sqlite3_open(argv[2], &own) == SQLITE_OK &&
      sqlite3_exec(own, "CREATE TABLE IF NOT EXISTS t(v TEXT); INSERT INTO t VALUES('host');",
                   nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(own);

  std::string value;
  const bool store_ok = store->SelectSessionCache("key", 1, value) == 1 && value == "library";
  store->Uninit();
  // Debian builds its SQLite without the lookaside allocator; the library's
  // copy has it. The host's calls must have gone to Debian's.
  const bool host_calls_own = sqlite3_compileoption_used("OMIT_LOOKASIDE") == 1;
  std::printf("store %d, host's SQLite %s %d, host calls its own %d\n", store_ok,
              sqlite3_libversion(), own_ok, host_calls_own);
  return store_ok && own_ok && host_calls_own ? 0 : 1;
}
