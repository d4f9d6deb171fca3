// Owner-only creation of the store's file on POSIX systems: mode 0600 at
// creation, whatever the process's umask.
#include <fcntl.h>
#include <unistd.h>

#include "private_file.h"

namespace database_interface {

void CreatePrivateFile(const std::string& utf8_path) {
  if (utf8_path == ":memory:" || utf8_path.compare(0, 5, "file:") == 0) return;
  // O_EXCL: an existing file keeps the mode its owner gave it, and a planted
  // symbolic link is not followed to create its target.
  const int fd = ::open(utf8_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd != -1) ::close(fd);
}

}  // namespace database_interface
