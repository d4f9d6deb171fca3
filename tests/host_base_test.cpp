// The host stand-in: UTF-8 path conversion, the default log directory and the
// default logger.
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

TEST(HostBaseTest, ToUtf8PathAcceptsWellFormedUtf8Only) {
  EXPECT_EQ("/tmp/a.db", base::CPathUtil::ToUtf8Path("/tmp/a.db"));
  EXPECT_EQ("/tmp/\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80",
            base::CPathUtil::ToUtf8Path("/tmp/\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"));
  for (const char* bad :
       {"\xff", "a\xc3", "\xc0\xaf", "\xe0\x80\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x80"}) {
    EXPECT_EQ("", base::CPathUtil::ToUtf8Path(bad)) << bad;
  }
  EXPECT_EQ("", base::CPathUtil::ToUtf8Path(nullptr));
  EXPECT_EQ("", base::CPathUtil::ToUtf8Path(""));
}

TEST(HostBaseTest, DefaultLogPathHonoursTheEnvironment) {
  TempDir dir;
  ASSERT_EQ(0, setenv("BASE_LOG_PATH", "no/separator", 1));
  EXPECT_EQ("no/separator", base::IBaseLogInterface::GetDefaultLogPath());
  ASSERT_EQ(0, setenv("BASE_LOG_PATH", "", 1));
  EXPECT_EQ("", base::IBaseLogInterface::GetDefaultLogPath());
  ASSERT_EQ(0, unsetenv("BASE_LOG_PATH"));
  ASSERT_EQ(0, setenv("XDG_STATE_HOME", dir.path().c_str(), 1));
  const std::string expected = dir.path() + "/base/log/";
  EXPECT_EQ(expected, base::IBaseLogInterface::GetDefaultLogPath());
  EXPECT_TRUE(std::filesystem::is_directory(expected));
}

// The process logger is process-wide: the scenario runs in a forked child,
// which sees the parent's temp directory.
TEST(HostBaseTest, DefaultLoggerWritesWholeLinesFromConcurrentThreads) {
  TempDir dir;
  const std::string log_dir = dir.path() + "/";
  EXPECT_EXIT(
      {
        setenv("BASE_LOG_PATH", log_dir.c_str(), 1);
        auto logger = base::IBaseLogInterface::GetLogInstance(nullptr);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
          threads.emplace_back([&logger, t] {
            for (int i = 0; i < 200; ++i) logger->WriteLog(60, base::GetTid(), "[x]%d-%d", t, i);
          });
        }
        for (std::thread& thread : threads) thread.join();
        std::exit(logger->GetLogFile() == log_dir + "base.log" ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  std::ifstream in(log_dir + "base.log");
  const std::regex line_format(
      R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[60\] \[\d+\] \[x\]\d-\d+)");
  int lines = 0;
  for (std::string line; std::getline(in, line); ++lines) {
    ASSERT_TRUE(std::regex_match(line, line_format)) << line;
  }
  EXPECT_EQ(800, lines);
}

}  // namespace
}  // namespace test
}  // namespace database_interface
