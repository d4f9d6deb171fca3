// Opens a store through the installed interface and reads back one entry.
#include <cstdio>
#include <string>

#include "base/base.h"
#include "database_interface/database_interface.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  auto db = database_interface::IDatabaseInterface::CreateDatabaseInterface();
  std::string value;
  const bool ok = db->Init(argv[1]) == 0 && db->InsertSessionCache("key", "value", 2) == 0 &&
                  db->SelectSessionCache("key", 1, value) == 1 && value == "value";
  db->Uninit();
  std::printf("%s (tid %d)\n", ok ? "consumer ok" : "consumer failed", base::GetTid());
  return ok ? 0 : 1;
}
