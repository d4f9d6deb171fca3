// Test support: a temporary directory, a capturing host logger, a fixture
// that opens a fresh store, and raw-SQLite helpers that build files in a
// given state without the library.
#ifndef DATABASE_INTERFACE_TESTS_TEST_UTIL_H_
#define DATABASE_INTERFACE_TESTS_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/base.h"
#include "database_interface/database_interface.h"

struct sqlite3;

namespace database_interface {
namespace test {

// A directory under the system temp directory, removed with its contents.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return m_path; }
  // path() + "/" + name
  std::string File(const std::string& name) const;

 private:
  std::string m_path;
};

// A host logger that keeps every line (formatted) with its level and tid.
class CapturingLogger final : public base::IBaseLogInterface {
 public:
  struct Line {
    int level;
    int tid;
    std::string text;
  };

  int WriteLog(const int& level, const int& tid, const char* format, ...) override
      BASE_PRINTF_FORMAT(4, 5);

  std::vector<Line> lines() const;
  std::vector<std::string> texts() const;
  void Clear();

 private:
  mutable std::mutex m_mutex;
  std::vector<Line> m_lines;  // guarded by m_mutex
};

// Installs a CapturingLogger as the process logger for the life of the
// object and restores the previous logger afterwards.
class ScopedCapture {
 public:
  ScopedCapture();
  ~ScopedCapture();
  ScopedCapture(const ScopedCapture&) = delete;
  ScopedCapture& operator=(const ScopedCapture&) = delete;

  CapturingLogger& logger() { return *m_logger; }
  std::vector<std::string> texts() const { return m_logger->texts(); }
  void Clear() { m_logger->Clear(); }

 private:
  std::shared_ptr<CapturingLogger> m_logger;
  std::shared_ptr<base::IBaseLogInterface> m_previous;
};

// Fixture: a fresh object opened on "test.db" in a temp directory, with a
// capturing logger. Every log line expected must be asserted; TearDown
// closes the object.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Uninit, then Init on the same file again.
  void Reopen();
  std::vector<std::string> Logged() const { return m_capture->texts(); }
  void ClearLog() { m_capture->Clear(); }

  // Opens a raw connection on db_path (foreign keys off).
  sqlite3* RawOpen() const;

  TempDir m_dir;
  std::string m_db_path;
  std::unique_ptr<ScopedCapture> m_capture;
  std::shared_ptr<IDatabaseInterface> m_db;
};

// Raw SQLite helpers, independent of the library. Each fails the current
// test on an SQLite error.
sqlite3* RawOpen(const std::string& path);
void RawClose(sqlite3* db);
void RawExec(sqlite3* db, const std::string& sql);
void RawExec(const std::string& path, const std::string& sql);
// The first column of every row of `sql`, as text ("NULL" for NULL).
std::vector<std::string> RawColumn(const std::string& path, const std::string& sql);
// The single integer that `sql` yields.
long long RawInt(const std::string& path, const std::string& sql);

// Creates a file holding the library's six tables and a db_version row with
// `version` (no row when `version` is null), written with the raw API.
void MakeFileWithVersion(const std::string& path, const char* version);

}  // namespace test
}  // namespace database_interface

#endif  // DATABASE_INTERFACE_TESTS_TEST_UTIL_H_
