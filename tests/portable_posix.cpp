// The tests' operating-system layer on POSIX systems.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>

#include "portable.h"

extern char** environ;

namespace database_interface::test {

std::string NarrowPath(const std::string& utf8) { return utf8; }  // paths are bytes

bool HeldOpen(const std::string& utf8) {
  namespace fs = std::filesystem;
  const fs::path file = fs::weakly_canonical(utf8);
  for (const auto& fd : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ec;  // the iterator's own descriptor is gone by now
    const fs::path target = fs::read_symlink(fd.path(), ec);
    if (target == file || target == file.string() + "-journal") return true;
  }
  return false;
}

void SetEnv(const char* name, const char* value) {
  if (value != nullptr ? setenv(name, value, 1) : unsetenv(name)) std::abort();
}

Child::Child(const std::string& test) {
  char self[PATH_MAX] = {};
  std::string filter = "--gtest_filter=" + test, disabled = "--gtest_also_run_disabled_tests";
  char* argv[] = {self, filter.data(), disabled.data(), nullptr};
  pid_t pid = 0;
  if (readlink("/proc/self/exe", self, sizeof self - 1) <= 0) std::abort();
  if (posix_spawn(&pid, self, nullptr, nullptr, argv, environ) != 0) std::abort();
  m_handle = pid;
}

int Child::Wait() {
  int status = 0;
  if (m_handle == 0 || waitpid(static_cast<pid_t>(m_handle), &status, 0) == -1) return m_code;
  m_handle = 0;
  return m_code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

void Child::Kill() {
  if (m_handle != 0) kill(static_cast<pid_t>(m_handle), SIGKILL);
}

}  // namespace database_interface::test
