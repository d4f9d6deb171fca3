// The process-wide object of GetDbInstance: its file, its one first-use open
// and purge, and its first callers racing. Each scenario runs in a child.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

// A failed gtest assertion in the child would not change its exit code, so a
// scenario checks with this and leaves with 1 at the first failure.
#define CHILD_CHECK(condition)                                                           \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::_Exit(1);                                                                     \
    }                                                                                    \
  } while (0)

// In the threadsafe style the child re-runs the test body from its start, so
// everything a scenario touches, its temp directory included, is made inside
// the scenario itself; only the child's exit status reaches the parent. The
// shared object's connection stays open at unload unless the host closes it,
// so the child does, as a host that wants a clean exit would.
#define EXPECT_SCENARIO_PASSES(scenario)               \
  EXPECT_EXIT(                                         \
      {                                                \
        scenario();                                    \
        IDatabaseInterface::GetDbInstance()->Uninit(); \
        std::exit(0);                                  \
      },                                               \
      ::testing::ExitedWithCode(0), "")

constexpr int64_t kYear2100 = 4102444800000;  // milliseconds since 1970

int64_t NowMilliseconds() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

void SetLogPath(const std::string& value) { setenv("BASE_LOG_PATH", value.c_str(), 1); }

std::vector<std::string> SessionKeys(const std::string& path) {
  return RawColumn(path, "SELECT session_key FROM session_cache ORDER BY session_key");
}

class SharedObjectTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void SharedIsOneObjectWhileCreatedAreNew() {
  TempDir dir;
  SetLogPath(dir.path() + "/");
  ScopedCapture capture;
  const std::shared_ptr<IDatabaseInterface> first = IDatabaseInterface::GetDbInstance();
  const std::shared_ptr<IDatabaseInterface> second = IDatabaseInterface::GetDbInstance();
  CHILD_CHECK(first != nullptr && first == second);
  std::string value = "untouched";
  CHILD_CHECK(first->SelectSessionCache("key", 0, value) == 0);

  const auto one = IDatabaseInterface::CreateDatabaseInterface();
  const auto two = IDatabaseInterface::CreateDatabaseInterface();
  CHILD_CHECK(one != nullptr && two != nullptr && one != two && one != first);
  CHILD_CHECK(one->InsertSessionCache("key", "value", kYear2100) == -1);
  CHILD_CHECK(two->SelectSessionCache("key", 0, value) == -1 && value == "untouched");
  CHILD_CHECK(capture.texts().empty());
}

TEST_F(SharedObjectTest, GetDbInstanceSharesOneObjectAndCreateDatabaseInterfaceMakesClosedOnes) {
  EXPECT_SCENARIO_PASSES(SharedIsOneObjectWhileCreatedAreNew);
}

void FileGoesInsideDirectoryWithSeparator() {
  TempDir dir;
  SetLogPath(dir.path() + "/");
  const auto db = IDatabaseInterface::GetDbInstance();
  CHILD_CHECK(db->InsertSessionCache("written", "through the shared object", kYear2100) == 0);
  const std::string file = dir.path() + "/qzdata";
  CHILD_CHECK(RawColumn(file,
                        "SELECT name FROM sqlite_master WHERE type = 'table' AND name "
                        "<> 'sqlite_sequence' ORDER BY name") ==
              std::vector<std::string>({"core_recode", "db_version", "instance_info",
                                        "message_collect_key", "session_cache", "start_recode"}));
  CHILD_CHECK(SessionKeys(file) == std::vector<std::string>{"written"});
}

void FileNameIsGluedToPathWithoutSeparator() {
  TempDir dir;
  SetLogPath(dir.path() + "/pre");
  const auto db = IDatabaseInterface::GetDbInstance();
  CHILD_CHECK(db->InsertSessionCache("written", "value", kYear2100) == 0);
  CHILD_CHECK(SessionKeys(dir.path() + "/preqzdata") == std::vector<std::string>{"written"});
  CHILD_CHECK(!std::filesystem::exists(dir.path() + "/qzdata"));
}

void EmptyPathMeansCurrentDirectory() {
  TempDir dir;
  SetLogPath("");
  CHILD_CHECK(chdir(dir.path().c_str()) == 0);
  const auto db = IDatabaseInterface::GetDbInstance();
  CHILD_CHECK(db->InsertSessionCache("written", "value", kYear2100) == 0);
  CHILD_CHECK(SessionKeys(dir.path() + "/qzdata") == std::vector<std::string>{"written"});
}

TEST_F(SharedObjectTest, FileIsDefaultLogPathFollowedDirectlyByQzdata) {
  EXPECT_SCENARIO_PASSES(FileGoesInsideDirectoryWithSeparator);
  EXPECT_SCENARIO_PASSES(FileNameIsGluedToPathWithoutSeparator);
  EXPECT_SCENARIO_PASSES(EmptyPathMeansCurrentDirectory);
}

void FailedFirstOpenIsNotRetried() {
  TempDir dir;
  const std::string missing = dir.path() + "/missing/";
  SetLogPath(missing);
  ScopedCapture capture;
  const auto db = IDatabaseInterface::GetDbInstance();
  const std::vector<std::string> open_failed = {"[database]Open sqlite3 file[" + missing +
                                                "qzdata] failed:unable to open database file"};
  CHILD_CHECK(capture.texts() == open_failed);
  std::string value = "untouched";
  CHILD_CHECK(db->InsertSessionCache("key", "value", kYear2100) == -1);
  CHILD_CHECK(db->SelectSessionCache("key", 0, value) == -1 && value == "untouched");

  // Now the open would succeed, yet the shared object stays closed.
  CHILD_CHECK(std::filesystem::create_directory(missing));
  CHILD_CHECK(IDatabaseInterface::GetDbInstance() == db);
  CHILD_CHECK(db->SelectSessionCache("key", 0, value) == -1);
  CHILD_CHECK(!std::filesystem::exists(missing + "qzdata"));
  CHILD_CHECK(capture.texts() == open_failed);

  // Only the host's own Init opens it.
  CHILD_CHECK(db->Init((missing + "qzdata").c_str()) == 0);
  CHILD_CHECK(IDatabaseInterface::GetDbInstance()->SelectSessionCache("key", 0, value) == 0);
}

TEST_F(SharedObjectTest, FailedFirstOpenLogsOnceAndLeavesTheObjectClosed) {
  EXPECT_SCENARIO_PASSES(FailedFirstOpenIsNotRetried);
}

void FirstUsePurgesExpiredSessions() {
  TempDir dir;
  const std::string file = dir.path() + "/qzdata";
  MakeFileWithVersion(file, "1.24.0");
  const int64_t before_open = NowMilliseconds();
  RawExec(file,
          "INSERT INTO session_cache (session_key, session_value, expire_time) VALUES "
          "('long_expired', 'a', 1000), ('just_expired', 'b', " +
              std::to_string(before_open - 1) + "), ('year_2100', 'c', " +
              std::to_string(kYear2100) + ")");
  CHILD_CHECK(SessionKeys(file).size() == 3);
  SetLogPath(dir.path() + "/");
  ScopedCapture capture;

  const auto db = IDatabaseInterface::GetDbInstance();
  CHILD_CHECK(SessionKeys(file) == std::vector<std::string>{"year_2100"});
  std::string value;
  CHILD_CHECK(db->SelectSessionCache("year_2100", before_open, value) == 1 && value == "c");

  // The purge removes only what expired strictly before the time it is given.
  CHILD_CHECK(db->DeleteSessionCache(kYear2100) == 0);
  CHILD_CHECK(SessionKeys(file) == std::vector<std::string>{"year_2100"});
  CHILD_CHECK(db->DeleteSessionCache(kYear2100 + 1) == 0);
  CHILD_CHECK(SessionKeys(file).empty());
  CHILD_CHECK(capture.texts().empty());
}

TEST_F(SharedObjectTest, FirstUseDeletesSessionsThatExpiredBeforeNow) {
  EXPECT_SCENARIO_PASSES(FirstUsePurgesExpiredSessions);
}

void ConcurrentFirstCallersGetOneReadyObject() {
  constexpr size_t kThreads = 8;
  TempDir dir;
  SetLogPath(dir.path() + "/");
  ScopedCapture capture;
  std::atomic<size_t> arrived{0};
  std::vector<IDatabaseInterface*> objects(kThreads, nullptr);
  std::vector<int> results(kThreads, -2);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      // All threads are running before any of them asks for the object.
      arrived.fetch_add(1);
      while (arrived.load() < kThreads) std::this_thread::yield();
      const auto db = IDatabaseInterface::GetDbInstance();
      std::string value;
      objects[i] = db.get();
      results[i] = db->SelectSessionCache("key", 0, value);
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (size_t i = 0; i < kThreads; ++i) {
    CHILD_CHECK(objects[i] != nullptr && objects[i] == objects[0]);
    CHILD_CHECK(results[i] == 0);
  }
  CHILD_CHECK(RawInt(dir.path() + "/qzdata", "SELECT COUNT(*) FROM db_version") == 1);
  CHILD_CHECK(capture.texts().empty());
}

TEST_F(SharedObjectTest, ConcurrentFirstCallersAllWaitForOneOpen) {
  EXPECT_SCENARIO_PASSES(ConcurrentFirstCallersGetOneReadyObject);
}

}  // namespace
}  // namespace test
}  // namespace database_interface
