// Durability across a killed process (LevelDB's fault_injection_test): a child
// writes start records, instances and session entries in a loop and reports
// each acknowledged write over a pipe; the parent kills it with SIGKILL after
// a seeded random number of reports, then reopens the file. Init succeeds,
// integrity_check is "ok" and every acknowledged row is there.
// DATABASE_INTERFACE_CRASH_TRIALS sets the number of trials (20 by default).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

constexpr int64_t kFarFuture = 1'000'000'000'000'000;

// One acknowledged write: a start record 'S' (`id`, written with start time
// `other`), an instance 'I' (`id`, under start record `other`) or the session
// entry 'K' of iteration `id`.
struct Ack {
  char kind;
  int id;
  int other;
};

std::string Key(int i) { return "key" + std::to_string(i); }
std::string Value(int i) { return "value" + std::to_string(i); }

// The child: writes until it is killed, reporting each write once the call
// has returned success. It never returns into the test runner.
[[noreturn]] void Writer(const std::string& path, int fd) {
  const auto report = [fd](Ack ack) {
    if (write(fd, &ack, sizeof ack) != static_cast<ssize_t>(sizeof ack)) _exit(4);
  };
  const auto db = IDatabaseInterface::CreateDatabaseInterface();
  if (db->Init(path.c_str()) != 0) _exit(2);
  for (int i = 0; i < 1'000'000; ++i) {
    int start = 0;
    if (db->InsertStartRecode(start, "v", 1, "t", 1, i) != 1) _exit(3);
    report({'S', start, i});
    InstanceInfo instance(0, "n", "s", i, "p", start, i);
    if (db->InsertInstanceInfo(instance) != 1) _exit(3);
    report({'I', instance.id, start});
    if (db->InsertSessionCache(Key(i).c_str(), Value(i).c_str(), kFarFuture) != 0) _exit(3);
    report({'K', i, 0});
  }
  _exit(5);
}

bool ReadAck(int fd, Ack& ack) {
  size_t done = 0;
  while (done < sizeof ack) {
    const ssize_t n = read(fd, reinterpret_cast<char*>(&ack) + done, sizeof ack - done);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

TEST(CrashDurabilityTest, KilledWriterLosesNoAcknowledgedRowAndLeavesAnIntactFile) {
  const char* env = std::getenv("DATABASE_INTERFACE_CRASH_TRIALS");
  const int trials = env != nullptr ? std::atoi(env) : 20;
  ScopedCapture capture;
  long rows_checked = 0;
  int trial = 0;
  for (; trial < trials && !HasFailure(); ++trial) {
    SCOPED_TRACE("trial " + std::to_string(trial));
    std::mt19937 rng(static_cast<unsigned>(trial));
    const size_t kill_after = std::uniform_int_distribution<size_t>(1, 90)(rng);
    TempDir dir;
    const std::string path = dir.File("crash.db");
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    // Forked from this single-threaded runner, so the child's copy of every
    // lock is free.
    const pid_t pid = fork();
    ASSERT_NE(-1, pid);
    if (pid == 0) {
      close(fds[0]);
      Writer(path, fds[1]);
    }
    close(fds[1]);
    std::vector<Ack> acks;
    Ack ack{};
    while (acks.size() < kill_after && ReadAck(fds[0], ack)) acks.push_back(ack);
    kill(pid, SIGKILL);
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    // Writes acknowledged between the last read and the kill count as well.
    while (ReadAck(fds[0], ack)) acks.push_back(ack);
    close(fds[0]);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "child status " << status;

    const auto db = IDatabaseInterface::CreateDatabaseInterface();
    ASSERT_EQ(0, db->Init(path.c_str()));
    EXPECT_EQ(std::vector<std::string>{"ok"}, RawColumn(path, "PRAGMA integrity_check"));
    long starts = 0;
    for (const Ack& a : acks) {
      std::string text, type;
      int64_t time = 0;
      std::vector<InstanceInfo> instances;
      switch (a.kind) {
        case 'S':
          ++starts;
          EXPECT_EQ(1, db->SelectStartRecode(a.id, text, type, time)) << "start " << a.id;
          EXPECT_EQ(a.other, time);
          break;
        case 'I':
          EXPECT_EQ(1, db->SelectInstanceInfoWithStartRecodeId(a.other, instances));
          EXPECT_EQ(a.id, instances.empty() ? 0 : instances[0].id) << "instance " << a.id;
          break;
        case 'K':
          EXPECT_EQ(1, db->SelectSessionCache(Key(a.id).c_str(), 0, text)) << Key(a.id);
          EXPECT_EQ(Value(a.id), text);
          break;
      }
    }
    // At most the write in flight at the kill committed unreported.
    const long long stored = RawInt(path, "SELECT count(*) FROM start_recode");
    EXPECT_TRUE(stored == starts || stored == starts + 1)
        << stored << " rows, " << starts << " acked";
    db->Uninit();
    EXPECT_TRUE(capture.texts().empty()) << ::testing::PrintToString(capture.texts());
    rows_checked += static_cast<long>(acks.size());
  }
  RecordProperty("trials", trial);
  RecordProperty("rows_checked", std::to_string(rows_checked));
  std::printf("%d trials killed a writer, %ld acknowledged rows checked\n", trial, rows_checked);
}

}  // namespace
}  // namespace test
}  // namespace database_interface
