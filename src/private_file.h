// Creating the store's file readable and writable by its owner alone.
#ifndef DATABASE_INTERFACE_SRC_PRIVATE_FILE_H_
#define DATABASE_INTERFACE_SRC_PRIVATE_FILE_H_

#include <string>

namespace database_interface {

// Creates the empty file `utf8_path` with owner-only access when nothing is
// there yet, before SQLite opens it, so that the store (and the journal,
// which SQLite gives the store's mode) is never readable by another user, not
// even for a moment. Anything already at the path, a file or a link, is left
// as it is; every failure is left to SQLite's open to report. ":memory:" and
// "file:" URIs are SQLite's to interpret and are left alone.
void CreatePrivateFile(const std::string& utf8_path);

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_PRIVATE_FILE_H_
