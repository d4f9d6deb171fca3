// Test support: a capturing host logger, raw SQLite, a fixture that opens a
// fresh store, and a table of every data operation.
#ifndef DATABASE_INTERFACE_TESTS_TEST_UTIL_H_
#define DATABASE_INTERFACE_TESTS_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/base.h"
#include "database_interface/database_interface.h"
#include "portable.h"

struct sqlite3;

namespace database_interface::test {

using Lines = std::vector<std::string>;

// The process logger from Install() to Uninstall(); keeps every line.
class LogCapture final : public base::IBaseLogInterface {
 public:
  struct Line {
    int level, tid;
    std::string text;
  };
  static std::shared_ptr<LogCapture> Install();
  void Uninstall();
  int WriteLog(const int& level, const int& tid, const char* format, ...) override
      BASE_PRINTF_FORMAT(4, 5);
  std::vector<Line> All() const;
  Lines Take();  // the texts written since the last Take

 private:
  mutable std::mutex m_mutex;
  std::vector<Line> m_lines;  // guarded by m_mutex
  std::shared_ptr<base::IBaseLogInterface> m_previous;
};

// Raw SQLite: runs `sql` (any statements) and returns the first column of
// every row, joined by ',' ("NULL" for NULL). An error fails the test.
std::string Raw(sqlite3* db, const std::string& sql);
std::string Raw(const std::string& path, const std::string& sql);

// "[database]database_interface::CDatabase::<op> sqlite3_step with sql[<its
// SQL>] failed:<error>", the one line of a failed step (or of another `call`).
std::string StepLine(const std::string& op, const std::string& error,
                     const std::string& call = "sqlite3_step");
// The six CREATE TABLE texts of Init, in their order, then its DROP text.
extern const char* const kSchemaSqls[7];
// "[database]database_interface::CDatabase::<op> sqlite3_exec with sql[<sql>]
// failed:<error>".
std::string ExecLine(const std::string& op, const std::string& sql, const std::string& error);
// The chain of an Init whose prepare of `op`'s statement failed.
Lines PrepareChain(const std::string& op, const std::string& error);
// The chain of an Init whose version check failed in `op` with `line`.
Lines CheckChain(const std::string& line, const std::string& op);
// Each operation with a statement (the data operations in the order of an Ops
// pass, then the version statements) and its SQL.
extern const std::pair<const char*, const char*> kStatements[21];

// Child scenarios are DISABLED_ tests that a parent runs in a new process
// (Child). Each calls ChildStarted() first: the program then exits with
// kChildPassed when it passes, so a child that never ran fails its parent.
constexpr int kChildPassed = 42;
void ChildStarted();

// A fresh object open on "test.db" in a temporary directory, and a capturing
// logger. Each test takes the lines it expects; any other fails it.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  int InitOn(const std::string& path);  // moves the object to `path`, log emptied
  Lines Take() { return m_log->Take(); }
  // A store the library made at m_dir/`name`, then changed by `sql`.
  std::string MakeStore(const std::string& name, const std::string& sql);

  TempDir m_dir;
  std::string m_path = m_dir.File("test.db");
  std::shared_ptr<LogCapture> m_log = LogCapture::Install();
  std::shared_ptr<IDatabaseInterface> m_db = IDatabaseInterface::CreateDatabaseInterface();
};

// Every data operation once, in an order that can run again and again: a pass
// stores a record of each kind, reads each back and deletes all but the key
// pair. Field f (a letter) of every text is `text` followed by f.
struct Ops {
  struct Op {
    const char* name;
    int result;  // on a healthy store
    std::function<int()> call;
  };
  Ops(IDatabaseInterface& db, const std::string& text);
  Ops(const Ops&) = delete;
  const std::string& T(char field) const { return texts[static_cast<size_t>(field - 'A')]; }
  bool Untouched() const;  // no output written since construction
  bool ReadBack() const;   // every output holds what a pass stored

  std::vector<std::string> texts;
  std::vector<Op> ops;
  std::string key = "kept", secret = "kept", version = "kept", type = "kept", value = "kept";
  int start = -3;
  int64_t time = 7;
  CoreRecode core;
  InstanceInfo instance;
  std::vector<CoreRecode> cores;
  std::vector<InstanceInfo> instances;
};

}  // namespace database_interface::test

#endif  // DATABASE_INTERFACE_TESTS_TEST_UTIL_H_
