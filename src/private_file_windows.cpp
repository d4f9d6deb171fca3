// On Windows a new file takes the access control list of its directory: under
// %LOCALAPPDATA% that admits its user, SYSTEM and administrators alone, so
// SQLite's own creation needs nothing added, and nothing is created before it.
#include "private_file.h"

namespace database_interface {

bool CreatePrivateFile(const std::string&) { return false; }

void RemovePrivateFile(const std::string&) {}

}  // namespace database_interface
