// Creating the store's file readable and writable by its owner alone.
#ifndef DATABASE_INTERFACE_SRC_PRIVATE_FILE_H_
#define DATABASE_INTERFACE_SRC_PRIVATE_FILE_H_

#include <string>

namespace database_interface {

// Creates the empty file `utf8_path` with owner-only access when nothing is
// there yet, before SQLite opens it, so that the store (and the journal,
// which SQLite gives the store's mode) is never readable by another user, not
// even for a moment. Anything already at the path, a file, a link or a FIFO,
// is left as it is and never opened; every failure is left to SQLite's open to
// report. ":memory:" and "file:" URIs are SQLite's to interpret and are left
// alone. Returns true when it created the file.
bool CreatePrivateFile(const std::string& utf8_path);

// Undoes CreatePrivateFile when SQLite could not open what it created (a
// path longer than SQLite accepts, say), so that a failed open leaves no file
// behind. A file that is no longer empty is someone's store and is kept.
void RemovePrivateFile(const std::string& utf8_path);

}  // namespace database_interface

#endif  // DATABASE_INTERFACE_SRC_PRIVATE_FILE_H_
