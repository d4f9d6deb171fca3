// How every statement runs: each step failure line, on the calling thread; the
// reset on every path; no allocation beyond the outputs a call hands back.
#include <sqlite3.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <thread>

#include "test_util.h"

// Counts every operator new of the process, the library's included. The other
// forms of new and delete call these.
std::atomic<size_t> g_allocations{0};
void* operator new(std::size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace database_interface::test {

using StatementTest = StoreTest;

// A second connection holds the file exclusively, so every step fails at once
// with SQLITE_BUSY. Odd calls run on a second thread.
TEST_F(StatementTest, EveryOperationLogsItsStepLineOnItsThreadAndRunsOnceTheLockIsGone) {
  Ops ops(*m_db, "SECRET-4711-LONG-TEXT-");
  sqlite3* holder = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(m_path.c_str(), &holder));
  Raw(holder, "BEGIN EXCLUSIVE");
  Lines expected;
  std::vector<int> tids;
  for (size_t i = 0; i < ops.ops.size(); ++i) {
    const auto run = [&] {
      tids.push_back(base::GetTid());
      EXPECT_EQ(-1, ops.ops[i].call()) << ops.ops[i].name;
    };
    i % 2 == 0 ? run() : std::thread(run).join();
    expected.push_back(StepLine(ops.ops[i].name, "database is locked"));
  }
  Raw(holder, "ROLLBACK");
  EXPECT_TRUE(ops.Untouched());
  const std::vector<LogCapture::Line> lines = m_log->All();
  ASSERT_EQ(expected.size(), lines.size());
  EXPECT_NE(tids[0], tids[1]);
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(std::make_tuple(60, tids[i]), std::make_tuple(lines[i].level, lines[i].tid));
    EXPECT_EQ(std::string::npos, lines[i].text.find("4711")) << "a bound value is logged";
  }
  EXPECT_EQ(expected, Take());

  // Three passes; from the second on, each call allocates only the texts of
  // the records it appends (ones that fit a string's own buffer excepted).
  for (int pass = 0; pass < 3; ++pass) {
    for (const Ops::Op& op : ops.ops) {
      const size_t before = g_allocations.load();
      EXPECT_EQ(op.result, op.call()) << op.name;
      const size_t allocations = g_allocations.load() - before;
      if (pass == 0) continue;
      const std::string name = op.name;  // a crash dump holds 2 texts, an instance 3
      const size_t texts = name == "SelectAllCoreRecode"                   ? 2
                           : name == "SelectInstanceInfoWithStartRecodeId" ? 3
                                                                           : 0;
      EXPECT_EQ(texts, allocations) << name;
    }
  }
  EXPECT_TRUE(ops.ReadBack());
  // Fails if a statement that read a row was left unreset: its read
  // transaction would still hold the file.
  Raw(holder, "BEGIN EXCLUSIVE; ROLLBACK");
  sqlite3_close(holder);
}

}  // namespace database_interface::test
