// Writers and a reader share one store while a writer is killed mid-write and
// started again. A call that meets another's lock fails at once, -1 with its
// one line; every acknowledged row survives and the file stays whole.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "test_util.h"

namespace database_interface::test {

class ProcessesTest : public StoreTest {
 protected:
  static constexpr int kRounds = 40;
  static std::string Env(const char* name) { return std::getenv(name); }
  // Runs `call` until it succeeds (`retry`) or once; -1 only as a busy failure
  // with its one line (an Init's chain only begins so), anything else silent.
  int Checked(bool retry, const std::function<int()>& call) {
    for (int rc = call();; rc = call()) {
      const Lines lines = Take();
      EXPECT_TRUE(rc == -1 ? !lines.empty() && std::regex_match(lines[0], m_busy) : lines.empty())
          << rc << " " << ::testing::PrintToString(lines);
      if (rc != -1 || !retry || HasFailure()) return rc;
      std::this_thread::yield();
    }
  }
  std::vector<std::pair<int, int>> Acks(const std::string& name) const {
    std::vector<std::pair<int, int>> acks;
    std::ifstream in(m_dir.File("acks-" + name));
    for (std::pair<int, int> a; in >> a.first >> a.second;) acks.push_back(a);
    return acks;
  }
  const std::regex m_busy{".*failed:database is locked"};
};

// Writer DBI_WRITER: rounds i from DBI_FROM store a start record (type the
// writer, time i) and entry "<writer>-<i>", then append "<id> <i>" to
// acks-<writer>. Without it, the reader: reads until a file "stop" appears.
TEST_F(ProcessesTest, DISABLED_WriterOrReader) {
  ChildStarted();
  const char* writer = std::getenv("DBI_WRITER");
  const std::string dir = Env("DBI_TEST_DIR"), name = writer != nullptr ? writer : "";
  Checked(true, [&] { return InitOn(dir + "/store.db"); });
  std::ofstream acks(dir + "/acks-" + name, std::ios::app);
  for (int i = std::stoi(Env("DBI_FROM")), end = i + kRounds; writer && i < end; ++i) {
    int id = 0;
    const std::string key = name + "-" + std::to_string(i);
    ASSERT_EQ(1, Checked(true, [&] { return m_db->InsertStartRecode(id, "v", 1, writer, -1, i); }));
    ASSERT_EQ(0, Checked(true, [&] { return m_db->InsertSessionCache(key.c_str(), "v", i); }));
    acks << id << ' ' << i << std::endl;  // flushed: it outlives a kill
  }
  while (!writer && !std::filesystem::exists(dir + "/stop") && !HasFailure()) {
    std::string version, type, value;
    int64_t time = 0;
    Checked(false, [&] { return m_db->SelectStartRecode(1, version, type, time); });
    Checked(false, [&] { return m_db->SelectSessionCache("a-0", -1, value); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1));  // pace, not sync
  }
}

TEST_F(ProcessesTest, WritersAndAReaderShareAStoreThroughAKilledWriter) {
  SetEnv("DBI_TEST_DIR", m_dir.path.c_str());
  const auto start = [](const char* writer, int from) {
    SetEnv("DBI_WRITER", writer);
    SetEnv("DBI_FROM", std::to_string(from).c_str());
    return std::make_unique<Child>("ProcessesTest.DISABLED_WriterOrReader");
  };
  auto reader = start(nullptr, 0), a = start("a", 0), b = start("b", 0), c = start("c", 0);
  // A safety limit only: writers acknowledge rounds in milliseconds.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (Acks("c").size() < 5 && std::chrono::steady_clock::now() < limit)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  c->Kill();
  EXPECT_EQ(137, c->Wait());
  const size_t before_kill = Acks("c").size();
  c = start("c", 1000);
  for (Child* writer : {a.get(), b.get(), c.get()}) EXPECT_EQ(kChildPassed, writer->Wait());
  std::ofstream(m_dir.File("stop")).put('\n');
  EXPECT_EQ(kChildPassed, reader->Wait());

  const std::string path = m_dir.File("store.db");  // new: the children create it together
  EXPECT_EQ("ok", Raw(path, "PRAGMA integrity_check"));
  ASSERT_EQ(0, InitOn(path));
  for (const std::string name : {"a", "b", "c"}) {
    const auto acks = Acks(name);
    EXPECT_EQ(name == "c" ? before_kill + kRounds : size_t{kRounds}, acks.size()) << name;
    for (const auto& [id, i] : acks) {
      std::string version, type, value;
      int64_t time = -1;
      EXPECT_EQ(1, m_db->SelectStartRecode(id, version, type, time));
      EXPECT_EQ(std::make_pair(name, int64_t{i}), std::make_pair(type, time));
      EXPECT_EQ(1,
                m_db->SelectSessionCache((name + "-" + std::to_string(i)).c_str(), i - 1, value));
    }
  }
}

}  // namespace database_interface::test
