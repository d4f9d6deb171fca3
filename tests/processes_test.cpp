// Writers and a reader share one store while a writer is killed mid-write and
// started again. A call that meets another's lock fails at once, -1 with its
// one line; every acknowledged row survives and the file stays whole.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "test_util.h"

namespace database_interface::test {
namespace {

constexpr int kRounds = 40;

std::string Env(const char* name) { return std::getenv(name); }

// Runs `call` until it succeeds (`retry`) or once; -1 only as a busy failure
// with its one line (an Init's chain only begins so), anything else silent.
template <typename Call>
int Checked(LogCapture& log, bool retry, Call call) {
  for (int rc = call();; rc = call()) {
    const Lines lines = log.Take();
    EXPECT_TRUE(rc == -1 ? !lines.empty() &&
                               std::regex_match(lines[0], std::regex(".*failed:database is locked"))
                         : lines.empty())
        << rc << " " << ::testing::PrintToString(lines);
    if (rc != -1 || !retry || ::testing::Test::HasFailure()) return rc;
    std::this_thread::yield();
  }
}

std::vector<std::pair<int, int>> Acks(const std::string& name) {
  std::vector<std::pair<int, int>> acks;
  std::ifstream in(Env("DBI_TEST_DIR") + "/acks-" + name);
  for (std::pair<int, int> a; in >> a.first >> a.second;) acks.push_back(a);
  return acks;
}

}  // namespace

// Writer DBI_WRITER: rounds i from DBI_FROM store a start record (type the
// writer, time i) and entry "<writer>-<i>", then append "<id> <i>" to
// acks-<writer>. Without it, the reader: reads until a file "stop" appears.
TEST(ProcessesChild, DISABLED_WriterOrReader) {
  ChildStarted();
  const auto log = LogCapture::Install();
  const char* writer = std::getenv("DBI_WRITER");
  const std::string dir = Env("DBI_TEST_DIR"), name = writer != nullptr ? writer : "";
  const auto db = IDatabaseInterface::CreateDatabaseInterface();
  Checked(*log, true, [&] { return db->Init((dir + "/store.db").c_str()); });
  std::FILE* acks = writer ? std::fopen((dir + "/acks-" + name).c_str(), "a") : nullptr;
  for (int i = std::stoi(Env("DBI_FROM")), end = i + kRounds; writer && i < end; ++i) {
    int id = 0;
    const std::string key = name + "-" + std::to_string(i);
    ASSERT_EQ(
        1, Checked(*log, true, [&] { return db->InsertStartRecode(id, "v", 1, writer, -1, i); }));
    ASSERT_EQ(0, Checked(*log, true, [&] { return db->InsertSessionCache(key.c_str(), "v", i); }));
    std::fprintf(acks, "%d %d\n", id, i);
    std::fflush(acks);
  }
  while (!writer && !std::filesystem::exists(dir + "/stop") && !HasFailure()) {
    std::string version, type, value;
    int64_t time = 0;
    Checked(*log, false, [&] { return db->SelectStartRecode(1, version, type, time); });
    Checked(*log, false, [&] { return db->SelectSessionCache("a-0", -1, value); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // pace, not sync
  }
  if (acks != nullptr) std::fclose(acks);
  db->Uninit();
  log->Uninstall();
}

TEST(ProcessesTest, WritersAndAReaderShareAStoreThroughAKilledWriter) {
  TempDir dir;
  SetEnv("DBI_TEST_DIR", dir.path.c_str());
  const auto start = [](const char* writer, int from) {
    SetEnv("DBI_WRITER", writer);
    SetEnv("DBI_FROM", std::to_string(from).c_str());
    return std::make_unique<Child>("ProcessesChild.DISABLED_WriterOrReader");
  };
  auto reader = start(nullptr, 0), a = start("a", 0), b = start("b", 0), c = start("c", 0);
  // A safety limit only: writers acknowledge rounds in milliseconds.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (Acks("c").size() < 5 && std::chrono::steady_clock::now() < limit) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  c->Kill();
  EXPECT_EQ(137, c->Wait());
  const size_t before_kill = Acks("c").size();
  c = start("c", 1000);
  for (Child* writer : {a.get(), b.get(), c.get()}) EXPECT_EQ(kChildPassed, writer->Wait());
  std::ofstream(dir.File("stop")).put('\n');
  EXPECT_EQ(kChildPassed, reader->Wait());

  const std::string path = dir.File("store.db");
  EXPECT_EQ("ok", Raw(path, "PRAGMA integrity_check"));
  const auto db = IDatabaseInterface::CreateDatabaseInterface();
  ASSERT_EQ(0, db->Init(path.c_str()));
  for (const std::string name : {"a", "b", "c"}) {
    const auto acks = Acks(name);
    EXPECT_EQ(name == "c" ? before_kill + kRounds : size_t{kRounds}, acks.size()) << name;
    for (const auto& [id, i] : acks) {
      std::string version, type, value;
      int64_t time = -1;
      EXPECT_EQ(1, db->SelectStartRecode(id, version, type, time));
      EXPECT_EQ(std::make_pair(name, int64_t{i}), std::make_pair(type, time));
      EXPECT_EQ(1, db->SelectSessionCache((name + "-" + std::to_string(i)).c_str(), i - 1, value));
    }
  }
  db->Uninit();
}

}  // namespace database_interface::test
