// Owner-only creation of the store's file on POSIX systems: mode 0600 at
// creation, whatever the process's umask.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "private_file.h"

namespace database_interface {

bool CreatePrivateFile(const std::string& utf8_path) {
  if (utf8_path == ":memory:" || utf8_path.compare(0, 5, "file:") == 0) return false;
  // O_EXCL: an existing file keeps the mode its owner gave it, a planted
  // symbolic link is not followed to create its target, and a FIFO is never
  // opened (opening one to write would wait for a reader).
  const int fd = ::open(utf8_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd == -1) return false;
  ::close(fd);
  return true;
}

void RemovePrivateFile(const std::string& utf8_path) {
  struct stat status {};
  if (::lstat(utf8_path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) {
    ::unlink(utf8_path.c_str());
  }
}

}  // namespace database_interface
