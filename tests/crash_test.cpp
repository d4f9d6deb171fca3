// Durability across a killed process (LevelDB's fault_injection_test): a child
// writes, noting each acknowledged write in a file, until the parent kills it;
// the store then opens, passes integrity_check and has every noted row.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "test_util.h"

namespace database_interface::test {

// Round i stores start record i and session entry "<i>", then appends the
// line "<start id> <i>".
TEST(CrashTest, DISABLED_Writer) {
  const std::string dir = std::getenv("DBI_TEST_DIR");
  const auto db = IDatabaseInterface::CreateDatabaseInterface();
  ASSERT_EQ(0, db->Init((dir + "/crash.db").c_str()));
  std::FILE* acks = std::fopen((dir + "/acks").c_str(), "a");
  for (int i = 0, id = 0;; ++i) {
    ASSERT_EQ(1, db->InsertStartRecode(id, "v", 1, "t", 1, i));
    ASSERT_EQ(0, db->InsertSessionCache(std::to_string(i).c_str(), "v", 4102444800000));
    std::fprintf(acks, "%d %d\n", id, i);
    std::fflush(acks);  // now the kernel's: a killed process loses nothing written
  }
}

std::vector<std::pair<int, int>> Acks(const std::string& path) {
  std::vector<std::pair<int, int>> acks;
  std::ifstream in(path);
  for (std::pair<int, int> a; in >> a.first >> a.second;) acks.push_back(a);
  return acks;
}

TEST(CrashTest, KilledWriterLosesNoAcknowledgedRowAndLeavesAnIntactFile) {
  const auto log = LogCapture::Install();
  for (unsigned trial = 0; trial < 10 && !HasFailure(); ++trial) {
    SCOPED_TRACE("trial " + std::to_string(trial));
    TempDir dir;
    const std::string path = dir.File("crash.db");
    SetEnv("DBI_TEST_DIR", dir.path.c_str());
    const size_t kill_after = 1 + std::mt19937(trial)() % 60;
    Child writer("CrashTest.DISABLED_Writer");
    // A safety limit only: the writer acknowledges in milliseconds.
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (Acks(dir.File("acks")).size() < kill_after && std::chrono::steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    writer.Kill();
    EXPECT_EQ(137, writer.Wait());
    const auto acks = Acks(dir.File("acks"));  // with those made before the kill landed
    ASSERT_LE(kill_after, acks.size());
    const auto db = IDatabaseInterface::CreateDatabaseInterface();
    ASSERT_EQ(0, db->Init(path.c_str()));
    EXPECT_EQ("ok", Raw(path, "PRAGMA integrity_check"));
    for (const auto& [id, i] : acks) {
      std::string version, type, value;
      int64_t time = -1;
      EXPECT_EQ(1, db->SelectStartRecode(id, version, type, time));
      EXPECT_EQ(i, time);
      EXPECT_EQ(1, db->SelectSessionCache(std::to_string(i).c_str(), 0, value));
    }
    // Of the round in flight at the kill, at most the start record is there.
    const size_t stored = std::stoul(Raw(path, "SELECT count(*) FROM start_recode"));
    EXPECT_TRUE(stored == acks.size() || stored == acks.size() + 1) << stored << " stored";
    db->Uninit();
    EXPECT_EQ(Lines{}, log->Take());
  }
  log->Uninstall();
}

}  // namespace database_interface::test
