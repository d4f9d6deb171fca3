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
  std::vector<std::tuple<int, int, std::string>> expected, logged;  // level, thread, text
  for (size_t i = 0; i < ops.ops.size(); ++i) {
    const auto run = [&] {
      EXPECT_EQ(-1, ops.ops[i].call()) << ops.ops[i].name;
      expected.emplace_back(60, base::GetTid(), StepLine(ops.ops[i].name, "database is locked"));
    };
    i % 2 == 0 ? run() : std::thread(run).join();
  }
  Raw(holder, "ROLLBACK");
  EXPECT_TRUE(ops.Untouched());
  for (const LogCapture::Line& line : m_log->All())
    logged.emplace_back(line.level, line.tid, line.text);
  EXPECT_NE(std::get<1>(expected[0]), std::get<1>(expected[1]));
  EXPECT_EQ(expected, logged);
  Take();

  // Three passes; from the second on, each call allocates only the texts of
  // the records it appends: 2 per crash dump, 3 per instance (ones that fit a
  // string's own buffer excepted). The first pass is not counted.
  const auto texts = [&] { return 2 * ops.cores.size() + 3 * ops.instances.size(); };
  for (int pass = 0; pass < 3; ++pass) {
    for (const Ops::Op& op : ops.ops) {
      const size_t held = texts(), before = g_allocations.load();
      EXPECT_EQ(op.result, op.call()) << op.name;
      const size_t allocations = g_allocations.load() - before;
      EXPECT_EQ(pass == 0 ? allocations : texts() - held, allocations) << op.name;
    }
  }
  EXPECT_TRUE(ops.ReadBack() && ops.cores.size() == 3 && ops.instances.size() == 3);
  // Fails if a statement that read a row was left unreset: its read
  // transaction would still hold the file.
  Raw(holder, "BEGIN EXCLUSIVE; ROLLBACK");
  sqlite3_close(holder);
}

}  // namespace database_interface::test
