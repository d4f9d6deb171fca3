// What the tests need of the operating system, one file per system behind it:
// portable_posix.cpp and portable_windows.cpp.
#ifndef DATABASE_INTERFACE_TESTS_PORTABLE_H_
#define DATABASE_INTERFACE_TESTS_PORTABLE_H_

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>

namespace database_interface::test {

// A new directory under the system's temporary directory, removed with its
// contents at the end.
struct TempDir {
  TempDir() {
    for (std::random_device random; path.empty() || !std::filesystem::create_directory(path);)
      path = (std::filesystem::temp_directory_path() / "dbi_").string() + std::to_string(random());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  std::string File(const std::string& name) const { return path + "/" + name; }
  std::string path;
};

// Sets variable `name` of this process's environment, which children
// inherit, or removes it for null. Windows cannot hold an empty value.
void SetEnv(const char* name, const char* value);

// `utf8` as a `char*` path is encoded here (the ANSI code page on Windows);
// empty when it has no form in that encoding.
std::string NarrowPath(const std::string& utf8);

// Whether this process holds the file `utf8`, or its journal, open.
bool HeldOpen(const std::string& utf8);

// A new process (never a copy of this one) running this program with
// "--gtest_filter=<test> --gtest_also_run_disabled_tests"; killed at the end.
class Child {
 public:
  explicit Child(const std::string& test);
  ~Child() {
    Kill();
    Wait();
  }
  int Wait();   // its exit code; 137 when killed
  void Kill();  // at once: SIGKILL, TerminateProcess

 private:
  intptr_t m_handle = 0;  // process id or handle; 0 once waited for
  int m_code = -1;
};

}  // namespace database_interface::test

#endif  // DATABASE_INTERFACE_TESTS_PORTABLE_H_
